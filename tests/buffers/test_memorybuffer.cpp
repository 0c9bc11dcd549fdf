#include "buffers/MemoryBuffer.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using Bytes = std::vector<unsigned char>;

MemoryBuffer bufferOf(const Bytes &bytes)
{
    MemoryBuffer buffer;
    if (!bytes.empty())
        buffer.putRawBytes(bytes.data(), bytes.size());
    buffer.seek(0, MBSeekStart);
    return buffer;
}

template <typename Exception, typename F>
std::string messageOf(F &&f)
{
    try {
        f();
    } catch (const Exception &e) {
        return e.what();
    }
    return "<no exception>";
}

template <typename T>
Bytes bytesOf(T value)
{
    Bytes b(sizeof(T));
    std::memcpy(b.data(), &value, sizeof(T));
    return b;
}

template <typename T>
T sampleValue()
{
    // A value whose bytes are all different, so any misordering shows.
    T value;
    unsigned char raw[sizeof(T)];
    for (size_t i = 0; i < sizeof(T); ++i)
        raw[i] = static_cast<unsigned char>(0x11 * (i + 1));
    std::memcpy(&value, raw, sizeof(T));
    return value;
}

} // namespace

// --- construction, moves --------------------------------------------------------

TEST(MemoryBufferConstruction, FreshBuffersStartAtCursorZeroGrowableNativeOrder)
{
    unsigned char data[] = {1, 2, 3};
    MemoryBuffer sized(5);
    MemoryBuffer copied(3, data);
    for (MemoryBuffer *b : {&sized, &copied}) {
        EXPECT_EQ(b->tell(), 0u);
        EXPECT_TRUE(b->allowBufferExpansion());
        EXPECT_EQ(b->byteOrder(), MBNativeOrder);
    }
    EXPECT_EQ(sized.getBuffer(), Bytes(5, 0));
    EXPECT_EQ(sized.getCapacity(), 5u);
    EXPECT_EQ(copied.getBuffer(), (Bytes{1, 2, 3}));
}

TEST(MemoryBufferConstruction, MoveConstructionEmptiesTheSource)
{
    MemoryBuffer source = bufferOf({1, 2, 3});
    source.m_name = "doc";
    source.m_streamName = "stream";
    MemoryBuffer target(std::move(source));
    EXPECT_EQ(target.getBuffer(), (Bytes{1, 2, 3}));
    EXPECT_EQ(target.m_name, "doc");
    EXPECT_EQ(target.m_streamName, "stream");
    EXPECT_EQ(source.sizeOfMB(), 0u);
    EXPECT_TRUE(source.m_name.empty());
    EXPECT_TRUE(source.m_streamName.empty());
}

TEST(MemoryBufferConstruction, MoveAssignmentExchangesNames)
{
    MemoryBuffer source = bufferOf({7, 8});
    source.seek(1, MBSeekStart);
    source.byteOrder(MBBigEndian);
    source.m_name = "from";
    MemoryBuffer target = bufferOf({1, 2, 3, 4});
    target.m_name = "to";
    target = std::move(source);
    EXPECT_EQ(target.getBuffer(), (Bytes{7, 8}));
    EXPECT_EQ(target.tell(), 1u);
    EXPECT_EQ(target.byteOrder(), MBBigEndian);
    EXPECT_EQ(target.m_name, "from");
    EXPECT_EQ(source.m_name, "to");
    EXPECT_EQ(source.sizeOfMB(), 0u);
}

// --- reading and bounds ----------------------------------------------------------

TEST(MemoryBufferRead, EmptyBufferReportsSizeOffsetAndRequest)
{
    MemoryBuffer buffer;
    EXPECT_EQ(messageOf<ReadBufferException>([&] { buffer.lookUInt8(); }),
              "Read beyond end of buffer occurred: Size of buffer (0), Offset (0), Size requested (1)");
}

