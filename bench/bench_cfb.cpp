// Compound files: reading every stream of a 64 MiB file (in memory, and in
// place from a file on disk through a QFile or a mapping) and writing 64 MiB
// across 1000 streams of mixed sizes, beside libgsf doing the same work in
// memory in the same run (when the build found libgsf).

#include "buffers/MemoryBuffer.h"
#include "containers/pole.h"

#include <QBuffer>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QTemporaryFile>
#include <QtGlobal>
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#ifdef VX_HAVE_GSF
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-utils.h>
#endif

namespace {

constexpr size_t kStreams = 1000;
constexpr size_t kStorages = 10;
constexpr size_t kTotal = 64u << 20;

struct Workload
{
    std::vector<size_t> sizes;      // one per stream
    std::vector<unsigned char> data; // the bytes every stream starts from
};

// Every fourth stream is small (under 4096 bytes, kept in small blocks); the
// others share the rest of the 64 MiB in sizes that vary by a factor of three.
const Workload &workload()
{
    static const Workload w = [] {
        Workload w;
        size_t smallTotal = 0;
        std::vector<size_t> weights;
        for (size_t i = 0; i < kStreams; ++i) {
            if (i % 4 == 0) {
                w.sizes.push_back(100 + (i * 37) % 3900);
                smallTotal += w.sizes.back();
            } else {
                w.sizes.push_back(0);
                weights.push_back(1 + i % 3);
            }
        }
        size_t weightSum = 0;
        for (size_t x : weights)
            weightSum += x;
        const size_t bigTotal = kTotal - smallTotal;
        size_t given = 0, k = 0, lastBig = 0;
        for (size_t i = 0; i < kStreams; ++i)
            if (i % 4 != 0) {
                w.sizes[i] = bigTotal / weightSum * weights[k++];
                given += w.sizes[i];
                lastBig = i;
            }
        w.sizes[lastBig] += bigTotal - given;
        size_t largest = 0;
        for (size_t s : w.sizes)
            largest = std::max(largest, s);
        w.data.resize(largest);
        uint32_t x = 12345;
        for (unsigned char &c : w.data) {
            x = x * 1103515245u + 12345u;
            c = static_cast<unsigned char>(x >> 16);
        }
        return w;
    }();
    return w;
}

QString streamName(size_t i) { return QStringLiteral("/d%1/s%2").arg(i % kStorages).arg(i); }

void writeWithPole(MemoryBuffer &buffer)
{
    const Workload &w = workload();
    POLE::Storage storage(&buffer);
    storage.open(true, true);
    for (size_t i = 0; i < kStreams; ++i) {
        POLE::Stream stream(&storage, streamName(i), true, 0);
        stream.write(w.data.data(), w.sizes[i]);
    }
    storage.flush();
    storage.close();
}

// Into a new buffer each time: most of the time goes to the system handing
// out and faulting in fresh pages while the buffer doubles.
void BM_PoleWrite(benchmark::State &state)
{
    for (auto _ : state) {
        MemoryBuffer file;
        writeWithPole(file);
        benchmark::DoNotOptimize(file.constData());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

// Into one buffer used again, as buffers from a MemoryBufferPool are:
// creating a file truncates the buffer but keeps its memory.
void BM_PoleWriteReusedBuffer(benchmark::State &state)
{
    MemoryBuffer file;
    for (auto _ : state) {
        writeWithPole(file);
        benchmark::DoNotOptimize(file.constData());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

// addEntry copies in 1000-byte pieces and flushes after every stream.
void BM_PoleAddEntry(benchmark::State &state)
{
    const Workload &w = workload();
    std::vector<MemoryBuffer> sources;
    for (size_t i = 0; i < kStreams; ++i) {
        sources.emplace_back();
        sources.back().putRawBytes(w.data.data(), w.sizes[i]);
    }
    for (auto _ : state) {
        MemoryBuffer buffer;
        POLE::Storage storage(&buffer);
        storage.open(true, true);
        for (size_t i = 0; i < kStreams; ++i)
            storage.addEntry(streamName(i), &sources[i]);
        benchmark::DoNotOptimize(buffer.constData());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

size_t readAllWithPole(MemoryBuffer &file)
{
    POLE::Storage storage(&file);
    storage.open();
    size_t total = 0;
    MemoryBuffer out;
    for (const QString &path : storage.GetAllStreams(QStringLiteral("/"))) {
        storage.getEntryData(path, &out);
        total += out.sizeOfMB();
    }
    return total;
}

// Stream::read in chunks of 64 KiB, as vxcam cfb cat does.
size_t readAllStreams(POLE::Storage &storage)
{
    storage.open();
    size_t total = 0;
    std::vector<unsigned char> chunk(64 * 1024);
    for (const QString &path : storage.GetAllStreams(QStringLiteral("/"))) {
        POLE::Stream stream(&storage, path);
        while (const auto n = stream.read(chunk.data(), chunk.size()))
            total += n;
    }
    return total;
}

size_t readAllWithPoleStreams(MemoryBuffer &file)
{
    POLE::Storage storage(&file);
    return readAllStreams(storage);
}

MemoryBuffer &fileToRead();

void BM_PoleReadEntryData(benchmark::State &state)
{
    MemoryBuffer &file = fileToRead();
    for (auto _ : state)
        if (readAllWithPole(file) != kTotal)
            state.SkipWithError("short read");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

void BM_PoleReadStreams(benchmark::State &state)
{
    MemoryBuffer &file = fileToRead();
    for (auto _ : state)
        if (readAllWithPoleStreams(file) != kTotal)
            state.SkipWithError("short read");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

// The file on disk (in the page cache after the first run), read in place
// two ways: seek and read on the QFile, or a read-only mapping of it behind
// a QBuffer.
const QString &fileOnDisk()
{
    static QTemporaryFile file;
    static const QString path = [] {
        file.open();
        const MemoryBuffer &bytes = fileToRead();
        file.write(reinterpret_cast<const char *>(bytes.constData()), qint64(bytes.sizeOfMB()));
        file.flush();
        return file.fileName();
    }();
    return path;
}

void BM_PoleReadFile(benchmark::State &state)
{
    for (auto _ : state) {
        QFile file(fileOnDisk());
        POLE::Storage storage(&file);
        if (readAllStreams(storage) != kTotal)
            state.SkipWithError("short read");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

void BM_PoleReadMapped(benchmark::State &state)
{
    for (auto _ : state) {
        QFile file(fileOnDisk());
        file.open(QIODevice::ReadOnly);
        const uchar *mapped = file.map(0, file.size());
        QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), int(file.size()));
        QBuffer device(&bytes);
        device.open(QIODevice::ReadOnly);
        POLE::Storage storage(&device);
        if (readAllStreams(storage) != kTotal)
            state.SkipWithError("short read");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

#ifdef VX_HAVE_GSF

std::vector<unsigned char> writeWithGsf()
{
    const Workload &w = workload();
    GsfOutput *memory = gsf_output_memory_new();
    GsfOutfile *ole = gsf_outfile_msole_new(memory);
    std::vector<GsfOutput *> dirs;
    for (size_t d = 0; d < kStorages; ++d)
        dirs.push_back(gsf_outfile_new_child(ole, QStringLiteral("d%1").arg(d).toLatin1().constData(), TRUE));
    for (size_t i = 0; i < kStreams; ++i) {
        GsfOutput *s = gsf_outfile_new_child(GSF_OUTFILE(dirs[i % kStorages]),
                                             QStringLiteral("s%1").arg(i).toLatin1().constData(), FALSE);
        gsf_output_write(s, w.sizes[i], w.data.data());
        gsf_output_close(s);
        g_object_unref(s);
    }
    for (GsfOutput *d : dirs) {
        gsf_output_close(d);
        g_object_unref(d);
    }
    gsf_output_close(GSF_OUTPUT(ole));
    g_object_unref(ole);
    const guint8 *bytes = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(memory));
    std::vector<unsigned char> file(bytes, bytes + gsf_output_size(memory));
    g_object_unref(memory);
    return file;
}

size_t readGsfTree(GsfInfile *dir, std::vector<guint8> &chunk)
{
    size_t total = 0;
    const int n = gsf_infile_num_children(dir);
    for (int i = 0; i < n; ++i) {
        GsfInput *child = gsf_infile_child_by_index(dir, i);
        if (GSF_IS_INFILE(child) && gsf_infile_num_children(GSF_INFILE(child)) >= 0) {
            total += readGsfTree(GSF_INFILE(child), chunk);
        } else {
            gsf_off_t left = gsf_input_size(child);
            while (left > 0) {
                const size_t n = size_t(std::min<gsf_off_t>(left, gsf_off_t(chunk.size())));
                if (!gsf_input_read(child, n, chunk.data()))
                    break;
                total += n;
                left -= gsf_off_t(n);
            }
        }
        g_object_unref(child);
    }
    return total;
}

size_t readAllWithGsf(const MemoryBuffer &file)
{
    GsfInput *input = gsf_input_memory_new(file.constData(), gsf_off_t(file.sizeOfMB()), FALSE);
    GError *error = nullptr;
    GsfInfile *ole = gsf_infile_msole_new(input, &error);
    size_t total = 0;
    if (ole) {
        std::vector<guint8> chunk(64 * 1024);
        total = readGsfTree(ole, chunk);
        g_object_unref(ole);
    }
    if (error)
        g_error_free(error);
    g_object_unref(input);
    return total;
}

void BM_GsfWrite(benchmark::State &state)
{
    for (auto _ : state) {
        std::vector<unsigned char> file = writeWithGsf();
        benchmark::DoNotOptimize(file.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

void BM_GsfRead(benchmark::State &state)
{
    MemoryBuffer &file = fileToRead();
    for (auto _ : state)
        if (readAllWithGsf(file) != kTotal)
            state.SkipWithError("short read");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kTotal));
}

// The file both readers read: written by libgsf, the independent writer.
MemoryBuffer &fileToRead()
{
    static MemoryBuffer file = [] {
        gsf_init();
        const std::vector<unsigned char> bytes = writeWithGsf();
        MemoryBuffer b;
        b.putRawBytes(bytes.data(), bytes.size());
        b.seek(0, MBSeekStart);
        return b;
    }();
    return file;
}

#else

MemoryBuffer &fileToRead()
{
    static MemoryBuffer file = [] {
        MemoryBuffer b;
        writeWithPole(b);
        return b;
    }();
    return file;
}

#endif

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

} // namespace

BENCHMARK(BM_PoleReadEntryData)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_PoleReadStreams)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_PoleReadFile)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_PoleReadMapped)->Unit(benchmark::kMillisecond)->MinTime(2);
#ifdef VX_HAVE_GSF
BENCHMARK(BM_GsfRead)->Unit(benchmark::kMillisecond)->MinTime(2);
#endif
BENCHMARK(BM_PoleWrite)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_PoleWriteReusedBuffer)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_PoleAddEntry)->Unit(benchmark::kMillisecond)->MinTime(2);
#ifdef VX_HAVE_GSF
BENCHMARK(BM_GsfWrite)->Unit(benchmark::kMillisecond)->MinTime(2);
#endif

int main(int argc, char **argv)
{
    qInstallMessageHandler(quiet); // addEntry and getEntryData log every call
#ifdef VX_HAVE_GSF
    gsf_init();
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
