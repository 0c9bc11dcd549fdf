#include "ucp/sislserialreaderwriter.h"

#include "buffers/MemoryBuffer.h"
#include "ucp/serialdombounds.h"

#include <QDomDocument>
#include <QHash>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const QByteArray kRecordPrefix = QByteArrayLiteral("__struct_");
const QByteArray kHexPrefix = QByteArrayLiteral("__hexstr_");
const QByteArray kMeta = QByteArrayLiteral("__meta");
const QByteArray kData = QByteArrayLiteral("__data");
const QByteArray kChildren = QByteArrayLiteral("__children");
const QByteArray kMemberType = QByteArrayLiteral("__");

bool isAlpha(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool isDigit(unsigned char c)
{
    return c >= '0' && c <= '9';
}
bool isWhitespace(unsigned char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
bool isHex(unsigned char c)
{
    return isDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}
bool isPrintable(unsigned char c)
{
    return c >= 0x20 && c <= 0x7E && c != '"' && c != '\\';
}
bool isNameChar(unsigned char c)
{
    return isAlpha(c) || isDigit(c) || c == '_' || c == '.' || c == '-';
}

[[noreturn]] void fail(const char *text)
{
    throw std::runtime_error(text);
}
[[noreturn]] void fail(const QString &text)
{
    throw std::runtime_error(text.toStdString());
}

// An unsigned decimal number of at most 19 digits (so it cannot overflow);
// false for anything else.
bool parseNumber(const QByteArray &text, uint64_t &number)
{
    if (text.isEmpty() || text.size() > 19)
        return false;
    number = 0;
    for (const char c : text) {
        if (!isDigit(static_cast<unsigned char>(c)))
            return false;
        number = number * 10 + uint64_t(c - '0');
    }
    return true;
}

// Names and types travel as their UTF-8 bytes. The same few names recur on
// every record, so each distinct one is kept once, as a number, and turned
// into a QString once; the DOM then shares that string's storage.
class NameTable
{
public:
    uint32_t numberOf(const QByteArray &bytes)
    {
        auto found = m_numbers.find(bytes);
        if (found == m_numbers.end()) {
            found = m_numbers.insert(bytes, uint32_t(m_names.size()));
            m_names.push_back(QString::fromUtf8(bytes.constData(), bytes.size()));
        }
        return *found;
    }
    const QString &name(uint32_t number) const { return m_names[number]; }

private:
    QHash<QByteArray, uint32_t> m_numbers;
    std::vector<QString> m_names;
};

constexpr uint32_t bit(uint8_t kind)
{
    return 1u << kind;
}

// Where a value's bytes lie in the text, as written between its quotes.
struct ValueRange
{
    uint64_t start;
    uint64_t length;
};

// The bytes a written value stands for. The text was checked while it was
// cut into lexemes, so every escape here is complete.
QByteArray decodeValue(const unsigned char *data, ValueRange range)
{
    QByteArray value;
    value.reserve(int(range.length));
    const unsigned char *at = data + range.start;
    const unsigned char *const end = at + range.length;
    while (at < end) {
        if (*at != '\\') {
            const unsigned char *const run = at;
            while (at < end && *at != '\\')
                ++at;
            value.append(reinterpret_cast<const char *>(run), int(at - run));
            continue;
        }
        const unsigned char escape = at[1];
        at += 2;
        int hexDigits = 0;
        switch (escape) {
        case 'r':
            value += '\r';
            break;
        case 't':
            value += '\t';
            break;
        case 'n':
            value += '\n';
            break;
        case 'x':
            hexDigits = 2;
            break;
        case 'u':
            hexDigits = 4;
            break;
        case 'U':
            hexDigits = 8;
            break;
        default: // a quote or a backslash
            value += char(escape);
        }
        if (hexDigits > 0) {
            value += QByteArray::fromHex(QByteArray(reinterpret_cast<const char *>(at), hexDigits));
            at += hexDigits;
        }
    }
    return value;
}

// Pulls lexemes from the lexer, searching forward for the kinds it expects.
class LexemeSource
{
public:
    explicit LexemeSource(const MemoryBuffer &buffer) : m_buffer(buffer), m_lexer(buffer, 0) {}

    // The next lexeme of one of the kinds; the end of the text is only
    // accepted when asked for.
    SislTokenLexeme next(uint32_t kinds)
    {
        for (;;) {
            const SislTokenLexeme lexeme = m_lexer.next();
            if (kinds & bit(lexeme.kind))
                return lexeme;
            if (lexeme.kind == sislEnd)
                fail("Unable to parse Sisl file");
        }
    }

    // A name without its ":" or a type without its "!", hex-decoded when it
    // was written as "__hexstr_" and hex digits.
    QByteArray getNameOrType(const SislTokenLexeme &lexeme) const
    {
        QByteArray text = lexeme.getData(&m_buffer);
        if (lexeme.kind == sislName && text.endsWith(':'))
            text.chop(1);
        else if (lexeme.kind == sislType && text.startsWith('!'))
            text.remove(0, 1);
        else
            fail("Incorrect token");
        if (text.startsWith(kHexPrefix)) {
            const QByteArray hex = text.mid(kHexPrefix.size());
            if (hex.isEmpty() || hex.size() % 2 != 0
                || !std::all_of(hex.begin(), hex.end(), [](char c) { return isHex(static_cast<unsigned char>(c)); }))
                fail("Invalid Name or Type field");
            return QByteArray::fromHex(hex);
        }
        if (!SISLSerialReaderWriter::isNameOrTypeValid(text))
            fail("Invalid Name or Type field");
        return text;
    }

    // Where the next quoted value lies; its lexemes are checked on the way.
    ValueRange getValue()
    {
        const SislTokenLexeme open = next(bit(sislQuote));
        for (;;) {
            const SislTokenLexeme lexeme = m_lexer.next();
            switch (lexeme.kind) {
            case sislQuote:
                return {open.start + 1, lexeme.start - open.start - 1};
            case sislValueText:
            case sislEscapedCR:
            case sislEscapedTab:
            case sislEscapedLF:
            case sislEscapedQuote:
            case sislEscapedBackslash:
            case sislHexEscape:
            case sislUnicodeEscape:
                break;
            case sislEnd:
                fail("Unable to parse Sisl file");
            default:
                fail("Invalid Value detected");
            }
        }
    }

    QByteArray decode(ValueRange range) const { return decodeValue(m_buffer.constData(), range); }

private:
    const MemoryBuffer &m_buffer;
    SislLexer m_lexer;
};

struct ChildRange
{
    uint64_t high;
    uint64_t low;
    uint64_t parent; // the record number of the parent
};

// One record as read: its number, its tag, and its attributes and texts,
// which lie together in the reader's lists.
struct Record
{
    uint64_t number;
    uint32_t tag;
    uint32_t firstAttribute;
    uint32_t attributeCount;
    uint32_t firstText;
    uint32_t textCount;
};

struct Attribute
{
    uint32_t name;
    uint32_t length; // of the value as written
    uint64_t start;
};

// Reads a text in three steps, so that nothing of the DOM is made for a
// text that is refused: the records are read into compact lists (value
// bytes stay in the text), the links are checked, the DOM's cost is checked
// against the budget; only then are the elements made and linked.
class RecordReader
{
public:
    RecordReader(QDomDocument &doc, const MemoryBuffer &buffer)
        : m_doc(doc), m_source(buffer), m_textSize(buffer.sizeOfMB())
    {
    }

    void read()
    {
        SislTokenLexeme lexeme = m_source.next(bit(sislName) | bit(sislEnd));
        if (lexeme.kind == sislEnd)
            throw std::out_of_range("SISL text holds no record");
        while (lexeme.kind != sislEnd)
            lexeme = readRecord(lexeme);
        const std::size_t count = m_records.size();
        const std::vector<uint32_t> indexOf = checkNumbers();
        const std::vector<uint32_t> parentOf = checkRanges();
        checkAncestry(parentOf);
        checkCost();

        std::vector<QDomElement> elements;
        elements.reserve(count);
        for (const Record &record : m_records)
            elements.push_back(makeElement(record));
        // From the highest number down: the first child of a parent has the
        // highest number of its siblings, so this restores the written order.
        for (std::size_t number = count - 1; number >= 1; --number)
            elements[indexOf[parentOf[number]]].appendChild(elements[indexOf[number]]);
        m_doc.appendChild(elements[indexOf[0]]);
    }

private:
    SislTokenLexeme readRecord(const SislTokenLexeme &nameLexeme)
    {
        const QByteArray name = m_source.getNameOrType(nameLexeme);
        Record record{};
        if (!name.startsWith(kRecordPrefix) || !parseNumber(name.mid(kRecordPrefix.size()), record.number))
            fail("Invalid name token");
        // Numbers run from 0 to one less than the count of records, and a
        // record takes several bytes: a number this large cannot be right.
        if (record.number >= m_textSize)
            fail(QStringLiteral("Record number %1 out of range").arg(record.number));
        record.tag = m_names.numberOf(m_source.getNameOrType(m_source.next(bit(sislType))));
        record.firstAttribute = uint32_t(m_attributes.size());
        record.firstText = uint32_t(m_texts.size());
        m_records.push_back(record);

        for (;;) {
            const SislTokenLexeme lexeme = m_source.next(bit(sislName) | bit(sislEnd));
            if (lexeme.kind == sislEnd)
                return lexeme;
            const QByteArray member = m_source.getNameOrType(lexeme);
            if (member == kMeta) {
                readAttributes();
            } else if (member == kData) {
                m_texts.push_back(m_source.getValue());
                ++m_records.back().textCount;
            } else if (member == kChildren) {
                readChildRange(record.number);
            } else if (member.startsWith(kRecordPrefix)) {
                return lexeme;
            } else {
                fail("Invalid token name");
            }
        }
    }

    void readAttributes()
    {
        for (;;) {
            const SislTokenLexeme lexeme = m_source.next(bit(sislName) | bit(sislGroupClose));
            if (lexeme.kind == sislGroupClose)
                return;
            if (++m_records.back().attributeCount > uint32_t(SISLSerialReaderWriter::kMaxAttributes))
                fail(QStringLiteral("More than %1 attributes on one record").arg(SISLSerialReaderWriter::kMaxAttributes));
            const uint32_t name = m_names.numberOf(m_source.getNameOrType(lexeme));
            const ValueRange value = m_source.getValue();
            if (value.length > UINT32_MAX)
                fail("Attribute value too long");
            m_attributes.push_back({name, uint32_t(value.length), value.start});
        }
    }

    void readChildRange(uint64_t parent)
    {
        const QByteArray value = m_source.decode(m_source.getValue());
        const int dash = value.indexOf('-');
        ChildRange range{0, 0, parent};
        if (dash < 0 || !parseNumber(value.left(dash), range.high) || !parseNumber(value.mid(dash + 1), range.low)
            || range.low > range.high)
            fail("Invalid child range");
        m_ranges.push_back(range);
    }

    // Record numbers are 0 to count - 1, each once. Gives the position in
    // the text of each number.
    std::vector<uint32_t> checkNumbers() const
    {
        const std::size_t count = m_records.size();
        std::vector<uint32_t> indexOf(count, kNone);
        for (std::size_t i = 0; i < count; ++i) {
            const uint64_t number = m_records[i].number;
            if (number >= count)
                fail(QStringLiteral("Record number %1 out of range").arg(number));
            if (indexOf[number] != kNone)
                fail(QStringLiteral("Record number %1 occurs twice").arg(number));
            indexOf[number] = uint32_t(i);
        }
        return indexOf;
    }

    // Child ranges lie within the records, never include record 0 and never
    // overlap, so every record has at most one parent. Gives each number's
    // parent number.
    std::vector<uint32_t> checkRanges()
    {
        const std::size_t count = m_records.size();
        std::vector<uint32_t> parentOf(count, kNone);
        std::sort(m_ranges.begin(), m_ranges.end(),
                  [](const ChildRange &a, const ChildRange &b) { return a.low < b.low; });
        for (std::size_t k = 0; k < m_ranges.size(); ++k) {
            const ChildRange &range = m_ranges[k];
            if (range.low < 1 || range.high >= count)
                fail(QStringLiteral("Child range %1-%2 out of bounds").arg(range.high).arg(range.low));
            if (k > 0 && range.low <= m_ranges[k - 1].high)
                fail(QStringLiteral("Child ranges %1-%2 and %3-%4 overlap")
                         .arg(m_ranges[k - 1].high)
                         .arg(m_ranges[k - 1].low)
                         .arg(range.high)
                         .arg(range.low));
            for (uint64_t number = range.low; number <= range.high; ++number)
                parentOf[number] = uint32_t(range.parent);
        }
        return parentOf;
    }

    // Every chain of parents ends at record 0 within the depth bound.
    static void checkAncestry(const std::vector<uint32_t> &parentOf)
    {
        constexpr int32_t unknown = -1;
        constexpr int32_t onPath = -2;
        std::vector<int32_t> depth(parentOf.size(), unknown);
        depth[0] = 0;
        std::vector<uint32_t> path;
        for (uint32_t start = 1; start < parentOf.size(); ++start) {
            path.clear();
            uint32_t number = start;
            while (depth[number] == unknown) {
                depth[number] = onPath;
                path.push_back(number);
                number = parentOf[number];
                if (number == kNone)
                    fail(QStringLiteral("Record %1 hangs from no record").arg(path.back()));
            }
            if (depth[number] == onPath)
                fail(QStringLiteral("Record %1 is its own ancestor").arg(number));
            int32_t level = depth[number];
            for (auto it = path.rbegin(); it != path.rend(); ++it) {
                // Record 0 itself sits one level below the document.
                if (++level >= SerialDomBounds::kMaxDepth)
                    fail(QStringLiteral("Records nested more than %1 deep").arg(SerialDomBounds::kMaxDepth));
                depth[*it] = level;
            }
        }
    }

    void checkCost() const
    {
        SerialDomBounds::Budget budget(qint64(m_textSize), SISLSerialReaderWriter::kDomBytesPerInputByte);
        budget.addBytes(m_records.capacity() * sizeof(Record) + m_attributes.capacity() * sizeof(Attribute)
                        + m_texts.capacity() * sizeof(ValueRange) + m_ranges.capacity() * sizeof(ChildRange)
                        + m_records.size() * (sizeof(QDomElement) + 2 * sizeof(uint32_t)));
        for (const Record &record : m_records) {
            budget.addElement();
            if (record.attributeCount > 0)
                budget.addAttributeTable();
        }
        for (const Attribute &attribute : m_attributes)
            budget.addAttribute(qint64(attribute.length));
        for (const ValueRange &text : m_texts)
            budget.addText(qint64(text.length));
        if (budget.exceeded())
            fail(QStringLiteral("SISL text of %1 bytes would need more than %2 bytes as a DOM")
                     .arg(m_textSize)
                     .arg(budget.limit()));
    }

    QDomElement makeElement(const Record &record)
    {
        QDomElement element = m_doc.createElement(m_names.name(record.tag));
        for (uint32_t k = 0; k < record.attributeCount; ++k) {
            const Attribute &attribute = m_attributes[record.firstAttribute + k];
            const QByteArray value = m_source.decode({attribute.start, attribute.length});
            SerialDomBounds::setDomAttribute(element, m_names.name(attribute.name),
                                             SISLSerialReaderWriter::qByteArrayToString(value));
        }
        for (uint32_t k = 0; k < record.textCount; ++k) {
            const QByteArray text = m_source.decode(m_texts[record.firstText + k]);
            element.appendChild(m_doc.createTextNode(SISLSerialReaderWriter::qByteArrayToString(text)));
        }
        return element;
    }

    static constexpr uint32_t kNone = UINT32_MAX;

    QDomDocument &m_doc;
    LexemeSource m_source;
    const std::size_t m_textSize;
    NameTable m_names;
    std::vector<Record> m_records;
    std::vector<Attribute> m_attributes;
    std::vector<ValueRange> m_texts;
    std::vector<ChildRange> m_ranges;
};

} // namespace

// ---------------------------------------------------------------------------
// Lexemes
// ---------------------------------------------------------------------------

QByteArray SislTokenLexeme::getData(const MemoryBuffer *buffer) const
{
    if (buffer == nullptr || start > buffer->sizeOfMB() || length > buffer->sizeOfMB() - start)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char *>(buffer->constData()) + start, int(length));
}

