#include "ucp_engine/BDDValidationFuncs.h"

#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp_engine/BDDLStructBase.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A node whose validation is whatever the test says.
class Node : public BDDLStructBase
{
public:
    explicit Node(cameraStatus_t verdict = 0) : m_verdict(verdict) {}
    cameraStatus_t validate() override
    {
        if (m_onValidate)
            m_onValidate();
        return m_verdict;
    }
    const char *get_desc_string() const override { return "TestNode"; }

    cameraStatus_t m_verdict;
    std::function<void()> m_onValidate;
};

// Owns a parent and its children for one test.
struct Family
{
    explicit Family(std::initializer_list<cameraStatus_t> verdicts)
    {
        for (cameraStatus_t verdict : verdicts) {
            children.push_back(std::make_unique<Node>(verdict));
            parent.AddChild(children.back().get());
        }
    }
    Node &child(size_t i) { return *children.at(i); }
    Node parent;
    std::vector<std::unique_ptr<Node>> children;
};

class Recorder : public Abstract_validation_callback
{
public:
    cameraStatus_t validateChild(context *, BDDLStructBase *) override
    {
        ++m_children;
        return m_childAnswer;
    }
    cameraStatus_t beginChildren(context *, BDDLStructBase *) override { return m_beginAnswer; }
    cameraStatus_t endChildren(context *, BDDLStructBase *) override
    {
        ++m_ends;
        return m_endAnswer;
    }
    int m_children = 0;
    int m_ends = 0;
    cameraStatus_t m_childAnswer = 0;
    cameraStatus_t m_beginAnswer = 0;
    cameraStatus_t m_endAnswer = 0;
};

} // namespace

TEST(BddValidationMergeStatus, AFailureSticks)
{
    const struct
    {
        cameraStatus_t accumulator, status, nodeBefore;
        cameraStatus_t result, accumulatorAfter, nodeAfter;
    } cases[] = {
        {64, 153, 0, 153, 153, 153},  // a failure replaces a success
        {153, 64, 0, 153, 153, 153},  // and is not replaced by one
        {0, 64, 0, 64, 64, 64},       // an empty accumulator takes anything
        {0, 64, 178, 0, 64, 178},     // a node already failed keeps its status
        {64, 0, 64, 0, 0, 0},         // success replaces success
    };
    for (const auto &c : cases) {
        Node node;
        node.m_cameraStatus = c.nodeBefore;
        cameraStatus_t accumulator = c.accumulator;
        EXPECT_EQ(bddValidationMergeStatus(c.status, &accumulator, &node), c.result) << c.status;
        EXPECT_EQ(accumulator, c.accumulatorAfter) << c.status;
        EXPECT_EQ(node.m_cameraStatus, c.nodeAfter) << c.status;
    }
}

TEST(ValidateAllChildren, NodesWithoutChildren)
{
    Node leaf;
    leaf.m_cameraStatus = 64;
    EXPECT_EQ(validateAllChildren(nullptr, &leaf, nullptr, 0), 0u) << "no children list";

    Family empty({});
    empty.parent.AddChild(&leaf);
    empty.parent.RemoveLastChild();
    empty.parent.m_cameraStatus = 64;
    EXPECT_EQ(validateAllChildren(nullptr, &empty.parent, nullptr, 1), 0u);
    EXPECT_EQ(validateAllChildren(nullptr, &empty.parent, nullptr, 0), 64u);
}

TEST(ValidateAllChildren, ProcessStatusFollowsEachChildsVerdict)
{
    Family family({0, 64, 153});
    family.child(2).m_processStatus = 0x84;
    EXPECT_EQ(validateAllChildren(nullptr, &family.parent, nullptr, 1), 153u) << "the failure sticks";
    EXPECT_EQ(family.child(0).m_processStatus, 0x84u);
    EXPECT_EQ(family.child(1).m_processStatus, 0x86u);
    EXPECT_EQ(family.child(2).m_processStatus, 5u);

    // A sanitised node that later fails becomes 5; one that later passes stays sanitised.
    Family again({153, 0});
    again.child(0).m_processStatus = 0x86;
    again.child(1).m_processStatus = 0x86;
    validateAllChildren(nullptr, &again.parent, nullptr, 1);
    EXPECT_EQ(again.child(0).m_processStatus, 5u);
    EXPECT_EQ(again.child(1).m_processStatus, 0x86u);
}

TEST(ValidateAllChildren, BelowTheTopOnlyFailuresOverrideTheNodesStatus)
{
    Family family({64});
    family.parent.m_cameraStatus = 7;
    EXPECT_EQ(validateAllChildren(nullptr, &family.parent, nullptr, 0), 7u);
    // A success is replaced by the walk below the child (0 for a leaf): only
    // failures survive the climb; successes live in the nodes' own statuses.
    EXPECT_EQ(validateAllChildren(nullptr, &family.parent, nullptr, 1), 0u);
    family.child(0).m_verdict = 162;
    EXPECT_EQ(validateAllChildren(nullptr, &family.parent, nullptr, 0), 162u);
}

