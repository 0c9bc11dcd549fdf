#include "cameras/camerabase.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/parameterblock.h"
#include "logcapture.h"
#include "qtprinters.h"

#include <QFile>
#include <QPluginLoader>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>

// Sessions run cameras of the gif test module (see tests/plugins), which
// registers type 25 and whose camera copies its input to its output, records
// what the session gave it as a content item of group 7 and answers 1.

namespace {

const char kGifModule[] = VX_TEST_MODULE_IDS_GIF;

MemoryBuffer bufferOf(const char *text)
{
    MemoryBuffer buffer;
    buffer.putRawBytes(text, std::strlen(text));
    buffer.seek(0);
    return buffer;
}

QByteArray bytesOf(const MemoryBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.constData()), static_cast<int>(buffer.sizeOfMB()));
}

// The content items of a group of the session's repository, as "text|size".
QStringList contentOf(CameraBase &session, short group)
{
    QStringList items;
    const auto &groups = session.analysis().currentDocument()->contentGroups();
    const auto found = groups.find(group);
    if (found != groups.end())
        for (const auto &item : found->second->contentItems())
            items << QStringLiteral("%1|%2").arg(QString::fromStdString(item.first)).arg(item.second->totalSize());
    return items;
}

class Session : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_TRUE(QFile::copy(QString::fromUtf8(kGifModule), m_dir.filePath(QStringLiteral("gif.so"))));
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
        m_session = std::make_unique<CameraBase>(m_pool.get());
    }

    void activate(std::initializer_list<size_t> entries)
    {
        for (size_t entry : entries)
            ASSERT_TRUE(m_session->registryEntry(entry).setFilePath("x")) << "entry " << entry;
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
}

TEST(CameraBaseHandles, AHandleHoldingNoSessionIsReused)
{
    const unsigned long empty = CameraBase::getNewHandle(nullptr);
    EXPECT_EQ(CameraBase::findCameraBase(empty), nullptr);
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
    SessionRegEntry memory;
    EXPECT_FALSE(memory.isActive());
    EXPECT_TRUE(memory.setMemory("abc", 3));
    EXPECT_TRUE(memory.isActive());
    EXPECT_FALSE(memory.setFilePath("/tmp/other"));
    EXPECT_TRUE(memory.getFilepath().isEmpty()) << "a refused setter changes nothing";
    char *data = nullptr;
    size_t size = 0;
    EXPECT_FALSE(memory.setMemory(&data, &size));
    EXPECT_FALSE(memory.setMemory("xyz", 3));

    SessionRegEntry file;
    EXPECT_TRUE(file.setFilePath("/data/report.final.XML"));
    EXPECT_EQ(file.getFilepath(), QStringLiteral("/data/report.final.XML"));
    EXPECT_EQ(file.getFileextension(), QStringLiteral("XML"));
    EXPECT_FALSE(file.setMemory("abc", 3));
    EXPECT_FALSE(file.setFilePath("/data/other"));

    SessionRegEntry noPath;
    EXPECT_TRUE(noPath.setFilePath(nullptr));
    EXPECT_TRUE(noPath.isActive());
    EXPECT_TRUE(noPath.getFileextension().isEmpty());
    EXPECT_EQ(SessionRegEntry::getUnderlyingMemoryBufferPtr(nullptr), nullptr);
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
    EXPECT_EQ(buffer.tell(), 0u);

    MemoryBuffer result = bufferOf("result");
    EXPECT_TRUE(located.writeMemoryBufferFromEntry(&result));
    EXPECT_EQ(data, reinterpret_cast<const char *>(result.constData()));
    EXPECT_EQ(size, 6u);

    size = 0;
    LogCapture log;
    EXPECT_FALSE(located.loadMemoryBufferFromEntry(&buffer)) << "nothing to load";
    SessionRegEntry unset;
    EXPECT_FALSE(unset.writeMemoryBufferFromEntry(&result));
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
    EXPECT_EQ(loaded.m_name, path.toStdString());
    EXPECT_EQ(loaded.tell(), 0u);

    SessionRegEntry unwritable;
    unwritable.setFilePath(dir.filePath(QStringLiteral("missing/dir/out.bin")).toUtf8().constData());
    EXPECT_FALSE(unwritable.writeMemoryBufferFromEntry(&content));
}

