#include "cameras/filetype.h"

#include <gtest/gtest.h>

namespace {

struct LookupCase
{
    const char *key;
    ft_t expected;
};

void expectLookups(ft_t (FileType::*lookup)(std::string) const, std::initializer_list<LookupCase> cases)
{
    const FileType registry;
    for (const LookupCase &c : cases)
        EXPECT_EQ((registry.*lookup)(c.key), c.expected) << "key \"" << c.key << "\"";
}

} // namespace

TEST(FileTypeRegistry, ExtensionsAreExactAndFirstRowWins)
{
    expectLookups(&FileType::getFileTypeFromFileExtension,
                  {{"doc", ft_doc},  {"DOC", ft_unknown},  {".doc", ft_unknown}, {"doc ", ft_unknown},
                   {"dot", ft_doc},  {"docm", ft_docx},    {"potx", ft_pptx},    {"xltm", ft_xlsx},
                   {"jfif", ft_jpeg}, {"dll", ft_pe},      {"coff", ft_coff},    {"rels", ft_xml},
                   {"vml", ft_xml},  {"bin", ft_binary},   {"bmp", ft_bmp},      {"tif", ft_tiff},
                   {"avi", ft_unknown}, {"mov", ft_unknown}, {"vsdx", ft_unknown}, {"wma", ft_unknown},
                   {"dib", ft_unknown}, {"nope", ft_unknown}, {"", ft_unknown}});
}

TEST(FileTypeRegistry, ClassIdentifiersAreCaseSensitive)
{
    expectLookups(&FileType::getFileTypeFromClassID,
                  {{"00020906-0000-0000-C000-000000000046", ft_doc},
                   {"00020820-0000-0000-C000-000000000046", ft_xls},
                   {"64818D10-4F9B-11CF-86EA-00AA00B929E8", ft_ppt},
                   {"F4754C9B-64F5-4B40-8AF4-679732AC0607", ft_docx},
                   {"f4754c9b-64f5-4b40-8af4-679732ac0607", ft_unknown},
                   {"00020906-0000-0000-c000-000000000046", ft_unknown},
                   {"tbd", ft_binary},
                   {"", ft_xlsx},
                   {"25336920-03F9-11cf-8FD0-00AA00686F13", ft_gif},
                   {"25336920-03F9-11CF-8FD0-00AA00686F13", ft_unknown}});
}

TEST(FileTypeRegistry, ProgIdsSharedByRowsGiveTheFirstRowsType)
{
    expectLookups(&FileType::getFileTypeFromProgID,
                  {{"Paint.Picture", ft_bmp},
                   {"Word.RTF.8", ft_rtf},
                   {"Document", ft_doc},
                   {"Presentation", ft_ppt},
                   {"Worksheet", ft_xls},
                   {"Macro-Enabled Worksheet", ft_xlsx},
                   {"xmlfile", ft_xml},
                   {"jpegfile", ft_jpeg}});
}

TEST(FileTypeRegistry, ReverseLookupsTakeTheFirstRow)
{
    const FileType registry;
    const std::pair<ft_t, const char *> extensions[] = {
        {ft_bmp, "bmp"}, {ft_xlsx, "xlsx"}, {ft_jpeg, "jpg"}, {ft_tiff, "tif"},  {ft_pe, "pe"},
        {ft_macho, "o"}, {ft_xml, "rels"},  {ft_unknown, "aiff"}, {ft_opc, ""}};
    for (const auto &[type, extension] : extensions)
        EXPECT_EQ(registry.getExtensionFromFileTypeEnum(type), extension) << type;

    const std::pair<ft_t, eCameraId_t> cameras[] = {
        {ft_doc, eCameraId_Word},  {ft_docx, eCameraId_OpenXml}, {ft_xml, eCameraId_OpenXml},
        {ft_coff, eCameraId_WinExe}, {ft_mpeg, eCameraId_Mpeg2},  {ft_binary, eCameraId_Default},
        {ft_zip, eCameraId_Default}};
    for (const auto &[type, camera] : cameras)
        EXPECT_EQ(registry.getCameraIdFromFileTypeEnum(type), camera) << type;

    const std::pair<eCameraId_t, ft_t> types[] = {
        {eCameraId_Default, ft_binary}, {eCameraId_OpenXml, ft_xlsx}, {eCameraId_WinExe, ft_pe},
        {eCameraId_Mpeg2, ft_mpeg},     {eCameraId_Rtf, ft_rtf},      {eCameraId_OpcPackage, ft_unknown}};
    for (const auto &[camera, type] : types)
        EXPECT_EQ(registry.getFileTypeFromCameraId(camera), type) << camera;
}

TEST(FileTypeRegistry, UnknownKeysSelectorsAndTypes)
{
    const FileType registry;
    EXPECT_EQ(registry.getFileTypeHelper("doc", static_cast<ft_select_t>(3)), ft_unknown);
    EXPECT_EQ(registry.getFileTypeHelper("doc", ft_select_extension), ft_doc);
    ASSERT_NE(registry.findExtension("doc"), nullptr);
    EXPECT_EQ(registry.findExtension("doc")->progId, "Word.Document.8");
    EXPECT_EQ(registry.findExtension("zzz"), nullptr);
    EXPECT_STREQ(fileTypeName(ft_gzip), "ft_gzip");
    EXPECT_STREQ(fileTypeName(ft_fileidentifier), "ft_fileidentifier");
    EXPECT_STREQ(fileTypeName(static_cast<ft_t>(1234)), "");
}
