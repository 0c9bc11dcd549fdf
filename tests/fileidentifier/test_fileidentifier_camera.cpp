#include "fileidentifiermodule.h"

#include "buffers/MemoryBufferPool.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/ucpnode.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

// Runs of the file-identifier camera, stage by stage, alone and in a session.
// Every test ends with as many live structure nodes as it started with.

namespace {

const QByteArray kTenBytes = QByteArrayLiteral("0123456789");
const QString kRefusal = QStringLiteral("issue 464 Object 'FileIdentifier' at 0 not checked before writing x1 0 id 60");

QStringList inputLines(const char *name, int size, int toEof)
{
    return {QStringLiteral("FileIdentifier_camera: %1").arg(QLatin1String(name)),
            QStringLiteral("sizeOfMB %1").arg(size), QStringLiteral("sizeToEof %1").arg(toEof),
            QStringLiteral("seek start")};
}

class FileIdentifierCamera : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VXCameraPluginIF *const plugin = fileIdentifierPlugin();
        ASSERT_NE(plugin, nullptr);
        m_camera.reset(plugin->getCamera());
        ASSERT_NE(m_camera, nullptr);
        m_analysis.AddFileAnalysis("docname", "doctype", "Not Applicable", 0, "");
    }
    void TearDown() override
    {
        m_camera.reset();
        EXPECT_EQ(countOfBlocksAllocated(), m_startBlocks) << "every node of the run is released";
    }

    BDDLStructBase_Root *start(const QByteArray &bytes, const char *name = "ten.bin", bool withRepository = true)
    {
        m_input = namedBuffer(bytes, name);
        BDDLStructBase_Root *root = nullptr;
        EXPECT_EQ(m_camera->initialiseCamera(&m_input, &m_output, withRepository ? &m_analysis : nullptr, &m_pool, &root), 0);
        EXPECT_NE(root, nullptr);
        return root;
    }

    const long m_startBlocks = countOfBlocksAllocated();
    MemoryBuffer m_input;
    MemoryBuffer m_output;
    MemoryBufferPool m_pool;
    RepositoryComponents::DocumentAnalysis m_analysis;
    std::unique_ptr<VXCameraIF> m_camera;
};

} // namespace

TEST_F(FileIdentifierCamera, WholeRunRecordsTheFileAndWritesOnlyACheckedRoot)
{
    LogCapture log;
    BDDLStructBase_Root *const root = start(kTenBytes);
    ASSERT_NE(root, nullptr);
    const context *const ctx = root->getContext();
    EXPECT_TRUE(ctx->m_inputBuffer == &m_input && ctx->m_outputBuffer == &m_output && ctx->m_analysis == &m_analysis
                && ctx->m_bufferPool == &m_pool);
    EXPECT_TRUE(rootData(root).isNull()) << "nothing is held before reading";

    EXPECT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(rootData(root), kTenBytes);
    EXPECT_EQ(m_input.tell(), 10u) << "the whole input was read";
    EXPECT_EQ(log.messages(), inputLines("ten.bin", 10, 10));

    log.clear();
    EXPECT_EQ(m_camera->runValidation(), 0);
    EXPECT_EQ(root->m_processStatus, 0u) << "an unsupported file is never marked fit to write";
    EXPECT_EQ(log.messages(), QStringList{QStringLiteral("VX_ERROR: 0 : 0 : \"File is not supported\"")});
    EXPECT_EQ(repositoryLines(m_analysis), QStringList{QStringLiteral("content 0 FileIdentifier x1 10")});

    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(m_output.sizeOfMB(), 0u) << "nothing is written for an unchecked root";
    EXPECT_EQ(repositoryLines(m_analysis), (QStringList{QStringLiteral("content 0 FileIdentifier x1 10"), kRefusal}));

    m_output.putRawBytes("head:", 5);
    root->m_processStatus = 0x84;
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(m_output.constData()), int(m_output.sizeOfMB())), "head:" + kTenBytes)
        << "a checked root writes exactly its bytes at the cursor";
    EXPECT_EQ(repositoryLines(m_analysis).size(), 2) << "and is not refused";

    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);
    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);
}

