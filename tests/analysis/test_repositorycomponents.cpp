#include "analysis/RepositoryComponents.h"

#include "buffers/MemoryBuffer.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "reportxml.h"

#include <gtest/gtest.h>

#include <limits>

using namespace RepositoryComponents;

namespace {

// A repository with its first document open, as a session makes it.
struct OpenRepository
{
    OpenRepository() { analysis.AddFileAnalysis("docname", "doctype", "Not Applicable", 0, ""); }
    const ContentGroup &group(short id) const
    {
        return *analysis.currentDocument()->contentGroups().at(id);
    }
    DocumentAnalysis analysis;
};

const std::string kFailureProlog =
    "<?xml version=\"1.0\" encoding=\"utf - 8\"?><vx:CorvidInfo "
    "xsi:schemaLocation=\"http://vxcore.example/namespace/corvidInfo.xsd\" "
    "xmlns:xsi = \"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:vx=\"http://vxcore.example/namespace\">Reporting System Failed\n";

} // namespace

// --- cleaning ------------------------------------------------------------------------

TEST(RepositoryCleaning, RemoveTrailingCRLF)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},           {"text", "text"},   {"text\r\n", "text"},   {"text\n\r\n\r", "text"},
        {"\r\n\r\n", ""},   {"a\r\nb", "a\r\nb"}, {"text \t\r\n", "text \t"}, {"\n", ""},
    };
    for (auto [input, expected] : cases) {
        std::string text = input;
        removeTrailingCRLF(text);
        EXPECT_EQ(text, expected) << "input \"" << input << "\"";
    }
}

TEST(RepositoryCleaning, ChangeControlCodesKeepsPrintableAsciiOnly)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {" ~plain text~ ", " ~plain text~ "},
        {"a\tb", "a#09b"},
        {"caf\xe9", "caf#e9"},
        {std::string("\0x", 2), "#00x"},
        {"\x7f\x80\xff", "#7f#80#ff"},
        {"\x1f#", "#1f#"},
        {"\r\n", "#0d#0a"},
    };
    for (auto [input, expected] : cases) {
        std::string text = input;
        changeControlCodes(text);
        EXPECT_EQ(text, expected) << "input of " << input.size() << " bytes";
    }
}

TEST(RepositoryCleaning, RemoveFailureLogTextCutsTheFirstBlock)
{
    const std::pair<std::string, std::string> cases[] = {
        {"Bad length [FAILURE_LOG at 0x10] in stream", "Bad length  in stream"},
        {"[FAILURE_LOG]", ""},
        {"x [FAILURE_LOG no end", "x [FAILURE_LOG no end"},
        {"a [FAILURE_LOG 1] b [FAILURE_LOG 2] c", "a  b [FAILURE_LOG 2] c"},
        {"] before [FAILURE_LOG x] after", "] before  after"},
        {"[FAILURE_LO] not a block", "[FAILURE_LO] not a block"},
        {"", ""},
    };
    for (auto [input, expected] : cases) {
        std::string text = input;
        ContentGroup::removeFailureLogText(text);
        EXPECT_EQ(text, expected) << "input \"" << input << "\"";
    }
}

TEST(RepositoryCleaning, BrightmoorChangeControlCodesCleansInPlace)
{
    char text[32] = "tab\there\xe9\r\n";
    BrightmoorChangeControlCodes(text);
    EXPECT_STREQ(text, "tab#09here#e9");
    BrightmoorChangeControlCodes(nullptr); // accepted, nothing to do
}

// --- records --------------------------------------------------------------------------

TEST(RepositoryRecords, RepeatsUpdateOneRecordsCounters)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project", 10);
    repo.analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project", 30);
    repo.analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project", 20);

    const ItemMap<ContentItem> &items = repo.group(275).contentItems();
    ASSERT_EQ(items.size(), 1u);
    const ContentItem &item = *items.at("VBA project");
    EXPECT_EQ(item.instanceCount(), 3u);
    EXPECT_EQ(item.totalSize(), 60u);
    EXPECT_EQ(item.averageSize(), 20u);
    EXPECT_EQ(item.minSize(), 10u);
    EXPECT_EQ(item.maxSize(), 30u);
    EXPECT_EQ(item.itemIndex(), 2u) << "the index of the third addition";
    EXPECT_EQ(repo.analysis.itemCounter(), 3u);
}

