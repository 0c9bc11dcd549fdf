#include "containers/pole_dirtree.h"

#include <QUuid>

#include <algorithm>
#include <cstring>

namespace POLE {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const QString kRootName = QStringLiteral("Root Entry");

// Collects problems up to a limit and counts the rest.
class Problems
{
public:
    explicit Problems(int limit) : m_limit(limit) {}
    void add(const QString &problem)
    {
        if (m_lines.size() < m_limit)
            m_lines << problem;
        else
            ++m_more;
    }
    QStringList lines() const
    {
        return m_more == 0 ? m_lines : m_lines + QStringList{QStringLiteral("and %1 more problems").arg(m_more)};
    }

private:
    int m_limit;
    QStringList m_lines;
    uint64_t m_more = 0;
};

} // namespace

// --- DirEntry ---------------------------------------------------------------

int DirEntry::compare(const QString &a, const QString &b)
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

QString DirEntry::folded(const QString &name)
{
    QString out = name;
    for (QChar &c : out)
        c = c.toUpper();
    return out;
}

QString DirEntry::classIdText() const
{
    const QUuid uuid(readU32(clsid.data()), readU16(clsid.data() + 4), readU16(clsid.data() + 6), clsid[8],
                     clsid[9], clsid[10], clsid[11], clsid[12], clsid[13], clsid[14], clsid[15]);
    return uuid.toString();
}

// --- lookups and walks --------------------------------------------------------

void DirTree::clear()
{
    m_entries.assign(1, DirEntry());
    DirEntry &root = m_entries[0];
    root.valid = true;
    root.name = kRootName;
    root.dir = true;
    root.start = Avail;
    root.prev = root.next = root.child = Avail;
    m_dirty.clear();
    m_index.clear();
    m_freeHint = 1;
    m_rootType = 5;
    m_lost = 0;
    markDirty(0);
}

uint64_t DirTree::find(const QString &path) const
{
    if (path.isEmpty() || m_entries.empty())
        return npos;
    uint64_t current = 0;
    for (const QString &part : splitPath(path)) {
        current = findChild(current, part);
        if (current == npos)
            return npos;
    }
    return current;
}

// Lookups go through a hash of each storage's children rather than down the
// sibling tree: writers disagree on the order of names (some compare them
// upper-cased), and a tree degenerated into one long chain would make every
// lookup walk all of it.
const DirTree::ChildIndex &DirTree::indexOf(uint64_t parent) const
{
    const auto found = m_index.find(parent);
    if (found != m_index.end())
        return found->second;
    ChildIndex &index = m_index[parent];
    for (uint64_t child : children(parent)) {
        const QString &name = m_entries[child].name;
        if (index.exact.contains(name))
            index.repeated = true;
        else
            index.exact.insert(name, child);
        index.folded.insert(DirEntry::folded(name), child);
    }
    return index;
}

uint64_t DirTree::findChild(uint64_t parent, const QString &name) const
{
    if (parent >= m_entries.size() || !m_entries[parent].valid || !isLink(m_entries[parent].child))
        return npos;
    return indexOf(parent).exact.value(name, npos);
}

std::vector<uint64_t> DirTree::findChildIgnoringCase(uint64_t parent, const QString &name) const
{
    if (parent >= m_entries.size() || !m_entries[parent].valid || !isLink(m_entries[parent].child))
        return {};
    const QList<uint64_t> found = indexOf(parent).folded.values(DirEntry::folded(name));
    std::vector<uint64_t> result(found.begin(), found.end());
    std::sort(result.begin(), result.end());
    return result;
}