SislLexer::SislLexer(const MemoryBuffer &buffer, std::size_t start)
    : m_data(buffer.constData()), m_pos(std::min(start, buffer.sizeOfMB())), m_end(buffer.sizeOfMB())
{
}

SislTokenLexeme SislLexer::next()
{
    if (!m_started) {
        m_started = true;
        return {sislStart, 0, m_pos};
    }
    if (m_pos >= m_end)
        return {sislEnd, 0, m_end};
    const SislTokenLexeme lexeme = m_inValue ? nextInsideValue() : nextOutsideValue();
    m_first = false;
    return lexeme;
}

SislTokenLexeme SislLexer::nextOutsideValue()
{
    const std::size_t start = m_pos;
    const unsigned char c = m_data[m_pos];
    if (isWhitespace(c) && !m_first) {
        while (m_pos < m_end && isWhitespace(m_data[m_pos]))
            ++m_pos;
        return lexeme(sislWhitespace, start);
    }
    switch (c) {
    case '{':
        ++m_pos;
        return lexeme(sislGroupOpen, start);
    case '}':
        ++m_pos;
        return lexeme(sislGroupClose, start);
    case ',':
        ++m_pos;
        return lexeme(sislSeparator, start);
    case '"':
        ++m_pos;
        m_inValue = true;
        return lexeme(sislQuote, start);
    case '!':
        ++m_pos;
        while (m_pos < m_end && isNameChar(m_data[m_pos]))
            ++m_pos;
        if (m_pos == start + 1)
            fail("Type field is empty");
        return lexeme(sislType, start);
    default:
        while (m_pos < m_end && isNameChar(m_data[m_pos]))
            ++m_pos;
        if (m_pos >= m_end || m_data[m_pos] != ':')
            fail("Invalid name field");
        ++m_pos;
        return lexeme(sislName, start);
    }
}

