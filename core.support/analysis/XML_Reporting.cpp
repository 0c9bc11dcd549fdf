#include "analysis/XML_Reporting.h"

#include "buffers/MemoryBuffer.h"
#include "buffers/ScopeGuard.h"

#include <QByteArray>

#include <mxml.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <limits>
#include <new>
#include <string_view>
#include <vector>

namespace XML_Reporting {

using namespace RepositoryComponents;

namespace {

// Elements whose open and close tags stand on lines of their own, sorted for
// the binary search. The issue-information groups are deliberately absent:
// their children run on the line of their open tag.
constexpr std::string_view kContainerElements[] = {
    "vx:Camera",
    "vx:ContentGroup",
    "vx:ContentGroups",
    "vx:ContentItem",
    "vx:ContentItems",
    "vx:ContentManagementPolicy",
    "vx:ContentSwitch",
    "vx:CorvidInfo",
    "vx:DocumentStatistics",
    "vx:DocumentSummary",
    "vx:ExtractedImage",
    "vx:ExtractedItem",
    "vx:ExtractedItems",
    "vx:ExtractedText",
    "vx:IssueItem",
    "vx:IssueItems",
    "vx:RemedyItem",
    "vx:RemedyItems",
    "vx:SanitisationItem",
    "vx:SanitisationItems",
};

constexpr bool containerElementsSorted()
{
    for (size_t i = 1; i < std::size(kContainerElements); ++i)
        if (!(kContainerElements[i - 1] < kContainerElements[i]))
            return false;
    return true;
}
static_assert(containerElementsSorted(), "findElement searches a sorted list");

constexpr int kMaxIndent = 8;

// Upper bounds of the saved text, per element: "<" name ">" "</" name ">"
// (or " />"), indentation before both tags and two newlines; per attribute:
// " " name "=" and two quotes; per number: the digits of the largest value;
// per character of text or attribute value: its longest escape, "&quot;".
constexpr size_t kElementSlack = 2 * kMaxIndent + 8;
constexpr size_t kAttributeSlack = 4;
constexpr size_t kNumberDigits = 20;
constexpr size_t kEscapeGrowth = 6;
constexpr char kTabs[] = "\t\t\t\t\t\t\t\t";
static_assert(sizeof(kTabs) == kMaxIndent + 1, "one tab per indentation level");

// One tab per level below the root element (which sits under the document
// node), at most eight; an element without a parent gets none.
const char *indentFor(mxml_node_t *node)
{
    mxml_node_t *parent = mxmlGetParent(node);
    if (!parent)
        return "";
    int depth = 0;
    for (mxml_node_t *up = mxmlGetParent(parent); up && depth < kMaxIndent; up = mxmlGetParent(up))
        ++depth;
    return kTabs + (kMaxIndent - depth);
}

// Length of the well-formed UTF-8 sequence at p if it encodes a character
// that XML 1.0 allows, else 0.
size_t xmlCharLength(const unsigned char *p, size_t available)
{
    const unsigned char lead = p[0];
    if (lead < 0x80)
        return (lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r') ? 1 : 0;
    // Sequence length, payload bits of the lead byte and the smallest code
    // point of that length (anything below is an overlong form).
    size_t length = 0;
    uint32_t codePoint = 0;
    uint32_t smallest = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        codePoint = lead & 0x1F;
        smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        codePoint = lead & 0x0F;
        smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        codePoint = lead & 0x07;
        smallest = 0x10000;
    } else {
        return 0;
    }
    if (length > available)
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        codePoint = (codePoint << 6) | (p[i] & 0x3F);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < smallest || codePoint > 0x10FFFF || surrogate || codePoint == 0xFFFE
        || codePoint == 0xFFFF)
        return 0;
    return length;
}

// Meta keys become attribute names; only plain names can.
bool isPlainXmlName(const std::string &name)
{
    const auto start = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    };
    const auto rest = [&start](char c) {
        return start(c) || (c >= '0' && c <= '9') || c == '.' || c == '-';
    };
    return !name.empty() && start(name[0]) && std::all_of(name.begin() + 1, name.end(), rest);
}

