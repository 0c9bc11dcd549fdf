#include "command.h"
#include "inputs.h"
#include "reporter.h"
#include "session.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "containers/ZipUtils.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRegularExpression>

#include <memory>

// vxcam import: every stream of an export archive is rebuilt by its camera,
// validated and written out, each in an import-mode session of its own so
// that each has its own analysis. Outputs go into OUTDIR only, under the
// stream's name; an entry whose name could lead anywhere else is refused.

namespace {

const QString kSubject = QStringLiteral("import");

struct Options
{
    QString outDir;
    QString policy;
    QString report;
    QString reportDir;
};

// "Id_<run>_<stream>_<counter>.<extension>" gives the stream; other names
// stand for themselves.
QString streamNameOf(const QString &entry)
{
    static const QRegularExpression exported(QStringLiteral("^Id_-?\\d+_(.*)_\\d+\\.[^.]+$"));
    const QRegularExpressionMatch match = exported.match(entry);
    return match.hasMatch() ? match.captured(1) : entry;
}

// Why a name cannot become a file of the output directory; empty when it can.
QString unsafeName(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return QStringLiteral("an empty or dot name");
    if (name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\')))
        return QStringLiteral("a name with a path");
    for (const QChar c : name)
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            return QStringLiteral("a name with control characters");
    return QString();
}

// A camera may give its output the stream's name with the extension of what
// it wrote (a .docm whose macros went is a .docx); any other name it leaves
// on the buffer is not the output's.
QString outputNameOf(const QString &stream, const std::string &named)
{
    const QString name = QString::fromStdString(named);
    const auto base = [](const QString &n) { return n.left(n.lastIndexOf(QLatin1Char('.'))); };
    return !name.isEmpty() && base(name) == base(stream) && unsafeName(name).isEmpty() ? name : stream;
}

SerializationFormat formatOf(const QString &entry)
{
    return entry.endsWith(QLatin1String(".xml"), Qt::CaseInsensitive) ? sfXML : sfSISL;
}

class Importer
{
public:
    Importer(const QString &archivePath, const Options &options, Camera_Pool &pool, Reporter &reporter)
        : m_archivePath(archivePath), m_options(options), m_pool(pool), m_reporter(reporter),
          m_reports(options.report, options.reportDir)
    {
    }

    // Imports one stream; false after one error line when it gave nothing.
    bool importEntry(ZipUtils::Unzip &archive, const QString &entry)
    {
        const QString subject = QStringLiteral("%1: %2").arg(m_archivePath, entry);
        const QString stream = streamNameOf(entry);
        const QString unsafe = unsafeName(stream);
        if (!unsafe.isEmpty()) {
            m_reporter.error(subject, QStringLiteral("refused: %1").arg(unsafe), entry);
            return false;
        }

        CameraBase session(&m_pool);
        applyPolicy(session, m_options.policy);
        session.setSerialFormat(formatOf(entry));
        char *output = nullptr;
        size_t outputSize = 0;
        session.registryEntry(CameraBase::regImport).setFilePath(m_archivePath.toUtf8().constData());
        session.registryEntry(CameraBase::regOutput).setMemory(&output, &outputSize);
        AnalysisOutput analysis(session);
        // The session runs the cameras the stream names; the one it holds only
        // stands for the host's.
        session.useCamera(m_pool.getPluginFromFileType(ft_fileidentifier));
        if (session.camera() == nullptr)
            session.useCamera(m_pool.getPluginFromCameraName(m_pool.getListOfCameraNames().value(0)));

        MemoryBuffer *const input = session.inputBuffer();
        if (!archive.getEntryData(entry, input)) {
            const bool tooLarge = archive.lastEntryError() == ZipUtils::EntryError::TooLarge;
            m_reporter.error(subject, tooLarge ? QStringLiteral("larger than %1 MiB: not read")
                                                     .arg(archive.memberLimit() >> 20)
                                               : QStringLiteral("damaged entry"),
                             entry);
            return false;
        }
        input->seek(0);
        input->m_name = stream.toStdString();
        VX2_RetStatus status = VX2_Fail;
        DiagnosticLines diagnostics;
        const auto push = [&] {
            return session.finalPush(session.camera(), input, session.outputBuffer(), ft_unknown);
        };
        if (!runGuarded(push, subject, entry, m_reporter, status))
            return false;
        const RunFindings findings = RunFindings::of(session.analysis());
        const QString reportPath = m_reports.next(stream);
        if (isVX2_RetStatusFail(status)) {
            const QString why = diagnostics.failure();
            m_reporter.error(subject, QStringLiteral("not imported: %1")
                                          .arg(why.isEmpty() ? findings.verdict(status) : why), entry);
            analysis.write(reportPath, subject, m_reporter);
            return false;
        }
        QString written;
        if (!m_options.outDir.isEmpty()) {
            session.registryEntry(CameraBase::regOutput).writeMemoryBufferFromEntry(session.outputBuffer());
            if (!writeOutput(subject, outputNameOf(stream, session.outputBuffer()->m_name), output,
                             qint64(outputSize), written))
                return false;
        }
        if (!analysis.write(reportPath, subject, m_reporter))
            return false;

        QJsonObject object{{QStringLiteral("archive"), m_archivePath},
                           {QStringLiteral("entry"), entry},
                           {QStringLiteral("stream"), stream}};
        findings.addTo(object, status);
        if (!written.isEmpty())
            object.insert(QStringLiteral("output"), written);
        if (!reportPath.isEmpty())
            object.insert(QStringLiteral("report"), reportPath);
        QString line = QStringLiteral("%1: %2").arg(entry, findings.summary(status));
        if (!written.isEmpty())
            line += QStringLiteral("; written to %1").arg(written);
        m_reporter.result(object, line);
        return true;
    }

private:
    // The stream's output as OUTDIR/NAME (numbered when a name comes twice),
    // written whole; `written` stays empty when there was nothing to write.
    // False after an error line.
    bool writeOutput(const QString &subject, const QString &stream, const char *data, qint64 size, QString &written)
    {
        if (size <= 0)
            return true;
        // A second stream of the same name is numbered before its extension.
        const int dot = stream.lastIndexOf(QLatin1Char('.'));
        const QString base = dot > 0 ? stream.left(dot) : stream;
        const QString suffix = dot > 0 ? stream.mid(dot) : QString();
        QString name = stream;
        for (int n = 2; m_usedNames.contains(name); ++n)
            name = QStringLiteral("%1-%2%3").arg(base).arg(n).arg(suffix);
        m_usedNames.insert(name);
        const QString path = QDir(m_options.outDir).filePath(name);
        QString error;
        if (!writeWhole(path, data, size, &error)) {
            m_reporter.error(subject, QStringLiteral("output not written to %1: %2").arg(path, error), path);
            return false;
        }
        written = path;
        return true;
    }

    QString m_archivePath;
    const Options &m_options;
    Camera_Pool &m_pool;
    Reporter &m_reporter;
    ReportNames m_reports;
    QSet<QString> m_usedNames;
};

int runImport(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    Options options;
    args.takeValue({"-o", "--output"}, options.outDir);
    args.takeValue({"--policy"}, options.policy);
    args.takeValue({"--report"}, options.report);
    args.takeValue({"--report-dir"}, options.reportDir);
    const QStringList operands = args.operands();
    if (!args.ok())
        return usageError(context, "import", args.error());
    if (operands.size() != 1)
        return usageError(context, "import", QStringLiteral("expects one archive"));
    if (!options.report.isEmpty() && !options.reportDir.isEmpty())
        return usageError(context, "import", QStringLiteral("--report and --report-dir exclude each other"));
    if (!options.policy.isEmpty() && !checkPolicyFile(options.policy, reporter))
        return 1;
    const std::unique_ptr<Camera_Pool> pool = openCameraPool(context.pluginDir, kSubject, reporter);
    if (pool == nullptr)
        return 1;

    // The archive is read where it lies: its directory, then one member at
    // a time, so memory follows the largest stream, not the archive.
    const QString archivePath = operands.first();
    const QFileInfo archiveInfo(archivePath);
    if (!archiveInfo.isFile()) {
        reporter.error(archivePath, archiveInfo.exists() ? QStringLiteral("not a regular file")
                                                         : QStringLiteral("no such file"), archivePath);
        return 1;
    }
    QFile archiveFile(archivePath);
    if (!archiveFile.open(QIODevice::ReadOnly)) {
        reporter.error(archivePath, archiveFile.errorString(), archivePath);
        return 1;
    }
    ZipUtils::Unzip archive;
    if (!archive.open(&archiveFile)) {
        reporter.error(archivePath, QStringLiteral("not a zip archive"), archivePath);
        return 1;
    }
    const QStringList entries = archive.getFilenames();
    if (!options.report.isEmpty() && entries.size() > 1)
        return usageError(context, "import", QStringLiteral("--report names one file, and the archive holds %1 "
                                                            "streams; use --report-dir")
                                                 .arg(entries.size()));
    for (const QString &directory : {options.outDir, options.reportDir})
        if (!directory.isEmpty() && !makeFolder(directory, reporter))
            return 1;

    Importer importer(archivePath, options, *pool, reporter);
    QSet<QString> seen;
    reporter.beginBatch(entries.size());
    for (const QString &entry : entries) {
        // A name given twice always reads as its first member.
        if (seen.contains(entry))
            reporter.error(QStringLiteral("%1: %2").arg(archivePath, entry),
                           QStringLiteral("a second member of this name; only the first is imported"), entry);
        else
            importer.importEntry(archive, entry);
        seen.insert(entry);
        reporter.advance(entry);
    }
    reporter.endBatch();
    if (entries.isEmpty())
        reporter.error(archivePath, QStringLiteral("holds no streams"), archivePath);
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration({"import",
                                     "import ARCHIVE.zip [-o OUTDIR] [--policy P] [--report R | --report-dir D]",
                                     "rebuild, validate and write out every stream of an export archive",
                                     runImport,
                                     "  ARCHIVE.zip         an archive written by vxcam export\n"
                                     "  -o, --output DIR    write each stream's output into DIR, named after the\n"
                                     "                      stream; nothing is written outside DIR (names with a\n"
                                     "                      path are refused, links are not followed)\n"
                                     "  --policy P.xml      the content-management policy the validation applies\n"
                                     "  --report R.xml      the analysis report of an archive of one stream\n"
                                     "  --report-dir D      one analysis report per stream, named STREAM.xml\n"
                                     "Each stream is rebuilt by the camera it names, validated and written, in a\n"
                                     "session of its own. Exit status 1 when a stream could not be imported or\n"
                                     "its output not written; the other streams are still imported.\n"});

} // namespace
