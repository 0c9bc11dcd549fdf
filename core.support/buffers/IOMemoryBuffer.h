#pragma once

#include <QIODevice>

class MemoryBuffer;

// A QIODevice over a MemoryBuffer the device does not own. The device's
// position is the buffer's cursor; buffer exceptions never escape, they
// become the device's error string and a false or -1 result.
class IOMemoryBuffer : public QIODevice
{
public:
    explicit IOMemoryBuffer(MemoryBuffer *buffer);

    bool isSequential() const override;
    qint64 size() const override;
    qint64 bytesToWrite() const override;
    bool waitForReadyRead(int msecs) override;
    bool waitForBytesWritten(int msecs) override;
    bool open(OpenMode mode) override;
    bool seek(qint64 pos) override;
    bool reset() override;
    bool atEnd() const override;
    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    MemoryBuffer *m_memoryBuffer;
};
