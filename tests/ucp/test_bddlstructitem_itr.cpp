#include "ucp/bddlstructitem_itr.h"

#include "qtprinters.h"
#include "testcamera.h"

#include <gtest/gtest.h>

using namespace testcamera;

namespace {

// The view of one of the root's items, as UCP shows it.
BDDLStructItem_itr *view(BDDLStructBase &node, unsigned long index)
{
    node.makeUCPItemItrsReady();
    return node.itemItrs().at(index).get();
}

enum RootIndex : unsigned long { countIndex = 0, singleIndex = 1, arrayIndex = 2, flagIndex = 3 };

} // namespace

TEST(BDDLStructItem_itr, NamesComeFromTheSchema)
{
    TestRun run;
    TestLeaf *leaf = run.make<TestLeaf>();
    run.root->m_single = leaf;
    EXPECT_EQ(view(*run.root, countIndex)->getNodeName(), QStringLiteral("count"));
    EXPECT_EQ(view(*leaf, 1)->getNodeName(), QStringLiteral("label"));
    EXPECT_EQ(view(*leaf, 2)->getNodeName(), QStringLiteral(":schemamissing:"));
    EXPECT_EQ(view(*leaf, 0)->getNodeAttribute(QStringLiteral("name")), QVariant(QStringLiteral("value")));

    run.ctx.m_getSchema = nullptr;
    EXPECT_EQ(thrownText([&] { view(*leaf, 0)->getNodeName(); }), "Missing BDDSchema");
    run.ctx.m_getSchema = testSchema;
    run.root->setContext(nullptr);
    EXPECT_EQ(thrownText([&] { view(*leaf, 0)->getNodeName(); }), "Missing BDDSchema");
    TestLeaf loose;
    EXPECT_EQ(thrownText([&] { view(loose, 0)->getNodeName(); }), "Missing BDDSchema");
}

TEST(BDDLStructItem_itr, TypeActivityAndChildrenFollowTheItemKind)
{
    TestAll all;
    const std::pair<BDDValueType, UCPNode::NodeType> types[] = {
        {vtSChar, UCPNode::VALUE},        {vtWChar, UCPNode::VALUE},   {vtDouble, UCPNode::ITEM},
        {vtFloat, UCPNode::ITEM},         {vtSCharArray, UCPNode::VALUEARRAY}, {vtFloatArray, UCPNode::VALUEARRAY},
        {vtStructure, UCPNode::STRUCT},   {vtStructureArray, UCPNode::STRUCTARRAY}, {vtToken, UCPNode::ITEM},
        {vtWhitespace, UCPNode::ITEM},    {vtString, UCPNode::ITEM},   {vtMemoryBuffer, UCPNode::ITEM},
    };
    for (const auto &[code, type] : types)
        EXPECT_EQ(view(all, code)->getNodeType(), type) << "value type " << code;

    // Only structures can be empty; then they are inactive and childless.
    for (BDDValueType code : {vtStructure, vtStructureArray}) {
        EXPECT_FALSE(view(all, code)->isNodeActive()) << "value type " << code;
        EXPECT_FALSE(view(all, code)->hasChildNodes()) << "value type " << code;
        EXPECT_FALSE(view(all, code)->getNodeValue().isValid()) << "value type " << code;
    }
    EXPECT_TRUE(view(all, vtString)->isNodeActive());
    EXPECT_FALSE(view(all, vtString)->hasChildNodes());
    all.m_structure = new TestLeaf;
    all.m_structureArray = new BDDStructureVector;
    EXPECT_TRUE(view(all, vtStructure)->hasChildNodes());
    EXPECT_TRUE(view(all, vtStructureArray)->hasChildNodes());
    EXPECT_TRUE(view(all, vtStructureArray)->isNodeActive());
}

TEST(BDDLStructItem_itr, ValuesReadAndWriteThroughTheRunsContext)
{
    TestRun run;
    TestAll *all = run.make<TestAll>();
    const std::unique_ptr<TestAll> owner(all);
    view(*all, vtToken)->setNodeValue(QStringLiteral("viewToken"));
    EXPECT_EQ(view(*all, vtToken)->getNodeValue(), QVariant(QStringLiteral("viewToken")));
    view(*all, vtUShort)->setNodeValue(QStringLiteral("513"));
    EXPECT_EQ(all->m_ushort, 513);
    view(*all, vtUCharArray)->setNodeValue(QStringLiteral("AB"));
    EXPECT_EQ(view(*all, vtUCharArray)->getNodeValue(), QVariant(QByteArray("AB")));
}

