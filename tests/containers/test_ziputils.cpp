// Zip and Unzip: archives of the zip tools read, ours read back by the unzip
// tool, the edge cases callers meet, and hostile archives, which must neither
// crash, hang nor make us allocate what they claim.

#include "containers/ZipUtils.h"

#include "cfbtesttools.h"
#include "qtprinters.h"

#include <QBuffer>
#include <QDataStream>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>

using cfbtest::pattern;
using ZipUtils::Unzip;
using ZipUtils::Zip;

namespace {

using Members = ZipMembers;

// The path of a name in the entries map: its folders, down to the deepest
// the map nests, then the rest of the name as one key.
QVariant mapLookup(const QVariant &map, const QString &name)
{
    QStringList parts = name.split(QLatin1Char('/'));
    if (parts.size() > Unzip::kMaxMapDepth + 1)
        parts = parts.mid(0, Unzip::kMaxMapDepth) << parts.mid(Unzip::kMaxMapDepth).join(QLatin1Char('/'));
    QVariant node = map;
    for (const QString &part : parts)
        node = node.toMap().value(part);
    return node;
}

// How deep the entries map nests, counted without recursion.
int mapDepth(const QVariant &map)
{
    int deepest = 0;
    QList<QPair<QVariant, int>> pending{{map, 1}};
    while (!pending.isEmpty()) {
        const auto [node, depth] = pending.takeLast();
        deepest = std::max(deepest, depth);
        for (const QVariant &child : node.toMap())
            if (child.type() == QVariant::Map)
                pending.append({child, depth + 1});
    }
    return deepest;
}

// The unzip tool's output.
QByteArray unzipTool(const QStringList &arguments)
{
    QProcess process;
    process.start("unzip", arguments);
    EXPECT_TRUE(process.waitForFinished(30000)) << "unzip " << arguments.join(QLatin1Char(' ')).toStdString();
    return process.readAllStandardOutput();
}

// A raw deflate stream of 1 + 258 * matches zero bytes: one fixed-Huffman
// block holding a literal zero and then copies of 258 bytes at distance 1,
// 13 bits each, so that 2 MB inflate to hundreds of MB.
QByteArray deflatedZeros(int matches)
{
    QByteArray out;
    quint32 bits = 0;
    int count = 0;
    const auto put = [&](quint32 value, int length, bool huffman) {
        for (int i = 0; i < length; ++i) {
            const int bit = huffman ? length - 1 - i : i; // Huffman codes go most significant bit first
            bits |= ((value >> bit) & 1u) << count;
            if (++count == 8) {
                out.append(char(bits));
                bits = 0;
                count = 0;
            }
        }
    };
    put(1, 1, false); // the last block
    put(1, 2, false); // fixed codes
    put(0x30, 8, true); // literal 0
    for (int i = 0; i < matches; ++i) {
        put(0xc5, 8, true); // length 258
        put(0, 5, true);    // distance 1
    }
    put(0, 7, true); // end of block
    if (count > 0)
        out.append(char(bits));
    return out;
}

// A one-member archive laid out by hand, its records claiming what the caller says.
QByteArray archiveOf(const QByteArray &name, const QByteArray &deflated, quint32 claimedSize, quint32 crc = 0)
{
    QByteArray archive;
    QDataStream out(&archive, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    const auto sizes = [&] { out << crc << quint32(deflated.size()) << claimedSize << quint16(name.size()) << quint16(0); };
    out << quint32(0x04034b50) << quint16(20) << quint16(0) << quint16(8) << quint32(0);
    sizes();
    out.writeRawData(name.constData(), name.size());
    out.writeRawData(deflated.constData(), deflated.size());
    const quint32 directory = quint32(archive.size());
    out << quint32(0x02014b50) << quint16(20) << quint16(20) << quint16(0) << quint16(8) << quint32(0);
    sizes();
    out << quint16(0) << quint16(0) << quint16(0) << quint32(0) << quint32(0);
    out.writeRawData(name.constData(), name.size());
    const quint32 directorySize = quint32(archive.size()) - directory;
    out << quint32(0x06054b50) << quint16(0) << quint16(0) << quint16(1) << quint16(1) << directorySize << directory
        << quint16(0);
    return archive;
}

// A device that is not a buffer and counts the bytes taken from it.
class CountingDevice : public QIODevice
{
public:
    explicit CountingDevice(QByteArray bytes) : m_bytes(std::move(bytes)) {}
    qint64 size() const override { return m_bytes.size(); }
    qint64 taken() const { return m_taken; }

protected:
    qint64 readData(char *data, qint64 max) override
    {
        const qint64 count = std::min(max, m_bytes.size() - pos());
        std::memcpy(data, m_bytes.constData() + pos(), size_t(count));
        m_taken += count;
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
    qint64 m_taken = 0;
};

} // namespace

TEST(Unzip, ListsReadsAndAddsArchivesOnReopen)
{
    const Members members{{"word/", {}}, {"word/document.xml", "payload"}, {"[Content_Types].xml", "<Types/>"},
                          {"odd\\", {}}, {"empty", {}}};
    MemoryBuffer buffer = bufferOf(zipOf(members));
    buffer.seek(7, MBSeekStart);
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer));
    EXPECT_EQ(buffer.tell(), 7u) << "the caller's cursor is not touched";
    buffer.zeroMemoryBuffer(); // the archive is a copy
    EXPECT_EQ(unzip.getFolders(), (QList<QString>{"word/", "odd\\"}));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"word/document.xml", "[Content_Types].xml", "empty"}));
    const QMap<QString, QVariant> word{{"document.xml", "word/document.xml"}};
    const QMap<QString, QVariant> map{{"[Content_Types].xml", "[Content_Types].xml"}, {"empty", "empty"},
                                      {"word", word}};
    EXPECT_EQ(unzip.getEntriesMap(), map);

    // Members go to a buffer at its cursor; an empty one writes nothing.
    MemoryBuffer target = bufferOf("0123");
    target.seek(2, MBSeekStart);
    EXPECT_TRUE(unzip.getEntryData("word/document.xml", &target));
    EXPECT_EQ(target.getString(9, 0, MBSeekStart), "01payload");
    target.seek(3, MBSeekStart);
    EXPECT_TRUE(unzip.getEntryData("empty", &target)) << "an empty member is read";
    EXPECT_EQ(target.sizeOfMB(), 9u) << "and writes nothing";
    EXPECT_FALSE(unzip.getEntryData("absent", &target));

    // Opening again adds the new archive's names and closes the first.
    QByteArray second = zipOf({{"two", "2"}, {"dir/", {}}});
    QBuffer device(&second);
    ASSERT_TRUE(unzip.open(&device));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"word/document.xml", "[Content_Types].xml", "empty", "two"}));
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData("two", data));
    EXPECT_FALSE(unzip.getEntryData("empty", data)) << "the first archive is closed";
    unzip.close(); // before the device goes
    EXPECT_FALSE(unzip.getEntryData("two", data)) << "closed";
}

