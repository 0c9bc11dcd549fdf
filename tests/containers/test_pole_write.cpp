// Writing compound files: small and big streams, resizing across the
// threshold, deletions, the meta table, and files of other writers changed by
// us. Every file written is read back by an independent reader.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include <QBuffer>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

const unsigned char *bytesOf(const QByteArray &b) { return reinterpret_cast<const unsigned char *>(b.constData()); }

// A new compound file, or these bytes opened for writing.
struct File : Cfb
{
    File() { EXPECT_TRUE(storage.open(true, true)); }
    explicit File(const QByteArray &bytes) : Cfb(bytes)
    {
        EXPECT_TRUE(storage.open(true, false)) << "result " << storage.result();
    }
};

struct Stats
{
    explicit Stats(const POLE::Storage &storage) { storage.GetStats(dir, unusedDir, bat, freeBat, sbat, freeSbat); }
    uint64_t usedBat() const { return bat - freeBat; }
    uint64_t usedSbat() const { return sbat - freeSbat; }
    uint64_t dir, unusedDir, bat, freeBat, sbat, freeSbat;
};

} // namespace

TEST(PoleWrite, StreamsChooseBigOrSmallBlocksByTheirSize)
{
    // Big blocks added are the stream's sectors or more small-block container.
    struct Case { QString path; int size; uint64_t bigBlocks, smallBlocks; };
    const Case cases[] = {
        {"/s", 5000, 10, 0},
        {"/s", 4096, 8, 0},
        {"/s", 4095, 7, 64},
        {"/s", 0, 0, 0},
        {"/" + QString(31, QLatin1Char('n')), 1, 0, 1},
        {"/a/b", 100, 0, 2},
    };
    for (const Case &c : cases) {
        File f;
        const QByteArray data = pattern(c.size, c.size);
        const Stats before(f.storage);
        POLE::Stream stream(&f.storage, c.path, true, 0);
        EXPECT_EQ(stream.write(bytesOf(data), uint64_t(data.size())), uint64_t(data.size()));
        stream.flush();
        const Stats after(f.storage);
        EXPECT_EQ(after.usedBat() - before.usedBat(), c.bigBlocks) << c.size;
        EXPECT_EQ(after.usedSbat() - before.usedSbat(), c.smallBlocks) << c.size;
        const QString parent = c.path.section(QLatin1Char('/'), 0, -2);
        const QStringList storages = parent.isEmpty() ? QStringList() : QStringList{parent};
        EXPECT_EQ(verifyWritten(f.bytes(), {{c.path, data}}, storages), QString()) << c.size;
    }
}

TEST(PoleWrite, ResizingAndWritingAcrossTheThresholdKeepTheContent)
{
    File f;
    const QByteArray first = pattern(100, 2), full = pattern(5000, 3), patch = pattern(4000, 8), tail = pattern(50, 9);
    POLE::Stream stream(&f.storage, "/grow", true, 0);
    stream.write(bytesOf(first), 100);
    const Stats small(f.storage);
    stream.seek(40);
    stream.setSize(5000);
    EXPECT_EQ(stream.size(), 5000u);
    EXPECT_EQ(stream.tell(), 40u) << "the position survives the move";
    EXPECT_EQ(Stats(f.storage).freeSbat - small.freeSbat, 2u) << "its small blocks are freed";
    QByteArray back(100, '\0');
    stream.seek(0);
    ASSERT_EQ(stream.read(reinterpret_cast<unsigned char *>(back.data()), 100), 100u);
    EXPECT_TRUE(back == first) << "content moved to big blocks, read before any flush";

    // Filled, then cut below the threshold: every big block is freed.
    stream.seek(0);
    stream.write(bytesOf(full), 5000);
    stream.seek(4500);
    stream.setSize(300);
    EXPECT_EQ(stream.tell(), 300u) << "a position past the new end is not kept";
    EXPECT_EQ(Stats(f.storage).freeBat, small.freeBat);

    // A write that crosses the threshold, then one after a gap.
    stream.seek(200);
    EXPECT_EQ(stream.write(bytesOf(patch), 4000), 4000u);
    stream.seek(9000);
    stream.write(bytesOf(tail), 50);
    QByteArray all(9050, '\0');
    stream.seek(0);
    EXPECT_EQ(stream.read(reinterpret_cast<unsigned char *>(all.data()), 9050), 9050u);
    EXPECT_TRUE(all.left(4200) == full.left(200) + patch && all.right(50) == tail);
    stream.flush();
    EXPECT_EQ(verifyWritten(f.bytes(), {{"/grow", all}}), QString());
}

