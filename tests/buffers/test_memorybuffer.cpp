#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"

#include "fixtures/fixtures.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>

namespace {

using MB = MemoryBuffer;

MB hexBuffer(const char *hex) { return bufferOf(QByteArray::fromHex(hex)); }

std::string hexOf(const MB &b) { return bytesOf(b).toHex().toStdString(); }

template <typename T>
std::string hexOfValue(T value)
{
    return QByteArray(reinterpret_cast<const char *>(&value), sizeof(T)).toHex().toStdString();
}

// One accessor family, each triple being plain, LE, BE: the plain accessors
// follow the buffer's order, LE is this host's order, BE reversed; get
// advances by the width, look does not.
template <typename T>
void checkOrdered(const char *name, std::array<void (MB::*)(T), 3> put, std::array<T (MB::*)(), 3> get,
                  std::array<T (MB::*)() const, 3> look)
{
    SCOPED_TRACE(name);
    const QByteArray bytes = QByteArray::fromHex("1122334455667788").left(sizeof(T)); // all differ
    T value;
    std::memcpy(&value, bytes.constData(), sizeof(T));
    const std::string native = bytes.toHex().toStdString(),
                      reversed = QByteArray::fromStdString({bytes.crbegin(), bytes.crend()}).toHex().toStdString();
    MB b;
    (b.*put[0])(value);
    (b.*put[1])(value);
    b.byteOrder(MBBigEndian);
    (b.*put[0])(value);
    (b.*put[2])(value);
    ASSERT_EQ(hexOf(b), native + native + reversed + reversed);
    b.seek(0);
    b.byteOrder(MBNativeOrder);
    for (T got : {(b.*look[1])(), (b.*get[1])(), (b.*get[0])(), (b.*look[2])(), (b.*get[2])()})
        EXPECT_EQ(hexOfValue(got), native);
    EXPECT_EQ(b.tell(), 3 * sizeof(T));
    b.byteOrder(MBBigEndian);
    for (T got : {(b.*look[0])(), (b.*get[0])()})
        EXPECT_EQ(hexOfValue(got), native);
    EXPECT_EQ(b.sizeToEof(), 0u);
}

} // namespace

