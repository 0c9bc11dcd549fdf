#include "ucp_engine/BDDValidationFuncs.h"

#include "ucp_engine/BDDLStructBase.h"
#include "ucp_engine/ucpLogging.h"

#include <stdexcept>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";
const char *const kUnit = "core.support/ucp_engine/BDDValidationFuncs";

// Process statuses a validated node can hold.
constexpr uint32_t kValidatedClean = 0x84;
constexpr uint32_t kValidatedSanitised = 0x86;
constexpr uint32_t kChangedOrFailed = 5;
constexpr cameraStatus_t kWalkFailed = 178;

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

// Visits the children; the caller has checked that there are some.
cameraStatus_t walkChildren(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback,
                            cameraStatus_t accumulator, unsigned counted)
{
    for (unsigned i = 0; i < node->countChildren(); ++i) {
        if (i >= counted) {
            // The list grew while it was walked: the walk cannot be trusted.
            lprintf("validateAllChildren '%s' failed with iteration error (%s:%d)", descriptionOf(node), kUnit,
                    __LINE__);
            return kWalkFailed;
        }
        BDDLStructBase *const child = node->getChild(i);
        const cameraStatus_t watched = callback ? callback->validateChild(ctx, child) : 0;
        accumulate(accumulator, watched);
        const cameraStatus_t own = child->validate();
        accumulate(accumulator, own);
        const cameraStatus_t both = own | watched;
        const uint32_t earned = both == 0 ? kValidatedClean : both == 64 ? kValidatedSanitised : kChangedOrFailed;
        const cameraStatus_t below = validateAllChildren(ctx, child, callback, 0);
        accumulate(accumulator, below);
        child->m_processStatus = nextProcessStatus(child->m_processStatus, earned);
    }
    return accumulator;
}

} // namespace

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
    if (!node->hasChildrenList())
        return 0;
    const unsigned counted = node->countChildren();
    if (counted == 0)
        return top != 0 ? 0 : node->m_cameraStatus;

    cameraStatus_t accumulator = callback ? callback->beginChildren(ctx, node) : 0;
    try {
        accumulator = walkChildren(ctx, node, callback, accumulator, counted);
    } catch (...) {
        lprintf("validateAllChildren '%s' failed (%s:%d)", descriptionOf(node), kUnit, __LINE__);
        return kWalkFailed;
    }
    const cameraStatus_t result =
        callback != nullptr && !sticky(accumulator) ? callback->endChildren(ctx, node) : accumulator;
    if (top != 0 || sticky(result))
        return result;
    return node->m_cameraStatus;
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
