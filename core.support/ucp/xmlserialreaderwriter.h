#pragma once

#include "ucp/serialdatareaderwriter.h"

// The XML form of a serialised tree: the DOM as Qt writes it, indented by
// one space per level, in UTF-8.
//
// Values travel as one character per byte, and XML cannot carry every byte:
// control characters are not allowed at all, and a text of whitespace only
// (or none) does not survive parsing. Such characters are written as
// characters of a private-use range and turned back on reading, so every
// value comes back byte for byte:
//   U+E000 + c   the control character c (0x00-0x1F), in texts and attribute values;
//   U+E020 x     the character x as it stands: a character of the range
//                U+E000-U+E020 itself, or a space of a text made only of whitespace;
//   U+E020 alone at the end of a text: nothing (a text that is empty).
// Tab, line feed and carriage return pass as they are, except in a text made
// only of whitespace.
//
// Streams from outside are read within bounds: no document type with
// declarations, nesting and node counts in proportion to the input's size.
class XMLSerialReaderWriter final : public SerialDataReaderWriter
{
public:
    // DOM bytes allowed per input byte. An XML stream as this system writes
    // it takes about 40 times its size as a Qt DOM.
    static constexpr int kDomBytesPerInputByte = 48;

    bool serialise(QDomDocument &doc, MemoryBuffer *buffer) override;
    bool deserialise(QDomDocument &doc, MemoryBuffer *buffer) override;
    QString generateStreamName(QString unused, QString streamName, int a, int b, QString extension) override;

    // The escaping described above, for one text node (`isText`) or attribute value.
    static QString escapeForXml(const QString &value, bool isText);
    static QString unescapeFromXml(const QString &value);
};
