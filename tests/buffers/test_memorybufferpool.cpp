#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using Bytes = std::vector<unsigned char>;

TEST(MemoryBufferPool, SlotsAreHandedOutInOrder)
{
    MemoryBufferPool pool(2);
    const auto first = pool.retrieveMemoryBufferHandle(10);
    EXPECT_TRUE(first.index == 0 && first.inUse && first.buffer->getBuffer() == Bytes(10, 0));
    pool.allocateBuffer();
    EXPECT_EQ(pool.retrieveMemoryBufferHandle(1).index, 2u) << "a full pool adds a slot";
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 3u);
}

TEST(MemoryBufferPool, ReuseIsByCapacityAndReturnedBuffersComeBackLikeNew)
{
    MemoryBufferPool pool;
    MemoryBuffer *small = pool.allocateBuffer(8), *large = pool.allocateBuffer(64);
    large->putUInt32BE(0xdeadbeef);
    large->byteOrder(MBBigEndian);
    for (MemoryBuffer *b : {small, large})
        pool.deallocateBuffer(&b);

    MemoryBuffer *again = pool.allocateBuffer(32);
    EXPECT_EQ(again, large) << "the free buffer that is big enough";
    EXPECT_EQ(again->getBuffer(), Bytes(32, 0));
    EXPECT_TRUE(again->tell() == 0 && again->byteOrder() == MBNativeOrder);
    pool.deallocateBuffer(&again);
    EXPECT_EQ(again, nullptr);

    MemoryBuffer *grown = pool.allocateBuffer(128);
    EXPECT_EQ(grown, small) << "none is big enough: the earliest free one grows";
    EXPECT_GE(grown->getCapacity(), 128u);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 2u);
}

TEST(MemoryBufferPool, FilledBuffersLeaveTheCursorAtTheEnd)
{
    QTemporaryDir dir;
    MemoryBufferPool pool;
    QFile missing(dir.filePath(QStringLiteral("absent"))), present(dir.filePath(QStringLiteral("present")));
    EXPECT_THROW(pool.allocateBuffer(missing), IOException);
    EXPECT_EQ(pool.sizeOfMemoryBufferPool(), 0u) << "a failed read takes no slot";
    FileIO::writeToFile(present, {5, 6, 7});
    unsigned char data[] = {1, 2, 3, 4};
    for (MemoryBuffer *b : {pool.allocateBuffer(present), pool.allocateBuffer(4, data)})
        EXPECT_EQ(b->tell(), b->sizeOfMB());
    EXPECT_EQ(pool.allocateBuffer(present)->getBuffer(), (Bytes{5, 6, 7}));
}

TEST(MemoryBufferPool, UnknownAndRepeatedReturnsAreHarmless)
{
    MemoryBufferPool pool;
    MemoryBuffer stranger;
    MemoryBuffer *foreign = &stranger, *mine = pool.allocateBuffer(1), *held = mine, *copy = mine;
    pool.deallocateBuffer(&foreign);
    EXPECT_EQ(foreign, &stranger);
    pool.deallocateBuffer(nullptr);
    pool.deallocateBuffer(&mine);
    pool.deallocateBuffer(&copy);
    EXPECT_EQ(pool.allocateBuffer(1), held);
    EXPECT_NE(pool.allocateBuffer(1), held) << "a second return does not free it twice";
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
