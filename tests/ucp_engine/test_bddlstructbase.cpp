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

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray result;
    for (int value : values)
        result.append(char(value));
    return result;
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
    TestEmpty empty; // its item array starts with the terminator
    EXPECT_EQ(empty.getCountOfItems(), 0u);
    EXPECT_FALSE(empty.getItemObjectByIndex(0, object));
    EXPECT_EQ(empty.getNewItemItrByIndex(0), nullptr);
    EXPECT_EQ((BDDStructure{9, nullptr, {}}).countItems(), 0u);

    TestRun run; // raw access by id
    run.root->m_single = run.make<TestLeaf>();
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemValue(itemSingle); }), "rawBDDItemValue reqested on non scalar item");
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemStructPtr(99); }), "rawBDDItemStructPtr reqested on non existant item");
    EXPECT_EQ(run.root->rawBDDItemStructPtr(itemSingle), run.root->m_single);
    run.root->setBDDItemStructPtr(itemCount, run.root->m_single); // not a structure: left alone
    EXPECT_EQ(run.root->m_count, 0u);
}

TEST(BDDItemObject, ScalarsConvertBothWaysAndOnlyStructuresAreEmptyWhenNull)
{
    using ulong = unsigned long;
    const struct
    {
        int type;
        QVariant in, out;                // out with the variant type it must have
        std::optional<ulong> asInteger; // getScalarAsSizet: signed codes sign-extend
    } cases[] = {
        {vtSChar, -7, -7, ulong(-7)},
        {vtShort, -300, -300, ulong(-300)},
        {vtLongLong, qlonglong(-5000000000), qlonglong(-5000000000), ulong(-5000000000)},
        {vtUChar, 200u, 200, 200},
        {vtUInt, 4000000000u, 4000000000u, 4000000000ul},
        {vtULongLong, qulonglong(18000000000000000000ull), qulonglong(18000000000000000000ull), 18000000000000000000ul},
        {vtChar, -1, -1, ulong(-1)},
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

    EXPECT_TRUE(BDDItemObject().isEmpty());
    TestAll all;
    for (int code = vtSChar; code <= vtMemoryBuffer; ++code)
        EXPECT_EQ(itemOf(all, code).isEmpty(), code == vtStructure || code == vtStructureArray) << "value type " << code;
    all.field<vtStructure>() = new TestLeaf;
    EXPECT_FALSE(itemOf(all, vtStructure).isEmpty());
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
        {vtSCharArray, bytes({0x80, 0x7F})}, {vtShortArray, bytes({1, 2, 0xFF, 0xFE})},
        {vtLongLongArray, QByteArray(8, '\xFF')}, {vtUIntArray, bytes({0xDE, 0xAD, 0xBE, 0xEF})},
        {vtWCharArray, bytes({0, 1, 0x23, 0x45})}, {vtDoubleArray, bytes({0x3F, 0xF0, 0, 0, 0, 0, 0, 0})},
        {vtFloatArray, bytes({0x3F, 0xC0, 0, 0, 0xC0, 0, 0, 0})}, {vtIntArray, QByteArray()} /* no vector */};
    TestAll to;
    for (const auto &[code, expectedBytes] : expected) {
        const QVariant value = itemOf(from, code).getAsQVariant(nullptr);
        EXPECT_EQ(value, QVariant(expectedBytes)) << "value type " << code;
        // Serialised trees carry the bytes as text, one character per byte.
        const QByteArray raw = value.toByteArray();
        EXPECT_EQ(itemOf(to, code).setFromQVariant(QString::fromLatin1(raw.constData(), raw.size()), nullptr),
                  !raw.isEmpty()) << "value type " << code;
        EXPECT_EQ(itemOf(to, code).getAsQVariant(nullptr), value) << "value type " << code;
    }
    EXPECT_EQ(*to.field<vtFloatArray>(), *from.field<vtFloatArray>());

    // A byte array works as well as text; a trailing partial element is ignored.
    TestAll all;
    EXPECT_TRUE(itemOf(all, vtFloatArray).setFromQVariant(expected[6].second.left(5), nullptr));
    EXPECT_FALSE(itemOf(all, vtFloatArray).setFromQVariant(QString(), nullptr));
    EXPECT_EQ(*all.field<vtFloatArray>(), (std::vector<float>{1.5f})) << "a failed parse changes nothing";
}

