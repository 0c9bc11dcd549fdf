#include "cameras/camera_interfaces.h"

// The destructors are defined here so that both interfaces have their virtual
// tables and type information once, in this library, rather than a copy in
// every plug-in that implements them.
VXCameraIF::~VXCameraIF() = default;

VX2_RetStatus VXCameraIF::initialiseParamBlock(ParameterBlock *)
{
    return 0;
}

VXCameraPluginIF::~VXCameraPluginIF() = default;
