#include "ucp_engine/BDDLStructBase.h"

#include "buffers/BufferExceptions.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/bddlstructitem_itr.h"

#include <gtest/gtest.h>

#include <optional>

using namespace testcamera;

namespace {

BDDItemObject itemOf(BDDLStructBase &node, int type)
{
    BDDItemObject object;
    EXPECT_TRUE(node.getItemObjectByEnum(itemAllBase + type, object)) << "value type " << type;
    return object;
}

} // namespace

TEST(BDDLStructBase, ItemLookupByIdAndIndex)
{
    TestLeaf leaf;
    const BDDStructure &structure = *leaf.getBDDStructureDefinition();
    EXPECT_EQ(structure.countItems(), 3u);
    unsigned long index = 99;
    ASSERT_NE(structure.findItem(itemUnnamed, index), nullptr);
    EXPECT_EQ(index, 2u);
    EXPECT_EQ(structure.getItemByIndex(3), nullptr);
    EXPECT_EQ(structure.findItem(0), nullptr) << "the terminator is not an item";
    BDDItemObject object;
    ASSERT_TRUE(leaf.getItemObjectByIndex(0, object));
    EXPECT_EQ(object.value(), &leaf.m_value);
    EXPECT_FALSE(leaf.getItemObjectByEnum(itemCount, object)) << "an id of another class";
    EXPECT_FALSE(TestEmpty().getItemObjectByIndex(0, object)) << "an item array that starts with the terminator";

    TestRun run; // raw access by id
    run.root->m_single = run.make<TestLeaf>();
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemValue(itemSingle); }),
              "rawBDDItemValue reqested on non scalar item");
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemStructPtr(99); }),
              "rawBDDItemStructPtr reqested on non existant item");
    EXPECT_EQ(run.root->rawBDDItemStructPtr(itemSingle), run.root->m_single);
}

TEST(BDDItemObject, ScalarsConvertBothWays)
{
    using ulong = unsigned long;
    const struct
    {
        int type;
        QVariant in, out;                // out with the variant type it must have
        std::optional<ulong> asInteger; // getScalarAsSizet: signed codes sign-extend
    } cases[] = {
        {vtSChar, -7, -7, ulong(-7)},
        {vtLongLong, qlonglong(-5000000000), qlonglong(-5000000000), ulong(-5000000000)},
        {vtULongLong, qulonglong(18000000000000000000ull), qulonglong(18000000000000000000ull), 18000000000000000000ul},
        {vtWChar, 0x12345, 0x12345, 0x12345},
        {vtDouble, 2.25, 2.25, std::nullopt},
        {vtFloat, 1.5f, 1.5f, std::nullopt},
        {vtWhitespace, 9u, 9, std::nullopt},
        {vtUChar, 300u, 44, 44}, // narrowing keeps the low bits
        {vtShort, 70000, 70000 - 65536, 70000 - 65536},
    };
    TestRun run;
    for (const auto &c : cases) {
        TestAll all;
        BDDItemObject object = itemOf(all, c.type);
        EXPECT_TRUE(object.setFromQVariant(c.in, &run.ctx)) << "value type " << c.type;
        const QVariant out = object.getAsQVariant(&run.ctx);
        EXPECT_EQ(out.userType(), c.out.userType()) << "value type " << c.type;
        EXPECT_EQ(out, c.out) << "value type " << c.type;
        ulong integer = 7;
        EXPECT_EQ(object.getScalarAsSizet(integer), c.asInteger.has_value()) << "value type " << c.type;
        EXPECT_EQ(integer, c.asInteger.value_or(7)) << "value type " << c.type;
    }
}

