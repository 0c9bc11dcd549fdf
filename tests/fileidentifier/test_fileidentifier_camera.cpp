#include "fileidentifiermodule.h"

#include "buffers/MemoryBufferPool.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "ucp/ucpnode.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

// Runs of the file-identifier camera, stage by stage, on buffers of the
// test's own: what each stage answers, what the root holds, what the
// repository records and what reaches the output. Every test ends with as
// many live structure nodes as it started with.

namespace {

const QByteArray kTenBytes = QByteArrayLiteral("0123456789");
const QString kRefusal = QStringLiteral("issue 464 Object 'FileIdentifier' at 0 not checked before writing x1 0 id 60");

QStringList inputLines(const char *name, int size, int toEof)
{
    return {QStringLiteral("FileIdentifier_camera: %1").arg(QLatin1String(name)),
            QStringLiteral("sizeOfMB %1").arg(size), QStringLiteral("sizeToEof %1").arg(toEof),
            QStringLiteral("seek start")};
}

// What `action` throws as a C string; empty when it throws nothing.
template <typename Action>
std::string thrownText(Action &&action)
{
    try {
        action();
    } catch (const char *text) {
        return text;
    }
    return std::string();
}

class FileIdentifierCameraRun : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_startBlocks = countOfBlocksAllocated();
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

    // Initialises the camera over the input and the test's output.
    BDDLStructBase_Root *start(const QByteArray &bytes, const char *name = "ten.bin")
    {
        m_input = namedBuffer(bytes, name);
        BDDLStructBase_Root *root = nullptr;
        EXPECT_EQ(m_camera->initialiseCamera(&m_input, &m_output, &m_analysis, &m_pool, &root), 0);
        EXPECT_NE(root, nullptr);
        return root;
    }

    QByteArray output() const
    {
        return QByteArray(reinterpret_cast<const char *>(m_output.constData()), static_cast<int>(m_output.sizeOfMB()));
    }

    long m_startBlocks = 0;
    MemoryBuffer m_input;
    MemoryBuffer m_output;
    MemoryBufferPool m_pool;
    RepositoryComponents::DocumentAnalysis m_analysis;
    std::unique_ptr<VXCameraIF> m_camera;
};

} // namespace

TEST_F(FileIdentifierCameraRun, WholeRunRecordsTheGroupAndIssueAndRefusesToWrite)
{
    LogCapture log;
    BDDLStructBase_Root *const root = start(kTenBytes);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->m_classId, 27);
    EXPECT_STREQ(root->get_desc_string(), "FileIdentifier");
    EXPECT_EQ(root->getContext()->m_inputBuffer, &m_input);
    EXPECT_EQ(root->getContext()->m_outputBuffer, &m_output);
    EXPECT_EQ(root->getContext()->m_analysis, &m_analysis);
    EXPECT_EQ(root->getContext()->m_bufferPool, &m_pool);
    EXPECT_FALSE(rootHasDataVector(root)) << "nothing is held before reading";

    EXPECT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(rootData(root), kTenBytes);
    EXPECT_EQ(root->size(), 10u);
    EXPECT_EQ(root->position(), 0u);
    EXPECT_EQ(root->m_readFlags & 1, 0);
    EXPECT_EQ(m_input.tell(), 10u) << "the whole input was read";
    EXPECT_EQ(log.messages(), inputLines("ten.bin", 10, 10));

    log.clear();
    EXPECT_EQ(m_camera->runValidation(), 0);
    EXPECT_EQ(root->m_cameraStatus, 0u);
    EXPECT_EQ(root->m_processStatus, 0u) << "an unsupported file is never marked fit to write";
    EXPECT_EQ(log.messages(), QStringList{QStringLiteral("VX_ERROR: 0 : 0 : \"File is not supported\"")})
        << "a root without a file type has validation group 0: the issue is logged only";
    EXPECT_EQ(repositoryLines(m_analysis), QStringList{QStringLiteral("content 0 FileIdentifier x1 10")});

    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(m_output.sizeOfMB(), 0u) << "nothing is written for an unchecked root";
    EXPECT_EQ(repositoryLines(m_analysis),
              (QStringList{QStringLiteral("content 0 FileIdentifier x1 10"), kRefusal}));

    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);
    EXPECT_EQ(m_camera->deinitialiseCamera(), 0) << "a second call finds nothing to release";
}

TEST_F(FileIdentifierCameraRun, TheIssueGoesToTheValidationGroupOfTheRootsFileType)
{
    // A PDF root's group is its statistics id, 16, without asking a camera
    // pool; the PDF camera has no issue ids.
    BDDLStructBase_Root *const root = start(kTenBytes);
    root->setFiletype(ft_pdf);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(m_camera->runValidation(), 0);
    EXPECT_EQ(repositoryLines(m_analysis), (QStringList{QStringLiteral("content 16 FileIdentifier x1 10"),
                                                        QStringLiteral("issue 16 File is not supported x1 0 id 0")}));
}

