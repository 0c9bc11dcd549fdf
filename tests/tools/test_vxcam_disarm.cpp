#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

// vxcam disarm as a user runs it: verdicts, outputs, reports and errors.

namespace {

QString fixture(const char *name)
{
    return fixturePath(QStringLiteral("ooxml/") + QLatin1String(name));
}

const QByteArray kSanitiseAll = "<config><wordConfig/><xlsConfig/><pptConfig/></config>";

TEST(VxcamDisarm, EachDocumentGetsItsVerdictAndOnlyPassedOnesAreWritten)
{
    QTemporaryDir dir;
    const QString policy = fileIn(
        dir, "policy.xml",
        "<config><wordConfig><review_comments>allow</review_comments><embedded_images>allow</embedded_images>"
        "<external_hyperlinks>allow</external_hyperlinks><metadata>allow</metadata></wordConfig>"
        "<xlsConfig><review_comments>disallow</review_comments></xlsConfig></config>");
    const QString notOffice = fileIn(dir, "notes.docx", "just text");
    const QString out = dir.filePath("out");
    const VxcamRun run = runVxcam({"--json", "disarm", fixture("macros.docm"), fixture("lo-writer.docx"),
                                   fixture("lo-calc.xlsx"), notOffice, "--policy", policy, "-o", out,
                                   "--report-dir", dir.filePath("reports")});
    EXPECT_EQ(run.exitCode, 1);
    const QList<QJsonObject> lines = run.jsonLines();
    ASSERT_EQ(lines.size(), 4) << run.out.toStdString();
    EXPECT_EQ(lines[0].value("verdict").toString(), "sanitised");
    EXPECT_EQ(lines[0].value("output").toString(), QDir(out).filePath("macros.docx"));
    EXPECT_EQ(lines[0].value("removed").toObject().value("macros").toInt(), 2);
    EXPECT_EQ(lines[0].value("removed").toObject().value("embedded_files").toInt(), 1);
    EXPECT_EQ(lines[1].value("verdict").toString(), "allowed");
    EXPECT_EQ(lines[2].value("verdict").toString(), "refused");
    EXPECT_EQ(lines[2].value("refused_for").toArray().first().toString(),
              "Review comments present in xl/comments1.xml");
    EXPECT_TRUE(lines[3].value("error").toString().startsWith("not an Office Open XML document ("));
    EXPECT_EQ(QDir(out).entryList(QDir::Files), QStringList({"lo-writer.docx", "macros.docx"}));
    EXPECT_EQ(QDir(dir.filePath("reports")).entryList(QDir::Files),
              QStringList({"lo-calc.xlsx.xml", "lo-writer.docx.xml", "macros.docm.xml"}));
    EXPECT_TRUE(run.err.contains("lo-calc.xlsx: refused by the policy: Review comments present in xl/comments1.xml"))
        << run.err.toStdString();

    // The same without --json: one line per written document.
    const VxcamRun human = runVxcam({"disarm", fixture("lo-writer.docx"), "--policy", policy, "-o", out});
    EXPECT_EQ(human.exitCode, 0);
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("lo-writer.docx.xml"))) << "no report unless one is asked for";
    EXPECT_EQ(human.out, (fixture("lo-writer.docx") + ": allowed -> " + QDir(out).filePath("lo-writer.docx")
                          + " (allowed: embedded_images 1, external_hyperlinks 1, metadata 2, review_comments 1)\n")
                             .toUtf8());
}

