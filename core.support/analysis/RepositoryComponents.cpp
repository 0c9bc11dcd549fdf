#include "analysis/RepositoryComponents.h"

#include "analysis/XML_Reporting.h"
#include "buffers/MemoryBuffer.h"
#include "ucp_engine/ucpLogging.h"

#include <algorithm>
#include <cstring>

namespace RepositoryComponents {

namespace {

// Finds or creates the record under the raw description and counts one more
// addition. Every addition, new record or repeat, consumes one item number.
template <typename Item>
Item &AddAnalysisArtefact(ItemMap<Item> &map, const std::string &description, uint64_t size,
                          uint64_t &itemCounter)
{
    auto it = map.find(description);
    if (it == map.end())
        it = map.emplace(description, std::make_shared<Item>()).first;
    Item &record = *it->second;
    record.addInstance(size, itemCounter++);
    return record;
}

// The stored form of a description: no trailing line breaks, no bytes
// outside printable ASCII.
std::string cleanedDescription(std::string text)
{
    removeTrailingCRLF(text);
    changeControlCodes(text);
    return text;
}

} // namespace

// --- records ------------------------------------------------------------------------

AnalysisArtifact::~AnalysisArtifact() = default;
ContentItem::~ContentItem() = default;
SanitisationItem::~SanitisationItem() = default;
RemedyItem::~RemedyItem() = default;
IssueItem::~IssueItem() = default;
DocumentSummary::~DocumentSummary() = default;

void AnalysisArtifact::addInstance(uint64_t size, uint64_t itemIndex)
{
    m_instanceCount += 1;
    if (__builtin_add_overflow(m_totalSize, size, &m_totalSize))
        m_totalSize = std::numeric_limits<uint64_t>::max();
    m_minSize = std::min(m_minSize, size);
    m_maxSize = std::max(m_maxSize, size);
    m_averageSize = m_totalSize / m_instanceCount;
    m_itemIndex = itemIndex;
}

// --- groups ---------------------------------------------------------------------------

BaseContentGroup::~BaseContentGroup() = default;

QString BaseContentGroup::BriefDescription() const
{
    return analysisSchema_GetString(static_cast<eAnalysisStatsID_t>(m_groupId));
}

ContentGroup::ContentGroup(uint64_t &itemCounter)
    : m_itemCounter(itemCounter)
{
}

ContentGroup::~ContentGroup() = default;

cameraStatus_t ContentGroup::AddContentItem(std::string description, unsigned long size)
{
    ContentItem &item = AddAnalysisArtefact(m_contentItems, description, size, m_itemCounter);
    item.setDescription(cleanedDescription(std::move(description)));
    return cameraStatus_Success;
}

cameraStatus_t ContentGroup::AddSanitisationItem(std::string description, unsigned int size,
                                                 unsigned int sanitisationId)
{
    SanitisationItem &item =
        AddAnalysisArtefact(m_sanitisationItems, description, size, m_itemCounter);
    item.setSanitisationId(sanitisationId);
    item.setDescription(cleanedDescription(std::move(description)));
    return cameraStatus_Success;
}

cameraStatus_t ContentGroup::AddRemedyItem(std::string description, unsigned long size)
{
    RemedyItem &item = AddAnalysisArtefact(m_remedyItems, description, size, m_itemCounter);
    item.setDescription(cleanedDescription(std::move(description)));
    return cameraStatus_Success;
}

cameraStatus_t ContentGroup::AddIssueItem(std::string description, unsigned long size,
                                          unsigned int issueId)
{
    IssueItem &item = AddAnalysisArtefact(m_issueItems, description, size, m_itemCounter);
    item.setIssueId(issueId);
    removeFailureLogText(description);
    item.setDescription(cleanedDescription(std::move(description)));
    return cameraStatus_Success;
}

void ContentGroup::removeFailureLogText(std::string &text)
{
    const size_t open = text.find("[FAILURE_LOG");
    if (open == std::string::npos)
        return;
    const size_t close = text.find(']', open);
    if (close == std::string::npos)
        return;
    text.erase(open, close - open + 1);
}

// --- documents ------------------------------------------------------------------------

DocumentStatistics::DocumentStatistics(uint64_t &itemCounter, DocumentStatistics *parent)
    : m_parent(parent)
    , m_itemCounter(itemCounter)
{
}

DocumentStatistics::~DocumentStatistics()
{
    // Every AddFileAnalysis nests one level deeper, so the chain of child
    // documents can be as long as the caller made it. Take it apart with a
    // work list instead of recursive destructors, which could run out of stack.
    std::vector<std::unique_ptr<DocumentStatistics>> pending;
    auto adopt = [&pending](std::deque<std::unique_ptr<DocumentStatistics>> &children) {
        for (auto &child : children)
            pending.push_back(std::move(child));
        children.clear();
    };
    adopt(m_childDocuments);
    while (!pending.empty()) {
        std::unique_ptr<DocumentStatistics> document = std::move(pending.back());
        pending.pop_back();
        adopt(document->m_childDocuments);
    }
}

bool DocumentStatistics::addContentGroup(int16_t id, ContentGroup **out)
{
    std::unique_ptr<ContentGroup> &group = m_contentGroups[id];
    if (!group)
        group = std::make_unique<ContentGroup>(m_itemCounter);
    group->setGroupId(id);
    if (out)
        *out = group.get();
    return true;
}

bool DocumentStatistics::addIssueInfoItem(unsigned int rangeStart, unsigned int rangeEnd,
                                          std::string description)
{
    m_issueInformation.emplace(IssueRange(rangeStart, rangeEnd), std::move(description));
    return true;
}

bool DocumentStatistics::addExtractedItem(ExtractedText text)
{
    m_extractedTexts.push_back(std::move(text));
    return true;
}

bool DocumentStatistics::addExtractedItem(ExtractedImage image)
{
    m_extractedImages.push_back(std::move(image));
    return true;
}

DocumentStatistics *DocumentStatistics::addChildDocument()
{
    m_childDocuments.push_back(std::make_unique<DocumentStatistics>(m_itemCounter, this));
    return m_childDocuments.back().get();
}

// --- the repository -------------------------------------------------------------------

DocumentAnalysis::DocumentAnalysis() = default;

DocumentAnalysis::~DocumentAnalysis()
{
    if (m_firstDocument)
        ClearAllDocuments();
    logInternalErrors();
}

cameraStatus_t DocumentAnalysis::AddFileAnalysis(const char *name, const char *type,
                                                 const char *version, unsigned long size,
                                                 const char *detectionMethod)
{
    const std::pair<const char *, const char *> required[] = {
        {name, "DocumentName"}, {type, "DocumentType"}, {version, "DocumentVersion"}};
    for (const auto &[value, what] : required) {
        if (!value) {
            lprintf("Analysis pointer not initialised - %s", what);
            return cameraStatus_MissingArgument;
        }
    }

    DocumentStatistics *document = nullptr;
    if (!m_firstDocument) {
        if (m_currentDocument) {
            reportInternalError("Error: DocumentAnalysis::AddFileAnalysis - currentDocumentStatistics "
                                "expected null");
            return cameraStatus_InconsistentRepository;
        }
        m_firstDocument = std::make_unique<DocumentStatistics>(m_itemCounter, nullptr);
        document = m_firstDocument.get();
    } else {
        if (!m_currentDocument) {
            reportInternalError("Error: DocumentAnalysis::AddFileAnalysis - Faulty pointers");
            return cameraStatus_InconsistentRepository;
        }
        document = m_currentDocument->addChildDocument();
    }
    m_currentDocument = document;

    document->setName(name);
    DocumentSummary &summary = document->summary();
    summary.setFileType(type);
    summary.setVersion(version);
    summary.setSize(size);
    if (detectionMethod)
        summary.setDetectionMethod(detectionMethod);
    return cameraStatus_Success;
}

void DocumentAnalysis::ChangeVersionOfCurrentDocument(const char *version)
{
    if (!version) {
        reportInternalError("Error: DocumentAnalysis::ChangeVersionOfCurrentDocument - DocumentVersion null");
        return;
    }
    if (m_currentDocument)
        m_currentDocument->summary().setVersion(version);
}

void DocumentAnalysis::CloseFileAnalysis()
{
    reportInternalError("Error: DocumentAnalysis::CloseFileAnalysis not implemented");
}

void DocumentAnalysis::DiscardFileAnalysis()
{
    reportInternalError("Error: DocumentAnalysis::DiscardFileAnalysis not implemented");
}

void DocumentAnalysis::ClearAllDocuments()
{
    m_currentDocument = nullptr;
    m_firstDocument.reset();
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaFile(std::string type, std::string version,
                                                     unsigned long size)
{
    if (!m_currentDocument)
        return cameraStatus_NoDocumentOpen;
    DocumentSummary &summary = m_currentDocument->summary();
    summary.setFileType(std::move(type));
    summary.setVersion(std::move(version));
    summary.setSize(size);
    return cameraStatus_Success;
}

ContentGroup *DocumentAnalysis::groupOfCurrentDocument(short id)
{
    ContentGroup *group = nullptr;
    if (m_currentDocument)
        m_currentDocument->addContentGroup(id, &group);
    return group;
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaGroupContentItem(short group,
                                                                 std::string description,
                                                                 unsigned long size)
{
    ContentGroup *target = groupOfCurrentDocument(group);
    if (!target)
        return cameraStatus_NoDocumentOpen;
    return target->AddContentItem(std::move(description), size);
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaGroupSanitize(short group, std::string description,
                                                              unsigned int size,
                                                              unsigned int sanitisationId)
{
    ContentGroup *target = groupOfCurrentDocument(group);
    if (!target)
        return cameraStatus_NoDocumentOpen;
    return target->AddSanitisationItem(std::move(description), size, sanitisationId);
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaGroupRemedy(short group, std::string description,
                                                            unsigned long size)
{
    ContentGroup *target = groupOfCurrentDocument(group);
    if (!target)
        return cameraStatus_NoDocumentOpen;
    return target->AddRemedyItem(std::move(description), size);
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaGroupIssue(short group, std::string description,
                                                           unsigned long size, unsigned int issueId)
{
    ContentGroup *target = groupOfCurrentDocument(group);
    if (!target)
        return cameraStatus_NoDocumentOpen;
    return target->AddIssueItem(std::move(description), size, issueId);
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaErrorGroup(unsigned long, std::string, unsigned long)
{
    return cameraStatus_Success;
}

cameraStatus_t DocumentAnalysis::VXAnalyseIssueInfoInsert(unsigned int rangeStart,
                                                          unsigned int rangeEnd,
                                                          std::string description)
{
    if (!m_currentDocument)
        return cameraStatus_NoDocumentOpen;
    m_currentDocument->addIssueInfoItem(rangeStart, rangeEnd, std::move(description));
    return cameraStatus_Success;
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaExtractedText(unsigned long offset,
                                                              std::string location,
                                                              std::string encoding)
{
    if (!m_currentDocument)
        return cameraStatus_NoDocumentOpen;
    ExtractedText text;
    text.m_offset = offset;
    text.m_itemIndex = m_currentDocument->extractedItemCount() + 1;
    text.m_location = std::move(location);
    text.m_encoding = std::move(encoding);
    m_currentDocument->addExtractedItem(std::move(text));
    return cameraStatus_Success;
}

cameraStatus_t DocumentAnalysis::VXAnalyseSchemaExtractedImage(unsigned long offset,
                                                               std::string location,
                                                               unsigned long itemIndex,
                                                               std::string meta)
{
    if (!m_currentDocument)
        return cameraStatus_NoDocumentOpen;
    ExtractedImage image;
    image.m_offset = offset;
    image.m_itemIndex = itemIndex;
    image.m_location = std::move(location);
    image.m_meta.emplace("meta", std::move(meta));
    m_currentDocument->addExtractedItem(std::move(image));
    return cameraStatus_Success;
}

namespace {

// Calls f with the group's map of the selected kind; false for a kind that
// selects nothing.
template <typename F>
bool withItemsOfKind(const ContentGroup &group, DocumentAnalysis::eContentTypes_t kind, F &&f)
{
    switch (kind) {
    case DocumentAnalysis::eIssueItems:
        f(group.issueItems());
        return true;
    case DocumentAnalysis::eSanitisationItems:
        f(group.sanitisationItems());
        return true;
    case DocumentAnalysis::eRemedyItems:
        f(group.remedyItems());
        return true;
    }
    return false;
}

} // namespace

size_t DocumentAnalysis::VXAnalyseGetItemCount(eContentTypes_t kind) const
{
    if (!m_currentDocument)
        return 0;
    size_t count = 0;
    for (const auto &entry : m_currentDocument->contentGroups())
        withItemsOfKind(*entry.second, kind, [&count](const auto &items) { count += items.size(); });
    return count;
}

std::string DocumentAnalysis::VXAnalyseGetFirstDesc(eContentTypes_t kind) const
{
    if (!m_currentDocument)
        return std::string();
    // Groups are visited in ascending id, so the first record seen under a
    // key is the one of the lowest group id.
    std::map<std::string, const AnalysisArtifact *> working;
    for (const auto &entry : m_currentDocument->contentGroups()) {
        withItemsOfKind(*entry.second, kind, [&working](const auto &items) {
            for (const auto &item : items)
                working.emplace(item.first, item.second.get());
        });
    }
    const AnalysisArtifact *first = nullptr;
    for (const auto &entry : working)
        if (!first || entry.second->itemIndex() < first->itemIndex())
            first = entry.second;
    return first ? first->description() : std::string();
}

// --- report and internal errors -------------------------------------------------------

uint32_t DocumentAnalysis::WriteReport(MemoryBuffer *outBuf, unsigned char detailed)
{
    if (!outBuf) {
        reportInternalError("Error: DocumentAnalysis::WriteReport - outBuf null");
        return 0;
    }
    if (!m_firstDocument) {
        reportInternalError("XML Analysis not run!");
        reportFailCreation(outBuf);
        return 0;
    }
    XML_Reporting::XmlWriter writer;
    return writer.writeXML_Analysis(*this, *m_firstDocument, outBuf, detailed != 0);
}

void DocumentAnalysis::reportFailCreation(MemoryBuffer *out)
{
    if (!out)
        return;
    const std::string &prolog = XML_Reporting::failureDocumentProlog();
    try {
        out->putRawBytes(prolog.data(), prolog.size());
        dumpInternalErrors(out);
        out->putRawBytes(XML_Reporting::failureDocumentClosing,
                         std::strlen(XML_Reporting::failureDocumentClosing));
    } catch (const WriteBufferException &) {
        // A buffer that may not grow takes what fits; the errors stay listed
        // and are logged when the repository goes.
    }
}

void DocumentAnalysis::reportInternalError(const char *message)
{
    if (message)
        m_internalErrors.emplace_back(message);
}

void DocumentAnalysis::dumpInternalErrors(MemoryBuffer *out) const
{
    if (!out)
        return;
    for (const std::string &error : m_internalErrors) {
        out->putRawBytes(error.data(), error.size());
        out->putRawBytes("\n", 1);
    }
}

void DocumentAnalysis::logInternalErrors() const
{
    for (const std::string &error : m_internalErrors) {
        lprintf("DocumentAnalysis Internal Error:");
        lprintf("%s", error.c_str());
        lprintf("\n");
    }
}

// --- cleaning ------------------------------------------------------------------------

void removeTrailingCRLF(std::string &text)
{
    const size_t keep = text.find_last_not_of("\r\n");
    text.erase(keep == std::string::npos ? 0 : keep + 1);
}

void changeControlCodes(std::string &text)
{
    const auto printable = [](unsigned char c) { return c >= 0x20 && c <= 0x7E; };
    if (std::all_of(text.begin(), text.end(), printable))
        return;
    static const char kHex[] = "0123456789abcdef";
    std::string changed;
    changed.reserve(text.size() + 16);
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (printable(c)) {
            changed += ch;
        } else {
            changed += '#';
            changed += kHex[c >> 4];
            changed += kHex[c & 0x0F];
        }
    }
    text.swap(changed);
}

void BrightmoorChangeControlCodes(char *text)
{
    if (!text)
        return;
    std::string copy(text);
    removeTrailingCRLF(copy);
    changeControlCodes(copy);
    std::memcpy(text, copy.c_str(), copy.size() + 1);
}

} // namespace RepositoryComponents
