#include "ucp_engine/BDDLStructBase.h"

#include "buffers/BufferExceptions.h"
#include "cameras/camerabase.h"
#include "logcapture.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp/bddlstructitem_itr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <typeinfo>

using namespace testcamera;

namespace {

// The item object of one TestAll field.
BDDItemObject itemOf(BDDLStructBase &node, BDDValueType type)
{
    BDDItemObject object;
    EXPECT_TRUE(node.getItemObjectByEnum(itemAllBase + type, object)) << "value type " << type;
    return object;
}

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray result;
    for (int value : values)
        result.append(static_cast<char>(value));
    return result;
}

// One character per byte, NULs included (QString::fromLatin1 of a whole
// QByteArray stops at the first NUL).
QString latin1(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData(), bytes.size());
}

} // namespace

// ---------------------------------------------------------------------------
// Schema lookup
// ---------------------------------------------------------------------------

TEST(BDDStructure, FindsItemsByIdAndIndexUpToTheTerminator)
{
    TestLeaf leaf;
    const BDDStructure &structure = *leaf.getBDDStructureDefinition();
    EXPECT_EQ(structure.countItems(), 3u);
    unsigned long index = 99;
    ASSERT_NE(structure.findItem(itemUnnamed, index), nullptr);
    EXPECT_EQ(index, 2u);
    EXPECT_EQ(structure.getItemByIndex(2), structure.findItem(itemUnnamed));
    EXPECT_EQ(structure.getItemByIndex(3), nullptr);
    EXPECT_EQ(structure.findItem(0), nullptr) << "the terminator is not an item";
    EXPECT_EQ(structure.findItem(itemCount), nullptr) << "an id of another class";

    leaf.m_value = -42;
    BDDItemObject byIndex, byId;
    ASSERT_TRUE(leaf.getItemObjectByIndex(0, byIndex));
    ASSERT_TRUE(leaf.getItemObjectByEnum(itemValue, byId));
    EXPECT_EQ(byIndex.value(), &leaf.m_value);
    EXPECT_EQ(byId.value(), &leaf.m_value);
    EXPECT_EQ(leaf.rawBDDItemValue(itemValue), static_cast<uint64_t>(-42));
    EXPECT_FALSE(leaf.getItemObjectByEnum(itemCount, byId));
    EXPECT_EQ(leaf.getNewItemItrByEnum(itemCount), nullptr);
    EXPECT_EQ(leaf.getNewItemItrByIndex(3), nullptr);

    // An item array whose first id is 0 has no items, and every lookup fails.
    TestEmpty empty;
    EXPECT_EQ(empty.getCountOfItems(), 0u);
    EXPECT_EQ(empty.getBDDStructureDefinition()->getItemByIndex(0), nullptr);
    EXPECT_FALSE(empty.getItemObjectByIndex(0, byIndex));
    EXPECT_EQ(empty.getNewItemItrByIndex(0), nullptr);
    const BDDStructure noArray{9, nullptr, {}};
    EXPECT_EQ(noArray.countItems(), 0u);
    EXPECT_EQ(noArray.findItem(itemValue), nullptr);
}

TEST(BDDLStructBase, RawItemAccessorsFailWithTheirTexts)
{
    TestRun run;
    TestLeaf *leaf = run.make<TestLeaf>();
    run.root->m_single = leaf;

    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemValue(99); }),
              "std: rawBDDItemValue requested on non existant item");
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemValue(itemSingle); }), "rawBDDItemValue reqested on non scalar item");
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemStructPtr(99); }), "rawBDDItemStructPtr reqested on non existant item");
    EXPECT_EQ(thrownText([&] { run.root->rawBDDItemStructPtr(itemCount); }),
              "rawBDDItemValue reqested on non scalar item");
    EXPECT_EQ(thrownText([&] { run.root->setBDDItemStructPtr(99, nullptr); }),
              "rawBDDItemStructPtr reqested on non existant item");

    EXPECT_EQ(run.root->rawBDDItemStructPtr(itemSingle), leaf);
    run.root->setBDDItemStructPtr(itemCount, leaf); // not a structure: left alone
    EXPECT_EQ(run.root->m_count, 0u);
    run.root->setBDDItemStructPtr(itemSingle, nullptr);
    EXPECT_EQ(run.root->m_single, nullptr);
    delete leaf;
}

// ---------------------------------------------------------------------------
// Item objects
// ---------------------------------------------------------------------------

