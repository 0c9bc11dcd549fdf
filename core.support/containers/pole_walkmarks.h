#pragma once

// Internal to the compound-file storage: marks that walks over a table
// (chains, sibling trees) leave on the entries they pass, so that a loop in
// a damaged file is found without clearing a bitmap for every walk.

#include <algorithm>
#include <cstdint>
#include <vector>

namespace POLE {

class WalkMarks
{
public:
    // Starts a walk over a table of `size` entries; returns its mark.
    uint32_t start(uint64_t size)
    {
        if (m_marks.size() < size)
            m_marks.resize(size, 0);
        if (++m_walk == 0) {
            std::fill(m_marks.begin(), m_marks.end(), 0);
            m_walk = 1;
        }
        return m_walk;
    }
    bool passed(uint64_t index, uint32_t walk) const { return m_marks[index] == walk; }
    void pass(uint64_t index, uint32_t walk) { m_marks[index] = walk; }

private:
    std::vector<uint32_t> m_marks;
    uint32_t m_walk = 0;
};

} // namespace POLE
