#include "containers/pole.h"

#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/SafeInt.h"

#include <QBuffer>
#include <QDebug>
#include <QFileDevice>
#include <QUuid>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <deque>
#include <set>
#include <vector>

namespace POLE {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// Special allocation-table values.
const uint64_t Avail = 0xFFFFFFFF;   // free
const uint64_t Eof = 0xFFFFFFFE;     // end of chain
const uint64_t Bat = 0xFFFFFFFD;     // table sector
const uint64_t MetaBat = 0xFFFFFFFC; // meta-table sector

const uint64_t npos = ~uint64_t(0);

const unsigned char kMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
const size_t kHeaderSize = 512;
const size_t kHeaderBatSlots = 109;
const size_t kDirEntrySize = 128;
const int kMaxNameChars = 31;
const uint64_t kThreshold = 4096;
const size_t kCopyChunk = 1000;
const size_t kCacheSize = 4096;

// Real files nest storages a few levels deep; a hostile file could nest them
// as deep as it has entries, and every path below would repeat all the names
// above it. Walks stop descending past this depth.
const int kMaxStorageDepth = 256;

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

QStringList splitPath(const QString &path)
{
    return path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
}

} // namespace

// ---------------------------------------------------------------------------
// Header

class Header
{
public:
    Header() { std::fill(std::begin(bb_blocks), std::end(bb_blocks), Avail); }

    bool valid() const
    {
        return threshold == kThreshold && num_bat != 0 && !(num_bat < kHeaderBatSlots && num_mbat != 0)
               && s_shift <= b_shift && b_shift >= 7 && b_shift <= 30;
    }

    void load(const unsigned char *buffer)
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

    void save(unsigned char *buffer) const
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

    void debug() const
    {
        std::printf("b_shift %u\ns_shift %u\nnum_bat %llu\ndirent_start %llu\nthreshold %llu\n"
                    "sbat_start %llu\nnum_sbat %llu\nmbat_start %llu\nnum_mbat %llu\n",
                    b_shift, s_shift, (unsigned long long)num_bat, (unsigned long long)dirent_start,
                    (unsigned long long)threshold, (unsigned long long)sbat_start,
                    (unsigned long long)num_sbat, (unsigned long long)mbat_start,
                    (unsigned long long)num_mbat);
        const size_t shown = std::min<uint64_t>(num_bat, kHeaderBatSlots);
        std::printf("bat blocks:");
        for (size_t i = 0; i < shown; ++i)
            std::printf(" %llu", (unsigned long long)bb_blocks[i]);
        std::printf("\n");
    }

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

// ---------------------------------------------------------------------------
// AllocTable: one entry per block, holding the next block of its chain.

class AllocTable
{
public:
    AllocTable() { resize(128); }

    uint64_t blockSize = 4096;

    uint64_t count() const { return m_data.size(); }
    uint64_t operator[](uint64_t index) const { return index < m_data.size() ? m_data[index] : Avail; }

    // Entries per table sector; table sectors are big blocks.
    void setEntriesPerSector(uint64_t n) { m_entriesPerSector = n; }
    uint64_t entriesPerSector() const { return m_entriesPerSector; }

    void resize(uint64_t newSize)
    {
        const uint64_t old = m_data.size();
        m_data.resize(newSize, Avail);
        if (newSize > old)
            noteFree(old);
    }

    void set(uint64_t index, uint64_t value)
    {
        if (index >= m_data.size())
            resize(SafeInt::add<uint64_t>(index, 1));
        m_data[index] = value;
        if (value == Avail)
            noteFree(index);
    }

    // The first free entry, or the entry count when none is free. Every entry
    // below m_freeHint is known to be in use, so a search never starts over.
    uint64_t unused()
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

    // The chain from start. A chain ends at a special value, at a number
    // outside the table, or before a block it already passed: a cyclic chain
    // in a damaged file yields each of its blocks once.
    std::vector<uint64_t> follow(uint64_t start) const
    {
        std::vector<uint64_t> chain;
        const uint64_t n = m_data.size();
        if (start >= n)
            return chain;
        std::vector<bool> seen(n, false);
        uint64_t p = start;
        for (;;) {
            if (seen[p])
                break;
            seen[p] = true;
            chain.push_back(p);
            const uint64_t next = m_data[p];
            if (next >= n || next == Eof || next == Bat || next == MetaBat)
                break;
            p = next;
        }
        return chain;
    }

    void load(const unsigned char *buffer, uint64_t len)
    {
        const uint64_t n = len / 4;
        m_data.resize(n);
        for (uint64_t i = 0; i < n; ++i)
            m_data[i] = readU32(buffer + i * 4);
        m_maybeFree = true;
        m_freeHint = 0;
        m_dirty.clear();
    }

    // Encodes table sector `position` (entriesPerSector() entries, free past the end).
    void saveSector(uint64_t position, unsigned char *out) const
    {
        const uint64_t first = position * m_entriesPerSector;
        for (uint64_t i = 0; i < m_entriesPerSector; ++i)
            writeU32(out + i * 4, (*this)[first + i]);
    }

    void markDirty(uint64_t index) { m_dirty.insert(index / m_entriesPerSector); }
    bool isDirty() const { return !m_dirty.empty(); }
    const std::set<uint64_t> &dirtySectors() const { return m_dirty; }
    void clearDirty() { m_dirty.clear(); }

    uint64_t freeCount() const { return uint64_t(std::count(m_data.begin(), m_data.end(), Avail)); }

    void debug() const
    {
        std::printf("block size %llu\n", (unsigned long long)blockSize);
        for (uint64_t i = 0; i < m_data.size(); ++i) {
            if (m_data[i] == Avail)
                continue;
            std::printf("%llu: ", (unsigned long long)i);
            if (m_data[i] == Eof)
                std::printf("[eof]\n");
            else if (m_data[i] == Bat)
                std::printf("[bat]\n");
            else if (m_data[i] == MetaBat)
                std::printf("[metabat]\n");
            else
                std::printf("%llu\n", (unsigned long long)m_data[i]);
        }
    }

private:
    void noteFree(uint64_t index)
    {
        m_maybeFree = true;
        m_freeHint = std::min(m_freeHint, index);
    }

    std::vector<uint64_t> m_data;
    std::set<uint64_t> m_dirty;
    uint64_t m_entriesPerSector = 128;
    bool m_maybeFree = true;
    uint64_t m_freeHint = 0;
};

// ---------------------------------------------------------------------------
// Directory

struct DirEntry
{
    bool valid = false;
    QString name;
    bool dir = false;
    uint64_t size = 0;
    uint64_t start = 0;
    uint64_t prev = 0;
    uint64_t next = 0;
    uint64_t child = 0;
    std::array<unsigned char, 16> clsid{};

    // Sibling order: shorter names first, then by UTF-16 code units.
    static int compare(const QString &a, const QString &b)
    {
        if (a.size() != b.size())
            return a.size() < b.size() ? -1 : 1;
        const QChar *x = a.constData();
        const QChar *y = b.constData();
        for (int i = 0; i < a.size(); ++i)
            if (x[i].unicode() != y[i].unicode())
                return x[i].unicode() < y[i].unicode() ? -1 : 1;
        return 0;
    }

