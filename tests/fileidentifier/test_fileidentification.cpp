#include "fileidentification.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

#include <string>

using namespace FileIdentifier;

namespace {

const std::string kUnknown = "Reason unknown";
const std::string kSignature = "signature match";
const std::string kStructure = "structure match";

QByteArray archive(const char *name)
{
    const QByteArray bytes = readFixture(QStringLiteral("archives/") + QLatin1String(name));
    EXPECT_FALSE(bytes.isEmpty()) << "missing fixture " << name;
    return bytes;
}

// A 512-byte tar header, its checksum (summed over unsigned bytes) off by `error`.
QByteArray tarHeader(const QByteArray &magic, unsigned error = 0)
{
    QByteArray header(512, '\0');
    header.replace(0, 5, "\xE9.txt").replace(100, 8, "0000644", 8).replace(257, magic.size(), magic);
    header.replace(148, 8, "        ");
    unsigned sum = error;
    for (const char c : header)
        sum += static_cast<unsigned char>(c);
    return header.replace(148, 7, QByteArray::number(sum, 8).rightJustified(6, '0') + '\0');
}

ft_t typeOf(const QByteArray &bytes, std::string *reason)
{
    MemoryBuffer buffer = bufferOf(bytes);
    const char *text = nullptr;
    const ft_t type = getFileTypeFromFileInMemory(&buffer, &text);
    *reason = text ? text : "<null>";
    return type;
}

} // namespace

TEST(FileIdentification, TypeReasonAndCursorOfEveryKindOfInput)
{
    QByteArray ustarAt257(300, '\0');
    ustarAt257.replace(257, 5, "ustar");
    const QByteArray oldStyle = tarHeader(QByteArray());
    struct Case { const char *what; QByteArray bytes; ft_t type; const std::string &reason; } const cases[] = {
        // Made by the standard tools (tests/fixtures/archives/make.sh).
        {"plain.zip", archive("plain.zip"), ft_zip, kSignature},
        {"sample.docx", archive("sample.docx"), ft_unknown, kStructure},
        {"sample.gz", archive("sample.gz"), ft_gzip, kSignature},
        {"sample.bz2", archive("sample.bz2"), ft_bzip2, kSignature},
        {"sample.7z", archive("sample.7z"), ft_7zip, kSignature},
        {"gnu.tar", archive("gnu.tar"), ft_tar, kSignature},
        {"ustar.tar", archive("ustar.tar"), ft_tar, kSignature},
        {"posix.tar", archive("posix.tar"), ft_tar, kSignature},
        {"v7.tar", archive("v7.tar"), ft_tar, kStructure},
        {"sample.xz", archive("sample.xz"), ft_unknown, kUnknown},
        {"sample.zst", archive("sample.zst"), ft_unknown, kUnknown},
        // Signatures are compared only when the buffer holds all of them.
        {"empty", QByteArray(), ft_unknown, kUnknown},
        {"gzip magic alone", QByteArray::fromHex("1f8b"), ft_gzip, kSignature},
        {"BZh", "BZh", ft_bzip2, kSignature},
        {"7-Zip short", QByteArray::fromHex("377abcaf27"), ft_unknown, kUnknown},
        {"RAR", QByteArray("Rar!\x1A\x07\x00", 7), ft_rar, kSignature},
        {"RAR in 5 bytes", "Rar!\x1A", ft_unknown, kUnknown},
        {"PK alone", "PK", ft_zip, kSignature},
        {"PK and garbage", "PK\x03\x04 this is no archive at all", ft_zip, kSignature},
        {"pk", "pk\x03\x04", ft_unknown, kUnknown},
        // Tar by its magic at 257, or by the header checksum.
        {"ustar at 257 in 300 bytes", ustarAt257, ft_tar, kSignature},
        {"ustar ending at 262", ustarAt257.left(262), ft_tar, kSignature},
        {"ustar cut short", ustarAt257.left(261), ft_unknown, kUnknown},
        {"old style, right checksum", oldStyle, ft_tar, kStructure},
        {"old style, wrong checksum", tarHeader(QByteArray(), 1), ft_unknown, kUnknown},
        {"400 bytes without magic", QByteArray(400, '\0'), ft_unknown, kUnknown},
        {"512 zero bytes", QByteArray(512, '\0'), ft_unknown, kUnknown},
        {"zip before tar", "PK" + tarHeader("ustar").mid(2), ft_zip, kSignature},
    };
    for (const Case &c : cases) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        for (const size_t start : {size_t(0), buffer.sizeOfMB()}) {
            buffer.seek(start, MBSeekStart);
            const char *reason = nullptr;
            EXPECT_EQ(getFileTypeFromFileInMemory(&buffer, &reason), c.type) << c.what << " from " << start;
            EXPECT_EQ(std::string(reason ? reason : "<null>"), c.reason) << c.what;
            EXPECT_EQ(buffer.tell(), 0u) << c.what;
        }
        EXPECT_EQ(getFileTypeFromFileInMemory(&buffer, nullptr), c.type) << c.what << " without a reason";
    }
    const char *reason = nullptr;
    EXPECT_EQ(getFileTypeFromFileInMemory(nullptr, &reason), ft_unknown);
    EXPECT_STREQ(reason, "Reason unknown");
}

