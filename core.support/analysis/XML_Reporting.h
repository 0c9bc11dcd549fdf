#pragma once

#include "analysis/RepositoryComponents.h"

#include <mxml.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class MemoryBuffer;

// The XML analysis report: one analysed document written as a "vx:CorvidInfo"
// document with Mini-XML and a whitespace callback that fixes the layout.
namespace XML_Reporting {

// The text of a report while it is saved piece by piece (see the source).
class ReportText;

// The report vocabulary's namespace. The project publishes no schema yet, so
// the name lives under the reserved ".example" domain: it identifies the
// vocabulary without pointing at anybody's server.
inline constexpr char reportNamespaceURI[] = "http://vxcore.example/namespace";
inline constexpr char schemaLocation[] = "http://vxcore.example/namespace/corvidInfo.xsd";
inline constexpr char xmlSchemaInstanceURI[] = "http://www.w3.org/2001/XMLSchema-instance";

// The plain-text document written when no report can be built: the prolog,
// the repository's internal errors one per line, then the closing text. It
// looks like XML but is not meant to be parsed as such (its encoding label
// reads "utf - 8").
const std::string &failureDocumentProlog();
inline constexpr char failureDocumentClosing[] = "\n</vx:CorvidInfo>\n";

// Builds and saves one report; made for a single WriteReport and not reused.
class XmlWriter
{
public:
    XmlWriter();
    XmlWriter(const XmlWriter &) = delete;
    XmlWriter &operator=(const XmlWriter &) = delete;
    ~XmlWriter();

    // Writes the report of document into outBuf, which must be empty. Answers
    // the number of bytes written, or 0 with an internal error recorded in
    // analysis.
    uint32_t writeXML_Analysis(RepositoryComponents::DocumentAnalysis &analysis,
                               RepositoryComponents::DocumentStatistics &document,
                               MemoryBuffer *outBuf, bool detailed);

    // Reserved for a per-group description source; the report takes the
    // statistics descriptions instead, so this answers "".
    std::string getBriefDescription(int id) const;
    // The report carries no content-management settings.
    void AddContentManagmentSettings() {}

    // Mini-XML's save callback: tabs before open tags and before the close
    // tags of container elements, as deep as the element (root 0, at most 8),
    // a newline after a container's open tag and after every close tag.
    static const char *whitespace_cb(mxml_node_t *node, int where);
    // True for the container elements, which take their own lines.
    static bool findElement(const char *name);

private:
    void CreateDocumentSummary(mxml_node_t *statistics);
    void CreateIssueInfoNode(mxml_node_t *statistics);
    void CreateIssueInfoItem(mxml_node_t *groups, const RepositoryComponents::IssueRange &range,
                             const std::string &description);
    void CreateContentGroups(mxml_node_t *statistics, bool detailed);
    void CreateContentGroup(mxml_node_t *groups, const RepositoryComponents::ContentGroup &group,
                            bool detailed);
    template <typename Item>
    void AddItemList(mxml_node_t *group, const char *listName, const char *itemName,
                     const RepositoryComponents::ItemMap<Item> &items,
                     mxml_node_t *(XmlWriter::*addItem)(mxml_node_t *, const Item &));
    mxml_node_t *AddContentItem(mxml_node_t *list, const RepositoryComponents::ContentItem &item);
    mxml_node_t *AddSanitisationItem(mxml_node_t *list,
                                     const RepositoryComponents::SanitisationItem &item);
    mxml_node_t *AddRemedyItem(mxml_node_t *list, const RepositoryComponents::RemedyItem &item);
    mxml_node_t *AddIssueItem(mxml_node_t *list, const RepositoryComponents::IssueItem &item);
    void CreateExtractedItems(mxml_node_t *statistics);
    void CreateExtractedText(mxml_node_t *items, const RepositoryComponents::ExtractedText &text);
    void CreateExtractedImage(mxml_node_t *items, const RepositoryComponents::ExtractedImage &image);

    mxml_node_t *addExtractedItem(mxml_node_t *items, uint64_t offset, uint64_t itemIndex,
                                  const std::string &location);

    // Node helpers: they keep m_saveBound and throw std::bad_alloc when
    // Mini-XML cannot allocate.
    mxml_node_t *addElement(mxml_node_t *parent, const char *name);
    void addText(mxml_node_t *element, const char *text);
    mxml_node_t *addTextElement(mxml_node_t *parent, const char *name, const std::string &text);
    mxml_node_t *addNumberElement(mxml_node_t *parent, const char *name, uint64_t value);
    // The total, average, smallest and largest size of a record, in that order.
    void addSizeElements(mxml_node_t *parent, const RepositoryComponents::AnalysisArtifact &item);
    mxml_node_t *addRangeElement(mxml_node_t *parent, const char *name, uint32_t value);
    void setAttribute(mxml_node_t *element, const char *name, const char *value);
    void setCountAttribute(mxml_node_t *element, const char *name, uint64_t value);
    // Text in XML-safe form; see the source for what is replaced.
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
    const RepositoryComponents::DocumentStatistics *m_document = nullptr;
    std::string m_xmlTextScratch;
    // The longest the saved text of the nodes built since the last save can
    // be, kept up to date as nodes are added.
    size_t m_saveBound = 1;
    std::vector<DeferredList> m_deferredLists;
    std::vector<char> m_scratchSave;
};

} // namespace XML_Reporting
