#pragma once

#include "ucp_engine/analysis.ids.h"
#include "ucp_engine/vxstatus.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class MemoryBuffer;

// The analysis repository of one camera run: what a camera found in a
// document (content, sanitisations, remedies, issues, issue-information
// ranges, extracted texts and images), grouped per document and per content
// group, and written at the end as the XML analysis report.
//
// The repository never throws for bad input. It answers with a status and
// keeps a list of internal errors, written to the debug log when it goes.
namespace RepositoryComponents {

// Counters shared by every record, group and document. A record keeps how
// often it was added and the size statistics of those additions.
class AnalysisArtifact
{
public:
    AnalysisArtifact() = default;
    AnalysisArtifact(const AnalysisArtifact &) = delete;
    AnalysisArtifact &operator=(const AnalysisArtifact &) = delete;
    virtual ~AnalysisArtifact();

    uint64_t instanceCount() const { return m_instanceCount; }
    uint64_t totalSize() const { return m_totalSize; }
    uint64_t averageSize() const { return m_averageSize; }
    uint64_t minSize() const { return m_minSize; }
    uint64_t maxSize() const { return m_maxSize; }
    const std::string &description() const { return m_description; }
    uint64_t itemIndex() const { return m_itemIndex; }

    void setDescription(std::string description) { m_description = std::move(description); }

    // One more addition of the given size, numbered itemIndex. The total
    // saturates instead of wrapping, so absurd sizes cannot make it small.
    void addInstance(uint64_t size, uint64_t itemIndex);

protected:
    uint64_t m_instanceCount = 0;
    uint64_t m_totalSize = 0;
    uint64_t m_averageSize = 0;
    uint64_t m_minSize = std::numeric_limits<uint64_t>::max();
    uint64_t m_maxSize = 0;
    std::string m_description;
    uint64_t m_itemIndex = 0;
};

class ContentItem final : public AnalysisArtifact
{
public:
    ~ContentItem() override;
};

class SanitisationItem final : public AnalysisArtifact
{
public:
    ~SanitisationItem() override;

    uint64_t sanitisationId() const { return m_sanitisationId; }
    void setSanitisationId(uint64_t id) { m_sanitisationId = id; }

private:
    uint64_t m_sanitisationId = 0;
};

class RemedyItem final : public AnalysisArtifact
{
public:
    ~RemedyItem() override;
};

class IssueItem final : public AnalysisArtifact
{
public:
    ~IssueItem() override;

    uint64_t issueId() const { return m_issueId; }
    void setIssueId(uint64_t id) { m_issueId = id; }

private:
    uint64_t m_issueId = 0;
};

// Records of one kind keyed by the description exactly as the caller gave it
// (before cleaning), in byte order. Each kind has its own map type so that
// readers get the record's own fields without casts.
template <typename Item>
using ItemMap = std::map<std::string, std::shared_ptr<Item>>;

class BaseContentGroup
{
public:
    BaseContentGroup() = default;
    BaseContentGroup(const BaseContentGroup &) = delete;
    BaseContentGroup &operator=(const BaseContentGroup &) = delete;

    virtual size_t ItemCount() const = 0;
    virtual ~BaseContentGroup();

    int16_t groupId() const { return m_groupId; }
    void setGroupId(int16_t id) { m_groupId = id; }

    // The group's statistics description.
    QString BriefDescription() const;

protected:
    int16_t m_groupId = 0;
};

// The records of one statistics group of a document. Its own counters are not
// used; the per-kind counts are the sizes of the four maps.
class ContentGroup final : public AnalysisArtifact, public BaseContentGroup
{
public:
    // Every addition takes its item index from the repository-wide counter.
    explicit ContentGroup(uint64_t &itemCounter);
    ~ContentGroup() override;

    size_t ItemCount() const override { return 0; }

    cameraStatus_t AddContentItem(std::string description, unsigned long size);
    cameraStatus_t AddSanitisationItem(std::string description, unsigned int size,
                                       unsigned int sanitisationId);
    cameraStatus_t AddRemedyItem(std::string description, unsigned long size);
    cameraStatus_t AddIssueItem(std::string description, unsigned long size, unsigned int issueId);

    const ItemMap<ContentItem> &contentItems() const { return m_contentItems; }
    const ItemMap<SanitisationItem> &sanitisationItems() const { return m_sanitisationItems; }
    const ItemMap<RemedyItem> &remedyItems() const { return m_remedyItems; }
    const ItemMap<IssueItem> &issueItems() const { return m_issueItems; }

