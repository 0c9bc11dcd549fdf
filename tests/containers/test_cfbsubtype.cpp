// The compound-file sub-type: root class identifiers through the registry,
// the root-stream fallback, and the buffer's cursor on every way out.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include "cameras/filetype.h"

#include <QUuid>
#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

// The structure root is only checked for null.
BDDLStructBase_Root *someRoot()
{
    static int placeholder;
    return reinterpret_cast<BDDLStructBase_Root *>(&placeholder);
}

// A class identifier as stored: three little-endian fields, then eight bytes.
QByteArray storedClassId(const char *text)
{
    const QByteArray be = QUuid(QString::fromLatin1(text)).toRfc4122();
    QByteArray b = be;
    for (int i = 0; i < 4; ++i)
        b[i] = be[3 - i];
    b[4] = be[5];
    b[5] = be[4];
    b[6] = be[7];
    b[7] = be[6];
    return b;
}

QByteArray fileWithRoot(const char *clsid, const std::vector<BuiltStream> &streams = {{QStringLiteral("x"), "data"}})
{
    return buildCompoundFile(streams, 9, clsid ? storedClassId(clsid) : QByteArray(16, '\0')).bytes;
}

struct Outcome
{
    ft_t type;
    QString reason;
};

Outcome determine(const QByteArray &bytes)
{
    MemoryBuffer buffer = toBuffer(bytes);
    buffer.seek(buffer.sizeOfMB() / 2, MBSeekStart);
    const char *reason = "untouched";
    FileType registry;
    const ft_t type = registry.determineCfbSubType(&buffer, &reason, someRoot());
    EXPECT_EQ(buffer.tell(), 0u) << "the buffer is left at position 0";
    return {type, QString::fromLatin1(reason)};
}

} // namespace

TEST(CfbSubType, RootClassIdentifiersThroughTheRegistry)
{
    struct Case
    {
        const char *clsid;
        ft_t type;
        const char *reason;
    };
    const Case cases[] = {
        {"{00020906-0000-0000-C000-000000000046}", ft_doc, "class identifier"},
        {"{00020820-0000-0000-C000-000000000046}", ft_xls, "class identifier"},
        {"{64818D10-4F9B-11CF-86EA-00AA00B929E8}", ft_ppt, "class identifier"},
        {"{B801CA65-A1FC-11D0-85AD-444553540000}", ft_pdf, "class identifier"},
        {"{48123BC4-99D9-11D1-A6B3-00C04FD91555}", ft_xml, "class identifier"},
        {"{F4754C9B-64F5-4B40-8AF4-679732AC0607}", ft_cfb_docx, "class identifier"},
        {"{00020832-0000-0000-C000-000000000046}", ft_cfb_xlsx, "class identifier"},
        {"{DC020317-E6E2-4A62-B9FA-B3EFE16626F4}", ft_cfb_pptx, "class identifier"},
        // The image rows store "cf" in lower case, so the upper-cased text never matches.
        {"{25336920-03F9-11CF-8FD0-00AA00686F13}", ft_unknown, "untouched"},
        // Rows of type 0.
        {"{00021A14-0000-0000-C000-000000000046}", ft_unknown, "untouched"},
        {"{D3E34B21-9D75-101A-8C3D-00AA001A1652}", ft_unknown, "untouched"},
        {"{12345678-1234-1234-1234-123456789ABC}", ft_unknown, "untouched"},
        {nullptr, ft_unknown, "untouched"},
    };
    for (const Case &c : cases) {
        const Outcome o = determine(fileWithRoot(c.clsid));
        EXPECT_EQ(o.type, c.type) << (c.clsid ? c.clsid : "all zeros");
        EXPECT_EQ(o.reason, QString::fromLatin1(c.reason)) << (c.clsid ? c.clsid : "all zeros");
    }
}

