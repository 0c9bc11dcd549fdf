#pragma once

#include <QtGlobal>

#include <cstdarg>
#include <cstdint>

// Status codes cameras exchange with the host.
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

// --- reporting from tree code ------------------------------------------------
// Cameras report through these instead of holding the repository. Each takes a
// root structure node and records into the repository of the root's context
// (getAnalysisFromStructBase); a node that is null, not a root, or a root
// without a repository gets the C-string exception
// "getAnalysisFromStructBase failed".

class BDDLStructBase;
class BDDLStructBase_Root;

cameraStatus_t vx_analyse_group(BDDLStructBase *node, short group, const char *description, unsigned long size);
cameraStatus_t vx_analyse_group_issue(BDDLStructBase *node, short group, const char *description,
                                      unsigned long size, unsigned int issueId);
cameraStatus_t vx_analyse_group_sanitize(BDDLStructBase *node, short group, const char *description,
                                         unsigned int size, unsigned int sanitisationId);
// Accepted and not recorded: see the definition.
cameraStatus_t vx_analyse_group_remedy(BDDLStructBase *node, short group, const char *description,
                                       unsigned long size);
// Accepted and ignored, like the repository's error group.
cameraStatus_t vx_analyse_error_group(BDDLStructBase *node, unsigned long id, const char *text, unsigned long size);
cameraStatus_t analysis_VXAnalyseSchemaGetInterchangeMode();

// The issue id vx_issue reports with.
inline constexpr unsigned int vxDefaultIssueId = 96;

// Formats the message, logs it as a "VX_ERROR:" line and, for a group other
// than 0, records it as an issue of that group (size 0, the given id). A null
// format does nothing. The node is taken as a root; any other node counts as
// none, so a recorded issue then fails as above.
void vx_issue(BDDLStructBase *node, int group, const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(3, 4);
// The same with an issue id of the caller's; a null node raises std::bad_alloc.
void vx_issue_id(BDDLStructBase *node, int group, unsigned int id, const char *format, ...)
    Q_ATTRIBUTE_FORMAT_PRINTF(4, 5);
// The worker behind both; `file` and `line` name the reporting code and are not logged.
void VX_ERROR_function(BDDLStructBase_Root *root, int group, unsigned int id, const char *file, int line,
                       const char *format, va_list arguments);