    // Cuts the first "[FAILURE_LOG ... ]" block, brackets included, out of an
    // issue text; without a closing bracket the text stays as it is.
    static void removeFailureLogText(std::string &text);

private:
    ItemMap<ContentItem> m_contentItems;
    ItemMap<SanitisationItem> m_sanitisationItems;
    ItemMap<RemedyItem> m_remedyItems;
    ItemMap<IssueItem> m_issueItems;
    uint64_t &m_itemCounter;
};

// What was analysed: of the counters only the total size (the document's size
// in bytes) is used.
class DocumentSummary final : public AnalysisArtifact
{
public:
    ~DocumentSummary() override;

    void setSize(uint64_t size) { m_totalSize = size; }
    const std::string &fileType() const { return m_fileType; }
    void setFileType(std::string type) { m_fileType = std::move(type); }
    const std::string &version() const { return m_version; }
    void setVersion(std::string version) { m_version = std::move(version); }
    const std::string &detectionMethod() const { return m_detectionMethod; }
    void setDetectionMethod(std::string method) { m_detectionMethod = std::move(method); }

private:
    std::string m_fileType;
    std::string m_version;
    std::string m_detectionMethod;
};

struct ExtractedText
{
    uint64_t m_offset = 0;
    uint64_t m_itemIndex = 0;
    std::string m_location;
    std::string m_encoding;
};

struct ExtractedImage
{
    uint64_t m_offset = 0;
    uint64_t m_itemIndex = 0;
    std::string m_location;
    std::map<std::string, std::string> m_meta;
};

// An issue-information range: (start, end), ordered by start, then end.
using IssueRange = std::pair<uint32_t, uint32_t>;

// One analysed document with its groups, ranges, extracted items and the
// documents opened inside it.
class DocumentStatistics final : public AnalysisArtifact
{
public:
    using ContentGroupMap = std::map<int16_t, std::unique_ptr<ContentGroup>>;
    using IssueInformationMap = std::map<IssueRange, std::string>;

    DocumentStatistics(uint64_t &itemCounter, DocumentStatistics *parent);
    ~DocumentStatistics() override;

    const std::string &name() const { return m_name; }
    void setName(std::string name) { m_name = std::move(name); }
    DocumentSummary &summary() { return m_summary; }
    const DocumentSummary &summary() const { return m_summary; }
    DocumentStatistics *parent() const { return m_parent; }

    // The group with that id, created when absent; always true.
    bool addContentGroup(int16_t id, ContentGroup **out);
    // A range already present keeps its first description; always true.
    bool addIssueInfoItem(unsigned int rangeStart, unsigned int rangeEnd, std::string description);
    bool addExtractedItem(ExtractedText text);
    bool addExtractedItem(ExtractedImage image);
    // A new document nested in this one, owned by it.
    DocumentStatistics *addChildDocument();

    size_t groupCount() const { return m_contentGroups.size(); }
    size_t extractedItemCount() const { return m_extractedTexts.size(); }
    size_t extractedImageCount() const { return m_extractedImages.size(); }

    const ContentGroupMap &contentGroups() const { return m_contentGroups; }
    const IssueInformationMap &issueInformation() const { return m_issueInformation; }
    const std::vector<ExtractedImage> &extractedImages() const { return m_extractedImages; }
    const std::vector<ExtractedText> &extractedTexts() const { return m_extractedTexts; }
    const std::deque<std::unique_ptr<DocumentStatistics>> &childDocuments() const
    {
        return m_childDocuments;
    }

private:
    std::string m_name;
    DocumentSummary m_summary;
    ContentGroupMap m_contentGroups;
    IssueInformationMap m_issueInformation;
    std::vector<ExtractedImage> m_extractedImages;
    std::vector<ExtractedText> m_extractedTexts;
    std::deque<std::unique_ptr<DocumentStatistics>> m_childDocuments;
    DocumentStatistics *m_parent;
    uint64_t &m_itemCounter;
};

// The repository of one run. Recording goes to the current document; the
// report covers the first document only.
class DocumentAnalysis
{
public:
    // Record kinds the queries can select.
    enum eContentTypes_t {
        eIssueItems = 0,
        eSanitisationItems = 1,
        eRemedyItems = 2,
    };

    DocumentAnalysis();
    DocumentAnalysis(const DocumentAnalysis &) = delete;
    DocumentAnalysis &operator=(const DocumentAnalysis &) = delete;
    // Logs every internal error.
    ~DocumentAnalysis();