TEST(CfbSubType, OfficeFilesWithoutAKnownIdentifierAreKnownByTheirRootStreams)
{
    struct Case
    {
        const char *what;
        const char *clsid;
        std::vector<BuiltStream> streams;
        ft_t type;
    };
    const Case cases[] = {
        {"word", nullptr, {{QStringLiteral("WordDocument"), "w"}, {QStringLiteral("1Table"), "t"}}, ft_doc},
        {"excel", nullptr, {{QStringLiteral("Workbook"), "b"}}, ft_xls},
        {"excel 5 identifier", "{00020810-0000-0000-C000-000000000046}", {{QStringLiteral("Workbook"), "b"}}, ft_xls},
        {"powerpoint", nullptr, {{QStringLiteral("PowerPoint Document"), "p"}, {QStringLiteral("Current User"), "u"}}, ft_ppt},
        {"tables alone", nullptr, {{QStringLiteral("0Table"), "t"}, {QStringLiteral("1Table"), "t"}}, ft_unknown},
        {"current user alone", nullptr, {{QStringLiteral("Current User"), "u"}}, ft_unknown},
        {"names differ in case", nullptr, {{QStringLiteral("workbook"), "b"}}, ft_unknown},
    };
    for (const Case &c : cases) {
        const Outcome o = determine(fileWithRoot(c.clsid, c.streams));
        EXPECT_EQ(o.type, c.type) << c.what;
        EXPECT_EQ(o.reason, c.type ? QStringLiteral("structure match") : QStringLiteral("untouched")) << c.what;
    }
    // The identifier wins over the streams.
    const Outcome o = determine(fileWithRoot("{64818D10-4F9B-11CF-86EA-00AA00B929E8}", {{QStringLiteral("WordDocument"), "w"}}));
    EXPECT_EQ(o.type, ft_ppt);
    EXPECT_EQ(o.reason, QStringLiteral("class identifier"));
}

TEST(CfbSubType, FilesSavedByAnOfficeSuite)
{
    struct Case
    {
        const char *file;
        ft_t type;
        const char *reason;
    };
    for (const Case &c : {Case{"writer.doc", ft_doc, "class identifier"}, Case{"impress.ppt", ft_ppt, "class identifier"},
                          Case{"calc.xls", ft_xls, "structure match"}}) {
        const Outcome o = determine(readFile(fixture(QString::fromLatin1(c.file))));
        EXPECT_EQ(o.type, c.type) << c.file;
        EXPECT_EQ(o.reason, QString::fromLatin1(c.reason)) << c.file;
    }
}

TEST(CfbSubType, OtherBytesAreNoCompoundFile)
{
    for (const QByteArray &bytes : {QByteArray("PK\x03\x04\x14\x00\x00\x00zip archive", 19), QByteArray("%PDF-1.7\n%\xE2\xE3"),
                                    QByteArray(), fileWithRoot(nullptr).left(512)}) {
        const Outcome o = determine(bytes);
        EXPECT_EQ(o.type, ft_unknown) << bytes.left(8).toHex().constData();
        EXPECT_EQ(o.reason, QStringLiteral("untouched"));
    }
}

TEST(CfbSubType, WithoutARootNothingIsTouched)
{
    MemoryBuffer buffer = toBuffer(fileWithRoot("{00020906-0000-0000-C000-000000000046}"));
    buffer.seek(77, MBSeekStart);
    const char *reason = "untouched";
    EXPECT_EQ(FileType().determineCfbSubType(&buffer, &reason, nullptr), ft_unknown);
    EXPECT_EQ(buffer.tell(), 77u);
    EXPECT_STREQ(reason, "untouched");
    // A null reason is allowed.
    EXPECT_EQ(FileType().determineCfbSubType(&buffer, nullptr, someRoot()), ft_doc);
}

TEST(CfbSubType, DirectoryNameErrorsReachTheCallerWithTheBufferRewound)
{
    BuiltFile built = buildCompoundFile({{QStringLiteral("x"), "data"}});
    put16(built.bytes, built.dirEntryOffset(1) + 64, 7);
    MemoryBuffer buffer = toBuffer(built.bytes);
    buffer.seek(9, MBSeekStart);
    const char *reason = "untouched";
    try {
        FileType().determineCfbSubType(&buffer, &reason, someRoot());
        ADD_FAILURE() << "no exception";
    } catch (const char *message) {
        EXPECT_STREQ(message, "Error in CFB - name length is odd");
    }
    EXPECT_EQ(buffer.tell(), 0u);
    EXPECT_STREQ(reason, "untouched");
}
