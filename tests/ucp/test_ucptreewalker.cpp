#include "ucp/ucptreewalker.h"

#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/bddlstructitem_itr.h"

#include <gtest/gtest.h>

using namespace testcamera;

namespace {

// root { count, single = Leaf A { value, label, 7 }, array = [Leaf B { value,
// label, 7 }, Empty C], flag }, parent links as a camera's reading leaves them.
class Walker : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_leafA->m_description = "A";
        m_leafB->m_description = "B";
        m_run.root->m_single = m_leafA;
        m_run.root->m_array = new BDDStructureVector{m_leafB, m_empty};
        for (BDDLStructBase *node : std::initializer_list<BDDLStructBase *>{m_leafA, m_leafB, m_empty})
            node->setParent(m_run.root.get());
    }

    // A node's name; structures as <description>.
    static QString label(UCPNode *node)
    {
        if (auto *structure = dynamic_cast<BDDLStructBase *>(node))
            return QStringLiteral("<%1>").arg(QLatin1String(structure->m_description));
        return node ? node->getNodeName() : QStringLiteral("(null)");
    }
    // The labels of the nodes a move gives until it gives null (at most 50).
    template <typename Move>
    static QStringList walk(Move move)
    {
        QStringList visited;
        for (UCPNode *node = move(); node != nullptr && visited.size() < 50; node = move())
            visited << label(node);
        return visited;
    }
    static UCPNode *view(BDDLStructBase *node, unsigned long index)
    {
        node->makeUCPItemItrsReady();
        return node->itemItrs().at(index).get();
    }

    TestRun m_run;
    TestLeaf *m_leafA = m_run.make<TestLeaf>();
    TestLeaf *m_leafB = m_run.make<TestLeaf>();
    TestEmpty *m_empty = m_run.make<TestEmpty>();
};

} // namespace

TEST_F(Walker, NextAndPreviousNodeVisitTheTreeInDocumentOrder)
{
    UCPTreeWalker walker(m_run.root.get());
    // A structure without items has no children: the walk climbs on from it.
    EXPECT_EQ(walk([&] { return walker.nextNode(); }),
              (QStringList{"count", "single", "value", "label", ":schemamissing:", "array", "<B>", "value", "label",
                           ":schemamissing:", "<TestEmpty>", "flag"}));
    EXPECT_EQ(label(walker.getCurrentNode()), QStringLiteral("flag")) << "the end leaves the current node";

    // Backwards: into the previous sibling's last child, one level only,
    // else the sibling, else the parent.
    EXPECT_EQ(walk([&] { return walker.previousNode(); }),
              (QStringList{"<TestEmpty>", ":schemamissing:", "label", "value", "<B>", "array", ":schemamissing:",
                           "label", "value", "single", "count", "<TestRoot>"}));
    EXPECT_EQ(walker.previousNode(), nullptr) << "nothing before the walk's root";
    EXPECT_EQ(walker.getCurrentNode(), m_run.root.get());
}

TEST_F(Walker, MovesAreRelativeToTheCurrentNodeAndKeepItOnNull)
{
    UCPTreeWalker walker(m_run.root.get());
    EXPECT_EQ(walker.parentNode(), nullptr);
    EXPECT_EQ(walker.nextSibling(), nullptr) << "the root has no siblings in its own walk";
    EXPECT_EQ(label(walker.lastChild()), QStringLiteral("flag"));
    EXPECT_EQ(label(walker.previousSibling()), QStringLiteral("array"));
    EXPECT_EQ(label(walker.firstChild()), QStringLiteral("<B>"));
    EXPECT_EQ(label(walker.nextSibling()), QStringLiteral("<TestEmpty>"));
    EXPECT_EQ(walker.firstChild(), nullptr);
    EXPECT_EQ(label(walker.nextSibling()), QStringLiteral("flag")) << "climbs out of the array";
    EXPECT_EQ(label(walker.parentNode()), QStringLiteral("<TestRoot>"));
    EXPECT_EQ(thrownText([&] { walker.setCurrentNode(nullptr); }), "UCPTreeWalker::setCurrentNode:node null");
    EXPECT_EQ(walker.getCurrentNode(), m_run.root.get());
    // After setCurrentNode the walker climbs along parent links only: from
    // inside the single structure they lead to the root, past what follows "single".
    walker.setCurrentNode(view(m_leafA, 2));
    EXPECT_EQ(walker.nextNode(), nullptr);
}

TEST_F(Walker, NeverLeavesTheSubtreeOfItsRoot)
{
    UCPNode *array = view(m_run.root.get(), 2);
    UCPTreeWalker walker(array);
    EXPECT_EQ(walk([&] { return walker.nextNode(); }),
              (QStringList{"<B>", "value", "label", ":schemamissing:", "<TestEmpty>"}));
    EXPECT_EQ(walker.getNextSibling(array), nullptr);
    EXPECT_EQ(walker.getParentNode(array), nullptr);
    EXPECT_EQ(walker.getParentNode(m_leafB), m_run.root.get()) << "helpers follow parent links";
    EXPECT_EQ(UCPTreeWalker(m_empty).nextNode(), nullptr) << "a structure without items ends its own walk";
}
