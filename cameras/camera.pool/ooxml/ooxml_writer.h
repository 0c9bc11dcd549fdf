#pragma once

#include "ooxml_schema.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

class MemoryBuffer;

// Writing a package from the camera's tree. The root's vir_writeToBuffer
// (declared with the class) is defined in this unit.
namespace Ooxml {

// Writes the kept parts and relationships as a new package at the buffer's
// cursor: the content-type list first, made anew for what is written; then
// the package's relationships; then each part, its bytes as they are,
// followed by its relationship part. False when the archive cannot be made.
bool writePackage(const OoxmlPackage &root, MemoryBuffer &output);

// The XML of a content-type list and of a relationship part.
QByteArray contentTypesXml(const QList<QPair<QString, QString>> &defaults,
                           const QList<QPair<QString, QString>> &overrides);
QByteArray relationshipsXml(const QList<const OoxmlRelationship *> &relationships);

} // namespace Ooxml
