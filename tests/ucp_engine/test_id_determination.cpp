#include "ucp_engine/id_determination.h"

#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

// The derivations ask cameras through the root, the session and the camera
// pool. The pool here loads four test plug-ins (see tests/plugins) whose
// message ids are the number the key spells and whose groups are:
//   Word (17)     item 1 -> 153, others 0
//   XML (512)     item 2 -> 7, others 0
//   Excel (21)    always 0
//   GIF (25)      item 12 -> 12, others 0
// No plug-in registers any other type.

using namespace testcamera;

namespace {

class IdDetermination : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        for (const char *module : {VX_TEST_MODULE_IDS_WORD, VX_TEST_MODULE_IDS_XML, VX_TEST_MODULE_IDS_XLS,
                                   VX_TEST_MODULE_IDS_GIF}) {
            const QString path = QString::fromUtf8(module);
            ASSERT_TRUE(QFile::copy(path, m_dir.filePath(path.section(QLatin1Char('/'), -1))));
        }
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
        m_session = std::make_unique<CameraBase>(m_pool.get());
    }

    // A root of the type in a run bound to the session.
    TestRoot *root(ft_t type)
    {
        m_runs.push_back(std::make_unique<TestRun>());
        TestRun &run = *m_runs.back();
        run.ctx.m_cameraSession = m_session.get();
        run.root->setFiletype(type);
        return run.root.get();
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
    std::unique_ptr<CameraBase> m_session;
    std::vector<std::unique_ptr<TestRun>> m_runs;
};

char *key(const char *text)
{
    return const_cast<char *>(text);
}

} // namespace

TEST_F(IdDetermination, StatisticsIdsFollowTheFileType)
{
    const std::pair<ft_t, int> cases[] = {
        {ft_pdf, 16},  {ft_pdf_structure, 16}, {ft_doc, 152},   {ft_docx, 64},     {ft_pptx, 65},
        {ft_xlsx, 66}, {ft_ppt, 235},          {ft_ppt_pictures, 234}, {ft_xls, 241}, {ft_mpeg_other, 449},
        {ft_mpeg, 449}, {ft_cfb, 141},         {ft_opc, 148},   {ft_compobj, 143}, {ft_equation_native, 459},
        {ft_xml, 0},   {ft_zip, 0},            {ft_unknown, 0}, {ft_rtf, 0},       {static_cast<ft_t>(-5), 0},
    };
    for (const auto &[type, stats] : cases)
        EXPECT_EQ(getAnalysisStatsID(root(type)), stats) << "file type " << type;
}

TEST_F(IdDetermination, ValidationGroupIsTheCamerasAnswerOrTheDefault)
{
    struct Case
    {
        ft_t type;
        unsigned item;
        uint32_t group;
    };
    const Case cases[] = {
        {ft_doc, 1, 153},   // the Word camera answers
        {ft_doc, 2, 0},     // it answers 0 and there is no enclosing document
        {ft_gif, 5, 345},   // 0 gives the GIF default
        {ft_gif, 12, 12},   // the GIF camera answers
        {ft_xls, 1, 268},   // Excel always gives its default
        {ft_docx, 2, 7},    // Open XML documents ask type 512
        {ft_pdf, 1, 16},    // no camera row: the statistics id itself, nothing asked
        {ft_compobj, 1, 143},
        {ft_zip, 1, 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(getValidationGroupID(root(c.type), c.item), c.group) << "file type " << c.type << " item " << c.item;
}

TEST_F(IdDetermination, WordAndOpenXmlWalkOutThroughEnclosingRoots)
{
    TestRoot *word = root(ft_doc);
    TestRoot *package = root(ft_xlsx);
    TestRoot *outer = root(ft_doc);
    EXPECT_EQ(getValidationGroupID(word, 2), 0u);

    word->setEnclosingRoot(package);
    EXPECT_EQ(getValidationGroupID(word, 2), 7u) << "the Open XML camera answers for item 2";
    EXPECT_EQ(getValidationGroupID(word, 3), 0u) << "nobody answers item 3";

    package->setEnclosingRoot(outer);
    EXPECT_EQ(getValidationGroupID(word, 1), 153u) << "the Word camera answers first";
    EXPECT_EQ(getValidationGroupID(word, 3), 0u);

    // The walk stops at a family with a default.
    TestRoot *sheet = root(ft_xls);
    word->setEnclosingRoot(sheet);
    EXPECT_EQ(getValidationGroupID(word, 2), 268u);

    // A chain that comes back on itself ends without an answer.
    word->setEnclosingRoot(package);
    outer->setEnclosingRoot(word);
    EXPECT_EQ(getValidationGroupID(word, 3), 0u);
}

TEST_F(IdDetermination, ErrorMessagesComeFromTheCamerasType)
{
    EXPECT_EQ(getErrorMsgID(root(ft_doc), eCameraId_Word, key("5")), 5u);
    EXPECT_EQ(getErrorMsgID(root(ft_pdf), eCameraId_OpenXml, key("9")), 9u) << "the camera picks the type, not the root";
    EXPECT_EQ(getErrorMsgID(root(ft_pdf), eCameraId_Excel, key("x")), 0u);
    // Cameras without messages answer 0 without asking anything.
    TestRun detached;
    for (int camera : {0, 4, 9, 11, 22, 1000, -1})
        EXPECT_EQ(getErrorMsgID(detached.root.get(), static_cast<eCameraId_t>(camera), key("5")), 0u)
            << "camera " << camera;
}

TEST_F(IdDetermination, IssueIdsComposeCameraGroupAndMessage)
{
    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_Word, key("5")), 0x01020005u);
    // The parts are OR-ed: a message above 65535 runs into the group field.
    EXPECT_EQ(getIssueID(root(ft_gif), 5, eCameraId_Gif, key("70000")), 0x0A0E0000u | 70000u);
    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_Word, key("0")), 0u) << "no message";
    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_Png, key("5")), 0u) << "no issue-group base";
    EXPECT_EQ(getIssueID(root(ft_doc), 1, eCameraId_Pdf, key("5")), 0u);
    EXPECT_EQ(getIssueID(root(ft_doc), 1, static_cast<eCameraId_t>(22), key("5")), 0u);
}

