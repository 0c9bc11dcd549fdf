#include "qtprinters.h"
#include "vxcamrunner.h"

#include <gtest/gtest.h>

TEST(VxcamPolicy, ListsEverySwitchWithWhatItMeans)
{
    const QTemporaryDir dir;
    const QString path = fileIn(dir, "policy.xml",
        "<config><wordConfig><macros>allow</macros><metadata>Allow</metadata></wordConfig>"
        "<sysConfig><interchange_type>xml</interchange_type></sysConfig></config>");
    const VxcamRun table = runVxcam({"policy", path});
    EXPECT_EQ(table.exitCode, 0) << table.err.constData();
    EXPECT_EQ(table.out, QByteArray("PROFILE     SWITCH            VALUE  SETTING\n"
                                    "sysConfig   interchange_type  xml\n"
                                    "wordConfig  macros            allow  allow\n"
                                    "wordConfig  metadata          Allow  ?  "
                                    "(not a setting: use allow, sanitise or disallow)\n"
                                    "interchange: xml\n"));

    const VxcamRun run = runVxcam({"--json", "policy", path});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    const QString note = QStringLiteral("not a setting: use allow, sanitise or disallow");
    EXPECT_EQ(run.jsonLines(), (QList<QJsonObject>{
        {{"path", path}, {"profile", "sysConfig"}, {"switch", "interchange_type"}, {"value", "xml"}},
        {{"path", path}, {"profile", "wordConfig"}, {"switch", "macros"}, {"value", "allow"}, {"setting", 3},
         {"setting_name", "allow"}},
        {{"path", path}, {"profile", "wordConfig"}, {"switch", "metadata"}, {"value", "Allow"}, {"setting", 0},
         {"setting_name", ""}, {"note", note}},
        {{"path", path}, {"interchange_type", "xml"}, {"interchange_pretty", false}}}));
}

TEST(VxcamPolicy, BadInputGivesOneClearLine)
{
    const QTemporaryDir dir;
    const struct { QString path; const char *message; } cases[] = {
        {dir.filePath(QStringLiteral("absent.xml")), "no such file"},
        {dir.path(), "not a regular file"},
        {fileIn(dir, "wrong-root.xml", "<settings/>"), "not a policy document"},
        {fileIn(dir, "empty.xml", ""), "is empty"},
        {fileIn(dir, "binary.xml", QByteArray("\x00\xff\x10", 3)), "not a policy document"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = runVxcam({"policy", c.path});
        EXPECT_EQ(run.exitCode, 1) << c.message;
        EXPECT_TRUE(run.oneErrorLine() && run.err.contains(c.message) && run.err.contains(c.path.toUtf8()))
            << run.err.constData();
    }
}