TEST(MemoryBuffer, EveryAccessorFamilyHonoursWidthAndOrder)
{
#define VX_CHECK_ORDERED(Name, Type)                                                               \
    checkOrdered<Type>(#Name, {&MB::put##Name, &MB::put##Name##LE, &MB::put##Name##BE},             \
                       {&MB::get##Name, &MB::get##Name##LE, &MB::get##Name##BE},                    \
                       {&MB::look##Name, &MB::look##Name##LE, &MB::look##Name##BE});
    VX_MB_ORDERED_TYPES(VX_CHECK_ORDERED)
#undef VX_CHECK_ORDERED
#define VX_CHECK_BYTE(Name, Type)                                                                  \
    {                                                                                              \
        MB b;                                                                                      \
        b.byteOrder(MBBigEndian);                                                                  \
        b.put##Name(static_cast<Type>(0x81));                                                      \
        b.seek(0);                                                                                 \
        for (Type got : {b.look##Name(), b.get##Name()})                                           \
            EXPECT_EQ(got, static_cast<Type>(0x81)) << #Name;                                       \
        EXPECT_EQ(hexOf(b), "81") << #Name;                                                        \
    }
    VX_MB_BYTE_TYPES(VX_CHECK_BYTE)
#undef VX_CHECK_BYTE
}

TEST(MemoryBuffer, BigEndianFloatsKeepTheirExactBits)
{
    const double doubles[] = {-0.1, 3.141592653589793, 1e-310, -2.5e300};
    MB b;
    b.putFLoatBE(1.5f);
    for (double d : doubles)
        b.putDoubleBE(d);
    EXPECT_EQ(hexOf(b).substr(0, 24), "3fc00000bfb999999999999a");
    b.seek(0);
    EXPECT_EQ(b.getFloatBE(), 1.5f);
    for (double d : doubles)
        EXPECT_EQ(hexOfValue(b.getDoubleBE()), hexOfValue(d)) << d;
}

TEST(MemoryBuffer, SeekModes)
{
    const struct { size_t offset; MBSeek how; size_t cursor; } cases[] = {
        {10, MBSeekStart, 10}, {3, MBSeekForward, 7}, {4, MBSeekBackward, 0}, {3, MBSeekEnd, 7},
        {2, static_cast<MBSeek>(9), 2}, // unknown modes count from the start
    };
    for (const auto &c : cases) {
        MB buffer(10);
        buffer.seek(4);
        EXPECT_EQ(buffer.seek(c.offset, c.how), c.cursor) << c.offset << " mode " << c.how;
        EXPECT_EQ(buffer.tell(), c.cursor) << c.offset << " mode " << c.how;
    }
}

// Every failure names its numbers and leaves the cursor and the bytes as they were.
TEST(MemoryBuffer, FailuresReportTheirNumbersAndChangeNothing)
{
    volatile size_t hugeCount = std::numeric_limits<size_t>::max() / 2; // comes from input in real use
    const size_t huge = hugeCount;
    const std::string read = "std: Read beyond end of buffer occurred: Size of buffer (10), ",
                      write = "std: Write beyond end of buffer occurred: Size of buffer (10), ",
                      seek = "std: Seek beyond end of buffer occurred: Size of buffer (10), Old offset (5), ",
                      overflow = "std: Arithmetic overflow";
    const struct { const char *label; std::function<void(MB &)> op; std::string message; } cases[] = {
        {"seek past the end", [](auto &b) { b.seek(11); }, seek + "New offset (11)"},
        {"seek forward past the end", [](auto &b) { b.seek(6, MBSeekForward); }, seek + "New offset (11)"},
        {"seek forward, overflow", [](auto &b) { b.seek(SIZE_MAX, MBSeekForward); }, overflow},
        {"seek before the start", [](auto &b) { b.seek(6, MBSeekBackward); }, overflow},
        {"seek from the end before the start", [](auto &b) { b.seek(11, MBSeekEnd); }, overflow},
        {"get", [](auto &b) { b.getUInt64(); }, read + "Offset (5), Size requested (8)"},
        {"positional string", [](auto &b) { b.getString(4, 8, MBSeekStart); }, read + "Offset (8), Size requested (4)"},
        {"positional string, bad seek", [](auto &b) { b.getString(1, 11, MBSeekStart); }, seek + "New offset (11)"},
        {"array look", [](auto &b) { uint32_t out[2]; b.lookScalarArray(out, 2, 6, MBSeekStart, MBNativeOrder); },
         read + "Offset (6), Size requested (8)"},
        {"block copy", [](auto &b) { MB to; b.copyToMemoryBuffer(&to, 6, 6, MBSeekStart); },
         read + "Offset (5), Size requested (6)"},
        {"huge element count", [=](auto &b) { b.template lookScalarArray<uint64_t>(huge, 0, MBSeekStart, MBNativeOrder); },
         overflow},
        {"huge byte count", [=](auto &b) { b.template lookScalarArray<uint8_t>(huge, 0, MBSeekStart, MBNativeOrder); },
         read + "Offset (0), Size requested (" + std::to_string(huge) + ")"},
        {"put, fixed size", [](auto &b) { b.allowBufferExpansion(false); b.putUInt64(1); },
         write + "Offset (5), Size requested (8)"},
        {"positional put, fixed size",
         [](auto &b) { std::string s = "abcd"; b.allowBufferExpansion(false); b.putString(s, 8, MBSeekStart); },
         write + "Offset (5), Size requested (12)"},
    };
    for (const auto &c : cases) {
        MB buffer = hexBuffer("00010203040506070809");
        buffer.seek(5);
        EXPECT_EQ(thrownText([&] { c.op(buffer); }), c.message) << c.label;
        EXPECT_EQ(buffer.tell(), 5u) << c.label;
        EXPECT_EQ(hexOf(buffer), "00010203040506070809") << c.label;
    }
}

TEST(MemoryBuffer, CursorBeyondTheEndMakesEveryAccessOverflow)
{
    MB b = hexBuffer("0102");
    b.restoreBufferState(MemoryBufferState{10, true, MBNativeOrder});
    EXPECT_EQ(thrownText([&] { b.sizeToEof(); }), "std: Arithmetic overflow");
    EXPECT_EQ(thrownText([&] { b.lookUInt8(); }), "std: Arithmetic overflow");
    EXPECT_EQ(thrownText([&] { b.putUInt8(1); }), "std: Arithmetic overflow");
}

TEST(MemoryBuffer, GrowthResizeAndReset)
{
    for (const auto &[needed, capacity] : {std::pair<size_t, size_t>{12, 20}, {25, 50}}) {
        MB buffer(10);
        buffer.seek(10);
        std::string tail(needed - 10, 'x');
        buffer.putString(tail);
        EXPECT_EQ(buffer.getCapacity(), capacity) << "twice the size or the need of " << needed;
    }
    MB buffer(10);
    buffer.seek(8);
    buffer.resizeBuffer(3, true);
    EXPECT_EQ(buffer.tell(), 3u) << "shrinking pulls the cursor back";
    buffer.putUInt8(7);
    buffer.byteOrder(MBBigEndian);
    buffer.allowBufferExpansion(false);
    buffer.resetMemoryBuffer(5);
    EXPECT_EQ(hexOf(buffer), "0000000000");
    EXPECT_TRUE(buffer.tell() == 0 && buffer.allowBufferExpansion() && buffer.byteOrder() == MBNativeOrder);
    EXPECT_EQ(buffer.getCapacity(), 10u) << "reset keeps the capacity";
}

TEST(MemoryBuffer, MovesCarryBytesStateAndNames)
{
    MB source = hexBuffer("0708"), target = hexBuffer("01");
    source.seek(1);
    source.byteOrder(MBBigEndian);
    source.m_name = "doc";
    target.m_name = "to";
    target = std::move(source);
    EXPECT_TRUE(hexOf(target) == "0708" && target.tell() == 1 && target.byteOrder() == MBBigEndian);
    EXPECT_EQ(target.m_name + "/" + source.m_name, "doc/to") << "move assignment exchanges the names";
    MB constructed(std::move(target));
    EXPECT_TRUE(target.sizeOfMB() == 0 && target.m_name.empty() && constructed.m_name == "doc");
}

TEST(MemoryBuffer, PositionalStringsKeepTheCursor)
{
    MB buffer = hexBuffer("6162006465666700");
    buffer.seek(6);
    EXPECT_EQ(buffer.getString(4, 2, MBSeekStart), std::string("\0def", 4));
    EXPECT_EQ(buffer.getString(0, 999, MBSeekStart), "") << "zero length checks nothing";
    std::string s = "xyz";
    buffer.putString(s, 2, MBSeekEnd);
    EXPECT_EQ(hexOf(buffer), "61620064656678797a");
    EXPECT_EQ(buffer.tell(), 6u);
}

TEST(MemoryBuffer, BlockCopiesLeaveBothCursorsAlone)
{
    MB source = hexBuffer("010203040506"), target = hexBuffer("0909");
    source.seek(1);
    target.seek(1);
    source.copyToMemoryBuffer(&target, 4, 0, MBSeekEnd);
    source.copyToMemoryBuffer(&target, 2, 4, MBSeekStart, 0, MBSeekStart);
    EXPECT_EQ(hexOf(target), "050602030405");
    source.copyToMemoryBuffer(&target, 1, MBSeekStart); // the whole buffer
    EXPECT_EQ(hexOf(target), "05010203040506");
    EXPECT_TRUE(source.tell() == 1 && target.tell() == 1);
    source.copyToMemoryBuffer(nullptr, 2, 0, MBSeekStart); // no target, nothing to do

    MB self = hexBuffer("010203");
    self.seek(3);
    self.putMemoryBuffer(&self);
    self.seek(0);
    self.copyToMemoryBuffer(&self, 6, 0, MBSeekEnd);
    EXPECT_EQ(hexOf(self), "010203010203010203010203") << "copies into itself use the bytes from before";
    EXPECT_EQ(self.tell(), 0u);
}

TEST(MemoryBuffer, ArrayOrderArgumentAndPartialWrites)
{
    const uint16_t values[] = {0x0102, 0x0304};
    MB buffer;
    buffer.putRawScalarArray(values, 2, MBBigEndian);
    buffer.putRawScalarArray(values, 2, MBLittleEndian);
    buffer.byteOrder(MBBigEndian);
    buffer.putRawScalarArray(values, 2, MBNativeOrder); // follows the buffer
    EXPECT_EQ(hexOf(buffer), "010203040201040301020304");
    EXPECT_EQ(buffer.lookScalarArray<uint16_t>(2, 0, MBSeekStart, MBBigEndian), (std::vector<uint16_t>{0x0102, 0x0304}));

    // A fixed-size buffer takes the elements that fit, one by one.
    const uint32_t words[] = {1, 2, 3};
    MB fixed(6);
    fixed.allowBufferExpansion(false);
    EXPECT_THROW(fixed.putRawScalarArray(words, 3, MBNativeOrder), WriteBufferException);
    EXPECT_EQ(fixed.tell(), 4u);
    EXPECT_EQ(hexOf(fixed), "010000000000");
}

TEST(MemoryBuffer, FileReadsReplaceOrAppend)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("f.bin")));
    FileIO::writeToFile(file, {'h', 'e', 'l', 'l', 'o'});
    MB buffer = hexBuffer("010203040506070809");
    buffer.seek(2);
    buffer.readFromFile(file, true);
    EXPECT_EQ(buffer.tell(), 7u);
    EXPECT_EQ(hexOf(buffer), "010268656c6c6f0809");
    buffer.readFromFile(file, false); // replaces
    EXPECT_EQ(hexOf(buffer) + std::to_string(buffer.tell()), "68656c6c6f5");
}
