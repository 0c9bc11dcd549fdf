#include "analysis/RepositoryComponents.h"

#include "buffers/MemoryBuffer.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "reportxml.h"

#include <gtest/gtest.h>

#include <iterator>
#include <limits>

using namespace RepositoryComponents;

namespace {

// A repository with its first document open, as a session makes it.
struct OpenRepository
{
    OpenRepository() { analysis.AddFileAnalysis("docname", "doctype", "Not Applicable", 0, ""); }
    const ContentGroup &group(short id) const { return *analysis.currentDocument()->contentGroups().at(id); }
    DocumentAnalysis analysis;
};

} // namespace

TEST(RepositoryRecords, RepeatsUpdateOneRecordsCountersAndTakeTheLatestIndexAndId)
{
    OpenRepository repo;
    for (unsigned long size : {10ul, 30ul, 20ul})
        repo.analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project", size);
    ASSERT_EQ(repo.group(275).contentItems().size(), 1u);
    const ContentItem &item = *repo.group(275).contentItems().at("VBA project");
    EXPECT_EQ((std::vector<uint64_t>{item.instanceCount(), item.totalSize(), item.averageSize(), item.minSize(),
                                     item.maxSize(), item.itemIndex()}),
              (std::vector<uint64_t>{3, 60, 20, 10, 30, 2}))
        << "count, total, average, min, max, and the index of the third addition";
    repo.analysis.VXAnalyseSchemaGroupSanitize(3, "s", 1, 11);
    repo.analysis.VXAnalyseSchemaGroupSanitize(3, "s", 2, 12);
    repo.analysis.VXAnalyseSchemaGroupIssue(3, "i", 0, 21);
    repo.analysis.VXAnalyseSchemaGroupIssue(3, "i", 0, 22);
    repo.analysis.VXAnalyseSchemaGroupIssue(9, "i", 0, 23);
    EXPECT_EQ(repo.group(3).sanitisationItems().at("s")->sanitisationId(), 12u);
    EXPECT_EQ(repo.group(3).sanitisationItems().at("s")->averageSize(), 1u) << "an integer division";
    EXPECT_EQ(repo.group(3).issueItems().at("i")->issueId(), 22u);
    EXPECT_EQ(repo.group(9).issueItems().at("i")->itemIndex(), 7u) << "one record per group and key";
    const unsigned long huge = std::numeric_limits<unsigned long>::max();
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "big", huge);
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "big", huge);
    EXPECT_EQ(repo.group(1).contentItems().at("big")->totalSize(), std::numeric_limits<uint64_t>::max());
}

TEST(RepositoryRecords, KeyedByRawTextDescribedByCleanedText)
{
    const struct
    {
        std::string raw, described, issueDescribed; // only issues lose a failure log
    } cases[] = {
        {"text\n\r\n\r", "text", "text"},
        {"\r\n", "", ""},
        {"a\r\nb \t\r\n", "a#0d#0ab #09", "a#0d#0ab #09"},
        {std::string(" ~\0\x1f\x7f\x80\xff#", 8), " ~#00#1f#7f#80#ff#", " ~#00#1f#7f#80#ff#"},
        {"Bad [FAILURE_LOG at 0x10] in", "Bad [FAILURE_LOG at 0x10] in", "Bad  in"},
        {"x [FAILURE_LOG no end", "x [FAILURE_LOG no end", "x [FAILURE_LOG no end"},
        {"] a [FAILURE_LOG 1] b [FAILURE_LOG 2] c", "] a [FAILURE_LOG 1] b [FAILURE_LOG 2] c", "] a  b [FAILURE_LOG 2] c"},
        {"x [FAILURE_LOG]\r\n", "x [FAILURE_LOG]", "x "},
    };
    OpenRepository repo;
    for (const auto &c : cases) {
        repo.analysis.VXAnalyseSchemaGroupContentItem(1, c.raw, 0);
        repo.analysis.VXAnalyseSchemaGroupSanitize(1, c.raw, 0, 0);
        repo.analysis.VXAnalyseSchemaGroupRemedy(1, c.raw, 0);
        repo.analysis.VXAnalyseSchemaGroupIssue(1, c.raw, 0, 0);
        const ContentGroup &group = repo.group(1);
        EXPECT_EQ((std::vector<std::string>{group.contentItems().at(c.raw)->description(),
                                            group.sanitisationItems().at(c.raw)->description(),
                                            group.remedyItems().at(c.raw)->description(),
                                            group.issueItems().at(c.raw)->description()}),
                  (std::vector<std::string>{c.described, c.described, c.described, c.issueDescribed}))
            << "content, sanitisation, remedy, issue descriptions of raw \"" << c.raw << "\"";
    }
    repo.analysis.VXAnalyseSchemaGroupContentItem(1, "text", 0);
    EXPECT_EQ(repo.group(1).contentItems().size(), std::size(cases) + 1) << "\"text\" is a key of its own";

    char text[32] = "tab\there\xe9\r\n";
    BrightmoorChangeControlCodes(text);
    EXPECT_STREQ(text, "tab#09here#e9");
    BrightmoorChangeControlCodes(nullptr);
}

