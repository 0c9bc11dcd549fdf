// Writing compound files: new files, streams in small and big blocks,
// resizing, deleting, the meta table, and files of other writers changed by
// us. Every file written is read back by an independent reader.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include <QBuffer>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

const unsigned char *bytesOf(const QByteArray &b) { return reinterpret_cast<const unsigned char *>(b.constData()); }

// A new compound file in its own buffer.
struct NewFile
{
    NewFile() : storage(&buffer) { EXPECT_TRUE(storage.open(true, true)); }
    MemoryBuffer buffer;
    POLE::Storage storage;
    QByteArray bytes() const { return toBytes(buffer); }
};

struct ExistingFile
{
    explicit ExistingFile(const QByteArray &bytes) : buffer(toBuffer(bytes)), storage(&buffer)
    {
        EXPECT_TRUE(storage.open(true, false)) << "result " << storage.result();
    }
    MemoryBuffer buffer;
    POLE::Storage storage;
    QByteArray bytes() const { return toBytes(buffer); }
};

bool add(POLE::Storage &storage, const QString &path, const QByteArray &data)
{
    MemoryBuffer buffer = toBuffer(data);
    return storage.addEntry(path, &buffer);
}

QByteArray read(POLE::Storage &storage, const QString &path)
{
    MemoryBuffer out;
    storage.getEntryData(path, &out);
    return toBytes(out);
}

struct Stats
{
    uint64_t dir, unusedDir, bat, freeBat, sbat, freeSbat;
};
Stats stats(const POLE::Storage &storage)
{
    Stats s;
    storage.GetStats(s.dir, s.unusedDir, s.bat, s.freeBat, s.sbat, s.freeSbat);
    return s;
}

} // namespace

TEST(PoleWrite, NewFileWithOneEmptyStream)
{
    NewFile f;
    EXPECT_TRUE(f.storage.isWriteable());
    {
        POLE::Stream stream(&f.storage, QStringLiteral("/empty"), true, 0);
        ASSERT_FALSE(stream.fail());
        stream.flush();
    }
    const QByteArray b = f.bytes();
    ASSERT_GE(b.size(), 2560) << "header and four sectors";
    EXPECT_EQ(b.size() % 512, 0);
    EXPECT_EQ(get32(b, 44), 1u) << "num_bat";
    EXPECT_EQ(get32(b, 48), 1u) << "dirent_start";
    EXPECT_EQ(get32(b, 60), 2u) << "sbat_start";
    EXPECT_EQ(get32(b, 64), 1u) << "num_sbat";
    EXPECT_EQ(get32(b, 68), 0xFFFFFFFEu) << "mbat_start";
    EXPECT_EQ(get32(b, 76), 0u) << "first BAT sector";
    EXPECT_EQ(get32(b, 80), 0xFFFFFFFFu) << "unused BAT slots";
    const QByteArray rootName = b.mid(1024, 20);
    EXPECT_EQ(QString::fromUtf16(reinterpret_cast<const char16_t *>(rootName.constData()), 10), QStringLiteral("Root Entry"));
    EXPECT_EQ(uint8_t(b[1024 + 66]), 5);
    EXPECT_EQ(QString::fromUtf16(reinterpret_cast<const char16_t *>(b.constData() + 1152), 5), QStringLiteral("empty"));
    EXPECT_EQ(uint8_t(b[1152 + 66]), 2);
    EXPECT_EQ(verifyWritten(b, {{QStringLiteral("/empty"), QByteArray()}}), QString());
}

TEST(PoleWrite, NestedSmallStreamThroughAddEntry)
{
    NewFile f;
    const QByteArray data = pattern(100, 1);
    ASSERT_TRUE(add(f.storage, QStringLiteral("/a/b"), data));
    EXPECT_TRUE(f.storage.isDirectory(QStringLiteral("/a")));
    EXPECT_FALSE(f.storage.isDirectory(QStringLiteral("/a/b")));
    const QByteArray b = f.bytes();
    EXPECT_EQ(get32(b, 1024 + 116), 3u) << "the root's start is the first container sector";
    EXPECT_EQ(stats(f.storage).sbat - stats(f.storage).freeSbat, 2u) << "100 bytes take two small blocks";
    EXPECT_TRUE(read(f.storage, QStringLiteral("/a/b")) == data);
    EXPECT_EQ(verifyWritten(b, {{QStringLiteral("/a/b"), data}}, {QStringLiteral("/a")}), QString());
}

