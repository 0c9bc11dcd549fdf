// vxcam: identifies files with the camera framework and its plug-ins.

#include "command.h"
#include "reporter.h"

#include <QCoreApplication>
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

void printHelp()
{
    std::fputs("usage: vxcam [--json] [--plugins DIR] [--verbose] COMMAND [ARGS...]\n\n"
               "commands:\n",
               stdout);
    for (const Command &command : commands())
        std::printf("  %-34s %s\n", command.synopsis, command.summary);
    std::fputs("\noptions:\n"
               "  --json          one JSON object per result (JSON Lines)\n"
               "  --plugins DIR   where to find camera plug-ins (default: the build's plug-in folder)\n"
               "  -r              walk directories\n"
               "  --verbose       show the framework's diagnostic log on standard error\n"
               "  -h, --help      this text\n",
               stdout);
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

int main(int argc, char *argv[])
{
    qInstallMessageHandler(messageHandler);
    QCoreApplication app(argc, argv);

    QStringList rest;
    bool json = false;
    bool recursive = false;
    QString pluginDir = QStringLiteral(VX_DEFAULT_PLUGIN_DIR);
    const QStringList arguments = app.arguments().mid(1);
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            printHelp();
            return 0;
        } else if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--verbose")) {
            g_verbose = true;
        } else if (arg == QLatin1String("-r") || arg == QLatin1String("--recursive")) {
            recursive = true;
        } else if (arg == QLatin1String("--plugins")) {
            if (i + 1 >= arguments.size()) {
                std::fputs("vxcam: --plugins needs a directory\n", stderr);
                return 2;
            }
            pluginDir = arguments.at(++i);
        } else if (arg == QLatin1String("--")) {
            rest << arguments.mid(i + 1);
            break;
        } else if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            std::fprintf(stderr, "vxcam: unknown option %s (see vxcam --help)\n", qPrintable(arg));
            return 2;
        } else {
            rest << arg;
        }
    }

    if (rest.isEmpty()) {
        printHelp();
        return 2;
    }
    const Command *command = findCommand(rest.first());
    if (command == nullptr) {
        std::fprintf(stderr, "vxcam: unknown command %s (see vxcam --help)\n", qPrintable(rest.first()));
        return 2;
    }

    Reporter reporter(json);
    CommandContext context{rest.mid(1), recursive, pluginDir, reporter};
    try {
        return command->run(context);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vxcam: %s\n", e.what());
    } catch (...) {
        std::fputs("vxcam: unexpected failure\n", stderr);
    }
    return 1;
}
