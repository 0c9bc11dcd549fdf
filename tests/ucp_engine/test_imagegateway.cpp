// The embedded-image gateway: an Excel root bound to a real session whose
// camera pool holds test image cameras with fixed outcomes (see policyrun.h).

#include "ucp_engine/BDDValidationFuncs.h"

#include "logcapture.h"
#include "policyrun.h"

#include <string>
#include <vector>

using namespace policyrun;
using Bytes = std::vector<unsigned char>;

namespace {

const Bytes kImage = {'I', 'M', 'A', 'G', 'E', '-', 'B', 'Y', 'T', 'E', 'S'};

// The text, then zeros up to the image's size.
Bytes padded(const std::string &start)
{
    Bytes bytes(kImage.size(), 0);
    std::copy(start.begin(), start.end(), bytes.begin());
    return bytes;
}

class ImageGateway : public PolicyRun
{
protected:
    cameraStatus_t gateway(Bytes &bytes, ft_t type)
    {
        return imageCameraGateway(&bytes, type, &m_imageNode, 0, root(), kItem);
    }
    // What the image cameras saw, from the session's repository.
    QStringList cameraRecords() const { return recordsOf(m_session->analysis()); }

    testcamera::TestLeaf m_imageNode;
};

} // namespace

TEST_F(ImageGateway, EachSettingAndCameraOutcome)
{
    const struct { const char *setting; ft_t type; const char *what; cameraStatus_t result; Bytes after;
                   QStringList records; cameraStatus_t rootStatus; } cases[] = {
        // Whatever is not allowed or sanitised does not survive: it is blanked.
        {"disallow", ft_png, "reported, blanked", 181, padded(""),
         {"issue 1001 Embedded Image present in TestLeaf|0|96"}, 153},
        {"allow", ft_png, "reported, left alone", 0, kImage, {"content 241 Embedded Image present in TestLeaf|0"}, 0},
        {"Sanitise", ft_png, "unknown setting, blanked", 162, padded(""),
         {"issue 464 Unable to determine content management setting for embedded_images switch|0|96"}, 0},
        {"sanitise", ft_png, "camera writes 5 bytes, answers 0", 0, padded("clean"), {}, 0},
        {"sanitise", ft_jpeg, "camera writes 38 bytes, answers 1", 162, kImage, {}, 0},
        {"sanitise", ft_bmp, "camera writes 3 bytes, answers -1", 128, padded("bad"), {}, 0},
        {"sanitise", ft_emf, "camera writes 41 bytes, answers -1", 128, kImage, {}, 0},
        {"sanitise", ft_gif, "no camera for the type", 128, padded(""), {}, 0},
    };
    for (const auto &c : cases) {
        setPolicy(element("embedded_images", c.setting));
        Bytes bytes = kImage;
        EXPECT_EQ(gateway(bytes, c.type), c.result) << c.setting << ": " << c.what;
        EXPECT_EQ(bytes, c.after) << c.setting << ": " << c.what;
        EXPECT_EQ(records(), c.records) << c.setting << ": " << c.what;
        EXPECT_EQ(root()->m_cameraStatus, c.rootStatus) << c.setting << ": " << c.what;
    }
    // Each of the four image cameras was given a copy of the image: 4 x 11 bytes.
    EXPECT_EQ(cameraRecords(), QStringList{"content 7 image=IMAGE-BYTES stream=|44"});
}

// A session set up for tree import fails its camera runs (no archives yet),
// but the gateway still hands the image over.
TEST_F(ImageGateway, ImportHandsTheImageOverAsTheStreamName)
{
    setPolicy(element("embedded_images", "sanitise"));
    ASSERT_TRUE(m_session->registryEntry(CameraBase::regImport).setFilePath("archive.zip"));
    ASSERT_TRUE(m_session->registryEntry(CameraBase::regOutput).setFilePath("out"));
    Bytes bytes = kImage;
    EXPECT_EQ(gateway(bytes, ft_png), 128u);
    EXPECT_EQ(cameraRecords(), QStringList{"content 7 image=IMAGE-BYTES stream=IMAGE-BYTES|11"});
    EXPECT_EQ(bytes, padded("")) << "nothing came back, so nothing of the image stays";
    for (int i = 0; i < 2; ++i) // the buffers went back to the run's pool without the image
        EXPECT_EQ(m_run->pool.allocateBuffer(kImage.size())->m_streamName, "") << "buffer " << i;
}

TEST_F(ImageGateway, FailuresInsideEndWith182)
{
    setPolicy(element("embedded_images", "sanitise"));
    Bytes bytes = kImage;
    testcamera::TestRun detached; // no session, so no policy
    testcamera::TestLeaf orphan;  // not in any tree
    const struct { const char *what; Bytes *image; BDDLStructBase *node; } cases[] = {
        {"no image", nullptr, root()}, {"no session", &bytes, detached.root.get()},
        {"no tree", &bytes, &orphan},  {"no node", &bytes, nullptr}};
    for (const auto &c : cases) {
        LogCapture log;
        EXPECT_EQ(imageCameraGateway(c.image, ft_png, &m_imageNode, 0, c.node, kItem), 182u) << c.what;
        EXPECT_EQ(log.messages(), QStringList{"imageCameraGateway failed"}) << c.what;
    }
    EXPECT_EQ(bytes, kImage);
}
