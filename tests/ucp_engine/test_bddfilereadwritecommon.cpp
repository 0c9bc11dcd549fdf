#include "ucp_engine/bddfilereadwritecommon.h"

#include "buffers/BufferExceptions.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// A context over its own two buffers.
struct ScalarRun
{
    MemoryBuffer input, output;
    context ctx;
    ScalarRun()
    {
        ctx.m_inputBuffer = &input;
        ctx.m_outputBuffer = &output;
    }
    void feed(const Bytes &bytes)
    {
        input.putRawBytes(bytes.data(), bytes.size());
        input.seek(0);
    }
};

// Writes `value` plainly (little-endian buffers) and, where the type has one,
// big-endian; checks the bytes, reads both back and checks the size counter.
template <typename T>
void roundTrip(T value, const Bytes &little)
{
    SCOPED_TRACE(testing::Message() << "type " << typeid(T).name() << " value " << +value);
    constexpr bool bigEndian = BDDScalarIO::bigEndianCapable<T>;
    Bytes expected = little;
    if (bigEndian)
        expected.insert(expected.end(), little.rbegin(), little.rend());
    ScalarRun run;
    EXPECT_TRUE(scal_writeToBuffer(&run.ctx, value));
    if constexpr (bigEndian) {
        EXPECT_TRUE(scal_writeToBuffer_be(&run.ctx, value));
    }
    EXPECT_EQ(run.output.getBuffer(), expected);

    run.feed(expected);
    uint32_t size = 10;
    T read{}, looked{};
    if constexpr (BDDScalarIO::plainLookable<T>) {
        EXPECT_TRUE(scal_lookBuffer(&run.ctx, looked));
        EXPECT_EQ(looked, value);
        EXPECT_EQ(run.input.tell(), 0u) << "looking does not move";
    }
    EXPECT_TRUE(scal_readFromBuffer(&run.ctx, read, size));
    EXPECT_EQ(read, value);
    if constexpr (bigEndian) {
        EXPECT_TRUE(scal_lookBuffer_be(&run.ctx, looked));
        EXPECT_TRUE(scal_readFromBuffer_be(&run.ctx, read, size));
        EXPECT_EQ(looked, value);
        EXPECT_EQ(read, value);
    }
    EXPECT_EQ(size, 10 + expected.size());
    EXPECT_EQ(run.input.sizeToEof(), 0u);
}

} // namespace

TEST(ScalarAccess, EveryTypeWritesAndReadsItsWidth)
{
    roundTrip<unsigned char>(0xAB, {0xAB});
    roundTrip<signed char>(-2, {0xFE});
    roundTrip<char>('z', {'z'});
    roundTrip<unsigned short>(0x0102, {0x02, 0x01});
    roundTrip<short>(-2, {0xFE, 0xFF});
    roundTrip<unsigned int>(0x01020304, {4, 3, 2, 1});
    roundTrip<int>(-3, {0xFD, 0xFF, 0xFF, 0xFF});
    roundTrip<unsigned long>(0x0102030405060708ul, {8, 7, 6, 5, 4, 3, 2, 1});
    roundTrip<long>(-1, Bytes(8, 0xFF));
    roundTrip<float>(1.5f, {0, 0, 0xC0, 0x3F});
    roundTrip<double>(-2.0, {0, 0, 0, 0, 0, 0, 0, 0xC0});
    roundTrip<wchar_t>(0x2345, {0x45, 0x23});
}

TEST(ScalarAccess, WideCharactersAreTwoBytesAndPlainFormsFollowTheByteOrder)
{
    ScalarRun run;
    EXPECT_TRUE(scal_writeToBuffer<wchar_t>(&run.ctx, 0x12345));
    EXPECT_EQ(run.output.getBuffer(), (Bytes{0x45, 0x23})) << "the low 16 bits";
    run.feed({0x45, 0xA3});
    wchar_t wide = 0;
    uint32_t size = 0;
    EXPECT_TRUE(scal_readFromBuffer(&run.ctx, wide, size));
    EXPECT_EQ(wide, 0xA345) << "zero-extended, not sign-extended";
    EXPECT_EQ(size, 2u);

    ScalarRun big;
    big.output.byteOrder(MBBigEndian);
    EXPECT_TRUE(scal_writeToBuffer<unsigned short>(&big.ctx, 0x0102));
    EXPECT_EQ(big.output.getBuffer(), (Bytes{1, 2}));
}

TEST(ScalarAccess, FailuresPassToTheCallerAndLeaveTheSizeAlone)
{
    ScalarRun run;
    run.feed({1, 2, 3});
    unsigned int value = 0;
    uint32_t size = 5;
    EXPECT_THROW(scal_readFromBuffer(&run.ctx, value, size), ReadBufferException);
    EXPECT_EQ(size, 5u);
    size = std::numeric_limits<uint32_t>::max() - 1;
    EXPECT_THROW(scal_readFromBuffer(&run.ctx, value, size), ArithmeticException) << "the size would wrap";
    EXPECT_EQ(run.input.tell(), 0u);
    run.output.allowBufferExpansion(false);
    EXPECT_THROW(scal_writeToBuffer<int>(&run.ctx, 1), WriteBufferException);

    // No context or no buffer: false, nothing touched.
    run.ctx.m_inputBuffer = run.ctx.m_outputBuffer = nullptr;
    EXPECT_FALSE(scal_readFromBuffer(&run.ctx, value, size));
    EXPECT_FALSE(scal_writeToBuffer(&run.ctx, value));
    EXPECT_FALSE(scal_readFromBuffer_be<unsigned int>(nullptr, value, size));
    EXPECT_FALSE(scal_lookBuffer(nullptr, value));
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(size, std::numeric_limits<uint32_t>::max() - 1);
}

TEST(DepthOfReading, TwoHundredLevelsAreAllowed)
{
    context ctx;
    ctx.m_depthOfReading = 57;
    EXPECT_TRUE(BDDL_ResetDepthOfReading(&ctx));
    for (int level = 1; level <= 200; ++level)
        ASSERT_TRUE(BDDL_IncreaseDepthOfReading(&ctx)) << "level " << level;
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(&ctx)) << "the 201st level";
    EXPECT_TRUE(BDDL_DecreaseDepthOfReading(&ctx)); // the refused level counts until its reader leaves
    EXPECT_TRUE(BDDL_DecreaseDepthOfReading(&ctx));
    EXPECT_TRUE(BDDL_IncreaseDepthOfReading(&ctx)) << "back at 200";
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(nullptr));
    // A reader that never decreases stays refused instead of wrapping around.
    ctx.m_depthOfReading = std::numeric_limits<int32_t>::max();
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(&ctx));
    EXPECT_EQ(ctx.m_depthOfReading, std::numeric_limits<int32_t>::max());
}
