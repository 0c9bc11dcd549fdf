#pragma once

// Internal to the compound-file storage: the 512-byte file header.

#include "containers/pole_format.h"

#include <QString>

namespace POLE {

class Header
{
public:
    Header();

    // Why the loaded fields cannot describe a compound file, in words; empty
    // when they can.
    QString problem() const;
    bool valid() const { return problem().isEmpty(); }

    void load(const unsigned char *buffer);
    void save(unsigned char *buffer) const;

    unsigned b_shift = 9;
    unsigned s_shift = 6;
    uint64_t num_bat = 0;
    uint64_t dirent_start = 0;
    uint64_t threshold = kThreshold;
    uint64_t sbat_start = 0;
    uint64_t num_sbat = 0;
    uint64_t mbat_start = Eof;
    uint64_t num_mbat = 0;
    uint64_t bb_blocks[kHeaderBatSlots];
    bool dirty = true;
};

} // namespace POLE