    QString classIdText() const
    {
        const QUuid uuid(readU32(clsid.data()), readU16(clsid.data() + 4), readU16(clsid.data() + 6),
                         clsid[8], clsid[9], clsid[10], clsid[11], clsid[12], clsid[13], clsid[14],
                         clsid[15]);
        return uuid.toString();
    }
};

class DirTree
{
public:
    DirTree() { clear(); }

    // A new tree: only the root.
    void clear()
    {
        m_entries.assign(1, DirEntry());
        DirEntry &root = m_entries[0];
        root.valid = true;
        root.name = QStringLiteral("Root Entry");
        root.dir = true;
        root.start = Avail;
        root.prev = root.next = root.child = Avail;
        m_dirty.clear();
        markDirty(0);
    }

    void setEntriesPerSector(uint64_t n) { m_entriesPerSector = n; }

    uint64_t entryCount() const { return m_entries.size(); }
    DirEntry &entry(uint64_t index) { return m_entries[index]; }
    const DirEntry &entry(uint64_t index) const { return m_entries[index]; }

    // Links of 0 (the root) and out of range mean "none".
    bool isLink(uint64_t value) const { return value != 0 && value < m_entries.size(); }

    // The entry a path names; "/" is the root. npos when not found.
    uint64_t find(const QString &path) const
    {
        if (path.isEmpty() || m_entries.empty())
            return npos;
        uint64_t current = 0;
        for (const QString &part : splitPath(path)) {
            uint64_t closest;
            current = findChild(current, part, &closest);
            if (current == npos)
                return npos;
        }
        return current;
    }

    // The named child of `parent`. The sibling tree is searched as a binary
    // tree first; `closest` gets the last entry that search visited. Writers
    // disagree on the order of names (some compare them upper-cased), so a
    // failed search falls back to a walk over the whole sibling tree.
    uint64_t findChild(uint64_t parent, const QString &name, uint64_t *closest) const
    {
        *closest = npos;
        const DirEntry &p = m_entries[parent];
        if (!p.valid || !isLink(p.child))
            return npos;
        uint64_t i = p.child;
        for (uint64_t steps = 0; steps < m_entries.size(); ++steps) {
            *closest = i;
            const DirEntry &e = m_entries[i];
            const int c = DirEntry::compare(e.name, name);
            if (c == 0) {
                if (e.valid)
                    return i;
                break;
            }
            const uint64_t link = c < 0 ? e.next : e.prev;
            if (!isLink(link))
                break;
            i = link;
        }
        for (uint64_t child : children(parent))
            if (m_entries[child].name == name)
                return child;
        return npos;
    }

    // The valid children of a storage in sibling-tree order (left subtree,
    // entry, right subtree). Each entry is visited at most once.
    std::vector<uint64_t> children(uint64_t index) const
    {
        std::vector<uint64_t> result;
        if (index >= m_entries.size() || !m_entries[index].valid)
            return result;
        std::vector<bool> seen(m_entries.size(), false);
        std::vector<uint64_t> stack;
        uint64_t current = m_entries[index].child;
        for (;;) {
            while (isLink(current) && !seen[current]) {
                seen[current] = true;
                stack.push_back(current);
                current = m_entries[current].prev;
            }
            if (stack.empty())
                break;
            current = stack.back();
            stack.pop_back();
            if (m_entries[current].valid)
                result.push_back(current);
            current = m_entries[current].next;
        }
        return result;
    }

    // Creates what is missing of `path`: storages on the way, a stream of
    // `size` bytes at the end. Returns the entry, or npos when the path runs
    // through a stream.
    uint64_t create(const QString &path, uint64_t size)
    {
        if (path.isEmpty() || m_entries.empty())
            return npos;
        const QStringList parts = splitPath(path);
        uint64_t current = 0;
        for (int i = 0; i < parts.size(); ++i) {
            uint64_t closest;
            const uint64_t found = findChild(current, parts.at(i), &closest);
            if (found != npos) {
                current = found;
                continue;
            }
            if (!m_entries[current].dir)
                return npos;
            for (int j = i; j < parts.size(); ++j) {
                const bool last = j == parts.size() - 1;
                current = insert(current, closest, parts.at(j), !last, last ? size : 0);
                closest = npos; // a new storage has no children
            }
            return current;
        }
        return current;
    }

    // Takes entry `index` out of its parent's sibling tree and marks it unused.
    void remove(uint64_t index, uint64_t parent)
    {
        DirEntry &e = m_entries[index];
        const uint64_t sibling = findSiblingOf(index, parent);

        uint64_t replacement;
        if (isLink(e.next)) {
            const uint64_t right = e.next;
            if (isLink(m_entries[right].prev)) {
                uint64_t above = right;
                uint64_t leftmost = m_entries[right].prev;
                for (uint64_t steps = 0; steps < m_entries.size() && isLink(m_entries[leftmost].prev)
                                         && m_entries[leftmost].prev != index;
                     ++steps) {
                    above = leftmost;
                    leftmost = m_entries[leftmost].prev;
                }
                m_entries[above].prev = m_entries[leftmost].next;
                m_entries[leftmost].prev = e.prev;
                m_entries[leftmost].next = e.next;
                markDirty(above);
                markDirty(leftmost);
                replacement = leftmost;
            } else {
                m_entries[right].prev = e.prev;
                markDirty(right);
                replacement = right;
            }
        } else {
            replacement = e.prev;
        }

        if (m_entries[parent].child == index) {
            m_entries[parent].child = replacement;
            markDirty(parent);
        } else if (sibling != npos) {
            DirEntry &s = m_entries[sibling];
            if (s.prev == index)
                s.prev = replacement;
            else
                s.next = replacement;
            markDirty(sibling);
        }
        if (isLink(replacement))
            markDirty(replacement);
        e.valid = false;
        markDirty(index);
    }

    void load(const unsigned char *buffer, uint64_t len)
    {
        m_entries.clear();
        m_dirty.clear();
        const uint64_t n = len / kDirEntrySize;
        m_entries.resize(n);
        for (uint64_t i = 0; i < n; ++i) {
            const unsigned char *p = buffer + i * kDirEntrySize;
            DirEntry &e = m_entries[i];
            const unsigned nameLength = readU16(p + 64);
            if (nameLength % 2 != 0)
                throw "Error in CFB - name length is odd";
            if (nameLength / 2 > 32)
                throw "Error reading CFB - max length for name is 31 chars";
            int chars = 0;
            while (chars < 32 && readU16(p + chars * 2) != 0)
                ++chars;
            e.name.resize(chars);
            for (int c = 0; c < chars; ++c)
                e.name[c] = QChar(readU16(p + c * 2));
            const unsigned type = p[66];
            e.valid = type != 0;
            if ((type != 1 && type != 2 && type != 5) || nameLength < 2)
                e.valid = false;
            e.dir = type != 2;
            e.prev = readU32(p + 68);
            e.next = readU32(p + 72);
            e.child = readU32(p + 76);
            std::memcpy(e.clsid.data(), p + 80, 16);
            e.start = readU32(p + 116);
            e.size = readU32(p + 120);
        }
    }

    // Encodes directory sector `position` into `out` (entries-per-sector × 128
    // bytes); returns how many bytes of it hold entries.
    uint64_t saveSector(uint64_t position, unsigned char *out)
    {
        const uint64_t first = position * m_entriesPerSector;
        std::memset(out, 0, m_entriesPerSector * kDirEntrySize);
        uint64_t used = 0;
        for (uint64_t i = first; i < m_entries.size() && i < first + m_entriesPerSector; ++i) {
            saveEntry(i, out + (i - first) * kDirEntrySize);
            used += kDirEntrySize;
        }
        return used;
    }

