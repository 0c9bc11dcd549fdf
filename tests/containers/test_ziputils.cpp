#include "containers/ZipUtils.h"

#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QBuffer>
#include <QDataStream>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

#include <functional>

using ZipUtils::Entry;
using ZipUtils::Unzip;
using ZipUtils::Zip;

namespace {

using Members = QList<QPair<QString, QByteArray>>;

QByteArray zipOf(const Members &members)
{
    Zip zip;
    EXPECT_TRUE(zip.open(1024));
    for (const auto &member : members)
        EXPECT_TRUE(zip.addEntry(member.first, member.second)) << member.first.toStdString();
    QByteArray bytes;
    EXPECT_TRUE(zip.copyZipFile(bytes));
    return bytes;
}

QByteArray randomBytes(int size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, '\0');
    for (char &c : bytes)
        c = static_cast<char>(generator.bounded(256));
    return bytes;
}

// The lines dir/b.txt of the fixtures holds (see fixtures/archives/make.sh).
QByteArray fixtureLines()
{
    QByteArray text;
    for (int i = 0; i < 60; ++i)
        text += "line " + QByteArray::number(i) + " of a compressible member\n";
    return text;
}

// Offsets of every record with the given signature.
QList<int> recordsOf(const QByteArray &archive, const char *signature)
{
    QList<int> found;
    for (int at = archive.indexOf(signature); at >= 0; at = archive.indexOf(signature, at + 1))
        found << at;
    return found;
}

void putLE32(QByteArray &bytes, int at, quint32 value)
{
    char field[4];
    qToLittleEndian(value, field);
    bytes.replace(at, 4, field, 4);
}

const char kCentralHeader[] = "PK\x01\x02";
const char kEndRecord[] = "PK\x05\x06";

// Reads every member the archive lists; the point is that nothing crashes.
int readEverything(Unzip &unzip)
{
    int readable = 0;
    for (const QString &name : unzip.getFilenames()) {
        QByteArray data;
        readable += unzip.getEntryData(name, data) ? 1 : 0;
        unzip.getEntrySize(name);
    }
    unzip.getEntriesMap();
    return readable;
}

QString tool(const char *name)
{
    return QStandardPaths::findExecutable(QLatin1String(name));
}

QByteArray run(const QString &program, const QStringList &arguments, int *exitCode = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForFinished(30000)) << program.toStdString();
    if (exitCode)
        *exitCode = process.exitCode();
    return process.readAllStandardOutput();
}

} // namespace

TEST(ZipEntry, DefaultAndAdd)
{
    Entry entry;
    EXPECT_TRUE(entry.name().isEmpty());
    EXPECT_FALSE(entry.isFolder());
    EXPECT_TRUE(entry.add(QStringLiteral("word/"), true));
    EXPECT_EQ(entry.name(), QStringLiteral("word/"));
    EXPECT_TRUE(entry.isFolder());
}

TEST(Unzip, OpenRefusesWhatIsNoArchive)
{
    MemoryBuffer empty;
    QBuffer emptyDevice;
    const QByteArray notZip[] = {QByteArray("PK"), QByteArray("PK\x03\x04 and then garbage"),
                                 randomBytes(4096, 7), QByteArray(100, '\0')};
    Unzip unzip;
    EXPECT_FALSE(unzip.open(static_cast<MemoryBuffer *>(nullptr)));
    EXPECT_FALSE(unzip.open(&empty));
    EXPECT_FALSE(unzip.open(static_cast<QBuffer *>(nullptr)));
    EXPECT_FALSE(unzip.open(&emptyDevice));
    for (const QByteArray &bytes : notZip) {
        MemoryBuffer buffer = bufferOf(bytes);
        EXPECT_FALSE(unzip.open(&buffer)) << bytes.size() << " bytes";
    }
    QByteArray data("untouched");
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("x"), data));
    EXPECT_EQ(data, QByteArray("untouched"));
    EXPECT_EQ(unzip.getEntrySize(QStringLiteral("x")), 0);
    EXPECT_TRUE(unzip.getEntryList().isEmpty());
}

