#include "buffers/IOMemoryBuffer.h"

#include "buffers/MemoryBuffer.h"

IOMemoryBuffer::IOMemoryBuffer(MemoryBuffer *buffer) : QIODevice(), m_memoryBuffer(buffer) {}

bool IOMemoryBuffer::isSequential() const { return false; }

qint64 IOMemoryBuffer::size() const
{
    return static_cast<qint64>(m_memoryBuffer->sizeOfMB());
}

qint64 IOMemoryBuffer::bytesToWrite() const { return 0; }

bool IOMemoryBuffer::waitForReadyRead(int) { return true; }

bool IOMemoryBuffer::waitForBytesWritten(int) { return true; }

bool IOMemoryBuffer::open(OpenMode mode)
{
    if (mode & Truncate) {
        try {
            m_memoryBuffer->zeroMemoryBuffer();
            m_memoryBuffer->resizeBuffer(0, false);
        } catch (const std::runtime_error &) {
            setErrorString(QStringLiteral("Unable to truncate the MemoryBuffer"));
            return false;
        }
    }
    if (mode & Append) {
        try {
            m_memoryBuffer->seek(0, MBSeekEnd);
        } catch (const std::runtime_error &) {
            setErrorString(QStringLiteral("Unable to seek to the end of the MemoryBuffer"));
            return false;
        }
    }
    return QIODevice::open(mode);
}

bool IOMemoryBuffer::seek(qint64 pos)
{
    if (!isOpen()) {
        setErrorString(QStringLiteral("Device is not open"));
        return false;
    }
    if (pos < 0) {
        setErrorString(QStringLiteral("Unable to convert from qint64 to size_t"));
        return false;
    }
    try {
        const size_t target = static_cast<size_t>(pos);
        if (target > m_memoryBuffer->sizeOfMB())
            m_memoryBuffer->resizeBuffer(target, false);
        m_memoryBuffer->seek(target, MBSeekStart);
        QIODevice::seek(pos);
        return true;
    } catch (const std::runtime_error &) {
        setErrorString(QStringLiteral("Unable to seek to position %1").arg(pos));
        return false;
    }
}

bool IOMemoryBuffer::reset()
{
    if (!isOpen()) {
        setErrorString(QStringLiteral("Device is not open"));
        return false;
    }
    try {
        m_memoryBuffer->seek(0, MBSeekStart);
        return true;
    } catch (const std::runtime_error &) {
        setErrorString(QStringLiteral("Unable to reset MemoryBuffer"));
        return false;
    }
}

bool IOMemoryBuffer::atEnd() const
{
    try {
        if (m_memoryBuffer->sizeToEof() > 0)
            return false;
        return QIODevice::atEnd();
    } catch (const std::runtime_error &) {
        return true;
    }
}

qint64 IOMemoryBuffer::bytesAvailable() const
{
    try {
        return static_cast<qint64>(m_memoryBuffer->sizeToEof()) + QIODevice::bytesAvailable();
    } catch (const std::runtime_error &) {
        return 0;
    }
}

qint64 IOMemoryBuffer::readData(char *data, qint64 maxSize)
{
    if (!isOpen()) {
        setErrorString(QStringLiteral("Device is not open"));
        return -1;
    }
    if (!isReadable()) {
        setErrorString(QStringLiteral("Device does not have Read permissions"));
        return -1;
    }
    if (data == nullptr) {
        setErrorString(QStringLiteral("Data pointer is null"));
        return -1;
    }
    if (maxSize < 0) {
        setErrorString(QStringLiteral("Negative length specified"));
        return -1;
    }
    try {
        const size_t available = m_memoryBuffer->sizeToEof();
        if (available == 0) {
            setErrorString(QStringLiteral("No more data available"));
            return -1;
        }
        const size_t count = std::min(available, static_cast<size_t>(maxSize));
        m_memoryBuffer->getRawScalarArray(data, count, true, MBNativeOrder);
        return static_cast<qint64>(count);
    } catch (const std::runtime_error &e) {
        setErrorString(QString::fromUtf8(e.what()));
        return -1;
    }
}

qint64 IOMemoryBuffer::writeData(const char *data, qint64 size)
{
    if (!isOpen()) {
        setErrorString(QStringLiteral("MemoryBuffer: Device is not open"));
        return -1;
    }
    if (!isWritable()) {
        setErrorString(QStringLiteral("MemoryBuffer: Device does not have Write permissions"));
        return -1;
    }
    if (data == nullptr) {
        setErrorString(QStringLiteral("Data pointer is null"));
        return -1;
    }
    if (size < 0) {
        setErrorString(QStringLiteral("Negative length specified"));
        return -1;
    }
    if (size == 0)
        return 0;
    try {
        m_memoryBuffer->putRawBytes(data, static_cast<size_t>(size));
        return size;
    } catch (const std::runtime_error &e) {
        setErrorString(QString::fromUtf8(e.what()));
        return -1;
    }
}