    // --- documents --------------------------------------------------------------
    // Opens a document and makes it current: the first one becomes the root,
    // every later one nests inside the current one (closing is not supported).
    // A null name, type or version: 162; inconsistent pointers: 169.
    cameraStatus_t AddFileAnalysis(const char *name, const char *type, const char *version,
                                   unsigned long size, const char *detectionMethod);
    void ChangeVersionOfCurrentDocument(const char *version);
    // Not supported: each records an internal error and changes nothing.
    void CloseFileAnalysis();
    void DiscardFileAnalysis();
    void ClearAllDocuments();

    DocumentStatistics *currentDocument() const { return m_currentDocument; }
    DocumentStatistics *firstDocument() const { return m_firstDocument.get(); }
    uint64_t itemCounter() const { return m_itemCounter; }

    // --- recording into the current document: 182 when none is open ---------------
    cameraStatus_t VXAnalyseSchemaFile(std::string type, std::string version, unsigned long size);
    cameraStatus_t VXAnalyseSchemaGroupContentItem(short group, std::string description,
                                                   unsigned long size);
    cameraStatus_t VXAnalyseSchemaGroupSanitize(short group, std::string description,
                                                unsigned int size, unsigned int sanitisationId);
    cameraStatus_t VXAnalyseSchemaGroupRemedy(short group, std::string description,
                                              unsigned long size);
    cameraStatus_t VXAnalyseSchemaGroupIssue(short group, std::string description,
                                             unsigned long size, unsigned int issueId);
    // Accepted and ignored.
    cameraStatus_t VXAnalyseSchemaErrorGroup(unsigned long id, std::string text, unsigned long size);
    cameraStatus_t VXAnalyseIssueInfoInsert(unsigned int rangeStart, unsigned int rangeEnd,
                                            std::string description);
    // Texts are numbered 1, 2, 3 ... per document.
    cameraStatus_t VXAnalyseSchemaExtractedText(unsigned long offset, std::string location,
                                                std::string encoding);
    cameraStatus_t VXAnalyseSchemaExtractedImage(unsigned long offset, std::string location,
                                                 unsigned long itemIndex, std::string meta);

    // --- queries on the current document: 0 or "" when none is open ---------------
    size_t VXAnalyseGetItemCount(eContentTypes_t kind) const;
    size_t VXAnalyseGetIssueItemCount() const { return VXAnalyseGetItemCount(eIssueItems); }
    size_t VXAnalyseGetSanitisationItemCount() const
    {
        return VXAnalyseGetItemCount(eSanitisationItems);
    }
    size_t VXAnalyseGetRemedyItemCount() const { return VXAnalyseGetItemCount(eRemedyItems); }
    // The description of the earliest-numbered record of that kind. Where
    // groups share a key, the record of the lowest group id counts.
    std::string VXAnalyseGetFirstDesc(eContentTypes_t kind) const;
    std::string VXAnalyseGetFirstIssueDesc() const { return VXAnalyseGetFirstDesc(eIssueItems); }

    // --- report and internal errors ---------------------------------------------------
    // Writes the report of the first document into an empty buffer; answers the
    // number of bytes written, 0 on failure. detailed adds the content items.
    uint32_t WriteReport(MemoryBuffer *outBuf, unsigned char detailed);
    // The plain-text document that stands in for a report that cannot be built.
    void reportFailCreation(MemoryBuffer *out);

    void reportInternalError(const char *message);
    bool anyInternalErrorsOccured() const { return !m_internalErrors.empty(); }
    const std::vector<std::string> &internalErrors() const { return m_internalErrors; }
    // Each error followed by "\n", oldest first.
    void dumpInternalErrors(MemoryBuffer *out) const;
    void logInternalErrors() const;

private:
    // The current document's group with that id, created when absent; null
    // when no document is open.
    ContentGroup *groupOfCurrentDocument(short id);

    DocumentStatistics *m_currentDocument = nullptr;
    std::unique_ptr<DocumentStatistics> m_firstDocument;
    std::vector<std::string> m_internalErrors;
    uint64_t m_itemCounter = 0;
};

// Cleaning of record descriptions.
// Drops every trailing carriage return and line feed.
void removeTrailingCRLF(std::string &text);
// Replaces every byte outside printable ASCII (0x20-0x7E) by "#" and two
// lower-case hex digits: a tab becomes "#09".
void changeControlCodes(std::string &text);
// Cleans a zero-terminated text in place as record descriptions are cleaned.
// Every replaced byte grows by two characters: the caller's buffer must hold
// the longer result.
void BrightmoorChangeControlCodes(char *text);

} // namespace RepositoryComponents
