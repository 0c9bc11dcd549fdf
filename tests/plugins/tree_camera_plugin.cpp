// A camera over the test schema (tests/ucp/testcamera.h) for the tests of tree
// serialisation, export and import, and of vxcam's analyse, export and import.
//
// It registers ft_doc (17), so the Word profile of a policy and the message
// ids below apply, and answers 17 as the main type of buffers starting
// "VXTREE". Its input is text: a first line "VXTREE", then lines. Reading
// makes the tree
//   TestRoot  count = the number of lines, flag = the number of lines mentioning "macro",
//             array = a TestLeaf per line (value = its length, label = its text as UTF-8,
//             the unnamed double = its offset / 2), single = a TestAll holding every value
//             kind, derived from the input (its structure a TestLeaf, its structure array
//             a TestEmpty and a TestLeaf, its memory buffer the input itself).
// Validation reports the tree ("TreeDocument", lines) and each macro line under the
// policy's macro switch: disallowed makes the run fail, sanitised makes the writer put
// "[macro removed]" in place of the line. Writing puts "VXTREE" and the lines back.
// Code that reads the tree checks each node's class, since an imported tree may
// hold any class the factory knows in any place.
//
// Message ids: groups 1000 + item, sanitisation ids the key's length, error ids 0.

#include "testcamera.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "policy/ContentManagement.h"
#include "ucp/bddldocument.h"
#include "ucp_engine/BDDValidationFuncs.h"
#include "ucp_engine/bddfilereadwritecommon.h"
#include "ucp_engine/id_determination.h"

#include <QObject>
#include <QStringList>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

using namespace testcamera;

namespace {

const QByteArray kMagic = QByteArrayLiteral("VXTREE");
const char *const kRemoved = "[macro removed]";

template <int Code>
BDDScalarArray<Code> *arrayOf(std::initializer_list<BDDScalar<Code - vtSCharArray>> values)
{
    return new BDDScalarArray<Code>(values);
}

// Every value kind, from the input's bytes.
TestAll *allKinds(TestRoot &root, const QByteArray &input, const QByteArray &firstLine, MemoryBuffer *buffer)
{
    auto *all = new TestAll;
    all->setRoot(&root);
    all->setParent(&root);
    const int64_t size = input.size();
    const auto first = static_cast<int8_t>(input.isEmpty() ? 0 : input.at(0));
    all->field<vtSChar>() = static_cast<int8_t>(-first);
    all->field<vtShort>() = static_cast<int16_t>(-size);
    all->field<vtInt>() = std::numeric_limits<int32_t>::min() + int32_t(size);
    all->field<vtLongLong>() = std::numeric_limits<int64_t>::min() + size;
    all->field<vtUChar>() = 0xFF;
    all->field<vtUShort>() = static_cast<uint16_t>(size * 7);
    all->field<vtUInt>() = 0xFFFFFFFFu - uint32_t(size);
    all->field<vtULongLong>() = std::numeric_limits<uint64_t>::max() - uint64_t(size);
    all->field<vtChar>() = first;
    all->field<vtWChar>() = 0x263A;
    all->field<vtDouble>() = -double(size) / 3.0;
    all->field<vtFloat>() = 1.0f / 3.0f;
    all->field<vtSCharArray>() = arrayOf<vtSCharArray>({-1, 0, 127, first});
    all->field<vtShortArray>() = arrayOf<vtShortArray>({-32768, int16_t(size)});
    all->field<vtIntArray>() = arrayOf<vtIntArray>({std::numeric_limits<int32_t>::min(), int32_t(size), 0});
    all->field<vtLongLongArray>() = arrayOf<vtLongLongArray>({std::numeric_limits<int64_t>::min(), -1});
    all->field<vtUCharArray>() = new BDDScalarArray<vtUCharArray>(input.begin(), input.end());
    all->field<vtUShortArray>() = arrayOf<vtUShortArray>({65535, 0});
    all->field<vtUIntArray>() = arrayOf<vtUIntArray>({0xFFFFFFFFu, uint32_t(size)});
    all->field<vtULongLongArray>() = arrayOf<vtULongLongArray>({std::numeric_limits<uint64_t>::max(), 0});
    all->field<vtCharArray>() = new BDDScalarArray<vtCharArray>(firstLine.begin(), firstLine.end());
    all->field<vtWCharArray>() = arrayOf<vtWCharArray>({0x263A, 0x10FFFF});
    all->field<vtDoubleArray>() = arrayOf<vtDoubleArray>({-0.0, 1e308, 1.0 / 3.0});
    all->field<vtFloatArray>() = arrayOf<vtFloatArray>({1.5f, -2.0f});

    auto *leaf = new TestLeaf;
    leaf->setRoot(&root);
    leaf->setParent(all);
    leaf->m_value = int32_t(size);
    leaf->m_label = QStringLiteral("nested \u00e9\u263a");
    leaf->m_unnamed = std::ldexp(1.0, -1074); // the smallest double there is
    all->field<vtStructure>() = leaf;
    all->AddChild(leaf);
    auto *empty = new TestEmpty;
    auto *second = new TestLeaf;
    for (BDDLStructBase *element : std::initializer_list<BDDLStructBase *>{empty, second}) {
        element->setRoot(&root);
        element->setParent(all);
        all->AddChild(element);
    }
    second->m_label = QStringLiteral("  ");
    all->field<vtStructureArray>() = new BDDStructureVector{empty, second};

    std::string token = "tree-token";
    all->field<vtToken>() = testStringToToken(&token);
    all->field<vtWhitespace>() = ' ';
    all->field<vtString>() = QString::fromUtf8(firstLine);
    all->field<vtMemoryBuffer>() = buffer;
    return all;
}

class TreeCamera final : public VXCameraIF
{
public:
    VX2_RetStatus initialiseCamera(MemoryBuffer *input, MemoryBuffer *output,
                                   RepositoryComponents::DocumentAnalysis *analysis, MemoryBufferPool *pool,
                                   BDDLStructBase_Root **root) override
    {
        m_root = std::make_unique<TestRoot>();
        m_context = context();
        m_context.m_inputBuffer = input;
        m_context.m_outputBuffer = output;
        m_context.m_objectFactory = testFactory;
        m_context.m_getSchema = testSchema;
        m_context.m_stringToToken = testStringToToken;
        m_context.m_tokenToString = testTokenToString;
        m_context.m_analysis = analysis;
        m_context.m_bufferPool = pool;
        m_root->setContext(&m_context);
        m_root->setRoot(m_root.get());
        BDDL_ResetDepthOfReading(&m_context);
        if (root != nullptr)
            *root = m_root.get();
        return 0;
    }