mxml_node_t *checked(mxml_node_t *node)
{
    if (!node)
        throw std::bad_alloc();
    return node;
}

} // namespace

const std::string &failureDocumentProlog()
{
    static const std::string prolog = std::string("<?xml version=\"1.0\" encoding=\"utf - 8\"?>")
        + "<vx:CorvidInfo xsi:schemaLocation=\"" + schemaLocation + "\" xmlns:xsi = \""
        + xmlSchemaInstanceURI + "\" xmlns:vx=\"" + reportNamespaceURI
        + "\">Reporting System Failed\n";
    return prolog;
}

// The text of a report as it is saved piece by piece: a list of blocks, so
// that a growing report is never copied; at most what one Mini-XML save can
// hold, so the report has one limit whatever its shape.
class ReportText
{
public:
    bool append(std::string_view text)
    {
        if (text.size() > kLimit - m_size)
            return false;
        m_size += text.size();
        while (!text.empty()) {
            if (m_blocks.empty() || m_blocks.back().size() == m_blocks.back().capacity()) {
                // Blocks grow with the text, so a small report stays small.
                m_blocks.emplace_back();
                m_blocks.back().reserve(std::clamp(m_size, kMinBlockSize, kMaxBlockSize));
            }
            std::string &block = m_blocks.back();
            const size_t n = std::min(text.size(), block.capacity() - block.size());
            block.append(text.data(), n);
            text.remove_prefix(n);
        }
        return true;
    }
    size_t size() const { return m_size; }
    // Room for everything at once (or the buffer's refusal), then the blocks.
    void writeTo(MemoryBuffer *out) const
    {
        out->resizeOrThrowIfWriteBeyondEndOfBuffer<char>(m_size);
        for (const std::string &block : m_blocks)
            out->putRawBytes(block.data(), block.size());
    }

private:
    static constexpr size_t kMinBlockSize = 4 << 10;
    static constexpr size_t kMaxBlockSize = 1 << 20;
    static constexpr size_t kLimit = std::numeric_limits<int>::max();
    std::vector<std::string> m_blocks;
    size_t m_size = 0;
};

// The writer's state and building steps, with the Mini-XML tree they build.
class XmlWriter::Impl
{
public:
    Impl();

    uint32_t writeXML_Analysis(DocumentAnalysis &analysis, DocumentStatistics &document, MemoryBuffer *outBuf,
                               bool detailed);

    // Mini-XML's save callback: tabs before open tags and before the close
    // tags of container elements, as deep as the element (root 0, at most 8),
    // a newline after a container's open tag and after every close tag.
    static const char *whitespace_cb(mxml_node_t *node, int where);

private:
    void CreateDocumentSummary(mxml_node_t *statistics);
    void CreateIssueInfoNode(mxml_node_t *statistics);
    void CreateIssueInfoItem(mxml_node_t *groups, const IssueRange &range, const std::string &description);
    void CreateContentGroups(mxml_node_t *statistics, bool detailed);
    void CreateContentGroup(mxml_node_t *groups, const ContentGroup &group, bool detailed);
    template <typename Item>
    void AddItemList(mxml_node_t *group, const char *listName, const char *itemName, const ItemMap<Item> &items,
                     mxml_node_t *(Impl::*addItem)(mxml_node_t *, const Item &));
    mxml_node_t *AddContentItem(mxml_node_t *list, const ContentItem &item);
    mxml_node_t *AddSanitisationItem(mxml_node_t *list, const SanitisationItem &item);
    mxml_node_t *AddRemedyItem(mxml_node_t *list, const RemedyItem &item);
    mxml_node_t *AddIssueItem(mxml_node_t *list, const IssueItem &item);
    void CreateExtractedItems(mxml_node_t *statistics);
    void CreateExtractedText(mxml_node_t *items, const ExtractedText &text);
    void CreateExtractedImage(mxml_node_t *items, const ExtractedImage &image);

    mxml_node_t *addExtractedItem(mxml_node_t *items, uint64_t offset, uint64_t itemIndex,
                                  const std::string &location);

