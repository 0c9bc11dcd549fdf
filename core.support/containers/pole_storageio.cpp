#include "containers/pole_storageio.h"

#include "containers/pole_streamio.h"

#include "buffers/IOMemoryBuffer.h"
#include "buffers/SafeInt.h"

#include <QBuffer>
#include <QFileDevice>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace POLE {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// A damaged file yields a line per problem; a hostile one no more than these.
const int kMaxProblems = 20;

// Owners of blocks besides stream entries (entry index + 1; the root, entry
// 0, owns the small-block container).
const uint32_t kOwnerTables = 0xFFFFFFFF;
const uint32_t kOwnerContainer = 1;

const std::vector<unsigned char> &zeros()
{
    static const std::vector<unsigned char> block(64 * 1024, 0);
    return block;
}

} // namespace

StorageIO::StorageIO(MemoryBuffer *buffer) : m_ownDevice(new IOMemoryBuffer(buffer)), m_device(m_ownDevice.get()) {}

StorageIO::StorageIO(QIODevice *device) : m_device(device) {}

StorageIO::~StorageIO() { close(); }

bool StorageIO::open(bool writeable, bool create)
{
    close();
    m_damage.clear();
    m_error.clear();
    m_bigOwners.clear();
    m_smallOwners.clear();
    if (create)
        return createNew();
    load(writeable);
    return m_result == 0;
}

void StorageIO::close()
{
    // Streams still open on this storage become streams that failed to open.
    for (StreamIO *stream : m_streams)
        stream->detach();
    m_streams.clear();
    if (m_device != nullptr && m_closeDevice && m_device->isOpen())
        m_device->close();
    m_closeDevice = false;
    m_opened = false;
}

void StorageIO::unregisterStream(StreamIO *stream)
{
    m_streams.erase(std::remove(m_streams.begin(), m_streams.end(), stream), m_streams.end());
}

void StorageIO::noteDamage(const QString &problem)
{
    if (m_damage.size() < kMaxProblems)
        m_damage << problem;
}

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

void StorageIO::noteError(const QString &fallback)
{
    if (!m_error.isEmpty())
        return;
    const QString reason = m_device->errorString();
    m_error = reason.isEmpty() || reason == QLatin1String("Unknown error") ? fallback : reason;
}

uint64_t StorageIO::readAt(uint64_t offset, unsigned char *data, uint64_t len)
{
    if (offset >= m_filesize || len == 0)
        return 0;
    const uint64_t available = std::min(len, m_filesize - offset);
    if (!m_device->seek(qint64(offset))) {
        noteError(QStringLiteral("cannot seek to %1").arg(offset));
        return 0;
    }
    uint64_t got = 0;
    while (got < available) {
        const qint64 n = m_device->read(reinterpret_cast<char *>(data + got), qint64(available - got));
        if (n < 0)
            noteError(QStringLiteral("cannot read at %1").arg(offset + got));
        if (n <= 0)
            break;
        got += uint64_t(n);
    }
    return got;
}

// Writes all of the range, so that a write the device cut short (a file
// limit, a full disk) is tried again and fails with the device's reason.
bool StorageIO::writeAll(const unsigned char *data, uint64_t len, uint64_t offset)
{
    for (uint64_t done = 0; done < len;) {
        const qint64 n = m_device->write(reinterpret_cast<const char *>(data + done), qint64(len - done));
        if (n <= 0) {
            noteError(QStringLiteral("cannot write at %1").arg(offset + done));
            return false;
        }
        done += uint64_t(n);
        m_filesize = std::max(m_filesize, offset + done);
    }
    return true;
}

void StorageIO::writeAt(uint64_t offset, const unsigned char *data, uint64_t len)
{
    if (!m_writeable || len == 0)
        return;
    // Seeking past the end would grow a buffer to the exact size each time;
    // filling the gap by writing lets it grow geometrically.
    const uint64_t size = uint64_t(m_device->size());
    if (offset > size && m_device->seek(qint64(size))) {
        for (uint64_t at = size; at < offset;) {
            const uint64_t n = std::min<uint64_t>(offset - at, zeros().size());
            if (!writeAll(zeros().data(), n, at))
                return;
            at += n;
        }
    }
    if (!m_device->seek(qint64(offset))) {
        noteError(QStringLiteral("cannot seek to %1").arg(offset));
        return;
    }
    writeAll(data, len, offset);
}

