#include "fileidentifier_camera.h"

#include "fileidentification.h"
#include "fileidentifier_factory.h"
#include "fileidentifier_schema.h"
#include "fileidentifier_stringtokens.h"

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "cameras/cameraplugin_export.h"
#include "ucp/bddldocument.h"
#include "ucp_engine/BDDValidationFuncs.h"
#include "ucp_engine/bddfilereadwritecommon.h"
#include "ucp_engine/id_determination.h"
#include "ucp_engine/ucpLogging.h"

#include <QDebug>
#include <QStringList>

#include <exception>

namespace FileIdentifier {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

QDebug debugLine()
{
    return QMessageLogger(nullptr, 0, nullptr, "default").debug();
}

// The one extension list of the module, shared by the plug-in and its
// cameras; built on first use under the language's guarded initialisation.
const QStringList &acceptedExtensions()
{
    static const QStringList extensions{QStringLiteral("fi")};
    return extensions;
}

} // namespace

ft_t fileTypeFromAcceptedExtension(const char *extension)
{
    if (extension == nullptr)
        return ft_unknown;
    const QString lowered = QString::fromLatin1(extension).toLower();
    return acceptedExtensions().contains(lowered) ? ft_fileidentifier : ft_unknown;
}

uint32_t fileidentifier_getErrMsgID(char *)
{
    return 0;
}

uint32_t fileidentifier_getSanitisationMsgID(char *)
{
    return 0;
}

uint32_t fileidentifier_getAnalysisGroupID(unsigned int)
{
    return 0;
}

int fileidentifier_initialiseIDLookups()
{
    return 0;
}

// ---------------------------------------------------------------------------
// FileIdentifier_camera
// ---------------------------------------------------------------------------

FileIdentifier_camera::FileIdentifier_camera() = default;

FileIdentifier_camera::~FileIdentifier_camera()
{
    deinitialiseCamera();
}

VX2_RetStatus FileIdentifier_camera::initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                                      RepositoryComponents::DocumentAnalysis *analysis,
                                                      MemoryBufferPool *pool, BDDLStructBase_Root **root)
{
    if (root != nullptr)
        *root = nullptr;
    deinitialiseCamera();
    // Every stage reads the input; without one there is no run to prepare.
    if (input == nullptr)
        return VX2_Fail;
    std::unique_ptr<FileIdentifier_class> made(
        static_cast<FileIdentifier_class *>(FileIdentifier_ObjectCreationFactory(FileIdentifierClassId)));
    if (made == nullptr)
        return VX2_Fail;

    auto ctx = std::make_unique<context>();
    ctx->m_inputBuffer = input;
    ctx->m_outputBuffer = output;
    ctx->m_objectFactory = FileIdentifier_ObjectCreationFactory;
    ctx->m_getSchema = getFileIdentifierSchema;
    ctx->m_stringToToken = FileIdentifier_TokenMap_getClassEnumFromStringIdentifier;
    ctx->m_tokenToString = FileIdentifier_TokenMap_getStringClassFromEnumIdentifier;
    ctx->m_analysis = analysis;
    ctx->m_bufferPool = pool;
    made->setContext(ctx.get());
    // The root is its own root from the start, so that a refusal to write it
    // can be reported even when nothing was read.
    made->setRoot(made.get());

    m_root = std::move(made);
    m_context = std::move(ctx);
    if (root != nullptr)
        *root = m_root.get();

    FileIdentifier_TokenMap_Reset();
    if (analysis != nullptr)
        analysis->VXAnalyseSchemaErrorGroup(static_cast<unsigned long>(getAnalysisStatsID(m_root.get())),
                                            input->m_name, input->sizeOfMB());
    BDDL_ResetDepthOfReading(m_context.get());
    return VX2_Success;
}

void FileIdentifier_camera::logInput() const
{
    const MemoryBuffer *const input = m_context->m_inputBuffer;
    debugLine() << "FileIdentifier_camera:" << input->m_name.c_str();
    debugLine() << "sizeOfMB" << input->sizeOfMB();
    debugLine() << "sizeToEof" << input->sizeToEof();
    debugLine() << "seek start";
}

VX2_RetStatus FileIdentifier_camera::readInputBuffer()
{
    if (!initialised())
        return VX2_Fail;
    logInput();
    m_context->m_inputBuffer->seek(0, MBSeekStart);
    m_root->initialBeforeReadFromBuffer(m_context.get(), m_root.get(), nullptr);
    m_root->vir_readFromBuffer(m_context.get(), m_root.get(), nullptr);
    return (m_root->m_readFlags & BDDLStructBase::readFailed) ? VX2_Fatal : VX2_Success;
}

