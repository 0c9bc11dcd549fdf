// The compound-file sub-type: root class identifiers through the registry,
// the root-stream fallback, and the buffer's cursor on every way out.

#include "cfbtesttools.h"
#include "qtprinters.h"

#include "cameras/filetype.h"

#include <gtest/gtest.h>

using namespace cfbtest;

namespace {

const char *const kById = "class identifier";
const char *const kByStreams = "stream names";
const char *const kNone = "untouched";

// The structure root is only checked for null.
BDDLStructBase_Root *someRoot()
{
    static int placeholder;
    return reinterpret_cast<BDDLStructBase_Root *>(&placeholder);
}

// A file whose root has this class identifier (none: all zeros), stored with
// its first three fields little-endian, and these streams. Empty streams
// whose names are listed as storages become empty storages.
QByteArray fileWithRoot(const char *clsid, const std::vector<BuiltStream> &streams = {},
                        const QStringList &storages = {})
{
    QByteArray b = clsid ? QUuid(QString::fromLatin1(clsid)).toRfc4122() : QByteArray(16, '\0');
    for (const auto &field : {std::make_pair(0, 4), {4, 2}, {6, 2}})
        std::reverse(b.begin() + field.first, b.begin() + field.first + field.second);
    BuiltFile built = buildCompoundFile(streams, 9, b);
    for (size_t i = 0; i < streams.size(); ++i)
        if (storages.contains(streams[i].name))
            built.bytes[built.dirEntryOffset(int(i) + 1) + 66] = 1;
    return built.bytes;
}

} // namespace

TEST(CfbSubType, RootClassIdentifierThroughTheRegistryElseTheRootStreams)
{
    const std::vector<BuiltStream> word{{"WordDocument", "w"}, {"1Table", "t"}};
    const std::vector<BuiltStream> workbook{{"Workbook", "b"}};
    const char *const wordId = "{00020906-0000-0000-C000-000000000046}";
    const char *const showId = "{64818D10-4F9B-11CF-86EA-00AA00B929E8}";
    struct Case { const char *what; QByteArray bytes; int type; const char *reason; };
    const Case cases[] = {
        {"word processor", fileWithRoot(wordId), 17, kById},
        {"spreadsheet", fileWithRoot("{00020820-0000-0000-C000-000000000046}"), 21, kById},
        {"presentation", fileWithRoot(showId), 19, kById},
        {"Open XML document inside", fileWithRoot("{F4754C9B-64F5-4B40-8AF4-679732AC0607}"), 768, kById},
        {"PDF", fileWithRoot("{B801CA65-A1FC-11D0-85AD-444553540000}"), ft_pdf, kById},
        // The image rows store "cf" in lower case, so the upper-cased text never matches.
        {"image row", fileWithRoot("{25336920-03F9-11CF-8FD0-00AA00686F13}"), 0, kNone},
        {"a row of type 0", fileWithRoot("{00021A14-0000-0000-C000-000000000046}"), 0, kNone},
        {"unknown identifier", fileWithRoot("{12345678-1234-1234-1234-123456789ABC}"), 0, kNone},
        {"all zeros, no streams", fileWithRoot(nullptr), 0, kNone},
        // Without a known identifier the root's streams decide.
        {"WordDocument", fileWithRoot(nullptr, word), 17, kByStreams},
        {"Workbook", fileWithRoot(nullptr, workbook), 21, kByStreams},
        {"old workbook id", fileWithRoot("{00020810-0000-0000-C000-000000000046}", workbook), 21, kById},
        {"PowerPoint Document", fileWithRoot(nullptr, {{"PowerPoint Document", "p"}, {"Current User", "u"}}),
         19, kByStreams},
        {"only tables and Current User",
         fileWithRoot(nullptr, {{"0Table", "t"}, {"Current User", "u"}}), 0, kNone},
        {"names are case-sensitive", fileWithRoot(nullptr, {{"workbook", "b"}}), 0, kNone},
        {"the identifier wins over the streams", fileWithRoot(showId, word), 19, kById},
        {"not a compound file", QByteArray("PK\x03\x04"), 0, kNone},
        {"cut after the header", fileWithRoot(wordId).left(512), 0, kNone},
    };
    for (const Case &c : cases) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        buffer.seek(buffer.sizeOfMB() / 2, MBSeekStart);
        const char *reason = kNone;
        EXPECT_EQ(int(FileType().determineCfbSubType(&buffer, &reason, someRoot())), c.type) << c.what;
        EXPECT_STREQ(reason, c.reason) << c.what;
        EXPECT_EQ(buffer.tell(), 0u) << c.what << ": the buffer is left at position 0";
    }
}

