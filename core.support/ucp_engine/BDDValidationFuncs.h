#pragma once

class BDDLStructBase;
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
