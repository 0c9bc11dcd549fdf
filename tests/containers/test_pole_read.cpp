// Reading compound files: files from independent writers compared with an
// independent reader, header checks, lookups, listings, and damaged files.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include "buffers/IOMemoryBuffer.h"

#include <QBuffer>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

struct Opened
{
    explicit Opened(const QByteArray &bytes) : buffer(toBuffer(bytes)), storage(&buffer) {}
    MemoryBuffer buffer;
    POLE::Storage storage;
};

QByteArray streamBytes(POLE::Storage &storage, const QString &path)
{
    MemoryBuffer out;
    storage.getEntryData(path, &out);
    return toBytes(out);
}

} // namespace

// --- files from independent writers ------------------------------------------

TEST(PoleRead, FilesFromOtherWritersReadAsTheIndependentReaderReadsThem)
{
    for (const char *name : {"writer.doc", "calc.xls", "impress.ppt", "gsf-mixed.ole"}) {
        SCOPED_TRACE(name);
        const QString path = fixture(QString::fromLatin1(name));
        Opened f(readFile(path));
        ASSERT_TRUE(f.storage.open()) << "result " << f.storage.result();
        EXPECT_EQ(compareListings(poleListing(f.storage), olefileListing(path)), QString());
    }
}

TEST(PoleRead, WordFileLooksUpItsStreamsCaseSensitively)
{
    Opened f(readFile(fixture(QStringLiteral("writer.doc"))));
    ASSERT_TRUE(f.storage.open());
    POLE::Stream withSlash(&f.storage, QStringLiteral("/WordDocument"));
    POLE::Stream without(&f.storage, QStringLiteral("WordDocument"));
    EXPECT_FALSE(withSlash.fail());
    EXPECT_FALSE(without.fail());
    EXPECT_EQ(withSlash.size(), without.size());
    EXPECT_GT(withSlash.size(), 0u);
    EXPECT_FALSE(f.storage.exists(QStringLiteral("/worddocument")));
    EXPECT_TRUE(POLE::Stream(&f.storage, QStringLiteral("/worddocument")).fail());

    QString id;
    EXPECT_TRUE(f.storage.getClassId(QStringLiteral("/"), id));
    EXPECT_EQ(id, QStringLiteral("{00020906-0000-0000-c000-000000000046}"));
    EXPECT_TRUE(f.storage.getClassId(QStringLiteral("/missing"), id));
    EXPECT_EQ(id, QString());
    EXPECT_TRUE(f.storage.isDirectory(QStringLiteral("/")));
    EXPECT_FALSE(f.storage.isDirectory(QStringLiteral("/WordDocument")));
    EXPECT_FALSE(f.storage.exists(QString()));
}

TEST(PoleRead, ListingsMapsAndStats)
{
    Opened f(readFile(fixture(QStringLiteral("gsf-mixed.ole"))));
    ASSERT_TRUE(f.storage.open());
    QStringList top = f.storage.entries(QStringLiteral("/"));
    top.sort();
    EXPECT_EQ(top, (QStringList{"big9000.bin", "docs", "empty", "readme.txt"}));
    QStringList docs = f.storage.entries(QStringLiteral("/docs"));
    docs.sort();
    EXPECT_EQ(docs, (QStringList{"exact4096.bin", "small4095.bin"}));
    EXPECT_TRUE(f.storage.entries(QStringLiteral("/readme.txt")).isEmpty()) << "a stream has no children";
    EXPECT_TRUE(f.storage.entries(QStringLiteral("/nowhere")).isEmpty());

    QStringList all = f.storage.GetAllStreams(QStringLiteral("/"));
    all.sort();
    EXPECT_EQ(all, (QStringList{"/big9000.bin", "/docs/exact4096.bin", "/docs/small4095.bin", "/empty",
                                "/readme.txt"}));
    EXPECT_TRUE(f.storage.GetAllStreams(QStringLiteral("/readme.txt")).isEmpty());
    QStringList below = f.storage.GetAllStreams(QStringLiteral("/docs/"));
    below.sort();
    EXPECT_EQ(below, (QStringList{"/docs/exact4096.bin", "/docs/small4095.bin"}));

    const QMap<QString, QVariant> map = f.storage.getEntriesMap();
    EXPECT_EQ(map.value(QStringLiteral("readme.txt")).toString(), QStringLiteral("/readme.txt"));
    EXPECT_EQ(map.value(QStringLiteral("docs")).toMap().value(QStringLiteral("small4095.bin")).toString(),
              QStringLiteral("/docs/small4095.bin"));
    EXPECT_EQ(map.size(), 4);

    uint64_t dir, unusedDir, bat, freeBat, sbat, freeSbat;
    f.storage.GetStats(dir, unusedDir, bat, freeBat, sbat, freeSbat);
    EXPECT_GE(dir, 7u) << "root and six entries";
    EXPECT_EQ(dir % 4, 0u) << "whole directory sectors";
    EXPECT_EQ(bat % 128, 0u);
    EXPECT_LT(freeBat, bat);
    EXPECT_EQ(sbat % 128, 0u);
    EXPECT_GE(sbat - freeSbat, 64u + 1u) << "4095 + 19 bytes in small blocks";
    EXPECT_LE(unusedDir, dir - 7);
}