TEST(VxcamDisarm, UsageAndPolicyErrors)
{
    QTemporaryDir dir;
    const QString policy = fileIn(dir, "policy.xml", kSanitiseAll);
    const QString broken = fileIn(dir, "broken.xml", "<settings/>");
    const QString doc = fixture("lo-writer.docx");
    const struct
    {
        QStringList args;
        int exitCode;
        const char *error;
    } cases[] = {
        {{"disarm", doc, "-o", dir.path()}, 2, "a policy is needed"},
        {{"disarm", doc, doc, "--policy", policy, "-o", dir.path(), "--report", "r.xml"}, 2, "use --report-dir"},
        {{"disarm", doc, "--policy", policy}, 2, "an output folder is needed"},
        {{"disarm", "--policy", policy, "-o", dir.path()}, 2, "no files given"},
        {{"disarm", doc, "--policy", policy, "-o", dir.path(), "--fast"}, 2, "unknown option --fast"},
        {{"disarm", doc, "--policy", broken, "-o", dir.path()}, 1, "not a policy document"},
        {{"disarm", doc, "--policy", dir.filePath("none.xml"), "-o", dir.path()}, 1, "no such file"},
        {{"disarm", dir.path(), "--policy", policy, "-o", dir.filePath("o")}, 1, "is a directory"},
        {{"disarm", doc, "--policy", policy, "-o", dir.filePath("o"), "--report", doc}, 2, "would overwrite an input"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = runVxcam(c.args);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.args.join(' ').toStdString();
        EXPECT_TRUE(run.oneErrorLine() && run.err.contains(c.error)) << run.err.toStdString();
    }
}

// Outputs never replace what the user did not ask to replace: an input of
// the run (a .docm becomes a .docx beside a .docx given too), a file a link
// in the output folder points to, or earlier outputs walked again.
TEST(VxcamDisarm, OutputsReplaceNeitherInputsNorWhatLinksPointTo)
{
    QTemporaryDir dir;
    const QString policy = fileIn(dir, "policy.xml", kSanitiseAll);
    const QByteArray docx = readFixture(QStringLiteral("ooxml/lo-writer.docx"));
    const QByteArray docm = readFixture(QStringLiteral("ooxml/macros.docm"));
    for (const char *folder : {"in", "walk"})
        ASSERT_TRUE(QDir(dir.path()).mkpath(QLatin1String(folder)));
    fileIn(dir, "in/a.docm", docm);
    fileIn(dir, "in/a.docx", docx);
    const VxcamRun both = runVxcam({"disarm", dir.filePath("in/a.docm"), dir.filePath("in/a.docx"), "--policy",
                                    policy, "-o", dir.filePath("in")});
    EXPECT_EQ(both.exitCode, 1);
    EXPECT_TRUE(both.err.contains("a.docm: the output " + dir.filePath("in/a.docx").toUtf8()
                                  + " would overwrite an input")) << both.err.toStdString();
    EXPECT_TRUE(readFile(dir.filePath("in/a.docx")) == docx);

    fileIn(dir, "victim", "untouched");
    ASSERT_TRUE(QDir().mkpath(dir.filePath("out")));
    ASSERT_TRUE(QFile::link(dir.filePath("victim"), dir.filePath("out/a.docx")));
    const VxcamRun linked = runVxcam({"disarm", dir.filePath("in/a.docx"), "--policy", policy, "-o",
                                      dir.filePath("out")});
    EXPECT_EQ(linked.exitCode, 1);
    EXPECT_TRUE(linked.err.contains("is a link or not a plain file")) << linked.err.toStdString();
    EXPECT_EQ(readFile(dir.filePath("victim")), QByteArray("untouched"));

    fileIn(dir, "walk/a.docx", docx);
    fileIn(dir, "walk/b.docm", docm);
    for (int run = 0; run < 2; ++run) {
        const VxcamRun walk = runVxcam({"-r", "disarm", dir.filePath("walk"), "--policy", policy, "-o",
                                        dir.filePath("walk/clean"), "--report-dir", dir.filePath("walk/reports")});
        EXPECT_EQ(walk.exitCode, 0) << "run " << run << ": " << walk.err.toStdString();
        EXPECT_EQ(walk.out.count('\n'), 2) << walk.out.toStdString();
    }
}

// A document exported and imported under the same policy comes out as the
// direct run writes it, under the same name.
TEST(VxcamDisarm, AnImportedStreamDisarmsAsTheDirectRun)
{
    QTemporaryDir dir;
    const QString policy = fileIn(dir, "policy.xml", kSanitiseAll);
    const QString doc = fixture("macros.docm");
    ASSERT_EQ(runVxcam({"disarm", doc, "--policy", policy, "-o", dir.filePath("direct")}).exitCode, 0);
    ASSERT_EQ(runVxcam({"export", doc, "--policy", policy, "-o", dir.filePath("a.zip")}).exitCode, 0);
    const VxcamRun imported = runVxcam({"import", dir.filePath("a.zip"), "--policy", policy, "-o", dir.filePath("in")});
    ASSERT_EQ(imported.exitCode, 0) << imported.err.toStdString();
    EXPECT_EQ(QDir(dir.filePath("in")).entryList(QDir::Files), QStringList{"macros.docx"});
    const auto bytes = [&](const char *name) { return readFile(dir.filePath(QLatin1String(name))); };
    EXPECT_FALSE(bytes("direct/macros.docx").isEmpty());
    EXPECT_TRUE(bytes("in/macros.docx") == bytes("direct/macros.docx"));
}

// The outputs of a policy that sanitises everything still open in an office
// suite: each converts to PDF.
TEST(VxcamDisarm, SanitisedOutputsConvertToPdf)
{
    const QString office = QStandardPaths::findExecutable(QStringLiteral("libreoffice"));
    if (office.isEmpty())
        GTEST_SKIP() << "LibreOffice is not installed (apt-get install libreoffice-writer libreoffice-calc "
                        "libreoffice-impress)";
    QTemporaryDir dir;
    const QString policy = fileIn(dir, "policy.xml", kSanitiseAll);
    const QStringList names = {"lo-writer.docx", "pydocx.docx", "macros.docm", "lo-calc.xlsx", "openpyxl.xlsx",
                               "lo-impress.pptx"};
    QStringList args = {"disarm", "--policy", policy, "-o", dir.filePath("out")};
    for (const QString &name : names)
        args << fixture(name.toLatin1().constData());
    ASSERT_EQ(runVxcam(args).exitCode, 0);

    QProcess convert;
    QStringList outputs = QDir(dir.filePath("out")).entryList(QDir::Files);
    ASSERT_EQ(outputs.size(), names.size());
    QStringList convertArgs = {"-env:UserInstallation=file://" + dir.filePath("profile"), "--headless",
                               "--convert-to", "pdf", "--outdir", dir.filePath("pdf")};
    for (const QString &output : outputs)
        convertArgs << dir.filePath("out/" + output);
    convert.start(office, convertArgs);
    ASSERT_TRUE(convert.waitForFinished(180000));
    for (const QString &output : outputs) {
        const QFileInfo pdf(dir.filePath("pdf/" + QFileInfo(output).completeBaseName() + ".pdf"));
        EXPECT_TRUE(pdf.exists() && pdf.size() > 0) << output.toStdString();
    }
}

} // namespace