TEST(BDDItemObject, OnlyStructureKindsLookThroughTheirPointerForEmptiness)
{
    EXPECT_EQ(BDDItemObject().valueType(), vtNone);
    EXPECT_TRUE(BDDItemObject().isEmpty());
    TestAll all;
    for (int code = vtSChar; code <= vtMemoryBuffer; ++code)
        EXPECT_EQ(itemOf(all, static_cast<BDDValueType>(code)).isEmpty(), code == vtStructure || code == vtStructureArray)
            << "value type " << code;
    all.m_structure = new TestLeaf;
    all.m_structureArray = new BDDStructureVector;
    EXPECT_FALSE(itemOf(all, vtStructure).isEmpty());
    EXPECT_FALSE(itemOf(all, vtStructureArray).isEmpty());
}

TEST(BDDItemObject, ScalarsAsIntegersSignExtendSignedCodes)
{
    TestAll all;
    all.m_schar = -2;
    all.m_short = -3;
    all.m_int = -4;
    all.m_longlong = std::numeric_limits<int64_t>::min();
    all.m_uchar = 250;
    all.m_ushort = 65000;
    all.m_uint = 4000000000u;
    all.m_ulonglong = std::numeric_limits<uint64_t>::max();
    all.m_char = -1;
    all.m_wchar = -5;
    const std::pair<BDDValueType, unsigned long> cases[] = {
        {vtSChar, static_cast<unsigned long>(-2)},  {vtShort, static_cast<unsigned long>(-3)},
        {vtInt, static_cast<unsigned long>(-4)},    {vtLongLong, 0x8000000000000000ul},
        {vtUChar, 250},                             {vtUShort, 65000},
        {vtUInt, 4000000000ul},                     {vtULongLong, std::numeric_limits<unsigned long>::max()},
        {vtChar, static_cast<unsigned long>(-1)},   {vtWChar, static_cast<unsigned long>(-5)},
    };
    for (const auto &[type, expected] : cases) {
        unsigned long value = 0;
        EXPECT_TRUE(itemOf(all, type).getScalarAsSizet(value)) << "value type " << type;
        EXPECT_EQ(value, expected) << "value type " << type;
    }
    for (BDDValueType other : {vtDouble, vtFloat, vtUCharArray, vtToken, vtWhitespace, vtString}) {
        unsigned long value = 7;
        EXPECT_FALSE(itemOf(all, other).getScalarAsSizet(value)) << "value type " << other;
        EXPECT_EQ(value, 7u);
    }
    EXPECT_EQ(all.rawBDDItemValue(itemAllBase + vtUShort), 65000u);
    EXPECT_THROW(all.rawBDDItemValue(itemAllBase + vtDouble), const char *);
}

TEST(BDDItemObject, ScalarVariantsRoundTripWithTheirVariantTypes)
{
    struct Case
    {
        BDDValueType type;
        QVariant in;
        int variantType;
        QVariant out;
    };
    const Case cases[] = {
        {vtSChar, -7, QMetaType::Int, -7},
        {vtShort, -300, QMetaType::Int, -300},
        {vtInt, -70000, QMetaType::Int, -70000},
        {vtLongLong, qlonglong(-5000000000), QMetaType::LongLong, qlonglong(-5000000000)},
        {vtUChar, 200u, QMetaType::Int, 200},
        {vtUShort, 60000u, QMetaType::Int, 60000},
        {vtUInt, 4000000000u, QMetaType::UInt, 4000000000u},
        {vtULongLong, qulonglong(18000000000000000000ull), QMetaType::ULongLong, qulonglong(18000000000000000000ull)},
        {vtChar, -1, QMetaType::Int, -1},
        {vtWChar, 0x12345, QMetaType::Int, 0x12345},
        {vtDouble, 2.25, QMetaType::Double, 2.25},
        {vtFloat, 1.5f, QMetaType::Float, 1.5f},
        {vtWhitespace, 9u, QMetaType::Int, 9},
        // Narrowing keeps the low bits, as a cast does.
        {vtUChar, 300u, QMetaType::Int, 44},
        {vtShort, 70000, QMetaType::Int, 70000 - 65536},
    };
    TestRun run;
    for (const Case &c : cases) {
        TestAll all;
        BDDItemObject object = itemOf(all, c.type);
        EXPECT_TRUE(object.setFromQVariant(c.in, &run.ctx)) << "value type " << c.type;
        const QVariant out = object.getAsQVariant(&run.ctx);
        EXPECT_EQ(out.userType(), c.variantType) << "value type " << c.type;
        EXPECT_EQ(out, c.out) << "value type " << c.type;
    }
}