TEST(RepositoryRecords, IssueRangesKeepTheFirstDescriptionAndExtractedTextsAreNumbered)
{
    OpenRepository repo;
    repo.analysis.VXAnalyseIssueInfoInsert(5, 9, "first");
    repo.analysis.VXAnalyseIssueInfoInsert(5, 9, "second");
    repo.analysis.VXAnalyseIssueInfoInsert(5, 10, "wider");
    repo.analysis.VXAnalyseIssueInfoInsert(4, 100, "earlier");
    const DocumentStatistics::IssueInformationMap expected = {
        {{4, 100}, "earlier"}, {{5, 9}, "first"}, {{5, 10}, "wider"}};
    EXPECT_EQ(repo.analysis.currentDocument()->issueInformation(), expected);

    for (unsigned long offset : {100ul, 200ul, 300ul})
        repo.analysis.VXAnalyseSchemaExtractedText(offset, "stream", "UTF-8");
    repo.analysis.VXAnalyseSchemaExtractedImage(400, "pic", 77, "image/png");
    const DocumentStatistics *first = repo.analysis.currentDocument();
    repo.analysis.AddFileAnalysis("inner", "t", "v", 0, nullptr);
    repo.analysis.VXAnalyseSchemaExtractedText(5, "inner stream", "ASCII");
    ASSERT_EQ(first->extractedItemCount(), 3u) << "texts only";
    EXPECT_EQ(first->extractedTexts()[2].m_itemIndex, 3u);
    EXPECT_EQ(first->extractedImageCount(), 1u);
    EXPECT_EQ(repo.analysis.currentDocument()->extractedTexts().at(0).m_itemIndex, 1u) << "numbered per document";
}

TEST(RepositoryDocuments, MissingArgumentsAreRefusedAndLogged)
{
    const char *const cases[][4] = {
        {nullptr, nullptr, nullptr, "\"Analysis pointer not initialised - DocumentName\""},
        {"n", nullptr, nullptr, "\"Analysis pointer not initialised - DocumentType\""},
        {"n", "t", nullptr, "\"Analysis pointer not initialised - DocumentVersion\""},
    };
    for (const auto &c : cases) {
        LogCapture log;
        DocumentAnalysis analysis;
        EXPECT_EQ(analysis.AddFileAnalysis(c[0], c[1], c[2], 1, "m"), 162u) << c[3];
        EXPECT_EQ(analysis.firstDocument(), nullptr) << c[3];
        EXPECT_EQ(log.messages(), QStringList{QString::fromLatin1(c[3])});
    }
}

TEST(RepositoryDocuments, LaterDocumentsNestAndAreNotReported)
{
    OpenRepository repo;
    DocumentStatistics *outer = repo.analysis.currentDocument();
    repo.analysis.VXAnalyseSchemaGroupIssue(7, "outer issue", 0, 1);
    repo.analysis.AddFileAnalysis("a", "t", "v", 1, nullptr);
    DocumentStatistics *a = repo.analysis.currentDocument();
    repo.analysis.AddFileAnalysis("b", "t", "v", 1, nullptr);
    repo.analysis.VXAnalyseSchemaGroupIssue(7, "inner issue", 0, 1);
    EXPECT_EQ(a->parent(), outer);
    EXPECT_EQ(repo.analysis.currentDocument()->parent(), a) << "without closing, every document nests deeper";
    EXPECT_EQ(repo.analysis.firstDocument(), outer);
    MemoryBuffer out;
    repo.analysis.WriteReport(&out, 1);
    EXPECT_EQ(xmlValues(bufferText(out), "vx:TechnicalDescription"), QStringList{"outer issue"});
}

TEST(RepositoryDocuments, WithoutADocumentRecordingAnswers182AndChangesNothing)
{
    // Far deeper than recursive destructors could go on a default stack.
    DocumentAnalysis analysis;
    for (int i = 0; i < 200000; ++i)
        ASSERT_EQ(analysis.AddFileAnalysis("d", "t", "v", 0, nullptr), 0u);
    analysis.ClearAllDocuments();
    EXPECT_EQ(analysis.currentDocument(), nullptr);
    const uint32_t answers[] = {
        analysis.VXAnalyseSchemaFile("t", "v", 1), analysis.VXAnalyseSchemaGroupContentItem(1, "d", 1),
        analysis.VXAnalyseSchemaGroupSanitize(1, "d", 1, 1), analysis.VXAnalyseSchemaGroupRemedy(1, "d", 1),
        analysis.VXAnalyseSchemaGroupIssue(1, "d", 1, 1), analysis.VXAnalyseIssueInfoInsert(1, 2, "d"),
        analysis.VXAnalyseSchemaExtractedText(1, "l", "e"), analysis.VXAnalyseSchemaExtractedImage(1, "l", 1, "m")};
    for (size_t i = 0; i < std::size(answers); ++i)
        EXPECT_EQ(answers[i], 182u) << "call " << i;
    analysis.ChangeVersionOfCurrentDocument("v");
    EXPECT_EQ(analysis.VXAnalyseGetIssueItemCount(), 0u);
    EXPECT_EQ(analysis.VXAnalyseGetFirstIssueDesc(), "");
    EXPECT_FALSE(analysis.anyInternalErrorsOccured());
    EXPECT_EQ(analysis.AddFileAnalysis("again", "t", "v", 0, ""), 0u);
    EXPECT_EQ(analysis.firstDocument()->name(), "again");
}

