#include "ucp_engine/BDDValidationFuncs.h"

#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"
#include "buffers/SafeInt.h"
#include "buffers/ScopeGuard.h"
#include "cameras/camerabase.h"
#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/id_determination.h"
#include "ucp_engine/ucpLogging.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

const char *const NoNameString = "noname";
const char *const kUnit = "core.support/ucp_engine/BDDValidationFuncs";

// ---------------------------------------------------------------------------
// The walk
// ---------------------------------------------------------------------------

// Process statuses a validated node can hold.
constexpr uint32_t kValidatedClean = 0x84;
constexpr uint32_t kValidatedSanitised = 0x86;
constexpr uint32_t kChangedOrFailed = 5;

bool sticky(cameraStatus_t status)
{
    return isCameraStatusFail(status);
}

// A failure, once in the accumulator, stays there.
void accumulate(cameraStatus_t &accumulator, cameraStatus_t status)
{
    if (!sticky(accumulator))
        accumulator = status;
}

// The process status a child moves to, from the one it holds and the one
// its validation earned.
uint32_t nextProcessStatus(uint32_t current, uint32_t earned)
{
    switch (current) {
    case 0:
    case 2:
    case 0x81:
    case 0x83:
    case kValidatedClean:
        return earned;
    case kChangedOrFailed:
        return kChangedOrFailed;
    case kValidatedSanitised:
        return earned == kChangedOrFailed ? kChangedOrFailed : kValidatedSanitised;
    default:
        throw std::logic_error("validateAllChildren: ucpObjectProcessStatus fault");
    }
}

const char *descriptionOf(const BDDLStructBase *node)
{
    const char *description = node->get_desc_string();
    return description != nullptr ? description : "";
}

cameraStatus_t walk(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback, unsigned int top,
                    unsigned depth);

// Visits the children; the caller has checked that there are some.
cameraStatus_t walkChildren(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback,
                            cameraStatus_t accumulator, unsigned counted, unsigned depth)
{
    for (unsigned i = 0; i < node->countChildren(); ++i) {
        if (i >= counted) {
            // The list grew while it was walked: the walk cannot be trusted.
            lprintf("validateAllChildren '%s' failed with iteration error (%s:%d)", descriptionOf(node), kUnit,
                    __LINE__);
            return cameraStatus_WalkFailed;
        }
        BDDLStructBase *const child = node->getChild(i);
        if (child == nullptr)
            throw std::logic_error("validateAllChildren: null child");
        const cameraStatus_t watched = callback ? callback->validateChild(ctx, child) : 0;
        accumulate(accumulator, watched);
        const cameraStatus_t own = child->validate();
        accumulate(accumulator, own);
        const cameraStatus_t both = own | watched;
        const uint32_t earned = both == 0 ? kValidatedClean : both == 64 ? kValidatedSanitised : kChangedOrFailed;
        const cameraStatus_t below = walk(ctx, child, callback, 0, depth + 1);
        accumulate(accumulator, below);
        child->m_processStatus = nextProcessStatus(child->m_processStatus, earned);
    }
    return accumulator;
}

cameraStatus_t walk(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback, unsigned int top,
                    unsigned depth)
{
    if (node == nullptr || !node->hasChildrenList())
        return 0;
    const unsigned counted = node->countChildren();
    if (counted == 0)
        return top != 0 ? 0 : node->m_cameraStatus;

    cameraStatus_t accumulator = callback ? callback->beginChildren(ctx, node) : 0;
    try {
        // Children lists that lead back to an ancestor would recurse forever.
        if (depth >= validationWalkDepthLimit)
            throw std::logic_error("validateAllChildren: tree too deep");
        accumulator = walkChildren(ctx, node, callback, accumulator, counted, depth);
    } catch (...) {
        lprintf("validateAllChildren '%s' failed (%s:%d)", descriptionOf(node), kUnit, __LINE__);
        return cameraStatus_WalkFailed;
    }
    const cameraStatus_t result =
        callback != nullptr && !sticky(accumulator) ? callback->endChildren(ctx, node) : accumulator;
    if (top != 0 || sticky(result))
        return result;
    return node->m_cameraStatus;
}

// ---------------------------------------------------------------------------
// Texts
// ---------------------------------------------------------------------------

std::string textOf(const char *text)
{
    return text != nullptr ? std::string(text) : std::string();
}

std::string cut(std::string text, size_t limit)
{
    if (text.size() > limit)
        text.resize(limit);
    return text;
}