void SislLexer::readHexDigits(int count)
{
    for (int i = 0; i < count; ++i, ++m_pos)
        if (m_pos >= m_end || !isHex(m_data[m_pos]))
            fail("Invalid escape character");
}

SislTokenLexeme SislLexer::nextInsideValue()
{
    const std::size_t start = m_pos;
    const unsigned char c = m_data[m_pos];
    if (c == '"') {
        ++m_pos;
        m_inValue = false;
        return lexeme(sislQuote, start);
    }
    if (isPrintable(c)) {
        while (m_pos < m_end && isPrintable(m_data[m_pos]))
            ++m_pos;
        return lexeme(sislValueText, start);
    }
    if (c != '\\')
        fail("Invalid character in value field");
    if (++m_pos >= m_end)
        fail("Unknown Escape Found");
    const unsigned char escape = m_data[m_pos++];
    switch (escape) {
    case 'r':
        return lexeme(sislEscapedCR, start);
    case 't':
        return lexeme(sislEscapedTab, start);
    case 'n':
        return lexeme(sislEscapedLF, start);
    case '"':
        return lexeme(sislEscapedQuote, start);
    case '\\':
        return lexeme(sislEscapedBackslash, start);
    case 'x':
        readHexDigits(2);
        return lexeme(sislHexEscape, start);
    case 'U':
        readHexDigits(8);
        return lexeme(sislHexEscape, start);
    case 'u':
        readHexDigits(4);
        return lexeme(sislUnicodeEscape, start);
    default:
        fail("Unknown Escape Found");
    }
}

