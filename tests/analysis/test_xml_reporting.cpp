#include "analysis/XML_Reporting.h"

#include "buffers/MemoryBuffer.h"
#include "qtprinters.h"
#include "reportxml.h"

#include <gtest/gtest.h>

#include <memory>

using namespace RepositoryComponents;
using XML_Reporting::XmlWriter;

namespace {

// Writes the report into a fresh buffer and checks what every report must
// satisfy: the result counts the bytes written and the text is well-formed.
std::string writeReport(DocumentAnalysis &analysis, bool detailed)
{
    MemoryBuffer out;
    const uint32_t written = analysis.WriteReport(&out, detailed ? 1 : 0);
    const std::string report = bufferText(out);
    EXPECT_EQ(written, report.size());
    EXPECT_EQ(xmlProblem(report), QString()) << report;
    return report;
}

// One group with a record of each kind, a second group with an issue, an
// issue-information range, an extracted text and an extracted image.
void fillSample(DocumentAnalysis &analysis)
{
    analysis.AddFileAnalysis("sample.doc", "ft_doc", "Word 97-2003", 4096, "structure match");
    analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project\r\n", 100);
    analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project\r\n", 300);
    analysis.VXAnalyseSchemaGroupSanitize(275, "Macro removed\tfrom body", 50, 16777507);
    analysis.VXAnalyseSchemaGroupRemedy(275, "Fixed <header> & length", 5);
    analysis.VXAnalyseSchemaGroupIssue(275, "Bad length [FAILURE_LOG at 0x10] in stream", 0, 96);
    analysis.VXAnalyseSchemaGroupIssue(3, "Trailer missing", 0, 97);
    analysis.VXAnalyseIssueInfoInsert(5, 9, "Header issues");
    analysis.VXAnalyseSchemaExtractedText(1024, "WordDocument", "UTF-16LE");
    analysis.VXAnalyseSchemaExtractedImage(2048, "Data/image1", 3, "image/png");
}

// The whole detailed report of fillSample. Issue-information groups are not
// containers, so their children follow their open tags on one line; empty
// elements get no newline of their own, so the next tag follows on their line.
const std::string kSampleReport =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<vx:CorvidInfo xsi:schemaLocation=\"http://vxcore.example/namespace/corvidInfo.xsd\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:vx=\"http://vxcore.example/namespace\">\n"
    "\t<vx:DocumentStatistics>\n"
    "\t\t<vx:DocumentSummary>\n"
    "\t\t\t<vx:TotalSizeInBytes>4096</vx:TotalSizeInBytes>\n"
    "\t\t\t<vx:FileType>ft_doc</vx:FileType>\n"
    "\t\t\t<vx:Version>Word 97-2003</vx:Version>\n"
    "\t\t\t<vx:FileTypeDetectionMethod>structure match</vx:FileTypeDetectionMethod>\n"
    "\t\t</vx:DocumentSummary>\n"
    "\t\t<vx:IssueInformationGroups>\t\t\t<vx:IssueInformationGroup>\t\t\t\t<vx:IssueIDRangeStart>5</vx:IssueIDRangeStart>\n"
    "\t\t\t\t<vx:IssueIDRangeEnd>9</vx:IssueIDRangeEnd>\n"
    "\t\t\t\t<vx:GroupDescription>Header issues</vx:GroupDescription>\n"
    "</vx:IssueInformationGroup>\n"
    "</vx:IssueInformationGroups>\n"
    "\t\t<vx:ContentGroups groupCount=\"2\">\n"
    "\t\t\t<vx:ContentGroup>\n"
    "\t\t\t\t<vx:BriefDescription>PDF-1.0</vx:BriefDescription>\n"
    "\t\t\t\t<vx:ContentItems itemCount=\"0\" />\n"
    "\t\t\t\t<vx:SanitisationItems itemCount=\"0\" />\n"
    "\t\t\t\t<vx:RemedyItems itemCount=\"0\" />\n"
    "\t\t\t\t<vx:IssueItems itemCount=\"1\">\n"
    "\t\t\t\t\t<vx:IssueItem>\n"
    "\t\t\t\t\t\t<vx:TechnicalDescription>Trailer missing</vx:TechnicalDescription>\n"
    "\t\t\t\t\t\t<vx:IssueId>97</vx:IssueId>\n"
    "\t\t\t\t\t\t<vx:InstanceCount>1</vx:InstanceCount>\n"
    "\t\t\t\t\t\t<vx:RiskLevel />\t\t\t\t\t</vx:IssueItem>\n"
    "\t\t\t\t</vx:IssueItems>\n"
    "\t\t\t</vx:ContentGroup>\n"
    "\t\t\t<vx:ContentGroup>\n"
    "\t\t\t\t<vx:BriefDescription>Macro Instances</vx:BriefDescription>\n"
    "\t\t\t\t<vx:ContentItems itemCount=\"1\">\n"
    "\t\t\t\t\t<vx:ContentItem>\n"
    "\t\t\t\t\t\t<vx:TechnicalDescription>VBA project</vx:TechnicalDescription>\n"
    "\t\t\t\t\t\t<vx:InstanceCount>2</vx:InstanceCount>\n"
    "\t\t\t\t\t\t<vx:TotalSizeInBytes>400</vx:TotalSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:AverageSizeInBytes>200</vx:AverageSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:MinSizeInBytes>100</vx:MinSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:MaxSizeInBytes>300</vx:MaxSizeInBytes>\n"
    "\t\t\t\t\t</vx:ContentItem>\n"
    "\t\t\t\t</vx:ContentItems>\n"
    "\t\t\t\t<vx:SanitisationItems itemCount=\"1\">\n"
    "\t\t\t\t\t<vx:SanitisationItem>\n"
    "\t\t\t\t\t\t<vx:TechnicalDescription>Macro removed#09from body</vx:TechnicalDescription>\n"
    "\t\t\t\t\t\t<vx:SanitisationId>16777507</vx:SanitisationId>\n"
    "\t\t\t\t\t\t<vx:InstanceCount>1</vx:InstanceCount>\n"
    "\t\t\t\t\t\t<vx:TotalSizeInBytes>50</vx:TotalSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:AverageSizeInBytes>50</vx:AverageSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:MinSizeInBytes>50</vx:MinSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:MaxSizeInBytes>50</vx:MaxSizeInBytes>\n"
    "\t\t\t\t\t</vx:SanitisationItem>\n"
    "\t\t\t\t</vx:SanitisationItems>\n"
    "\t\t\t\t<vx:RemedyItems itemCount=\"1\">\n"
    "\t\t\t\t\t<vx:RemedyItem>\n"
    "\t\t\t\t\t\t<vx:TechnicalDescription>Fixed &lt;header&gt; &amp; length</vx:TechnicalDescription>\n"
    "\t\t\t\t\t\t<vx:InstanceCount>1</vx:InstanceCount>\n"
    "\t\t\t\t\t</vx:RemedyItem>\n"
    "\t\t\t\t</vx:RemedyItems>\n"
    "\t\t\t\t<vx:IssueItems itemCount=\"1\">\n"
    "\t\t\t\t\t<vx:IssueItem>\n"
    "\t\t\t\t\t\t<vx:TechnicalDescription>Bad length  in stream</vx:TechnicalDescription>\n"
    "\t\t\t\t\t\t<vx:IssueId>96</vx:IssueId>\n"
    "\t\t\t\t\t\t<vx:InstanceCount>1</vx:InstanceCount>\n"
    "\t\t\t\t\t\t<vx:RiskLevel />\t\t\t\t\t</vx:IssueItem>\n"
    "\t\t\t\t</vx:IssueItems>\n"
    "\t\t\t</vx:ContentGroup>\n"
    "\t\t</vx:ContentGroups>\n"
    "\t\t<vx:ExtractedItems itemCount=\"2\">\n"
    "\t\t\t<vx:ExtractedItem offset=\"1024\" itemIndex=\"1\" location=\"WordDocument\">\n"
    "\t\t\t\t<vx:ExtractedText>\n"
    "\t\t\t\t\t<vx:Encoding>UTF-16LE</vx:Encoding>\n"
    "\t\t\t\t</vx:ExtractedText>\n"
    "\t\t\t</vx:ExtractedItem>\n"
    "\t\t\t<vx:ExtractedItem offset=\"2048\" itemIndex=\"3\" location=\"Data/image1\">\n"
    "\t\t\t\t<vx:ExtractedImage>\n"
    "\t\t\t\t\t<vx:Meta meta=\"image/png\" />\t\t\t\t</vx:ExtractedImage>\n"
    "\t\t\t</vx:ExtractedItem>\n"
    "\t\t</vx:ExtractedItems>\n"
    "\t</vx:DocumentStatistics>\n"
    "</vx:CorvidInfo>\n";

const std::string kEmptyContentItems = "\t\t\t\t<vx:ContentItems itemCount=\"0\" />\n";
const std::string kContentItemsBlock =
    "\t\t\t\t<vx:ContentItems itemCount=\"1\">\n"
    "\t\t\t\t\t<vx:ContentItem>\n"
    "\t\t\t\t\t\t<vx:TechnicalDescription>VBA project</vx:TechnicalDescription>\n"
    "\t\t\t\t\t\t<vx:InstanceCount>2</vx:InstanceCount>\n"
    "\t\t\t\t\t\t<vx:TotalSizeInBytes>400</vx:TotalSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:AverageSizeInBytes>200</vx:AverageSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:MinSizeInBytes>100</vx:MinSizeInBytes>\n"
    "\t\t\t\t\t\t<vx:MaxSizeInBytes>300</vx:MaxSizeInBytes>\n"
    "\t\t\t\t\t</vx:ContentItem>\n"
    "\t\t\t\t</vx:ContentItems>\n";

} // namespace

