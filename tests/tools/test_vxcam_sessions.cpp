// vxcam analyse, export and import as users run them, over a plug-in
// directory holding the file-identifier module and the tree camera of
// tests/plugins (text starting "VXTREE"; lines mentioning "macro" are
// content under the policy's macro switch).

#include "analysis/reportxml.h"
#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

const QByteArray kTree = "VXTREE\nhello\nthe macro line\n";

QByteArray policy(const char *macros, const char *interchange = "sisl")
{
    return QByteArray("<config><wordConfig><macros>") + macros + "</macros></wordConfig><sysConfig><interchange_type>"
           + interchange + "</interchange_type></sysConfig></config>\n";
}

QStringList entriesOf(const QString &archivePath)
{
    const QByteArray bytes = readFile(archivePath);
    MemoryBuffer buffer = bufferOf(bytes);
    ZipUtils::Unzip unzip;
    return unzip.open(&buffer) ? QStringList(unzip.getFilenames()) : QStringList{"(not a zip archive)"};
}

class VxcamSessions : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_TRUE(QDir(m_dir.path()).mkdir(QStringLiteral("plugins")));
        ASSERT_TRUE(QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), path("plugins/libfileidentifier.so")));
        ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_TREE), path("plugins/libvxtree.so")));
        m_tree = fileIn(m_dir, "doc.vxt", kTree);
        m_text = fileIn(m_dir, "notes.txt", "just words\n");
    }
    QString path(const char *name) const { return m_dir.filePath(QLatin1String(name)); }
    VxcamRun vxcam(QStringList arguments) const
    {
        return runVxcam(QStringList{"--plugins", path("plugins")} + arguments);
    }

    QTemporaryDir m_dir;
    QString m_tree;
    QString m_text;
};

} // namespace

