#include "testcamera.h"

#include <QtAlgorithms>

#include <algorithm>
#include <iterator>
#include <array>
#include <type_traits>
#include <vector>

namespace testcamera {

namespace {

const int32_t kTypeList[] = {1, 0};
constexpr BDDItem kEnd = {0, {}, nullptr, nullptr};

BDDItem rootItems[] = {
    {itemCount, {}, kTypeList, bddFieldAccessor<&TestRoot::m_count, vtUInt>},
    {itemSingle, {}, kTypeList, bddFieldAccessor<&TestRoot::m_single, vtStructure>},
    {itemArray, {}, kTypeList, bddFieldAccessor<&TestRoot::m_array, vtStructureArray>},
    {itemFlag, {}, kTypeList, bddFieldAccessor<&TestRoot::m_flag, vtUChar>},
    kEnd,
};
BDDItem leafItems[] = {
    {itemValue, {}, kTypeList, bddFieldAccessor<&TestLeaf::m_value, vtInt>},
    {itemLabel, {}, kTypeList, bddFieldAccessor<&TestLeaf::m_label, vtString>},
    {itemUnnamed, {}, kTypeList, bddFieldAccessor<&TestLeaf::m_unnamed, vtDouble>},
    kEnd,
};
BDDItem emptyItems[] = {kEnd};

template <int Code>
void allAccessor(BDDLStructBase *node, BDDItemObject &object)
{
    object.set(&static_cast<TestAll *>(node)->field<Code>(), BDDValueType(Code));
}
template <int... Codes>
std::array<BDDItem, sizeof...(Codes) + 1> allItemsOf(std::integer_sequence<int, Codes...>)
{
    return {{{itemAllBase + Codes, {}, kTypeList, allAccessor<Codes>}..., kEnd}};
}
std::array<BDDItem, vtMemoryBuffer + 2> allItems = allItemsOf(AllCodes());

BDDStructure structureList[] = {
    {RootClass, rootItems, {}}, {LeafClass, leafItems, {}}, {EmptyClass, emptyItems, {}},
    {AllClass, allItems.data(), {}}};
BDDStructure *structures[] = {&structureList[0], &structureList[1], &structureList[2], &structureList[3], nullptr};

// What a field holds and must free: nodes and vectors (buffers are the pool's).
template <typename T>
void release(T &field)
{
    if constexpr (std::is_same_v<T, BDDStructureVector *>) {
        if (field != nullptr)
            qDeleteAll(*field);
    }
    if constexpr (std::is_pointer_v<T> && !std::is_same_v<T, MemoryBuffer *>)
        delete field;
}

std::vector<std::string> s_tokenNames;

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
    std::apply([](auto &...fields) { (release(fields), ...); }, m_fields);
}

BDDSchema *testSchema()
{
    // TestAll's items are named after their value types; TestLeaf's item 7 stays unnamed.
    static const char *const kAllNames[] = {
        "sChar",        "short",       "int",          "longLong",        "uChar",        "uShort",
        "uInt",         "uLongLong",   "char",         "wChar",           "double",       "float",
        "sCharArray",   "shortArray",  "intArray",     "longLongArray",   "uCharArray",   "uShortArray",
        "uIntArray",    "uLongLongArray", "charArray", "wCharArray",      "doubleArray",  "floatArray",
        "structure",    "structureArray", "token",     "whitespace",      "string",       "memoryBuffer"};
    static_assert(std::size(kAllNames) == vtMemoryBuffer + 1, "one name per value type");
    static BDDSchema schema = [] {
        BDDSchema made{{{itemCount, "count"}, {itemSingle, "single"}, {itemArray, "array"},
                        {itemFlag, "flag"}, {itemValue, "value"}, {itemLabel, "label"}},
                       structures, {}};
        for (int code = 0; code <= vtMemoryBuffer; ++code)
            made.m_itemNames.insert(itemAllBase + code, kAllNames[code]);
        return made;
    }();
    return &schema;
}

BDDLStructBase *testFactory(unsigned int classId)
{
    switch (classId) {
    case RootClass: return new TestRoot;
    case LeafClass: return new TestLeaf;
    case EmptyClass: return new TestEmpty;
    case AllClass: return new TestAll;
    }
    return nullptr;
}

uint32_t testStringToToken(std::string *name)
{
    // Imported trees may name any number of tokens; past a few, they are all 0.
    constexpr std::size_t kMaxTokens = 256;
    const auto found = std::find(s_tokenNames.begin(), s_tokenNames.end(), *name);
    if (found != s_tokenNames.end())
        return uint32_t(found - s_tokenNames.begin() + 1);
    if (s_tokenNames.size() >= kMaxTokens)
        return 0;
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
            return QStringLiteral("%1 %2 %3|%4").arg(QLatin1String(kind)).arg(group)
                .arg(QString::fromStdString(item.description())).arg(item.totalSize());
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
