#pragma once

#include "buffers/MemoryBuffer.h"
#include "buffers/SafeInt.h"
#include "ucp_engine/BDDLStructBase.h"

#include <cstdint>
#include <type_traits>

// Typed scalar access through a run's reading context, in three families:
// readers take a value at the input's cursor, add its width to the caller's
// size counter (normally the node's m_size) and advance; lookers read without
// moving; writers append at the output's cursor under the buffer's write rule.
// The plain forms follow the buffer's own byte order, the _be forms read and
// write big-endian. Buffer exceptions pass to the caller, whose
// vir_readFromBuffer marks its read flags. A missing context or buffer gives
// false.
//
// Each family takes the types of its list only (checked at compile time). A
// wide character is 2 bytes in a buffer: read zero-extended, written as its
// low 16 bits.

namespace BDDScalarIO {

template <typename T, typename... List>
inline constexpr bool isOneOf = (std::is_same_v<T, List> || ...);

template <typename T>
inline constexpr bool plainReadable = isOneOf<T, double, float, unsigned long, unsigned int, unsigned short,
                                              unsigned char, char, wchar_t, long, int, short, signed char>;
template <typename T>
inline constexpr bool plainWritable = plainReadable<T>;
template <typename T>
inline constexpr bool plainLookable =
    isOneOf<T, char, short, long, unsigned char, unsigned short, unsigned int, unsigned long>;
template <typename T>
inline constexpr bool bigEndianCapable = isOneOf<T, unsigned short, unsigned int, unsigned long, short, int, long>;

// How a value is held in a buffer.
template <typename T>
struct BufferForm
{
    using type = T;
};
template <>
struct BufferForm<wchar_t>
{
    using type = uint16_t;
};

template <typename T>
inline bool look(const context *ctx, T &value, MBByteOrder order, bool advance)
{
    MemoryBuffer *const input = ctx ? ctx->m_inputBuffer : nullptr;
    if (input == nullptr)
        return false;
    typename BufferForm<T>::type held;
    input->getRawScalarArray(&held, 1, advance, order);
    value = static_cast<T>(held);
    return true;
}

template <typename T>
inline bool read(const context *ctx, T &value, uint32_t &size, MBByteOrder order)
{
    if (ctx == nullptr || ctx->m_inputBuffer == nullptr)
        return false;
    const uint32_t grown = SafeInt::add<uint32_t>(size, sizeof(typename BufferForm<T>::type));
    look(ctx, value, order, true);
    size = grown;
    return true;
}

template <typename T>
inline bool write(const context *ctx, T value, MBByteOrder order)
{
    MemoryBuffer *const output = ctx ? ctx->m_outputBuffer : nullptr;
    if (output == nullptr)
        return false;
    const auto held = static_cast<typename BufferForm<T>::type>(value);
    output->putRawScalarArray(&held, 1, order);
    return true;
}

} // namespace BDDScalarIO

template <typename T>
inline bool scal_readFromBuffer(context *ctx, T &value, uint32_t &size)
{
    static_assert(BDDScalarIO::plainReadable<T>, "scal_readFromBuffer: type not in its list");
    return BDDScalarIO::read(ctx, value, size, MBNativeOrder);
}

template <typename T>
inline bool scal_readFromBuffer_be(context *ctx, T &value, uint32_t &size)
{
    static_assert(BDDScalarIO::bigEndianCapable<T>, "scal_readFromBuffer_be: type not in its list");
    return BDDScalarIO::read(ctx, value, size, MBBigEndian);
}

template <typename T>
inline bool scal_writeToBuffer(context *ctx, T value)
{
    static_assert(BDDScalarIO::plainWritable<T>, "scal_writeToBuffer: type not in its list");
    return BDDScalarIO::write(ctx, value, MBNativeOrder);
}

template <typename T>
inline bool scal_writeToBuffer_be(context *ctx, T value)
{
    static_assert(BDDScalarIO::bigEndianCapable<T>, "scal_writeToBuffer_be: type not in its list");
    return BDDScalarIO::write(ctx, value, MBBigEndian);
}

template <typename T>
inline bool scal_lookBuffer(context *ctx, T &value)
{
    static_assert(BDDScalarIO::plainLookable<T>, "scal_lookBuffer: type not in its list");
    return BDDScalarIO::look(ctx, value, MBNativeOrder, false);
}

template <typename T>
inline bool scal_lookBuffer_be(context *ctx, T &value)
{
    static_assert(BDDScalarIO::bigEndianCapable<T>, "scal_lookBuffer_be: type not in its list");
    return BDDScalarIO::look(ctx, value, MBBigEndian, false);
}

// Depth of nested reading. A class that reads a child structure increases
// the depth first, stops when that answers false (deeper than 200), and
// decreases it afterwards.
bool BDDL_IncreaseDepthOfReading(context *ctx);
bool BDDL_DecreaseDepthOfReading(context *ctx);
bool BDDL_ResetDepthOfReading(context *ctx);
