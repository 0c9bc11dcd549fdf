// Reading compound files: files of other writers compared with an independent
// reader, lookups, header and directory checks, and damaged files, which must
// neither crash, hang nor make us allocate what they claim.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include <QBuffer>
#include <gtest/gtest.h>

#include <functional>

using namespace cfbtest;

TEST(PoleRead, FilesOfOtherWritersReadAsTheIndependentReaderReadsThem)
{
    for (const char *name : {"writer.doc", "calc.xls", "impress.ppt", "gsf-mixed.ole"}) {
        const QString path = fixture(QString::fromLatin1(name));
        Cfb f(readFile(path));
        ASSERT_TRUE(f.storage.open()) << name << ": result " << f.storage.result();
        const Listing theirs = olefileListing(path);
        EXPECT_EQ(compareListings(poleListing(f), theirs), QString()) << name;
        QStringList streams;
        for (auto it = theirs.entries.begin(); it != theirs.entries.end(); ++it)
            if (it.value().kind == QLatin1String("stream"))
                streams << it.key();
        QStringList ours = f.storage.GetAllStreams(QStringLiteral("/"));
        ours.sort();
        EXPECT_EQ(ours, streams) << name;
    }
}

TEST(PoleRead, MoreThan109TableSectorsAreFoundThroughTheMetaTable)
{
    QTemporaryDir dir;
    const QByteArray big = pattern(8 * 1000 * 1000, 7);
    ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("huge.bin")), big));
    QProcess gsf;
    gsf.setWorkingDirectory(dir.path());
    gsf.start(QStringLiteral("gsf"), {QStringLiteral("createole"), QStringLiteral("mbat.ole"), QStringLiteral("huge.bin")});
    ASSERT_TRUE(gsf.waitForFinished(120000) && gsf.exitCode() == 0) << "gsf createole failed (install libgsf-bin)";
    Cfb f(readFile(dir.filePath(QStringLiteral("mbat.ole"))));
    ASSERT_TRUE(f.storage.open());
    EXPECT_GT(f.storage.headerInfo().numBat, 109u);
    EXPECT_TRUE(f.read(QStringLiteral("/huge.bin")) == big);
}

TEST(PoleRead, FourKilobyteSectorsReadLikeSmallOnes)
{
    const std::vector<BuiltStream> streams{{QStringLiteral("tiny"), pattern(10, 1)},    {QStringLiteral("at4095"), pattern(4095, 2)},
                                           {QStringLiteral("at4096"), pattern(4096, 3)}, {QStringLiteral("large"), pattern(70000, 4)},
                                           {QStringLiteral("none"), QByteArray()}};
    for (int shift : {9, 12}) {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("built.cfb"));
        ASSERT_TRUE(writeFile(path, buildCompoundFile(streams, shift).bytes));
        Cfb f(readFile(path));
        ASSERT_TRUE(f.storage.open()) << shift;
        EXPECT_EQ(f.storage.headerInfo().bigBlockShift, unsigned(shift));
        EXPECT_EQ(compareListings(poleListing(f), olefileListing(path)), QString()) << shift;
    }
}

TEST(PoleRead, LookupsFollowTreesInAnyOrder)
{
    // Upper-cased ordering puts "aZ" before "Ba", code-unit ordering after:
    // the builder chained Ba -> aZ; relink them as aZ -> Ba.
    BuiltFile built = buildCompoundFile({{QStringLiteral("Ba"), pattern(10, 1)}, {QStringLiteral("aZ"), pattern(20, 2)}});
    put32(built.bytes, built.dirEntryOffset(0) + 76, 2);
    put32(built.bytes, built.dirEntryOffset(2) + 72, 1);
    put32(built.bytes, built.dirEntryOffset(1) + 72, 0xFFFFFFFF);
    Cfb f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    EXPECT_EQ(POLE::Stream(&f.storage, QStringLiteral("/Ba")).size(), 10u);
    EXPECT_EQ(POLE::Stream(&f.storage, QStringLiteral("aZ")).size(), 20u) << "the leading slash is optional";
}

