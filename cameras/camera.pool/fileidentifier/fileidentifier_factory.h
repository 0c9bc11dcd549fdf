#pragma once

class BDDLStructBase;

namespace FileIdentifier {

// The reading context's object factory: a new node of the class, made
// through the node allocator and owned by the caller; null for any class
// but the root's (27).
BDDLStructBase *FileIdentifier_ObjectCreationFactory(unsigned int classId);

} // namespace FileIdentifier