    VX2_RetStatus readInputBuffer() override
    {
        MemoryBuffer *const input = m_context.m_inputBuffer;
        if (!m_root || input == nullptr)
            return VX2_Fail;
        const QByteArray bytes(reinterpret_cast<const char *>(input->constData()), int(input->sizeOfMB()));
        if (!bytes.startsWith(kMagic))
            return VX2_Fatal;
        m_root->m_position = 0;
        m_root->m_size = uint32_t(bytes.size());
        QList<QByteArray> lines = bytes.split('\n');
        lines.removeFirst(); // the magic
        if (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        m_root->m_array = new BDDStructureVector;
        int offset = bytes.indexOf('\n') + 1;
        for (const QByteArray &line : qAsConst(lines)) {
            auto *leaf = new TestLeaf;
            leaf->setRoot(m_root.get());
            leaf->setParent(m_root.get());
            leaf->m_position = uint32_t(offset);
            leaf->m_size = uint32_t(line.size());
            leaf->m_value = line.size();
            leaf->m_label = QString::fromUtf8(line);
            leaf->m_unnamed = offset / 2.0;
            m_root->m_array->push_back(leaf);
            m_root->AddChild(leaf);
            m_root->m_flag += line.contains("macro") ? 1 : 0;
            offset += line.size() + 1;
        }
        m_root->m_count = uint32_t(lines.size());
        MemoryBuffer *const copy = m_context.m_bufferPool->allocateBuffer(input->sizeOfMB(), input->constData()
                                                                             ? const_cast<unsigned char *>(input->constData())
                                                                             : nullptr);
        m_root->m_single = allKinds(*m_root, bytes, lines.value(0), copy);
        m_root->AddChild(m_root->m_single);
        return 0;
    }

    VX2_RetStatus runValidation() override
    {
        if (!m_root)
            return VX2_Fail;
        TestRoot *const root = m_root.get();
        try {
            root->m_cameraStatus = 0;
            const auto stats = static_cast<short>(getAnalysisStatsID(root));
            vx_analyse_group(root, stats, "TreeDocument", root->m_count);
            const eVxContentManagementSetting setting =
                getManageType_macros(getConfigApp(root), root->contentManagementObject());
            int number = 0;
            for (TestLeaf *leaf : leaves()) {
                ++number;
                if (!leaf->m_label.contains(QLatin1String("macro")))
                    continue;
                const QByteArray name = "line " + QByteArray::number(number);
                MACRO_REPORT_ONLY(root, itemLabel, name.constData());
                if (setting == cmsSanitise)
                    leaf->m_cameraStatus = cameraStatus_SuccessWithInfo;
            }
            const cameraStatus_t children = validateAllChildren(&m_context, root, nullptr, 0);
            if (isCameraStatusFail(children))
                root->m_cameraStatus = children;
            if (!isCameraStatusFail(root->m_cameraStatus))
                root->m_processStatus = 0x84;
            return getVX2_RetStatusFromCameraStatus(root->m_cameraStatus);
        } catch (...) {
            return VX2_Fail;
        }
    }

    VX2_RetStatus writeOutputBuffer() override
    {
        MemoryBuffer *const output = m_context.m_outputBuffer;
        if (!m_root || output == nullptr)
            return VX2_Fail;
        try {
            if (!m_root->ucpNodeOkToWrite(m_root.get()))
                return VX2_Fail;
            output->putRawBytes(kMagic.constData(), size_t(kMagic.size()));
            output->putUInt8('\n');
            for (TestLeaf *leaf : leaves()) {
                const QByteArray line =
                    leaf->m_cameraStatus == cameraStatus_SuccessWithInfo ? QByteArray(kRemoved) : leaf->m_label.toUtf8();
                output->putRawBytes(line.constData(), size_t(line.size()));
                output->putUInt8('\n');
            }
            return 0;
        } catch (...) {
            return VX2_Fail;
        }
    }

    VX2_RetStatus runCamera() override
    {
        VX2_RetStatus status = combineVX2_RetStatus(readInputBuffer(), 0);
        if (!isVX2_RetStatusFail(status))
            status = combineVX2_RetStatus(runValidation(), status);
        if (!isVX2_RetStatusFail(status))
            status = combineVX2_RetStatus(writeOutputBuffer(), status);
        return status;
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
    UCPDocument *getUCPDocumentInterface() override { return m_root ? new BDDLDocument(m_root.get()) : nullptr; }

private:
    // The root's array elements that are leaves, whatever else an import put there.
    std::vector<TestLeaf *> leaves() const
    {
        std::vector<TestLeaf *> found;
        if (m_root && m_root->m_array != nullptr)
            for (BDDLStructBase *element : *m_root->m_array)
                if (auto *leaf = dynamic_cast<TestLeaf *>(element))
                    found.push_back(leaf);
        return found;
    }

    std::unique_ptr<TestRoot> m_root;
    context m_context;
};

} // namespace

class TreeCameraPlugin : public QObject, public VXCameraPluginIF
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VXCameraPluginIF_iid)
    Q_INTERFACES(VXCameraPluginIF)

public:
    VXCameraIF *getCamera() override { return new TreeCamera; }
    ft_t getRegisteredFileTypeEnum() override { return ft_doc; }
    ft_t getFileTypeFromFileExtension(const char *) override { return ft_unknown; }
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason) override
    {
        const bool mine = buffer && buffer->sizeOfMB() >= size_t(kMagic.size())
                          && std::memcmp(buffer->constData(), kMagic.constData(), size_t(kMagic.size())) == 0;
        if (mine && reason)
            *reason = "tree signature";
        return mine ? ft_doc : ft_unknown;
    }
    ft_t getSubTypeFromFileInMemory(MemoryBuffer *, const char **) override { return ft_unknown; }
    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap() override { return nullptr; }
    uint32_t getErrMsgID(char *) override { return 0; }
    uint32_t getSanitisationMsgID(char *key) override { return key ? uint32_t(std::strlen(key)) : 0; }
    uint32_t getAnalysisGroupID(unsigned int item) override { return 1000 + item; }
    int initialiseIDLookups() override { return 0; }
};

#include "tree_camera_plugin.moc"
