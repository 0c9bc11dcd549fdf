#include "qtprinters.h"
#include "vxcamrunner.h"

#include <gtest/gtest.h>

// "vxcam cameras" over directories of test modules (see tests/plugins): two
// cameras, one plug-in of another interface version and a plain library.
TEST(VxcamCameras, ListsLoadedPluginsInNameOrderAndRefusesBadArguments)
{
    const QTemporaryDir dir, empty;
    const char *const modules[][2] = {{VX_TEST_MODULE_XLS, "b.so"}, {VX_TEST_MODULE_DECLINE, "a.so"},
                                      {VX_TEST_MODULE_OTHER_IID, "old.so"}, {VX_TEST_MODULE_NOT_A_PLUGIN, "plain.so"}};
    for (const auto &module : modules)
        ASSERT_TRUE(QFile::copy(QString::fromUtf8(module[0]), dir.filePath(QLatin1String(module[1]))));
    const VxcamRun json = runVxcam({"--json", "--plugins", dir.path(), "cameras"});
    EXPECT_EQ(json.exitCode, 0) << json.err.constData();
    EXPECT_EQ(json.jsonLines(), (QList<QJsonObject>{
        {{"plugin", "a.so"}, {"path", dir.filePath(QStringLiteral("a.so"))}, {"type", 17}, {"type_name", "ft_doc"}},
        {{"plugin", "b.so"}, {"path", dir.filePath(QStringLiteral("b.so"))}, {"type", 21}, {"type_name", "ft_xls"}}}));

    const QString missing = empty.filePath(QStringLiteral("missing"));
    const struct { QStringList arguments; int exitCode; QString out; QString err; } cases[] = {
        // The pool's log shows only with --verbose.
        {{"--plugins", dir.path(), "cameras"}, 0, "a.so: type 17 (ft_doc)\nb.so: type 21 (ft_xls)\n", {}},
        // A folder without camera plug-ins is an error, as for identify.
        {{"--plugins", empty.path(), "cameras"}, 1, {}, "vxcam: cameras: no camera plug-ins in " + empty.path() + "\n"},
        {{"--json", "--plugins", empty.path(), "cameras"}, 1, {},
         "vxcam: cameras: no camera plug-ins in " + empty.path() + "\n"},
        {{"--plugins", missing, "cameras"}, 1, {}, "vxcam: cameras: no plug-in directory " + missing + "\n"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = runVxcam(c.arguments);
        const std::string what = c.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(run.exitCode, c.exitCode) << what;
        EXPECT_EQ(QString::fromUtf8(run.out), c.out) << what;
        EXPECT_EQ(QString::fromUtf8(run.err), c.err) << what;
    }
}