TEST(Unzip, ReadsArchivesWrittenByTheZipTool)
{
    MemoryBuffer buffer = bufferOf(readFixture("archives/plain.zip"));
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&buffer)) << "fixture archives/plain.zip";
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"a.txt", "dir/b.txt"}));
    EXPECT_EQ(unzip.getFolders(), QList<QString>{"dir/"});
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData("a.txt", data));
    EXPECT_EQ(data, QByteArray("alpha\n"));
    EXPECT_TRUE(unzip.getEntryData("dir/b.txt", data));
    EXPECT_EQ(data, unzipTool({"-p", fixturePath("archives/plain.zip"), "dir/b.txt"}));
    // The size offered is the compressed one: a.txt is stored, b.txt deflated.
    EXPECT_EQ(unzip.getEntrySize("a.txt"), 6);
    EXPECT_LT(unzip.getEntrySize("dir/b.txt"), data.size() / 4);
    EXPECT_EQ(unzip.getEntrySize("missing"), 0);
}

TEST(Zip, WrittenArchivesReadBackByUsAndByTheUnzipTool)
{
    const Members members = {{"empty", {}},
                             {"doc/readme.txt", "read me\n"},
                             {"big/random.bin", pattern(1 << 20, 42)},
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
        EXPECT_TRUE(data == (member.first == QLatin1String("twice") ? QByteArray("1") : member.second))
            << member.first.toStdString() << " differs (a repeated name reads as its first member)";
    }
    EXPECT_EQ(unzip.getDuplicateNames(), QList<QString>{"twice"});
    EXPECT_LT(unzip.getEntrySize("zeros.bin"), 1000) << "members are deflated";

    QTemporaryDir dir;
    const QString path = dir.filePath("written.zip");
    ASSERT_TRUE(writeFile(path, archive));
    const QByteArray test = unzipTool({"-t", path});
    EXPECT_TRUE(test.contains("No errors detected")) << test.toStdString();
    EXPECT_EQ(QString::fromUtf8(unzipTool({"-Z1", path})).split(QLatin1Char('\n'), Qt::SkipEmptyParts), names)
        << "names are stored exactly as given";
    for (int i : {1, 2})
        EXPECT_EQ(unzipTool({"-p", path, members[i].first}), members[i].second) << members[i].first.toStdString();
    // Deflate at the default level, each member followed by a data descriptor.
    const QString details = QString::fromUtf8(unzipTool({"-Zv", path}));
    for (const char *line : {"compression method:                             deflated",
                             "compression sub-type (deflation):               normal",
                             "extended local header:                          yes"})
        EXPECT_EQ(details.count(QLatin1String(line)), members.size()) << line;
}