TEST(Unzip, ListsFoldersAndFilesInArchiveOrder)
{
    const QByteArray archive = zipOf({{"word/", {}},
                                      {"word/document.xml", "<w/>"},
                                      {"[Content_Types].xml", "<Types/>"},
                                      {"odd\\", {}}});
    MemoryBuffer buffer = bufferOf(archive);
    buffer.seek(7, MBSeekStart);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    EXPECT_EQ(buffer.tell(), 7u) << "the caller's cursor is not touched";
    buffer.zeroMemoryBuffer(); // the archive is a copy

    EXPECT_EQ(unzip.getFolders(), (QList<QString>{"word/", "odd\\"}));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"word/document.xml", "[Content_Types].xml"}));
    const QList<Entry> entries = unzip.getEntryList();
    ASSERT_EQ(entries.size(), 4);
    const bool folder[] = {true, false, false, true};
    for (int i = 0; i < entries.size(); ++i)
        EXPECT_EQ(entries[i].isFolder(), folder[i]) << entries[i].name().toStdString();

    QMap<QString, QVariant> word;
    word.insert(QStringLiteral("document.xml"), QStringLiteral("word/document.xml"));
    QMap<QString, QVariant> expected;
    expected.insert(QStringLiteral("[Content_Types].xml"), QStringLiteral("[Content_Types].xml"));
    expected.insert(QStringLiteral("word"), word);
    EXPECT_EQ(unzip.getEntriesMap(), expected);

    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("word/document.xml"), data));
    EXPECT_EQ(data, QByteArray("<w/>"));
}

TEST(Unzip, EntriesMapNestsFoldersAndLetsFoldersReplaceLeaves)
{
    const QByteArray archive = zipOf({{"a/b", "1"}, {"a", "2"}, {"x//y", "3"}, {"p/q/r/s", "4"}});
    MemoryBuffer buffer = bufferOf(archive);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    const QMap<QString, QVariant> map = unzip.getEntriesMap();
    EXPECT_EQ(map.keys(), (QList<QString>{"a", "p", "x"}));
    EXPECT_EQ(map["a"].toMap()["b"], QVariant(QStringLiteral("a/b"))) << "a is inserted first, then becomes a folder";
    EXPECT_EQ(map["x"].toMap()[""].toMap()["y"], QVariant(QStringLiteral("x//y")));
    EXPECT_EQ(map["p"].toMap()["q"].toMap()["r"].toMap()["s"], QVariant(QStringLiteral("p/q/r/s")));

    QMap<QString, QVariant> direct;
    Unzip::insertMap(direct, QStringLiteral("f/g"), QStringLiteral("full"));
    Unzip::insertMap(direct, QStringLiteral("f"), QStringLiteral("leaf"));
    EXPECT_EQ(direct["f"], QVariant(QStringLiteral("leaf"))) << "a later leaf replaces the folder";
    Unzip::insertMap(direct, QString(), QStringLiteral("empty"));
    EXPECT_EQ(direct[""], QVariant(QStringLiteral("empty")));
}

TEST(Unzip, DeeplyNestedNamesBuildAMapWithoutRecursionTrouble)
{
    QString deep;
    const int depth = 20000;
    for (int i = 0; i < depth; ++i)
        deep += QStringLiteral("d/");
    deep += QStringLiteral("leaf");
    MemoryBuffer buffer = bufferOf(zipOf({{deep, "x"}}));
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    QMap<QString, QVariant> level = unzip.getEntriesMap();
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(level.keys(), QList<QString>{"d"}) << "at depth " << i;
        level = level["d"].toMap();
    }
    EXPECT_EQ(level["leaf"], QVariant(deep));
}

