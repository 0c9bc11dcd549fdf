#include "containers/pole_header.h"

#include <algorithm>
#include <cstring>

namespace POLE {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

Header::Header() { std::fill(std::begin(bb_blocks), std::end(bb_blocks), Avail); }

QString Header::problem() const
{
    if (threshold != kThreshold)
        return QStringLiteral("the header's stream size threshold is %1, not 4096").arg(threshold);
    if (num_bat == 0)
        return QStringLiteral("the header lists no allocation-table sectors");
    if (num_bat < kHeaderBatSlots && num_mbat != 0)
        return QStringLiteral("the header has a meta table but only %1 allocation-table sectors").arg(num_bat);
    if (b_shift < 7 || b_shift > 30)
        return QStringLiteral("the header's sector size is 2^%1").arg(b_shift);
    if (s_shift > b_shift)
        return QStringLiteral("the header's small blocks (2^%1) are larger than its sectors (2^%2)")
            .arg(s_shift)
            .arg(b_shift);
    return QString();
}

void Header::load(const unsigned char *buffer)
{
    b_shift = readU16(buffer + 30);
    s_shift = readU16(buffer + 32);
    num_bat = readU32(buffer + 44);
    dirent_start = readU32(buffer + 48);
    threshold = readU32(buffer + 56);
    sbat_start = readU32(buffer + 60);
    num_sbat = readU32(buffer + 64);
    mbat_start = readU32(buffer + 68);
    num_mbat = readU32(buffer + 72);
    for (size_t i = 0; i < kHeaderBatSlots; ++i)
        bb_blocks[i] = readU32(buffer + 76 + i * 4);
    dirty = false;
}

void Header::save(unsigned char *buffer) const
{
    std::memset(buffer, 0, kHeaderSize);
    std::memcpy(buffer, kMagic, sizeof(kMagic));
    writeU16(buffer + 24, 0x003E);
    // The format requires version 4 for 4096-byte sectors; readers that
    // check it reject a version-3 header with them.
    writeU16(buffer + 26, b_shift == 12 ? 4 : 3);
    writeU16(buffer + 28, 0xFFFE);
    writeU16(buffer + 30, uint16_t(b_shift));
    writeU16(buffer + 32, uint16_t(s_shift));
    writeU32(buffer + 44, num_bat);
    writeU32(buffer + 48, dirent_start);
    writeU32(buffer + 56, threshold);
    writeU32(buffer + 60, sbat_start);
    writeU32(buffer + 64, num_sbat);
    writeU32(buffer + 68, mbat_start);
    writeU32(buffer + 72, num_mbat);
    for (size_t i = 0; i < kHeaderBatSlots; ++i)
        writeU32(buffer + 76 + i * 4, bb_blocks[i]);
}

} // namespace POLE
