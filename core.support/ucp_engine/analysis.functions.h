#pragma once

#include <cstdint>

// Status codes cameras exchange with the host.
//
// cameraStatus_t: 0 success, 64 success with more to say, failure when
// (status & 0xC0) == 0x80.
// VX2_RetStatus: negative failure, 0 success, positive success with more to say.
using cameraStatus_t = uint32_t;
using VX2_RetStatus = int32_t;

VX2_RetStatus getVX2_RetStatusFromCameraStatus(cameraStatus_t status);
cameraStatus_t getCameraStatusFromVX2_RetStatus(VX2_RetStatus status);
VX2_RetStatus combineVX2_RetStatus(VX2_RetStatus a, VX2_RetStatus b);
bool isVX2_RetStatusFail(VX2_RetStatus status);
