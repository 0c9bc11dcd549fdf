#include "ooxml_reader.h"
#include "ooxmltesting.h"

#include <gtest/gtest.h>

// Broken and hostile packages: each is refused with a clear status and an
// issue naming what is wrong, or repaired where the damage is harmless.

using namespace ooxmltest;

namespace {

using Members = ZipMembers;

const QByteArray kTypes = "<?xml version=\"1.0\"?><Types xmlns=\"http://schemas.openxmlformats.org/package/2006/"
                          "content-types\"><Default Extension=\"rels\" ContentType=\"application/"
                          "vnd.openxmlformats-package.relationships+xml\"/><Default Extension=\"xml\" "
                          "ContentType=\"application/vnd.openxmlformats-officedocument.wordprocessingml.document."
                          "main+xml\"/><Default Extension=\"png\" ContentType=\"image/png\"/></Types>";

QByteArray relationships(const QByteArray &body)
{
    return "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">" + body
           + "</Relationships>";
}

QByteArray relationship(const char *id, const char *type, const QByteArray &target, const char *mode = nullptr)
{
    QByteArray xml = QByteArray("<Relationship Id=\"") + id + "\" Type=\"http://schemas.openxmlformats.org/"
                     "officeDocument/2006/relationships/" + type + "\" Target=\"" + target + "\"";
    if (mode != nullptr)
        xml += QByteArray(" TargetMode=\"") + mode + "\"";
    return xml + "/>";
}

const QString kDocumentRelationships = QStringLiteral("word/_rels/document.xml.rels");
const QByteArray kMainRelationship = relationships(relationship("rId1", "officeDocument", "word/document.xml"));

// A small sound package: the content types, the main relationship and the document.
Members sound(const Members &extra = {}, const QByteArray &types = kTypes, const QByteArray &main = kMainRelationship)
{
    return Members{{"[Content_Types].xml", types}, {"_rels/.rels", main}, {"word/document.xml", "<w:document/>"}}
           + extra;
}

const QByteArray kBillionLaughs = "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\">"
                                  "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
                                  "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">]>"
                                  + relationships("<Relationship Id=\"&c;\" Type=\"t\" Target=\"x\"/>");

struct Hostile
{
    const char *what;
    QByteArray package;
    VX2_RetStatus status;
    const char *issue; // the start of the issue recorded
};

Members manyParts()
{
    Members members = sound();
    for (int i = 0; i < 10001; ++i)
        members.append({QStringLiteral("word/p%1.xml").arg(i), QByteArray()});
    return members;
}

TEST(OoxmlHostile, BrokenPackagesAreRefusedWithAnIssue)
{
    const Hostile cases[] = {
        {"not a zip", "PK\3\4 but nothing more", VX2_Fatal, "Not a zip archive"},
        {"no content types", zipOf(sound().mid(1)), VX2_Fatal, "Missing content-type list"},
        {"content types twice", zipOf(sound({{"[Content_Types].xml", kTypes}})), VX2_Fatal,
         "Duplicated content type: [Content_Types].xml"},
        {"content types twice in other letter case", zipOf(sound({{"[content_types].XML", kTypes}})), VX2_Fatal,
         "Duplicated content type: a second [content_types].XML"},
        {"a default twice",
         zipOf(sound({}, QByteArray(kTypes).replace("</Types>",
                                                    "<Default Extension=\"XML\" ContentType=\"a/b\"/></Types>"))),
         VX2_Fatal, "Duplicated content type: Default for the extension XML"},
        {"content types not XML", zipOf(sound({}, "<Types")), VX2_Fatal, "Invalid content-type list"},
        {"entities in a relationship part", zipOf(sound({}, kTypes, kBillionLaughs)), VX2_Fatal,
         "Invalid relationship part: _rels/.rels: document type declaration"},
        {"target outside the package",
         zipOf(sound({{kDocumentRelationships, relationships(relationship("r1", "image", "../../etc/passwd"))}})),
         VX2_Fatal, "Relationship target outside the package: ../../etc/passwd"},
        {"internal target with a scheme",
         zipOf(sound({{kDocumentRelationships, relationships(relationship("r1", "image", "file:///etc/passwd"))}})),
         VX2_Fatal, "Relationship target outside the package: file:///etc/passwd"},
        {"'..' in a part name", zipOf(sound({{"word/../evil.xml", "x"}})), VX2_Fatal,
         "Invalid part name: word/../evil.xml: '..' in a part name"},
        {"part without content type",
         zipOf(sound({{"word/blob.dat", "x"},
                      {kDocumentRelationships, relationships(relationship("r1", "image", "blob.dat"))}})),
         VX2_Fatal, "Part without a content type: word/blob.dat"},
        {"a member twice", zipOf(sound({{"word/document.xml", "<w:document/>"}})), VX2_Fatal,
         "Duplicated part name: word/document.xml"},
        {"a member twice in other letter case", zipOf(sound({{"Word/Document.XML", "<w:document/>"}})), VX2_Fatal,
         "Duplicated part name: Word/Document.XML"},
        {"a part that is a folder too", zipOf(sound({{"word/document.xml/x.png", "x"}})), VX2_Fatal,
         "Invalid part name: word/document.xml is both a part and a folder"},
        {"thousands of parts", zipOf(manyParts()), VX2_Fatal, "Too many parts: 10004 members; the limit is 10000"},
        {"no main document", zipOf(sound({}, kTypes, relationships(""))), VX2_Fatal, "No main document"},
        {"main document of no Office kind",
         zipOf(sound({}, QByteArray(kTypes).replace("officedocument.wordprocessingml.document.main+xml", "xml"))),
         VX2_Fatal, "No main document"},
        {"relationships of a missing part",
         zipOf(sound({{"word/_rels/gone.xml.rels", relationships(relationship("r1", "image", "x.png"))}})), VX2_Fatal,
         "Relationships of a missing part: word/gone.xml"},
        {"relationship ids repeated",
         zipOf(sound({{"a.png", "x"}}, kTypes,
                     relationships(relationship("rId1", "officeDocument", "word/document.xml")
                                   + relationship("rId1", "thumbnail", "a.png")))),
         VX2_Fatal, "Invalid relationship: id 'rId1' of the package missing or repeated"},
    };
    for (const Hostile &c : cases) {
        SCOPED_TRACE(c.what);
        const Disarm run = disarm(c.package, policyXml(QString(), QString(), "sanitise"));
        EXPECT_EQ(run.status, c.status);
        EXPECT_TRUE(run.output.isEmpty());
        EXPECT_EQ(run.records.filter(QStringLiteral("issue 274 ") + QLatin1String(c.issue)).size(), 1)
            << run.records.join('\n').toStdString();
    }
}

