#include "fixtures/fixtures.h"
#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

struct Outcome
{
    int exitCode;
    QByteArray out;
    QList<QJsonObject> lines;
    QByteArray errors;
};

Outcome vxcam(const QStringList &arguments)
{
    const VxcamRun run = runVxcam(arguments);
    EXPECT_GE(run.exitCode, 0) << "vxcam did not finish";
    return Outcome{run.exitCode, run.out, run.jsonLines(), run.err};
}

// One JSON object per line, keyed by the path it names.
QMap<QString, QJsonObject> objectsByPath(const Outcome &run)
{
    QMap<QString, QJsonObject> objects;
    for (const QJsonObject &object : run.lines) {
        EXPECT_FALSE(object.isEmpty()) << "every line is a JSON object";
        objects.insert(object.value(QStringLiteral("path")).toString(), object);
    }
    return objects;
}

QString fixture(const char *name)
{
    return fixturePath(QStringLiteral("archives/") + QLatin1String(name));
}

} // namespace

TEST(VxcamIdentify, JsonLinesNameTypeMethodAndPackageKind)
{
    QTemporaryDir dir;
    const QString text = dir.filePath(QStringLiteral("notes.txt"));
    {
        QFile file(text);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("just some words\n");
    }
    const QString missing = dir.filePath(QStringLiteral("absent.zip"));
    const QString doc = fixturePath(QStringLiteral("cfb/writer.doc"));
    const QString xls = fixturePath(QStringLiteral("cfb/calc.xls"));
    const Outcome run = vxcam({"--json", "identify", fixture("sample.docx"), fixture("plain.zip"), fixture("sample.gz"),
                               fixture("v7.tar"), fixture("sample.xz"), text, doc, xls, missing});
    EXPECT_EQ(run.exitCode, 1) << "a file that cannot be read fails the run";
    EXPECT_TRUE(run.errors.contains("absent.zip")) << run.errors.toStdString();

    const QMap<QString, QJsonObject> objects = objectsByPath(run);
    ASSERT_EQ(objects.size(), 9);
    // type and method: the archive kind, from the plug-ins' sub-type question;
    // answered_by, answer and camera: the first question answered.
    struct Expected
    {
        QString path;
        int type;
        const char *typeName;
        const char *method;
        int opcSubtype;
        int extensionType;
        int cfbSubtype;
        const char *cfbMethod;
        const char *answeredBy;
        int answer;
        const char *answerMethod;
        const char *camera;
    } const cases[] = {
        {fixture("sample.docx"), 0, "ft_unknown", "structure match", 18, 18, 0, "", "extension", 18,
         "file-type registry", ""},
        {fixture("plain.zip"), 256, "ft_zip", "signature match", 0, 0, 0, "", "sub-type", 256, "signature match",
         "libfileidentifier.so"},
        {fixture("sample.gz"), 257, "ft_gzip", "signature match", 0, 0, 0, "", "sub-type", 257, "signature match",
         "libfileidentifier.so"},
        {fixture("v7.tar"), 261, "ft_tar", "structure match", 0, 0, 0, "", "sub-type", 261, "structure match",
         "libfileidentifier.so"},
        {fixture("sample.xz"), 0, "ft_unknown", "Reason unknown", 0, 0, 0, "", "none", 0, "", ""},
        {text, 0, "ft_unknown", "Reason unknown", 0, 0, 0, "", "none", 0, "", ""},
        {doc, 0, "ft_unknown", "Reason unknown", 0, 17, 17, "class identifier", "extension", 17,
         "file-type registry", ""},
        {xls, 0, "ft_unknown", "Reason unknown", 0, 21, 21, "structure match", "extension", 21,
         "file-type registry", ""},
    };
    for (const Expected &c : cases) {
        const QJsonObject object = objects.value(c.path);
        const std::string what = c.path.toStdString();
        EXPECT_EQ(object.value(QStringLiteral("type")).toInt(-1), c.type) << what;
        EXPECT_EQ(object.value(QStringLiteral("type_name")).toString(), QLatin1String(c.typeName)) << what;
        EXPECT_EQ(object.value(QStringLiteral("method")).toString(), QLatin1String(c.method)) << what;
        EXPECT_EQ(object.value(QStringLiteral("opc_subtype")).toInt(-1), c.opcSubtype) << what;
        EXPECT_EQ(object.value(QStringLiteral("extension_type")).toInt(-1), c.extensionType) << what;
        EXPECT_EQ(object.value(QStringLiteral("cfb_subtype")).toInt(-1), c.cfbSubtype) << what;
        EXPECT_EQ(object.value(QStringLiteral("cfb_method")).toString(), QLatin1String(c.cfbMethod)) << what;
        EXPECT_EQ(object.value(QStringLiteral("answered_by")).toString(), QLatin1String(c.answeredBy)) << what;
        EXPECT_EQ(object.value(QStringLiteral("answer")).toInt(-1), c.answer) << what;
        EXPECT_EQ(object.value(QStringLiteral("answer_method")).toString(), QLatin1String(c.answerMethod)) << what;
        EXPECT_EQ(object.value(QStringLiteral("camera")).toString(), QLatin1String(c.camera)) << what;
        EXPECT_EQ(object.value(QStringLiteral("main_type")).toInt(-1), 0) << what << ": nobody's main type";
        EXPECT_FALSE(object.contains(QStringLiteral("error"))) << what;
    }
    const QJsonObject failed = objects.value(missing);
    EXPECT_FALSE(failed.value(QStringLiteral("error")).toString().isEmpty());
    EXPECT_FALSE(failed.contains(QStringLiteral("type")));
}

