#include "ucp/bddlstructitem_itr.h"

#include "qtprinters.h"
#include "testcamera.h"

#include <gtest/gtest.h>

using namespace testcamera;

namespace {

// The view of one of a node's items, as UCP shows it.
BDDLStructItem_itr *view(BDDLStructBase &node, unsigned long index)
{
    node.makeUCPItemItrsReady();
    return node.itemItrs().at(index).get();
}

enum RootIndex : unsigned long { countIndex, singleIndex, arrayIndex, flagIndex };

} // namespace

TEST(BDDLStructItem_itr, NamesTypesAndValuesFollowTheSchemaAndItemKind)
{
    TestRun run;
    const std::unique_ptr<TestAll> all(run.make<TestAll>());
    const std::pair<int, UCPNode::NodeType> types[] = {
        {vtSChar, UCPNode::VALUE},      {vtDouble, UCPNode::ITEM},          {vtToken, UCPNode::ITEM},
        {vtFloatArray, UCPNode::VALUEARRAY}, {vtStructure, UCPNode::STRUCT}, {vtStructureArray, UCPNode::STRUCTARRAY},
    };
    for (const auto &[code, type] : types)
        EXPECT_EQ(view(*all, code)->getNodeType(), type) << "value type " << code;
    // Only structures can be empty; then they are inactive and childless.
    EXPECT_FALSE(view(*all, vtStructure)->isNodeActive());
    EXPECT_TRUE(view(*all, vtString)->isNodeActive());
    all->field<vtStructureArray>() = new BDDStructureVector;
    EXPECT_TRUE(view(*all, vtStructureArray)->hasChildNodes());
    view(*all, vtUShort)->setNodeValue(QStringLiteral("513"));
    EXPECT_EQ(all->field<vtUShort>(), 513);

    const std::unique_ptr<TestLeaf> leaf(run.make<TestLeaf>());
    EXPECT_EQ(view(*leaf, 1)->getNodeName(), QStringLiteral("label"));
    EXPECT_EQ(view(*leaf, 2)->getNodeName(), QStringLiteral(":schemamissing:"));
    run.ctx.m_getSchema = nullptr;
    EXPECT_EQ(thrownText([&] { view(*leaf, 0)->getNodeName(); }), "Missing BDDSchema");
}

TEST(BDDLStructItem_itr, SizedArrayFillsItsSlotsInOrderThenGrows)
{
    TestRun run;
    BDDLStructItem_itr *array = view(*run.root, arrayIndex);
    array->setNodeAttribute(QStringLiteral("size"), 3u);
    ASSERT_NE(run.root->m_array, nullptr);
    EXPECT_EQ(*run.root->m_array, BDDStructureVector(3, nullptr));
    array->setNodeAttribute(QStringLiteral("size"), 7u);
    EXPECT_EQ(run.root->m_array->size(), 3u) << "an array that exists keeps its size";

    TestLeaf *elements[4];
    for (TestLeaf *&element : elements) {
        element = run.make<TestLeaf>();
        EXPECT_EQ(array->appendChild(element), element);
        EXPECT_EQ(element->parent(), run.root.get());
    }
    EXPECT_EQ(*run.root->m_array, (BDDStructureVector{elements[0], elements[1], elements[2], elements[3]}));
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(elements[k]->previous(), k > 0 ? elements[k - 1] : nullptr) << "element " << k;
        EXPECT_EQ(elements[k]->next(), k < 3 ? elements[k + 1] : nullptr) << "element " << k;
    }
    EXPECT_EQ(run.root->countChildren(), 4u) << "the owner lists what its views received";
    EXPECT_EQ(array->getNodeAttribute(QStringLiteral("size")), QVariant(qulonglong(4))) << "the count of elements";
    EXPECT_EQ(array->getFirstChild(), elements[0]) << "and puts the cursor back at the first slot";
    TestLeaf *replacement = run.make<TestLeaf>();
    array->appendChild(replacement);
    EXPECT_EQ(run.root->m_array->front(), replacement);
    delete elements[0];

    // Without a size the array grows from nothing; a hostile size makes no huge vector.
    TestRun other;
    TestEmpty *first = other.make<TestEmpty>(), *second = other.make<TestEmpty>();
    view(*other.root, arrayIndex)->appendChild(first);
    view(*other.root, arrayIndex)->appendChild(second);
    EXPECT_EQ(*other.root->m_array, (BDDStructureVector{first, second}));
    TestRun hostile;
    view(*hostile.root, arrayIndex)->setNodeAttribute(QStringLiteral("size"), 4000000000u);
    ASSERT_NE(hostile.root->m_array, nullptr);
    EXPECT_LE(hostile.root->m_array->size(), 65536u);
}

TEST(BDDLStructItem_itr, SingleStructureItemsTakeOnlyAStructure)
{
    TestRun run;
    BDDLStructItem_itr *single = view(*run.root, singleIndex);
    BDDLStructItem_itr *count = view(*run.root, countIndex);
    TestLeaf stray;
    EXPECT_EQ(count->appendChild(&stray), nullptr) << "not a structure item";
    EXPECT_EQ(single->appendChild(count), nullptr) << "a view is no structure";
    EXPECT_EQ(single->appendChild(nullptr), nullptr);
    count->setNodeAttribute(QStringLiteral("size"), 5u);
    EXPECT_EQ(run.root->m_count, 0u) << "a size for an item that holds no structure";
    TestLeaf *leaf = run.make<TestLeaf>();
    EXPECT_EQ(single->appendChild(leaf), leaf);
    EXPECT_EQ(run.root->m_single, leaf);
    leaf->m_position = 12;
    EXPECT_EQ(single->getNodeAttribute(QStringLiteral("offset")), QVariant(12u)) << "the held structure's";
    EXPECT_EQ(single->getLastChild(), view(*leaf, 2)) << "the structure's views are the item's children";
    EXPECT_EQ(count->getNextSibling(), single);
    EXPECT_EQ(view(*run.root, flagIndex)->getNextSibling(), nullptr);
}
