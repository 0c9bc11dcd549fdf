// A camera plug-in for the pool's tests; compile definitions make each module:
//   VX_TEST_NAME: prefix of reason texts; VX_TEST_IID: metadata identifier (default: the
//     camera interface's); VX_TEST_REGISTERED: the type registered with the pool
//   VX_TEST_BEHAVIOUR: Recognise answers VX_TEST_ANSWER for the extension "xls" and
//     VX_TEST_ANSWER / VX_TEST_SUBTYPE for buffers starting "XLS", else 0 and no reason;
//     Decline answers 0 with a reason; Throw sets a reason, then throws from every question;
//     ThrowOnRegister throws when asked for its registered type
//   VX_TEST_ID: message ids ID*1000 + key length (+500 for sanitisation); groups 1, 2 are
//     ID*1000 + 1, + 2; group 0 counts initialiseIDLookups calls
//   VX_TEST_UNRESOLVED: refers to a symbol nobody defines, so the module cannot load
//   VX_TEST_ECHO_MESSAGES: message ids are the number the key spells ("5" gives 5, else 0)
//   VX_TEST_GROUPS: group ids as "item=group,item=group"; other items answer 0
//   VX_TEST_CAMERA: a camera copying input to output that records "type=<root's type>
//     session=<yes|no> block=<camera name>" (input size) in group 7 and answers 1; it
//     throws on an empty input
//   VX_TEST_IMAGE_CAMERA: an image camera recording "image=<input> stream=<stream name>" in
//     group 7 when initialised; it writes VX_TEST_IMAGE_OUTPUT, answers VX_TEST_IMAGE_STATUS

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "cameras/parameterblock.h"
#include "ucp/bddldocument.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QObject>
#include <QStringList>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#ifndef VX_TEST_IID
#define VX_TEST_IID VXCameraPluginIF_iid
#endif
#ifndef VX_TEST_ANSWER
#define VX_TEST_ANSWER 0
#endif
#ifndef VX_TEST_SUBTYPE
#define VX_TEST_SUBTYPE 0
#endif

#ifdef VX_TEST_UNRESOLVED
extern "C" int vx_test_symbol_nobody_defines;
#endif

namespace {

enum class Behaviour { Recognise, Decline, Throw, ThrowOnRegister };
constexpr Behaviour kBehaviour = Behaviour::VX_TEST_BEHAVIOUR;
constexpr uint32_t kIdBase = VX_TEST_ID * 1000;

uint32_t messageId(const char *key, uint32_t offset)
{
#ifdef VX_TEST_ECHO_MESSAGES
    (void)offset;
    return key ? uint32_t(std::strtoul(key, nullptr, 10)) : 0;
#else
    return kIdBase + offset + (key ? uint32_t(std::strlen(key)) : 0);
#endif
}

// Kept out of the plug-in class: a static (such as QStringLiteral's data) in
// one of its inline members would be shared by every module of the process.
uint32_t groupId(unsigned int item, const AnalysisGroupIdMap_t &groups)
{
#ifdef VX_TEST_GROUPS
    (void)groups;
    for (const QString &pair : QStringLiteral(VX_TEST_GROUPS).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QStringList parts = pair.split(QLatin1Char('='));
        if (parts.size() == 2 && parts[0].toUInt() == item)
            return parts[1].toUInt();
    }
    return 0;
#else
    return groups.value(item);
#endif
}

#if defined(VX_TEST_CAMERA) || defined(VX_TEST_IMAGE_CAMERA)
class TestRunRoot final : public BDDLStructBase_Root
{
public:
    const char *get_desc_string() const override { return "TestRunRoot"; }
};

// A camera over a root holding the run's buffers and repository; it writes its input.
class TestCamera : public VXCameraIF
{
public:
    VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                   RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                   BDDLStructBase_Root **root) override
    {
        m_root = std::make_unique<TestRunRoot>();
        m_context = context();
        m_context.m_inputBuffer = input;
        m_context.m_outputBuffer = output;
        m_context.m_analysis = analysis;
        m_context.m_bufferPool = pool;
        m_root->setContext(&m_context);
        *root = m_root.get();
#ifdef VX_TEST_IMAGE_CAMERA
        const QByteArray bytes(reinterpret_cast<const char *>(input->constData()), int(input->sizeOfMB()));
        const QString seen = QStringLiteral("image=%1 stream=%2")
                                 .arg(QString::fromLatin1(bytes), QString::fromStdString(input->m_streamName));
        vx_analyse_group(m_root.get(), 7, seen.toUtf8().constData(), input->sizeOfMB());
#endif
        return 0;
    }
    VX2_RetStatus readInputBuffer() override { return 0; }
    VX2_RetStatus runValidation() override { return 0; }
    VX2_RetStatus deinitialiseCamera() override
    {
        m_root.reset();
        return 0;
    }
    ft_t getFileTypeFromProgID(const char *) override { return ft_unknown; }
    ft_t getFileTypeFromClassID(const char *) override { return ft_unknown; }
    ft_t getFileTypeFromFileExtension(const char *) override { return ft_unknown; }
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *, const char **) override { return ft_unknown; }
    UCPDocument *getUCPDocumentInterface() override { return new BDDLDocument(m_root.get()); }

    VX2_RetStatus writeOutputBuffer() override
    {
#ifdef VX_TEST_IMAGE_CAMERA
        static const char kOutput[] = VX_TEST_IMAGE_OUTPUT;
        m_context.m_outputBuffer->putRawBytes(kOutput, sizeof kOutput - 1);
#else
        const MemoryBuffer *const input = m_context.m_inputBuffer;
        m_context.m_outputBuffer->putRawBytes(input->constData(), input->sizeOfMB());
#endif
        return 0;
    }
    VX2_RetStatus runCamera() override
    {
#ifdef VX_TEST_IMAGE_CAMERA
        writeOutputBuffer();
        return VX_TEST_IMAGE_STATUS;
#else
        if (m_context.m_inputBuffer->sizeOfMB() == 0)
            throw std::runtime_error(VX_TEST_NAME ": nothing to run on");
        const ParameterBlock *block = m_context.m_parameterBlock;
        const QString seen = QStringLiteral("type=%1 session=%2 block=%3")
                                 .arg(m_root->getFiletype())
                                 .arg(QLatin1String(m_context.m_cameraSession ? "yes" : "no"))
                                 .arg(block ? block->cameraName() : QStringLiteral("none"));
        vx_analyse_group(m_root.get(), 7, seen.toUtf8().constData(), m_context.m_inputBuffer->sizeOfMB());
        writeOutputBuffer();
        return 1;
#endif
    }