TEST(ValidateAllChildren, GrandchildrenAreWalkedAndTheirFailuresRiseUnlessOneCameFirst)
{
    Family top({0, 0});
    Node grandchild(153);
    top.child(0).AddChild(&grandchild);
    EXPECT_EQ(validateAllChildren(nullptr, &top.parent, nullptr, 1), 153u);
    EXPECT_EQ(grandchild.m_processStatus, 5u);
    EXPECT_EQ(top.child(0).m_processStatus, 0x84u) << "the child's own verdict was clean";

    top.child(0).m_verdict = 162;
    EXPECT_EQ(validateAllChildren(nullptr, &top.parent, nullptr, 1), 162u) << "the earlier failure stays";
}

TEST(ValidateAllChildren, FaultsEndTheWalkWith178)
{
    Family unknownStatus({0});
    unknownStatus.child(0).m_processStatus = 1;
    {
        LogCapture log;
        EXPECT_EQ(validateAllChildren(nullptr, &unknownStatus.parent, nullptr, 1), 178u);
        ASSERT_EQ(log.messages().size(), 1);
        EXPECT_TRUE(log.messages().first().startsWith(QStringLiteral("\"validateAllChildren 'TestNode' failed ")))
            << log.messages().first().toStdString();
    }

    Family throwing({0, 0});
    throwing.child(0).m_onValidate = [] { throw std::runtime_error("broken"); };
    EXPECT_EQ(validateAllChildren(nullptr, &throwing.parent, nullptr, 1), 178u);
    EXPECT_EQ(throwing.child(1).m_processStatus, 0u) << "children after the fault are not visited";

    Family growing({0});
    Node late;
    growing.child(0).m_onValidate = [&] { growing.parent.AddChild(&late); };
    LogCapture log;
    EXPECT_EQ(validateAllChildren(nullptr, &growing.parent, nullptr, 1), 178u);
    ASSERT_EQ(log.messages().size(), 1);
    EXPECT_TRUE(log.messages().first().contains(QStringLiteral("failed with iteration error")));
}

TEST(ValidateAllChildren, CallbackIsAskedAndMerged)
{
    Family family({0, 0});
    Recorder recorder;
    recorder.m_endAnswer = 64;
    EXPECT_EQ(validateAllChildren(nullptr, &family.parent, &recorder, 1), 64u) << "end's answer is the result";
    EXPECT_EQ(recorder.m_children, 2);
    EXPECT_EQ(recorder.m_ends, 1);

    recorder.m_childAnswer = 64;
    validateAllChildren(nullptr, &family.parent, &recorder, 1);
    EXPECT_EQ(family.child(0).m_processStatus, 0x86u) << "the callback's verdict counts for the child";

    recorder.m_childAnswer = 153;
    recorder.m_ends = 0;
    EXPECT_EQ(validateAllChildren(nullptr, &family.parent, &recorder, 1), 153u);
    EXPECT_EQ(recorder.m_ends, 0) << "a failure skips the end call";
}

TEST(ValidateAllChildren, CallbackBeginAndEndExceptionsReachTheCaller)
{
    struct Throwing : Recorder
    {
        cameraStatus_t endChildren(context *, BDDLStructBase *) override { throw std::runtime_error("end"); }
    } throwing;
    Family family({0});
    EXPECT_THROW(validateAllChildren(nullptr, &family.parent, &throwing, 1), std::runtime_error);
}

TEST(ValidateAllChildren, BrokenListsEndTheWalkWith178)
{
    // A null entry in a children list.
    Family withNull({0});
    withNull.parent.AddChild(nullptr);
    {
        LogCapture log;
        EXPECT_EQ(validateAllChildren(nullptr, &withNull.parent, nullptr, 1), 178u);
        EXPECT_EQ(log.messages().size(), 1);
    }
    EXPECT_EQ(withNull.child(0).m_processStatus, 0x84u) << "children before the fault were validated";

    // A list that leads back to an ancestor: the walk is bounded and fails once.
    Family cycle({0});
    int visits = 0;
    cycle.child(0).m_onValidate = [&] { ++visits; };
    cycle.child(0).AddChild(&cycle.parent);
    LogCapture log;
    EXPECT_EQ(validateAllChildren(nullptr, &cycle.parent, nullptr, 1), 178u);
    EXPECT_EQ(log.messages().size(), 1);
    EXPECT_LE(visits, int(validationWalkDepthLimit));
}

