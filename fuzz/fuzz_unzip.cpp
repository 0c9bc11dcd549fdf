// Zip archives from arbitrary bytes: open, list, build the folder map and
// read every member, in the copying, the in-place and the device form, with
// a small member limit so that inflating stays cheap.

#include "bytesdevice.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"

#include <QtGlobal>

#include <cstdint>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

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
        ZipUtils::Unzip unzip;
        if (unzip.open(&device))
            exercise(unzip);
    }
    return 0;
}
