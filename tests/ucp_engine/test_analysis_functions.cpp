#include "ucp_engine/analysis.functions.h"

#include "analysis/RepositoryComponents.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp_engine/BDDValidationFuncs.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <new>

TEST(StatusConversion, CameraStatusToRetStatus)
{
    // Every code of the lower byte plus a few beyond it.
    const std::map<cameraStatus_t, VX2_RetStatus> special = {{0, 0}, {64, 1}, {177, -2}};
    for (cameraStatus_t status = 0; status < 0x200; ++status) {
        const auto it = special.find(status);
        EXPECT_EQ(getVX2_RetStatusFromCameraStatus(status), it == special.end() ? -1 : it->second)
            << "cameraStatus " << status;
    }
    EXPECT_EQ(getVX2_RetStatusFromCameraStatus(0xFFFFFFFFu), -1);
}

TEST(StatusConversion, RetStatusToCameraStatus)
{
    const std::pair<VX2_RetStatus, cameraStatus_t> cases[] = {
        {0, 0}, {1, 64}, {-1, 128}, {-2, 128}, {2, 128}, {INT32_MIN, 128}, {INT32_MAX, 128}};
    for (const auto &[status, expected] : cases)
        EXPECT_EQ(getCameraStatusFromVX2_RetStatus(status), expected) << "VX2_RetStatus " << status;
}

TEST(StatusConversion, RoundTripKeepsTheCodesInUse)
{
    for (const VX2_RetStatus status : {VX2_SuccessWithInfo, VX2_Success, VX2_Fail})
        EXPECT_EQ(getVX2_RetStatusFromCameraStatus(getCameraStatusFromVX2_RetStatus(status)), status);
    // -2 has no camera status of its own and comes back as a plain failure.
    EXPECT_EQ(getVX2_RetStatusFromCameraStatus(getCameraStatusFromVX2_RetStatus(VX2_Fatal)), VX2_Fail);
}

TEST(StatusCombination, FailureDominatesAndTheWorseFailureWins)
{
    struct Case
    {
        VX2_RetStatus a, b, combined;
    };
    const Case cases[] = {
        {1, 0, 1}, {0, 1, 1}, {0, -1, -1}, {-1, 0, -1}, {-1, -2, -2}, {-2, -1, -2},
        {1, -1, -1}, {-1, 1, -1}, {0, 0, 0}, {1, 1, 1}, {-2, 1, -2}, {5, -1, -1},
    };
    for (const Case &c : cases)
        EXPECT_EQ(combineVX2_RetStatus(c.a, c.b), c.combined) << "combine(" << c.a << ", " << c.b << ")";
}

TEST(StatusCombination, IsFailIsTheSign)
{
    const std::pair<VX2_RetStatus, bool> cases[] = {
        {INT32_MIN, true}, {-2, true}, {-1, true}, {0, false}, {1, false}, {INT32_MAX, false}};
    for (const auto &[status, fails] : cases)
        EXPECT_EQ(isVX2_RetStatusFail(status), fails) << "VX2_RetStatus " << status;
}

TEST(StatusClass, FailureIsTheMaskedTopBits)
{
    const std::pair<cameraStatus_t, bool> cases[] = {
        {0, false},  {64, false},  {128, true}, {153, true}, {162, true},  {169, true},
        {177, true}, {182, true},  {191, true}, {192, false}, {0x1A2, true}, {0x40, false}};
    for (const auto &[status, fails] : cases)
        EXPECT_EQ(isCameraStatusFail(status), fails) << "cameraStatus " << status;
}

// ---------------------------------------------------------------------------
// Reporting from tree code
// ---------------------------------------------------------------------------

namespace {

using testcamera::TestRun;
using testcamera::issuesOf;
using testcamera::thrownText;

const RepositoryComponents::ContentGroup *groupOf(const TestRun &run, short group)
{
    const auto &groups = run.analysis.currentDocument()->contentGroups();
    const auto found = groups.find(group);
    return found == groups.end() ? nullptr : found->second.get();
}

} // namespace

TEST(VxIssue, LogsAVxErrorLineAndRecordsOnlyForAGroup)
{
    TestRun run;
    {
        LogCapture log;
        vx_issue(run.root.get(), 0, "x=%d", 5);
        ASSERT_EQ(log.lines().size(), 1u);
        const CapturedLogLine &line = log.lines().front();
        EXPECT_EQ(line.type, QtDebugMsg);
        EXPECT_EQ(line.category, QStringLiteral("default"));
        EXPECT_FALSE(line.hasSourceLocation) << "file and line are not logged";
        EXPECT_EQ(line.message, QStringLiteral("VX_ERROR: 96 : 0 : \"x=5\""));
        EXPECT_EQ(run.analysis.currentDocument()->groupCount(), 0u) << "group 0 is logged only";
    }
    {
        LogCapture log;
        vx_issue(run.root.get(), 7, "x=%d", 5);
        EXPECT_EQ(log.messages(), QStringList{QStringLiteral("VX_ERROR: 96 : 7 : \"x=5\"")});
        EXPECT_EQ(issuesOf(run.analysis, 7), QStringList{QStringLiteral("x=5|0|96")});
    }
    {
        LogCapture log;
        vx_issue(run.root.get(), 7, nullptr);
        vx_issue_id(run.root.get(), 7, 1, nullptr);
        EXPECT_TRUE(log.messages().isEmpty()) << "a null format does nothing";
    }
}