// prefix + name, which must stay below the message length.
std::string contentMessage(const char *prefix, const char *name)
{
    const std::string joined = textOf(prefix) + textOf(name);
    if (joined.size() >= contentMessageLimit) {
        const char *const failure = "Item name and prefix exceed the message length.";
        tbLog((std::string(failure) + ' ' + cut(joined, contentMessageLimit - 1)).c_str());
        throw std::logic_error(failure);
    }
    return joined;
}

// ---------------------------------------------------------------------------
// Policy
// ---------------------------------------------------------------------------

void mergeIntoNode(BDDLStructBase *node, cameraStatus_t status)
{
    cameraStatus_t accumulator = 0;
    bddValidationMergeStatus(status, &accumulator, node);
}

eVxContentManagementSetting settingOf(BDDLStructBase *node, ContentSwitchReader readSetting)
{
    return readSetting(getConfigApp(node), node->contentManagementObject());
}

// A literal message as an issue of the group (never a format).
void reportIssue(BDDLStructBase *node, int group, const std::string &message)
{
    vx_issue(node, group, "%s", message.c_str());
}

short groupOf(BDDLStructBase *node, unsigned int item)
{
    // Groups are statistics ids, which travel as 16-bit numbers.
    return static_cast<short>(getValidationGroupID(node, item));
}

// One kind of content: the switch that governs it, the text its records
// start with, the key its sanitisation id is made from and the statistics id
// that sanitisation is filed under.
struct ContentKind
{
    ContentSwitchReader readSetting;
    const char *prefix;
    const char *keyFormat;
    eAnalysisStatsID_t statsId;
};

// family, switch, prefix, statistics id. GeoTIFF data is only ever rejected
// as a whole, so it has no handlers.
#define VX_CONTENT_KINDS(X)                                                                        \
    X(META, metadata, "Metadata detected in ", eAnalysisStats_Metadata)                            \
    X(MACRO, macros, "Macros present in ", eAnalysisStats_Macro)                                   \
    X(INTERNAL_HYPERLINK, internal_hyperlinks, "Internal Hyperlinks present in ",                  \
      eAnalysisStats_InternalHyperlink)                                                            \
    X(EXTERNAL_HYPERLINK, external_hyperlinks, "External Hyperlinks present in ",                  \
      eAnalysisStats_ExternalHyperlink)                                                            \
    X(EMBEDDED, embedded_files, "Embedded File present in ", eAnalysisStats_EmbeddedObject)        \
    X(REVIEW_COMMENT, review_comments, "Review comments present in ", eAnalysisStats_ReviewComment) \
    X(DYNAMIC_DATA_EXCHANGE, dynamic_data_exchange, "DDE links present in ",                       \
      eAnalysisStats_DynamicDataExchange)                                                          \
    X(EMBEDDED_IMAGE, embedded_images, "Embedded Image present in ", eAnalysisStats_EmbeddedImage) \
    X(GEOTIFF, geotiff, "GeoTIFF data present in ", eAnalysisStats_EmbeddedObject)

#define VX_DEFINE_CONTENT_KIND(family, switchName, prefix, statsId)                                \
    const ContentKind kind_##family{&getManageType_##switchName, prefix, prefix "%s", statsId};
VX_CONTENT_KINDS(VX_DEFINE_CONTENT_KIND)
#undef VX_DEFINE_CONTENT_KIND

// The content types of REJECTED.
struct RejectedType
{
    char code;
    const ContentKind *kind;
};
const RejectedType kRejectedTypes[] = {
    {rejectedEmbeddedFile, &kind_EMBEDDED},
    {rejectedMetadata, &kind_META},
    {rejectedInternalHyperlink, &kind_INTERNAL_HYPERLINK},
    {rejectedExternalHyperlink, &kind_EXTERNAL_HYPERLINK},
    {rejectedMacro, &kind_MACRO},
    {rejectedReviewComment, &kind_REVIEW_COMMENT},
    {rejectedDynamicDataExchange, &kind_DYNAMIC_DATA_EXCHANGE},
    {rejectedEmbeddedImage, &kind_EMBEDDED_IMAGE},
    {rejectedGeoTiff, &kind_GEOTIFF},
};