TEST(Unzip, ReadsArchivesWrittenByTheZipTool)
{
    MemoryBuffer buffer = bufferOf(readFixture(QStringLiteral("archives/plain.zip")));
    ASSERT_GT(buffer.sizeOfMB(), 0u) << "fixture archives/plain.zip is missing";
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"a.txt", "dir/b.txt"}));
    EXPECT_EQ(unzip.getFolders(), QList<QString>{"dir/"});

    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("a.txt"), data));
    EXPECT_EQ(data, QByteArray("alpha\n"));
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("dir/b.txt"), data));
    EXPECT_EQ(data, fixtureLines());

    // The size offered is the compressed one: the tool stored a.txt and
    // deflated b.txt.
    EXPECT_EQ(unzip.getEntrySize(QStringLiteral("a.txt")), 6);
    const qint64 compressed = unzip.getEntrySize(QStringLiteral("dir/b.txt"));
    EXPECT_GT(compressed, 0);
    EXPECT_LT(compressed, fixtureLines().size() / 4);
    EXPECT_EQ(unzip.getEntrySize(QStringLiteral("missing")), 0);
    EXPECT_EQ(unzip.getEntrySize(QStringLiteral("dir/")), 0) << "a folder member has no bytes";
}

TEST(Unzip, ReadsIntoABufferAtItsCursor)
{
    MemoryBuffer archive = bufferOf(zipOf({{"m", "payload"}, {"empty", {}}}));
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&archive));

    MemoryBuffer target = bufferOf("0123");
    target.seek(2, MBSeekStart);
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("m"), &target));
    EXPECT_EQ(target.tell(), 9u);
    EXPECT_EQ(target.getString(9, 0, MBSeekStart), "01payload");

    target.seek(3, MBSeekStart);
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("empty"), &target)) << "an empty member is read";
    EXPECT_EQ(target.tell(), 3u) << "and writes nothing";
    QByteArray data("old");
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("empty"), data));
    EXPECT_TRUE(data.isEmpty());

    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("absent"), &target));
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("m"), static_cast<MemoryBuffer *>(nullptr)));

    MemoryBuffer fixed(3);
    fixed.allowBufferExpansion(false);
    EXPECT_THROW(unzip.getEntryData(QStringLiteral("m"), &fixed), WriteBufferException);

    unzip.close();
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("m"), data)) << "closed";
}

TEST(Unzip, OpensOverTheCallersDeviceAndAppendsOnReopen)
{
    QByteArray first = zipOf({{"one", "1"}});
    QBuffer device(&first);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&device));
    MemoryBuffer second = bufferOf(zipOf({{"two", "2"}, {"dir/", {}}}));
    ASSERT_TRUE(unzip.open(&second));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"one", "two"}));
    EXPECT_EQ(unzip.getEntryList().size(), 3);
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("two"), data));
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("one"), data)) << "the first archive is closed";
}

TEST(Zip, RoundTripsMembersExactly)
{
    const Members members = {
        {"empty.txt", {}},
        {"text/hello.txt", "hello, world\n"},
        {"big/random.bin", randomBytes(1 << 20, 42)},
        {"zeros.bin", QByteArray(300000, '\0')},
        {QString::fromUtf8("na\xc3\xafve/\xc3\xbcnic\xc3\xb6" "de.txt"), "utf"},
        {"with space/and\\backslash", "kept as given"},
    };
    MemoryBuffer buffer;
    {
        Zip zip;
        ASSERT_TRUE(zip.open(0));
        for (const auto &member : members)
            ASSERT_TRUE(zip.addEntry(member.first, member.second)) << member.first.toStdString();
        ASSERT_TRUE(zip.copyZipFileToBuffer(&buffer));
        EXPECT_EQ(static_cast<size_t>(zip.getZipFileSize()), buffer.sizeOfMB());
    }
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    QList<QString> names;
    for (const auto &member : members)
        names << member.first;
    EXPECT_EQ(unzip.getFilenames(), names);
    for (const auto &member : members) {
        QByteArray data("sentinel");
        EXPECT_TRUE(unzip.getEntryData(member.first, data)) << member.first.toStdString();
        EXPECT_TRUE(data == member.second) << member.first.toStdString() << " differs";
    }
    EXPECT_LT(unzip.getEntrySize(QStringLiteral("zeros.bin")), 1000) << "members are deflated";
}

