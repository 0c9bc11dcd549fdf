#include "cameras/parameterblock.h"

#include "qtprinters.h"

#include <gtest/gtest.h>

#include <new>
#include <typeindex>
#include <typeinfo>

namespace {

// Blocks only store their root; no tree is needed.
BDDLStructBase_Root *const kRoot = reinterpret_cast<BDDLStructBase_Root *>(0x1000);

} // namespace

TEST(ParameterBlock, EachTypeGetsItsCamerasBlockAndName)
{
    struct Case
    {
        int type;
        std::type_index block;
        const char *name;
    };
    const Case cases[] = {
        {16, typeid(PDFParamBlk), "PDF_CAMERA"},      {17, typeid(WordParamBlk), "WORD_CAMERA"},
        {19, typeid(PowerPointParamBlk), "PPT_CAMERA"}, {21, typeid(ExcelParamBlk), "EXCEL_CAMERA"},
        {23, typeid(PNGParamBlk), "PNG_CAMERA"},      {24, typeid(JPEGParamBlk), "JPEG_CAMERA"},
        {25, typeid(GIFParamBlk), "GIF_CAMERA"},      {26, typeid(EMFParamBlk), "EMF_CAMERA"},
        {27, typeid(WmfParamBlk), "WMF_CAMERA"},      {28, typeid(RTFParamBlk), "RTF_CAMERA"},
        {29, typeid(BMPParamBlk), "BMP_CAMERA"},      {30, typeid(TIFFParamBlk), "TIFF_CAMERA"},
        {31, typeid(WinexeParamBlk), "WINEXE_CAMERA"}, {32, typeid(MACHOParamBlk), "MACHO_CAMERA"},
        {33, typeid(ELFParamBlk), "ELF_CAMERA"},      {34, typeid(MP4ParamBlk), "MP4_CAMERA"},
        {35, typeid(MP3ParamBlk), "MP3_CAMERA"},      {37, typeid(WAVParamBlk), "WAV_CAMERA"},
        {779, typeid(OPCParamBlk), "OPC_CAMERA"},     {36, typeid(MPEG2ParamBlk), "MPEG2_CAMERA"},
        {38, typeid(MPEG2ParamBlk), "MPEG2_CAMERA"},
        // Open XML documents and XML have no block of their own; nor has "no type".
        {18, typeid(DefaultParamBlk), "DEFAULT"},     {20, typeid(DefaultParamBlk), "DEFAULT"},
        {22, typeid(DefaultParamBlk), "DEFAULT"},     {512, typeid(DefaultParamBlk), "DEFAULT"},
        {0, typeid(DefaultParamBlk), "DEFAULT"},      {-1, typeid(DefaultParamBlk), "DEFAULT"},
    };
    for (const Case &c : cases) {
        const std::unique_ptr<ParameterBlock> block = getParameterBlockFromFt(static_cast<ft_t>(c.type), kRoot, nullptr);
        ASSERT_NE(block, nullptr) << "type " << c.type;
        const ParameterBlock &made = *block;
        EXPECT_EQ(std::type_index(typeid(made)), c.block) << "type " << c.type;
        EXPECT_EQ(block->cameraName(), QLatin1String(c.name)) << "type " << c.type;
        EXPECT_EQ(block->root(), kRoot);
        EXPECT_EQ(block->parent(), nullptr);
        EXPECT_TRUE(block->text().isEmpty());
    }
}

TEST(ParameterBlock, KeepsItsParentAndStartsWithZeroSettings)
{
    const std::unique_ptr<ParameterBlock> outer = getParameterBlockFromFt(ft_doc, kRoot, nullptr);
    const std::unique_ptr<ParameterBlock> inner = getParameterBlockFromFt(ft_xls, kRoot, outer.get());
    EXPECT_EQ(inner->parent(), outer.get());

    const auto &word = dynamic_cast<const WordParamBlk &>(*outer);
    const auto &excel = dynamic_cast<const ExcelParamBlk &>(*inner);
    EXPECT_EQ(word.m_settings.size(), 8u);
    EXPECT_EQ(excel.m_settings.size(), 5u);
    EXPECT_EQ(PowerPointParamBlk(kRoot, nullptr).m_settings.size(), 4u);
    for (uint64_t setting : word.m_settings)
        EXPECT_EQ(setting, 0u);
    for (uint64_t setting : excel.m_settings)
        EXPECT_EQ(setting, 0u);
}

TEST(ParameterBlock, RequiresARoot)
{
    EXPECT_THROW(DefaultParamBlk(nullptr, nullptr), std::bad_alloc);
    EXPECT_THROW(getParameterBlockFromFt(ft_doc, nullptr, nullptr), std::bad_alloc);
}