    // Node helpers: they keep m_saveBound and throw std::bad_alloc when
    // Mini-XML cannot allocate.
    mxml_node_t *addElement(mxml_node_t *parent, const char *name);
    void addText(mxml_node_t *element, const char *text);
    mxml_node_t *addTextElement(mxml_node_t *parent, const char *name, const std::string &text);
    mxml_node_t *addNumberElement(mxml_node_t *parent, const char *name, uint64_t value);
    // The total, average, smallest and largest size of a record, in that order.
    void addSizeElements(mxml_node_t *parent, const AnalysisArtifact &item);
    mxml_node_t *addRangeElement(mxml_node_t *parent, const char *name, uint32_t value);
    void setAttribute(mxml_node_t *element, const char *name, const char *value);
    void setCountAttribute(mxml_node_t *element, const char *name, uint64_t value);
    // Text in XML-safe form; see the definition for what is replaced.
    const char *xmlText(const std::string &text);

    struct FreeDeleter
    {
        void operator()(char *text) const { std::free(text); }
    };
    // Saves the report into outBuf; answers its length, 0 on failure.
    size_t saveReport(MemoryBuffer *outBuf);
    struct SavedText
    {
        std::unique_ptr<char, FreeDeleter> m_text; // null when the save failed
        size_t m_length = 0;
    };
    // The text of a node's tree, saved with the whitespace callback.
    SavedText saveNode(mxml_node_t *node, size_t bound);
    // Saves a record's tree (bounded by m_saveBound) at the end of report.
    bool appendSaved(mxml_node_t *node, ReportText &report);

    // An item list whose items are written only as the report is saved: its
    // placeholder item, and what writes the items in its place.
    struct DeferredList
    {
        mxml_node_t *m_placeholder;
        std::function<bool(ReportText &)> m_writeItems;
    };

    std::unique_ptr<mxml_node_t, void (*)(mxml_node_t *)> m_xml;
    mxml_node_t *m_root = nullptr;
    const DocumentStatistics *m_document = nullptr;
    std::string m_xmlTextScratch;
    // The longest the saved text of the nodes built since the last save can
    // be, kept up to date as nodes are added.
    size_t m_saveBound = 1;
    std::vector<DeferredList> m_deferredLists;
    std::vector<char> m_scratchSave;
};

XmlWriter::XmlWriter()
    : m_impl(std::make_unique<Impl>())
{
}

XmlWriter::~XmlWriter() = default;

std::string XmlWriter::getBriefDescription(int) const
{
    return std::string();
}

uint32_t XmlWriter::writeXML_Analysis(DocumentAnalysis &analysis, DocumentStatistics &document,
                                      MemoryBuffer *outBuf, bool detailed)
{
    return m_impl->writeXML_Analysis(analysis, document, outBuf, detailed);
}

XmlWriter::Impl::Impl()
    : m_xml(checked(mxmlNewXML("1.0")), mxmlDelete)
{
    m_saveBound += std::strlen(mxmlGetElement(m_xml.get())) + kElementSlack;
    m_root = addElement(m_xml.get(), "vx:CorvidInfo");
    setAttribute(m_root, "xsi:schemaLocation", schemaLocation);
    setAttribute(m_root, "xmlns:xsi", xmlSchemaInstanceURI);
    setAttribute(m_root, "xmlns:vx", reportNamespaceURI);
}

uint32_t XmlWriter::Impl::writeXML_Analysis(DocumentAnalysis &analysis, DocumentStatistics &document,
                                            MemoryBuffer *outBuf, bool detailed)
{
    m_document = &document;
    // The report only ever goes into a fresh buffer; checked before building,
    // which a refused buffer then does not pay for.
    if (!outBuf || outBuf->sizeOfMB() != 0) {
        analysis.reportInternalError("outBuf->start == NULL");
        return 0;
    }

    mxml_node_t *statistics = addElement(m_root, "vx:DocumentStatistics");
    ScopeGuard dropStatistics([statistics] { mxmlDelete(statistics); });
    CreateDocumentSummary(statistics);
    CreateIssueInfoNode(statistics);
    CreateContentGroups(statistics, detailed);
    CreateExtractedItems(statistics);

    // Whatever stops the writing, the buffer is left empty as it came.
    ScopeGuard emptyOutput([outBuf] { outBuf->resizeBuffer(0, false); });
    size_t length = 0;
    try {
        length = saveReport(outBuf);
    } catch (const WriteBufferException &) {
        length = 0;
    }
    if (length == 0) {
        analysis.reportInternalError("Unable to save analysis report");
        return 0;
    }
    emptyOutput.dismiss();
    return static_cast<uint32_t>(length);
}