// --- whole reports ---------------------------------------------------------------------

TEST(XmlReport, DetailedSampleReportByteForByte)
{
    DocumentAnalysis analysis;
    fillSample(analysis);
    EXPECT_EQ(writeReport(analysis, true), kSampleReport);
    EXPECT_FALSE(analysis.anyInternalErrorsOccured());
}

TEST(XmlReport, WithoutTheDetailedFlagContentItemsAreLeftOut)
{
    DocumentAnalysis analysis;
    fillSample(analysis);
    std::string expected = kSampleReport;
    for (const std::string &block : {kEmptyContentItems, kContentItemsBlock}) {
        const size_t at = expected.find(block);
        ASSERT_NE(at, std::string::npos);
        expected.erase(at, block.size());
    }
    EXPECT_EQ(writeReport(analysis, false), expected);
}

TEST(XmlReport, DocumentWithoutRecordsByteForByte)
{
    // As a session opens its document: no detection method, so no element for it.
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("docname", "doctype", "Not Applicable", 0, "");
    EXPECT_EQ(writeReport(analysis, true),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<vx:CorvidInfo xsi:schemaLocation=\"http://vxcore.example/namespace/corvidInfo.xsd\" "
              "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
              "xmlns:vx=\"http://vxcore.example/namespace\">\n"
              "\t<vx:DocumentStatistics>\n"
              "\t\t<vx:DocumentSummary>\n"
              "\t\t\t<vx:TotalSizeInBytes>0</vx:TotalSizeInBytes>\n"
              "\t\t\t<vx:FileType>doctype</vx:FileType>\n"
              "\t\t\t<vx:Version>Not Applicable</vx:Version>\n"
              "\t\t</vx:DocumentSummary>\n"
              "\t\t<vx:ContentGroups groupCount=\"0\" />\n"
              "\t\t<vx:ExtractedItems itemCount=\"0\" />\n"
              "\t</vx:DocumentStatistics>\n"
              "</vx:CorvidInfo>\n");
}

