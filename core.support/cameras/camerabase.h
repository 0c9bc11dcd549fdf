#pragma once

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBufferPool.h"
#include "cameras/camera_interfaces.h"
#include "policy/ContentManagement.h"
#include "ucp/serializationformat.h"

#include <QFile>
#include <QMap>
#include <QMutex>
#include <QString>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class Camera_Pool;
class MemoryBuffer;
class ParameterBlock;

// Where one input comes from or one result goes: a file path or a block of
// memory. An entry can be set once; every setter refuses a second setting.
class SessionRegEntry
{
public:
    SessionRegEntry() = default;
    // The locations may point into the entry itself, so it never moves.
    SessionRegEntry(const SessionRegEntry &) = delete;
    SessionRegEntry &operator=(const SessionRegEntry &) = delete;

    // The path as UTF-8; null gives an empty path (an active entry that is
    // neither file nor memory).
    bool setFilePath(const char *path);
    // The caller's own pointer and size variables: results are handed back
    // through them.
    bool setMemory(char **data, size_t *size);
    // A block given by value; the entry keeps pointer and size itself.
    bool setMemory(const char *data, size_t size);

    bool isActive() const { return m_active; }
    QString getFilepath() const { return m_filePath; }
    QString getFileextension() const;

    // The first byte of the buffer's storage; null for a null buffer.
    static char *getUnderlyingMemoryBufferPtr(MemoryBuffer *buffer);
    // Fills the buffer from the file or memory block, cursor at 0.
    bool loadMemoryBufferFromEntry(MemoryBuffer *buffer);
    // Writes the buffer to the file, or hands its storage address and size
    // to the memory locations (no copy: valid while the buffer lives
    // unresized).
    bool writeMemoryBufferFromEntry(MemoryBuffer *buffer);

private:
    bool isSet() const { return !m_filePath.isEmpty() || m_dataLocation != nullptr || m_sizeLocation != nullptr; }

    QString m_filePath;
    char *m_storedData = nullptr;
    char **m_dataLocation = nullptr;
    uint64_t m_storedSize = 0;
    size_t *m_sizeLocation = nullptr;
    bool m_active = false;
};

// One processing session: one document going through one camera. The session
// owns its buffer pool, five working buffers, the run's analysis repository,
// the content-management policy and the attached camera; the camera pool is
// the host's. Each session holds a process-wide handle under which code that
// only has the number finds it again.
class CameraBase
{
public:
    // The registry entries the session itself reads; the others are the host's.
    enum RegEntry : size_t {
        regInput = 1,
        regOutput = 2,
        regAnalysis = 3,
        regImport = 5,
        regExport = 6,
        regEntryCount = 10,
    };

    explicit CameraBase(Camera_Pool *pool);
    ~CameraBase();

    CameraBase(const CameraBase &) = delete;
    CameraBase &operator=(const CameraBase &) = delete;

    // --- handles -----------------------------------------------------------------
    unsigned long getHandle() const { return m_handle; }
    // Registers a session: a handle whose slot holds no session is reused,
    // else a fresh one is issued (1, 2, 3 ...; never 0).
    static unsigned long getNewHandle(CameraBase *session);
    // False, with a log line, when the handle is not registered.
    static bool freeHandle(unsigned long handle);
    static CameraBase *findCameraBase(unsigned long handle);

    // --- what the session holds ----------------------------------------------------
    const QString &name() const { return m_name; }
    Camera_Pool *getCameraPool() const { return m_cameraPool; }
    ContentManagement &contentManagement() { return m_contentManagement; }
    RepositoryComponents::DocumentAnalysis &analysis() { return m_analysis; }
    MemoryBufferPool &bufferPool() { return m_bufferPool; }
    VXCameraIF *camera() const { return m_camera.get(); }
    // Entries 0 to 9; std::out_of_range past them.
    SessionRegEntry &registryEntry(size_t index) { return m_entries.at(index); }

