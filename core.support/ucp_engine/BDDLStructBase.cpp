#include "ucp_engine/BDDLStructBase.h"

#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"
#include "cameras/camera_pool.h"
#include "cameras/camerabase.h"
#include "ucp/bddldocument.h"
#include "ucp/bddlstructitem_itr.h"

#include <QtGlobal>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace {

const char *const NoNameString = "noname";

std::atomic<long> g_blocksAllocated{0};

template <typename T>
struct Tag
{
    using type = T;
};

template <typename F, std::size_t... I>
bool dispatchScalar(int index, F &f, std::index_sequence<I...>)
{
    return ((index == static_cast<int>(I) ? (f(Tag<std::tuple_element_t<I, BDDScalarTypes>>{}), true) : false)
            || ...);
}

// Calls f(Tag<T>{}) with T the C++ type of scalar code `index` (0 to 11);
// false for any other index.
template <typename F>
bool withScalarType(int index, F &&f)
{
    return dispatchScalar(index, f, std::make_index_sequence<std::tuple_size_v<BDDScalarTypes>>{});
}

// Narrow integers, int and wide characters travel as int; uint, 64-bit
// integers and the two floats as themselves.
template <typename T>
QVariant scalarToVariant(T value)
{
    if constexpr (std::is_floating_point_v<T>)
        return QVariant(value);
    else if constexpr (std::is_same_v<T, uint32_t>)
        return QVariant(static_cast<uint>(value));
    else if constexpr (sizeof(T) <= 4)
        return QVariant(static_cast<int>(value));
    else if constexpr (std::is_signed_v<T>)
        return QVariant(static_cast<qlonglong>(value));
    else
        return QVariant(static_cast<qulonglong>(value));
}

template <typename T>
T scalarFromVariant(const QVariant &value)
{
    if constexpr (std::is_same_v<T, float>)
        return value.toFloat();
    else if constexpr (std::is_same_v<T, double>)
        return value.toDouble();
    else if constexpr (sizeof(T) == 8)
        return std::is_signed_v<T> ? static_cast<T>(value.toLongLong()) : static_cast<T>(value.toULongLong());
    else
        return std::is_signed_v<T> ? static_cast<T>(value.toInt()) : static_cast<T>(value.toUInt());
}

// The form an element takes in the byte form: plain characters as signed
// bytes, wide characters as signed 32-bit integers.
template <typename T>
using WireType = std::conditional_t<std::is_same_v<T, char>, int8_t,
                                    std::conditional_t<std::is_same_v<T, wchar_t>, int32_t, T>>;

constexpr int kMaxArrayBytes = 0x7fffffff;

template <typename W>
void storeBigEndian(W value, char *target)
{
    if constexpr (Q_BYTE_ORDER == Q_LITTLE_ENDIAN)
        value = MemoryBufferDetail::byteSwap(value);
    std::memcpy(target, &value, sizeof(W));
}

template <typename W>
W loadBigEndian(const char *source)
{
    W value;
    std::memcpy(&value, source, sizeof(W));
    if constexpr (Q_BYTE_ORDER == Q_LITTLE_ENDIAN)
        value = MemoryBufferDetail::byteSwap(value);
    return value;
}

// The bytes of a variant handed to an array or buffer item: a byte array as
// it stands, anything else as the Latin-1 bytes of its text (one byte per
// character, the form serialised trees use).
QByteArray bytesOfVariant(const QVariant &value)
{
    if (value.userType() == QMetaType::QByteArray)
        return value.toByteArray();
    return value.toString().toLatin1();
}

// Text as the bytes of its UTF-8 form when the variant holds bytes (as a
// serialised tree gives them back; the variant's own conversion would stop
// at a zero byte), else the variant's string.
QString textOfVariant(const QVariant &value)
{
    if (value.userType() != QMetaType::QByteArray)
        return value.toString();
    const QByteArray bytes = value.toByteArray();
    return QString::fromUtf8(bytes.constData(), bytes.size());
}

