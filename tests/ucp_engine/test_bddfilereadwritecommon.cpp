#include "ucp_engine/bddfilereadwritecommon.h"

#include "buffers/BufferExceptions.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

namespace {

// A context over its own two buffers.
struct ScalarRun
{
    MemoryBuffer input;
    MemoryBuffer output;
    context ctx;
    ScalarRun()
    {
        ctx.m_inputBuffer = &input;
        ctx.m_outputBuffer = &output;
    }
    void feed(std::initializer_list<int> bytes)
    {
        for (int b : bytes)
            input.putUInt8(static_cast<uint8_t>(b));
        input.seek(0);
    }
    std::vector<unsigned char> written() const { return output.getBuffer(); }
};

// Writes `value` plainly and big-endian, checks the bytes, then reads both
// back (and looks at them) and checks the value and the size counter.
template <typename T>
void roundTrip(T value, std::vector<unsigned char> little, bool bigEndianForm)
{
    SCOPED_TRACE(testing::Message() << "type " << typeid(T).name() << " value " << +value);
    std::vector<unsigned char> big(little.rbegin(), little.rend());
    ScalarRun run;
    EXPECT_TRUE(scal_writeToBuffer(&run.ctx, value));
    if constexpr (BDDScalarIO::bigEndianCapable<T>) {
        EXPECT_TRUE(scal_writeToBuffer_be(&run.ctx, value));
    }
    std::vector<unsigned char> expected = little;
    if (bigEndianForm)
        expected.insert(expected.end(), big.begin(), big.end());
    EXPECT_EQ(run.written(), expected);

    run.input.putRawBytes(expected.data(), expected.size());
    run.input.seek(0);
    uint32_t size = 10;
    T plain{};
    if constexpr (BDDScalarIO::plainLookable<T>) {
        T looked{};
        EXPECT_TRUE(scal_lookBuffer(&run.ctx, looked));
        EXPECT_EQ(looked, value);
        EXPECT_EQ(run.input.tell(), 0u) << "looking does not move";
    }
    EXPECT_TRUE(scal_readFromBuffer(&run.ctx, plain, size));
    EXPECT_EQ(plain, value);
    EXPECT_EQ(size, 10 + little.size());
    if constexpr (BDDScalarIO::bigEndianCapable<T>) {
        T looked{}, read{};
        EXPECT_TRUE(scal_lookBuffer_be(&run.ctx, looked));
        EXPECT_TRUE(scal_readFromBuffer_be(&run.ctx, read, size));
        EXPECT_EQ(looked, value);
        EXPECT_EQ(read, value);
        EXPECT_EQ(size, 10 + 2 * little.size());
    }
    EXPECT_EQ(run.input.sizeToEof(), 0u);
}

} // namespace

TEST(ScalarAccess, EveryTypeWritesAndReadsItsWidth)
{
    roundTrip<unsigned char>(0xAB, {0xAB}, false);
    roundTrip<signed char>(-2, {0xFE}, false);
    roundTrip<char>('z', {'z'}, false);
    roundTrip<unsigned short>(0x0102, {0x02, 0x01}, true);
    roundTrip<short>(-2, {0xFE, 0xFF}, true);
    roundTrip<unsigned int>(0x01020304, {0x04, 0x03, 0x02, 0x01}, true);
    roundTrip<int>(-3, {0xFD, 0xFF, 0xFF, 0xFF}, true);
    roundTrip<unsigned long>(0x0102030405060708ul, {8, 7, 6, 5, 4, 3, 2, 1}, true);
    roundTrip<long>(-1, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, true);
    roundTrip<float>(1.5f, {0, 0, 0xC0, 0x3F}, false);
    roundTrip<double>(-2.0, {0, 0, 0, 0, 0, 0, 0, 0xC0}, false);
    roundTrip<wchar_t>(0x2345, {0x45, 0x23}, false);
}