// ---------------------------------------------------------------------------
// SISLSerialReaderWriter
// ---------------------------------------------------------------------------

std::vector<SislTokenLexeme> SISLSerialReaderWriter::tokenizeSizzle(MemoryBuffer *buffer)
{
    std::vector<SislTokenLexeme> lexemes;
    if (buffer == nullptr)
        return lexemes;
    SislLexer lexer(*buffer, buffer->tell());
    do
        lexemes.push_back(lexer.next());
    while (lexemes.back().kind != sislEnd);
    return lexemes;
}

bool SISLSerialReaderWriter::isNameOrTypeValid(const QByteArray &text)
{
    if (text.isEmpty())
        return false;
    const auto first = static_cast<unsigned char>(text.front());
    if (first != '_' && !isAlpha(first))
        return false;
    return std::all_of(text.begin() + 1, text.end(), [](char c) { return isNameChar(static_cast<unsigned char>(c)); });
}

namespace {

// Appends the escaped form of the bytes: printable runs as they are, the
// rest as backslash escapes.
void putEscaped(MemoryBuffer *buffer, const char *data, unsigned long size)
{
    static const char kHexDigits[] = "0123456789ABCDEF";
    unsigned long run = 0;
    for (unsigned long i = 0; i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (isPrintable(c))
            continue;
        buffer->putRawBytes(data + run, i - run);
        run = i + 1;
        char escape[4] = {'\\', char(c), 0, 0};
        std::size_t length = 2;
        switch (c) {
        case '"':
        case '\\':
            break;
        case '\r':
            escape[1] = 'r';
            break;
        case '\t':
            escape[1] = 't';
            break;
        case '\n':
            escape[1] = 'n';
            break;
        default:
            escape[1] = 'x';
            escape[2] = kHexDigits[c >> 4];
            escape[3] = kHexDigits[c & 0xF];
            length = 4;
        }
        buffer->putRawBytes(escape, length);
    }
    buffer->putRawBytes(data + run, size - run);
}

} // namespace

