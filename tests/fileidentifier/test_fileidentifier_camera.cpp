#include "fileidentifiermodule.h"

#include "buffers/MemoryBufferPool.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "fixtures/fixtures.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/ucpnode.h"
#include "ucp_engine/BDDLStructBase.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

// Runs of the file-identifier camera, stage by stage, alone and in a session.
// Every test ends with as many live structure nodes as it started with.

namespace {

const QByteArray kTenBytes = QByteArrayLiteral("0123456789");
const QString kRefusal = QStringLiteral("issue 464 Object 'FileIdentifier' at 0 not checked before writing|0|96");

QStringList inputLines(const char *name, int size, int toEof)
{
    return {QStringLiteral("FileIdentifier_camera: %1").arg(QLatin1String(name)),
            QStringLiteral("sizeOfMB %1").arg(size), QStringLiteral("sizeToEof %1").arg(toEof),
            QStringLiteral("seek start")};
}

// The bytes of the root's one item, "data", as the structure tree shows them.
QByteArray rootData(BDDLStructBase_Root *root)
{
    return root->getFirstChild()->getNodeValue().toByteArray();
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
        m_input = bufferOf(bytes);
        m_input.m_name = name;
        BDDLStructBase_Root *root = nullptr;
        RepositoryComponents::DocumentAnalysis *const analysis = withRepository ? &m_analysis : nullptr;
        EXPECT_EQ(m_camera->initialiseCamera(&m_input, &m_output, analysis, &m_pool, &root), 0);
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
    BDDLStructBase_Root *const root = start(kTenBytes);
    ASSERT_NE(root, nullptr);
    m_input.seek(3, MBSeekStart);
    LogCapture log;
    EXPECT_EQ(m_camera->runCamera(), -1) << "the camera only logs and rewinds";
    EXPECT_EQ(m_input.tell(), 0u);
    EXPECT_EQ(log.messages(), inputLines("ten.bin", 10, 7));

    log.clear();
    m_input.seek(4, MBSeekStart);
    EXPECT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(rootData(root), kTenBytes) << "reading starts at the input's beginning";
    EXPECT_EQ(m_input.tell(), 10u) << "the whole input was read";
    EXPECT_EQ(log.messages(), inputLines("ten.bin", 10, 6));

    log.clear();
    EXPECT_EQ(m_camera->runValidation(), 0);
    EXPECT_EQ(root->m_processStatus, 0u) << "an unsupported file is never marked fit to write";
    EXPECT_EQ(log.messages(), QStringList{QStringLiteral("VX_ERROR: 0 : 0 : \"File is not supported\"")});
    EXPECT_EQ(testcamera::recordsOf(m_analysis), QStringList{QStringLiteral("content 0 FileIdentifier|10")});

    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(m_output.sizeOfMB(), 0u) << "nothing is written for an unchecked root";
    EXPECT_EQ(testcamera::recordsOf(m_analysis),
              (QStringList{QStringLiteral("content 0 FileIdentifier|10"), kRefusal}));

    m_output.putRawBytes("head:", 5);
    root->m_processStatus = 0x84;
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(bytesOf(m_output), "head:" + kTenBytes) << "a checked root writes exactly its bytes at the cursor";
    EXPECT_EQ(testcamera::recordsOf(m_analysis).size(), 2) << "and is not refused";
    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);
    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);

    BDDLStructBase_Root *const empty = start(QByteArray(), "empty.fi");
    EXPECT_EQ(m_camera->readInputBuffer(), -2) << "an empty input";
    EXPECT_TRUE(rootData(empty).isEmpty()) << "a new run, a new root";
}

