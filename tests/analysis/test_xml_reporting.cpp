#include "analysis/XML_Reporting.h"

#include "buffers/MemoryBuffer.h"
#include "qtprinters.h"
#include "reportxml.h"

#include <gtest/gtest.h>

#include <regex>

using namespace RepositoryComponents;

namespace {

// Every report a test writes must count its bytes and be well-formed.
std::string writeReport(DocumentAnalysis &analysis, bool detailed)
{
    MemoryBuffer out;
    const uint32_t written = analysis.WriteReport(&out, detailed ? 1 : 0);
    const std::string report = bufferText(out);
    EXPECT_EQ(written, report.size());
    EXPECT_EQ(xmlValues(report, {}), QStringList()) << report;
    return report;
}

// The detailed report of the sample in the first test. Issue-information groups
// are not containers, so their children follow their open tags on one line;
// empty elements get no newline of their own.
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
    "\t\t<vx:ContentGroups groupCount=\"1\">\n"
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

} // namespace

TEST(XmlReport, SampleReportByteForByteWithAndWithoutContentItems)
{
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("sample.doc", "ft_doc", "Word 97-2003", 4096, "structure match");
    analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project\r\n", 100);
    analysis.VXAnalyseSchemaGroupContentItem(275, "VBA project\r\n", 300);
    analysis.VXAnalyseSchemaGroupSanitize(275, "Macro removed\tfrom body", 50, 16777507);
    analysis.VXAnalyseSchemaGroupRemedy(275, "Fixed <header> & length", 5);
    analysis.VXAnalyseSchemaGroupIssue(275, "Bad length [FAILURE_LOG at 0x10] in stream", 0, 96);
    analysis.VXAnalyseIssueInfoInsert(5, 9, "Header issues");
    analysis.VXAnalyseSchemaExtractedText(1024, "WordDocument", "UTF-16LE");
    analysis.VXAnalyseSchemaExtractedImage(2048, "Data/image1", 3, "image/png");
    EXPECT_EQ(writeReport(analysis, true), kSampleReport);
    const std::regex contentItems("\t*<vx:ContentItems[^>]*>[\\s\\S]*?</vx:ContentItems>\n");
    EXPECT_EQ(writeReport(analysis, false), std::regex_replace(kSampleReport, contentItems, ""));
    EXPECT_FALSE(analysis.anyInternalErrorsOccured());
}

TEST(XmlReport, GroupsByIdItemsByRawKeyEmptyListsCollapse)
{
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, "");
    EXPECT_NE(writeReport(analysis, true)
                  .find("\t\t</vx:DocumentSummary>\n\t\t<vx:ContentGroups groupCount=\"0\" />\n"
                        "\t\t<vx:ExtractedItems itemCount=\"0\" />\n\t</vx:DocumentStatistics>\n"),
              std::string::npos)
        << "empty lists, and no detection method when there is none";
    for (const short group : {275, 3, -5, 1})
        analysis.VXAnalyseSchemaGroupSanitize(group, "s", 0, 0);
    for (const char *key : {"b", "a\r\n", "B", "a"})
        analysis.VXAnalyseSchemaGroupIssue(3, key, 0, 0);
    const std::string report = writeReport(analysis, false);
    EXPECT_EQ(xmlValues(report, "vx:BriefDescription"),
              (QStringList{"missing description for eAnalysisStatsID_t -5",
                           "missing description for eAnalysisStatsID_t 1", "PDF-1.0", "Macro Instances"}));
    // Issues of group 3 in byte order of the raw keys "B" "a" "a\r\n" "b".
    QStringList texts = xmlValues(report, "vx:TechnicalDescription");
    texts.removeAll("s");
    EXPECT_EQ(texts, (QStringList{"B", "a", "a", "b"}));
    EXPECT_EQ(xmlValues(report, "vx:RemedyItems", "itemCount"), (QStringList{"0", "0", "0", "0"}));
}

TEST(XmlReport, ReportsLargerThanOneWritePieceStayWhole)
{
    // Records are written one at a time; thousands cross several block boundaries.
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, "");
    for (int i = 0; i < 12000; ++i)
        analysis.VXAnalyseSchemaGroupIssue(5, "issue " + std::to_string(100000 + i), i, i);
    const std::string report = writeReport(analysis, true);
    EXPECT_GT(report.size(), 2u << 20);
    const QStringList ids = xmlValues(report, "vx:IssueId");
    ASSERT_EQ(ids.size(), 12000);
    EXPECT_EQ(ids.first() + " " + ids.last(), "0 11999");
}

TEST(XmlReport, HostileTextsStayText)
{
    // Summary texts, locations, encodings, range descriptions and meta values
    // are not cleaned like record descriptions; whatever they hold, the report
    // parses, well-formed UTF-8 stays as it is and the rest is written as #xx.
    const std::pair<std::string, QString> cases[] = {
        {"<vx:IssueItem /> \"quoted\" 'single' &amp;", QStringLiteral("<vx:IssueItem /> \"quoted\" 'single' &amp;")},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", QString::fromUtf8("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80")},
        {std::string("nul\0byte", 8), "nul#00byte"},
        {"ctl\x01\x1f", "ctl#01#1f"},
        {"lone \xff and cut \xc3", "lone #ff and cut #c3"},
        {"overlong \xc0\x80", "overlong #c0#80"},
        {"surrogate \xed\xa0\x80", "surrogate #ed#a0#80"},
        {"beyond \xf4\x90\x80\x80", "beyond #f4#90#80#80"},
        {"nonchar \xef\xbf\xbe", "nonchar #ef#bf#be"},
    };
    const std::pair<const char *, const char *> places[] = {{"vx:FileType", nullptr}, {"vx:Version", nullptr},
        {"vx:GroupDescription", nullptr}, {"vx:Encoding", nullptr}, {"vx:Meta", "meta"}};
    for (const auto &[given, read] : cases) {
        DocumentAnalysis analysis;
        analysis.AddFileAnalysis("name", "t", "v", 0, "");
        analysis.VXAnalyseSchemaFile(given, given, 1);
        analysis.VXAnalyseIssueInfoInsert(1, 2, given);
        analysis.VXAnalyseSchemaExtractedText(0, given, given);
        analysis.VXAnalyseSchemaExtractedImage(0, given, 9, given);
        const std::string report = writeReport(analysis, true);
        for (const auto &[element, attribute] : places)
            EXPECT_EQ(xmlValues(report, element, attribute), QStringList{read}) << element << " of " << given;
        EXPECT_EQ(xmlValues(report, "vx:ExtractedItem", "location"), (QStringList{read, read})) << given;
    }
    // Meta keys that cannot be attribute names are left out.
    DocumentAnalysis analysis;
    analysis.AddFileAnalysis("d", "t", "v", 0, "");
    ExtractedImage image;
    image.m_meta = {{"width", "10"}, {"bad key", "x"}, {"1st", "x"}, {"", "x"}, {"a:b", "x"}, {"_h-1.2", "y"}};
    analysis.currentDocument()->addExtractedItem(image);
    EXPECT_NE(writeReport(analysis, false).find("<vx:Meta _h-1.2=\"y\" width=\"10\" />"), std::string::npos);
}