TEST(PoleRead, InsertMapBuildsNestedMaps)
{
    QMap<QString, QVariant> map;
    POLE::Storage::insertMap(map, QStringLiteral("/a/b/c"), QStringLiteral("/a/b/c"));
    POLE::Storage::insertMap(map, QStringLiteral("a//d"), QStringLiteral("x"));
    POLE::Storage::insertMap(map, QStringLiteral("e"), QStringLiteral("y"));
    POLE::Storage::insertMap(map, QStringLiteral("/"), QStringLiteral("ignored"));
    EXPECT_EQ(map.size(), 2);
    const QMap<QString, QVariant> a = map.value(QStringLiteral("a")).toMap();
    EXPECT_EQ(a.value(QStringLiteral("d")).toString(), QStringLiteral("x"));
    EXPECT_EQ(a.value(QStringLiteral("b")).toMap().value(QStringLiteral("c")).toString(), QStringLiteral("/a/b/c"));
    EXPECT_EQ(map.value(QStringLiteral("e")).toString(), QStringLiteral("y"));
}

TEST(PoleRead, FileWithMoreThan109TableSectorsReadsThroughTheMetaTable)
{
    QTemporaryDir dir;
    const QByteArray big = pattern(8 * 1000 * 1000, 7);
    ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("huge.bin")), big));
    ASSERT_TRUE(gsfCreateOle(dir.path(), QStringLiteral("mbat.ole"), {QStringLiteral("huge.bin")}))
        << "gsf createole failed (install libgsf-bin)";
    Opened f(readFile(dir.filePath(QStringLiteral("mbat.ole"))));
    ASSERT_TRUE(f.storage.open());
    const POLE::HeaderInfo h = f.storage.headerInfo();
    EXPECT_GT(h.numBat, 109u);
    EXPECT_GE(h.numMbat, 1u);
    EXPECT_TRUE(streamBytes(f.storage, QStringLiteral("/huge.bin")) == big);
}

TEST(PoleRead, FourKilobyteSectorsReadLikeSmallOnes)
{
    const std::vector<BuiltStream> streams{{QStringLiteral("tiny"), pattern(10, 1)},
                                           {QStringLiteral("at4095"), pattern(4095, 2)},
                                           {QStringLiteral("at4096"), pattern(4096, 3)},
                                           {QStringLiteral("large"), pattern(70000, 4)},
                                           {QStringLiteral("none"), QByteArray()}};
    for (int shift : {9, 12}) {
        SCOPED_TRACE(shift);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("built.cfb"));
        ASSERT_TRUE(writeFile(path, buildCompoundFile(streams, shift).bytes));
        Opened f(readFile(path));
        ASSERT_TRUE(f.storage.open());
        EXPECT_EQ(f.storage.headerInfo().bigBlockShift, unsigned(shift));
        for (const BuiltStream &s : streams)
            EXPECT_TRUE(streamBytes(f.storage, QLatin1Char('/') + s.name) == s.data) << qPrintable(s.name);
        EXPECT_EQ(compareListings(poleListing(f.storage), olefileListing(path)), QString());
    }
}