private:
    std::unique_ptr<TestRunRoot> m_root;
    context m_context;
};
#endif

} // namespace

class TestCameraPlugin : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VX_TEST_IID)
    Q_INTERFACES(VXCameraPluginIF)

public:
#if defined(VX_TEST_CAMERA) || defined(VX_TEST_IMAGE_CAMERA)
    VXCameraIF *getCamera() override { return new TestCamera; }
#else
    VXCameraIF *getCamera() override { return nullptr; }
#endif

    ft_t getRegisteredFileTypeEnum() override
    {
        if (kBehaviour == Behaviour::ThrowOnRegister)
            throw std::runtime_error(VX_TEST_NAME ": cannot register");
#ifdef VX_TEST_UNRESOLVED
        return static_cast<ft_t>(vx_test_symbol_nobody_defines);
#else
        return static_cast<ft_t>(VX_TEST_REGISTERED);
#endif
    }

    ft_t getFileTypeFromFileExtension(const char *extension) override
    {
        if (kBehaviour == Behaviour::Throw)
            throw std::runtime_error(VX_TEST_NAME ": extension question failed");
        const bool mine = kBehaviour == Behaviour::Recognise && extension && std::strcmp(extension, "xls") == 0;
        return mine ? static_cast<ft_t>(VX_TEST_ANSWER) : ft_unknown;
    }

    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override
    {
        return identify(buffer, reason, VX_TEST_ANSWER, VX_TEST_NAME ": main type", VX_TEST_NAME ": not mine");
    }

    ft_t getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override
    {
        return identify(buffer, reason, VX_TEST_SUBTYPE, VX_TEST_NAME ": sub-type", VX_TEST_NAME ": no sub-type");
    }

    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() override { return m_groups.isEmpty() ? nullptr : &m_groups; }
    uint32_t getErrMsgID(char *key) override { return messageId(key, 0); }
    uint32_t getSanitisationMsgID(char *key) override { return messageId(key, 500); }

    uint32_t getAnalysisGroupID(unsigned int item) override { return groupId(item, m_groups); }

    int initialiseIDLookups() override
    {
        m_groups[0] += 1;
        m_groups[1] = kIdBase + 1;
        m_groups[2] = kIdBase + 2;
        return 0;
    }

private:
    static ft_t identify(const MemoryBuffer *buffer, const char **reason, int answer, const char *found,
                         const char *declined)
    {
        const bool mine = kBehaviour == Behaviour::Recognise && buffer && buffer->sizeOfMB() >= 3
                          && std::memcmp(buffer->constData(), "XLS", 3) == 0;
        const char *const text = kBehaviour == Behaviour::Recognise ? (mine ? found : nullptr)
                                 : kBehaviour == Behaviour::Decline ? declined : VX_TEST_NAME ": failing";
        if (reason && text)
            *reason = text;
        if (kBehaviour == Behaviour::Throw || kBehaviour == Behaviour::ThrowOnRegister)
            throw std::runtime_error(VX_TEST_NAME ": buffer question failed");
        return mine ? static_cast<ft_t>(answer) : ft_unknown;
    }

    AnalysisGroupIdMap_t m_groups;
};

#include "test_camera_plugin.moc"
