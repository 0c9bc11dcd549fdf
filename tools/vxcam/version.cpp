#include "command.h"
#include "reporter.h"

#include <QJsonObject>

namespace {

int runVersion(CommandContext &context)
{
    CommandArgs args(context.args);
    const QStringList operands = args.operands();
    if (!args.ok())
        return usageError(context, "version", args.error());
    if (!operands.isEmpty())
        return usageError(context, "version", QStringLiteral("takes no arguments"));
    const QString version = QStringLiteral(VX_VERSION);
    context.reporter.result(QJsonObject{{QStringLiteral("version"), version}}, QStringLiteral("vxcam ") + version);
    return 0;
}

const char kHelp[] = "arguments:\n"
                     "  none\n"
                     "\n"
                     "output:\n"
                     "  vxcam VERSION; with --json {\"version\": VERSION}\n";

const CommandRegistrar registration({"version", "version", "print the version of vxcam (as --version)", runVersion,
                                     kHelp});

} // namespace