// Records are nearly all of a report, and as one Mini-XML tree a report takes
// well over a kilobyte of nodes per record. So the tree is built without
// them: every non-empty item list holds one empty placeholder item. That tree
// is saved, and where a placeholder stands in the text, the list's items are
// written instead, each built at its place in the tree (so the whitespace
// callback indents it as in the whole tree), saved and dropped again. The
// text is the same as one save of the whole tree; the tree never holds more
// than one record, whose nodes the allocator then hands out again and again.
size_t XmlWriter::Impl::saveReport(MemoryBuffer *outBuf)
{
    const SavedText skeleton = saveNode(m_xml.get(), m_saveBound);
    if (!skeleton.m_text)
        return 0;
    std::string_view rest(skeleton.m_text.get(), skeleton.m_length);
    ReportText report;
    // Lists were deferred in document order, so each placeholder is the next
    // one of its kind in the text. No text can contain a tag: markup
    // characters in texts are escaped.
    for (const DeferredList &list : m_deferredLists) {
        const char *name = mxmlGetElement(list.m_placeholder);
        const std::string marker = std::string(indentFor(list.m_placeholder)) + "<" + name + " />"
            + (findElement(name) ? "\n" : "");
        const size_t at = rest.find(marker);
        if (at == std::string_view::npos || !report.append(rest.substr(0, at)))
            return 0;
        rest.remove_prefix(at + marker.size());
        if (!list.m_writeItems(report))
            return 0;
    }
    if (!report.append(rest))
        return 0;
    report.writeTo(outBuf);
    return report.size();
}

void XmlWriter::Impl::CreateDocumentSummary(mxml_node_t *statistics)
{
    const DocumentSummary &summary = m_document->summary();
    mxml_node_t *node = addElement(statistics, "vx:DocumentSummary");
    addNumberElement(node, "vx:TotalSizeInBytes", summary.totalSize());
    addTextElement(node, "vx:FileType", summary.fileType());
    addTextElement(node, "vx:Version", summary.version());
    if (!summary.detectionMethod().empty())
        addTextElement(node, "vx:FileTypeDetectionMethod", summary.detectionMethod());
}

void XmlWriter::Impl::CreateIssueInfoNode(mxml_node_t *statistics)
{
    const DocumentStatistics::IssueInformationMap &ranges = m_document->issueInformation();
    if (ranges.empty())
        return;
    mxml_node_t *groups = addElement(statistics, "vx:IssueInformationGroups");
    for (const auto &entry : ranges)
        CreateIssueInfoItem(groups, entry.first, entry.second);
}

void XmlWriter::Impl::CreateIssueInfoItem(mxml_node_t *groups, const IssueRange &range,
                                          const std::string &description)
{
    mxml_node_t *group = addElement(groups, "vx:IssueInformationGroup");
    addRangeElement(group, "vx:IssueIDRangeStart", range.first);
    addRangeElement(group, "vx:IssueIDRangeEnd", range.second);
    addTextElement(group, "vx:GroupDescription", description);
}

void XmlWriter::Impl::CreateContentGroups(mxml_node_t *statistics, bool detailed)
{
    mxml_node_t *groups = addElement(statistics, "vx:ContentGroups");
    setCountAttribute(groups, "groupCount", m_document->groupCount());
    for (const auto &entry : m_document->contentGroups())
        CreateContentGroup(groups, *entry.second, detailed);
}

