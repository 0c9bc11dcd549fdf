#include "cameras/camerabase.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/parameterblock.h"
#include "fixtures/fixtures.h"
#include "logcapture.h"
#include "qtprinters.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// Sessions run cameras of the gif test module (see tests/plugins), which
// registers type 25 and whose camera copies its input to its output, records
// what the session gave it as a content item of group 7 and answers 1; an
// empty input makes it throw.

namespace {

QByteArray bytesOf(const MemoryBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.constData()), static_cast<int>(buffer.sizeOfMB()));
}

// The content items of group 7 of the session's repository, as "text|size".
QStringList contentOf(CameraBase &session)
{
    QStringList items;
    for (const auto &item : session.analysis().currentDocument()->contentGroups().at(7)->contentItems())
        items << QStringLiteral("%1|%2").arg(QString::fromStdString(item.first)).arg(item.second->totalSize());
    return items;
}

class Session : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QFile::copy(QStringLiteral(VX_TEST_MODULE_IDS_GIF), m_dir.filePath(QStringLiteral("gif.so"))));
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
        m_session = std::make_unique<CameraBase>(m_pool.get());
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
    std::unique_ptr<CameraBase> m_session;
};

} // namespace

// First in the file: handles are process-wide, and this test counts them from 1.
TEST(CameraBaseHandles, CountUpFromOneAndAreNotReused)
{
    auto first = std::make_unique<CameraBase>(nullptr);
    auto second = std::make_unique<CameraBase>(nullptr);
    EXPECT_EQ(first->getHandle(), 1u);
    EXPECT_EQ(second->getHandle(), 2u);
    EXPECT_EQ(CameraBase::findCameraBase(1), first.get());
    first.reset();
    EXPECT_EQ(CameraBase::findCameraBase(1), nullptr);
    CameraBase third(nullptr);
    EXPECT_EQ(third.getHandle(), 3u);
    EXPECT_EQ(CameraBase::findCameraBase(2), second.get());

    // A handle taken without a session goes to the next session made.
    const unsigned long empty = CameraBase::getNewHandle(nullptr);
    {
        CameraBase session(nullptr);
        EXPECT_EQ(session.getHandle(), empty);
        EXPECT_EQ(CameraBase::findCameraBase(empty), &session);
    }
    LogCapture log;
    EXPECT_FALSE(CameraBase::freeHandle(empty)) << "the session freed it as it went";
    EXPECT_FALSE(CameraBase::freeHandle(123456));
    EXPECT_EQ(log.messages(), (QStringList{QStringLiteral("Error CameraBase::freeHandle incorrect"),
                                           QStringLiteral("Error CameraBase::freeHandle incorrect")}));
}

TEST(SessionRegEntry, IsSetOnceOnly)
{
    SessionRegEntry memory, file;
    EXPECT_FALSE(memory.isActive());
    EXPECT_TRUE(memory.setMemory("abc", 3));
    EXPECT_TRUE(memory.isActive());
    EXPECT_TRUE(file.setFilePath("/data/report.final.XML"));
    char *data = nullptr;
    size_t size = 0;
    for (SessionRegEntry *entry : {&memory, &file}) {
        EXPECT_FALSE(entry->setFilePath("/data/other"));
        EXPECT_FALSE(entry->setMemory("xyz", 3));
        EXPECT_FALSE(entry->setMemory(&data, &size));
    }
    EXPECT_TRUE(memory.getFilepath().isEmpty()) << "a refused setter changes nothing";
    EXPECT_EQ(file.getFilepath(), QStringLiteral("/data/report.final.XML"));
    EXPECT_EQ(file.getFileextension(), QStringLiteral("XML"));
}

