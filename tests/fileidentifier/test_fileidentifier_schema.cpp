#include "fileidentifiermodule.h"

#include "buffers/MemoryBufferPool.h"
#include "qtprinters.h"
#include "ucp/bddldocument.h"
#include "ucp/ucpnode.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

// The file identifier's schema, object factory and token map, reached as the
// shared code reaches them: through the reading context of an initialised
// camera.

namespace {

class FileIdentifierSchema : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_startBlocks = countOfBlocksAllocated();
        VXCameraPluginIF *const plugin = fileIdentifierPlugin();
        ASSERT_NE(plugin, nullptr);
        m_camera.reset(plugin->getCamera());
        m_root = initialise();
        ASSERT_NE(m_root, nullptr);
        m_ctx = m_root->getContext();
        ASSERT_NE(m_ctx, nullptr);
    }
    void TearDown() override
    {
        m_camera.reset();
        EXPECT_EQ(countOfBlocksAllocated(), m_startBlocks);
    }

    BDDLStructBase_Root *initialise()
    {
        BDDLStructBase_Root *root = nullptr;
        m_camera->initialiseCamera(&m_input, &m_output, &m_analysis, &m_pool, &root);
        return root;
    }

    uint32_t token(const char *name)
    {
        std::string text(name);
        return m_ctx->m_stringToToken(&text);
    }

    long m_startBlocks = 0;
    MemoryBuffer m_input;
    MemoryBuffer m_output;
    MemoryBufferPool m_pool;
    RepositoryComponents::DocumentAnalysis m_analysis;
    std::unique_ptr<VXCameraIF> m_camera;
    BDDLStructBase_Root *m_root = nullptr;
    context *m_ctx = nullptr;
};

} // namespace

TEST_F(FileIdentifierSchema, NamesOneStructureWithOneByteArrayItem)
{
    const BDDSchema *const schema = m_ctx->m_getSchema();
    ASSERT_NE(schema, nullptr);
    const QMap<int32_t, QByteArray> names{{1, "data"}, {2, "fi"}, {3, "scalarReadTestFlags"}, {4, "0"}};
    EXPECT_EQ(schema->m_itemNames, names);

    ASSERT_NE(schema->m_structures, nullptr);
    const BDDStructure *const structure = schema->m_structures[0];
    ASSERT_NE(structure, nullptr);
    EXPECT_EQ(schema->m_structures[1], nullptr) << "one structure only";
    EXPECT_EQ(structure->m_id, 27);
    EXPECT_EQ(m_root->getBDDStructureDefinition(), structure);
    ASSERT_EQ(structure->countItems(), 1u);
    EXPECT_EQ(structure->getItemByIndex(0)->m_id, 1);

    BDDItemObject object;
    ASSERT_TRUE(m_root->getItemObjectByEnum(1, object));
    EXPECT_EQ(object.valueType(), vtUCharArray);
    EXPECT_TRUE(object.isScalarArray());
    EXPECT_FALSE(object.isEmpty()) << "the field exists even while it holds no vector";
    EXPECT_FALSE(m_root->getItemObjectByEnum(2, object)) << "\"fi\" names no item of the class";
}

TEST_F(FileIdentifierSchema, FactoryMakesOnlyTheRootClass)
{
    for (unsigned int classId : {0u, 1u, 26u, 28u, 0xffffffffu})
        EXPECT_EQ(m_ctx->m_objectFactory(classId), nullptr) << classId;

    const long before = countOfBlocksAllocated();
    std::unique_ptr<BDDLStructBase> node(m_ctx->m_objectFactory(27));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(countOfBlocksAllocated(), before + 1) << "made through the counting allocator";
    EXPECT_EQ(node->m_classId, 27);
    EXPECT_STREQ(node->get_desc_string(), "FileIdentifier");
    EXPECT_STREQ(node->m_description, "FileIdentifier");
    EXPECT_NE(dynamic_cast<BDDLStructBase_Root *>(node.get()), nullptr);
    node.reset();
    EXPECT_EQ(countOfBlocksAllocated(), before);
}

TEST_F(FileIdentifierSchema, TheRootAsAUcpTree)
{
    const QByteArray bytes = QByteArray::fromHex("00ff7f");
    m_input = namedBuffer(bytes, "three");
    ASSERT_EQ(m_camera->readInputBuffer(), 0);
    const std::unique_ptr<UCPDocument> document(m_camera->getUCPDocumentInterface());
    UCPNode *const root = document->getDocumentNode();
    EXPECT_EQ(root->getNodeName(), QStringLiteral("FileIdentifier"));
    EXPECT_EQ(root->getNodeType(), UCPNode::DOCUMENT);
    EXPECT_EQ(root->getNodeAttribute(QStringLiteral("size")).toUInt(), 3u);
    EXPECT_EQ(root->getNodeAttribute(QStringLiteral("estrc")).toUInt(), 27u);

    UCPNode *const data = root->getFirstChild();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data, root->getLastChild()) << "one item";
    EXPECT_EQ(data->getNodeName(), QStringLiteral("data"));
    EXPECT_EQ(data->getNodeType(), UCPNode::VALUEARRAY);
    EXPECT_EQ(data->getNodeValue().toByteArray(), bytes);
}

TEST_F(FileIdentifierSchema, ARootBuiltByImportOwnsTheDataGivenToIt)
{
    // Tree import makes the root through the factory and fills its items
    // through the UCP view; the vector made there is the root's to free.
    std::unique_ptr<BDDLStructBase> node(m_ctx->m_objectFactory(27));
    auto *const imported = static_cast<BDDLStructBase_Root *>(node.get());
    imported->setContext(m_ctx);
    imported->setRoot(imported);
    UCPNode *const data = imported->getFirstChild();
    ASSERT_NE(data, nullptr);
    data->setNodeValue(QVariant(QByteArrayLiteral("imported")));
    EXPECT_EQ(rootData(imported), QByteArrayLiteral("imported"));
}

TEST_F(FileIdentifierSchema, TokensCountFromOneInFirstSeenOrderAndRestartPerRun)
{
    EXPECT_EQ(token("alpha"), 1u);
    EXPECT_EQ(token("beta"), 2u);
    EXPECT_EQ(token("alpha"), 1u);
    EXPECT_EQ(token(""), 3u) << "an empty name is a name";
    EXPECT_EQ(m_ctx->m_stringToToken(nullptr), 0u);
    EXPECT_EQ(m_ctx->m_tokenToString(2), "beta");
    EXPECT_EQ(m_ctx->m_tokenToString(0), "");
    EXPECT_EQ(m_ctx->m_tokenToString(99), "");

    // A new run forgets the names; the ids' names stay until taken over.
    m_root = initialise();
    m_ctx = m_root->getContext();
    EXPECT_EQ(token("gamma"), 1u);
    EXPECT_EQ(m_ctx->m_tokenToString(1), "gamma");
    EXPECT_EQ(m_ctx->m_tokenToString(2), "beta");
    EXPECT_EQ(token("beta"), 2u);
    EXPECT_EQ(token("delta"), 3u);
    EXPECT_EQ(m_ctx->m_tokenToString(3), "delta");
}