    void markDirty(uint64_t index) { m_dirty.insert(index / m_entriesPerSector); }
    bool isDirty() const { return !m_dirty.empty(); }
    const std::set<uint64_t> &dirtySectors() const { return m_dirty; }
    void clearDirty() { m_dirty.clear(); }

    uint64_t unusedCount() const
    {
        return uint64_t(std::count_if(m_entries.begin(), m_entries.end(),
                                      [](const DirEntry &e) { return !e.valid; }));
    }

    void debug() const
    {
        for (uint64_t i = 0; i < m_entries.size(); ++i) {
            const DirEntry &e = m_entries[i];
            std::printf("%llu: %s%s size %llu start %llu prev %llu next %llu child %llu %s\n",
                        (unsigned long long)i,
                        !e.valid ? "INVALID " : (e.dir ? "(Dir) " : "(File) "),
                        e.name.toUtf8().constData(), (unsigned long long)e.size,
                        (unsigned long long)e.start, (unsigned long long)e.prev,
                        (unsigned long long)e.next, (unsigned long long)e.child,
                        e.classIdText().toLatin1().constData());
        }
    }

private:
    uint64_t insert(uint64_t parent, uint64_t closest, const QString &name, bool dir, uint64_t size)
    {
        uint64_t index = npos;
        for (uint64_t i = 1; i < m_entries.size(); ++i)
            if (!m_entries[i].valid) {
                index = i;
                break;
            }
        if (index == npos) {
            index = m_entries.size();
            m_entries.emplace_back();
        }
        DirEntry &e = m_entries[index];
        e = DirEntry();
        e.valid = true;
        e.name = name;
        e.dir = dir;
        e.size = size;
        e.start = Eof;
        e.child = Avail;

        if (closest == npos) {
            DirEntry &p = m_entries[parent];
            e.prev = Avail;
            e.next = isLink(p.child) ? p.child : Avail;
            p.child = index;
            markDirty(parent);
        } else {
            DirEntry &c = m_entries[closest];
            if (DirEntry::compare(c.name, name) < 0) {
                e.prev = c.next;
                e.next = Avail;
                c.next = index;
            } else {
                e.next = c.prev;
                e.prev = Avail;
                c.prev = index;
            }
            markDirty(closest);
        }
        markDirty(index);
        return index;
    }

    // The entry whose prev or next link points at `index` among the children
    // of `parent`; npos when `index` is the parent's child itself or is not
    // reached at all.
    uint64_t findSiblingOf(uint64_t index, uint64_t parent) const
    {
        uint64_t i = m_entries[parent].child;
        if (i == index)
            return npos;
        const DirEntry &target = m_entries[index];
        for (uint64_t steps = 0; steps < m_entries.size() && isLink(i); ++steps) {
            const DirEntry &e = m_entries[i];
            if (e.prev == index || e.next == index)
                return i;
            i = DirEntry::compare(e.name, target.name) < 0 ? e.next : e.prev;
        }
        // Not ordered the way we compare: look at every node of the tree.
        std::vector<bool> seen(m_entries.size(), false);
        std::vector<uint64_t> stack{m_entries[parent].child};
        while (!stack.empty()) {
            const uint64_t n = stack.back();
            stack.pop_back();
            if (!isLink(n) || seen[n])
                continue;
            seen[n] = true;
            if (m_entries[n].prev == index || m_entries[n].next == index)
                return n;
            stack.push_back(m_entries[n].prev);
            stack.push_back(m_entries[n].next);
        }
        return npos;
    }

    void saveEntry(uint64_t index, unsigned char *p)
    {
        DirEntry &e = m_entries[index];
        if (index == 0) {
            static const QString rootName = QStringLiteral("Root Entry");
            for (int c = 0; c < rootName.size(); ++c)
                writeU16(p + c * 2, rootName.at(c).unicode());
            writeU16(p + 64, uint16_t(rootName.size() * 2 + 2));
            p[66] = 5;
            p[67] = 0;
            writeU32(p + 68, Avail);
            writeU32(p + 72, Avail);
            writeU32(p + 76, e.child);
            std::memcpy(p + 80, e.clsid.data(), 16);
            writeU32(p + 116, Avail);
            writeU32(p + 120, 0);
            return;
        }
        if (e.dir) {
            e.start = Avail;
            e.size = 0;
        }
        if (e.name.size() > kMaxNameChars)
            throw "Error in CFB - max length for name is 31 chars";
        for (int c = 0; c < e.name.size(); ++c)
            writeU16(p + c * 2, e.name.at(c).unicode());
        writeU16(p + 64, uint16_t(e.name.size() * 2 + 2));
        p[66] = !e.valid ? 0 : (e.dir ? 1 : 2);
        p[67] = 1;
        writeU32(p + 68, e.prev);
        writeU32(p + 72, e.next);
        writeU32(p + 76, e.child);
        std::memcpy(p + 80, e.clsid.data(), 16);
        writeU32(p + 116, e.start);
        writeU32(p + 120, e.size);
    }

    std::vector<DirEntry> m_entries;
    std::set<uint64_t> m_dirty;
    uint64_t m_entriesPerSector = 4;
};

// ---------------------------------------------------------------------------
// StorageIO: the opened file.

class StorageIO
{
public:
    StorageIO(Storage *storage, MemoryBuffer *buffer)
        : m_storage(storage), m_ownDevice(new IOMemoryBuffer(buffer)), m_device(m_ownDevice.get())
    {
        Q_UNUSED(m_storage);
    }

    StorageIO(Storage *storage, QIODevice *device) : m_storage(storage), m_device(device) { Q_UNUSED(m_storage); }

    ~StorageIO() { close(); }

    bool open(bool writeable, bool create)
    {
        close();
        if (create)
            return createNew();
        load(writeable);
        return m_result == Storage::Ok;
    }

    void close()
    {
        // Streams still open on this storage become streams that failed to open.
        for (StreamIO *stream : m_streams)
            detach(stream);
        m_streams.clear();
        if (m_device != nullptr && m_closeDevice && m_device->isOpen())
            m_device->close();
        m_closeDevice = false;
        m_opened = false;
    }

    void flush();

    bool opened() const { return m_opened; }
    bool writeable() const { return m_opened && m_writeable; }
    int result() const { return m_result; }
    const Header &header() const { return m_header; }
    DirTree &dirtree() { return m_dirtree; }
    const DirTree &dirtree() const { return m_dirtree; }
    const AllocTable &bbat() const { return m_bbat; }
    const AllocTable &sbat() const { return m_sbat; }

    uint64_t bigBlockSize() const { return uint64_t(1) << m_header.b_shift; }
    uint64_t smallBlockSize() const { return uint64_t(1) << m_header.s_shift; }
    uint64_t threshold() const { return m_header.threshold; }

    // The entry a path names, or npos; nothing is found in an unopened storage.
    uint64_t find(const QString &path) const { return m_opened ? m_dirtree.find(path) : npos; }

    std::unique_ptr<StreamIO> streamIO(const QString &path, bool create, uint64_t size);
    bool deleteEntry(const QString &path, int depth);

