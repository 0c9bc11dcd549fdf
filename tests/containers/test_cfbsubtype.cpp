// The compound-file sub-type: root class identifiers through the registry,
// the root-stream fallback, and the buffer's cursor on every way out.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include "cameras/filetype.h"

#include <QUuid>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

const char *const kById = "class identifier";
const char *const kByStreams = "structure match";
const char *const kNone = "untouched";

// The structure root is only checked for null.
BDDLStructBase_Root *someRoot()
{
    static int placeholder;
    return reinterpret_cast<BDDLStructBase_Root *>(&placeholder);
}

// A class identifier as stored: three little-endian fields, then eight bytes.
QByteArray storedClassId(const char *text)
{
    const QUuid id(QString::fromLatin1(text));
    QByteArray b(16, '\0');
    qToLittleEndian(id.data1, b.data());
    qToLittleEndian(id.data2, b.data() + 4);
    qToLittleEndian(id.data3, b.data() + 6);
    std::memcpy(b.data() + 8, id.data4, 8);
    return b;
}

QByteArray fileWithRoot(const char *clsid, const std::vector<BuiltStream> &streams = {})
{
    return buildCompoundFile(streams, 9, clsid ? storedClassId(clsid) : QByteArray(16, '\0')).bytes;
}

// The sub-type and reason found with the cursor in the middle; the buffer
// must be left at 0.
std::pair<int, QString> determine(const QByteArray &bytes)
{
    MemoryBuffer buffer = bufferOf(bytes);
    buffer.seek(buffer.sizeOfMB() / 2, MBSeekStart);
    const char *reason = kNone;
    const ft_t type = FileType().determineCfbSubType(&buffer, &reason, someRoot());
    EXPECT_EQ(buffer.tell(), 0u) << "the buffer is left at position 0";
    return {int(type), QString::fromLatin1(reason)};
}

} // namespace

TEST(CfbSubType, RootClassIdentifierThroughTheRegistryElseTheRootStreams)
{
    const std::vector<BuiltStream> word{{QStringLiteral("WordDocument"), "w"}, {QStringLiteral("1Table"), "t"}};
    const std::vector<BuiltStream> workbook{{QStringLiteral("Workbook"), "b"}};
    struct Case { const char *clsid; std::vector<BuiltStream> streams; int type; const char *reason; };
    const Case cases[] = {
        {"{00020906-0000-0000-C000-000000000046}", {}, 17, kById},  // Word
        {"{00020820-0000-0000-C000-000000000046}", {}, 21, kById},  // Excel
        {"{64818D10-4F9B-11CF-86EA-00AA00B929E8}", {}, 19, kById},  // PowerPoint
        {"{F4754C9B-64F5-4B40-8AF4-679732AC0607}", {}, 768, kById}, // Open XML inside: document
        {"{00020832-0000-0000-C000-000000000046}", {}, 769, kById}, // workbook
        {"{DC020317-E6E2-4A62-B9FA-B3EFE16626F4}", {}, 770, kById}, // presentation
        {"{B801CA65-A1FC-11D0-85AD-444553540000}", {}, ft_pdf, kById},
        {"{48123BC4-99D9-11D1-A6B3-00C04FD91555}", {}, ft_xml, kById},
        // The image rows store "cf" in lower case, so the upper-cased text never matches.
        {"{25336920-03F9-11CF-8FD0-00AA00686F13}", {}, 0, kNone},
        {"{00021A14-0000-0000-C000-000000000046}", {}, 0, kNone}, // rows of type 0
        {"{D3E34B21-9D75-101A-8C3D-00AA001A1652}", {}, 0, kNone},
        {"{12345678-1234-1234-1234-123456789ABC}", {}, 0, kNone},
        {nullptr, {}, 0, kNone},
        // Without a known identifier the root's streams decide.
        {nullptr, word, 17, kByStreams},
        {nullptr, workbook, 21, kByStreams},
        {"{00020810-0000-0000-C000-000000000046}", workbook, 21, kByStreams}, // an older workbook's
        {nullptr, {{QStringLiteral("PowerPoint Document"), "p"}, {QStringLiteral("Current User"), "u"}}, 19, kByStreams},
        {nullptr, {{QStringLiteral("0Table"), "t"}, {QStringLiteral("1Table"), "t"}}, 0, kNone},
        {nullptr, {{QStringLiteral("Current User"), "u"}}, 0, kNone},
        {nullptr, {{QStringLiteral("workbook"), "b"}}, 0, kNone}, // names are case-sensitive
        {"{64818D10-4F9B-11CF-86EA-00AA00B929E8}", word, 19, kById}, // the identifier wins
    };
    for (const Case &c : cases) {
        QString label = QString::fromLatin1(c.clsid ? c.clsid : "all zeros");
        for (const BuiltStream &s : c.streams)
            label += QLatin1Char(' ') + s.name;
        EXPECT_EQ(determine(fileWithRoot(c.clsid, c.streams)), std::make_pair(c.type, QString::fromLatin1(c.reason))) << qPrintable(label);
    }
}

TEST(CfbSubType, FilesOfAnOfficeSuiteAndOtherBytes)
{
    const std::pair<QByteArray, std::pair<int, QString>> cases[] = {
        {readFile(fixture(QStringLiteral("writer.doc"))), {17, kById}},
        {readFile(fixture(QStringLiteral("impress.ppt"))), {19, kById}},
        {readFile(fixture(QStringLiteral("calc.xls"))), {21, kByStreams}},
        {QByteArray("PK\x03\x04\x14\x00\x00\x00zip archive", 19), {0, kNone}},
        {QByteArray("%PDF-1.7\n%\xE2\xE3"), {0, kNone}},
        {QByteArray(), {0, kNone}},
        {fileWithRoot(nullptr).left(512), {0, kNone}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(determine(c.first), c.second) << c.first.left(16).toHex().constData();
}

TEST(CfbSubType, WithoutARootNothingIsTouched)
{
    MemoryBuffer buffer = bufferOf(fileWithRoot("{00020906-0000-0000-C000-000000000046}"));
    buffer.seek(77, MBSeekStart);
    const char *reason = kNone;
    EXPECT_EQ(FileType().determineCfbSubType(&buffer, &reason, nullptr), ft_unknown);
    EXPECT_EQ(buffer.tell(), 77u);
    EXPECT_STREQ(reason, kNone);
    EXPECT_EQ(FileType().determineCfbSubType(&buffer, nullptr, someRoot()), 17) << "a null reason is allowed";
}

TEST(CfbSubType, DirectoryNameErrorsReachTheCallerWithTheBufferRewound)
{
    BuiltFile built = buildCompoundFile({{QStringLiteral("x"), "data"}});
    put16(built.bytes, built.dirEntryOffset(1) + 64, 7);
    MemoryBuffer buffer = bufferOf(built.bytes);
    buffer.seek(9, MBSeekStart);
    const char *reason = kNone;
    EXPECT_EQ(thrownBy([&] { FileType().determineCfbSubType(&buffer, &reason, someRoot()); }),
              QStringLiteral("Error in CFB - name length is odd"));
    EXPECT_EQ(buffer.tell(), 0u);
    EXPECT_STREQ(reason, kNone);
}
