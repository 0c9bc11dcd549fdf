#include "signatures.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace {

const char kSignatureMatch[] = "signature match";
const char kStructureMatch[] = "structure match";

// The bytes under examination, read only within their size.
class Bytes
{
public:
    Bytes(const unsigned char *data, size_t size) : m_data(data), m_size(size) {}

    size_t size() const { return m_size; }
    bool holds(size_t offset, size_t count) const { return offset <= m_size && count <= m_size - offset; }

    bool has(size_t offset, const char *text, size_t length) const
    {
        return holds(offset, length) && std::memcmp(m_data + offset, text, length) == 0;
    }
    template <size_t N>
    bool has(size_t offset, const char (&text)[N]) const
    {
        return has(offset, text, N - 1);
    }
    template <size_t N>
    bool startsWithAny(const char *const (&texts)[N], size_t length) const
    {
        for (const char *text : texts)
            if (has(0, text, length))
                return true;
        return false;
    }

    // Callers check holds() first.
    uint8_t u8(size_t at) const { return m_data[at]; }
    uint16_t le16(size_t at) const { return uint16_t(m_data[at] | m_data[at + 1] << 8); }
    uint32_t le32(size_t at) const { return uint32_t(le16(at)) | uint32_t(le16(at + 2)) << 16; }
    uint32_t be32(size_t at) const
    {
        return uint32_t(m_data[at]) << 24 | uint32_t(m_data[at + 1]) << 16 | uint32_t(m_data[at + 2]) << 8
               | m_data[at + 3];
    }

private:
    const unsigned char *m_data;
    size_t m_size;
};

bool isOneOf(uint32_t value, std::initializer_list<uint32_t> values)
{
    for (uint32_t v : values)
        if (v == value)
            return true;
    return false;
}

// Each check answers its reason on a match, else null.
using Check = const char *(*)(const Bytes &);

const char *pdf(const Bytes &b)
{
    // "%PDF-" and the major version digit.
    return b.has(0, "%PDF-") && b.holds(5, 1) && b.u8(5) >= '1' && b.u8(5) <= '9' ? kSignatureMatch : nullptr;
}

const char *png(const Bytes &b)
{
    return b.has(0, "\x89PNG\r\n\x1a\n") ? kSignatureMatch : nullptr;
}

const char *jpeg(const Bytes &b)
{
    // Start of image, then the first segment's marker.
    return b.has(0, "\xff\xd8\xff") && b.holds(3, 1) && b.u8(3) >= 0xc0 && b.u8(3) != 0xff ? kSignatureMatch
                                                                                           : nullptr;
}

const char *gif(const Bytes &b)
{
    static const char *const kVersions[] = {"GIF87a", "GIF89a"};
    return b.startsWithAny(kVersions, 6) ? kSignatureMatch : nullptr;
}

const char *tiff(const Bytes &b)
{
    // Byte order, then 42 (classic) or 43 (BigTIFF) in that order.
    static const char *const kHeaders[] = {"II*\0", "MM\0*", "II+\0", "MM\0+"};
    return b.startsWithAny(kHeaders, 4) ? kSignatureMatch : nullptr;
}

const char *elf(const Bytes &b)
{
    // Magic, class (32 or 64 bits), data encoding, and version 1.
    return b.has(0, "\x7f" "ELF") && b.holds(4, 3) && isOneOf(b.u8(4), {1, 2}) && isOneOf(b.u8(5), {1, 2})
                   && b.u8(6) == 1
               ? kSignatureMatch
               : nullptr;
}

const char *macho(const Bytes &b)
{
    static const char *const kThin[] = {"\xfe\xed\xfa\xce", "\xce\xfa\xed\xfe", "\xfe\xed\xfa\xcf",
                                        "\xcf\xfa\xed\xfe"};
    if (b.startsWithAny(kThin, 4))
        return kSignatureMatch;
    // A universal binary starts like a Java class file; its architecture
    // count is small where a class file has its version, 45 or more.
    static const char *const kFat[] = {"\xca\xfe\xba\xbe", "\xca\xfe\xba\xbf"};
    if (b.startsWithAny(kFat, 4) && b.holds(4, 4)) {
        const uint32_t architectures = b.be32(4);
        return architectures >= 1 && architectures <= 18 ? kStructureMatch : nullptr;
    }
    return nullptr;
}

const char *pe(const Bytes &b)
{
    // The DOS header's last field points at the PE signature.
    const size_t kNewHeaderField = 0x3c;
    if (!b.has(0, "MZ") || !b.holds(kNewHeaderField, 4))
        return nullptr;
    const uint32_t at = b.le32(kNewHeaderField);
    return b.has(at, "PE\0\0") && b.holds(size_t(at) + 4, 2) && b.le16(size_t(at) + 4) != 0 ? kSignatureMatch
                                                                                           : nullptr;
}