    // Copies between `data` and the blocks of a chain, from byte `pos` of the
    // chain on; contiguous blocks move in one device operation. Reads stop at
    // the end of the chain; bytes past the end of the file read as zero.
    uint64_t transfer(const std::vector<uint64_t> &chain, bool small, uint64_t pos, unsigned char *readTo,
                      const unsigned char *writeFrom, uint64_t len);

    uint64_t extendFile(std::vector<uint64_t> &chain);
    void addSmallBlock(std::vector<uint64_t> &chain);
    void freeChain(const std::vector<uint64_t> &chain, bool small);
    std::vector<uint64_t> chainOf(const DirEntry &e) const
    {
        return e.size < threshold() ? m_sbat.follow(e.start) : m_bbat.follow(e.start);
    }

    void registerStream(StreamIO *stream) { m_streams.push_back(stream); }
    void unregisterStream(StreamIO *stream)
    {
        m_streams.erase(std::remove(m_streams.begin(), m_streams.end(), stream), m_streams.end());
    }

    void debug() const
    {
        m_header.debug();
        m_bbat.debug();
        m_sbat.debug();
        m_dirtree.debug();
    }

private:
    bool createNew();
    void load(bool writeable);
    bool openDevice(QIODevice::OpenMode mode);
    void detach(StreamIO *stream);

    void readAt(uint64_t offset, unsigned char *data, uint64_t len);
    void writeAt(uint64_t offset, const unsigned char *data, uint64_t len);
    uint64_t sectorOffset(uint64_t sector) const { return (sector + 1) << m_header.b_shift; }
    // Reads the sectors of a chain into one buffer.
    std::vector<unsigned char> loadChain(const std::vector<uint64_t> &chain);
    // Writes one whole sector, refusing numbers the table does not know:
    // a damaged file must not make us write terabytes away.
    void saveSector(uint64_t sector, const unsigned char *data, uint64_t len);
    uint64_t fileSectors() const { return m_filesize > bigBlockSize() ? (m_filesize - 1) >> m_header.b_shift : 0; }
    bool blockOffset(const std::vector<uint64_t> &chain, bool small, uint64_t index, uint64_t &offset) const;
    void addBatBlock();
    void coverTable();
    void padToAllocatedEnd();

    Storage *m_storage;
    std::unique_ptr<IOMemoryBuffer> m_ownDevice; // over the caller's buffer, if given one
    QIODevice *m_device;                         // that device, or the caller's
    bool m_closeDevice = false;                  // whether open() opened the device
    int m_result = Storage::OpenFailed;
    bool m_opened = false;
    uint64_t m_filesize = 0;
    bool m_writeable = false;
    Header m_header;
    DirTree m_dirtree;
    AllocTable m_bbat;
    AllocTable m_sbat;
    std::vector<uint64_t> m_sb_blocks;    // the small-block container's chain
    std::vector<uint64_t> m_mbat_blocks;  // MBAT sector numbers
    std::vector<uint64_t> m_mbat_data;    // BAT sector numbers held in MBAT sectors
    bool m_mbatDirty = false;
    std::vector<StreamIO *> m_streams;
};

// ---------------------------------------------------------------------------
// StreamIO: one opened stream.

class StreamIO
{
public:
    StreamIO(StorageIO *io, uint64_t entry, const QString &name)
        : m_io(io), m_entry(entry), m_fullName(name)
    {
        m_blocks = m_io->chainOf(m_io->dirtree().entry(m_entry));
        m_io->registerStream(this);
    }

    ~StreamIO()
    {
        if (m_io)
            m_io->unregisterStream(this);
    }

    void detach() { m_io = nullptr; }
    bool attached() const { return m_io != nullptr; }

    DirEntry *entry() const { return m_io ? &m_io->dirtree().entry(m_entry) : nullptr; }
    uint64_t size() const { return m_io ? entry()->size : 0; }
    QString fullName() const { return m_fullName; }

    uint64_t read(uint64_t pos, unsigned char *data, uint64_t maxlen)
    {
        if (!m_io || data == nullptr || maxlen == 0)
            return 0;
        const uint64_t total = size();
        if (pos >= total)
            return 0;
        const uint64_t amount = std::min(maxlen, total - pos);
        return m_io->transfer(m_blocks, total < m_io->threshold(), pos, data, nullptr, amount);
    }

    uint64_t write(uint64_t pos, const unsigned char *data, uint64_t len)
    {
        if (!m_io || data == nullptr || len == 0 || !m_io->writeable() || entry()->dir)
            return 0;
        const uint64_t end = SafeInt::add<uint64_t>(pos, len);
        if (end > size())
            setSize(end);
        const bool small = size() < m_io->threshold();
        if (small) {
            const uint64_t needed = (end - 1) / m_io->smallBlockSize() + 1;
            while (m_blocks.size() < needed)
                m_io->addSmallBlock(m_blocks);
        } else {
            const uint64_t needed = (end - 1) / m_io->bigBlockSize() + 1;
            while (m_blocks.size() < needed)
                m_io->extendFile(m_blocks);
        }
        const uint64_t written = m_io->transfer(m_blocks, small, pos, nullptr, data, len);
        DirEntry *e = entry();
        if (!m_blocks.empty() && m_blocks.front() != e->start) {
            e->start = m_blocks.front();
            m_io->dirtree().markDirty(m_entry);
        }
        m_pos = end;
        return written;
    }

    void setSize(uint64_t newSize)
    {
        if (!m_io || !m_io->writeable() || entry()->dir)
            return;
        const uint64_t current = size();
        const uint64_t threshold = m_io->threshold();
        if ((current < threshold) != (newSize < threshold)) {
            // Moving between small and big blocks: the content is rewritten.
            // Only content under the threshold is ever kept, so this stays small.
            std::vector<unsigned char> kept(std::min(newSize, current));
            const uint64_t got = read(0, kept.data(), kept.size());
            kept.resize(got);
            const uint64_t savedPos = m_pos;
            m_io->freeChain(m_blocks, current < threshold);
            m_blocks.clear();
            DirEntry *e = entry();
            e->start = Avail;
            e->size = newSize;
            m_io->dirtree().markDirty(m_entry);
            if (!kept.empty())
                write(0, kept.data(), kept.size());
            if (savedPos <= newSize)
                m_pos = savedPos;
        } else if (newSize != current) {
            entry()->size = newSize;
            m_io->dirtree().markDirty(m_entry);
        }
    }

    int getch()
    {
        if (!m_io || m_pos >= size())
            return -1;
        if (m_cacheSize == 0 || m_pos < m_cachePos || m_pos >= m_cachePos + m_cacheSize) {
            m_cachePos = m_pos - m_pos % kCacheSize;
            m_cacheSize = read(m_cachePos, m_cache.data(), kCacheSize);
            if (m_pos >= m_cachePos + m_cacheSize) {
                m_cacheSize = 0;
                return -1;
            }
        }
        return m_cache[m_pos++ - m_cachePos];
    }

    void flush()
    {
        if (m_io)
            m_io->flush();
    }

