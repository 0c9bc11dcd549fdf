// The XML form: every value comes back byte for byte, and streams from
// outside are read within bounds.

#include "ucp/xmlserialreaderwriter.h"

#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QDomDocument>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

namespace {

// Refused streams leave their reason in errorString().
QString refusal(const QByteArray &xml)
{
    XMLSerialReaderWriter reader;
    QDomDocument doc;
    MemoryBuffer buffer = bufferOf(xml);
    return reader.deserialise(doc, &buffer) ? QStringLiteral("(read)") : reader.errorString();
}

} // namespace

TEST(XMLSerialReaderWriter, EveryValueComesBackAsItWas)
{
    QString everyByte;
    for (int c = 0; c < 256; ++c)
        everyByte += QChar(c);
    const QString values[] = {
        everyByte, QString(), QStringLiteral(" "), QStringLiteral("\n"), QStringLiteral("\t \r\n"),
        QStringLiteral("a\rb"), QString(QChar(0)), QStringLiteral(" x "), QString(QChar(0xE000)),
        QString(QChar(0xE020)) + QChar(0xE01F) + QChar(0xE021), QString(QChar(0xE020)) + QLatin1Char(' '),
    };
    for (const QString &value : values) {
        QDomDocument doc(QStringLiteral("SerialStream"));
        QDomElement top = doc.createElement(QStringLiteral("FileStream"));
        top.setAttribute(QStringLiteral("streamname"), value);
        doc.appendChild(top);
        QDomElement item = doc.createElement(QStringLiteral("VALUE"));
        item.appendChild(doc.createTextNode(value));
        top.appendChild(item);
        const QString before = doc.toString();

        XMLSerialReaderWriter form;
        MemoryBuffer buffer;
        ASSERT_TRUE(form.serialise(doc, &buffer));
        EXPECT_EQ(doc.toString(), before) << "the caller's document is left as it was";
        QXmlStreamReader check(bytesOf(buffer));
        while (!check.atEnd())
            check.readNext();
        EXPECT_FALSE(check.hasError()) << qPrintable(check.errorString()) << " for " << value.toUtf8().toHex().constData();

        QDomDocument back;
        ASSERT_TRUE(form.deserialise(back, &buffer)) << qPrintable(form.errorString());
        EXPECT_EQ(back.documentElement().attribute(QStringLiteral("streamname")), value);
        const QDomNode text = back.documentElement().firstChildElement().firstChild();
        EXPECT_TRUE(text.isText()) << "for " << value.toUtf8().toHex().constData();
        EXPECT_EQ(text.nodeValue(), value);
    }
}

TEST(XMLSerialReaderWriter, StreamsFromOutsideAreReadWithinBounds)
{
    const QByteArray laughs = "<!DOCTYPE l [<!ENTITY a \"ha\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]><l>&b;</l>";
    QByteArray deep;
    for (int i = 0; i < 1000000; ++i)
        deep += "<a>";
    QByteArray attributes = "<a";
    for (int i = 0; i < 65; ++i)
        attributes += " a" + QByteArray::number(i) + "=\"\"";
    // Each empty attribute costs Qt's DOM some 400 bytes.
    QByteArray manyAttributes = "<r>";
    while (manyAttributes.size() < (1 << 20))
        manyAttributes += "<a b=\"\" c=\"\" d=\"\" e=\"\" f=\"\" g=\"\" h=\"\" i=\"\"/>";
    manyAttributes += "</r>";
    const struct { const char *what; QByteArray xml; const char *refusal; } cases[] = {
        {"entity declarations", laughs, "XML stream refused: a document type with declarations"},
        {"an external document type", "<!DOCTYPE s SYSTEM \"file:///etc/passwd\"><s/>",
         "XML stream refused: a document type with declarations"},
        {"nesting a million deep", deep, "XML stream refused: elements nested more than 512 deep"},
        {"65 attributes", attributes + "/>", "XML stream refused: an element with more than 64 attributes"},
        {"a small file of many attributes", manyAttributes, "XML stream refused: more nodes than a stream of"},
        {"not well formed", "<a><b></a>", "XML stream refused: Opening and ending tag mismatch."},
    };
    for (const auto &c : cases)
        EXPECT_TRUE(refusal(c.xml).startsWith(QLatin1String(c.refusal))) << c.what << ": " << refusal(c.xml).toStdString();
    EXPECT_EQ(refusal("<!DOCTYPE SerialStream>\n<FileStream/>"), QStringLiteral("(read)"))
        << "the document type the writer writes";
}