TEST(SessionRegEntry, MemoryEntriesLoadAndHandBackWithoutCopying)
{
    SessionRegEntry byValue;
    byValue.setMemory("hello", 5);
    MemoryBuffer buffer = bufferOf("previous content");
    EXPECT_TRUE(byValue.loadMemoryBufferFromEntry(&buffer));
    EXPECT_EQ(bytesOf(buffer), QByteArray("hello"));
    EXPECT_EQ(buffer.tell(), 0u);

    char *data = nullptr;
    size_t size = 16;
    SessionRegEntry located;
    located.setMemory(&data, &size);
    EXPECT_TRUE(located.loadMemoryBufferFromEntry(&buffer));
    EXPECT_EQ(bytesOf(buffer), QByteArray(16, '\0')) << "a size without data gives zero bytes";

    MemoryBuffer result = bufferOf("result");
    EXPECT_TRUE(located.writeMemoryBufferFromEntry(&result));
    EXPECT_EQ(data, reinterpret_cast<const char *>(result.constData()));
    EXPECT_EQ(size, 6u);

    size = 0;
    LogCapture log;
    EXPECT_FALSE(located.loadMemoryBufferFromEntry(&buffer)) << "nothing to load";
    EXPECT_FALSE(SessionRegEntry().writeMemoryBufferFromEntry(&result)) << "an unset entry";
    EXPECT_EQ(log.messages(), (QStringList{QStringLiteral("loadMemoryBufferFromEntry failed"),
                                           QStringLiteral("writeMemoryBufferFromEntry failed")}));
}

TEST(SessionRegEntry, FileEntriesReadAndWriteTheFile)
{
    QTemporaryDir dir;
    const QByteArray path = dir.filePath(QStringLiteral("out.bin")).toUtf8();
    SessionRegEntry file;
    file.setFilePath(path.constData());

    MemoryBuffer empty;
    EXPECT_FALSE(file.writeMemoryBufferFromEntry(&empty));
    EXPECT_FALSE(QFile::exists(QString::fromUtf8(path))) << "an empty buffer writes nothing";
    EXPECT_FALSE(file.loadMemoryBufferFromEntry(&empty)) << "no file yet";

    MemoryBuffer content = bufferOf("file content");
    content.seek(4);
    EXPECT_TRUE(file.writeMemoryBufferFromEntry(&content));
    MemoryBuffer loaded = bufferOf("old");
    EXPECT_TRUE(file.loadMemoryBufferFromEntry(&loaded));
    EXPECT_EQ(bytesOf(loaded), QByteArray("file content")) << "the whole buffer, not from its cursor";
    EXPECT_EQ(loaded.tell(), 0u);

    SessionRegEntry unwritable;
    unwritable.setFilePath(dir.filePath(QStringLiteral("missing/dir/out.bin")).toUtf8().constData());
    EXPECT_FALSE(unwritable.writeMemoryBufferFromEntry(&content));
}

TEST(CameraBaseModes, FollowTheRegisteredEntries)
{
    struct Case
    {
        std::initializer_list<size_t> active;
        bool exporting, importing, defaulting;
    };
    const Case cases[] = {
        {{1, 6}, true, false, false}, {{5, 2}, false, true, false}, {{1, 3}, false, false, true},
        {{1, 2}, false, false, true}, {{1}, false, false, false},      {{}, false, false, false},
        {{1, 2, 5, 6}, true, true, true}, {{0, 4, 7, 8, 9}, false, false, false},
    };
    for (const Case &c : cases) {
        CameraBase session(nullptr);
        QStringList active;
        for (size_t entry : c.active) {
            session.registryEntry(entry).setFilePath("x");
            active << QString::number(entry);
        }
        EXPECT_EQ(session.isExportMode(), c.exporting) << "entries " << active.join(',').toStdString();
        EXPECT_EQ(session.isImportMode(), c.importing) << "entries " << active.join(',').toStdString();
        EXPECT_EQ(session.isDefaultMode(), c.defaulting) << "entries " << active.join(',').toStdString();
    }
    EXPECT_THROW(CameraBase(nullptr).registryEntry(10), std::out_of_range);
}