TEST(PoleWrite, StreamsAtTheThresholdChooseTheirBlocks)
{
    struct Case
    {
        int size;
        uint64_t bigBlocks;   // sectors added to the file: stream data or small-block container
        uint64_t smallBlocks;
    };
    for (const Case &c : {Case{5000, 10, 0}, Case{4096, 8, 0}, Case{4095, 7, 64}, Case{1, 0, 1}}) {
        NewFile f;
        const QByteArray data = pattern(c.size, c.size);
        const Stats before = stats(f.storage);
        {
            POLE::Stream stream(&f.storage, QStringLiteral("/s"), true, 0);
            EXPECT_EQ(stream.write(bytesOf(data), uint64_t(data.size())), uint64_t(data.size()));
            EXPECT_EQ(stream.tell(), uint64_t(data.size()));
            stream.flush();
        }
        const Stats after = stats(f.storage);
        EXPECT_EQ((after.bat - after.freeBat) - (before.bat - before.freeBat), c.bigBlocks) << c.size;
        EXPECT_EQ((after.sbat - after.freeSbat) - (before.sbat - before.freeSbat), c.smallBlocks) << c.size;
        EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/s"), data}}), QString()) << c.size;
    }
}

TEST(PoleWrite, ResizingAcrossTheThresholdKeepsTheContentOfANewFile)
{
    NewFile f;
    const QByteArray data = pattern(100, 2);
    POLE::Stream stream(&f.storage, QStringLiteral("/grow"), true, 0);
    stream.write(bytesOf(data), 100);
    const Stats small = stats(f.storage);
    stream.seek(40);
    stream.setSize(5000);
    EXPECT_EQ(stream.size(), 5000u);
    EXPECT_EQ(stream.tell(), 40u) << "the position survives the move";
    const Stats big = stats(f.storage);
    EXPECT_EQ(big.freeSbat - small.freeSbat, 2u) << "its small blocks are freed";
    EXPECT_EQ(small.freeBat - big.freeBat, 1u) << "one big block holds the kept bytes";
    unsigned char back[100];
    stream.seek(0);
    ASSERT_EQ(stream.read(back, 100), 100u);
    EXPECT_TRUE(QByteArray(reinterpret_cast<char *>(back), 100) == data) << "content read back before any flush";

    // Fill it and come back down under the threshold.
    const QByteArray full = pattern(5000, 3);
    stream.seek(0);
    stream.write(bytesOf(full), 5000);
    stream.seek(4500);
    stream.setSize(300);
    EXPECT_EQ(stream.tell(), 300u) << "a position past the new end is not restored";
    EXPECT_EQ(stats(f.storage).freeBat, small.freeBat) << "all big blocks are freed";
    stream.flush();
    EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/grow"), full.left(300)}}), QString());
}

TEST(PoleWrite, GrowingAStreamOfAnotherWritersFile)
{
    ExistingFile f(readFile(fixture(QStringLiteral("gsf-mixed.ole"))));
    const QByteArray original = read(f.storage, QStringLiteral("/readme.txt"));
    ASSERT_EQ(original.size(), 19);
    const Stats before = stats(f.storage);
    {
        POLE::Stream stream(&f.storage, QStringLiteral("/readme.txt"));
        stream.setSize(5000);
        stream.flush();
    }
    EXPECT_EQ(stats(f.storage).freeSbat - before.freeSbat, 1u);
    const QByteArray grown = read(f.storage, QStringLiteral("/readme.txt"));
    EXPECT_TRUE(grown.left(19) == original);

    // The rest of the file is as it was, for us and for the other reader.
    QMap<QString, QByteArray> expected;
    for (const QString &path : f.storage.GetAllStreams(QStringLiteral("/")))
        expected.insert(path, read(f.storage, path));
    EXPECT_EQ(expected.value(QStringLiteral("/docs/small4095.bin")).size(), 4095);
    EXPECT_EQ(verifyWritten(f.bytes(), expected, {QStringLiteral("/docs")}), QString());
}

TEST(PoleWrite, AddEntryOverALongerStreamKeepsItsSize)
{
    NewFile f;
    const QByteArray longer = pattern(6000, 4);
    const QByteArray shorter = pattern(1500, 5);
    ASSERT_TRUE(add(f.storage, QStringLiteral("s"), longer));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/s"), shorter));
    const QByteArray expected = shorter + longer.mid(1500);
    EXPECT_TRUE(read(f.storage, QStringLiteral("/s")) == expected);
    EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/s"), expected}}), QString());

    QBuffer device;
    device.setData(pattern(7000, 6));
    ASSERT_TRUE(f.storage.addEntry(QStringLiteral("/dev"), device));
    EXPECT_TRUE(read(f.storage, QStringLiteral("/dev")) == pattern(7000, 6));
}

