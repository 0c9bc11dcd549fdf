#include "ucp_engine/bddfilereadwritecommon.h"

#include <limits>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// Deepest nesting a reader may enter; a hostile document nests far deeper.
constexpr int32_t kMaxDepthOfReading = 200;

} // namespace

bool BDDL_IncreaseDepthOfReading(context *ctx)
{
    if (ctx == nullptr)
        return false;
    // Saturates, so a reader that never decreases cannot wrap back into range.
    if (ctx->m_depthOfReading < std::numeric_limits<int32_t>::max())
        ++ctx->m_depthOfReading;
    return ctx->m_depthOfReading <= kMaxDepthOfReading;
}

bool BDDL_DecreaseDepthOfReading(context *ctx)
{
    if (ctx != nullptr && ctx->m_depthOfReading > std::numeric_limits<int32_t>::min())
        --ctx->m_depthOfReading;
    return true;
}

bool BDDL_ResetDepthOfReading(context *ctx)
{
    if (ctx != nullptr)
        ctx->m_depthOfReading = 0;
    return true;
}