TEST(PoleRead, StreamReadsAcrossBlocks)
{
    const QByteArray small = pattern(3000, 5), large = pattern(10000, 6);
    Cfb f(buildCompoundFile({{QStringLiteral("s"), small}, {QStringLiteral("l"), large}}).bytes);
    ASSERT_TRUE(f.storage.open());
    for (const QByteArray *data : {&small, &large}) {
        POLE::Stream stream(&f.storage, data == &small ? QStringLiteral("/s") : QStringLiteral("/l"));
        ASSERT_EQ(stream.size(), unsigned(data->size()));
        QByteArray chunk(1500, '\0');
        stream.seek(63);
        EXPECT_EQ(stream.read(reinterpret_cast<unsigned char *>(chunk.data()), 1500), 1500u);
        EXPECT_EQ(chunk, data->mid(63, 1500)) << data->size();
        for (int pos : {data->size() - 1, 0, 4095 % data->size()}) {
            stream.seek(unsigned(pos));
            EXPECT_EQ(stream.getch(), int(uint8_t(data->at(pos)))) << data->size() << " at " << pos;
            EXPECT_EQ(stream.tell(), unsigned(pos + 1));
        }
        stream.seek(unsigned(data->size() - 10));
        EXPECT_EQ(stream.read(reinterpret_cast<unsigned char *>(chunk.data()), 1500), 10u) << "a read stops at the end";
        EXPECT_EQ(stream.getch(), -1);
    }
}

TEST(PoleRead, EntryDataIntoBuffersAndDevices)
{
    const QByteArray data = pattern(5000, 8);
    Cfb f(buildCompoundFile({{QStringLiteral("d"), data}}).bytes);
    ASSERT_TRUE(f.storage.open());
    MemoryBuffer out = bufferOf("old contents");
    EXPECT_TRUE(f.storage.getEntryData(QStringLiteral("/d"), &out));
    EXPECT_TRUE(toBytes(out) == data);
    EXPECT_EQ(out.tell(), 0u);
    EXPECT_TRUE(f.storage.getEntryData(QStringLiteral("/missing"), &out));
    EXPECT_EQ(out.sizeOfMB(), 0u) << "a missing stream leaves the buffer empty";
    EXPECT_FALSE(f.storage.getEntryData(QStringLiteral("d"), static_cast<MemoryBuffer *>(nullptr)));
    QBuffer device;
    device.open(QIODevice::WriteOnly);
    device.write("prefix");
    EXPECT_TRUE(f.storage.getEntryData(QStringLiteral("d"), device));
    EXPECT_TRUE(device.data() == QByteArray("prefix") + data);
}

TEST(PoleRead, ReadOnlyStorageLeavesTheBufferAlone)
{
    Cfb f(readFile(fixture(QStringLiteral("gsf-mixed.ole"))));
    ASSERT_TRUE(f.storage.open());
    const QByteArray before = f.bytes();
    EXPECT_FALSE(f.storage.isWriteable());
    EXPECT_FALSE(f.storage.deleteByName(QStringLiteral("/readme.txt")));
    EXPECT_FALSE(f.add(QStringLiteral("/new"), "abc"));
    EXPECT_TRUE(POLE::Stream(&f.storage, QStringLiteral("/new"), true, 10).fail());
    POLE::Stream existing(&f.storage, QStringLiteral("/readme.txt"));
    EXPECT_EQ(existing.write(reinterpret_cast<const unsigned char *>("abc"), 3), 0u);
    existing.setSize(5000);
    EXPECT_EQ(existing.size(), 19u);
    EXPECT_TRUE(f.bytes() == before);
}