TEST(ScalarAccess, AWideCharacterKeepsItsLow16Bits)
{
    ScalarRun run;
    EXPECT_TRUE(scal_writeToBuffer<wchar_t>(&run.ctx, 0x12345));
    EXPECT_EQ(run.written(), (std::vector<unsigned char>{0x45, 0x23}));
    run.feed({0x45, 0xA3});
    wchar_t value = 0;
    uint32_t size = 0;
    EXPECT_TRUE(scal_readFromBuffer(&run.ctx, value, size));
    EXPECT_EQ(value, 0xA345) << "zero-extended, not sign-extended";
    EXPECT_EQ(size, 2u);
}

TEST(ScalarAccess, PlainFormsFollowTheBuffersByteOrder)
{
    ScalarRun run;
    run.output.byteOrder(MBBigEndian);
    EXPECT_TRUE(scal_writeToBuffer<unsigned short>(&run.ctx, 0x0102));
    EXPECT_TRUE(scal_writeToBuffer_be<unsigned short>(&run.ctx, 0x0304));
    EXPECT_EQ(run.written(), (std::vector<unsigned char>{1, 2, 3, 4}));

    run.feed({1, 2});
    run.input.byteOrder(MBBigEndian);
    unsigned short value = 0;
    uint32_t size = 0;
    EXPECT_TRUE(scal_readFromBuffer(&run.ctx, value, size));
    EXPECT_EQ(value, 0x0102);
}

TEST(ScalarAccess, BufferFailuresPassToTheCallerAndLeaveTheSizeAlone)
{
    ScalarRun run;
    run.feed({1, 2, 3});
    unsigned int value = 0;
    uint32_t size = 5;
    EXPECT_THROW(scal_readFromBuffer(&run.ctx, value, size), ReadBufferException);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(run.input.tell(), 0u);

    size = std::numeric_limits<uint32_t>::max() - 1;
    EXPECT_THROW(scal_readFromBuffer(&run.ctx, value, size), ArithmeticException) << "the node's size would wrap";
    EXPECT_EQ(run.input.tell(), 0u);

    run.output.allowBufferExpansion(false);
    EXPECT_THROW(scal_writeToBuffer<int>(&run.ctx, 1), WriteBufferException);
}

TEST(ScalarAccess, AMissingContextOrBufferGivesFalse)
{
    ScalarRun run;
    run.ctx.m_inputBuffer = nullptr;
    run.ctx.m_outputBuffer = nullptr;
    int value = 7;
    uint32_t size = 0;
    EXPECT_FALSE(scal_readFromBuffer(&run.ctx, value, size));
    EXPECT_FALSE(scal_readFromBuffer_be<int>(nullptr, value, size));
    EXPECT_FALSE(scal_writeToBuffer(&run.ctx, value));
    short looked = 3;
    EXPECT_FALSE(scal_lookBuffer(nullptr, looked));
    EXPECT_EQ(value, 7);
    EXPECT_EQ(looked, 3);
    EXPECT_EQ(size, 0u);
}

TEST(DepthOfReading, TwoHundredLevelsAreAllowed)
{
    context ctx;
    ctx.m_depthOfReading = 57;
    EXPECT_TRUE(BDDL_ResetDepthOfReading(&ctx));
    EXPECT_EQ(ctx.m_depthOfReading, 0);
    for (int level = 1; level <= 200; ++level)
        ASSERT_TRUE(BDDL_IncreaseDepthOfReading(&ctx)) << "level " << level;
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(&ctx)) << "the 201st level";
    EXPECT_TRUE(BDDL_DecreaseDepthOfReading(&ctx));
    EXPECT_TRUE(BDDL_DecreaseDepthOfReading(&ctx));
    EXPECT_TRUE(BDDL_IncreaseDepthOfReading(&ctx)) << "back at 200";
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(nullptr));

    // A reader that never decreases stays refused instead of wrapping around.
    ctx.m_depthOfReading = std::numeric_limits<int32_t>::max();
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(&ctx));
    EXPECT_EQ(ctx.m_depthOfReading, std::numeric_limits<int32_t>::max());
}
