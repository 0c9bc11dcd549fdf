// Reading and writing 64 MiB of typed values through MemoryBuffer, beside
// QDataStream over a QBuffer and a plain pointer loop with memcpy.

#include "buffers/MemoryBuffer.h"

#include <QBuffer>
#include <QByteArray>
#include <QDataStream>
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

constexpr size_t kBytes = 64u << 20;

// One value kind: how MemoryBuffer, QDataStream and the plain loop handle it.
struct UInt32Native
{
    static constexpr MBByteOrder order = MBLittleEndian;
    using T = uint32_t;
    static T get(MemoryBuffer &b) { return b.getUInt32(); }
    static void put(MemoryBuffer &b, T v) { b.putUInt32(v); }
    static void setup(QDataStream &s) { s.setByteOrder(QDataStream::LittleEndian); }
    static T plain(T v) { return v; }
};

struct UInt32BigEndian
{
    static constexpr MBByteOrder order = MBBigEndian;
    using T = uint32_t;
    static T get(MemoryBuffer &b) { return b.getUInt32BE(); }
    static void put(MemoryBuffer &b, T v) { b.putUInt32BE(v); }
    static void setup(QDataStream &s) { s.setByteOrder(QDataStream::BigEndian); }
    static T plain(T v) { return __builtin_bswap32(v); }
};

struct DoubleNative
{
    static constexpr MBByteOrder order = MBLittleEndian;
    using T = double;
    static T get(MemoryBuffer &b) { return b.getDouble(); }
    static void put(MemoryBuffer &b, T v) { b.putDouble(v); }
    static void setup(QDataStream &s)
    {
        s.setByteOrder(QDataStream::LittleEndian);
        s.setFloatingPointPrecision(QDataStream::DoublePrecision);
    }
    static T plain(T v) { return v; }
};

template <typename Kind>
typename Kind::T valueAt(size_t i)
{
    return static_cast<typename Kind::T>(i * 2654435761u);
}

template <typename Kind>
constexpr size_t count()
{
    return kBytes / sizeof(typename Kind::T);
}

// --- MemoryBuffer --------------------------------------------------------------

