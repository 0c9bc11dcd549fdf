#include "ucp/xmlserialreaderwriter.h"

#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"
#include "ucp/serialdombounds.h"
#include "ucp/serialdomwalk.h"

#include <QDomDocument>
#include <QXmlStreamReader>

#include <utility>
#include <vector>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

constexpr ushort kEscapeBase = 0xE000; // U+E000 + c: control character c
constexpr ushort kLiteral = 0xE020;    // the next character as it stands
// Attributes of one element. Elements of a serialised tree carry eight; Qt's
// DOM reaches an attribute by position in linear time, so many more would
// make walking them quadratic.
constexpr int kMaxAttributes = 64;

bool isXmlWhitespace(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t') || c == QLatin1Char('\n') || c == QLatin1Char('\r');
}

bool isEscapeRange(ushort u)
{
    return u >= kEscapeBase && u <= kLiteral;
}

bool isWhitespaceOnly(const QString &value)
{
    for (const QChar c : value)
        if (!isXmlWhitespace(c))
            return false;
    return true;
}

bool needsEscape(const QString &value, bool isText)
{
    if (isText && isWhitespaceOnly(value))
        return true; // empty texts included
    for (const QChar c : value) {
        const ushort u = c.unicode();
        if ((u < 0x20 && !isXmlWhitespace(c)) || isEscapeRange(u))
            return true;
    }
    return false;
}

// Escapes the values of a document in place for as long as it lives, and
// puts the originals back when it goes: the caller's document is left as it
// was, and only the values that change are copied.
class EscapedValues
{
public:
    explicit EscapedValues(QDomDocument &doc)
    {
        forEachDomNode(doc, [this](QDomNode &node) {
            if (node.isText()) {
                QDomText text = node.toText();
                const QString data = text.data();
                if (needsEscape(data, true)) {
                    text.setData(XMLSerialReaderWriter::escapeForXml(data, true));
                    m_changed.emplace_back(node, data);
                }
            } else if (node.isElement()) {
                const QDomNamedNodeMap attributes = node.attributes();
                for (int i = 0; i < attributes.length(); ++i) {
                    QDomAttr attribute = attributes.item(i).toAttr();
                    const QString value = attribute.value();
                    if (needsEscape(value, false)) {
                        attribute.setValue(XMLSerialReaderWriter::escapeForXml(value, false));
                        m_changed.emplace_back(attribute, value);
                    }
                }
            }
        });
    }
    ~EscapedValues()
    {
        for (auto &[node, original] : m_changed)
            node.setNodeValue(original);
    }
    EscapedValues(const EscapedValues &) = delete;
    EscapedValues &operator=(const EscapedValues &) = delete;

private:
    std::vector<std::pair<QDomNode, QString>> m_changed;
};

void unescapeDocument(QDomDocument &doc)
{
    const auto unescape = [](QDomNode node) {
        const QString value = node.nodeValue();
        for (const QChar c : value) {
            if (isEscapeRange(c.unicode())) {
                node.setNodeValue(XMLSerialReaderWriter::unescapeFromXml(value));
                return;
            }
        }
    };
    forEachDomNode(doc, [&unescape](QDomNode &node) {
        if (node.isText()) {
            unescape(node);
        } else if (node.isElement()) {
            const QDomNamedNodeMap attributes = node.attributes();
            for (int i = 0; i < attributes.length(); ++i)
                unescape(attributes.item(i));
        }
    });
}