void XmlWriter::Impl::CreateContentGroup(mxml_node_t *groups, const ContentGroup &group, bool detailed)
{
    mxml_node_t *node = addElement(groups, "vx:ContentGroup");
    const QByteArray description = group.BriefDescription().toUtf8();
    addText(addElement(node, "vx:BriefDescription"), description.constData());
    if (detailed)
        AddItemList(node, "vx:ContentItems", "vx:ContentItem", group.contentItems(), &Impl::AddContentItem);
    AddItemList(node, "vx:SanitisationItems", "vx:SanitisationItem", group.sanitisationItems(),
                &Impl::AddSanitisationItem);
    AddItemList(node, "vx:RemedyItems", "vx:RemedyItem", group.remedyItems(), &Impl::AddRemedyItem);
    AddItemList(node, "vx:IssueItems", "vx:IssueItem", group.issueItems(), &Impl::AddIssueItem);
}

// The list element with its count; the items themselves are written when the
// report is saved (see saveReport).
template <typename Item>
void XmlWriter::Impl::AddItemList(mxml_node_t *group, const char *listName, const char *itemName,
                                  const ItemMap<Item> &items,
                                  mxml_node_t *(Impl::*addItem)(mxml_node_t *, const Item &))
{
    mxml_node_t *list = addElement(group, listName);
    setCountAttribute(list, "itemCount", items.size());
    if (items.empty())
        return;
    mxml_node_t *placeholder = addElement(list, itemName);
    m_deferredLists.push_back({placeholder, [this, list, &items, addItem](ReportText &report) {
        for (const auto &entry : items) {
            m_saveBound = 1;
            mxml_node_t *item = (this->*addItem)(list, *entry.second);
            const bool written = appendSaved(item, report);
            mxmlDelete(item);
            if (!written)
                return false;
        }
        return true;
    }});
}

mxml_node_t *XmlWriter::Impl::AddContentItem(mxml_node_t *list, const ContentItem &item)
{
    mxml_node_t *node = addElement(list, "vx:ContentItem");
    addTextElement(node, "vx:TechnicalDescription", item.description());
    addNumberElement(node, "vx:InstanceCount", item.instanceCount());
    addSizeElements(node, item);
    return node;
}

mxml_node_t *XmlWriter::Impl::AddSanitisationItem(mxml_node_t *list, const SanitisationItem &item)
{
    mxml_node_t *node = addElement(list, "vx:SanitisationItem");
    addTextElement(node, "vx:TechnicalDescription", item.description());
    addNumberElement(node, "vx:SanitisationId", item.sanitisationId());
    addNumberElement(node, "vx:InstanceCount", item.instanceCount());
    addSizeElements(node, item);
    return node;
}

mxml_node_t *XmlWriter::Impl::AddRemedyItem(mxml_node_t *list, const RemedyItem &item)
{
    mxml_node_t *node = addElement(list, "vx:RemedyItem");
    addTextElement(node, "vx:TechnicalDescription", item.description());
    addNumberElement(node, "vx:InstanceCount", item.instanceCount());
    return node;
}

mxml_node_t *XmlWriter::Impl::AddIssueItem(mxml_node_t *list, const IssueItem &item)
{
    mxml_node_t *node = addElement(list, "vx:IssueItem");
    addTextElement(node, "vx:TechnicalDescription", item.description());
    addNumberElement(node, "vx:IssueId", item.issueId());
    addNumberElement(node, "vx:InstanceCount", item.instanceCount());
    addElement(node, "vx:RiskLevel");
    return node;
}

void XmlWriter::Impl::CreateExtractedItems(mxml_node_t *statistics)
{
    mxml_node_t *items = addElement(statistics, "vx:ExtractedItems");
    setCountAttribute(items, "itemCount",
                      m_document->extractedItemCount() + m_document->extractedImageCount());
    for (const ExtractedText &text : m_document->extractedTexts())
        CreateExtractedText(items, text);
    for (const ExtractedImage &image : m_document->extractedImages())
        CreateExtractedImage(items, image);
}

