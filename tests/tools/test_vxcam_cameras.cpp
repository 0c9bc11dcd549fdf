#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// Runs "vxcam cameras" over a directory of test modules (see tests/plugins).

namespace {

VxcamRun vxcam(const QStringList &arguments)
{
    const VxcamRun run = runVxcam(arguments);
    if (run.exitCode < 0)
        ADD_FAILURE() << "vxcam did not finish normally: " << arguments.join(QLatin1Char(' ')).toStdString();
    return run;
}

class VxcamCameras : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        add(VX_TEST_MODULE_XLS, "b.so");
        add(VX_TEST_MODULE_DECLINE, "a.so");
        add(VX_TEST_MODULE_OTHER_IID, "old.so");
        add(VX_TEST_MODULE_NOT_A_PLUGIN, "plain.so");
    }
    void add(const char *module, const char *name)
    {
        ASSERT_TRUE(QFile::copy(QString::fromUtf8(module), m_dir.filePath(QString::fromLatin1(name)))) << name;
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(VxcamCameras, ListsLoadedPluginsInNameOrder)
{
    const VxcamRun run = vxcam({QStringLiteral("--plugins"), m_dir.path(), QStringLiteral("cameras")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QByteArray("a.so: type 17 (ft_doc)\nb.so: type 21 (ft_xls)\n"));
    EXPECT_EQ(run.err, QByteArray()) << "the pool's log shows only with --verbose";
}

TEST_F(VxcamCameras, JsonGivesOneObjectPerPlugin)
{
    const VxcamRun run = vxcam({QStringLiteral("--json"), QStringLiteral("--plugins"), m_dir.path(), QStringLiteral("cameras")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QList<QByteArray> lines = run.out.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 2) << run.out.toStdString();
    const QJsonObject first = QJsonDocument::fromJson(lines.at(0)).object();
    EXPECT_EQ(first.value(QStringLiteral("plugin")).toString(), QStringLiteral("a.so"));
    EXPECT_EQ(first.value(QStringLiteral("path")).toString(), m_dir.filePath(QStringLiteral("a.so")));
    EXPECT_EQ(first.value(QStringLiteral("type")).toInt(), 17);
    EXPECT_EQ(first.value(QStringLiteral("type_name")).toString(), QStringLiteral("ft_doc"));
    const QJsonObject second = QJsonDocument::fromJson(lines.at(1)).object();
    EXPECT_EQ(second.value(QStringLiteral("plugin")).toString(), QStringLiteral("b.so"));
    EXPECT_EQ(second.value(QStringLiteral("type")).toInt(), 21);
}

TEST(VxcamCamerasErrors, EmptyMissingDirectoryAndStrayArguments)
{
    const QTemporaryDir empty;
    ASSERT_TRUE(empty.isValid());
    const QString missing = empty.filePath(QStringLiteral("missing"));

    VxcamRun run = vxcam({QStringLiteral("--plugins"), empty.path(), QStringLiteral("cameras")});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, QStringLiteral("no camera plug-ins in %1\n").arg(empty.path()).toUtf8());

    run = vxcam({QStringLiteral("--json"), QStringLiteral("--plugins"), empty.path(), QStringLiteral("cameras")});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, QByteArray()) << "no objects, no prose in JSON Lines";

    run = vxcam({QStringLiteral("--plugins"), missing, QStringLiteral("cameras")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("vxcam: cameras: no plug-in directory %1\n").arg(missing).toUtf8());

    run = vxcam({QStringLiteral("--plugins"), empty.path(), QStringLiteral("cameras"), QStringLiteral("extra")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QByteArray("vxcam: cameras: takes no arguments\n"));
}