// Sanitisations filed under their own statistics id; every other prefix is
// filed as an embedded object.
struct SanitisationType
{
    const char *prefix;
    eAnalysisStatsID_t statsId;
};
const SanitisationType kSanitisationTypes[] = {
    {"Macros present in ", eAnalysisStats_Macro},
    {"Internal Hyperlinks present in ", eAnalysisStats_InternalHyperlink},
    {"External Hyperlinks present in ", eAnalysisStats_ExternalHyperlink},
    {"Metadata detected in ", eAnalysisStats_Metadata},
    {"DDE links present in ", eAnalysisStats_DynamicDataExchange},
    {"Embedded Image present in ", eAnalysisStats_EmbeddedImage},
};

template <typename T>
unsigned int applyContentKind(const ContentKind &kind, BDDLStructBase *node, unsigned int item, T *data,
                              unsigned long count, T replacement, const char *name, bool reportOnly,
                              ContentKeepPredicate keep)
{
    const uint32_t sanitisationId = returnSanitisationID(node, kind.keyFormat, name, kind.statsId);
    return CONTENT_MANAGEMENT_FUNCTION<T>(node, item, sanitisationId, data, count, replacement, name, kind.prefix,
                                          kind.readSetting, reportOnly, keep);
}

void reportRemedy(BDDLStructBase *node, unsigned int item, const char *name)
{
    const std::string message = cut("Remedy applied to " + textOf(name), sanitisationKeyLimit);
    vx_analyse_group_remedy(node, groupOf(node, item), message.c_str(), 0);
    mergeIntoNode(node, cameraStatus_ContentChanged);
}

void markChanged(BDDLStructBase *target)
{
    if (target != nullptr)
        target->m_processStatus = kChangedOrFailed;
}

// ---------------------------------------------------------------------------
// Image gateway
// ---------------------------------------------------------------------------

const context &contextOf(BDDLStructBase *node)
{
    BDDLStructBase_Root *root = dynamic_cast<BDDLStructBase_Root *>(node);
    if (root == nullptr && node != nullptr)
        root = node->root();
    if (root == nullptr || root->getContext() == nullptr)
        throw std::logic_error("imageCameraGateway: node without a run");
    return *root->getContext();
}

// Nothing of the image survives: every byte becomes zero.
void blankImage(std::vector<unsigned char> &image)
{
    std::fill(image.begin(), image.end(), 0);
}

// The image becomes the replacement when it fits: blanked, then the
// replacement at its start. Otherwise the image stays as it is.
bool replaceImage(std::vector<unsigned char> &image, const MemoryBuffer &replacement)
{
    if (replacement.sizeOfMB() > image.size())
        return false;
    blankImage(image);
    std::copy_n(replacement.constData(), replacement.sizeOfMB(), image.begin());
    return true;
}

// Runs the image camera over a copy of the image and puts its output in place.
cameraStatus_t sanitiseImage(std::vector<unsigned char> &image, ft_t imageType, const context &ctx)
{
    if (ctx.m_bufferPool == nullptr || ctx.m_cameraSession == nullptr)
        throw std::logic_error("imageCameraGateway: run without pool or session");
    MemoryBufferPool &pool = *ctx.m_bufferPool;
    CameraBase &session = *ctx.m_cameraSession;

    MemoryBuffer *input = pool.allocateBuffer(image.size(), image.data());
    MemoryBuffer *output = nullptr;
    const std::string streamName = input->m_streamName;
    // The buffers go back to the pool as they came, so nobody later finds an
    // image in a stream name.
    const ScopeGuard giveBack([&] {
        input->m_streamName = streamName;
        pool.deallocateBuffer(&input);
        if (output != nullptr)
            pool.deallocateBuffer(&output);
    });
    output = pool.allocateBuffer(image.size());

    input->seek(0);
    if (session.isImportMode())
        input->m_streamName.assign(image.begin(), image.end());
    const bool failed = isVX2_RetStatusFail(session.pushCamera(input, output, imageType, nullptr));
    if (session.isExportMode()) {
        // The exported document refers to the image stored beside it.
        const std::string &text = session.exportText();
        output->resizeBuffer(0, false);
        output->seek(0);
        output->putRawBytes(text.data(), text.size());
    }
    if (replaceImage(image, *output))
        return failed ? cameraStatus_Fail : cameraStatus_Success;
    return failed ? cameraStatus_Fail : cameraStatus_ImageNotSanitised;
}

} // namespace

// ---------------------------------------------------------------------------
// The walk
// ---------------------------------------------------------------------------