TEST(RepositoryRecords, AverageIsIntegerDivisionAndTotalSaturates)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseSchemaGroupRemedy(1, "r", 1);
    repo.analysis.VXAnalyseSchemaGroupRemedy(1, "r", 2);
    EXPECT_EQ(repo.group(1).remedyItems().at("r")->averageSize(), 1u);

    const unsigned long huge = std::numeric_limits<unsigned long>::max();
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "big", huge);
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "big", huge);
    const ContentItem &big = *repo.group(1).contentItems().at("big");
    EXPECT_EQ(big.totalSize(), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(big.maxSize(), huge);
}

TEST(RepositoryRecords, SameDescriptionInTwoGroupsMakesTwoRecords)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseSchemaGroupIssue(7, "bad", 1, 1);
    repo.analysis.VXAnalyseSchemaGroupIssue(9, "bad", 1, 1);
    EXPECT_EQ(repo.group(7).issueItems().at("bad")->itemIndex(), 0u);
    EXPECT_EQ(repo.group(9).issueItems().at("bad")->itemIndex(), 1u);
    EXPECT_EQ(repo.analysis.VXAnalyseGetIssueItemCount(), 2u);
}

TEST(RepositoryRecords, KeyIsTheRawTextDescriptionTheCleanedOne)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "line\r\n", 1);
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "line", 1);
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "\r\n\r\n", 1);
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "tab\tand \xe9", 1);

    const ItemMap<ContentItem> &items = repo.group(1).contentItems();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items.at("line\r\n")->description(), "line");
    EXPECT_EQ(items.at("line")->description(), "line");
    EXPECT_EQ(items.at("\r\n\r\n")->description(), "");
    EXPECT_EQ(items.at("tab\tand \xe9")->description(), "tab#09and #e9");
}

TEST(RepositoryRecords, LatestIdWinsAndOnlyIssuesLoseFailureLogs)
{
    OpenRepository repo;
    const std::string text = "x [FAILURE_LOG 1] y";
    repo.analysis.VXAnalyseSchemaGroupSanitize(3, text, 1, 11);
    repo.analysis.VXAnalyseSchemaGroupSanitize(3, text, 1, 12);
    repo.analysis.VXAnalyseSchemaGroupIssue(3, text, 0, 21);
    repo.analysis.VXAnalyseSchemaGroupIssue(3, text, 0, 22);
    repo.analysis.VXAnalyseSchemaGroupRemedy(3, text, 0);

    const ContentGroup &group = repo.group(3);
    EXPECT_EQ(group.sanitisationItems().at(text)->sanitisationId(), 12u);
    EXPECT_EQ(group.sanitisationItems().at(text)->description(), text);
    EXPECT_EQ(group.issueItems().at(text)->issueId(), 22u);
    EXPECT_EQ(group.issueItems().at(text)->description(), "x  y");
    EXPECT_EQ(group.remedyItems().at(text)->description(), text);
    EXPECT_EQ(group.groupId(), 3);
    EXPECT_EQ(group.ItemCount(), 0u);
}

TEST(RepositoryRecords, IssueInformationKeepsTheFirstDescriptionPerRange)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseIssueInfoInsert(5, 9, "first");
    repo.analysis.VXAnalyseIssueInfoInsert(5, 9, "second");
    repo.analysis.VXAnalyseIssueInfoInsert(5, 10, "wider");
    repo.analysis.VXAnalyseIssueInfoInsert(4, 100, "earlier");

    const DocumentStatistics::IssueInformationMap expected = {
        {{4, 100}, "earlier"}, {{5, 9}, "first"}, {{5, 10}, "wider"}};
    EXPECT_EQ(repo.analysis.currentDocument()->issueInformation(), expected);
}