TEST_F(FileIdentifierCamera, EveryReadAndEveryInitialisationStartsAfresh)
{
    BDDLStructBase_Root *root = start(QByteArray(), "empty.fi");
    EXPECT_EQ(m_camera->readInputBuffer(), -2) << "an empty input";
    EXPECT_TRUE(rootData(root).isNull());
    EXPECT_EQ(m_camera->runValidation(), 0);
    root->m_processStatus = 0x84;
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(m_output.sizeOfMB(), 0u);

    root = start(kTenBytes);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    m_input.seek(4, MBSeekStart);
    EXPECT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(rootData(root), kTenBytes) << "reading starts at the input's beginning and replaces the data";
    EXPECT_EQ(root->size(), 10u);

    root = start(QByteArrayLiteral("xyz"), "second.fi");
    EXPECT_TRUE(rootData(root).isNull()) << "a new run, a new root";
}

TEST_F(FileIdentifierCamera, RunCameraOnlyLogsAndRewinds)
{
    start(kTenBytes, "whole.fi");
    m_input.seek(3, MBSeekStart);
    LogCapture log;
    EXPECT_EQ(m_camera->runCamera(), -1);
    EXPECT_EQ(m_input.tell(), 0u);
    EXPECT_EQ(log.messages(), inputLines("whole.fi", 10, 7));
    for (const CapturedLogLine &line : log.lines())
        EXPECT_TRUE(line.type == QtDebugMsg && line.category == QLatin1String("default") && !line.hasSourceLocation)
            << line.message.toStdString();
    EXPECT_EQ(m_output.sizeOfMB(), 0u);
    EXPECT_TRUE(repositoryLines(m_analysis).isEmpty());
}

TEST_F(FileIdentifierCamera, NothingWorksBeforeInitialisation)
{
    const std::string expected = "getUCPDocumentInterface called before FileIdentifier initialised";
    const auto document = [this] { delete m_camera->getUCPDocumentInterface(); };
    EXPECT_EQ(testcamera::thrownText(document), expected);
    for (const auto stage : {&VXCameraIF::readInputBuffer, &VXCameraIF::runValidation, &VXCameraIF::writeOutputBuffer,
                             &VXCameraIF::runCamera})
        EXPECT_EQ(((*m_camera).*stage)(), -1);

    BDDLStructBase_Root *root = start(kTenBytes);
    EXPECT_EQ(std::unique_ptr<UCPDocument>(m_camera->getUCPDocumentInterface())->getDocumentNode(),
              static_cast<UCPNode *>(root));
    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);
    EXPECT_EQ(testcamera::thrownText(document), expected);

    EXPECT_EQ(m_camera->initialiseCamera(nullptr, &m_output, &m_analysis, &m_pool, &root), -1);
    EXPECT_EQ(root, nullptr) << "the root pointer is cleared";
    EXPECT_EQ(m_camera->readInputBuffer(), -1);
}

TEST_F(FileIdentifierCamera, ValidationFailuresBecomeMinusOne)
{
    // Without a repository nothing can be recorded, not even the exception.
    start(kTenBytes, "norepo.fi", false);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    {
        LogCapture log;
        EXPECT_EQ(m_camera->runValidation(), -1);
        EXPECT_EQ(log.messages().value(log.messages().size() - 1),
                  QStringLiteral("cameras/camera.pool/fileidentifier/fileidentifier_camera 204 Validation threw exception"));
    }
    // An Excel root needs a session's camera pool for its ids.
    start(kTenBytes)->setFiletype(ft_xls);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(m_camera->runValidation(), -1);
    EXPECT_EQ(repositoryLines(m_analysis),
              (QStringList{QStringLiteral("content 241 FileIdentifier x1 10"),
                           QStringLiteral("issue 464 Validation Exception in: FileIdentifier x1 0 id 60")}));
}

