#pragma once

#include "ooxml_messages.h"
#include "ooxml_package.h"
#include "ooxml_schema.h"

#include <QVector>

// Validating a package tree and applying the run's policy to it. The root's
// validate() (declared with the class) is defined in this unit.
//
// validate() starts from a tree whose parts and relationships are all kept
// and decides, switch by switch, what the writer leaves out; it changes no
// part's bytes except through the image camera. Running it again over its
// own result (a tree exported after validation and imported) decides the
// same again, so an imported run writes what the direct run wrote.
namespace Ooxml {

// The kind of document the package holds: the content type of the part its
// officeDocument relationship leads to. Null when there is not exactly one
// such part or its kind is not one of the Office kinds; `mainPart` (if
// given) then receives null too.
const DocumentKind *mainDocumentKind(const OoxmlPackage &root, OoxmlPart **mainPart = nullptr);

struct PackageFault
{
    OoxmlFault fault;
    QString detail;
};
// What makes the tree unfit to be written at all: invalid, duplicated or
// clashing part names, parts without content types or over the limits,
// relationships without source part, with duplicated ids, missing fields or
// targets outside the package, and no main document. At most `limit`
// faults are listed; `more` counts the rest.
QVector<PackageFault> structuralFaults(const OoxmlPackage &root, int limit, int *more = nullptr);

} // namespace Ooxml
