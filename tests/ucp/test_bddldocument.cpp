#include "ucp/bddldocument.h"

#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/ucptreewalker.h"

#include <gtest/gtest.h>

#include <memory>

using namespace testcamera;

TEST(BDDLDocument, CreatesNodesThroughTheFactoryAndPassesTypesToTheRoot)
{
    TestRun run;
    BDDLDocument document(run.root.get());
    const std::unique_ptr<UCPNode> leaf(document.createNode(static_cast<unsigned long>(LeafClass)));
    ASSERT_NE(dynamic_cast<TestLeaf *>(leaf.get()), nullptr);
    EXPECT_EQ(static_cast<TestLeaf *>(leaf.get())->root(), run.root.get());
    EXPECT_EQ(leaf->getOwnerDocument(), &document);
    EXPECT_EQ(document.createNode(99ul), nullptr) << "a class the factory does not know";
    EXPECT_EQ(document.getDoctype(), QStringLiteral("unknown")) << "an empty doctype";
    EXPECT_TRUE(document.setDoctype(QStringLiteral("memo")));
    EXPECT_EQ(run.root->getDoctype(), QStringLiteral("memo"));
    EXPECT_TRUE(document.setFiletype(ft_gif));
    EXPECT_EQ(run.root->getFiletype(), ft_gif);
    EXPECT_EQ(std::unique_ptr<UCPTreeWalker>(document.createTreeWalker(run.root.get()))->getCurrentNode(), run.root.get());
    EXPECT_EQ(thrownText([&] { static_cast<UCPNode &>(document).getFirstChild(); }), "std: Not implemented")
        << "the document is no node of the tree";
    run.ctx.m_objectFactory = nullptr;
    EXPECT_EQ(document.createNode(static_cast<unsigned long>(LeafClass)), nullptr);
}

TEST(BDDLDocument, NodesFindTheNewestLiveDocumentAndADocumentOutlivesItsRoot)
{
    auto run = std::make_unique<TestRun>();
    TestLeaf *leaf = run->make<TestLeaf>();
    run->root->m_single = leaf;
    EXPECT_EQ(leaf->getOwnerDocument(), nullptr);
    BDDLDocument first(run->root.get());
    {
        BDDLDocument second(run->root.get());
        EXPECT_EQ(leaf->getOwnerDocument(), &second);
    }
    EXPECT_EQ(leaf->getOwnerDocument(), &first);
    run.reset();
    EXPECT_EQ(first.getDocumentNode(), nullptr);
    EXPECT_EQ(first.getDoctype(), QStringLiteral("unknown"));
    EXPECT_EQ(first.createNode(static_cast<unsigned long>(LeafClass)), nullptr);
}