TEST(PoleRead, StreamPositionsGetchAndPartialReads)
{
    const QByteArray small = pattern(3000, 5);
    const QByteArray large = pattern(10000, 6);
    Opened f(buildCompoundFile({{QStringLiteral("s"), small}, {QStringLiteral("l"), large}}).bytes);
    ASSERT_TRUE(f.storage.open());
    for (const QByteArray *data : {&small, &large}) {
        POLE::Stream stream(&f.storage, data == &small ? QStringLiteral("/s") : QStringLiteral("/l"));
        ASSERT_FALSE(stream.fail());
        EXPECT_EQ(stream.size(), unsigned(data->size()));
        // Reads across block boundaries at odd offsets.
        stream.seek(63);
        unsigned char chunk[1500];
        EXPECT_EQ(stream.read(chunk, sizeof chunk), sizeof chunk);
        EXPECT_EQ(QByteArray(reinterpret_cast<char *>(chunk), sizeof chunk), data->mid(63, sizeof chunk));
        EXPECT_EQ(stream.tell(), 63u + sizeof chunk);
        // Single bytes through the cache, backwards and forwards.
        for (int pos : {data->size() - 1, 0, 4095 % data->size(), 1}) {
            stream.seek(unsigned(pos));
            EXPECT_EQ(stream.getch(), int(uint8_t(data->at(pos)))) << "at " << pos;
        }
        stream.seek(unsigned(data->size()));
        EXPECT_EQ(stream.getch(), -1);
        EXPECT_EQ(stream.read(chunk, sizeof chunk), 0u);
        stream.seek(unsigned(data->size() - 10));
        EXPECT_EQ(stream.read(chunk, sizeof chunk), 10u) << "a read stops at the end of the stream";
        EXPECT_EQ(stream.read(nullptr, 5), 0u);
        EXPECT_FALSE(stream.eof());
    }
    POLE::Stream missing(&f.storage, QStringLiteral("/nothing"));
    EXPECT_TRUE(missing.fail());
    EXPECT_EQ(missing.size(), 0u);
    unsigned char c;
    EXPECT_EQ(missing.read(&c, 1), 0u);
    EXPECT_EQ(missing.getch(), -1);
}

TEST(PoleRead, EntryDataIntoBuffersAndDevices)
{
    const QByteArray data = pattern(5000, 8);
    Opened f(buildCompoundFile({{QStringLiteral("d"), data}}).bytes);
    ASSERT_TRUE(f.storage.open());

    MemoryBuffer out = toBuffer("old contents");
    EXPECT_TRUE(f.storage.getEntryData(QStringLiteral("/d"), &out));
    EXPECT_TRUE(toBytes(out) == data);
    EXPECT_EQ(out.tell(), 0u);

    EXPECT_TRUE(f.storage.getEntryData(QStringLiteral("/missing"), &out));
    EXPECT_EQ(out.sizeOfMB(), 0u) << "a missing stream leaves the buffer empty";

    QBuffer device;
    device.open(QIODevice::WriteOnly);
    device.write("prefix");
    EXPECT_TRUE(f.storage.getEntryData(QStringLiteral("d"), device));
    EXPECT_TRUE(device.data() == QByteArray("prefix") + data);

    QBuffer readOnly;
    readOnly.open(QIODevice::ReadOnly);
    EXPECT_FALSE(f.storage.getEntryData(QStringLiteral("d"), readOnly));
    EXPECT_FALSE(f.storage.getEntryData(QStringLiteral("d"), static_cast<MemoryBuffer *>(nullptr)));
}

TEST(PoleRead, ReadOnlyStorageRefusesChanges)
{
    Opened f(readFile(fixture(QStringLiteral("gsf-mixed.ole"))));
    ASSERT_TRUE(f.storage.open());
    const QByteArray before = toBytes(f.buffer);
    EXPECT_FALSE(f.storage.isWriteable());
    EXPECT_TRUE(f.storage.setClassId(QStringLiteral("/"), QStringLiteral("{00000000-0000-0000-0000-000000000001}")));
    EXPECT_FALSE(f.storage.deleteByName(QStringLiteral("/readme.txt")));
    MemoryBuffer data = toBuffer("abc");
    EXPECT_FALSE(f.storage.addEntry(QStringLiteral("/new"), &data));
    POLE::Stream created(&f.storage, QStringLiteral("/new"), true, 10);
    EXPECT_TRUE(created.fail());
    POLE::Stream existing(&f.storage, QStringLiteral("/readme.txt"));
    const unsigned char bytes[3] = {1, 2, 3};
    EXPECT_EQ(existing.write(bytes, 3), 0u);
    existing.setSize(5000);
    EXPECT_EQ(existing.size(), 19u);
    EXPECT_TRUE(toBytes(f.buffer) == before);
}