// Reads the stream once without building anything: it must be well formed,
// declare nothing in a document type, and stay within the depth and memory
// bounds. Empty `problem` when it may be built.
QString checkStream(QIODevice &device)
{
    QXmlStreamReader reader(&device);
    SerialDomBounds::Budget budget(device.size(), XMLSerialReaderWriter::kDomBytesPerInputByte);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::DTD:
            if (!reader.entityDeclarations().isEmpty() || !reader.notationDeclarations().isEmpty()
                || !reader.dtdSystemId().isEmpty() || !reader.dtdPublicId().isEmpty())
                return QStringLiteral("a document type with declarations or external identifiers");
            break;
        case QXmlStreamReader::StartElement:
            if (++depth > SerialDomBounds::kMaxDepth)
                return QStringLiteral("elements nested more than %1 deep").arg(SerialDomBounds::kMaxDepth);
            if (reader.attributes().size() > kMaxAttributes)
                return QStringLiteral("an element with more than %1 attributes").arg(kMaxAttributes);
            budget.addElement();
            if (!reader.attributes().isEmpty())
                budget.addAttributeTable();
            // Qt's parser gives every attribute a text node, empty or not.
            for (const QXmlStreamAttribute &attribute : reader.attributes())
                budget.addAttribute(qMax(1, attribute.value().size()));
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::Characters:
            if (!reader.isWhitespace())
                budget.addText(reader.text().size());
            break;
        case QXmlStreamReader::Comment:
        case QXmlStreamReader::ProcessingInstruction:
            budget.addOther(reader.text().size());
            break;
        default:
            break;
        }
        if (budget.exceeded())
            return QStringLiteral("more nodes than a stream of %1 bytes may hold").arg(device.size());
    }
    if (reader.hasError())
        return QStringLiteral("%1 (line %2, column %3)")
            .arg(reader.errorString())
            .arg(reader.lineNumber())
            .arg(reader.columnNumber());
    return QString();
}

} // namespace

QString XMLSerialReaderWriter::escapeForXml(const QString &value, bool isText)
{
    if (isText && value.isEmpty())
        return QString(QChar(kLiteral));
    const bool whitespaceOnly = isText && isWhitespaceOnly(value);
    QString escaped;
    escaped.reserve(value.size() + 8);
    for (const QChar c : value) {
        const ushort u = c.unicode();
        if (u < 0x20 && (whitespaceOnly || !isXmlWhitespace(c))) {
            escaped += QChar(ushort(kEscapeBase + u));
        } else if (isEscapeRange(u) || (whitespaceOnly && c == QLatin1Char(' '))) {
            escaped += QChar(kLiteral);
            escaped += c;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

QString XMLSerialReaderWriter::unescapeFromXml(const QString &value)
{
    QString plain;
    plain.reserve(value.size());
    for (int i = 0; i < value.size(); ++i) {
        const ushort u = value.at(i).unicode();
        if (u == kLiteral) {
            if (++i < value.size())
                plain += value.at(i);
        } else if (isEscapeRange(u)) {
            plain += QChar(ushort(u - kEscapeBase));
        } else {
            plain += value.at(i);
        }
    }
    return plain;
}

bool XMLSerialReaderWriter::serialise(QDomDocument &doc, MemoryBuffer *buffer)
{
    if (buffer == nullptr)
        return false;
    QByteArray text;
    {
        const EscapedValues escaped(doc);
        text = doc.toString(1).toUtf8();
    }
    buffer->seek(0);
    buffer->putRawBytes(text.constData(), static_cast<size_t>(text.size()));
    return true;
}

bool XMLSerialReaderWriter::deserialise(QDomDocument &doc, MemoryBuffer *buffer)
{
    setErrorString(QString());
    if (buffer == nullptr) {
        setErrorString(QStringLiteral("no XML stream"));
        return false;
    }
    IOMemoryBuffer device(buffer);
    if (!device.open(QIODevice::ReadOnly) || !device.seek(0)) {
        setErrorString(device.errorString());
        return false;
    }
    const QString problem = checkStream(device);
    if (!problem.isEmpty()) {
        setErrorString(QStringLiteral("XML stream refused: %1").arg(problem));
        return false;
    }
    device.seek(0);
    QXmlStreamReader reader(&device);
    QString message;
    if (!doc.setContent(&reader, false, &message)) {
        setErrorString(QStringLiteral("XML stream refused: %1").arg(message));
        return false;
    }
    device.close();
    unescapeDocument(doc);
    return true;
}

QString XMLSerialReaderWriter::generateStreamName(QString, QString streamName, int a, int b, QString extension)
{
    return formatStreamName(streamName, a, b, extension, "xml");
}