TEST(XmlReport, TheReportGoesOnlyIntoAnEmptyBuffer)
{
    DocumentAnalysis analysis;
    fillSample(analysis);
    MemoryBuffer out;
    ASSERT_EQ(analysis.WriteReport(&out, 1), kSampleReport.size());
    EXPECT_EQ(analysis.WriteReport(&out, 1), 0u);
    EXPECT_EQ(bufferText(out), kSampleReport);
    EXPECT_EQ(analysis.internalErrors(), std::vector<std::string>{"outBuf->start == NULL"});
}

// --- ordering and vocabulary ------------------------------------------------------------

TEST(XmlReport, GroupsByIdItemsByRawKey)
{
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, "");
    for (const short group : {275, 3, -5, 1})
        analysis.VXAnalyseSchemaGroupSanitize(group, "s", 0, 0);
    for (const char *key : {"b", "a\r\n", "B", "a"})
        analysis.VXAnalyseSchemaGroupIssue(3, key, 0, 0);

    const std::string report = writeReport(analysis, false);
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:BriefDescription")),
              (QStringList{QStringLiteral("missing description for eAnalysisStatsID_t -5"),
                           QStringLiteral("missing description for eAnalysisStatsID_t 1"),
                           QStringLiteral("PDF-1.0"), QStringLiteral("Macro Instances")}));
    EXPECT_EQ(attributeValues(report, QStringLiteral("vx:ContentGroups"), QStringLiteral("groupCount")),
              QStringList{QStringLiteral("4")});
    // Issue descriptions of group 3 in byte order of the raw keys "B" "a" "a\r\n" "b".
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:IssueItem")).size(), 4);
    QStringList issueTexts;
    for (const QString &text : elementTexts(report, QStringLiteral("vx:TechnicalDescription")))
        if (text != QLatin1String("s"))
            issueTexts << text;
    EXPECT_EQ(issueTexts, (QStringList{"B", "a", "a", "b"}));
    // Empty lists are written with a count of 0.
    EXPECT_EQ(attributeValues(report, QStringLiteral("vx:RemedyItems"), QStringLiteral("itemCount")),
              (QStringList{"0", "0", "0", "0"}));
}