TEST(RepositoryRecords, ExtractedTextsAreNumberedPerDocument)
{
    OpenRepository repo;
    for (unsigned long offset : {100ul, 200ul, 300ul})
        repo.analysis.VXAnalyseSchemaExtractedText(offset, "stream", "UTF-8");
    repo.analysis.VXAnalyseSchemaExtractedImage(400, "pic", 77, "image/png");
    const DocumentStatistics *first = repo.analysis.currentDocument();

    repo.analysis.AddFileAnalysis("inner", "t", "v", 0, nullptr);
    repo.analysis.VXAnalyseSchemaExtractedText(5, "inner stream", "ASCII");

    ASSERT_EQ(first->extractedItemCount(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(first->extractedTexts()[i].m_itemIndex, i + 1);
        EXPECT_EQ(first->extractedTexts()[i].m_offset, 100 * (i + 1));
    }
    ASSERT_EQ(first->extractedImageCount(), 1u);
    const ExtractedImage &image = first->extractedImages().front();
    EXPECT_EQ(image.m_itemIndex, 77u);
    EXPECT_EQ(image.m_location, "pic");
    EXPECT_EQ(image.m_meta, (std::map<std::string, std::string>{{"meta", "image/png"}}));
    EXPECT_EQ(repo.analysis.currentDocument()->extractedTexts().at(0).m_itemIndex, 1u);
}

// --- documents --------------------------------------------------------------------------

TEST(RepositoryDocuments, MissingArgumentsAreRefusedAndLogged)
{
    struct Case
    {
        const char *name, *type, *version, *logged;
    };
    const Case cases[] = {
        {nullptr, nullptr, nullptr, "\"Analysis pointer not initialised - DocumentName\""},
        {"n", nullptr, nullptr, "\"Analysis pointer not initialised - DocumentType\""},
        {"n", "t", nullptr, "\"Analysis pointer not initialised - DocumentVersion\""},
    };
    for (const Case &c : cases) {
        LogCapture log;
        DocumentAnalysis analysis;
        EXPECT_EQ(analysis.AddFileAnalysis(c.name, c.type, c.version, 1, "m"), 162u) << c.logged;
        EXPECT_EQ(analysis.firstDocument(), nullptr) << c.logged;
        EXPECT_EQ(log.messages(), QStringList{QString::fromLatin1(c.logged)});
    }
}

TEST(RepositoryDocuments, FirstDocumentIsTheRootAndLaterOnesNest)
{
    DocumentAnalysis analysis;
    ASSERT_EQ(analysis.AddFileAnalysis("outer.doc", "ft_doc", "97", 4096, "signature match"), 0u);
    DocumentStatistics *outer = analysis.currentDocument();
    EXPECT_EQ(analysis.firstDocument(), outer);
    EXPECT_EQ(outer->name(), "outer.doc");
    EXPECT_EQ(outer->summary().fileType(), "ft_doc");
    EXPECT_EQ(outer->summary().version(), "97");
    EXPECT_EQ(outer->summary().totalSize(), 4096u);
    EXPECT_EQ(outer->summary().detectionMethod(), "signature match");
    EXPECT_EQ(outer->parent(), nullptr);

    ASSERT_EQ(analysis.AddFileAnalysis("a", "t", "v", 1, nullptr), 0u);
    DocumentStatistics *a = analysis.currentDocument();
    ASSERT_EQ(analysis.AddFileAnalysis("b", "t", "v", 1, nullptr), 0u);
    DocumentStatistics *b = analysis.currentDocument();
    EXPECT_EQ(a->parent(), outer);
    EXPECT_EQ(b->parent(), a) << "without closing, every document nests one level deeper";
    EXPECT_EQ(outer->childDocuments().size(), 1u);
    EXPECT_EQ(a->summary().detectionMethod(), "");
    EXPECT_EQ(analysis.firstDocument(), outer);
}

TEST(RepositoryDocuments, SummaryCorrections)
{
    OpenRepository repo;
    EXPECT_EQ(repo.analysis.VXAnalyseSchemaFile("ft_png", "1.2", 321), 0u);
    repo.analysis.ChangeVersionOfCurrentDocument("1.5");
    const DocumentSummary &summary = repo.analysis.currentDocument()->summary();
    EXPECT_EQ(summary.fileType(), "ft_png");
    EXPECT_EQ(summary.version(), "1.5");
    EXPECT_EQ(summary.totalSize(), 321u);

    repo.analysis.ChangeVersionOfCurrentDocument(nullptr);
    EXPECT_EQ(summary.version(), "1.5");
    EXPECT_EQ(repo.analysis.internalErrors(),
              std::vector<std::string>{
                  "Error: DocumentAnalysis::ChangeVersionOfCurrentDocument - DocumentVersion null"});
}

TEST(RepositoryDocuments, WithoutADocumentRecordingAnswers182AndChangesNothing)
{
    DocumentAnalysis analysis;
    EXPECT_EQ(analysis.VXAnalyseSchemaFile("t", "v", 1), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaGroupContentItem(1, "d", 1), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaGroupSanitize(1, "d", 1, 1), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaGroupRemedy(1, "d", 1), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaGroupIssue(1, "d", 1, 1), 182u);
    EXPECT_EQ(analysis.VXAnalyseIssueInfoInsert(1, 2, "d"), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaExtractedText(1, "l", "e"), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaExtractedImage(1, "l", 1, "m"), 182u);
    EXPECT_EQ(analysis.VXAnalyseSchemaErrorGroup(1, "ignored", 1), 0u);
    analysis.ChangeVersionOfCurrentDocument("v");
    EXPECT_EQ(analysis.VXAnalyseGetIssueItemCount(), 0u);
    EXPECT_EQ(analysis.VXAnalyseGetFirstIssueDesc(), "");
    EXPECT_EQ(analysis.firstDocument(), nullptr);
    EXPECT_EQ(analysis.itemCounter(), 0u);
    EXPECT_FALSE(analysis.anyInternalErrorsOccured());
}

TEST(RepositoryDocuments, CloseAndDiscardAreRecordedAsUnsupported)
{
    OpenRepository repo;
    DocumentStatistics *current = repo.analysis.currentDocument();
    repo.analysis.CloseFileAnalysis();
    repo.analysis.DiscardFileAnalysis();
    EXPECT_EQ(repo.analysis.currentDocument(), current);
    EXPECT_EQ(repo.analysis.internalErrors(),
              (std::vector<std::string>{"Error: DocumentAnalysis::CloseFileAnalysis not implemented",
                                        "Error: DocumentAnalysis::DiscardFileAnalysis not implemented"}));
}

TEST(RepositoryDocuments, ClearAllDocumentsEmptiesTheRepository)
{
    OpenRepository repo;
    repo.analysis.AddFileAnalysis("inner", "t", "v", 0, "");
    repo.analysis.ClearAllDocuments();
    EXPECT_EQ(repo.analysis.firstDocument(), nullptr);
    EXPECT_EQ(repo.analysis.currentDocument(), nullptr);
    EXPECT_EQ(repo.analysis.VXAnalyseSchemaGroupContentItem(1, "d", 1), 182u);
    EXPECT_EQ(repo.analysis.AddFileAnalysis("again", "t", "v", 0, ""), 0u);
    EXPECT_EQ(repo.analysis.firstDocument()->name(), "again");
}

TEST(RepositoryDocuments, DeepNestingIsTornDownWithoutRecursion)
{
    // Far deeper than recursive destructors could go on a default stack.
    DocumentAnalysis analysis;
    for (int i = 0; i < 200000; ++i)
        ASSERT_EQ(analysis.AddFileAnalysis("d", "t", "v", 0, nullptr), 0u);
    analysis.ClearAllDocuments();
    EXPECT_EQ(analysis.firstDocument(), nullptr);
}

// --- queries ----------------------------------------------------------------------------

TEST(RepositoryQueries, CountsDistinctRecordsOfAKindAcrossGroups)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseSchemaGroupIssue(1, "a", 0, 1);
    repo.analysis.VXAnalyseSchemaGroupIssue(1, "a", 0, 1);
    repo.analysis.VXAnalyseSchemaGroupIssue(2, "a", 0, 1);
    repo.analysis.VXAnalyseSchemaGroupIssue(2, "b", 0, 1);
    repo.analysis.VXAnalyseSchemaGroupSanitize(1, "s", 0, 1);
    repo.analysis.VXAnalyseSchemaGroupRemedy(3, "r", 0);
    repo.analysis.VXAnalyseSchemaGroupContentItem(3, "c", 0);
    EXPECT_EQ(repo.analysis.VXAnalyseGetIssueItemCount(), 3u);
    EXPECT_EQ(repo.analysis.VXAnalyseGetSanitisationItemCount(), 1u);
    EXPECT_EQ(repo.analysis.VXAnalyseGetRemedyItemCount(), 1u);
    EXPECT_EQ(repo.analysis.VXAnalyseGetItemCount(static_cast<DocumentAnalysis::eContentTypes_t>(9)), 0u);
}

