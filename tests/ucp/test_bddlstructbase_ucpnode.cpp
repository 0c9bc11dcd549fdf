#include "ucp_engine/BDDLStructBase.h"

#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/bddlstructitem_itr.h"

#include <gtest/gtest.h>

// Structure nodes as UCP nodes: their children are the views of their items.

using namespace testcamera;

TEST(StructureNode, NameTypeAndAttributes)
{
    TestRun run;
    TestLeaf *leaf = run.make<TestLeaf>();
    run.root->m_single = leaf;
    EXPECT_EQ(run.root->getNodeName(), QStringLiteral("TestRoot"));
    EXPECT_EQ(run.root->getNodeType(), UCPNode::DOCUMENT);
    EXPECT_EQ(leaf->getNodeType(), UCPNode::STRUCT);
    EXPECT_EQ(TestLeaf().getNodeType(), UCPNode::STRUCT) << "a node without root is no document";
    EXPECT_FALSE(leaf->getNodeValue().isValid());
    EXPECT_EQ(thrownText([&] { leaf->setNodeValue(1); }), "not implemented");

    leaf->setNodeAttribute(QStringLiteral("offset"), QStringLiteral("17"));
    leaf->setNodeAttribute(QStringLiteral("size"), 5u);
    leaf->setNodeAttribute(QStringLiteral("estrc"), 9u);
    EXPECT_EQ(leaf->m_classId, int(LeafClass)) << "the class id is not settable";
    EXPECT_EQ(leaf->getNodeAttribute(QStringLiteral("offset")), QVariant(17u));
    EXPECT_EQ(leaf->getNodeAttribute(QStringLiteral("size")), QVariant(5u));
    EXPECT_EQ(leaf->getNodeAttribute(QStringLiteral("estrc")), QVariant(uint(LeafClass)));
    EXPECT_EQ(leaf->getNodeAttribute(QStringLiteral("type_string")), QVariant(true));
    for (const char *other : {"eitem", "name", "foo"})
        EXPECT_FALSE(leaf->getNodeAttribute(QLatin1String(other)).isValid()) << other;
}

TEST(StructureNode, ChildrenAreItemViewsMadeOnceAndArrayElementsAreLinked)
{
    TestLeaf leaf;
    EXPECT_TRUE(leaf.hasChildNodes());
    UCPNode *first = leaf.getFirstChild();
    ASSERT_EQ(leaf.itemItrs().size(), 3u);
    EXPECT_EQ(first, leaf.itemItrs()[0].get());
    EXPECT_EQ(leaf.getLastChild(), leaf.itemItrs()[2].get());
    EXPECT_TRUE(leaf.makeUCPItemItrsReady());
    EXPECT_EQ(leaf.getFirstChild(), first) << "the views are not remade";
    EXPECT_EQ(first->getParentNode(), &leaf);
    TestEmpty empty;
    EXPECT_FALSE(empty.hasChildNodes());
    EXPECT_EQ(empty.getFirstChild(), nullptr);

    TestRun run;
    TestLeaf *a = run.make<TestLeaf>();
    TestEmpty *b = run.make<TestEmpty>();
    TestLeaf *c = run.make<TestLeaf>();
    run.root->m_array = new BDDStructureVector{a, b, c};
    EXPECT_EQ(b->getPreviousSibling(), nullptr) << "b's own views are made, not its owner's";
    run.root->getFirstChild();
    EXPECT_EQ(a->getPreviousSibling(), nullptr);
    EXPECT_EQ(b->getPreviousSibling(), a);
    EXPECT_EQ(b->getNextSibling(), c);
    EXPECT_EQ(c->getNextSibling(), nullptr);
}

TEST(StructureNode, AppendChildTakesStructureNodesOnly)
{
    TestRun run;
    TestLeaf leaf;
    EXPECT_EQ(run.root->appendChild(&leaf), &leaf);
    EXPECT_EQ(run.root->getChild(0), &leaf);
    EXPECT_EQ(run.root->appendChild(run.root->getFirstChild()), nullptr) << "a view is no structure";
    EXPECT_EQ(run.root->appendChild(nullptr), nullptr);
    EXPECT_EQ(run.root->countChildren(), 1u);
    EXPECT_EQ(thrownText([&] { run.root->insertBefore(&leaf, nullptr); }), "not implemented");
    EXPECT_EQ(thrownText([&] { run.root->removeChild(&leaf); }), "not implemented");
}
