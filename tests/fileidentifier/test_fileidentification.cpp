#include "fileidentification.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace FileIdentifier;

namespace {

const std::string kUnknown = "Reason unknown";
const std::string kSignature = "signature match";
const std::string kStructure = "structure match";

struct Answer
{
    ft_t type;
    std::string reason;
    size_t cursorAfter;
};

Answer identify(const QByteArray &bytes, size_t startCursor = 0)
{
    MemoryBuffer buffer = bufferOf(bytes);
    buffer.seek(std::min<size_t>(startCursor, buffer.sizeOfMB()), MBSeekStart);
    const char *reason = nullptr;
    const ft_t type = getFileTypeFromFileInMemory(&buffer, &reason);
    return {type, reason ? reason : "<null>", buffer.tell()};
}

QByteArray zipOf(const QStringList &names)
{
    ZipUtils::Zip zip;
    EXPECT_TRUE(zip.open(0));
    for (const QString &name : names)
        EXPECT_TRUE(zip.addEntry(name, name.endsWith(QLatin1Char('/')) ? QByteArray() : "x"));
    QByteArray bytes;
    EXPECT_TRUE(zip.copyZipFile(bytes));
    return bytes;
}

QByteArray bytesOf(std::initializer_list<unsigned char> values)
{
    QByteArray bytes;
    for (const unsigned char v : values)
        bytes.append(static_cast<char>(v));
    return bytes;
}

// A 512-byte tar header for one file, checksum filled in unless told not to.
QByteArray tarHeader(const QByteArray &magic, bool validChecksum = true)
{
    QByteArray header(512, '\0');
    header.replace(0, 5, "a.txt");
    header.replace(100, 8, "0000644", 8);
    header.replace(124, 12, "00000000006", 12);
    header[156] = '0';
    header.replace(257, magic.size(), magic);
    header.replace(148, 8, "        ");
    unsigned sum = 0;
    for (const char c : header)
        sum += static_cast<unsigned char>(c);
    if (!validChecksum)
        sum += 1;
    const QByteArray field = QByteArray::number(sum, 8).rightJustified(6, '0');
    header.replace(148, 6, field);
    header[154] = '\0';
    header[155] = ' ';
    return header;
}

} // namespace

TEST(FileIdentification, ArchivesMadeByStandardTools)
{
    struct Case
    {
        const char *fixture;
        ft_t type;
        const std::string &reason;
    } const cases[] = {
        {"plain.zip", ft_zip, kSignature},      {"sample.docx", ft_unknown, kStructure},
        {"sample.xlsx", ft_unknown, kStructure}, {"sample.pptx", ft_unknown, kStructure},
        {"sample.gz", ft_gzip, kSignature},     {"sample.bz2", ft_bzip2, kSignature},
        {"sample.7z", ft_7zip, kSignature},     {"gnu.tar", ft_tar, kSignature},
        {"ustar.tar", ft_tar, kSignature},      {"posix.tar", ft_tar, kSignature},
        {"v7.tar", ft_tar, kStructure},         {"sample.xz", ft_unknown, kUnknown},
        {"sample.zst", ft_unknown, kUnknown},
    };
    for (const Case &c : cases) {
        const QByteArray bytes = readFixture(QStringLiteral("archives/") + QLatin1String(c.fixture));
        ASSERT_FALSE(bytes.isEmpty()) << "fixture " << c.fixture << " is missing";
        for (const size_t start : {size_t(0), size_t(3)}) {
            const Answer answer = identify(bytes, start);
            EXPECT_EQ(answer.type, c.type) << c.fixture << " from cursor " << start;
            EXPECT_EQ(answer.reason, c.reason) << c.fixture;
            EXPECT_EQ(answer.cursorAfter, 0u) << c.fixture;
        }
    }
}