const char *emf(const Bytes &b)
{
    // The header record: type 1, at least 88 bytes, " EMF" at offset 40.
    return b.holds(0, 44) && b.le32(0) == 1 && b.le32(4) >= 88 && b.has(40, " EMF") ? kSignatureMatch : nullptr;
}

const char *wmf(const Bytes &b)
{
    if (b.has(0, "\xd7\xcd\xc6\x9a"))
        return kSignatureMatch; // the placeable header's key
    // The metafile header: in memory or on disk, 9 words long, version 1 or 3.
    return b.holds(0, 18) && isOneOf(b.le16(0), {1, 2}) && b.le16(2) == 9 && isOneOf(b.le16(4), {0x0100, 0x0300})
               ? kStructureMatch
               : nullptr;
}

const char *rtf(const Bytes &b)
{
    return b.has(0, "{\\rtf") ? kSignatureMatch : nullptr;
}

const char *wav(const Bytes &b)
{
    return b.has(0, "RIFF") && b.has(8, "WAVE") ? kSignatureMatch : nullptr;
}

const char *mp4(const Bytes &b)
{
    // The file type box first: a major brand, a minor version and whole
    // compatible brands, no more of them than any file lists, the major one
    // printable. QuickTime's own brand is a movie of another kind.
    const uint32_t kMaxTypeBox = 4096;
    if (!b.holds(0, 16) || !b.has(4, "ftyp") || b.be32(0) < 16 || b.be32(0) > kMaxTypeBox || b.be32(0) % 4 != 0
        || b.has(8, "qt  "))
        return nullptr;
    for (size_t i = 8; i < 12; ++i)
        if (b.u8(i) < 0x20 || b.u8(i) > 0x7e)
            return nullptr;
    return kSignatureMatch;
}

const char *mpegProgramStream(const Bytes &b)
{
    // A pack header, with the marker bits of MPEG-2 ('01') or MPEG-1 ('0010').
    if (!b.has(0, "\0\0\1\xba") || !b.holds(4, 1))
        return nullptr;
    const uint8_t next = b.u8(4);
    return (next & 0xc4) == 0x44 || (next & 0xf1) == 0x21 ? kSignatureMatch : nullptr;
}

const char *xml(const Bytes &b)
{
    const auto declaration = [&b](size_t at) {
        return b.has(at, "<?xml") && b.holds(at + 5, 1) && isOneOf(b.u8(at + 5), {' ', '\t', '\r', '\n'});
    };
    if (declaration(0) || (b.has(0, "\xef\xbb\xbf") && declaration(3)))
        return kSignatureMatch;
    // UTF-16 with its byte order mark.
    if (b.has(0, "\xff\xfe<\0?\0x\0m\0l\0", 12) || b.has(0, "\xfe\xff\0<\0?\0x\0m\0l", 12))
        return kSignatureMatch;
    return nullptr;
}

const char *bmp(const Bytes &b)
{
    // "BM" alone is too common: the info header that follows must be one of
    // the known sizes, and the pixels must start after it.
    const size_t kFileHeader = 14;
    if (!b.has(0, "BM") || !b.holds(0, kFileHeader + 4))
        return nullptr;
    const uint32_t infoSize = b.le32(kFileHeader);
    const uint32_t pixels = b.le32(10);
    return isOneOf(infoSize, {12, 40, 52, 56, 64, 108, 124}) && pixels >= kFileHeader + infoSize ? kStructureMatch
                                                                                                : nullptr;
}

