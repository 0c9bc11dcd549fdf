#include "fileidentifier_factory.h"

#include "fileidentifier_schema.h"

namespace FileIdentifier {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

BDDLStructBase *FileIdentifier_ObjectCreationFactory(unsigned int classId)
{
    if (classId == FileIdentifierClassId)
        return new FileIdentifier_class;
    return nullptr;
}

} // namespace FileIdentifier
