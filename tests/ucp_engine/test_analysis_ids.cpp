#include "ucp_engine/analysis.ids.h"

#include "qtprinters.h"

#include <gtest/gtest.h>

TEST(AnalysisSchemaGetString, AnswersTheTextOfAnIdOrNamesTheMissingOne)
{
    EXPECT_EQ(analysisSchemaStrings().size(), 415);
    const std::pair<int, const char *> cases[] = {
        {0, ""}, {3, "PDF-1.0"}, {83, "Revisions Instances"}, {192, "Revisions Instances"},
        {464, "Document Processing Instances"}, {eAnalysisStats_Macro, "Macro Instances"},
        {1, "missing description for eAnalysisStatsID_t 1"}, {465, "missing description for eAnalysisStatsID_t 465"},
        {-5, "missing description for eAnalysisStatsID_t -5"}};
    for (const auto &[id, text] : cases)
        EXPECT_EQ(analysisSchema_GetString(eAnalysisStatsID_t(id)), QString::fromLatin1(text)) << "id " << id;
}