TEST(BDDItemObject, ScalarArraysTravelAsBigEndianBytesAndBack)
{
    TestAll from;
    from.m_scharArray = new BDDScalarArray<vtSCharArray>{-128, 127};
    from.m_shortArray = new BDDScalarArray<vtShortArray>{0x0102, -2};
    from.m_intArray = new BDDScalarArray<vtIntArray>{std::numeric_limits<int32_t>::min()};
    from.m_longlongArray = new BDDScalarArray<vtLongLongArray>{-1};
    from.m_ucharArray = new BDDScalarArray<vtUCharArray>{0, 255};
    from.m_ushortArray = new BDDScalarArray<vtUShortArray>{65535};
    from.m_uintArray = new BDDScalarArray<vtUIntArray>{0xDEADBEEF};
    from.m_ulonglongArray = new BDDScalarArray<vtULongLongArray>{1};
    from.m_charArray = new BDDScalarArray<vtCharArray>{-1, 'A'};
    from.m_wcharArray = new BDDScalarArray<vtWCharArray>{0x12345};
    from.m_doubleArray = new BDDScalarArray<vtDoubleArray>{1.0};
    from.m_floatArray = new BDDScalarArray<vtFloatArray>{1.5f, -2.0f};
    const QByteArray expected[] = {
        bytes({0x80, 0x7F}),
        bytes({0x01, 0x02, 0xFF, 0xFE}),
        bytes({0x80, 0, 0, 0}),
        QByteArray(8, '\xFF'),
        bytes({0, 0xFF}),
        bytes({0xFF, 0xFF}),
        bytes({0xDE, 0xAD, 0xBE, 0xEF}),
        bytes({0, 0, 0, 0, 0, 0, 0, 1}),
        bytes({0xFF, 0x41}),
        bytes({0, 0x01, 0x23, 0x45}),
        bytes({0x3F, 0xF0, 0, 0, 0, 0, 0, 0}),
        bytes({0x3F, 0xC0, 0, 0, 0xC0, 0, 0, 0}),
    };
    TestAll to;
    for (int code = vtSCharArray; code <= vtFloatArray; ++code) {
        const auto type = static_cast<BDDValueType>(code);
        const QVariant value = itemOf(from, type).getAsQVariant(nullptr);
        EXPECT_EQ(value.userType(), QMetaType::QByteArray) << "value type " << code;
        EXPECT_EQ(value.toByteArray(), expected[code - vtSCharArray]) << "value type " << code;
        EXPECT_TRUE(itemOf(to, type).setFromQVariant(latin1(value.toByteArray()), nullptr));
        EXPECT_EQ(itemOf(to, type).getAsQVariant(nullptr), value) << "value type " << code;
    }
    EXPECT_EQ(*to.m_floatArray, *from.m_floatArray);
    EXPECT_EQ(*to.m_wcharArray, *from.m_wcharArray);

    TestAll none;
    none.m_ucharArray = new BDDScalarArray<vtUCharArray>{};
    EXPECT_EQ(itemOf(none, vtUCharArray).getAsQVariant(nullptr), QVariant(QByteArray())) << "empty vector";
    EXPECT_EQ(itemOf(none, vtIntArray).getAsQVariant(nullptr), QVariant(QByteArray())) << "no vector";
}

TEST(BDDItemObject, ArrayTextParsesBackIntoTheVector)
{
    const QByteArray floats = bytes({0x3F, 0xC0, 0, 0, 0xC0, 0, 0, 0});
    // A byte array as it stands, and text with one character per byte (the
    // form serialised trees carry).
    for (const QVariant &text : {QVariant(floats), QVariant(latin1(floats))}) {
        TestAll all;
        EXPECT_TRUE(itemOf(all, vtFloatArray).setFromQVariant(text, nullptr));
        ASSERT_NE(all.m_floatArray, nullptr);
        EXPECT_EQ(*all.m_floatArray, (std::vector<float>{1.5f, -2.0f})) << text.typeName();
    }

    TestAll all;
    EXPECT_TRUE(QStringToVector(latin1(floats.left(5)), &all.m_floatArray));
    EXPECT_EQ(*all.m_floatArray, (std::vector<float>{1.5f})) << "the fifth byte is ignored";
    EXPECT_FALSE(QStringToVector(QString(), &all.m_floatArray));
    EXPECT_FALSE(QStringToVector<float>(QStringLiteral("abcd"), nullptr));
    EXPECT_EQ(*all.m_floatArray, (std::vector<float>{1.5f})) << "a failed parse changes nothing";

    EXPECT_TRUE(itemOf(all, vtWCharArray).setFromQVariant(bytes({0xFF, 0xFF, 0xFF, 0xFE}), nullptr));
    EXPECT_EQ(*all.m_wcharArray, (std::vector<wchar_t>{-2}));
}

