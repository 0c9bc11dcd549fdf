#include "ucp_engine/vxstatus.h"

#include <algorithm>

VX2_RetStatus getVX2_RetStatusFromCameraStatus(cameraStatus_t status)
{
    switch (status) {
    case cameraStatus_Success:
        return VX2_Success;
    case cameraStatus_SuccessWithInfo:
        return VX2_SuccessWithInfo;
    case cameraStatus_Fatal:
        return VX2_Fatal;
    default:
        return VX2_Fail;
    }
}

cameraStatus_t getCameraStatusFromVX2_RetStatus(VX2_RetStatus status)
{
    switch (status) {
    case VX2_Success:
        return cameraStatus_Success;
    case VX2_SuccessWithInfo:
        return cameraStatus_SuccessWithInfo;
    default:
        return cameraStatus_Fail;
    }
}

VX2_RetStatus combineVX2_RetStatus(VX2_RetStatus a, VX2_RetStatus b)
{
    if (isVX2_RetStatusFail(a) || isVX2_RetStatusFail(b))
        return std::min(a, b);
    return std::max(a, b);
}

bool isVX2_RetStatusFail(VX2_RetStatus status)
{
    return status < 0;
}
