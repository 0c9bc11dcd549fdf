#include "buffers/MemoryBuffer.h"

#include "buffers/FileIO.h"

#include <QFile>

#include <cstdlib>
#include <sys/mman.h>

namespace {

// Blocks from this size on are aligned to, and may be backed by, huge pages.
constexpr std::size_t kHugePage = std::size_t(2) << 20;

} // namespace

void *MemoryBufferDetail::allocateBytes(std::size_t bytes)
{
    if (bytes < kHugePage)
        return ::operator new(bytes);
    void *block = nullptr;
    if (posix_memalign(&block, kHugePage, bytes) != 0)
        throw std::bad_alloc();
    // Only advice: where huge pages are off this changes nothing.
    madvise(block, bytes & ~(kHugePage - 1), MADV_HUGEPAGE);
    return block;
}

void MemoryBufferDetail::deallocateBytes(void *p, std::size_t bytes) noexcept
{
    if (bytes < kHugePage)
        ::operator delete(p);
    else
        std::free(p);
}

void SafeIntExceptionHandler::SafeIntOnOverflow()
{
    throw ArithmeticException("Arithmetic overflow");
}

MemoryBuffer::MemoryBuffer(size_t n) : m_buffer(n) {}

MemoryBuffer::MemoryBuffer(size_t n, unsigned char *data)
{
    if (n != 0)
        m_buffer.assign(data, data + n);
}

MemoryBuffer::MemoryBuffer(QFile &file)
{
    const std::vector<unsigned char> bytes = FileIO::readFile(file);
    m_buffer.assign(bytes.begin(), bytes.end());
}

MemoryBuffer::MemoryBuffer(MemoryBuffer &&other) noexcept
    : m_name(std::move(other.m_name)),
      m_streamName(std::move(other.m_streamName)),
      m_buffer(std::move(other.m_buffer)),
      m_offset(other.m_offset),
      m_allowBufferExpansion(other.m_allowBufferExpansion),
      m_byteOrder(other.m_byteOrder)
{
    other.m_buffer.clear();
    other.m_name.clear();
    other.m_streamName.clear();
    other.m_offset = 0;
}

MemoryBuffer &MemoryBuffer::operator=(MemoryBuffer &&other) noexcept
{
    if (this == &other)
        return *this;
    decltype(m_buffer)().swap(m_buffer);
    m_buffer.swap(other.m_buffer);
    m_offset = other.m_offset;
    m_allowBufferExpansion = other.m_allowBufferExpansion;
    m_byteOrder = other.m_byteOrder;
    other.m_offset = 0;
    m_name.swap(other.m_name);
    m_streamName.swap(other.m_streamName);
    return *this;
}

// The class-level allocation functions forward to the global heap; the
// no-throw forms answer null instead of throwing.
void *MemoryBuffer::operator new(std::size_t size) { return ::operator new(size); }
void *MemoryBuffer::operator new[](std::size_t size) { return ::operator new[](size); }
void *MemoryBuffer::operator new(std::size_t size, const std::nothrow_t &tag) noexcept
{
    return ::operator new(size, tag);
}
void *MemoryBuffer::operator new[](std::size_t size, const std::nothrow_t &tag) noexcept
{
    return ::operator new[](size, tag);
}
void MemoryBuffer::operator delete(void *p) noexcept { ::operator delete(p); }
void MemoryBuffer::operator delete[](void *p) noexcept { ::operator delete[](p); }
void MemoryBuffer::operator delete(void *p, const std::nothrow_t &tag) noexcept
{
    ::operator delete(p, tag);
}
void MemoryBuffer::operator delete[](void *p, const std::nothrow_t &tag) noexcept
{
    ::operator delete[](p, tag);
}

size_t MemoryBuffer::calculateSeekOffset(size_t offset, MBSeek how) const
{
    switch (how) {
    case MBSeekForward:
        return SafeInt::add<size_t>(m_offset, offset);
    case MBSeekBackward:
        return SafeInt::sub<size_t>(m_offset, offset);
    case MBSeekEnd:
        return SafeInt::sub<size_t>(m_buffer.size(), offset);
    case MBSeekStart:
    default:
        return offset;
    }
}

size_t MemoryBuffer::seek(size_t offset, MBSeek how)
{
    const size_t target = calculateSeekOffset(offset, how);
    if (target > m_buffer.size())
        throw SeekBufferException(m_buffer.size(), m_offset, target);
    m_offset = target;
    return target;
}

MemoryBufferState MemoryBuffer::saveBufferState() const noexcept
{
    return MemoryBufferState{m_offset, m_allowBufferExpansion, m_byteOrder};
}

void MemoryBuffer::restoreBufferState(MemoryBufferState state) noexcept
{
    m_offset = state.m_offset;
    m_allowBufferExpansion = state.m_allowBufferExpansion;
    m_byteOrder = state.m_byteOrder;
}

void MemoryBuffer::zeroMemoryBuffer() noexcept
{
    if (!m_buffer.empty())
        std::memset(m_buffer.data(), 0, m_buffer.size());
}

void MemoryBuffer::resetMemoryBuffer(size_t n)
{
    if (n > m_buffer.capacity())
        m_buffer.reserve(n);
    m_buffer.resize(n);
    m_allowBufferExpansion = true;
    m_byteOrder = MBNativeOrder;
    m_offset = 0;
    zeroMemoryBuffer();
}

void MemoryBuffer::resizeBuffer(size_t n, bool scale)
{
    const size_t size = m_buffer.size();
    if (n > size) {
        if (n > m_buffer.capacity()) {
            size_t capacity = n;
            if (scale) {
                capacity = SafeInt::mul<size_t>(size, m_bufferScaleFactor);
                if (n > capacity)
                    capacity = SafeInt::mul<size_t>(n, m_bufferScaleFactor);
            }
            m_buffer.reserve(capacity);
        }
        m_buffer.resize(n);
    } else if (n < size) {
        m_buffer.resize(n);
        if (m_offset > n)
            m_offset = n;
    }
}