TEST(OoxmlHostile, ReadingStaysWithinItsLimits)
{
    using namespace Ooxml;
    ReadLimits small;
    small.packageSize = 100000;
    small.members = 8;
    small.partSize = 1000;
    small.totalSize = 2500;
    small.xmlPartSize = 600;
    small.relationships = 3;
    const QByteArray threeRelationships = relationships(relationship("r1", "image", "a.png")
                                                        + relationship("r2", "image", "b.png")
                                                        + relationship("r3", "image", "c.png"));
    const struct
    {
        const char *what;
        QByteArray package;
        OoxmlFault fault;
        QString detail;
    } cases[] = {
        {"a part over its limit", zipOf(sound({{"word/a.png", QByteArray(1001, 'a')}})), faultPartTooLarge,
         "word/a.png (more than 1000 bytes)"},
        // Deflate makes 50 MB of zeros a few kilobytes; reading stops at the limit.
        {"a small member that inflates far", zipOf(sound({{"word/a.png", QByteArray(50 << 20, 0)}})), faultPartTooLarge,
         "word/a.png (more than 1000 bytes)"},
        {"parts over the total", zipOf(sound({{"a.png", QByteArray(900, 'a')}, {"b.png", QByteArray(900, 'b')},
                                              {"c.png", QByteArray(900, 'c')}})),
         faultTooLarge, "more than 2500 bytes of parts"},
        {"a package over its limit", QByteArray(100001, 'P'), faultTooLarge, "100001 bytes; the limit is 100000"},
        {"too many members", zipOf(sound({{"1", ""}, {"2", ""}, {"3", ""}, {"4", ""}, {"5", ""}, {"6", ""}})),
         faultTooManyParts, "9 members; the limit is 8"},
        {"too many relationships",
         zipOf(sound({{kDocumentRelationships, threeRelationships}})), faultBadRelationships,
         "word/_rels/document.xml.rels: more than 3 relationships"},
        {"an XML part over its limit", zipOf(sound({}, kTypes + QByteArray(300, ' '))), faultPartTooLarge,
         "[Content_Types].xml (more than 600 bytes)"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        MemoryBuffer input = bufferOf(c.package);
        OoxmlPackage root;
        ReadFault fault;
        EXPECT_FALSE(readPackage(input, root, fault, small));
        EXPECT_EQ(fault.fault, c.fault);
        EXPECT_EQ(fault.detail, c.detail);
    }
}

TEST(OoxmlHostile, HarmlessDamageIsLeftOutAndReported)
{
    const Members members = sound({{"word/_rels/document.xml.rels",
                                    relationships(relationship("r1", "styles", "missing.xml")
                                                  + relationship("r2", "image", "media/a%20b.png"))},
                                   {"word/media/a b.png", "png"},
                                   {"stray.xml", "nobody refers to me"}});
    const Disarm run = disarm(zipOf(members), policyXml("embedded_images", "allow", "sanitise"));
    EXPECT_EQ(run.status, VX2_Success);
    const Package out = inspect(run.output);
    EXPECT_EQ(out.problems(), QStringList());
    EXPECT_EQ(out.parts(), QStringList({"word/document.xml", "word/media/a b.png"}));
    EXPECT_EQ(run.records.filter("issue 274 Relationship target missing: missing.xml (r1 of word/document.xml)").size(),
              1);
    EXPECT_EQ(run.records.filter("issue 274 Part not referenced: stray.xml").size(), 1);
    EXPECT_EQ(out.overrides.value("word/media/a b.png"), QString()); // covered by its default
    EXPECT_TRUE(out.bytes.value("word/_rels/document.xml.rels").contains("Target=\"media/a%20b.png\""));
}

} // namespace
