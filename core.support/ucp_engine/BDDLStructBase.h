#pragma once

#include "cameras/filetype.h"
#include "ucp/ucpnode.h"
#include "ucp_engine/analysis.functions.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

class BDDLDocument;
class BDDLStructBase;
class BDDLStructBase_Root;
class BDDLStructItem_itr;
class CameraBase;
class Camera_Pool;
class ContentManagement;
class MemoryBuffer;
class MemoryBufferPool;
class ParameterBlock;
class VXCameraIF;
struct BDDSchema;
struct context;
namespace RepositoryComponents {
class DocumentAnalysis;
}

// ---------------------------------------------------------------------------
// Schema
// ---------------------------------------------------------------------------

// What an item's field holds. The numbers are written into serialised trees.
enum BDDValueType : int32_t {
    vtNone = -1, // nothing filled in yet
    vtSChar = 0,
    vtShort = 1,
    vtInt = 2,
    vtLongLong = 3,
    vtUChar = 4,
    vtUShort = 5,
    vtUInt = 6,
    vtULongLong = 7,
    vtChar = 8,
    vtWChar = 9,
    vtDouble = 10,
    vtFloat = 11,
    vtSCharArray = 12,
    vtShortArray = 13,
    vtIntArray = 14,
    vtLongLongArray = 15,
    vtUCharArray = 16,
    vtUShortArray = 17,
    vtUIntArray = 18,
    vtULongLongArray = 19,
    vtCharArray = 20,
    vtWCharArray = 21,
    vtDoubleArray = 22,
    vtFloatArray = 23,
    vtStructure = 24,
    vtStructureArray = 25,
    vtToken = 26,
    vtWhitespace = 27,
    vtString = 28,
    vtMemoryBuffer = 29,
};

// The C++ types of the fields, so that camera classes declare exactly what the
// shared code reads. A scalar of code c is BDDScalar<c>; a scalar array of
// code c is a pointer to BDDScalarArray<c> (null until made).
using BDDScalarTypes =
    std::tuple<int8_t, int16_t, int32_t, int64_t, uint8_t, uint16_t, uint32_t, uint64_t, char, wchar_t, double, float>;
template <int Code>
using BDDScalar = std::tuple_element_t<Code, BDDScalarTypes>;
template <int Code>
using BDDScalarArray = std::vector<BDDScalar<Code - vtSCharArray>>;
using BDDStructureVector = std::vector<BDDLStructBase *>; // vtStructureArray, null until made
using BDDToken = uint32_t;                                 // vtToken
using BDDWhitespace = uint8_t;                             // vtWhitespace
static_assert(sizeof(wchar_t) == 4, "wide characters are held in 32 bits");

// A transient typed view of one field of one node: the field's address and
// its value type, filled in by the item's accessor.
class BDDItemObject
{
public:
    BDDItemObject() = default;

    // What an accessor calls: the field's address inside the node and its type.
    void set(void *field, BDDValueType type)
    {
        m_value = field;
        m_valueType = type;
    }
    void *value() const { return m_value; }
    int32_t valueType() const { return m_valueType; }

    // Integer and character scalars; floats (10, 11) do not count.
    bool isScalar() const { return m_valueType >= vtSChar && m_valueType <= vtWChar; }
    bool isScalarArray() const { return m_valueType >= vtSCharArray && m_valueType <= vtFloatArray; }
    bool isStructure() const { return m_valueType == vtStructure; }
    bool isStructureArray() const { return m_valueType == vtStructureArray; }
    bool isToken() const { return m_valueType == vtToken; }
    bool isWhitespace() const { return m_valueType == vtWhitespace; }
    // Structures and structure arrays are empty when their pointer is null;
    // every other kind only when there is no field at all.
    bool isEmpty() const;

    // The integer value of codes 0-7 and 9, signed codes sign-extended.
    bool getScalarAsSizet(unsigned long &value) const;
    // Only for vtStructure.
    bool getRawStructPtr(BDDLStructBase **node) const;
    bool setRawStructPtr(BDDLStructBase *node);
    // Only for vtStructureArray.
    bool getRawStructVectorPtr(BDDStructureVector **vector) const;
    bool setRawStructVectorPtr(BDDStructureVector *vector);

    // The value as a variant: numbers as numbers, scalar arrays as their
    // big-endian byte form, tokens as their name, strings, buffer contents.
    // Structures give an invalid variant.
    QVariant getAsQVariant(context *ctx) const;
    // The reverse; false when the kind cannot be set or the text is unusable.
    bool setFromQVariant(const QVariant &value, context *ctx);

private:
    void *m_value = nullptr;
    int32_t m_valueType = vtNone;
};

// Runs on a node and fills the object with one of the node's fields.
using BDDItemAccessor = void (*)(BDDLStructBase *node, BDDItemObject &object);

