#pragma once

// Internal to the compound-file storage: the directory, an array of entries
// whose sibling links form one binary tree per storage.

#include "containers/pole_format.h"
#include "containers/pole_walkmarks.h"

#include <QHash>
#include <QMultiHash>
#include <QString>
#include <QStringList>

#include <array>
#include <set>
#include <unordered_map>
#include <vector>

namespace POLE {

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
    static int compare(const QString &a, const QString &b);
    // The name as the format tells names apart: each UTF-16 code unit
    // upper-cased on its own, so that "Foo" and "FOO" are one name.
    static QString folded(const QString &name);

    QString classIdText() const;
};

class DirTree
{
public:
    DirTree() { clear(); }

    // A new tree: only the root.
    void clear();
    void setEntriesPerSector(uint64_t n) { m_entriesPerSector = n; }

    uint64_t entryCount() const { return m_entries.size(); }
    DirEntry &entry(uint64_t index) { return m_entries[index]; }
    const DirEntry &entry(uint64_t index) const { return m_entries[index]; }

    // Links of 0 (the root) and out of range mean "none".
    bool isLink(uint64_t value) const { return value != 0 && value < m_entries.size(); }

    // The entry a path names, names compared exactly; "/" is the root. npos when not found.
    uint64_t find(const QString &path) const;
    // The child of `parent` with exactly this name; of two such children
    // (only in damaged files) the first in listing order.
    uint64_t findChild(uint64_t parent, const QString &name) const;
    // The children of `parent` whose names equal `name` ignoring case, in directory order.
    std::vector<uint64_t> findChildIgnoringCase(uint64_t parent, const QString &name) const;

    // The valid children of a storage in sibling-tree order (left subtree,
    // entry, right subtree). Each entry is visited at most once.
    std::vector<uint64_t> children(uint64_t index) const;

    // Creates what is missing of `path`: storages on the way, a stream of
    // `size` bytes at the end. Returns the entry, or npos when the path runs
    // through a stream or a missing name equals an existing sibling's
    // ignoring case (the format holds one of them only).
    uint64_t create(const QString &path, uint64_t size);
    // Takes entry `index` out of its parent's sibling tree and clears it.
    void remove(uint64_t index, uint64_t parent);

    // Decodes `len` bytes of directory; entries whose flag in `present` is
    // false (their bytes lie outside the file) are loaded unused.
    void load(const unsigned char *buffer, uint64_t len, const std::vector<bool> &present);
    // Encodes directory sector `position` into `out` (entries-per-sector ×
    // 128 bytes); returns how many bytes of it hold entries.
    uint64_t saveSector(uint64_t position, unsigned char *out);

    void markDirty(uint64_t index) { m_dirty.insert(index / m_entriesPerSector); }
    bool isDirty() const { return !m_dirty.empty(); }
    const std::set<uint64_t> &dirtySectors() const { return m_dirty; }
    void clearDirty() { m_dirty.clear(); }

    uint64_t unusedCount() const;

    // What is wrong with the tree as loaded, one problem a line, at most
    // `limit` lines: links that lead nowhere or twice to one entry, names
    // repeated among siblings, entries no walk from the root reaches. One
    // pass over the directory.
    QStringList check(int limit) const;

private:
    // The children of one storage by name, built when first asked for.
    struct ChildIndex
    {
        QHash<QString, uint64_t> exact;
        QMultiHash<QString, uint64_t> folded;
        bool repeated = false; // an exact name occurs twice
    };
    const ChildIndex &indexOf(uint64_t parent) const;

    uint64_t insert(uint64_t parent, const QString &name, bool dir, uint64_t size);
    uint64_t closestSibling(uint64_t parent, const QString &name) const;
    uint64_t findSiblingOf(uint64_t index, uint64_t parent) const;
    void saveEntry(uint64_t index, unsigned char *p);

    std::vector<DirEntry> m_entries;
    std::set<uint64_t> m_dirty;
    uint64_t m_entriesPerSector = 4;
    uint64_t m_freeHint = 1;    // no unused entry lies below it
    unsigned m_rootType = 5;    // the root entry's type as loaded
    uint64_t m_lost = 0;        // entries that lie outside the file
    mutable std::unordered_map<uint64_t, ChildIndex> m_index;
    mutable WalkMarks m_marks;
};

} // namespace POLE
