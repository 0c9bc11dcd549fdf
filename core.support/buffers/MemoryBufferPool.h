#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <vector>

class BDDLStructBase;
class MemoryBuffer;
class QFile;

// Hands out MemoryBuffers and takes them back without destroying them, so a
// later request can reuse storage that is already large enough. The pool owns
// every buffer it ever made; callers hold plain pointers until they give a
// buffer back or the pool goes.
class MemoryBufferPool
{
public:
    struct MemoryBufferHandle
    {
        MemoryBuffer *buffer = nullptr;
        uint64_t index = 0;
        bool inUse = false;
    };

    MemoryBufferPool() = default;
    explicit MemoryBufferPool(size_t n);
    ~MemoryBufferPool();

    MemoryBufferPool(const MemoryBufferPool &) = delete;
    MemoryBufferPool &operator=(const MemoryBufferPool &) = delete;

    size_t sizeOfMemoryBufferPool() const noexcept { return m_handles.size(); }

    MemoryBufferHandle retrieveMemoryBufferHandle(size_t size);
    MemoryBuffer *allocateBuffer();
    MemoryBuffer *allocateBuffer(size_t n);
    MemoryBuffer *allocateBuffer(size_t n, unsigned char *data);
    MemoryBuffer *allocateBuffer(QFile &file);
    void deallocateBuffer(MemoryBuffer **buffer);

private:
    void initializeMemoryBufferPool(size_t n);

    std::vector<MemoryBufferHandle> m_handles;
};

// Rethrows a buffer failure met while reading a node as a plain runtime error.
[[noreturn]] void HandleReadException(std::exception *e, BDDLStructBase *node, const char *file, int line);