TEST(PoleRead, StreamsOutlivingTheirStorageFailQuietly)
{
    auto f = std::make_unique<Cfb>(readFile(fixture(QStringLiteral("gsf-mixed.ole"))));
    ASSERT_TRUE(f->storage.open());
    POLE::Stream stream(&f->storage, QStringLiteral("/readme.txt"));
    ASSERT_FALSE(stream.fail());
    f->storage.close();
    EXPECT_TRUE(stream.fail());
    EXPECT_FALSE(f->storage.exists(QStringLiteral("/readme.txt"))) << "a closed storage finds nothing";
    f.reset();
    unsigned char c;
    EXPECT_EQ(stream.read(&c, 1), 0u);
    EXPECT_EQ(stream.getch(), -1);
}

TEST(PoleRead, HeaderAndDirectoryChecks)
{
    const BuiltFile built = buildCompoundFile({{QStringLiteral("x"), pattern(100, 1)}});
    auto patched = [&](int at, uint32_t v, bool wide = true) {
        QByteArray b = built.bytes;
        wide ? put32(b, at, v) : put16(b, at, uint16_t(v));
        return b;
    };
    const int nameLength = built.dirEntryOffset(1) + 64;
    struct Case { const char *what; QByteArray bytes; int result; const char *thrown; };
    const Case cases[] = {
        {"empty buffer", QByteArray(), POLE::Storage::NotOLE, ""},
        {"seven bytes of magic", built.bytes.left(7), POLE::Storage::NotOLE, ""},
        {"another magic", patched(4, 0), POLE::Storage::NotOLE, ""},
        {"only the magic", built.bytes.left(8), POLE::Storage::BadOLE, ""},
        {"threshold 8192", patched(56, 8192), POLE::Storage::BadOLE, ""},
        {"no BAT sectors", patched(44, 0), POLE::Storage::BadOLE, ""},
        {"sector shift 6", patched(30, 6, false), POLE::Storage::BadOLE, ""},
        {"sector shift 31", patched(30, 31, false), POLE::Storage::BadOLE, ""},
        {"small blocks bigger than sectors", patched(32, 10, false), POLE::Storage::BadOLE, ""},
        {"meta table without 109 BAT sectors", patched(72, 1), POLE::Storage::BadOLE, ""},
        {"more BAT sectors than the file has", patched(44, 0x7FFFFFFF), POLE::Storage::BadOLE, ""},
        {"no directory, so no root", patched(48, 0xFFFFFFFE), POLE::Storage::BadOLE, ""},
        {"an odd name length", patched(nameLength, 5, false), -1, "Error in CFB - name length is odd"},
        {"a name of 32 characters", patched(nameLength, 66, false), -1, "Error reading CFB - max length for name is 31 chars"},
        {"a name of 31 characters", patched(nameLength, 64, false), POLE::Storage::Ok, ""},
        {"valid", built.bytes, POLE::Storage::Ok, ""},
    };
    for (const Case &c : cases) {
        Cfb f(c.bytes);
        EXPECT_EQ(f.storage.result(), POLE::Storage::OpenFailed) << c.what << ": before opening";
        bool opened = false;
        EXPECT_EQ(thrownBy([&] { opened = f.storage.open(); }), QString::fromLatin1(c.thrown)) << c.what;
        if (c.result >= 0) {
            EXPECT_EQ(opened, c.result == POLE::Storage::Ok) << c.what;
            EXPECT_EQ(f.storage.result(), c.result) << c.what;
            EXPECT_EQ(f.storage.exists(QStringLiteral("/")), opened) << c.what;
        }
        EXPECT_TRUE(f.bytes() == c.bytes) << c.what << ": reading changed the buffer";
    }
}

