#pragma once

#include "cameras/filetype.h"
#include "policy/ContentManagement.h"
#include "ucp_engine/analysis.functions.h"
#include "ucp_engine/analysis.ids.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class BDDLStructBase;
struct context;
namespace RepositoryComponents {
class DocumentAnalysis;
}

// The validation walk over a structure tree and the content-management
// actions a camera's validate() applies to risky content. Every action takes
// the tree's root as `node`: the records go to the repository of that root's
// context, the ids come from its file type and the policy from its session.

// ---------------------------------------------------------------------------
// The walk
// ---------------------------------------------------------------------------

// The run's analysis repository, from the context of `node`, which must be a
// root: the tree is not walked upwards. Null for a null node; a node that is
// not a root, or a root whose context has no repository, throws the C string
// "getAnalysisFromStructBase failed".
RepositoryComponents::DocumentAnalysis *getAnalysisFromStructBase(BDDLStructBase *node);

// Accepts a failure text and the node it concerns, and does nothing with them.
void logMultiLineError(const char *text, BDDLStructBase *node);
// Accepts an issue and does nothing with it: issues are recorded by vx_issue.
void reportIssueInAnalysisLog(eAnalysisStatsID_t group, unsigned int issue, unsigned int position, bool fatal);

// Watches the validation walk: asked before a node's children, for each
// child before the child validates itself, and after the last child. Each
// answer is a status the walk merges like the children's own.
class Abstract_validation_callback
{
public:
    virtual ~Abstract_validation_callback();
    virtual cameraStatus_t validateChild(context *ctx, BDDLStructBase *child);
    virtual cameraStatus_t beginChildren(context *ctx, BDDLStructBase *node);
    virtual cameraStatus_t endChildren(context *ctx, BDDLStructBase *node);
};

// Validates the children of `node`, depth first: each child's validate(),
// then its own children; records each child's process status and merges the
// statuses (a failure, once met, sticks). `top` non-zero marks the call for
// the tree's root. Faults met while visiting children (an unknown process
// status, a null child, a list that grows while walked, a tree deeper than
// validationWalkDepthLimit, an exception) end the walk with 178; exceptions
// from the callback's begin and end for `node` itself pass to the caller.
cameraStatus_t validateAllChildren(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback,
                                   unsigned int top);
// Trees read from buffers nest at most 200 levels; a deeper one can only come
// from a list that leads back to an ancestor.
inline constexpr unsigned validationWalkDepthLimit = 1000;

// Merges `status` into the accumulator (a failure already there stays) and
// the accumulator into the node's camera status, unless the node already
// holds a failure; then the result is 0, else the node's new status.
cameraStatus_t bddValidationMergeStatus(cameraStatus_t status, cameraStatus_t *accumulator, BDDLStructBase *node);

// The statuses the actions produce.
inline constexpr cameraStatus_t cameraStatus_ContentChanged = 64;      // sanitised or remedied
inline constexpr cameraStatus_t cameraStatus_ContentDisallowed = 153;
inline constexpr cameraStatus_t cameraStatus_ImageNotSanitised = 162;  // setting unknown, or output too big
inline constexpr cameraStatus_t cameraStatus_WalkFailed = 178;
inline constexpr cameraStatus_t cameraStatus_ImagesDisallowed = 181;
inline constexpr cameraStatus_t cameraStatus_ImageGatewayFailed = 182;

// ---------------------------------------------------------------------------
// Policy actions
// ---------------------------------------------------------------------------

// Decides, for one element of content, whether it may stay: non-zero keeps it.
using ContentKeepPredicate = int (*)(int);

// Overwrites every element that differs from `replacement` and that `keep`
// (if given) does not keep. True when anything was overwritten. A predicate
// that throws ends the overwriting; what was done until then counts.
template <typename T>
bool CLEARANCE(T *data, unsigned long count, T replacement, ContentKeepPredicate keep);
extern template bool CLEARANCE<unsigned char>(unsigned char *, unsigned long, unsigned char, ContentKeepPredicate);
extern template bool CLEARANCE<unsigned short>(unsigned short *, unsigned long, unsigned short,
                                               ContentKeepPredicate);

