// Zip archives from arbitrary bytes: open, list, build the folder map and
// read every member, in the copying, the in-place and the device form, with
// a small member limit so that inflating stays cheap.

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"

#include <QIODevice>
#include <QtGlobal>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

// A device that is not a buffer, so that the windowed device reading runs.
class BytesDevice : public QIODevice
{
public:
    BytesDevice(const uint8_t *data, size_t size) : m_data(data), m_size(qint64(size)) {}
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

void exercise(ZipUtils::Unzip &unzip)
{
    unzip.setMemberLimit(1 << 20);
    unzip.getEntriesMap();
    unzip.getDuplicateNames();
    for (const ZipUtils::Entry &entry : unzip.getEntryList()) {
        QByteArray data;
        unzip.getEntryData(entry.name(), data);
        unzip.getEntrySize(entry.name());
    }
    MemoryBuffer target;
    for (const QString &name : unzip.getFilenames())
        unzip.getEntryData(name, &target);
    unzip.close();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool installed = (qInstallMessageHandler(quiet), true);
    (void)installed;

    MemoryBuffer buffer(size, const_cast<unsigned char *>(data));
    {
        ZipUtils::Unzip unzip;
        if (unzip.open(&buffer))
            exercise(unzip);
    }
    {
        ZipUtils::Unzip unzip;
        if (unzip.openInPlace(&buffer))
            exercise(unzip);
    }
    {
        BytesDevice device(data, size);
        device.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        ZipUtils::Unzip unzip;
        if (unzip.open(&device))
            exercise(unzip);
    }
    return 0;
}