RepositoryComponents::DocumentAnalysis *getAnalysisFromStructBase(BDDLStructBase *node)
{
    if (node == nullptr)
        return nullptr;
    const BDDLStructBase_Root *const root = dynamic_cast<const BDDLStructBase_Root *>(node);
    const context *const ctx = root ? root->getContext() : nullptr;
    if (ctx == nullptr || ctx->m_analysis == nullptr)
        throw "getAnalysisFromStructBase failed";
    return ctx->m_analysis;
}

void logMultiLineError(const char *, BDDLStructBase *) {}

void reportIssueInAnalysisLog(eAnalysisStatsID_t, unsigned int, unsigned int, bool) {}

Abstract_validation_callback::~Abstract_validation_callback() = default;

cameraStatus_t Abstract_validation_callback::validateChild(context *, BDDLStructBase *)
{
    return 0;
}

cameraStatus_t Abstract_validation_callback::beginChildren(context *, BDDLStructBase *)
{
    return 0;
}

cameraStatus_t Abstract_validation_callback::endChildren(context *, BDDLStructBase *)
{
    return 0;
}

cameraStatus_t validateAllChildren(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback,
                                   unsigned int top)
{
    return walk(ctx, node, callback, top, 0);
}

cameraStatus_t bddValidationMergeStatus(cameraStatus_t status, cameraStatus_t *accumulator, BDDLStructBase *node)
{
    if (*accumulator == 0 || !sticky(*accumulator))
        *accumulator = status;
    if (node->m_cameraStatus != 0 && sticky(node->m_cameraStatus))
        return 0;
    node->m_cameraStatus = *accumulator;
    return *accumulator;
}

// ---------------------------------------------------------------------------
// Policy actions
// ---------------------------------------------------------------------------

template <typename T>
bool CLEARANCE(T *data, unsigned long count, T replacement, ContentKeepPredicate keep)
{
    bool cleared = false;
    if (data == nullptr)
        return cleared;
    try {
        for (unsigned long i = 0; i < count; ++i) {
            if (data[i] == replacement || (keep != nullptr && keep(data[i]) != 0))
                continue;
            data[i] = replacement;
            cleared = true;
        }
    } catch (...) {
        tbLog("Something went wrong in CLEARANCE function");
    }
    return cleared;
}
template bool CLEARANCE<unsigned char>(unsigned char *, unsigned long, unsigned char, ContentKeepPredicate);
template bool CLEARANCE<unsigned short>(unsigned short *, unsigned long, unsigned short, ContentKeepPredicate);

template <typename T>
unsigned int CONTENT_MANAGEMENT_FUNCTION(BDDLStructBase *node, unsigned int item, unsigned int sanitisationId,
                                         T *data, unsigned long count, T replacement, const char *name,
                                         const char *prefix, ContentSwitchReader readSetting, bool reportOnly,
                                         ContentKeepPredicate keep)
{
    const uint32_t group = getValidationGroupID(node, item);
    const unsigned long size = SafeInt::mul<unsigned long>(count, sizeof(T));
    const eVxContentManagementSetting setting = settingOf(node, readSetting);
    // Only allowed content stays; content of an unknown setting is cleared
    // too before the fault is raised.
    const bool cleared = !reportOnly && setting != cmsAllow && CLEARANCE(data, count, replacement, keep);
    switch (setting) {
    case cmsSanitise:
        if (cleared || reportOnly) {
            ReportSanitiseItem(node, item, size, prefix, name, sanitisationId);
            mergeIntoNode(node, cameraStatus_ContentChanged);
        }
        return 1;
    case cmsAllow:
        ReportContentItem(node, size, prefix, name);
        return 1;
    case cmsDisallow:
        if (cleared || reportOnly) {
            reportIssue(node, static_cast<int>(group), cut(textOf(prefix) + textOf(name), disallowTextLimit));
            mergeIntoNode(node, cameraStatus_ContentDisallowed);
        }
        return 1;
    case cmsUnknown:
        break;
    }
    lprintf("CONTENT_MANAGEMENT_FUNCTION(): Unknown eVxCmSwitchSetting in %s (%s:%d)", textOf(prefix).c_str(), kUnit,
            __LINE__);
    throw std::logic_error("CONTENT_MANAGEMENT_FUNCTION(): Unknown eVxCmSwitchSetting");
}
template unsigned int CONTENT_MANAGEMENT_FUNCTION<unsigned char>(BDDLStructBase *, unsigned int, unsigned int,
                                                                 unsigned char *, unsigned long, unsigned char,
                                                                 const char *, const char *, ContentSwitchReader,
                                                                 bool, ContentKeepPredicate);
