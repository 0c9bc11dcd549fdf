// Reading and writing content-management policies as their size grows.
//
// - Loading N bytes of flat keys from memory, beside the XML reader alone
//   over the same bytes (the floor any reader of the document pays).
// - A root element with N attributes: the policy refuses it once the
//   attributes pass its bound, while the XML reader alone compares every
//   attribute with all before it.
// - Writing N sibling keys through the settings format.

#include "buffers/MemoryBuffer.h"
#include "policy/ContentManagement.h"

#include <QBuffer>
#include <QByteArray>
#include <QXmlStreamReader>
#include <benchmark/benchmark.h>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

QByteArray flatKeys(int64_t bytes)
{
    QByteArray xml = "<config>";
    for (int i = 0; xml.size() < bytes; ++i) {
        const QByteArray key = "k" + QByteArray::number(i);
        xml += "<" + key + ">allow</" + key + ">";
    }
    return xml + "</config>";
}

QByteArray rootWithAttributes(int64_t count)
{
    QByteArray xml = "<config";
    for (qlonglong i = 0; i < count; ++i)
        xml += " a" + QByteArray::number(i) + "=\"v\"";
    return xml + "><wordConfig><macros>allow</macros></wordConfig></config>";
}

void loadFromMemory(benchmark::State &state, const QByteArray &xml)
{
    qInstallMessageHandler(quiet);
    MemoryBuffer buffer(size_t(xml.size()), reinterpret_cast<unsigned char *>(const_cast<char *>(xml.constData())));
    for (auto _ : state) {
        buffer.seek(0, MBSeekStart);
        ContentManagement policy;
        benchmark::DoNotOptimize(policy.loadRepositoryFromXML(&buffer));
    }
    state.SetBytesProcessed(state.iterations() * xml.size());
}

void readerAlone(benchmark::State &state, const QByteArray &xml)
{
    for (auto _ : state) {
        QBuffer device(const_cast<QByteArray *>(&xml));
        device.open(QIODevice::ReadOnly);
        QXmlStreamReader reader(&device);
        while (!reader.atEnd())
            reader.readNext();
        benchmark::DoNotOptimize(reader.hasError());
    }
    state.SetBytesProcessed(state.iterations() * xml.size());
}

void BM_LoadFlatKeys(benchmark::State &state)
{
    loadFromMemory(state, flatKeys(state.range(0)));
}
BENCHMARK(BM_LoadFlatKeys)->RangeMultiplier(4)->Range(64 << 10, 16 << 20)->Unit(benchmark::kMillisecond);

void BM_ReaderAloneFlatKeys(benchmark::State &state)
{
    readerAlone(state, flatKeys(state.range(0)));
}
BENCHMARK(BM_ReaderAloneFlatKeys)->RangeMultiplier(4)->Range(64 << 10, 16 << 20)->Unit(benchmark::kMillisecond);

void BM_LoadRootAttributes(benchmark::State &state)
{
    loadFromMemory(state, rootWithAttributes(state.range(0)));
    state.counters["attributes"] = double(state.range(0));
}
BENCHMARK(BM_LoadRootAttributes)->Arg(1000)->Arg(4000)->Arg(16000)->Arg(200000)->Unit(benchmark::kMillisecond);

// 200 000 would take minutes here.
void BM_ReaderAloneRootAttributes(benchmark::State &state)
{
    readerAlone(state, rootWithAttributes(state.range(0)));
    state.counters["attributes"] = double(state.range(0));
}
BENCHMARK(BM_ReaderAloneRootAttributes)->Arg(1000)->Arg(4000)->Arg(16000)->Unit(benchmark::kMillisecond);

void BM_WriteSiblingKeys(benchmark::State &state)
{
    QSettings::SettingsMap keys;
    for (int64_t i = 0; i < state.range(0); ++i)
        keys.insert(QStringLiteral("wordConfig/k%1").arg(i), QStringLiteral("allow"));
    for (auto _ : state) {
        QByteArray bytes;
        QBuffer device(&bytes);
        device.open(QIODevice::WriteOnly);
        benchmark::DoNotOptimize(ContentManagement::writeSettingsXml(device, keys));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_WriteSiblingKeys)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
