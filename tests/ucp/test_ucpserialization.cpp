// Trees of real cameras written as serial streams and rebuilt in fresh
// cameras: the file-identifier module and the tree camera of tests/plugins,
// loaded through a camera pool (see serialsession.h).

#include "ucp/ucpserialization.h"

#include "logcapture.h"
#include "qtprinters.h"
#include "serialsession.h"
#include "testcamera.h"
#include "ucp/sislserialreaderwriter.h"
#include "ucp/xmlserialreaderwriter.h"

#include <QDomDocument>

using namespace serialsession;

namespace {

// Lines with non-ASCII text, control bytes, bytes that are not UTF-8, an
// empty line and one of blanks.
const QByteArray kTreeInput = QByteArray("VXTREE\nfirst \xc3\xa9\xe2\x98\xba line\n\tcontrol \x01\x02\x1f and \x7f\x80\xff"
                                         "\nmacro here\n\n   \n\"quoted\" back\\slash\n");

QByteArray everyByte()
{
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes += char(i);
    return bytes;
}

struct CameraRun
{
    const char *what;
    ft_t type;
    QByteArray input;
    QString cameraName;
};

const CameraRun kRuns[] = {
    {"tree camera", ft_doc, kTreeInput, kTreeCamera},
    {"file-identifier camera", ft_fileidentifier, everyByte() + everyByte(), kFileIdentifierCamera},
};

class UCPSerializationTest : public SerialSession
{
protected:
    // A stream naming the tree camera around the XML of the DOCUMENT element.
    static QByteArray treeXml(const QByteArray &document)
    {
        return "<!DOCTYPE SerialStream>\n<FileStream streamname=\"s\" cameraname=\"libvxtree.so\">" + document
               + "</FileStream>\n";
    }
};

} // namespace

TEST_F(UCPSerializationTest, TreesComeBackNodeByNodeInBothFormsAndLayouts)
{
    for (const CameraRun &run : kRuns) {
        const std::unique_ptr<VXCameraIF> original = readCamera(run.type, run.input);
        ASSERT_NE(original, nullptr) << run.what;
        const QStringList tree = describeTree(original.get());
        for (const SerializationFormat format : {sfXML, sfSISL}) {
            for (const bool pretty : {false, true}) {
                const QByteArray stream = exportStream(original.get(), format, pretty, QStringLiteral("in \u00e9"),
                                                       run.cameraName);
                QString streamName;
                const std::unique_ptr<VXCameraIF> imported = importStream(stream, format, &streamName);
                ASSERT_NE(imported, nullptr) << run.what << " format " << format << " pretty " << pretty;
                EXPECT_EQ(describeTree(imported.get()), tree) << run.what << " format " << format;
                EXPECT_EQ(streamName, QStringLiteral("in \u00e9"));
            }
        }
    }
}

TEST_F(UCPSerializationTest, TheTreeCameraShowsEveryValueKind)
{
    const std::unique_ptr<VXCameraIF> camera = readCamera(ft_doc, kTreeInput);
    const QString tree = describeTree(camera.get()).join(QLatin1Char('\n'));
    for (const char *name : {"sChar", "uLongLong", "wChar", "double", "float", "sCharArray", "floatArray",
                             "wCharArray", "structure", "structureArray", "token", "whitespace", "string",
                             "memoryBuffer", ":schemamissing:"})
        EXPECT_TRUE(tree.contains(QLatin1Char(' ') + QLatin1String(name) + QLatin1Char(' '))) << name;
}

TEST_F(UCPSerializationTest, XmlThroughSislAndBackGivesTheSameBytes)
{
    const std::unique_ptr<VXCameraIF> camera = readCamera(ft_doc, kTreeInput);
    const QByteArray xml = exportStream(camera.get(), sfXML);
    XMLSerialReaderWriter xmlForm;
    SISLSerialReaderWriter sislForm;
    QDomDocument fromXml;
    ASSERT_TRUE(xmlForm.deserialise(fromXml, buffer(xml)));
    MemoryBuffer *const sisl = buffer();
    sislForm.serialise(fromXml, sisl);
    QDomDocument fromSisl(QStringLiteral("SerialStream")); // as the import makes it
    ASSERT_TRUE(sislForm.deserialise(fromSisl, sisl));
    MemoryBuffer *const again = buffer();
    xmlForm.serialise(fromSisl, again);
    EXPECT_EQ(bytesOf(*again), xml);
}

