#include "session.h"

#include "inputs.h"
#include "reporter.h"

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "policy/ContentManagement.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <exception>
#include <utility>

std::unique_ptr<Camera_Pool> openCameraPool(const QString &directory, const QString &subject, Reporter &reporter)
{
    if (!QFileInfo(directory).isDir()) {
        reporter.error(subject, QStringLiteral("no plug-in directory %1").arg(directory));
        return nullptr;
    }
    auto pool = std::make_unique<Camera_Pool>(directory);
    if (pool->getListOfCameraNames().isEmpty()) {
        reporter.error(subject, QStringLiteral("no camera plug-ins in %1").arg(directory));
        return nullptr;
    }
    return pool;
}

bool checkPolicyFile(const QString &path, Reporter &reporter)
{
    const QFileInfo info(path);
    QString problem;
    if (!info.isFile())
        problem = info.exists() ? QStringLiteral("not a regular file") : QStringLiteral("no such file");
    ContentManagement policy;
    if (problem.isEmpty() && policy.connectRepositoryToXMLFile(path) != 0)
        problem = QStringLiteral("cannot be read");
    if (problem.isEmpty() && (policy.toStringList(), policy.status() != QSettings::NoError))
        problem = QStringLiteral("not a policy document (XML with the root element \"config\")");
    if (problem.isEmpty())
        return true;
    reporter.error(path, problem, path);
    return false;
}

void applyPolicy(CameraBase &session, const QString &path)
{
    if (!path.isEmpty())
        session.contentManagement().connectRepositoryToXMLFile(path);
}

bool loadSessionInput(CameraBase &session, const Identifier &identifier, const Camera_Pool &pool,
                      const QString &path, Reporter &reporter, SessionInput &input)
{
    input.identification = identifier.identify(path);
    if (!input.identification.ok()) {
        reporter.error(path, input.identification.error, path);
        return false;
    }
    // Cameras read a whole file from memory; a file beyond the bound is
    // refused rather than read into memory it could exhaust.
    if (input.identification.empty) {
        reporter.error(path, QStringLiteral("is empty"), path);
        return false;
    }
    if (QFileInfo(path).size() > kMaxSessionInput) {
        reporter.error(path, QStringLiteral("larger than %1 MiB: not read").arg(kMaxSessionInput >> 20), path);
        return false;
    }
    if (!loadFile(path, *session.inputBuffer(), reporter))
        return false;
    input.choice = chooseCamera(input.identification.type, pool);
    if (input.choice.type == ft_unknown) {
        reporter.error(path, QStringLiteral("no camera for %1").arg(input.identification.typeName()), path);
        return false;
    }
    return true;
}

VX2_RetStatus runChosenCamera(CameraBase &session, const CameraChoice &choice)
{
    MemoryBuffer *const input = session.inputBuffer();
    MemoryBuffer *const output = session.outputBuffer();
    const std::unique_ptr<VXCameraIF> camera(session.prepareCamera(input, output, choice.type, nullptr));
    if (!camera)
        return VX2_Fail;
    VX2_RetStatus status = VX2_Fail;
    if (choice.fileIdentifier && !session.isExportMode() && !session.isImportMode()) {
        status = combineVX2_RetStatus(camera->readInputBuffer(), 0);
        if (!isVX2_RetStatusFail(status))
            status = combineVX2_RetStatus(camera->runValidation(), status);
    } else {
        status = session.finalPush(camera.get(), input, output, choice.type);
    }
    camera->deinitialiseCamera();
    return status;
}

bool runGuarded(const std::function<VX2_RetStatus()> &run, const QString &subject, const QString &path,
                Reporter &reporter, VX2_RetStatus &status)
{
    try {
        status = run();
        return true;
    } catch (const std::exception &e) {
        reporter.error(subject, QStringLiteral("the camera failed: %1").arg(QString::fromUtf8(e.what())), path);
    } catch (...) {
        reporter.error(subject, QStringLiteral("the camera failed"), path);
    }
    return false;
}

RunFindings RunFindings::of(const RepositoryComponents::DocumentAnalysis &analysis)
{
    RunFindings findings;
    const RepositoryComponents::DocumentStatistics *const document = analysis.currentDocument();
    if (document == nullptr)
        return findings;
    for (const auto &group : document->contentGroups()) {
        findings.contents += int(group.second->contentItems().size());
        findings.sanitised += int(group.second->sanitisationItems().size());
        findings.remedies += int(group.second->remedyItems().size());
        findings.issues += int(group.second->issueItems().size());
        if (findings.firstIssue.isEmpty() && !group.second->issueItems().empty())
            findings.firstIssue = QString::fromStdString(group.second->issueItems().begin()->second->description());
    }
    return findings;
}