TEST(Zip, LifecycleRules)
{
    Zip zip;
    QByteArray out("untouched");
    MemoryBuffer target;
    EXPECT_FALSE(zip.addEntry(QStringLiteral("a"), QByteArray("x")));
    EXPECT_FALSE(zip.close());
    EXPECT_FALSE(zip.copyZipFile(out));
    EXPECT_FALSE(zip.copyZipFileToBuffer(&target));
    EXPECT_EQ(zip.getZipFileSize(), 0);
    EXPECT_EQ(out, QByteArray("untouched"));

    ASSERT_TRUE(zip.open(0));
    EXPECT_FALSE(zip.open(0)) << "an open archive is not thrown away";
    EXPECT_TRUE(zip.addEntry(QStringLiteral("a"), QByteArray("x")));
    EXPECT_TRUE(zip.close());
    EXPECT_FALSE(zip.close());
    EXPECT_FALSE(zip.addEntry(QStringLiteral("b"), QByteArray("y"))) << "closed";
    EXPECT_TRUE(zip.copyZipFile(out));
    EXPECT_EQ(out.size(), zip.getZipFileSize());

    ASSERT_TRUE(zip.open(0)) << "a closed writer starts a new archive";
    EXPECT_TRUE(zip.addEntry(QStringLiteral("c"), QByteArray("z")));
    ASSERT_TRUE(zip.copyZipFile(out));
    MemoryBuffer reread = bufferOf(out);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&reread));
    EXPECT_EQ(unzip.getFilenames(), QList<QString>{"c"});
}

TEST(Zip, CopyToABufferThatMayNotGrow)
{
    Zip zip;
    ASSERT_TRUE(zip.open(0));
    ASSERT_TRUE(zip.addEntry(QStringLiteral("m"), QByteArray(1000, 'm')));
    MemoryBuffer fixed;
    fixed.allowBufferExpansion(false);
    ASSERT_TRUE(zip.copyZipFileToBuffer(&fixed)) << "the first resize ignores the flag";
    EXPECT_EQ(fixed.sizeOfMB(), static_cast<size_t>(zip.getZipFileSize()));
    EXPECT_EQ(fixed.tell(), fixed.sizeOfMB());

    MemoryBuffer larger = bufferOf(QByteArray(5000, 'L'));
    ASSERT_TRUE(zip.copyZipFileToBuffer(&larger));
    EXPECT_EQ(larger.sizeOfMB(), fixed.sizeOfMB()) << "a larger target is cut to the archive";
    EXPECT_EQ(larger.getBuffer(), fixed.getBuffer());
}

TEST(Zip, BufferMembersTakeAllBytesWhateverTheCursor)
{
    MemoryBuffer source = bufferOf("whole content");
    source.seek(6, MBSeekStart);
    Zip zip;
    ASSERT_TRUE(zip.open(0));
    EXPECT_TRUE(zip.addEntry(QStringLiteral("from buffer"), &source));
    EXPECT_FALSE(zip.addEntry(QStringLiteral("from null"), static_cast<MemoryBuffer *>(nullptr)));
    EXPECT_TRUE(zip.addEntry(QStringLiteral("same"), QByteArray("first")));
    EXPECT_TRUE(zip.addEntry(QStringLiteral("same"), QByteArray("second")));
    MemoryBuffer archive;
    ASSERT_TRUE(zip.copyZipFileToBuffer(&archive));

    Unzip unzip;
    ASSERT_TRUE(unzip.open(&archive));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"from buffer", "from null", "same", "same"}))
        << "a null buffer still leaves an empty member; equal names give two members";
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("from buffer"), data));
    EXPECT_EQ(data, QByteArray("whole content"));
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("from null"), data));
    EXPECT_TRUE(data.isEmpty());
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("same"), data));
    EXPECT_EQ(data, QByteArray("second")) << "a repeated name reads as its last member";
}

