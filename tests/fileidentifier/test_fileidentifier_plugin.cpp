#include "fileidentifiermodule.h"

#include "cameras/camera_pool.h"
#include "fixtures/fixtures.h"
#include "logcapture.h"
#include "qtprinters.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QPluginLoader>

#include <gtest/gtest.h>

#include <memory>

// The file-identifier plug-in as a host sees it: the module's metadata, Qt's
// casts, the plug-in's answers, and the module inside a camera pool.

namespace {

const QByteArray kGzip = QByteArray::fromHex("1f8b0800");
const char kUntouched[] = "untouched";

class FileIdentifierPlugin : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_plugin = fileIdentifierPlugin();
        ASSERT_NE(m_plugin, nullptr) << "the module did not load: " << fileIdentifierModulePath().toStdString();
    }

    VXCameraPluginIF *m_plugin = nullptr;
};

} // namespace

TEST(FileIdentifierModule, MetadataNamesTheInterfaceAndTheClass)
{
    QPluginLoader loader(fileIdentifierModulePath());
    const QJsonObject metaData = loader.metaData();
    EXPECT_EQ(metaData.value(QStringLiteral("IID")).toString(), QStringLiteral("vx_core2_camera_interface_v0.8"));
    EXPECT_EQ(metaData.value(QStringLiteral("className")).toString(), QStringLiteral("FileIdentifier_camera_pluginIF"));
#ifdef QT_NO_DEBUG
    const bool debugBuild = false; // release builds, the shipped kind, say false
#else
    const bool debugBuild = true; // Qt's build tools mark a debug build's module so
#endif
    EXPECT_EQ(metaData.value(QStringLiteral("debug")), QJsonValue(debugBuild));
    EXPECT_EQ(metaData.value(QStringLiteral("version")).toInt() >> 8, QT_VERSION >> 8)
        << "the Qt release the module was built with (major and minor)";
    EXPECT_TRUE(metaData.value(QStringLiteral("MetaData")).toObject().isEmpty()) << "no metadata of its own";
}

TEST(FileIdentifierModule, OnePluginObjectAnsweringQtsCastsByName)
{
    QPluginLoader loader(fileIdentifierModulePath());
    QObject *const object = loader.instance();
    ASSERT_NE(object, nullptr) << loader.errorString().toStdString();
    EXPECT_EQ(QPluginLoader(fileIdentifierModulePath()).instance(), object) << "one instance per module";

    void *const self = object;
    void *const asInterface = static_cast<VXCameraPluginIF *>(qobject_cast<VXCameraPluginIF *>(object));
    ASSERT_NE(asInterface, nullptr);
    const struct
    {
        const char *name;
        void *expected;
    } casts[] = {
        {"FileIdentifier::FileIdentifier_camera_pluginIF", self},
        {"VXCameraPluginIF", asInterface},
        {"vx_core2_camera_interface_v0.8", asInterface},
        {"QObject", self},
        {"vx_core2_camera_interface_v0.7", nullptr},
        {"FileIdentifier_camera_pluginIF", nullptr},
        {nullptr, nullptr},
    };
    for (const auto &c : casts)
        EXPECT_EQ(object->qt_metacast(c.name), c.expected) << (c.name ? c.name : "(null name)");
    EXPECT_STREQ(object->metaObject()->className(), "FileIdentifier::FileIdentifier_camera_pluginIF");
}

TEST_F(FileIdentifierPlugin, ExtensionFiInAnyCaseIsTheFileIdentifiersOnly)
{
    const std::unique_ptr<VXCameraIF> camera(m_plugin->getCamera());
    ASSERT_NE(camera, nullptr);
    const struct
    {
        const char *extension;
        ft_t expected;
    } cases[] = {
        {"fi", ft_fileidentifier}, {"FI", ft_fileidentifier}, {"fI", ft_fileidentifier},
        {"fid", ft_unknown},       {".fi", ft_unknown},       {"", ft_unknown},
        {"f", ft_unknown},         {"fi ", ft_unknown},       {nullptr, ft_unknown},
    };
    for (const auto &c : cases) {
        const char *const what = c.extension ? c.extension : "(null)";
        EXPECT_EQ(m_plugin->getFileTypeFromFileExtension(c.extension), c.expected) << "plug-in, " << what;
        EXPECT_EQ(camera->getFileTypeFromFileExtension(c.extension), c.expected) << "camera, " << what;
    }
}