QString RunFindings::verdict(VX2_RetStatus status) const
{
    if (status == VX2_Fatal)
        return QStringLiteral("unreadable");
    if (isVX2_RetStatusFail(status))
        return QStringLiteral("rejected");
    if (unsupported)
        return QStringLiteral("unsupported");
    if (issues > 0)
        return QStringLiteral("issues");
    if (sanitised > 0 || remedies > 0)
        return QStringLiteral("sanitised");
    return QStringLiteral("clean");
}

void RunFindings::addTo(QJsonObject &object, VX2_RetStatus status) const
{
    object.insert(QStringLiteral("status"), status);
    object.insert(QStringLiteral("verdict"), verdict(status));
    object.insert(QStringLiteral("contents"), contents);
    object.insert(QStringLiteral("sanitised"), sanitised);
    object.insert(QStringLiteral("remedies"), remedies);
    object.insert(QStringLiteral("issues"), issues);
    if (!firstIssue.isEmpty())
        object.insert(QStringLiteral("first_issue"), firstIssue);
}

QString RunFindings::summary(VX2_RetStatus status) const
{
    QString text = QStringLiteral("%1 (%2 content, %3 sanitised, %4 issue%5")
                       .arg(verdict(status))
                       .arg(contents)
                       .arg(sanitised)
                       .arg(issues)
                       .arg(issues == 1 ? "" : "s");
    if (!firstIssue.isEmpty())
        text += QStringLiteral(": \"%1\"").arg(firstIssue);
    return text + QLatin1Char(')');
}

bool writeWhole(const QString &path, const char *data, qint64 size, QString *error)
{
    // A link planted where an output goes would carry it elsewhere.
    const QFileInfo target(path);
    if (target.isSymLink() || (target.exists() && !target.isFile())) {
        if (error)
            *error = QStringLiteral("%1 is a link or not a plain file").arg(path);
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || (size > 0 && file.write(data, size) != size) || !file.commit()) {
        if (error)
            *error = file.errorString();
        file.cancelWriting();
        return false;
    }
    return true;
}

QString ReportNames::next(const QString &name)
{
    if (!m_file.isEmpty() || m_directory.isEmpty())
        return m_file;
    QString candidate = name + QStringLiteral(".xml");
    for (int n = 2; m_used.contains(candidate); ++n)
        candidate = QStringLiteral("%1-%2.xml").arg(name).arg(n);
    m_used.insert(candidate);
    return QDir(m_directory).filePath(candidate);
}

AnalysisOutput::AnalysisOutput(CameraBase &session) : m_session(session)
{
    m_session.registryEntry(CameraBase::regAnalysis).setMemory(&m_data, &m_size);
}

bool AnalysisOutput::write(const QString &path, const QString &subject, Reporter &reporter)
{
    if (path.isEmpty())
        return true;
    QString error;
    if (!m_session.dumpAnalysisToBuffer()
        || !m_session.registryEntry(CameraBase::regAnalysis).writeMemoryBufferFromEntry(m_session.analysisBuffer())
        || !writeWhole(path, m_data, qint64(m_size), &error)) {
        reporter.error(subject, QStringLiteral("report not written to %1%2")
                                    .arg(path, error.isEmpty() ? QString() : QStringLiteral(": ") + error));
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------

namespace {

QStringList *g_lines = nullptr;
QtMessageHandler g_previous = nullptr;

void captureLine(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (g_lines != nullptr && type == QtDebugMsg)
        *g_lines << message;
    if (g_previous != nullptr)
        g_previous(type, context, message);
}

} // namespace

DiagnosticLines::DiagnosticLines()
{
    g_lines = &m_lines;
    g_previous = qInstallMessageHandler(captureLine);
}

DiagnosticLines::~DiagnosticLines()
{
    qInstallMessageHandler(g_previous);
    g_lines = nullptr;
}

QString DiagnosticLines::failure() const
{
    for (auto it = m_lines.crbegin(); it != m_lines.crend(); ++it)
        if (it->contains(QLatin1String("fail"), Qt::CaseInsensitive))
            return it->trimmed();
    return QString();
}