TEST(ValidateAllChildren, DeepTreesUpToTheLimitAreWalked)
{
    // A chain of nodes, each the only child of the one before.
    const auto chain = [](unsigned length) {
        std::vector<std::unique_ptr<Node>> nodes;
        nodes.push_back(std::make_unique<Node>());
        for (unsigned i = 1; i < length; ++i) {
            nodes.push_back(std::make_unique<Node>());
            nodes[i - 1]->AddChild(nodes[i].get());
        }
        return nodes;
    };
    const auto fits = chain(validationWalkDepthLimit + 1);
    EXPECT_EQ(validateAllChildren(nullptr, fits.front().get(), nullptr, 1), 0u);
    EXPECT_EQ(fits.back()->m_processStatus, 0x84u);

    const auto tooDeep = chain(validationWalkDepthLimit + 2);
    LogCapture log;
    EXPECT_EQ(validateAllChildren(nullptr, tooDeep.front().get(), nullptr, 1), 178u);
    EXPECT_EQ(tooDeep.back()->m_processStatus, 0u);
}

namespace {

int keepBlanks(int c)
{
    return c == ' ';
}

int failOnC(int c)
{
    if (c == 'c')
        throw std::runtime_error("predicate");
    return 0;
}

} // namespace

TEST(Clearance, OverwritesWhatDiffersAndIsNotKept)
{
    const struct
    {
        const char *before;
        ContentKeepPredicate keep;
        const char *after;
        bool cleared;
    } cases[] = {
        {"ab c", keepBlanks, "    ", true},
        {"   ", keepBlanks, "   ", false},
        {"   ", nullptr, "   ", false},
        {"a", nullptr, " ", true},
        {"", nullptr, "", false},
        {"abcd", failOnC, "  cd", true}, // the predicate throws at c: the work so far counts
        {"cab", failOnC, "cab", false},
    };
    for (const auto &c : cases) {
        std::string bytes = c.before;
        LogCapture log;
        unsigned char *const data = reinterpret_cast<unsigned char *>(bytes.data());
        EXPECT_EQ(CLEARANCE<unsigned char>(data, bytes.size(), ' ', c.keep), c.cleared)
            << '"' << c.before << '"';
        EXPECT_EQ(bytes, c.after) << '"' << c.before << '"';
        const QStringList expectedLog = c.keep == failOnC
                                            ? QStringList{QStringLiteral("Something went wrong in CLEARANCE function")}
                                            : QStringList();
        EXPECT_EQ(log.messages(), expectedLog) << '"' << c.before << '"';
    }

    unsigned short words[] = {0x263a, 0, 0x20};
    EXPECT_TRUE(CLEARANCE<unsigned short>(words, 3, 0, keepBlanks));
    EXPECT_EQ(words[0], 0u);
    EXPECT_EQ(words[2], 0x20u) << "kept";
    EXPECT_FALSE(CLEARANCE<unsigned short>(nullptr, 3, 0, nullptr));
}

TEST(StringSearcher, FindsContiguousRuns)
{
    const struct
    {
        const char *bytes;
        const char *text;
        bool found;
    } cases[] = {
        {"hello world", "o w", true}, {"hello world", "hello world", true}, {"hello", "hello!", false},
        {"hello", "hlo", false},      {"hello", "", true},                  {"", "", false},
        {"", "a", false},             {"aab", "ab", true},                  {"hello", nullptr, true},
    };
    for (const auto &c : cases) {
        std::vector<char> bytes(c.bytes, c.bytes + std::strlen(c.bytes));
        EXPECT_EQ(stringSearcher(&bytes, const_cast<char *>(c.text)), c.found)
            << '"' << c.bytes << "\" / \"" << (c.text ? c.text : "(null)") << '"';
    }
    EXPECT_FALSE(stringSearcher(nullptr, const_cast<char *>("a")));
}

TEST(GetAnalysisFromStructBase, OnlyARootWithARepositoryHasOne)
{
    testcamera::TestRun run;
    EXPECT_EQ(getAnalysisFromStructBase(run.root.get()), &run.analysis);
    EXPECT_EQ(getAnalysisFromStructBase(nullptr), nullptr);

    // A node inside the tree is not searched upwards.
    std::unique_ptr<testcamera::TestLeaf> leaf(run.make<testcamera::TestLeaf>());
    EXPECT_EQ(testcamera::thrownText([&] { getAnalysisFromStructBase(leaf.get()); }),
              "getAnalysisFromStructBase failed");

    run.ctx.m_analysis = nullptr;
    EXPECT_EQ(testcamera::thrownText([&] { getAnalysisFromStructBase(run.root.get()); }),
              "getAnalysisFromStructBase failed");
    testcamera::TestRoot withoutContext;
    EXPECT_EQ(testcamera::thrownText([&] { getAnalysisFromStructBase(&withoutContext); }),
              "getAnalysisFromStructBase failed");
}