TEST(FileIdentification, OfficePackagesAreToldByTheirTopLevelFolder)
{
    struct Case { QStringList members; ft_t dispatcher; ft_t package; } const cases[] = {
        {{"word/document.xml"}, ft_unknown, ft_docx},
        {{"[Content_Types].xml", "xl/workbook.xml"}, ft_unknown, ft_xlsx},
        {{"ppt/slides/slide1.xml"}, ft_unknown, ft_pptx},
        {{"xl/workbook.xml", "word/document.xml"}, ft_unknown, ft_docx},
        {{"word"}, ft_unknown, ft_docx},
        {{"word/"}, ft_zip, ft_unknown},
        {{"Word/document.xml"}, ft_zip, ft_unknown},
        {{"sub/word/document.xml"}, ft_zip, ft_unknown},
        {{}, ft_zip, ft_unknown},
    };
    for (const Case &c : cases) {
        const std::string what = "members (" + c.members.join(QStringLiteral(", ")).toStdString() + ")";
        ZipMembers members;
        for (const QString &name : c.members)
            members.append({name, name.endsWith(QLatin1Char('/')) ? QByteArray() : "x"});
        const QByteArray bytes = zipOf(members);
        std::string reason;
        EXPECT_EQ(typeOf(bytes, &reason), c.dispatcher) << what;
        EXPECT_EQ(reason, c.dispatcher == ft_zip ? kSignature : kStructure) << what;
        MemoryBuffer buffer = bufferOf(bytes);
        buffer.seek(5, MBSeekStart);
        const char *text = "untouched";
        EXPECT_EQ(FileType().determineOpcSubType(&buffer, &text), c.package) << what;
        EXPECT_STREQ(text, c.package == ft_unknown ? "untouched" : "structure match") << what;
        EXPECT_EQ(buffer.tell(), 0u) << what;
    }
    EXPECT_EQ(FileType().determineOpcSubType(nullptr, nullptr), ft_unknown);
}

TEST(FileIdentification, TarHeaderKindsAndOctalFields)
{
    struct Kind { const char *what; QByteArray bytes; int kind; } const kinds[] = {
        {"GNU magic", tarHeader(QByteArray("ustar  \0", 8)), 3},
        {"POSIX magic", tarHeader(QByteArray("ustar\0", 6)), 2},
        {"magic without its NUL", tarHeader("ustarX"), 1},
        {"wrong checksum", tarHeader(QByteArray("ustar\0", 6), 1), 0},
        {"511 bytes", tarHeader(QByteArray()).left(511), 0},
    };
    for (const Kind &c : kinds)
        EXPECT_EQ(is_tar(reinterpret_cast<const unsigned char *>(c.bytes.constData()), size_t(c.bytes.size())), c.kind)
            << c.what;

    EXPECT_FALSE(file_is_tar(nullptr));

    // Each field is followed by at least one byte, as in a header.
    struct Octal { const char *field; size_t digits; int value; } const octals[] = {
        {"0000644 ", 8, 420},    {"        X", 8, 0},  {"         ", 8, -1},
        {"12x", 3, -1},          {"12x", 2, 10},       {"644\0xxxx", 8, 420},
        {"  644   ", 8, 420},    {"0000755\t", 8, 493}, {"9", 1, -1},
        {"0", 0, -1},            {"", 8, 0},           {"17777777777", 11, 2147483647},
        {"77777777777", 11, -1}, {"0000000000000000000644", 22, 420},
    };
    for (const Octal &c : octals)
        EXPECT_EQ(from_oct(c.field, c.digits), c.value) << "\"" << c.field << "\" with " << c.digits << " digits";
}

TEST(FileIdentification, DamagedPackagesNeverCrashAndStayZip)
{
    const QByteArray package = archive("sample.docx");
    const int endRecord = package.lastIndexOf("PK\x05\x06");
    ASSERT_GT(endRecord, 0);
    std::string reason;
    // Cut before its end record a package is no readable archive; cut inside
    // the record, the reader may still find the directory.
    for (int length = 0; length < package.size(); ++length) {
        const ft_t type = typeOf(package.left(length), &reason);
        ASSERT_TRUE(length < 2 ? type == ft_unknown : type == ft_zip || (length > endRecord && reason == kStructure))
            << "cut at " << length;
    }
    for (int at = 2; at < package.size(); ++at) {
        QByteArray damaged = package;
        damaged[at] = static_cast<char>(damaged[at] ^ 0xA5);
        const ft_t type = typeOf(damaged, &reason);
        ASSERT_TRUE(type == ft_zip || (type == ft_unknown && reason == kStructure)) << "byte " << at << " changed";
    }
}
