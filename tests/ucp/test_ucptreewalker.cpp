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
        m_run.root->m_single = m_leafA;
        m_run.root->m_array = new BDDStructureVector{m_leafB, m_empty};
        for (BDDLStructBase *node : std::initializer_list<BDDLStructBase *>{m_leafA, m_leafB, m_empty})
            node->setParent(m_run.root.get());
    }

    // A node's name; structures as <description>. The labels of the nodes a move gives until null (at most 50).
    static QString label(UCPNode *node)
    {
        if (auto *structure = dynamic_cast<BDDLStructBase *>(node))
            return QStringLiteral("<%1>").arg(QLatin1String(structure->m_description));
        return node->getNodeName();
    }
    template <typename Move>
    static QStringList walk(Move move)
    {
        QStringList visited;
        for (UCPNode *node = move(); node != nullptr && visited.size() < 50; node = move())
            visited << label(node);
        return visited;
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
              (QStringList{"count", "single", "value", "label", ":schemamissing:", "array", "<TestLeaf>", "value",
                           "label",
                           ":schemamissing:", "<TestEmpty>", "flag"}));
    EXPECT_EQ(label(walker.getCurrentNode()), QStringLiteral("flag")) << "the end leaves the current node";

    // Backwards: into the previous sibling's last child, one level only,
    // else the sibling, else the parent.
    EXPECT_EQ(walk([&] { return walker.previousNode(); }),
              (QStringList{"<TestEmpty>", ":schemamissing:", "label", "value", "<TestLeaf>", "array", ":schemamissing:",
                           "label", "value", "single", "count", "<TestRoot>"}));
    EXPECT_EQ(walker.previousNode(), nullptr) << "nothing before the walk's root";
    EXPECT_EQ(walker.getCurrentNode(), m_run.root.get());
}

TEST_F(Walker, MovesAreRelativeToTheCurrentNodeAndStayInsideTheWalksRoot)
{
    UCPTreeWalker walker(m_run.root.get());
    EXPECT_EQ(walker.nextSibling(), nullptr) << "the root has no siblings in its own walk";
    EXPECT_EQ(label(walker.lastChild()), QStringLiteral("flag"));
    EXPECT_EQ(label(walker.previousSibling()), QStringLiteral("array"));
    EXPECT_EQ(label(walker.firstChild()), QStringLiteral("<TestLeaf>"));
    EXPECT_EQ(label(walker.nextSibling()), QStringLiteral("<TestEmpty>"));
    EXPECT_EQ(label(walker.nextSibling()), QStringLiteral("flag")) << "climbs out of the array";
    EXPECT_EQ(thrownText([&] { walker.setCurrentNode(nullptr); }), "UCPTreeWalker::setCurrentNode:node null");

    m_run.root->makeUCPItemItrsReady();
    UCPNode *array = m_run.root->itemItrs().at(2).get();
    UCPTreeWalker inner(array);
    EXPECT_EQ(walk([&] { return inner.nextNode(); }),
              (QStringList{"<TestLeaf>", "value", "label", ":schemamissing:", "<TestEmpty>"}));
    EXPECT_EQ(inner.getNextSibling(array), nullptr);
    EXPECT_EQ(UCPTreeWalker(m_empty).nextNode(), nullptr) << "a structure without items ends its own walk";
}
