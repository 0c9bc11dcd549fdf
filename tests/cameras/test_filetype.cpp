#include "cameras/filetype.h"

#include <gtest/gtest.h>

// Every search takes the first matching row, so the rows' order decides these.
TEST(FileTypeRegistry, KeyLookupsAreExactAndTheFirstRowWins)
{
    using Lookup = ft_t (FileType::*)(std::string) const;
    const Lookup ext = &FileType::getFileTypeFromFileExtension, cls = &FileType::getFileTypeFromClassID,
                 prog = &FileType::getFileTypeFromProgID;
    const struct
    {
        Lookup lookup;
        const char *key;
        ft_t expected;
    } cases[] = {
        {ext, "doc", ft_doc}, {ext, "DOC", ft_unknown}, {ext, ".doc", ft_unknown}, {ext, "doc ", ft_unknown},
        {ext, "dot", ft_doc}, {ext, "docm", ft_docx}, {ext, "potx", ft_pptx}, {ext, "xltm", ft_xlsx},
        {ext, "jfif", ft_jpeg}, {ext, "dll", ft_pe}, {ext, "coff", ft_coff}, {ext, "rels", ft_xml},
        {ext, "vml", ft_xml}, {ext, "bin", ft_binary}, {ext, "tif", ft_tiff}, {ext, "avi", ft_unknown},
        {ext, "vsdx", ft_unknown}, {ext, "dib", ft_unknown}, {ext, "", ft_unknown},
        {cls, "00020906-0000-0000-C000-000000000046", ft_doc}, {cls, "00020820-0000-0000-C000-000000000046", ft_xls},
        {cls, "64818D10-4F9B-11CF-86EA-00AA00B929E8", ft_ppt}, {cls, "F4754C9B-64F5-4B40-8AF4-679732AC0607", ft_docx},
        {cls, "f4754c9b-64f5-4b40-8af4-679732ac0607", ft_unknown}, {cls, "tbd", ft_binary}, {cls, "", ft_xlsx},
        {cls, "25336920-03F9-11cf-8FD0-00AA00686F13", ft_gif}, {cls, "25336920-03F9-11CF-8FD0-00AA00686F13", ft_unknown},
        {prog, "Paint.Picture", ft_bmp}, {prog, "Word.RTF.8", ft_rtf}, {prog, "Document", ft_doc},
        {prog, "Presentation", ft_ppt}, {prog, "Worksheet", ft_xls}, {prog, "Macro-Enabled Worksheet", ft_xlsx},
        {prog, "xmlfile", ft_xml}, {prog, "jpegfile", ft_jpeg},
    };
    const FileType registry;
    for (const auto &c : cases)
        EXPECT_EQ((registry.*c.lookup)(c.key), c.expected) << "key \"" << c.key << "\"";
    EXPECT_EQ(registry.getFileTypeHelper("doc", static_cast<ft_select_t>(3)), ft_unknown);
    ASSERT_NE(registry.findExtension("doc"), nullptr);
    EXPECT_EQ(registry.findExtension("doc")->progId, "Word.Document.8");
    EXPECT_EQ(registry.findExtension("zzz"), nullptr);
}

TEST(FileTypeRegistry, ReverseLookupsTakeTheFirstRow)
{
    const FileType registry;
    const std::pair<ft_t, const char *> extensions[] = {{ft_bmp, "bmp"}, {ft_xlsx, "xlsx"}, {ft_jpeg, "jpg"},
        {ft_tiff, "tif"}, {ft_pe, "pe"}, {ft_macho, "o"}, {ft_xml, "rels"}, {ft_unknown, "aiff"}, {ft_opc, ""}};
    for (const auto &[type, extension] : extensions)
        EXPECT_EQ(registry.getExtensionFromFileTypeEnum(type), extension) << type;
    const std::pair<ft_t, eCameraId_t> cameras[] = {{ft_doc, eCameraId_Word}, {ft_docx, eCameraId_OpenXml},
        {ft_xml, eCameraId_OpenXml}, {ft_coff, eCameraId_WinExe}, {ft_mpeg, eCameraId_Mpeg2}, {ft_zip, eCameraId_Default}};
    for (const auto &[type, camera] : cameras)
        EXPECT_EQ(registry.getCameraIdFromFileTypeEnum(type), camera) << type;
    const std::pair<eCameraId_t, ft_t> types[] = {{eCameraId_Default, ft_binary}, {eCameraId_OpenXml, ft_xlsx},
        {eCameraId_WinExe, ft_pe}, {eCameraId_Mpeg2, ft_mpeg}, {eCameraId_OpcPackage, ft_unknown}};
    for (const auto &[camera, type] : types)
        EXPECT_EQ(registry.getFileTypeFromCameraId(camera), type) << camera;
    EXPECT_STREQ(fileTypeName(ft_gzip), "ft_gzip");
    EXPECT_STREQ(fileTypeName(static_cast<ft_t>(1234)), "");
}