TEST(PoleWrite, WritesInsideAndPastTheEnd)
{
    NewFile f;
    POLE::Stream stream(&f.storage, QStringLiteral("/w"), true, 0);
    QByteArray expected = pattern(3000, 7);
    stream.write(bytesOf(expected), uint64_t(expected.size()));
    const QByteArray patch = pattern(700, 8);
    stream.seek(2800);
    EXPECT_EQ(stream.write(bytesOf(patch), 700), 700u) << "crosses the threshold while writing";
    expected = expected.left(2800) + patch;
    const QByteArray tail = pattern(50, 9);
    stream.seek(9000);
    stream.write(bytesOf(tail), 50);
    EXPECT_EQ(stream.size(), 9050u);
    stream.seek(0);
    QByteArray back(9050, '\0');
    EXPECT_EQ(stream.read(reinterpret_cast<unsigned char *>(back.data()), 9050), 9050u);
    EXPECT_TRUE(back.left(3500) == expected);
    EXPECT_TRUE(back.right(50) == tail);
    EXPECT_EQ(stream.write(nullptr, 5), 0u);
    EXPECT_EQ(stream.write(bytesOf(tail), 0), 0u);
    stream.flush();
    EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/w"), back}}), QString());
}

TEST(PoleWrite, DeletingStoragesAndReusingTheirSlots)
{
    NewFile f;
    ASSERT_TRUE(add(f.storage, QStringLiteral("/keep"), pattern(10, 1)));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/dir/a"), pattern(5000, 2)));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/dir/b"), pattern(200, 3)));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/dir/sub/c"), pattern(300, 4)));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/last"), pattern(20, 5)));
    const Stats full = stats(f.storage);

    EXPECT_TRUE(f.storage.deleteByName(QStringLiteral("/dir")));
    EXPECT_FALSE(f.storage.exists(QStringLiteral("/dir")));
    EXPECT_FALSE(f.storage.exists(QStringLiteral("/dir/sub/c")));
    const Stats deleted = stats(f.storage);
    EXPECT_EQ(deleted.unusedDir - full.unusedDir, 5u) << "dir, a, b, sub and c";
    EXPECT_EQ(deleted.freeBat - full.freeBat, 10u) << "a's sectors";
    EXPECT_EQ(deleted.freeSbat - full.freeSbat, 4u + 5u) << "b's and c's small blocks";
    EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/keep"), pattern(10, 1)}, {QStringLiteral("/last"), pattern(20, 5)}}),
              QString());

    // dir was entry 2: the next entry created takes that slot.
    ASSERT_TRUE(add(f.storage, QStringLiteral("/again"), pattern(30, 6)));
    EXPECT_EQ(stats(f.storage).dir, full.dir) << "no new directory entry";
    QTemporaryDir tmp;
    ASSERT_TRUE(writeFile(tmp.filePath(QStringLiteral("f")), f.bytes()));
    const Listing theirs = olefileListing(tmp.filePath(QStringLiteral("f")));
    ASSERT_TRUE(theirs.ok) << qPrintable(theirs.error);
    EXPECT_EQ(theirs.entries.value(QStringLiteral("/again")).sid, 2);
}

TEST(PoleWrite, DeletingWithATrailingSlashOrWithout)
{
    for (const char *path : {"/gone", "/gone/", "gone"}) {
        NewFile f;
        ASSERT_TRUE(add(f.storage, QStringLiteral("/a"), pattern(10, 1)));
        ASSERT_TRUE(add(f.storage, QStringLiteral("/gone"), pattern(10, 2)));
        ASSERT_TRUE(add(f.storage, QStringLiteral("/zz"), pattern(10, 3)));
        EXPECT_TRUE(f.storage.deleteByName(QString::fromLatin1(path))) << path;
        EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/a"), pattern(10, 1)}, {QStringLiteral("/zz"), pattern(10, 3)}}),
                  QString())
            << path;
    }
}

TEST(PoleWrite, DeletingEveryShapeOfSiblingTree)
{
    // Names inserted in an order that gives nodes with two children, left
    // and right chains; each is deleted in turn from a fresh file.
    const QStringList names{"m", "f", "t", "c", "h", "q", "w", "a", "d", "g", "k", "p", "r", "v", "z"};
    for (const QString &victim : names) {
        NewFile f;
        QMap<QString, QByteArray> expected;
        for (int i = 0; i < names.size(); ++i) {
            const QString path = QLatin1Char('/') + names.at(i);
            ASSERT_TRUE(add(f.storage, path, pattern(10 + i, i)));
            if (names.at(i) != victim)
                expected.insert(path, pattern(10 + i, i));
        }
        EXPECT_TRUE(f.storage.deleteByName(QLatin1Char('/') + victim));
        EXPECT_EQ(f.storage.entries().size(), names.size() - 1) << qPrintable(victim);
        EXPECT_EQ(verifyWritten(f.bytes(), expected), QString()) << "after deleting " << qPrintable(victim);
    }
}