template <typename T>
bool bytesToVector(const QByteArray &bytes, std::vector<T> **target)
{
    if (bytes.isEmpty() || target == nullptr)
        return false;
    using W = WireType<T>;
    static_assert(sizeof(W) == sizeof(T), "the byte form keeps the element width");
    if (*target == nullptr)
        *target = new std::vector<T>;
    std::vector<T> &vector = **target;
    const std::size_t count = static_cast<std::size_t>(bytes.size()) / sizeof(T);
    vector.resize(count);
    const char *data = bytes.constData();
    for (std::size_t i = 0; i < count; ++i)
        vector[i] = static_cast<T>(loadBigEndian<W>(data + i * sizeof(T)));
    return true;
}

} // namespace

// ---------------------------------------------------------------------------
// Block allocator
// ---------------------------------------------------------------------------

void *blockAllocator_new(std::size_t size)
{
    void *const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::logic_error("blockAllocator_new can't find allocator");
    g_blocksAllocated.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void blockAllocator_delete(void *block)
{
    if (block == nullptr)
        return;
    std::free(block);
    g_blocksAllocated.fetch_sub(1, std::memory_order_relaxed);
}

long countOfBlocksAllocated()
{
    return g_blocksAllocated.load(std::memory_order_relaxed);
}

// ---------------------------------------------------------------------------
// Array byte form
// ---------------------------------------------------------------------------

template <typename T>
QByteArray vectorToQByteArray(const std::vector<T> *vector)
{
    if (vector == nullptr || vector->empty() || vector->size() > kMaxArrayBytes / sizeof(T))
        return QByteArray();
    using W = WireType<T>;
    QByteArray bytes(static_cast<int>(vector->size() * sizeof(T)), Qt::Uninitialized);
    char *data = bytes.data();
    for (std::size_t i = 0; i < vector->size(); ++i)
        storeBigEndian(static_cast<W>((*vector)[i]), data + i * sizeof(T));
    return bytes;
}

template <typename T>
bool QStringToVector(const QString &text, std::vector<T> **target)
{
    return bytesToVector(text.toLatin1(), target);
}

#define VX_INSTANTIATE_ARRAY_FORM(T)                                                               \
    template QByteArray vectorToQByteArray<T>(const std::vector<T> *);                             \
    template bool QStringToVector<T>(const QString &, std::vector<T> **);
VX_INSTANTIATE_ARRAY_FORM(int8_t)
VX_INSTANTIATE_ARRAY_FORM(int16_t)
VX_INSTANTIATE_ARRAY_FORM(int32_t)
VX_INSTANTIATE_ARRAY_FORM(int64_t)
VX_INSTANTIATE_ARRAY_FORM(uint8_t)
VX_INSTANTIATE_ARRAY_FORM(uint16_t)
VX_INSTANTIATE_ARRAY_FORM(uint32_t)
VX_INSTANTIATE_ARRAY_FORM(uint64_t)
VX_INSTANTIATE_ARRAY_FORM(char)
VX_INSTANTIATE_ARRAY_FORM(wchar_t)
VX_INSTANTIATE_ARRAY_FORM(double)
VX_INSTANTIATE_ARRAY_FORM(float)
#undef VX_INSTANTIATE_ARRAY_FORM

// ---------------------------------------------------------------------------
// BDDItemObject
// ---------------------------------------------------------------------------

bool BDDItemObject::isEmpty() const
{
    if (m_value == nullptr)
        return true;
    if (isStructure() || isStructureArray())
        return *static_cast<void *const *>(m_value) == nullptr;
    return false;
}

bool BDDItemObject::getScalarAsSizet(unsigned long &value) const
{
    if (!isScalar() || m_value == nullptr)
        return false;
    return withScalarType(m_valueType, [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Wide = std::conditional_t<std::is_signed_v<T>, int64_t, uint64_t>;
        value = static_cast<unsigned long>(static_cast<Wide>(*static_cast<const T *>(m_value)));
    });
}

bool BDDItemObject::getRawStructPtr(BDDLStructBase **node) const
{
    if (!isStructure() || m_value == nullptr || node == nullptr)
        return false;
    *node = *static_cast<BDDLStructBase *const *>(m_value);
    return true;
}

bool BDDItemObject::setRawStructPtr(BDDLStructBase *node)
{
    if (!isStructure() || m_value == nullptr)
        return false;
    *static_cast<BDDLStructBase **>(m_value) = node;
    return true;
}

bool BDDItemObject::getRawStructVectorPtr(BDDStructureVector **vector) const
{
    if (!isStructureArray() || m_value == nullptr || vector == nullptr)
        return false;
    *vector = *static_cast<BDDStructureVector *const *>(m_value);
    return true;
}

bool BDDItemObject::setRawStructVectorPtr(BDDStructureVector *vector)
{
    if (!isStructureArray() || m_value == nullptr)
        return false;
    *static_cast<BDDStructureVector **>(m_value) = vector;
    return true;
}

QVariant BDDItemObject::getAsQVariant(context *ctx) const
{
    if (m_value == nullptr)
        return QVariant();
    QVariant result;
    if (m_valueType >= vtSChar && m_valueType <= vtFloat) {
        withScalarType(m_valueType, [&](auto tag) {
            using T = typename decltype(tag)::type;
            result = scalarToVariant(*static_cast<const T *>(m_value));
        });
        return result;
    }
    if (isScalarArray()) {
        withScalarType(m_valueType - vtSCharArray, [&](auto tag) {
            using T = typename decltype(tag)::type;
            result = vectorToQByteArray(*static_cast<std::vector<T> *const *>(m_value));
        });
        return result;
    }
    switch (m_valueType) {
    case vtToken:
        if (ctx == nullptr || ctx->m_tokenToString == nullptr)
            return QVariant();
        return QString::fromStdString(ctx->m_tokenToString(*static_cast<const BDDToken *>(m_value)));
    case vtWhitespace:
        return scalarToVariant(*static_cast<const BDDWhitespace *>(m_value));
    case vtString:
        return *static_cast<const QString *>(m_value);
    case vtMemoryBuffer: {
        const MemoryBuffer *buffer = *static_cast<MemoryBuffer *const *>(m_value);
        if (buffer == nullptr || buffer->sizeOfMB() >= 0x80000000u)
            return QByteArray();
        return QByteArray(reinterpret_cast<const char *>(buffer->constData()), static_cast<int>(buffer->sizeOfMB()));
    }
    default:
        return QVariant();
    }
}

bool BDDItemObject::setFromQVariant(const QVariant &value, context *ctx)
{
    if (m_value == nullptr)
        return false;
    if (m_valueType >= vtSChar && m_valueType <= vtFloat) {
        return withScalarType(m_valueType, [&](auto tag) {
            using T = typename decltype(tag)::type;
            *static_cast<T *>(m_value) = scalarFromVariant<T>(value);
        });
    }
    if (isScalarArray()) {
        bool parsed = false;
        withScalarType(m_valueType - vtSCharArray, [&](auto tag) {
            using T = typename decltype(tag)::type;
            parsed = bytesToVector(bytesOfVariant(value), static_cast<std::vector<T> **>(m_value));
        });
        return parsed;
    }
    switch (m_valueType) {
    case vtToken: {
        if (ctx == nullptr || ctx->m_stringToToken == nullptr)
            return false;
        std::string name = textOfVariant(value).toStdString();
        *static_cast<BDDToken *>(m_value) = ctx->m_stringToToken(&name);
        return true;
    }
    case vtWhitespace:
        *static_cast<BDDWhitespace *>(m_value) = scalarFromVariant<BDDWhitespace>(value);
        return true;
    case vtString:
        *static_cast<QString *>(m_value) = textOfVariant(value);
        return true;
    case vtMemoryBuffer: {
        const QByteArray bytes = bytesOfVariant(value);
        if (bytes.isEmpty())
            return true;
        MemoryBuffer *&buffer = *static_cast<MemoryBuffer **>(m_value);
        if (buffer == nullptr) {
            if (ctx == nullptr || ctx->m_bufferPool == nullptr)
                return false;
            buffer = ctx->m_bufferPool->allocateBuffer(static_cast<std::size_t>(bytes.size()));
        }
        buffer->putRawBytes(bytes.constData(), static_cast<std::size_t>(bytes.size()));
        return true;
    }
    default:
        return false;
    }
}

// ---------------------------------------------------------------------------
// BDDStructure
// ---------------------------------------------------------------------------

const BDDItem *BDDStructure::findItem(int id, unsigned long &index) const
{
    index = 0;
    if (m_items == nullptr || id == 0)
        return nullptr;
    for (const BDDItem *item = m_items; item->m_id != 0; ++item, ++index)
        if (item->m_id == id)
            return item;
    return nullptr;
}

const BDDItem *BDDStructure::findItem(int id) const
{
    unsigned long index;
    return findItem(id, index);
}

const BDDItem *BDDStructure::getItemByIndex(unsigned long index) const
{
    if (m_items == nullptr)
        return nullptr;
    for (unsigned long i = 0; m_items[i].m_id != 0; ++i)
        if (i == index)
            return &m_items[i];
    return nullptr;
}

unsigned long BDDStructure::countItems() const
{
    unsigned long count = 0;
    if (m_items != nullptr)
        while (m_items[count].m_id != 0)
            ++count;
    return count;
}

// ---------------------------------------------------------------------------
// BDDLStructBase
// ---------------------------------------------------------------------------

BDDLStructBase::BDDLStructBase() : m_itemName(NoNameString), m_description(NoNameString) {}

// Out of line, where the item view is a complete type.
BDDLStructBase::~BDDLStructBase() = default;

void *BDDLStructBase::operator new(std::size_t size)
{
    return blockAllocator_new(size);
}

void BDDLStructBase::operator delete(void *block)
{
    blockAllocator_delete(block);
}

cameraStatus_t BDDLStructBase::validate()
{
    return 0;
}

cameraStatus_t BDDLStructBase::vir_readFromBuffer(context *, BDDLStructBase *, BDDLStructBase *)
{
    return 0;
}

cameraStatus_t BDDLStructBase::vir_writeToBuffer(context *)
{
    return 0;
}

BDDStructure *BDDLStructBase::getBDDStructureDefinition() const
{
    return nullptr;
}

void BDDLStructBase::AddChild(BDDLStructBase *child)
{
    if (!m_children)
        m_children = std::make_unique<std::vector<BDDLStructBase *>>();
    m_children->push_back(child);
}

BDDLStructBase *BDDLStructBase::getChild(unsigned index) const
{
    if (!m_children || index >= m_children->size())
        return nullptr;
    return (*m_children)[index];
}

unsigned BDDLStructBase::countChildren() const
{
    return m_children ? static_cast<unsigned>(m_children->size()) : 0;
}

BDDLStructBase *BDDLStructBase::RemoveLastChild()
{
    if (!m_children || m_children->empty())
        return nullptr;
    BDDLStructBase *const last = m_children->back();
    m_children->pop_back();
    return last;
}

const BDDItem *BDDLStructBase::getBDDItemDefinition(unsigned long id) const
{
    const BDDStructure *const definition = getBDDStructureDefinition();
    return definition ? definition->findItem(static_cast<int>(id)) : nullptr;
}

unsigned long BDDLStructBase::getCountOfItems() const
{
    const BDDStructure *const definition = getBDDStructureDefinition();
    return definition ? definition->countItems() : 0;
}

BDDItemAccessor BDDLStructBase::accessorOf(const BDDItem *item) const
{
    return item ? item->m_accessor : nullptr;
}

bool BDDLStructBase::getItemObjectByIndex(unsigned long index, BDDItemObject &object)
{
    const BDDStructure *const definition = getBDDStructureDefinition();
    const BDDItemAccessor accessor = accessorOf(definition ? definition->getItemByIndex(index) : nullptr);
    if (accessor == nullptr)
        return false;
    accessor(this, object);
    return true;
}

bool BDDLStructBase::getItemObjectByEnum(unsigned long id, BDDItemObject &object)
{
    const BDDItemAccessor accessor = accessorOf(getBDDItemDefinition(id));
    if (accessor == nullptr)
        return false;
    accessor(this, object);
    return true;
}

std::unique_ptr<BDDLStructItem_itr> BDDLStructBase::getNewItemItrByIndex(unsigned long index)
{
    const BDDStructure *const definition = getBDDStructureDefinition();
    const BDDItem *const item = definition ? definition->getItemByIndex(index) : nullptr;
    if (item == nullptr)
        return nullptr;
    return std::make_unique<BDDLStructItem_itr>(this, definition, item, index);
}

std::unique_ptr<BDDLStructItem_itr> BDDLStructBase::getNewItemItrByEnum(unsigned long id)
{
    const BDDStructure *const definition = getBDDStructureDefinition();
    if (definition == nullptr)
        return nullptr;
    unsigned long index;
    const BDDItem *const item = definition->findItem(static_cast<int>(id), index);
    if (item == nullptr)
        return nullptr;
    return std::make_unique<BDDLStructItem_itr>(this, definition, item, index);
}

uint64_t BDDLStructBase::rawBDDItemValue(unsigned long id)
{
    BDDItemObject object;
    if (!getItemObjectByEnum(id, object))
        throw std::runtime_error("rawBDDItemValue requested on non existant item");
    unsigned long value;
    if (!object.getScalarAsSizet(value))
        throw "rawBDDItemValue reqested on non scalar item";
    return value;
}

BDDItemObject BDDLStructBase::structureItemObject(unsigned long id)
{
    BDDItemObject object;
    if (!getItemObjectByEnum(id, object))
        throw "rawBDDItemStructPtr reqested on non existant item";
    return object;
}

BDDLStructBase *BDDLStructBase::rawBDDItemStructPtr(unsigned long id)
{
    BDDLStructBase *node = nullptr;
    if (!structureItemObject(id).getRawStructPtr(&node))
        throw "rawBDDItemValue reqested on non scalar item";
    return node;
}

void BDDLStructBase::setBDDItemStructPtr(unsigned long id, BDDLStructBase *node)
{
    structureItemObject(id).setRawStructPtr(node);
}

MemoryBuffer *BDDLStructBase::getInputBuffer() const
{
    const context *const ctx = m_root ? m_root->getContext() : nullptr;
    return ctx ? ctx->m_inputBuffer : nullptr;
}

MemoryBuffer *BDDLStructBase::getOutputBuffer() const
{
    const context *const ctx = m_root ? m_root->getContext() : nullptr;
    return ctx ? ctx->m_outputBuffer : nullptr;
}

// Copies straight from the buffer's bytes, so the input's cursor is left
// where the reader has it.
QByteArray BDDLStructBase::toQByteArray() const
{
    const MemoryBuffer *const input = getInputBuffer();
    if (input == nullptr || m_position >= input->sizeOfMB())
        return QByteArray();
    const std::size_t available = input->sizeOfMB() - m_position;
    const std::size_t length = std::min<std::size_t>(m_size, available);
    return QByteArray(reinterpret_cast<const char *>(input->constData()) + m_position, static_cast<int>(length));
}

cameraStatus_t BDDLStructBase::initialBeforeReadFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent)
{
    m_root = dynamic_cast<BDDLStructBase_Root *>(root);
    m_parent = parent;
    m_position = (ctx && ctx->m_inputBuffer) ? static_cast<uint32_t>(ctx->m_inputBuffer->tell()) : 0;
    m_size = 0;
    return 0;
}