QByteArray SISLSerialReaderWriter::escapeValue(const char *data, unsigned long size)
{
    MemoryBuffer escaped;
    putEscaped(&escaped, data, size);
    return QByteArray(reinterpret_cast<const char *>(escaped.constData()), int(escaped.sizeOfMB()));
}

void SISLSerialReaderWriter::printIndent(MemoryBuffer *buffer)
{
    static const char kSpaces[] = "                                                                ";
    for (uint64_t left = 2 * m_indentLevel; left > 0;) {
        const uint64_t chunk = std::min<uint64_t>(left, sizeof kSpaces - 1);
        buffer->putRawBytes(kSpaces, chunk);
        left -= chunk;
    }
}

void SISLSerialReaderWriter::printGroupOpen(MemoryBuffer *buffer)
{
    buffer->putUInt8('{');
    if (prettyPrint()) {
        buffer->putUInt8('\n');
        ++m_indentLevel;
    }
    m_lastToken = sislGroupOpen;
}

void SISLSerialReaderWriter::printGroupClose(MemoryBuffer *buffer)
{
    if (prettyPrint()) {
        if (m_lastToken != sislGroupClose)
            buffer->putUInt8('\n');
        if (m_indentLevel > 0)
            --m_indentLevel;
        printIndent(buffer);
    }
    buffer->putUInt8('}');
    if (prettyPrint())
        buffer->putUInt8('\n');
    m_lastToken = sislGroupClose;
}