TEST(PoleRead, DamagedFilesEndInShortReads)
{
    const QByteArray big = pattern(8192, 1), small = pattern(1000, 2);
    const BuiltFile built = buildCompoundFile({{QStringLiteral("big"), big}, {QStringLiteral("small"), small}});
    const std::vector<uint32_t> &bigChain = built.chains[0], &smallChain = built.chains[1];
    ASSERT_EQ(bigChain.size(), 16u);
    ASSERT_EQ(smallChain.size(), 16u);
    const int cutAt = built.bytes.size() - 612; // inside big, the file's last stream
    const int kept = cutAt - built.sectorOffset(bigChain[0]);
    struct Case { const char *what; std::function<void(QByteArray &)> damage; QByteArray big, small; };
    const Case cases[] = {
        {"big's fourth sector leads back to its first",
         [&](QByteArray &b) { put32(b, built.batEntryOffset(bigChain[3]), bigChain[0]); }, big.left(4 * 512), small},
        {"small's third block leads to itself",
         [&](QByteArray &b) { put32(b, built.minifatEntryOffset(smallChain[2]), smallChain[2]); }, big, small.left(3 * 64)},
        {"the directory and the BAT sector lead to themselves",
         [&](QByteArray &b) {
             put32(b, built.batEntryOffset(uint32_t(built.firstDirSector)), uint32_t(built.firstDirSector));
             put32(b, built.batEntryOffset(0), 0);
         },
         big, small},
        {"big claims 4 GiB - 1", [&](QByteArray &b) { put32(b, built.dirEntryOffset(1) + 120, 0xFFFFFFFF); }, big, small},
        {"small claims more blocks than its chain has", [&](QByteArray &b) { put32(b, built.dirEntryOffset(2) + 120, 4095); },
         big, small + QByteArray(24, '\0')},
        {"the file ends inside big", [&](QByteArray &b) { b.truncate(cutAt); }, big.left(kept) + QByteArray(8192 - kept, '\0'),
         small},
        {"big is of unknown type 7", [&](QByteArray &b) { b[built.dirEntryOffset(1) + 66] = 7; }, QByteArray(), small},
        {"big is of type 0, unused", [&](QByteArray &b) { b[built.dirEntryOffset(1) + 66] = 0; }, QByteArray(), small},
    };
    for (const Case &c : cases) {
        QByteArray bytes = built.bytes;
        c.damage(bytes);
        Cfb f(bytes);
        ASSERT_TRUE(f.storage.open()) << c.what;
        EXPECT_TRUE(f.read(QStringLiteral("/big")) == c.big) << c.what << ": big";
        EXPECT_TRUE(f.read(QStringLiteral("/small")) == c.small) << c.what << ": small";
    }
}

TEST(PoleRead, CyclicSiblingAndChildLinksAreWalkedOnce)
{
    std::vector<BuiltStream> streams;
    for (int i = 0; i < 6; ++i)
        streams.push_back({QStringLiteral("s%1").arg(i), pattern(10 + i, i)});
    BuiltFile built = buildCompoundFile(streams);
    // s5 (entry 6) links right back to s1 (entry 2) and left to itself; s2
    // becomes a storage whose child is the root's first child.
    put32(built.bytes, built.dirEntryOffset(6) + 72, 2);
    put32(built.bytes, built.dirEntryOffset(6) + 68, 6);
    built.bytes[built.dirEntryOffset(3) + 66] = 1;
    put32(built.bytes, built.dirEntryOffset(3) + 76, 1);
    Cfb f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    const QStringList names = f.storage.entries(), all = f.storage.GetAllStreams(QStringLiteral("/"));
    EXPECT_EQ(QSet<QString>(names.begin(), names.end()).size(), 6) << qPrintable(names.join(QLatin1Char(',')));
    EXPECT_EQ(names.size(), 6) << "each entry listed once";
    EXPECT_EQ(QSet<QString>(all.begin(), all.end()).size(), all.size());
    EXPECT_EQ(f.storage.getEntriesMap().size(), 6);
    // Paths through the child cycle are bounded by the nesting limit.
    QString deep;
    for (int i = 0; i < 51; ++i)
        deep += QStringLiteral("/s2");
    EXPECT_TRUE(f.storage.exists(deep));
}
