#include "ucp/importtreedata.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "cameras/camerabase.h"
#include "containers/ZipUtils.h"
#include "ucp/serialdatareaderwriter.h"
#include "ucp/ucpnode.h"
#include "ucp/ucpserialization.h"
#include "ucp_engine/ucpLogging.h"

#include <QtGlobal>

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

ImportTreeData::ImportTreeData(CameraBase *session) : m_session(session), m_unzip(std::make_unique<ZipUtils::Unzip>())
{
    Q_CHECK_PTR(session);
}

ImportTreeData::~ImportTreeData() = default;

bool ImportTreeData::openTreeData(MemoryBuffer *archive)
{
    Q_CHECK_PTR(m_session);
    Q_CHECK_PTR(archive);
    if (!m_unzip)
        m_unzip = std::make_unique<ZipUtils::Unzip>();
    if (archive == nullptr || !m_unzip->openInPlace(archive))
        return false;
    for (const QString &name : m_unzip->getFilenames()) {
        if (!name.contains(QLatin1String("_container_")))
            continue;
        QString streamName;
        std::unique_ptr<VXCameraIF> camera(import_stream(name, streamName, m_session->outputBuffer()));
        if (camera) {
            // The session's camera hands out a new document on each request;
            // none is kept from here.
            delete camera->getUCPDocumentInterface();
            m_session->setCamera(std::move(camera));
        }
        break;
    }
    return true;
}

QStringList ImportTreeData::entryNames() const
{
    return m_unzip ? QStringList(m_unzip->getFilenames()) : QStringList();
}

bool ImportTreeData::getEntryData(const QString &entryName, MemoryBuffer *buffer)
{
    return m_unzip && m_unzip->getEntryData(entryName, buffer);
}

VXCameraIF *ImportTreeData::import_stream(QString entryName, QString &streamName, MemoryBuffer *output)
{
    MemoryBuffer *serial = m_session->bufferPool().allocateBuffer();
    if (!getEntryData(entryName, serial)) {
        m_session->bufferPool().deallocateBuffer(&serial);
        return nullptr;
    }
    serial->seek(0);
    serial->m_name = entryName.toStdString();
    std::unique_ptr<VXCameraIF> camera(runImport(serial, streamName, output));
    if (!camera)
        return nullptr;
    m_names.insert(entryName);
    const VX2_RetStatus status = camera->runValidation();
    tbLog(QStringLiteral("Stream:%1 runValidation Status is: %2").arg(entryName).arg(status).toUtf8().constData());
    if (isVX2_RetStatusFail(status)) {
        camera->deinitialiseCamera();
        return nullptr;
    }
    return camera.release();
}

VXCameraIF *ImportTreeData::runImport(MemoryBuffer *serial, QString &streamName, MemoryBuffer *output)
{
    UCPSerialization serialization;
    serialization.register_session(m_session);
    const std::unique_ptr<SerialDataReaderWriter> rw =
        UCPSerialization::getSerialDataReaderWriter(m_session->getSerialFormat());
    serialization.register_importDeserialisableBuffer(serial);
    serialization.register_outputBuffer(output);
    if (!serialization.importSerialData(rw.get(), streamName))
        return nullptr;
    return serialization.getImportedCameraIF();
}

void ImportTreeData::closeTreeData()
{
    m_unzip.reset();
}