TEST(FileIdentification, SignaturesAreComparedOnlyWhenTheBufferIsLongEnough)
{
    struct Case
    {
        const char *what;
        QByteArray bytes;
        ft_t type;
        const std::string &reason;
    } const cases[] = {
        {"empty", QByteArray(), ft_unknown, kUnknown},
        {"gzip header", bytesOf({0x1F, 0x8B, 0x08, 0x00}), ft_gzip, kSignature},
        {"gzip magic alone", bytesOf({0x1F, 0x8B}), ft_gzip, kSignature},
        {"half a gzip magic", bytesOf({0x1F}), ft_unknown, kUnknown},
        {"BZ", "BZ", ft_unknown, kUnknown},
        {"BZh", "BZh", ft_bzip2, kSignature},
        {"bzh", "bzh9", ft_unknown, kUnknown},
        {"7-Zip short", bytesOf({0x37, 0x7A, 0xBC, 0xAF, 0x27}), ft_unknown, kUnknown},
        {"7-Zip", bytesOf({0x37, 0x7A, 0xBC, 0xAF, 0x27, 0x1C}), ft_7zip, kSignature},
        {"7-Zip last byte wrong", bytesOf({0x37, 0x7A, 0xBC, 0xAF, 0x27, 0x1D}), ft_unknown, kUnknown},
        {"RAR short", bytesOf({'R', 'a', 'r', '!', 0x1A}), ft_unknown, kUnknown},
        {"RAR", bytesOf({'R', 'a', 'r', '!', 0x1A, 0x07, 0x00}), ft_rar, kSignature},
        {"P", "P", ft_unknown, kUnknown},
        {"PK alone", "PK", ft_zip, kSignature},
        {"PK with garbage", QByteArray("PK\x03\x04 this is no archive at all"), ft_zip, kSignature},
        {"pk", "pk\x03\x04", ft_unknown, kUnknown},
        {"text", "plain words, nothing more", ft_unknown, kUnknown},
    };
    for (const Case &c : cases) {
        const Answer answer = identify(c.bytes);
        EXPECT_EQ(answer.type, c.type) << c.what;
        EXPECT_EQ(answer.reason, c.reason) << c.what;
        EXPECT_EQ(answer.cursorAfter, 0u) << c.what;
    }
}

TEST(FileIdentification, OfficePackagesAreToldByTheirTopLevelFolder)
{
    struct Case
    {
        QStringList members;
        ft_t dispatcher;
        ft_t package;
    } const cases[] = {
        {{"word/document.xml"}, ft_unknown, ft_docx},
        {{"[Content_Types].xml", "xl/workbook.xml"}, ft_unknown, ft_xlsx},
        {{"ppt/slides/slide1.xml"}, ft_unknown, ft_pptx},
        {{"xl/workbook.xml", "word/document.xml"}, ft_unknown, ft_docx},
        {{"ppt/presentation.xml", "xl/workbook.xml"}, ft_unknown, ft_xlsx},
        {{"word"}, ft_unknown, ft_docx},
        {{"word/"}, ft_zip, ft_unknown},
        {{"Word/"}, ft_zip, ft_unknown},
        {{"Word/document.xml"}, ft_zip, ft_unknown},
        {{"wordy/document.xml"}, ft_zip, ft_unknown},
        {{"sub/word/document.xml"}, ft_zip, ft_unknown},
        {{"word\\document.xml"}, ft_zip, ft_unknown},
        {{"[Content_Types].xml", "document.xml"}, ft_zip, ft_unknown},
        {{}, ft_zip, ft_unknown},
    };
    for (const Case &c : cases) {
        const QString what = QStringLiteral("members (%1)").arg(c.members.join(QStringLiteral(", ")));
        const QByteArray archive = zipOf(c.members);
        const Answer answer = identify(archive);
        EXPECT_EQ(answer.type, c.dispatcher) << what.toStdString();
        EXPECT_EQ(answer.reason, c.dispatcher == ft_zip ? kSignature : kStructure) << what.toStdString();

        MemoryBuffer buffer = bufferOf(archive);
        buffer.seek(5, MBSeekStart);
        const char *reason = "untouched";
        EXPECT_EQ(FileType().determineOpcSubType(&buffer, &reason), c.package) << what.toStdString();
        EXPECT_STREQ(reason, c.package == ft_unknown ? "untouched" : "structure match") << what.toStdString();
        EXPECT_EQ(buffer.tell(), 0u) << what.toStdString();
    }
}

TEST(FileIdentification, OpcSubTypeOfWhatIsNoArchive)
{
    FileType registry;
    const char *reason = "untouched";
    EXPECT_EQ(registry.determineOpcSubType(nullptr, &reason), ft_unknown);
    for (const QByteArray &bytes : {QByteArray(), QByteArray("PK"), QByteArray("not a zip at all")}) {
        MemoryBuffer buffer = bufferOf(bytes);
        buffer.seek(buffer.sizeOfMB(), MBSeekStart);
        EXPECT_EQ(registry.determineOpcSubType(&buffer, &reason), ft_unknown) << bytes.size();
        EXPECT_EQ(buffer.tell(), 0u);
    }
    EXPECT_STREQ(reason, "untouched");
}

