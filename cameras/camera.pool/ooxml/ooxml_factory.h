#pragma once

class BDDLStructBase;

namespace Ooxml {

// The reading context's object factory: a new node of the class, made
// through the node allocator and owned by the caller; null for a class id
// that is not one of this camera's.
BDDLStructBase *Ooxml_ObjectCreationFactory(unsigned int classId);

} // namespace Ooxml