std::vector<unsigned char> StorageIO::loadTableChain(const std::vector<uint64_t> &chain, const QString &what)
{
    const uint64_t bs = bigBlockSize();
    std::vector<unsigned char> data(SafeInt::mul<uint64_t>(chain.size(), bs));
    bool lost = false;
    for (size_t i = 0; i < chain.size(); ++i) {
        unsigned char *at = data.data() + i * bs;
        const uint64_t got = readAt(sectorOffset(chain[i]), at, bs);
        if (got < bs) {
            std::memset(at + got, 0xFF, bs - got); // entries the file lacks are free
            lost = true;
        }
    }
    if (lost)
        noteDamage(QStringLiteral("%1 lies partly beyond the end of the file").arg(what));
    return data;
}

void StorageIO::saveSector(uint64_t sector, const unsigned char *data, uint64_t len)
{
    if (sector >= m_bbat.count())
        return;
    writeAt(sectorOffset(sector), data, len);
}

bool StorageIO::blockOffset(const std::vector<uint64_t> &chain, bool small, uint64_t index, uint64_t &offset) const
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

uint64_t StorageIO::transfer(const std::vector<uint64_t> &chain, bool small, uint64_t pos, unsigned char *readTo,
                             const unsigned char *writeFrom, uint64_t len)
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
            const uint64_t got = readAt(runStart, readTo + done, runLen);
            done += got;
            if (got < runLen)
                break;
        } else {
            // Writing only reaches blocks the table knows (see saveSector).
            if (!small && chain[index - 1] >= m_bbat.count())
                break;
            writeAt(runStart, writeFrom + done, runLen);
            done += runLen;
        }
        offset = 0;
    }
    return done;
}

// --- loading ----------------------------------------------------------------

void StorageIO::load(bool writeable)
{
    m_result = 1;
    m_writeable = writeable;
    if (!openDevice(writeable ? QIODevice::ReadWrite : QIODevice::ReadOnly))
        return;
    m_filesize = uint64_t(m_device->size());

    unsigned char buffer[kHeaderSize];
    const uint64_t got = readAt(0, buffer, kHeaderSize);
    std::memset(buffer + got, 0, kHeaderSize - got);

    m_result = 2;
    if (m_filesize < sizeof(kMagic) || std::memcmp(buffer, kMagic, sizeof(kMagic)) != 0)
        return;

    m_result = 3;
    m_header.load(buffer);
    const QString problem = m_header.problem();
    if (!problem.isEmpty()) {
        noteDamage(problem);
        return;
    }
    if (!loadTables())
        return;
    m_mbatDirty = false;
    m_result = 0;
    m_opened = true;
}

void StorageIO::noteChain(const QString &what, const AllocTable::Walk &walk, uint64_t start)
{
    switch (walk.end) {
    case ChainEnd::Loops:
        noteDamage(QStringLiteral("%1's sector chain loops back to sector %2").arg(what).arg(walk.stoppedAt));
        break;
    case ChainEnd::LeavesTable:
        if (!(walk.blocks.empty() && (start == Eof || start == Avail)))
            noteDamage(walk.stoppedAt < m_claimedBatEntries
                           ? QStringLiteral("%1's sector chain continues beyond the end of the file").arg(what)
                           : QStringLiteral("%1's sector chain leads out of the allocation table").arg(what));
        break;
    default:
        break;
    }
}

void StorageIO::claim(const std::vector<uint64_t> &sectors, uint32_t owner)
{
    for (uint64_t sector : sectors)
        if (sector < m_bigOwners.size() && m_bigOwners[sector] == 0)
            m_bigOwners[sector] = owner;
}

