#pragma once

// Internal to the compound-file storage: an allocation table (the BAT for
// sectors, the SBAT for small blocks), one entry per block holding the next
// block of its chain.

#include "containers/pole_format.h"
#include "containers/pole_walkmarks.h"

#include <set>
#include <vector>

namespace POLE {

// How a walk along a chain ended.
enum class ChainEnd {
    Complete,    // it had every block it was asked for
    EndOfChain,  // at the end-of-chain mark
    Loops,       // before a block it had already passed
    LeavesTable, // at a value that names no block of the table
    Shared,      // at a block that another chain claimed first
};

class AllocTable
{
public:
    // A chain and how its walk ended; `stoppedAt` is the value the walk
    // did not follow (the next block, or the first one for an empty chain),
    // `sharedWith` the owner of a block claimed by another chain.
    struct Walk
    {
        std::vector<uint64_t> blocks;
        ChainEnd end = ChainEnd::EndOfChain;
        uint64_t stoppedAt = Eof;
        uint32_t sharedWith = 0;
    };

    AllocTable() { resize(128); }

    uint64_t blockSize = 4096;

    uint64_t count() const { return m_data.size(); }
    uint64_t operator[](uint64_t index) const { return index < m_data.size() ? m_data[index] : Avail; }

    // Entries per table sector; table sectors are big blocks.
    void setEntriesPerSector(uint64_t n) { m_entriesPerSector = n; }
    uint64_t entriesPerSector() const { return m_entriesPerSector; }

    void resize(uint64_t newSize);
    void set(uint64_t index, uint64_t value);

    // The first free entry, or the entry count when none is free.
    uint64_t unused();

    // The chain from `start`, at most `limit` blocks of it. A chain ends at
    // a special value, at a number outside the table, or before a block it
    // already passed: a cyclic chain in a damaged file yields each of its
    // blocks once. With `owners` (an owner per block, 0 for none), each
    // block is claimed for `self`, and a block another owner holds ends the
    // chain; so in a file whose chains run into each other, following every
    // chain once costs no more than the table.
    Walk follow(uint64_t start, uint64_t limit = npos, std::vector<uint32_t> *owners = nullptr,
                uint32_t self = 0) const;
    std::vector<uint64_t> chain(uint64_t start) const { return follow(start).blocks; }

    void load(const unsigned char *buffer, uint64_t len);
    // Encodes table sector `position` (entriesPerSector() entries, free past the end).
    void saveSector(uint64_t position, unsigned char *out) const;

    void markDirty(uint64_t index) { m_dirty.insert(index / m_entriesPerSector); }
    bool isDirty() const { return !m_dirty.empty(); }
    const std::set<uint64_t> &dirtySectors() const { return m_dirty; }
    void clearDirty() { m_dirty.clear(); }

    uint64_t freeCount() const;

private:
    void noteFree(uint64_t index);

    std::vector<uint64_t> m_data;
    std::set<uint64_t> m_dirty;
    uint64_t m_entriesPerSector = 128;
    // Every entry below m_freeHint is known to be in use, so a search for a
    // free one never starts over.
    bool m_maybeFree = true;
    uint64_t m_freeHint = 0;
    mutable WalkMarks m_marks;
};

} // namespace POLE
