// Opens fuzzed bytes as a compound file, lists it with what is damaged,
// reads every stream, resolves names without regard to case and asks for
// the sub-type. Nothing may crash, hang or allocate without bound.

#include "buffers/MemoryBuffer.h"
#include "cameras/filetype.h"
#include "containers/pole.h"

#include <QtGlobal>

#include <cstddef>
#include <cstdint>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

void readEverything(POLE::Storage &storage)
{
    storage.getEntriesMap();
    storage.damage();
    uint64_t a, b, c, d, e, f;
    storage.GetStats(a, b, c, d, e, f);
    QString id;
    storage.getClassId(QStringLiteral("/"), id);
    for (const QString &path : storage.GetAllStreams(QStringLiteral("/"))) {
        MemoryBuffer out;
        storage.getEntryData(path, &out);
        POLE::Stream stream(&storage, path);
        stream.damage();
        stream.seek(stream.size() / 2);
        stream.getch();
        stream.getClassId();
        QString resolved;
        QStringList candidates;
        storage.resolvePath(path.toUpper(), resolved, &candidates);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static bool installed = (qInstallMessageHandler(quiet), true);
    (void)installed;
    MemoryBuffer buffer(size);
    if (size > 0)
        buffer.putRawBytes(data, size);
    buffer.seek(0, MBSeekStart);
    try {
        POLE::Storage storage(&buffer);
        if (storage.open())
            readEverything(storage);
    } catch (const char *) {
        // malformed directory names are reported this way
    }
    try {
        int root = 0;
        const char *reason = nullptr;
        FileType().determineCfbSubType(&buffer, &reason, reinterpret_cast<BDDLStructBase_Root *>(&root));
    } catch (const char *) {
    }
    return 0;
}
