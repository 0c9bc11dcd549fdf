#include "camerachoice.h"
#include "command.h"
#include "inputs.h"
#include "reporter.h"
#include "session.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "policy/ContentManagement.h"
#include "ucp/exporttreedata.h"

#include <QFileInfo>
#include <QJsonObject>

#include <memory>

// vxcam export: one export-mode session over all the files. Each file is
// read and validated by its camera, and its tree stored as a stream of the
// archive; the archive is written whole at the end, or not at all.

namespace {

const QString kSubject = QStringLiteral("export");

const char *formatName(SerializationFormat format)
{
    return format == sfXML ? "xml" : "sisl";
}

// Stores one file's tree; false after one error line when it is not stored.
bool exportFile(CameraBase &session, const QString &path, Camera_Pool &pool, const Identifier &identifier,
                Reporter &reporter)
{
    SessionInput input;
    if (!loadSessionInput(session, identifier, pool, path, reporter, input))
        return false;
    const ft_t type = input.identification.type;
    const CameraChoice &choice = input.choice;
    const int before = session.exporter().streamCounter();
    VX2_RetStatus status = VX2_Fail;
    DiagnosticLines diagnostics;
    if (!runGuarded([&] { return runChosenCamera(session, choice); }, path, path, reporter, status))
        return false;
    if (isVX2_RetStatusFail(status) || session.exporter().streamCounter() == before) {
        const QString why = diagnostics.failure();
        reporter.error(path, QStringLiteral("not exported: %1 could not read and validate it%2")
                                 .arg(choice.camera, why.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(why)),
                       path);
        return false;
    }
    const QString entry = QString::fromStdString(session.exportText());
    reporter.result(QJsonObject{{QStringLiteral("path"), path},
                                {QStringLiteral("entry"), entry},
                                {QStringLiteral("type"), type},
                                {QStringLiteral("type_name"), QString::fromLatin1(fileTypeName(type))},
                                {QStringLiteral("camera"), choice.camera}},
                    QStringLiteral("%1: %2 by %3").arg(path, entry, choice.camera));
    return true;
}

int runExport(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    QString archive;
    QString format;
    QString policy;
    args.takeValue({"-o", "--output"}, archive);
    args.takeValue({"--format"}, format);
    args.takeValue({"--policy"}, policy);
    const bool pretty = args.takeFlag({"--pretty"});
    const QStringList paths = args.operands();
    if (!args.ok())
        return usageError(context, "export", args.error());
    if (paths.isEmpty())
        return usageError(context, "export", QStringLiteral("no files given"));
    if (archive.isEmpty())
        return usageError(context, "export", QStringLiteral("the archive to write is missing (-o ARCHIVE.zip)"));
    if (!format.isEmpty() && format != QLatin1String("sisl") && format != QLatin1String("xml"))
        return usageError(context, "export", QStringLiteral("--format is sisl or xml, not %1").arg(format));
    if (!policy.isEmpty() && !checkPolicyFile(policy, reporter))
        return 1;
    const std::unique_ptr<Camera_Pool> pool = openCameraPool(context.pluginDir, kSubject, reporter);
    if (pool == nullptr)
        return 1;

    // The archive's folder must be there before any file is read, and the
    // archive may not replace one of the files it holds.
    const QStringList files = collectFiles(paths, context.recursive, reporter);
    if (CanonicalPaths(files).contains(archive))
        return usageError(context, "export", QStringLiteral("the archive %1 would overwrite an input").arg(archive));
    if (!QFileInfo(QFileInfo(archive).absolutePath()).isDir()) {
        reporter.error(archive, QStringLiteral("no folder %1 to write the archive in")
                                    .arg(QFileInfo(archive).absolutePath()), archive);
        return 1;
    }

    CameraBase session(pool.get());
    applyPolicy(session, policy);
    // The serial form: --format, else the policy's interchange settings, else SISL.
    SerializationFormat serialFormat = sfSISL;
    bool policyPretty = false;
    session.contentManagement().getSerializationFormat(serialFormat, policyPretty);
    if (!format.isEmpty())
        serialFormat = format == QLatin1String("xml") ? sfXML : sfSISL;
    session.setSerialFormat(serialFormat);
    session.setPrettyPrint(pretty || policyPretty);
    char *archiveData = nullptr;
    size_t archiveSize = 0;
    session.registryEntry(CameraBase::regInput).setFilePath(paths.first().toUtf8().constData());
    session.registryEntry(CameraBase::regExport).setMemory(&archiveData, &archiveSize);

    const Identifier identifier(*pool);
    int stored = 0;
    reporter.beginBatch(files.size());
    for (const QString &path : files) {
        stored += exportFile(session, path, *pool, identifier, reporter) ? 1 : 0;
        reporter.advance(path);
    }
    reporter.endBatch();
    if (stored == 0) {
        reporter.error(archive, QStringLiteral("nothing exported; no archive written"));
        return 1;
    }
    QString error;
    if (!session.exporter().closeTreeData()
        || !session.registryEntry(CameraBase::regExport).writeMemoryBufferFromEntry(session.exportBuffer())
        || !writeWhole(archive, archiveData, qint64(archiveSize), &error)) {
        reporter.error(archive, QStringLiteral("archive not written: %1").arg(error), archive);
        return 1;
    }
    reporter.result(QJsonObject{{QStringLiteral("archive"), archive},
                                {QStringLiteral("streams"), stored},
                                {QStringLiteral("format"), QLatin1String(formatName(serialFormat))},
                                {QStringLiteral("pretty"), session.getPrettyPrint()}},
                    QStringLiteral("%1: %2 stream%3 (%4)")
                        .arg(archive)
                        .arg(stored)
                        .arg(stored == 1 ? "" : "s")
                        .arg(QLatin1String(formatName(serialFormat))));
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration({"export",
                                     "export FILE... -o ARCHIVE.zip [--format sisl|xml] [--pretty] [--policy P]",
                                     "store each file's structure tree as a stream of a zip archive", runExport,
                                     "  FILE...             files to export (-r walks directories)\n"
                                     "  -o, --output A.zip  the archive to write (whole, or not at all)\n"
                                     "  --format sisl|xml   the serial form of the streams (default: the policy's\n"
                                     "                      interchange type with --policy, else sisl)\n"
                                     "  --pretty            indent the streams (also the policy's interchange_pretty)\n"
                                     "  --policy P.xml      the content-management policy the validation applies\n"
                                     "Each file is read and validated by its camera (as analyse chooses it) and its\n"
                                     "tree stored as the entry Id_RUN_NAME_N.sisl (or .xml); images the policy\n"
                                     "exports as plain files are stored as they are. A file that cannot be read or\n"
                                     "validated is not stored, and the exit status is 1.\n"});

} // namespace
