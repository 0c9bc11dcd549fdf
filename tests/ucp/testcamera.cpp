#include "testcamera.h"

#include <QStringList>

#include <map>
#include <vector>

namespace testcamera {

namespace {

const int32_t kTypeList[] = {1, 0};

// Item, member and name of every TestAll field, in value-type order.
#define TEST_ALL_FIELDS(X)                                                                         \
    X(vtSChar, m_schar, "schar")                                                                   \
    X(vtShort, m_short, "short")                                                                   \
    X(vtInt, m_int, "int")                                                                         \
    X(vtLongLong, m_longlong, "longlong")                                                          \
    X(vtUChar, m_uchar, "uchar")                                                                   \
    X(vtUShort, m_ushort, "ushort")                                                                \
    X(vtUInt, m_uint, "uint")                                                                      \
    X(vtULongLong, m_ulonglong, "ulonglong")                                                       \
    X(vtChar, m_char, "char")                                                                      \
    X(vtWChar, m_wchar, "wchar")                                                                   \
    X(vtDouble, m_double, "double")                                                                \
    X(vtFloat, m_float, "float")                                                                   \
    X(vtSCharArray, m_scharArray, "scharArray")                                                    \
    X(vtShortArray, m_shortArray, "shortArray")                                                    \
    X(vtIntArray, m_intArray, "intArray")                                                          \
    X(vtLongLongArray, m_longlongArray, "longlongArray")                                           \
    X(vtUCharArray, m_ucharArray, "ucharArray")                                                    \
    X(vtUShortArray, m_ushortArray, "ushortArray")                                                 \
    X(vtUIntArray, m_uintArray, "uintArray")                                                       \
    X(vtULongLongArray, m_ulonglongArray, "ulonglongArray")                                        \
    X(vtCharArray, m_charArray, "charArray")                                                       \
    X(vtWCharArray, m_wcharArray, "wcharArray")                                                    \
    X(vtDoubleArray, m_doubleArray, "doubleArray")                                                 \
    X(vtFloatArray, m_floatArray, "floatArray")                                                    \
    X(vtStructure, m_structure, "structure")                                                       \
    X(vtStructureArray, m_structureArray, "structureArray")                                        \
    X(vtToken, m_token, "token")                                                                   \
    X(vtWhitespace, m_whitespace, "whitespace")                                                    \
    X(vtString, m_string, "string")                                                                \
    X(vtMemoryBuffer, m_buffer, "buffer")

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

BDDItem emptyItems[] = {
    {0, {}, nullptr, nullptr},
};

#define TEST_ALL_ITEM(type, member, name) {itemAllBase + type, {}, kTypeList, bddFieldAccessor<&TestAll::member, type>},
BDDItem allItems[] = {
    TEST_ALL_FIELDS(TEST_ALL_ITEM){0, {}, nullptr, nullptr},
};
#undef TEST_ALL_ITEM

BDDStructure rootStructure = {RootClass, rootItems, {}};
BDDStructure leafStructure = {LeafClass, leafItems, {}};
BDDStructure emptyStructure = {EmptyClass, emptyItems, {}};
BDDStructure allStructure = {AllClass, allItems, {}};
BDDStructure *structures[] = {&rootStructure, &leafStructure, &emptyStructure, &allStructure, nullptr};

BDDSchema makeSchema()
{
    BDDSchema schema{{}, structures, {}};
    schema.m_itemNames = {{itemCount, "count"}, {itemSingle, "single"}, {itemArray, "array"},
                          {itemFlag, "flag"},   {itemValue, "value"},   {itemLabel, "label"}};
#define TEST_ALL_NAME(type, member, name) schema.m_itemNames.insert(itemAllBase + type, name);
    TEST_ALL_FIELDS(TEST_ALL_NAME)
#undef TEST_ALL_NAME
    return schema;
}

void deleteElements(BDDStructureVector *&vector)
{
    if (vector == nullptr)
        return;
    for (BDDLStructBase *element : *vector)
        delete element;
    delete vector;
    vector = nullptr;
}

std::vector<std::string> &tokenNames()
{
    static std::vector<std::string> names;
    return names;
}

} // namespace

TestLeaf::TestLeaf()
{
    m_classId = LeafClass;
    m_description = "TestLeaf";
}

BDDStructure *TestLeaf::getBDDStructureDefinition() const
{
    return &leafStructure;
}

TestEmpty::TestEmpty()
{
    m_classId = EmptyClass;
    m_description = "TestEmpty";
}

BDDStructure *TestEmpty::getBDDStructureDefinition() const
{
    return &emptyStructure;
}

TestRoot::TestRoot()
{
    m_classId = RootClass;
    m_description = "TestRoot";
}

TestRoot::~TestRoot()
{
    delete m_single;
    deleteElements(m_array);
}

BDDStructure *TestRoot::getBDDStructureDefinition() const
{
    return &rootStructure;
}

TestAll::TestAll()
{
    m_classId = AllClass;
    m_description = "TestAll";
}

TestAll::~TestAll()
{
    delete m_scharArray;
    delete m_shortArray;
    delete m_intArray;
    delete m_longlongArray;
    delete m_ucharArray;
    delete m_ushortArray;
    delete m_uintArray;
    delete m_ulonglongArray;
    delete m_charArray;
    delete m_wcharArray;
    delete m_doubleArray;
    delete m_floatArray;
    delete m_structure;
    deleteElements(m_structureArray);
}

BDDStructure *TestAll::getBDDStructureDefinition() const
{
    return &allStructure;
}

BDDSchema *testSchema()
{
    static BDDSchema schema = makeSchema();
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
    default:
        return nullptr;
    }
}

uint32_t testStringToToken(std::string *name)
{
    std::vector<std::string> &names = tokenNames();
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == *name)
            return static_cast<uint32_t>(i + 1);
    names.push_back(*name);
    return static_cast<uint32_t>(names.size());
}

std::string testTokenToString(unsigned int id)
{
    const std::vector<std::string> &names = tokenNames();
    return id >= 1 && id <= names.size() ? names[id - 1] : std::string();
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

TestRun::~TestRun() = default;

QStringList issuesOf(const RepositoryComponents::DocumentAnalysis &analysis, short group)
{
    QStringList lines;
    const RepositoryComponents::DocumentStatistics *const document = analysis.currentDocument();
    if (document == nullptr)
        return lines;
    const auto found = document->contentGroups().find(group);
    if (found == document->contentGroups().end())
        return lines;
    for (const auto &entry : found->second->issueItems())
        lines << QStringLiteral("%1|%2|%3")
                     .arg(QString::fromStdString(entry.second->description()))
                     .arg(entry.second->totalSize())
                     .arg(entry.second->issueId());
    return lines;
}

} // namespace testcamera
