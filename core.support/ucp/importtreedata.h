#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>

class CameraBase;
class MemoryBuffer;
class VXCameraIF;
namespace ZipUtils {
class Unzip;
}

// Reads the trees of an export archive back into cameras for an
// import-mode session: each stream (an archive entry) is rebuilt by a fresh
// camera of the session's camera pool, in the session's serial form.
class ImportTreeData
{
public:
    // A null session is a programming error (Qt's null-pointer check).
    explicit ImportTreeData(CameraBase *session);
    ~ImportTreeData();
    ImportTreeData(const ImportTreeData &) = delete;
    ImportTreeData &operator=(const ImportTreeData &) = delete;

    // Opens the archive where it lies (it must stay unchanged until the
    // archive is closed) and imports its container stream, the first entry
    // whose name holds "_container_", as the session's camera. False when
    // the archive does not open.
    bool openTreeData(MemoryBuffer *archive);
    // The names of the archive's streams, in archive order.
    QStringList entryNames() const;
    // Reads an entry into the buffer at its cursor; false when it is missing
    // or damaged.
    bool getEntryData(const QString &entryName, MemoryBuffer *buffer);
    // The camera rebuilt from the entry and validated (owned by the caller),
    // or null when the stream does not import or fails validation. Its
    // stream is kept in a buffer of the session's pool for as long as the
    // session lives.
    VXCameraIF *import_stream(QString entryName, QString &streamName, MemoryBuffer *output);
    // The camera rebuilt from the serial stream (owned by the caller), or null.
    VXCameraIF *runImport(MemoryBuffer *serial, QString &streamName, MemoryBuffer *output);
    void closeTreeData();

private:
    CameraBase *m_session;
    std::unique_ptr<ZipUtils::Unzip> m_unzip;
    QSet<QString> m_names; // the streams imported so far
};