// Applies the switch that `readSetting` reads, in the profile of the root's
// file type, to `count` elements of content:
//   sanitise  overwrite them; if anything changed (or reportOnly), record a
//             sanitisation item and merge 64 into the node;
//   allow     leave them; record a content item;
//   disallow  overwrite them; if anything changed (or reportOnly), report
//             prefix + name as an issue and merge 153 into the node.
// reportOnly overwrites nothing. An unknown setting throws std::logic_error
// after a log line. Returns 1.
template <typename T>
unsigned int CONTENT_MANAGEMENT_FUNCTION(BDDLStructBase *node, unsigned int item, unsigned int sanitisationId,
                                         T *data, unsigned long count, T replacement, const char *name,
                                         const char *prefix, ContentSwitchReader readSetting, bool reportOnly,
                                         ContentKeepPredicate keep);
extern template unsigned int CONTENT_MANAGEMENT_FUNCTION<unsigned char>(BDDLStructBase *, unsigned int,
                                                                        unsigned int, unsigned char *,
                                                                        unsigned long, unsigned char, const char *,
                                                                        const char *, ContentSwitchReader, bool,
                                                                        ContentKeepPredicate);
extern template unsigned int CONTENT_MANAGEMENT_FUNCTION<unsigned short>(BDDLStructBase *, unsigned int,
                                                                         unsigned int, unsigned short *,
                                                                         unsigned long, unsigned short,
                                                                         const char *, const char *,
                                                                         ContentSwitchReader, bool,
                                                                         ContentKeepPredicate);

// The handlers, one family per kind of content. Each family applies its own
// switch, message prefix and sanitisation id to CONTENT_MANAGEMENT_FUNCTION
// and returns 1. The data forms overwrite the content as the policy says;
// the _REPORT_ONLY forms only record it.
#define VX_CONTENT_HANDLERS_8BIT(X)                                                                \
    X(META)                                                                                        \
    X(MACRO)                                                                                       \
    X(INTERNAL_HYPERLINK)                                                                          \
    X(EXTERNAL_HYPERLINK)                                                                          \
    X(REVIEW_COMMENT)                                                                              \
    X(DYNAMIC_DATA_EXCHANGE)                                                                       \
    X(EMBEDDED_IMAGE)
#define VX_CONTENT_HANDLERS_16BIT(X)                                                               \
    X(META)                                                                                        \
    X(INTERNAL_HYPERLINK)                                                                          \
    X(EXTERNAL_HYPERLINK)                                                                          \
    X(REVIEW_COMMENT)
#define VX_CONTENT_HANDLERS_REPORT_ONLY(X)                                                         \
    X(META)                                                                                        \
    X(MACRO)                                                                                       \
    X(INTERNAL_HYPERLINK)                                                                          \
    X(EXTERNAL_HYPERLINK)                                                                          \
    X(EMBEDDED)                                                                                    \
    X(REVIEW_COMMENT)                                                                              \
    X(DYNAMIC_DATA_EXCHANGE)                                                                       \
    X(EMBEDDED_IMAGE)

#define VX_DECLARE_HANDLER_8BIT(family)                                                            \
    unsigned int family(BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count,   \
                        unsigned char replacement, const char *name);
#define VX_DECLARE_HANDLER_16BIT(family)                                                           \
    unsigned int family(BDDLStructBase *node, unsigned int item, unsigned short *data, unsigned long count,  \
                        unsigned short replacement, const char *name);
#define VX_DECLARE_HANDLER_REPORT_ONLY(family)                                                     \
    unsigned int family##_REPORT_ONLY(BDDLStructBase *node, unsigned int item, const char *name);
VX_CONTENT_HANDLERS_8BIT(VX_DECLARE_HANDLER_8BIT)
VX_CONTENT_HANDLERS_16BIT(VX_DECLARE_HANDLER_16BIT)
VX_CONTENT_HANDLERS_REPORT_ONLY(VX_DECLARE_HANDLER_REPORT_ONLY)
#undef VX_DECLARE_HANDLER_8BIT
#undef VX_DECLARE_HANDLER_16BIT
#undef VX_DECLARE_HANDLER_REPORT_ONLY

// Embedded files: `keep` spares the bytes that must stay (for instance the
// framing a format needs around an emptied object).
unsigned int EMBEDDED(BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count,
                      unsigned char replacement, const char *name, ContentKeepPredicate keep);

