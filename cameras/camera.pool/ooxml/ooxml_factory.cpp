#include "ooxml_factory.h"

#include "ooxml_schema.h"

namespace Ooxml {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

BDDLStructBase *Ooxml_ObjectCreationFactory(unsigned int classId)
{
    switch (classId) {
    case PackageClassId: return new OoxmlPackage;
    case DefaultClassId: return new OoxmlDefault;
    case PartClassId: return new OoxmlPart;
    case RelationshipClassId: return new OoxmlRelationship;
    }
    return nullptr;
}

} // namespace Ooxml
