// Sessions in export and import mode, end to end through modules loaded by
// the camera pool: the tree camera of tests/plugins (every value kind, and an
// output of its own), the file-identifier module, and an image camera that
// recognises its images. Trees, analyses and outputs of imported streams are
// compared with direct runs of the same inputs.

#include "cameras/camerabase.h"

#include "analysis/reportxml.h"
#include "containers/ZipUtils.h"
#include "fixtures/fixtures.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/exporttreedata.h"
#include "ucp/importtreedata.h"
#include "ucp/serialsession.h"
#include "ucp_engine/BDDValidationFuncs.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using serialsession::describeTree;

namespace {

struct Input
{
    const char *name;
    QByteArray bytes;
};

const Input kInputs[] = {
    {"plain.vxt", "VXTREE\nhello\nworld\n"},
    {"macro.vxt", "VXTREE\nintro\nthe macro line\n\n"},
    {"bytes.vxt", QByteArray("VXTREE\n\x01\x02\xff\xfe \"\\\n", 16)},
};

// What one direct run of a session gives.
struct Direct
{
    QStringList tree;
    QByteArray output;
    QByteArray report;
};

class ExportImport : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        const std::pair<const char *, const char *> modules[] = {
            {VX_FILEIDENTIFIER_MODULE, "libfileidentifier.so"},
            {VX_TEST_MODULE_TREE, "libvxtree.so"},
            {VX_TEST_MODULE_IMAGE_KNOWN, "libimage.so"}};
        for (const auto &[from, to] : modules)
            ASSERT_TRUE(QFile::copy(QString::fromUtf8(from), m_dir.filePath(QString::fromUtf8(to))));
        m_pool = std::make_unique<Camera_Pool>(m_dir.path());
    }

    // A session with the entries whose numbers the text lists.
    std::unique_ptr<CameraBase> session(const char *entries, SerializationFormat format = sfSISL)
    {
        auto made = std::make_unique<CameraBase>(m_pool.get());
        for (const char *entry = entries; *entry; ++entry)
            made->registryEntry(size_t(*entry - '0')).setFilePath("x");
        made->setSerialFormat(format);
        return made;
    }

    static MemoryBuffer *buffer(CameraBase &session, const QByteArray &bytes, const char *name = "")
    {
        MemoryBuffer *const made = session.bufferPool().allocateBuffer();
        made->putRawBytes(bytes.constData(), size_t(bytes.size()));
        made->seek(0);
        made->m_name = name;
        return made;
    }

    // Prepares the type's camera over the input and pushes it through the session.
    static VX2_RetStatus push(CameraBase &session, MemoryBuffer *input, MemoryBuffer *output, ft_t type = ft_doc)
    {
        const std::unique_ptr<VXCameraIF> camera(session.prepareCamera(input, output, type, nullptr));
        if (!camera)
            return VX2_Fail;
        const VX2_RetStatus status = session.finalPush(camera.get(), input, output, type);
        camera->deinitialiseCamera();
        return status;
    }

    Direct direct(const Input &input)
    {
        const std::unique_ptr<CameraBase> run = session("12");
        MemoryBuffer *const output = buffer(*run, QByteArray());
        const std::unique_ptr<VXCameraIF> camera(
            run->prepareCamera(buffer(*run, input.bytes, input.name), output, ft_doc, nullptr));
        EXPECT_FALSE(isVX2_RetStatusFail(camera->runCamera())) << input.name;
        Direct result{describeTree(camera.get()), bytesOf(*output), QByteArray()};
        camera->deinitialiseCamera();
        run->dumpAnalysisToBuffer();
        result.report = bytesOf(*run->analysisBuffer());
        return result;
    }

    // The archive of an export session over the inputs, and its entry names.
    QByteArray exportArchive(SerializationFormat format, QStringList *entries = nullptr)
    {
        const std::unique_ptr<CameraBase> run = session("16", format);
        for (const Input &input : kInputs)
            EXPECT_EQ(push(*run, buffer(*run, input.bytes, input.name), buffer(*run, QByteArray())), VX2_Success);
        if (entries)
            *entries = run->exporter().manifest().values();
        EXPECT_TRUE(run->exporter().closeTreeData());
        return bytesOf(*run->exportBuffer());
    }

    // An import session over the archive, the session's camera attached.
    std::unique_ptr<CameraBase> importSession(const QByteArray &archive, SerializationFormat format)
    {
        std::unique_ptr<CameraBase> run = session("52", format);
        MemoryBuffer *const held = run->importBuffer();
        held->putRawBytes(archive.constData(), size_t(archive.size()));
        EXPECT_TRUE(run->importer().openTreeData(held));
        EXPECT_TRUE(run->useCamera(m_pool->getPluginFromFileType(ft_fileidentifier)));
        return run;
    }

    // Imports one entry as a host does: by naming it on the input.
    static VX2_RetStatus importEntry(CameraBase &run, const QString &entry, MemoryBuffer *output)
    {
        MemoryBuffer *const input = buffer(run, QByteArray());
        input->m_streamName = entry.toStdString();
        return run.finalPush(run.camera(), input, output, ft_unknown);
    }

    QTemporaryDir m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
};

} // namespace