cameraStatus_t BDDLStructBase::initialBDDLStructBase_Root(BDDLStructBase_Root *root, CameraBase *session,
                                                          VXCameraIF *camera, ParameterBlock *block,
                                                          unsigned position)
{
    m_root = root;
    m_parent = nullptr;
    m_position = position;
    m_size = 0;
    if (root != nullptr) {
        if (context *const ctx = root->getContext()) {
            ctx->m_cameraSession = session;
            ctx->m_camera = camera;
            ctx->m_parameterBlock = block;
        }
    }
    return 0;
}

bool BDDLStructBase::ucpNodeOkToWrite(BDDLStructBase *node)
{
    if (node == nullptr)
        return false;
    if (node->m_processStatus & processStatusWritable)
        return true;
    if (node->m_processStatus != 0)
        return false;

    const auto named = [](const char *name) { return name != nullptr && std::strcmp(name, NoNameString) != 0; };
    const char *name = node->m_description;
    if (!named(name))
        name = named(node->m_itemName) ? node->m_itemName : node->get_desc_string();
    if (name == nullptr)
        name = "whoami?";
    vx_issue(m_root, 464, "Object '%s' at %x not checked before writing", name, node->m_position);
    return false;
}

ContentManagement &BDDLStructBase::contentManagementObject() const
{
    if (m_root == nullptr)
        throw std::bad_cast();
    const context *const ctx = m_root->getContext();
    if (ctx == nullptr || ctx->m_cameraSession == nullptr)
        throw "Content management policy missing";
    return ctx->m_cameraSession->contentManagement();
}

