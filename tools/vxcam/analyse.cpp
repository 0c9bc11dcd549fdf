#include "camerachoice.h"
#include "command.h"
#include "inputs.h"
#include "reporter.h"
#include "session.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"

#include <QFileInfo>
#include <QJsonObject>

#include <memory>

// vxcam analyse: one camera session per file. The file's type is identified
// as identify does (the same identification unit); the camera is the
// plug-in registered for it (or the file-identifier camera, which carries
// any file); the run's analysis is written as a report where asked, and
// summed up per file, verdict first.

namespace {

const QString kSubject = QStringLiteral("analyse");

struct Options
{
    QString policy;
    QString report;    // one report file (one input)
    QString reportDir; // one report per input
};

// Analyses one file; false after one error line when it could not be.
bool analyse(const QString &path, const QString &reportPath, const Options &options, Camera_Pool &pool,
             const Identifier &identifier, Reporter &reporter)
{
    CameraBase session(&pool);
    applyPolicy(session, options.policy);
    session.registryEntry(CameraBase::regInput).setFilePath(path.toUtf8().constData());
    AnalysisOutput analysis(session);
    SessionInput input;
    if (!loadSessionInput(session, identifier, pool, path, reporter, input))
        return false;
    const ft_t type = input.identification.type;
    const CameraChoice &choice = input.choice;
    VX2_RetStatus status = VX2_Fail;
    if (!runGuarded([&] { return runChosenCamera(session, choice); }, path, path, reporter, status))
        return false;
    if (!analysis.write(reportPath, path, reporter))
        return false;

    RunFindings findings = RunFindings::of(session.analysis());
    findings.unsupported = choice.fileIdentifier;
    QJsonObject object{{QStringLiteral("path"), path},
                       {QStringLiteral("type"), type},
                       {QStringLiteral("type_name"), QString::fromLatin1(fileTypeName(type))},
                       {QStringLiteral("description"), input.identification.description},
                       {QStringLiteral("camera"), choice.camera}};
    findings.addTo(object, status);
    if (!reportPath.isEmpty())
        object.insert(QStringLiteral("report"), reportPath);
    // The verdict first, then what the file is and which camera took it.
    QString line = QStringLiteral("%1: %2; %3 [%4] by %5")
                       .arg(path, findings.summary(status), input.identification.description,
                            QString::fromLatin1(fileTypeName(type)), choice.camera);
    if (!reportPath.isEmpty())
        line += QStringLiteral("; report %1").arg(reportPath);
    reporter.result(object, line);
    return true;
}

int runAnalyse(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    Options options;
    args.takeValue({"--policy"}, options.policy);
    args.takeValue({"--report"}, options.report);
    args.takeValue({"--report-dir"}, options.reportDir);
    const QStringList paths = args.operands();
    if (!args.ok())
        return usageError(context, "analyse", args.error());
    if (paths.isEmpty())
        return usageError(context, "analyse", QStringLiteral("no files given"));
    if (!options.report.isEmpty() && !options.reportDir.isEmpty())
        return usageError(context, "analyse", QStringLiteral("--report and --report-dir exclude each other"));
    if (!options.policy.isEmpty() && !checkPolicyFile(options.policy, reporter))
        return 1;
    const std::unique_ptr<Camera_Pool> pool = openCameraPool(context.pluginDir, kSubject, reporter);
    if (pool == nullptr)
        return 1;
    const QStringList files = collectFiles(paths, context.recursive, reporter, {options.reportDir});
    if (!options.report.isEmpty() && files.size() > 1)
        return usageError(context, "analyse", QStringLiteral("--report names one file; use --report-dir for several"));
    if (!options.report.isEmpty() && CanonicalPaths(files).contains(options.report))
        return usageError(context, "analyse",
                          QStringLiteral("--report %1 would overwrite an input").arg(options.report));
    if (!options.reportDir.isEmpty() && !makeFolder(options.reportDir, reporter))
        return 1;

    const Identifier identifier(*pool);
    ReportNames reports(options.report, options.reportDir);
    reporter.beginBatch(files.size());
    for (const QString &path : files) {
        analyse(path, reports.next(QFileInfo(path).fileName()), options, *pool, identifier, reporter);
        reporter.advance(path);
    }
    reporter.endBatch();
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration({"analyse", "analyse FILE... [--policy P] [--report R | --report-dir D]",
                                     "run each file through its camera and report what it holds", runAnalyse,
                                     "  FILE...            files to analyse (-r walks directories)\n"
                                     "  --policy P.xml     the content-management policy to apply\n"
                                     "  --report R.xml     write the analysis report of the (one) file to R.xml\n"
                                     "  --report-dir D     write one report per file into D, named FILE.xml\n"
                                     "Each file's type is identified as identify does; its camera is the plug-in\n"
                                     "registered for the type, else the file-identifier camera. A summary line per\n"
                                     "file gives the verdict (clean, sanitised, issues, rejected, unreadable, or\n"
                                     "unsupported: only the file-identifier camera carries it) and\n"
                                     "the counts of content, sanitisation and issue records. Exit status 1 when a\n"
                                     "file could not be analysed or its report not written.\n"});

} // namespace