TEST(BDDItemObject, TokensGoThroughTheContextsTokenFunctions)
{
    TestRun run;
    TestAll all;
    BDDItemObject token = itemOf(all, vtToken);
    EXPECT_TRUE(token.setFromQVariant(QStringLiteral("tokenAlpha"), &run.ctx));
    std::string name = "tokenAlpha";
    EXPECT_EQ(all.m_token, testStringToToken(&name));
    EXPECT_EQ(token.getAsQVariant(&run.ctx), QVariant(QStringLiteral("tokenAlpha")));

    EXPECT_FALSE(token.setFromQVariant(QStringLiteral("x"), nullptr)) << "no context, no token";
    EXPECT_FALSE(token.getAsQVariant(nullptr).isValid());
}

TEST(BDDItemObject, StringsAndStructuresConvertAsTheyShould)
{
    TestAll all;
    EXPECT_TRUE(itemOf(all, vtString).setFromQVariant(QStringLiteral("h\u00e9llo"), nullptr));
    EXPECT_EQ(all.m_string, QStringLiteral("h\u00e9llo"));
    EXPECT_EQ(itemOf(all, vtString).getAsQVariant(nullptr), QVariant(QStringLiteral("h\u00e9llo")));

    all.m_structure = new TestLeaf;
    for (BDDValueType type : {vtStructure, vtStructureArray}) {
        BDDItemObject object = itemOf(all, type);
        EXPECT_FALSE(object.getAsQVariant(nullptr).isValid()) << "value type " << type;
        EXPECT_FALSE(object.setFromQVariant(QStringLiteral("1"), nullptr)) << "value type " << type;
    }

    // The raw pointer accessors answer only for their own kind.
    BDDStructureVector *vector = nullptr;
    EXPECT_FALSE(itemOf(all, vtStructure).getRawStructVectorPtr(&vector));
    EXPECT_FALSE(itemOf(all, vtString).setRawStructPtr(all.m_structure));
}

TEST(BDDItemObject, BuffersGiveTheirBytesAndTakeNewOnesAtTheCursor)
{
    TestRun run;
    TestAll all;
    BDDItemObject buffer = itemOf(all, vtMemoryBuffer);

    EXPECT_TRUE(buffer.setFromQVariant(QString(), &run.ctx)) << "empty text writes nothing";
    EXPECT_EQ(all.m_buffer, nullptr);
    EXPECT_TRUE(buffer.setFromQVariant(QStringLiteral("abc"), &run.ctx));
    ASSERT_NE(all.m_buffer, nullptr) << "a buffer comes from the run's pool";
    EXPECT_EQ(run.pool.sizeOfMemoryBufferPool(), 1u);
    EXPECT_EQ(buffer.getAsQVariant(&run.ctx), QVariant(QByteArray("abc")));

    all.m_buffer->seek(1);
    EXPECT_TRUE(buffer.setFromQVariant(QByteArray("XYZ"), &run.ctx));
    EXPECT_EQ(all.m_buffer->tell(), 4u);
    EXPECT_EQ(buffer.getAsQVariant(&run.ctx).toByteArray(), QByteArray("aXYZ"));
    EXPECT_EQ(all.m_buffer->tell(), 4u) << "reading the value leaves the cursor alone";

    all.m_buffer->allowBufferExpansion(false);
    EXPECT_THROW(buffer.setFromQVariant(QStringLiteral("more"), &run.ctx), WriteBufferException);

    TestAll orphan;
    EXPECT_FALSE(itemOf(orphan, vtMemoryBuffer).setFromQVariant(QStringLiteral("abc"), nullptr))
        << "no pool to take a buffer from";
    EXPECT_EQ(itemOf(orphan, vtMemoryBuffer).getAsQVariant(nullptr), QVariant(QByteArray()));
}