TEST(PoleWrite, RefusedChanges)
{
    NewFile f;
    ASSERT_TRUE(add(f.storage, QStringLiteral("/s"), pattern(10, 1)));
    EXPECT_FALSE(f.storage.deleteByName(QString()));
    EXPECT_FALSE(f.storage.deleteByName(QStringLiteral("/missing")));
    EXPECT_FALSE(f.storage.deleteByName(QStringLiteral("/"))) << "the root stays";
    EXPECT_TRUE(POLE::Stream(&f.storage, QStringLiteral("/s/under"), true, 5).fail()) << "a stream has no children";
    try {
        f.storage.setClassId(QStringLiteral("/"), QStringLiteral("{00020906-0000-0000-c000-000000000046}"));
        ADD_FAILURE() << "setClassId on a writeable storage";
    } catch (const char *message) {
        EXPECT_STREQ(message, "not implemented");
    }
    POLE::Stream root(&f.storage, QStringLiteral("/"));
    const unsigned char x = 1;
    EXPECT_EQ(root.write(&x, 1), 0u) << "a storage takes no data";
}

TEST(PoleWrite, OverlongNamesFailWhenFlushed)
{
    NewFile f;
    const QString name = QStringLiteral("/") + QString(32, QLatin1Char('n'));
    POLE::Stream stream(&f.storage, name, true, 0);
    ASSERT_FALSE(stream.fail()) << "accepted in memory";
    try {
        stream.flush();
        ADD_FAILURE() << "no exception";
    } catch (const char *message) {
        EXPECT_STREQ(message, "Error in CFB - max length for name is 31 chars");
    }
    NewFile ok;
    ASSERT_TRUE(add(ok.storage, QStringLiteral("/") + QString(31, QLatin1Char('n')), "x"));
    EXPECT_EQ(verifyWritten(ok.bytes(), {{QStringLiteral("/") + QString(31, QLatin1Char('n')), "x"}}), QString());
}

TEST(PoleWrite, ManyStreamsNestedDeletedAndCreatedAgain)
{
    NewFile f;
    QMap<QString, QByteArray> expected;
    QStringList storages;
    for (int i = 0; i < 120; ++i) {
        const QString dir = QStringLiteral("/d%1").arg(i % 5);
        const QString sub = i % 3 == 0 ? dir + QStringLiteral("/sub") : dir;
        if (!storages.contains(dir))
            storages << dir;
        if (sub != dir && !storages.contains(sub))
            storages << sub;
        const QString path = sub + QStringLiteral("/s%1").arg(i);
        const QByteArray data = pattern(i % 4 == 0 ? 4096 + i * 37 : i * 31, i);
        ASSERT_TRUE(add(f.storage, path, data));
        expected.insert(path, data);
    }
    for (int i = 0; i < 120; i += 7) {
        const QString path = expected.keys().at(i % expected.size());
        ASSERT_TRUE(f.storage.deleteByName(path)) << qPrintable(path);
        expected.remove(path);
    }
    for (int i = 0; i < 30; ++i) {
        const QString path = QStringLiteral("/d%1/again%2").arg(i % 5).arg(i);
        const QByteArray data = pattern(i * 300, 1000 + i);
        ASSERT_TRUE(add(f.storage, path, data));
        expected.insert(path, data);
    }
    EXPECT_EQ(verifyWritten(f.bytes(), expected, storages), QString());
}

TEST(PoleWrite, GrowingPast109TableSectorsAddsTheMetaTable)
{
    NewFile f;
    const QByteArray big = pattern(8 * 1000 * 1000, 11);
    ASSERT_TRUE(add(f.storage, QStringLiteral("/huge"), big));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/small"), pattern(500, 12)));
    const POLE::HeaderInfo h = f.storage.headerInfo();
    EXPECT_GT(h.numBat, 109u);
    EXPECT_EQ(h.numMbat, 1u);
    const QByteArray bytes = f.bytes();
    // The reading side decodes the same table back.
    ExistingFile reopened(bytes);
    const Stats written = stats(f.storage);
    const Stats read = stats(reopened.storage);
    EXPECT_EQ(read.bat - read.freeBat, written.bat - written.freeBat);
    EXPECT_EQ(read.bat, h.numBat * 128) << "the whole table as its sectors hold it";
    EXPECT_EQ(verifyWritten(bytes, {{QStringLiteral("/huge"), big}, {QStringLiteral("/small"), pattern(500, 12)}}), QString());

    // Changing it again keeps it consistent.
    ASSERT_TRUE(reopened.storage.deleteByName(QStringLiteral("/huge")));
    ASSERT_TRUE(add(reopened.storage, QStringLiteral("/after"), pattern(9000, 13)));
    EXPECT_EQ(verifyWritten(reopened.bytes(), {{QStringLiteral("/small"), pattern(500, 12)}, {QStringLiteral("/after"), pattern(9000, 13)}}),
              QString());
}

