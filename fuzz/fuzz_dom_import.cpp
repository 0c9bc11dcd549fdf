// Serial streams from arbitrary bytes imported into cameras, as a session
// in import mode does: the first byte picks the form (even: XML, odd: SISL),
// the rest is the stream. Streams name the file-identifier camera or the
// test tree camera, both loaded through a camera pool. An imported camera
// must validate and write without trouble, and every node it held must be
// freed with it. A crash, hang, leak or runaway allocation is a finding.

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "ucp/serialdatareaderwriter.h"
#include "ucp/ucpserialization.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtGlobal>

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// The modules are copied under the names the seed streams give as camera names.
Camera_Pool &pool()
{
    static QTemporaryDir directory;
    static const std::unique_ptr<Camera_Pool> made = [] {
        qInstallMessageHandler(quiet);
        if (!QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), directory.filePath("libfileidentifier.so"))
            || !QFile::copy(QStringLiteral(VX_TREE_CAMERA_MODULE), directory.filePath("libvxtree.so")))
            std::abort();
        auto loaded = std::make_unique<Camera_Pool>(directory.path());
        if (loaded->getListOfCameraNames().size() != 2)
            std::abort();
        return loaded;
    }();
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    Camera_Pool &cameras = pool();
    const long blocks = countOfBlocksAllocated();
    {
        CameraBase session(&cameras);
        MemoryBuffer *const stream = session.bufferPool().allocateBuffer(size - 1, const_cast<uint8_t *>(data + 1));
        MemoryBuffer *const output = session.bufferPool().allocateBuffer();
        UCPSerialization serialization;
        serialization.register_session(&session);
        serialization.register_importDeserialisableBuffer(stream);
        serialization.register_outputBuffer(output);
        const auto rw = UCPSerialization::getSerialDataReaderWriter(data[0] % 2 ? sfSISL : sfXML);
        QString streamName;
        if (serialization.importSerialData(rw.get(), streamName)) {
            const std::unique_ptr<VXCameraIF> camera(serialization.getImportedCameraIF());
            if (camera == nullptr)
                std::abort();
            camera->runValidation();
            camera->writeOutputBuffer();
            camera->deinitialiseCamera();
        }
    }
    if (countOfBlocksAllocated() != blocks)
        std::abort();
    return 0;
}