    uint64_t m_pos = 0;
    bool m_eof = false;
    bool m_fail = false;

private:
    StorageIO *m_io;
    uint64_t m_entry;
    QString m_fullName;
    std::vector<uint64_t> m_blocks;
    std::array<unsigned char, kCacheSize> m_cache{};
    uint64_t m_cacheSize = 0;
    uint64_t m_cachePos = 0;
};

void StorageIO::detach(StreamIO *stream) { stream->detach(); }

// --- device access ----------------------------------------------------------

// Storages read at scattered offsets: a device we open is unbuffered, so a
// seek costs nothing and each read goes straight to the file.
bool StorageIO::openDevice(QIODevice::OpenMode mode)
{
    if (m_device == nullptr)
        return false;
    if (!m_device->isOpen()) {
        m_closeDevice = m_device->open(mode | QIODevice::Unbuffered);
        return m_closeDevice;
    }
    // The caller's open device. Changes read back what they wrote (a stream
    // moved between small and big blocks), so writing needs reading too.
    const bool writing = mode & QIODevice::WriteOnly;
    if (m_device->isSequential() || !m_device->isReadable() || (writing && !m_device->isWritable()))
        return false;
    if (!(mode & QIODevice::Truncate) || m_device->size() == 0)
        return true;
    if (auto *file = qobject_cast<QFileDevice *>(m_device))
        return file->resize(0);
    if (auto *buffer = qobject_cast<QBuffer *>(m_device)) {
        buffer->seek(0);
        buffer->buffer().clear();
        return true;
    }
    return false; // no way to drop the old bytes
}

void StorageIO::readAt(uint64_t offset, unsigned char *data, uint64_t len)
{
    uint64_t got = 0;
    if (offset < m_filesize) {
        const uint64_t available = std::min(len, m_filesize - offset);
        if (m_device->seek(qint64(offset))) {
            const qint64 n = m_device->read(reinterpret_cast<char *>(data), qint64(available));
            got = n > 0 ? uint64_t(n) : 0;
        }
    }
    if (got < len)
        std::memset(data + got, 0, len - got);
}

void StorageIO::writeAt(uint64_t offset, const unsigned char *data, uint64_t len)
{
    if (!m_writeable || len == 0)
        return;
    // Seeking past the end would grow the buffer to the exact size each
    // time; filling the gap by writing lets it grow geometrically.
    const uint64_t size = uint64_t(m_device->size());
    if (offset > size && m_device->seek(qint64(size))) {
        static const std::vector<char> zeros(64 * 1024, 0);
        uint64_t gap = offset - size;
        while (gap > 0) {
            const uint64_t n = std::min<uint64_t>(gap, zeros.size());
            if (m_device->write(zeros.data(), qint64(n)) != qint64(n))
                return;
            gap -= n;
        }
    }
    if (!m_device->seek(qint64(offset)))
        return;
    const qint64 n = m_device->write(reinterpret_cast<const char *>(data), qint64(len));
    if (n > 0)
        m_filesize = std::max(m_filesize, offset + uint64_t(n));
}

std::vector<unsigned char> StorageIO::loadChain(const std::vector<uint64_t> &chain)
{
    const uint64_t bs = bigBlockSize();
    std::vector<unsigned char> data(SafeInt::mul<uint64_t>(chain.size(), bs));
    for (size_t i = 0; i < chain.size(); ++i)
        readAt(sectorOffset(chain[i]), data.data() + i * bs, bs);
    return data;
}

void StorageIO::saveSector(uint64_t sector, const unsigned char *data, uint64_t len)
{
    if (sector >= m_bbat.count())
        return;
    writeAt(sectorOffset(sector), data, len);
}

bool StorageIO::blockOffset(const std::vector<uint64_t> &chain, bool small, uint64_t index,
                            uint64_t &offset) const
{
    if (!small) {
        offset = sectorOffset(chain[index]);
        return true;
    }
    const uint64_t pos = chain[index] << m_header.s_shift;
    const uint64_t container = pos >> m_header.b_shift;
    if (container >= m_sb_blocks.size())
        return false;
    offset = sectorOffset(m_sb_blocks[container]) + (pos & (bigBlockSize() - 1));
    return true;
}

uint64_t StorageIO::transfer(const std::vector<uint64_t> &chain, bool small, uint64_t pos,
                             unsigned char *readTo, const unsigned char *writeFrom, uint64_t len)
{
    const uint64_t blockSize = small ? smallBlockSize() : bigBlockSize();
    uint64_t index = pos / blockSize;
    uint64_t offset = pos % blockSize;
    uint64_t done = 0;
    while (done < len && index < chain.size()) {
        uint64_t runStart;
        if (!blockOffset(chain, small, index, runStart))
            break;
        runStart += offset;
        uint64_t runLen = std::min(blockSize - offset, len - done);
        ++index;
        while (done + runLen < len && index < chain.size()) {
            uint64_t next;
            if (!blockOffset(chain, small, index, next) || next != runStart + runLen)
                break;
            runLen += std::min(blockSize, len - done - runLen);
            ++index;
        }
        if (readTo) {
            readAt(runStart, readTo + done, runLen);
        } else {
            // Writing only reaches blocks the table knows (see saveSector).
            if (!small && chain[index - 1] >= m_bbat.count())
                break;
            writeAt(runStart, writeFrom + done, runLen);
        }
        done += runLen;
        offset = 0;
    }
    return done;
}

// --- loading ----------------------------------------------------------------

void StorageIO::load(bool writeable)
{
    m_result = Storage::OpenFailed;
    m_writeable = writeable;
    if (!openDevice(writeable ? QIODevice::ReadWrite : QIODevice::ReadOnly))
        return;
    m_filesize = uint64_t(m_device->size());

    unsigned char buffer[kHeaderSize];
    readAt(0, buffer, kHeaderSize);

    m_result = Storage::NotOLE;
    if (m_filesize < sizeof(kMagic) || std::memcmp(buffer, kMagic, sizeof(kMagic)) != 0)
        return;

    m_result = Storage::BadOLE;
    m_header.load(buffer);
    if (!m_header.valid())
        return;
    const uint64_t bs = bigBlockSize();
    const uint64_t entriesPerSector = bs / 4;
    // A table cannot have more sectors than the file.
    if (m_header.num_bat > fileSectors() || m_header.num_mbat > fileSectors())
        return;
    m_bbat.blockSize = bs;
    m_sbat.blockSize = smallBlockSize();
    m_bbat.setEntriesPerSector(entriesPerSector);
    m_sbat.setEntriesPerSector(entriesPerSector);
    m_dirtree.setEntriesPerSector(bs / kDirEntrySize);

    // The BAT sector numbers: 109 in the header, the rest in the MBAT chain.
    std::vector<uint64_t> blocks(m_header.bb_blocks,
                                 m_header.bb_blocks + std::min<uint64_t>(m_header.num_bat, kHeaderBatSlots));
    m_mbat_blocks.clear();
    m_mbat_data.clear();
    if (m_header.num_bat > kHeaderBatSlots && m_header.num_mbat != 0) {
        std::vector<unsigned char> sector(bs);
        std::vector<bool> seen(fileSectors(), false);
        uint64_t current = m_header.mbat_start;
        for (uint64_t i = 0; i < m_header.num_mbat && blocks.size() < m_header.num_bat; ++i) {
            if (current >= seen.size() || seen[current])
                break;
            seen[current] = true;
            m_mbat_blocks.push_back(current);
            readAt(sectorOffset(current), sector.data(), bs);
            for (uint64_t k = 0; k + 1 < entriesPerSector && blocks.size() < m_header.num_bat; ++k) {
                blocks.push_back(readU32(sector.data() + k * 4));
                m_mbat_data.push_back(blocks.back());
            }
            current = readU32(sector.data() + (entriesPerSector - 1) * 4);
        }
    }

    // Entries past the sectors the file holds describe nothing; with huge
    // sectors a claimed table could otherwise need gigabytes.
    const uint64_t sectors = fileSectors();
    const uint64_t cap = entriesPerSector <= 1024
                             ? (sectors + entriesPerSector - 1) / entriesPerSector * entriesPerSector
                             : std::max<uint64_t>(sectors, 1);
    const uint64_t batEntries = std::min(SafeInt::mul<uint64_t>(blocks.size(), entriesPerSector), cap);
    std::vector<unsigned char> batData(batEntries * 4);
    for (uint64_t i = 0; i * bs < batData.size(); ++i)
        readAt(sectorOffset(blocks[i]), batData.data() + i * bs, std::min<uint64_t>(bs, batData.size() - i * bs));
    m_bbat.load(batData.data(), batData.size());

    const std::vector<uint64_t> sbatChain = m_bbat.follow(m_header.sbat_start);
    if (!sbatChain.empty()) {
        const std::vector<unsigned char> data = loadChain(sbatChain);
        m_sbat.load(data.data(), data.size());
    } else {
        m_sbat.load(nullptr, 0);
    }

    const std::vector<unsigned char> dirData = loadChain(m_bbat.follow(m_header.dirent_start));
    m_dirtree.load(dirData.data(), dirData.size());
    if (m_dirtree.entryCount() == 0)
        return; // no root entry: nothing can be found in such a file

    m_sb_blocks = m_bbat.follow(readU32(dirData.data() + 116));

    m_mbatDirty = false;
    m_result = Storage::Ok;
    m_opened = true;
}

bool StorageIO::createNew()
{
    // Read-write, so that a stream moved between small and big blocks can
    // read back what it wrote before the file was ever flushed.
    if (!openDevice(QIODevice::ReadWrite | QIODevice::Truncate)) {
        std::fputs("Can't create CFB\n", stderr);
        m_result = Storage::OpenFailed;
        return false;
    }
    m_opened = true;
    m_result = Storage::Ok;
    m_writeable = true;
    m_filesize = 0;

    m_header = Header();
    m_header.bb_blocks[0] = 0;
    m_header.dirent_start = 1;
    m_header.sbat_start = 2;
    m_header.num_bat = 1;
    m_header.num_sbat = 1;

    const uint64_t bs = bigBlockSize();
    m_bbat = AllocTable();
    m_bbat.blockSize = bs;
    m_bbat.setEntriesPerSector(bs / 4);
    m_sbat = AllocTable();
    m_sbat.blockSize = smallBlockSize();
    m_sbat.setEntriesPerSector(bs / 4);
    for (uint64_t sector = 0; sector < 4; ++sector) {
        m_bbat.set(sector, Eof);
        m_bbat.markDirty(sector);
    }
    m_sbat.markDirty(0); // the SBAT sector is written out free
    m_sb_blocks.assign(1, 3);
    m_mbat_blocks.clear();
    m_mbat_data.clear();
    m_mbatDirty = false;

    m_dirtree.setEntriesPerSector(bs / kDirEntrySize);
    m_dirtree.clear();
    return true;
}

// --- allocation -------------------------------------------------------------

void StorageIO::addBatBlock()
{
    const uint64_t block = m_bbat.unused();
    m_bbat.set(block, MetaBat);
    m_bbat.markDirty(block);
    if (m_header.num_bat < kHeaderBatSlots) {
        m_header.bb_blocks[m_header.num_bat] = block;
    } else {
        m_mbat_data.push_back(block);
        m_mbatDirty = true;
        const uint64_t perMbatSector = m_bbat.entriesPerSector() - 1;
        if ((m_mbat_data.size() - 1) / perMbatSector >= m_mbat_blocks.size()) {
            const uint64_t mbatBlock = m_bbat.unused();
            m_bbat.set(mbatBlock, MetaBat);
            m_bbat.markDirty(mbatBlock);
            m_mbat_blocks.push_back(mbatBlock);
            if (m_mbat_blocks.size() == 1)
                m_header.mbat_start = mbatBlock;
            ++m_header.num_mbat;
        }
    }
    ++m_header.num_bat;
    m_header.dirty = true;
}

// Adds BAT sectors until every entry of the table lies in one.
void StorageIO::coverTable()
{
    while ((m_bbat.count() - 1) / m_bbat.entriesPerSector() >= m_header.num_bat)
        addBatBlock();
}

uint64_t StorageIO::extendFile(std::vector<uint64_t> &chain)
{
    const uint64_t block = m_bbat.unused();
    m_bbat.set(block, Eof);
    coverTable();
    m_bbat.markDirty(block);
    if (!chain.empty()) {
        m_bbat.set(chain.back(), block);
        m_bbat.markDirty(chain.back());
    }
    chain.push_back(block);
    return block;
}

void StorageIO::addSmallBlock(std::vector<uint64_t> &chain)
{
    const uint64_t block = m_sbat.unused();
    if (!chain.empty()) {
        m_sbat.set(chain.back(), block);
        m_sbat.markDirty(chain.back());
    }
    m_sbat.set(block, Eof);
    m_sbat.markDirty(block);
    chain.push_back(block);

    while (block / m_sbat.entriesPerSector() >= m_header.num_sbat) {
        std::vector<uint64_t> sbatChain = m_bbat.follow(m_header.sbat_start);
        extendFile(sbatChain);
        if (sbatChain.size() == 1)
            m_header.sbat_start = sbatChain.front();
        ++m_header.num_sbat;
        m_header.dirty = true;
    }
    while ((block << m_header.s_shift) >> m_header.b_shift >= m_sb_blocks.size()) {
        extendFile(m_sb_blocks);
        m_dirtree.markDirty(0);
    }
}

void StorageIO::freeChain(const std::vector<uint64_t> &chain, bool small)
{
    AllocTable &table = small ? m_sbat : m_bbat;
    for (uint64_t block : chain) {
        table.set(block, Avail);
        table.markDirty(block);
    }
}

// --- streams and deletion ---------------------------------------------------

std::unique_ptr<StreamIO> StorageIO::streamIO(const QString &path, bool create, uint64_t size)
{
    if (!m_opened || path.isEmpty())
        return nullptr;
    uint64_t index = m_dirtree.find(path);
    if (index == npos) {
        if (!create || !writeable())
            return nullptr;
        index = m_dirtree.create(path, size);
        if (index == npos)
            return nullptr;
        // The directory stream needs a sector for every entry.
        std::vector<uint64_t> dirChain = m_bbat.follow(m_header.dirent_start);
        const uint64_t needed = (m_dirtree.entryCount() - 1) / (bigBlockSize() / kDirEntrySize) + 1;
        while (dirChain.size() < needed) {
            extendFile(dirChain);
            if (dirChain.size() == 1) {
                m_header.dirent_start = dirChain.front();
                m_header.dirty = true;
            }
        }
    }
    return std::unique_ptr<StreamIO>(new StreamIO(this, index, path));
}

bool StorageIO::deleteEntry(const QString &path, int depth)
{
    if (depth > kMaxStorageDepth)
        return false;
    const uint64_t index = m_dirtree.find(path);
    if (index == npos || index == 0)
        return false;
    if (m_dirtree.entry(index).dir) {
        // Each round takes one entry out, so this ends even in a damaged tree.
        for (;;) {
            const uint64_t child = m_dirtree.entry(index).child;
            if (!m_dirtree.isLink(child) || !m_dirtree.entry(child).valid)
                break;
            if (!deleteEntry(path + QLatin1Char('/') + m_dirtree.entry(child).name, depth + 1))
                return false;
        }
    } else {
        const DirEntry &e = m_dirtree.entry(index);
        freeChain(chainOf(e), e.size < threshold());
    }

    QString normal = path;
    if (normal.endsWith(QLatin1Char('/')))
        normal.chop(1);
    if (!normal.startsWith(QLatin1Char('/')))
        normal.prepend(QLatin1Char('/'));
    QString parentPath = normal.left(normal.lastIndexOf(QLatin1Char('/')));
    if (parentPath.isEmpty())
        parentPath = QStringLiteral("/");
    const uint64_t parent = m_dirtree.find(parentPath);
    if (parent == npos)
        return false;
    m_dirtree.remove(index, parent);
    return true;
}

// --- flushing ---------------------------------------------------------------

void StorageIO::flush()
{
    if (!writeable())
        return;
    const uint64_t bs = bigBlockSize();
    std::vector<unsigned char> sector(bs);

    if (m_header.dirty) {
        unsigned char buffer[kHeaderSize];
        m_header.save(buffer);
        writeAt(0, buffer, kHeaderSize);
        m_header.dirty = false;
    }

    if (m_bbat.isDirty()) {
        for (uint64_t position : m_bbat.dirtySectors()) {
            if (position >= m_header.num_bat)
                continue;
            uint64_t location = npos;
            if (position < kHeaderBatSlots)
                location = m_header.bb_blocks[position];
            else if (position - kHeaderBatSlots < m_mbat_data.size())
                location = m_mbat_data[position - kHeaderBatSlots];
            if (location == npos)
                continue;
            m_bbat.saveSector(position, sector.data());
            saveSector(location, sector.data(), bs);
        }
        m_bbat.clearDirty();
    }

    if (m_sbat.isDirty()) {
        const std::vector<uint64_t> chain = m_bbat.follow(m_header.sbat_start);
        for (uint64_t position : m_sbat.dirtySectors()) {
            if (position >= chain.size())
                continue;
            m_sbat.saveSector(position, sector.data());
            saveSector(chain[position], sector.data(), bs);
        }
        m_sbat.clearDirty();
    }

    if (m_dirtree.isDirty()) {
        DirEntry &root = m_dirtree.entry(0);
        root.start = m_sb_blocks.empty() ? Avail : m_sb_blocks.front();
        root.size = m_sb_blocks.size() * bs;
        const std::vector<uint64_t> chain = m_bbat.follow(m_header.dirent_start);
        for (uint64_t position : m_dirtree.dirtySectors()) {
            if (position >= chain.size())
                continue;
            const uint64_t used = m_dirtree.saveSector(position, sector.data());
            if (position == 0) {
                writeU32(sector.data() + 116, root.start);
                writeU32(sector.data() + 120, root.size);
            }
            // The whole sector, not just its entries: a directory sector may be
            // a reused one, and old bytes after the last entry would read back
            // as damaged entries.
            if (used > 0)
                saveSector(chain[position], sector.data(), bs);
        }
        m_dirtree.clearDirty();
    }

    if (m_mbatDirty && !m_mbat_blocks.empty()) {
        const uint64_t perSector = bs / 4 - 1;
        for (uint64_t i = 0; i < m_mbat_blocks.size(); ++i) {
            for (uint64_t k = 0; k < perSector; ++k) {
                const uint64_t at = i * perSector + k;
                writeU32(sector.data() + k * 4, at < m_mbat_data.size() ? m_mbat_data[at] : Avail);
            }
            writeU32(sector.data() + perSector * 4, i + 1 < m_mbat_blocks.size() ? m_mbat_blocks[i + 1] : Eof);
            saveSector(m_mbat_blocks[i], sector.data(), bs);
        }
        m_mbatDirty = false;
    }

    padToAllocatedEnd();
}

// Every allocated sector must lie inside the file, even one nothing has been
// written to yet, or readers take the file for a truncated one.
void StorageIO::padToAllocatedEnd()
{
    uint64_t last = m_bbat.count();
    while (last > 0 && m_bbat[last - 1] == Avail)
        --last;
    if (last == 0)
        return;
    const uint64_t end = sectorOffset(last);
    if (uint64_t(m_device->size()) < end) {
        const unsigned char zero = 0;
        writeAt(end - 1, &zero, 1);
    }
}

// ---------------------------------------------------------------------------
// Storage

Storage::Storage(MemoryBuffer *buffer) : m_io(new StorageIO(this, buffer)) {}

Storage::Storage(QIODevice *device) : m_io(new StorageIO(this, device)) {}

Storage::~Storage() = default;

bool Storage::open(bool writeable, bool create) { return m_io->open(writeable, create); }

void Storage::close() { m_io->close(); }

void Storage::flush() { m_io->flush(); }

int Storage::result() const { return m_io->result(); }

bool Storage::isWriteable() const { return m_io->writeable(); }

HeaderInfo Storage::headerInfo() const
{
    HeaderInfo info;
    if (!m_io->opened())
        return info;
    const Header &h = m_io->header();
    info.bigBlockShift = h.b_shift;
    info.smallBlockShift = h.s_shift;
    info.numBat = h.num_bat;
    info.direntStart = h.dirent_start;
    info.threshold = h.threshold;
    info.sbatStart = h.sbat_start;
    info.numSbat = h.num_sbat;
    info.mbatStart = h.mbat_start;
    info.numMbat = h.num_mbat;
    return info;
}

QStringList Storage::entries(const QString &path) const
{
    QStringList names;
    const uint64_t index = m_io->find(path);
    if (index == npos || !m_io->dirtree().entry(index).dir)
        return names;
    for (uint64_t child : m_io->dirtree().children(index))
        names << m_io->dirtree().entry(child).name;
    return names;
}

bool Storage::isDirectory(const QString &path) const
{
    const uint64_t index = m_io->find(path);
    return index != npos && m_io->dirtree().entry(index).dir;
}

bool Storage::exists(const QString &path) const { return m_io->find(path) != npos; }

bool Storage::getClassId(const QString &path, QString &id) const
{
    const uint64_t index = m_io->find(path);
    id = index == npos ? QString() : m_io->dirtree().entry(index).classIdText();
    return true;
}

bool Storage::setClassId(const QString &path, const QString &id)
{
    Q_UNUSED(path);
    Q_UNUSED(id);
    if (m_io->writeable())
        throw "not implemented";
    return true;
}

bool Storage::getEntryData(const QString &path, MemoryBuffer *buffer)
{
    if (buffer == nullptr)
        return false;
    IOMemoryBuffer device(buffer);
    if (!device.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    buffer->resizeBuffer(0, false);
    const bool opened = getEntryData(path, device);
    buffer->seek(0, MBSeekStart);
    return opened;
}

bool Storage::getEntryData(const QString &path, QIODevice &device)
{
    qDebug() << "Storage::getEntryData" << path;
    if (!device.isOpen() && !device.open(QIODevice::WriteOnly))
        return false;
    if (!device.isWritable())
        return false;
    Stream stream(this, path);
    unsigned char chunk[kCopyChunk];
    for (uint64_t pos = 0; pos < stream.size();) {
        const uint64_t n = stream.read(chunk, kCopyChunk);
        if (n == 0)
            break; // the chain ends before the size it claims
        if (device.write(reinterpret_cast<const char *>(chunk), qint64(n)) != qint64(n))
            break;
        pos += n;
    }
    return true;
}

namespace {

// Creates (or opens) the stream with the device's size and copies the
// device into it from its start, in chunks; then flushes.
bool copyIntoStream(Storage &storage, const QString &path, QIODevice &device)
{
    if (!device.isSequential())
        device.seek(0);
    Stream stream(&storage, path, true, device.size());
    if (stream.fail() || !storage.isWriteable())
        return false;
    unsigned char chunk[kCopyChunk];
    stream.seek(0);
    for (;;) {
        const qint64 n = device.read(reinterpret_cast<char *>(chunk), qint64(kCopyChunk));
        if (n <= 0)
            break;
        stream.write(chunk, uint64_t(n));
    }
    storage.flush();
    return true;
}

} // namespace

// Unlike a plain copy, these answer false when the stream cannot be opened
// for writing (a read-only storage or a path through a stream): a caller must
// be able to tell that nothing was stored.
bool Storage::addEntry(const QString &path, MemoryBuffer *buffer)
{
    qDebug() << "Storage::addEntry" << path;
    if (buffer == nullptr)
        return false;
    IOMemoryBuffer device(buffer);
    if (!device.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    return copyIntoStream(*this, path, device);
}

bool Storage::addEntry(const QString &path, QIODevice &device)
{
    qDebug() << "Storage::addEntry" << path;
    qDebug() << "buffer size" << device.size();
    if (!device.isOpen() && !device.open(QIODevice::ReadOnly))
        return false;
    if (!device.isReadable())
        return false;
    return copyIntoStream(*this, path, device);
}

// The root cannot be deleted: a file without it is no compound file.
bool Storage::deleteByName(const QString &path)
{
    if (path.isEmpty() || !m_io->writeable())
        return false;
    if (!m_io->deleteEntry(path, 0))
        return false;
    m_io->flush();
    return true;
}

namespace {

QMap<QString, QVariant> entriesMapOf(const DirTree &tree, uint64_t index, const QString &path, int depth,
                                     std::vector<bool> &seen)
{
    QMap<QString, QVariant> map;
    // Claim this level's entries before descending, so that a damaged child
    // link back into this level cannot take them away from it.
    std::vector<uint64_t> level;
    for (uint64_t child : tree.children(index))
        if (!seen[child]) {
            seen[child] = true;
            level.push_back(child);
        }
    for (uint64_t child : level) {
        const DirEntry &e = tree.entry(child);
        const QString full = path + QLatin1Char('/') + e.name;
        if (!e.dir)
            map.insert(e.name, full);
        else if (depth < kMaxStorageDepth)
            map.insert(e.name, entriesMapOf(tree, child, full, depth + 1, seen));
    }
    return map;
}

void allStreamsOf(const DirTree &tree, uint64_t storage, const QString &path, int depth, std::vector<bool> &seen,
                  QStringList &out)
{
    std::deque<uint64_t> queue{tree.entry(storage).child};
    while (!queue.empty()) {
        const uint64_t i = queue.front();
        queue.pop_front();
        if (!tree.isLink(i) || seen[i])
            continue;
        seen[i] = true;
        const DirEntry &e = tree.entry(i);
        if (e.valid) {
            if (!e.dir)
                out << path + e.name;
            else if (depth < kMaxStorageDepth)
                allStreamsOf(tree, i, path + e.name + QLatin1Char('/'), depth + 1, seen, out);
        }
        queue.push_back(e.prev);
        queue.push_back(e.next);
    }
}

} // namespace

QMap<QString, QVariant> Storage::getEntriesMap() const
{
    if (!m_io->opened())
        return {};
    const DirTree &tree = m_io->dirtree();
    std::vector<bool> seen(tree.entryCount(), false);
    seen[0] = true;
    return entriesMapOf(tree, 0, QString(), 0, seen);
}

QStringList Storage::GetAllStreams(const QString &path) const
{
    QStringList out;
    const uint64_t index = m_io->find(path);
    if (index == npos || !m_io->dirtree().entry(index).dir)
        return out;
    const DirTree &tree = m_io->dirtree();
    std::vector<bool> seen(tree.entryCount(), false);
    seen[index] = true;
    allStreamsOf(tree, index, path, 0, seen, out);
    return out;
}

void Storage::GetStats(uint64_t &dirEntries, uint64_t &unusedDirEntries, uint64_t &batEntries,
                       uint64_t &freeBatEntries, uint64_t &sbatEntries, uint64_t &freeSbatEntries) const
{
    dirEntries = unusedDirEntries = batEntries = freeBatEntries = sbatEntries = freeSbatEntries = 0;
    if (!m_io->opened())
        return;
    dirEntries = m_io->dirtree().entryCount();
    unusedDirEntries = m_io->dirtree().unusedCount();
    batEntries = m_io->bbat().count();
    freeBatEntries = m_io->bbat().freeCount();
    sbatEntries = m_io->sbat().count();
    freeSbatEntries = m_io->sbat().freeCount();
}

void Storage::insertMap(QMap<QString, QVariant> &map, const QString &path, const QString &value)
{
    const QStringList parts = splitPath(path);
    if (parts.isEmpty())
        return;
    if (parts.size() == 1) {
        map.insert(parts.first(), value);
        return;
    }
    QMap<QString, QVariant> sub = map.value(parts.first()).toMap();
    insertMap(sub, parts.mid(1).join(QLatin1Char('/')), value);
    map.insert(parts.first(), sub);
}

void Storage::debug() const
{
    if (m_io->opened())
        m_io->debug();
}

// ---------------------------------------------------------------------------
// Stream

Stream::Stream(Storage *storage, const QString &path, bool create, long long size)
{
    if (storage != nullptr)
        m_io = storage->m_io->streamIO(path, create, size > 0 ? uint64_t(size) : 0);
}

Stream::~Stream() = default;

QString Stream::fullName() const { return m_io ? m_io->fullName() : QString(); }

unsigned long long Stream::tell() const { return m_io ? m_io->m_pos : 0; }

bool Stream::eof() const { return m_io ? m_io->m_eof : false; }

bool Stream::fail() const { return !m_io || !m_io->attached() || m_io->m_fail; }

unsigned long long Stream::size() const { return m_io ? m_io->size() : 0; }

void Stream::setSize(long long size)
{
    if (m_io)
        m_io->setSize(size > 0 ? uint64_t(size) : 0);
}

void Stream::seek(unsigned long long pos)
{
    if (m_io)
        m_io->m_pos = pos;
}

int Stream::getch() { return m_io ? m_io->getch() : -1; }

unsigned long long Stream::read(unsigned char *data, unsigned long long maxlen)
{
    if (!m_io)
        return 0;
    const uint64_t n = m_io->read(m_io->m_pos, data, maxlen);
    m_io->m_pos += n;
    return n;
}

unsigned long long Stream::write(const unsigned char *data, unsigned long long len)
{
    return m_io ? m_io->write(m_io->m_pos, data, len) : 0;
}

void Stream::flush()
{
    if (m_io)
        m_io->flush();
}

QString Stream::getClassId() const
{
    const DirEntry *e = m_io ? m_io->entry() : nullptr;
    return e ? e->classIdText() : QString();
}

} // namespace POLE