TEST(XmlReport, ReportsLargerThanOneWritePieceStayWhole)
{
    // Records are written one at a time into the report's blocks; thousands
    // of them cross several block boundaries.
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, "");
    const int records = 12000;
    for (int i = 0; i < records; ++i)
        analysis.VXAnalyseSchemaGroupIssue(5, "issue " + std::to_string(100000 + i), i, i);
    const std::string report = writeReport(analysis, true);
    EXPECT_GT(report.size(), 2u << 20);
    const QStringList ids = elementTexts(report, QStringLiteral("vx:IssueId"));
    ASSERT_EQ(ids.size(), records);
    EXPECT_EQ(ids.first(), QStringLiteral("0"));
    EXPECT_EQ(ids.last(), QString::number(records - 1));
}

TEST(XmlReport, TextsThatLookLikeTagsAreOnlyText)
{
    const std::string tagLike = "<vx:IssueItem />\n<vx:ContentItem />";
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, tagLike.c_str());
    analysis.VXAnalyseIssueInfoInsert(1, 2, tagLike);
    analysis.VXAnalyseSchemaGroupIssue(1, tagLike, 0, 1);
    analysis.VXAnalyseSchemaGroupContentItem(1, tagLike, 0);
    const std::string report = writeReport(analysis, true);
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:IssueItem")).size(), 1);
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:ContentItem")).size(), 1);
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:TechnicalDescription")),
              (QStringList{"<vx:IssueItem />#0a<vx:ContentItem />", "<vx:IssueItem />#0a<vx:ContentItem />"}));
    EXPECT_EQ(elementTexts(report, QStringLiteral("vx:GroupDescription")),
              QStringList{QString::fromStdString(tagLike)});
}

TEST(XmlReport, TextsTheCamerasGaveStayReadable)
{
    // Names, versions, locations, encodings and range descriptions are not
    // cleaned like record descriptions; whatever they hold, the report parses,
    // well-formed UTF-8 stays as it is and the rest is written as #xx.
    struct Case
    {
        std::string given;
        QString read;
    };
    const Case cases[] = {
        {"plain <&> \"quoted\" 'single'", QStringLiteral("plain <&> \"quoted\" 'single'")},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", QString::fromUtf8("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80")},
        {std::string("nul\0byte", 8), QStringLiteral("nul#00byte")},
        {"ctl\x01\x1f", QStringLiteral("ctl#01#1f")},
        {"lone \xff and cut \xc3", QStringLiteral("lone #ff and cut #c3")},
        {"overlong \xc0\x80", QStringLiteral("overlong #c0#80")},
        {"surrogate \xed\xa0\x80", QStringLiteral("surrogate #ed#a0#80")},
        {"beyond \xf4\x90\x80\x80", QStringLiteral("beyond #f4#90#80#80")},
        {"nonchar \xef\xbf\xbe", QStringLiteral("nonchar #ef#bf#be")},
    };
    for (const Case &c : cases) {
        DocumentAnalysis analysis;
        analysis.AddFileAnalysis(c.given.c_str(), "t", "v", 0, "");
        analysis.VXAnalyseSchemaFile(c.given, c.given, 1);
        analysis.VXAnalyseIssueInfoInsert(1, 2, c.given);
        analysis.VXAnalyseSchemaExtractedText(0, c.given, c.given);
        analysis.VXAnalyseSchemaExtractedImage(0, c.given, 9, c.given);
        const std::string report = writeReport(analysis, true);
        const QStringList once{c.read};
        const QStringList twice{c.read, c.read};
        EXPECT_EQ(elementTexts(report, QStringLiteral("vx:FileType")), once) << c.given;
        EXPECT_EQ(elementTexts(report, QStringLiteral("vx:Version")), once) << c.given;
        EXPECT_EQ(elementTexts(report, QStringLiteral("vx:GroupDescription")), once) << c.given;
        EXPECT_EQ(elementTexts(report, QStringLiteral("vx:Encoding")), once) << c.given;
        EXPECT_EQ(attributeValues(report, QStringLiteral("vx:ExtractedItem"), QStringLiteral("location")),
                  twice)
            << c.given;
        EXPECT_EQ(attributeValues(report, QStringLiteral("vx:Meta"), QStringLiteral("meta")), once) << c.given;
    }
}