mxml_node_t *XmlWriter::Impl::addExtractedItem(mxml_node_t *items, uint64_t offset, uint64_t itemIndex,
                                               const std::string &location)
{
    mxml_node_t *item = addElement(items, "vx:ExtractedItem");
    setCountAttribute(item, "offset", offset);
    setCountAttribute(item, "itemIndex", itemIndex);
    setAttribute(item, "location", xmlText(location));
    return item;
}

void XmlWriter::Impl::CreateExtractedText(mxml_node_t *items, const ExtractedText &text)
{
    mxml_node_t *item = addExtractedItem(items, text.m_offset, text.m_itemIndex, text.m_location);
    addTextElement(addElement(item, "vx:ExtractedText"), "vx:Encoding", text.m_encoding);
}

void XmlWriter::Impl::CreateExtractedImage(mxml_node_t *items, const ExtractedImage &image)
{
    mxml_node_t *item = addExtractedItem(items, image.m_offset, image.m_itemIndex, image.m_location);
    mxml_node_t *meta = addElement(addElement(item, "vx:ExtractedImage"), "vx:Meta");
    for (const auto &entry : image.m_meta) {
        // A key that cannot be an attribute name is left out rather than
        // making the whole report unreadable.
        if (isPlainXmlName(entry.first))
            setAttribute(meta, entry.first.c_str(), xmlText(entry.second));
    }
}

// Every node and attribute adds what it can cost at most in the saved text
// to m_saveBound: tags and indentation at their longest, text and attribute
// values as if every character became "&quot;".
mxml_node_t *XmlWriter::Impl::addElement(mxml_node_t *parent, const char *name)
{
    m_saveBound += 2 * std::strlen(name) + kElementSlack;
    return checked(mxmlNewElement(parent, name));
}

void XmlWriter::Impl::addText(mxml_node_t *element, const char *text)
{
    m_saveBound += kEscapeGrowth * std::strlen(text);
    checked(mxmlNewText(element, 0, text));
}

mxml_node_t *XmlWriter::Impl::addTextElement(mxml_node_t *parent, const char *name, const std::string &text)
{
    mxml_node_t *element = addElement(parent, name);
    addText(element, xmlText(text));
    return element;
}

mxml_node_t *XmlWriter::Impl::addNumberElement(mxml_node_t *parent, const char *name, uint64_t value)
{
    mxml_node_t *element = addElement(parent, name);
    m_saveBound += kNumberDigits;
    checked(mxmlNewTextf(element, 0, "%zu", static_cast<size_t>(value)));
    return element;
}

void XmlWriter::Impl::addSizeElements(mxml_node_t *parent, const RepositoryComponents::AnalysisArtifact &item)
{
    addNumberElement(parent, "vx:TotalSizeInBytes", item.totalSize());
    addNumberElement(parent, "vx:AverageSizeInBytes", item.averageSize());
    addNumberElement(parent, "vx:MinSizeInBytes", item.minSize());
    addNumberElement(parent, "vx:MaxSizeInBytes", item.maxSize());
}

mxml_node_t *XmlWriter::Impl::addRangeElement(mxml_node_t *parent, const char *name, uint32_t value)
{
    mxml_node_t *element = addElement(parent, name);
    m_saveBound += kNumberDigits;
    checked(mxmlNewTextf(element, 0, "%u", value));
    return element;
}

void XmlWriter::Impl::setAttribute(mxml_node_t *element, const char *name, const char *value)
{
    m_saveBound += std::strlen(name) + kAttributeSlack + kEscapeGrowth * std::strlen(value);
    mxmlElementSetAttrf(element, name, "%s", value);
}

void XmlWriter::Impl::setCountAttribute(mxml_node_t *element, const char *name, uint64_t value)
{
    m_saveBound += std::strlen(name) + kAttributeSlack + kNumberDigits;
    mxmlElementSetAttrf(element, name, "%zu", static_cast<size_t>(value));
}

