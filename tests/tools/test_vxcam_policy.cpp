#include "vxcamrunner.h"

#include "qtprinters.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

class VxcamPolicy : public ::testing::Test
{
protected:
    QString write(const char *name, const QByteArray &content)
    {
        const QString path = m_dir.filePath(QString::fromLatin1(name));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        return path;
    }
    QTemporaryDir m_dir;
};

} // namespace

TEST_F(VxcamPolicy, ListsEverySwitchWithWhatItMeans)
{
    const QString path = write("policy.xml", "<config><wordConfig><macros>allow</macros>"
                                             "<metadata>Allow</metadata></wordConfig>"
                                             "<sysConfig><interchange_type>xml</interchange_type></sysConfig>"
                                             "</config>");
    const VxcamRun run = runVxcam({QStringLiteral("--json"), QStringLiteral("policy"), path});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const QList<QJsonObject> lines = run.jsonLines();
    ASSERT_EQ(lines.size(), 4) << run.out.constData();
    EXPECT_EQ(lines[0][QStringLiteral("switch")].toString(), QStringLiteral("interchange_type"));
    EXPECT_EQ(lines[1][QStringLiteral("switch")].toString(), QStringLiteral("macros"));
    EXPECT_EQ(lines[1][QStringLiteral("setting_name")].toString(), QStringLiteral("allow"));
    EXPECT_EQ(lines[2][QStringLiteral("setting")].toInt(), 0) << "Allow is not a setting";
    EXPECT_FALSE(lines[2][QStringLiteral("note")].toString().isEmpty());
    EXPECT_EQ(lines[3][QStringLiteral("interchange_type")].toString(), QStringLiteral("xml"));

    const VxcamRun table = runVxcam({QStringLiteral("policy"), path});
    EXPECT_EQ(table.exitCode, 0);
    EXPECT_TRUE(table.out.startsWith("PROFILE")) << table.out.constData();
    EXPECT_TRUE(table.out.contains("wordConfig  macros")) << table.out.constData();
}

TEST_F(VxcamPolicy, BadInputGivesOneClearLine)
{
    const struct
    {
        QString path;
        const char *message;
    } cases[] = {
        {m_dir.filePath(QStringLiteral("absent.xml")), "no such file"},
        {m_dir.path(), "not a regular file"},
        {write("wrong-root.xml", "<settings/>"), "not a policy document"},
        {write("empty.xml", ""), "is empty"},
        {write("binary.xml", QByteArray("\x00\xff\x10", 3)), "not a policy document"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = runVxcam({QStringLiteral("policy"), c.path});
        EXPECT_EQ(run.exitCode, 1) << c.message;
        ASSERT_EQ(run.errLines().size(), 1) << run.err.constData();
        EXPECT_TRUE(run.err.contains(c.message)) << run.err.constData();
        EXPECT_TRUE(run.err.contains(c.path.toUtf8())) << run.err.constData();
    }
}
