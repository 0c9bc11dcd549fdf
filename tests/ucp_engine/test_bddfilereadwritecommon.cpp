#include "ucp_engine/bddfilereadwritecommon.h"

#include "buffers/BufferExceptions.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct ScalarRun
{
    MemoryBuffer input, output;
    context ctx;
    explicit ScalarRun(const Bytes &bytes = {})
    {
        ctx.m_inputBuffer = &input;
        ctx.m_outputBuffer = &output;
        input.putRawBytes(bytes.data(), bytes.size());
        input.seek(0);
    }
};

// Writes and reads `value` little-endian, then big-endian where the type has that form.
template <typename T>
void roundTrip(T value, const Bytes &little)
{
    SCOPED_TRACE(testing::Message() << "type " << typeid(T).name() << " value " << +value);
    constexpr bool bigEndian = BDDScalarIO::bigEndianCapable<T>;
    Bytes expected = little;
    if (bigEndian)
        expected.insert(expected.end(), little.rbegin(), little.rend());
    ScalarRun writer, reader(expected);
    uint32_t size = 10;
    T read{}, readBig = value;
    EXPECT_TRUE(scal_writeToBuffer(&writer.ctx, value));
    EXPECT_TRUE(scal_readFromBuffer(&reader.ctx, read, size));
    if constexpr (bigEndian) {
        EXPECT_TRUE(scal_writeToBuffer_be(&writer.ctx, value));
        EXPECT_TRUE(scal_readFromBuffer_be(&reader.ctx, readBig, size));
    }
    EXPECT_EQ(writer.output.getBuffer(), expected);
    EXPECT_EQ(read, value);
    EXPECT_EQ(readBig, value);
    EXPECT_EQ(size, 10 + expected.size()) << "the size counter grows by the bytes read";
}

} // namespace

TEST(ScalarAccess, TypesWriteAndReadTheirWidthInBothByteOrders)
{
    roundTrip<unsigned int>(0x01020304, {4, 3, 2, 1});
    roundTrip<long>(-3, {0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    roundTrip<double>(-2.0, {0, 0, 0, 0, 0, 0, 0, 0xC0});
    roundTrip<wchar_t>(0xA345, {0x45, 0xA3}); // two bytes
}

TEST(ScalarAccess, FailuresPassToTheCallerAndLeaveTheSizeAlone)
{
    ScalarRun run({1, 2, 3});
    unsigned int value = 0;
    uint32_t size = 5;
    EXPECT_THROW(scal_readFromBuffer(&run.ctx, value, size), ReadBufferException);
    EXPECT_EQ(size, 5u);
    size = std::numeric_limits<uint32_t>::max() - 1;
    EXPECT_THROW(scal_readFromBuffer(&run.ctx, value, size), ArithmeticException) << "the size would wrap";
    EXPECT_EQ(run.input.tell(), 0u);
    run.ctx.m_inputBuffer = run.ctx.m_outputBuffer = nullptr; // no buffer: false
    EXPECT_FALSE(scal_readFromBuffer(&run.ctx, value, size));
    EXPECT_FALSE(scal_writeToBuffer(&run.ctx, value));
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
    ctx.m_depthOfReading = std::numeric_limits<int32_t>::max(); // a reader that never leaves stays refused
    EXPECT_FALSE(BDDL_IncreaseDepthOfReading(&ctx));
}
