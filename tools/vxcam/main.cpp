// vxcam: identifies files with the camera framework and its plug-ins.

#include "command.h"
#include "reporter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cstdio>

namespace {

std::vector<Command> &registry()
{
    static std::vector<Command> all;
    return all;
}

const Command *findCommand(const QString &name)
{
    for (const Command &command : commands())
        if (name == QLatin1String(command.name))
            return &command;
    return nullptr;
}

// The environment variable that names the plug-in folder when --plugins does not.
const char kPluginDirVariable[] = "VXCAM_PLUGIN_DIR";

// The plug-in folder in use and where that choice came from.
struct PluginDir
{
    QString path;
    QString source;
};

// Without --plugins or the environment variable, plug-ins are looked for
// where they were put beside this vxcam: in the build's plug-in folder when
// it runs from its build tree, else in the installed folder relative to the
// binary (<bindir>/../lib/vxcore/plugins), wherever the installation was
// moved.
PluginDir defaultPluginDir()
{
    const QString variable = qEnvironmentVariable(kPluginDirVariable);
    if (!variable.isEmpty())
        return {variable, QStringLiteral("from $%1").arg(QLatin1String(kPluginDirVariable))};
    const QString binDir = QCoreApplication::applicationDirPath();
    const QString buildBinDir = QFileInfo(QStringLiteral(VX_BUILD_BIN_DIR)).canonicalFilePath();
    if (!buildBinDir.isEmpty() && QFileInfo(binDir).canonicalFilePath() == buildBinDir)
        return {QStringLiteral(VX_BUILD_PLUGIN_DIR), QStringLiteral("the build's plug-in folder")};
    return {QDir::cleanPath(binDir + QLatin1Char('/') + QStringLiteral(VX_PLUGIN_DIR_FROM_BIN)),
            QStringLiteral("installed beside vxcam")};
}

void printHelp(FILE *out, const PluginDir &plugins)
{
    std::fputs("usage: vxcam [--json] [--plugins DIR] [-r] [--verbose] COMMAND [ARGS...]\n"
               "       vxcam help COMMAND\n"
               "       vxcam --version\n\n"
               "commands:\n",
               out);
    for (const Command &command : commands())
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    std::fprintf(out,
                 "\noptions (before or after the command):\n"
                 "  --json          one JSON object per result (JSON Lines)\n"
                 "  --plugins DIR   where to find camera plug-ins (else $%s,\n"
                 "                  else the folder installed beside vxcam)\n"
                 "  -r              walk directories\n"
                 "  --verbose       show the framework's diagnostic log on standard error\n"
                 "  -h, --help      this text; after a command, that command's help\n"
                 "  --version       the version of vxcam\n"
                 "\nplug-in folder: %s (%s)\n"
                 "\nexit status: 0 success, 1 an input or the plug-in folder failed, 2 usage error\n",
                 kPluginDirVariable, qPrintable(QDir::toNativeSeparators(plugins.path)), qPrintable(plugins.source));
}

void printCommandHelp(const Command &command)
{
    std::printf("usage: vxcam %s\n\n%s\n", command.synopsis, command.summary);
    if (command.help != nullptr)
        std::printf("\n%s", command.help);
}

bool isHelp(const QString &arg)
{
    return arg == QLatin1String("-h") || arg == QLatin1String("--help");
}

void printVersion()
{
    std::printf("vxcam %s\n", VX_VERSION);
}

int usage(const QString &message)
{
    std::fprintf(stderr, "vxcam: %s (see vxcam --help)\n", qPrintable(message));
    return 2;
}

// The framework logs diagnostics to Qt's debug stream; a command-line user
// sees them only when asked for.
bool g_verbose = false;
void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtDebugMsg && !g_verbose)
        return;
    std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

} // namespace

const std::vector<Command> &commands()
{
    return registry();
}

CommandRegistrar::CommandRegistrar(const Command &command)
{
    std::vector<Command> &all = registry();
    const auto at = std::lower_bound(all.begin(), all.end(), command, [](const Command &a, const Command &b) {
        return qstrcmp(a.name, b.name) < 0;
    });
    all.insert(at, command);
}

namespace {
bool matches(const QString &arg, std::initializer_list<const char *> names)
{
    return std::any_of(names.begin(), names.end(), [&arg](const char *name) { return arg == QLatin1String(name); });
}
} // namespace

