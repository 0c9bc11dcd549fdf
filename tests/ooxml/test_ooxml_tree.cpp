#include "ooxml_camera.h"
#include "ooxml_schema.h"
#include "ooxmltesting.h"

#include "ucp/serialdatareaderwriter.h"
#include "ucp/ucpnode.h"
#include "ucp/ucpserialization.h"

#include <gtest/gtest.h>

// The camera's tree as code that knows nothing of its classes sees it: a
// tree copied through the UCP node interface, the way serialised trees are
// rebuilt, validates and writes what the tree read from the file does.

using namespace ooxmltest;

namespace {

// One camera bound to a session of its own, as a session prepares it.
struct CameraRun
{
    explicit CameraRun(const QByteArray &policy) : session(&pluginPool()), policyBuffer(bufferOf(policy))
    {
        session.contentManagement().loadRepositoryFromXML(&policyBuffer);
        BDDLStructBase_Root *root = nullptr;
        camera.initialiseCamera(&input, &output, &session.analysis(), &session.bufferPool(), &root);
        root->initialBDDLStructBase_Root(root, &session, &camera, nullptr, 0);
        document.reset(camera.getUCPDocumentInterface());
    }
    ~CameraRun() { document.reset(); camera.deinitialiseCamera(); }

    QByteArray written() const { return bytesOf(output); }

