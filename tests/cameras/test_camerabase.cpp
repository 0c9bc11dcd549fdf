#include "cameras/camerabase.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/parameterblock.h"
#include "fixtures/fixtures.h"
#include "ucp/exporttreedata.h"
#include "logcapture.h"
#include "qtprinters.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

// Sessions run cameras of the gif test module (see tests/plugins), which
// registers type 25 and whose camera copies its input to its output, records
// what the session gave it as a content item "text|size" of group 7 and
// answers 1; an empty input makes it throw.
class Session : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_IDS_GIF), m_dir.filePath(QStringLiteral("gif.so"))));
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
    }
    static QStringList contentOf(CameraBase &session)
    {
        QStringList items;
        for (const auto &item : session.analysis().currentDocument()->contentGroups().at(7)->contentItems())
            items << QStringLiteral("%1|%2").arg(item.first.c_str()).arg(item.second->totalSize());
        return items;
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
};

} // namespace

// First in the file: handles are process-wide, and this test counts them from 1.
TEST(CameraBaseHandles, CountUpFromOneAndAreNotReused)
{
    auto first = std::make_unique<CameraBase>(nullptr);
    CameraBase second(nullptr);
    EXPECT_EQ(first->getHandle(), 1u);
    EXPECT_EQ(second.getHandle(), 2u);
    EXPECT_EQ(CameraBase::findCameraBase(1), first.get());
    first.reset();
    EXPECT_EQ(CameraBase::findCameraBase(1), nullptr);
    EXPECT_EQ(CameraBase(nullptr).getHandle(), 3u);
    EXPECT_EQ(CameraBase::findCameraBase(2), &second);
    // A handle taken without a session goes to the next session made.
    const unsigned long empty = CameraBase::getNewHandle(nullptr);
    EXPECT_EQ(CameraBase(nullptr).getHandle(), empty);
    LogCapture log;
    EXPECT_FALSE(CameraBase::freeHandle(empty)) << "the session freed it as it went";
    EXPECT_EQ(log.messages(), QStringList{"Error CameraBase::freeHandle incorrect"});
}

TEST(SessionRegEntry, IsSetOnceAndMovesBuffersThroughMemoryOrAFile)
{
    SessionRegEntry byValue;
    EXPECT_TRUE(byValue.setMemory("hello", 5));
    EXPECT_FALSE(byValue.setFilePath("/data/other"));
    EXPECT_TRUE(byValue.getFilepath().isEmpty()) << "a refused setter changes nothing";
    MemoryBuffer buffer = bufferOf("previous content");
    EXPECT_TRUE(byValue.loadMemoryBufferFromEntry(&buffer));
    EXPECT_EQ(bytesOf(buffer), QByteArray("hello"));

    char *data = nullptr;
    size_t size = 16;
    SessionRegEntry located;
    located.setMemory(&data, &size);
    EXPECT_FALSE(located.setMemory("xyz", 3));
    EXPECT_TRUE(located.loadMemoryBufferFromEntry(&buffer));
    EXPECT_EQ(bytesOf(buffer), QByteArray(16, '\0')) << "a size without data gives zero bytes";
    MemoryBuffer result = bufferOf("result");
    EXPECT_TRUE(located.writeMemoryBufferFromEntry(&result));
    EXPECT_EQ(data, reinterpret_cast<const char *>(result.constData())) << "handed back without a copy";
    EXPECT_EQ(size, 6u);
    size = 0;
    LogCapture log;
    EXPECT_FALSE(located.loadMemoryBufferFromEntry(&buffer)) << "nothing to load";
    EXPECT_FALSE(SessionRegEntry().writeMemoryBufferFromEntry(&result)) << "an unset entry";
    EXPECT_EQ(log.messages(), (QStringList{"loadMemoryBufferFromEntry failed", "writeMemoryBufferFromEntry failed"}));

    QTemporaryDir dir;
    SessionRegEntry file, unwritable;
    EXPECT_TRUE(file.setFilePath(dir.filePath(QStringLiteral("out.final.XML")).toUtf8()));
    EXPECT_EQ(file.getFileextension(), QStringLiteral("XML"));
    MemoryBuffer empty;
    EXPECT_FALSE(file.writeMemoryBufferFromEntry(&empty)) << "an empty buffer writes nothing";
    EXPECT_FALSE(file.loadMemoryBufferFromEntry(&empty)) << "no file yet";
    MemoryBuffer content = bufferOf("file content");
    content.seek(4);
    EXPECT_TRUE(file.writeMemoryBufferFromEntry(&content));
    EXPECT_TRUE(file.loadMemoryBufferFromEntry(&buffer));
    EXPECT_EQ(bytesOf(buffer), QByteArray("file content")) << "the whole buffer, not from its cursor";
    EXPECT_EQ(buffer.tell(), 0u);
    unwritable.setFilePath(dir.filePath(QStringLiteral("missing/out.bin")).toUtf8());
    EXPECT_FALSE(unwritable.writeMemoryBufferFromEntry(&content));
}

