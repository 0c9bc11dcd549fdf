#include "cameras/parameterblock.h"

#include "qtprinters.h"

#include <gtest/gtest.h>

#include <new>
#include <tuple>
#include <typeinfo>

TEST(ParameterBlock, EachTypeGetsItsCamerasClassAndName)
{
#define R(type, name, Class) {type, name, &typeid(Class)}
    const std::tuple<int, const char *, const std::type_info *> cases[] = {
        R(16, "PDF_CAMERA", PDFParamBlk), R(17, "WORD_CAMERA", WordParamBlk), R(19, "PPT_CAMERA", PowerPointParamBlk),
        R(21, "EXCEL_CAMERA", ExcelParamBlk), R(23, "PNG_CAMERA", PNGParamBlk), R(24, "JPEG_CAMERA", JPEGParamBlk),
        R(25, "GIF_CAMERA", GIFParamBlk), R(26, "EMF_CAMERA", EMFParamBlk), R(27, "WMF_CAMERA", WmfParamBlk),
        R(28, "RTF_CAMERA", RTFParamBlk), R(29, "BMP_CAMERA", BMPParamBlk), R(30, "TIFF_CAMERA", TIFFParamBlk),
        R(31, "WINEXE_CAMERA", WinexeParamBlk), R(32, "MACHO_CAMERA", MACHOParamBlk), R(33, "ELF_CAMERA", ELFParamBlk),
        R(34, "MP4_CAMERA", MP4ParamBlk), R(35, "MP3_CAMERA", MP3ParamBlk), R(37, "WAV_CAMERA", WAVParamBlk),
        R(779, "OPC_CAMERA", OPCParamBlk), R(36, "MPEG2_CAMERA", MPEG2ParamBlk), R(38, "MPEG2_CAMERA", MPEG2ParamBlk),
        // Open XML documents and XML have no block of their own; nor has "no type".
        R(18, "DEFAULT", DefaultParamBlk), R(22, "DEFAULT", DefaultParamBlk), R(512, "DEFAULT", DefaultParamBlk),
        R(0, "DEFAULT", DefaultParamBlk), R(-1, "DEFAULT", DefaultParamBlk),
    };
#undef R
    // Blocks only store their root; no tree is needed.
    const auto root = reinterpret_cast<BDDLStructBase_Root *>(0x1000);
    for (const auto &[type, name, blockClass] : cases) {
        const std::unique_ptr<ParameterBlock> block = getParameterBlockFromFt(static_cast<ft_t>(type), root, nullptr);
        ASSERT_NE(block, nullptr) << "type " << type;
        EXPECT_EQ(block->cameraName(), QLatin1String(name)) << "type " << type;
        EXPECT_EQ(typeid(*block), *blockClass) << "type " << type;
    }
    const std::unique_ptr<ParameterBlock> outer = getParameterBlockFromFt(ft_doc, root, nullptr);
    const std::unique_ptr<ParameterBlock> inner = getParameterBlockFromFt(ft_xls, root, outer.get());
    EXPECT_EQ(inner->parent(), outer.get());
    EXPECT_EQ(inner->root(), root);
    for (uint64_t setting : dynamic_cast<const WordParamBlk &>(*outer).m_settings)
        EXPECT_EQ(setting, 0u);
    EXPECT_THROW(getParameterBlockFromFt(ft_doc, nullptr, nullptr), std::bad_alloc);
}