    CameraBase session;
    MemoryBuffer policyBuffer;
    MemoryBuffer input;
    MemoryBuffer output;
    Ooxml::Ooxml_camera camera;
    std::unique_ptr<UCPDocument> document;
};

// Copies the items under `from` into `to` through UCP alone. Values travel
// as serialised trees carry them: their bytes, read back as Latin-1 text.
void copyItems(UCPNode *from, UCPNode *to, UCPDocument &target)
{
    UCPNode *b = to->getFirstChild();
    for (UCPNode *a = from->getFirstChild(); a != nullptr && b != nullptr; a = a->getNextSibling()) {
        ASSERT_EQ(a->getNodeName(), b->getNodeName());
        if (a->getNodeType() == UCPNode::STRUCTARRAY) {
            b->setNodeAttribute(QStringLiteral("size"), a->getNodeAttribute(QStringLiteral("size")));
            for (UCPNode *element = a->getFirstChild(); element != nullptr; element = element->getNextSibling()) {
                UCPNode *made = target.createNode(element->getNodeAttribute(QStringLiteral("estrc")).toUInt());
                ASSERT_NE(made, nullptr);
                copyItems(element, made, target);
                b->appendChild(made);
            }
        } else if (a->isNodeActive()) {
            const QByteArray bytes = a->getNodeValue().toByteArray();
            b->setNodeValue(QString::fromLatin1(bytes.constData(), bytes.size()));
        }
        b = b->getNextSibling();
    }
}

TEST(OoxmlTree, ATreeRebuiltThroughUcpDisarmsAsTheOneRead)
{
    const QByteArray policy = policyXml("embedded_images", "allow", "sanitise");
    for (const char *name : {"macros.docm", "lo-calc.xlsx", "lo-impress.pptx"}) {
        SCOPED_TRACE(name);
        CameraRun direct(policy);
        direct.input = bufferOf(readFixture(QStringLiteral("ooxml/") + QLatin1String(name)));
        ASSERT_EQ(direct.camera.readInputBuffer(), VX2_Success);
        ASSERT_EQ(direct.camera.runValidation(), VX2_SuccessWithInfo);

        // Exported after validation, as a session's export does.
        CameraRun rebuilt(policy);
        copyItems(direct.document->getDocumentNode(), rebuilt.document->getDocumentNode(), *rebuilt.document);
        EXPECT_EQ(rebuilt.camera.runValidation(), VX2_SuccessWithInfo);
        ASSERT_EQ(direct.camera.writeOutputBuffer(), VX2_Success);
        ASSERT_EQ(rebuilt.camera.writeOutputBuffer(), VX2_Success);

        const Package one = inspect(direct.written());
        const Package other = inspect(rebuilt.written());
        EXPECT_FALSE(one.members.isEmpty());
        EXPECT_EQ(one.members, other.members);
        EXPECT_EQ(one.bytes, other.bytes);
        EXPECT_EQ(testcamera::recordsOf(direct.session.analysis()), testcamera::recordsOf(rebuilt.session.analysis()));
        EXPECT_EQ(rebuilt.document->getDoctype(), direct.document->getDoctype());
    }
}

// Through the serialised forms themselves: a tree exported after validation
// and imported into a camera the pool makes validates and writes as the
// direct run does.
TEST(OoxmlTree, AnImportedTreeDisarmsAsTheDirectRun)
{
    const QByteArray policy = policyXml("embedded_images", "allow", "sanitise");
    const QString camera = pluginPool().getCameraNameFromFileType(ft_opc);
    for (const SerializationFormat format : {sfSISL, sfXML}) {
        for (const char *name : {"macros.docm", "lo-calc.xlsx", "lo-impress.pptx"}) {
            SCOPED_TRACE(std::string(name) + (format == sfXML ? " XML" : " SISL"));
            CameraRun direct(policy);
            direct.input = bufferOf(readFixture(QStringLiteral("ooxml/") + QLatin1String(name)));
            ASSERT_EQ(direct.camera.readInputBuffer(), VX2_Success);
            const VX2_RetStatus validated = direct.camera.runValidation();
            MemoryBuffer serial;
            UCPSerialization exporter;
            exporter.register_serialisabledoc(&direct.camera, &serial);
            exporter.register_session(&direct.session);
            const std::unique_ptr<SerialDataReaderWriter> rw = UCPSerialization::getSerialDataReaderWriter(format);
            ASSERT_TRUE(exporter.exportSerialData(rw.get(), QStringLiteral("stream"), camera));
            ASSERT_EQ(direct.camera.writeOutputBuffer(), VX2_Success);

            CameraRun target(policy);
            UCPSerialization importer;
            importer.register_session(&target.session);
            importer.register_importDeserialisableBuffer(&serial);
            importer.register_outputBuffer(&target.output);
            QString stream;
            ASSERT_TRUE(importer.importSerialData(rw.get(), stream));
            VXCameraIF *imported = importer.getImportedCameraIF();
            ASSERT_NE(imported, nullptr);
            EXPECT_EQ(imported->runValidation(), validated);
            EXPECT_EQ(imported->writeOutputBuffer(), VX2_Success);
            imported->deinitialiseCamera();
            delete imported;

            const Package one = inspect(direct.written());
            const Package other = inspect(target.written());
            EXPECT_FALSE(one.members.isEmpty());
            EXPECT_EQ(one.members, other.members);
            EXPECT_EQ(one.bytes, other.bytes);
        }
    }
}

TEST(OoxmlTree, TheTreeShowsThePackage)
{
    CameraRun run(policyXml(QString(), QString(), "allow"));
    run.input = bufferOf(readFixture(QStringLiteral("ooxml/lo-writer.docx")));
    ASSERT_EQ(run.camera.readInputBuffer(), VX2_Success);
    UCPNode *root = run.document->getDocumentNode();
    EXPECT_EQ(root->getNodeName(), "OoxmlPackage");
    EXPECT_EQ(run.document->getFiletype(), ft_docx);
    EXPECT_EQ(run.document->getDoctype(), "docx");
    QStringList items;
    for (UCPNode *item = root->getFirstChild(); item != nullptr; item = item->getNextSibling())
        items << QStringLiteral("%1 %2").arg(item->getNodeName()).arg(item->getNodeAttribute("size").toUInt());
    EXPECT_EQ(items, QStringList({"defaults 4", "parts 8", "relationships 9"}));
    UCPNode *part = root->getFirstChild()->getNextSibling()->getFirstChild();
    QStringList fields;
    for (UCPNode *item = part->getFirstChild(); item != nullptr; item = item->getNextSibling())
        fields << item->getNodeName() + '=' + item->getNodeValue().toString().left(24);
    EXPECT_EQ(fields, QStringList({"partName=docProps/core.xml",
                                   "contentType=application/vnd.openxmlf", "partSize=588",
                                   "data=<?xml version=\"1.0\" enco", "disposition=0", "outputContentType="}));
}

} // namespace
