#pragma once

#include "cameras/filetype.h"

#include <QString>

#include <array>
#include <cstdint>
#include <memory>

class BDDLStructBase_Root;

// The parameters of one camera run, chosen by file type. The block belongs
// to a structure root and, for an embedded document, points at the block of
// the enclosing one.
class ParameterBlock
{
public:
    // A null root raises std::bad_alloc.
    ParameterBlock(BDDLStructBase_Root *root, ParameterBlock *parent);
    virtual ~ParameterBlock();

    ParameterBlock(const ParameterBlock &) = delete;
    ParameterBlock &operator=(const ParameterBlock &) = delete;

    BDDLStructBase_Root *root() const { return m_root; }
    ParameterBlock *parent() const { return m_parent; }
    const QString &cameraName() const { return m_cameraName; }
    void setCameraName(const QString &name) { m_cameraName = name; }
    // Free text for the camera that reads the block; empty at creation.
    const QString &text() const { return m_text; }
    void setText(const QString &text) { m_text = text; }

private:
    BDDLStructBase_Root *m_root;
    ParameterBlock *m_parent;
    QString m_cameraName;
    QString m_text;
};

// Blocks of cameras without settings of their own.
#define VX_PLAIN_PARAMETER_BLOCKS(X)                                                               \
    X(DefaultParamBlk)                                                                             \
    X(PDFParamBlk)                                                                                 \
    X(PNGParamBlk)                                                                                 \
    X(JPEGParamBlk)                                                                                \
    X(GIFParamBlk)                                                                                 \
    X(EMFParamBlk)                                                                                 \
    X(WmfParamBlk)                                                                                 \
    X(RTFParamBlk)                                                                                 \
    X(BMPParamBlk)                                                                                 \
    X(TIFFParamBlk)                                                                                \
    X(WinexeParamBlk)                                                                              \
    X(MACHOParamBlk)                                                                               \
    X(ELFParamBlk)                                                                                 \
    X(MP4ParamBlk)                                                                                 \
    X(MP3ParamBlk)                                                                                 \
    X(WAVParamBlk)                                                                                 \
    X(OPCParamBlk)                                                                                 \
    X(MPEG2ParamBlk)

#define VX_DECLARE_PLAIN_PARAMETER_BLOCK(Name)                                                     \
    class Name final : public ParameterBlock                                                       \
    {                                                                                              \
    public:                                                                                        \
        using ParameterBlock::ParameterBlock;                                                      \
        ~Name() override;                                                                          \
    };
VX_PLAIN_PARAMETER_BLOCKS(VX_DECLARE_PLAIN_PARAMETER_BLOCK)
#undef VX_DECLARE_PLAIN_PARAMETER_BLOCK

// A block with N camera-specific 64-bit settings, all zero at creation; their
// meaning belongs to the camera that reads them.
template <std::size_t N>
class SettingsParamBlk : public ParameterBlock
{
public:
    using ParameterBlock::ParameterBlock;
    ~SettingsParamBlk() override = default;

    std::array<uint64_t, N> m_settings{};
};

class WordParamBlk final : public SettingsParamBlk<8>
{
public:
    using SettingsParamBlk::SettingsParamBlk;
    ~WordParamBlk() override;
};

class ExcelParamBlk final : public SettingsParamBlk<5>
{
public:
    using SettingsParamBlk::SettingsParamBlk;
    ~ExcelParamBlk() override;
};

class PowerPointParamBlk final : public SettingsParamBlk<4>
{
public:
    using SettingsParamBlk::SettingsParamBlk;
    ~PowerPointParamBlk() override;
};

// A new block of the type's class with its camera name; the caller owns it.
// Types without a camera of their own get a DefaultParamBlk named "DEFAULT".
std::unique_ptr<ParameterBlock> getParameterBlockFromFt(ft_t type, BDDLStructBase_Root *root,
                                                        ParameterBlock *parent);