// The field type that goes with each value type.
template <int Code, typename = void>
struct BDDFieldOf;
template <int Code>
struct BDDFieldOf<Code, std::enable_if_t<(Code >= vtSChar && Code <= vtFloat)>>
{
    using type = BDDScalar<Code>;
};
template <int Code>
struct BDDFieldOf<Code, std::enable_if_t<(Code >= vtSCharArray && Code <= vtFloatArray)>>
{
    using type = BDDScalarArray<Code> *;
};
template <>
struct BDDFieldOf<vtStructure>
{
    using type = BDDLStructBase *;
};
template <>
struct BDDFieldOf<vtStructureArray>
{
    using type = BDDStructureVector *;
};
template <>
struct BDDFieldOf<vtToken>
{
    using type = BDDToken;
};
template <>
struct BDDFieldOf<vtWhitespace>
{
    using type = BDDWhitespace;
};
template <>
struct BDDFieldOf<vtString>
{
    using type = QString;
};
template <>
struct BDDFieldOf<vtMemoryBuffer>
{
    using type = MemoryBuffer *;
};

namespace BDDDetail {
template <typename Member>
struct MemberOf;
template <typename Class, typename Field>
struct MemberOf<Field Class::*>
{
    using ClassType = Class;
    using FieldType = Field;
};
} // namespace BDDDetail

// The accessor of a data member, checked against its value type at compile
// time: {id, {}, types, bddFieldAccessor<&MyNode::m_count, vtUInt>}.
template <auto Member, BDDValueType Type>
void bddFieldAccessor(BDDLStructBase *node, BDDItemObject &object)
{
    using Traits = BDDDetail::MemberOf<decltype(Member)>;
    static_assert(std::is_same_v<typename Traits::FieldType, typename BDDFieldOf<Type>::type>,
                  "the field's type does not match its value type");
    object.set(&(static_cast<typename Traits::ClassType *>(node)->*Member), Type);
}

// One field of a class. Arrays of items end with an item whose id is 0.
struct BDDItem
{
    int32_t m_id;
    void *m_reserved[3];       // kept for the cameras; the shared code never reads them
    const int32_t *m_typeList; // ends with 0; the shared code never reads it
    BDDItemAccessor m_accessor;
};

// One node class: its id (the node's class id) and its items.
struct BDDStructure
{
    int32_t m_id;
    BDDItem *m_items;
    void *m_reserved[2];

    // The item with that id and its position in the array, or null.
    const BDDItem *findItem(int id, unsigned long &index) const;
    const BDDItem *findItem(int id) const;
    // The index-th item, or null past the last one.
    const BDDItem *getItemByIndex(unsigned long index) const;
    unsigned long countItems() const;
};

// A camera's schema: the names of its item ids and its structures.
struct BDDSchema
{
    QMap<int32_t, QByteArray> m_itemNames;
    BDDStructure **m_structures; // ends with a null pointer
    void *m_reserved[2];
};

// The big-endian byte form of a scalar array (no count, no separators) and
// back. Defined for the twelve element types of BDDScalarTypes.
template <typename T>
QByteArray vectorToQByteArray(const std::vector<T> *vector);
// Parses the Latin-1 bytes of `text` into *target, making the vector when
// *target is null; a trailing partial element is ignored. False for an empty
// text or a null target.
template <typename T>
bool QStringToVector(const QString &text, std::vector<T> **target);

// ---------------------------------------------------------------------------
// Reading context
// ---------------------------------------------------------------------------

using BDDObjectFactory = BDDLStructBase *(*)(unsigned int classId);
using BDDSchemaGetter = BDDSchema *(*)();
using BDDStringToToken = uint32_t (*)(std::string *name);
using BDDTokenToString = std::string (*)(unsigned int id);

// One camera run's reading state. Made and owned by the camera; the root
// points at it. The reserved words are kept for the cameras.
struct context
{
    void *m_reserved0 = nullptr;
    void *m_reserved1 = nullptr;
    MemoryBuffer *m_inputBuffer = nullptr;
    MemoryBuffer *m_outputBuffer = nullptr;
    int32_t m_depthOfReading = 0;
    int32_t m_reserved2 = 0;
    void *m_reserved3 = nullptr;
    ParameterBlock *m_parameterBlock = nullptr;
    BDDObjectFactory m_objectFactory = nullptr;
    void *m_reserved4 = nullptr;
    void *m_reserved5 = nullptr;
    BDDSchemaGetter m_getSchema = nullptr;
    BDDStringToToken m_stringToToken = nullptr;
    BDDTokenToString m_tokenToString = nullptr;
    RepositoryComponents::DocumentAnalysis *m_analysis = nullptr;
    MemoryBufferPool *m_bufferPool = nullptr;
    VXCameraIF *m_camera = nullptr;
    CameraBase *m_cameraSession = nullptr;
};