void SISLSerialReaderWriter::printValueSeparator(MemoryBuffer *buffer)
{
    buffer->putUInt8(',');
    if (prettyPrint())
        buffer->putUInt8('\n');
    m_lastToken = sislSeparator;
}

void SISLSerialReaderWriter::printNameOrType(MemoryBuffer *buffer, const QByteArray &text)
{
    if (isNameOrTypeValid(text)) {
        buffer->putRawBytes(text.constData(), size_t(text.size()));
        return;
    }
    const QByteArray hex = text.toHex();
    buffer->putRawBytes(kHexPrefix.constData(), size_t(kHexPrefix.size()));
    buffer->putRawBytes(hex.constData(), size_t(hex.size()));
}

void SISLSerialReaderWriter::printName(MemoryBuffer *buffer, const QByteArray &name)
{
    if (m_lastToken == sislValue || m_lastToken == sislGroupClose)
        printValueSeparator(buffer);
    if (prettyPrint())
        printIndent(buffer);
    printNameOrType(buffer, name);
    buffer->putRawBytes(": ", 2);
    m_lastToken = sislName;
}

void SISLSerialReaderWriter::printType(MemoryBuffer *buffer, const QByteArray &type)
{
    buffer->putUInt8('!');
    printNameOrType(buffer, type);
    buffer->putUInt8(' ');
    m_lastToken = sislType;
}

