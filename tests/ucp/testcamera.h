#pragma once

// A small camera schema for the structure-tree tests, and a run that owns what a camera run owns.
//   TestRoot  (class 1, root)  1 "count" uint, 2 "single" structure, 3 "array" structure array, 4 "flag" uchar
//   TestLeaf  (class 2)        5 "value" int, 6 "label" string, 7 (no name) double
//   TestEmpty (class 3)        no items
//   TestAll   (class 4)        item 100 + c holds field<c>(), for every value type c, named after it
//                                ("sChar" ... "memoryBuffer")
// Classes free the nodes and vectors their fields hold; buffers belong to the pool.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "buffers/MemoryBufferPool.h"
#include "fixtures/fixtures.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QStringList>

#include <exception>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace testcamera {

enum ClassId : unsigned int { RootClass = 1, LeafClass, EmptyClass, AllClass };
enum ItemId : int {
    itemCount = 1, itemSingle, itemArray, itemFlag, itemValue, itemLabel, itemUnnamed, itemAllBase = 100
};

inline constexpr const char *kClassNames[] = {"", "TestRoot", "TestLeaf", "TestEmpty", "TestAll"};
BDDStructure *structureOf(ClassId classId);

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

using AllCodes = std::make_integer_sequence<int, vtMemoryBuffer + 1>;
template <typename Codes>
struct FieldsOf;
template <int... Codes>
struct FieldsOf<std::integer_sequence<int, Codes...>>
{
    using type = std::tuple<typename BDDFieldOf<Codes>::type...>;
};

class TestAll final : public TestNode<BDDLStructBase, AllClass>
{
public:
    ~TestAll() override;
    template <int Code>
    auto &field()
    {
        return std::get<Code>(m_fields);
    }
    FieldsOf<AllCodes>::type m_fields{};
};

BDDSchema *testSchema();
BDDLStructBase *testFactory(unsigned int classId); // null for an unknown class
// Tokens: names numbered 1, 2, 3 ... in first-seen order, shared by the process; 0 past 256 names.
uint32_t testStringToToken(std::string *name);
std::string testTokenToString(unsigned int id);

// One camera run over a TestRoot, with an open document in its repository.
struct TestRun
{
    TestRun();

    MemoryBuffer input, output;
    MemoryBufferPool pool;
    RepositoryComponents::DocumentAnalysis analysis;
    context ctx;
    std::unique_ptr<TestRoot> root;

    // A node of the class bound to this run's root (the caller owns it).
    template <typename Node>
    Node *make()
    {
        Node *node = new Node;
        node->setRoot(root.get());
        return node;
    }
};

using ::thrownText;

// The records of the current document, one line each:
//   content|sanitise|issue|remedy <group> <description>|<size>[|<sanitisation or issue id>]
QStringList recordsOf(const RepositoryComponents::DocumentAnalysis &analysis);

} // namespace testcamera
