#include "signatures_plugin.h"

#include "signatures.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/cameraplugin_export.h"

namespace Signatures {

VXCameraIF *Signatures_camera_pluginIF::getCamera()
{
    return nullptr;
}

ft_t Signatures_camera_pluginIF::getRegisteredFileTypeEnum()
{
    return ft_unknown;
}

ft_t Signatures_camera_pluginIF::getFileTypeFromFileExtension(const char *)
{
    return ft_unknown;
}

ft_t Signatures_camera_pluginIF::getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason)
{
    if (buffer == nullptr)
        return ft_unknown;
    return identify(buffer->constData(), buffer->sizeOfMB(), reason);
}

ft_t Signatures_camera_pluginIF::getSubTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

const AnalysisGroupIdMap_t *Signatures_camera_pluginIF::getAnalysisGroupIdMap()
{
    return nullptr;
}

uint32_t Signatures_camera_pluginIF::getErrMsgID(char *)
{
    return 0;
}

uint32_t Signatures_camera_pluginIF::getSanitisationMsgID(char *)
{
    return 0;
}

uint32_t Signatures_camera_pluginIF::getAnalysisGroupID(unsigned int)
{
    return 0;
}

int Signatures_camera_pluginIF::initialiseIDLookups()
{
    return 0;
}

} // namespace Signatures

VX_EXPORT_CAMERA_PLUGIN(Signatures::Signatures_camera_pluginIF, "Signatures_camera_pluginIF")
