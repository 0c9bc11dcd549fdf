// Serial forms of a tree of 100 000 nodes, shaped as a camera's tree is
// serialised (a document holding an array of 20 000 structures of four
// items each, every element with the eight node attributes and the values
// as text): written to bytes and read back into a DOM, XML beside SISL,
// pretty printing off. The counters give the bytes of each form and nodes
// per second.

#include "buffers/MemoryBuffer.h"
#include "ucp/sislserialreaderwriter.h"
#include "ucp/xmlserialreaderwriter.h"

#include <QDomDocument>
#include <QStringList>
#include <benchmark/benchmark.h>

#include <memory>

namespace {

constexpr int kStructures = 20000;
constexpr int kNodes = 1 + 2 + kStructures * 5; // document, count, array, structures and their items

const char *const kAttributes[] = {"name", "offset", "size", "eitem", "estrc", "type_string", "streamname", "cameraname"};

QDomElement node(QDomDocument &doc, const char *tag, const QStringList &values, const QString &text = QString())
{
    QDomElement element = doc.createElement(QLatin1String(tag));
    for (int i = 0; i < 8; ++i) {
        const QString value = values.value(i);
        if (value.isEmpty())
            element.setAttributeNode(doc.createAttribute(QLatin1String(kAttributes[i])));
        else
            element.setAttribute(QLatin1String(kAttributes[i]), value);
    }
    if (!text.isNull())
        element.appendChild(doc.createTextNode(text));
    return element;
}

QDomDocument makeTree()
{
    QDomDocument doc(QStringLiteral("SerialStream"));
    QDomElement stream = doc.createElement(QStringLiteral("FileStream"));
    stream.setAttribute(QStringLiteral("streamname"), QStringLiteral("report.doc"));
    stream.setAttribute(QStringLiteral("cameraname"), QStringLiteral("libword.so"));
    doc.appendChild(stream);
    QDomElement document = node(doc, "DOCUMENT", {"WordDocument", "0", "2000000", "", "1", "true"});
    stream.appendChild(document);
    document.appendChild(node(doc, "VALUE", {"count", "", "", "1"}, QString::number(kStructures)));
    QDomElement array = node(doc, "STRUCTARRAY", {"records", "", QString::number(kStructures), "3"});
    document.appendChild(array);
    for (int i = 0; i < kStructures; ++i) {
        QDomElement record = node(doc, "STRUCT", {"Record", QString::number(i * 100), "100", "", "2", "true"});
        record.appendChild(node(doc, "VALUE", {"kind", "", "", "5"}, QString::number(i % 17)));
        record.appendChild(node(doc, "ITEM", {"label", "", "", "6"}, QStringLiteral("Paragraph %1 text").arg(i)));
        record.appendChild(node(doc, "ITEM", {"weight", "", "", "7"}, QString::number(i / 7.0)));
        QString bytes;
        for (int b = 0; b < 8; ++b)
            bytes += QChar((i * 31 + b * 7) & 0xFF);
        record.appendChild(node(doc, "VALUEARRAY", {"flags", "", "", "8"}, bytes));
        array.appendChild(record);
    }
    return doc;
}

std::unique_ptr<SerialDataReaderWriter> form(int format)
{
    if (format == 0)
        return std::make_unique<XMLSerialReaderWriter>();
    return std::make_unique<SISLSerialReaderWriter>();
}

const QDomDocument &tree()
{
    static const QDomDocument made = makeTree();
    return made;
}

void setLabel(benchmark::State &state)
{
    state.SetLabel(state.range(0) == 0 ? "xml" : "sisl");
}

void BM_Serialise(benchmark::State &state)
{
    QDomDocument doc = tree();
    const auto rw = form(int(state.range(0)));
    size_t bytes = 0;
    for (auto _ : state) {
        MemoryBuffer buffer;
        rw->serialise(doc, &buffer);
        bytes = buffer.sizeOfMB();
        benchmark::DoNotOptimize(buffer.constData());
    }
    setLabel(state);
    state.counters["bytes"] = double(bytes);
    state.counters["nodes_per_s"] = benchmark::Counter(double(kNodes), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Deserialise(benchmark::State &state)
{
    QDomDocument doc = tree();
    const auto rw = form(int(state.range(0)));
    MemoryBuffer text;
    rw->serialise(doc, &text);
    for (auto _ : state) {
        QDomDocument read(QStringLiteral("SerialStream"));
        if (!rw->deserialise(read, &text))
            state.SkipWithError("the stream did not read back");
        benchmark::DoNotOptimize(read.documentElement());
    }
    setLabel(state);
    state.counters["bytes"] = double(text.sizeOfMB());
    state.counters["nodes_per_s"] = benchmark::Counter(double(kNodes), benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(BM_Serialise)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Deserialise)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