TEST(BDDItemObject, ScalarArraysTravelAsBigEndianBytesAndBack)
{
    TestAll from;
    from.field<vtSCharArray>() = new BDDScalarArray<vtSCharArray>{-128, 127};
    from.field<vtShortArray>() = new BDDScalarArray<vtShortArray>{0x0102, -2};
    from.field<vtLongLongArray>() = new BDDScalarArray<vtLongLongArray>{-1};
    from.field<vtUIntArray>() = new BDDScalarArray<vtUIntArray>{0xDEADBEEF};
    from.field<vtWCharArray>() = new BDDScalarArray<vtWCharArray>{0x12345};
    from.field<vtDoubleArray>() = new BDDScalarArray<vtDoubleArray>{1.0};
    from.field<vtFloatArray>() = new BDDScalarArray<vtFloatArray>{1.5f, -2.0f};
    const std::pair<int, QByteArray> expected[] = {
        {vtSCharArray, "807f"}, {vtShortArray, "0102fffe"}, {vtLongLongArray, "ffffffffffffffff"},
        {vtUIntArray, "deadbeef"}, {vtWCharArray, "00012345"}, {vtDoubleArray, "3ff0000000000000"},
        {vtFloatArray, "3fc00000c0000000"}, {vtIntArray, ""} /* no vector */};
    TestAll to;
    for (const auto &[code, expectedBytes] : expected) {
        const QVariant value = itemOf(from, code).getAsQVariant(nullptr);
        EXPECT_EQ(value, QVariant(QByteArray::fromHex(expectedBytes))) << "value type " << code;
        // Serialised trees carry the bytes as text, one character per byte.
        const QByteArray raw = value.toByteArray();
        EXPECT_EQ(itemOf(to, code).setFromQVariant(QString::fromLatin1(raw.constData(), raw.size()), nullptr),
                  !raw.isEmpty()) << "value type " << code;
        EXPECT_EQ(itemOf(to, code).getAsQVariant(nullptr), value) << "value type " << code;
    }
    EXPECT_EQ(*to.field<vtFloatArray>(), *from.field<vtFloatArray>());

    // A byte array works as well as text; a trailing partial element is ignored.
    TestAll all;
    EXPECT_TRUE(itemOf(all, vtFloatArray).setFromQVariant(QByteArray::fromHex(expected[6].second).left(5), nullptr));
    EXPECT_FALSE(itemOf(all, vtFloatArray).setFromQVariant(QString(), nullptr));
    EXPECT_EQ(*all.field<vtFloatArray>(), (std::vector<float>{1.5f})) << "a failed parse changes nothing";
}

TEST(BDDItemObject, TokensStructuresStringsAndBuffers)
{
    TestRun run;
    TestAll all;
    BDDItemObject token = itemOf(all, vtToken);
    EXPECT_TRUE(token.setFromQVariant(QStringLiteral("tokenAlpha"), &run.ctx));
    EXPECT_EQ(testTokenToString(all.field<vtToken>()), "tokenAlpha");
    EXPECT_EQ(token.getAsQVariant(&run.ctx), QVariant(QStringLiteral("tokenAlpha")));
    EXPECT_FALSE(token.setFromQVariant(QStringLiteral("x"), nullptr)) << "no context, no token";
    EXPECT_FALSE(itemOf(all, vtStructure).setFromQVariant(QStringLiteral("1"), nullptr)) << "structures take no value";
    EXPECT_TRUE(itemOf(all, vtString).setFromQVariant(QStringLiteral("h\u00e9llo"), nullptr));
    EXPECT_EQ(itemOf(all, vtString).getAsQVariant(nullptr), QVariant(QStringLiteral("h\u00e9llo")));

    // Buffers come from the run's pool and take new bytes at their cursor.
    BDDItemObject buffer = itemOf(all, vtMemoryBuffer);
    EXPECT_TRUE(buffer.setFromQVariant(QStringLiteral("abc"), &run.ctx));
    ASSERT_NE(all.field<vtMemoryBuffer>(), nullptr);
    all.field<vtMemoryBuffer>()->seek(1);
    EXPECT_TRUE(buffer.setFromQVariant(QByteArray("XYZ"), &run.ctx));
    EXPECT_EQ(buffer.getAsQVariant(&run.ctx), QVariant(QByteArray("aXYZ")));
    TestAll orphan;
    EXPECT_FALSE(itemOf(orphan, vtMemoryBuffer).setFromQVariant(QStringLiteral("abc"), nullptr)) << "no pool";
}

