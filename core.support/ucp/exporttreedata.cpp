#include "ucp/exporttreedata.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "containers/ZipUtils.h"
#include "policy/ContentManagement.h"
#include "ucp/serialdatareaderwriter.h"
#include "ucp/ucpserialization.h"
#include "ucp_engine/ucpLogging.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QRegularExpression>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// Room reserved for an archive when it is started.
constexpr int kInitialArchiveSize = 64 * 1024;

void logLine(const QString &text)
{
    tbLog(text.toUtf8().constData());
}

int32_t drawRunId()
{
    const auto seconds = quint32(QDateTime::currentMSecsSinceEpoch() / 1000);
    return int32_t(QRandomGenerator(seconds).generate() & 0x7fffffffu);
}

} // namespace

ExportTreeData::ExportTreeData(CameraBase *session) : m_session(session), m_runId(drawRunId()) {}

ExportTreeData::~ExportTreeData() = default;

ZipUtils::Zip *ExportTreeData::archive()
{
    if (!m_zip) {
        auto zip = std::make_unique<ZipUtils::Zip>();
        if (!zip->open(kInitialArchiveSize))
            return nullptr;
        m_zip = std::move(zip);
    }
    return m_zip.get();
}

bool ExportTreeData::runExport(VXCameraIF *camera, MemoryBuffer *input, QString streamType, ft_t fileType)
{
    if (camera == nullptr || input == nullptr || m_session == nullptr)
        return false;
    VX2_RetStatus status = combineVX2_RetStatus(camera->readInputBuffer(), 0);
    status = combineVX2_RetStatus(camera->runValidation(), status);
    if (isVX2_RetStatusFail(status))
        return false;

    UCPSerialization serialization;
    serialization.register_session(m_session);
    const std::unique_ptr<SerialDataReaderWriter> rw =
        UCPSerialization::getSerialDataReaderWriter(m_session->getSerialFormat());
    rw->setPrettyPrint(m_session->getPrettyPrint());
    MemoryBufferPool &pool = m_session->bufferPool();
    MemoryBuffer *serial = pool.allocateBuffer();
    serialization.register_serialisabledoc(camera, serial);

    const QString streamName =
        input->m_name.empty() ? QStringLiteral("unknown_streamname") : QString::fromStdString(input->m_name);
    const Camera_Pool *const cameras = m_session->getCameraPool();
    const QString cameraName = cameras ? cameras->getCameraNameFromFileType(fileType) : QString();

    QString extension = QStringLiteral("default");
    MemoryBuffer *stored = serial;
    if (ContentManagement::isPA_ImageExportImport(fileType, extension)) {
        // Images travel as they are; an image part named like image12.jpg
        // keeps its number and suffix in the entry's extension.
        pool.deallocateBuffer(&serial);
        stored = input;
        static const QRegularExpression imageName(QStringLiteral("image(\\d+)\\.(\\w+)"));
        const QRegularExpressionMatch match = imageName.match(streamName);
        if (match.hasMatch())
            extension = QStringLiteral("%1.%2").arg(match.captured(1), match.captured(2));
    } else if (!serialization.exportSerialData(rw.get(), streamName, cameraName)) {
        pool.deallocateBuffer(&serial);
        return false;
    }

    const QString entryName = rw->generateStreamName(streamType, streamName, m_runId, m_streamCounter, extension);
    ++m_streamCounter;
    m_manifest.insert(streamName, entryName);
    m_lastEntry = entryName;
    m_session->setExportText(entryName.toStdString());
    ZipUtils::Zip *const zip = archive();
    const bool added = zip != nullptr && zip->addEntry(entryName, stored);
    if (serial != nullptr)
        pool.deallocateBuffer(&serial);
    return added;
}

bool ExportTreeData::closeTreeData()
{
    QStringList lines;
    for (auto it = m_manifest.cbegin(); it != m_manifest.cend(); ++it)
        lines << QStringLiteral("%1 -> %2").arg(it.key(), it.value());
    logLine(QStringLiteral("TODO Add Manifest: %1").arg(lines.join(QStringLiteral(", "))));
    ZipUtils::Zip *const zip = archive();
    MemoryBuffer *const target = m_session ? m_session->exportBuffer() : nullptr;
    bool copied = false;
    if (zip != nullptr && target != nullptr) {
        target->seek(0);
        copied = zip->copyZipFileToBuffer(target);
    }
    m_zip.reset();
    return copied;
}
