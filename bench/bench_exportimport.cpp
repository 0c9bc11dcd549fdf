// Export and import of 1 000 small files (1 to 4 KiB of text each) through
// the file-identifier camera loaded from the build's plug-in folder, in both
// serial forms, as vxcam does them: one export-mode session over all files
// ending in the archive, then one import-mode session per stream over the
// archive opened once. Counters give files per second.

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "containers/ZipUtils.h"
#include "ucp/exporttreedata.h"

#include <QByteArray>
#include <QtGlobal>
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

constexpr int kFiles = 1000;

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

Camera_Pool &pool()
{
    static Camera_Pool made((qInstallMessageHandler(quiet), QStringLiteral(VX_PLUGIN_DIR)));
    return made;
}

const std::vector<QByteArray> &files()
{
    static const std::vector<QByteArray> made = [] {
        std::vector<QByteArray> all;
        for (int i = 0; i < kFiles; ++i) {
            QByteArray text;
            while (text.size() < 1024 + (i * 37) % 3072)
                text += "line " + QByteArray::number(text.size()) + " of file " + QByteArray::number(i) + "\n";
            all.push_back(text);
        }
        return all;
    }();
    return made;
}

QByteArray exportAll(SerializationFormat format)
{
    CameraBase session(&pool());
    session.setSerialFormat(format);
    session.registryEntry(CameraBase::regInput).setFilePath("files");
    session.registryEntry(CameraBase::regExport).setFilePath("archive");
    MemoryBuffer *const input = session.inputBuffer();
    int index = 0;
    for (const QByteArray &file : files()) {
        input->resizeBuffer(0, false);
        input->putRawBytes(file.constData(), size_t(file.size()));
        input->seek(0);
        input->m_name = "file" + std::to_string(index++) + ".txt";
        const std::unique_ptr<VXCameraIF> camera(
            session.prepareCamera(input, session.outputBuffer(), ft_fileidentifier, nullptr));
        session.finalPush(camera.get(), input, session.outputBuffer(), ft_fileidentifier);
        camera->deinitialiseCamera();
    }
    session.exporter().closeTreeData();
    return QByteArray(reinterpret_cast<const char *>(session.exportBuffer()->constData()),
                      int(session.exportBuffer()->sizeOfMB()));
}

int importAll(const QByteArray &archiveBytes, SerializationFormat format)
{
    MemoryBuffer archive(size_t(archiveBytes.size()),
                         reinterpret_cast<unsigned char *>(const_cast<char *>(archiveBytes.constData())));
    ZipUtils::Unzip unzip;
    unzip.openInPlace(&archive);
    int imported = 0;
    for (const QString &entry : unzip.getFilenames()) {
        CameraBase session(&pool());
        session.setSerialFormat(format);
        session.registryEntry(CameraBase::regImport).setFilePath("archive");
        session.registryEntry(CameraBase::regOutput).setFilePath("output");
        session.useCamera(pool().getPluginFromFileType(ft_fileidentifier));
        MemoryBuffer *const input = session.inputBuffer();
        unzip.getEntryData(entry, input);
        input->seek(0);
        imported += session.finalPush(session.camera(), input, session.outputBuffer(), ft_unknown) >= 0 ? 1 : 0;
    }
    return imported;
}

SerializationFormat formatOf(benchmark::State &state)
{
    state.SetLabel(state.range(0) == 0 ? "xml" : "sisl");
    return state.range(0) == 0 ? sfXML : sfSISL;
}

void BM_Export(benchmark::State &state)
{
    const SerializationFormat format = formatOf(state);
    files();
    size_t bytes = 0;
    for (auto _ : state)
        bytes = size_t(exportAll(format).size());
    state.counters["archive_bytes"] = double(bytes);
    state.counters["files_per_s"] = benchmark::Counter(kFiles, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Import(benchmark::State &state)
{
    const SerializationFormat format = formatOf(state);
    const QByteArray archive = exportAll(format);
    int imported = 0;
    for (auto _ : state)
        imported = importAll(archive, format);
    if (imported != kFiles)
        state.SkipWithError("not every stream imported");
    state.counters["files_per_s"] = benchmark::Counter(kFiles, benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(BM_Export)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Import)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