TEST_F(ExportImport, EntriesAreNamedByRunStreamAndCounter)
{
    QStringList entries;
    const QByteArray xml = exportArchive(sfXML, &entries);
    const QRegularExpression name(QStringLiteral("^Id_(\\d+)_(.+)_(\\d)\\.xml$"));
    QStringList streams;
    QSet<QString> runIds;
    for (const QString &entry : entries) {
        const QRegularExpressionMatch match = name.match(entry);
        ASSERT_TRUE(match.hasMatch()) << entry.toStdString();
        runIds << match.captured(1);
        streams << match.captured(3) + QLatin1Char(' ') + match.captured(2);
    }
    streams.sort();
    EXPECT_EQ(streams, (QStringList{"0 plain.vxt", "1 macro.vxt", "2 bytes.vxt"}));
    EXPECT_EQ(runIds.size(), 1);
    MemoryBuffer archive = bufferOf(xml);
    ZipUtils::Unzip unzip;
    ASSERT_TRUE(unzip.open(&archive));
    QStringList stored = unzip.getFilenames();
    stored.sort();
    entries.sort();
    EXPECT_EQ(stored, entries) << "one entry per stream, nothing else";

    // Unnamed inputs, the SISL form, streams that are not stored, an empty close.
    const std::unique_ptr<CameraBase> run = session("16");
    EXPECT_EQ(push(*run, buffer(*run, kInputs[0].bytes), buffer(*run, QByteArray())), VX2_Success);
    EXPECT_EQ(push(*run, buffer(*run, "not a tree"), buffer(*run, QByteArray())), VX2_Fail) << "unreadable";
    EXPECT_EQ(push(*run, buffer(*run, "any bytes", "any"), buffer(*run, QByteArray()), ft_fileidentifier),
              VX2_Success);
    EXPECT_EQ(run->exporter().streamCounter(), 2);
    const QString unnamed = run->exporter().manifest().value(QStringLiteral("unknown_streamname"));
    EXPECT_TRUE(unnamed.endsWith(QLatin1String("_unknown_streamname_0.sisl"))) << unnamed.toStdString();
    EXPECT_TRUE(QString::fromStdString(run->exportText()).endsWith(QLatin1String("_any_1.sisl")))
        << "the reference an image would leave";
    const std::unique_ptr<CameraBase> empty = session("16");
    ASSERT_TRUE(empty->exporter().closeTreeData());
    EXPECT_EQ(bytesOf(*empty->exportBuffer()).left(4), QByteArray("PK\x05\x06")) << "an archive of no entries";
}

TEST_F(ExportImport, ImportedStreamsGiveTheDirectRunsTreesAnalysesAndOutputs)
{
    std::map<QString, Direct> directRuns;
    for (const Input &input : kInputs)
        directRuns[QString::fromLatin1(input.name)] = direct(input);
    for (const SerializationFormat format : {sfXML, sfSISL}) {
        QStringList entries;
        const QByteArray archive = exportArchive(format, &entries);
        for (const QString &entry : entries) {
            const QString stream = entry.section(QLatin1Char('_'), 2, -2);
            const Direct &expected = directRuns.at(stream);

            const std::unique_ptr<CameraBase> trees = importSession(archive, format);
            QString streamName;
            const std::unique_ptr<VXCameraIF> imported(
                trees->importer().import_stream(entry, streamName, buffer(*trees, QByteArray())));
            ASSERT_NE(imported, nullptr) << entry.toStdString();
            EXPECT_EQ(streamName, stream);
            EXPECT_EQ(describeTree(imported.get()), expected.tree) << entry.toStdString();
            imported->deinitialiseCamera();

            const std::unique_ptr<CameraBase> run = importSession(archive, format);
            MemoryBuffer *const output = buffer(*run, QByteArray());
            EXPECT_FALSE(isVX2_RetStatusFail(importEntry(*run, entry, output))) << entry.toStdString();
            EXPECT_EQ(bytesOf(*output), expected.output) << entry.toStdString();
            ASSERT_TRUE(run->dumpAnalysisToBuffer());
            const std::string report = bufferText(*run->analysisBuffer());
            EXPECT_EQ(xmlValues(report, QString()), QStringList()) << "well-formed";
            EXPECT_FALSE(xmlValues(report, QStringLiteral("vx:TechnicalDescription")).isEmpty());
            EXPECT_EQ(QByteArray::fromStdString(report), expected.report) << entry.toStdString();
        }
    }
}

