#include "ucp_engine/BDDLStructBase.h"

#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/bddlstructitem_itr.h"

#include <gtest/gtest.h>

// Structure nodes as UCP nodes: their children are the views of their items.

using namespace testcamera;

TEST(StructureNode, TypeAttributesAndChildren)
{
    TestRun run;
    TestLeaf leaf;
    EXPECT_EQ(run.root->getNodeType(), UCPNode::DOCUMENT);
    EXPECT_EQ(leaf.getNodeType(), UCPNode::STRUCT) << "a node without root is no document";
    leaf.setNodeAttribute(QStringLiteral("offset"), QStringLiteral("17"));
    leaf.setNodeAttribute(QStringLiteral("estrc"), 9u);
    EXPECT_EQ(leaf.getNodeAttribute(QStringLiteral("offset")), QVariant(17u));
    EXPECT_EQ(leaf.getNodeAttribute(QStringLiteral("estrc")), QVariant(uint(LeafClass))) << "not settable";

    UCPNode *first = leaf.getFirstChild();
    ASSERT_EQ(leaf.itemItrs().size(), 3u);
    EXPECT_TRUE(leaf.makeUCPItemItrsReady());
    EXPECT_EQ(leaf.getFirstChild(), first) << "the views are not remade";
    EXPECT_EQ(first->getParentNode(), &leaf);
    EXPECT_EQ(run.root->appendChild(run.root->getFirstChild()), nullptr) << "a view is no structure";
}