TEST_F(Session, PushCameraRunsThePluginsCamera)
{
    m_session->registryEntry(CameraBase::regInput).setFilePath("x");
    m_session->registryEntry(CameraBase::regOutput).setFilePath("x");
    MemoryBuffer input = bufferOf("image bytes");
    MemoryBuffer output;
    // The block's root is only stored; a placeholder will do.
    const std::unique_ptr<ParameterBlock> block =
        getParameterBlockFromFt(ft_gif, reinterpret_cast<BDDLStructBase_Root *>(0x1000), nullptr);
    EXPECT_EQ(m_session->pushCamera(&input, &output, ft_gif, block.get()), 1);
    EXPECT_EQ(bytesOf(output), QByteArray("image bytes"));
    EXPECT_EQ(contentOf(*m_session), QStringList{QStringLiteral("type=25 session=yes block=GIF_CAMERA|11")});

    // Entry 1 alone is no mode at all, which runs the camera as well; export
    // mode is not available yet.
    CameraBase plain(m_pool.get());
    plain.registryEntry(CameraBase::regInput).setFilePath("x");
    MemoryBuffer again;
    EXPECT_EQ(plain.pushCamera(&input, &again, ft_gif, nullptr), 1);
    EXPECT_EQ(contentOf(plain), QStringList{QStringLiteral("type=25 session=yes block=none|11")});
    plain.registryEntry(CameraBase::regExport).setFilePath("x");
    EXPECT_EQ(plain.pushCamera(&input, &again, ft_gif, nullptr), -1);
}

TEST_F(Session, PushCameraFailsForTypesWithoutCameraAndOnExceptions)
{
    MemoryBuffer input = bufferOf("data");
    MemoryBuffer output;
    LogCapture log;
    EXPECT_EQ(m_session->pushCamera(&input, &output, ft_png, nullptr), -1);
    EXPECT_EQ(m_session->pushCamera(&input, &output, ft_unknown, nullptr), -1);
    EXPECT_EQ(log.messages(), QStringList{QStringLiteral("prepareCamera failed to find cameras for 23")})
        << "type 0 is refused without a word";

    log.clear();
    MemoryBuffer empty;
    empty.m_name = "empty.gif";
    EXPECT_EQ(m_session->pushCamera(&empty, &output, ft_gif, nullptr), -1) << "the camera throws";
    EXPECT_EQ(log.messages(), QStringList{QStringLiteral("pushCamera fail empty.gif")});
    EXPECT_EQ(m_session->finalPush(nullptr, &input, &output, ft_gif), -1);
}

TEST_F(Session, CamerasAttachFromPluginsAndPluginFiles)
{
    EXPECT_FALSE(m_session->useCamera(nullptr));
    EXPECT_TRUE(m_session->useCamera(m_pool->getPluginFromFileType(ft_gif)));
    EXPECT_NE(m_session->camera(), nullptr);
    EXPECT_TRUE(m_session->connectCamera(QStringLiteral(VX_TEST_MODULE_IDS_GIF)));
    for (const char *refused : {VX_TEST_MODULE_NOT_CAMERA, VX_TEST_MODULE_NOT_A_PLUGIN, "/missing.so",
                                VX_TEST_MODULE_IDS_WORD /* a plug-in without camera */})
        EXPECT_FALSE(m_session->connectCamera(QString::fromUtf8(refused))) << refused;
    EXPECT_NE(m_session->camera(), nullptr) << "a failed attach keeps the camera";
}

TEST_F(Session, DumpsTheDetailedReportUnlessReportedElsewhere)
{
    m_session->setExternalReportActive(true);
    EXPECT_TRUE(m_session->dumpAnalysisToBuffer());
    EXPECT_EQ(m_session->analysisBuffer()->sizeOfMB(), 0u);
    m_session->setExternalReportActive(false);
    EXPECT_TRUE(m_session->dumpAnalysisToBuffer());
    EXPECT_TRUE(bytesOf(*m_session->analysisBuffer()).contains("vx:CorvidInfo"));
}
