// Zip archives from arbitrary bytes: open, list, build the folder map and
// read every member, in both the copying and the in-place form.

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"

#include <QtGlobal>

#include <cstdint>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

void exercise(ZipUtils::Unzip &unzip)
{
    unzip.getEntriesMap();
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
    return 0;
}