TEST_F(Session, StartsWithNamedBuffersAnOpenDocumentAndSisl)
{
    EXPECT_EQ(m_session->getCameraPool(), m_pool.get());
    EXPECT_EQ(m_session->camera(), nullptr);
    const std::pair<MemoryBuffer *, const char *> buffers[] = {
        {m_session->inputBuffer(), "inputBuffer"},       {m_session->outputBuffer(), "outputBuffer"},
        {m_session->analysisBuffer(), "analysisBuffer"}, {m_session->importBuffer(), "importBuffer"},
        {m_session->exportBuffer(), "exportBuffer"},
    };
    for (const auto &[buffer, name] : buffers) {
        ASSERT_NE(buffer, nullptr) << name;
        EXPECT_EQ(buffer->m_name, name);
        EXPECT_EQ(buffer->sizeOfMB(), 0u) << name;
    }
    EXPECT_EQ(m_session->bufferPool().sizeOfMemoryBufferPool(), 5u);
    EXPECT_EQ(m_session->analysis().currentDocument()->name(), "docname");
    EXPECT_EQ(m_session->analysis().currentDocument()->summary().version(), "Not Applicable");
    EXPECT_EQ(m_session->getSerialFormat(), sfSISL);
    EXPECT_FALSE(m_session->getPrettyPrint());
    EXPECT_FALSE(m_session->getExternalReportActive());
    EXPECT_EQ(m_session->runsession(), 0);
    EXPECT_THROW(m_session->registryEntry(10), std::out_of_range);
}

TEST_F(Session, ModeFollowsTheRegisteredEntries)
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
        CameraBase session(m_pool.get());
        QStringList active;
        for (size_t entry : c.active) {
            session.registryEntry(entry).setFilePath("x");
            active << QString::number(entry);
        }
        EXPECT_EQ(session.isExportMode(), c.exporting) << "entries " << active.join(',').toStdString();
        EXPECT_EQ(session.isImportMode(), c.importing) << "entries " << active.join(',').toStdString();
        EXPECT_EQ(session.isDefaultMode(), c.defaulting) << "entries " << active.join(',').toStdString();
    }
}

TEST_F(Session, PushCameraRunsThePluginsCameraInDefaultMode)
{
    activate({CameraBase::regInput, CameraBase::regOutput});
    MemoryBuffer input = bufferOf("image bytes");
    MemoryBuffer output;
    // The block's root is only stored; a placeholder will do.
    const std::unique_ptr<ParameterBlock> block =
        getParameterBlockFromFt(ft_gif, reinterpret_cast<BDDLStructBase_Root *>(0x1000), nullptr);
    EXPECT_EQ(m_session->pushCamera(&input, &output, ft_gif, block.get()), 1);
    EXPECT_EQ(bytesOf(output), QByteArray("image bytes"));
    EXPECT_EQ(contentOf(*m_session, 7), QStringList{QStringLiteral("type=25 session=yes block=GIF_CAMERA|11")});

    // Entry 1 alone is no mode at all, which runs the camera as well.
    CameraBase plain(m_pool.get());
    plain.registryEntry(CameraBase::regInput).setFilePath("x");
    MemoryBuffer again;
    EXPECT_EQ(plain.pushCamera(&input, &again, ft_gif, nullptr), 1);
    EXPECT_EQ(contentOf(plain, 7), QStringList{QStringLiteral("type=25 session=yes block=none|11")});
}

TEST_F(Session, PushCameraFailsForTypesWithoutCameraAndOnExceptions)
{
    MemoryBuffer input = bufferOf("data");
    input.m_name = "input.gif";
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
}

TEST_F(Session, ExportAndImportAreNotAvailableYet)
{
    MemoryBuffer input = bufferOf("data");
    MemoryBuffer output;
    EXPECT_EQ(m_session->finalPush(nullptr, &input, &output, ft_gif), -1);
    const std::unique_ptr<VXCameraIF> camera(m_session->prepareCamera(&input, &output, ft_gif, nullptr));
    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(m_session->finalPush(camera.get(), &input, &output, ft_gif), 1) << "no mode: the camera runs";
    activate({CameraBase::regInput, CameraBase::regExport});
    EXPECT_EQ(m_session->finalPush(camera.get(), &input, &output, ft_gif), -1);
    camera->deinitialiseCamera();
    EXPECT_EQ(m_session->prepareCamera(&input, &output, ft_unknown, nullptr), nullptr);
}

TEST_F(Session, CamerasAttachFromPluginsAndPluginFiles)
{
    EXPECT_FALSE(m_session->useCamera(nullptr));
    EXPECT_TRUE(m_session->useCamera(m_pool->getPluginFromFileType(ft_gif)));
    VXCameraIF *attached = m_session->camera();
    EXPECT_NE(attached, nullptr);

    EXPECT_TRUE(m_session->connectCamera(QString::fromUtf8(kGifModule)));
    EXPECT_NE(m_session->camera(), nullptr);
    EXPECT_FALSE(m_session->connectCamera(QString::fromUtf8(VX_TEST_MODULE_NOT_CAMERA)));
    EXPECT_FALSE(m_session->connectCamera(QString::fromUtf8(VX_TEST_MODULE_NOT_A_PLUGIN)));
    EXPECT_FALSE(m_session->connectCamera(m_dir.filePath(QStringLiteral("missing.so"))));
    EXPECT_FALSE(m_session->connectCamera(QString::fromUtf8(VX_TEST_MODULE_IDS_WORD))) << "its plug-in has no camera";
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
