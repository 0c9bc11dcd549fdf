#include "ucp_engine/id_determination.h"

#include "logcapture.h"
#include "policyrun.h"

#include <new>

// The test plug-ins answer message ids with the number the key spells and
// validation groups: Word (17) item 1 -> 153; XML (512) item 2 -> 7; Excel (21) 0;
// GIF (25) item 12 -> 12; every other item 0. No plug-in registers another type.

using namespace testcamera;

namespace {

class IdDetermination : public policyrun::SessionTest
{
protected:
    void SetUp() override
    {
        loadSession({VX_TEST_MODULE_IDS_WORD, VX_TEST_MODULE_IDS_XML, VX_TEST_MODULE_IDS_XLS, VX_TEST_MODULE_IDS_GIF});
    }
    // A root of the type in a run bound to the session.
    TestRoot *root(int type)
    {
        m_runs.push_back(std::make_unique<TestRun>());
        m_runs.back()->ctx.m_cameraSession = m_session.get();
        m_runs.back()->root->setFiletype(ft_t(type));
        return m_runs.back()->root.get();
    }
    std::vector<std::unique_ptr<TestRun>> m_runs;
};

char *key(const char *text)
{
    return const_cast<char *>(text);
}

} // namespace

TEST_F(IdDetermination, StatisticsIdsProfilesAndCamerasFollowTheFileType)
{
    const struct { ft_t type; int stats; eVxConfigType profile; } cases[] = {
        {ft_pdf, 16, cfgPdfConfig},  {ft_doc, 152, cfgWordConfig}, {ft_docx, 64, cfgWordConfig},
        {ft_xls, 241, cfgXlsConfig}, {ft_rtf, 0, cfgRtfConfig},    {ft_cfb, 141, cfgUnknown},
        {ft_t(-5), 0, cfgUnknown},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(getAnalysisStatsID(root(c.type)), c.stats) << "file type " << c.type;
        EXPECT_EQ(getConfigApp(root(c.type)), c.profile) << "file type " << c.type;
    }
    EXPECT_EQ(getCameraID(root(ft_docx)), eCameraId_OpenXml);
    EXPECT_EQ(getCameraID(root(ft_zip)), eCameraId_Default);
}

TEST_F(IdDetermination, ValidationGroupIsTheCamerasAnswerOrTheDefault)
{
    const struct { ft_t type; unsigned item; uint32_t group; } cases[] = {
        {ft_doc, 1, 153}, // the Word camera answers
        {ft_doc, 2, 0},   // it answers 0 and there is no enclosing document
        {ft_gif, 5, 345}, // 0 gives the GIF default
        {ft_gif, 12, 12}, {ft_xls, 1, 268}, // Excel's camera answers 0: its default
        {ft_docx, 2, 7},  // Open XML documents ask type 512
        {ft_pdf, 1, 16},  // no camera row: the statistics id itself
        {ft_compobj, 1, 143}, {ft_zip, 1, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(getValidationGroupID(root(c.type), c.item), c.group) << "file type " << c.type << " item " << c.item;
}

TEST_F(IdDetermination, WordAndOpenXmlWalkOutThroughEnclosingRoots)
{
    TestRoot *word = root(ft_doc), *package = root(ft_xlsx), *outer = root(ft_doc);
    word->setEnclosingRoot(package);
    EXPECT_EQ(getValidationGroupID(word, 2), 7u) << "the Open XML camera answers for item 2";
    EXPECT_EQ(getValidationGroupID(word, 3), 0u) << "nobody answers item 3";
    package->setEnclosingRoot(outer);
    EXPECT_EQ(getValidationGroupID(word, 1), 153u) << "the Word camera answers first";
    word->setEnclosingRoot(root(ft_xls));
    EXPECT_EQ(getValidationGroupID(word, 2), 268u) << "the walk stops at a family with a default";
    word->setEnclosingRoot(package);
    outer->setEnclosingRoot(word);
    EXPECT_EQ(getValidationGroupID(word, 3), 0u) << "a chain that comes back on itself ends";

    TestLeaf leaf; // nodes other than roots answer for their root
    leaf.setRoot(word);
    EXPECT_EQ(getValidationGroupID(&leaf, 1), 153u);
    EXPECT_EQ(getAnalysisStatsID(&leaf), 152);
    TestLeaf loose;
    EXPECT_THROW(getAnalysisStatsID(&loose), std::bad_alloc) << "no root";
}

TEST_F(IdDetermination, MessageIssueAndSanitisationIds)
{
    EXPECT_EQ(getErrorMsgID(root(ft_pdf), eCameraId_OpenXml, key("9")), 9u) << "the camera picks the type";
    EXPECT_EQ(getErrorMsgID(root(ft_pdf), eCameraId_Excel, key("x")), 0u);
    for (int camera : {0, 22, 1000, -1}) // cameras without messages ask nothing
        EXPECT_EQ(getErrorMsgID(TestRun().root.get(), eCameraId_t(camera), key("5")), 0u) << "camera " << camera;

    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_Word, key("5")), 0x01020005u);
    EXPECT_EQ(getIssueID(root(ft_gif), 5, eCameraId_Gif, key("131072")), 0x0A0E0000u) << "the parts are OR-ed";
    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_Word, key("0")), 0u) << "no message";
    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_t(22), key("5")), 0u) << "a camera without issue-group base";

    EXPECT_EQ(getSanitisationId(root(ft_xls), key("3"), eAnalysisStatsID_t(75)), 0x02040003u);
    EXPECT_EQ(getSanitisationId(root(ft_docx), key("1"), eAnalysisStats_Macro), 0x05CC0001u);
    LogCapture log;
    EXPECT_EQ(getSanitisationId(root(ft_pdf), key("3"), eAnalysisStats_Macro), 0u) << "no sanitisation row";
    EXPECT_EQ(log.messages(), QStringList{"core.support/ucp_engine/id_determination 642 Unspecified Sanitisation ID"});
}

TEST_F(IdDetermination, ThePoolsFailuresPassThrough)
{
    EXPECT_EQ(thrownText([&] { getValidationGroupID(root(ft_png), 1); }), "std: Unable to determine Analysis Group ID");
    EXPECT_EQ(thrownText([&] { getSanitisationId(root(ft_ppt_pictures), key("1"), eAnalysisStats_Macro); }),
              "std: Unable to determine Sanitisation Message ID");
    TestRun detached;
    detached.root->setFiletype(ft_doc);
    EXPECT_EQ(thrownText([&] { getValidationGroupID(detached.root.get(), 1); }), "Camera Pool broken");
}
