#pragma once

// Reading analysis reports back with Qt's XML reader.

#include "buffers/MemoryBuffer.h"

#include <QStringList>
#include <QXmlStreamReader>

#include <string>

inline std::string bufferText(const MemoryBuffer &buffer)
{
    return std::string(reinterpret_cast<const char *>(buffer.constData()), buffer.sizeOfMB());
}

// In document order, for every element of that qualified name: its text, or
// the value of the named attribute. A document that is not well-formed (or not
// namespace-correct) gives instead one line saying where and why the reader
// stopped, so xmlValues(text, {}) is empty exactly for a well-formed document.
inline QStringList xmlValues(const std::string &text, const QString &element, const QString &attribute = QString())
{
    QStringList values;
    QXmlStreamReader reader(QByteArray::fromStdString(text));
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement || reader.qualifiedName() != element)
            continue;
        values << (attribute.isEmpty() ? reader.readElementText(QXmlStreamReader::IncludeChildElements)
                                       : reader.attributes().value(attribute).toString());
    }
    if (reader.hasError())
        return {QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(reader.errorString())};
    return values;
}