// Reads the BAT, the SBAT and the directory. Tables the file holds only in
// part are read as far as they go, and what is missing is noted as damage:
// their missing entries read as free, so no chain runs through bytes the
// file does not hold.
bool StorageIO::loadTables()
{
    const uint64_t bs = bigBlockSize();
    const uint64_t entriesPerSector = bs / 4;
    // A table cannot have more sectors than the file.
    if (m_header.num_bat > fileSectors() || m_header.num_mbat > fileSectors()) {
        noteDamage(QStringLiteral("the header claims %1 allocation-table and %2 meta-table sectors; "
                                  "the file holds %3 sectors")
                       .arg(m_header.num_bat)
                       .arg(m_header.num_mbat)
                       .arg(fileSectors()));
        return false;
    }
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
            if (current >= seen.size() || seen[current] || readAt(sectorOffset(current), sector.data(), bs) < bs) {
                noteDamage(QStringLiteral("the meta table's sector %1 is missing or repeated").arg(current));
                break;
            }
            seen[current] = true;
            m_mbat_blocks.push_back(current);
            for (uint64_t k = 0; k + 1 < entriesPerSector && blocks.size() < m_header.num_bat; ++k) {
                blocks.push_back(readU32(sector.data() + k * 4));
                m_mbat_data.push_back(blocks.back());
            }
            current = readU32(sector.data() + (entriesPerSector - 1) * 4);
        }
        if (blocks.size() < m_header.num_bat)
            noteDamage(QStringLiteral("the meta table lists %1 of %2 allocation-table sectors")
                           .arg(blocks.size())
                           .arg(m_header.num_bat));
    }

    // Entries past the sectors the file holds describe nothing; with huge
    // sectors a claimed table could otherwise need gigabytes.
    const uint64_t sectors = fileSectors();
    const uint64_t cap = entriesPerSector <= 1024
                             ? (sectors + entriesPerSector - 1) / entriesPerSector * entriesPerSector
                             : std::max<uint64_t>(sectors, 1);
    m_claimedBatEntries = SafeInt::mul<uint64_t>(blocks.size(), entriesPerSector);
    const uint64_t batEntries = std::min(m_claimedBatEntries, cap);
    std::vector<unsigned char> batData(batEntries * 4);
    bool batLost = false;
    for (uint64_t i = 0; i * bs < batData.size(); ++i) {
        const uint64_t len = std::min<uint64_t>(bs, batData.size() - i * bs);
        const uint64_t got = readAt(sectorOffset(blocks[i]), batData.data() + i * bs, len);
        if (got < len) {
            std::memset(batData.data() + i * bs + got, 0xFF, len - got);
            batLost = true;
        }
    }
    if (batLost)
        noteDamage(QStringLiteral("the allocation table lies partly beyond the end of the file"));
    m_bbat.load(batData.data(), batData.size());

    const AllocTable::Walk sbatChain = m_bbat.follow(m_header.sbat_start);
    noteChain(QStringLiteral("the small-block table"), sbatChain, m_header.sbat_start);
    if (!sbatChain.blocks.empty()) {
        const std::vector<unsigned char> data =
            loadTableChain(sbatChain.blocks, QStringLiteral("the small-block table"));
        m_sbat.load(data.data(), data.size());
    } else {
        m_sbat.load(nullptr, 0);
    }

    const AllocTable::Walk dirChain = m_bbat.follow(m_header.dirent_start);
    noteChain(QStringLiteral("the directory"), dirChain, m_header.dirent_start);
    std::vector<unsigned char> dirData(SafeInt::mul<uint64_t>(dirChain.blocks.size(), bs));
    std::vector<bool> present(dirData.size() / kDirEntrySize, true);
    for (size_t i = 0; i < dirChain.blocks.size(); ++i) {
        unsigned char *at = dirData.data() + i * bs;
        const uint64_t got = readAt(sectorOffset(dirChain.blocks[i]), at, bs);
        std::memset(at + got, 0, bs - got);
        for (uint64_t e = got / kDirEntrySize; e < bs / kDirEntrySize; ++e)
            present[i * (bs / kDirEntrySize) + e] = false;
    }
    m_dirtree.load(dirData.data(), dirData.size(), present);
    if (m_dirtree.entryCount() == 0) {
        noteDamage(QStringLiteral("the file has no directory"));
        return false; // no root entry: nothing can be found in such a file
    }

    const uint64_t containerStart = m_dirtree.entry(0).start;
    const AllocTable::Walk container = m_bbat.follow(containerStart);
    if (present.front()) // else the root's loss says it
        noteChain(QStringLiteral("the small-block container"), container, containerStart);
    m_sb_blocks = container.blocks;

    if (!m_writeable) {
        m_bigOwners.assign(m_bbat.count(), 0);
        claim(blocks, kOwnerTables);
        claim(m_mbat_blocks, kOwnerTables);
        claim(sbatChain.blocks, kOwnerTables);
        claim(dirChain.blocks, kOwnerTables);
        claim(m_sb_blocks, kOwnerContainer);
    }
    for (const QString &problem : m_dirtree.check(kMaxProblems))
        noteDamage(problem);
    return true;
}