TEST_F(UCPSerializationTest, DomLayoutFollowsTheUcpTree)
{
    const std::unique_ptr<VXCameraIF> camera = readCamera(ft_doc, "VXTREE\nA\xe9\n");
    UCPSerialization serialization;
    serialization.register_serialisabledoc(camera.get(), nullptr);
    ASSERT_TRUE(serialization.exportSerialData(UCPSerialization::getSerialDataReaderWriter(sfXML).get(), "s", "c"));
    const QDomDocument dom = serialization.buildDOM(QStringLiteral("name"), QStringLiteral("camera"));
    EXPECT_EQ(dom.doctype().name(), QStringLiteral("SerialStream"));
    const QDomElement fileStream = dom.documentElement();
    EXPECT_EQ(fileStream.tagName(), QStringLiteral("FileStream"));
    EXPECT_EQ(fileStream.attribute(QStringLiteral("streamname")), QStringLiteral("name"));
    EXPECT_EQ(fileStream.attribute(QStringLiteral("cameraname")), QStringLiteral("camera"));

    const QDomElement document = fileStream.firstChildElement();
    EXPECT_EQ(document.tagName(), QStringLiteral("DOCUMENT"));
    const QDomNamedNodeMap attributes = document.attributes();
    QStringList names;
    for (int i = 0; i < attributes.length(); ++i)
        names << attributes.item(i).nodeName();
    names.sort();
    EXPECT_EQ(names, (QStringList{"cameraname", "eitem", "estrc", "name", "offset", "size", "streamname",
                                  "type_string"}));
    EXPECT_EQ(document.attribute(QStringLiteral("name")), QStringLiteral("TestRoot"));
    EXPECT_EQ(document.attribute(QStringLiteral("estrc")), QStringLiteral("1"));
    EXPECT_EQ(document.attribute(QStringLiteral("eitem")), QString()) << "a structure has no item id";

    // The root's items in order; the single structure carries no value.
    QStringList items;
    for (QDomElement item = document.firstChildElement(); !item.isNull(); item = item.nextSiblingElement())
        items << item.tagName() + QLatin1Char(' ') + item.attribute(QStringLiteral("name"));
    EXPECT_EQ(items, (QStringList{"VALUE count", "STRUCT single", "STRUCTARRAY array", "VALUE flag"}));
    const QDomElement single = document.firstChildElement(QStringLiteral("STRUCT"));
    EXPECT_TRUE(single.firstChild().isElement()) << "no text before the structure's items";
    EXPECT_EQ(document.firstChildElement().text(), QStringLiteral("1"));

    // The input's bytes, one character each; the XML form writes é in UTF-8.
    QDomElement bytes = single.firstChildElement();
    while (!bytes.isNull() && bytes.attribute(QStringLiteral("name")) != QLatin1String("uCharArray"))
        bytes = bytes.nextSiblingElement();
    EXPECT_EQ(bytes.text(), QString::fromLatin1("VXTREE\nA\xe9\n"));
    EXPECT_TRUE(exportStream(camera.get(), sfXML).contains("VXTREE\nA\xc3\xa9\n"));
}

TEST_F(UCPSerializationTest, ReaderWritersByFormatAndStreamNames)
{
    EXPECT_EQ(testcamera::thrownText([] { UCPSerialization::getSerialDataReaderWriter(SerializationFormat(2)); }),
              "runExport fail due to indeterminate storage format");
    const auto xml = UCPSerialization::getSerialDataReaderWriter(sfXML);
    const auto sisl = UCPSerialization::getSerialDataReaderWriter(sfSISL);
    EXPECT_EQ(xml->generateStreamName("ignored", "a%1b", 7, 2, "default"), QStringLiteral("Id_7_a%1b_2.xml"));
    EXPECT_EQ(sisl->generateStreamName("", "doc", -3, 0, "default"), QStringLiteral("Id_-3_doc_0.sisl"));
    EXPECT_EQ(sisl->generateStreamName("", "image12.jpg", 1, 4, "12.jpg"), QStringLiteral("Id_1_image12.jpg_4.12.jpg"));
}

