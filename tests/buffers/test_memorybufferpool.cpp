#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(MemoryBufferPool, PresizedPoolHandsOutItsFirstSlot)
{
    MemoryBufferPool pool(3);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 3u);
    const auto first = pool.retrieveMemoryBufferHandle(10);
    EXPECT_EQ(first.index, 0u);
    EXPECT_TRUE(first.inUse);
    EXPECT_EQ(first.buffer->getBuffer(), std::vector<unsigned char>(10, 0));
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 3u);
}

TEST(MemoryBufferPool, ReturnedBufferComesBackLikeNew)
{
    MemoryBufferPool pool;
    MemoryBuffer *buffer = pool.allocateBuffer(100);
    buffer->putUInt32BE(0xdeadbeef);
    buffer->byteOrder(MBBigEndian);
    MemoryBuffer *held = buffer;
    pool.deallocateBuffer(&buffer);
    EXPECT_EQ(buffer, nullptr);

    MemoryBuffer *again = pool.allocateBuffer(50);
    EXPECT_EQ(again, held);
    EXPECT_EQ(again->getBuffer(), std::vector<unsigned char>(50, 0));
    EXPECT_EQ(again->tell(), 0u);
    EXPECT_EQ(again->byteOrder(), MBNativeOrder);
}

TEST(MemoryBufferPool, PrefersAFreeBufferThatIsAlreadyBigEnough)
{
    MemoryBufferPool pool;
    MemoryBuffer *small = pool.allocateBuffer(8);
    MemoryBuffer *large = pool.allocateBuffer(64);
    MemoryBuffer *a = small, *b = large;
    pool.deallocateBuffer(&a);
    pool.deallocateBuffer(&b);

    EXPECT_EQ(pool.allocateBuffer(32), large);
    MemoryBuffer *c = large;
    pool.deallocateBuffer(&c);

    MemoryBuffer *grown = pool.allocateBuffer(128);
    EXPECT_EQ(grown, small) << "no free buffer is big enough: the earliest free one grows";
    EXPECT_GE(grown->getCapacity(), 128u);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 2u);
}

TEST(MemoryBufferPool, NewSlotTakesTheNextIndex)
{
    MemoryBufferPool pool(2);
    pool.allocateBuffer();
    pool.allocateBuffer();
    const auto handle = pool.retrieveMemoryBufferHandle(1);
    EXPECT_EQ(handle.index, 2u);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 3u);
}

TEST(MemoryBufferPool, CopiedDataLeavesTheCursorAtTheEnd)
{
    MemoryBufferPool pool;
    unsigned char data[] = {1, 2, 3, 4};
    MemoryBuffer *buffer = pool.allocateBuffer(4, data);
    EXPECT_EQ(buffer->tell(), 4u);
    EXPECT_EQ(buffer->getBuffer(), (std::vector<unsigned char>{1, 2, 3, 4}));
}

TEST(MemoryBufferPool, FileReadFailsBeforeTakingASlot)
{
    QTemporaryDir dir;
    MemoryBufferPool pool;
    QFile missing(dir.filePath(QStringLiteral("absent")));
    EXPECT_THROW(pool.allocateBuffer(missing), IOException);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 0u);

    QFile present(dir.filePath(QStringLiteral("present")));
    FileIO::writeToFile(present, {5, 6, 7});
    MemoryBuffer *buffer = pool.allocateBuffer(present);
    EXPECT_EQ(buffer->tell(), 3u);
    EXPECT_EQ(buffer->getBuffer(), (std::vector<unsigned char>{5, 6, 7}));
}

TEST(MemoryBufferPool, UnknownAndRepeatedReturnsAreHarmless)
{
    MemoryBufferPool pool;
    MemoryBuffer stranger;
    MemoryBuffer *foreign = &stranger;
    pool.deallocateBuffer(&foreign);
    EXPECT_EQ(foreign, &stranger);
    pool.deallocateBuffer(nullptr);

    MemoryBuffer *mine = pool.allocateBuffer(1);
    MemoryBuffer *held = mine;
    MemoryBuffer *copy = mine;
    pool.deallocateBuffer(&mine);
    pool.deallocateBuffer(&copy);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(pool.allocateBuffer(1), held);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 1u);
}

TEST(MemoryBufferPool, HandleReadExceptionRethrowsTheMessage)
{
    ReadBufferException original(1, 2, 3);
    try {
        HandleReadException(&original, nullptr, __FILE__, __LINE__);
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), original.what());
    }
}
