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
    leaf->setNodeAttribute(QStringLiteral("offset"), QStringLiteral("17"));
    leaf->setNodeAttribute(QStringLiteral("estrc"), 9u);
    EXPECT_EQ(leaf->getNodeAttribute(QStringLiteral("offset")), QVariant(17u));
    EXPECT_EQ(leaf->getNodeAttribute(QStringLiteral("estrc")), QVariant(uint(LeafClass))) << "not settable";
    EXPECT_FALSE(leaf->getNodeAttribute(QStringLiteral("eitem")).isValid());
}

TEST(StructureNode, ChildrenAreItemViewsMadeOnceAndOnlyStructuresAreAppended)
{
    TestLeaf leaf;
    UCPNode *first = leaf.getFirstChild();
    ASSERT_EQ(leaf.itemItrs().size(), 3u);
    EXPECT_EQ(first, leaf.itemItrs()[0].get());
    EXPECT_EQ(leaf.getLastChild(), leaf.itemItrs()[2].get());
    EXPECT_TRUE(leaf.makeUCPItemItrsReady());
    EXPECT_EQ(leaf.getFirstChild(), first) << "the views are not remade";
    EXPECT_EQ(first->getParentNode(), &leaf);
    EXPECT_FALSE(TestEmpty().hasChildNodes());

    TestRun run;
    EXPECT_EQ(run.root->appendChild(&leaf), &leaf);
    EXPECT_EQ(run.root->getChild(0), &leaf);
    EXPECT_EQ(run.root->appendChild(run.root->getFirstChild()), nullptr) << "a view is no structure";
    EXPECT_EQ(run.root->appendChild(nullptr), nullptr);
    EXPECT_EQ(run.root->countChildren(), 1u);
    EXPECT_EQ(thrownText([&] { run.root->removeChild(&leaf); }), "not implemented");
}