TEST_F(FileIdentifierPlugin, MainTypeIsNeverAnsweredAndTheSubTypeIsTheArchiveKind)
{
    const std::unique_ptr<VXCameraIF> camera(m_plugin->getCamera());
    const struct
    {
        const char *what;
        QByteArray bytes;
        ft_t subType;
        const char *reason;
    } cases[] = {
        {"gzip", kGzip, ft_gzip, "signature match"},
        {"empty", QByteArray(), ft_unknown, "Reason unknown"},
        {"text", QByteArrayLiteral("just words"), ft_unknown, "Reason unknown"},
        {"zip", readFixture(QStringLiteral("archives/plain.zip")), ft_zip, "signature match"},
        {"docx", readFixture(QStringLiteral("archives/sample.docx")), ft_unknown, "structure match"},
        {"old tar", readFixture(QStringLiteral("archives/v7.tar")), ft_tar, "structure match"},
    };
    for (const auto &c : cases) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        buffer.seek(buffer.sizeOfMB(), MBSeekStart);
        const char *reason = kUntouched;
        EXPECT_EQ(m_plugin->getFileTypeFromFileInMemory(&buffer, &reason), ft_unknown) << c.what;
        EXPECT_EQ(reason, kUntouched) << c.what << ": the main-type question leaves the reason alone";
        EXPECT_EQ(buffer.tell(), buffer.sizeOfMB()) << c.what << ": and the buffer";

        EXPECT_EQ(m_plugin->getSubTypeFromFileInMemory(&buffer, &reason), c.subType) << c.what;
        EXPECT_STREQ(reason, c.reason) << c.what;
        EXPECT_EQ(buffer.tell(), 0u) << c.what;

        reason = nullptr;
        EXPECT_EQ(camera->getFileTypeFromFileInMemory(&buffer, &reason), c.subType) << "camera, " << c.what;
        EXPECT_STREQ(reason, c.reason) << "camera, " << c.what;
    }
    EXPECT_EQ(m_plugin->getSubTypeFromFileInMemory(nullptr, nullptr), ft_unknown);
}

TEST_F(FileIdentifierPlugin, FreshCamerasAndNoMessagesGroupsOrTables)
{
    const std::unique_ptr<VXCameraIF> first(m_plugin->getCamera());
    const std::unique_ptr<VXCameraIF> second(m_plugin->getCamera());
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->getFileTypeFromProgID("Word.Document.8"), ft_unknown);
    EXPECT_EQ(first->getFileTypeFromClassID("00020906-0000-0000-C000-000000000046"), ft_unknown);

    EXPECT_EQ(m_plugin->getRegisteredFileTypeEnum(), ft_fileidentifier);
    EXPECT_EQ(m_plugin->getAnalysisGroupIdMap(), nullptr);
    char key[] = "File is not supported";
    EXPECT_EQ(m_plugin->getErrMsgID(key), 0u);
    EXPECT_EQ(m_plugin->getErrMsgID(nullptr), 0u);
    EXPECT_EQ(m_plugin->getSanitisationMsgID(key), 0u);
    EXPECT_EQ(m_plugin->getAnalysisGroupID(27), 0u);
    EXPECT_EQ(m_plugin->initialiseIDLookups(), 0);
}

TEST(FileIdentifierInPool, LoadedFromItsDirectoryAndAskedLikeAnyCamera)
{
    const PluginDirectory dir;
    ASSERT_TRUE(dir.isValid());
    LogCapture log;
    const Camera_Pool pool(dir.path());
    EXPECT_TRUE(log.messages().contains(
        QStringLiteral("Loading plugin libfileidentifier.so version:vx_core2_camera_interface_v0.8")))
        << log.messages().join(QLatin1Char('\n')).toStdString();

    EXPECT_EQ(pool.getListOfCameraNames(), QStringList{QStringLiteral("libfileidentifier.so")});
    EXPECT_EQ(pool.getFileTypeFromCameraName(QStringLiteral("libfileidentifier.so")), ft_fileidentifier);
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_fileidentifier), QStringLiteral("libfileidentifier.so"));
    VXCameraPluginIF *const plugin = pool.getPluginFromFileType(ft_fileidentifier);
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->getRegisteredFileTypeEnum(), ft_fileidentifier);
    EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_fileidentifier), nullptr);
    char key[] = "anything";
    EXPECT_EQ(pool.getErrMsgID(ft_fileidentifier, key), 0u);

    for (const char *extension : {"fi", "FI", "Fi"})
        EXPECT_EQ(pool.getFileTypeFromFileExtension(extension), ft_fileidentifier) << extension;
    for (const char *extension : {"fid", ".fi", ""})
        EXPECT_EQ(pool.getFileTypeFromFileExtension(extension), ft_unknown) << extension;

    MemoryBuffer gzip = bufferOf(kGzip);
    QString reason = QStringLiteral("before");
    EXPECT_EQ(pool.getFileTypeFromFileInMemory(&gzip, reason), ft_unknown);
    EXPECT_EQ(reason, QStringLiteral("before")) << "no plug-in gave a reason";
    EXPECT_EQ(pool.getSubFileTypeFromFileInMemory(&gzip, reason), ft_gzip);
    EXPECT_EQ(reason, QStringLiteral("signature match"));
}
