#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

struct Outcome
{
    int exitCode;
    QList<QByteArray> lines;
    QByteArray errors;
};

Outcome vxcam(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(VXCAM_PATH), arguments);
    EXPECT_TRUE(process.waitForFinished(60000)) << "vxcam did not finish";
    const QList<QByteArray> lines = process.readAllStandardOutput().split('\n');
    Outcome outcome{process.exitCode(), {}, process.readAllStandardError()};
    for (const QByteArray &line : lines)
        if (!line.isEmpty())
            outcome.lines << line;
    return outcome;
}

// One JSON object per line, keyed by the path it names.
QMap<QString, QJsonObject> objectsByPath(const Outcome &run)
{
    QMap<QString, QJsonObject> objects;
    for (const QByteArray &line : run.lines) {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(line, &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
        objects.insert(document.object().value(QStringLiteral("path")).toString(), document.object());
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
    const Outcome run = vxcam({"--json", "identify", fixture("sample.docx"), fixture("plain.zip"),
                           fixture("sample.gz"), fixture("v7.tar"), fixture("sample.xz"), text, missing});
    EXPECT_EQ(run.exitCode, 1) << "a file that cannot be read fails the run";
    EXPECT_TRUE(run.errors.contains("absent.zip")) << run.errors.toStdString();

    const QMap<QString, QJsonObject> objects = objectsByPath(run);
    ASSERT_EQ(objects.size(), 7);
    struct Expected
    {
        QString path;
        int type;
        const char *typeName;
        const char *method;
        int opcSubtype;
        int extensionType;
    } const cases[] = {
        {fixture("sample.docx"), 0, "ft_unknown", "structure match", 18, 18},
        {fixture("plain.zip"), 256, "ft_zip", "signature match", 0, 0},
        {fixture("sample.gz"), 257, "ft_gzip", "signature match", 0, 0},
        {fixture("v7.tar"), 261, "ft_tar", "structure match", 0, 0},
        {fixture("sample.xz"), 0, "ft_unknown", "Reason unknown", 0, 0},
        {text, 0, "ft_unknown", "Reason unknown", 0, 0},
    };
    for (const Expected &c : cases) {
        const QJsonObject object = objects.value(c.path);
        const std::string what = c.path.toStdString();
        EXPECT_EQ(object.value(QStringLiteral("type")).toInt(-1), c.type) << what;
        EXPECT_EQ(object.value(QStringLiteral("type_name")).toString(), QLatin1String(c.typeName)) << what;
        EXPECT_EQ(object.value(QStringLiteral("method")).toString(), QLatin1String(c.method)) << what;
        EXPECT_EQ(object.value(QStringLiteral("opc_subtype")).toInt(-1), c.opcSubtype) << what;
        EXPECT_EQ(object.value(QStringLiteral("extension_type")).toInt(-1), c.extensionType) << what;
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
    ASSERT_EQ(run.lines.size(), 2);
    const QString all = QString::fromUtf8(run.lines.join('\n'));
    EXPECT_TRUE(all.contains(QStringLiteral("archive type 258 (ft_bzip2): signature match"))) << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("archive type 0 (ft_unknown): structure match; Office Open XML 22 (ft_xlsx)")))
        << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("extension type 22 (ft_xlsx)"))) << "the extension columns stay";
}