// ---------------------------------------------------------------------------
// Nodes
// ---------------------------------------------------------------------------

TEST(BDDLStructBase, ChildrenListIsMadeOnFirstUseAndDoesNotOwn)
{
    TestLeaf parent, first, second;
    EXPECT_EQ(parent.countChildren(), 0u);
    EXPECT_EQ(parent.getChild(0), nullptr);
    EXPECT_EQ(parent.RemoveLastChild(), nullptr);

    parent.AddChild(&first);
    parent.AddChild(&second);
    EXPECT_EQ(parent.countChildren(), 2u);
    EXPECT_EQ(parent.getChild(0), &first);
    EXPECT_EQ(parent.getChild(1), &second);
    EXPECT_EQ(parent.getChild(2), nullptr) << "an index equal to the count";
    EXPECT_EQ(parent.RemoveLastChild(), &second);
    EXPECT_EQ(parent.countChildren(), 1u);
    // parent, first and second all live on the stack: had the list owned
    // its children, the sanitizer build would catch a double free here.
}

TEST(BDDLStructBase, InitialisesForReadingAndForARun)
{
    TestRun run;
    TestLeaf leaf;
    run.input.resetMemoryBuffer(10);
    run.input.seek(6);
    leaf.m_size = 3;
    EXPECT_EQ(leaf.initialBeforeReadFromBuffer(&run.ctx, run.root.get(), run.root.get()), 0u);
    EXPECT_EQ(leaf.root(), run.root.get());
    EXPECT_EQ(leaf.parent(), run.root.get());
    EXPECT_EQ(leaf.position(), 6u);
    EXPECT_EQ(leaf.size(), 0u);
    EXPECT_EQ(leaf.getInputBuffer(), &run.input);
    EXPECT_EQ(leaf.getOutputBuffer(), &run.output);

    CameraBase session(nullptr);
    auto *const camera = reinterpret_cast<VXCameraIF *>(0x10);
    auto *const block = reinterpret_cast<ParameterBlock *>(0x20);
    EXPECT_EQ(run.root->initialBDDLStructBase_Root(run.root.get(), &session, camera, block, 12), 0u);
    EXPECT_EQ(run.ctx.m_cameraSession, &session);
    EXPECT_EQ(run.ctx.m_camera, camera);
    EXPECT_EQ(run.ctx.m_parameterBlock, block);
    EXPECT_EQ(run.root->position(), 12u);
    EXPECT_EQ(run.root->parent(), nullptr);
}

TEST(BDDLStructBase, NodeBytesAreTheInputItCovers)
{
    TestRun run;
    const char text[] = "0123456789";
    run.input.putRawBytes(text, 10);
    TestLeaf *leaf = run.make<TestLeaf>();
    const std::unique_ptr<TestLeaf> owner(leaf);
    run.input.seek(3);
    const struct
    {
        uint32_t position, size;
        QByteArray expected;
    } cases[] = {{2, 4, "2345"}, {8, 5, "89"}, {10, 1, ""}, {0xFFFFFFFF, 1, ""}, {0, 0, ""}};
    for (const auto &c : cases) {
        leaf->m_position = c.position;
        leaf->m_size = c.size;
        EXPECT_EQ(leaf->toQByteArray(), c.expected) << "position " << c.position << " size " << c.size;
    }
    EXPECT_EQ(run.input.tell(), 3u);
    TestLeaf loose;
    loose.m_size = 4;
    EXPECT_EQ(loose.toQByteArray(), QByteArray()) << "no root, no input";
    EXPECT_EQ(position(nullptr), 0u);
    EXPECT_EQ(valSize(nullptr), 0u);
    EXPECT_EQ(valSize(leaf), 0u);
}

