#include "fileidentifiermodule.h"

#include "cameras/camera_pool.h"
#include "qtprinters.h"

#include <QJsonObject>
#include <gtest/gtest.h>

#include <memory>

// The file-identifier plug-in as a host sees it: through Qt's loader and
// inside a camera pool.

TEST(FileIdentifierPlugin, QtsCastsAndThePluginsAnswers)
{
    QPluginLoader loader(fileIdentifierModulePath());
    const QJsonObject metaData = loader.metaData();
    EXPECT_EQ(metaData.value("IID"), QJsonValue("vx_core2_camera_interface_v0.8"));
    EXPECT_EQ(metaData.value("className"), QJsonValue("FileIdentifier_camera_pluginIF"));
    EXPECT_EQ(metaData.value("MetaData"), QJsonValue(QJsonObject())) << "an empty object, not a missing key";
    QObject *const object = loader.instance();
    ASSERT_NE(object, nullptr);
    VXCameraPluginIF *const plugin = qobject_cast<VXCameraPluginIF *>(object);
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(object->qt_metacast("vx_core2_camera_interface_v0.8"), static_cast<void *>(plugin));
    EXPECT_EQ(object->qt_metacast("FileIdentifier::FileIdentifier_camera_pluginIF"), object);
    EXPECT_EQ(object->qt_metacast("vx_core2_camera_interface_v0.7"), nullptr);

    const std::unique_ptr<VXCameraIF> camera(plugin->getCamera()), second(plugin->getCamera());
    ASSERT_NE(camera, nullptr);
    EXPECT_NE(camera.get(), second.get()) << "a fresh camera on every call";
    EXPECT_EQ(plugin->getRegisteredFileTypeEnum(), ft_fileidentifier);
    for (const char *extension : {"fi", "fI", "fid", "", static_cast<const char *>(nullptr)}) {
        const ft_t expected = extension && QByteArray(extension).toLower() == "fi" ? ft_fileidentifier : ft_unknown;
        EXPECT_EQ(plugin->getFileTypeFromFileExtension(extension), expected) << "plug-in, " << extension;
        EXPECT_EQ(camera->getFileTypeFromFileExtension(extension), expected) << "camera, " << extension;
    }

    EXPECT_EQ(plugin->getSubTypeFromFileInMemory(nullptr, nullptr), ft_unknown);
}

TEST(FileIdentifierPlugin, LoadedByACameraPoolFromItsDirectory)
{
    const PluginDirectory dir;
    ASSERT_TRUE(dir.isValid() && dir.copied);
    const Camera_Pool pool(dir.path());
    EXPECT_EQ(pool.getListOfCameraNames(), QStringList{QStringLiteral("libfileidentifier.so")});
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_fileidentifier), QStringLiteral("libfileidentifier.so"));
    EXPECT_EQ(pool.getFileTypeFromFileExtension("Fi"), ft_fileidentifier);

    // The plug-in is nobody's main type; its sub-type is the archive kind.
    MemoryBuffer gzip = bufferOf(QByteArray::fromHex("1f8b0800"));
    QString reason = QStringLiteral("before");
    EXPECT_EQ(pool.getFileTypeFromFileInMemory(&gzip, reason), ft_unknown);
    EXPECT_EQ(reason, QStringLiteral("before")) << "no plug-in gave a reason";
    EXPECT_EQ(pool.getSubFileTypeFromFileInMemory(&gzip, reason), ft_gzip);
    EXPECT_EQ(reason, QStringLiteral("signature match"));
}
