// vxcam's identification over real files made by independent tools (see
// tests/fixtures/identify/make.sh), renamed the ways files get renamed: the
// content decides, and the name only refines what the content says.

#include "identification.h"

#include "cameras/camera_pool.h"
#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <memory>

namespace {

using Evidence = Identification::Evidence;

class IdentificationTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_pool = std::make_unique<Camera_Pool>(QStringLiteral(VX_PLUGIN_DIR)); }
    static void TearDownTestSuite() { s_pool.reset(); }

    // The file's bytes under a new name in the test's folder.
    QString as(const QByteArray &bytes, const QString &name) const { return fileIn(m_dir, name, bytes); }

    static std::unique_ptr<Camera_Pool> s_pool;
    QTemporaryDir m_dir;
};

std::unique_ptr<Camera_Pool> IdentificationTest::s_pool;

} // namespace

TEST_F(IdentificationTest, RealFilesAnswerFromTheirContentWhateverTheirName)
{
    const QByteArray random = QByteArray::fromHex("8c1f3e77d00451a9be").repeated(100);
    const struct
    {
        QByteArray bytes;
        const char *name;
        ft_t type;
        Evidence evidence;
        const char *description;
        bool encrypted = false;
        bool macros = false;
    } cases[] = {
        {readFixture("identify/word.docx"), "report.bin", ft_docx, Evidence::Structure, "Microsoft Word Document"},
        {readFixture("identify/sheet.xlsx"), "sheet.dat", ft_xlsx, Evidence::Structure, "Microsoft Excel Worksheet"},
        {readFixture("identify/slides.pptx"), "slides", ft_pptx, Evidence::Structure,
         "Microsoft PowerPoint Presentation"},
        {readFixture("identify/word.doc"), "word.bin", ft_doc, Evidence::ClassId, "Microsoft Word 97 - 2003 Document"},
        {readFixture("identify/word.doc"), "word.dot", ft_doc, Evidence::ClassId, "Microsoft Word 97 - 2003 Template"},
        {readFixture("identify/sheet.xls"), "numbers.dat", ft_xls, Evidence::ClassId,
         "Microsoft Excel 97-2003 Worksheet"},
        {readFixture("identify/sheet.xlt"), "sheet.xlt", ft_xls, Evidence::ClassId, "Microsoft Excel 97-2003 Template"},
        {readFixture("cfb/impress.ppt"), "show.tmp", ft_ppt, Evidence::ClassId,
         "Microsoft PowerPoint 97-2003 Presentation"},
        {readFixture("identify/slides.pot"), "slides.pot", ft_ppt, Evidence::ClassId,
         "Microsoft PowerPoint 97-2003 Template"},
        {readFixture("identify/book95.xls"), "book.bin", ft_xls, Evidence::StreamNames,
         "Microsoft Excel 5.0/95 Workbook"},
        {readFixture("identify/setup.msi"), "setup.msi", ft_cfb, Evidence::ClassId, "Windows Installer Package"},
        {readFixture("identify/secret.docx"), "secret.docx", ft_cfb, Evidence::StreamNames,
         "encrypted Office Open XML package", true},
        {readFixture("identify/secret.xlsx"), "secret.bin", ft_cfb, Evidence::StreamNames,
         "encrypted Office Open XML package", true},
        {readFixture("identify/sheet.xlsm"), "sheet.xlsx", ft_xlsx, Evidence::Structure,
         "Microsoft Excel Macro-Enabled Worksheet", false, true},
        {readFixture("identify/word.dotx"), "word.docx", ft_docx, Evidence::Structure, "Microsoft Word Template"},
        {readFixture("archives/sample.docx"), "bare.dotx", ft_docx, Evidence::Structure, "Microsoft Word Template"},
        {readFixture("identify/text.pdf"), "paper.doc", ft_pdf, Evidence::Signature, "Adobe Acrobat Document"},
        {readFixture("identify/image.png"), "picture.jpg", ft_png, Evidence::Signature, "PNG Image"},
        {readFixture("identify/program.elf"), "tool.exe", ft_elf, Evidence::Signature, "ELF Binary"},
        {readFixture("identify/sound.m4a"), "sound.m4a", ft_mp4, Evidence::Signature, "MPEG-4 Audio"},
        {readFixture("archives/plain.zip"), "library.jar", ft_zip, Evidence::Signature, "ZIP archive"},
        {readFixture("archives/sample.gz"), "data.docx", ft_gzip, Evidence::Signature, "gzip compressed data"},
        {"Quarterly notes\nin plain words\n", "notes.doc", ft_unknown, Evidence::None, "text"},
        {"Quarterly notes\nin plain words\n", "notes.xls", ft_unknown, Evidence::None, "text"},
        {random, "blob.doc", ft_unknown, Evidence::None, "data"},
        {random, "blob.bin", ft_binary, Evidence::Extension, "Binary File"},
        {random, "blob.coff", ft_coff, Evidence::Extension, "COFF Binary"},
    };
    const Identifier identifier(*s_pool);
    for (const auto &c : cases) {
        ASSERT_FALSE(c.bytes.isEmpty()) << c.name;
        const Identification id = identifier.identify(as(c.bytes, QLatin1String(c.name)));
        EXPECT_TRUE(id.ok()) << c.name << ": " << id.error.toStdString();
        EXPECT_EQ(id.type, c.type) << c.name;
        EXPECT_EQ(id.evidence, c.evidence) << c.name << ": " << Identification::evidenceName(id.evidence);
        EXPECT_EQ(id.description, QLatin1String(c.description)) << c.name;
        EXPECT_EQ(id.encrypted, c.encrypted) << c.name;
        EXPECT_EQ(id.macros, c.macros) << c.name;
    }
}

// The details each question gave, and the forms they are shown in (the
// command's tests show the rest).
TEST_F(IdentificationTest, DetailsJsonAndLines)
{
    const Identifier identifier(*s_pool);
    const Identification package = identifier.identify(as(readFixture("identify/sheet.xlsm"), "Sheet.BIN"));
    EXPECT_EQ(package.toJson(), QJsonObject({{"path", package.path}, {"type", 22}, {"type_name", "ft_xlsx"},
                                             {"description", "Microsoft Excel Macro-Enabled Worksheet"},
                                             {"evidence", "structure"}, {"macros", true}, {"opc_subtype", 22},
                                             {"extension", "bin"}, {"extension_type", 514}}));
    EXPECT_EQ(package.summary(),
              package.path + ": Microsoft Excel Macro-Enabled Worksheet [ft_xlsx], by structure; macros");

    const Identification word = identifier.identify(as(readFixture("identify/word.doc"), "old.doc"));
    EXPECT_EQ(word.details(), (QStringList{"  compound file: ft_doc (class identifier)", "  extension: .doc (ft_doc)"}));

    // Names held by more than one member are reported.
    const QByteArray archive = zipOf({{"a.txt", "a"}, {"b.txt", "b"}, {"a.txt", "a"}});
    const Identification twice = identifier.identify(as(archive, "twice.zip"));
    EXPECT_EQ(twice.duplicateNames, QStringList{"a.txt"});
    EXPECT_EQ(twice.toJson().value("duplicate_names"), QJsonArray{"a.txt"});
    EXPECT_EQ(twice.summary(), twice.path + ": ZIP archive [ft_zip], by signature; duplicate member names");
}
