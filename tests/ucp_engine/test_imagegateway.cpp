// The embedded-image gateway: an Excel root bound to a real session whose
// camera pool holds test image cameras with fixed outcomes (see policyrun.h).

#include "ucp_engine/BDDValidationFuncs.h"

#include "logcapture.h"
#include "policyrun.h"
#include "qtprinters.h"
#include "testcamera.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace policyrun;

namespace {

const std::string kImage = "IMAGE-BYTES"; // 11 bytes

std::vector<unsigned char> image()
{
    return std::vector<unsigned char>(kImage.begin(), kImage.end());
}

// The bytes, then zeros up to the image's size.
std::vector<unsigned char> padded(const std::string &start)
{
    std::vector<unsigned char> bytes(kImage.size(), 0);
    std::copy(start.begin(), start.end(), bytes.begin());
    return bytes;
}

class ImageGateway : public PolicyRun
{
protected:
    cameraStatus_t gateway(std::vector<unsigned char> &bytes, ft_t type)
    {
        return imageCameraGateway(&bytes, type, &m_imageNode, 0, root(), kItem);
    }

    // What the image cameras saw, from the session's repository.
    QStringList cameraRecords() const { return recordsOf(m_session->analysis()); }

    // Whether the session runs a camera in its current mode at all (tree
    // export and import need archives the session may not have).
    bool sessionRunsCameras()
    {
        MemoryBuffer input;
        MemoryBuffer output;
        input.m_name = "probe";
        input.putRawBytes("probe", 5);
        const bool runs = !isVX2_RetStatusFail(m_session->pushCamera(&input, &output, ft_png, nullptr));
        m_session->analysis().ClearAllDocuments();
        m_session->analysis().AddFileAnalysis("docname", "doctype", "Not Applicable", 0, "");
        return runs;
    }

    testcamera::TestLeaf m_imageNode;
};

} // namespace

TEST_F(ImageGateway, DisallowedAndAllowedImagesAreReportedAndLeftAlone)
{
    const struct
    {
        const char *setting;
        cameraStatus_t result;
        QString record;
        cameraStatus_t nodeStatus;
    } cases[] = {
        {"disallow", 181, QStringLiteral("issue 1001 Embedded Image present in TestLeaf|0|96"), 153},
        {"allow", 0, QStringLiteral("content 241 Embedded Image present in TestLeaf|0"), 0},
    };
    for (const auto &c : cases) {
        setPolicy(QByteArray("<embedded_images>") + c.setting + "</embedded_images>");
        newRun();
        std::vector<unsigned char> bytes = image();
        EXPECT_EQ(gateway(bytes, ft_png), c.result) << c.setting;
        EXPECT_EQ(bytes, image()) << c.setting;
        EXPECT_EQ(records(), QStringList{c.record}) << c.setting;
        EXPECT_EQ(root()->m_cameraStatus, c.nodeStatus) << c.setting;
    }
    EXPECT_EQ(cameraRecords(), QStringList()) << "no image camera ran";
}

TEST_F(ImageGateway, AnUnknownSettingIsReportedAsIssue464)
{
    setPolicy("<embedded_images>Sanitise</embedded_images>");
    std::vector<unsigned char> bytes = image();
    EXPECT_EQ(gateway(bytes, ft_png), 162u);
    EXPECT_EQ(bytes, image());
    EXPECT_EQ(records(), QStringList{QStringLiteral("issue 464 Unable to determine content management setting "
                                                    "for embedded_images switch|0|96")});
}

TEST_F(ImageGateway, SanitisedImagesTakeTheCamerasOutputWhenItFits)
{
    const struct
    {
        ft_t type;
        const char *camera;
        cameraStatus_t result;
        std::vector<unsigned char> after;
    } cases[] = {
        {ft_png, "writes 5 bytes, answers 0", 0, padded("clean")},
        {ft_jpeg, "writes 38 bytes, answers 1", 162, image()},
        {ft_bmp, "writes 3 bytes, answers -1", 128, padded("bad")},
        {ft_emf, "writes 41 bytes, answers -1", 128, image()},
        {ft_gif, "no camera for the type", 128, padded("")},
    };
    setPolicy("<embedded_images>sanitise</embedded_images>");
    for (const auto &c : cases) {
        newRun();
        std::vector<unsigned char> bytes = image();
        EXPECT_EQ(gateway(bytes, c.type), c.result) << c.camera;
        EXPECT_EQ(bytes, c.after) << c.camera;
        EXPECT_EQ(records(), QStringList()) << "the gateway itself records nothing: " << c.camera;
        EXPECT_EQ(root()->m_cameraStatus, 0u) << c.camera;
    }
    // Each of the four cameras was given a copy of the image: 4 x 11 bytes.
    EXPECT_EQ(cameraRecords(), QStringList{QStringLiteral("content 7 image=IMAGE-BYTES stream=|44")});
}

