#include "ooxmltesting.h"

#include <QPluginLoader>

#include <gtest/gtest.h>
#include <memory>

// The two plug-ins of the folder as the camera pool loads them: the
// package camera's and the document family's, answering the same tables.

namespace {

TEST(OoxmlPlugins, ThePoolFindsBothAndTheyAnswerTheSameTables)
{
    Camera_Pool &pool = ooxmltest::pluginPool();
    VXCameraPluginIF *const package = pool.getPluginFromFileType(ft_opc);
    VXCameraPluginIF *const family = pool.getPluginFromFileType(ft_xml);
    ASSERT_NE(package, nullptr);
    ASSERT_NE(family, nullptr);
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_opc), "libooxml.so");
    EXPECT_EQ(pool.getCameraNameFromFileType(ft_xml), "libopenxml.so");

    const std::unique_ptr<VXCameraIF> one(package->getCamera()), two(package->getCamera());
    EXPECT_TRUE(one != nullptr && two != nullptr && one != two);
    EXPECT_EQ(family->getCamera(), nullptr);

    for (VXCameraPluginIF *plugin : {package, family}) {
        char sanitised[] = "Embedded File present in word/embeddings/oleObject1.bin";
        char fault[] = "Relationship target outside the package";
        char unknown[] = "Something else";
        EXPECT_EQ(plugin->getSanitisationMsgID(sanitised), 2u);
        EXPECT_EQ(plugin->getErrMsgID(fault), 13u);
        EXPECT_EQ(plugin->getErrMsgID(unknown), 0u);
        EXPECT_EQ(plugin->getAnalysisGroupID(3), 275u);
        EXPECT_EQ(plugin->getAnalysisGroupID(99), 0u);
        ASSERT_NE(plugin->getAnalysisGroupIdMap(), nullptr);
        EXPECT_EQ(plugin->getAnalysisGroupIdMap()->size(), 9);
        // Identification is the file identifier's: every question gives 0.
        MemoryBuffer docx = bufferOf(readFixture("ooxml/lo-writer.docx"));
        EXPECT_EQ(plugin->getFileTypeFromFileInMemory(&docx, nullptr), ft_unknown);
        EXPECT_EQ(plugin->getSubTypeFromFileInMemory(&docx, nullptr), ft_unknown);
        EXPECT_EQ(plugin->getFileTypeFromFileExtension("docx"), ft_unknown);
    }
}

} // namespace