VX2_RetStatus FileIdentifier_camera::runValidation()
{
    if (!initialised())
        return VX2_Fail;
    FileIdentifier_class *const root = m_root.get();
    try {
        root->m_cameraStatus = cameraStatus_Success;
        // Only a clean root is marked fit to be written; this class never is.
        if (root->validate() == cameraStatus_Success)
            root->m_processStatus = 0x84;
        const cameraStatus_t children = validateAllChildren(m_context.get(), root, nullptr, 0);
        if (!isCameraStatusFail(root->m_cameraStatus))
            root->m_cameraStatus = children;
        return getVX2_RetStatusFromCameraStatus(root->m_cameraStatus);
    } catch (const std::exception &e) {
        logMultiLineError(e.what(), root);
    } catch (...) {
        tbLog("cameras/camera.pool/fileidentifier/fileidentifier_camera 204 Validation threw exception");
    }
    return VX2_Fail;
}

VX2_RetStatus FileIdentifier_camera::writeOutputBuffer()
{
    if (!initialised())
        return VX2_Fail;
    // The refusal is recorded in the repository, and the output may refuse
    // to grow: either failure is a result, not an exception.
    try {
        m_root->vir_writeToBuffer(m_context.get());
        return VX2_Success;
    } catch (const std::exception &e) {
        logMultiLineError(e.what(), m_root.get());
    } catch (...) {
        tbLog("cameras/camera.pool/fileidentifier/fileidentifier_camera Writing threw exception");
    }
    return VX2_Fail;
}

VX2_RetStatus FileIdentifier_camera::runCamera()
{
    if (!initialised())
        return VX2_Fail;
    logInput();
    m_context->m_inputBuffer->seek(0, MBSeekStart);
    return VX2_Fail;
}

VX2_RetStatus FileIdentifier_camera::deinitialiseCamera()
{
    // The root goes first: it still points at the context.
    m_root.reset();
    m_context.reset();
    return VX2_Success;
}

ft_t FileIdentifier_camera::getFileTypeFromProgID(const char *)
{
    return ft_unknown;
}

ft_t FileIdentifier_camera::getFileTypeFromClassID(const char *)
{
    return ft_unknown;
}

ft_t FileIdentifier_camera::getFileTypeFromFileExtension(const char *extension)
{
    return fileTypeFromAcceptedExtension(extension);
}

ft_t FileIdentifier_camera::getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason)
{
    return FileIdentifier::getFileTypeFromFileInMemory(buffer, reason);
}

UCPDocument *FileIdentifier_camera::getUCPDocumentInterface()
{
    if (m_root == nullptr)
        throw "getUCPDocumentInterface called before FileIdentifier initialised";
    return new BDDLDocument(m_root.get());
}

// ---------------------------------------------------------------------------
// FileIdentifier_camera_pluginIF
// ---------------------------------------------------------------------------

VXCameraIF *FileIdentifier_camera_pluginIF::getCamera()
{
    return new FileIdentifier_camera;
}

ft_t FileIdentifier_camera_pluginIF::getRegisteredFileTypeEnum()
{
    return ft_fileidentifier;
}

ft_t FileIdentifier_camera_pluginIF::getFileTypeFromFileExtension(const char *extension)
{
    return fileTypeFromAcceptedExtension(extension);
}

ft_t FileIdentifier_camera_pluginIF::getFileTypeFromFileInMemory(MemoryBuffer *, const char **)
{
    return ft_unknown;
}

ft_t FileIdentifier_camera_pluginIF::getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason)
{
    return FileIdentifier::getFileTypeFromFileInMemory(buffer, reason);
}

const AnalysisGroupIdMap_t *FileIdentifier_camera_pluginIF::getAnalysisGroupIdMap()
{
    return nullptr;
}

uint32_t FileIdentifier_camera_pluginIF::getErrMsgID(char *key)
{
    return fileidentifier_getErrMsgID(key);
}

uint32_t FileIdentifier_camera_pluginIF::getSanitisationMsgID(char *key)
{
    return fileidentifier_getSanitisationMsgID(key);
}

uint32_t FileIdentifier_camera_pluginIF::getAnalysisGroupID(unsigned int item)
{
    return fileidentifier_getAnalysisGroupID(item);
}

int FileIdentifier_camera_pluginIF::initialiseIDLookups()
{
    return fileidentifier_initialiseIDLookups();
}

} // namespace FileIdentifier

VX_EXPORT_CAMERA_PLUGIN(FileIdentifier::FileIdentifier_camera_pluginIF, "FileIdentifier_camera_pluginIF")
