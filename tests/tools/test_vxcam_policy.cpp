#include "qtprinters.h"
#include "vxcamrunner.h"

#include <gtest/gtest.h>

TEST(VxcamPolicy, ListsEverySwitchWithWhatItMeans)
{
    const QTemporaryDir dir;
    const QString path = writeTestFile(dir, "policy.xml",
                                       "<config><wordConfig><macros>allow</macros><metadata>Allow</metadata></wordConfig>"
                                       "<sysConfig><interchange_type>xml</interchange_type></sysConfig></config>");
    const VxcamRun run = runVxcam({"--json", "policy", path});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const QList<QJsonObject> lines = run.jsonLines();
    ASSERT_EQ(lines.size(), 4) << run.out.constData();
    EXPECT_EQ(lines[0][QStringLiteral("switch")].toString(), QStringLiteral("interchange_type"));
    EXPECT_EQ(lines[1][QStringLiteral("switch")].toString(), QStringLiteral("macros"));
    EXPECT_EQ(lines[1][QStringLiteral("setting_name")].toString(), QStringLiteral("allow"));
    EXPECT_EQ(lines[2][QStringLiteral("setting")].toInt(), 0) << "Allow is not a setting";
    EXPECT_FALSE(lines[2][QStringLiteral("note")].toString().isEmpty());
    EXPECT_EQ(lines[3][QStringLiteral("interchange_type")].toString(), QStringLiteral("xml"));

    const VxcamRun table = runVxcam({"policy", path});
    EXPECT_EQ(table.exitCode, 0);
    EXPECT_TRUE(table.out.startsWith("PROFILE")) << table.out.constData();
    EXPECT_TRUE(table.out.contains("wordConfig  macros")) << table.out.constData();
}

TEST(VxcamPolicy, BadInputGivesOneClearLine)
{
    const QTemporaryDir dir;
    const struct
    {
        QString path;
        const char *message;
    } cases[] = {
        {dir.filePath(QStringLiteral("absent.xml")), "no such file"},
        {dir.path(), "not a regular file"},
        {writeTestFile(dir, "wrong-root.xml", "<settings/>"), "not a policy document"},
        {writeTestFile(dir, "empty.xml", ""), "is empty"},
        {writeTestFile(dir, "binary.xml", QByteArray("\x00\xff\x10", 3)), "not a policy document"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = runVxcam({"policy", c.path});
        EXPECT_EQ(run.exitCode, 1) << c.message;
        ASSERT_EQ(run.errLines().size(), 1) << run.err.constData();
        EXPECT_TRUE(run.err.contains(c.message) && run.err.contains(c.path.toUtf8())) << run.err.constData();
    }
}
