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
    } const cases[] = {
        {fixture("sample.docx"), 0, "ft_unknown", "structure match", 18, 18, 0, ""},
        {fixture("plain.zip"), 256, "ft_zip", "signature match", 0, 0, 0, ""},
        {fixture("sample.gz"), 257, "ft_gzip", "signature match", 0, 0, 0, ""},
        {fixture("v7.tar"), 261, "ft_tar", "structure match", 0, 0, 0, ""},
        {fixture("sample.xz"), 0, "ft_unknown", "Reason unknown", 0, 0, 0, ""},
        {text, 0, "ft_unknown", "Reason unknown", 0, 0, 0, ""},
        {doc, 0, "ft_unknown", "Reason unknown", 0, 17, 17, "class identifier"},
        {xls, 0, "ft_unknown", "Reason unknown", 0, 21, 21, "structure match"},
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
}