TEST_F(FileIdentifierCamera, NothingWorksOutsideARun)
{
    const std::string expected = "getUCPDocumentInterface called before FileIdentifier initialised";
    const auto document = [this] { delete m_camera->getUCPDocumentInterface(); };
    EXPECT_EQ(testcamera::thrownText(document), expected);
    for (const auto stage : {&VXCameraIF::readInputBuffer, &VXCameraIF::runValidation, &VXCameraIF::writeOutputBuffer,
                             &VXCameraIF::runCamera})
        EXPECT_EQ(((*m_camera).*stage)(), -1);

    BDDLStructBase_Root *root = start(kTenBytes);
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
    EXPECT_EQ(m_camera->runValidation(), -1);
    // An Excel root needs a session's camera pool for its ids.
    start(kTenBytes)->setFiletype(ft_xls);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(m_camera->runValidation(), -1);
    EXPECT_EQ(testcamera::recordsOf(m_analysis),
              (QStringList{QStringLiteral("content 241 FileIdentifier|10"),
                           QStringLiteral("issue 464 Validation Exception in: FileIdentifier|0|96")}));
}

TEST_F(FileIdentifierCamera, FactoryTokensAndTreeOfOneRootWithOneByteArray)
{
    context *const ctx = start(kTenBytes)->getContext();
    for (unsigned int classId : {0u, 26u, 28u, 0xffffffffu})
        EXPECT_EQ(ctx->m_objectFactory(classId), nullptr) << classId;
    // A root made by the factory and filled through the tree, as import does, owns the vector made there.
    std::unique_ptr<BDDLStructBase> node(ctx->m_objectFactory(27));
    auto *const imported = dynamic_cast<BDDLStructBase_Root *>(node.get());
    ASSERT_NE(imported, nullptr);
    imported->setContext(ctx);
    imported->setRoot(imported);
    UCPNode *const data = imported->getFirstChild();
    EXPECT_TRUE(data == imported->getLastChild() && data->getNodeName() == QStringLiteral("data")
                && data->getNodeType() == UCPNode::VALUEARRAY) << "one item, a byte array named data";
    data->setNodeValue(QVariant(QByteArrayLiteral("imported")));
    EXPECT_EQ(rootData(imported), QByteArrayLiteral("imported"));

    std::string alpha = "alpha", beta = "beta";
    EXPECT_TRUE(ctx->m_stringToToken(&alpha) == 1 && ctx->m_stringToToken(&beta) == 2
                && ctx->m_stringToToken(&alpha) == 1)
        << "tokens count from one in first-seen order";
    EXPECT_EQ(ctx->m_tokenToString(2), "beta");
}

// Through a session over a pool with this module and the xls test camera
// (message ids 1000 + key length, no analysis groups).
TEST(FileIdentifierSession, StagedRunTakesItsIdsFromTheSessionsPool)
{
    const PluginDirectory dir{{QString::fromUtf8(VX_TEST_MODULE_XLS), QStringLiteral("xls.so")}};
    ASSERT_TRUE(dir.isValid() && dir.copied);
    Camera_Pool pool(dir.path());
    CameraBase session(&pool);
    MemoryBuffer input = bufferOf(kTenBytes), output;
    EXPECT_EQ(session.pushCamera(&input, &output, ft_fileidentifier, nullptr), -1) << "the camera declines the job";
    const std::unique_ptr<VXCameraIF> camera(session.prepareCamera(&input, &output, ft_fileidentifier, nullptr));
    ASSERT_NE(camera, nullptr);
    const std::unique_ptr<UCPDocument> document(camera->getUCPDocumentInterface());
    // As an Excel document: group 268 (the Excel default, the test camera has
    // no groups), issue (2 << 24) | ((268 - 239) << 16) | (1000 + key length).
    static_cast<BDDLStructBase_Root *>(document->getDocumentNode())->setFiletype(ft_xls);
    ASSERT_EQ(camera->readInputBuffer(), 0);
    EXPECT_EQ(camera->runValidation(), 0);
    EXPECT_EQ(testcamera::recordsOf(session.analysis()),
              (QStringList{QStringLiteral("content 241 FileIdentifier|10"),
                           QStringLiteral("issue 268 File is not supported|0|35455997")}));
    EXPECT_EQ(camera->deinitialiseCamera(), 0);
}
