#pragma once

// Internal to the compound-file storage: the format's constants and the
// little-endian field helpers shared by its units.

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>

namespace POLE {

// Special allocation-table values.
constexpr uint64_t Avail = 0xFFFFFFFF;   // free
constexpr uint64_t Eof = 0xFFFFFFFE;     // end of chain
constexpr uint64_t Bat = 0xFFFFFFFD;     // table sector
constexpr uint64_t MetaBat = 0xFFFFFFFC; // meta-table sector

constexpr uint64_t npos = ~uint64_t(0);

constexpr unsigned char kMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr size_t kHeaderSize = 512;
constexpr size_t kHeaderBatSlots = 109;
constexpr size_t kDirEntrySize = 128;
constexpr int kMaxNameChars = 31;
constexpr uint64_t kThreshold = 4096;

// Real files nest storages a few levels deep; a hostile file could nest them
// as deep as it has entries, and every path below would repeat all the names
// above it. Walks stop descending past this depth.
constexpr int kMaxStorageDepth = 256;

inline uint16_t readU16(const unsigned char *p) { return uint16_t(p[0] | (p[1] << 8)); }
inline uint32_t readU32(const unsigned char *p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void writeU16(unsigned char *p, uint16_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void writeU32(unsigned char *p, uint64_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}

inline QStringList splitPath(const QString &path) { return path.split(QLatin1Char('/'), Qt::SkipEmptyParts); }

} // namespace POLE
