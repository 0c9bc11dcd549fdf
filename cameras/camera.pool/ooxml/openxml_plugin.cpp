#include "openxml_plugin.h"

#include "ooxml_messages.h"

namespace Ooxml {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

VXCameraIF *OpenXml_family_pluginIF::getCamera()
{
    return nullptr;
}

ft_t OpenXml_family_pluginIF::getRegisteredFileTypeEnum()
{
    return ft_xml;
}

ft_t OpenXml_family_pluginIF::getFileTypeFromFileExtension(const char *)
{
    return ft_unknown;
}

ft_t OpenXml_family_pluginIF::getFileTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

ft_t OpenXml_family_pluginIF::getSubTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

const AnalysisGroupIdMap_t *OpenXml_family_pluginIF::getAnalysisGroupIdMap()
{
    return ooxml_getAnalysisGroupIdMap();
}

uint32_t OpenXml_family_pluginIF::getErrMsgID(char *key)
{
    return ooxml_getErrMsgID(key);
}

uint32_t OpenXml_family_pluginIF::getSanitisationMsgID(char *key)
{
    return ooxml_getSanitisationMsgID(key);
}

uint32_t OpenXml_family_pluginIF::getAnalysisGroupID(unsigned int item)
{
    return ooxml_getAnalysisGroupID(item);
}

int OpenXml_family_pluginIF::initialiseIDLookups()
{
    return ooxml_initialiseIDLookups();
}

} // namespace Ooxml