// ---------------------------------------------------------------------------
// Nodes
// ---------------------------------------------------------------------------

// Counting allocator behind every node: C heap blocks and a process-wide,
// atomic count of the live ones.
void *blockAllocator_new(std::size_t size);
void blockAllocator_delete(void *block);
long countOfBlocksAllocated();

// A node of a camera's structure tree. Cameras derive their classes from it
// (the root's from BDDLStructBase_Root) and describe their fields in a
// BDDStructure; the shared code reaches the fields only through it.
//
// The children list does not own the children: each class frees the nodes
// and item storage that its own fields hold.
class BDDLStructBase : public UCPNode
{
public:
    // Bit 0 of the read flags: reading the node failed.
    static constexpr uint16_t readFailed = 0x0001;
    // Process-status bit: checked and fit to be written.
    static constexpr uint32_t processStatusWritable = 0x80;

    BDDLStructBase();
    ~BDDLStructBase() override;

    static void *operator new(std::size_t size);
    static void operator delete(void *block);

    // --- UCPNode (a structure node and its item views) --------------------------
    QString getNodeName() const override;
    QVariant getNodeValue() const override;
    QVariant getNodeAttribute(QString name) const override;
    void setNodeAttribute(QString name, QVariant value) override;
    NodeType getNodeType() const override;
    bool isNodeActive() const override;
    UCPNode *getParentNode() override;
    UCPNode *getFirstChild() override;
    UCPNode *getLastChild() override;
    UCPNode *getPreviousSibling() override;
    UCPNode *getNextSibling() override;
    UCPDocument *getOwnerDocument() const override;
    UCPNode *insertBefore(UCPNode *newChild, UCPNode *refChild) override;
    UCPNode *replaceChild(UCPNode *newChild, UCPNode *oldChild) override;
    UCPNode *removeChild(UCPNode *oldChild) override;
    UCPNode *appendChild(UCPNode *newChild) override;
    bool hasChildNodes() const override;
    void setNodeValue(QVariant value) override;

    // --- what each class supplies --------------------------------------------------
    virtual cameraStatus_t validate();
    // Every implementation calls initialBeforeReadFromBuffer() first.
    virtual cameraStatus_t vir_readFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent);
    virtual cameraStatus_t vir_writeToBuffer(context *ctx);
    virtual BDDStructure *getBDDStructureDefinition() const;
    virtual const char *get_desc_string() const = 0;

    // --- children (not owned) ----------------------------------------------------------
    void AddChild(BDDLStructBase *child);
    BDDLStructBase *getChild(unsigned index) const;
    unsigned countChildren() const;
    // Whether the children list exists (it is made by the first AddChild).
    bool hasChildrenList() const { return m_children != nullptr; }
    // Unhooks the last child and hands it back (not deleted); null when none.
    BDDLStructBase *RemoveLastChild();

    // --- items ---------------------------------------------------------------------
    const BDDItem *getBDDItemDefinition(unsigned long id) const;
    unsigned long getCountOfItems() const;
    bool getItemObjectByIndex(unsigned long index, BDDItemObject &object);
    bool getItemObjectByEnum(unsigned long id, BDDItemObject &object);
    // A view of one item, owned by the caller; null without definition or item.
    std::unique_ptr<BDDLStructItem_itr> getNewItemItrByIndex(unsigned long index);
    std::unique_ptr<BDDLStructItem_itr> getNewItemItrByEnum(unsigned long id);
    // An integer scalar item's value, sign-extended. Throws std::runtime_error
    // for an unknown id and a C string for any other kind of item.
    uint64_t rawBDDItemValue(unsigned long id);
    // The node a structure item holds; throws a C string for an unknown id or
    // another kind of item.
    BDDLStructBase *rawBDDItemStructPtr(unsigned long id);
    // Stores a node into a structure item (other kinds are left alone); throws
    // a C string for an unknown id.
    void setBDDItemStructPtr(unsigned long id, BDDLStructBase *node);
    // Makes the item views that UCP shows as this node's children; true.
    bool makeUCPItemItrsReady();
    // The item views made by makeUCPItemItrsReady(), in item order.
    const std::vector<std::unique_ptr<BDDLStructItem_itr>> &itemItrs() const { return m_itemItrs; }

    // --- the run ---------------------------------------------------------------------
    MemoryBuffer *getInputBuffer() const;
    MemoryBuffer *getOutputBuffer() const;
    // The input bytes the node covers (fewer when the input ends first).
    QByteArray toQByteArray() const;
    unsigned position() const { return m_position; }
    unsigned size() const { return m_size; }

    // Sets root, parent and the position at the input's cursor; size 0. Returns 0.
    cameraStatus_t initialBeforeReadFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent);
    // Called on a root with itself as `root`: binds it, and its context, to the
    // run's session, camera and parameter block. Returns 0.
    cameraStatus_t initialBDDLStructBase_Root(BDDLStructBase_Root *root, CameraBase *session, VXCameraIF *camera,
                                              ParameterBlock *block, unsigned position);
    // Whether `node` may be written. A node never checked (process status 0)
    // is reported as issue 464 against this node's root.
    bool ucpNodeOkToWrite(BDDLStructBase *node);
    // The policy of the run's session. Throws std::bad_cast without a root,
    // and the C string "Content management policy missing" without a session.
    ContentManagement &contentManagementObject() const;

    // --- links -----------------------------------------------------------------------
    BDDLStructBase *parent() const { return m_parent; }
    void setParent(BDDLStructBase *parent) { m_parent = parent; }
    BDDLStructBase_Root *root() const { return m_root; }
    void setRoot(BDDLStructBase_Root *root) { m_root = root; }
    // Neighbours when the node is an element of a structure array.
    BDDLStructBase *previous() const { return m_previous; }
    BDDLStructBase *next() const { return m_next; }
    void setPrevious(BDDLStructBase *node) { m_previous = node; }
    void setNext(BDDLStructBase *node) { m_next = node; }

    // --- node data, read and written by cameras and the validation walk -------------
    const char *m_itemName;    // name under which the node hangs in its parent
    const char *m_description; // each class points it at a static string of its own
    cameraStatus_t m_cameraStatus = 0;
    uint32_t m_processStatus = 0;
    uint32_t m_position = 0;
    uint32_t m_size = 0;
    int32_t m_classId = 0;
    uint16_t m_readFlags = 0;

