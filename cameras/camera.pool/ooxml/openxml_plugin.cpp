#include "openxml_plugin.h"

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

} // namespace Ooxml