TEST(Zip, IndependentReaderAcceptsWhatIsWritten)
{
    const QString unzipTool = tool("unzip");
    if (unzipTool.isEmpty())
        GTEST_SKIP() << "the unzip tool is not installed";
    const Members members = {{"doc/readme.txt", "read me\n"},
                             {"doc/random.bin", randomBytes(200000, 3)},
                             {QString::fromUtf8("caf\xc3\xa9.txt"), "accent"},
                             {"back\\slash", "as given"},
                             {"empty", {}},
                             {"twice", "1"},
                             {"twice", "2"}};
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("written.zip"));
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(zipOf(members));
    }
    int exitCode = -1;
    const QByteArray test = run(unzipTool, {"-t", path}, &exitCode);
    EXPECT_EQ(exitCode, 0) << test.toStdString();

    QList<QString> expectedNames;
    for (const auto &member : members)
        expectedNames << member.first;
    const QByteArray listing = run(unzipTool, {"-Z1", path});
    EXPECT_EQ(QString::fromUtf8(listing).split(QLatin1Char('\n'), Qt::SkipEmptyParts), expectedNames)
        << "names are stored exactly as given";
    EXPECT_EQ(run(unzipTool, {"-p", path, "doc/random.bin"}), members[1].second);
    EXPECT_EQ(run(unzipTool, {"-p", path, "doc/readme.txt"}), members[0].second);

    // Deflate at the default level, each member followed by a data descriptor.
    const QString details = QString::fromUtf8(run(unzipTool, {"-Zv", path}));
    EXPECT_EQ(details.count(QStringLiteral("compression method:                             deflated")),
              members.size());
    EXPECT_EQ(details.count(QStringLiteral("compression sub-type (deflation):               normal")),
              members.size());
    EXPECT_EQ(details.count(QStringLiteral("extended local header:                          yes")),
              members.size());
}

TEST(UnzipHostile, TruncatedArchivesNeverCrash)
{
    const Members members = {{"word/document.xml", QByteArray(5000, 'w')}, {"b", "bee"}};
    const QByteArray archive = zipOf(members);
    const int endRecord = recordsOf(archive, kEndRecord).last();
    for (int length = 0; length < archive.size(); ++length) {
        MemoryBuffer buffer = bufferOf(archive.left(length));
        Unzip unzip;
        const bool opened = unzip.open(&buffer);
        if (length <= endRecord) {
            ASSERT_FALSE(opened) << "cut at " << length;
            continue;
        }
        // Cut inside the end record, the directory may still be found; what
        // is read then must be the members' true content.
        readEverything(unzip);
        for (const auto &member : members) {
            QByteArray data;
            const bool read = unzip.getEntryData(member.first, data);
            ASSERT_TRUE(!read || data == member.second) << "cut at " << length;
        }
    }
}

TEST(UnzipHostile, DamagedMembersAreNotHandedOver)
{
    const QByteArray text = "the quick brown fox jumps over the lazy dog, again and again and again";
    const QByteArray archive = zipOf({{"m", text}});
    const int central = recordsOf(archive, kCentralHeader).first();

    struct Case
    {
        const char *what;
        std::function<void(QByteArray &)> damage;
    } const cases[] = {
        {"a flipped data byte", [](QByteArray &a) { a[40] = static_cast<char>(a[40] ^ 0x55); }},
        {"a wrong CRC", [central](QByteArray &a) { putLE32(a, central + 16, 0x12345678); }},
        {"a longer size", [central](QByteArray &a) { putLE32(a, central + 24, 1000); }},
        {"a shorter size", [central](QByteArray &a) { putLE32(a, central + 24, 10); }},
        {"a compressed size beyond the archive", [central](QByteArray &a) { putLE32(a, central + 20, 0x7fffffff); }},
        {"an absurd size", [central](QByteArray &a) { putLE32(a, central + 24, 0xffffffff); }},
        {"an unknown method", [central](QByteArray &a) { a[central + 10] = 99; }},
        {"a local header offset beyond the end", [central](QByteArray &a) { putLE32(a, central + 42, 0x10000000); }},
    };
    for (const Case &c : cases) {
        QByteArray damaged = archive;
        c.damage(damaged);
        MemoryBuffer buffer = bufferOf(damaged);
        Unzip unzip;
        ASSERT_TRUE(unzip.open(&buffer)) << c.what;
        QByteArray data("untouched");
        EXPECT_FALSE(unzip.getEntryData(QStringLiteral("m"), data)) << c.what;
        EXPECT_EQ(data, QByteArray("untouched")) << c.what;
    }
}