TEST_F(ExportImport, AStreamThatDoesNotImportFailsAloneWithOneLine)
{
    const QByteArray good = "{__struct_0: !FileStream {__meta: !__ {streamname: !__ \"s\",cameraname: !__ "
                            "\"libvxtree.so\"},__children: !__ \"1-1\"},__struct_1: !DOCUMENT {__meta: !__ {name: !__ "
                            "\"TestRoot\",estrc: !__ \"1\"}}}";
    // Record n holds record n + 1, 2000 deep.
    QByteArray deep = "{__struct_0: !FileStream {__children: !__ \"1-1\",__meta: !__ {cameraname: !__ \"libvxtree.so\"}}";
    for (int n = 1; n < 2000; ++n) {
        const QByteArray next = QByteArray::number(n + 1);
        deep += ",__struct_" + QByteArray::number(n) + ": !STRUCT {"
                + (n + 1 < 2000 ? "__children: !__ \"" + next + "-" + next + "\"" : QByteArray()) + "}";
    }
    const QByteArray archive = zipOf({
        {"Id_1_good_0.sisl", good},
        {"Id_1_deep_2.sisl", deep + "}"},
        {"Id_1_good_4.sisl", good},
    });

    const std::unique_ptr<CameraBase> run = importSession(archive, sfSISL);
    const struct { const char *entry; VX2_RetStatus status; const char *line; } cases[] = {
        {"Id_1_good_0.sisl", VX2_Success, nullptr},
        {"Id_1_deep_2.sisl", VX2_Fail, " deserialisation failed Records nested more than 512 deep"},
        {"Id_1_missing_5.sisl", VX2_Fail, nullptr},
        {"Id_1_good_4.sisl", VX2_Success, nullptr},
    };
    for (const auto &c : cases) {
        LogCapture log;
        MemoryBuffer *const output = buffer(*run, QByteArray());
        EXPECT_EQ(importEntry(*run, QString::fromLatin1(c.entry), output), c.status) << c.entry;
        if (c.line != nullptr) {
            ASSERT_EQ(log.messages().size(), 1) << c.entry;
            EXPECT_TRUE(log.messages().front().startsWith(QLatin1String(c.line))) << log.messages().front().toStdString();
        }
        if (c.status == VX2_Success) {
            EXPECT_EQ(bytesOf(*output), QByteArray("VXTREE\n")) << c.entry;
        }
    }
    // A member whose compressed bytes are damaged reads as missing.
    QByteArray damaged = archive;
    damaged[50] = char(damaged[50] ^ 0x5a);
    const std::unique_ptr<CameraBase> broken = importSession(damaged, sfSISL);
    EXPECT_EQ(importEntry(*broken, QStringLiteral("Id_1_good_0.sisl"), buffer(*broken, QByteArray())), VX2_Fail);
    EXPECT_EQ(importEntry(*broken, QStringLiteral("Id_1_good_4.sisl"), buffer(*broken, QByteArray())), VX2_Success);
}

// An embedded image leaves its document as an entry of its own, the document
// keeping a reference to it; on import the reference brings the image back
// through its camera.
TEST_F(ExportImport, EmbeddedImagesTravelAsEntriesOfTheirOwn)
{
    const QByteArray original = "XLS image bytes, long enough to hold the entry's name in their place";
    std::vector<unsigned char> image(original.begin(), original.end());
    testcamera::TestLeaf imageNode;

    const std::unique_ptr<CameraBase> exporting = session("16");
    testcamera::TestRun document;
    document.root->setFiletype(ft_xls);
    document.root->initialBDDLStructBase_Root(document.root.get(), exporting.get(), nullptr, nullptr, 0);
    EXPECT_EQ(imageCameraGateway(&image, ft_png, &imageNode, 0, document.root.get(), 1), cameraStatus_Success);
    const QString entry = exporting->exporter().manifest().value(QStringLiteral("unknown_streamname"));
    EXPECT_TRUE(entry.endsWith(QLatin1String("_unknown_streamname_0.png"))) << entry.toStdString();
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(image.data())), entry.toUtf8()) << "the reference, zero-filled";
    ASSERT_TRUE(exporting->exporter().closeTreeData());
    const QByteArray archive = bytesOf(*exporting->exportBuffer());

    const std::unique_ptr<CameraBase> importing = importSession(archive, sfSISL);
    testcamera::TestRun imported;
    imported.root->setFiletype(ft_xls);
    imported.root->initialBDDLStructBase_Root(imported.root.get(), importing.get(), nullptr, nullptr, 0);
    EXPECT_EQ(imageCameraGateway(&image, ft_png, &imageNode, 0, imported.root.get(), 1), cameraStatus_Success);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(image.data())), QByteArray("clean"));
    EXPECT_TRUE(testcamera::recordsOf(importing->analysis()).join(QLatin1Char('\n')).contains(
        QStringLiteral("image=") + QString::fromLatin1(original)))
        << "the image camera read the image stored in the archive";
}