TEST(PoleWrite, FilesOfOtherWritersChangedByUs)
{
    for (const char *name : {"writer.doc", "calc.xls", "impress.ppt", "gsf-mixed.ole"}) {
        SCOPED_TRACE(name);
        const QString path = fixture(QString::fromLatin1(name));
        ExistingFile f(readFile(path));
        QMap<QString, QByteArray> expected;
        QStringList storages;
        const Listing before = olefileListing(path);
        ASSERT_TRUE(before.ok) << qPrintable(before.error);
        for (auto it = before.entries.begin(); it != before.entries.end(); ++it) {
            if (it.value().kind == QLatin1String("storage"))
                storages << it.key();
            else
                expected.insert(it.key(), read(f.storage, it.key()));
        }
        // Delete the first stream, add small and big ones, grow the last one.
        const QString victim = expected.firstKey();
        ASSERT_TRUE(f.storage.deleteByName(victim));
        expected.remove(victim);
        ASSERT_TRUE(add(f.storage, QStringLiteral("/Added small"), pattern(777, 1)));
        ASSERT_TRUE(add(f.storage, QStringLiteral("/Added/big"), pattern(20000, 2)));
        expected.insert(QStringLiteral("/Added small"), pattern(777, 1));
        expected.insert(QStringLiteral("/Added/big"), pattern(20000, 2));
        storages << QStringLiteral("/Added");
        const QString last = expected.lastKey();
        {
            POLE::Stream stream(&f.storage, last);
            const QByteArray tail = pattern(3000, 3);
            stream.seek(stream.size());
            stream.write(bytesOf(tail), uint64_t(tail.size()));
            stream.flush();
            expected[last] += tail;
        }
        // The other writer's class identifiers are kept: compare without them.
        QTemporaryDir dir;
        ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("changed")), f.bytes()));
        const Listing after = olefileListing(dir.filePath(QStringLiteral("changed")));
        ASSERT_TRUE(after.ok) << qPrintable(after.error);
        EXPECT_EQ(after.rootClsid, before.rootClsid);
        EXPECT_EQ(after.entries.size(), expected.size() + storages.size());
        for (auto it = expected.begin(); it != expected.end(); ++it)
            EXPECT_EQ(after.entries.value(it.key()).sha256, sha256(it.value())) << qPrintable(it.key());
        for (const QString &storage : storages)
            EXPECT_EQ(after.entries.value(storage).kind, QStringLiteral("storage")) << qPrintable(storage);
    }
}

TEST(PoleWrite, FourKilobyteSectorFileChangedByUs)
{
    const BuiltFile built = buildCompoundFile({{QStringLiteral("one"), pattern(300, 1)}, {QStringLiteral("two"), pattern(9000, 2)}}, 12);
    ExistingFile f(built.bytes);
    ASSERT_TRUE(add(f.storage, QStringLiteral("/three"), pattern(50000, 3)));
    ASSERT_TRUE(add(f.storage, QStringLiteral("/four"), pattern(100, 4)));
    ASSERT_TRUE(f.storage.deleteByName(QStringLiteral("/one")));
    EXPECT_EQ(f.bytes().size() % 4096, 0);
    EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/two"), pattern(9000, 2)},
                                        {QStringLiteral("/three"), pattern(50000, 3)},
                                        {QStringLiteral("/four"), pattern(100, 4)}}),
              QString());
}

TEST(PoleWrite, CreatingAgainReplacesTheBuffer)
{
    NewFile f;
    ASSERT_TRUE(add(f.storage, QStringLiteral("/old"), pattern(9000, 1)));
    ASSERT_TRUE(f.storage.open(true, true));
    POLE::Stream stream(&f.storage, QStringLiteral("/new"), true, 0);
    stream.write(bytesOf(pattern(10, 2)), 10);
    stream.flush();
    EXPECT_EQ(f.bytes().size(), 2560) << "nothing of the old file is left";
    EXPECT_EQ(verifyWritten(f.bytes(), {{QStringLiteral("/new"), pattern(10, 2)}}), QString());
}
