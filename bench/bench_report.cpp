// Writing the detailed analysis report of one document: N distinct records
// spread over 50 content groups and the four record kinds, plus N/10 repeats
// of existing records. Beside it, the same content streamed out with
// QXmlStreamWriter, as a yardstick for what the report's layout work costs.
//
// Two heap regimes. "default" leaves glibc alone: a small report then reuses
// the heap of the previous iteration, while after a large one glibc hands the
// memory back to the kernel, so the next one first-touches its pages again.
// "cold" returns all free memory before every iteration (outside the timing),
// so every size pays for first-touching its pages, as the first report of a
// process does.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"

#include <QByteArray>
#include <QBuffer>
#include <QXmlStreamWriter>
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <map>
#include <memory>
#include <string>

using namespace RepositoryComponents;

namespace {

constexpr int kGroups = 50;

enum class Heap { Default, Cold };

void prepareHeap(benchmark::State &state, Heap heap)
{
    if (heap == Heap::Cold) {
        state.PauseTiming();
        malloc_trim(0);
        state.ResumeTiming();
    }
}

std::string descriptionOf(int record)
{
    return "Record " + std::to_string(record) + " found in stream WordDocument at offset "
        + std::to_string(record * 512);
}

// The group ids are the first 50 that have a description.
std::vector<short> groupIds()
{
    std::vector<short> ids;
    const auto &table = analysisSchemaStrings();
    for (auto it = table.cbegin(); it != table.cend() && int(ids.size()) < kGroups; ++it)
        if (it.key() != 0)
            ids.push_back(static_cast<short>(it.key()));
    return ids;
}

void addRecord(DocumentAnalysis &analysis, short group, int record)
{
    const std::string description = descriptionOf(record);
    const unsigned int size = static_cast<unsigned int>(record % 4096);
    switch (record % 4) {
    case 0:
        analysis.VXAnalyseSchemaGroupContentItem(group, description, size);
        break;
    case 1:
        analysis.VXAnalyseSchemaGroupSanitize(group, description, size, 0x01000000u + record);
        break;
    case 2:
        analysis.VXAnalyseSchemaGroupRemedy(group, description, size);
        break;
    default:
        analysis.VXAnalyseSchemaGroupIssue(group, description, size, 96);
        break;
    }
}

// Built once per size and kept: building is not what is measured.
DocumentAnalysis &repositoryWith(int records)
{
    static std::map<int, std::unique_ptr<DocumentAnalysis>> cache;
    std::unique_ptr<DocumentAnalysis> &analysis = cache[records];
    if (analysis)
        return *analysis;
    analysis = std::make_unique<DocumentAnalysis>();
    analysis->AddFileAnalysis("bench.doc", "ft_doc", "Word 97-2003", 1u << 30, "signature match");
    const std::vector<short> groups = groupIds();
    for (int record = 0; record < records; ++record)
        addRecord(*analysis, groups[record % kGroups], record);
    for (int repeat = 0; repeat < records / 10; ++repeat) {
        const int record = (repeat * 7) % records;
        addRecord(*analysis, groups[record % kGroups], record);
    }
    analysis->VXAnalyseIssueInfoInsert(1, 100, "Header issues");
    analysis->VXAnalyseSchemaExtractedText(1024, "WordDocument", "UTF-16LE");
    analysis->VXAnalyseSchemaExtractedImage(2048, "Data", 1, "image/png");
    return *analysis;
}

void BM_WriteReport(benchmark::State &state, Heap heap)
{
    const int records = static_cast<int>(state.range(0));
    DocumentAnalysis &analysis = repositoryWith(records);
    size_t bytes = 0;
    for (auto _ : state) {
        prepareHeap(state, heap);
        MemoryBuffer out;
        bytes = analysis.WriteReport(&out, 1);
        benchmark::DoNotOptimize(out.constData());
    }
    if (bytes == 0 || analysis.anyInternalErrorsOccured())
        state.SkipWithError("report not written");
    state.SetComplexityN(records);
    state.SetItemsProcessed(state.iterations() * records);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["reportMiB"] = double(bytes) / (1 << 20);
}

// The peer: the same elements and values through Qt's streaming writer, with
// its own indentation, into a byte array.
template <typename Item, typename Fields>
void writeItems(QXmlStreamWriter &xml, const char *list, const char *element,
                const ItemMap<Item> &items, Fields &&fields)
{
    xml.writeStartElement(QLatin1String(list));
    xml.writeAttribute(QStringLiteral("itemCount"), QString::number(items.size()));
    for (const auto &entry : items) {
        const Item &item = *entry.second;
        xml.writeStartElement(QLatin1String(element));
        xml.writeTextElement(QStringLiteral("vx:TechnicalDescription"),
                             QString::fromStdString(item.description()));
        fields(item);
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

void BM_QXmlStreamWriterPeer(benchmark::State &state, Heap heap)
{
    const int records = static_cast<int>(state.range(0));
    const DocumentStatistics &document = *repositoryWith(records).firstDocument();
    const auto number = [](QXmlStreamWriter &xml, const char *name, uint64_t value) {
        xml.writeTextElement(QLatin1String(name), QString::number(value));
    };
    size_t bytes = 0;
    for (auto _ : state) {
        prepareHeap(state, heap);
        QByteArray text;
        QBuffer device(&text);
        device.open(QIODevice::WriteOnly);
        QXmlStreamWriter xml(&device);
        xml.setAutoFormatting(true);
        xml.setAutoFormattingIndent(-1);
        xml.writeStartDocument();
        xml.writeStartElement(QStringLiteral("vx:CorvidInfo"));
        xml.writeStartElement(QStringLiteral("vx:ContentGroups"));
        for (const auto &entry : document.contentGroups()) {
            const ContentGroup &group = *entry.second;
            xml.writeStartElement(QStringLiteral("vx:ContentGroup"));
            xml.writeTextElement(QStringLiteral("vx:BriefDescription"), group.BriefDescription());
            const auto sizes = [&xml, &number](const AnalysisArtifact &item) {
                number(xml, "vx:InstanceCount", item.instanceCount());
                number(xml, "vx:TotalSizeInBytes", item.totalSize());
                number(xml, "vx:AverageSizeInBytes", item.averageSize());
                number(xml, "vx:MinSizeInBytes", item.minSize());
                number(xml, "vx:MaxSizeInBytes", item.maxSize());
            };
            writeItems(xml, "vx:ContentItems", "vx:ContentItem", group.contentItems(), sizes);
            writeItems(xml, "vx:SanitisationItems", "vx:SanitisationItem", group.sanitisationItems(),
                       [&](const SanitisationItem &item) {
                           number(xml, "vx:SanitisationId", item.sanitisationId());
                           sizes(item);
                       });
            writeItems(xml, "vx:RemedyItems", "vx:RemedyItem", group.remedyItems(),
                       [&](const RemedyItem &item) { number(xml, "vx:InstanceCount", item.instanceCount()); });
            writeItems(xml, "vx:IssueItems", "vx:IssueItem", group.issueItems(), [&](const IssueItem &item) {
                number(xml, "vx:IssueId", item.issueId());
                number(xml, "vx:InstanceCount", item.instanceCount());
                xml.writeEmptyElement(QStringLiteral("vx:RiskLevel"));
            });
            xml.writeEndElement();
        }
        xml.writeEndDocument();
        MemoryBuffer out;
        out.putRawBytes(text.constData(), static_cast<size_t>(text.size()));
        bytes = out.sizeOfMB();
        benchmark::DoNotOptimize(out.constData());
    }
    state.SetComplexityN(records);
    state.SetItemsProcessed(state.iterations() * records);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["reportMiB"] = double(bytes) / (1 << 20);
}

} // namespace

#define VX_REPORT_SIZES(b)                                                                         \
    b->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN)

VX_REPORT_SIZES(BENCHMARK_CAPTURE(BM_WriteReport, default, Heap::Default));
VX_REPORT_SIZES(BENCHMARK_CAPTURE(BM_QXmlStreamWriterPeer, default, Heap::Default));
VX_REPORT_SIZES(BENCHMARK_CAPTURE(BM_WriteReport, cold, Heap::Cold));
VX_REPORT_SIZES(BENCHMARK_CAPTURE(BM_QXmlStreamWriterPeer, cold, Heap::Cold));

BENCHMARK_MAIN();