TEST(RepositoryQueries, FirstDescriptionIsTheEarliestRecordLowestGroupWinningAKey)
{
    OpenRepository repo;
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstIssueDesc(), "");
    repo.analysis.VXAnalyseSchemaGroupIssue(9, "dup", 0, 1);       // index 0
    repo.analysis.VXAnalyseSchemaGroupIssue(5, "other\r\n", 0, 1); // index 1
    repo.analysis.VXAnalyseSchemaGroupIssue(3, "dup", 0, 1);       // index 2
    // Group 3 holds "dup" with index 2, so the earliest record is "other".
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstIssueDesc(), "other");

    repo.analysis.VXAnalyseSchemaGroupRemedy(4, "late", 0);
    repo.analysis.VXAnalyseSchemaGroupRemedy(8, "early [FAILURE_LOG x]", 0);
    repo.analysis.VXAnalyseSchemaGroupRemedy(4, "late", 0); // a repeat takes a new index
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstDesc(DocumentAnalysis::eRemedyItems),
              "early [FAILURE_LOG x]");
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstDesc(DocumentAnalysis::eSanitisationItems), "");
}

// --- internal errors and failure output ---------------------------------------------------

TEST(RepositoryErrors, DestructionLogsEveryInternalErrorOldestFirst)
{
    LogCapture log;
    {
        OpenRepository repo;
        repo.analysis.CloseFileAnalysis();
        repo.analysis.reportInternalError("second \"quoted\"");
        repo.analysis.reportInternalError(nullptr);
        EXPECT_TRUE(log.messages().isEmpty()) << "errors are logged only when the repository goes";
    }
    EXPECT_EQ(log.messages(),
              (QStringList{QStringLiteral("\"DocumentAnalysis Internal Error:\""),
                           QStringLiteral("\"Error: DocumentAnalysis::CloseFileAnalysis not implemented\""),
                           QStringLiteral("\"\\n\""),
                           QStringLiteral("\"DocumentAnalysis Internal Error:\""),
                           QStringLiteral("\"second \\\"quoted\\\"\""),
                           QStringLiteral("\"\\n\"")}));
}

