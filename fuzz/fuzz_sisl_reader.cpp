// SISL text from arbitrary bytes: reading either fails with an exception or
// gives a document that writes back to text that reads again (with and
// without pretty printing), to the same document when the layout can hold it
// (an element has either element children or one text). A crash, hang or
// runaway allocation is a finding.

#include "buffers/MemoryBuffer.h"
#include "ucp/sislserialreaderwriter.h"

#include <QDomDocument>
#include <QStringList>
#include <QtGlobal>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <utility>
#include <vector>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// Whether every element holds only elements, or a single text.
bool writable(const QDomNode &node)
{
    std::vector<QDomNode> pending{node};
    while (!pending.empty()) {
        const QDomNode at = pending.back();
        pending.pop_back();
        int texts = 0;
        int children = 0;
        for (QDomNode child = at.firstChild(); !child.isNull(); child = child.nextSibling()) {
            ++children;
            if (child.isText())
                ++texts;
            else
                pending.push_back(child);
        }
        if (texts > 0 && children > 1)
            return false;
    }
    return true;
}

// The document as text with each element's attributes sorted: Qt keeps them
// in hash order, which depends on the order they were set in.
QString canonical(const QDomDocument &doc)
{
    QString text;
    std::vector<std::pair<QDomNode, int>> pending{{doc.documentElement(), 0}};
    while (!pending.empty()) {
        const auto [node, depth] = pending.back();
        pending.pop_back();
        text += QString(depth, QLatin1Char(' '));
        if (node.isText()) {
            text += QLatin1Char('"') + node.nodeValue() + QLatin1String("\"\n");
            continue;
        }
        QStringList attributes;
        const QDomNamedNodeMap map = node.attributes();
        for (int i = 0; i < map.length(); ++i)
            attributes << map.item(i).nodeName() + QLatin1Char('=') + map.item(i).nodeValue();
        attributes.sort();
        text += node.nodeName() + QLatin1Char(' ') + attributes.join(QLatin1Char(' ')) + QLatin1Char('\n');
        std::vector<QDomNode> children;
        for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
            children.push_back(child);
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            pending.emplace_back(*it, depth + 1);
    }
    return text;
}

QDomDocument readOrAbort(MemoryBuffer &text)
{
    QDomDocument doc(QStringLiteral("SerialStream"));
    if (!SISLSerialReaderWriter().deserialise(doc, &text))
        std::abort();
    return doc;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool installed = (qInstallMessageHandler(quiet), true);
    (void)installed;

    MemoryBuffer input(size, const_cast<unsigned char *>(data));
    QDomDocument doc(QStringLiteral("SerialStream"));
    try {
        SISLSerialReaderWriter().deserialise(doc, &input);
    } catch (const std::exception &) {
        if (!doc.documentElement().isNull())
            std::abort(); // a failed read keeps nothing
        return 0;
    }
    const QString read = canonical(doc);
    const bool same = writable(doc.documentElement());
    for (const bool pretty : {false, true}) {
        SISLSerialReaderWriter writer;
        writer.setPrettyPrint(pretty);
        MemoryBuffer written;
        writer.serialise(doc, &written);
        if (canonical(readOrAbort(written)) != read && same)
            std::abort();
    }
    return 0;
}