// ---------------------------------------------------------------------------
// Remedies and rejection
// ---------------------------------------------------------------------------
// A remedy reports "Remedy applied to <name>" for the item and merges 64 into
// the node. Each returns 1.

// Always; the target is marked changed (process status 5) so it is rewritten.
unsigned int REMEDY(BDDLStructBase *node, unsigned int item, unsigned char *data, BDDLStructBase *target,
                    const char *name);
// Only when overwriting the data with the replacement changed anything.
unsigned int REMEDY(BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count,
                    unsigned char replacement, const char *name);
// Only when the ranges differ; the source is then copied over the destination.
unsigned int REMEDY_COPY(BDDLStructBase *node, unsigned int item, unsigned char *destination,
                         unsigned char *source, unsigned long length, const char *name);

// The content types REJECTED knows.
enum eRejectedContentType : char {
    rejectedEmbeddedFile = 2,
    rejectedMetadata = 3,
    rejectedInternalHyperlink = 4,
    rejectedExternalHyperlink = 5,
    rejectedMacro = 7,
    rejectedReviewComment = 8,
    rejectedDynamicDataExchange = 9,
    rejectedEmbeddedImage = 10,
    rejectedGeoTiff = 11,
};

// Content the camera cannot clean in place and drops as a whole (the target
// node): sanitise records a sanitisation item, merges 64 and marks the target
// changed (process status 5); allow does nothing; disallow reports an issue
// and merges 153. An unknown content type or setting throws std::logic_error
// after a log line. `data` is not read. Returns 1.
unsigned int REJECTED(BDDLStructBase *node, unsigned int item, unsigned char *data, BDDLStructBase *target,
                      char contentType, const char *name);
unsigned int REJECTED_SUBFUNCTION(BDDLStructBase *node, unsigned int item, unsigned char *data,
                                  BDDLStructBase *target, char contentType, const char *name, const char *prefix,
                                  ContentSwitchReader readSetting);

// ---------------------------------------------------------------------------
// Reports and ids
// ---------------------------------------------------------------------------

// Messages are prefix + name; together they must stay below this length,
// else std::logic_error "Item name and prefix exceed the message length."
inline constexpr size_t contentMessageLimit = 1024;
// Sanitisation keys and remedy texts are cut to 99 characters, disallow
// texts to 255.
inline constexpr size_t sanitisationKeyLimit = 99;
inline constexpr size_t disallowTextLimit = 255;

// Records prefix + name as a content item of the root's statistics group.
void ReportContentItem(BDDLStructBase *node, unsigned long size, const char *prefix, const char *name);
// Records prefix + name as a sanitisation item of the item's validation
// group. Returns 0.
unsigned int ReportSanitiseItem(BDDLStructBase *node, unsigned int item, unsigned long size, const char *prefix,
                                const char *name, unsigned int sanitisationId);
// The sanitisation id of the key `format` makes of `name` (one %s).
uint32_t returnSanitisationID(BDDLStructBase *node, const char *format, const char *name,
                              eAnalysisStatsID_t statsId);
// The statistics id a sanitisation with this message prefix is filed under;
// 276 (embedded object) for any prefix without one of its own.
eAnalysisStatsID_t getSanitisationTypeAnalysisId(const char *prefix);

// ---------------------------------------------------------------------------
// Embedded images and helpers
// ---------------------------------------------------------------------------

// Hands an embedded image to the image camera of its type, as the
// embedded_images switch says: disallow reports it (181); allow reports it
// and leaves it (0); sanitise runs the image camera through the session and
// puts its output in place of the image when it fits (0, or 128 when the
// camera failed; 162 when the output does not fit, the image then stays).
// An unknown setting gives 162, any exception 182. The image node gives the
// name the report uses; `flags` is not read.
cameraStatus_t imageCameraGateway(std::vector<unsigned char> *image, ft_t imageType, BDDLStructBase *imageNode,
                                  unsigned int flags, BDDLStructBase *node, unsigned int item);

// Whether `text` occurs as a contiguous run in the bytes; false for an empty
// (or no) vector, true for an empty text in a non-empty one.
bool stringSearcher(std::vector<char> *bytes, char *text);