template <typename Kind>
void MemoryBuffer_Write(benchmark::State &state)
{
    MemoryBuffer buffer(kBytes);
    for (auto _ : state) {
        buffer.seek(0, MBSeekStart);
        for (size_t i = 0; i < count<Kind>(); ++i)
            Kind::put(buffer, valueAt<Kind>(i));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

template <typename Kind>
void MemoryBuffer_Append(benchmark::State &state)
{
    for (auto _ : state) {
        MemoryBuffer buffer;
        for (size_t i = 0; i < count<Kind>(); ++i)
            Kind::put(buffer, valueAt<Kind>(i));
        benchmark::DoNotOptimize(buffer.constData());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

template <typename Kind>
void MemoryBuffer_Read(benchmark::State &state)
{
    MemoryBuffer buffer(kBytes);
    for (auto _ : state) {
        buffer.seek(0, MBSeekStart);
        typename Kind::T sum{};
        for (size_t i = 0; i < count<Kind>(); ++i)
            sum += Kind::get(buffer);
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

// Bulk access: the array forms, one bounds check and one copy per block.
template <typename Kind>
void MemoryBuffer_ReadArray(benchmark::State &state)
{
    constexpr size_t kBlock = 4096;
    MemoryBuffer buffer(kBytes);
    std::vector<typename Kind::T> block(kBlock);
    for (auto _ : state) {
        buffer.seek(0, MBSeekStart);
        typename Kind::T sum{};
        for (size_t i = 0; i < count<Kind>(); i += kBlock) {
            buffer.getRawScalarArray(block.data(), kBlock, true, Kind::order);
            for (const auto v : block)
                sum += v;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

// --- QDataStream over QBuffer ---------------------------------------------------

template <typename Kind>
void QDataStream_Write(benchmark::State &state)
{
    QByteArray bytes(int(kBytes), '\0');
    QBuffer device(&bytes);
    device.open(QIODevice::ReadWrite);
    for (auto _ : state) {
        device.seek(0);
        QDataStream stream(&device);
        Kind::setup(stream);
        for (size_t i = 0; i < count<Kind>(); ++i)
            stream << valueAt<Kind>(i);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

template <typename Kind>
void QDataStream_Read(benchmark::State &state)
{
    QByteArray bytes(int(kBytes), '\0');
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    for (auto _ : state) {
        device.seek(0);
        QDataStream stream(&device);
        Kind::setup(stream);
        typename Kind::T sum{};
        for (size_t i = 0; i < count<Kind>(); ++i) {
            typename Kind::T v;
            stream >> v;
            sum += v;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

// --- plain pointer loop ----------------------------------------------------------

// Defined twice: as the compiler likes it (vectorised where it can), and with
// auto-vectorisation off, which is the cost of one value at a time, the fair
// peer of a per-value accessor.
#define VX_PLAIN_LOOPS(Prefix)                                                                     \
    template <typename Kind>                                                                       \
    void Prefix##_Write(benchmark::State &state)                                                   \
    {                                                                                              \
        std::vector<unsigned char> bytes(kBytes);                                                  \
        for (auto _ : state) {                                                                     \
            unsigned char *p = bytes.data();                                                       \
            for (size_t i = 0; i < count<Kind>(); ++i) {                                           \
                const typename Kind::T v = Kind::plain(valueAt<Kind>(i));                          \
                std::memcpy(p, &v, sizeof v);                                                      \
                p += sizeof v;                                                                     \
            }                                                                                      \
            benchmark::ClobberMemory();                                                            \
        }                                                                                          \
        state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));                    \
    }                                                                                              \
    template <typename Kind>                                                                       \
    void Prefix##_Read(benchmark::State &state)                                                    \
    {                                                                                              \
        std::vector<unsigned char> bytes(kBytes);                                                  \
        for (auto _ : state) {                                                                     \
            const unsigned char *p = bytes.data();                                                 \
            typename Kind::T sum{};                                                                \
            for (size_t i = 0; i < count<Kind>(); ++i) {                                           \
                typename Kind::T v;                                                                \
                std::memcpy(&v, p, sizeof v);                                                      \
                sum += Kind::plain(v);                                                             \
                p += sizeof v;                                                                     \
            }                                                                                      \
            benchmark::DoNotOptimize(sum);                                                         \
        }                                                                                          \
        state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));                    \
    }

VX_PLAIN_LOOPS(PlainLoop)
#pragma GCC push_options
#pragma GCC optimize("no-tree-vectorize")
VX_PLAIN_LOOPS(PlainScalarLoop)
#pragma GCC pop_options

#define VX_BENCH_KIND(Kind)                                                                        \
    BENCHMARK_TEMPLATE(MemoryBuffer_Read, Kind)->Unit(benchmark::kMillisecond);                    \
    BENCHMARK_TEMPLATE(QDataStream_Read, Kind)->Unit(benchmark::kMillisecond);                     \
    BENCHMARK_TEMPLATE(PlainLoop_Read, Kind)->Unit(benchmark::kMillisecond);                       \
    BENCHMARK_TEMPLATE(PlainScalarLoop_Read, Kind)->Unit(benchmark::kMillisecond);                 \
    BENCHMARK_TEMPLATE(MemoryBuffer_ReadArray, Kind)->Unit(benchmark::kMillisecond);               \
    BENCHMARK_TEMPLATE(MemoryBuffer_Write, Kind)->Unit(benchmark::kMillisecond);                   \
    BENCHMARK_TEMPLATE(MemoryBuffer_Append, Kind)->Unit(benchmark::kMillisecond);                  \
    BENCHMARK_TEMPLATE(QDataStream_Write, Kind)->Unit(benchmark::kMillisecond);                    \
    BENCHMARK_TEMPLATE(PlainLoop_Write, Kind)->Unit(benchmark::kMillisecond);                      \
    BENCHMARK_TEMPLATE(PlainScalarLoop_Write, Kind)->Unit(benchmark::kMillisecond);

VX_BENCH_KIND(UInt32Native)
VX_BENCH_KIND(UInt32BigEndian)
VX_BENCH_KIND(DoubleNative)

} // namespace

BENCHMARK_MAIN();
