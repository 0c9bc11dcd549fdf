// Zip and Unzip: archives of the zip tools read, ours read back by the unzip
// tool, the edge cases callers meet, and hostile archives, which must neither
// crash, hang nor make us allocate what they claim.

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

QByteArray randomBytes(int size, quint32 seed) // size: a multiple of 4
{
    QByteArray bytes(size, '\0');
    QRandomGenerator(seed).fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}

// Reads every member the archive lists; what matters is that nothing crashes.
void readEverything(Unzip &unzip)
{
    for (const QString &name : unzip.getFilenames()) {
        QByteArray data;
        unzip.getEntryData(name, data);
        unzip.getEntrySize(name);
    }
    unzip.getEntriesMap();
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

TEST(Unzip, OpenRefusesWhatIsNoArchive)
{
    MemoryBuffer empty;
    QBuffer emptyDevice;
    Unzip unzip;
    EXPECT_FALSE(unzip.open(static_cast<MemoryBuffer *>(nullptr)));
    EXPECT_FALSE(unzip.open(&empty));
    EXPECT_FALSE(unzip.open(static_cast<QBuffer *>(nullptr)));
    EXPECT_FALSE(unzip.open(&emptyDevice));
    for (const QByteArray &bytes : {QByteArray("PK"), QByteArray("PK\x03\x04 and then garbage"), randomBytes(4096, 7),
                                    QByteArray(100, '\0')}) {
        MemoryBuffer buffer = bufferOf(bytes);
        EXPECT_FALSE(unzip.open(&buffer)) << bytes.size() << " bytes";
    }
    QByteArray data("untouched");
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("x"), data)) << "no reader is left behind";
    EXPECT_EQ(data, QByteArray("untouched"));
    EXPECT_TRUE(unzip.getEntryList().isEmpty());
}

TEST(Unzip, ListsFoldersFilesAndTheEntriesMap)
{
    MemoryBuffer buffer = bufferOf(zipOf({{"word/", {}},
                                          {"word/document.xml", "<w/>"},
                                          {"[Content_Types].xml", "<Types/>"},
                                          {"odd\\", {}}}));
    buffer.seek(7, MBSeekStart);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    EXPECT_EQ(buffer.tell(), 7u) << "the caller's cursor is not touched";
    buffer.zeroMemoryBuffer(); // the archive is a copy

    EXPECT_EQ(unzip.getFolders(), (QList<QString>{"word/", "odd\\"}));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"word/document.xml", "[Content_Types].xml"}));
    QList<bool> folders;
    for (const ZipUtils::Entry &entry : unzip.getEntryList())
        folders << entry.isFolder();
    EXPECT_EQ(folders, (QList<bool>{true, false, false, true}));

    QMap<QString, QVariant> word, expected;
    word.insert(QStringLiteral("document.xml"), QStringLiteral("word/document.xml"));
    expected.insert(QStringLiteral("[Content_Types].xml"), QStringLiteral("[Content_Types].xml"));
    expected.insert(QStringLiteral("word"), word);
    EXPECT_EQ(unzip.getEntriesMap(), expected);
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("word/document.xml"), data));
    EXPECT_EQ(data, QByteArray("<w/>"));
}

TEST(Unzip, ReadsArchivesWrittenByTheZipTool)
{
    MemoryBuffer buffer = bufferOf(readFixture(QStringLiteral("archives/plain.zip")));
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer)) << "fixture archives/plain.zip";
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"a.txt", "dir/b.txt"}));
    EXPECT_EQ(unzip.getFolders(), QList<QString>{"dir/"});
    QByteArray lines; // as fixtures/archives/make.sh writes them
    for (int i = 0; i < 60; ++i)
        lines += "line " + QByteArray::number(i) + " of a compressible member\n";
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("a.txt"), data));
    EXPECT_EQ(data, QByteArray("alpha\n"));
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("dir/b.txt"), data));
    EXPECT_EQ(data, lines);
    // The size offered is the compressed one: a.txt is stored, b.txt deflated.
    EXPECT_EQ(unzip.getEntrySize(QStringLiteral("a.txt")), 6);
    EXPECT_LT(unzip.getEntrySize(QStringLiteral("dir/b.txt")), lines.size() / 4);
    EXPECT_EQ(unzip.getEntrySize(QStringLiteral("missing")), 0);
}

TEST(Unzip, ReadsIntoABufferAtItsCursorAndAddsArchivesOnReopen)
{
    QByteArray first = zipOf({{"m", "payload"}, {"empty", {}}});
    QBuffer device(&first);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&device));
    MemoryBuffer target = bufferOf("0123");
    target.seek(2, MBSeekStart);
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("m"), &target));
    EXPECT_EQ(target.tell(), 9u);
    EXPECT_EQ(target.getString(9, 0, MBSeekStart), "01payload");
    target.seek(3, MBSeekStart);
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("empty"), &target)) << "an empty member is read";
    EXPECT_EQ(target.tell(), 3u) << "and writes nothing";
    EXPECT_EQ(target.sizeOfMB(), 9u);
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("absent"), &target));
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("m"), static_cast<MemoryBuffer *>(nullptr)));
    MemoryBuffer fixed(3);
    fixed.allowBufferExpansion(false);
    EXPECT_THROW(unzip.getEntryData(QStringLiteral("m"), &fixed), WriteBufferException);

    MemoryBuffer second = bufferOf(zipOf({{"two", "2"}, {"dir/", {}}}));
    ASSERT_TRUE(unzip.open(&second));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"m", "empty", "two"}));
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("two"), data));
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("m"), data)) << "the first archive is closed";
    unzip.close();
    EXPECT_FALSE(unzip.getEntryData(QStringLiteral("two"), data)) << "closed";
}

