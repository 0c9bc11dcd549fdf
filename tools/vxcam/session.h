#pragma once

// What the commands that run cameras share (analyse, export, import and
// disarm; identify only the pool): the camera pool they run on, the policy
// every session applies, running the chosen camera of a file, what a run
// found, and writing results whole.

#include "camerachoice.h"
#include "identification.h"

#include "ucp_engine/vxstatus.h"

#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class CameraBase;
class Camera_Pool;
class MemoryBuffer;
class Reporter;
namespace RepositoryComponents {
class DocumentAnalysis;
}

// The pool of the plug-in directory; null, after one error line, when the
// directory is missing or holds no camera plug-in.
std::unique_ptr<Camera_Pool> openCameraPool(const QString &directory, const QString &subject, Reporter &reporter);

// Whether the file is a policy a session can load; one error line when not.
bool checkPolicyFile(const QString &path, Reporter &reporter);
// Loads the checked policy into the session (nothing for an empty path).
void applyPolicy(CameraBase &session, const QString &path);

// The largest file a session reads; larger ones are refused with one line.
constexpr qint64 kMaxSessionInput = qint64(1) << 30;

// One input as a session takes it: identified as identify does, read whole
// into the session's input buffer (named after the file) and given its
// camera. False after one error line naming the file (one larger than
// kMaxSessionInput included).
struct SessionInput
{
    Identification identification;
    CameraChoice choice;
};
bool loadSessionInput(CameraBase &session, const Identifier &identifier, const Camera_Pool &pool,
                      const QString &path, Reporter &reporter, SessionInput &input);

// Runs the chosen camera over the session's input buffer in the session's
// mode. The file-identifier camera does no whole runs of its own in default
// mode (its runCamera only logs), so there its stages are run instead: the
// file is read and validated and the analysis says what it holds. Throws
// what the camera throws.
VX2_RetStatus runChosenCamera(CameraBase &session, const CameraChoice &choice);

// Runs `run`, turning what it throws into one error line naming `path`
// under `subject`. False when it threw.
bool runGuarded(const std::function<VX2_RetStatus()> &run, const QString &subject, const QString &path,
                Reporter &reporter, VX2_RetStatus &status);

// What a run's analysis recorded, and the run's verdict in a word.
struct RunFindings
{
    int contents = 0;
    int sanitised = 0;
    int remedies = 0;
    int issues = 0;
    QString firstIssue;
    // Carried by the file-identifier camera only: no camera disarms its type.
    bool unsupported = false;

    static RunFindings of(const RepositoryComponents::DocumentAnalysis &analysis);
    QString verdict(VX2_RetStatus status) const;
    void addTo(QJsonObject &object, VX2_RetStatus status) const;
    QString summary(VX2_RetStatus status) const;
};

// Writes the bytes to a temporary file beside `path` and renames it over
// `path`, so a failure leaves nothing half written. Never through a link or
// over anything but a plain file. False, with the reason, on failure.
bool writeWhole(const QString &path, const char *data, qint64 size, QString *error);

// Where each run's report goes, as --report FILE or --report-dir DIR ask:
// the one file; else one per name in the directory, "NAME.xml", later ones
// of the same name numbered ("NAME-2.xml"); else nowhere (an empty path).
class ReportNames
{
public:
    ReportNames(QString file, QString directory) : m_file(std::move(file)), m_directory(std::move(directory)) {}
    QString next(const QString &name);

private:
    QString m_file;
    QString m_directory;
    QSet<QString> m_used;
};

// The session's analysis output (entry 3), registered with variables of
// its own through which the session hands the report over.
class AnalysisOutput
{
public:
    explicit AnalysisOutput(CameraBase &session);
    AnalysisOutput(const AnalysisOutput &) = delete;
    AnalysisOutput &operator=(const AnalysisOutput &) = delete;

    // Writes the run's report to `path`; nothing for an empty path. False,
    // after one error line naming `subject`, when it cannot be written.
    bool write(const QString &path, const QString &subject, Reporter &reporter);

private:
    CameraBase &m_session;
    char *m_data = nullptr;
    size_t m_size = 0;
};

// The framework's diagnostic lines while this is alive; they still reach the
// handler that was there before (shown with --verbose).
class DiagnosticLines
{
public:
    DiagnosticLines();
    ~DiagnosticLines();
    DiagnosticLines(const DiagnosticLines &) = delete;
    DiagnosticLines &operator=(const DiagnosticLines &) = delete;

    // The last line that says something failed, trimmed; empty when none.
    QString failure() const;

private:
    QStringList m_lines;
};
