// Reading compound files: files of other writers compared with an independent
// reader, header and directory checks, and damaged files, which must neither
// crash, hang nor make us allocate what they claim.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include <QBuffer>
#include <QSet>
#include <QTemporaryFile>
#include <gtest/gtest.h>

#include <functional>

#include <unistd.h>

using namespace cfbtest;

TEST(PoleRead, FilesOfOtherWritersReadAsTheIndependentReaderReadsThem)
{
    // Files with more than 109 allocation-table sectors are read back in the writing tests.
    const QByteArray sectors4096 = buildCompoundFile({{"tiny", pattern(10, 1)}, {"at4095", pattern(4095, 2)},
                                                      {"at4096", pattern(4096, 3)}, {"large", pattern(70000, 4)},
                                                      {"none", QByteArray()}}, 12).bytes;
    for (const char *name : {"writer.doc", "calc.xls", "impress.ppt", "gsf-mixed.ole", "4096-byte sectors"}) {
        const QByteArray bytes = qstrcmp(name, "4096-byte sectors") ? readFile(fixture(name)) : sectors4096;
        Cfb f(bytes);
        ASSERT_TRUE(f.storage.open()) << name << ": result " << f.storage.result();
        EXPECT_EQ(f.storage.damage(), QStringList()) << name;
        const Listing theirs = olefileListingOf(bytes);
        EXPECT_EQ(difference(poleListing(f.storage), theirs), QString()) << name;
        QStringList streams = f.storage.GetAllStreams("/"), expected;
        for (auto it = theirs.begin(); it != theirs.end(); ++it)
            if (it.value().startsWith(QLatin1String("stream")))
                expected << it.key();
        streams.sort();
        EXPECT_EQ(streams, expected) << name;
        for (const QString &path : streams)
            EXPECT_EQ(POLE::Stream(&f.storage, path).damage(), QString()) << name << qPrintable(path);
    }
}

TEST(PoleRead, StreamsLookupsEntryDataAndReadOnlyRefusals)
{
    // Upper-cased ordering puts "aZ" before "Ba", code-unit ordering after:
    // the builder chained Ba -> aZ; relink them as aZ -> Ba.
    const QByteArray small = pattern(3000, 5), large = pattern(10000, 6);
    BuiltFile built = buildCompoundFile({{"Ba", small}, {"aZ", large}});
    put32(built.bytes, built.dirEntryOffset(0) + 76, 2);
    put32(built.bytes, built.dirEntryOffset(2) + 72, 1);
    put32(built.bytes, built.dirEntryOffset(1) + 72, 0xFFFFFFFF);
    auto f = std::make_unique<Cfb>(built.bytes);
    ASSERT_TRUE(f->storage.open());
    for (const QByteArray *data : {&small, &large}) {
        POLE::Stream stream(&f->storage, data == &small ? "/Ba" : "aZ"); // the slash is optional
        ASSERT_EQ(stream.size(), unsigned(data->size()));
        for (int pos : {63, data->size() - 10}) {
            QByteArray chunk(1500, '\0');
            stream.seek(unsigned(pos));
            chunk.resize(int(stream.read(reinterpret_cast<unsigned char *>(chunk.data()), 1500)));
            EXPECT_EQ(chunk, data->mid(pos, 1500)) << data->size() << " at " << pos << "; a read stops at the end";
        }
        EXPECT_EQ(stream.getch(), -1);
        stream.seek(unsigned(data->size() - 1));
        EXPECT_EQ(stream.getch(), int(uint8_t(data->back())));
    }
    // Whole streams replace a buffer's content; a missing one empties it.
    MemoryBuffer out = bufferOf("old contents");
    EXPECT_TRUE(f->storage.getEntryData("/aZ", &out));
    EXPECT_TRUE(bytesOf(out) == large);
    EXPECT_TRUE(f->storage.getEntryData("/missing", &out));
    EXPECT_EQ(out.sizeOfMB(), 0u) << "a missing stream leaves the buffer empty";

    // Opened read-only, nothing changes the buffer; closing ends the streams.
    EXPECT_FALSE(f->storage.deleteByName("/Ba"));
    EXPECT_FALSE(f->add("/new", "abc"));
    POLE::Stream stream(&f->storage, "/Ba");
    EXPECT_EQ(stream.write(reinterpret_cast<const unsigned char *>("abc"), 3), 0u);
    stream.setSize(5000);
    EXPECT_EQ(stream.size(), 3000u);
    EXPECT_TRUE(f->bytes() == built.bytes);
    f->storage.close();
    EXPECT_TRUE(stream.fail());
    f.reset();
    EXPECT_EQ(stream.getch(), -1);
}

