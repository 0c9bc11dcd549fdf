#include "ucp/ucptreewalker.h"

#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/bddlstructitem_itr.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace testcamera;

namespace {

// root { count, single = Leaf A { value, label, 7 }, array = [Leaf B { value,
// label, 7 }, Empty C], flag }
class Walker : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_leafA = m_run.make<TestLeaf>();
        m_leafB = m_run.make<TestLeaf>();
        m_empty = m_run.make<TestEmpty>();
        m_leafA->m_description = "A";
        m_leafB->m_description = "B";
        m_run.root->m_single = m_leafA;
        m_run.root->m_array = new BDDStructureVector{m_leafB, m_empty};
        // As a camera's reading leaves them: parent links to the owner.
        for (BDDLStructBase *node : {static_cast<BDDLStructBase *>(m_leafA), static_cast<BDDLStructBase *>(m_leafB),
                                     static_cast<BDDLStructBase *>(m_empty)})
            node->setParent(m_run.root.get());
    }

    // Name of a node, with structures told apart by their description.
    static QString label(UCPNode *node)
    {
        if (node == nullptr)
            return QStringLiteral("(null)");
        if (auto *structure = dynamic_cast<BDDLStructBase *>(node))
            return QStringLiteral("<%1>").arg(QLatin1String(structure->m_description));
        return node->getNodeName();
    }

    UCPNode *view(BDDLStructBase *node, unsigned long index)
    {
        node->makeUCPItemItrsReady();
        return node->itemItrs().at(index).get();
    }

    TestRun m_run;
    TestLeaf *m_leafA = nullptr;
    TestLeaf *m_leafB = nullptr;
    TestEmpty *m_empty = nullptr;
};

} // namespace

TEST(UCPNodeAttributes, TableOfNamesAndPositions)
{
    const UCPNodeAttributes &attributes = UCPNodeAttributes::getInstance();
    EXPECT_EQ(&attributes, &UCPNodeAttributes::getInstance());
    const char *names[] = {"offset", "size", "eitem", "estrc", "type_string", "name", "streamname", "cameraname"};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(attributes.getAttribute(QLatin1String(names[i])), i);
        EXPECT_EQ(attributes.getAttribute(static_cast<UCPNodeAttribute>(i)), QLatin1String(names[i]));
    }
    EXPECT_EQ(attributes.getAttribute(QStringLiteral("foo")), naUnknown);
    EXPECT_EQ(attributes.getAttribute(QStringLiteral("Offset")), naUnknown);
    EXPECT_EQ(attributes.getAttribute(naUnknown), QStringLiteral("unknown"));
    EXPECT_EQ(attributes.getAttribute(static_cast<UCPNodeAttribute>(8)), QStringLiteral("unknown"));
    EXPECT_THROW(attributes.getAttribute(static_cast<UCPNodeAttribute>(-2)), std::out_of_range);
}

TEST_F(Walker, NextNodeVisitsTheTreeInDocumentOrder)
{
    UCPTreeWalker walker(m_run.root.get());
    QStringList visited{label(walker.getCurrentNode())};
    for (UCPNode *node = walker.nextNode(); node != nullptr; node = walker.nextNode()) {
        visited << label(node);
        ASSERT_LT(visited.size(), 50) << "the walk does not end";
    }
    const QStringList expected = {
        "<TestRoot>", "count", "single", "value", "label", ":schemamissing:", "array",
        "<B>", "value", "label", ":schemamissing:", "<TestEmpty>", "flag",
    };
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(label(walker.getCurrentNode()), QStringLiteral("flag")) << "the end leaves the current node";
}

TEST_F(Walker, PreviousNodeGoesOneLevelIntoThePreviousSibling)
{
    UCPTreeWalker walker(m_run.root.get());
    walker.setCurrentNode(view(m_run.root.get(), 0));
    EXPECT_EQ(walker.previousNode(), m_run.root.get()) << "from the first view to its structure";
    EXPECT_EQ(walker.previousNode(), nullptr) << "nothing before the walk's root";
    EXPECT_EQ(walker.getCurrentNode(), m_run.root.get());

    // Backwards from the last view: into the previous sibling's last child,
    // one level only, else the sibling, else the parent.
    walker.setCurrentNode(view(m_run.root.get(), 3));
    QStringList visited;
    for (UCPNode *node = walker.previousNode(); node != nullptr; node = walker.previousNode()) {
        visited << label(node);
        ASSERT_LT(visited.size(), 50) << "the walk does not end";
    }
    const QStringList expected = {
        "<TestEmpty>", ":schemamissing:", "label", "value", "<B>", "array",
        ":schemamissing:", "label", "value", "single", "count", "<TestRoot>",
    };
    EXPECT_EQ(visited, expected);
}