TEST_F(ImageGateway, ImportModeHandsTheImageOverAsTheStreamName)
{
    setPolicy("<embedded_images>sanitise</embedded_images>");
    ASSERT_TRUE(m_session->registryEntry(CameraBase::regImport).setFilePath("archive.zip"));
    ASSERT_TRUE(m_session->registryEntry(CameraBase::regOutput).setFilePath("out"));
    ASSERT_TRUE(m_session->isImportMode());
    const bool runs = sessionRunsCameras();

    std::vector<unsigned char> bytes = image();
    const cameraStatus_t result = gateway(bytes, ft_png);
    EXPECT_EQ(cameraRecords(), QStringList{QStringLiteral("content 7 image=IMAGE-BYTES stream=IMAGE-BYTES|11")});
    if (!runs) {
        EXPECT_EQ(result, 128u);
        EXPECT_EQ(bytes, padded("")) << "nothing came back, so nothing of the image stays";
    }

    // The buffers went back to the run's pool without the image in them.
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(m_run->pool.allocateBuffer(kImage.size())->m_streamName, "") << "buffer " << i;
}

TEST_F(ImageGateway, ExportModeReplacesTheImageWithTheExportText)
{
    setPolicy("<embedded_images>sanitise</embedded_images>");
    ASSERT_TRUE(m_session->registryEntry(CameraBase::regInput).setFilePath("in"));
    ASSERT_TRUE(m_session->registryEntry(CameraBase::regExport).setFilePath("archive.zip"));
    ASSERT_TRUE(m_session->isExportMode());
    const cameraStatus_t failed = sessionRunsCameras() ? 0 : 128;

    m_session->setExportText("ref:7");
    std::vector<unsigned char> bytes = image();
    EXPECT_EQ(gateway(bytes, ft_png), failed);
    EXPECT_EQ(bytes, padded("ref:7"));

    m_session->setExportText("a reference longer than the image");
    bytes = image();
    EXPECT_EQ(gateway(bytes, ft_png), failed ? failed : 162u);
    EXPECT_EQ(bytes, image());
}

TEST_F(ImageGateway, FailuresInsideEndWith182)
{
    setPolicy("<embedded_images>sanitise</embedded_images>");
    std::vector<unsigned char> bytes = image();
    testcamera::TestRun detached; // no session, so no policy
    testcamera::TestLeaf orphan;  // not in any tree

    const struct
    {
        const char *what;
        std::vector<unsigned char> *image;
        BDDLStructBase *node;
    } cases[] = {
        {"no image", nullptr, root()},
        {"no session", &bytes, detached.root.get()},
        {"no tree", &bytes, &orphan},
        {"no node", &bytes, nullptr},
    };
    for (const auto &c : cases) {
        LogCapture log;
        EXPECT_EQ(imageCameraGateway(c.image, ft_png, &m_imageNode, 0, c.node, kItem), 182u) << c.what;
        EXPECT_EQ(log.messages(), QStringList{QStringLiteral("imageCameraGateway failed")}) << c.what;
    }
    EXPECT_EQ(bytes, image());
}

TEST_F(ImageGateway, AnImageWithoutANodeIsReportedUnderNoName)
{
    setPolicy("<embedded_images>allow</embedded_images>");
    std::vector<unsigned char> bytes = image();
    EXPECT_EQ(imageCameraGateway(&bytes, ft_png, nullptr, 0, root(), kItem), 0u);
    EXPECT_EQ(records(), QStringList{QStringLiteral("content 241 Embedded Image present in noname|0")});
}