TEST(PoleRead, HeaderAndDirectoryChecks)
{
    const BuiltFile built = buildCompoundFile({{"x", pattern(100, 1)}});
    auto patched = [&](int at, uint32_t v, bool wide = true) {
        QByteArray b = built.bytes;
        wide ? put32(b, at, v) : put16(b, at, uint16_t(v));
        return b;
    };
    const int nameLength = built.dirEntryOffset(1) + 64;
    struct Case { const char *what; QByteArray bytes; int result; const char *thrown; };
    const Case cases[] = {
        {"empty buffer", QByteArray(), POLE::Storage::NotOLE, ""},
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
        {"a name of 32 characters", patched(nameLength, 66, false), -1,
         "Error reading CFB - max length for name is 31 chars"},
        {"a name of 31 characters", patched(nameLength, 64, false), POLE::Storage::Ok, ""},
    };
    for (const Case &c : cases) {
        Cfb f(c.bytes);
        bool opened = false;
        EXPECT_EQ(thrownBy([&] { opened = f.storage.open(); }), QString::fromLatin1(c.thrown)) << c.what;
        if (c.result >= 0) {
            EXPECT_EQ(opened, c.result == POLE::Storage::Ok) << c.what;
            EXPECT_EQ(f.storage.result(), c.result) << c.what;
        }
        EXPECT_TRUE(f.bytes() == c.bytes) << c.what << ": reading changed the buffer";
    }
}