void MemoryBuffer::growForWriteAtCursor(size_t n)
{
    if (sizeToEof() >= n)
        return;
    if (!m_allowBufferExpansion)
        throw WriteBufferException(m_buffer.size(), m_offset, n);
    resizeBuffer(SafeInt::add<size_t>(m_offset, n), true);
}

void MemoryBuffer::makeRoomAt(size_t n, size_t offset, MBSeek how)
{
    const size_t target = calculateSeekOffset(offset, how);
    const size_t end = SafeInt::add<size_t>(target, n);
    if (end > m_buffer.size()) {
        if (!m_allowBufferExpansion)
            throw WriteBufferException(m_buffer.size(), m_offset, end);
        resizeBuffer(end, true);
    }
    seek(target, MBSeekStart);
}

void MemoryBuffer::putRawBytes(const void *data, size_t n)
{
    if (n == 0)
        return;
    makeRoomAtCursor(n);
    std::memcpy(m_buffer.data() + m_offset, data, n);
    m_offset += n;
}

void MemoryBuffer::throwRead(size_t requested) const
{
    throw ReadBufferException(m_buffer.size(), m_offset, requested);
}

void MemoryBuffer::throwReadAtCursor(size_t requested) const
{
    sizeToEof();
    throwRead(requested);
}

std::string MemoryBuffer::getString(size_t n)
{
    if (n == 0)
        return std::string();
    if (n > sizeToEof())
        throwRead(n);
    std::string s(reinterpret_cast<const char *>(m_buffer.data() + m_offset), n);
    m_offset += n;
    return s;
}

std::string MemoryBuffer::getString(size_t n, size_t offset, MBSeek how)
{
    if (n == 0)
        return std::string();
    const size_t saved = m_offset;
    ScopeGuard restore([this, saved] { m_offset = saved; });
    seek(offset, how);
    return getString(n);
}

void MemoryBuffer::putString(std::string &s)
{
    putRawBytes(reinterpret_cast<const unsigned char *>(s.data()), s.size());
}

void MemoryBuffer::putString(std::string &s, size_t offset, MBSeek how)
{
    if (s.empty())
        return;
    const size_t saved = m_offset;
    ScopeGuard restore([this, saved] { m_offset = saved; });
    makeRoomAt(s.size(), offset, how);
    std::memcpy(m_buffer.data() + m_offset, s.data(), s.size());
}

void MemoryBuffer::putMemoryBuffer(MemoryBuffer *src)
{
    if (src == nullptr || src == this) {
        // Appending a buffer to itself would read storage that the growth
        // may move; take a copy first.
        if (src == this) {
            const std::vector<unsigned char> copy = getBuffer();
            putRawBytes(copy.data(), copy.size());
        }
        return;
    }
    putRawBytes(src->m_buffer.data(), src->m_buffer.size());
}

void MemoryBuffer::copyToMemoryBuffer(MemoryBuffer *dst)
{
    if (dst != nullptr)
        dst->putMemoryBuffer(this);
}

void MemoryBuffer::copyToMemoryBuffer(MemoryBuffer *dst, size_t offset, MBSeek how)
{
    if (dst == nullptr || m_buffer.empty())
        return;
    // A copy into this very buffer must not read storage that growth may move.
    std::vector<unsigned char> selfCopy;
    const unsigned char *source = m_buffer.data();
    if (dst == this) {
        selfCopy = getBuffer();
        source = selfCopy.data();
    }
    const size_t saved = dst->m_offset;
    ScopeGuard restore([dst, saved] { dst->m_offset = saved; });
    dst->makeRoomAt(m_buffer.size(), offset, how);
    std::memcpy(dst->m_buffer.data() + dst->m_offset, source, m_buffer.size());
}

void MemoryBuffer::copyToMemoryBuffer(MemoryBuffer *dst, size_t n, size_t offset, MBSeek how)
{
    if (dst == nullptr)
        return;
    const size_t savedSource = m_offset;
    const size_t savedTarget = dst->m_offset;
    ScopeGuard restore([this, dst, savedSource, savedTarget] {
        dst->m_offset = savedTarget;
        m_offset = savedSource;
    });
    if (n > sizeToEof())
        throwRead(n);
    if (n == 0)
        return;
    std::vector<unsigned char> selfCopy;
    const unsigned char *source = m_buffer.data() + m_offset;
    if (dst == this) {
        selfCopy.assign(source, source + n);
        source = selfCopy.data();
    }
    dst->makeRoomAt(n, offset, how);
    std::memcpy(dst->m_buffer.data() + dst->m_offset, source, n);
}

void MemoryBuffer::copyToMemoryBuffer(MemoryBuffer *dst, size_t n, size_t srcOffset, MBSeek srcHow,
                                      size_t dstOffset, MBSeek dstHow)
{
    if (dst == nullptr)
        return;
    const size_t saved = m_offset;
    ScopeGuard restore([this, saved] { m_offset = saved; });
    seek(srcOffset, srcHow);
    copyToMemoryBuffer(dst, n, dstOffset, dstHow);
}

void MemoryBuffer::readFromFile(QFile &file, bool append)
{
    const std::vector<unsigned char> bytes = FileIO::readFile(file);
    if (append) {
        putRawBytes(bytes.data(), bytes.size());
        return;
    }
    m_buffer.assign(bytes.begin(), bytes.end());
    m_offset = m_buffer.size();
}

void MemoryBuffer::writeToFile(QFile &file)
{
    FileIO::writeToFile(file, m_buffer.data(), m_buffer.size());
}