AllocTable::Walk StorageIO::chainOf(uint64_t entry) const
{
    const DirEntry &e = m_dirtree.entry(entry);
    const bool small = e.size < threshold();
    const AllocTable &table = small ? m_sbat : m_bbat;
    if (m_writeable || entry + 1 >= kOwnerTables)
        return table.follow(e.start);
    const uint64_t blockSize = small ? smallBlockSize() : bigBlockSize();
    const uint64_t needed = e.size == 0 ? 0 : (e.size - 1) / blockSize + 1;
    return table.follow(e.start, needed, small ? &m_smallOwners : &m_bigOwners, uint32_t(entry + 1));
}

QString StorageIO::ownerName(uint32_t owner) const
{
    if (owner == kOwnerTables)
        return QStringLiteral("the file's tables");
    if (owner == kOwnerContainer)
        return QStringLiteral("the small-block container");
    if (owner - 1 < m_dirtree.entryCount())
        return QStringLiteral("the blocks of \"%1\"").arg(m_dirtree.entry(owner - 1).name);
    return QStringLiteral("another chain");
}

bool StorageIO::createNew()
{
    // Read-write, so that a stream moved between small and big blocks can
    // read back what it wrote before the file was ever flushed.
    if (!openDevice(QIODevice::ReadWrite | QIODevice::Truncate)) {
        std::fputs("Can't create CFB\n", stderr);
        m_result = 1;
        return false;
    }
    m_opened = true;
    m_result = 0;
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
    m_claimedBatEntries = 0;

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
        std::vector<uint64_t> sbatChain = m_bbat.chain(m_header.sbat_start);
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
    zeroBlocks(chain, small);
    AllocTable &table = small ? m_sbat : m_bbat;
    for (uint64_t block : chain) {
        table.set(block, Avail);
        table.markDirty(block);
    }
}

// Overwrites the blocks of a chain, as far as the file holds them, in runs
// of contiguous blocks.
void StorageIO::zeroBlocks(const std::vector<uint64_t> &chain, bool small)
{
    const uint64_t blockSize = small ? smallBlockSize() : bigBlockSize();
    uint64_t runStart = 0, runEnd = 0;
    const auto flushRun = [&] {
        for (uint64_t at = runStart; at < std::min(runEnd, m_filesize);) {
            const uint64_t n = std::min<uint64_t>(zeros().size(), std::min(runEnd, m_filesize) - at);
            writeAt(at, zeros().data(), n);
            at += n;
        }
    };
    for (uint64_t i = 0; i < chain.size(); ++i) {
        uint64_t offset;
        if ((!small && chain[i] >= m_bbat.count()) || !blockOffset(chain, small, i, offset))
            continue;
        if (offset != runEnd) {
            flushRun();
            runStart = offset;
        }
        runEnd = offset + blockSize;
    }
    flushRun();
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
        std::vector<uint64_t> dirChain = m_bbat.chain(m_header.dirent_start);
        const uint64_t needed = (m_dirtree.entryCount() - 1) / (bigBlockSize() / kDirEntrySize) + 1;
        while (dirChain.size() < needed) {
            extendFile(dirChain);
            if (dirChain.size() == 1) {
                m_header.dirent_start = dirChain.front();
                m_header.dirty = true;
            }
        }
    }
    return std::make_unique<StreamIO>(this, index, path);
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
        freeChain(chainOf(index).blocks, m_dirtree.entry(index).size < threshold());
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
        const std::vector<uint64_t> chain = m_bbat.chain(m_header.sbat_start);
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
        const std::vector<uint64_t> chain = m_bbat.chain(m_header.dirent_start);
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

} // namespace POLE
