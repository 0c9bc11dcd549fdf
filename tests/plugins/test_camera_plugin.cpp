// A camera plug-in for the camera pool's tests. One source, built into several
// modules whose behaviour is fixed by compile definitions:
//   VX_TEST_NAME        prefix of the reason texts, so a test sees who answered
//   VX_TEST_IID         identifier in the metadata (default: the camera interface's)
//   VX_TEST_REGISTERED  the type registered with the pool
//   VX_TEST_BEHAVIOUR   Recognise: answers VX_TEST_ANSWER for the extension "xls" and
//                         VX_TEST_ANSWER / VX_TEST_SUBTYPE for buffers starting "XLS",
//                         0 otherwise, leaving the reason alone when it does not answer
//                       Decline: answers 0 to everything but gives a reason
//                       Throw: gives a reason, then throws from every question
//                       ThrowOnRegister: throws when asked for its registered type
//   VX_TEST_ID          base of the message and group ids, so tests can tell modules apart
//   VX_TEST_UNRESOLVED  refers to a symbol nobody defines, so the module cannot be loaded
//   VX_TEST_ECHO_MESSAGES  message ids are the number the key spells ("5" gives 5, else 0)
//   VX_TEST_GROUPS      group ids as "item=group,item=group"; other items answer 0
//   VX_TEST_CAMERA      getCamera() gives a camera whose runCamera() copies the input
//                       to the output, records the content item "type=<root's file
//                       type> session=<yes|no> block=<block's camera name>" with the
//                       input's size in group 7, and answers 1; an empty input
//                       makes runCamera() throw
//   VX_TEST_IMAGE_CAMERA   getCamera() gives an image camera: initialising it records
//                       the content item "image=<input bytes> stream=<input's
//                       stream name>" in group 7; its runCamera() writes the text
//                       VX_TEST_IMAGE_OUTPUT to the output and answers
//                       VX_TEST_IMAGE_STATUS

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#if defined(VX_TEST_CAMERA) || defined(VX_TEST_IMAGE_CAMERA)
#include "cameras/parameterblock.h"
#include "ucp/bddldocument.h"
#include "ucp_engine/BDDLStructBase.h"
#endif

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
constexpr char kExtension[] = "xls";
constexpr char kMagic[] = "XLS";
constexpr uint32_t kIdBase = VX_TEST_ID * 1000;

bool hasMagic(const MemoryBuffer *buffer)
{
    const size_t length = sizeof kMagic - 1;
    return buffer != nullptr && buffer->sizeOfMB() >= length
           && std::memcmp(buffer->constData(), kMagic, length) == 0;
}

#ifdef VX_TEST_ECHO_MESSAGES
uint32_t errorMessageId(const char *key)
{
    return key == nullptr ? 0 : static_cast<uint32_t>(std::strtoul(key, nullptr, 10));
}
uint32_t sanitisationMessageId(const char *key)
{
    return errorMessageId(key);
}
#else
uint32_t keyLength(const char *key)
{
    return key == nullptr ? 0 : static_cast<uint32_t>(std::strlen(key));
}
uint32_t errorMessageId(const char *key)
{
    return kIdBase + keyLength(key);
}
uint32_t sanitisationMessageId(const char *key)
{
    return kIdBase + 500 + keyLength(key);
}
#endif

#ifdef VX_TEST_GROUPS
// The item=group pairs of VX_TEST_GROUPS.
AnalysisGroupIdMap_t listedGroups()
{
    AnalysisGroupIdMap_t groups;
    for (const QString &pair : QStringLiteral(VX_TEST_GROUPS).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QStringList parts = pair.split(QLatin1Char('='));
        if (parts.size() == 2)
            groups.insert(parts[0].toUInt(), parts[1].toUInt());
    }
    return groups;
}
#endif

#if defined(VX_TEST_CAMERA) || defined(VX_TEST_IMAGE_CAMERA)
class TestRunRoot final : public BDDLStructBase_Root
{
public:
    const char *get_desc_string() const override { return "TestRunRoot"; }
};

// What the test cameras share: a root over the run's buffers and repository.
class TestCameraBase : public VXCameraIF
{
public:
    VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                   RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                   BDDLStructBase_Root **root) override
    {
        m_root.reset(new TestRunRoot);
        m_context = context();
        m_context.m_inputBuffer = input;
        m_context.m_outputBuffer = output;
        m_context.m_analysis = analysis;
        m_context.m_bufferPool = pool;
        m_root->setContext(&m_context);
        *root = m_root.get();
        return 0;
    }
    VX2_RetStatus readInputBuffer() override { return 0; }
    VX2_RetStatus runValidation() override { return 0; }
    VX2_RetStatus writeOutputBuffer() override
    {
        m_context.m_outputBuffer->putRawBytes(m_context.m_inputBuffer->constData(),
                                              m_context.m_inputBuffer->sizeOfMB());
        return 0;
    }
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