unsigned position(const BDDLStructBase *node)
{
    return node ? node->position() : 0;
}

unsigned valSize(const BDDLStructBase *node)
{
    return node ? node->size() : 0;
}

// ---------------------------------------------------------------------------
// BDDLStructBase_Root
// ---------------------------------------------------------------------------

BDDLStructBase_Root::BDDLStructBase_Root() = default;

BDDLStructBase_Root::~BDDLStructBase_Root()
{
    for (BDDLDocument *const document : m_documents)
        document->rootDestroyed();
}

UCPDocument *BDDLStructBase_Root::ownerDocument() const
{
    return m_documents.empty() ? nullptr : m_documents.back();
}

void BDDLStructBase_Root::attachDocument(BDDLDocument *document)
{
    m_documents.push_back(document);
}

void BDDLStructBase_Root::detachDocument(BDDLDocument *document)
{
    m_documents.erase(std::remove(m_documents.begin(), m_documents.end(), document), m_documents.end());
}

QString BDDLStructBase_Root::getDoctype() const
{
    return m_doctype.isEmpty() ? QStringLiteral("unknown") : m_doctype;
}

void BDDLStructBase_Root::setDoctype(QString doctype)
{
    m_doctype = std::move(doctype);
}

Camera_Pool *BDDLStructBase_Root::getCameraPool() const
{
    if (m_context == nullptr || m_context->m_cameraSession == nullptr
        || m_context->m_cameraSession->getCameraPool() == nullptr)
        throw "Camera Pool broken";
    return m_context->m_cameraSession->getCameraPool();
}

uint32_t BDDLStructBase_Root::getErrMsgID(ft_t type, char *key) const
{
    return getCameraPool()->getErrMsgID(type, key);
}

uint32_t BDDLStructBase_Root::getAnalysisGroupID(ft_t type, unsigned int item) const
{
    return getCameraPool()->getAnalysisGroupID(type, item);
}

uint32_t BDDLStructBase_Root::getSanitisationMsgID(ft_t type, char *key) const
{
    return getCameraPool()->getSanitisationMsgID(type, key);
}