TEST(FileIdentification, ZipDetectorDeclinesOfficePackagesWithoutStoringAType)
{
    MemoryBuffer buffer = bufferOf(zipOf({"word/document.xml"}));
    ft_t type = ft_pdf;
    const char *reason = nullptr;
    EXPECT_FALSE(isZIPFile(&buffer, &type, &reason));
    EXPECT_EQ(type, ft_pdf);
    EXPECT_STREQ(reason, "structure match");

    MemoryBuffer plain = bufferOf(zipOf({"a.txt"}));
    EXPECT_TRUE(isZIPFile(&plain, nullptr, nullptr)) << "null out-parameters are allowed";
    EXPECT_TRUE(isZIPFile(&plain, &type, &reason));
    EXPECT_EQ(type, ft_zip);
    EXPECT_STREQ(reason, "signature match");
}

TEST(FileIdentification, DetectorsStoreNothingWhenTheyDoNotMatch)
{
    using Detector = bool (*)(MemoryBuffer *, ft_t *, const char **);
    const Detector detectors[] = {isZIPFile, isGZIPFile, isBZIP2File, is7ZIPFile, isRARFile, isTARFile};
    MemoryBuffer buffer = bufferOf(QByteArray(600, 'z'));
    for (const Detector detect : detectors) {
        buffer.seek(0, MBSeekStart);
        ft_t type = ft_pdf;
        const char *reason = "untouched";
        EXPECT_FALSE(detect(&buffer, &type, &reason));
        EXPECT_EQ(type, ft_pdf);
        EXPECT_STREQ(reason, "untouched");
        EXPECT_FALSE(detect(nullptr, &type, &reason));
    }
}

TEST(FileIdentification, NullBufferAndNullReason)
{
    const char *reason = nullptr;
    EXPECT_EQ(getFileTypeFromFileInMemory(nullptr, &reason), ft_unknown);
    EXPECT_STREQ(reason, "Reason unknown");
    MemoryBuffer buffer = bufferOf(bytesOf({0x1F, 0x8B}));
    EXPECT_EQ(getFileTypeFromFileInMemory(&buffer, nullptr), ft_gzip);
}

TEST(FileIdentification, ZipIsTriedBeforeTar)
{
    QByteArray bytes = tarHeader("ustar");
    bytes.replace(0, 2, "PK");
    EXPECT_EQ(identify(bytes).type, ft_zip);
}

TEST(FileIdentification, TarByMagicOrByHeaderChecksum)
{
    QByteArray magicAt257(300, '\0');
    magicAt257.replace(257, 5, "ustar");
    QByteArray shortest(262, '\0');
    shortest.replace(257, 5, "ustar");
    QByteArray oldStyle = tarHeader(QByteArray());
    QByteArray oldStyleChanged = oldStyle;
    oldStyleChanged[10] = 'x';

    struct Case
    {
        const char *what;
        QByteArray bytes;
        ft_t type;
        const std::string &reason;
    } const cases[] = {
        {"ustar at 257 in 300 bytes", magicAt257, ft_tar, kSignature},
        {"ustar ending at 262", shortest, ft_tar, kSignature},
        {"ustar cut short", shortest.left(261), ft_unknown, kUnknown},
        {"old style, right checksum", oldStyle, ft_tar, kStructure},
        {"old style, one byte changed", oldStyleChanged, ft_unknown, kUnknown},
        {"old style, wrong checksum", tarHeader(QByteArray(), false), ft_unknown, kUnknown},
        {"old style followed by data", oldStyle + QByteArray(1024, 'd'), ft_tar, kStructure},
        {"400 bytes without magic", QByteArray(400, '\0'), ft_unknown, kUnknown},
        {"512 zero bytes", QByteArray(512, '\0'), ft_unknown, kUnknown},
    };
    for (const Case &c : cases) {
        const Answer answer = identify(c.bytes);
        EXPECT_EQ(answer.type, c.type) << c.what;
        EXPECT_EQ(answer.reason, c.reason) << c.what;
        EXPECT_EQ(answer.cursorAfter, 0u) << c.what;
    }
}

