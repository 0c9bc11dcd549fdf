#pragma once

// Reading analysis reports back in tests with Qt's XML reader.

#include "buffers/MemoryBuffer.h"

#include <QString>
#include <QStringList>
#include <QXmlStreamReader>

#include <string>

inline std::string bufferText(const MemoryBuffer &buffer)
{
    return std::string(reinterpret_cast<const char *>(buffer.constData()), buffer.sizeOfMB());
}

// Empty for a well-formed, namespace-correct document; otherwise where and why
// the reader stopped.
inline QString xmlProblem(const std::string &text)
{
    QXmlStreamReader reader(QByteArray::fromStdString(text));
    while (!reader.atEnd())
        reader.readNext();
    if (!reader.hasError())
        return QString();
    return QStringLiteral("line %1 column %2: %3").arg(reader.lineNumber()).arg(reader.columnNumber()).arg(reader.errorString());
}

// In document order, for every element with that qualified name: its text, or
// the value of the attribute when one is named.
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
    return values;
}