TEST(Zip, LifecycleRules)
{
    Zip zip;
    QByteArray out;
    EXPECT_FALSE(zip.addEntry("a", QByteArray("x"))) << "before open";
    EXPECT_FALSE(zip.copyZipFile(out)) << "before open";
    ASSERT_TRUE(zip.open(0));
    EXPECT_FALSE(zip.open(0)) << "an open archive is not thrown away";
    EXPECT_TRUE(zip.close());
    EXPECT_FALSE(zip.addEntry("b", QByteArray("y"))) << "closed";

    // A closed writer starts a new archive. Buffer members take all their
    // bytes whatever the cursor; a null buffer leaves an empty member.
    ASSERT_TRUE(zip.open(0));
    MemoryBuffer source = bufferOf("whole content");
    source.seek(6, MBSeekStart);
    EXPECT_TRUE(zip.addEntry("buffer", &source));
    EXPECT_FALSE(zip.addEntry("null", static_cast<MemoryBuffer *>(nullptr)));
    MemoryBuffer target;
    ASSERT_TRUE(zip.copyZipFileToBuffer(&target));
    Unzip unzip;
    ASSERT_TRUE(unzip.open(&target));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"buffer", "null"}));
    EXPECT_TRUE(unzip.getEntryData("buffer", out));
    EXPECT_EQ(out, QByteArray("whole content"));
}