TEST(FileIdentification, TarHeaderKinds)
{
    struct Case
    {
        const char *what;
        QByteArray bytes;
        int kind;
    } const cases[] = {
        {"gnu.tar", readFixture(QStringLiteral("archives/gnu.tar")), 3},
        {"ustar.tar", readFixture(QStringLiteral("archives/ustar.tar")), 2},
        {"posix.tar", readFixture(QStringLiteral("archives/posix.tar")), 2},
        {"v7.tar", readFixture(QStringLiteral("archives/v7.tar")), 1},
        {"GNU magic", tarHeader(QByteArray("ustar  \0", 8)), 3},
        {"POSIX magic", tarHeader(QByteArray("ustar\0", 6)), 2},
        {"magic without its NUL", tarHeader("ustarX"), 1},
        {"no magic", tarHeader(QByteArray()), 1},
        {"Latin-1 name", tarHeader(QByteArray()).replace(1, 1, "\xE9"), 0},
        {"wrong checksum", tarHeader(QByteArray("ustar\0", 6), false), 0},
        {"511 bytes", tarHeader(QByteArray()).left(511), 0},
    };
    for (const Case &c : cases) {
        ASSERT_GE(c.bytes.size(), 511) << c.what;
        EXPECT_EQ(is_tar(reinterpret_cast<const unsigned char *>(c.bytes.constData()),
                         static_cast<size_t>(c.bytes.size())),
                  c.kind)
            << c.what;
    }
    // A header whose name holds bytes above 0x7F, checksummed over unsigned bytes.
    QByteArray latin = tarHeader(QByteArray());
    latin[1] = '\xE9';
    unsigned sum = 0;
    latin.replace(148, 8, "        ");
    for (const char c : latin)
        sum += static_cast<unsigned char>(c);
    latin.replace(148, 7, QByteArray::number(sum, 8).rightJustified(6, '0') + '\0');
    EXPECT_EQ(is_tar(reinterpret_cast<const unsigned char *>(latin.constData()), 512), 1);
    EXPECT_EQ(is_tar(nullptr, 0), 0) << "nothing is read below 512 bytes";
}

TEST(FileIdentification, FileIsTarLooksFromTheCursor)
{
    MemoryBuffer buffer = bufferOf(QByteArray(100, 'x') + tarHeader(QByteArray()));
    EXPECT_FALSE(file_is_tar(&buffer));
    buffer.seek(100, MBSeekStart);
    EXPECT_TRUE(file_is_tar(&buffer));
    buffer.seek(0, MBSeekEnd);
    EXPECT_FALSE(file_is_tar(&buffer)) << "nothing left after the cursor";
    EXPECT_FALSE(file_is_tar(nullptr));
}

TEST(FileIdentification, CursorBeyondTheEndIsAnArithmeticError)
{
    MemoryBuffer buffer = bufferOf(QByteArray(300, '\0'));
    MemoryBufferState state = buffer.saveBufferState();
    state.m_offset = 1000;
    buffer.restoreBufferState(state);
    EXPECT_THROW(isTARFile(&buffer, nullptr, nullptr), ArithmeticException);
    EXPECT_EQ(getFileTypeFromFileInMemory(&buffer, nullptr), ft_unknown)
        << "the dispatcher rewinds before every detector";
}

TEST(FileIdentification, OctalFields)
{
    struct Case
    {
        const char *field; // the field and at least one byte after it
        size_t digits;
        int value;
    } const cases[] = {
        {"0000644 ", 8, 420},
        {"        X", 8, 0},
        {"         ", 8, -1},
        {"12x", 3, -1},
        {"12x", 2, 10},
        {"644\0xxxx", 8, 420},
        {"  644   ", 8, 420},
        {"0000755\t", 8, 493},
        {"7", 1, 7},
        {"9", 1, -1},
        {"0", 0, -1},
        {"", 8, 0},
        {"17777777777", 11, 2147483647},
        {"77777777777", 11, -1},
        {"0000000000000000000644", 22, 420},
    };
    for (const Case &c : cases)
        EXPECT_EQ(from_oct(c.field, c.digits), c.value)
            << "\"" << c.field << "\" with " << c.digits << " digits";
}

TEST(FileIdentification, DamagedPackagesNeverCrashAndStayZip)
{
    const QByteArray package = readFixture(QStringLiteral("archives/sample.docx"));
    ASSERT_FALSE(package.isEmpty());
    // Cut before its end record, a package is no readable archive; cut inside
    // the record, the reader may still find the directory.
    const int endRecord = package.lastIndexOf("PK\x05\x06");
    ASSERT_GT(endRecord, 0);
    for (int length = 0; length < package.size(); ++length) {
        const Answer answer = identify(package.left(length));
        if (length < 2)
            ASSERT_EQ(answer.type, ft_unknown) << "cut at " << length;
        else if (length <= endRecord)
            ASSERT_EQ(answer.type, ft_zip) << "cut at " << length;
        else
            ASSERT_TRUE(answer.type == ft_zip || answer.reason == kStructure) << "cut at " << length;
    }
    // Every single-byte change either leaves a readable package or a zip.
    for (int at = 2; at < package.size(); ++at) {
        QByteArray damaged = package;
        damaged[at] = static_cast<char>(damaged[at] ^ 0xA5);
        const Answer answer = identify(damaged);
        ASSERT_TRUE(answer.type == ft_zip || (answer.type == ft_unknown && answer.reason == kStructure))
            << "byte " << at << " changed gives " << answer.type << " " << answer.reason;
    }
}