TEST(BDDLStructBase, WriteCheckPassesCheckedNodesAndReportsUncheckedOnes)
{
    TestRun run;
    TestLeaf *leaf = run.make<TestLeaf>();
    const std::unique_ptr<TestLeaf> owner(leaf);
    leaf->m_position = 0x2a;
    LogCapture log;

    leaf->m_processStatus = 0x84;
    EXPECT_TRUE(run.root->ucpNodeOkToWrite(leaf));
    leaf->m_processStatus = 5;
    EXPECT_FALSE(run.root->ucpNodeOkToWrite(leaf));
    leaf->m_processStatus = 2;
    EXPECT_FALSE(run.root->ucpNodeOkToWrite(leaf));
    EXPECT_TRUE(log.messages().isEmpty()) << "refusals of processed nodes are silent";
    EXPECT_TRUE(issuesOf(run.analysis, 464).isEmpty());

    leaf->m_processStatus = 0;
    EXPECT_FALSE(run.root->ucpNodeOkToWrite(leaf));
    EXPECT_EQ(log.messages(),
              QStringList{QStringLiteral("VX_ERROR: 96 : 464 : \"Object 'TestLeaf' at 2a not checked before writing\"")});
    EXPECT_EQ(issuesOf(run.analysis, 464),
              QStringList{QStringLiteral("Object 'TestLeaf' at 2a not checked before writing|0|96")});
}

TEST(BDDLStructBase, WriteCheckNamesTheNodeByDescriptionThenItemNameThenClass)
{
    TestRun run;
    TestLeaf leaf;
    const struct
    {
        const char *description;
        const char *itemName;
        const char *expected;
    } cases[] = {
        {"described", "hung", "described"},
        {"noname", "hung", "hung"},
        {"noname", "noname", "TestLeaf"},
        {nullptr, nullptr, "TestLeaf"},
    };
    for (const auto &c : cases) {
        leaf.m_description = c.description;
        leaf.m_itemName = c.itemName;
        LogCapture log;
        run.root->ucpNodeOkToWrite(&leaf);
        ASSERT_EQ(log.messages().size(), 1);
        EXPECT_TRUE(log.messages().first().contains(QStringLiteral("'%1'").arg(QLatin1String(c.expected))))
            << log.messages().first().toStdString();
    }
}

TEST(BDDLStructBase, LiveNodeCountReturnsToItsStartWhenATreeGoes)
{
    const long start = countOfBlocksAllocated();
    {
        TestRun run;
        run.root->m_single = run.make<TestLeaf>();
        run.root->m_array = new BDDStructureVector{run.make<TestLeaf>(), run.make<TestEmpty>(), run.make<TestAll>()};
        EXPECT_EQ(countOfBlocksAllocated(), start + 5);
        // Item views are made on demand and are not nodes.
        run.root->makeUCPItemItrsReady();
        EXPECT_EQ(countOfBlocksAllocated(), start + 5);
    }
    EXPECT_EQ(countOfBlocksAllocated(), start);

    void *block = blockAllocator_new(0);
    EXPECT_EQ(countOfBlocksAllocated(), start + 1);
    blockAllocator_delete(block);
    blockAllocator_delete(nullptr);
    EXPECT_EQ(countOfBlocksAllocated(), start);
}

// ---------------------------------------------------------------------------
// Roots
// ---------------------------------------------------------------------------

TEST(BDDLStructBase_Root, AnEmptyDoctypeIsUnknown)
{
    TestRoot root;
    EXPECT_EQ(root.getDoctype(), QStringLiteral("unknown"));
    root.setDoctype(QStringLiteral("letter"));
    EXPECT_EQ(root.getDoctype(), QStringLiteral("letter"));
    root.setDoctype(QString());
    EXPECT_EQ(root.getDoctype(), QStringLiteral("unknown"));
}

TEST(BDDLStructBase_Root, CameraPoolAndPolicyComeFromTheSession)
{
    TestRun run;
    TestLeaf *leaf = run.make<TestLeaf>();
    const std::unique_ptr<TestLeaf> owner(leaf);

    EXPECT_EQ(thrownText([&] { run.root->getCameraPool(); }), "Camera Pool broken") << "no session";
    EXPECT_EQ(thrownText([&] { run.root->getErrMsgID(ft_doc, nullptr); }), "Camera Pool broken");
    EXPECT_EQ(thrownText([&] { leaf->contentManagementObject(); }), "Content management policy missing");
    TestLeaf loose;
    EXPECT_THROW(loose.contentManagementObject(), std::bad_cast);

    CameraBase session(nullptr);
    run.ctx.m_cameraSession = &session;
    EXPECT_EQ(thrownText([&] { run.root->getCameraPool(); }), "Camera Pool broken") << "a session without pool";
    EXPECT_EQ(&leaf->contentManagementObject(), &session.contentManagement());

    TestRoot noContext;
    EXPECT_EQ(thrownText([&] { noContext.getCameraPool(); }), "Camera Pool broken");
}
