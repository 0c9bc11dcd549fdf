#include "containers/pole.h"

#include "containers/pole_storageio.h"
#include "containers/pole_streamio.h"

#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"

#include <QDebug>

#include <deque>

namespace POLE {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const size_t kCopyChunk = 1000;

} // namespace

// ---------------------------------------------------------------------------
// Storage

Storage::Storage(MemoryBuffer *buffer) : m_io(new StorageIO(buffer)) {}

Storage::Storage(QIODevice *device) : m_io(new StorageIO(device)) {}

Storage::~Storage() = default;

bool Storage::open(bool writeable, bool create) { return m_io->open(writeable, create); }

void Storage::close() { m_io->close(); }

void Storage::flush() { m_io->flush(); }

int Storage::result() const { return m_io->result(); }

bool Storage::isWriteable() const { return m_io->writeable(); }

QStringList Storage::damage() const { return m_io->damage(); }

QString Storage::errorString() const { return m_io->errorString(); }

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

bool Storage::resolvePath(const QString &path, QString &resolved, QStringList *candidates) const
{
    const DirTree &tree = m_io->dirtree();
    const QStringList parts = splitPath(path);
    QString out;
    uint64_t current = m_io->opened() ? 0 : npos;
    for (int i = 0; i < parts.size(); ++i) {
        uint64_t found = current == npos ? npos : tree.findChild(current, parts.at(i));
        if (found == npos && current != npos) {
            const std::vector<uint64_t> matches = tree.findChildIgnoringCase(current, parts.at(i));
            if (matches.size() > 1) {
                if (candidates != nullptr) {
                    candidates->clear();
                    for (uint64_t match : matches)
                        *candidates << out + QLatin1Char('/') + tree.entry(match).name;
                }
                resolved.clear();
                return false;
            }
            if (matches.size() == 1)
                found = matches.front();
        }
        if (found == npos) {
            resolved = out + QLatin1Char('/') + parts.mid(i).join(QLatin1Char('/'));
            return true;
        }
        out += QLatin1Char('/') + tree.entry(found).name;
        current = found;
    }
    resolved = out.isEmpty() ? QStringLiteral("/") : out;
    return true;
}

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
            break; // damaged: see Stream::damage()
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
// for writing (a read-only storage, a path through a stream, or a name that
// differs only in case from an existing one): a caller must be able to tell
// that nothing was stored.
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

QString Stream::damage() const { return m_io ? m_io->damage() : QString(); }

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