TEST(PoleRead, StreamsOutlivingTheirStorageFailQuietly)
{
    auto f = std::make_unique<Opened>(readFile(fixture(QStringLiteral("gsf-mixed.ole"))));
    ASSERT_TRUE(f->storage.open());
    POLE::Stream stream(&f->storage, QStringLiteral("/readme.txt"));
    ASSERT_FALSE(stream.fail());
    f->storage.close();
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(stream.size(), 0u);
    unsigned char c;
    EXPECT_EQ(stream.read(&c, 1), 0u);
    EXPECT_FALSE(f->storage.exists(QStringLiteral("/readme.txt"))) << "a closed storage finds nothing";
    f.reset();
    EXPECT_EQ(stream.getch(), -1);
}

// --- header checks -----------------------------------------------------------

TEST(PoleRead, HeaderChecksGiveTheirResultCodes)
{
    const QByteArray good = buildCompoundFile({{QStringLiteral("x"), pattern(100, 1)}}).bytes;
    struct Case
    {
        const char *what;
        QByteArray bytes;
        int result;
    };
    auto patched16 = [&](int at, uint16_t v) {
        QByteArray b = good;
        put16(b, at, v);
        return b;
    };
    auto patched32 = [&](int at, uint32_t v) {
        QByteArray b = good;
        put32(b, at, v);
        return b;
    };
    QByteArray otherMagic = good;
    otherMagic[7] = 0;
    const Case cases[] = {
        {"empty buffer", QByteArray(), POLE::Storage::NotOLE},
        {"seven bytes of magic", good.left(7), POLE::Storage::NotOLE},
        {"another magic", otherMagic, POLE::Storage::NotOLE},
        {"a zip file", QByteArray("PK\x03\x04rest of a zip file"), POLE::Storage::NotOLE},
        {"only the magic", good.left(8), POLE::Storage::BadOLE},
        {"threshold 8192", patched32(56, 8192), POLE::Storage::BadOLE},
        {"no BAT sectors", patched32(44, 0), POLE::Storage::BadOLE},
        {"sector shift 6", patched16(30, 6), POLE::Storage::BadOLE},
        {"sector shift 31", patched16(30, 31), POLE::Storage::BadOLE},
        {"small blocks bigger than sectors", patched16(32, 10), POLE::Storage::BadOLE},
        {"meta table without 109 BAT sectors", patched32(72, 1), POLE::Storage::BadOLE},
        {"more BAT sectors than the file has", patched32(44, 0x7FFFFFFF), POLE::Storage::BadOLE},
        {"no directory, so no root", patched32(48, 0xFFFFFFFE), POLE::Storage::BadOLE},
        {"valid", good, POLE::Storage::Ok},
    };
    for (const Case &c : cases) {
        Opened f(c.bytes);
        EXPECT_EQ(f.storage.open(), c.result == POLE::Storage::Ok) << c.what;
        EXPECT_EQ(f.storage.result(), c.result) << c.what;
        if (c.result != POLE::Storage::Ok) {
            EXPECT_FALSE(f.storage.exists(QStringLiteral("/"))) << c.what;
            EXPECT_TRUE(f.storage.entries().isEmpty()) << c.what;
        }
        EXPECT_EQ(f.buffer.sizeOfMB(), size_t(c.bytes.size())) << c.what << ": reading changed the buffer";
    }
}

TEST(PoleRead, UnopenedStorageAnswersNothing)
{
    MemoryBuffer buffer = toBuffer(readFile(fixture(QStringLiteral("writer.doc"))));
    POLE::Storage storage(&buffer);
    EXPECT_EQ(storage.result(), POLE::Storage::OpenFailed);
    EXPECT_FALSE(storage.exists(QStringLiteral("/")));
    EXPECT_TRUE(storage.getEntriesMap().isEmpty());
    uint64_t a = 1, b = 1, c = 1, d = 1, e = 1, g = 1;
    storage.GetStats(a, b, c, d, e, g);
    EXPECT_EQ(a + b + c + d + e + g, 0u);
    EXPECT_TRUE(POLE::Stream(&storage, QStringLiteral("/WordDocument")).fail());
}

// --- directory names ---------------------------------------------------------

