#include "ucp/bddldocument.h"

#include "qtprinters.h"
#include "testcamera.h"

#include <gtest/gtest.h>

#include <memory>

using namespace testcamera;

TEST(BDDLDocument, CreatesNodesThroughTheFactoryAndOutlivesItsRoot)
{
    auto run = std::make_unique<TestRun>();
    BDDLDocument document(run->root.get());
    std::unique_ptr<UCPNode> leaf(document.createNode(static_cast<unsigned long>(LeafClass)));
    ASSERT_NE(dynamic_cast<TestLeaf *>(leaf.get()), nullptr);
    EXPECT_EQ(static_cast<TestLeaf *>(leaf.get())->root(), run->root.get());
    EXPECT_EQ(document.createNode(99ul), nullptr) << "a class the factory does not know";
    EXPECT_TRUE(document.setFiletype(ft_gif));
    EXPECT_EQ(run->root->getFiletype(), ft_gif);
    {
        BDDLDocument newer(run->root.get());
        EXPECT_EQ(leaf->getOwnerDocument(), &newer) << "nodes find the newest live document";
    }
    EXPECT_EQ(leaf->getOwnerDocument(), &document);
    leaf.reset();
    run.reset();
    EXPECT_EQ(document.getDocumentNode(), nullptr);
    EXPECT_EQ(document.createNode(static_cast<unsigned long>(LeafClass)), nullptr);
}