protected:
    std::unique_ptr<TestRunRoot> m_root;
    context m_context;
};
#endif

#ifdef VX_TEST_CAMERA
// A camera whose whole job is to show what the session gave it.
class TestRunCamera final : public TestCameraBase
{
public:
    VX2_RetStatus runCamera() override
    {
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
    }
};
#endif

#ifdef VX_TEST_IMAGE_CAMERA
// An image camera with a fixed outcome.
class ImageCamera final : public TestCameraBase
{
public:
    VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                   RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                   BDDLStructBase_Root **root) override
    {
        TestCameraBase::initialiseCamera(input, output, analysis, pool, root);
        const QString seen = QStringLiteral("image=%1 stream=%2")
                                 .arg(QString::fromLatin1(reinterpret_cast<const char *>(input->constData()),
                                                          static_cast<int>(input->sizeOfMB())),
                                      QString::fromStdString(input->m_streamName));
        vx_analyse_group(m_root.get(), 7, seen.toUtf8().constData(), input->sizeOfMB());
        return 0;
    }
    VX2_RetStatus writeOutputBuffer() override
    {
        static const char kOutput[] = VX_TEST_IMAGE_OUTPUT;
        m_context.m_outputBuffer->putRawBytes(kOutput, sizeof kOutput - 1);
        return 0;
    }
    VX2_RetStatus runCamera() override
    {
        writeOutputBuffer();
        return VX_TEST_IMAGE_STATUS;
    }
};
#endif

} // namespace

class TestCameraPlugin : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VX_TEST_IID)
    Q_INTERFACES(VXCameraPluginIF)

public:
#if defined(VX_TEST_CAMERA)
    VXCameraIF *getCamera() override { return new TestRunCamera; }
#elif defined(VX_TEST_IMAGE_CAMERA)
    VXCameraIF *getCamera() override { return new ImageCamera; }
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
        const bool mine = kBehaviour == Behaviour::Recognise && extension != nullptr
                          && std::strcmp(extension, kExtension) == 0;
        return mine ? static_cast<ft_t>(VX_TEST_ANSWER) : ft_unknown;
    }

    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override
    {
        return identify(buffer, reason, static_cast<ft_t>(VX_TEST_ANSWER), VX_TEST_NAME ": main type",
                        VX_TEST_NAME ": not mine");
    }

    ft_t getSubTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override
    {
        return identify(buffer, reason, static_cast<ft_t>(VX_TEST_SUBTYPE), VX_TEST_NAME ": sub-type",
                        VX_TEST_NAME ": no sub-type");
    }

    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() override
    {
        return m_groups.isEmpty() ? nullptr : &m_groups;
    }

    uint32_t getErrMsgID(char *key) override { return errorMessageId(key); }
    uint32_t getSanitisationMsgID(char *key) override { return sanitisationMessageId(key); }
#ifdef VX_TEST_GROUPS
    uint32_t getAnalysisGroupID(unsigned int item) override { return listedGroups().value(item); }
#else
    uint32_t getAnalysisGroupID(unsigned int item) override { return m_groups.value(item); }
#endif

    // Item 0 of the table counts how often the lookups were built, so a test
    // can check the pool builds them exactly once.
    int initialiseIDLookups() override
    {
        m_groups[0] += 1;
        m_groups[1] = kIdBase + 1;
        m_groups[2] = kIdBase + 2;
        return 0;
    }

private:
    static ft_t identify(const MemoryBuffer *buffer, const char **reason, ft_t answer, const char *found,
                         const char *declined)
    {
        switch (kBehaviour) {
        case Behaviour::Recognise:
            if (!hasMagic(buffer))
                return ft_unknown;
            setReason(reason, found);
            return answer;
        case Behaviour::Decline:
            setReason(reason, declined);
            return ft_unknown;
        case Behaviour::Throw:
        case Behaviour::ThrowOnRegister:
            setReason(reason, VX_TEST_NAME ": failing");
            throw std::runtime_error(VX_TEST_NAME ": buffer question failed");
        }
        return ft_unknown;
    }

    static void setReason(const char **reason, const char *text)
    {
        if (reason != nullptr)
            *reason = text;
    }

    AnalysisGroupIdMap_t m_groups;
};

#include "test_camera_plugin.moc"
