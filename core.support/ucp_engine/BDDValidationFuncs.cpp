#include "ucp_engine/BDDValidationFuncs.h"

#include "ucp_engine/BDDLStructBase.h"

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

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