TEST(BDDLStructItem_itr, AttributesDescribeTheHeldStructure)
{
    TestRun run;
    TestLeaf *leaf = run.make<TestLeaf>();
    leaf->m_position = 12;
    leaf->m_size = 34;
    run.root->m_single = leaf;
    run.root->m_array = new BDDStructureVector{run.make<TestLeaf>(), run.make<TestEmpty>()};

    BDDLStructItem_itr *single = view(*run.root, singleIndex);
    EXPECT_EQ(single->getNodeAttribute(QStringLiteral("offset")), QVariant(12u));
    EXPECT_EQ(single->getNodeAttribute(QStringLiteral("size")), QVariant(34u));
    EXPECT_EQ(single->getNodeAttribute(QStringLiteral("estrc")), QVariant(uint(LeafClass)));
    EXPECT_EQ(single->getNodeAttribute(QStringLiteral("eitem")), QVariant(int(itemSingle)));
    EXPECT_FALSE(single->getNodeAttribute(QStringLiteral("type_string")).isValid());

    BDDLStructItem_itr *array = view(*run.root, arrayIndex);
    EXPECT_EQ(array->getNodeAttribute(QStringLiteral("size")), QVariant(qulonglong(2)));
    EXPECT_FALSE(array->getNodeAttribute(QStringLiteral("offset")).isValid()) << "an array holds no one structure";
    EXPECT_FALSE(array->getNodeAttribute(QStringLiteral("estrc")).isValid());

    BDDLStructItem_itr *count = view(*run.root, countIndex);
    EXPECT_EQ(count->getNodeAttribute(QStringLiteral("eitem")), QVariant(int(itemCount)));
    EXPECT_FALSE(count->getNodeAttribute(QStringLiteral("size")).isValid());
    EXPECT_FALSE(count->getNodeAttribute(QStringLiteral("foo")).isValid());

    single->setNodeAttribute(QStringLiteral("size"), 99u);
    EXPECT_EQ(leaf->m_size, 99u);
    single->setNodeAttribute(QStringLiteral("eitem"), 0);
    EXPECT_EQ(single->item()->m_id, itemSingle) << "item ids are schema data";
    count->setNodeAttribute(QStringLiteral("size"), 5u);
    EXPECT_EQ(run.root->m_count, 0u);
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

    // Asking for the first child puts the cursor back at the first slot.
    EXPECT_EQ(array->getFirstChild(), elements[0]);
    EXPECT_EQ(array->getLastChild(), elements[3]);
    TestLeaf *replacement = run.make<TestLeaf>();
    array->getFirstChild();
    array->appendChild(replacement);
    EXPECT_EQ(run.root->m_array->front(), replacement);
    delete elements[0];
}

TEST(BDDLStructItem_itr, AnArrayWithoutSizeGrowsFromNothing)
{
    TestRun run;
    BDDLStructItem_itr *array = view(*run.root, arrayIndex);
    EXPECT_EQ(array->getFirstChild(), nullptr);
    EXPECT_EQ(array->getLastChild(), nullptr);
    TestEmpty *first = run.make<TestEmpty>();
    TestEmpty *second = run.make<TestEmpty>();
    array->appendChild(first);
    array->appendChild(second);
    EXPECT_EQ(*run.root->m_array, (BDDStructureVector{first, second}));
    EXPECT_EQ(second->previous(), first);
    EXPECT_EQ(first->next(), second);
}

TEST(BDDLStructItem_itr, AHostileSizeMakesNoHugeVector)
{
    TestRun run;
    view(*run.root, arrayIndex)->setNodeAttribute(QStringLiteral("size"), 4000000000u);
    ASSERT_NE(run.root->m_array, nullptr);
    EXPECT_LE(run.root->m_array->size(), 65536u);
}

TEST(BDDLStructItem_itr, SingleStructureItemsShowTheStructuresViews)
{
    TestRun run;
    BDDLStructItem_itr *single = view(*run.root, singleIndex);
    EXPECT_EQ(single->getFirstChild(), nullptr);
    EXPECT_EQ(single->getNodeAttribute(QStringLiteral("offset")), QVariant());

    TestLeaf *leaf = run.make<TestLeaf>();
    EXPECT_EQ(single->appendChild(leaf), leaf);
    EXPECT_EQ(run.root->m_single, leaf);
    EXPECT_EQ(leaf->parent(), run.root.get());
    EXPECT_EQ(run.root->getChild(0), leaf);
    EXPECT_EQ(single->getFirstChild(), leaf->getFirstChild());
    EXPECT_EQ(single->getLastChild(), view(*leaf, 2));
    EXPECT_EQ(single->getFirstChild()->getParentNode(), leaf);
}

TEST(BDDLStructItem_itr, OnlyStructuresCanBeAppendedAndOnlyToStructureItems)
{
    TestRun run;
    TestLeaf leaf;
    BDDLStructItem_itr *count = view(*run.root, countIndex);
    EXPECT_EQ(count->appendChild(&leaf), nullptr);
    EXPECT_EQ(view(*run.root, singleIndex)->appendChild(count), nullptr) << "a view is no structure";
    EXPECT_EQ(view(*run.root, singleIndex)->appendChild(nullptr), nullptr);
    EXPECT_EQ(run.root->countChildren(), 0u);
    EXPECT_EQ(leaf.parent(), nullptr);

    EXPECT_EQ(thrownText([&] { count->insertBefore(&leaf, nullptr); }), "not implemented");
    EXPECT_EQ(thrownText([&] { count->replaceChild(&leaf, nullptr); }), "not implemented");
    EXPECT_EQ(thrownText([&] { count->removeChild(&leaf); }), "not implemented");
}

TEST(BDDLStructItem_itr, SiblingsAreTheOwnersOtherViews)
{
    TestRun run;
    EXPECT_EQ(view(*run.root, countIndex)->getPreviousSibling(), nullptr);
    EXPECT_EQ(view(*run.root, countIndex)->getNextSibling(), view(*run.root, singleIndex));
    EXPECT_EQ(view(*run.root, flagIndex)->getPreviousSibling(), view(*run.root, arrayIndex));
    EXPECT_EQ(view(*run.root, flagIndex)->getNextSibling(), nullptr);
    EXPECT_EQ(view(*run.root, flagIndex)->getParentNode(), run.root.get());

    // A view the caller made stands at its index among the owner's views.
    const std::unique_ptr<BDDLStructItem_itr> own = run.root->getNewItemItrByEnum(itemArray);
    EXPECT_EQ(own->getNextSibling(), view(*run.root, flagIndex));
}