TEST(CfbSubType, WithoutARootNothingIsTouchedAndNameErrorsRewind)
{
    MemoryBuffer buffer = bufferOf(fileWithRoot("{00020906-0000-0000-C000-000000000046}"));
    buffer.seek(77, MBSeekStart);
    const char *reason = kNone;
    EXPECT_EQ(FileType().determineCfbSubType(&buffer, &reason, nullptr), ft_unknown);
    EXPECT_EQ(buffer.tell(), 77u);
    EXPECT_STREQ(reason, kNone);
    EXPECT_EQ(FileType().determineCfbSubType(&buffer, nullptr, someRoot()), 17) << "a null reason is allowed";

    BuiltFile built = buildCompoundFile({{"x", "data"}});
    put16(built.bytes, built.dirEntryOffset(1) + 64, 7);
    MemoryBuffer odd = bufferOf(built.bytes);
    odd.seek(9, MBSeekStart);
    EXPECT_EQ(thrownBy([&] { FileType().determineCfbSubType(&odd, &reason, someRoot()); }),
              "Error in CFB - name length is odd");
    EXPECT_EQ(odd.tell(), 0u);
    EXPECT_STREQ(reason, kNone);
}

// Beyond the type: the registry row of the exact kind, and the flags.
TEST(CfbKind, ExactKindsAndFlagsFromTheRootEntries)
{
    const char *const wordId = "{00020906-0000-0000-C000-000000000046}";
    const char *const excel5Id = "{00020810-0000-0000-C000-000000000046}";
    struct Case { const char *what; QByteArray bytes; ft_t type; const char *progId; const char *reason; bool encrypted;
                  bool macros; };
    const Case cases[] = {
        {"Word with macros", fileWithRoot(wordId, {{"WordDocument", "w"}, {"Macros", {}}}, {"Macros"}), ft_doc,
         "Word.Document.8", kById, false, true},
        {"a stream named Macros", fileWithRoot(wordId, {{"WordDocument", "w"}, {"Macros", "m"}}), ft_doc,
         "Word.Document.8", kById, false, false},
        {"Excel with macros", fileWithRoot(nullptr, {{"Workbook", "b"}, {"_VBA_PROJECT_CUR", {}}}, {"_VBA_PROJECT_CUR"}),
         ft_xls, "Excel.Sheet.8", kByStreams, false, true},
        {"Excel 5.0/95 by its class identifier", fileWithRoot(excel5Id, {{"Book", "b"}}), ft_xls, "Excel.Sheet.5",
         kById, false, false},
        {"Excel 5.0/95 by its stream", fileWithRoot(nullptr, {{"Book", "b"}}), ft_xls, "Excel.Sheet.5", kByStreams,
         false, false},
        {"the Excel 5 identifier on a 97-2003 workbook", fileWithRoot(excel5Id, {{"Workbook", "b"}}), ft_xls,
         "Excel.Sheet.8", kById, false, false},
        {"an installer database", fileWithRoot("{000C1084-0000-0000-C000-000000000046}"), ft_unknown, "Msi.Package",
         kById, false, false},
        {"an encrypted package", fileWithRoot(nullptr, {{"EncryptionInfo", "i"}, {"EncryptedPackage", "p"}}),
         ft_unknown, nullptr, kByStreams, true, false},
        {"half an encrypted package", fileWithRoot(nullptr, {{"EncryptedPackage", "p"}}), ft_unknown, nullptr,
         nullptr, false, false},
    };
    const FileType registry;
    for (const Case &c : cases) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        POLE::Storage storage(&buffer);
        ASSERT_TRUE(storage.open()) << c.what;
        const ContainerKind kind = registry.describeCompoundFile(storage);
        EXPECT_EQ(kind.type, c.type) << c.what;
        EXPECT_EQ(kind.row ? kind.row->progId : std::string(), c.progId ? c.progId : "") << c.what;
        EXPECT_STREQ(kind.reason, c.reason) << c.what;
        EXPECT_EQ(kind.encrypted, c.encrypted) << c.what;
        EXPECT_EQ(kind.macros, c.macros) << c.what;
    }
}
