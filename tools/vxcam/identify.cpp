#include "command.h"
#include "identification.h"
#include "inputs.h"
#include "reporter.h"
#include "session.h"

#include "cameras/camera_pool.h"


#include <memory>
#include <new>

// vxcam identify: what each file is, from its content first, through the
// camera plug-ins of the plug-in directory (one pool for the run) and the
// file-type registry. One line per file like file(1); the details with
// --verbose, everything with --json.

namespace {

const char kHelp[] = "  FILE...     the files to identify; a directory is walked with -r\n"
                     "  -r          walk directories (also a global option)\n"
                     "\n"
                     "Each file gets one line: PATH: description [type name], and what the verdict rests on\n"
                     "(signature, structure, class id, stream names, or the extension only), then the flags\n"
                     "encrypted, macros and duplicate member names where they apply. --verbose adds what each\n"
                     "question answered; --json gives one object per file. An empty file is reported as empty.\n"
                     "A file that cannot be read is named on standard error and the run exits 1; the other\n"
                     "files are still reported.\n";

void report(const Identification &id, bool verbose, Reporter &reporter)
{
    if (!id.ok()) {
        reporter.error(id.path, id.error, id.path);
        return;
    }
    QString line = id.summary();
    if (verbose)
        for (const QString &detail : id.details())
            line += QLatin1Char('\n') + detail;
    reporter.result(id.toJson(), line);
}

int runIdentify(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    const bool recursive = args.takeFlag({"-r", "--recursive"}) || context.recursive;
    const QStringList paths = args.operands();
    if (!args.ok())
        return usageError(context, "identify", args.error());
    if (paths.isEmpty())
        return usageError(context, "identify", QStringLiteral("no files given"));
    const std::unique_ptr<Camera_Pool> pool = openCameraPool(context.pluginDir, QStringLiteral("identify"), reporter);
    if (pool == nullptr)
        return 1;
    const QStringList files = collectFiles(paths, recursive, reporter);
    const Identifier identifier(*pool);
    const bool verbose = context.verbose;

    reporter.beginBatch(files.size());
    for (const QString &path : files) {
        // Each file on its own: whatever one file does, the others are reported.
        try {
            report(identifier.identify(path), verbose, reporter);
        } catch (const std::bad_alloc &) {
            reporter.error(path, QStringLiteral("out of memory while reporting it"), path);
        }
        reporter.advance(path);
    }
    reporter.endBatch();
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration({"identify", "identify [-r] FILE|DIR...",
                                     "tell what each file is, from its content", runIdentify, kHelp});

} // namespace