TEST(PoleWrite, CreatingAgainAddingDeletingAndRefusedChanges)
{
    File f;
    ASSERT_TRUE(f.add("/old", pattern(9000, 1)));
    ASSERT_TRUE(f.storage.open(true, true));
    ASSERT_TRUE(f.add("/s", pattern(10, 2)));
    EXPECT_EQ(f.bytes().size(), 2560) << "nothing of the old file is left";
    // Adding over a stream grows it, but never shrinks it.
    const QByteArray longer = pattern(6000, 4), shorter = pattern(1500, 5);
    ASSERT_TRUE(f.add("s", longer));
    ASSERT_TRUE(f.add("/s", shorter));
    QBuffer device;
    device.setData(pattern(7000, 6));
    ASSERT_TRUE(f.storage.addEntry("/dev", device)) << "from a device";

    // A deleted storage frees its whole subtree for reuse.
    ASSERT_TRUE(f.add("/dir/a", pattern(5000, 2)));
    ASSERT_TRUE(f.add("/dir/b", pattern(200, 3)));
    ASSERT_TRUE(f.add("/dir/sub/c", pattern(300, 4)));
    const Stats full(f.storage);
    EXPECT_TRUE(f.storage.deleteByName("/dir"));
    const Stats deleted(f.storage);
    EXPECT_EQ(deleted.unusedDir - full.unusedDir, 5u) << "dir, a, b, sub and c";
    EXPECT_EQ(deleted.freeBat - full.freeBat, 10u) << "a's sectors";
    EXPECT_EQ(deleted.freeSbat - full.freeSbat, 4u + 5u) << "b's and c's small blocks";
    ASSERT_TRUE(f.add("/again", pattern(30, 6)));
    EXPECT_EQ(Stats(f.storage).dir, full.dir) << "the new entry takes a freed slot";
    const QMap<QString, QByteArray> streams{
        {"/s", shorter + longer.mid(1500)}, {"/dev", pattern(7000, 6)}, {"/again", pattern(30, 6)}};
    EXPECT_EQ(verifyWritten(f.bytes(), streams), QString());

    // Refused changes.
    for (const QString &path : QStringList{QString(), "/missing", "/"})
        EXPECT_FALSE(f.storage.deleteByName(path)) << qPrintable(path);
    EXPECT_TRUE(POLE::Stream(&f.storage, "/s/under", true, 5).fail()) << "a stream has no children";
    EXPECT_EQ(POLE::Stream(&f.storage, "/").write(bytesOf("x"), 1), 0u) << "a storage takes no data";
    EXPECT_EQ(thrownBy([&] { f.storage.setClassId("/", QUuid::createUuid().toString()); }), "not implemented");
    POLE::Stream overlong(&f.storage, "/" + QString(32, QLatin1Char('n')), true, 0);
    EXPECT_EQ(thrownBy([&] { overlong.flush(); }), "Error in CFB - max length for name is 31 chars");
}

TEST(PoleWrite, DeletingAnyNodeOfASiblingTree)
{
    // Inserted in this order the names give nodes with two children and left
    // and right chains; each is deleted from a fresh file, by each path form.
    // The tree is a storage's, beside a stream at the root.
    const QStringList names{"m", "f", "t", "c", "h", "q", "w", "a", "d", "g", "k", "p", "r", "v", "z"};
    const char *forms[] = {"/dir/%1", "/dir/%1/", "dir/%1"};
    for (int v = 0; v < names.size(); ++v) {
        File f;
        QMap<QString, QByteArray> expected{{"/root", pattern(5000, 99)}};
        ASSERT_TRUE(f.add("/root", pattern(5000, 99)));
        for (int i = 0; i < names.size(); ++i) {
            expected.insert("/dir/" + names.at(i), pattern(10 + i, i));
            ASSERT_TRUE(f.add("/dir/" + names.at(i), pattern(10 + i, i)));
        }
        expected.remove("/dir/" + names.at(v));
        const QString victim = QString::fromLatin1(forms[v % 3]).arg(names.at(v));
        EXPECT_TRUE(f.storage.deleteByName(victim)) << qPrintable(victim);
        EXPECT_EQ(verifyWritten(f.bytes(), expected, {"/dir"}), QString()) << "after deleting " << qPrintable(victim);
    }
}