TEST_F(IdDetermination, SanitisationIdsComposeCameraByteSanitisationAndMessage)
{
    EXPECT_EQ(getSanitisationId(root(ft_xls), key("3"), static_cast<eAnalysisStatsID_t>(75)), 0x02040003u);
    EXPECT_EQ(getSanitisationId(root(ft_docx), key("1"), eAnalysisStats_Macro), 0x05CC0001u);

    const QString unspecified = QStringLiteral("core.support/ucp_engine/id_determination 642 Unspecified Sanitisation ID");
    for (const auto &[type, message] : {std::pair{ft_pdf, "3"}, std::pair{ft_doc, "0"}}) {
        LogCapture log;
        EXPECT_EQ(getSanitisationId(root(type), key(message), eAnalysisStats_Macro), 0u) << "file type " << type;
        EXPECT_EQ(log.messages(), QStringList{unspecified}) << "file type " << type;
    }
}

TEST_F(IdDetermination, ThePoolsFailuresPassThrough)
{
    EXPECT_EQ(thrownText([&] { getValidationGroupID(root(ft_png), 1); }), "std: Unable to determine Analysis Group ID");
    EXPECT_EQ(thrownText([&] { getErrorMsgID(root(ft_doc), eCameraId_Mpeg2, key("1")); }),
              "std: Unable to determine Error Message ID");
    EXPECT_EQ(thrownText([&] { getSanitisationId(root(ft_ppt_pictures), key("1"), eAnalysisStats_Macro); }),
              "std: Unable to determine Sanitisation Message ID");
    TestRun detached;
    detached.root->setFiletype(ft_doc);
    EXPECT_EQ(thrownText([&] { getValidationGroupID(detached.root.get(), 1); }), "Camera Pool broken");
}

TEST_F(IdDetermination, NodesOtherThanRootsAnswerForTheirRoot)
{
    TestRoot *word = root(ft_doc);
    TestLeaf leaf;
    leaf.setRoot(word);
    EXPECT_EQ(getAnalysisStatsID(&leaf), 152);
    EXPECT_EQ(getValidationGroupID(&leaf, 1), 153u);
    EXPECT_EQ(getConfigApp(&leaf), cfgWordConfig);

    TestLeaf loose;
    EXPECT_THROW(getAnalysisStatsID(&loose), std::bad_alloc);
    EXPECT_THROW(getAnalysisStatsID(nullptr), std::bad_alloc);
    EXPECT_THROW(getIssueID(nullptr, 1, eCameraId_Word, key("1")), std::bad_alloc);
}

TEST_F(IdDetermination, ConfigurationProfilesAndCameraIds)
{
    const std::pair<ft_t, eVxConfigType> profiles[] = {
        {ft_pdf, cfgPdfConfig},  {ft_doc, cfgWordConfig}, {ft_docx, cfgWordConfig}, {ft_ppt, cfgPptConfig},
        {ft_pptx, cfgPptConfig}, {ft_ppt_pictures, cfgPptConfig}, {ft_xls, cfgXlsConfig}, {ft_xlsx, cfgXlsConfig},
        {ft_rtf, cfgRtfConfig},  {ft_tiff, cfgTiffConfig}, {ft_xml, cfgUnknown},  {ft_unknown, cfgUnknown},
    };
    for (const auto &[type, profile] : profiles)
        EXPECT_EQ(getConfigApp(root(type)), profile) << "file type " << type;

    EXPECT_EQ(getCameraID(root(ft_docx)), eCameraId_OpenXml);
    EXPECT_EQ(getCameraID(root(ft_mpeg)), eCameraId_Mpeg2);
    EXPECT_EQ(getCameraID(root(ft_zip)), eCameraId_Default);
}
