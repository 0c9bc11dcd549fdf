#include "testcamera.h"

#include <vector>

namespace testcamera {

namespace {

const int32_t kTypeList[] = {1, 0};

BDDItem rootItems[] = {
    {itemCount, {}, kTypeList, bddFieldAccessor<&TestRoot::m_count, vtUInt>},
    {itemSingle, {}, kTypeList, bddFieldAccessor<&TestRoot::m_single, vtStructure>},
    {itemArray, {}, kTypeList, bddFieldAccessor<&TestRoot::m_array, vtStructureArray>},
    {itemFlag, {}, kTypeList, bddFieldAccessor<&TestRoot::m_flag, vtUChar>},
    {0, {}, nullptr, nullptr},
};
BDDItem leafItems[] = {
    {itemValue, {}, kTypeList, bddFieldAccessor<&TestLeaf::m_value, vtInt>},
    {itemLabel, {}, kTypeList, bddFieldAccessor<&TestLeaf::m_label, vtString>},
    {itemUnnamed, {}, kTypeList, bddFieldAccessor<&TestLeaf::m_unnamed, vtDouble>},
    {0, {}, nullptr, nullptr},
};
BDDItem emptyItems[] = {{0, {}, nullptr, nullptr}};
#define TEST_ALL_ITEM(type, member, name) {itemAllBase + type, {}, kTypeList, bddFieldAccessor<&TestAll::member, type>},
BDDItem allItems[] = {TEST_ALL_FIELDS(TEST_ALL_ITEM){0, {}, nullptr, nullptr}};
#undef TEST_ALL_ITEM

BDDStructure rootStructure = {RootClass, rootItems, {}};
BDDStructure leafStructure = {LeafClass, leafItems, {}};
BDDStructure emptyStructure = {EmptyClass, emptyItems, {}};
BDDStructure allStructure = {AllClass, allItems, {}};
BDDStructure *structures[] = {&rootStructure, &leafStructure, &emptyStructure, &allStructure, nullptr};

// What a field holds and must free: nodes and vectors (buffers are the pool's).
template <typename T>
void release(T &)
{
}
template <typename T>
void release(std::vector<T> *&vector)
{
    delete vector;
}
void release(BDDLStructBase *&node)
{
    delete node;
}
void release(BDDStructureVector *&vector)
{
    if (vector != nullptr)
        for (BDDLStructBase *element : *vector)
            delete element;
    delete vector;
}

} // namespace

BDDStructure *structureOf(ClassId classId)
{
    return structures[classId - 1];
}

TestRoot::~TestRoot()
{
    release(m_single);
    release(m_array);
}

TestAll::~TestAll()
{
#define TEST_ALL_RELEASE(type, member, name) release(member);
    TEST_ALL_FIELDS(TEST_ALL_RELEASE)
#undef TEST_ALL_RELEASE
}

BDDSchema *testSchema()
{
    static BDDSchema schema = [] {
        BDDSchema made{{{itemCount, "count"}, {itemSingle, "single"}, {itemArray, "array"},
                        {itemFlag, "flag"}, {itemValue, "value"}, {itemLabel, "label"}},
                       structures, {}};
#define TEST_ALL_NAME(type, member, name) made.m_itemNames.insert(itemAllBase + type, name);
        TEST_ALL_FIELDS(TEST_ALL_NAME)
#undef TEST_ALL_NAME
        return made;
    }();
    return &schema;
}

BDDLStructBase *testFactory(unsigned int classId)
{
    switch (classId) {
    case RootClass:
        return new TestRoot;
    case LeafClass:
        return new TestLeaf;
    case EmptyClass:
        return new TestEmpty;
    case AllClass:
        return new TestAll;
    }
    return nullptr;
}

static std::vector<std::string> s_tokenNames;

uint32_t testStringToToken(std::string *name)
{
    for (size_t i = 0; i < s_tokenNames.size(); ++i)
        if (s_tokenNames[i] == *name)
            return uint32_t(i + 1);
    s_tokenNames.push_back(*name);
    return uint32_t(s_tokenNames.size());
}

std::string testTokenToString(unsigned int id)
{
    return id >= 1 && id <= s_tokenNames.size() ? s_tokenNames[id - 1] : std::string();
}

TestRun::TestRun() : root(new TestRoot)
{
    analysis.AddFileAnalysis("test", "test", "1", 0, nullptr);
    ctx.m_inputBuffer = &input;
    ctx.m_outputBuffer = &output;
    ctx.m_objectFactory = testFactory;
    ctx.m_getSchema = testSchema;
    ctx.m_stringToToken = testStringToToken;
    ctx.m_tokenToString = testTokenToString;
    ctx.m_analysis = &analysis;
    ctx.m_bufferPool = &pool;
    root->setContext(&ctx);
    root->initialBDDLStructBase_Root(root.get(), nullptr, nullptr, nullptr, 0);
}

QStringList recordsOf(const RepositoryComponents::DocumentAnalysis &analysis)
{
    QStringList lines;
    const RepositoryComponents::DocumentStatistics *document = analysis.currentDocument();
    if (document == nullptr)
        return lines;
    for (const auto &[group, contents] : document->contentGroups()) {
        const auto line = [group = group](const char *kind, const auto &item) {
            return QStringLiteral("%1 %2 %3|%4")
                .arg(QLatin1String(kind))
                .arg(group)
                .arg(QString::fromStdString(item.description()))
                .arg(item.totalSize());
        };
        for (const auto &entry : contents->contentItems())
            lines << line("content", *entry.second);
        for (const auto &entry : contents->sanitisationItems())
            lines << line("sanitise", *entry.second) + QStringLiteral("|%1").arg(entry.second->sanitisationId());
        for (const auto &entry : contents->issueItems())
            lines << line("issue", *entry.second) + QStringLiteral("|%1").arg(entry.second->issueId());
        for (const auto &entry : contents->remedyItems())
            lines << line("remedy", *entry.second);
    }
    return lines;
}

} // namespace testcamera