TEST_F(FileIdentifierCameraRun, ACheckedRootWritesExactlyItsBytesAtTheCursor)
{
    BDDLStructBase_Root *const root = start(kTenBytes);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    ASSERT_EQ(m_camera->runValidation(), 0);
    const QByteArray head = QByteArrayLiteral("head:");
    m_output.putRawBytes(head.constData(), static_cast<size_t>(head.size()));

    root->m_processStatus = 0x84;
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(output(), head + kTenBytes);
    EXPECT_EQ(m_output.tell(), m_output.sizeOfMB()) << "the cursor moves past what was written";
    EXPECT_EQ(repositoryLines(m_analysis), QStringList{QStringLiteral("content 0 FileIdentifier x1 10")})
        << "no refusal for a checked root";

    root->m_processStatus = 5;
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(output(), head + kTenBytes) << "status 5 refuses silently";
    EXPECT_EQ(repositoryLines(m_analysis).size(), 1);
}

TEST_F(FileIdentifierCameraRun, AnEmptyInputReadsNothingAndWritesNothing)
{
    BDDLStructBase_Root *const root = start(QByteArray(), "empty.fi");
    EXPECT_EQ(m_camera->readInputBuffer(), -2);
    EXPECT_EQ(root->m_readFlags & 1, 1);
    EXPECT_FALSE(rootHasDataVector(root));
    EXPECT_EQ(root->size(), 0u);
    EXPECT_EQ(m_camera->runValidation(), 0);
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(m_output.sizeOfMB(), 0u);

    root->m_processStatus = 0x84;
    EXPECT_EQ(m_camera->writeOutputBuffer(), 0);
    EXPECT_EQ(m_output.sizeOfMB(), 0u) << "no data, nothing to write";
}

TEST_F(FileIdentifierCameraRun, EveryReadAndEveryInitialisationStartsAfresh)
{
    BDDLStructBase_Root *const root = start(kTenBytes);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    m_input.seek(4, MBSeekStart);
    EXPECT_EQ(m_camera->readInputBuffer(), 0) << "reading always starts at the input's beginning";
    EXPECT_EQ(rootData(root), kTenBytes);
    EXPECT_EQ(root->size(), 10u);

    BDDLStructBase_Root *const second = start(QByteArrayLiteral("xyz"), "second.fi");
    EXPECT_FALSE(rootHasDataVector(second)) << "a new run, a new root";
    EXPECT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(rootData(second), QByteArrayLiteral("xyz"));
}

TEST_F(FileIdentifierCameraRun, RunCameraOnlyLogsAndRewinds)
{
    start(kTenBytes, "whole.fi");
    m_input.seek(3, MBSeekStart);
    LogCapture log;
    EXPECT_EQ(m_camera->runCamera(), -1);
    EXPECT_EQ(m_input.tell(), 0u);
    EXPECT_EQ(log.messages(), inputLines("whole.fi", 10, 7));
    for (const CapturedLogLine &line : log.lines()) {
        EXPECT_EQ(line.type, QtDebugMsg);
        EXPECT_EQ(line.category, QStringLiteral("default"));
        EXPECT_FALSE(line.hasSourceLocation);
    }
    EXPECT_EQ(m_output.sizeOfMB(), 0u);
    EXPECT_TRUE(repositoryLines(m_analysis).isEmpty());
}

TEST_F(FileIdentifierCameraRun, DocumentInterfaceOnlyWhileInitialised)
{
    const std::string expected = "getUCPDocumentInterface called before FileIdentifier initialised";
    EXPECT_EQ(thrownText([this] { delete m_camera->getUCPDocumentInterface(); }), expected);

    BDDLStructBase_Root *const root = start(kTenBytes);
    const std::unique_ptr<UCPDocument> document(m_camera->getUCPDocumentInterface());
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(document->getDocumentNode(), static_cast<UCPNode *>(root));
    EXPECT_TRUE(document->setFiletype(ft_fileidentifier));
    EXPECT_EQ(root->getFiletype(), ft_fileidentifier);

    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);
    EXPECT_EQ(thrownText([this] { delete m_camera->getUCPDocumentInterface(); }), expected);
    EXPECT_EQ(document->getDocumentNode(), nullptr) << "the document outlives the root it stood over";
}

TEST_F(FileIdentifierCameraRun, StagesBeforeInitialisationFailWithoutTouchingAnything)
{
    EXPECT_EQ(m_camera->readInputBuffer(), -1);
    EXPECT_EQ(m_camera->runValidation(), -1);
    EXPECT_EQ(m_camera->writeOutputBuffer(), -1);
    EXPECT_EQ(m_camera->runCamera(), -1);
    EXPECT_EQ(m_camera->deinitialiseCamera(), 0);

    BDDLStructBase_Root *root = reinterpret_cast<BDDLStructBase_Root *>(&m_input);
    EXPECT_EQ(m_camera->initialiseCamera(nullptr, &m_output, &m_analysis, &m_pool, &root), -1);
    EXPECT_EQ(root, nullptr) << "the root pointer is cleared";
    EXPECT_EQ(m_camera->readInputBuffer(), -1);
}

