#include "command.h"
#include "identification.h"
#include "inputs.h"
#include "reporter.h"
#include "session.h"

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "cameras/filetype.h"
#include "ucp/ucpnode.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

#include <memory>

// vxcam disarm: runs each Office Open XML package through the camera
// registered for Open Packaging containers, under one policy, and writes
// what the policy lets through into the output folder. A refused or broken
// document writes nothing. What was found and done comes from the run's
// analysis repository: the same records the XML report (--report) holds.

namespace {

// The content switches, by the text their records start with.
const struct
{
    const char *prefix;
    const char *name;
} kSwitchRecords[] = {
    {"Macros present in ", "macros"},
    {"Embedded File present in ", "embedded_files"},
    {"External Hyperlinks present in ", "external_hyperlinks"},
    {"Metadata detected in ", "metadata"},
    {"Review comments present in ", "review_comments"},
    {"Embedded Image present in ", "embedded_images"},
};

const char *switchOf(const std::string &description)
{
    for (const auto &row : kSwitchRecords)
        if (description.rfind(row.prefix, 0) == 0)
            return row.name;
    return nullptr;
}

// What one run found and did, from its records.
struct Findings
{
    QJsonObject removed; // switch -> count
    QJsonObject allowed;
    QStringList refusals; // disallowed content
    QStringList faults;   // everything else the camera reported

    static void count(QJsonObject &counts, const char *name, uint64_t n)
    {
        counts.insert(QLatin1String(name), counts.value(QLatin1String(name)).toInt() + int(n));
    }

    explicit Findings(const RepositoryComponents::DocumentAnalysis &analysis)
    {
        const RepositoryComponents::DocumentStatistics *document = analysis.currentDocument();
        if (document == nullptr)
            return;
        for (const auto &group : document->contentGroups()) {
            for (const auto &item : group.second->contentItems())
                if (const char *name = switchOf(item.second->description()))
                    count(allowed, name, item.second->instanceCount());
            for (const auto &item : group.second->sanitisationItems())
                if (const char *name = switchOf(item.second->description()))
                    count(removed, name, item.second->instanceCount());
            for (const auto &item : group.second->issueItems()) {
                const QString text = QString::fromStdString(item.second->description());
                (switchOf(item.second->description()) ? refusals : faults) << text;
            }
        }
    }

    static QString summary(const QJsonObject &counts)
    {
        QStringList parts;
        for (auto it = counts.begin(); it != counts.end(); ++it)
            parts << QStringLiteral("%1 %2").arg(it.key()).arg(it.value().toInt());
        return parts.join(QStringLiteral(", "));
    }
};

QJsonArray toArray(const QStringList &list)
{
    return QJsonArray::fromStringList(list);
}

class Disarmer
{
public:
    Disarmer(Camera_Pool &pool, const QString &policy, const QString &outDir, const QString &report,
             const QString &reportDir, const QStringList &inputs, Reporter &reporter)
        : m_pool(pool), m_identifier(pool), m_policy(policy), m_outDir(outDir), m_reports(report, reportDir),
          m_inputs(inputs), m_reporter(reporter)
    {
    }

