#pragma once

// A read-only device over a fuzzer's input that is not a QBuffer, so that
// archives are read through a device, as files are.

#include <QIODevice>

#include <algorithm>
#include <cstdint>
#include <cstring>

class BytesDevice : public QIODevice
{
public:
    BytesDevice(const uint8_t *data, size_t size) : m_data(data), m_size(qint64(size))
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    qint64 size() const override { return m_size; }

protected:
    qint64 readData(char *data, qint64 max) override
    {
        const qint64 count = std::min(max, m_size - pos());
        std::memcpy(data, m_data + pos(), size_t(count));
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const uint8_t *m_data;
    qint64 m_size;
};
