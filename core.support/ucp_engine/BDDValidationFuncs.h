#pragma once

#include "ucp_engine/analysis.functions.h"

class BDDLStructBase;
struct context;
namespace RepositoryComponents {
class DocumentAnalysis;
}

// The run's analysis repository, from the context of `node`, which must be a
// root: the tree is not walked upwards. Null for a null node; a node that is
// not a root, or a root whose context has no repository, throws the C string
// "getAnalysisFromStructBase failed".
RepositoryComponents::DocumentAnalysis *getAnalysisFromStructBase(BDDLStructBase *node);

// Accepts a failure text and the node it concerns, and does nothing with them.
void logMultiLineError(const char *text, BDDLStructBase *node);

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
// the tree's root. Faults met while visiting children end the walk with 178;
// exceptions from the callback's begin and end pass to the caller.
cameraStatus_t validateAllChildren(context *ctx, BDDLStructBase *node, Abstract_validation_callback *callback,
                                   unsigned int top);

// Merges `status` into the accumulator (a failure already there stays) and
// the accumulator into the node's camera status, unless the node already
// holds a failure; then the result is 0, else the node's new status.
cameraStatus_t bddValidationMergeStatus(cameraStatus_t status, cameraStatus_t *accumulator, BDDLStructBase *node);
