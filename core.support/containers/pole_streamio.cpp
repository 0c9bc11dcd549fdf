#include "containers/pole_streamio.h"

#include "containers/pole_storageio.h"

#include "buffers/SafeInt.h"

#include <algorithm>

namespace POLE {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

StreamIO::StreamIO(StorageIO *io, uint64_t entry, const QString &name)
    : m_io(io), m_entry(entry), m_fullName(name), m_chain(io->chainOf(entry))
{
    m_io->registerStream(this);
}

StreamIO::~StreamIO()
{
    if (m_io)
        m_io->unregisterStream(this);
}

DirEntry *StreamIO::entry() const { return m_io ? &m_io->dirtree().entry(m_entry) : nullptr; }

uint64_t StreamIO::size() const { return m_io ? entry()->size : 0; }

bool StreamIO::isSmall() const { return size() < m_io->threshold(); }

uint64_t StreamIO::read(uint64_t pos, unsigned char *data, uint64_t maxlen)
{
    if (!m_io || data == nullptr || maxlen == 0)
        return 0;
    const uint64_t total = size();
    if (pos >= total)
        return 0;
    const uint64_t amount = std::min(maxlen, total - pos);
    const uint64_t got = m_io->transfer(m_chain.blocks, isSmall(), pos, data, nullptr, amount);
    if (got < amount)
        m_fail = true;
    return got;
}

uint64_t StreamIO::write(uint64_t pos, const unsigned char *data, uint64_t len)
{
    if (!m_io || data == nullptr || len == 0 || !m_io->writeable() || entry()->dir)
        return 0;
    const uint64_t end = SafeInt::add<uint64_t>(pos, len);
    const uint64_t old = size();
    if (end > old)
        resize(end);
    if (pos > old)
        fillZeros(old, pos);
    const uint64_t written = writeBlocks(pos, data, len);
    m_pos = end;
    return written;
}

// Allocates what the range needs and writes it; the size must cover it.
uint64_t StreamIO::writeBlocks(uint64_t pos, const unsigned char *data, uint64_t len)
{
    const bool small = isSmall();
    std::vector<uint64_t> &blocks = m_chain.blocks;
    const uint64_t needed = (pos + len - 1) / (small ? m_io->smallBlockSize() : m_io->bigBlockSize()) + 1;
    while (blocks.size() < needed) {
        if (small)
            m_io->addSmallBlock(blocks);
        else
            m_io->extendFile(blocks);
    }
    m_chain.end = ChainEnd::EndOfChain;
    const uint64_t written = m_io->transfer(blocks, small, pos, nullptr, data, len);
    DirEntry *e = entry();
    if (!blocks.empty() && blocks.front() != e->start) {
        e->start = blocks.front();
        m_io->dirtree().markDirty(m_entry);
    }
    m_cacheSize = 0;
    return written;
}

// Bytes a stream gains without being written are zeros: stale bytes of
// blocks it had or reuses must not show through, and its chain must cover
// its size, or other readers take the file for a damaged one.
void StreamIO::fillZeros(uint64_t from, uint64_t to)
{
    static const std::vector<unsigned char> zeros(64 * 1024, 0);
    while (from < to) {
        const uint64_t n = std::min<uint64_t>(zeros.size(), to - from);
        writeBlocks(from, zeros.data(), n);
        from += n;
    }
}

void StreamIO::setSize(uint64_t newSize)
{
    if (!m_io || !m_io->writeable() || entry()->dir)
        return;
    const uint64_t old = size();
    resize(newSize);
    if (newSize > old)
        fillZeros(old, newSize);
}

void StreamIO::resize(uint64_t newSize)
{
    const uint64_t current = size();
    const uint64_t threshold = m_io->threshold();
    if ((current < threshold) != (newSize < threshold)) {
        // Moving between small and big blocks: the content is rewritten.
        // Only content under the threshold is ever kept, so this stays small.
        std::vector<unsigned char> kept(std::min(newSize, current));
        kept.resize(read(0, kept.data(), kept.size()));
        m_io->freeChain(m_chain.blocks, current < threshold);
        m_chain = AllocTable::Walk();
        DirEntry *e = entry();
        e->start = Avail;
        e->size = newSize;
        m_io->dirtree().markDirty(m_entry);
        if (!kept.empty())
            writeBlocks(0, kept.data(), kept.size());
        if (m_pos > newSize)
            m_pos = newSize;
    } else if (newSize != current) {
        entry()->size = newSize;
        m_io->dirtree().markDirty(m_entry);
    }
    m_cacheSize = 0;
}

int StreamIO::getch()
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

void StreamIO::flush()
{
    if (m_io)
        m_io->flush();
}

QString StreamIO::damage() const
{
    if (!m_io || entry()->dir)
        return QString();
    const uint64_t total = size();
    const bool small = isSmall();
    const uint64_t blockSize = small ? m_io->smallBlockSize() : m_io->bigBlockSize();
    const uint64_t needed = total == 0 ? 0 : (total - 1) / blockSize + 1;
    const std::vector<uint64_t> &blocks = m_chain.blocks;
    const QString unit = small ? QStringLiteral("small block") : QStringLiteral("sector");
    uint64_t readable = 0;
    QString why;
    for (uint64_t i = 0; i < std::min<uint64_t>(needed, blocks.size()); ++i) {
        const uint64_t bytes = std::min(blockSize, total - i * blockSize);
        uint64_t offset = 0;
        if (!m_io->blockOffset(blocks, small, i, offset)) {
            why = QStringLiteral("small block %1 lies outside the small-block container").arg(blocks[i]);
            break;
        }
        if (offset >= m_io->fileSize() || bytes > m_io->fileSize() - offset) {
            readable += offset < m_io->fileSize() ? m_io->fileSize() - offset : 0;
            why = QStringLiteral("%1 %2 lies beyond the end of the file").arg(unit).arg(blocks[i]);
            break;
        }
        readable += bytes;
    }
    if (why.isEmpty() && blocks.size() < needed) {
        const QString after = QStringLiteral("after %1 of %2 %3s").arg(blocks.size()).arg(needed).arg(unit);
        switch (m_chain.end) {
        case ChainEnd::Loops:
            why = QStringLiteral("its chain loops back to %1 %2 %3").arg(unit).arg(m_chain.stoppedAt).arg(after);
            break;
        case ChainEnd::Shared:
            why = QStringLiteral("its chain runs into %1 %2").arg(m_io->ownerName(m_chain.sharedWith)).arg(after);
            break;
        case ChainEnd::LeavesTable:
            why = m_chain.stoppedAt < m_io->claimedEntries(small)
                      ? QStringLiteral("its chain continues beyond the end of the file %1").arg(after)
                      : QStringLiteral("its chain leads out of the allocation table %1").arg(after);
            break;
        default:
            why = QStringLiteral("its chain ends %1").arg(after);
            break;
        }
    }
    if (why.isEmpty())
        return QString();
    return QStringLiteral("%1 (%2 of %3 bytes readable)").arg(why).arg(readable).arg(total);
}

} // namespace POLE