// Damage cuts a read short where the stream's true bytes end, the stream
// says why, and the storage names what it could not read of the file.
TEST(PoleRead, DamagedFilesEndInShortReadsThatSayWhy)
{
    const QByteArray big = pattern(8192, 1), small = pattern(1000, 2);
    const BuiltFile built = buildCompoundFile({{"big", big}, {"small", small}});
    const uint32_t bigStart = built.firstSector(1), smallStart = built.firstSector(2);
    const int cutAt = built.bytes.size() - 612; // inside big, the file's last stream
    // A stream's bytes and why it cannot be read in full ("" when it can; null when it is not found).
    struct Read { QByteArray bytes; const char *damage = nullptr; };
    const Read sound[] = {{big, ""}, {small, ""}};
    struct Case { const char *what; std::function<void(QByteArray &)> damage; Read big, small; const char *file; };
    const Case cases[] = {
        {"big's fourth sector leads back to its first",
         [&](QByteArray &b) { put32(b, built.batEntryOffset(bigStart + 3), bigStart); },
         {big.left(4 * 512), "its chain loops back to sector 5 after 4 of 16 sectors (2048 of 8192 bytes readable)"},
         sound[1], ""},
        {"small's third block leads to itself",
         [&](QByteArray &b) { put32(b, built.minifatEntryOffset(smallStart + 2), smallStart + 2); }, sound[0],
         {small.left(3 * 64), "its chain loops back to small block 2 after 3 of 16 small blocks"}, ""},
        {"small's chain runs into big's sectors",
         [&](QByteArray &b) {
             put32(b, built.dirEntryOffset(2) + 120, 5000);
             put32(b, built.dirEntryOffset(2) + 116, bigStart + 14);
         },
         sound[0],
         {QByteArray(), "its chain runs into the blocks of \"big\" after 0 of 10 sectors (0 of 5000 bytes readable)"},
         ""},
        {"the directory leads to itself",
         [&](QByteArray &b) {
             put32(b, built.batEntryOffset(uint32_t(built.firstDirSector)), uint32_t(built.firstDirSector));
         },
         sound[0], sound[1], "the directory's sector chain loops back to sector 1"},
        {"big claims 4 GiB - 1", [&](QByteArray &b) { put32(b, built.dirEntryOffset(1) + 120, 0xFFFFFFFF); },
         {big, "its chain ends after 16 of 8388608 sectors (8192 of 4294967295 bytes readable)"}, sound[1], ""},
        {"small claims more blocks than its chain has",
         [&](QByteArray &b) { put32(b, built.dirEntryOffset(2) + 120, 4095); }, sound[0],
         {small + QByteArray(24, '\0'), "its chain ends after 16 of 64 small blocks"}, ""},
        {"the file ends inside big", [&](QByteArray &b) { b.truncate(cutAt); },
         {big.left(cutAt - built.sectorOffset(bigStart)),
          "lies beyond the end of the file (7580 of 8192 bytes readable)"},
         sound[1], ""},
        {"big is of unknown type 7", [&](QByteArray &b) { b[built.dirEntryOffset(1) + 66] = 7; }, {}, sound[1],
         "/: a link to unused entry 1"},
        {"the root is of type 2", [&](QByteArray &b) { b[built.dirEntryOffset(0) + 66] = 2; }, sound[0], sound[1],
         "the root entry has type 2, not 5; it is read as the root storage"},
        {"small is linked from itself", [&](QByteArray &b) { put32(b, built.dirEntryOffset(2) + 72, 2); },
         sound[0], sound[1], "/: entry 2 is linked to more than once"},
        {"small is named big too",
         [&](QByteArray &b) {
             b.replace(built.dirEntryOffset(2), 8, QByteArray("b\0i\0g\0\0\0", 8));
             put16(b, built.dirEntryOffset(2) + 64, 8);
         },
         sound[0], {},
         "/big: two entries of this name; only one is read"},
    };
    for (const Case &c : cases) {
        QByteArray bytes = built.bytes;
        c.damage(bytes);
        Cfb f(bytes);
        ASSERT_TRUE(f.storage.open()) << c.what;
        const QString fileDamage = f.storage.damage().join('\n');
        EXPECT_EQ(fileDamage.isEmpty(), !*c.file) << c.what << ": " << qPrintable(fileDamage);
        EXPECT_TRUE(fileDamage.contains(QLatin1String(c.file))) << c.what << ": " << qPrintable(fileDamage);
        for (const auto &stream :
             {qMakePair(QStringLiteral("/big"), c.big), qMakePair(QStringLiteral("/small"), c.small)}) {
            const Read &expected = stream.second;
            if (expected.damage == nullptr) {
                EXPECT_FALSE(f.storage.exists(stream.first)) << c.what << ": " << qPrintable(stream.first);
                continue;
            }
            POLE::Stream s(&f.storage, stream.first);
            const int asked = int(std::min<uint64_t>(s.size(), 1 << 20));
            QByteArray data(asked, '\0');
            data.resize(int(s.read(reinterpret_cast<unsigned char *>(data.data()), uint64_t(asked))));
            EXPECT_TRUE(data == expected.bytes) << c.what << ": " << qPrintable(stream.first);
            EXPECT_EQ(s.fail(), data.size() < asked) << c.what << ": a short read fails";
            const QString why = s.damage();
            EXPECT_EQ(why.isEmpty(), !*expected.damage) << c.what << ": " << qPrintable(why);
            EXPECT_TRUE(why.contains(QLatin1String(expected.damage))) << c.what << ": " << qPrintable(why);
        }
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
    QStringList names = f.storage.entries(), all = f.storage.GetAllStreams("/");
    names.sort();
    EXPECT_EQ(names, (QStringList{"s0", "s1", "s2", "s3", "s4", "s5"})) << "each entry listed once";
    EXPECT_EQ(QSet<QString>(all.begin(), all.end()).size(), all.size());
    EXPECT_EQ(f.storage.getEntriesMap().size(), 6);
    // Paths through the child cycle are bounded by the nesting limit.
    EXPECT_TRUE(f.storage.exists(QStringLiteral("/s2").repeated(51)));
}

// A file cut anywhere: each stream reads back whole, or is damaged and reads
// back a true prefix of itself, or is lost with the file saying so; never
// are bytes made up.
TEST(PoleRead, TruncatedFilesNeverYieldInventedBytes)
{
    // The Office files keep their directory at the end, where a cut takes it
    // first; the built one keeps it at the start, so cuts hit the streams.
    const QByteArray built = buildCompoundFile({{"big", pattern(9000, 1)}, {"small", pattern(3000, 2)},
                                                {"large", pattern(20000, 3)}, {"tiny", pattern(10, 4)}}).bytes;
    int damagedSeen = 0;
    for (const char *name : {"writer.doc", "calc.xls", "impress.ppt", "gsf-mixed.ole", "built"}) {
        const QByteArray full = qstrcmp(name, "built") ? readFile(fixture(name)) : built;
        Cfb whole(full);
        ASSERT_TRUE(whole.storage.open()) << name;
        ASSERT_EQ(difference(poleListing(whole.storage), olefileListingOf(full)), QString()) << name;
        QMap<QString, QByteArray> streams;
        for (const QString &path : whole.storage.GetAllStreams("/"))
            streams.insert(path, whole.read(path));

        std::vector<int> sizes;
        for (int at = 0; at < full.size(); at += 512)
            sizes.insert(sizes.end(), {at, at + 1, at + 300});
        for (int size : sizes) {
            QByteArray cut = QByteArray::fromRawData(full.constData(), size);
            QBuffer device(&cut);
            POLE::Storage storage(&device);
            bool opened = false;
            thrownBy([&] { opened = storage.open(); }); // a name cut in half may be malformed
            if (!opened)
                continue;
            const bool fileDamaged = !storage.damage().isEmpty();
            for (auto it = streams.begin(); it != streams.end(); ++it) {
                const QString what = QStringLiteral("%1 cut at %2: %3").arg(name).arg(size).arg(it.key());
                if (!storage.exists(it.key())) {
                    EXPECT_TRUE(fileDamaged) << qPrintable(what) << " is lost without a word";
                    continue;
                }
                POLE::Stream stream(&storage, it.key());
                QByteArray data(int(stream.size()), '\0');
                data.resize(int(stream.read(reinterpret_cast<unsigned char *>(data.data()), stream.size())));
                if (stream.damage().isEmpty()) {
                    EXPECT_TRUE(data == it.value()) << qPrintable(what);
                    EXPECT_FALSE(stream.fail()) << qPrintable(what);
                } else {
                    ++damagedSeen;
                    EXPECT_TRUE(it.value().startsWith(data)) << qPrintable(what) << ": " << qPrintable(stream.damage());
                    EXPECT_EQ(stream.fail(), data.size() < it.value().size()) << qPrintable(what);
                }
            }
        }
    }
    EXPECT_GT(damagedSeen, 0);
}

TEST(PoleRead, NamesAreResolvedWithoutRegardToCaseOnlyWhenOneEntryMatches)
{
    BuiltFile built = buildCompoundFile({{"Workbook", "w"}, {"Data", "d1"}, {"DATA", "d2"}});
    Cfb f(built.bytes);
    ASSERT_TRUE(f.storage.open());
    EXPECT_FALSE(f.storage.exists("/workbook")) << "lookups compare names exactly";
    struct Case { const char *path; bool ok; const char *resolved; QStringList candidates; };
    const Case cases[] = {
        {"/workbook", true, "/Workbook", {}},
        {"WORKBOOK", true, "/Workbook", {}},
        {"/Data", true, "/Data", {}},
        {"/data", false, "", {"/Data", "/DATA"}},
        {"/workbook/x/y", true, "/Workbook/x/y", {}},
        {"/missing/Part", true, "/missing/Part", {}},
        {"/", true, "/", {}},
    };
    for (const Case &c : cases) {
        QString resolved;
        QStringList candidates;
        EXPECT_EQ(f.storage.resolvePath(c.path, resolved, &candidates), c.ok) << c.path;
        EXPECT_EQ(resolved, QLatin1String(c.resolved)) << c.path;
        EXPECT_EQ(candidates, c.ok ? QStringList() : c.candidates) << c.path;
    }
    EXPECT_EQ(f.storage.damage(), QStringList{"/Data and /DATA: names that differ only in case"});
}

namespace {

// Whether a type offers a dump of its state (the storage once printed its
// tables to standard output).
template <typename T, typename = void>
struct HasDump : std::false_type {};
template <typename T>
struct HasDump<T, std::void_t<decltype(std::declval<const T &>().debug())>> : std::true_type {};

// What the calls write to standard output (file descriptor 1).
template <typename Calls>
QByteArray standardOutputOf(Calls calls)
{
    QTemporaryFile capture;
    if (!capture.open())
        return "cannot capture";
    fflush(stdout);
    const int saved = dup(1);
    dup2(capture.handle(), 1);
    calls();
    fflush(stdout);
    dup2(saved, 1);
    close(saved);
    capture.seek(0);
    return capture.readAll();
}

} // namespace

// vxcam cat writes stream bytes to standard output: the storage must never add to them.
TEST(PoleRead, NothingIsWrittenToStandardOutput)
{
    const BuiltFile built = buildCompoundFile({{"a", pattern(100, 1)}, {"b", pattern(9000, 2)}});
    QByteArray damaged = built.bytes;
    put32(damaged, built.dirEntryOffset(1) + 72, 1);
    const QByteArray out = standardOutputOf([&] {
        for (const QByteArray &bytes : {built.bytes, damaged, readFile(fixture("impress.ppt"))}) {
            Cfb f(bytes);
            f.storage.open(true, false);
            f.storage.getEntriesMap();
            f.storage.damage();
            for (const QString &path : f.storage.GetAllStreams("/")) {
                POLE::Stream(&f.storage, path).damage();
                f.read(path);
            }
            f.add("/new", pattern(5000, 3));
            f.storage.deleteByName("/a");
            [](auto &storage) {
                if constexpr (HasDump<std::decay_t<decltype(storage)>>::value)
                    storage.debug();
            }(f.storage);
        }
    });
    EXPECT_TRUE(out.isEmpty()) << out.left(200).constData();
}
