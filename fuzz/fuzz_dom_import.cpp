// Serial streams from arbitrary bytes imported into cameras, as a session
// in import mode does: the first byte picks the form (even: XML, odd: SISL),
// the rest is the stream. Streams name the file-identifier camera or the
// test tree camera, both loaded through a camera pool. An imported camera
// must validate and write without trouble, and every node it held must be
// freed with it. A crash, hang, leak or runaway allocation is a finding.

#include "treecameras.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camerabase.h"
#include "ucp/serialdatareaderwriter.h"
#include "ucp/ucpserialization.h"
#include "ucp_engine/BDDLStructBase.h"


#include <cstdint>
#include <cstdlib>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    Camera_Pool &cameras = treeCameraPool();
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
