#pragma once

#include "buffers/BufferExceptions.h"
#include "buffers/SafeInt.h"
#include "buffers/ScopeGuard.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

class QFile;

// How a position argument is read. Any other value counts as MBSeekStart;
// the fixed underlying type makes such values valid to hold.
enum MBSeek : int {
    MBSeekStart = 0,
    MBSeekForward = 1,
    MBSeekBackward = 2,
    MBSeekEnd = 3,
};

// Byte order of values in a buffer. Only MBBigEndian reverses bytes on this
// (little-endian) host. As the argument of an array operation MBNativeOrder
// means "follow the buffer's own order".
enum MBByteOrder : uint8_t {
    MBNativeOrder = 0,
    MBBigEndian = 1,
    MBLittleEndian = 2,
};

struct MemoryBufferState
{
    uint64_t m_offset;
    bool m_allowBufferExpansion;
    MBByteOrder m_byteOrder;
};

namespace MemoryBufferDetail {

template <std::size_t Width>
struct UnsignedOfWidth;
template <>
struct UnsignedOfWidth<1> { using type = uint8_t; };
template <>
struct UnsignedOfWidth<2> { using type = uint16_t; };
template <>
struct UnsignedOfWidth<4> { using type = uint32_t; };
template <>
struct UnsignedOfWidth<8> { using type = uint64_t; };

inline uint8_t bswap(uint8_t v) { return v; }
inline uint16_t bswap(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t bswap(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t bswap(uint64_t v) { return __builtin_bswap64(v); }

// Reverses the bytes of any trivially copyable scalar, floats included: the
// IEEE bit pattern is what moves, never a converted value.
template <typename T>
inline T byteSwap(T value)
{
    static_assert(std::is_trivially_copyable<T>::value, "byteSwap needs a plain value");
    using U = typename UnsignedOfWidth<sizeof(T)>::type;
    U bits;
    std::memcpy(&bits, &value, sizeof(T));
    bits = bswap(bits);
    std::memcpy(&value, &bits, sizeof(T));
    return value;
}

} // namespace MemoryBufferDetail

// The typed accessor families: one row per name, generated into look/get/put
// members below. Single bytes consult no byte order; the rest come as plain
// (buffer's order), LE and BE.
#define VX_MB_BYTE_TYPES(X)                                                                        \
    X(UInt8, uint8_t)                                                                              \
    X(Int8, int8_t)                                                                                \
    X(Char, char)                                                                                  \
    X(UChar, unsigned char)

#define VX_MB_ORDERED_TYPES(X)                                                                     \
    X(UInt16, uint16_t)                                                                            \
    X(UShort, uint16_t)                                                                            \
    X(Int16, int16_t)                                                                              \
    X(Short, int16_t)                                                                              \
    X(UInt32, uint32_t)                                                                            \
    X(UInt, uint32_t)                                                                              \
    X(Int32, int32_t)                                                                              \
    X(Int, int32_t)                                                                                \
    X(UInt64, uint64_t)                                                                            \
    X(ULong, uint64_t)                                                                             \
    X(Int64, int64_t)                                                                              \
    X(Long, int64_t)                                                                               \
    X(Float, float)                                                                                \
    X(Double, double)                                                                              \
    X(WChar, wchar_t)

// A growable byte array with one read/write cursor, a byte order and an
// expansion flag. Every access is bounds-checked before anything changes;
// failures throw the exceptions of BufferExceptions.h.
class MemoryBuffer
{
public:
    static const uint8_t m_bufferScaleFactor = 2;

    MemoryBuffer() = default;
    explicit MemoryBuffer(size_t n);
    MemoryBuffer(size_t n, unsigned char *data);
    explicit MemoryBuffer(QFile &file);

    MemoryBuffer(const MemoryBuffer &) = delete;
    MemoryBuffer &operator=(const MemoryBuffer &) = delete;
    MemoryBuffer(MemoryBuffer &&other) noexcept;
    MemoryBuffer &operator=(MemoryBuffer &&other) noexcept;
    ~MemoryBuffer() = default;

    static void *operator new(std::size_t size);
    static void *operator new[](std::size_t size);
    static void *operator new(std::size_t size, const std::nothrow_t &) noexcept;
    static void *operator new[](std::size_t size, const std::nothrow_t &) noexcept;
    static void operator delete(void *p) noexcept;
    static void operator delete[](void *p) noexcept;
    static void operator delete(void *p, const std::nothrow_t &) noexcept;
    static void operator delete[](void *p, const std::nothrow_t &) noexcept;

    // --- state and positioning -------------------------------------------------
    size_t sizeOfMB() const noexcept { return m_buffer.size(); }
    // Bytes the buffer can hold before it must reallocate; never shrinks.
    size_t getCapacity() const noexcept { return m_buffer.capacity(); }
    size_t sizeToEof() const
    {
        if (m_offset > m_buffer.size())
            SafeIntExceptionHandler::SafeIntOnOverflow();
        return m_buffer.size() - m_offset;
    }
    size_t tell() const noexcept { return m_offset; }
    size_t calculateSeekOffset(size_t offset, MBSeek how) const;
    size_t seek(size_t offset, MBSeek how = MBSeekStart);

    void allowBufferExpansion(bool allow) noexcept { m_allowBufferExpansion = allow; }
    bool allowBufferExpansion() const noexcept { return m_allowBufferExpansion; }
    void byteOrder(MBByteOrder order) noexcept { m_byteOrder = order; }
    MBByteOrder byteOrder() const noexcept { return m_byteOrder; }

    MemoryBufferState saveBufferState() const noexcept;
    void restoreBufferState(MemoryBufferState state) noexcept;

    std::vector<unsigned char> getBuffer() const { return m_buffer; }
    // Read-only view of the bytes for code that must not copy them.
    const unsigned char *constData() const noexcept { return m_buffer.data(); }

    void zeroMemoryBuffer() noexcept;
    void resetMemoryBuffer(size_t n);
    void resizeBuffer(size_t n, bool scale);

    // --- typed accessors ------------------------------------------------------
#define VX_MB_DECLARE_BYTE(Name, Type)                                                             \
    Type look##Name() const { return lookValue<Type>(false); }                                     \
    Type get##Name() { return getValue<Type>(false); }                                             \
    void put##Name(Type value) { putValue<Type>(value, false); }

#define VX_MB_DECLARE_ORDERED(Name, Type)                                                          \
    Type look##Name() const { return lookValue<Type>(isBigEndian()); }                             \
    Type look##Name##LE() const { return lookValue<Type>(false); }                                 \
    Type look##Name##BE() const { return lookValue<Type>(true); }                                  \
    Type get##Name() { return getValue<Type>(isBigEndian()); }                                     \
    Type get##Name##LE() { return getValue<Type>(false); }                                         \
    Type get##Name##BE() { return getValue<Type>(true); }                                          \
    void put##Name(Type value) { putValue<Type>(value, isBigEndian()); }                           \
    void put##Name##LE(Type value) { putValue<Type>(value, false); }                               \
    void put##Name##BE(Type value) { putValue<Type>(value, true); }

    VX_MB_BYTE_TYPES(VX_MB_DECLARE_BYTE)
    VX_MB_ORDERED_TYPES(VX_MB_DECLARE_ORDERED)

#undef VX_MB_DECLARE_BYTE
#undef VX_MB_DECLARE_ORDERED

    // The established name of the big-endian float writer.
    void putFLoatBE(float value) { putValue<float>(value, true); }

    // --- strings and blocks ---------------------------------------------------
    std::string getString(size_t n);
    std::string getString(size_t n, size_t offset, MBSeek how);
    void putString(std::string &s);
    void putString(std::string &s, size_t offset, MBSeek how);
    void putMemoryBuffer(MemoryBuffer *src);
    void copyToMemoryBuffer(MemoryBuffer *dst);
    void copyToMemoryBuffer(MemoryBuffer *dst, size_t offset, MBSeek how);
    void copyToMemoryBuffer(MemoryBuffer *dst, size_t n, size_t offset, MBSeek how);
    void copyToMemoryBuffer(MemoryBuffer *dst, size_t n, size_t srcOffset, MBSeek srcHow,
                            size_t dstOffset, MBSeek dstHow);
    // Writes n raw bytes at the cursor as one block under the write rule and
    // advances; the form device and container code use for bulk data.
    void putRawBytes(const void *data, size_t n);

    // --- files ------------------------------------------------------------------
    void readFromFile(QFile &file, bool append);
    void writeToFile(QFile &file);

    // --- template members used across the system ------------------------------
    template <typename T>
    static size_t calculateNumberOfBytes(size_t count)
    {
        return SafeInt::mul<size_t>(count, sizeof(T));
    }

    template <typename T>
    T lookInMB() const
    {
        return lookValue<T>(false);
    }

    template <typename T>
    void writeToMB(T value)
    {
        putValue<T>(value, false);
    }

    template <typename T>
    void throwIfReadBeyondEndOfBuffer(size_t count) const
    {
        const size_t bytes = calculateNumberOfBytes<T>(count);
        if (bytes > sizeToEof())
            throwRead(bytes);
    }

    template <typename T>
    void resizeOrThrowIfWriteBeyondEndOfBuffer(size_t count)
    {
        makeRoomAtCursor(calculateNumberOfBytes<T>(count));
    }

    template <typename T>
    void resizeOrThrowIfWriteBeyondEndOfBuffer(size_t count, size_t offset, MBSeek how)
    {
        makeRoomAt(calculateNumberOfBytes<T>(count), offset, how);
    }

    template <typename T>
    void getRawScalarArray(T *destination, size_t count, bool advance, MBByteOrder order)
    {
        if (count == 0)
            return;
        const size_t bytes = calculateNumberOfBytes<T>(count);
        if (bytes > sizeToEof())
            throwRead(bytes);
        std::memcpy(static_cast<void *>(destination), m_buffer.data() + m_offset, bytes);
        if (swapsFor(order))
            for (size_t i = 0; i < count; ++i)
                destination[i] = MemoryBufferDetail::byteSwap(destination[i]);
        if (advance)
            m_offset += bytes;
    }

    template <typename T>
    void lookScalarArray(T *destination, size_t count, size_t offset, MBSeek how, MBByteOrder order)
    {
        const size_t saved = m_offset;
        ScopeGuard restore([this, saved] { m_offset = saved; });
        seek(offset, how);
        getRawScalarArray(destination, count, false, order);
    }

    template <typename T>
    std::vector<T> lookScalarArray(size_t count, size_t offset, MBSeek how, MBByteOrder order)
    {
        const size_t saved = m_offset;
        ScopeGuard restore([this, saved] { m_offset = saved; });
        seek(offset, how);
        throwIfReadBeyondEndOfBuffer<T>(count);
        std::vector<T> values(count);
        getRawScalarArray(values.data(), count, false, order);
        return values;
    }

    template <typename T>
    void putRawScalarArray(const T *source, size_t count, MBByteOrder order)
    {
        if (count == 0)
            return;
        const bool swap = swapsFor(order);
        const size_t bytes = calculateNumberOfBytes<T>(count);
        if (bytes <= sizeToEof()) {
            // Everything fits: one copy, then reverse in place if asked.
            unsigned char *target = m_buffer.data() + m_offset;
            std::memcpy(target, source, bytes);
            if (swap)
                for (size_t i = 0; i < count; ++i) {
                    T value;
                    std::memcpy(&value, target + i * sizeof(T), sizeof(T));
                    value = MemoryBufferDetail::byteSwap(value);
                    std::memcpy(target + i * sizeof(T), &value, sizeof(T));
                }
            m_offset += bytes;
            return;
        }
        // Element by element under the write rule, so that growth and a
        // refused write behave exactly as single puts would.
        for (size_t i = 0; i < count; ++i)
            putValue<T>(source[i], swap);
    }

    // The document a buffer holds, filled in by the host; no buffer operation
    // other than moves reads or changes them.
    std::string m_name;
    std::string m_streamName;

private:
    bool isBigEndian() const noexcept { return m_byteOrder == MBBigEndian; }
    bool swapsFor(MBByteOrder order) const noexcept
    {
        return order == MBBigEndian || (order == MBNativeOrder && isBigEndian());
    }

    // The hot paths work on a local copy of the cursor: a store through the
    // byte array may alias any member, and reloading the cursor after it
    // would put a memory round trip on every access.
    bool fitsAtCursor(size_t width) const noexcept
    {
        size_t end;
        return !__builtin_add_overflow(m_offset, width, &end) && end <= m_buffer.size();
    }

    template <typename T>
    T lookValue(bool swap) const
    {
        if (__builtin_expect(!fitsAtCursor(sizeof(T)), 0))
            throwReadAtCursor(sizeof(T));
        T value;
        std::memcpy(&value, m_buffer.data() + m_offset, sizeof(T));
        return swap ? MemoryBufferDetail::byteSwap(value) : value;
    }

    template <typename T>
    T getValue(bool swap)
    {
        const T value = lookValue<T>(swap);
        m_offset += sizeof(T);
        return value;
    }

    template <typename T>
    void putValue(T value, bool swap)
    {
        const uint64_t offset = m_offset;
        if (__builtin_expect(!fitsAtCursor(sizeof(T)), 0))
            growForWriteAtCursor(sizeof(T));
        if (swap)
            value = MemoryBufferDetail::byteSwap(value);
        std::memcpy(m_buffer.data() + offset, &value, sizeof(T));
        // Stored after the bytes, so the next access can keep using it from
        // a register instead of reloading it.
        m_offset = offset + sizeof(T);
    }

    // Write rule for n bytes at the cursor, without the write.
    void makeRoomAtCursor(size_t n)
    {
        if (!fitsAtCursor(n))
            growForWriteAtCursor(n);
    }
    // The slow half of the write rule: a cursor beyond the end overflows, a
    // buffer that may not grow refuses, any other grows.
    void growForWriteAtCursor(size_t n);
    // Positional write rule: grows or throws, then seeks to the target.
    void makeRoomAt(size_t n, size_t offset, MBSeek how);

    [[noreturn]] void throwRead(size_t requested) const;
    // A cursor beyond the end overflows; otherwise the read does not fit.
    [[noreturn]] void throwReadAtCursor(size_t requested) const;

    std::vector<unsigned char> m_buffer;
    uint64_t m_offset = 0;
    bool m_allowBufferExpansion = true;
    MBByteOrder m_byteOrder = MBNativeOrder;
};
