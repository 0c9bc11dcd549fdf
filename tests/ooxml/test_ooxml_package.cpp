#include "ooxml_package.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

// Part names, relationship parts and targets: the rules the camera's
// validation stands on.

namespace {

using namespace Ooxml;

TEST(OoxmlPackageNames, PartNamesAreRefusedForTheirFirstFault)
{
    const struct
    {
        QString name;
        const char *fault; // empty: a valid part name
    } cases[] = {
        {"word/document.xml", ""},
        {"customXml/item1.xml", ""},
        {"a b/ü.png", ""},
        {"", "empty part name"},
        {"/word/document.xml", "absolute member name"},
        {"word\\document.xml", "backslash in a part name"},
        {"word//document.xml", "empty segment in a part name"},
        {"word/../x.xml", "'..' in a part name"},
        {"./x.xml", "'.' in a part name"},
        {"word/x.", "part name segment ending in a dot"},
        {QStringLiteral("a\x01.xml"), "control character in a part name"},
        {QString(1100, 'a'), "part name longer than 1024 characters"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(partNameFault(c.name), QLatin1String(c.fault)) << c.name.left(40).toStdString();
}

TEST(OoxmlPackageNames, RelationshipPartsNameTheirSource)
{
    const struct
    {
        QString member;
        bool isRelationships;
        QString source;
    } cases[] = {
        {"_rels/.rels", true, ""},
        {"word/_rels/document.xml.rels", true, "word/document.xml"},
        {"WORD/_RELS/Document.xml.RELS", true, "WORD/Document.xml"},
        {"word/document.xml", false, ""},
        {"word/_rels/sub/x.rels", false, ""},
    };
    for (const auto &c : cases) {
        QString source;
        EXPECT_EQ(isRelationshipsPart(c.member, &source), c.isRelationships) << c.member.toStdString();
        EXPECT_EQ(source, c.source) << c.member.toStdString();
        if (c.isRelationships && !c.source.isEmpty()) {
            EXPECT_EQ(relationshipsPartName(c.source).compare(c.member, Qt::CaseInsensitive), 0)
                << c.member.toStdString();
        }
    }
    EXPECT_EQ(relationshipsPartName(QString()), QLatin1String("_rels/.rels"));
}

TEST(OoxmlPackageNames, TargetsResolveWithinThePackage)
{
    using R = ResolvedTarget;
    const struct
    {
        QString source, target;
        R::Outcome outcome;
        QString name;
    } cases[] = {
        {"word/document.xml", "media/image1.png", R::Part, "word/media/image1.png"},
        {"word/charts/chart1.xml", "../embeddings/book.xlsx", R::Part, "word/embeddings/book.xlsx"},
        {"word/document.xml", "/customXml/item1.xml", R::Part, "customXml/item1.xml"},
        {"", "word/document.xml", R::Part, "word/document.xml"},
        {"word/document.xml", "./media/a%20b.png#frag", R::Part, "word/media/a b.png"},
        {"word/document.xml", "../../etc/passwd", R::Outside, ""},
        {"", "../x.xml", R::Outside, ""},
        {"word/document.xml", "file:///etc/passwd", R::Outside, ""},
        {"word/document.xml", "//server/share/x", R::Outside, ""},
        {"word/document.xml", "#bookmark", R::Invalid, ""},
        {"word/document.xml", "a%5Cb", R::Invalid, ""},
        {"word/document.xml", "..", R::Invalid, ""},
    };
    for (const auto &c : cases) {
        const ResolvedTarget resolved = resolveTarget(c.source, c.target);
        EXPECT_EQ(resolved.outcome, c.outcome) << c.target.toStdString();
        EXPECT_EQ(resolved.name, c.name) << c.target.toStdString();
    }
}

TEST(OoxmlPackageNames, PartsAreKnownByContentTypeRelationshipAndFolder)
{
    const struct
    {
        QString type, name;
        QStringList incoming;
        ContentKind kind;
    } cases[] = {
        {"application/vnd.ms-office.vbaProject", "word/vbaProject.bin", {}, kindMacros},
        {"application/octet-stream", "xl/x.bin", {"vbaProject"}, kindMacros},
        {"application/vnd.ms-excel.macrosheet+xml", "xl/macrosheets/sheet1.xml", {}, kindMacros},
        {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "ppt/embeddings/b.xlsx", {"package"},
         kindEmbeddedFiles},
        {"application/octet-stream", "word/embeddings/x.bin", {}, kindEmbeddedFiles},
        {"application/vnd.openxmlformats-package.core-properties+xml", "docProps/core.xml", {}, kindMetadata},
        {"application/vnd.ms-excel.threadedcomments+xml", "xl/threadedComments/t1.xml", {}, kindReviewComments},
        {"image/x-emf", "word/media/image2.emf", {"image"}, kindImages},
        {"image/png", "word/embeddings/preview.png", {"image"}, kindEmbeddedFiles},
        {"application/vnd.openxmlformats-officedocument.wordprocessingml.styles+xml", "word/styles.xml", {}, kindNone},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kindOfPart(c.type, c.name, c.incoming), c.kind) << c.name.toStdString();
}

} // namespace