XmlWriter::Impl::SavedText XmlWriter::Impl::saveNode(mxml_node_t *node, size_t bound)
{
    // Mini-XML wraps long lines unless told not to; the setting is per thread,
    // so it is made right before every save.
    mxmlSetWrapMargin(0);
    // One save into a buffer of the bound kept while building this node's
    // tree; only the pages the text fills are ever touched. (mxmlSaveAllocString
    // would format the tree twice, the first time only to measure it.)
    const size_t size = std::min<size_t>(bound, std::numeric_limits<int>::max());
    SavedText saved;
    saved.m_text.reset(static_cast<char *>(std::malloc(size)));
    if (saved.m_text) {
        const int length = mxmlSaveString(node, saved.m_text.get(), static_cast<int>(size), whitespace_cb);
        if (length >= 0 && static_cast<size_t>(length) < size) {
            saved.m_length = static_cast<size_t>(length);
            return saved;
        }
    }
    // Beyond the bound (a text near Mini-XML's 2 GiB limit): let Mini-XML
    // measure and allocate; it answers null when it cannot.
    saved.m_text.reset(mxmlSaveAllocString(node, whitespace_cb));
    saved.m_length = saved.m_text ? std::strlen(saved.m_text.get()) : 0;
    return saved;
}

bool XmlWriter::Impl::appendSaved(mxml_node_t *node, ReportText &report)
{
    // Records are small: one scratch buffer, grown to the largest bound seen,
    // serves them all.
    if (m_saveBound > m_scratchSave.size())
        m_scratchSave.resize(std::min<size_t>(m_saveBound, std::numeric_limits<int>::max()));
    const int length = mxmlSaveString(node, m_scratchSave.data(), static_cast<int>(m_scratchSave.size()),
                                      whitespace_cb);
    if (length >= 0 && static_cast<size_t>(length) < m_scratchSave.size())
        return report.append(std::string_view(m_scratchSave.data(), static_cast<size_t>(length)));
    const SavedText saved = saveNode(node, m_saveBound);
    return saved.m_text && report.append(std::string_view(saved.m_text.get(), saved.m_length));
}

// Record descriptions arrive cleaned to printable ASCII, but names, types,
// versions, locations, encodings and issue-information texts are written as
// the cameras gave them. Mini-XML escapes markup characters but passes every
// other byte through, so a control code or a malformed UTF-8 sequence would
// make the report unreadable. Such bytes are written in the "#%02x" form the
// descriptions use; well-formed text, UTF-8 included, stays byte for byte.
const char *XmlWriter::Impl::xmlText(const std::string &text)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    const size_t size = text.size();
    size_t i = 0;
    for (size_t n; i < size && (n = xmlCharLength(bytes + i, size - i)) != 0;)
        i += n;
    if (i == size)
        return text.c_str();

    static const char kHex[] = "0123456789abcdef";
    m_xmlTextScratch.assign(text, 0, i);
    while (i < size) {
        const size_t n = xmlCharLength(bytes + i, size - i);
        if (n != 0) {
            m_xmlTextScratch.append(text, i, n);
            i += n;
        } else {
            m_xmlTextScratch += '#';
            m_xmlTextScratch += kHex[bytes[i] >> 4];
            m_xmlTextScratch += kHex[bytes[i] & 0x0F];
            ++i;
        }
    }
    return m_xmlTextScratch.c_str();
}

bool XmlWriter::findElement(const char *name)
{
    if (!name)
        return false;
    return std::binary_search(std::begin(kContainerElements), std::end(kContainerElements),
                              std::string_view(name));
}

const char *XmlWriter::Impl::whitespace_cb(mxml_node_t *node, int where)
{
    const char *name = mxmlGetElement(node);
    if (!name)
        return nullptr;
    if (name[0] == '?' && std::strncmp(name, "?xml", 4) == 0)
        return where == MXML_WS_AFTER_OPEN ? "\n" : nullptr;
    switch (where) {
    case MXML_WS_BEFORE_OPEN:
        return indentFor(node);
    case MXML_WS_AFTER_OPEN:
        return findElement(name) ? "\n" : nullptr;
    case MXML_WS_BEFORE_CLOSE:
        return findElement(name) ? indentFor(node) : nullptr;
    case MXML_WS_AFTER_CLOSE:
        return "\n";
    default:
        return nullptr;
    }
}

} // namespace XML_Reporting
