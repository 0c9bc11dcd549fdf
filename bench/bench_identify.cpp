// Identification in memory over a mixed set of files, beside the system's
// general file-type library over the very same buffers; the signature
// checks over the heads of real files, beside the same library; and a zip
// archive's directory read through a file device or through a read-only
// mapping of the file.

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "fileidentification.h"
#include "signatures.h"

#include <benchmark/benchmark.h>
#include <magic.h>

#include <QBuffer>
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QString>
#include <QTemporaryFile>

#include <memory>
#include <vector>

namespace {

struct Sample
{
    const char *kind;
    MemoryBuffer buffer;
};

QByteArray randomBytes(int size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, '\0');
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}

QByteArray text(int lines)
{
    QByteArray bytes;
    for (int i = 0; i < lines; ++i)
        bytes += "Line " + QByteArray::number(i) + " of a plain text file, with nothing special in it.\n";
    return bytes;
}

QByteArray zipOf(const QList<QPair<QString, QByteArray>> &members)
{
    ZipUtils::Zip zip;
    zip.open(0);
    for (const auto &member : members)
        zip.addEntry(member.first, member.second);
    QByteArray bytes;
    zip.copyZipFile(bytes);
    return bytes;
}

// A package shaped like a small word-processing, spreadsheet or slide file.
QByteArray package(const QString &folder, int parts)
{
    QList<QPair<QString, QByteArray>> members = {
        {"[Content_Types].xml", text(8)}, {"_rels/.rels", text(3)}, {"docProps/core.xml", text(4)}};
    for (int i = 0; i < parts; ++i)
        members.append({QStringLiteral("%1/part%2.xml").arg(folder).arg(i), text(40)});
    members.append({folder + QStringLiteral("/_rels/rels.xml"), text(5)});
    return zipOf(members);
}

QByteArray tarOf(const QByteArray &magic, int dataSize)
{
    QByteArray header(512, '\0');
    header.replace(0, 8, "data.bin");
    header.replace(100, 8, "0000644", 8);
    header.replace(124, 12, QByteArray::number(dataSize, 8).rightJustified(11, '0') + '\0');
    header[156] = '0';
    header.replace(257, magic.size(), magic);
    header.replace(148, 8, "        ");
    unsigned sum = 0;
    for (const char c : header)
        sum += static_cast<unsigned char>(c);
    header.replace(148, 7, QByteArray::number(sum, 8).rightJustified(6, '0') + '\0');
    return header + randomBytes(dataSize, 9) + QByteArray(1024, '\0');
}

std::vector<Sample> &mix()
{
    static std::vector<Sample> samples = [] {
        QList<QPair<QString, QByteArray>> large;
        for (int i = 0; i < 64; ++i)
            large.append({QStringLiteral("data/blob%1.bin").arg(i), randomBytes(32 * 1024, i)});
        QByteArray gzip = randomBytes(256 * 1024, 5);
        gzip[0] = '\x1F';
        gzip[1] = '\x8B';
        gzip[2] = '\x08';

        const std::pair<const char *, QByteArray> made[] = {
            {"small zip", zipOf({{"readme.txt", text(10)}, {"src/main.c", text(30)}})},
            {"large zip", zipOf(large)},
            {"docx", package(QStringLiteral("word"), 12)},
            {"xlsx", package(QStringLiteral("xl"), 20)},
            {"pptx", package(QStringLiteral("ppt"), 30)},
            {"ustar", tarOf(QByteArray("ustar\0" "00", 8), 64 * 1024)},
            {"old tar", tarOf(QByteArray(), 16 * 1024)},
            {"gzip", gzip},
            {"text", text(2000)},
            {"random", randomBytes(1024 * 1024, 11)},
        };
        std::vector<Sample> all;
        for (const auto &[kind, bytes] : made)
            all.push_back({kind, MemoryBuffer(static_cast<size_t>(bytes.size()),
                                              reinterpret_cast<unsigned char *>(const_cast<char *>(bytes.constData())))});
        return all;
    }();
    return samples;
}

int64_t mixBytes()
{
    int64_t total = 0;
    for (const Sample &sample : mix())
        total += static_cast<int64_t>(sample.buffer.sizeOfMB());
    return total;
}

struct Magic
{
    Magic() : cookie(magic_open(MAGIC_NONE)) { magic_load(cookie, nullptr); }
    ~Magic() { magic_close(cookie); }
    magic_t cookie;
};