TEST(BDDItemObject, TokensStructuresStringsAndBuffers)
{
    TestRun run;
    TestAll all;
    BDDItemObject token = itemOf(all, vtToken);
    EXPECT_TRUE(token.setFromQVariant(QStringLiteral("tokenAlpha"), &run.ctx));
    std::string name = "tokenAlpha";
    EXPECT_EQ(all.field<vtToken>(), testStringToToken(&name));
    EXPECT_EQ(token.getAsQVariant(&run.ctx), QVariant(QStringLiteral("tokenAlpha")));
    EXPECT_FALSE(token.setFromQVariant(QStringLiteral("x"), nullptr)) << "no context, no token";
    all.field<vtStructure>() = new TestLeaf;
    for (int type : {vtStructure, vtStructureArray}) {
        EXPECT_FALSE(itemOf(all, type).getAsQVariant(nullptr).isValid()) << "value type " << type;
        EXPECT_FALSE(itemOf(all, type).setFromQVariant(QStringLiteral("1"), nullptr)) << "value type " << type;
    }
    EXPECT_FALSE(itemOf(all, vtString).setRawStructPtr(all.field<vtStructure>())) << "kinds are checked";
    EXPECT_TRUE(itemOf(all, vtString).setFromQVariant(QStringLiteral("h\u00e9llo"), nullptr));
    EXPECT_EQ(itemOf(all, vtString).getAsQVariant(nullptr), QVariant(QStringLiteral("h\u00e9llo")));

    // Buffers come from the run's pool and take new bytes at their cursor.
    BDDItemObject buffer = itemOf(all, vtMemoryBuffer);
    EXPECT_TRUE(buffer.setFromQVariant(QString(), &run.ctx)) << "empty text writes nothing";
    EXPECT_EQ(all.field<vtMemoryBuffer>(), nullptr);
    EXPECT_TRUE(buffer.setFromQVariant(QStringLiteral("abc"), &run.ctx));
    ASSERT_NE(all.field<vtMemoryBuffer>(), nullptr);
    EXPECT_EQ(run.pool.sizeOfMemoryBufferPool(), 1u);
    all.field<vtMemoryBuffer>()->seek(1);
    EXPECT_TRUE(buffer.setFromQVariant(QByteArray("XYZ"), &run.ctx));
    EXPECT_EQ(buffer.getAsQVariant(&run.ctx), QVariant(QByteArray("aXYZ")));
    all.field<vtMemoryBuffer>()->allowBufferExpansion(false);
    EXPECT_THROW(buffer.setFromQVariant(QStringLiteral("more"), &run.ctx), WriteBufferException);
    TestAll orphan;
    EXPECT_FALSE(itemOf(orphan, vtMemoryBuffer).setFromQVariant(QStringLiteral("abc"), nullptr)) << "no pool";
}

TEST(BDDLStructBase, ChildrenAndTheInputBytesANodeCovers)
{
    TestLeaf parent, first; // on the stack: an owning list would free it twice
    EXPECT_EQ(parent.RemoveLastChild(), nullptr);
    parent.AddChild(&first);
    EXPECT_EQ(parent.getChild(1), nullptr) << "an index equal to the count";

    TestRun run;
    run.input.putRawBytes("0123456789", 10);
    run.input.seek(6);
    const std::unique_ptr<TestLeaf> leaf(run.make<TestLeaf>());
    leaf->m_size = 3;
    EXPECT_EQ(leaf->initialBeforeReadFromBuffer(&run.ctx, run.root.get(), run.root.get()), 0u);
    EXPECT_EQ(leaf->position(), 6u) << "reading starts at the cursor";
    EXPECT_EQ(leaf->size(), 0u);
    const struct { uint32_t position, size; QByteArray expected; } cases[] = {{2, 4, "2345"}, {8, 5, "89"}, {10, 1, ""}, {0xFFFFFFFF, 1, ""}, {0, 0, ""}};
    for (const auto &c : cases) {
        leaf->m_position = c.position;
        leaf->m_size = c.size;
        EXPECT_EQ(leaf->toQByteArray(), c.expected) << "position " << c.position << " size " << c.size;
    }
    EXPECT_EQ(run.input.tell(), 6u);
    EXPECT_EQ(first.toQByteArray(), QByteArray()) << "no root, no input";
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

    // The node is named by its description, else its item name, else its class.
    leaf->m_description = "noname";
    leaf->m_itemName = "hung";
    log.clear();
    run.root->ucpNodeOkToWrite(leaf.get());
    EXPECT_TRUE(log.messages().value(0).contains("'hung'")) << log.messages().value(0).toStdString();
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