TEST_F(Walker, MovesAreRelativeToTheCurrentNodeAndKeepItOnNull)
{
    UCPTreeWalker walker(m_run.root.get());
    EXPECT_EQ(walker.getRoot(), m_run.root.get());
    EXPECT_EQ(walker.parentNode(), nullptr);
    EXPECT_EQ(walker.previousSibling(), nullptr);
    EXPECT_EQ(walker.nextSibling(), nullptr) << "the root has no siblings in its own walk";
    EXPECT_EQ(label(walker.lastChild()), QStringLiteral("flag"));
    EXPECT_EQ(label(walker.previousSibling()), QStringLiteral("array"));
    EXPECT_EQ(label(walker.firstChild()), QStringLiteral("<B>"));
    EXPECT_EQ(label(walker.nextSibling()), QStringLiteral("<TestEmpty>"));
    EXPECT_EQ(walker.firstChild(), nullptr);
    EXPECT_EQ(label(walker.nextSibling()), QStringLiteral("flag")) << "climbs out of the array";
    EXPECT_EQ(walker.nextSibling(), nullptr);
    EXPECT_EQ(label(walker.getCurrentNode()), QStringLiteral("flag"));
    EXPECT_EQ(label(walker.parentNode()), QStringLiteral("<TestRoot>"));

    EXPECT_EQ(thrownText([&] { walker.setCurrentNode(nullptr); }), "UCPTreeWalker::setCurrentNode:node null");
    EXPECT_EQ(walker.getCurrentNode(), m_run.root.get());
}

TEST_F(Walker, NeverLeavesTheSubtreeOfItsRoot)
{
    UCPNode *array = view(m_run.root.get(), 2);
    UCPTreeWalker walker(array);
    QStringList visited;
    for (UCPNode *node = walker.nextNode(); node != nullptr; node = walker.nextNode())
        visited << label(node);
    EXPECT_EQ(visited, (QStringList{"<B>", "value", "label", ":schemamissing:", "<TestEmpty>"}));
    EXPECT_EQ(walker.getNextSibling(array), nullptr);
    EXPECT_EQ(walker.getPreviousSibling(array), nullptr);
    EXPECT_EQ(walker.getParentNode(array), nullptr);
    EXPECT_EQ(walker.getParentNode(m_leafB), m_run.root.get()) << "helpers follow parent links";

    UCPTreeWalker lonely(m_empty);
    EXPECT_EQ(lonely.nextNode(), nullptr) << "a structure without items ends its own walk";
}

TEST_F(Walker, HelpersClimbAlongParentLinks)
{
    UCPTreeWalker walker(m_run.root.get());
    m_run.root->makeUCPItemItrsReady(); // links the array's elements
    EXPECT_EQ(label(walker.getNextSibling(m_leafB)), QStringLiteral("<TestEmpty>"));
    // The last element's parent link names the array's owner, the walk's
    // root: the helper gives up there.
    EXPECT_EQ(walker.getNextSibling(m_empty), nullptr);
    EXPECT_EQ(label(walker.getNextSibling(view(m_leafA, 1))), QStringLiteral(":schemamissing:"));
    EXPECT_EQ(walker.getFirstChild(nullptr), nullptr);
    EXPECT_EQ(walker.getLastChild(nullptr), nullptr);
    EXPECT_EQ(walker.getNextSibling(nullptr), nullptr);
    EXPECT_EQ(walker.getPreviousSibling(m_run.root.get()), nullptr);
    EXPECT_EQ(label(walker.getLastChild(m_leafA)), QStringLiteral(":schemamissing:"));

    // After setCurrentNode the walker has only those links to climb along:
    // from inside the single structure they lead to the root, past the views
    // that follow "single".
    walker.setCurrentNode(view(m_leafA, 2));
    EXPECT_EQ(walker.nextNode(), nullptr);
    walker.setCurrentNode(view(m_leafA, 0));
    EXPECT_EQ(label(walker.parentNode()), QStringLiteral("<A>"));
}