TEST(Zip, WrittenArchivesReadBackByUsAndByTheUnzipTool)
{
    const Members members = {{"empty", {}},
                             {"doc/readme.txt", "read me\n"},
                             {"big/random.bin", randomBytes(1 << 20, 42)},
                             {"zeros.bin", QByteArray(300000, '\0')},
                             {QString::fromUtf8("na\xc3\xafve/caf\xc3\xa9.txt"), "utf"},
                             {"with space/and\\backslash", "kept as given"},
                             {"twice", "1"},
                             {"twice", "2"}};
    QList<QString> names;
    for (const auto &member : members)
        names << member.first;
    const QByteArray archive = zipOf(members);
    MemoryBuffer buffer = bufferOf(archive);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    EXPECT_EQ(unzip.getFilenames(), names);
    for (const auto &member : members) {
        QByteArray data("sentinel");
        EXPECT_TRUE(unzip.getEntryData(member.first, data)) << member.first.toStdString();
        EXPECT_TRUE(data == (member.first == QLatin1String("twice") ? QByteArray("2") : member.second))
            << member.first.toStdString() << " differs (a repeated name reads as its last member)";
    }
    EXPECT_LT(unzip.getEntrySize(QStringLiteral("zeros.bin")), 1000) << "members are deflated";

    const QString tool = QStandardPaths::findExecutable(QStringLiteral("unzip"));
    if (tool.isEmpty())
        GTEST_SKIP() << "the unzip tool is not installed";
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("written.zip"));
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(archive) == archive.size());
    }
    int exitCode = -1;
    const QByteArray test = run(tool, {"-t", path}, &exitCode);
    EXPECT_EQ(exitCode, 0) << test.toStdString();
    EXPECT_EQ(QString::fromUtf8(run(tool, {"-Z1", path})).split(QLatin1Char('\n'), Qt::SkipEmptyParts), names)
        << "names are stored exactly as given";
    for (int i : {1, 2})
        EXPECT_EQ(run(tool, {"-p", path, members[i].first}), members[i].second) << members[i].first.toStdString();
    // Deflate at the default level, each member followed by a data descriptor.
    const QString details = QString::fromUtf8(run(tool, {"-Zv", path}));
    for (const char *line : {"compression method:                             deflated",
                             "compression sub-type (deflation):               normal",
                             "extended local header:                          yes"})
        EXPECT_EQ(details.count(QLatin1String(line)), members.size()) << line;
}

TEST(Zip, LifecycleRules)
{
    Zip zip;
    QByteArray out("untouched");
    MemoryBuffer target;
    EXPECT_FALSE(zip.addEntry(QStringLiteral("a"), QByteArray("x"))) << "before open";
    EXPECT_FALSE(zip.close());
    EXPECT_FALSE(zip.copyZipFile(out));
    EXPECT_FALSE(zip.copyZipFileToBuffer(&target));
    EXPECT_EQ(out, QByteArray("untouched"));

    ASSERT_TRUE(zip.open(0));
    EXPECT_FALSE(zip.open(0)) << "an open archive is not thrown away";
    EXPECT_TRUE(zip.addEntry(QStringLiteral("a"), QByteArray("x")));
    EXPECT_TRUE(zip.close());
    EXPECT_FALSE(zip.addEntry(QStringLiteral("b"), QByteArray("y"))) << "closed";
    EXPECT_TRUE(zip.copyZipFile(out));
    EXPECT_EQ(out.size(), zip.getZipFileSize());

    // A closed writer starts a new archive. Buffer members take all their
    // bytes whatever the cursor; a null buffer leaves an empty member.
    ASSERT_TRUE(zip.open(0));
    MemoryBuffer source = bufferOf("whole content");
    source.seek(6, MBSeekStart);
    EXPECT_TRUE(zip.addEntry(QStringLiteral("buffer"), &source));
    EXPECT_FALSE(zip.addEntry(QStringLiteral("null"), static_cast<MemoryBuffer *>(nullptr)));
    MemoryBuffer reread;
    ASSERT_TRUE(zip.copyZipFileToBuffer(&reread));
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&reread));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"buffer", "null"}));
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("buffer"), out));
    EXPECT_EQ(out, QByteArray("whole content"));
    EXPECT_TRUE(unzip.getEntryData(QStringLiteral("null"), out));
    EXPECT_TRUE(out.isEmpty());
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
    EXPECT_EQ(larger.getBuffer(), fixed.getBuffer()) << "a larger target is cut to the archive";
}

