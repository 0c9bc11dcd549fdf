#include "cameras/camerabase.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/parameterblock.h"
#include "ucp/ucpnode.h"
#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/ucpLogging.h"

#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QPluginLoader>
#include <QScopeGuard>

#include <exception>
#include <string>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

void logLine(const QString &text)
{
    tbLog(text.toUtf8().constData());
}

} // namespace

// ---------------------------------------------------------------------------
// SessionRegEntry
// ---------------------------------------------------------------------------

bool SessionRegEntry::setFilePath(const char *path)
{
    if (isSet())
        return false;
    m_filePath = QString::fromUtf8(path);
    m_active = true;
    return true;
}

bool SessionRegEntry::setMemory(char **data, size_t *size)
{
    if (isSet())
        return false;
    m_dataLocation = data;
    m_sizeLocation = size;
    m_active = true;
    return true;
}

bool SessionRegEntry::setMemory(const char *data, size_t size)
{
    if (isSet())
        return false;
    // The block is only read from; the pointer is not const because a result
    // handed back through the same location may be written to by the host.
    m_storedData = const_cast<char *>(data);
    m_storedSize = size;
    m_dataLocation = &m_storedData;
    m_sizeLocation = &m_storedSize;
    m_active = true;
    return true;
}

QString SessionRegEntry::getFileextension() const
{
    return QFileInfo(m_filePath).suffix();
}

char *SessionRegEntry::getUnderlyingMemoryBufferPtr(MemoryBuffer *buffer)
{
    // The host receives the buffer's own storage to read it without a copy.
    return buffer ? reinterpret_cast<char *>(const_cast<unsigned char *>(buffer->constData())) : nullptr;
}

bool SessionRegEntry::loadMemoryBufferFromEntry(MemoryBuffer *buffer)
{
    if (buffer == nullptr)
        return false;
    // Beyond the runtime errors of the buffer and the file, a size the
    // allocator refuses also ends as false rather than escaping to the host.
    try {
        if (!m_filePath.isEmpty()) {
            QFile file(m_filePath);
            buffer->readFromFile(file, false);
            buffer->m_name = m_filePath.toStdString();
            buffer->seek(0);
            return true;
        }
        if (m_dataLocation != nullptr && m_sizeLocation != nullptr && *m_sizeLocation != 0) {
            const size_t size = *m_sizeLocation;
            buffer->resizeBuffer(size, false);
            buffer->seek(0);
            // Without data the block is that many zero bytes, whatever the
            // buffer held before.
            if (*m_dataLocation != nullptr)
                buffer->putRawBytes(*m_dataLocation, size);
            else
                buffer->zeroMemoryBuffer();
            buffer->seek(0);
            return true;
        }
    } catch (const std::exception &) {
        return false;
    }
    tbLog("loadMemoryBufferFromEntry failed");
    return false;
}

bool SessionRegEntry::writeMemoryBufferFromEntry(MemoryBuffer *buffer)
{
    if (buffer == nullptr)
        return false;
    if (!m_filePath.isEmpty()) {
        if (buffer->sizeOfMB() == 0)
            return false;
        try {
            buffer->seek(0);
            QFile file(m_filePath);
            buffer->writeToFile(file);
            return true;
        } catch (const std::runtime_error &) {
            return false;
        }
    }
    if (m_dataLocation != nullptr) {
        *m_dataLocation = getUnderlyingMemoryBufferPtr(buffer);
        if (m_sizeLocation != nullptr)
            *m_sizeLocation = buffer->sizeOfMB();
        return true;
    }
    tbLog("writeMemoryBufferFromEntry failed");
    return false;
}

// ---------------------------------------------------------------------------
// CameraBase
// ---------------------------------------------------------------------------

QMap<unsigned long, CameraBase *> CameraBase::handleMap;
QMutex CameraBase::mutex;
std::atomic<uint64_t> CameraBase::handleAllocator{1};

CameraBase::CameraBase(Camera_Pool *pool) : m_name(QStringLiteral("acamerabase"))
{
    m_handle = getNewHandle(this);
    // The destructor does not run for a constructor that throws.
    auto unregister = qScopeGuard([this] { freeHandle(m_handle); });

    struct Named
    {
        MemoryBuffer *CameraBase::*buffer;
        const char *name;
    };
    static const Named workingBuffers[] = {
        {&CameraBase::m_inputBuffer, "inputBuffer"},       {&CameraBase::m_outputBuffer, "outputBuffer"},
        {&CameraBase::m_analysisBuffer, "analysisBuffer"}, {&CameraBase::m_importBuffer, "importBuffer"},
        {&CameraBase::m_exportBuffer, "exportBuffer"},
    };
    for (const Named &working : workingBuffers) {
        MemoryBuffer *const buffer = m_bufferPool.allocateBuffer();
        buffer->m_name = working.name;
        this->*working.buffer = buffer;
    }

    m_analysis.AddFileAnalysis("docname", "doctype", "Not Applicable", 0, "");
    m_cameraPool = pool;
    unregister.dismiss();
}

