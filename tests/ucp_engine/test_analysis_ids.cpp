#include "ucp_engine/analysis.ids.h"

#include "qtprinters.h"

#include <gtest/gtest.h>

TEST(AnalysisSchemaGetString, AnswersTheTextOfAnIdOrNamesTheMissingOne)
{
    const auto &table = analysisSchemaStrings();
    EXPECT_EQ(table.size(), 415);
    EXPECT_EQ(table.lastKey(), 464);
    const std::pair<int, const char *> cases[] = {
        {0, ""},
        {3, "PDF-1.0"},
        {105, "External Dependendancies Instances"},
        {83, "Revisions Instances"},
        {192, "Revisions Instances"}, // the same text under its own id
        {297, "JPEG image file Instance"},
        {381, "Emf Plus Graphics Objects Instances"},
        {464, "Document Processing Instances"},
        {eAnalysisStats_Macro, "Macro Instances"},
        {eAnalysisStats_EmbeddedImage, "Embedded Image Instances"},
    };
    for (const auto &[id, text] : cases)
        EXPECT_EQ(analysisSchema_GetString(eAnalysisStatsID_t(id)), QString::fromLatin1(text)) << "id " << id;
    for (const int id : {1, 360, 463, 465, -5, 32767})
        EXPECT_EQ(analysisSchema_GetString(eAnalysisStatsID_t(id)),
                  QStringLiteral("missing description for eAnalysisStatsID_t %1").arg(id));
}