    void disarm(const QString &path)
    {
        if (!isOfficePackage(path))
            return;
        if (QFileInfo(path).size() > kMaxSessionInput) {
            m_reporter.error(path, QStringLiteral("larger than %1 MiB: not read").arg(kMaxSessionInput >> 20), path);
            return;
        }
        MemoryBuffer input;
        if (!loadFile(path, input, m_reporter))
            return;

        CameraBase session(&m_pool);
        applyPolicy(session, m_policy);
        AnalysisOutput analysis(session);
        MemoryBuffer output;
        QString doctype;
        const VX2_RetStatus status = run(session, input, output, doctype);
        const Findings findings(session.analysis());
        QString report = m_reports.next(QFileInfo(path).fileName());
        if (!analysis.write(report, path, m_reporter))
            report.clear();

        QJsonObject result{{QStringLiteral("path"), path},
                           {QStringLiteral("removed"), findings.removed},
                           {QStringLiteral("allowed"), findings.allowed},
                           {QStringLiteral("refused_for"), toArray(findings.refusals)},
                           {QStringLiteral("issues"), toArray(findings.faults)}};
        if (!report.isEmpty())
            result.insert(QStringLiteral("report"), report);
        if (isVX2_RetStatusFail(status)) {
            const bool refused = status != VX2_Fatal && !findings.refusals.isEmpty();
            const QString why = refused ? findings.refusals.first()
                                        : findings.faults.value(0, QStringLiteral("the camera failed"));
            result.insert(QStringLiteral("verdict"), refused ? "refused" : "failed");
            if (m_reporter.json())
                m_reporter.result(result, QString());
            m_reporter.error(path, (refused ? QStringLiteral("refused by the policy: %1")
                                            : QStringLiteral("cannot be disarmed: %1")).arg(why));
            return;
        }

        // The camera names its output (a .docm whose macros went is a .docx).
        const QString target = QDir(m_outDir).filePath(
            output.m_name.empty() ? QFileInfo(path).fileName() : QString::fromStdString(output.m_name));
        QString error;
        if (m_inputs.contains(target)) {
            m_reporter.error(path, QStringLiteral("the output %1 would overwrite an input").arg(target), path);
            return;
        }
        if (m_written.contains(target)) {
            m_reporter.error(path, QStringLiteral("the output %1 was written for an earlier input").arg(target), path);
            return;
        }
        if (!writeWhole(target, reinterpret_cast<const char *>(output.constData()), qint64(output.sizeOfMB()),
                        &error)) {
            m_reporter.error(path, QStringLiteral("cannot write %1: %2").arg(target, error), path);
            return;
        }
        m_written.insert(target);

        const char *verdict = status == VX2_SuccessWithInfo ? "sanitised"
                              : findings.allowed.isEmpty()  ? "clean"
                                                            : "allowed";
        result.insert(QStringLiteral("verdict"), verdict);
        result.insert(QStringLiteral("type"), QFileInfo(path).suffix().toLower());
        result.insert(QStringLiteral("output"), target);
        result.insert(QStringLiteral("output_type"), doctype);
        QString line = QStringLiteral("%1: %2 -> %3").arg(path, QLatin1String(verdict), target);
        QStringList details;
        if (!findings.removed.isEmpty())
            details << QStringLiteral("removed: ") + Findings::summary(findings.removed);
        if (!findings.allowed.isEmpty())
            details << QStringLiteral("allowed: ") + Findings::summary(findings.allowed);
        if (!details.isEmpty())
            line += QStringLiteral(" (%1)").arg(details.join(QStringLiteral("; ")));
        m_reporter.result(result, line);
    }

private:
    // Whether the file is what this command disarms, as vxcam identify
    // tells it; otherwise the one line that says why not.
    bool isOfficePackage(const QString &path)
    {
        const Identification id = m_identifier.identify(path);
        QString why;
        if (!id.ok())
            why = id.error;
        else if (id.empty)
            why = QStringLiteral("is empty");
        else if (id.encrypted)
            why = QStringLiteral("an encrypted document (%1) cannot be disarmed").arg(id.typeName());
        else if (id.type != ft_docx && id.type != ft_xlsx && id.type != ft_pptx)
            why = QStringLiteral("not an Office Open XML document (%1)")
                      .arg(id.type == ft_unknown ? QStringLiteral("not identified") : id.typeName());
        if (!why.isEmpty())
            m_reporter.error(path, why, path);
        return why.isEmpty();
    }

    // The camera through the session, as pushCamera runs it, keeping the
    // document view to learn the kind written.
    VX2_RetStatus run(CameraBase &session, MemoryBuffer &input, MemoryBuffer &output, QString &doctype)
    {
        std::unique_ptr<VXCameraIF> camera;
        try {
            camera.reset(session.prepareCamera(&input, &output, ft_opc, nullptr));
            if (camera == nullptr)
                return VX2_Fail;
            const std::unique_ptr<UCPDocument> document(camera->getUCPDocumentInterface());
            const VX2_RetStatus status = session.finalPush(camera.get(), &input, &output, ft_opc);
            doctype = document->getDoctype();
            camera->deinitialiseCamera();
            return status;
        } catch (...) {
            return VX2_Fail;
        }
    }