    MemoryBuffer *inputBuffer() const { return m_inputBuffer; }
    MemoryBuffer *outputBuffer() const { return m_outputBuffer; }
    MemoryBuffer *analysisBuffer() const { return m_analysisBuffer; }
    MemoryBuffer *importBuffer() const { return m_importBuffer; }
    MemoryBuffer *exportBuffer() const { return m_exportBuffer; }

    SerializationFormat getSerialFormat() const { return m_serialFormat; }
    void setSerialFormat(SerializationFormat format) { m_serialFormat = format; }
    bool getPrettyPrint() const { return m_prettyPrint; }
    void setPrettyPrint(bool pretty) { m_prettyPrint = pretty; }
    bool getExternalReportActive() const { return m_externalReportActive; }
    void setExternalReportActive(bool active) { m_externalReportActive = active; }
    // What an embedded image of a document exported by this session is
    // replaced with once its image camera has run: the reference under which
    // the image's own stream was stored beside the document. Empty until the
    // exporter (or the host) sets it.
    const std::string &exportText() const { return m_exportText; }
    void setExportText(std::string text) { m_exportText = std::move(text); }

    // --- mode, from the registered entries ------------------------------------------
    bool isExportMode() const;
    bool isImportMode() const;
    bool isDefaultMode() const;

    // --- cameras -----------------------------------------------------------------------
    // Attach a camera of the plug-in, or of the plug-in file at `path`. A camera
    // obtained replaces (and deletes) the one attached before; on failure the
    // session keeps what it had.
    bool useCamera(VXCameraPluginIF *plugin);
    bool connectCamera(QString path);

    // A camera for the type, initialised over the buffers and the session's
    // repository and pool, its root bound to this session; owned by the
    // caller. Null for type 0 or a type no plug-in handles.
    VXCameraIF *prepareCamera(MemoryBuffer *input, MemoryBuffer *output, ft_t type, ParameterBlock *block);
    // Runs a prepared camera in the session's mode.
    VX2_RetStatus finalPush(VXCameraIF *camera, MemoryBuffer *input, MemoryBuffer *output, ft_t type);
    // prepareCamera, finalPush, deinitialise and delete; never throws.
    VX2_RetStatus pushCamera(MemoryBuffer *input, MemoryBuffer *output, ft_t type, ParameterBlock *block);

    // Writes the detailed analysis report into the analysis buffer; true when
    // the report was written (or is left to an external reporter).
    bool dumpAnalysisToBuffer();

    // Keeps the parameter block of a camera this session made outside
    // prepareCamera (an imported one) for as long as the session lives, since
    // the camera's root refers to it; hands back the block.
    ParameterBlock *keepParameterBlock(std::unique_ptr<ParameterBlock> block);

    void initiateIssueMessages() {}
    void analysisSchema_GetString() {}
    int runsession() { return 0; }

private:
    static bool freeHandleLocked(unsigned long handle);

    static QMap<unsigned long, CameraBase *> handleMap;
    static QMutex mutex;
    static std::atomic<uint64_t> handleAllocator;

    QString m_name;
    // First among the buffer owners, so it goes last: it deletes every buffer.
    MemoryBufferPool m_bufferPool;
    std::unique_ptr<VXCameraIF> m_camera;
    MemoryBuffer *m_inputBuffer = nullptr;
    MemoryBuffer *m_outputBuffer = nullptr;
    MemoryBuffer *m_analysisBuffer = nullptr;
    MemoryBuffer *m_importBuffer = nullptr;
    MemoryBuffer *m_exportBuffer = nullptr;
    [[maybe_unused]] void *m_reserved = nullptr; // a layout word nothing uses
    std::array<SessionRegEntry, regEntryCount> m_entries;
    QFile m_file; // the session's file object; unopened, nothing uses it yet
    RepositoryComponents::DocumentAnalysis m_analysis;
    SerializationFormat m_serialFormat = sfSISL;
    bool m_prettyPrint = false;
    ContentManagement m_contentManagement;
    unsigned long m_handle = 0;
    Camera_Pool *m_cameraPool = nullptr;
    bool m_externalReportActive = false;
    std::string m_exportText;
    std::vector<std::unique_ptr<ParameterBlock>> m_keptBlocks;
};
