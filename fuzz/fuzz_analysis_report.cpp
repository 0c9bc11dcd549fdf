// Drives an analysis repository with a sequence of recordings taken from the
// input (documents, records of every kind, ranges, extracted items, texts of
// any bytes) and writes the report. A report that is written must be
// well-formed XML of exactly the reported length.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"

#include <QByteArray>
#include <QXmlStreamReader>
#include <QtGlobal>

#include <cstddef>
#include <cstdint>
#include <string>

using namespace RepositoryComponents;

namespace {

// Reads numbers and length-prefixed texts from the input; past its end
// everything reads as zero or empty.
class Input
{
public:
    Input(const uint8_t *data, size_t size)
        : m_data(data)
        , m_size(size)
    {
    }
    bool atEnd() const { return m_pos >= m_size; }
    uint8_t byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
    uint32_t number()
    {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i)
            value = (value << 8) | byte();
        return value;
    }
    std::string text()
    {
        const size_t length = std::min<size_t>(byte(), m_size - std::min(m_pos, m_size));
        std::string result(reinterpret_cast<const char *>(m_data + m_pos), length);
        m_pos += length;
        return result;
    }

private:
    const uint8_t *m_data;
    size_t m_size;
    size_t m_pos = 0;
};

void ignoreMessages(QtMsgType, const QMessageLogContext &, const QString &) {}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qInstallMessageHandler(ignoreMessages);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in(data, size);
    DocumentAnalysis analysis;
    while (!in.atEnd()) {
        const uint8_t op = in.byte();
        const short group = static_cast<short>(in.number());
        switch (op % 12) {
        case 0: {
            const std::string name = in.text(), type = in.text(), version = in.text(), method = in.text();
            analysis.AddFileAnalysis(name.c_str(), type.c_str(), version.c_str(), in.number(),
                                     (op & 0x80) ? nullptr : method.c_str());
            break;
        }
        case 1:
            analysis.VXAnalyseSchemaGroupContentItem(group, in.text(), in.number());
            break;
        case 2:
            analysis.VXAnalyseSchemaGroupSanitize(group, in.text(), in.number(), in.number());
            break;
        case 3:
            analysis.VXAnalyseSchemaGroupRemedy(group, in.text(), in.number());
            break;
        case 4:
            analysis.VXAnalyseSchemaGroupIssue(group, in.text(), in.number(), in.number());
            break;
        case 5:
            analysis.VXAnalyseIssueInfoInsert(in.number(), in.number(), in.text());
            break;
        case 6:
            analysis.VXAnalyseSchemaExtractedText(in.number(), in.text(), in.text());
            break;
        case 7:
            analysis.VXAnalyseSchemaExtractedImage(in.number(), in.text(), in.number(), in.text());
            break;
        case 8:
            analysis.VXAnalyseSchemaFile(in.text(), in.text(), in.number());
            break;
        case 9:
            analysis.ChangeVersionOfCurrentDocument((op & 0x80) ? nullptr : in.text().c_str());
            break;
        case 10:
            if (DocumentStatistics *document = analysis.currentDocument()) {
                ExtractedImage image;
                image.m_meta.emplace(in.text(), in.text());
                image.m_meta.emplace(in.text(), in.text());
                document->addExtractedItem(std::move(image));
            }
            break;
        default:
            analysis.VXAnalyseGetFirstDesc(static_cast<DocumentAnalysis::eContentTypes_t>(op % 3));
            analysis.VXAnalyseGetItemCount(static_cast<DocumentAnalysis::eContentTypes_t>(op % 3));
            break;
        }
    }

    MemoryBuffer out;
    const uint32_t written = analysis.WriteReport(&out, size & 1);
    if (written == 0)
        return 0;
    if (written != out.sizeOfMB())
        __builtin_trap();
    QXmlStreamReader reader(
        QByteArray::fromRawData(reinterpret_cast<const char *>(out.constData()), int(out.sizeOfMB())));
    while (!reader.atEnd())
        reader.readNext();
    if (reader.hasError())
        __builtin_trap();
    return 0;
}