    Camera_Pool &m_pool;
    const Identifier m_identifier;
    const QString m_policy;
    const QString m_outDir;
    ReportNames m_reports;
    // Every input of the run: no output may replace one, not even one
    // disarmed already.
    const CanonicalPaths m_inputs;
    Reporter &m_reporter;
    QSet<QString> m_written;
};

int runDisarm(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    QString policyPath, outDir, report, reportDir;
    const bool hasPolicy = args.takeValue({"--policy", "-p"}, policyPath);
    const bool hasOut = args.takeValue({"-o", "--output"}, outDir);
    args.takeValue({"--report"}, report);
    args.takeValue({"--report-dir"}, reportDir);
    const QStringList paths = args.operands();
    if (!args.ok())
        return usageError(context, "disarm", args.error());
    if (!hasPolicy)
        return usageError(context, "disarm", QStringLiteral("a policy is needed: --policy POLICY.xml"));
    if (!hasOut)
        return usageError(context, "disarm", QStringLiteral("an output folder is needed: -o OUTDIR"));
    if (paths.isEmpty())
        return usageError(context, "disarm", QStringLiteral("no files given"));

    if (!report.isEmpty() && !reportDir.isEmpty())
        return usageError(context, "disarm", QStringLiteral("--report and --report-dir exclude each other"));
    if (!checkPolicyFile(policyPath, reporter))
        return 1;
    const std::unique_ptr<Camera_Pool> pool = openCameraPool(context.pluginDir, QStringLiteral("disarm"), reporter);
    if (pool == nullptr)
        return 1;
    if (pool->getPluginFromFileType(ft_opc) == nullptr) {
        reporter.error(QStringLiteral("disarm"),
                       QStringLiteral("no Office Open XML camera in %1").arg(context.pluginDir));
        return 1;
    }
    if (!makeFolder(outDir, reporter) || (!reportDir.isEmpty() && !makeFolder(reportDir, reporter)))
        return 1;

    // Outputs and reports of an earlier run inside a walked folder are not inputs.
    const QStringList files = collectFiles(paths, context.recursive, reporter, {outDir, reportDir});
    if (!report.isEmpty() && files.size() > 1)
        return usageError(context, "disarm", QStringLiteral("--report names one file, and %1 documents are given; "
                                                            "use --report-dir").arg(files.size()));
    if (!report.isEmpty() && CanonicalPaths(files).contains(report))
        return usageError(context, "disarm", QStringLiteral("--report %1 would overwrite an input").arg(report));
    Disarmer disarmer(*pool, policyPath, outDir, report, reportDir, files, reporter);
    reporter.beginBatch(files.size());
    for (const QString &path : files) {
        disarmer.disarm(path);
        reporter.advance(path);
    }
    reporter.endBatch();
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration(
    {"disarm", "disarm [-r] FILE|DIR... --policy POLICY.xml -o OUTDIR [--report R | --report-dir D]",
     "remove what a policy forbids from Office Open XML documents", runDisarm,
     "  FILE|DIR          Word, Excel and PowerPoint documents, templates and their\n"
     "                    macro-enabled kinds (folders with -r)\n"
     "  --policy FILE     the content-management policy (see examples/policy.xml)\n"
     "  -o, --output DIR  where the disarmed documents go (made if missing); a\n"
     "                    document whose macros are removed gets its macro-free\n"
     "                    extension (.docm becomes .docx)\n"
     "  --report R.xml    also write the analysis report of a single document\n"
     "  --report-dir D    also write each document's analysis report, NAME.xml\n"
     "Each line says what became of a document: clean, sanitised, allowed (risky\n"
     "content the policy allows), or an error: refused by the policy, or broken.\n"
     "Nothing is written for a refused or broken document. --json gives the\n"
     "counts per switch, the refusals and the issues. Exit 1 when any document\n"
     "was refused or failed, 2 on usage errors.\n"});

} // namespace
