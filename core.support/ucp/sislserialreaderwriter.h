#pragma once

#include "ucp/serialdatareaderwriter.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <vector>

class QDomDocument;

// The lexeme kinds of SISL text. The writer remembers the kinds 1, 2, 4, 5,
// 6 and 7 as its last token.
enum SislToken : uint8_t {
    sislStart = 0,
    sislGroupOpen = 1,      // "{"
    sislGroupClose = 2,     // "}"
    sislWhitespace = 3,     // a run of space, tab, line feed, carriage return
    sislName = 4,           // name characters and ":"
    sislType = 5,           // "!" and name characters
    sislSeparator = 6,      // ","
    sislValue = 7,          // a whole quoted value (writer side only)
    sislQuote = 8,          // the quote that opens or closes a value
    sislValueText = 9,      // printable bytes inside a value
    sislEscapedCR = 10,     // \r
    sislEscapedTab = 11,    // \t
    sislEscapedLF = 12,     // \n
    sislEscapedQuote = 13,  // \"
    sislEscapedBackslash = 14,
    sislHexEscape = 15,     // \x and two hex digits, or \U and eight
    sislUnicodeEscape = 16, // \u and four hex digits
    sislEnd = 18,
};

// One lexeme: its kind and where its bytes lie in the text.
struct SislTokenLexeme
{
    uint8_t kind = sislStart;
    uint64_t length = 0;
    uint64_t start = 0;

    QByteArray getData(const MemoryBuffer *buffer) const;
};

// Cuts SISL text into lexemes one at a time, so that reading a text needs
// memory for one lexeme rather than for one per token. Failures throw
// std::runtime_error with the texts of the format.
class SislLexer
{
public:
    // The bytes from `start` to `end` of the buffer's storage, which must
    // stay unchanged while the lexer is used.
    SislLexer(const MemoryBuffer &buffer, std::size_t start);

    // The start lexeme first, the end lexeme last (and again after it).
    SislTokenLexeme next();

private:
    SislTokenLexeme lexeme(uint8_t kind, std::size_t start) const { return {kind, m_pos - start, start}; }
    SislTokenLexeme nextOutsideValue();
    SislTokenLexeme nextInsideValue();
    void readHexDigits(int count);

    const unsigned char *m_data;
    std::size_t m_pos;
    std::size_t m_end;
    bool m_started = false;
    bool m_first = true; // no lexeme read yet: whitespace is not allowed here
    bool m_inValue = false;
};

// The SISL text form of a serialised tree: every DOM element becomes one
// numbered record of a single outer group, and parent-child links are
// written as ranges of record numbers, so the text has one level of records
// however deep the tree is.
//
// Reading refuses what the writer never makes and what would cost out of
// proportion: record numbers that repeat or lie beyond the records present,
// child ranges out of bounds or overlapping, records that are their own
// ancestors or hang from nothing, nesting beyond the DOM depth bound, more
// than 64 attributes on an element, and documents whose DOM would take more
// than kDomBytesPerInputByte bytes per input byte.
class SISLSerialReaderWriter final : public SerialDataReaderWriter
{
public:
    // A SISL stream as this system writes it takes up to about 20 times its
    // size as a Qt DOM; the bound leaves a little room above that.
    static constexpr int kDomBytesPerInputByte = 19;
    static constexpr int kMaxAttributes = 64;

    // Writes at the buffer's cursor. Attributes are written in the order of
    // the serialised-tree layout (name, offset, size, eitem, estrc,
    // type_string, streamname, cameraname), then any others by name, so the
    // same tree always gives the same text.
    bool serialise(QDomDocument &doc, MemoryBuffer *buffer) override;
    // Throws std::runtime_error (std::out_of_range for a text without
    // records) with the reason; the document is only filled on success.
    bool deserialise(QDomDocument &doc, MemoryBuffer *buffer) override;
    QString generateStreamName(QString unused, QString streamName, int a, int b, QString extension) override;

    // Every lexeme of the text from the buffer's cursor, for small texts and
    // tests; deserialise() pulls them one at a time instead.
    static std::vector<SislTokenLexeme> tokenizeSizzle(MemoryBuffer *buffer);
    static bool isNameOrTypeValid(const QByteArray &text);
    // The value bytes as written between the quotes.
    static QByteArray escapeValue(const char *data, unsigned long size);
    // Latin-1 bytes of a DOM text, and back: one byte per character.
    static QByteArray qStringToByteArray(const QString &text) { return text.toLatin1(); }
    static QString qByteArrayToString(const QByteArray &bytes) { return QString::fromLatin1(bytes.constData(), bytes.size()); }

private:
    void printGroupOpen(MemoryBuffer *buffer);
    void printGroupClose(MemoryBuffer *buffer);
    void printValue(MemoryBuffer *buffer, const char *data, unsigned long size);
    void printValueSeparator(MemoryBuffer *buffer);
    void printName(MemoryBuffer *buffer, const QByteArray &name);
    void printType(MemoryBuffer *buffer, const QByteArray &type);
    void printNameOrType(MemoryBuffer *buffer, const QByteArray &text);
    void printIndent(MemoryBuffer *buffer);
    void printMember(MemoryBuffer *buffer, const QByteArray &name, const QString &value);

    uint8_t m_lastToken = sislStart;
    uint64_t m_indentLevel = 0;
};