TEST(VxcamIdentify, HumanLinesAndDirectoryWalk)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("sub")));
    ASSERT_TRUE(QFile::copy(fixture("sample.xlsx"), dir.filePath(QStringLiteral("sub/book.xlsx"))));
    ASSERT_TRUE(QFile::copy(fixture("sample.bz2"), dir.filePath(QStringLiteral("data.bz2"))));

    const Outcome run = vxcam({"identify", "-r", dir.path()});
    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    const QString all = QString::fromUtf8(run.out).trimmed();
    ASSERT_EQ(all.count(QLatin1Char('\n')), 1) << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("archive type 258 (ft_bzip2): signature match"))) << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("archive type 0 (ft_unknown): structure match; Office Open XML 22 (ft_xlsx)")))
        << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("extension type 22 (ft_xlsx)"))) << "the extension columns stay";
    EXPECT_TRUE(all.contains(QStringLiteral(
        "identified by the sub-type question as 258 (ft_bzip2): signature match [libfileidentifier.so]")))
        << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("identified by the extension question as 22 (ft_xlsx): file-type registry")))
        << all.toStdString();
}

// Plug-in directories of the test's own, with the test camera of
// tests/plugins that answers 21 (main type) and 780 (sub-type) for buffers
// starting "XLS", and 21 for the extension "xls".
class VxcamIdentifyPlugins : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_plugins.isValid() && m_files.isValid());
        m_xlsModule = QString::fromUtf8(VX_TEST_MODULE_XLS);
        m_fileIdentifier = QString::fromUtf8(VX_FILEIDENTIFIER_MODULE);
    }
    QString plugin(const QString &module, const char *name)
    {
        const QString target = m_plugins.filePath(QLatin1String(name));
        EXPECT_TRUE(QFile::copy(module, target)) << name;
        return target;
    }
    QString file(const char *name, const QByteArray &bytes)
    {
        const QString path = m_files.filePath(QLatin1String(name));
        QFile out(path);
        EXPECT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(bytes);
        return path;
    }

    QTemporaryDir m_plugins;
    QTemporaryDir m_files;
    QString m_xlsModule;
    QString m_fileIdentifier;
};

