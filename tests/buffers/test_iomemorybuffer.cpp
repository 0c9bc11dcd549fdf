#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"

#include "qtprinters.h"

#include <QTextStream>
#include <gtest/gtest.h>

namespace {

// Reaches the device's own read and write, below QIODevice's own checks.
class Device : public IOMemoryBuffer
{
public:
    using IOMemoryBuffer::IOMemoryBuffer;
    using IOMemoryBuffer::readData;
    using IOMemoryBuffer::writeData;
};

MemoryBuffer bytes(size_t n)
{
    MemoryBuffer buffer(n);
    for (size_t i = 0; i < n; ++i)
        buffer.putUInt8(static_cast<uint8_t>(i + 1));
    buffer.seek(0, MBSeekStart);
    return buffer;
}

} // namespace

TEST(IOMemoryBuffer, ClosedDeviceRefusesEverything)
{
    MemoryBuffer buffer = bytes(4);
    IOMemoryBuffer device(&buffer);
    EXPECT_FALSE(device.isSequential());
    EXPECT_EQ(device.size(), 4);
    EXPECT_FALSE(device.seek(1));
    EXPECT_EQ(device.errorString(), QStringLiteral("Device is not open"));
    EXPECT_FALSE(device.reset());
    char c;
    EXPECT_EQ(device.read(&c, 1), -1);
}

TEST(IOMemoryBuffer, TruncateEmptiesTheBuffer)
{
    MemoryBuffer buffer = bytes(10);
    IOMemoryBuffer device(&buffer);
    ASSERT_TRUE(device.open(QIODevice::ReadWrite | QIODevice::Truncate));
    EXPECT_EQ(buffer.sizeOfMB(), 0u);
    EXPECT_EQ(device.write("abc", 3), 3);
    EXPECT_EQ(buffer.sizeOfMB(), 3u);
    EXPECT_EQ(buffer.getString(3, 0, MBSeekStart), "abc");
}

TEST(IOMemoryBuffer, AppendStartsAtTheEnd)
{
    MemoryBuffer buffer = bytes(2);
    IOMemoryBuffer device(&buffer);
    ASSERT_TRUE(device.open(QIODevice::WriteOnly | QIODevice::Append));
    EXPECT_EQ(device.write("z", 1), 1);
    EXPECT_EQ(buffer.getBuffer(), (std::vector<unsigned char>{1, 2, 'z'}));
}

TEST(IOMemoryBuffer, SeekPastTheEndGrowsWithZeros)
{
    MemoryBuffer buffer = bytes(10);
    buffer.allowBufferExpansion(false);
    IOMemoryBuffer device(&buffer);
    ASSERT_TRUE(device.open(QIODevice::ReadWrite));
    EXPECT_TRUE(device.seek(20));
    EXPECT_EQ(buffer.sizeOfMB(), 20u);
    EXPECT_EQ(buffer.tell(), 20u);
    EXPECT_EQ(buffer.lookScalarArray<uint8_t>(10, 10, MBSeekStart, MBNativeOrder),
              std::vector<uint8_t>(10, 0));
    EXPECT_FALSE(device.seek(-1));
    EXPECT_EQ(device.errorString(), QStringLiteral("Unable to convert from qint64 to size_t"));
}

TEST(IOMemoryBuffer, ReadsStopAtTheEnd)
{
    MemoryBuffer buffer = bytes(10);
    IOMemoryBuffer device(&buffer);
    ASSERT_TRUE(device.open(QIODevice::ReadOnly));
    ASSERT_TRUE(device.seek(6));
    EXPECT_GE(device.bytesAvailable(), 4);
    char data[100];
    EXPECT_EQ(device.read(data, 100), 4);
    EXPECT_EQ(data[0], 7);
    EXPECT_TRUE(device.atEnd());
    EXPECT_EQ(device.read(data, 1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("No more data available"));
}

TEST(IOMemoryBuffer, WritePermissionsAndRefusedGrowth)
{
    MemoryBuffer buffer = bytes(2);
    Device readOnly(&buffer);
    ASSERT_TRUE(readOnly.open(QIODevice::ReadOnly));
    EXPECT_EQ(readOnly.writeData("x", 1), -1);
    EXPECT_EQ(readOnly.errorString(),
              QStringLiteral("MemoryBuffer: Device does not have Write permissions"));

    buffer.allowBufferExpansion(false);
    IOMemoryBuffer device(&buffer);
    ASSERT_TRUE(device.open(QIODevice::WriteOnly));
    ASSERT_TRUE(device.seek(2));
    EXPECT_EQ(device.write("x", 1), -1);
    EXPECT_EQ(device.errorString().toStdString(),
              "Write beyond end of buffer occurred: Size of buffer (2), Offset (2), Size requested (1)");
}

TEST(IOMemoryBuffer, DataCallsCheckTheirArgumentsInOrder)
{
    MemoryBuffer buffer = bytes(4);
    Device device(&buffer);
    char data[4];
    EXPECT_EQ(device.readData(data, 1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("Device is not open"));
    EXPECT_EQ(device.writeData(data, 1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("MemoryBuffer: Device is not open"));

    ASSERT_TRUE(device.open(QIODevice::ReadWrite));
    EXPECT_EQ(device.readData(nullptr, 1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("Data pointer is null"));
    EXPECT_EQ(device.readData(data, -1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("Negative length specified"));
    EXPECT_EQ(device.writeData(data, -1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("Negative length specified"));
    EXPECT_EQ(device.writeData(data, 0), 0);
    EXPECT_EQ(device.readData(data, 0), 0);
    EXPECT_EQ(buffer.tell(), 0u);

    buffer.restoreBufferState(MemoryBufferState{9, true, MBNativeOrder});
    EXPECT_EQ(device.readData(data, 1), -1);
    EXPECT_EQ(device.errorString(), QStringLiteral("Arithmetic overflow"));
    EXPECT_TRUE(device.atEnd());
    EXPECT_EQ(device.bytesAvailable(), 0);
}

TEST(IOMemoryBuffer, QtStreamsWorkOverTheBuffer)
{
    MemoryBuffer buffer;
    {
        IOMemoryBuffer device(&buffer);
        ASSERT_TRUE(device.open(QIODevice::WriteOnly));
        QTextStream out(&device);
        out << "line one\nline two\n";
    }
    IOMemoryBuffer device(&buffer);
    ASSERT_TRUE(device.open(QIODevice::ReadOnly));
    ASSERT_TRUE(device.reset());
    QTextStream in(&device);
    EXPECT_EQ(in.readLine(), QStringLiteral("line one"));
    EXPECT_EQ(in.readLine(), QStringLiteral("line two"));
}
