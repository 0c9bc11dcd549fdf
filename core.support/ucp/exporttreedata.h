#pragma once

#include "cameras/filetype.h"

#include <QMap>
#include <QString>

#include <cstdint>
#include <memory>

class CameraBase;
class MemoryBuffer;
class VXCameraIF;
namespace ZipUtils {
class Zip;
}

// Collects the trees of one export-mode session as streams of one zip
// archive held in memory. Each camera that finishes is stored as an entry
// "Id_<run id>_<stream name>_<counter>.<extension>", in the session's serial
// form; images of the types exported as plain files are stored as they are.
// Closing puts the finished archive in the session's export buffer.
class ExportTreeData
{
public:
    // Draws the run id: a pseudo-random number seeded from the current time
    // in seconds. The archive itself is started when the first stream (or
    // the close) needs it, so a session that never exports pays nothing.
    explicit ExportTreeData(CameraBase *session);
    ~ExportTreeData();
    ExportTreeData(const ExportTreeData &) = delete;
    ExportTreeData &operator=(const ExportTreeData &) = delete;

    // Reads and validates the camera's input, then stores its tree (or the
    // input itself, for an image) as the next stream. False, with nothing
    // stored, when reading or validation fails or the stream cannot be
    // written. The entry name becomes the session's export text, the
    // reference an embedded image leaves behind in its document.
    bool runExport(VXCameraIF *camera, MemoryBuffer *input, QString streamType, ft_t fileType);
    // Logs the manifest, puts the archive (empty when nothing was stored) in
    // the session's export buffer and ends the archive; later streams start
    // a new one.
    bool closeTreeData();

    int32_t runId() const { return m_runId; }
    int32_t streamCounter() const { return m_streamCounter; }
    // Stream name -> entry name of every stream stored.
    const QMap<QString, QString> &manifest() const { return m_manifest; }

private:
    ZipUtils::Zip *archive();

    CameraBase *m_session;
    int32_t m_runId;
    int32_t m_streamCounter = 0;
    std::unique_ptr<ZipUtils::Zip> m_zip;
    QMap<QString, QString> m_manifest;
    QString m_lastEntry; // working state: the entry last stored
};
