#include "ooxml_camera.h"

#include "ooxml_factory.h"
#include "ooxml_package.h"
#include "ooxml_schema.h"

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "ucp/bddldocument.h"
#include "ucp_engine/BDDValidationFuncs.h"
#include "ucp_engine/bddfilereadwritecommon.h"
#include "ucp_engine/id_determination.h"
#include "ucp_engine/ucpLogging.h"

namespace Ooxml {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

Ooxml_camera::Ooxml_camera() = default;

Ooxml_camera::~Ooxml_camera()
{
    deinitialiseCamera();
}

VX2_RetStatus Ooxml_camera::initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                             RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                             BDDLStructBase_Root **root)
{
    if (root != nullptr)
        *root = nullptr;
    deinitialiseCamera();
    if (input == nullptr)
        return VX2_Fail;
    std::unique_ptr<OoxmlPackage> made(static_cast<OoxmlPackage *>(Ooxml_ObjectCreationFactory(PackageClassId)));
    auto ctx = std::make_unique<context>();
    ctx->m_inputBuffer = input;
    ctx->m_outputBuffer = output;
    ctx->m_objectFactory = Ooxml_ObjectCreationFactory;
    ctx->m_getSchema = getOoxmlSchema;
    ctx->m_analysis = analysis;
    ctx->m_bufferPool = pool;
    made->setContext(ctx.get());
    made->setRoot(made.get());
    // A package is an Open Packaging container until reading finds its kind.
    made->setFiletype(ft_opc);

    m_root = std::move(made);
    m_context = std::move(ctx);
    if (root != nullptr)
        *root = m_root.get();
    if (analysis != nullptr)
        analysis->VXAnalyseSchemaErrorGroup(static_cast<unsigned long>(getAnalysisStatsID(m_root.get())),
                                            input->m_name, input->sizeOfMB());
    BDDL_ResetDepthOfReading(m_context.get());
    return VX2_Success;
}

VX2_RetStatus Ooxml_camera::readInputBuffer()
{
    if (!initialised())
        return VX2_Fail;
    // Like validation and writing, reading never lets an exception out to
    // the host: a package that cannot be read is a fatal run.
    try {
        m_context->m_inputBuffer->seek(0, MBSeekStart);
        m_root->initialBeforeReadFromBuffer(m_context.get(), m_root.get(), nullptr);
        m_root->vir_readFromBuffer(m_context.get(), m_root.get(), nullptr);
        return (m_root->m_readFlags & BDDLStructBase::readFailed) ? VX2_Fatal : VX2_Success;
    } catch (const std::exception &e) {
        logMultiLineError(e.what(), m_root.get());
    } catch (...) {
        tbLog("cameras/camera.pool/ooxml/ooxml_camera Reading threw exception");
    }
    return VX2_Fatal;
}

VX2_RetStatus Ooxml_camera::runValidation()
{
    if (!initialised())
        return VX2_Fail;
    OoxmlPackage *const root = m_root.get();
    try {
        root->m_cameraStatus = cameraStatus_Success;
        // A document that fails is not fit to be written, and says so
        // silently (process status 5) rather than as a write-check issue.
        root->m_processStatus = 5;
        const cameraStatus_t own = root->validate();
        if (own == cameraStatus_Success)
            root->m_processStatus = 0x84;
        else if (own == cameraStatus_ContentChanged)
            root->m_processStatus = 0x86;
        const cameraStatus_t children = validateAllChildren(m_context.get(), root, nullptr, 0);
        if (!isCameraStatusFail(root->m_cameraStatus))
            root->m_cameraStatus = children;
        if (isCameraStatusFail(root->m_cameraStatus))
            root->m_processStatus = 5;
        return getVX2_RetStatusFromCameraStatus(root->m_cameraStatus);
    } catch (const std::exception &e) {
        logMultiLineError(e.what(), root);
    } catch (...) {
        tbLog("cameras/camera.pool/ooxml/ooxml_camera Validation threw exception");
    }
    root->m_processStatus = 5;
    return VX2_Fail;
}

// The output is named after the input, with the extension of the kind
// written when the input was named after its kind: a .docm whose macros
// were removed is written as a .docx, which is what it now is. Hosts name
// the file they write from it.
static std::string outputNameOf(const std::string &inputName, const QString &doctype)
{
    const QString name = QString::fromStdString(inputName);
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0 || documentKindByExtension(name.mid(dot + 1).toLower()) == nullptr
        || documentKindByExtension(doctype) == nullptr)
        return inputName;
    return (name.left(dot + 1) + doctype).toStdString();
}

VX2_RetStatus Ooxml_camera::writeOutputBuffer()
{
    if (!initialised())
        return VX2_Fail;
    try {
        if (m_root->vir_writeToBuffer(m_context.get()) != cameraStatus_Success)
            return VX2_Fail;
        if (MemoryBuffer *const output = m_context->m_outputBuffer)
            output->m_name = outputNameOf(m_context->m_inputBuffer->m_name, m_root->getDoctype());
        return VX2_Success;
    } catch (const std::exception &e) {
        logMultiLineError(e.what(), m_root.get());
    } catch (...) {
        tbLog("cameras/camera.pool/ooxml/ooxml_camera Writing threw exception");
    }
    return VX2_Fail;
}

VX2_RetStatus Ooxml_camera::runCamera()
{
    const VX2_RetStatus read = readInputBuffer();
    if (isVX2_RetStatusFail(read))
        return read;
    const VX2_RetStatus validated = runValidation();
    if (isVX2_RetStatusFail(validated))
        return validated;
    return combineVX2_RetStatus(validated, writeOutputBuffer());
}

VX2_RetStatus Ooxml_camera::deinitialiseCamera()
{
    // The root goes first: it still points at the context.
    m_root.reset();
    m_context.reset();
    return VX2_Success;
}

ft_t Ooxml_camera::getFileTypeFromProgID(const char *)
{
    return ft_unknown;
}

ft_t Ooxml_camera::getFileTypeFromClassID(const char *)
{
    return ft_unknown;
}

ft_t Ooxml_camera::getFileTypeFromFileExtension(const char *extension)
{
    const DocumentKind *kind = extension ? documentKindByExtension(QString::fromLatin1(extension)) : nullptr;
    return kind ? kind->family : ft_unknown;
}

ft_t Ooxml_camera::getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason)
{
    return FileType().determineOpcSubType(buffer, reason);
}

UCPDocument *Ooxml_camera::getUCPDocumentInterface()
{
    if (m_root == nullptr)
        throw "getUCPDocumentInterface called before Ooxml initialised";
    return new BDDLDocument(m_root.get());
}

} // namespace Ooxml