TEST(MemoryBufferRead, FailedReadChangesNothing)
{
    MemoryBuffer buffer = bufferOf({1, 2, 3});
    buffer.seek(1, MBSeekStart);
    EXPECT_EQ(messageOf<ReadBufferException>([&] { buffer.getUInt32(); }),
              "Read beyond end of buffer occurred: Size of buffer (3), Offset (1), Size requested (4)");
    EXPECT_EQ(buffer.tell(), 1u);
    EXPECT_EQ(buffer.getUInt16LE(), 0x0302);
    EXPECT_EQ(buffer.tell(), 3u);
}

TEST(MemoryBufferRead, LookLeavesTheCursorGetAdvances)
{
    MemoryBuffer buffer = bufferOf({0x34, 0x12, 0xff});
    EXPECT_EQ(buffer.lookUInt16(), 0x1234);
    EXPECT_EQ(buffer.tell(), 0u);
    EXPECT_EQ(buffer.getUShort(), 0x1234);
    EXPECT_EQ(buffer.getInt8(), -1);
    EXPECT_EQ(buffer.sizeToEof(), 0u);
}

TEST(MemoryBufferRead, CursorBeyondEndAfterRestoreMakesEveryAccessOverflow)
{
    MemoryBuffer buffer = bufferOf({1, 2});
    buffer.restoreBufferState(MemoryBufferState{10, true, MBNativeOrder});
    EXPECT_EQ(messageOf<ArithmeticException>([&] { buffer.sizeToEof(); }), "Arithmetic overflow");
    EXPECT_EQ(messageOf<ArithmeticException>([&] { buffer.lookUInt8(); }), "Arithmetic overflow");
    EXPECT_EQ(messageOf<ArithmeticException>([&] { buffer.putUInt8(1); }), "Arithmetic overflow");
    buffer.seek(1, MBSeekStart);
    EXPECT_EQ(buffer.getUInt8(), 2);
}

// --- seeking -----------------------------------------------------------------------

struct SeekCase
{
    const char *label;
    size_t offset;
    MBSeek how;
    long long expected; // -1: SeekBufferException, -2: ArithmeticException
};

class MemoryBufferSeek : public ::testing::TestWithParam<SeekCase>
{
};

