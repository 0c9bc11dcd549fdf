#pragma once

#include "ucp_engine/vxstatus.h"

#include <QtGlobal>

#include <cstdarg>
#include <cstdint>

// Reporting from tree code (the statuses themselves are in vxstatus.h).
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