bool CommandArgs::takeFlag(std::initializer_list<const char *> names)
{
    bool found = false;
    const int end = m_args.indexOf(QStringLiteral("--"));
    for (int i = (end < 0 ? m_args.size() : end) - 1; i >= 0; --i) {
        if (matches(m_args.at(i), names)) {
            m_args.removeAt(i);
            found = true;
        }
    }
    return found;
}

bool CommandArgs::takeValue(std::initializer_list<const char *> names, QString &value)
{
    bool found = false;
    int end = m_args.indexOf(QStringLiteral("--"));
    for (int i = 0; i < (end < 0 ? m_args.size() : end);) {
        const QString arg = m_args.at(i);
        const int equals = arg.startsWith(QLatin1String("--")) ? arg.indexOf(QLatin1Char('=')) : -1;
        const QString name = equals < 0 ? arg : arg.left(equals);
        if (!matches(name, names)) {
            ++i;
            continue;
        }
        if (equals >= 0) {
            value = arg.mid(equals + 1);
            m_args.removeAt(i);
        } else if (i + 1 < m_args.size() && i + 1 != end) {
            value = m_args.at(i + 1);
            m_args.erase(m_args.begin() + i, m_args.begin() + i + 2);
        } else {
            if (m_error.isEmpty())
                m_error = QStringLiteral("%1 needs a value").arg(name);
            m_args.removeAt(i);
        }
        found = true;
        end = m_args.indexOf(QStringLiteral("--"));
    }
    return found && ok();
}

QStringList CommandArgs::operands()
{
    QStringList operands;
    bool optionsEnded = false;
    for (const QString &arg : qAsConst(m_args)) {
        if (!optionsEnded && arg == QLatin1String("--")) {
            optionsEnded = true;
        } else if (!optionsEnded && arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            if (m_error.isEmpty())
                m_error = QStringLiteral("unknown option %1").arg(arg);
        } else {
            operands << arg;
        }
    }
    return operands;
}

int usageError(CommandContext &context, const char *command, const QString &message)
{
    context.reporter.error(QString::fromLatin1(command),
                           QStringLiteral("%1 (see vxcam help %2)").arg(message, QString::fromLatin1(command)));
    return 2;
}

int main(int argc, char *argv[])
{
    qInstallMessageHandler(messageHandler);
    QCoreApplication app(argc, argv);

    // Global options may stand before or after the command name; every other
    // word after the command name belongs to the command.
    QStringList rest;
    bool json = false;
    bool recursive = false;
    bool help = false;
    bool version = false;
    PluginDir plugins = defaultPluginDir();
    const QStringList arguments = app.arguments().mid(1);
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (isHelp(arg)) {
            help = true;
        } else if (arg == QLatin1String("--version")) {
            version = true;
        } else if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--verbose")) {
            g_verbose = true;
        } else if (arg == QLatin1String("-r") || arg == QLatin1String("--recursive")) {
            recursive = true;
        } else if (arg == QLatin1String("--plugins") || arg.startsWith(QLatin1String("--plugins="))) {
            const int equals = arg.indexOf(QLatin1Char('='));
            QString path;
            if (equals >= 0)
                path = arg.mid(equals + 1);
            else if (i + 1 < arguments.size())
                path = arguments.at(++i);
            if (path.isEmpty())
                return usage(QStringLiteral("--plugins needs a directory"));
            plugins = {path, QStringLiteral("from --plugins")};
        } else if (arg == QLatin1String("--")) {
            rest << arguments.mid(i + (rest.isEmpty() ? 1 : 0));
            break;
        } else if (rest.isEmpty() && arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            return usage(QStringLiteral("unknown option %1").arg(arg));
        } else {
            rest << arg;
        }
    }

    if (!rest.isEmpty() && rest.first() == QLatin1String("help")) {
        rest.removeFirst();
        help = true;
    }
    // Like --help, --version answers whatever else the line says.
    if (version && !help) {
        printVersion();
        return 0;
    }
    if (rest.isEmpty()) {
        // Asked for, the help is the output; otherwise it explains a usage error.
        printHelp(help ? stdout : stderr, plugins);
        return help ? 0 : 2;
    }
    const Command *command = findCommand(rest.first());
    if (command == nullptr)
        return usage(QStringLiteral("unknown command %1").arg(rest.first()));
    if (help) {
        printCommandHelp(*command);
        return 0;
    }

    Reporter reporter(json);
    CommandContext context{rest.mid(1), recursive, plugins.path, reporter, g_verbose};
    try {
        return command->run(context);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vxcam: %s\n", e.what());
    } catch (...) {
        std::fputs("vxcam: unexpected failure\n", stderr);
    }
    return 1;
}