// MPEG audio (layers 1 to 3 of MPEG-1, 2 and 2.5).
namespace MpegAudio {

// Kilobits per second, by version family (0: MPEG-1, 1: MPEG-2 and 2.5),
// layer (0: layer 1 .. 2: layer 3) and the header's bitrate index.
const uint16_t kBitrates[2][3][15] = {
    {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
    {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
};
// Hertz, by the header's version bits (0: 2.5, 2: MPEG-2, 3: MPEG-1) and
// sample rate index.
const uint32_t kSampleRates[4][3] = {{11025, 12000, 8000}, {0, 0, 0}, {22050, 24000, 16000}, {44100, 48000, 32000}};

struct Frame
{
    uint32_t version;
    uint32_t layer;
    uint32_t sampleRate;
    size_t length;
};

// The frame whose header is at `at`, or a length of 0 when there is none.
Frame frameAt(const Bytes &b, size_t at)
{
    if (!b.holds(at, 4))
        return {};
    const uint32_t header = b.be32(at);
    const uint32_t version = header >> 19 & 3, layerBits = header >> 17 & 3, bitrateIndex = header >> 12 & 15,
                   rateIndex = header >> 10 & 3, padding = header >> 9 & 1;
    if ((header & 0xffe00000u) != 0xffe00000u || version == 1 || layerBits == 0 || bitrateIndex == 0
        || bitrateIndex == 15 || rateIndex == 3)
        return {};
    const uint32_t layer = 3 - layerBits; // 0: layer 1 .. 2: layer 3
    const uint32_t bitrate = kBitrates[version == 3 ? 0 : 1][layer][bitrateIndex] * 1000u;
    const uint32_t rate = kSampleRates[version][rateIndex];
    size_t length;
    if (layer == 0)
        length = (12 * bitrate / rate + padding) * 4;
    else if (layer == 2 && version != 3)
        length = 72 * bitrate / rate + padding;
    else
        length = 144 * bitrate / rate + padding;
    return {version, layer, rate, length};
}

} // namespace MpegAudio

const char *mp3(const Bytes &b)
{
    // An ID3v2 tag: version 2 to 4 and a size of four 7-bit bytes.
    if (b.has(0, "ID3") && b.holds(0, 10) && b.u8(3) >= 2 && b.u8(3) <= 4 && b.u8(4) != 0xff
        && ((b.u8(6) | b.u8(7) | b.u8(8) | b.u8(9)) & 0x80) == 0)
        return kSignatureMatch;
    // Otherwise two frames in a row that agree on version, layer and rate:
    // a single 11-bit sync word is too easily met by chance.
    const MpegAudio::Frame first = MpegAudio::frameAt(b, 0);
    if (first.length < 4)
        return nullptr;
    const MpegAudio::Frame second = MpegAudio::frameAt(b, first.length);
    return second.length >= 4 && second.version == first.version && second.layer == first.layer
                   && second.sampleRate == first.sampleRate
               ? kStructureMatch
               : nullptr;
}

const char *coff(const Bytes &b)
{
    // An object file's header has no magic beyond its machine field, so the
    // section table must make sense too: a sane count, no optional header,
    // every section named in printable ASCII, and nothing pointing into the
    // headers.
    const size_t kHeader = 20, kSection = 40;
    if (!b.holds(0, kHeader) || !isOneOf(b.le16(0), {0x014c, 0x8664, 0x01c0, 0x01c4, 0xaa64}) || b.le16(16) != 0)
        return nullptr;
    const size_t sections = b.le16(2);
    const size_t tableEnd = kHeader + sections * kSection;
    const uint32_t symbolTable = b.le32(8);
    if (sections == 0 || !b.holds(0, tableEnd) || (symbolTable != 0 && symbolTable < tableEnd) || b.le32(12) >= 1u << 24)
        return nullptr;
    for (size_t s = 0; s < sections; ++s) {
        const size_t at = kHeader + s * kSection;
        size_t length = 0;
        while (length < 8 && b.u8(at + length) != 0)
            ++length;
        if (length == 0)
            return nullptr;
        for (size_t i = 0; i < 8; ++i) {
            const uint8_t c = b.u8(at + i);
            if (i < length ? (c < 0x21 || c > 0x7e) : c != 0)
                return nullptr;
        }
        const uint32_t raw = b.le32(at + 20);
        if (raw != 0 && raw < tableEnd)
            return nullptr;
    }
    return kStructureMatch;
}

// In order: the long and exact signatures first, the formats that need
// their headers examined last.
const struct
{
    ft_t type;
    Check check;
} kChecks[] = {
    {ft_pdf, pdf},   {ft_png, png},   {ft_jpeg, jpeg}, {ft_gif, gif},   {ft_tiff, tiff},
    {ft_elf, elf},   {ft_macho, macho}, {ft_pe, pe},   {ft_emf, emf},   {ft_wmf, wmf},
    {ft_rtf, rtf},   {ft_wav, wav},   {ft_mp4, mp4},   {ft_mpeg, mpegProgramStream}, {ft_xml, xml},
    {ft_bmp, bmp},   {ft_mp3, mp3},   {ft_coff, coff},
};

} // namespace

namespace Signatures {

ft_t identify(const unsigned char *data, size_t size, const char **reason)
{
    if (data == nullptr)
        return ft_unknown;
    const Bytes bytes(data, size);
    for (const auto &entry : kChecks) {
        if (const char *why = entry.check(bytes)) {
            if (reason != nullptr)
                *reason = why;
            return entry.type;
        }
    }
    return ft_unknown;
}

} // namespace Signatures
