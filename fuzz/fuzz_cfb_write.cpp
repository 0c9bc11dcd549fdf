// Opens fuzzed bytes read-write as a compound file, makes a few changes the
// input chooses (add, delete, resize, write), flushes, and reads the result
// back. Nothing may crash, hang or allocate without bound.
//
// Input: one byte with the number of changes (1 to 8), four bytes per change,
// then the file.

#include "buffers/MemoryBuffer.h"
#include "containers/pole.h"

#include <QStringList>
#include <QtGlobal>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

struct Change
{
    uint8_t kind, target, a, b;
};

QString pathFor(const QStringList &streams, uint8_t target)
{
    if (target < 0x80 && !streams.isEmpty())
        return streams.at(target % streams.size());
    // New names, some of them below a new or existing storage.
    static const char *const names[] = {"/n0", "/n1", "/dir/n2", "/dir/sub/n3", "/WordDocument", "/\001CompObj"};
    return QString::fromLatin1(names[target % 6]);
}

void apply(POLE::Storage &storage, const Change &c)
{
    const QStringList streams = storage.GetAllStreams(QStringLiteral("/"));
    const QString path = pathFor(streams, c.target);
    // Sizes up to about 16 KB: both sides of the 4096-byte threshold.
    const uint64_t size = (uint64_t(c.a) << 6) | (c.b & 0x3F);
    switch (c.kind % 4) {
    case 0: {
        MemoryBuffer data(size);
        for (uint64_t i = 0; i < size; ++i)
            data.putUInt8(uint8_t(i * 7 + c.b));
        storage.addEntry(path, &data);
        break;
    }
    case 1:
        storage.deleteByName(c.b & 1 ? path.left(path.lastIndexOf(QLatin1Char('/')) + 1) : path);
        break;
    case 2: {
        POLE::Stream stream(&storage, path);
        stream.setSize((long long)size);
        break;
    }
    case 3: {
        POLE::Stream stream(&storage, path, true, 0);
        std::vector<unsigned char> bytes(size % 5000, c.b);
        stream.seek(uint64_t(c.a) * 61);
        stream.write(bytes.data(), bytes.size());
        break;
    }
    }
}

void readBack(MemoryBuffer &buffer)
{
    buffer.seek(0, MBSeekStart);
    POLE::Storage storage(&buffer);
    if (!storage.open())
        return;
    for (const QString &path : storage.GetAllStreams(QStringLiteral("/"))) {
        MemoryBuffer out;
        storage.getEntryData(path, &out);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static bool installed = (qInstallMessageHandler(quiet), true);
    (void)installed;
    if (size < 1)
        return 0;
    const size_t count = data[0] % 8 + 1;
    if (size < 1 + count * 4)
        return 0;
    std::vector<Change> changes;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t *p = data + 1 + i * 4;
        changes.push_back(Change{p[0], p[1], p[2], p[3]});
    }
    const size_t offset = 1 + count * 4;
    MemoryBuffer buffer(size - offset);
    if (size > offset)
        buffer.putRawBytes(data + offset, size - offset);
    buffer.seek(0, MBSeekStart);

    try {
        POLE::Storage storage(&buffer);
        // An empty input makes a new file to change.
        const bool opened = size == offset ? storage.open(true, true) : storage.open(true, false);
        if (!opened)
            return 0;
        for (const Change &c : changes)
            apply(storage, c);
        storage.flush();
    } catch (const char *) {
        // directory names that are malformed or too long to write
    }
    try {
        readBack(buffer);
    } catch (const char *) {
    }
    return 0;
}
