#include "containers/pole_alloctable.h"

#include "buffers/SafeInt.h"

#include <algorithm>

namespace POLE {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

void AllocTable::resize(uint64_t newSize)
{
    const uint64_t old = m_data.size();
    m_data.resize(newSize, Avail);
    if (newSize > old)
        noteFree(old);
}

void AllocTable::set(uint64_t index, uint64_t value)
{
    if (index >= m_data.size())
        resize(SafeInt::add<uint64_t>(index, 1));
    m_data[index] = value;
    if (value == Avail)
        noteFree(index);
}

uint64_t AllocTable::unused()
{
    if (m_maybeFree) {
        for (uint64_t i = m_freeHint; i < m_data.size(); ++i)
            if (m_data[i] == Avail) {
                m_freeHint = i;
                return i;
            }
        m_maybeFree = false;
        m_freeHint = m_data.size();
    }
    return m_data.size();
}

void AllocTable::noteFree(uint64_t index)
{
    m_maybeFree = true;
    m_freeHint = std::min(m_freeHint, index);
}

AllocTable::Walk AllocTable::follow(uint64_t start, uint64_t limit, std::vector<uint32_t> *owners,
                                    uint32_t self) const
{
    Walk walk;
    walk.stoppedAt = start;
    const uint64_t n = m_data.size();
    if (limit == 0) {
        walk.end = ChainEnd::Complete;
        return walk;
    }
    if (start >= n) {
        // An empty chain starts at the end mark; some writers mark it free.
        walk.end = start == Eof || start == Avail ? ChainEnd::EndOfChain : ChainEnd::LeavesTable;
        return walk;
    }
    const uint32_t mark = m_marks.start(n);
    if (owners != nullptr && owners->size() < n)
        owners->resize(n, 0);
    for (uint64_t p = start;;) {
        walk.stoppedAt = p;
        if (m_marks.passed(p, mark)) {
            walk.end = ChainEnd::Loops;
            break;
        }
        if (owners != nullptr) {
            uint32_t &owner = (*owners)[p];
            if (owner != 0 && owner != self) {
                walk.end = ChainEnd::Shared;
                walk.sharedWith = owner;
                break;
            }
            owner = self;
        }
        m_marks.pass(p, mark);
        walk.blocks.push_back(p);
        if (walk.blocks.size() == limit) {
            walk.end = ChainEnd::Complete;
            break;
        }
        const uint64_t next = m_data[p];
        if (next == Eof) {
            walk.stoppedAt = next;
            walk.end = ChainEnd::EndOfChain;
            break;
        }
        if (next >= n || next == Bat || next == MetaBat) {
            walk.stoppedAt = next;
            walk.end = ChainEnd::LeavesTable;
            break;
        }
        p = next;
    }
    return walk;
}

void AllocTable::load(const unsigned char *buffer, uint64_t len)
{
    const uint64_t n = len / 4;
    m_data.resize(n);
    for (uint64_t i = 0; i < n; ++i)
        m_data[i] = readU32(buffer + i * 4);
    m_maybeFree = true;
    m_freeHint = 0;
    m_dirty.clear();
}

void AllocTable::saveSector(uint64_t position, unsigned char *out) const
{
    const uint64_t first = position * m_entriesPerSector;
    for (uint64_t i = 0; i < m_entriesPerSector; ++i)
        writeU32(out + i * 4, (*this)[first + i]);
}

uint64_t AllocTable::freeCount() const { return uint64_t(std::count(m_data.begin(), m_data.end(), Avail)); }

} // namespace POLE
