#include "ucp_engine/analysis.functions.h"

#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp_engine/BDDValidationFuncs.h"

#include <gtest/gtest.h>

#include <map>
#include <new>

using namespace testcamera;

TEST(StatusConversion, BothWaysCombinationAndTheFailureClass)
{
    const std::map<cameraStatus_t, VX2_RetStatus> special = {{0, 0}, {64, 1}, {177, -2}};
    for (cameraStatus_t status = 0; status < 0x200; ++status) {
        const auto it = special.find(status);
        EXPECT_EQ(getVX2_RetStatusFromCameraStatus(status), it == special.end() ? -1 : it->second) << status;
        EXPECT_EQ(isCameraStatusFail(status), (status & 0xC0) == 0x80) << status;
    }
    const std::pair<VX2_RetStatus, cameraStatus_t> back[] = {
        {0, 0}, {1, 64}, {-1, 128}, {-2, 128}, {2, 128}, {INT32_MIN, 128}};
    for (const auto &[status, expected] : back)
        EXPECT_EQ(getCameraStatusFromVX2_RetStatus(status), expected) << "VX2_RetStatus " << status;

    // A failure dominates and the worse failure wins.
    const struct { VX2_RetStatus a, b, combined; } cases[] = {
        {0, 1, 1}, {-1, 0, -1}, {-1, -2, -2}, {-2, -1, -2}, {1, -1, -1}, {5, -1, -1}};
    for (const auto &c : cases)
        EXPECT_EQ(combineVX2_RetStatus(c.a, c.b), c.combined) << "combine(" << c.a << ", " << c.b << ")";
    for (const VX2_RetStatus status : {INT32_MIN, -1, 0, 1, INT32_MAX})
        EXPECT_EQ(isVX2_RetStatusFail(status), status < 0) << status;
}

TEST(VxIssue, LogsAVxErrorLineAndRecordsOnlyForAGroup)
{
    TestRun run;
    LogCapture log;
    vx_issue(run.root.get(), 0, "x=%d", 5);
    vx_issue(run.root.get(), 7, "x=%d", 5);
    vx_issue_id(run.root.get(), 464, 0x01020005, "%s at %x", "Object", 0x2a);
    vx_issue_id(run.root.get(), -3, 4000000000u, "negative");
    vx_issue(run.root.get(), 7, nullptr); // a null format does nothing
    EXPECT_EQ(log.messages(), (QStringList{"VX_ERROR: 96 : 0 : \"x=5\"", "VX_ERROR: 96 : 7 : \"x=5\"",
                                           "VX_ERROR: 16908293 : 464 : \"Object at 2a\"",
                                           "VX_ERROR: 4000000000 : -3 : \"negative\""}));
    EXPECT_FALSE(log.lines().front().hasSourceLocation) << "file and line are not logged";
    EXPECT_EQ(recordsOf(run.analysis), (QStringList{"issue -3 negative|0|4000000000", "issue 7 x=5|0|96",
                                                    "issue 464 Object at 2a|0|16908293"}))
        << "group 0 is logged only";
    EXPECT_THROW(vx_issue_id(nullptr, 0, 1, "x"), std::bad_alloc);
}

TEST(VxAnalyse, RecordsIntoTheRepositoryOfTheNodesTree)
{
    TestRun run;
    const std::unique_ptr<TestLeaf> leaf(run.make<TestLeaf>()); // reports from below the root
    EXPECT_EQ(vx_analyse_group(leaf.get(), 12, "content", 10), 0u);
    EXPECT_EQ(vx_analyse_group_issue(leaf.get(), 12, "issue", 3, 77), 0u);
    EXPECT_EQ(vx_analyse_group_sanitize(run.root.get(), 12, "cleaned", 4, 88), 0u);
    EXPECT_EQ(vx_analyse_group_remedy(run.root.get(), 12, "repaired", 5), 0u); // not recorded from tree code
    EXPECT_EQ(vx_analyse_error_group(run.root.get(), 12, "error", 6), 0u);
    EXPECT_EQ(vx_analyse_group(leaf.get(), 13, nullptr, 1), 0u); // a null description is an empty one
    vx_issue(leaf.get(), 7, "recorded");
    EXPECT_EQ(recordsOf(run.analysis), (QStringList{"issue 7 recorded|0|96", "content 12 content|10",
                                                    "sanitise 12 cleaned|4|88",
                                                    "issue 12 issue|3|77", "content 13 |1"}));

    TestLeaf stray; // in no tree, or a tree without repository or context: nowhere to record
    EXPECT_EQ(thrownText([&] { vx_issue(&stray, 7, "recorded"); }), "getAnalysisFromStructBase failed");
    run.ctx.m_analysis = nullptr;
    EXPECT_EQ(thrownText([&] { vx_analyse_group_sanitize(run.root.get(), 1, "x", 1, 1); }),
              "getAnalysisFromStructBase failed");
}