std::vector<uint64_t> DirTree::children(uint64_t index) const
{
    std::vector<uint64_t> result;
    if (index >= m_entries.size() || !m_entries[index].valid)
        return result;
    const uint32_t mark = m_marks.start(m_entries.size());
    std::vector<uint64_t> stack;
    uint64_t current = m_entries[index].child;
    for (;;) {
        while (isLink(current) && !m_marks.passed(current, mark)) {
            m_marks.pass(current, mark);
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

uint64_t DirTree::unusedCount() const
{
    return uint64_t(
        std::count_if(m_entries.begin(), m_entries.end(), [](const DirEntry &e) { return !e.valid; }));
}

// --- changes ------------------------------------------------------------------

uint64_t DirTree::create(const QString &path, uint64_t size)
{
    if (path.isEmpty() || m_entries.empty())
        return npos;
    const QStringList parts = splitPath(path);
    uint64_t current = 0;
    for (int i = 0; i < parts.size(); ++i) {
        const uint64_t found = findChild(current, parts.at(i));
        if (found != npos) {
            current = found;
            continue;
        }
        if (!m_entries[current].dir || !findChildIgnoringCase(current, parts.at(i)).empty())
            return npos;
        for (int j = i; j < parts.size(); ++j) {
            const bool last = j == parts.size() - 1;
            current = insert(current, parts.at(j), !last, last ? size : 0);
        }
        return current;
    }
    return current;
}

// The entry a search down the sibling tree for `name` ends at, where the
// new entry is hung; npos when the storage has no children.
uint64_t DirTree::closestSibling(uint64_t parent, const QString &name) const
{
    uint64_t closest = npos;
    uint64_t i = m_entries[parent].child;
    for (uint64_t steps = 0; steps < m_entries.size() && isLink(i); ++steps) {
        closest = i;
        const int c = DirEntry::compare(m_entries[i].name, name);
        if (c == 0)
            break;
        i = c < 0 ? m_entries[i].next : m_entries[i].prev;
    }
    return closest;
}

uint64_t DirTree::insert(uint64_t parent, const QString &name, bool dir, uint64_t size)
{
    const uint64_t closest = closestSibling(parent, name);
    uint64_t index = m_freeHint;
    while (index < m_entries.size() && m_entries[index].valid)
        ++index;
    if (index == m_entries.size())
        m_entries.emplace_back();
    m_freeHint = index + 1;

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

    const auto built = m_index.find(parent);
    if (built != m_index.end()) {
        built->second.exact.insert(name, index);
        built->second.folded.insert(DirEntry::folded(name), index);
    }
    return index;
}

void DirTree::remove(uint64_t index, uint64_t parent)
{
    DirEntry &e = m_entries[index];
    const uint64_t sibling = findSiblingOf(index, parent);

    uint64_t replacement;
    if (isLink(e.next)) {
        const uint64_t right = e.next;
        if (isLink(m_entries[right].prev)) {
            uint64_t above = right;
            uint64_t leftmost = m_entries[right].prev;
            for (uint64_t steps = 0;
                 steps < m_entries.size() && isLink(m_entries[leftmost].prev) && m_entries[leftmost].prev != index;
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

    const auto built = m_index.find(parent);
    if (built != m_index.end()) {
        if (built->second.repeated) {
            m_index.erase(built); // a name the index hid may come forward: build it again
        } else {
            built->second.exact.remove(e.name);
            built->second.folded.remove(DirEntry::folded(e.name), index);
        }
    }
    m_index.erase(index);

    // Nothing of a removed entry stays behind: it is written out as an unused one.
    e = DirEntry();
    markDirty(index);
    m_freeHint = std::min(m_freeHint, index);
}

// The entry whose prev or next link points at `index` among the children
// of `parent`; npos when `index` is the parent's child itself or is not
// reached at all.
uint64_t DirTree::findSiblingOf(uint64_t index, uint64_t parent) const
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
    const uint32_t mark = m_marks.start(m_entries.size());
    std::vector<uint64_t> stack{m_entries[parent].child};
    while (!stack.empty()) {
        const uint64_t n = stack.back();
        stack.pop_back();
        if (!isLink(n) || m_marks.passed(n, mark))
            continue;
        m_marks.pass(n, mark);
        if (m_entries[n].prev == index || m_entries[n].next == index)
            return n;
        stack.push_back(m_entries[n].prev);
        stack.push_back(m_entries[n].next);
    }
    return npos;
}

// --- loading and saving -------------------------------------------------------

void DirTree::load(const unsigned char *buffer, uint64_t len, const std::vector<bool> &present)
{
    m_entries.clear();
    m_dirty.clear();
    m_index.clear();
    m_freeHint = 1;
    m_lost = 0;
    const uint64_t n = len / kDirEntrySize;
    m_entries.resize(n);
    for (uint64_t i = 0; i < n; ++i) {
        if (i < present.size() && !present[i]) {
            ++m_lost;
            continue;
        }
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
        if (i == 0)
            m_rootType = type;
    }
    // Entry 0 is the root whatever type it claims, as other readers take it:
    // a wrong type byte must not hide every stream of the file.
    if (n > 0) {
        m_entries[0].valid = true;
        m_entries[0].dir = true;
        if (m_lost > 0 && !present.empty() && !present[0])
            m_rootType = 5; // its absence is reported as a lost entry
    }
}

uint64_t DirTree::saveSector(uint64_t position, unsigned char *out)
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

void DirTree::saveEntry(uint64_t index, unsigned char *p)
{
    DirEntry &e = m_entries[index];
    if (index == 0) {
        for (int c = 0; c < kRootName.size(); ++c)
            writeU16(p + c * 2, kRootName.at(c).unicode());
        writeU16(p + 64, uint16_t(kRootName.size() * 2 + 2));
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
    if (!e.valid) {
        // An unused entry as the format describes it: zeros without links.
        writeU32(p + 68, Avail);
        writeU32(p + 72, Avail);
        writeU32(p + 76, Avail);
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
    p[66] = e.dir ? 1 : 2;
    p[67] = 1;
    writeU32(p + 68, e.prev);
    writeU32(p + 72, e.next);
    writeU32(p + 76, e.child);
    std::memcpy(p + 80, e.clsid.data(), 16);
    writeU32(p + 116, e.start);
    writeU32(p + 120, e.size);
}

// --- checking -----------------------------------------------------------------

QStringList DirTree::check(int limit) const
{
    Problems problems(limit);
    const uint64_t n = m_entries.size();
    if (n == 0)
        return problems.lines();
    if (m_rootType != 5)
        problems.add(
            QStringLiteral("the root entry has type %1, not 5; it is read as the root storage").arg(m_rootType));
    if (m_lost > 0)
        problems.add(QStringLiteral("%1 directory entries lie beyond the end of the file").arg(m_lost));

    std::vector<bool> reached(n, false);
    reached[0] = true;
    struct Level
    {
        uint64_t storage;
        QString path;
        int depth;
    };
    std::vector<Level> pending{{0, QString(), 0}};
    bool tooDeep = false;
    while (!pending.empty()) {
        const Level level = pending.back();
        pending.pop_back();
        const QString where = level.path.isEmpty() ? QStringLiteral("/") : level.path;
        QHash<QString, uint64_t> names; // folded name -> entry
        std::vector<uint64_t> stack;
        // Whether a link leads to an entry this walk should visit.
        const auto follow = [&](uint64_t link) {
            if (link == Avail || link == 0)
                return;
            if (link >= n) {
                problems.add(QStringLiteral("%1: a link to entry %2, which the directory does not hold")
                                 .arg(where)
                                 .arg(link));
                return;
            }
            if (reached[link]) {
                problems.add(QStringLiteral("%1: entry %2 is linked to more than once").arg(where).arg(link));
                return;
            }
            reached[link] = true;
            stack.push_back(link);
        };
        follow(m_entries[level.storage].child);
        while (!stack.empty()) {
            const uint64_t i = stack.back();
            stack.pop_back();
            const DirEntry &e = m_entries[i];
            follow(e.prev);
            follow(e.next);
            if (!e.valid) {
                problems.add(QStringLiteral("%1: a link to unused entry %2").arg(where).arg(i));
                continue;
            }
            const QString path = level.path + QLatin1Char('/') + e.name;
            const QString key = DirEntry::folded(e.name);
            const auto same = names.constFind(key);
            if (same == names.constEnd()) {
                names.insert(key, i);
            } else {
                const QString &other = m_entries[same.value()].name;
                problems.add(other == e.name
                                 ? QStringLiteral("%1: two entries of this name; only one is read").arg(path)
                                 : QStringLiteral("%1 and %2: names that differ only in case")
                                       .arg(level.path + QLatin1Char('/') + other, path));
            }
            if (!e.dir)
                continue;
            if (level.depth < kMaxStorageDepth)
                pending.push_back({i, path, level.depth + 1});
            else
                tooDeep = true;
        }
    }
    if (tooDeep)
        problems.add(QStringLiteral("storages nested deeper than %1 levels are not read").arg(kMaxStorageDepth));

    QStringList orphans;
    uint64_t orphanCount = 0;
    for (uint64_t i = 1; i < n; ++i)
        if (m_entries[i].valid && !reached[i] && ++orphanCount <= 3)
            orphans << m_entries[i].name;
    if (orphanCount > 0)
        problems.add(QStringLiteral("%1 entries are not reachable from the root (%2%3)")
                         .arg(orphanCount)
                         .arg(orphans.join(QStringLiteral(", ")),
                              orphanCount > 3 ? QStringLiteral(", ...") : QString()));
    return problems.lines();
}

} // namespace POLE
