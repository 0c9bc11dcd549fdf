#pragma once

#include <cstdint>

// Status codes cameras exchange with the host, and the rules that convert and
// combine them. Kept apart from the reporting functions so that interfaces
// which only pass statuses around need nothing else of the tree engine.
//
// cameraStatus_t: 0 success, 64 success with more to say, failure when
// (status & 0xC0) == 0x80.
// VX2_RetStatus: negative failure, 0 success, positive success with more to say.
using cameraStatus_t = uint32_t;
using VX2_RetStatus = int32_t;

// The camera-status codes in use.
inline constexpr cameraStatus_t cameraStatus_Success = 0;
inline constexpr cameraStatus_t cameraStatus_SuccessWithInfo = 64;
inline constexpr cameraStatus_t cameraStatus_Fail = 128;
inline constexpr cameraStatus_t cameraStatus_MissingArgument = 162;
inline constexpr cameraStatus_t cameraStatus_InconsistentRepository = 169;
// The one failure the host sees as VX2_Fatal rather than VX2_Fail.
inline constexpr cameraStatus_t cameraStatus_Fatal = 177;
inline constexpr cameraStatus_t cameraStatus_NoDocumentOpen = 182;

inline constexpr cameraStatus_t cameraStatusClassMask = 0xC0;
inline constexpr cameraStatus_t cameraStatusFailClass = 0x80;

// The VX2_RetStatus values in use.
inline constexpr VX2_RetStatus VX2_SuccessWithInfo = 1;
inline constexpr VX2_RetStatus VX2_Success = 0;
inline constexpr VX2_RetStatus VX2_Fail = -1;
inline constexpr VX2_RetStatus VX2_Fatal = -2;

inline constexpr bool isCameraStatusFail(cameraStatus_t status)
{
    return (status & cameraStatusClassMask) == cameraStatusFailClass;
}

// 0 -> 0, 64 -> 1, 177 -> -2, anything else -> -1.
VX2_RetStatus getVX2_RetStatusFromCameraStatus(cameraStatus_t status);
// 0 -> 0, 1 -> 64, anything else -> 128.
cameraStatus_t getCameraStatusFromVX2_RetStatus(VX2_RetStatus status);
// A failure dominates a success, the more negative failure the other one,
// and among successes the larger value.
VX2_RetStatus combineVX2_RetStatus(VX2_RetStatus a, VX2_RetStatus b);
bool isVX2_RetStatusFail(VX2_RetStatus status);
