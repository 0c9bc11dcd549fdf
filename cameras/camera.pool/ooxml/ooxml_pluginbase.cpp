#include "ooxml_pluginbase.h"

#include "ooxml_messages.h"

namespace Ooxml {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

ft_t OoxmlPluginBase::getFileTypeFromFileExtension(const char *)
{
    return ft_unknown;
}

ft_t OoxmlPluginBase::getFileTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

ft_t OoxmlPluginBase::getSubTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

const AnalysisGroupIdMap_t *OoxmlPluginBase::getAnalysisGroupIdMap()
{
    return ooxml_getAnalysisGroupIdMap();
}

uint32_t OoxmlPluginBase::getErrMsgID(char *key)
{
    return ooxml_getErrMsgID(key);
}

uint32_t OoxmlPluginBase::getSanitisationMsgID(char *key)
{
    return ooxml_getSanitisationMsgID(key);
}

uint32_t OoxmlPluginBase::getAnalysisGroupID(unsigned int item)
{
    return ooxml_getAnalysisGroupID(item);
}

int OoxmlPluginBase::initialiseIDLookups()
{
    return ooxml_initialiseIDLookups();
}

} // namespace Ooxml
