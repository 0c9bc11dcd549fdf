// A whole Office Open XML camera run over arbitrary bytes, under a policy
// that sanitises everything: reading, validation and writing answer as they
// should, every node is released, and whatever the camera writes reads back
// as a sound package that a second run accepts. Any crash, hang or runaway
// allocation is a finding.

#include "ooxml_camera.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QtGlobal>

#include <cstdint>
#include <cstdlib>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// The build's plug-ins answer the message-id questions of the run.
Camera_Pool &pool()
{
    static Camera_Pool *const loaded = [] {
        qInstallMessageHandler(quiet);
        return new Camera_Pool(QStringLiteral(VX_PLUGIN_DIR));
    }();
    if (loaded->getPluginFromFileType(ft_opc) == nullptr || loaded->getPluginFromFileType(ft_xml) == nullptr)
        std::abort(); // the modules did not load: nothing to fuzz
    return *loaded;
}

// One run in a fresh session (no policy loaded: every switch sanitises).
VX2_RetStatus disarm(MemoryBuffer &input, MemoryBuffer &output)
{
    CameraBase session(&pool());
    Ooxml::Ooxml_camera camera;
    BDDLStructBase_Root *root = nullptr;
    if (camera.initialiseCamera(&input, &output, &session.analysis(), &session.bufferPool(), &root) != VX2_Success)
        std::abort();
    root->initialBDDLStructBase_Root(root, &session, &camera, nullptr, 0);
    const VX2_RetStatus status = camera.runCamera();
    camera.deinitialiseCamera();
    return status;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Camera_Pool &plugins = pool();
    (void)plugins;
    const long blocks = countOfBlocksAllocated();
    MemoryBuffer input(size, const_cast<unsigned char *>(data));
    MemoryBuffer output;
    const VX2_RetStatus status = disarm(input, output);
    if (status != VX2_Success && status != VX2_SuccessWithInfo && status != VX2_Fail && status != VX2_Fatal)
        std::abort();
    if (!isVX2_RetStatusFail(status)) {
        if (output.sizeOfMB() == 0)
            std::abort(); // a package that passed is written
        MemoryBuffer again;
        if (isVX2_RetStatusFail(disarm(output, again)))
            std::abort(); // what the camera writes, it reads and passes
    } else if (output.sizeOfMB() != 0) {
        std::abort(); // nothing is written for a refused package
    }
    if (countOfBlocksAllocated() != blocks)
        std::abort();
    return 0;
}