TEST(UnzipHostile, EveryArchiveHandsOverTrueContentOrNothing)
{
    const Members members = {{"word/", {}}, {"word/document.xml", QByteArray(5000, 'w')}, {"b", "the quick brown fox"}};
    const QByteArray archive = zipOf(members);
    const int end = archive.lastIndexOf("PK\x05\x06");
    // A zip64 end record, its locator and a classic end record pointing to it.
    auto zip64 = [&](quint64 count, quint64 directorySize) {
        QByteArray tail;
        QDataStream out(&tail, QIODevice::WriteOnly);
        out.setByteOrder(QDataStream::LittleEndian);
        out << quint32(0x06064b50) << quint64(44) << quint16(45) << quint16(45) << quint32(0) << quint32(0)
            << count << count
            << (directorySize ? directorySize : qFromLittleEndian<quint32>(archive.constData() + end + 12))
            << quint64(qFromLittleEndian<quint32>(archive.constData() + end + 16));
        out << quint32(0x07064b50) << quint32(0) << quint64(end) << quint32(1);
        out << quint32(0x06054b50) << quint16(0xffff) << quint16(0xffff) << quint16(0xffff) << quint16(0xffff)
            << quint32(0xffffffff) << quint32(0xffffffff) << quint16(0);
        return archive.left(end) + tail;
    };
    // names: what must be listed, and then read exactly; unchecked when absent.
    struct Case { std::string what; QByteArray bytes; std::optional<QList<QString>> names; Members members; };
    const QList<QString> none;
    // Names no caller could pass (a NUL, patched in) or would (backslashes, 65535 characters, 20000 folders,
    // and the deepest name a record holds: 32767 folders, 64 KiB in all).
    Members odd{{"aXb", "content"}, {"c\\d\\e", "content"}, {QString(65535, QLatin1Char('n')), "content"},
                {QStringLiteral("d/").repeated(20000) + "leaf", "content"},
                {QStringLiteral("a/").repeated(32767) + "a", "content"}};
    const QByteArray oddArchive = zipOf(odd).replace("aXb", QByteArray("a\0b", 3));
    odd[0].first = QString::fromLatin1("a\0b", 3);
    QList<QString> oddNames;
    for (const auto &member : odd)
        oddNames << member.first;
    std::vector<Case> cases = {
        {"only PK", "PK", none, {}},
        {"a local header and garbage", "PK\x03\x04 and then garbage", none, {}},
        {"random bytes", pattern(4096, 7), none, {}},
        {"65535 members claimed", archive.left(end + 8) + QByteArray(4, '\xff') + archive.mid(end + 12), none, members},
        {"zip64, 2^40 members claimed", zip64(quint64(1) << 40, 0), none, members},
        {"zip64, a directory of 2^50 bytes", zip64(3, quint64(1) << 50), none, members},
        {"zip64, honest", zip64(3, 0), QList<QString>{"word/document.xml", "b"}, members},
        {"odd names", oddArchive, oddNames, odd},
    };
    // Every cut and many damaged bytes of a valid archive: cut before its end
    // record, it must not open.
    for (int length = 0; length < archive.size(); ++length)
        cases.push_back({"cut at " + std::to_string(length), archive.left(length),
                         length <= end ? std::optional<QList<QString>>(none) : std::nullopt, members});
    for (int at = 0; at < archive.size(); ++at)
        for (const char value : {'\0', '\x7f', '\xff', char(archive[at] ^ 0x55)})
            cases.push_back({"byte " + std::to_string(at) + " set to " + std::to_string(uint8_t(value)),
                             QByteArray(archive).replace(at, 1, &value, 1), std::nullopt, members});

    for (const Case &c : cases) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        for (const bool inPlace : {false, true}) {
            Unzip unzip;
            inPlace ? unzip.openInPlace(&buffer) : unzip.open(&buffer);
            const QList<QString> names = unzip.getFilenames();
            EXPECT_EQ(names, c.names.value_or(names)) << c.what;
            for (const auto &member : c.members) {
                QByteArray data("untouched");
                const bool read = unzip.getEntryData(member.first, data);
                EXPECT_EQ(data, read ? member.second : QByteArray("untouched"))
                    << c.what << ", " << member.first.toStdString();
                EXPECT_TRUE(read || !names.contains(member.first) || !c.names) << c.what << ": listed but unread";
            }
            const QVariant map = unzip.getEntriesMap();
            // Copying and destroying nested maps recurses once per level.
            EXPECT_LE(mapDepth(map), 100) << c.what << ": maps nest as deep as a name goes";
            for (const QString &name : names) {
                QByteArray data;
                unzip.getEntryData(name, data);
                unzip.getEntrySize(name);
                EXPECT_TRUE(names.contains(name.left(1)) || !unzip.getEntryData(name.left(1), data))
                    << c.what << ": by its first character";
                EXPECT_TRUE(mapLookup(map, name) == QVariant(name) || !c.names) << c.what << ": the entries map";
            }
        }
    }
}

