// The signatures plug-in as a host sees it: through Qt's loader and beside
// the file identifier in a camera pool.

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QFile>
#include <QJsonObject>
#include <QPluginLoader>
#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(SignaturesPlugin, LoadsLikeEveryCameraPluginAndOnlyIdentifies)
{
    QPluginLoader loader(QStringLiteral(VX_SIGNATURES_MODULE));
    const QJsonObject metaData = loader.metaData();
    EXPECT_EQ(metaData.value("IID"), QJsonValue("vx_core2_camera_interface_v0.8"));
    EXPECT_EQ(metaData.value("className"), QJsonValue("Signatures_camera_pluginIF"));
    EXPECT_EQ(metaData.value("MetaData"), QJsonValue(QJsonObject()));
    VXCameraPluginIF *const plugin = qobject_cast<VXCameraPluginIF *>(loader.instance());
    ASSERT_NE(plugin, nullptr) << loader.errorString().toStdString();
    EXPECT_EQ(plugin->getCamera(), nullptr);
    EXPECT_EQ(plugin->getRegisteredFileTypeEnum(), ft_unknown);
    EXPECT_EQ(plugin->getFileTypeFromFileExtension("pdf"), ft_unknown);

    MemoryBuffer png = bufferOf(readFixture("identify/image.png"));
    png.seek(5, MBSeekStart);
    const char *reason = nullptr;
    EXPECT_EQ(plugin->getFileTypeFromFileInMemory(&png, &reason), ft_png) << "whatever the cursor";
    EXPECT_STREQ(reason, "signature match");
    EXPECT_EQ(png.tell(), 5u) << "the cursor is left alone";
    EXPECT_EQ(plugin->getSubTypeFromFileInMemory(&png, &reason), ft_unknown);
    EXPECT_EQ(plugin->getFileTypeFromFileInMemory(nullptr, &reason), ft_unknown);
}

// The pool asks the file identifier first and this plug-in last: the
// archive kinds stay the file identifier's, the content types are this one's.
TEST(SignaturesPlugin, AnswersThePoolsMainTypeQuestionAfterTheOtherPlugins)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QFile::copy(QStringLiteral(VX_SIGNATURES_MODULE), dir.filePath("libzsignatures.so"))
                && QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), dir.filePath("libfileidentifier.so")));
    const Camera_Pool pool(dir.path());
    EXPECT_EQ(pool.getListOfCameraNames(), (QStringList{"libfileidentifier.so", "libzsignatures.so"}));
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_fileidentifier), QStringLiteral("libfileidentifier.so"));
    MemoryBuffer pdf = bufferOf(readFixture("identify/text.pdf"));
    MemoryBuffer gzip = bufferOf(readFixture("archives/sample.gz"));
    QString reason;
    EXPECT_EQ(pool.getFileTypeFromFileInMemory(&pdf, reason), ft_pdf);
    EXPECT_EQ(reason, QStringLiteral("signature match"));
    EXPECT_EQ(pool.getFileTypeFromFileInMemory(&gzip, reason), ft_unknown);
    EXPECT_EQ(pool.getSubFileTypeFromFileInMemory(&gzip, reason), ft_gzip);
}
