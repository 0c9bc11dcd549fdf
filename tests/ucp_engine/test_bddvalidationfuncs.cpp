#include "ucp_engine/BDDValidationFuncs.h"

#include "logcapture.h"
#include "qtprinters.h"
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

// A parent and its children, owned for one test.
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
    cameraStatus_t walk(Abstract_validation_callback *callback = nullptr, unsigned top = 1)
    {
        return validateAllChildren(nullptr, &parent, callback, top);
    }
    Node parent;
    std::vector<std::unique_ptr<Node>> children;
};

} // namespace

TEST(BddValidationMergeStatus, AFailureSticks)
{
    const struct { cameraStatus_t accumulator, status, nodeBefore, result, accumulatorAfter, nodeAfter; } cases[] = {
        {64, 153, 0, 153, 153, 153}, // a failure replaces a success
        {153, 64, 0, 153, 153, 153}, // and is not replaced by one
        {0, 64, 178, 0, 64, 178},    // a node already failed keeps its status
        {64, 0, 64, 0, 0, 0},        // success replaces success
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

TEST(ValidateAllChildren, ProcessStatusFollowsEachChildsVerdict)
{
    Family family({0, 64, 153, 153, 0});
    family.child(2).m_processStatus = 0x84;
    family.child(3).m_processStatus = 0x86; // sanitised, then failed
    family.child(4).m_processStatus = 0x86; // sanitised, then passed
    EXPECT_EQ(family.walk(), 153u) << "the failure sticks";
    const uint32_t expected[] = {0x84, 0x86, 5, 5, 0x86};
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(family.child(i).m_processStatus, expected[i]) << "child " << i;

    Family top({0, 0}); // grandchildren are walked
    Node grandchild(153);
    top.child(0).AddChild(&grandchild);
    EXPECT_EQ(top.walk(), 153u);
    EXPECT_EQ(grandchild.m_processStatus, 5u);
    EXPECT_EQ(top.child(0).m_processStatus, 0x84u) << "the child's own verdict was clean";
}

TEST(ValidateAllChildren, FaultsEndTheWalkWith178AndOneLogLine)
{
    Node late;
    const int limit = int(validationWalkDepthLimit);
    // maxVisits: of the second child.
    const struct { const char *what; std::function<void(Family &)> spoil; int maxVisits; } cases[] = {
        {"unknown process status", [](Family &f) { f.child(0).m_processStatus = 1; }, 0},
        {"exception", [](Family &f) { f.child(0).m_onValidate = [] { throw std::runtime_error("broken"); }; }, 0},
        {"list grows", [&](Family &f) { f.child(0).m_onValidate = [&f, &late] { f.parent.AddChild(&late); }; }, 1},
        {"null child", [](Family &f) { f.parent.AddChild(nullptr); }, 1},
        {"cycle", [](Family &f) { f.child(0).AddChild(&f.parent); }, limit},
    };
    for (const auto &c : cases) {
        Family family({0, 0});
        int visits = 0;
        c.spoil(family);
        family.child(1).m_onValidate = [&] { ++visits; };
        LogCapture log;
        EXPECT_EQ(family.walk(), 178u) << c.what;
        ASSERT_EQ(log.messages().size(), 1) << c.what;
        EXPECT_TRUE(log.messages().first().startsWith(QStringLiteral("\"validateAllChildren 'TestNode' failed ")))
            << log.messages().first().toStdString();
        EXPECT_LE(visits, c.maxVisits) << c.what;
    }

    // A chain of nodes, each the only child of the one before: the limit fits, one more does not.
    for (unsigned extra : {1u, 2u}) {
        std::vector<std::unique_ptr<Node>> chain;
        for (unsigned i = 0; i < validationWalkDepthLimit + extra; ++i) {
            chain.push_back(std::make_unique<Node>());
            if (i > 0)
                chain[i - 1]->AddChild(chain[i].get());
        }
        LogCapture log;
        EXPECT_EQ(validateAllChildren(nullptr, chain.front().get(), nullptr, 1), extra == 1 ? 0u : 178u);
        EXPECT_EQ(chain.back()->m_processStatus, extra == 1 ? 0x84u : 0u);
    }
}

TEST(ValidateAllChildren, CallbackIsAskedAndMerged)
{
    struct Recorder : Abstract_validation_callback
    {
        cameraStatus_t validateChild(context *, BDDLStructBase *) override { return m_childAnswer; }
        cameraStatus_t endChildren(context *, BDDLStructBase *) override { return ++m_ends, cameraStatus_t(64); }
        int m_ends = 0;
        cameraStatus_t m_childAnswer = 0;
    } recorder;
    Family family({0, 0});
    EXPECT_EQ(family.walk(&recorder), 64u) << "end's answer is the result";
    recorder.m_childAnswer = 153;
    recorder.m_ends = 0;
    EXPECT_EQ(family.walk(&recorder), 153u);
    EXPECT_EQ(family.child(0).m_processStatus, 5u) << "the callback's verdict counts for the child";
    EXPECT_EQ(recorder.m_ends, 0) << "a failure skips the end call";
}

TEST(StringSearcher, FindsContiguousRuns)
{
    const struct { const char *bytes, *text; bool found; } cases[] = {
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
