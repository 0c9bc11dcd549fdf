#include "cameras/parameterblock.h"

#include "qtprinters.h"

#include <gtest/gtest.h>

#include <new>

namespace {

// Blocks only store their root; no tree is needed.
BDDLStructBase_Root *const kRoot = reinterpret_cast<BDDLStructBase_Root *>(0x1000);

} // namespace

TEST(ParameterBlock, EachTypeGetsItsCamerasBlock)
{
    const std::pair<int, const char *> cases[] = {
        {16, "PDF_CAMERA"},   {17, "WORD_CAMERA"},   {19, "PPT_CAMERA"},    {21, "EXCEL_CAMERA"},
        {23, "PNG_CAMERA"},   {24, "JPEG_CAMERA"},   {25, "GIF_CAMERA"},    {26, "EMF_CAMERA"},
        {27, "WMF_CAMERA"},   {28, "RTF_CAMERA"},    {29, "BMP_CAMERA"},    {30, "TIFF_CAMERA"},
        {31, "WINEXE_CAMERA"}, {32, "MACHO_CAMERA"}, {33, "ELF_CAMERA"},    {34, "MP4_CAMERA"},
        {35, "MP3_CAMERA"},   {37, "WAV_CAMERA"},    {779, "OPC_CAMERA"},   {36, "MPEG2_CAMERA"},
        {38, "MPEG2_CAMERA"},
        // Open XML documents and XML have no block of their own; nor has "no type".
        {18, "DEFAULT"}, {20, "DEFAULT"}, {22, "DEFAULT"}, {512, "DEFAULT"}, {0, "DEFAULT"}, {-1, "DEFAULT"},
    };
    for (const auto &[type, name] : cases) {
        const std::unique_ptr<ParameterBlock> block = getParameterBlockFromFt(static_cast<ft_t>(type), kRoot, nullptr);
        ASSERT_NE(block, nullptr) << "type " << type;
        EXPECT_EQ(block->cameraName(), QLatin1String(name)) << "type " << type;
    }
}

TEST(ParameterBlock, KeepsItsParentStartsWithZeroSettingsAndRequiresARoot)
{
    const std::unique_ptr<ParameterBlock> outer = getParameterBlockFromFt(ft_doc, kRoot, nullptr);
    const std::unique_ptr<ParameterBlock> inner = getParameterBlockFromFt(ft_xls, kRoot, outer.get());
    EXPECT_EQ(inner->parent(), outer.get());
    EXPECT_EQ(inner->root(), kRoot);
    for (uint64_t setting : dynamic_cast<const WordParamBlk &>(*outer).m_settings)
        EXPECT_EQ(setting, 0u);
    for (uint64_t setting : dynamic_cast<const ExcelParamBlk &>(*inner).m_settings)
        EXPECT_EQ(setting, 0u);
    EXPECT_THROW(DefaultParamBlk(nullptr, nullptr), std::bad_alloc);
    EXPECT_THROW(getParameterBlockFromFt(ft_doc, nullptr, nullptr), std::bad_alloc);
}