TEST_P(MemoryBufferSeek, TargetsAndFailures)
{
    const SeekCase c = GetParam();
    MemoryBuffer buffer(10);
    buffer.seek(4, MBSeekStart);
    if (c.expected == -1) {
        EXPECT_THROW(buffer.seek(c.offset, c.how), SeekBufferException);
        EXPECT_EQ(buffer.tell(), 4u);
    } else if (c.expected == -2) {
        EXPECT_EQ(messageOf<ArithmeticException>([&] { buffer.seek(c.offset, c.how); }),
                  "Arithmetic overflow");
        EXPECT_EQ(buffer.tell(), 4u);
    } else {
        EXPECT_EQ(buffer.seek(c.offset, c.how), static_cast<size_t>(c.expected));
        EXPECT_EQ(buffer.tell(), static_cast<size_t>(c.expected));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, MemoryBufferSeek,
    ::testing::Values(SeekCase{"start_to_end", 10, MBSeekStart, 10},
                      SeekCase{"start_past_end", 11, MBSeekStart, -1},
                      SeekCase{"forward", 3, MBSeekForward, 7},
                      SeekCase{"forward_past_end", 7, MBSeekForward, -1},
                      SeekCase{"forward_overflow", std::numeric_limits<size_t>::max(), MBSeekForward, -2},
                      SeekCase{"backward", 4, MBSeekBackward, 0},
                      SeekCase{"backward_before_start", 5, MBSeekBackward, -2},
                      SeekCase{"from_end", 3, MBSeekEnd, 7},
                      SeekCase{"from_end_before_start", 11, MBSeekEnd, -2},
                      SeekCase{"unknown_mode_is_start", 2, static_cast<MBSeek>(9), 2}),
    [](const auto &info) { return std::string(info.param.label); });

TEST(MemoryBufferSeekMessage, NamesSizeOldAndNewOffset)
{
    MemoryBuffer buffer(10);
    buffer.seek(3, MBSeekStart);
    EXPECT_EQ(messageOf<SeekBufferException>([&] { buffer.seek(11, MBSeekStart); }),
              "Seek beyond end of buffer occurred: Size of buffer (10), Old offset (3), New offset (11)");
}

// --- byte order: every generated accessor -------------------------------------------

// For each ordered name: the plain accessor follows the buffer's order, LE is
// host order, BE is reversed; get advances by the width, look does not.
#define VX_CHECK_ORDERED(Name, Type)                                                               \
    TEST(MemoryBufferAccessors, Name)                                                              \
    {                                                                                              \
        const Type value = sampleValue<Type>();                                                    \
        const Bytes native = bytesOf(value);                                                       \
        const Bytes reversed(native.rbegin(), native.rend());                                      \
        MemoryBuffer buffer;                                                                       \
        buffer.put##Name(value);                                                                   \
        buffer.put##Name##LE(value);                                                               \
        buffer.byteOrder(MBBigEndian);                                                             \
        buffer.put##Name(value);                                                                   \
        buffer.put##Name##BE(value);                                                               \
        Bytes expected = native;                                                                   \
        expected.insert(expected.end(), native.begin(), native.end());                            \
        expected.insert(expected.end(), reversed.begin(), reversed.end());                        \
        expected.insert(expected.end(), reversed.begin(), reversed.end());                        \
        ASSERT_EQ(buffer.getBuffer(), expected);                                                   \
        const auto same = [&](Type got) { return bytesOf(got) == native; };                        \
        buffer.seek(0, MBSeekStart);                                                               \
        buffer.byteOrder(MBNativeOrder);                                                           \
        EXPECT_TRUE(same(buffer.look##Name##LE()));                                                \
        EXPECT_TRUE(same(buffer.get##Name##LE()));                                                 \
        EXPECT_TRUE(same(buffer.get##Name()));                                                     \
        EXPECT_TRUE(same(buffer.look##Name##BE()));                                                \
        EXPECT_TRUE(same(buffer.get##Name##BE()));                                                 \
        EXPECT_EQ(buffer.tell(), 3 * sizeof(Type));                                                \
        buffer.byteOrder(MBBigEndian);                                                             \
        EXPECT_TRUE(same(buffer.look##Name()));                                                    \
        EXPECT_TRUE(same(buffer.get##Name()));                                                     \
        EXPECT_EQ(buffer.sizeToEof(), 0u);                                                         \
    }

VX_MB_ORDERED_TYPES(VX_CHECK_ORDERED)
#undef VX_CHECK_ORDERED

#define VX_CHECK_BYTE(Name, Type)                                                                  \
    TEST(MemoryBufferAccessors, Name)                                                              \
    {                                                                                              \
        MemoryBuffer buffer;                                                                       \
        buffer.byteOrder(MBBigEndian);                                                             \
        buffer.put##Name(static_cast<Type>(0x81));                                                 \
        buffer.seek(0, MBSeekStart);                                                               \
        EXPECT_EQ(buffer.look##Name(), static_cast<Type>(0x81));                                   \
        EXPECT_EQ(buffer.get##Name(), static_cast<Type>(0x81));                                    \
        EXPECT_EQ(buffer.getBuffer(), Bytes{0x81});                                                \
    }
VX_MB_BYTE_TYPES(VX_CHECK_BYTE)
#undef VX_CHECK_BYTE

TEST(MemoryBufferByteOrder, BigEndianBufferStoresMostSignificantFirst)
{
    MemoryBuffer buffer;
    buffer.byteOrder(MBBigEndian);
    buffer.putUInt32(0x01020304);
    EXPECT_EQ(buffer.getBuffer(), (Bytes{1, 2, 3, 4}));
    buffer.seek(0, MBSeekStart);
    EXPECT_EQ(buffer.lookUInt32LE(), 0x04030201u);
}

TEST(MemoryBufferByteOrder, BigEndianFloatsMoveTheirBitPattern)
{
    MemoryBuffer buffer;
    buffer.putFLoatBE(1.5f);
    EXPECT_EQ(buffer.getBuffer(), (Bytes{0x3F, 0xC0, 0x00, 0x00}));
    buffer.seek(0, MBSeekStart);
    EXPECT_EQ(buffer.getFloatBE(), 1.5f);

    const double fractions[] = {-0.1, 3.141592653589793, 1e-310, -2.5e300};
    for (double d : fractions) {
        MemoryBuffer b;
        b.putDoubleBE(d);
        b.seek(0, MBSeekStart);
        const double back = b.getDoubleBE();
        EXPECT_EQ(bytesOf(back), bytesOf(d)) << d;
    }
    MemoryBuffer b;
    b.putDoubleBE(-0.1);
    EXPECT_EQ(b.getBuffer(), (Bytes{0xBF, 0xB9, 0x99, 0x99, 0x99, 0x99, 0x99, 0x9A}));
}

// --- writing and growth --------------------------------------------------------------

TEST(MemoryBufferWrite, RefusedWriteWhenExpansionDisallowed)
{
    MemoryBuffer buffer(4);
    buffer.seek(4, MBSeekStart);
    buffer.allowBufferExpansion(false);
    EXPECT_EQ(messageOf<WriteBufferException>([&] { buffer.putUInt8(1); }),
              "Write beyond end of buffer occurred: Size of buffer (4), Offset (4), Size requested (1)");
    EXPECT_EQ(buffer.sizeOfMB(), 4u);
    EXPECT_EQ(buffer.tell(), 4u);
    buffer.allowBufferExpansion(true);
    buffer.putUInt8(1);
    EXPECT_EQ(buffer.sizeOfMB(), 5u);
}

TEST(MemoryBufferWrite, GrowthDoublesTheSizeOrTwiceTheNeed)
{
    struct Case
    {
        size_t needed;
        size_t capacity;
    };
    for (const Case c : {Case{12, 20}, Case{25, 50}}) {
        MemoryBuffer buffer(10);
        buffer.seek(10, MBSeekStart);
        std::string tail(c.needed - 10, 'x');
        buffer.putString(tail);
        EXPECT_EQ(buffer.sizeOfMB(), c.needed);
        EXPECT_EQ(buffer.getCapacity(), c.capacity) << c.needed;
    }
}

TEST(MemoryBufferWrite, ResizeShrinksAndPullsTheCursorBack)
{
    MemoryBuffer buffer(10);
    buffer.seek(8, MBSeekStart);
    buffer.resizeBuffer(3, true);
    EXPECT_EQ(buffer.sizeOfMB(), 3u);
    EXPECT_EQ(buffer.tell(), 3u);
    EXPECT_EQ(buffer.getCapacity(), 10u);
    buffer.resizeBuffer(6, false);
    EXPECT_EQ(buffer.getBuffer(), Bytes(6, 0));
}

TEST(MemoryBufferWrite, ResetKeepsCapacityAndClearsState)
{
    MemoryBuffer buffer = bufferOf({1, 2, 3, 4, 5, 6, 7, 8});
    buffer.byteOrder(MBBigEndian);
    buffer.allowBufferExpansion(false);
    buffer.seek(5, MBSeekStart);
    const size_t capacity = buffer.getCapacity();
    buffer.resetMemoryBuffer(3);
    EXPECT_EQ(buffer.getBuffer(), Bytes(3, 0));
    EXPECT_EQ(buffer.tell(), 0u);
    EXPECT_TRUE(buffer.allowBufferExpansion());
    EXPECT_EQ(buffer.byteOrder(), MBNativeOrder);
    EXPECT_EQ(buffer.getCapacity(), capacity);
}

// --- strings, blocks and cursor restoration --------------------------------------------

TEST(MemoryBufferStrings, ZeroLengthChecksNothing)
{
    MemoryBuffer buffer(10);
    EXPECT_EQ(buffer.getString(0, 999, MBSeekStart), "");
    std::string empty;
    buffer.allowBufferExpansion(false);
    EXPECT_NO_THROW(buffer.putString(empty, 999, MBSeekStart));
    EXPECT_EQ(buffer.tell(), 0u);
}

TEST(MemoryBufferStrings, PositionalReadKeepsTheCursorAndKeepsNulBytes)
{
    MemoryBuffer buffer = bufferOf({'a', 'b', 0, 'd', 'e', 'f', 'g'});
    buffer.seek(6, MBSeekStart);
    EXPECT_EQ(buffer.getString(4, 2, MBSeekStart), std::string("\0def", 4));
    EXPECT_EQ(buffer.tell(), 6u);
}

TEST(MemoryBufferStrings, FailedPositionalOperationsRestoreTheCursor)
{
    MemoryBuffer buffer(10);
    buffer.seek(5, MBSeekStart);
    EXPECT_EQ(messageOf<ReadBufferException>([&] { buffer.getString(4, 8, MBSeekStart); }),
              "Read beyond end of buffer occurred: Size of buffer (10), Offset (8), Size requested (4)");
    EXPECT_EQ(buffer.tell(), 5u);
    EXPECT_THROW(buffer.getString(1, 11, MBSeekStart), SeekBufferException);
    EXPECT_EQ(buffer.tell(), 5u);

    buffer.allowBufferExpansion(false);
    std::string s = "abcd";
    EXPECT_EQ(messageOf<WriteBufferException>([&] { buffer.putString(s, 8, MBSeekStart); }),
              "Write beyond end of buffer occurred: Size of buffer (10), Offset (5), Size requested (12)");
    EXPECT_EQ(buffer.tell(), 5u);
    EXPECT_EQ(buffer.sizeOfMB(), 10u);

    std::vector<uint32_t> out(2);
    EXPECT_THROW(buffer.lookScalarArray(out.data(), 2, 6, MBSeekStart, MBNativeOrder),
                 ReadBufferException);
    EXPECT_EQ(buffer.tell(), 5u);
}

TEST(MemoryBufferStrings, PositionalWriteGrowsAndKeepsTheCursor)
{
    MemoryBuffer buffer(4);
    buffer.seek(1, MBSeekStart);
    std::string s = "xyz";
    buffer.putString(s, 2, MBSeekEnd);
    EXPECT_EQ(buffer.getBuffer(), (Bytes{0, 0, 'x', 'y', 'z'}));
    EXPECT_EQ(buffer.tell(), 1u);
}

TEST(MemoryBufferBlocks, CopyAppendsAtTheTargetsEndWithoutMovingCursors)
{
    MemoryBuffer source = bufferOf({1, 2, 3, 4, 5, 6});
    source.seek(1, MBSeekStart);
    MemoryBuffer target = bufferOf({9, 9});
    target.seek(1, MBSeekStart);
    source.copyToMemoryBuffer(&target, 4, 0, MBSeekEnd);
    EXPECT_EQ(target.getBuffer(), (Bytes{9, 9, 2, 3, 4, 5}));
    EXPECT_EQ(source.tell(), 1u);
    EXPECT_EQ(target.tell(), 1u);

    source.copyToMemoryBuffer(&target, 2, 4, MBSeekStart, 0, MBSeekStart);
    EXPECT_EQ(target.getBuffer(), (Bytes{5, 6, 2, 3, 4, 5}));
    EXPECT_EQ(source.tell(), 1u);
    EXPECT_EQ(target.tell(), 1u);

    EXPECT_THROW(source.copyToMemoryBuffer(&target, 6, 0, MBSeekStart), ReadBufferException);
    EXPECT_EQ(source.tell(), 1u);
    EXPECT_NO_THROW(source.copyToMemoryBuffer(nullptr, 2, 0, MBSeekStart));
}

TEST(MemoryBufferBlocks, WholeBufferCopiesIgnoreTheSourceCursor)
{
    MemoryBuffer source = bufferOf({1, 2, 3});
    source.seek(2, MBSeekStart);
    MemoryBuffer target;
    target.putMemoryBuffer(&source);
    source.copyToMemoryBuffer(&target);
    EXPECT_EQ(target.getBuffer(), (Bytes{1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(target.tell(), 6u);
    source.copyToMemoryBuffer(&target, 1, MBSeekStart);
    EXPECT_EQ(target.getBuffer(), (Bytes{1, 1, 2, 3, 2, 3}));
    EXPECT_EQ(target.tell(), 6u);
    EXPECT_EQ(source.tell(), 2u);
}

TEST(MemoryBufferBlocks, CopiesIntoItselfUseTheBytesBeforeTheCopy)
{
    MemoryBuffer buffer = bufferOf({1, 2, 3});
    buffer.seek(3, MBSeekStart);
    buffer.putMemoryBuffer(&buffer);
    EXPECT_EQ(buffer.getBuffer(), (Bytes{1, 2, 3, 1, 2, 3}));
    buffer.seek(0, MBSeekStart);
    buffer.copyToMemoryBuffer(&buffer, 6, 0, MBSeekEnd);
    EXPECT_EQ(buffer.sizeOfMB(), 12u);
    EXPECT_EQ(buffer.tell(), 0u);
}

// --- arrays ---------------------------------------------------------------------------

TEST(MemoryBufferArrays, OrderArgumentChoosesReversal)
{
    const uint16_t values[] = {0x0102, 0x0304};
    MemoryBuffer buffer;
    buffer.putRawScalarArray(values, 2, MBBigEndian);
    buffer.putRawScalarArray(values, 2, MBLittleEndian);
    buffer.byteOrder(MBBigEndian);
    buffer.putRawScalarArray(values, 2, MBNativeOrder);
    EXPECT_EQ(buffer.getBuffer(), (Bytes{1, 2, 3, 4, 2, 1, 4, 3, 1, 2, 3, 4}));

    EXPECT_EQ(buffer.lookScalarArray<uint16_t>(2, 0, MBSeekStart, MBBigEndian),
              (std::vector<uint16_t>{0x0102, 0x0304}));
    buffer.seek(4, MBSeekStart);
    uint16_t out[2] = {};
    buffer.getRawScalarArray(out, 2, false, MBLittleEndian);
    EXPECT_EQ(out[0], 0x0102);
    EXPECT_EQ(buffer.tell(), 4u);
    buffer.getRawScalarArray(out, 2, true, MBNativeOrder);
    EXPECT_EQ(out[1], 0x0403);
    EXPECT_EQ(buffer.tell(), 8u);
}

TEST(MemoryBufferArrays, ElementWritesStopAtTheFirstThatDoesNotFit)
{
    const uint32_t values[] = {1, 2, 3};
    MemoryBuffer buffer(6);
    buffer.allowBufferExpansion(false);
    EXPECT_THROW(buffer.putRawScalarArray(values, 3, MBNativeOrder), WriteBufferException);
    EXPECT_EQ(buffer.tell(), 4u);
    EXPECT_EQ(buffer.getBuffer(), (Bytes{1, 0, 0, 0, 0, 0}));
}

TEST(MemoryBufferArrays, AbsurdCountsFailBeforeAllocating)
{
    MemoryBuffer buffer(8);
    // volatile: the count is outside input in real use, not a constant.
    volatile size_t hugeCount = std::numeric_limits<size_t>::max() / 2;
    const size_t huge = hugeCount;
    EXPECT_EQ(messageOf<ArithmeticException>(
                  [&] { buffer.lookScalarArray<uint64_t>(huge, 0, MBSeekStart, MBNativeOrder); }),
              "Arithmetic overflow");
    EXPECT_THROW(buffer.lookScalarArray<uint8_t>(huge, 0, MBSeekStart, MBNativeOrder),
                 ReadBufferException);
    EXPECT_EQ(MemoryBuffer::calculateNumberOfBytes<uint32_t>(5), 20u);
}

// --- files ------------------------------------------------------------------------------

TEST(MemoryBufferFiles, ReplaceLeavesCursorAtEndAppendAfterTheNewBytes)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("f.bin"));
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("hello", 5);
    }
    MemoryBuffer buffer = bufferOf({1, 2, 3, 4, 5, 6, 7, 8, 9});
    buffer.seek(2, MBSeekStart);
    QFile file(path);
    buffer.readFromFile(file, true);
    EXPECT_EQ(buffer.tell(), 7u);
    EXPECT_EQ(buffer.getString(5, 2, MBSeekStart), "hello");
    buffer.readFromFile(file, false);
    EXPECT_EQ(buffer.sizeOfMB(), 5u);
    EXPECT_EQ(buffer.tell(), 5u);

    QFile out(dir.filePath(QStringLiteral("out.bin")));
    buffer.writeToFile(out);
    EXPECT_EQ(MemoryBuffer(out).getBuffer(), (Bytes{'h', 'e', 'l', 'l', 'o'}));
}