TEST_F(UCPSerializationTest, StreamsThatCannotBeImportedFailWithOneLineSayingWhy)
{
    const QByteArray documentOf = "<DOCUMENT name=\"TestRoot\" estrc=\"1\">";
    const struct { const char *what; SerializationFormat format; QByteArray stream; const char *line; } cases[] = {
        {"not SISL", sfSISL, "not sisl", " deserialisation failed Invalid name field"},
        {"empty SISL", sfSISL, "{}", " deserialisation failed SISL text holds no record"},
        {"not XML", sfXML, "<a>", " deserialisation failed XML stream refused: "},
        {"no such camera", sfXML,
         "<FileStream streamname=\"s\" cameraname=\"libnone.so\">" + documentOf + "</DOCUMENT></FileStream>",
         " parseQDomNodes failed Missing camera detection"},
        {"a class the camera does not know", sfXML,
         treeXml(documentOf + "<STRUCT name=\"single\" estrc=\"99\"/></DOCUMENT>"),
         " parseQDomNodes failed Unable to create new node"},
        {"a comment among the items", sfXML, treeXml(documentOf + "<!-- x --></DOCUMENT>"),
         " parseQDomNodes failed Unknown Node found"},
        {"a value on a structure", sfXML, treeXml(documentOf + "text</DOCUMENT>"),
         " parseQDomNodes failed not implemented"},
    };
    for (const auto &c : cases) {
        LogCapture log;
        EXPECT_EQ(importStream(c.stream, c.format), nullptr) << c.what;
        ASSERT_EQ(log.messages().size(), 1) << c.what << ": " << log.messages().join('|').toStdString();
        EXPECT_TRUE(log.messages().front().startsWith(QLatin1String(c.line))) << c.what << ": "
                                                                             << log.messages().front().toStdString();
    }
}

// Streams a writer never makes still give trees the camera can use: arrays
// no larger than their members, no nodes outside the fields that own them
// (the sanitizer build would find those as leaks).
TEST_F(UCPSerializationTest, MisshapenStreamsGiveUsableTrees)
{
    const QByteArray documentOf = "<DOCUMENT name=\"TestRoot\" estrc=\"1\">";
    const struct { const char *what; QByteArray document; const char *array; const char *count; } cases[] = {
        {"an array claiming more members than it holds",
         "<STRUCTARRAY name=\"array\" size=\"60000\"><STRUCT name=\"TestLeaf\" estrc=\"2\">"
         "<ITEM name=\"label\">macro</ITEM></STRUCT></STRUCTARRAY>",
         "TestLeaf:macro", "0"},
        {"array members labelled as items, an item labelled as an array",
         "<STRUCTARRAY name=\"count\">5</STRUCTARRAY><ITEM name=\"array\" size=\"2\"><VALUE name=\"TestLeaf\" "
         "estrc=\"2\"/><VALUE name=\"TestEmpty\" estrc=\"3\"/></ITEM>",
         "TestLeaf: TestEmpty:", "5"},
        {"a root class inside the tree, an element without a name",
         "<STRUCT name=\"single\" estrc=\"1\"><VALUE>7</VALUE><VALUE name=\"count\">8</VALUE></STRUCT>", "", "0"},
    };
    for (const auto &c : cases) {
        const std::unique_ptr<VXCameraIF> camera = importStream(treeXml(documentOf + c.document + "</DOCUMENT>"), sfXML);
        ASSERT_NE(camera, nullptr) << c.what;
        const std::unique_ptr<UCPDocument> document(camera->getUCPDocumentInterface());
        QStringList members;
        QString count;
        for (UCPNode *item = document->getDocumentNode()->getFirstChild(); item; item = item->getNextSibling()) {
            if (item->getNodeName() == QLatin1String("count"))
                count = item->getNodeValue().toString();
            if (item->getNodeName() != QLatin1String("array") || !item->isNodeActive())
                continue;
            for (UCPNode *member = item->getFirstChild(); member; member = member->getNextSibling()) {
                UCPNode *const label = member->getFirstChild() ? member->getFirstChild()->getNextSibling() : nullptr;
                members << member->getNodeName() + QLatin1Char(':') + (label ? label->getNodeValue().toString() : QString());
            }
        }
        EXPECT_EQ(members.join(QLatin1Char(' ')), QLatin1String(c.array)) << c.what;
        EXPECT_EQ(count, QLatin1String(c.count)) << c.what;
        camera->runValidation();
        camera->writeOutputBuffer();
    }
}
