#include "ooxml_plugin.h"

#include "ooxml_camera.h"
#include "ooxml_messages.h"

namespace Ooxml {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

VXCameraIF *Ooxml_camera_pluginIF::getCamera()
{
    return new Ooxml_camera;
}

ft_t Ooxml_camera_pluginIF::getRegisteredFileTypeEnum()
{
    return ft_opc;
}

ft_t Ooxml_camera_pluginIF::getFileTypeFromFileExtension(const char *)
{
    return ft_unknown;
}

ft_t Ooxml_camera_pluginIF::getFileTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

ft_t Ooxml_camera_pluginIF::getSubTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

const AnalysisGroupIdMap_t *Ooxml_camera_pluginIF::getAnalysisGroupIdMap()
{
    return ooxml_getAnalysisGroupIdMap();
}

uint32_t Ooxml_camera_pluginIF::getErrMsgID(char *key)
{
    return ooxml_getErrMsgID(key);
}

uint32_t Ooxml_camera_pluginIF::getSanitisationMsgID(char *key)
{
    return ooxml_getSanitisationMsgID(key);
}

uint32_t Ooxml_camera_pluginIF::getAnalysisGroupID(unsigned int item)
{
    return ooxml_getAnalysisGroupID(item);
}

int Ooxml_camera_pluginIF::initialiseIDLookups()
{
    return ooxml_initialiseIDLookups();
}

} // namespace Ooxml
