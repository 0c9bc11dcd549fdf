#pragma once

// A small camera schema for the structure-tree tests, and a run that owns
// everything a camera run owns (buffers, pool, repository, context, root).
//
//   TestRoot  (class 1, root)  1 "count" uint, 2 "single" structure,
//                              3 "array" structure array, 4 "flag" uchar
//   TestLeaf  (class 2)        5 "value" int, 6 "label" string, 7 (no name) double
//   TestEmpty (class 3)        no items
//   TestAll   (class 4)        one item of every value type: item 100 + code,
//                              named after the type ("schar" ... "buffer")
//
// Each class frees the nodes and vectors its fields hold; buffers belong to
// the run's pool.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QStringList>

#include <exception>
#include <memory>
#include <string>

namespace testcamera {

enum ClassId : unsigned int { RootClass = 1, LeafClass = 2, EmptyClass = 3, AllClass = 4 };
enum ItemId : int { itemCount = 1, itemSingle, itemArray, itemFlag, itemValue, itemLabel, itemUnnamed, itemAllBase = 100 };

inline constexpr const char *kClassNames[] = {"", "TestRoot", "TestLeaf", "TestEmpty", "TestAll"};
BDDStructure *structureOf(ClassId classId);

// What every test class shares: its class id, description and structure.
template <typename Base, ClassId Class>
class TestNode : public Base
{
public:
    TestNode()
    {
        this->m_classId = Class;
        this->m_description = kClassNames[Class];
    }
    BDDStructure *getBDDStructureDefinition() const override { return structureOf(Class); }
    const char *get_desc_string() const override { return kClassNames[Class]; }
};

class TestLeaf final : public TestNode<BDDLStructBase, LeafClass>
{
public:
    int32_t m_value = 0;
    QString m_label;
    double m_unnamed = 0;
};

class TestEmpty final : public TestNode<BDDLStructBase, EmptyClass>
{
};

class TestRoot final : public TestNode<BDDLStructBase_Root, RootClass>
{
public:
    ~TestRoot() override;
    uint32_t m_count = 0;
    BDDLStructBase *m_single = nullptr;
    BDDStructureVector *m_array = nullptr;
    uint8_t m_flag = 0;
};

// Value type, member and item name of every TestAll field.
#define TEST_ALL_FIELDS(X)                                                                                             \
    X(vtSChar, m_schar, "schar") X(vtShort, m_short, "short") X(vtInt, m_int, "int")                                   \
    X(vtLongLong, m_longlong, "longlong") X(vtUChar, m_uchar, "uchar") X(vtUShort, m_ushort, "ushort")                 \
    X(vtUInt, m_uint, "uint") X(vtULongLong, m_ulonglong, "ulonglong") X(vtChar, m_char, "char")                       \
    X(vtWChar, m_wchar, "wchar") X(vtDouble, m_double, "double") X(vtFloat, m_float, "float")                          \
    X(vtSCharArray, m_scharArray, "scharArray") X(vtShortArray, m_shortArray, "shortArray")                            \
    X(vtIntArray, m_intArray, "intArray") X(vtLongLongArray, m_longlongArray, "longlongArray")                         \
    X(vtUCharArray, m_ucharArray, "ucharArray") X(vtUShortArray, m_ushortArray, "ushortArray")                         \
    X(vtUIntArray, m_uintArray, "uintArray") X(vtULongLongArray, m_ulonglongArray, "ulonglongArray")                   \
    X(vtCharArray, m_charArray, "charArray") X(vtWCharArray, m_wcharArray, "wcharArray")                               \
    X(vtDoubleArray, m_doubleArray, "doubleArray") X(vtFloatArray, m_floatArray, "floatArray")                         \
    X(vtStructure, m_structure, "structure") X(vtStructureArray, m_structureArray, "structureArray")                   \
    X(vtToken, m_token, "token") X(vtWhitespace, m_whitespace, "whitespace") X(vtString, m_string, "string")           \
    X(vtMemoryBuffer, m_buffer, "buffer")

class TestAll final : public TestNode<BDDLStructBase, AllClass>
{
public:
    ~TestAll() override;
#define TEST_ALL_MEMBER(code, member, name) BDDFieldOf<code>::type member{};
    TEST_ALL_FIELDS(TEST_ALL_MEMBER)
#undef TEST_ALL_MEMBER
};

BDDSchema *testSchema();
// A new node of the class, or null.
BDDLStructBase *testFactory(unsigned int classId);
// Tokens: names numbered 1, 2, 3 ... in first-seen order, shared by the process.
uint32_t testStringToToken(std::string *name);
std::string testTokenToString(unsigned int id);

// One camera run over a TestRoot, with an open document in its repository.
class TestRun
{
public:
    TestRun();
    TestRun(const TestRun &) = delete;
    TestRun &operator=(const TestRun &) = delete;

    MemoryBuffer input;
    MemoryBuffer output;
    MemoryBufferPool pool;
    RepositoryComponents::DocumentAnalysis analysis;
    context ctx;
    std::unique_ptr<TestRoot> root;

    // A node of the class, bound to this run's root (the caller owns it).
    template <typename Node>
    Node *make()
    {
        Node *node = new Node;
        node->setRoot(root.get());
        return node;
    }
};

// What `action` throws: a C string as it stands, a standard exception as
// "std: <what>", nothing as "(nothing thrown)".
template <typename Action>
std::string thrownText(Action &&action)
{
    try {
        action();
    } catch (const char *text) {
        return text;
    } catch (const std::exception &e) {
        return std::string("std: ") + e.what();
    }
    return "(nothing thrown)";
}

// Every record of a repository's current document, one line each:
//   content|sanitise|issue|remedy <group> <description>|<size>[|<sanitisation or issue id>]
QStringList recordsOf(const RepositoryComponents::DocumentAnalysis &analysis);

} // namespace testcamera
