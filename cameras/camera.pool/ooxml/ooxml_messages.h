#pragma once

#include "cameras/camera_interfaces.h"

#include <QString>

#include <cstdint>

class BDDLStructBase_Root;

// The message tables of the Office Open XML camera: the analysis items it
// reports under and their groups, its issue messages and its sanitisation
// messages. Both plug-ins of the folder answer from these tables: the
// package camera's (for a package whose kind is not known yet) and the
// document family's (for a package read as a Word, Excel or PowerPoint
// document).
namespace Ooxml {

// The items a finding or fault is reported under; each has a group.
enum OoxmlAnalysisItem : unsigned int {
    itemPackage = 1,
    itemPart = 2,
    itemMacros = 3,
    itemEmbeddedFiles = 4,
    itemExternalLinks = 5,
    itemMetadata = 6,
    itemReviewComments = 7,
    itemEmbeddedImages = 8,
    itemStructure = 9,
};

// The issue keys: what is wrong with a package. Each has a message id.
#define OOXML_FAULTS(X)                                                                            \
    X(faultNotZip, 1, "Not a zip archive")                                                         \
    X(faultTooLarge, 2, "Package too large")                                                       \
    X(faultTooManyParts, 3, "Too many parts")                                                      \
    X(faultPartTooLarge, 4, "Part too large")                                                      \
    X(faultDamagedPart, 5, "Damaged part")                                                         \
    X(faultBadContentTypes, 6, "Invalid content-type list")                                        \
    X(faultNoContentTypes, 7, "Missing content-type list")                                         \
    X(faultDuplicateContentType, 8, "Duplicated content type")                                     \
    X(faultBadRelationships, 9, "Invalid relationship part")                                       \
    X(faultBadPartName, 10, "Invalid part name")                                                   \
    X(faultDuplicatePart, 11, "Duplicated part name")                                              \
    X(faultNoContentType, 12, "Part without a content type")                                       \
    X(faultTargetOutside, 13, "Relationship target outside the package")                           \
    X(faultBadRelationship, 14, "Invalid relationship")                                            \
    X(faultOrphanRelationships, 15, "Relationships of a missing part")                             \
    X(faultNoMainDocument, 16, "No main document")                                                 \
    X(faultTargetMissing, 17, "Relationship target missing")                                       \
    X(faultUnreferencedPart, 18, "Part not referenced")

#define OOXML_DECLARE_FAULT(name, id, text) name = id,
enum OoxmlFault : uint32_t { OOXML_FAULTS(OOXML_DECLARE_FAULT) };
#undef OOXML_DECLARE_FAULT

// The key (and first words of the message) of a fault.
const char *faultText(OoxmlFault fault);

// The lookups behind both plug-ins.
uint32_t ooxml_getErrMsgID(const char *key);
// By the message's prefix ("Macros present in ..."): keys carry the name of
// what was sanitised.
uint32_t ooxml_getSanitisationMsgID(const char *key);
uint32_t ooxml_getAnalysisGroupID(unsigned int item);
const AnalysisGroupIdMap_t *ooxml_getAnalysisGroupIdMap();
int ooxml_initialiseIDLookups();

// Records "<fault text>: <detail>" as an issue of the structure item with
// the fault's issue id, and logs it. Runs without a repository or camera
// pool (unit use) only log.
void reportFault(BDDLStructBase_Root *root, OoxmlFault fault, const QString &detail);

// A name as it may stand in a report: cut to a few hundred bytes, so that
// no prefix and name outgrow a message.
std::string reportName(const QString &name);

} // namespace Ooxml