TEST(CameraBaseModes, FollowTheRegisteredEntries)
{
    // Every combination of the ten entries: only 1, 2, 3, 5 and 6 count.
    for (unsigned set = 0; set < 1024; ++set) {
        CameraBase session(nullptr);
        for (size_t entry = 0; entry < 10; ++entry)
            if (set & (1u << entry))
                session.registryEntry(entry).setFilePath("x");
        const auto has = [set](int entry) { return (set & (1u << entry)) != 0; };
        EXPECT_EQ(session.isExportMode(), has(1) && has(6)) << "entries " << set;
        EXPECT_EQ(session.isImportMode(), has(5) && has(2)) << "entries " << set;
        EXPECT_EQ(session.isDefaultMode(), has(1) && (has(2) || has(3))) << "entries " << set;
    }
    EXPECT_THROW(CameraBase(nullptr).registryEntry(10), std::out_of_range);
}

// Sessions made and destroyed on many threads at once: no handle is ever held
// by two live sessions, and none is left behind.
TEST(CameraBaseHandles, AreUniqueAcrossThreadsAndAllGiveBack)
{
    const int before = CameraBase::handleCount();
    std::mutex liveLock;
    std::set<unsigned long> live;
    std::atomic<int> clashes{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                CameraBase session(nullptr);
                const unsigned long handle = session.getHandle();
                {
                    const std::lock_guard<std::mutex> lock(liveLock);
                    if (!live.insert(handle).second || CameraBase::findCameraBase(handle) != &session)
                        ++clashes;
                }
                const std::lock_guard<std::mutex> lock(liveLock);
                live.erase(handle); // before the session gives the handle back
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(clashes, 0);
    EXPECT_EQ(CameraBase::handleCount(), before);
}

TEST_F(Session, PushCameraRunsThePoolsCameraForTheType)
{
    CameraBase session(m_pool.get());
    session.registryEntry(CameraBase::regInput).setFilePath("x");
    MemoryBuffer input = bufferOf("image bytes");
    MemoryBuffer output;
    // The block's root is only stored; a placeholder will do.
    const std::unique_ptr<ParameterBlock> block =
        getParameterBlockFromFt(ft_gif, reinterpret_cast<BDDLStructBase_Root *>(0x1000), nullptr);
    EXPECT_EQ(session.pushCamera(&input, &output, ft_gif, block.get()), 1) << "entry 1 alone is no mode at all";
    EXPECT_EQ(bytesOf(output), QByteArray("image bytes"));
    EXPECT_EQ(contentOf(session), QStringList{"type=25 session=yes block=GIF_CAMERA|11"});

    LogCapture log;
    EXPECT_EQ(session.pushCamera(&input, &output, ft_png, nullptr), -1);
    EXPECT_EQ(session.pushCamera(&input, &output, ft_unknown, nullptr), -1) << "refused without a word";
    MemoryBuffer empty;
    empty.m_name = "empty.gif";
    EXPECT_EQ(session.pushCamera(&empty, &output, ft_gif, nullptr), -1) << "the camera throws";
    EXPECT_EQ(session.finalPush(nullptr, &input, &output, ft_gif), -1);
    EXPECT_EQ(log.messages(),
              (QStringList{"prepareCamera failed to find cameras for 23", "pushCamera fail empty.gif"}));
    session.registryEntry(CameraBase::regExport).setFilePath("x");
    input.m_name = "picture.gif";
    EXPECT_EQ(session.pushCamera(&input, &output, ft_gif, nullptr), 0) << "export mode stores the tree";
    EXPECT_EQ(session.exporter().manifest().keys(), QStringList{"picture.gif"});
}

TEST_F(Session, CamerasAttachAndTheReportIsDumpedUnlessReportedElsewhere)
{
    CameraBase session(m_pool.get());
    EXPECT_FALSE(session.useCamera(nullptr));
    EXPECT_TRUE(session.useCamera(m_pool->getPluginFromFileType(ft_gif)));
    EXPECT_TRUE(session.connectCamera(QStringLiteral(VX_TEST_MODULE_IDS_GIF)));
    for (const char *refused : {VX_TEST_MODULE_NOT_CAMERA, VX_TEST_MODULE_NOT_A_PLUGIN, "/missing.so",
                                VX_TEST_MODULE_IDS_WORD /* a plug-in without camera */})
        EXPECT_FALSE(session.connectCamera(QString::fromUtf8(refused))) << refused;
    EXPECT_NE(session.camera(), nullptr) << "a failed attach keeps the camera";

    session.setExternalReportActive(true);
    EXPECT_TRUE(session.dumpAnalysisToBuffer());
    EXPECT_EQ(session.analysisBuffer()->sizeOfMB(), 0u);
    session.setExternalReportActive(false);
    EXPECT_TRUE(session.dumpAnalysisToBuffer());
    EXPECT_TRUE(bytesOf(*session.analysisBuffer()).contains("vx:CorvidInfo"));
}