TEST(RepositoryErrors, DumpAndFailureDocument)
{
    DocumentAnalysis analysis;
    analysis.reportInternalError("one");
    analysis.reportInternalError("two <&>");

    MemoryBuffer dump;
    analysis.dumpInternalErrors(&dump);
    EXPECT_EQ(bufferText(dump), "one\ntwo <&>\n");

    MemoryBuffer failure;
    analysis.reportFailCreation(&failure);
    EXPECT_EQ(bufferText(failure), kFailureProlog + "one\ntwo <&>\n\n</vx:CorvidInfo>\n");
}

TEST(RepositoryReport, WithoutADocumentTheFailureDocumentIsWritten)
{
    DocumentAnalysis analysis;
    MemoryBuffer out;
    EXPECT_EQ(analysis.WriteReport(&out, 1), 0u);
    EXPECT_EQ(bufferText(out), kFailureProlog + "XML Analysis not run!\n\n</vx:CorvidInfo>\n");
}

TEST(RepositoryReport, RefusedOutputsAreInternalErrors)
{
    OpenRepository repo;
    EXPECT_EQ(repo.analysis.WriteReport(nullptr, 0), 0u);

    MemoryBuffer used;
    const unsigned char byte = 'x';
    used.putRawBytes(&byte, 1);
    EXPECT_EQ(repo.analysis.WriteReport(&used, 0), 0u);
    EXPECT_EQ(bufferText(used), "x");

    MemoryBuffer fixed;
    fixed.allowBufferExpansion(false);
    EXPECT_EQ(repo.analysis.WriteReport(&fixed, 0), 0u);
    EXPECT_EQ(fixed.sizeOfMB(), 0u);

    EXPECT_EQ(repo.analysis.internalErrors(),
              (std::vector<std::string>{"Error: DocumentAnalysis::WriteReport - outBuf null",
                                        "outBuf->start == NULL", "Unable to save analysis report"}));
}

TEST(RepositoryReport, OnlyTheFirstDocumentIsReported)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseSchemaGroupIssue(7, "outer issue", 0, 1);
    repo.analysis.AddFileAnalysis("inner", "t", "v", 0, "");
    repo.analysis.VXAnalyseSchemaGroupIssue(7, "inner issue", 0, 1);

    MemoryBuffer out;
    const uint32_t written = repo.analysis.WriteReport(&out, 1);
    const std::string report = bufferText(out);
    EXPECT_EQ(written, report.size());
    EXPECT_EQ(xmlProblem(report), QString());
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:TechnicalDescription")),
              QStringList{QStringLiteral("outer issue")});
}