TEST_F(VxcamSessions, AnalyseSumsUpEachFileAndWritesWellFormedReports)
{
    const VxcamRun run = vxcam({"analyse", m_tree, m_text, path("absent.vxt"), "--report-dir", path("reports")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(QString::fromUtf8(run.err), "vxcam: " + path("absent.vxt") + ": no such file\n");
    EXPECT_EQ(QString::fromUtf8(run.out),
              m_tree + ": sanitised (1 content, 1 sanitised, 0 issues); Microsoft Word 97 - 2003 Document [ft_doc] "
                       "by libvxtree.so; report " + path("reports/doc.vxt.xml") + "\n" + m_text
                  + ": unsupported (1 content, 0 sanitised, 0 issues); text [ft_unknown] by libfileidentifier.so; "
                    "report " + path("reports/notes.txt.xml") + "\n");
    for (const char *report : {"reports/doc.vxt.xml", "reports/notes.txt.xml"}) {
        const std::string text = readFile(path(report)).toStdString();
        EXPECT_EQ(xmlValues(text, QString()), QStringList()) << report << " is well-formed";
        EXPECT_FALSE(xmlValues(text, QStringLiteral("vx:DocumentStatistics")).isEmpty()) << report;
    }

    // The policy decides; --json gives the same in JSON Lines.
    const QString disallow = fileIn(m_dir, "disallow.xml", policy("disallow"));
    const VxcamRun rejected = vxcam({"--json", "analyse", m_tree, "--policy", disallow, "--report", path("one.xml")});
    EXPECT_EQ(rejected.exitCode, 0) << rejected.err.constData();
    const QJsonObject object = rejected.jsonLines().value(0);
    EXPECT_EQ(object.value(QStringLiteral("verdict")).toString(), QStringLiteral("rejected"));
    EXPECT_EQ(object.value(QStringLiteral("issues")).toInt(), 1);
    EXPECT_EQ(object.value(QStringLiteral("report")).toString(), path("one.xml"));
    EXPECT_TRUE(xmlValues(readFile(path("one.xml")).toStdString(), QStringLiteral("vx:TechnicalDescription"))
                    .join(' ')
                    .contains(QLatin1String("Macros present in line 2")));
}

TEST_F(VxcamSessions, UsageAndBadPoliciesGiveOneLine)
{
    const QString notPolicy = fileIn(m_dir, "bad.xml", "<other/>");
    // A sparse file larger than a session reads is refused before any of it is.
    QFile huge(path("huge.vxt"));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.resize((qint64(1) << 30) + 1));
    huge.close();
    const struct { QStringList arguments; int exit; const char *error; } cases[] = {
        {{"analyse", path("huge.vxt")}, 1, "huge.vxt: larger than 1024 MiB: not read"},
        {{"analyse", m_tree, m_text, "--report", path("r.xml")}, 2, "--report names one file"},
        {{"analyse", m_tree, "--report", "a", "--report-dir", "b"}, 2, "exclude each other"},
        {{"analyse", m_tree, "--policy", notPolicy}, 1, "not a policy document"},
        {{"export", m_tree}, 2, "the archive to write is missing"},
        {{"export", m_tree, "-o", path("a.zip"), "--format", "json"}, 2, "--format is sisl or xml"},
        {{"import"}, 2, "expects one archive"},
        {{"import", m_tree}, 1, "not a zip archive"},
        // Nothing the user gave as an input is written over; a name with a
        // line feed still makes one error line.
        {{"analyse", m_tree, "--report", m_tree}, 2, "would overwrite an input"},
        {{"export", m_tree, "-o", m_tree}, 2, "would overwrite an input"},
        {{"analyse", path("a\nb.vxt")}, 1, "a\\x0Ab.vxt: no such file"},
        // A missing folder for the archive is found before any file is read.
        {{"export", m_tree, "-o", path("none/a.zip")}, 1, "no folder"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = vxcam(c.arguments);
        EXPECT_EQ(run.exitCode, c.exit) << c.arguments.join(' ').toStdString();
        EXPECT_TRUE(run.oneErrorLine() && run.err.contains(c.error)) << run.err.constData();
    }
    const VxcamRun hugeExport = vxcam({"export", path("huge.vxt"), "-o", path("a.zip")});
    EXPECT_EQ(hugeExport.exitCode, 1);
    EXPECT_TRUE(hugeExport.err.contains("huge.vxt: larger than 1024 MiB: not read")) << hugeExport.err.constData();
    EXPECT_FALSE(QFileInfo::exists(path("a.zip")));
}

TEST_F(VxcamSessions, ExportStoresOneStreamPerFileInTheChosenForm)
{
    const struct { QStringList options; const char *policyForm; const char *suffix; } cases[] = {
        {{}, nullptr, ".sisl"},
        {{"--format", "xml"}, nullptr, ".xml"},
        {{}, "xml", ".xml"},
        {{"--format", "sisl", "--pretty"}, "xml", ".sisl"},
    };
    for (const auto &c : cases) {
        QStringList arguments{"export", m_tree, m_text, "-o", path("out.zip")};
        arguments << c.options;
        if (c.policyForm)
            arguments << "--policy" << fileIn(m_dir, "form.xml", policy("sanitise", c.policyForm));
        const VxcamRun run = vxcam(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.err.constData();
        const QStringList entries = entriesOf(path("out.zip"));
        ASSERT_EQ(entries.size(), 2) << entries.join(' ').toStdString();
        EXPECT_TRUE(entries[0].contains(QLatin1String("_doc.vxt_0")) && entries[0].endsWith(QLatin1String(c.suffix)))
            << entries[0].toStdString();
        EXPECT_TRUE(entries[1].contains(QLatin1String("_notes.txt_1")) && entries[1].endsWith(QLatin1String(c.suffix)));
        QFile::remove(m_dir.filePath(QStringLiteral("form.xml")));
    }
}

// The archive is written whole or not at all; a file that fails is reported
// and the others are still stored.
TEST_F(VxcamSessions, ExportNeverLeavesAPartialArchive)
{
    const QString archive = fileIn(m_dir, "kept.zip", "previous archive");
    const QString disallow = fileIn(m_dir, "disallow.xml", policy("disallow"));
    const VxcamRun nothing = vxcam({"export", m_tree, path("absent"), "-o", archive, "--policy", disallow});
    EXPECT_EQ(nothing.exitCode, 1);
    EXPECT_TRUE(nothing.err.contains("not exported: libvxtree.so could not read and validate it"))
        << nothing.err.constData();
    EXPECT_TRUE(nothing.err.contains("nothing exported; no archive written"));
    EXPECT_EQ(readFile(archive), QByteArray("previous archive"));

    const VxcamRun partial = vxcam({"export", m_tree, path("absent"), m_text, "-o", archive});
    EXPECT_EQ(partial.exitCode, 1);
    EXPECT_TRUE(partial.oneErrorLine()) << partial.err.constData();
    EXPECT_EQ(entriesOf(archive).size(), 2);
    const QStringList left = QDir(m_dir.path()).entryList(QDir::Files);
    EXPECT_EQ(left, (QStringList{"disallow.xml", "doc.vxt", "kept.zip", "notes.txt"})) << "no temporary files";
}

TEST_F(VxcamSessions, ImportWritesEachStreamIntoTheOutputDirectory)
{
    ASSERT_EQ(vxcam({"export", m_tree, m_text, "-o", path("a.zip")}).exitCode, 0);
    const VxcamRun run = vxcam({"--json", "import", path("a.zip"), "-o", path("out"), "--report-dir", path("reports")});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    const QList<QJsonObject> lines = run.jsonLines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines[0].value(QStringLiteral("stream")).toString(), QStringLiteral("doc.vxt"));
    EXPECT_EQ(lines[0].value(QStringLiteral("verdict")).toString(), QStringLiteral("sanitised"));
    EXPECT_EQ(readFile(path("out/doc.vxt")), QByteArray("VXTREE\nhello\n[macro removed]\n"));
    EXPECT_FALSE(QFileInfo::exists(path("out/notes.txt"))) << "the file-identifier camera writes nothing unchecked";
    for (const char *report : {"reports/doc.vxt.xml", "reports/notes.txt.xml"})
        EXPECT_EQ(xmlValues(readFile(path(report)).toStdString(), QString()), QStringList()) << report;
}

// Entry names that point elsewhere are refused; damaged streams fail alone.
TEST_F(VxcamSessions, ImportRefusesNamesLeadingOutOfTheDirectoryAndDamagedStreams)
{
    ASSERT_EQ(vxcam({"export", m_tree, "-o", path("a.zip")}).exitCode, 0);
    const QString entry = entriesOf(path("a.zip")).value(0);
    MemoryBuffer exported = bufferOf(readFile(path("a.zip")));
    ZipUtils::Unzip reader;
    QByteArray stream;
    ASSERT_TRUE(reader.open(&exported) && reader.getEntryData(entry, stream));

    ZipMembers members;
    for (const char *name : {"Id_1_../../escape_0.sisl", "/abs/olute", "Id_1_a/b_1.sisl", "Id_1_link_2.sisl",
                             "Id_1_damaged_3.sisl", "Id_1_fine_4.sisl"})
        members.append({name, QByteArray(name).contains("damaged") ? stream.left(100) : stream});
    const QString archive = fileIn(m_dir, "hostile.zip", zipOf(members));
    ASSERT_TRUE(QDir().mkpath(path("out")));
    ASSERT_TRUE(QFile::link(path("outside"), path("out/link")));

    const VxcamRun run = vxcam({"import", archive, "-o", path("out")});
    EXPECT_EQ(run.exitCode, 1);
    const QStringList errors = QString::fromUtf8(run.err).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(errors.size(), 5) << run.err.constData();
    EXPECT_TRUE(run.err.contains("Id_1_../../escape_0.sisl: refused: a name with a path"));
    EXPECT_TRUE(run.err.contains("/abs/olute: refused: a name with a path"));
    EXPECT_TRUE(run.err.contains("Id_1_a/b_1.sisl: refused: a name with a path"));
    EXPECT_TRUE(run.err.contains("is a link or not a plain file"));
    EXPECT_TRUE(run.err.contains("Id_1_damaged_3.sisl: not imported:"));
    EXPECT_FALSE(QFileInfo::exists(path("outside")));
    EXPECT_FALSE(QFileInfo::exists(path("escape")));
    EXPECT_EQ(readFile(path("out/fine")), QByteArray("VXTREE\nhello\n[macro removed]\n"));
}
