#include "buffers/MemoryBufferPool.h"

#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"

#include <memory>
#include <stdexcept>

MemoryBufferPool::MemoryBufferPool(size_t n) : m_handles(n)
{
    initializeMemoryBufferPool(n);
}

MemoryBufferPool::~MemoryBufferPool()
{
    for (MemoryBufferHandle &handle : m_handles)
        delete handle.buffer;
}

void MemoryBufferPool::initializeMemoryBufferPool(size_t n)
{
    if (m_handles.size() != n)
        throw std::runtime_error("Failed to initialize memory buffer pool correctly");
    for (size_t i = 0; i < n; ++i)
        m_handles[i] = MemoryBufferHandle{new MemoryBuffer, i, false};
}

MemoryBufferPool::MemoryBufferHandle MemoryBufferPool::retrieveMemoryBufferHandle(size_t size)
{
    // Prefer the first free buffer whose storage is already big enough; else
    // the first free one (it grows); else a new slot.
    MemoryBufferHandle *firstFree = nullptr;
    MemoryBufferHandle *chosen = nullptr;
    for (MemoryBufferHandle &handle : m_handles) {
        if (handle.inUse)
            continue;
        if (firstFree == nullptr)
            firstFree = &handle;
        if (handle.buffer->getCapacity() >= size) {
            chosen = &handle;
            break;
        }
    }
    if (chosen == nullptr)
        chosen = firstFree;
    if (chosen != nullptr) {
        chosen->buffer->resetMemoryBuffer(size);
        chosen->inUse = true;
        return *chosen;
    }
    auto buffer = std::make_unique<MemoryBuffer>(size);
    m_handles.push_back(MemoryBufferHandle{buffer.get(), m_handles.size(), true});
    buffer.release();
    return m_handles.back();
}

MemoryBuffer *MemoryBufferPool::allocateBuffer()
{
    return retrieveMemoryBufferHandle(0).buffer;
}

MemoryBuffer *MemoryBufferPool::allocateBuffer(size_t n)
{
    return retrieveMemoryBufferHandle(n).buffer;
}

MemoryBuffer *MemoryBufferPool::allocateBuffer(size_t n, unsigned char *data)
{
    MemoryBuffer *buffer = retrieveMemoryBufferHandle(n).buffer;
    buffer->putRawBytes(data, n);
    return buffer;
}

MemoryBuffer *MemoryBufferPool::allocateBuffer(QFile &file)
{
    const std::vector<unsigned char> bytes = FileIO::readFile(file);
    MemoryBuffer *buffer = retrieveMemoryBufferHandle(bytes.size()).buffer;
    buffer->putRawBytes(bytes.data(), bytes.size());
    return buffer;
}

void MemoryBufferPool::deallocateBuffer(MemoryBuffer **buffer)
{
    if (buffer == nullptr)
        return;
    for (MemoryBufferHandle &handle : m_handles) {
        if (handle.buffer == *buffer) {
            handle.inUse = false;
            *buffer = nullptr;
            return;
        }
    }
}

void HandleReadException(std::exception *e, BDDLStructBase *, const char *, int)
{
    throw std::runtime_error(e != nullptr ? e->what() : "unknown read failure");
}