CameraBase::~CameraBase()
{
    QMutexLocker lock(&mutex);
    m_camera.reset();
    freeHandleLocked(m_handle);
}

unsigned long CameraBase::getNewHandle(CameraBase *session)
{
    QMutexLocker lock(&mutex);
    for (auto it = handleMap.begin(); it != handleMap.end(); ++it) {
        if (it.value() == nullptr) {
            it.value() = session;
            return it.key();
        }
    }
    const unsigned long handle = handleAllocator.fetch_add(1);
    handleMap.insert(handle, session);
    return handle;
}

bool CameraBase::freeHandle(unsigned long handle)
{
    QMutexLocker lock(&mutex);
    return freeHandleLocked(handle);
}

bool CameraBase::freeHandleLocked(unsigned long handle)
{
    if (handleMap.remove(handle) == 1)
        return true;
    tbLog("Error CameraBase::freeHandle incorrect");
    return false;
}

CameraBase *CameraBase::findCameraBase(unsigned long handle)
{
    QMutexLocker lock(&mutex);
    return handleMap.value(handle, nullptr);
}

bool CameraBase::isExportMode() const
{
    return m_entries[regInput].isActive() && m_entries[regExport].isActive();
}

bool CameraBase::isImportMode() const
{
    return m_entries[regImport].isActive() && m_entries[regOutput].isActive();
}

bool CameraBase::isDefaultMode() const
{
    return m_entries[regInput].isActive()
           && (m_entries[regOutput].isActive() || m_entries[regAnalysis].isActive());
}

bool CameraBase::useCamera(VXCameraPluginIF *plugin)
{
    if (plugin == nullptr)
        return false;
    std::unique_ptr<VXCameraIF> camera(plugin->getCamera());
    if (!camera)
        return false;
    m_camera = std::move(camera);
    return true;
}

bool CameraBase::connectCamera(QString path)
{
    QMutexLocker lock(&mutex);
    QPluginLoader loader(path);
    return useCamera(qobject_cast<VXCameraPluginIF *>(loader.instance()));
}

VXCameraIF *CameraBase::prepareCamera(MemoryBuffer *input, MemoryBuffer *output, ft_t type, ParameterBlock *block)
{
    if (type == ft_unknown)
        return nullptr;
    VXCameraPluginIF *const plugin = m_cameraPool ? m_cameraPool->getPluginFromFileType(type) : nullptr;
    if (plugin == nullptr) {
        logLine(QStringLiteral("prepareCamera failed to find cameras for %1").arg(static_cast<int>(type)));
        return nullptr;
    }
    std::unique_ptr<VXCameraIF> camera(plugin->getCamera());
    if (!camera)
        return nullptr;

    BDDLStructBase_Root *root = nullptr;
    camera->initialiseCamera(input, output, &m_analysis, &m_bufferPool, &root);
    if (const std::unique_ptr<UCPDocument> document(camera->getUCPDocumentInterface()); document)
        document->setFiletype(type);
    if (block != nullptr)
        camera->initialiseParamBlock(block);
    if (root != nullptr)
        root->initialBDDLStructBase_Root(root, this, camera.get(), block, 0);
    return camera.release();
}

VX2_RetStatus CameraBase::finalPush(VXCameraIF *camera, MemoryBuffer *, MemoryBuffer *, ft_t)
{
    if (camera == nullptr)
        return VX2_Fail;
    // Tree export and import through archives are not available yet; a
    // session registered for them fails instead of processing the input
    // some other way.
    if (isExportMode() || isImportMode())
        return VX2_Fail;
    return camera->runCamera();
}

VX2_RetStatus CameraBase::pushCamera(MemoryBuffer *input, MemoryBuffer *output, ft_t type, ParameterBlock *block)
{
    try {
        const std::unique_ptr<VXCameraIF> camera(prepareCamera(input, output, type, block));
        if (!camera)
            return VX2_Fail;
        const VX2_RetStatus status = finalPush(camera.get(), input, output, type);
        camera->deinitialiseCamera();
        return status;
    } catch (...) {
        const std::string name = input ? input->m_name : std::string();
        tbLog(("pushCamera fail " + name).c_str());
        return VX2_Fail;
    }
}

// The report writer answers with the number of bytes written, 0 on failure.
bool CameraBase::dumpAnalysisToBuffer()
{
    if (m_externalReportActive)
        return true;
    return m_analysis.WriteReport(m_analysisBuffer, 1) != 0;
}

ParameterBlock *CameraBase::keepParameterBlock(std::unique_ptr<ParameterBlock> block)
{
    m_keptBlocks.push_back(std::move(block));
    return m_keptBlocks.back().get();
}
