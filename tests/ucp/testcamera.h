#pragma once

// A small camera schema for the structure-tree tests, with a run that owns
// everything a camera run owns (buffers, pool, repository, context, root).
//
//   TestRoot   (class 1, root)   1 "count" uint, 2 "single" structure,
//                                3 "array" structure array, 4 "flag" uchar
//   TestLeaf   (class 2)         5 "value" int, 6 "label" string, 7 (not named
//                                in the schema) double
//   TestEmpty  (class 3)         no items
//   TestAll    (class 4)         one item of every value type: item 100 + code,
//                                named after the type ("schar" ... "buffer")
//
// Every class frees what its fields hold (child nodes, vectors); buffers
// belong to the run's pool.

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

enum ItemId : int {
    itemCount = 1,
    itemSingle = 2,
    itemArray = 3,
    itemFlag = 4,
    itemValue = 5,
    itemLabel = 6,
    itemUnnamed = 7,
    itemAllBase = 100, // TestAll: 100 + value type
};

class TestLeaf final : public BDDLStructBase
{
public:
    TestLeaf();
    BDDStructure *getBDDStructureDefinition() const override;
    const char *get_desc_string() const override { return "TestLeaf"; }

    int32_t m_value = 0;
    QString m_label;
    double m_unnamed = 0;
};

class TestEmpty final : public BDDLStructBase
{
public:
    TestEmpty();
    BDDStructure *getBDDStructureDefinition() const override;
    const char *get_desc_string() const override { return "TestEmpty"; }
};

// Owns its single structure and the elements of its structure array.
class TestRoot final : public BDDLStructBase_Root
{
public:
    TestRoot();
    ~TestRoot() override;
    BDDStructure *getBDDStructureDefinition() const override;
    const char *get_desc_string() const override { return "TestRoot"; }

    uint32_t m_count = 0;
    BDDLStructBase *m_single = nullptr;
    BDDStructureVector *m_array = nullptr;
    uint8_t m_flag = 0;
};

// One field of every value type.
class TestAll final : public BDDLStructBase
{
public:
    TestAll();
    ~TestAll() override;
    BDDStructure *getBDDStructureDefinition() const override;
    const char *get_desc_string() const override { return "TestAll"; }

    int8_t m_schar = 0;
    int16_t m_short = 0;
    int32_t m_int = 0;
    int64_t m_longlong = 0;
    uint8_t m_uchar = 0;
    uint16_t m_ushort = 0;
    uint32_t m_uint = 0;
    uint64_t m_ulonglong = 0;
    char m_char = 0;
    wchar_t m_wchar = 0;
    double m_double = 0;
    float m_float = 0;
    BDDScalarArray<vtSCharArray> *m_scharArray = nullptr;
    BDDScalarArray<vtShortArray> *m_shortArray = nullptr;
    BDDScalarArray<vtIntArray> *m_intArray = nullptr;
    BDDScalarArray<vtLongLongArray> *m_longlongArray = nullptr;
    BDDScalarArray<vtUCharArray> *m_ucharArray = nullptr;
    BDDScalarArray<vtUShortArray> *m_ushortArray = nullptr;
    BDDScalarArray<vtUIntArray> *m_uintArray = nullptr;
    BDDScalarArray<vtULongLongArray> *m_ulonglongArray = nullptr;
    BDDScalarArray<vtCharArray> *m_charArray = nullptr;
    BDDScalarArray<vtWCharArray> *m_wcharArray = nullptr;
    BDDScalarArray<vtDoubleArray> *m_doubleArray = nullptr;
    BDDScalarArray<vtFloatArray> *m_floatArray = nullptr;
    BDDLStructBase *m_structure = nullptr;
    BDDStructureVector *m_structureArray = nullptr;
    BDDToken m_token = 0;
    BDDWhitespace m_whitespace = 0;
    QString m_string;
    MemoryBuffer *m_buffer = nullptr; // the run's pool owns it
};

BDDSchema *testSchema();
// A new node of the class, or null.
BDDLStructBase *testFactory(unsigned int classId);
// Tokens: names numbered 1, 2, 3 ... in first-seen order, shared by the process.
uint32_t testStringToToken(std::string *name);
std::string testTokenToString(unsigned int id);

// One camera run over a TestRoot: buffers, pool, repository with an open
// document, and a context holding the test camera's functions.
class TestRun
{
public:
    TestRun();
    ~TestRun();
    TestRun(const TestRun &) = delete;
    TestRun &operator=(const TestRun &) = delete;

    MemoryBuffer input;
    MemoryBuffer output;
    MemoryBufferPool pool;
    RepositoryComponents::DocumentAnalysis analysis;
    context ctx;
    std::unique_ptr<TestRoot> root;

    // A node of the class, bound to this run's root.
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

// The issue items the repository's current document holds for a group, as
// "description|size|issue id" lines.
QStringList issuesOf(const RepositoryComponents::DocumentAnalysis &analysis, short group);

} // namespace testcamera