TEST(BDDLStructBase, InputBytesANodeCoversStayInsideTheInput)
{
    TestRun run;
    run.input.putRawBytes("0123456789", 10);
    const std::unique_ptr<TestLeaf> leaf(run.make<TestLeaf>());
    const struct { uint32_t position, size; QByteArray expected; } cases[] = {
        {2, 4, "2345"}, {8, 5, "89"}, {0xFFFFFFFF, 1, ""}};
    for (const auto &c : cases) {
        leaf->m_position = c.position;
        leaf->m_size = c.size;
        EXPECT_EQ(leaf->toQByteArray(), c.expected) << "position " << c.position << " size " << c.size;
    }
}

TEST(BDDLStructBase, WriteCheckPassesCheckedNodesAndReportsUncheckedOnes)
{
    TestRun run;
    const std::unique_ptr<TestLeaf> leaf(run.make<TestLeaf>());
    leaf->m_position = 0x2a;
    LogCapture log;
    leaf->m_processStatus = 0x84;
    EXPECT_TRUE(run.root->ucpNodeOkToWrite(leaf.get()));
    leaf->m_processStatus = 5;
    EXPECT_FALSE(run.root->ucpNodeOkToWrite(leaf.get()));
    EXPECT_TRUE(log.messages().isEmpty()) << "refusals of processed nodes are silent";
    leaf->m_processStatus = 0;
    EXPECT_FALSE(run.root->ucpNodeOkToWrite(leaf.get()));
    const QString text = QStringLiteral("Object 'TestLeaf' at 2a not checked before writing");
    EXPECT_EQ(log.messages(), QStringList{QStringLiteral("VX_ERROR: 96 : 464 : \"%1\"").arg(text)});
    EXPECT_EQ(recordsOf(run.analysis), QStringList{QStringLiteral("issue 464 %1|0|96").arg(text)});
}

TEST(BDDLStructBase, LiveNodeCountReturnsToItsStartWhenATreeGoes)
{
    const long start = countOfBlocksAllocated();
    {
        TestRun run;
        run.root->m_single = run.make<TestLeaf>();
        run.root->m_array = new BDDStructureVector{run.make<TestLeaf>(), run.make<TestEmpty>(), run.make<TestAll>()};
        run.root->makeUCPItemItrsReady(); // item views are not nodes
        EXPECT_EQ(countOfBlocksAllocated(), start + 5);
    }
    EXPECT_EQ(countOfBlocksAllocated(), start);
}

// Structure nodes as UCP nodes: their children are the views of their items.
TEST(StructureNode, TypeAttributesAndChildren)
{
    TestRun run;
    TestLeaf leaf;
    EXPECT_EQ(run.root->getNodeType(), UCPNode::DOCUMENT);
    EXPECT_EQ(leaf.getNodeType(), UCPNode::STRUCT) << "a node without root is no document";
    leaf.setNodeAttribute(QStringLiteral("offset"), QStringLiteral("17"));
    leaf.setNodeAttribute(QStringLiteral("estrc"), 9u);
    EXPECT_EQ(leaf.getNodeAttribute(QStringLiteral("offset")), QVariant(17u));
    EXPECT_EQ(leaf.getNodeAttribute(QStringLiteral("estrc")), QVariant(uint(LeafClass))) << "not settable";

    UCPNode *first = leaf.getFirstChild();
    ASSERT_EQ(leaf.itemItrs().size(), 3u);
    EXPECT_TRUE(leaf.makeUCPItemItrsReady());
    EXPECT_EQ(leaf.getFirstChild(), first) << "the views are not remade";
    EXPECT_EQ(first->getParentNode(), &leaf);
    EXPECT_EQ(run.root->appendChild(run.root->getFirstChild()), nullptr) << "a view is no structure";
}