void BM_Dispatcher_Mix(benchmark::State &state)
{
    std::vector<Sample> &samples = mix();
    for (auto _ : state) {
        for (Sample &sample : samples) {
            const char *reason = nullptr;
            benchmark::DoNotOptimize(FileIdentifier::getFileTypeFromFileInMemory(&sample.buffer, &reason));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples.size()));
    state.SetBytesProcessed(state.iterations() * mixBytes());
}

void BM_Libmagic_Mix(benchmark::State &state)
{
    const Magic magic;
    std::vector<Sample> &samples = mix();
    for (auto _ : state) {
        for (const Sample &sample : samples)
            benchmark::DoNotOptimize(
                magic_buffer(magic.cookie, sample.buffer.constData(), sample.buffer.sizeOfMB()));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples.size()));
    state.SetBytesProcessed(state.iterations() * mixBytes());
}

// One kind at a time, to show where each side spends its time.
void BM_Dispatcher_Kind(benchmark::State &state)
{
    Sample &sample = mix().at(static_cast<size_t>(state.range(0)));
    state.SetLabel(sample.kind);
    for (auto _ : state)
        benchmark::DoNotOptimize(FileIdentifier::getFileTypeFromFileInMemory(&sample.buffer, nullptr));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(sample.buffer.sizeOfMB()));
}

void BM_Libmagic_Kind(benchmark::State &state)
{
    const Magic magic;
    const Sample &sample = mix().at(static_cast<size_t>(state.range(0)));
    state.SetLabel(sample.kind);
    for (auto _ : state)
        benchmark::DoNotOptimize(magic_buffer(magic.cookie, sample.buffer.constData(), sample.buffer.sizeOfMB()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(sample.buffer.sizeOfMB()));
}

// The first 64 KiB of every real file of tests/fixtures/identify, as
// vxcam's identification hands them to the plug-ins.
std::vector<QByteArray> &heads()
{
    static std::vector<QByteArray> all = [] {
        std::vector<QByteArray> found;
        const QDir dir(QStringLiteral(VX_FIXTURES_DIR "/identify"));
        for (const QString &name : dir.entryList(QDir::Files)) {
            QFile file(dir.filePath(name));
            if (!name.endsWith(QLatin1String(".sh")) && file.open(QIODevice::ReadOnly))
                found.push_back(file.read(64 * 1024));
        }
        return found;
    }();
    return all;
}

void BM_Signatures_RealHeads(benchmark::State &state)
{
    for (auto _ : state)
        for (const QByteArray &head : heads())
            benchmark::DoNotOptimize(Signatures::identify(reinterpret_cast<const unsigned char *>(head.constData()),
                                                          size_t(head.size()), nullptr));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(heads().size()));
}

void BM_Libmagic_RealHeads(benchmark::State &state)
{
    const Magic magic;
    for (auto _ : state)
        for (const QByteArray &head : heads())
            benchmark::DoNotOptimize(magic_buffer(magic.cookie, head.constData(), size_t(head.size())));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(heads().size()));
}

// A jar-like archive on disk: 20000 members of 1 KiB, stored.
QTemporaryFile &largeArchive()
{
    static QTemporaryFile file;
    if (!file.isOpen()) {
        QList<QPair<QString, QByteArray>> members;
        for (int i = 0; i < 20000; ++i)
            members.append({QStringLiteral("org/example/pkg%1/Class%2.class").arg(i % 40).arg(i),
                            randomBytes(1024, quint32(i))});
        file.open();
        file.write(zipOf(members));
        file.flush();
    }
    return file;
}

void BM_ZipDirectory_Device(benchmark::State &state)
{
    const QString path = largeArchive().fileName();
    for (auto _ : state) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        ZipUtils::Unzip unzip;
        unzip.open(&file);
        benchmark::DoNotOptimize(unzip.getDuplicateNames());
    }
}

void BM_ZipDirectory_Mapped(benchmark::State &state)
{
    const QString path = largeArchive().fileName();
    for (auto _ : state) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        uchar *mapped = file.map(0, file.size());
        QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), int(file.size()));
        QBuffer device(&bytes);
        ZipUtils::Unzip unzip;
        unzip.open(&device);
        benchmark::DoNotOptimize(unzip.getDuplicateNames());
        unzip.close();
        file.unmap(mapped);
    }
}

} // namespace

BENCHMARK(BM_Signatures_RealHeads)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Libmagic_RealHeads)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ZipDirectory_Device)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZipDirectory_Mapped)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Dispatcher_Mix)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Libmagic_Mix)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Dispatcher_Kind)->DenseRange(0, 9)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Libmagic_Kind)->DenseRange(0, 9)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