TEST(PoleWrite, GrowingPast109TableSectorsAddsTheMetaTable)
{
    File f;
    const QByteArray big = pattern(8 * 1000 * 1000, 11), small = pattern(500, 12), after = pattern(9000, 13);
    ASSERT_TRUE(f.add("/huge", big));
    ASSERT_TRUE(f.add("/small", small));
    EXPECT_GT(f.storage.headerInfo().numBat, 109u);
    EXPECT_EQ(f.storage.headerInfo().numMbat, 1u);
    EXPECT_EQ(verifyWritten(f.bytes(), {{"/huge", big}, {"/small", small}}), QString());
    // Reopened, the same table is found, and changing the file keeps it sound.
    File reopened(f.bytes());
    EXPECT_EQ(Stats(reopened.storage).usedBat(), Stats(f.storage).usedBat());
    ASSERT_TRUE(reopened.storage.deleteByName("/huge"));
    ASSERT_TRUE(reopened.add("/after", after));
    EXPECT_EQ(verifyWritten(reopened.bytes(), {{"/small", small}, {"/after", after}}), QString());
}

TEST(PoleWrite, ADirectoryGrownIntoAFreedSectorKeepsNoOldBytes)
{
    // The directory's first sector is full (root and three entries); the freed
    // sectors of a big stream of 0xFF bytes are what it grows into next.
    File f;
    ASSERT_TRUE(f.add("/a", "1") && f.add("/b", "2") && f.add("/old", QByteArray(8192, '\xff')));
    ASSERT_TRUE(f.storage.deleteByName("/old"));
    ASSERT_TRUE(f.add("/c", "3") && f.add("/d", "4"));
    EXPECT_EQ(verifyWritten(f.bytes(), {{"/a", "1"}, {"/b", "2"}, {"/c", "3"}, {"/d", "4"}}), QString());
}

TEST(PoleWrite, FilesOfOtherWritersChangedByUs)
{
    const QByteArray sectors4096 =
        buildCompoundFile({{"one", pattern(300, 1)}, {"two", pattern(9000, 2)}}, 12).bytes;
    const QByteArray tail = pattern(5000, 3);
    for (const QByteArray &original : {readFile(fixture("writer.doc")), readFile(fixture("gsf-mixed.ole")),
                                       sectors4096}) {
        File f(original);
        Listing expected = olefileListingOf(original);
        ASSERT_FALSE(expected.contains("!error")) << qPrintable(expected.value("!error"));
        auto put = [&](const QString &stream, const QByteArray &data) {
            expected[stream] = streamEntry(data, expected.value(stream, streamEntry({})).section(QLatin1Char(' '), 3));
        };
        // The first stream goes, small ones grow past the threshold, big ones are
        // cut below it, and a small stream and a big one in a new storage come.
        QStringList streams;
        for (auto it = expected.begin(); it != expected.end(); ++it)
            if (it.value().startsWith(QLatin1String("stream")))
                streams << it.key();
        ASSERT_TRUE(f.storage.deleteByName(streams.first()));
        expected.remove(streams.takeFirst());
        for (const QString &path : streams) {
            const QByteArray data = f.read(path);
            POLE::Stream stream(&f.storage, path);
            stream.seek(uint64_t(data.size()));
            if (data.size() < 4096)
                stream.write(bytesOf(tail), 5000);
            else
                stream.setSize(100);
            stream.flush();
            put(path, data.size() < 4096 ? data + tail : data.left(100));
        }
        for (const auto &added : {qMakePair(QStringLiteral("/Added small"), pattern(777, 1)),
                                  qMakePair(QStringLiteral("/Added/big"), pattern(20000, 2))}) {
            ASSERT_TRUE(f.add(added.first, added.second));
            put(added.first, added.second);
        }
        expected.insert("/Added", storageEntry());
        EXPECT_EQ(difference(expected, olefileListingOf(f.bytes())), QString());
        Cfb reopened(f.bytes());
        ASSERT_TRUE(reopened.storage.open()) << "result " << reopened.storage.result();
        EXPECT_EQ(difference(poleListing(reopened.storage), expected), QString()) << "reopened by us";
    }
}