TEST(UnzipHostile, AbsurdEntryCountsListNothing)
{
    const QByteArray archive = zipOf({{"word/document.xml", "<w/>"}, {"b", "bee"}});
    const int end = recordsOf(archive, kEndRecord).last();

    // A classic end record claiming 65535 members in a 2-member directory.
    QByteArray classic = archive;
    classic.replace(end + 8, 4, QByteArray(4, '\xff'));

    // A zip64 end record claiming 2^40 members, and one whose directory
    // would be larger than any memory.
    auto zip64 = [&](quint64 count, quint64 directorySize) {
        const QByteArray body = archive.left(end);
        const quint32 size = qFromLittleEndian<quint32>(archive.constData() + end + 12);
        const quint32 offset = qFromLittleEndian<quint32>(archive.constData() + end + 16);
        QByteArray tail;
        QDataStream out(&tail, QIODevice::WriteOnly);
        out.setByteOrder(QDataStream::LittleEndian);
        out << quint32(0x06064b50) << quint64(44) << quint16(45) << quint16(45) << quint32(0)
            << quint32(0) << count << count << (directorySize ? directorySize : size)
            << quint64(offset);                                                   // zip64 end record
        out << quint32(0x07064b50) << quint32(0) << quint64(body.size()) << quint32(1); // locator
        out << quint32(0x06054b50) << quint16(0xffff) << quint16(0xffff) << quint16(0xffff)
            << quint16(0xffff) << quint32(0xffffffff) << quint32(0xffffffff) << quint16(0);
        return body + tail;
    };
    struct Case
    {
        const char *what;
        QByteArray bytes;
        int names;
    } const cases[] = {
        {"65535 members claimed", classic, 0},
        {"zip64, 2^40 members claimed", zip64(quint64(1) << 40, 0), 0},
        {"zip64, 2^31-1 members claimed", zip64(0x7fffffff, 0), 0},
        {"zip64, a directory of 2^50 bytes", zip64(2, quint64(1) << 50), 0},
        {"zip64, honest", zip64(2, 0), 2},
    };
    for (const Case &c : cases) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        Unzip unzip;
        unzip.open(&buffer);
        EXPECT_EQ(unzip.getFilenames().size(), c.names) << c.what;
        readEverything(unzip);
    }
}

TEST(UnzipHostile, StrangeNames)
{
    // Names are patched after writing so that they hold bytes no caller
    // would pass: a NUL in the middle.
    QByteArray archive = zipOf({{"aXb", "nul inside"}, {"c\\d\\", "backslashes"}});
    archive.replace("aXb", QByteArray("a\0b", 3));
    MemoryBuffer buffer = bufferOf(archive);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    const QString withNul = QString::fromLatin1("a\0b", 3);
    EXPECT_EQ(unzip.getFilenames(), QList<QString>{withNul});
    EXPECT_EQ(unzip.getFolders(), QList<QString>{"c\\d\\"});
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(withNul, data));
    EXPECT_EQ(data, QByteArray("nul inside"));
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("a"), data)) << "the name does not end at the NUL";

    // Long names are listed and read in full.
    for (const int length : {255, 256, 257, 1000, 65535}) {
        const QString longName(length, QLatin1Char('n'));
        MemoryBuffer longArchive = bufferOf(zipOf({{longName, "long"}}));
        Unzip longUnzip;
        ASSERT_TRUE(longUnzip.open(&longArchive));
        EXPECT_EQ(longUnzip.getFilenames(), QList<QString>{longName}) << length;
        EXPECT_TRUE(longUnzip.getEntryData(longName, data)) << length;
        EXPECT_EQ(data, QByteArray("long"));
    }
}

TEST(UnzipHostile, SingleByteDamageAnywhereNeverCrashes)
{
    const QByteArray archive = zipOf({{"word/", {}}, {"word/document.xml", QByteArray(300, 'w')}, {"x", "y"}});
    for (int at = 0; at < archive.size(); ++at) {
        for (const char value : {'\0', '\xff', '\x7f'}) {
            QByteArray damaged = archive;
            damaged[at] = value;
            MemoryBuffer buffer = bufferOf(damaged);
            Unzip unzip;
            unzip.open(&buffer);
            readEverything(unzip);
        }
    }
    SUCCEED();
}