template unsigned int CONTENT_MANAGEMENT_FUNCTION<unsigned short>(BDDLStructBase *, unsigned int, unsigned int,
                                                                  unsigned short *, unsigned long, unsigned short,
                                                                  const char *, const char *, ContentSwitchReader,
                                                                  bool, ContentKeepPredicate);

#define VX_DEFINE_HANDLER_8BIT(family)                                                             \
    unsigned int family(BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count,   \
                        unsigned char replacement, const char *name)                               \
    {                                                                                              \
        return applyContentKind(kind_##family, node, item, data, count, replacement, name, false, nullptr);  \
    }
#define VX_DEFINE_HANDLER_16BIT(family)                                                            \
    unsigned int family(BDDLStructBase *node, unsigned int item, unsigned short *data, unsigned long count,  \
                        unsigned short replacement, const char *name)                              \
    {                                                                                              \
        return applyContentKind(kind_##family, node, item, data, count, replacement, name, false, nullptr);  \
    }
#define VX_DEFINE_HANDLER_REPORT_ONLY(family)                                                      \
    unsigned int family##_REPORT_ONLY(BDDLStructBase *node, unsigned int item, const char *name)  \
    {                                                                                              \
        return applyContentKind<unsigned char>(kind_##family, node, item, nullptr, 0, 0, name, true, nullptr); \
    }
VX_CONTENT_HANDLERS_8BIT(VX_DEFINE_HANDLER_8BIT)
VX_CONTENT_HANDLERS_16BIT(VX_DEFINE_HANDLER_16BIT)
VX_CONTENT_HANDLERS_REPORT_ONLY(VX_DEFINE_HANDLER_REPORT_ONLY)
#undef VX_DEFINE_HANDLER_8BIT
#undef VX_DEFINE_HANDLER_16BIT
#undef VX_DEFINE_HANDLER_REPORT_ONLY

unsigned int EMBEDDED(BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count,
                      unsigned char replacement, const char *name, ContentKeepPredicate keep)
{
    return applyContentKind(kind_EMBEDDED, node, item, data, count, replacement, name, false, keep);
}

// ---------------------------------------------------------------------------
// Remedies and rejection
// ---------------------------------------------------------------------------

unsigned int REMEDY(BDDLStructBase *node, unsigned int item, unsigned char *, BDDLStructBase *target,
                    const char *name)
{
    reportRemedy(node, item, name);
    markChanged(target);
    return 1;
}

unsigned int REMEDY(BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count,
                    unsigned char replacement, const char *name)
{
    if (CLEARANCE(data, count, replacement, nullptr))
        reportRemedy(node, item, name);
    return 1;
}

unsigned int REMEDY_COPY(BDDLStructBase *node, unsigned int item, unsigned char *destination,
                         unsigned char *source, unsigned long length, const char *name)
{
    if (length == 0 || destination == nullptr || source == nullptr || std::memcmp(destination, source, length) == 0)
        return 1;
    std::memmove(destination, source, length);
    reportRemedy(node, item, name);
    return 1;
}

unsigned int REJECTED(BDDLStructBase *node, unsigned int item, unsigned char *data, BDDLStructBase *target,
                      char contentType, const char *name)
{
    const auto type = std::find_if(std::begin(kRejectedTypes), std::end(kRejectedTypes),
                                   [contentType](const RejectedType &row) { return row.code == contentType; });
    if (type == std::end(kRejectedTypes)) {
        lprintf("REJECTED():  Unknown contentType (%d) (%s:%d)", contentType, kUnit, __LINE__);
        throw std::logic_error("REJECTED(): Unknown contentType");
    }
    return REJECTED_SUBFUNCTION(node, item, data, target, contentType, name, type->kind->prefix,
                                type->kind->readSetting);
}

unsigned int REJECTED_SUBFUNCTION(BDDLStructBase *node, unsigned int item, unsigned char *, BDDLStructBase *target,
                                  char, const char *name, const char *prefix, ContentSwitchReader readSetting)
{
    const std::string message = textOf(prefix) + textOf(name);
    switch (settingOf(node, readSetting)) {
    case cmsSanitise: {
        std::string key = cut(message, sanitisationKeyLimit);
        const uint32_t id = getSanitisationId(node, key.data(), getSanitisationTypeAnalysisId(prefix));
        cameraStatus_t accumulator = 0;
        bddValidationMergeStatus(ReportSanitiseItem(node, item, 0, prefix, name, id), &accumulator, node);
        bddValidationMergeStatus(cameraStatus_ContentChanged, &accumulator, node);
        markChanged(target);
        return 1;
    }
    case cmsAllow:
        return 1;
    case cmsDisallow:
        reportIssue(node, getAnalysisStatsID(node), cut(message, disallowTextLimit));
        mergeIntoNode(node, cameraStatus_ContentDisallowed);
        return 1;
    case cmsUnknown:
        break;
    }
    lprintf("REJECTED(): Unknown eVxCmSwitchSetting in %s (%s:%d)", textOf(prefix).c_str(), kUnit, __LINE__);
    throw std::logic_error("REJECTED(): Unknown eVxCmSwitchSetting");
}

// ---------------------------------------------------------------------------
// Reports and ids
// ---------------------------------------------------------------------------

void ReportContentItem(BDDLStructBase *node, unsigned long size, const char *prefix, const char *name)
{
    const std::string message = contentMessage(prefix, name);
    vx_analyse_group(node, static_cast<short>(getAnalysisStatsID(node)), message.c_str(), size);
}

unsigned int ReportSanitiseItem(BDDLStructBase *node, unsigned int item, unsigned long size, const char *prefix,
                                const char *name, unsigned int sanitisationId)
{
    const std::string message = contentMessage(prefix, name);
    // The repository counts sanitised sizes in 32 bits; larger ones saturate.
    const unsigned int recorded =
        static_cast<unsigned int>(std::min<unsigned long>(size, std::numeric_limits<unsigned int>::max()));
    vx_analyse_group_sanitize(node, groupOf(node, item), message.c_str(), recorded, sanitisationId);
    return 0;
}

uint32_t returnSanitisationID(BDDLStructBase *node, const char *format, const char *name,
                              eAnalysisStatsID_t statsId)
{
    char key[sanitisationKeyLimit + 1];
    std::snprintf(key, sizeof key, format != nullptr ? format : "%s", name != nullptr ? name : "");
    return getSanitisationId(node, key, statsId);
}

eAnalysisStatsID_t getSanitisationTypeAnalysisId(const char *prefix)
{
    if (prefix != nullptr)
        for (const SanitisationType &type : kSanitisationTypes)
            if (std::strcmp(type.prefix, prefix) == 0)
                return type.statsId;
    return eAnalysisStats_EmbeddedObject;
}

// ---------------------------------------------------------------------------
// Embedded images and helpers
// ---------------------------------------------------------------------------

cameraStatus_t imageCameraGateway(std::vector<unsigned char> *image, ft_t imageType, BDDLStructBase *imageNode,
                                  unsigned int, BDDLStructBase *node, unsigned int item)
{
    try {
        if (image == nullptr)
            throw std::logic_error("imageCameraGateway: no image");
        const context &ctx = contextOf(node);
        const char *name = imageNode != nullptr ? imageNode->get_desc_string() : NoNameString;
        switch (getManageType_embedded_images(getConfigApp(node), node->contentManagementObject())) {
        case cmsDisallow:
            // Blanked before anything else can fail: a disallowed image
            // never reaches the output.
            blankImage(*image);
            EMBEDDED_IMAGE_REPORT_ONLY(node, item, name);
            return cameraStatus_ImagesDisallowed;
        case cmsAllow:
            // The image stays exactly as it is.
            EMBEDDED_IMAGE_REPORT_ONLY(node, item, name);
            return cameraStatus_Success;
        case cmsSanitise:
            // Only sanitising needs the run's buffers and the image camera.
            return sanitiseImage(*image, imageType, ctx);
        case cmsUnknown:
            break;
        }
        // A setting nobody can read allows nothing.
        blankImage(*image);
        vx_issue(node, 464, "Unable to determine content management setting for embedded_images switch");
        return cameraStatus_ImageNotSanitised;
    } catch (...) {
        tbLog("imageCameraGateway failed");
        return cameraStatus_ImageGatewayFailed;
    }
}

bool stringSearcher(std::vector<char> *bytes, char *text)
{
    if (bytes == nullptr || bytes->empty())
        return false;
    const size_t length = text != nullptr ? std::strlen(text) : 0;
    return std::search(bytes->begin(), bytes->end(), text, text + length) != bytes->end();
}