TEST(VxIssue, IssueIdsAndNegativeGroups)
{
    TestRun run;
    LogCapture log;
    vx_issue_id(run.root.get(), 464, 0x01020005, "%s at %x", "Object", 0x2a);
    vx_issue_id(run.root.get(), -3, 4000000000u, "negative");
    EXPECT_EQ(log.messages(), (QStringList{QStringLiteral("VX_ERROR: 16908293 : 464 : \"Object at 2a\""),
                                           QStringLiteral("VX_ERROR: 4000000000 : -3 : \"negative\"")}));
    EXPECT_EQ(issuesOf(run.analysis, 464), QStringList{QStringLiteral("Object at 2a|0|16908293")});
    EXPECT_EQ(issuesOf(run.analysis, -3), QStringList{QStringLiteral("negative|0|4000000000")});
    EXPECT_THROW(vx_issue_id(nullptr, 0, 1, "x"), std::bad_alloc);
}

TEST(VxIssue, ANodeInsideATreeRecordsIntoItsTreesRepository)
{
    TestRun run;
    testcamera::TestLeaf *leaf = run.make<testcamera::TestLeaf>();
    const std::unique_ptr<testcamera::TestLeaf> owner(leaf);
    leaf->setRoot(run.root.get());
    LogCapture log;
    vx_issue(leaf, 0, "logged");
    vx_issue(leaf, 7, "recorded");
    EXPECT_EQ(log.messages().size(), 2);
    const RepositoryComponents::ContentGroup *group = groupOf(run, 7);
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->issueItems().count("recorded"), 1u);

    testcamera::TestLeaf stray; // in no tree: nowhere to record
    EXPECT_EQ(thrownText([&] { vx_issue(&stray, 7, "recorded"); }), "getAnalysisFromStructBase failed");
    EXPECT_EQ(thrownText([&] { vx_issue(nullptr, 7, "recorded"); }), "getAnalysisFromStructBase failed");
}

TEST(VxAnalyse, RecordsIntoTheRootsRepository)
{
    TestRun run;
    EXPECT_EQ(vx_analyse_group(run.root.get(), 12, "content", 10), 0u);
    EXPECT_EQ(vx_analyse_group_issue(run.root.get(), 12, "issue", 3, 77), 0u);
    EXPECT_EQ(vx_analyse_group_sanitize(run.root.get(), 12, "cleaned", 4, 88), 0u);
    EXPECT_EQ(vx_analyse_group_remedy(run.root.get(), 12, "repaired", 5), 0u);
    EXPECT_EQ(vx_analyse_error_group(run.root.get(), 12, "error", 6), 0u);
    EXPECT_EQ(analysis_VXAnalyseSchemaGetInterchangeMode(), 0u);

    const RepositoryComponents::ContentGroup *group = groupOf(run, 12);
    ASSERT_NE(group, nullptr);
    ASSERT_EQ(group->contentItems().size(), 1u);
    EXPECT_EQ(group->contentItems().at("content")->totalSize(), 10u);
    EXPECT_EQ(group->issueItems().at("issue")->issueId(), 77u);
    EXPECT_EQ(group->sanitisationItems().at("cleaned")->sanitisationId(), 88u);
    EXPECT_TRUE(group->remedyItems().empty()) << "remedies are not recorded from tree code";
    EXPECT_EQ(run.analysis.currentDocument()->groupCount(), 1u);

    // A null description is an empty one.
    EXPECT_EQ(vx_analyse_group(run.root.get(), 13, nullptr, 1), 0u);
    EXPECT_EQ(groupOf(run, 13)->contentItems().count(""), 1u);
}

TEST(VxAnalyse, NeedsARootWithARepository)
{
    TestRun run;
    EXPECT_EQ(getAnalysisFromStructBase(run.root.get()), &run.analysis);
    EXPECT_EQ(getAnalysisFromStructBase(nullptr), nullptr);
    testcamera::TestLeaf leaf;
    leaf.setRoot(run.root.get());
    EXPECT_EQ(thrownText([&] { getAnalysisFromStructBase(&leaf); }), "getAnalysisFromStructBase failed")
        << "the tree is not walked upwards";
    EXPECT_EQ(vx_analyse_group(&leaf, 1, "x", 1), 0u) << "the reporting functions record for the node's tree";
    ASSERT_NE(groupOf(run, 1), nullptr);
    run.ctx.m_analysis = nullptr;
    EXPECT_EQ(thrownText([&] { vx_analyse_group_sanitize(run.root.get(), 1, "x", 1, 1); }),
              "getAnalysisFromStructBase failed");
    run.root->setContext(nullptr);
    EXPECT_EQ(thrownText([&] { vx_analyse_group_issue(run.root.get(), 1, "x", 1, 1); }),
              "getAnalysisFromStructBase failed");

    LogCapture log;
    logMultiLineError("line one\nline two", run.root.get());
    EXPECT_TRUE(log.messages().isEmpty());
}