TEST_F(FileIdentifierCameraRun, ValidationFailuresBecomeMinusOne)
{
    // Without a repository nothing can be recorded, not even the exception.
    m_input = namedBuffer(kTenBytes, "norepo.fi");
    BDDLStructBase_Root *root = nullptr;
    ASSERT_EQ(m_camera->initialiseCamera(&m_input, &m_output, nullptr, &m_pool, &root), 0);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    {
        LogCapture log;
        EXPECT_EQ(m_camera->runValidation(), -1);
        EXPECT_EQ(log.messages().last(),
                  QStringLiteral("cameras/camera.pool/fileidentifier/fileidentifier_camera 204 Validation threw exception"));
    }

    // An Excel root needs the session's camera pool for its ids; without a
    // session the derivation fails and the exception is recorded.
    root = start(kTenBytes);
    root->setFiletype(ft_xls);
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    EXPECT_EQ(m_camera->runValidation(), -1);
    EXPECT_EQ(repositoryLines(m_analysis),
              (QStringList{QStringLiteral("content 241 FileIdentifier x1 10"),
                           QStringLiteral("issue 464 Validation Exception in: FileIdentifier x1 0 id 60")}));
}

// --- through a session -----------------------------------------------------------

class FileIdentifierSession : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_startBlocks = countOfBlocksAllocated();
        // The xls test camera answers for Excel files: message ids 1000 + key
        // length, no analysis groups.
        m_dir = std::make_unique<PluginDirectory>(
            QStringList{QString::fromUtf8(VX_TEST_MODULE_XLS), QStringLiteral("xls.so")});
        ASSERT_TRUE(m_dir->isValid());
        m_pool = std::make_unique<Camera_Pool>(m_dir->path());
        ASSERT_EQ(m_pool->getCameraNameFromFileType(ft_fileidentifier), QStringLiteral("libfileidentifier.so"));
        m_session = std::make_unique<CameraBase>(m_pool.get());
    }
    void TearDown() override
    {
        m_session.reset();
        EXPECT_EQ(countOfBlocksAllocated(), m_startBlocks);
    }

    long m_startBlocks = 0;
    std::unique_ptr<PluginDirectory> m_dir;
    std::unique_ptr<Camera_Pool> m_pool;
    std::unique_ptr<CameraBase> m_session;
};

TEST_F(FileIdentifierSession, PushCameraRunsTheWholeJobWhichThisCameraDeclines)
{
    MemoryBuffer input = namedBuffer(kTenBytes, "pushed.fi");
    MemoryBuffer output;
    LogCapture log;
    EXPECT_EQ(m_session->pushCamera(&input, &output, ft_fileidentifier, nullptr), -1);
    EXPECT_EQ(log.messages(), inputLines("pushed.fi", 10, 10));
    EXPECT_EQ(output.sizeOfMB(), 0u);
    EXPECT_EQ(input.tell(), 0u);
}

TEST_F(FileIdentifierSession, StagedRunTakesItsIdsFromThePool)
{
    MemoryBuffer input = namedBuffer(kTenBytes, "staged.xls");
    MemoryBuffer output;
    const std::unique_ptr<VXCameraIF> camera(m_session->prepareCamera(&input, &output, ft_fileidentifier, nullptr));
    ASSERT_NE(camera, nullptr);
    const std::unique_ptr<UCPDocument> document(camera->getUCPDocumentInterface());
    auto *const root = dynamic_cast<BDDLStructBase_Root *>(document->getDocumentNode());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getFiletype(), ft_fileidentifier) << "set by the session";
    EXPECT_EQ(root->getContext()->m_cameraSession, m_session.get());
    EXPECT_EQ(root->getContext()->m_camera, camera.get());

    // As an Excel document: group 268 (the Excel default, the test camera has
    // no groups), issue (2 << 24) | ((268 - 239) << 16) | 1021.
    root->setFiletype(ft_xls);
    ASSERT_EQ(camera->readInputBuffer(), 0);
    EXPECT_EQ(camera->runValidation(), 0);
    EXPECT_EQ(camera->writeOutputBuffer(), 0);
    EXPECT_EQ(output.sizeOfMB(), 0u);
    EXPECT_EQ(repositoryLines(m_session->analysis()),
              (QStringList{QStringLiteral("content 241 FileIdentifier x1 10"),
                           QStringLiteral("issue 268 File is not supported x1 0 id 21d03fd"), kRefusal}));
    EXPECT_EQ(camera->deinitialiseCamera(), 0);
}
