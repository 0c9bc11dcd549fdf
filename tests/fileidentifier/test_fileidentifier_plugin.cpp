#include "fileidentifiermodule.h"

#include "cameras/camera_pool.h"
#include "logcapture.h"
#include "qtprinters.h"

#include <QJsonObject>

#include <gtest/gtest.h>

#include <memory>

// The file-identifier plug-in as a host sees it: the module's metadata, Qt's
// casts, the plug-in's answers, and the module inside a camera pool.

TEST(FileIdentifierPlugin, MetadataAndQtsCastsByName)
{
    const QJsonObject metaData = QPluginLoader(fileIdentifierModulePath()).metaData();
    EXPECT_EQ(metaData.value(QStringLiteral("IID")).toString(), QStringLiteral("vx_core2_camera_interface_v0.8"));
    EXPECT_EQ(metaData.value(QStringLiteral("className")).toString(), QStringLiteral("FileIdentifier_camera_pluginIF"));
#ifdef QT_NO_DEBUG
    EXPECT_EQ(metaData.value(QStringLiteral("debug")), QJsonValue(false));
#else
    EXPECT_EQ(metaData.value(QStringLiteral("debug")), QJsonValue(true));
#endif

    QObject *const object = QPluginLoader(fileIdentifierModulePath()).instance();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(QPluginLoader(fileIdentifierModulePath()).instance(), object) << "one instance per module";
    void *const asInterface = qobject_cast<VXCameraPluginIF *>(object);
    ASSERT_NE(asInterface, nullptr);
    EXPECT_EQ(object->qt_metacast("vx_core2_camera_interface_v0.8"), asInterface);
    EXPECT_EQ(object->qt_metacast("FileIdentifier::FileIdentifier_camera_pluginIF"), object);
    EXPECT_EQ(object->qt_metacast("vx_core2_camera_interface_v0.7"), nullptr);
}

TEST(FileIdentifierPlugin, AnswersOfThePluginAndItsCameras)
{
    VXCameraPluginIF *const plugin = fileIdentifierPlugin();
    ASSERT_NE(plugin, nullptr);
    const std::unique_ptr<VXCameraIF> camera(plugin->getCamera()), second(plugin->getCamera());
    ASSERT_NE(camera, nullptr);
    EXPECT_NE(camera.get(), second.get()) << "a fresh camera on every call";
    EXPECT_EQ(plugin->getRegisteredFileTypeEnum(), ft_fileidentifier);

    for (const char *extension : {"fi", "FI", "fI", "fid", ".fi", "", "fi ", static_cast<const char *>(nullptr)}) {
        const ft_t expected = extension && QByteArray(extension).toLower() == "fi" ? ft_fileidentifier : ft_unknown;
        EXPECT_EQ(plugin->getFileTypeFromFileExtension(extension), expected) << "plug-in, " << extension;
        EXPECT_EQ(camera->getFileTypeFromFileExtension(extension), expected) << "camera, " << extension;
    }

    // The plug-in is nobody's main type; its sub-type is the archive kind.
    const struct { const char *what; QByteArray bytes; ft_t subType; const char *reason; } buffers[] = {
        {"gzip", QByteArray::fromHex("1f8b0800"), ft_gzip, "signature match"},
        {"text", QByteArrayLiteral("just words"), ft_unknown, "Reason unknown"},
        {"docx", readFixture(QStringLiteral("archives/sample.docx")), ft_unknown, "structure match"},
    };
    for (const auto &c : buffers) {
        MemoryBuffer buffer = bufferOf(c.bytes);
        buffer.seek(2, MBSeekStart);
        const char *reason = "untouched";
        EXPECT_EQ(plugin->getFileTypeFromFileInMemory(&buffer, &reason), ft_unknown) << c.what;
        EXPECT_TRUE(reason == std::string("untouched") && buffer.tell() == 2u) << c.what << ": reason and buffer left alone";
        EXPECT_EQ(plugin->getSubTypeFromFileInMemory(&buffer, &reason), c.subType) << c.what;
        EXPECT_STREQ(reason, c.reason) << c.what;
        EXPECT_EQ(buffer.tell(), 0u) << c.what;
        EXPECT_EQ(camera->getFileTypeFromFileInMemory(&buffer, &reason), c.subType) << "camera, " << c.what;
    }
    EXPECT_EQ(plugin->getSubTypeFromFileInMemory(nullptr, nullptr), ft_unknown);
}

TEST(FileIdentifierPlugin, LoadedByACameraPoolFromItsDirectory)
{
    const PluginDirectory dir;
    ASSERT_TRUE(dir.isValid() && dir.copied);
    LogCapture log;
    const Camera_Pool pool(dir.path());
    EXPECT_TRUE(log.messages().contains(
        QStringLiteral("Loading plugin libfileidentifier.so version:vx_core2_camera_interface_v0.8")))
        << log.messages().join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(pool.getListOfCameraNames(), QStringList{QStringLiteral("libfileidentifier.so")});
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_fileidentifier), QStringLiteral("libfileidentifier.so"));
    EXPECT_EQ(pool.getAnalysisGroupIdMap(ft_fileidentifier), nullptr);
    char key[] = "File is not supported";
    EXPECT_EQ(pool.getErrMsgID(ft_fileidentifier, key), 0u) << "no messages of its own";
    EXPECT_EQ(pool.getFileTypeFromFileExtension("Fi"), ft_fileidentifier);
    EXPECT_EQ(pool.getFileTypeFromFileExtension("fid"), ft_unknown);

    MemoryBuffer gzip = bufferOf(QByteArray::fromHex("1f8b0800"));
    QString reason = QStringLiteral("before");
    EXPECT_EQ(pool.getFileTypeFromFileInMemory(&gzip, reason), ft_unknown);
    EXPECT_EQ(reason, QStringLiteral("before")) << "no plug-in gave a reason";
    EXPECT_EQ(pool.getSubFileTypeFromFileInMemory(&gzip, reason), ft_gzip);
    EXPECT_EQ(reason, QStringLiteral("signature match"));
}