TEST(RepositoryQueries, CountsAndFirstDescriptions)
{
    OpenRepository repo;
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstIssueDesc(), "");
    repo.analysis.VXAnalyseSchemaGroupIssue(9, "dup", 0, 1);       // index 0
    repo.analysis.VXAnalyseSchemaGroupIssue(5, "other\r\n", 0, 1); // index 1
    repo.analysis.VXAnalyseSchemaGroupIssue(3, "dup", 0, 1);       // index 2
    repo.analysis.VXAnalyseSchemaGroupIssue(3, "dup", 0, 1);       // index 3
    // Group 3 holds "dup" with index 3, so the earliest record is "other".
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstIssueDesc(), "other");
    EXPECT_EQ(repo.analysis.VXAnalyseGetIssueItemCount(), 3u);
    repo.analysis.VXAnalyseSchemaGroupRemedy(4, "late", 0);
    repo.analysis.VXAnalyseSchemaGroupRemedy(8, "early [FAILURE_LOG x]", 0);
    repo.analysis.VXAnalyseSchemaGroupRemedy(4, "late", 0); // a repeat takes a new index
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstDesc(DocumentAnalysis::eRemedyItems), "early [FAILURE_LOG x]");
    EXPECT_EQ(repo.analysis.VXAnalyseGetRemedyItemCount(), 2u);
    EXPECT_EQ(repo.analysis.VXAnalyseGetFirstDesc(DocumentAnalysis::eSanitisationItems), "");
    EXPECT_EQ(repo.analysis.VXAnalyseGetSanitisationItemCount(), 0u);
    EXPECT_EQ(repo.analysis.VXAnalyseGetItemCount(static_cast<DocumentAnalysis::eContentTypes_t>(9)), 0u);
}

TEST(RepositoryErrors, RefusedCallsAreRecordedAndLoggedOnDestruction)
{
    const std::vector<std::string> errors = {
        "Error: DocumentAnalysis::CloseFileAnalysis not implemented",
        "Error: DocumentAnalysis::DiscardFileAnalysis not implemented",
        "Error: DocumentAnalysis::ChangeVersionOfCurrentDocument - DocumentVersion null",
        "Error: DocumentAnalysis::WriteReport - outBuf null", "outBuf->start == NULL",
        "Unable to save analysis report"};
    LogCapture log;
    {
        OpenRepository repo;
        repo.analysis.CloseFileAnalysis();
        repo.analysis.DiscardFileAnalysis();
        repo.analysis.ChangeVersionOfCurrentDocument(nullptr);
        EXPECT_EQ(repo.analysis.currentDocument()->summary().version(), "Not Applicable");
        EXPECT_EQ(repo.analysis.WriteReport(nullptr, 0), 0u);
        MemoryBuffer used;
        used.putRawBytes("x", 1);
        EXPECT_EQ(repo.analysis.WriteReport(&used, 0), 0u);
        EXPECT_EQ(bufferText(used), "x") << "the report goes only into an empty buffer";
        MemoryBuffer fixed;
        fixed.allowBufferExpansion(false);
        EXPECT_EQ(repo.analysis.WriteReport(&fixed, 0), 0u);
        repo.analysis.reportInternalError(nullptr);
        EXPECT_EQ(repo.analysis.internalErrors(), errors);
        EXPECT_TRUE(log.messages().isEmpty()) << "errors are logged only when the repository goes";
    }
    QStringList expected;
    for (const std::string &error : errors)
        expected << "\"DocumentAnalysis Internal Error:\"" << QStringLiteral("\"%1\"").arg(error.c_str()) << "\"\\n\"";
    EXPECT_EQ(log.messages(), expected);
}

TEST(RepositoryErrors, WithoutADocumentTheFailureDocumentIsWritten)
{
    DocumentAnalysis analysis;
    analysis.reportInternalError("one <&>");
    MemoryBuffer out;
    EXPECT_EQ(analysis.WriteReport(&out, 1), 0u);
    EXPECT_EQ(bufferText(out),
              "<?xml version=\"1.0\" encoding=\"utf - 8\"?><vx:CorvidInfo "
              "xsi:schemaLocation=\"http://vxcore.example/namespace/corvidInfo.xsd\" "
              "xmlns:xsi = \"http://www.w3.org/2001/XMLSchema-instance\" "
              "xmlns:vx=\"http://vxcore.example/namespace\">Reporting System Failed\n"
              "one <&>\nXML Analysis not run!\n\n</vx:CorvidInfo>\n");
}