// Nothing removed can be read back from the file's bytes: not a deleted
// stream's data or name, nor the blocks a stream leaves when it moves
// between small and big blocks.
TEST(PoleWrite, RemovedStreamsEntriesAndFreedBlocksAreZeroed)
{
    const QByteArray secret = QByteArray("SECRET-").repeated(800); // 5600 bytes: big blocks
    const QByteArray smallSecret = QByteArray("small-secret");
    const QByteArray name = QByteArray("H\0i\0d\0d\0e\0n\0", 12);
    File f;
    ASSERT_TRUE(f.add("/keep", pattern(700, 1)) && f.add("/Hidden", secret) && f.add("/dir/tiny", smallSecret));
    ASSERT_TRUE(f.add("/moves", smallSecret + pattern(100, 2)));
    ASSERT_TRUE(f.bytes().contains(secret.left(512)) && f.bytes().contains(name));
    ASSERT_TRUE(f.storage.deleteByName("/Hidden") && f.storage.deleteByName("/dir"));
    POLE::Stream moves(&f.storage, "/moves");
    moves.setSize(5000); // its small blocks are freed
    moves.flush();
    const QByteArray bytes = f.bytes();
    for (const QByteArray &gone : {secret.left(64), smallSecret, name, QByteArray("t\0i\0n\0y\0", 8)})
        EXPECT_EQ(bytes.count(gone), gone == smallSecret ? 1 : 0) << gone.constData() << ": only /moves holds it";
    EXPECT_EQ(verifyWritten(bytes, {{"/keep", pattern(700, 1)},
                                    {"/moves", smallSecret + pattern(100, 2) + QByteArray(5000 - 112, '\0')}}),
              QString());
}

TEST(PoleWrite, CaseVariantsOfANameAreNotCreatedTwice)
{
    File f;
    ASSERT_TRUE(f.add("/Foo", "1") && f.add("/Dir/x", "2"));
    for (const char *path : {"/FOO", "/foo", "/dir/y", "/DIR/X"})
        EXPECT_TRUE(POLE::Stream(&f.storage, path, true, 0).fail()) << path;
    EXPECT_TRUE(f.add("/Foo", "3")) << "the exact name is the entry itself";
    EXPECT_EQ(verifyWritten(f.bytes(), {{"/Foo", "3"}, {"/Dir/x", "2"}}, {"/Dir"}), QString());
}

namespace {

// A buffer device that refuses to grow past a size, as a full disk does.
class FullDevice : public QBuffer
{
public:
    explicit FullDevice(qint64 room) : m_room(room) {}

protected:
    qint64 writeData(const char *data, qint64 len) override
    {
        if (pos() + len > m_room) {
            setErrorString(QStringLiteral("No space left on device"));
            return -1;
        }
        return QBuffer::writeData(data, len);
    }

private:
    qint64 m_room;
};

} // namespace

TEST(PoleWrite, AFailedWriteIsReportedInTheDevicesWords)
{
    FullDevice device(6000);
    POLE::Storage storage(&device);
    ASSERT_TRUE(storage.open(true, true));
    MemoryBuffer fits = bufferOf(pattern(300, 1)), tooBig = bufferOf(pattern(9000, 2));
    ASSERT_TRUE(storage.addEntry("/fits", &fits));
    EXPECT_EQ(storage.errorString(), QString());
    storage.addEntry("/big", &tooBig);
    EXPECT_EQ(storage.errorString(), QStringLiteral("No space left on device"));
}