TEST(PoleRead, MalformedNamesRaiseTheirMessages)
{
    const BuiltFile built = buildCompoundFile({{QStringLiteral("x"), pattern(100, 1)}});
    struct Case
    {
        uint16_t nameLength;
        const char *message;
    };
    for (const Case &c : {Case{5, "Error in CFB - name length is odd"},
                          Case{66, "Error reading CFB - max length for name is 31 chars"}}) {
        QByteArray bytes = built.bytes;
        put16(bytes, built.dirEntryOffset(1) + 64, c.nameLength);
        Opened f(bytes);
        try {
            f.storage.open();
            ADD_FAILURE() << "no exception for name length " << c.nameLength;
        } catch (const char *message) {
            EXPECT_STREQ(message, c.message);
        }
    }
    // 64 bytes (32 characters with the terminator counted) is still accepted.
    QByteArray bytes = built.bytes;
    put16(bytes, built.dirEntryOffset(1) + 64, 64);
    Opened f(bytes);
    EXPECT_TRUE(f.storage.open());
}

TEST(PoleRead, EntriesOfUnknownTypeAreNeverFound)
{
    for (char type : {char(3), char(4), char(0), char(7)}) {
        BuiltFile built = buildCompoundFile({{QStringLiteral("a"), pattern(10, 1)}, {QStringLiteral("bb"), pattern(10, 2)}});
        built.bytes[built.dirEntryOffset(1) + 66] = type;
        Opened f(built.bytes);
        ASSERT_TRUE(f.storage.open());
        EXPECT_FALSE(f.storage.exists(QStringLiteral("/a"))) << "type " << int(type);
        EXPECT_TRUE(f.storage.exists(QStringLiteral("/bb"))) << "the tree goes on past it; type " << int(type);
        EXPECT_EQ(f.storage.entries(), QStringList{QStringLiteral("bb")});
        uint64_t dir, unusedDir, bat, freeBat, sbat, freeSbat;
        f.storage.GetStats(dir, unusedDir, bat, freeBat, sbat, freeSbat);
        EXPECT_EQ(unusedDir, dir - 2) << "everything but the root and bb is unused";
    }
}

TEST(PoleRead, NamesOrderedByAnotherRuleAreStillFound)
{
    // Upper-cased ordering puts "aZ" before "Ba"; code-unit ordering after.
    BuiltFile built = buildCompoundFile({{QStringLiteral("Ba"), pattern(10, 1)}, {QStringLiteral("aZ"), pattern(20, 2)}});
    // The builder chained Ba -> aZ; relink as aZ -> Ba.
    put32(built.bytes, built.dirEntryOffset(0) + 76, 2);
    put32(built.bytes, built.dirEntryOffset(2) + 72, 1);
    put32(built.bytes, built.dirEntryOffset(1) + 72, 0xFFFFFFFF);
    Opened f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    EXPECT_EQ(POLE::Stream(&f.storage, QStringLiteral("/Ba")).size(), 10u);
    EXPECT_EQ(POLE::Stream(&f.storage, QStringLiteral("/aZ")).size(), 20u);
    EXPECT_FALSE(f.storage.exists(QStringLiteral("/az")));
}

// --- damaged files -----------------------------------------------------------

TEST(PoleRead, CyclicChainsEndInShortReads)
{
    const QByteArray big = pattern(8192, 1);
    const QByteArray small = pattern(1000, 2);
    BuiltFile built = buildCompoundFile({{QStringLiteral("big"), big}, {QStringLiteral("small"), small}});
    // Chains are in name order: big, then small.
    const std::vector<uint32_t> bigChain = built.chains[0];
    const std::vector<uint32_t> smallChain = built.chains[1];
    ASSERT_EQ(bigChain.size(), 16u);
    ASSERT_EQ(smallChain.size(), 16u);
    // big: the fourth sector points back at the first.
    put32(built.bytes, built.batEntryOffset(bigChain[3]), bigChain[0]);
    // small: the third small block points at itself.
    const int minifatStart = int(get32(built.bytes, 60));
    put32(built.bytes, built.sectorOffset(uint32_t(minifatStart)) + int(smallChain[2]) * 4, smallChain[2]);

    Opened f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    POLE::Stream b(&f.storage, QStringLiteral("/big"));
    EXPECT_EQ(b.size(), 8192u) << "the size is what the entry claims";
    EXPECT_TRUE(streamBytes(f.storage, QStringLiteral("/big")) == big.left(4 * 512));
    EXPECT_TRUE(streamBytes(f.storage, QStringLiteral("/small")) == small.left(3 * 64));
}