TEST(UnzipHostile, CutOrDamagedArchivesHandOverTrueContentOrNothing)
{
    const Members members = {{"word/", {}}, {"word/document.xml", QByteArray(5000, 'w')}, {"b", "the quick brown fox"}};
    const QByteArray archive = zipOf(members);
    const int endRecord = archive.lastIndexOf("PK\x05\x06");
    // Opens the damaged archive, as a copy and in place; every member is read
    // as it was, or not at all and the caller's bytes are left alone.
    auto check = [&](const QByteArray &bytes, const std::string &what) {
        MemoryBuffer buffer = bufferOf(bytes);
        bool opened = false;
        for (const bool inPlace : {false, true}) {
            Unzip unzip;
            opened = inPlace ? unzip.openInPlace(&buffer) : unzip.open(&buffer);
            for (const auto &member : members) {
                QByteArray data("untouched");
                const bool read = unzip.getEntryData(member.first, data);
                EXPECT_EQ(data, read ? member.second : QByteArray("untouched")) << what << ", " << member.first.toStdString();
            }
            readEverything(unzip);
        }
        return opened;
    };
    for (int length = 0; length < archive.size(); ++length)
        EXPECT_FALSE(check(archive.left(length), "cut at " + std::to_string(length)) && length <= endRecord) << length;
    for (int at = 0; at < archive.size(); ++at)
        for (const char value : {'\0', '\x7f', '\xff', char(archive[at] ^ 0x55)}) {
            QByteArray damaged = archive;
            damaged[at] = value;
            check(damaged, "byte " + std::to_string(at) + " set to " + std::to_string(uint8_t(value)));
        }
}

TEST(UnzipHostile, AbsurdEntryCountsListNothing)
{
    const QByteArray archive = zipOf({{"word/document.xml", "<w/>"}, {"b", "bee"}});
    const int end = archive.lastIndexOf("PK\x05\x06");
    QByteArray classic = archive; // an end record claiming 65535 members
    classic.replace(end + 8, 4, QByteArray(4, '\xff'));
    // A zip64 end record, its locator and a classic end record pointing to it.
    auto zip64 = [&](quint64 count, quint64 directorySize) {
        QByteArray tail;
        QDataStream out(&tail, QIODevice::WriteOnly);
        out.setByteOrder(QDataStream::LittleEndian);
        out << quint32(0x06064b50) << quint64(44) << quint16(45) << quint16(45) << quint32(0) << quint32(0) << count
            << count << (directorySize ? directorySize : qFromLittleEndian<quint32>(archive.constData() + end + 12))
            << quint64(qFromLittleEndian<quint32>(archive.constData() + end + 16));
        out << quint32(0x07064b50) << quint32(0) << quint64(end) << quint32(1);
        out << quint32(0x06054b50) << quint16(0xffff) << quint16(0xffff) << quint16(0xffff) << quint16(0xffff)
            << quint32(0xffffffff) << quint32(0xffffffff) << quint16(0);
        return archive.left(end) + tail;
    };
    struct Case { const char *what; QByteArray bytes; int names; };
    const Case cases[] = {
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

TEST(UnzipHostile, StrangeNamesAreListedAndReadExactly)
{
    QString deep;
    for (int i = 0; i < 20000; ++i)
        deep += QStringLiteral("d/");
    deep += QStringLiteral("leaf");
    struct Case { const char *what; QString written; QByteArray patched; }; // patched: bytes no caller could pass
    const Case cases[] = {
        {"a NUL inside", QStringLiteral("aXb"), QByteArray("a\0b", 3)},
        {"backslashes", QStringLiteral("c\\d\\e"), {}},
        {"255 characters", QString(255, QLatin1Char('n')), {}},
        {"256 characters", QString(256, QLatin1Char('n')), {}},
        {"1000 characters", QString(1000, QLatin1Char('n')), {}},
        {"65535 characters", QString(65535, QLatin1Char('n')), {}},
        {"20000 folders deep", deep, {}},
    };
    for (const Case &c : cases) {
        QByteArray archive = zipOf({{c.written, "content"}});
        if (!c.patched.isEmpty())
            archive.replace(c.written.toLatin1(), c.patched);
        const QString name = c.patched.isEmpty() ? c.written : QString::fromLatin1(c.patched.constData(), c.patched.size());
        MemoryBuffer buffer = bufferOf(archive);
        Unzip unzip;
        ASSERT_TRUE(unzip.open(&buffer)) << c.what;
        EXPECT_EQ(unzip.getFilenames(), QList<QString>{name}) << c.what;
        QByteArray data;
        EXPECT_TRUE(unzip.getEntryData(name, data)) << c.what;
        EXPECT_EQ(data, QByteArray("content")) << c.what;
        EXPECT_FALSE(unzip.getEntryData(name.left(1), data)) << c.what << ": found by its first character";
        QVariant node = unzip.getEntriesMap();
        for (const QString &part : name.split(QLatin1Char('/')))
            node = node.toMap().value(part);
        EXPECT_EQ(node, QVariant(name)) << c.what << ": the entries map";
    }
}
