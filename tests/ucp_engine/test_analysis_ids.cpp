#include "ucp_engine/analysis.ids.h"

#include "qtprinters.h"

#include <gtest/gtest.h>

#include <set>

namespace {

QString describe(int id)
{
    return analysisSchema_GetString(static_cast<eAnalysisStatsID_t>(id));
}

} // namespace

TEST(AnalysisIdsTable, Holds415EntriesFrom0To464WithTheKnownGaps)
{
    const std::set<int> gaps = {1,   62,  63,  137, 138, 146, 147, 150, 151, 204, 205, 238, 239,
                                270, 271, 289, 290, 298, 299, 330, 331, 346, 347, 360, 362, 363,
                                380, 393, 394, 401, 402, 408, 409, 419, 420, 428, 429, 440, 441,
                                443, 444, 447, 448, 451, 452, 457, 458, 460, 461, 463};
    const auto &table = analysisSchemaStrings();
    EXPECT_EQ(table.size(), 415);
    EXPECT_EQ(table.firstKey(), 0);
    EXPECT_EQ(table.lastKey(), 464);
    for (int id = 0; id <= 464; ++id)
        EXPECT_EQ(table.contains(static_cast<eAnalysisStatsID_t>(id)), gaps.count(id) == 0)
            << "id " << id;
}

TEST(AnalysisIdsTable, TextsArePrintableAsciiAndNoneButIdZeroIsEmpty)
{
    const auto &table = analysisSchemaStrings();
    for (auto it = table.cbegin(); it != table.cend(); ++it) {
        EXPECT_EQ(it->isEmpty(), it.key() == 0) << "id " << it.key();
        for (const QChar c : *it)
            EXPECT_TRUE(c.unicode() >= 0x20 && c.unicode() < 0x7F) << "id " << it.key();
    }
}

TEST(AnalysisSchemaGetString, AnswersTheTextOfAnId)
{
    const std::pair<int, const char *> cases[] = {
        {0, ""},
        {2, "PDF Version Instances"},
        {3, "PDF-1.0"},
        {10, "PDF-1.7"},
        {11, "PDF Action within document instances"},
        {105, "External Dependendancies Instances"},
        {233, "Other Types"},
        {235, "Powerpoint Document Instances"},
        {297, "JPEG image file Instance"},
        {353, "WMF Document File Control Types"},
        {361, "WMF Remedy Instances"},
        {381, "Emf Plus Graphics Objects Instances"},
        {403, "MACHO Instances"},
        {464, "Document Processing Instances"},
    };
    for (const auto &[id, text] : cases)
        EXPECT_EQ(describe(id), QString::fromLatin1(text)) << "id " << id;
}

TEST(AnalysisSchemaGetString, NamesTheIdWhenItHasNoText)
{
    for (const int id : {1, 360, 380, 463, 465, 1000, -5, 32767})
        EXPECT_EQ(describe(id), QStringLiteral("missing description for eAnalysisStatsID_t %1").arg(id));
}

TEST(AnalysisSchemaGetString, EqualTextsUnderDifferentIdsStayDistinctEntries)
{
    const std::pair<int, int> twins[] = {{83, 192}, {99, 278}, {190, 215}};
    for (const auto &[a, b] : twins) {
        EXPECT_EQ(describe(a), describe(b)) << a << " and " << b;
        EXPECT_FALSE(describe(a).startsWith(QLatin1String("missing"))) << a;
    }
}

TEST(AnalysisIdsEnumerators, NameTheGeneralContentCategories)
{
    const std::pair<eAnalysisStatsID_t, const char *> cases[] = {
        {eAnalysisStats_None, ""},
        {eAnalysisStats_Remediation, "Remediation Instances"},
        {eAnalysisStats_Sanitisation, "Sanitisation Instances"},
        {eAnalysisStats_StructuralError, "Structural Error Instances"},
        {eAnalysisStats_Macro, "Macro Instances"},
        {eAnalysisStats_EmbeddedObject, "Embedded Object Instances"},
        {eAnalysisStats_Hyperlink, "Hyperlink Instances"},
        {eAnalysisStats_Metadata, "Metadata Instances"},
        {eAnalysisStats_Javascript, "Javascript Instances"},
        {eAnalysisStats_Acroform, "Acroform Instances"},
        {eAnalysisStats_ExternalHyperlink, "External Hyperlink Instances"},
        {eAnalysisStats_Action, "Action Instances"},
        {eAnalysisStats_NonConformingImage, "Non Conforming Image Instances"},
        {eAnalysisStats_PdfSanitisation, "PDF Sanitisation Instances"},
        {eAnalysisStats_ReviewComment, "Review Comment Instances"},
        {eAnalysisStats_InternalHyperlink, "Internal Hyperlink Instances"},
        {eAnalysisStats_DynamicDataExchange, "Dynamic Data Exchange Instances"},
        {eAnalysisStats_EmbeddedImage, "Embedded Image Instances"},
    };
    for (const auto &[id, text] : cases)
        EXPECT_EQ(analysisSchema_GetString(id), QString::fromLatin1(text)) << "id " << int(id);
}
