#pragma once

// Reading analysis reports back in tests: the bytes of a buffer, a
// well-formedness check with Qt's XML reader, and the texts and attributes of
// elements in document order.

#include "buffers/MemoryBuffer.h"

#include <QString>
#include <QStringList>
#include <QXmlStreamReader>

#include <string>

inline std::string bufferText(const MemoryBuffer &buffer)
{
    return std::string(reinterpret_cast<const char *>(buffer.constData()), buffer.sizeOfMB());
}

// Empty for a well-formed, namespace-correct document; otherwise where and
// why the reader stopped.
inline QString xmlProblem(const std::string &text)
{
    QXmlStreamReader reader(QByteArray::fromStdString(text));
    while (!reader.atEnd())
        reader.readNext();
    if (!reader.hasError())
        return QString();
    return QStringLiteral("line %1 column %2: %3")
        .arg(reader.lineNumber())
        .arg(reader.columnNumber())
        .arg(reader.errorString());
}

// The text content of every element with that qualified name, in order.
inline QStringList elementTexts(const std::string &text, const QString &qualifiedName)
{
    QStringList texts;
    QXmlStreamReader reader(QByteArray::fromStdString(text));
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && reader.qualifiedName() == qualifiedName)
            texts << reader.readElementText(QXmlStreamReader::IncludeChildElements);
    }
    return texts;
}

// The value of an attribute on every element with that qualified name, in order.
inline QStringList attributeValues(const std::string &text, const QString &qualifiedName,
                                   const QString &attribute)
{
    QStringList values;
    QXmlStreamReader reader(QByteArray::fromStdString(text));
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && reader.qualifiedName() == qualifiedName)
            values << reader.attributes().value(attribute).toString();
    }
    return values;
}
