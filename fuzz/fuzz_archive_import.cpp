// Export archives from arbitrary bytes imported as an import-mode session
// does it: the archive is opened (its container stream, if any, becoming the
// session's camera) and every entry is imported by name, read back into its
// camera, validated and written. Entries ending in .xml are read as XML,
// others as SISL. A crash, hang, leak or runaway allocation is a finding.

#include "treecameras.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camerabase.h"
#include "ucp/importtreedata.h"
#include "ucp_engine/BDDLStructBase.h"


#include <cstdint>
#include <cstdlib>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Camera_Pool &cameras = treeCameraPool();
    const long blocks = countOfBlocksAllocated();
    {
        CameraBase session(&cameras);
        session.registryEntry(CameraBase::regImport).setFilePath("archive");
        session.registryEntry(CameraBase::regOutput).setFilePath("output");
        MemoryBuffer *const archive = session.importBuffer();
        archive->putRawBytes(data, size);
        if (!session.importer().openTreeData(archive))
            return 0;
        session.useCamera(cameras.getPluginFromFileType(ft_fileidentifier));
        int imported = 0;
        for (const QString &entry : session.importer().entryNames()) {
            if (++imported > 16)
                break; // enough to show one entry's effect on the next
            session.setSerialFormat(entry.endsWith(QLatin1String(".xml")) ? sfXML : sfSISL);
            MemoryBuffer *const input = session.bufferPool().allocateBuffer();
            MemoryBuffer *output = session.bufferPool().allocateBuffer();
            input->m_streamName = entry.toStdString();
            session.finalPush(session.camera(), input, output, ft_unknown);
            MemoryBuffer *used = input;
            session.bufferPool().deallocateBuffer(&used);
            session.bufferPool().deallocateBuffer(&output);
        }
    }
    if (countOfBlocksAllocated() != blocks)
        std::abort();
    return 0;
}