private:
    BDDItemAccessor accessorOf(const BDDItem *item) const;
    // The item's field; the C-string failures of the raw structure accessors.
    BDDItemObject structureItemObject(unsigned long id);
    // The document and view helpers of the UCP unit.
    BDDLStructItem_itr *itemItr(std::ptrdiff_t index);

    std::unique_ptr<std::vector<BDDLStructBase *>> m_children;
    BDDLStructBase *m_parent = nullptr;
    BDDLStructBase *m_previous = nullptr;
    BDDLStructBase *m_next = nullptr;
    BDDLStructBase_Root *m_root = nullptr;
    // Layout words no shared code gives a use; kept, and zero.
    [[maybe_unused]] void *m_reserved = nullptr;
    std::vector<std::unique_ptr<BDDLStructItem_itr>> m_itemItrs;
    [[maybe_unused]] uint64_t m_reserved64 = 0;
};

unsigned position(const BDDLStructBase *node);
// The node's size; 0 for a null node.
unsigned valSize(const BDDLStructBase *node);

// The top node of a tree: it carries the run's context, the file type and
// doctype, and the way to the camera pool of the run's session.
class BDDLStructBase_Root : public BDDLStructBase
{
public:
    BDDLStructBase_Root();
    ~BDDLStructBase_Root() override;

    context *getContext() const { return m_context; }
    void setContext(context *ctx) { m_context = ctx; }

    // "unknown" while no doctype is set.
    QString getDoctype() const;
    void setDoctype(QString doctype);
    ft_t getFiletype() const { return m_fileType; }
    void setFiletype(ft_t type) { m_fileType = type; }

    // The root of the document enclosing this one, if a camera set it.
    BDDLStructBase_Root *enclosingRoot() const { return m_enclosingRoot; }
    void setEnclosingRoot(BDDLStructBase_Root *root) { m_enclosingRoot = root; }

    // The newest document standing over this tree, or null. Documents attach
    // and detach themselves; the root detaches those left when it goes.
    UCPDocument *ownerDocument() const;
    void attachDocument(BDDLDocument *document);
    void detachDocument(BDDLDocument *document);

    // The session's camera pool; throws the C string "Camera Pool broken" when
    // there is no context, session or pool.
    Camera_Pool *getCameraPool() const;
    // Passed straight to the camera pool, whose std::runtime_error passes through.
    uint32_t getErrMsgID(ft_t type, char *key) const;
    uint32_t getAnalysisGroupID(ft_t type, unsigned int item) const;
    uint32_t getSanitisationMsgID(ft_t type, char *key) const;

private:
    ft_t m_fileType = ft_unknown;
    BDDLStructBase_Root *m_enclosingRoot = nullptr;
    [[maybe_unused]] void *m_reserved = nullptr; // a layout word nothing uses
    context *m_context = nullptr;
    QString m_doctype;
    std::vector<BDDLDocument *> m_documents;
};
