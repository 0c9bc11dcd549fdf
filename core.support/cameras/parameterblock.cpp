#include "cameras/parameterblock.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

template <typename Block>
std::unique_ptr<ParameterBlock> make(BDDLStructBase_Root *root, ParameterBlock *parent)
{
    return std::make_unique<Block>(root, parent);
}

using BlockMaker = std::unique_ptr<ParameterBlock> (*)(BDDLStructBase_Root *, ParameterBlock *);

struct BlockChoice
{
    ft_t type;
    BlockMaker make;
    const char *cameraName;
};

// MPEG movies (38, the registry's MPEG type, camera 20) and the second MPEG
// type (36), which the statistics count as MPEG too, get the MPEG block: a
// run without a file type has no MPEG camera to read it.
const BlockChoice kBlockChoices[] = {
    {ft_pdf, make<PDFParamBlk>, "PDF_CAMERA"},
    {ft_doc, make<WordParamBlk>, "WORD_CAMERA"},
    {ft_ppt, make<PowerPointParamBlk>, "PPT_CAMERA"},
    {ft_xls, make<ExcelParamBlk>, "EXCEL_CAMERA"},
    {ft_png, make<PNGParamBlk>, "PNG_CAMERA"},
    {ft_jpeg, make<JPEGParamBlk>, "JPEG_CAMERA"},
    {ft_gif, make<GIFParamBlk>, "GIF_CAMERA"},
    {ft_emf, make<EMFParamBlk>, "EMF_CAMERA"},
    {ft_wmf, make<WmfParamBlk>, "WMF_CAMERA"},
    {ft_rtf, make<RTFParamBlk>, "RTF_CAMERA"},
    {ft_bmp, make<BMPParamBlk>, "BMP_CAMERA"},
    {ft_tiff, make<TIFFParamBlk>, "TIFF_CAMERA"},
    {ft_pe, make<WinexeParamBlk>, "WINEXE_CAMERA"},
    {ft_macho, make<MACHOParamBlk>, "MACHO_CAMERA"},
    {ft_elf, make<ELFParamBlk>, "ELF_CAMERA"},
    {ft_mp4, make<MP4ParamBlk>, "MP4_CAMERA"},
    {ft_mp3, make<MP3ParamBlk>, "MP3_CAMERA"},
    {ft_wav, make<WAVParamBlk>, "WAV_CAMERA"},
    {ft_opc, make<OPCParamBlk>, "OPC_CAMERA"},
    {ft_mpeg, make<MPEG2ParamBlk>, "MPEG2_CAMERA"},
    {ft_mpeg_other, make<MPEG2ParamBlk>, "MPEG2_CAMERA"},
};

const BlockChoice kDefaultChoice = {ft_unknown, make<DefaultParamBlk>, "DEFAULT"};

} // namespace

ParameterBlock::ParameterBlock(BDDLStructBase_Root *root, ParameterBlock *parent) : m_root(root), m_parent(parent)
{
    if (root == nullptr)
        throw std::bad_alloc();
}

ParameterBlock::~ParameterBlock() = default;

#define VX_DEFINE_PLAIN_PARAMETER_BLOCK(Name) Name::~Name() = default;
VX_PLAIN_PARAMETER_BLOCKS(VX_DEFINE_PLAIN_PARAMETER_BLOCK)
#undef VX_DEFINE_PLAIN_PARAMETER_BLOCK

WordParamBlk::~WordParamBlk() = default;
ExcelParamBlk::~ExcelParamBlk() = default;
PowerPointParamBlk::~PowerPointParamBlk() = default;

std::unique_ptr<ParameterBlock> getParameterBlockFromFt(ft_t type, BDDLStructBase_Root *root,
                                                        ParameterBlock *parent)
{
    const auto found = std::find_if(std::begin(kBlockChoices), std::end(kBlockChoices),
                                    [type](const BlockChoice &row) { return row.type == type; });
    const BlockChoice *const choice = found != std::end(kBlockChoices) ? found : &kDefaultChoice;
    std::unique_ptr<ParameterBlock> block = choice->make(root, parent);
    block->setCameraName(QLatin1String(choice->cameraName));
    return block;
}
