#include "cameras/filetype.h"

#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"

#include <QBuffer>

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
        {ext, "vsdx", ft_unknown}, {ext, "dib", ft_unknown}, {ext, "", ft_unknown}, {ext, "pot", ft_ppt},
        {ext, "xlt", ft_xls}, {ext, "msi", ft_unknown},
        {cls, "00020906-0000-0000-C000-000000000046", ft_doc}, {cls, "00020820-0000-0000-C000-000000000046", ft_xls},
        {cls, "64818D10-4F9B-11CF-86EA-00AA00B929E8", ft_ppt}, {cls, "F4754C9B-64F5-4B40-8AF4-679732AC0607", ft_docx},
        {cls, "f4754c9b-64f5-4b40-8af4-679732ac0607", ft_unknown}, {cls, "tbd", ft_binary}, {cls, "", ft_xlsx},
        {cls, "00020810-0000-0000-C000-000000000046", ft_xls}, {cls, "000C1084-0000-0000-C000-000000000046", ft_unknown},
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

// A package's family comes from its folders; its exact kind and macros from
// the main part's content type, and macros also from a vbaProject.bin part.
TEST(FileTypeRegistry, OfficePackageKinds)
{
    const auto types = [](const QByteArray &override) {
        return "<?xml version=\"1.0\"?><Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
               "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
               "<Override PartName=\"/main.xml\" ContentType=\"" + override + "\"/></Types>";
    };
    const QByteArray macroSheet = types("application/vnd.ms-excel.sheet.macroEnabled.main+xml");
    const QByteArray template_ = types("application/vnd.openxmlformats-officedocument.wordprocessingml.template.main+xml");
    struct Case { const char *what; ZipMembers members; ft_t type; const char *extension;
                  bool macros; };
    const Case cases[] = {
        {"a template", {{"word/document.xml", "<w/>"}, {"[Content_Types].xml", template_}}, ft_docx, "dotx", false},
        {"a macro-enabled workbook", {{"xl/workbook.xml", "<w/>"}, {"[Content_Types].xml", macroSheet}}, ft_xlsx,
         "xlsm", true},
        {"content types compare without letter case",
         {{"xl/workbook.xml", "<w/>"}, {"[Content_Types].xml", QByteArray(macroSheet).replace("macroEnabled", "MACROENABLED")}},
         ft_xlsx, "xlsm", true},
        {"a vbaProject part", {{"ppt/presentation.xml", "<p/>"}, {"ppt/VBAProject.bin", "vba"}}, ft_pptx, nullptr,
         true},
        {"a main part of another family", {{"word/document.xml", "<w/>"}, {"[Content_Types].xml", macroSheet}},
         ft_docx, nullptr, true},
        {"a document type declaration",
         {{"word/document.xml", "<w/>"}, {"[Content_Types].xml", "<!DOCTYPE Types [<!ENTITY a \"aaaa\">]>" + template_}},
         ft_docx, nullptr, false},
        {"content types over 1 MiB", {{"word/document.xml", "<w/>"},
                                      {"[Content_Types].xml", template_ + QByteArray(1 << 20, ' ')}},
         ft_docx, nullptr, false},
        {"no package folder", {{"main.xml", "<w/>"}, {"[Content_Types].xml", template_}}, ft_unknown, nullptr, false},
    };
    const FileType registry;
    for (const Case &c : cases) {
        QByteArray archive = zipOf(c.members);
        QBuffer device(&archive);
        ZipUtils::Unzip package;
        ASSERT_TRUE(package.open(&device)) << c.what;
        const ContainerKind kind = registry.describeOpcPackage(package);
        EXPECT_EQ(kind.type, c.type) << c.what;
        EXPECT_EQ(kind.row ? kind.row->extension : std::string(), c.extension ? c.extension : "") << c.what;
        EXPECT_EQ(kind.macros, c.macros) << c.what;
        EXPECT_EQ(package.memberLimit(), ZipUtils::Unzip::kDefaultMemberLimit) << c.what << ": the limit is put back";
    }
}