TEST(PoleRead, CyclicDirectoryAndTableChainsStillOpen)
{
    BuiltFile built = buildCompoundFile({{QStringLiteral("a"), pattern(5000, 1)}});
    // The directory's only sector points at itself.
    put32(built.bytes, built.batEntryOffset(uint32_t(built.firstDirSector)), uint32_t(built.firstDirSector));
    // The BAT sector claims to be followed by itself too.
    put32(built.bytes, built.batEntryOffset(0), 0);
    Opened f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    EXPECT_TRUE(streamBytes(f.storage, QStringLiteral("/a")) == pattern(5000, 1));
}

TEST(PoleRead, CyclicSiblingAndChildLinksAreWalkedOnce)
{
    std::vector<BuiltStream> streams;
    for (int i = 0; i < 6; ++i)
        streams.push_back({QStringLiteral("s%1").arg(i), pattern(10 + i, i)});
    BuiltFile built = buildCompoundFile(streams);
    // s5 (entry 6) links right back to s1 (entry 2) and left to itself; s2's
    // child points at the root's first child.
    put32(built.bytes, built.dirEntryOffset(6) + 72, 2);
    put32(built.bytes, built.dirEntryOffset(6) + 68, 6);
    built.bytes[built.dirEntryOffset(3) + 66] = 1; // s2 becomes a storage
    put32(built.bytes, built.dirEntryOffset(3) + 76, 1);

    Opened f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    const QStringList names = f.storage.entries();
    EXPECT_EQ(names.size(), 6) << qPrintable(names.join(QLatin1Char(',')));
    EXPECT_EQ(QSet<QString>(names.begin(), names.end()).size(), 6) << "each entry listed once";
    EXPECT_FALSE(f.storage.exists(QStringLiteral("/s9")));
    EXPECT_TRUE(f.storage.exists(QStringLiteral("/s2/s0")));
    const QStringList all = f.storage.GetAllStreams(QStringLiteral("/"));
    EXPECT_EQ(QSet<QString>(all.begin(), all.end()).size(), all.size());
    EXPECT_LE(all.size(), 6);
    const QMap<QString, QVariant> map = f.storage.getEntriesMap();
    EXPECT_EQ(map.size(), 6);
    // Paths through the child cycle are bounded by the nesting limit.
    QString deep = QStringLiteral("/s2");
    for (int i = 0; i < 50; ++i)
        deep += QStringLiteral("/s2");
    EXPECT_TRUE(f.storage.exists(deep));
}

TEST(PoleRead, ClaimedSizesBeyondTheFileAreNotAllocated)
{
    BuiltFile built = buildCompoundFile({{QStringLiteral("big"), pattern(5000, 1)}, {QStringLiteral("sm"), pattern(100, 2)}});
    // "big" (entry 1 after sorting by length: sm is first) claims 4 GiB - 1.
    const int bigEntry = built.dirEntryOffset(2);
    put32(built.bytes, bigEntry + 120, 0xFFFFFFFF);
    // "sm" claims 4095 bytes: more small blocks than its chain holds.
    put32(built.bytes, built.dirEntryOffset(1) + 120, 4095);
    Opened f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    POLE::Stream big(&f.storage, QStringLiteral("/big"));
    EXPECT_EQ(big.size(), 0xFFFFFFFFu);
    const QByteArray data = streamBytes(f.storage, QStringLiteral("/big"));
    EXPECT_EQ(data.size(), 5120) << "only what the chain holds";
    EXPECT_TRUE(data.left(5000) == pattern(5000, 1));
    EXPECT_EQ(streamBytes(f.storage, QStringLiteral("/sm")).size(), 128);
}

TEST(PoleRead, TruncatedFileReadsZerosPastItsEnd)
{
    const QByteArray big = pattern(6000, 3);
    const BuiltFile built = buildCompoundFile({{QStringLiteral("big"), big}});
    // Cut inside the stream's last sector.
    const QByteArray cut = built.bytes.left(built.bytes.size() - 512 - 100);
    Opened f(cut);
    ASSERT_TRUE(f.storage.open());
    const QByteArray data = streamBytes(f.storage, QStringLiteral("/big"));
    ASSERT_EQ(data.size(), 6000);
    const int kept = cut.size() - built.sectorOffset(built.chains[0][0]);
    EXPECT_TRUE(data.left(kept) == big.left(kept));
    EXPECT_EQ(data.mid(kept), QByteArray(6000 - kept, '\0'));
}