TEST_F(FileIdentifierCamera, SchemaFactoryAndTreeOfOneRootClassWithOneByteArray)
{
    BDDLStructBase_Root *const root = start(QByteArray::fromHex("00ff7f"), "three");
    context *const ctx = root->getContext();
    const BDDSchema *const schema = ctx->m_getSchema();
    ASSERT_NE(schema, nullptr);
    EXPECT_TRUE(root->getBDDStructureDefinition() == schema->m_structures[0] && schema->m_structures[1] == nullptr);
    for (unsigned int classId : {0u, 26u, 28u, 0xffffffffu})
        EXPECT_EQ(ctx->m_objectFactory(classId), nullptr) << classId;

    // A root made by the factory and filled through the tree, as import
    // does, owns the vector made there.
    std::unique_ptr<BDDLStructBase> node(ctx->m_objectFactory(27));
    auto *const imported = dynamic_cast<BDDLStructBase_Root *>(node.get());
    ASSERT_NE(imported, nullptr);
    imported->setContext(ctx);
    imported->setRoot(imported);
    imported->getFirstChild()->setNodeValue(QVariant(QByteArrayLiteral("imported")));
    EXPECT_EQ(rootData(imported), QByteArrayLiteral("imported"));

    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    const std::unique_ptr<UCPDocument> document(m_camera->getUCPDocumentInterface());
    UCPNode *const top = document->getDocumentNode();
    EXPECT_TRUE(top->getNodeName() == QStringLiteral("FileIdentifier") && top->getNodeType() == UCPNode::DOCUMENT);
    EXPECT_EQ(top->getNodeAttribute(QStringLiteral("size")).toUInt(), 3u);
    UCPNode *const data = top->getFirstChild();
    ASSERT_TRUE(data != nullptr && data == top->getLastChild()) << "one item";
    EXPECT_TRUE(data->getNodeName() == QStringLiteral("data") && data->getNodeType() == UCPNode::VALUEARRAY);
    EXPECT_EQ(data->getNodeValue().toByteArray(), QByteArray::fromHex("00ff7f"));
}

TEST_F(FileIdentifierCamera, TokensCountFromOneInFirstSeenOrderAndRestartPerRun)
{
    context *ctx = start(kTenBytes)->getContext();
    const auto token = [&ctx](std::string name) { return ctx->m_stringToToken(&name); };
    EXPECT_EQ(token("alpha"), 1u);
    EXPECT_EQ(token("beta"), 2u);
    EXPECT_EQ(token("alpha"), 1u);
    EXPECT_EQ(ctx->m_stringToToken(nullptr), 0u);
    EXPECT_EQ(ctx->m_tokenToString(2), "beta");
    EXPECT_EQ(ctx->m_tokenToString(99), "");

    // A new run forgets the names; an id's name stays until it is taken over.
    ctx = start(kTenBytes)->getContext();
    EXPECT_EQ(token("gamma"), 1u);
    EXPECT_EQ(ctx->m_tokenToString(2), "beta");
    EXPECT_EQ(token("beta"), 2u);
}

// Through a session over a pool with this module and the xls test camera
// (message ids 1000 + key length, no analysis groups).
TEST(FileIdentifierSession, PushedAndStagedRuns)
{
    const long startBlocks = countOfBlocksAllocated();
    {
        const PluginDirectory dir{{QString::fromUtf8(VX_TEST_MODULE_XLS), QStringLiteral("xls.so")}};
        ASSERT_TRUE(dir.isValid() && dir.copied);
        Camera_Pool pool(dir.path());
        CameraBase session(&pool);

        MemoryBuffer input = namedBuffer(kTenBytes, "pushed.fi");
        MemoryBuffer output;
        {
            LogCapture log;
            EXPECT_EQ(session.pushCamera(&input, &output, ft_fileidentifier, nullptr), -1) << "the camera declines the job";
            EXPECT_EQ(log.messages(), inputLines("pushed.fi", 10, 10));
        }
        EXPECT_EQ(output.sizeOfMB(), 0u);
        EXPECT_EQ(input.tell(), 0u);

        const std::unique_ptr<VXCameraIF> camera(session.prepareCamera(&input, &output, ft_fileidentifier, nullptr));
        ASSERT_NE(camera, nullptr);
        const std::unique_ptr<UCPDocument> document(camera->getUCPDocumentInterface());
        auto *const root = dynamic_cast<BDDLStructBase_Root *>(document->getDocumentNode());
        ASSERT_NE(root, nullptr);
        // As an Excel document: group 268 (the Excel default, the test camera has
        // no groups), issue (2 << 24) | ((268 - 239) << 16) | (1000 + key length).
        root->setFiletype(ft_xls);
        ASSERT_EQ(camera->readInputBuffer(), 0);
        EXPECT_EQ(camera->runValidation(), 0);
        EXPECT_EQ(camera->writeOutputBuffer(), 0);
        EXPECT_EQ(output.sizeOfMB(), 0u);
        EXPECT_EQ(repositoryLines(session.analysis()),
                  (QStringList{QStringLiteral("content 241 FileIdentifier x1 10"),
                               QStringLiteral("issue 268 File is not supported x1 0 id 21d03fd"), kRefusal}));
        EXPECT_EQ(camera->deinitialiseCamera(), 0);
    }
    EXPECT_EQ(countOfBlocksAllocated(), startBlocks);
}
