#include "ooxmltesting.h"

#include <gtest/gtest.h>

// The camera over real packages written by independent tools
// (tests/fixtures/ooxml/make.sh), switch by switch and setting by setting.

using namespace ooxmltest;

namespace {

struct SwitchCase
{
    const char *fixture;
    const char *name;        // the switch
    QStringList removed;     // the parts sanitising removes
    int externalRemoved = 0; // the external relationships it removes
    QStringList emptied = {}; // the parts it empties
};

const char *const kMacroFree = "application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml";

// What each fixture holds, as the tools that made it wrote it.
const SwitchCase kCases[] = {
    {"lo-writer.docx", "external_hyperlinks", {}, 1},
    {"lo-writer.docx", "metadata", {"docProps/core.xml", "docProps/app.xml"}},
    {"lo-writer.docx", "review_comments", {}, 0, {"word/comments.xml"}},
    {"lo-writer.docx", "embedded_images", {"word/media/image1.png"}},
    {"lo-writer.docx", "macros", {}},
    {"pydocx.docx", "embedded_images", {"word/media/image1.png", "docProps/thumbnail.jpeg"}},
    {"pydocx.docx", "external_hyperlinks", {}, 1},
    {"macros.docm", "macros", {"word/vbaProject.bin"}},
    {"macros.docm", "embedded_files", {"word/embeddings/oleObject1.bin"}},
    {"macros.docm", "external_hyperlinks", {}, 2},
    {"lo-calc.xlsx", "review_comments", {"xl/comments1.xml"}},
    {"lo-calc.xlsx", "external_hyperlinks", {}, 1},
    {"openpyxl.xlsx", "review_comments", {"xl/comments/comment1.xml"}},
    {"openpyxl.xlsx", "metadata", {"docProps/core.xml", "docProps/app.xml"}},
    {"lo-impress.pptx", "embedded_images", {"ppt/media/image1.png"}},
    {"lo-impress.pptx", "embedded_files", {}},
};

QByteArray fixture(const char *name)
{
    return readFixture(QStringLiteral("ooxml/") + QLatin1String(name));
}

// Records of one kind whose description mentions `text`.
int countRecords(const QStringList &records, const char *kind, const QString &text)
{
    int n = 0;
    for (const QString &r : records)
        n += r.startsWith(QLatin1String(kind)) && r.contains(text);
    return n;
}

// Every part the output keeps is the input's, byte for byte; Word's
// comments hold no comment once emptied.
void expectKeptIdentical(const Package &in, const Package &out)
{
    for (const QString &part : out.parts()) {
        if (out.contentType(part).endsWith(QLatin1String("wordprocessingml.comments+xml"))
            && out.bytes.value(part) != in.bytes.value(part)) {
            EXPECT_FALSE(out.bytes.value(part).contains("<w:comment ")) << part.toStdString();
            continue;
        }
        ASSERT_TRUE(in.bytes.contains(part)) << part.toStdString();
        EXPECT_EQ(out.bytes.value(part), in.bytes.value(part)) << part.toStdString();
    }
}

TEST(OoxmlCamera, EachSwitchAllowsSanitisesAndDisallowsWhatItGoverns)
{
    for (const SwitchCase &c : kCases) {
        SCOPED_TRACE(std::string(c.fixture) + " " + c.name);
        const QByteArray bytes = fixture(c.fixture);
        ASSERT_FALSE(bytes.isEmpty());
        const Package in = inspect(bytes);
        const bool found = !c.removed.isEmpty() || c.externalRemoved > 0 || !c.emptied.isEmpty();

        const Disarm allowed = disarm(bytes, policyXml(c.name, "allow"));
        EXPECT_EQ(allowed.status, VX2_Success);
        const Package kept = inspect(allowed.output);
        EXPECT_EQ(kept.parts().size(), in.parts().size());
        EXPECT_EQ(kept.externalCount(), in.externalCount());
        expectKeptIdentical(in, kept);

        const Disarm sanitised = disarm(bytes, policyXml(c.name, "sanitise"));
        EXPECT_EQ(sanitised.status, found ? VX2_SuccessWithInfo : VX2_Success);
        const Package out = inspect(sanitised.output);
        EXPECT_EQ(out.problems(), QStringList());
        EXPECT_EQ(out.parts().size(), in.parts().size() - c.removed.size());
        EXPECT_EQ(out.externalCount(), in.externalCount() - c.externalRemoved);
        expectKeptIdentical(in, out);
        for (const QString &part : c.emptied) {
            EXPECT_NE(out.bytes.value(part), in.bytes.value(part)) << part.toStdString();
            EXPECT_EQ(countRecords(sanitised.records, "sanitise", part), 1) << part.toStdString();
        }
        for (const QString &part : c.removed) {
            EXPECT_FALSE(out.bytes.contains(part)) << part.toStdString();
            EXPECT_EQ(countRecords(sanitised.records, "sanitise", part), 1) << part.toStdString();
            EXPECT_TRUE(sanitised.report.contains(part.toUtf8())) << part.toStdString();
            EXPECT_EQ(countRecords(allowed.records, "content", part), 1) << part.toStdString();
        }

        const Disarm refused = disarm(bytes, policyXml(c.name, "disallow"));
        EXPECT_EQ(refused.status, found ? VX2_Fail : VX2_Success);
        EXPECT_EQ(refused.output.isEmpty(), found);
        for (const QString &part : c.removed)
            EXPECT_EQ(countRecords(refused.records, "issue", part), 1) << part.toStdString();
    }
}

TEST(OoxmlCamera, SanitisedMacrosMakeTheMacroFreeKind)
{
    const QByteArray bytes = fixture("macros.docm");
    const Disarm run = disarm(bytes, policyXml("macros", "sanitise"));
    ASSERT_EQ(run.status, VX2_SuccessWithInfo);
    const Package out = inspect(run.output);
    EXPECT_EQ(out.contentType("word/document.xml"), QLatin1String(kMacroFree));
    EXPECT_FALSE(out.hasRelationshipType("vbaProject"));
    EXPECT_FALSE(out.bytes.value("[Content_Types].xml").contains("vbaProject"));
    EXPECT_FALSE(out.bytes.value("[Content_Types].xml").contains("macroEnabled"));
    EXPECT_EQ(countRecords(run.records, "sanitise 275", "word/document.xml (macro-enabled document type)"), 1);
    // Allowed, the package stays macro-enabled.
    const Package kept = inspect(disarm(bytes, policyXml("macros", "allow")).output);
    EXPECT_TRUE(kept.contentType("word/document.xml").contains("macroEnabled"));
    EXPECT_TRUE(kept.hasRelationshipType("vbaProject"));
}

TEST(OoxmlCamera, EverySwitchSanitisedLeavesNoRiskyContent)
{
    // Word's comments part stays, emptied (expectKeptIdentical checks it).
    const QStringList risky = {"vbaProject", "oleObject", "spreadsheetml.comments", "core-properties",
                               "extended-properties", "image/", "macroEnabled"};
    for (const char *name : {"lo-writer.docx", "pydocx.docx", "macros.docm", "lo-calc.xlsx", "openpyxl.xlsx",
                             "lo-impress.pptx"}) {
        SCOPED_TRACE(name);
        const QByteArray bytes = fixture(name);
        const Disarm run = disarm(bytes, policyXml(QString(), QString(), "sanitise"));
        EXPECT_EQ(run.status, VX2_SuccessWithInfo);
        const Package out = inspect(run.output);
        EXPECT_EQ(out.problems(), QStringList());
        EXPECT_EQ(out.externalCount(), 0);
        expectKeptIdentical(inspect(bytes), out);
        const QByteArray types = out.bytes.value("[Content_Types].xml");
        for (const QString &word : risky)
            EXPECT_FALSE(types.contains(word.toUtf8())) << word.toStdString();
        for (const Package::Relationship &r : out.relationships)
            for (const QString &word : risky)
                EXPECT_FALSE(r.type.endsWith('/' + word)) << r.type.toStdString();
    }
}

TEST(OoxmlCamera, PolicyProfileOfTheFamilyApplies)
{
    // Comments disallowed for spreadsheets only: the document passes, the
    // workbook is refused.
    const QByteArray policy = "<config><xlsConfig><review_comments>disallow</review_comments></xlsConfig>"
                              "<wordConfig><review_comments>allow</review_comments></wordConfig></config>";
    EXPECT_EQ(disarm(fixture("lo-writer.docx"), policy).status, VX2_SuccessWithInfo); // the rest sanitised
    const Disarm workbook = disarm(fixture("lo-calc.xlsx"), policy);
    EXPECT_EQ(workbook.status, VX2_Fail);
    EXPECT_EQ(countRecords(workbook.records, "issue 285", "Review comments present in xl/comments1.xml"), 1);
}

TEST(OoxmlCamera, UnknownSettingFailsTheRun)
{
    const Disarm run = disarm(fixture("lo-writer.docx"), policyXml("metadata", "Allow"));
    EXPECT_EQ(run.status, VX2_Fail);
    EXPECT_TRUE(run.output.isEmpty());
    EXPECT_EQ(countRecords(run.records, "issue", "Unknown eVxCmSwitchSetting"), 1)
        << run.records.join('\n').toStdString();
}

} // namespace