TEST_F(VxcamIdentifyPlugins, EachQuestionInTurnAndWhoAnswered)
{
    plugin(m_xlsModule, "xls.so");
    plugin(m_fileIdentifier, "libfileidentifier.so");
    const QString sheet = file("sheet.bin", "XLS and more");
    const QString named = file("named.xls", "plain words");
    const QString upper = file("DATA.FI", "plain words");
    const QString gzip = file("packed.bin", QByteArray::fromHex("1f8b0800"));
    const Outcome run = vxcam({"--json", "--plugins", m_plugins.path(), "identify", sheet, named, upper, gzip});
    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    const QMap<QString, QJsonObject> objects = objectsByPath(run);

    const struct
    {
        QString path;
        const char *answeredBy;
        int answer;
        const char *method;
        const char *camera;
        int type; // the sub-type question's answer
    } cases[] = {
        {sheet, "main-type", 21, "xls: main type", "xls.so", 780},
        {named, "extension", 21, "extension", "xls.so", 0},
        {upper, "extension", 783, "extension", "libfileidentifier.so", 0},
        {gzip, "sub-type", 257, "signature match", "libfileidentifier.so", 257},
    };
    for (const auto &c : cases) {
        const QJsonObject object = objects.value(c.path);
        const std::string what = c.path.toStdString();
        EXPECT_EQ(object.value(QStringLiteral("answered_by")).toString(), QLatin1String(c.answeredBy)) << what;
        EXPECT_EQ(object.value(QStringLiteral("answer")).toInt(-1), c.answer) << what;
        EXPECT_EQ(object.value(QStringLiteral("answer_method")).toString(), QLatin1String(c.method)) << what;
        EXPECT_EQ(object.value(QStringLiteral("camera")).toString(), QLatin1String(c.camera)) << what;
        EXPECT_EQ(object.value(QStringLiteral("type")).toInt(-1), c.type) << what;
    }
    EXPECT_EQ(objects.value(sheet).value(QStringLiteral("main_type")).toInt(), 21);
    EXPECT_EQ(objects.value(named).value(QStringLiteral("plugin_extension_type")).toInt(), 21);
}

TEST_F(VxcamIdentifyPlugins, OnlyThePluginsOfTheDirectoryAreAsked)
{
    plugin(m_xlsModule, "xls.so");
    const QString gzip = file("packed.gz", QByteArray::fromHex("1f8b0800"));
    const Outcome run = vxcam({"--json", "--plugins", m_plugins.path(), "identify", gzip});
    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    ASSERT_EQ(run.lines.size(), 1);
    const QJsonObject object = run.lines.first();
    EXPECT_EQ(object.value(QStringLiteral("type")).toInt(-1), 0) << "no archive identification without its plug-in";
    EXPECT_EQ(object.value(QStringLiteral("answered_by")).toString(), QStringLiteral("none"));
}

TEST_F(VxcamIdentifyPlugins, APluginDirectoryWithoutCamerasIsAnError)
{
    const QString text = file("notes.txt", "words");
    plugin(QString::fromUtf8(VX_TEST_MODULE_NOT_A_PLUGIN), "plain.so");
    const QString missing = m_plugins.filePath(QStringLiteral("missing"));
    const struct
    {
        QString directory;
        QString error;
    } cases[] = {
        {missing, QStringLiteral("vxcam: identify: no plug-in directory %1\n").arg(missing)},
        {m_plugins.path(), QStringLiteral("vxcam: identify: no camera plug-ins in %1\n").arg(m_plugins.path())},
    };
    for (const auto &c : cases) {
        const Outcome run = vxcam({"--plugins", c.directory, "identify", text});
        EXPECT_EQ(run.exitCode, 1) << c.directory.toStdString();
        EXPECT_EQ(QString::fromUtf8(run.errors), c.error);
        EXPECT_TRUE(run.out.isEmpty()) << "no file is reported";
    }
}