// Reading over a device fetches the end records and the directory, not the
// members; members are read when asked for.
TEST(Unzip, OpensOverADeviceReadingOnlyWhatItNeeds)
{
    const QByteArray big = pattern(4 << 20, 3);
    const QByteArray archive = zipOf({{"big.bin", big}, {"dir/", {}}, {"small.txt", "hello"}});
    CountingDevice device(archive);
    Unzip unzip;
    EXPECT_FALSE(unzip.open(&device)) << "a device not open for reading";
    ASSERT_TRUE(device.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    ASSERT_TRUE(unzip.open(&device));
    EXPECT_EQ(unzip.getFilenames(), (QList<QString>{"big.bin", "small.txt"}));
    EXPECT_LT(device.taken(), 200 * 1024) << "of " << archive.size() << " bytes";
    QByteArray data;
    EXPECT_TRUE(unzip.getEntryData("small.txt", data));
    EXPECT_EQ(data, QByteArray("hello"));
    EXPECT_TRUE(unzip.getEntryData("big.bin", data));
    EXPECT_TRUE(data == big);
    unzip.close();
    EXPECT_TRUE(device.isOpen()) << "the caller's device stays open";

    // A list limit that holds the first member's name and cost only.
    Unzip firstOnly;
    firstOnly.setListLimit(2 * 7 + Unzip::kListCostPerMember);
    ASSERT_TRUE(firstOnly.open(&device));
    EXPECT_FALSE(firstOnly.isListComplete());
    EXPECT_EQ(firstOnly.getFilenames(), QList<QString>{"big.bin"});
    EXPECT_FALSE(firstOnly.getEntryData("small.txt", data)) << "not listed, not found";
}

// Members inflate no further than the limit or their records' claim: 2 MB of
// deflate data that make 260 MB are refused by default, and read to their end
// (where the CRC given here fails) once the limit is raised.
TEST(Unzip, MembersInflateNoFurtherThanTheLimit)
{
    const int matches = (260 << 20) / 258;
    const quint32 inflated = 1 + 258u * matches;
    const QByteArray bomb = deflatedZeros(matches);
    ASSERT_LT(bomb.size(), 3 << 20);
    const QByteArray small = zipOf({{"zeros", QByteArray(100000, '\0')}});
    struct Case { const char *what; QByteArray archive; QString name; qint64 limit; ZipUtils::EntryError error; };
    using ZipUtils::EntryError;
    const Case cases[] = {
        {"260 MB claimed", archiveOf("bomb", bomb, inflated), "bomb", 0, EntryError::TooLarge},
        {"1000 bytes claimed", archiveOf("bomb", bomb, 1000), "bomb", 0, EntryError::Damaged},
        {"260 MB claimed, the limit raised", archiveOf("bomb", bomb, inflated, 1), "bomb", 400 << 20,
         EntryError::Damaged},
        {"100000 bytes at the default", small, "zeros", 0, EntryError::None},
        {"100000 bytes, the limit just below", small, "zeros", 99999, EntryError::TooLarge},
        {"100000 bytes, the limit just reached", small, "zeros", 100000, EntryError::None},
        {"a missing member", small, "absent", 0, EntryError::NotFound},
    };
    for (const Case &c : cases) {
        MemoryBuffer buffer = bufferOf(c.archive);
        Unzip unzip;
        ASSERT_TRUE(unzip.openInPlace(&buffer)) << c.what;
        if (c.limit != 0)
            unzip.setMemberLimit(c.limit);
        QByteArray data("untouched");
        EXPECT_EQ(unzip.getEntryData(c.name, data), c.error == EntryError::None) << c.what;
        EXPECT_EQ(unzip.lastEntryError(), c.error) << c.what;
        EXPECT_TRUE(c.error == EntryError::None ? data == QByteArray(100000, '\0') : data == "untouched") << c.what;
    }
}
