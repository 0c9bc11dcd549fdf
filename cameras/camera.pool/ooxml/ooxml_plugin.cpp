#include "ooxml_plugin.h"

#include "ooxml_camera.h"

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

} // namespace Ooxml
