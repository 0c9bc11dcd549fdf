// A whole file-identifier camera run over arbitrary bytes, through the built
// plug-in module: every stage answers as it should, a root marked checked
// writes back exactly what was read, and the sub-type question leaves the
// buffer at 0. Any crash, hang or runaway allocation is a finding.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"
#include "cameras/camera_interfaces.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QPluginLoader>
#include <QtGlobal>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

VXCameraPluginIF *plugin()
{
    static VXCameraPluginIF *const loaded = [] {
        qInstallMessageHandler(quiet);
        QPluginLoader loader(QStringLiteral(VX_FILEIDENTIFIER_MODULE));
        return qobject_cast<VXCameraPluginIF *>(loader.instance());
    }();
    if (loaded == nullptr)
        std::abort(); // the module did not load: nothing to fuzz
    return loaded;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    VXCameraPluginIF *const files = plugin();
    MemoryBuffer input(size, const_cast<unsigned char *>(data));
    input.m_name = "fuzz";
    MemoryBuffer output;
    MemoryBufferPool pool;
    RepositoryComponents::DocumentAnalysis analysis;
    analysis.AddFileAnalysis("docname", "doctype", "Not Applicable", 0, "");

    const long blocks = countOfBlocksAllocated();
    {
        const std::unique_ptr<VXCameraIF> camera(files->getCamera());
        BDDLStructBase_Root *root = nullptr;
        if (camera->initialiseCamera(&input, &output, &analysis, &pool, &root) != 0 || root == nullptr)
            std::abort();
        if (camera->readInputBuffer() != (size == 0 ? -2 : 0) || root->size() != size)
            std::abort();
        if (camera->runValidation() != 0)
            std::abort();
        if (camera->writeOutputBuffer() != 0 || output.sizeOfMB() != 0)
            std::abort(); // never written without the check
        root->m_processStatus = 0x84;
        if (camera->writeOutputBuffer() != 0 || output.sizeOfMB() != size
            || (size != 0 && std::memcmp(output.constData(), data, size) != 0))
            std::abort();
        camera->deinitialiseCamera();
    }
    if (countOfBlocksAllocated() != blocks)
        std::abort();

    const char *reason = nullptr;
    const ft_t subType = files->getSubTypeFromFileInMemory(&input, &reason);
    if (reason == nullptr || input.tell() != 0 || (subType != ft_unknown && (subType < ft_zip || subType > ft_tar)))
        std::abort();
    return 0;
}