void SISLSerialReaderWriter::printValue(MemoryBuffer *buffer, const char *data, unsigned long size)
{
    buffer->putUInt8('"');
    putEscaped(buffer, data, size);
    buffer->putUInt8('"');
    m_lastToken = sislValue;
}

void SISLSerialReaderWriter::printMember(MemoryBuffer *buffer, const QByteArray &name, const QString &value)
{
    printName(buffer, name);
    printType(buffer, kMemberType);
    const QByteArray bytes = qStringToByteArray(value);
    printValue(buffer, bytes.constData(), static_cast<unsigned long>(bytes.size()));
}

bool SISLSerialReaderWriter::serialise(QDomDocument &doc, MemoryBuffer *buffer)
{
    if (buffer == nullptr)
        return false;
    m_lastToken = sislStart;
    m_indentLevel = 0;
    static const QByteArray kOrderedNames[] = {"name",  "offset",      "size",       "eitem",
                                               "estrc", "type_string", "streamname", "cameraname"};
    QHash<QString, QByteArray> utf8; // tag and attribute names, converted once each
    const auto bytesOf = [&utf8](const QString &text) -> const QByteArray & {
        auto found = utf8.find(text);
        if (found == utf8.end())
            found = utf8.insert(text, text.toUtf8());
        return *found;
    };

    printGroupOpen(buffer);
    std::vector<std::pair<QDomElement, uint64_t>> pending;
    const QDomElement top = doc.documentElement();
    if (!top.isNull())
        pending.emplace_back(top, 0);
    uint64_t counter = 0;
    while (!pending.empty()) {
        QDomElement element = pending.back().first;
        const uint64_t number = pending.back().second;
        pending.pop_back();

        printName(buffer, kRecordPrefix + QByteArray::number(qulonglong(number)));
        printType(buffer, bytesOf(element.tagName()));
        printGroupOpen(buffer);

        if (element.hasAttributes()) {
            printName(buffer, kMeta);
            printType(buffer, kMemberType);
            printGroupOpen(buffer);
            const QDomNamedNodeMap attributes = element.attributes();
            int written = 0;
            for (const QByteArray &name : kOrderedNames) {
                const QDomAttr attribute = element.attributeNode(QLatin1String(name));
                if (!attribute.isNull()) {
                    printMember(buffer, name, attribute.value());
                    ++written;
                }
            }
            if (written < attributes.length()) {
                // Qt keeps attributes in hash order, which changes from process
                // to process; sorted by name they always come out the same.
                std::vector<std::pair<QByteArray, QString>> others;
                for (int i = 0; i < attributes.length(); ++i) {
                    const QDomAttr attribute = attributes.item(i).toAttr();
                    const QByteArray &name = bytesOf(attribute.name());
                    if (std::find(std::begin(kOrderedNames), std::end(kOrderedNames), name) == std::end(kOrderedNames))
                        others.emplace_back(name, attribute.value());
                }
                std::sort(others.begin(), others.end());
                for (const auto &[name, value] : others)
                    printMember(buffer, name, value);
            }
            printGroupClose(buffer);
        }

        const QDomNode last = element.lastChild();
        if (last.isText()) {
            printMember(buffer, kData, last.toText().data());
        } else if (!last.isNull()) {
            const uint64_t firstNumber = counter + 1;
            std::size_t scheduled = 0;
            for (QDomNode child = last; !child.isNull(); child = child.previousSibling()) {
                if (!child.isElement())
                    continue;
                pending.emplace_back(child.toElement(), ++counter);
                ++scheduled;
            }
            if (scheduled > 0) {
                const QString range = QStringLiteral("%1-%2").arg(counter).arg(firstNumber);
                printMember(buffer, kChildren, range);
            }
        }
        printGroupClose(buffer);
    }
    printGroupClose(buffer);
    return true;
}

bool SISLSerialReaderWriter::deserialise(QDomDocument &doc, MemoryBuffer *buffer)
{
    setErrorString(QString());
    if (buffer == nullptr)
        fail("Unable to parse Sisl file");
    buffer->seek(0);
    RecordReader(doc, *buffer).read();
    return true;
}

QString SISLSerialReaderWriter::generateStreamName(QString, QString streamName, int a, int b, QString extension)
{
    return formatStreamName(streamName, a, b, extension, "sisl");
}
