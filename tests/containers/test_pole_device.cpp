// Compound files through a caller's device: files read and changed in place
// through a QFile, what reading one stream costs, and devices that cannot
// serve a storage.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include <QBuffer>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

// A buffer device that counts the bytes read from it.
class CountingBuffer : public QBuffer
{
public:
    qint64 bytesRead = 0;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 n = QBuffer::readData(data, maxSize);
        bytesRead += std::max<qint64>(n, 0);
        return n;
    }
};

// A device without random access.
class Sequential : public QBuffer
{
public:
    bool isSequential() const override { return true; }
};

Listing listingThrough(QIODevice &device)
{
    POLE::Storage storage(&device);
    return storage.open() ? poleListing(storage) : Listing{{"!error", QString::number(storage.result())}};
}

} // namespace

TEST(PoleDevice, FilesReadThroughAQFileAsTheIndependentReaderReadsThem)
{
    for (const char *name : {"writer.doc", "impress.ppt", "gsf-mixed.ole"}) {
        QFile closed(fixture(name));
        EXPECT_EQ(difference(listingThrough(closed), olefileListing(fixture(name))), QString()) << name;
        EXPECT_FALSE(closed.isOpen()) << "a device the storage opened is closed again";

        QFile open(fixture(name));
        ASSERT_TRUE(open.open(QIODevice::ReadOnly));
        EXPECT_EQ(difference(listingThrough(open), olefileListing(fixture(name))), QString()) << name;
        EXPECT_TRUE(open.isOpen()) << "the caller's open device stays open";
    }
}

TEST(PoleDevice, ReadingOneStreamCostsItsSectorsAndTheTables)
{
    // Twenty streams of 100 KB; one of them is read.
    MemoryBuffer made;
    {
        POLE::Storage storage(&made);
        ASSERT_TRUE(storage.open(true, true));
        for (int i = 0; i < 20; ++i) {
            MemoryBuffer data = bufferOf(pattern(100000, i));
            ASSERT_TRUE(storage.addEntry(QStringLiteral("/s%1").arg(i), &data));
        }
    }
    CountingBuffer device;
    device.setData(bytesOf(made));
    POLE::Storage storage(&device);
    ASSERT_TRUE(storage.open());
    const qint64 tables = device.bytesRead;
    // The allocation table takes 4 bytes per 512-byte sector.
    EXPECT_LT(tables, qint64(made.sizeOfMB() / 100)) << "header, allocation table and directory";
    POLE::Stream stream(&storage, "/s7");
    QByteArray data(100000, '\0');
    ASSERT_EQ(stream.read(reinterpret_cast<unsigned char *>(data.data()), 100000), 100000u);
    EXPECT_TRUE(data == pattern(100000, 7));
    EXPECT_LE(device.bytesRead - tables, 100000 + 512) << "of a file of " << made.sizeOfMB() << " bytes";
}

TEST(PoleDevice, ChangesAndNewFilesThroughAQFile)
{
    QTemporaryDir dir;
    const QString path = fileIn(dir, "changed.ole", readFile(fixture("gsf-mixed.ole")));
    Listing expected = olefileListing(path);
    {
        QFile file(path);
        POLE::Storage storage(&file);
        ASSERT_TRUE(storage.open(true, false));
        MemoryBuffer data = bufferOf(pattern(9000, 1));
        ASSERT_TRUE(storage.addEntry("/docs/added", &data));
        ASSERT_TRUE(storage.deleteByName("/readme.txt"));
        storage.close();
        EXPECT_FALSE(file.isOpen());
    }
    expected.insert("/docs/added", streamEntry(pattern(9000, 1)));
    expected.remove("/readme.txt");
    EXPECT_EQ(difference(olefileListing(path), expected), QString());

    // Creating truncates what the device held, whether the storage or the caller opened it.
    for (bool callerOpens : {false, true}) {
        QFile file(path);
        if (callerOpens) {
            ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        }
        POLE::Storage storage(&file);
        ASSERT_TRUE(storage.open(true, true));
        MemoryBuffer data = bufferOf(pattern(300, 2));
        ASSERT_TRUE(storage.addEntry("/only", &data));
        storage.close();
        file.close();
        EXPECT_EQ(verifyWritten(readFile(path), {{"/only", pattern(300, 2)}}), QString()) << callerOpens;
    }
}

TEST(PoleDevice, DevicesThatCannotServeAStorage)
{
    const QByteArray bytes = readFile(fixture("writer.doc"));
    QBuffer writeOnly, readOnly;
    writeOnly.setData(bytes);
    readOnly.setData(bytes);
    ASSERT_TRUE(writeOnly.open(QIODevice::WriteOnly) && readOnly.open(QIODevice::ReadOnly));
    Sequential sequential;
    sequential.setData(bytes);
    sequential.open(QIODevice::ReadOnly);
    QFile missing(QStringLiteral("/nonexistent/file.doc"));
    struct Case { const char *what; QIODevice *device; bool writeable; };
    const Case cases[] = {
        {"no device", nullptr, false},
        {"a missing file", &missing, false},
        {"an open write-only device", &writeOnly, false},
        {"an open read-only device, for changes", &readOnly, true},
        {"a sequential device", &sequential, false},
    };
    for (const Case &c : cases) {
        POLE::Storage storage(c.device);
        EXPECT_FALSE(storage.open(c.writeable)) << c.what;
        EXPECT_EQ(storage.result(), POLE::Storage::OpenFailed) << c.what;
        EXPECT_FALSE(storage.exists("/WordDocument")) << c.what;
    }
    EXPECT_TRUE(readOnly.data() == bytes);
}