TEST(XmlReport, MetaKeysThatCannotBeAttributeNamesAreLeftOut)
{
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, "");
    ExtractedImage image;
    image.m_meta = {{"width", "10"}, {"bad key", "x"}, {"1st", "x"}, {"", "x"}, {"a:b", "x"}, {"_h-1.2", "y"}};
    analysis.currentDocument()->addExtractedItem(image);
    const std::string report = writeReport(analysis, false);
    EXPECT_NE(report.find("<vx:Meta _h-1.2=\"y\" width=\"10\" />"), std::string::npos) << report;
}

// --- the layout callback -----------------------------------------------------------------

TEST(XmlWriterLayout, FindElementKnowsExactlyTheContainers)
{
    const char *containers[] = {
        "vx:CorvidInfo",      "vx:DocumentSummary", "vx:DocumentStatistics",     "vx:ContentGroups",
        "vx:ContentGroup",    "vx:IssueItems",      "vx:IssueItem",              "vx:ContentItems",
        "vx:ContentItem",     "vx:SanitisationItems", "vx:SanitisationItem",     "vx:RemedyItems",
        "vx:RemedyItem",      "vx:ContentManagementPolicy", "vx:Camera",         "vx:ContentSwitch",
        "vx:ExtractedItems",  "vx:ExtractedItem",   "vx:ExtractedText",          "vx:ExtractedImage",
    };
    for (const char *name : containers)
        EXPECT_TRUE(XmlWriter::findElement(name)) << name;
    const char *leaves[] = {"vx:IssueInformationGroups", "vx:IssueInformationGroup", "vx:RiskLevel",
                            "vx:Meta", "vx:contentgroup", "ContentGroup", "vx:ContentGroupsX", "", nullptr};
    for (const char *name : leaves)
        EXPECT_FALSE(XmlWriter::findElement(name)) << (name ? name : "(null)");
}

TEST(XmlWriterLayout, WhitespaceByPositionDepthAndKind)
{
    using Tree = std::unique_ptr<mxml_node_t, void (*)(mxml_node_t *)>;
    Tree document(mxmlNewXML("1.0"), mxmlDelete);
    // Ten nested containers under the document node: depths 0 to 9.
    std::vector<mxml_node_t *> chain;
    mxml_node_t *parent = document.get();
    for (int depth = 0; depth < 10; ++depth)
        chain.push_back(parent = mxmlNewElement(parent, "vx:ContentGroup"));
    mxml_node_t *leaf = mxmlNewElement(chain[2], "vx:FileType");
    mxml_node_t *text = mxmlNewText(leaf, 0, "x");

    const auto ws = [](mxml_node_t *node, int where) {
        const char *s = XmlWriter::whitespace_cb(node, where);
        return s ? std::string(s) : std::string("(null)");
    };
    EXPECT_EQ(ws(document.get(), MXML_WS_BEFORE_OPEN), "(null)");
    EXPECT_EQ(ws(document.get(), MXML_WS_AFTER_OPEN), "\n");
    EXPECT_EQ(ws(document.get(), MXML_WS_BEFORE_CLOSE), "(null)");
    EXPECT_EQ(ws(document.get(), MXML_WS_AFTER_CLOSE), "(null)");
    for (int depth = 0; depth < 10; ++depth) {
        const std::string tabs(std::min(depth, 8), '\t');
        EXPECT_EQ(ws(chain[depth], MXML_WS_BEFORE_OPEN), tabs) << "depth " << depth;
        EXPECT_EQ(ws(chain[depth], MXML_WS_AFTER_OPEN), "\n") << "depth " << depth;
        EXPECT_EQ(ws(chain[depth], MXML_WS_BEFORE_CLOSE), tabs) << "depth " << depth;
        EXPECT_EQ(ws(chain[depth], MXML_WS_AFTER_CLOSE), "\n") << "depth " << depth;
    }
    EXPECT_EQ(ws(leaf, MXML_WS_BEFORE_OPEN), "\t\t\t");
    EXPECT_EQ(ws(leaf, MXML_WS_AFTER_OPEN), "(null)");
    EXPECT_EQ(ws(leaf, MXML_WS_BEFORE_CLOSE), "(null)");
    EXPECT_EQ(ws(leaf, MXML_WS_AFTER_CLOSE), "\n");
    EXPECT_EQ(ws(text, MXML_WS_BEFORE_OPEN), "(null)");

    Tree orphan(mxmlNewElement(MXML_NO_PARENT, "vx:CorvidInfo"), mxmlDelete);
    EXPECT_EQ(ws(orphan.get(), MXML_WS_BEFORE_OPEN), "");
    EXPECT_EQ(ws(orphan.get(), MXML_WS_BEFORE_CLOSE), "");
}
