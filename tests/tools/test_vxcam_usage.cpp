#include "qtprinters.h"
#include "vxcamrunner.h"

#include <QDir>
#include <QRegularExpression>
#include <gtest/gtest.h>

// vxcam as a whole: exit statuses, help, version, and where it looks for
// camera plug-ins. What each subcommand answers is its own test's business.

namespace {

// The subcommands "vxcam --help" lists.
QStringList listedCommands()
{
    const QString help = QString::fromUtf8(runVxcam({"--help"}).out);
    const QString commands = help.section(QStringLiteral("commands:\n"), 1).section(QStringLiteral("\n\n"), 0, 0);
    QStringList names;
    for (const QString &line : commands.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        names << line.trimmed().section(QLatin1Char(' '), 0, 0);
    return names;
}

} // namespace

// Usage errors are 2 with one line on standard error, asked-for help and
// version are 0 on standard output.
TEST(VxcamUsage, ExitStatusesAndWhereTheTextGoes)
{
    const struct { QStringList arguments; int exitCode; const char *out; const char *err; } cases[] = {
        {{}, 2, "", "^usage: vxcam "},
        {{"--help"}, 0, "^usage: vxcam ", ""},
        {{"help"}, 0, "^usage: vxcam ", ""},
        {{"--bogus"}, 2, "", "^vxcam: unknown option --bogus \\(see vxcam --help\\)\n$"},
        {{"nosuch"}, 2, "", "^vxcam: unknown command nosuch \\(see vxcam --help\\)\n$"},
        {{"help", "nosuch"}, 2, "", "^vxcam: unknown command nosuch"},
        {{"--plugins"}, 2, "", "^vxcam: --plugins needs a directory"},
        {{"cameras", "--plugins="}, 2, "", "^vxcam: --plugins needs a directory"},
        {{"--version"}, 0, "^vxcam " VX_VERSION "\n$", ""},
        {{"policy", "--version"}, 0, "^vxcam " VX_VERSION "\n$", ""},
        {{"version"}, 0, "^vxcam " VX_VERSION "\n$", ""},
        {{"--json", "version"}, 0, "^\\{\"version\":\"" VX_VERSION "\"\\}\n$", ""},
        {{"version", "extra"}, 2, "", "^vxcam: version: takes no arguments \\(see vxcam help version\\)\n$"},
        {{"cameras", "extra"}, 2, "", "^vxcam: cameras: takes no arguments \\(see vxcam help cameras\\)\n$"},
        {{"cameras", "--bogus"}, 2, "", "^vxcam: cameras: unknown option --bogus \\(see vxcam help cameras\\)\n$"},
        {{"policy"}, 2, "", "^vxcam: policy: expects one policy file \\(see vxcam help policy\\)\n$"},
        {{"policy", "a.xml", "b.xml"}, 2, "", "^vxcam: policy: expects one policy file"},
        {{"policy", "--bogus", "a.xml"}, 2, "", "^vxcam: policy: unknown option --bogus"},
    };
    for (const auto &c : cases) {
        const VxcamRun run = runVxcam(c.arguments);
        const std::string what = c.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(run.exitCode, c.exitCode) << what;
        EXPECT_TRUE(QString::fromUtf8(run.out).contains(QRegularExpression(QString::fromUtf8(c.out))))
            << what << ": " << run.out.constData();
        EXPECT_TRUE(QString::fromUtf8(run.err).contains(QRegularExpression(QString::fromUtf8(c.err))))
            << what << ": " << run.err.constData();
        if (*c.err == '\0') {
            EXPECT_TRUE(run.err.isEmpty()) << what << ": " << run.err.constData();
        }
    }
}

// Every subcommand has help of its own, the same by both spellings.
TEST(VxcamUsage, HelpForEachCommand)
{
    const QStringList commands = listedCommands();
    ASSERT_TRUE(commands.contains(QStringLiteral("cameras")) && commands.contains(QStringLiteral("policy")))
        << commands.join(QLatin1Char(' ')).toStdString();
    for (const QString &command : commands) {
        const VxcamRun help = runVxcam({"help", command});
        const VxcamRun option = runVxcam({command, "--help"});
        EXPECT_EQ(help.exitCode, 0) << command.toStdString();
        EXPECT_TRUE(help.out.startsWith("usage: vxcam " + command.toUtf8())) << help.out.constData();
        EXPECT_EQ(option.out, help.out) << command.toStdString();
    }
    // The commands whose arguments need explaining say what they take and answer.
    for (const char *command : {"cameras", "policy", "version"}) {
        const QByteArray help = runVxcam({"help", command}).out;
        EXPECT_TRUE(help.contains("arguments:") && help.contains("output:")) << help.constData();
    }
}

// --plugins beats the environment variable, which beats the folder that
// belongs to the binary: the build's for a vxcam in its build tree, and
// <bindir>/../lib/vxcore/plugins for one installed anywhere else. --help
// names the folder in use.
TEST(VxcamUsage, PluginFolderInUse)
{
    const QTemporaryDir dir;
    const QString chosen = dir.filePath(QStringLiteral("chosen"));
    const auto folderLine = [](const QStringList &arguments) {
        const QString help = QString::fromUtf8(runVxcam(arguments).out);
        return help.section(QStringLiteral("plug-in folder: "), 1).section(QLatin1Char('\n'), 0, 0);
    };
    EXPECT_EQ(folderLine({"--help"}), QStringLiteral(VX_BUILD_PLUGIN_DIR " (the build's plug-in folder)"));
    // The tests run without the variable (see tests/CMakeLists.txt).
    qputenv("VXCAM_PLUGIN_DIR", QFile::encodeName(chosen));
    EXPECT_EQ(folderLine({"--help"}), chosen + QStringLiteral(" (from $VXCAM_PLUGIN_DIR)"));
    EXPECT_EQ(folderLine({"--plugins", dir.path(), "--help"}), dir.path() + QStringLiteral(" (from --plugins)"));
    const VxcamRun cameras = runVxcam({"cameras"});
    EXPECT_EQ(cameras.exitCode, 1);
    EXPECT_EQ(QString::fromUtf8(cameras.err), "vxcam: cameras: no plug-in directory " + chosen + "\n");
    qunsetenv("VXCAM_PLUGIN_DIR");

    // A vxcam laid out as an installation: bin/vxcam and the plug-in folder
    // relative to it.
    const QString bin = dir.filePath(QStringLiteral("prefix/bin"));
    const QString plugins = QDir::cleanPath(bin + QStringLiteral("/" VX_PLUGIN_DIR_FROM_BIN));
    ASSERT_TRUE(QDir().mkpath(bin) && QDir().mkpath(plugins));
    const QString vxcam = bin + QStringLiteral("/vxcam");
    ASSERT_TRUE(QFile::copy(QStringLiteral(VXCAM_PATH), vxcam));
    ASSERT_TRUE(
        QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), plugins + QStringLiteral("/libfileidentifier.so")));
    QProcess installed;
    installed.start(vxcam, {QStringLiteral("cameras")});
    ASSERT_TRUE(installed.waitForFinished(60000));
    EXPECT_EQ(installed.exitCode(), 0) << installed.readAllStandardError().constData();
    EXPECT_EQ(installed.readAllStandardOutput(), QByteArray("libfileidentifier.so: type 783 (ft_fileidentifier)\n"));
    installed.start(vxcam, {QStringLiteral("--help")});
    ASSERT_TRUE(installed.waitForFinished(60000));
    EXPECT_TRUE(installed.readAllStandardOutput().contains(
        ("plug-in folder: " + plugins + " (installed beside vxcam)\n").toUtf8()));
}
