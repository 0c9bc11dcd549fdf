#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDir>
#include <QHash>
#include <QPair>
#include <gtest/gtest.h>

// The command's own job: arguments, output forms, exit status and error lines.
// What the answers are is the identification library's tests' business.

namespace {

// Each file's object must hold every key of its expected object, with that value.
void expectObjects(const VxcamRun &run, const QList<QPair<QString, const char *>> &expected)
{
    QHash<QString, QJsonObject> byPath;
    for (const QJsonObject &object : run.jsonLines())
        byPath.insert(object.value(QStringLiteral("path")).toString(), object);
    for (const auto &file : expected) {
        const QJsonObject want = QJsonDocument::fromJson(file.second).object(), got = byPath.value(file.first);
        ASSERT_FALSE(want.isEmpty()) << file.second;
        for (auto key = want.begin(); key != want.end(); ++key)
            EXPECT_TRUE(got.value(key.key()) == key.value())
                << file.first.toStdString() << ": " << key.key().toStdString()
                << " in " << QJsonDocument(got).toJson(QJsonDocument::Compact).constData();
    }
}

} // namespace

// Bad inputs are one line each, naming the file, and the other files are still reported.
TEST(VxcamIdentify, JsonLinesForEveryFileAndErrorsForTheBadOnes)
{
    QTemporaryDir dir;
    const QString gzip = fixturePath(QStringLiteral("archives/sample.gz"));
    const QString text = writeTestFile(dir, "notes.txt", "just some words\n");
    const QString empty = writeTestFile(dir, "empty.bin", QByteArray());
    const QString missing = dir.filePath(QStringLiteral("absent.zip"));
    const VxcamRun run = runVxcam({"--json", "identify", gzip, missing, dir.path(), text, empty});
    EXPECT_EQ(run.exitCode, 1) << "a file that cannot be read fails the run";
    EXPECT_EQ(QString::fromUtf8(run.err), "vxcam: " + dir.path() + ": is a directory (use -r to walk it)\n"
              "vxcam: " + missing + ": no such file\nvxcam: " + empty + ": File size is 0\n");
    const QList<QJsonObject> lines = run.jsonLines();
    ASSERT_EQ(lines.size(), 5);
    EXPECT_EQ(lines.value(1).keys(), (QStringList{
        "answer", "answer_method", "answer_name", "answered_by", "camera", "camera_id", "cfb_method", "cfb_subtype",
        "cfb_subtype_name", "description", "extension", "extension_type", "extension_type_name", "main_method",
        "main_type", "main_type_name", "method", "opc_subtype", "opc_subtype_name", "path", "plugin_extension_type",
        "type", "type_name"})) << "the first file's object, after the directory's error";
    expectObjects(run, {
        {gzip, R"({"type":257,"type_name":"ft_gzip","method":"signature match","answered_by":"sub-type",
            "answer":257,"answer_method":"signature match","camera":"libfileidentifier.so"})"},
        {text, R"({"type":0,"answered_by":"none","answer":0,"camera":""})"},
        {missing, R"({"error":"no such file"})"},
        {dir.path(), R"j({"error":"is a directory (use -r to walk it)"})j"},
        {empty, R"({"error":"File size is 0"})"},
    });
}

TEST(VxcamIdentify, HumanLinesAndDirectoryWalk)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("sub")));
    const QString file = dir.filePath(QStringLiteral("sub/d.bz2"));
    ASSERT_TRUE(QFile::copy(fixturePath(QStringLiteral("archives/sample.bz2")), file));
    const VxcamRun run = runVxcam({"identify", "-r", dir.path()});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(QString::fromUtf8(run.out), file + QStringLiteral(": extension type 0 (ft_unknown), camera 0; "
        "archive type 258 (ft_bzip2): signature match; identified by the sub-type question as "
        "258 (ft_bzip2): signature match [libfileidentifier.so]\n"));
}

// Plug-in directories of the test's own. The xls test camera of tests/plugins
// answers 21 (main type) and 780 (sub-type) for buffers starting "XLS", and
// 21 for the extension "xls".
TEST(VxcamIdentify, OnlyThePluginsOfTheDirectoryAreAskedEachQuestionInTurn)
{
    QTemporaryDir plugins, files;
    const QString missing = plugins.filePath(QStringLiteral("missing"));
    const QString gzip = writeTestFile(files, "packed.gz", QByteArray::fromHex("1f8b0800"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_NOT_A_PLUGIN), plugins.filePath(QStringLiteral("plain.so"))));
    const QString empty = plugins.path();
    for (const auto &c : {qMakePair(missing, QStringLiteral("vxcam: identify: no plug-in directory %1\n").arg(missing)),
                          qMakePair(empty, QStringLiteral("vxcam: identify: no camera plug-ins in %1\n").arg(empty))}) {
        const VxcamRun run = runVxcam({"--plugins", c.first, "identify", gzip});
        EXPECT_EQ(run.exitCode, 1) << c.second.toStdString();
        EXPECT_EQ(QString::fromUtf8(run.err), c.second);
        EXPECT_TRUE(run.out.isEmpty()) << "no file is reported";
    }

    ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_XLS), plugins.filePath(QStringLiteral("xls.so")))
                && QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), plugins.filePath("libfileidentifier.so")));
    const QString sheet = writeTestFile(files, "sheet.bin", "XLS and more");
    const QString named = writeTestFile(files, "named.xls", "plain words");
    const VxcamRun run = runVxcam({"--json", "--plugins", plugins.path(), "identify", sheet, named, gzip});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    expectObjects(run, {
        {sheet, R"({"answered_by":"main-type","answer":21,"answer_method":"xls: main type","camera":"xls.so"})"},
        {named, R"({"answered_by":"extension","answer":21,"camera":"xls.so","plugin_extension_type":21})"},
        {gzip, R"({"answered_by":"sub-type","answer":257,"camera":"libfileidentifier.so"})"},
    });
}
