#pragma once

#include "ooxml_messages.h"
#include "ooxml_package.h"
#include "ooxml_schema.h"

#include <QByteArray>
#include <QString>

class MemoryBuffer;

// Reading a package into the camera's tree. The root's vir_readFromBuffer
// (declared with the class) is defined in this unit.
namespace Ooxml {

// Why a package could not be read.
struct ReadFault
{
    OoxmlFault fault = faultNotZip;
    QString detail;
};

// Reads the zip archive in `input` into the root, which is emptied first:
// the content-type list becomes the defaults and each part's content type,
// every relationship part becomes relationships, every other member a part
// with its bytes. False, with the fault, when the package cannot be read
// within the limits of ooxml_package.h. Which parts and relationships make
// sense together is left to validation, which sees imported trees too.
bool readPackage(const MemoryBuffer &input, OoxmlPackage &root, ReadFault &fault,
                 const ReadLimits &limits = ReadLimits());

// The XML of the content-type list and of a relationship part, into the
// root. A document type declaration, malformed XML, another root element or
// a missing attribute is a fault; so is a second Default for an extension or
// Override for a part.
bool parseContentTypes(const QByteArray &xml, OoxmlPackage &root, QHash<QString, QString> &overrides,
                       ReadFault &fault);
bool parseRelationships(const QByteArray &xml, const QString &source, OoxmlPackage &root, ReadFault &fault,
                        int limit = kMaxRelationships);

} // namespace Ooxml
