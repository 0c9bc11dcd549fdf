#include "policy/ContentManagement.h"

#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

const unsigned int kFailed = static_cast<unsigned int>(-1);

struct LoadedPolicy
{
    explicit LoadedPolicy(const QByteArray &xml) : buffer(bufferOf(xml)), result(policy.loadRepositoryFromXML(&buffer)) {}
    MemoryBuffer buffer;
    ContentManagement policy;
    unsigned int result;
};

QByteArray document(const QByteArray &body) { return "<?xml version=\"1.0\"?>\n<config>" + body + "</config>\n"; }

QSettings::SettingsMap readBack(QByteArray bytes, bool &ok)
{
    QBuffer device(&bytes);
    QSettings::SettingsMap map;
    ok = device.open(QIODevice::ReadOnly) && ContentManagement::readSettingsXml(device, map);
    return map;
}

QByteArray written(const QSettings::SettingsMap &map)
{
    QByteArray bytes;
    QBuffer device(&bytes);
    EXPECT_TRUE(device.open(QIODevice::WriteOnly) && ContentManagement::writeSettingsXml(device, map));
    return bytes;
}

} // namespace

// What a document yields as keys and as the word profile's macros switch.
TEST(ContentManagement, DocumentsGiveKeysAndSettingsHostileOnesNone)
{
    const QByteArray deep = QByteArray("<a>").repeated(100000) + "x" + QByteArray("</a>").repeated(100000);
    const QByteArray huge(1 << 20, 'v');
    const auto macros = [](const QByteArray &value) { return "<wordConfig><macros>" + value + "</macros></wordConfig>"; };
    const QStringList wordMacros{QStringLiteral("wordConfig/macros")};
    const struct { const char *label; QByteArray xml; bool ok; QStringList keys; eVxContentManagementSetting setting; } cases[] = {
        {"allow", document(macros("allow")), true, wordMacros, cmsAllow},
        {"disallow", document(macros("disallow")), true, wordMacros, cmsDisallow},
        {"sanitise", document(macros("sanitise")), true, wordMacros, cmsSanitise},
        {"other switch", document("<wordConfig><metadata>allow</metadata></wordConfig>"), true,
         {QStringLiteral("wordConfig/metadata")}, cmsSanitise},
        {"other profile", document("<pdfConfig><macros>allow</macros></pdfConfig>"), true,
         {QStringLiteral("pdfConfig/macros")}, cmsSanitise},
        {"capitalised setting", document(macros("Allow")), true, wordMacros, cmsUnknown},
        {"other spelling", document(macros("sanitize")), true, wordMacros, cmsUnknown},
        {"huge value", document(macros(huge)), true, wordMacros, cmsUnknown},
        {"text in the root", "<config>stray" + macros("allow") + "</config>", true, wordMacros, cmsAllow},
        {"second root", "<config><a>1</a></config>" + document(macros("allow")), true, {QStringLiteral("a")}, cmsSanitise},
        {"wrong root", "<settings>" + macros("allow") + "</settings>", false, {}, cmsSanitise},
        {"unclosed root", "<config>" + macros("allow"), false, {}, cmsSanitise},
        {"mismatched tags", "<config><a>1</b></config>", false, {}, cmsSanitise},
        {"nothing", "", false, {}, cmsSanitise},
        {"comment only", "<?xml version=\"1.0\"?><!-- only a comment -->", false, {}, cmsSanitise},
        {"deep nesting", document(deep), false, {}, cmsSanitise},
    };
    for (const auto &c : cases) {
        bool ok = !c.ok;
        EXPECT_EQ(QStringList(readBack(c.xml, ok).keys()), c.keys) << c.label;
        EXPECT_EQ(ok, c.ok) << c.label;
        LoadedPolicy p(c.xml);
        EXPECT_EQ(p.result, c.ok ? 0u : kFailed) << c.label;
        EXPECT_EQ(getManageType_macros(cfgWordConfig, p.policy), c.setting) << c.label;
    }
}

TEST(ContentManagement, LookupsAndDefaults)
{
    EXPECT_EQ(ContentManagement::getProfileEnum(QStringLiteral("tiffConfig")), cfgTiffConfig);
    EXPECT_EQ(ContentManagement::getProfileEnum(QStringLiteral("foo")), cfgUnknown);
    EXPECT_EQ(ContentManagement::getProfileName(cfgXlsConfig), QStringLiteral("xlsConfig"));
    EXPECT_EQ(ContentManagement::getProfileName(static_cast<eVxConfigType>(9)), QString());
    QString format = QStringLiteral("keep");
    EXPECT_FALSE(ContentManagement::isPA_ImageExportImport(ft_rtf, format) || format != QLatin1String("keep"));
    EXPECT_TRUE(ContentManagement::isPA_ImageExportImport(ft_mpeg, format) && format == QLatin1String("mpg"));

    LoadedPolicy p(document("<pdfConfig><javascript>allow</javascript></pdfConfig>"));
    EXPECT_EQ(getManageType_javascript(cfgPdfConfig, p.policy), cmsAllow);
    EXPECT_EQ(getManageType_javascript(static_cast<eVxConfigType>(9), p.policy), cmsSanitise)
        << "a profile without a name reads every switch as sanitise";
    ContentManagement none;
    EXPECT_EQ(getManageType_embedded_files(cfgSystem, none), cmsSanitise) << "no policy at all";
    SerializationFormat type = sfXML;
    bool pretty = true;
    EXPECT_FALSE(none.getSerializationFormat(type, pretty));
    MemoryBuffer out;
    EXPECT_EQ(none.exportRepositoryAsXML(&out), kFailed);
}

TEST(ContentManagement, InterchangeFormat)
{
    const auto sys = [](const char *body) { return document(QByteArray("<sysConfig>") + body + "</sysConfig>"); };
    const struct { QByteArray xml; SerializationFormat format; bool pretty; } cases[] = {
        {document(""), sfSISL, false},
        {sys("<interchange_type>xml</interchange_type>"), sfXML, false},
        {sys("<interchange_type>XML</interchange_type>"), sfXML, false}, // not a name: left as it was
        {sys("<interchange_type>sisl</interchange_type><interchange_pretty>true</interchange_pretty>"), sfSISL, true},
    };
    for (const auto &c : cases) {
        LoadedPolicy p(c.xml);
        SerializationFormat format = sfXML;
        bool pretty = !c.pretty;
        ASSERT_TRUE(p.policy.getSerializationFormat(format, pretty)) << c.xml.constData();
        EXPECT_EQ(std::make_pair(format, pretty), std::make_pair(c.format, c.pretty)) << c.xml.constData();
    }
}

TEST(ContentManagement, WriterReversesSiblingsAndReadsBack)
{
    const QSettings::SettingsMap map{
        {"pdfConfig/acroform", "sanitise"}, {"pdfConfig/macros", "allow"}, {"wordConfig/macros", "disallow"}};
    const QByteArray bytes = written(map);
    EXPECT_EQ(bytes, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                     "<config>\n"
                     "\t<wordConfig>\n"
                     "\t\t<macros>disallow</macros>\n"
                     "\t</wordConfig>\n"
                     "\t<pdfConfig>\n"
                     "\t\t<macros>allow</macros>\n"
                     "\t\t<acroform>sanitise</acroform>\n"
                     "\t</pdfConfig>\n"
                     "</config>\n");
    bool ok = false;
    EXPECT_EQ(readBack(bytes, ok), map);
    EXPECT_TRUE(ok);

    // Groups are matched ignoring case; the first spelling names the element.
    const QByteArray mixed = written({{"Sys/a", "1"}, {"sys/b", "2"}});
    EXPECT_EQ(mixed.count("<Sys>"), 1) << mixed.constData();
    EXPECT_EQ(mixed.count("<sys>"), 0) << mixed.constData();
}

TEST(ContentManagement, FileAndMemoryPolicies)
{
    QTemporaryDir dir;
    ContentManagement policy;
    EXPECT_EQ(policy.connectRepositoryToXMLFile(QString()), kFailed);
    EXPECT_EQ(policy.connectRepositoryToXMLFile(dir.filePath(QStringLiteral("absent.xml"))), kFailed);
    const QByteArray xlsMacros = document("<xlsConfig><macros>disallow</macros></xlsConfig>");
    QFile file(dir.filePath(QStringLiteral("policy.xml")));
    FileIO::writeToFile(file, reinterpret_cast<const unsigned char *>(xlsMacros.constData()), size_t(xlsMacros.size()));
    ASSERT_EQ(policy.connectRepositoryToXMLFile(file.fileName()), 0u);
    EXPECT_EQ(getManageType_macros(cfgXlsConfig, policy), cmsDisallow);
    EXPECT_EQ(policy.policyText(), QString::fromUtf8(xlsMacros));

    // Policies loaded from memory each have a store of their own.
    LoadedPolicy first(xlsMacros), second(document("<pdfConfig><macros>allow</macros></pdfConfig>"));
    EXPECT_EQ(first.policy.toStringList(), QStringList{QStringLiteral("xlsConfig/macros")});
    EXPECT_EQ(second.policy.toStringList(), QStringList{QStringLiteral("pdfConfig/macros")});
    EXPECT_EQ(first.policy.policyText(), QString::fromUtf8(xlsMacros));
}

TEST(ContentManagement, ExportWritesCodePointsInTheBuffersOrderThenZero)
{
    LoadedPolicy p("<config>\xc3\xa9</config>"); // one non-ASCII character
    MemoryBuffer out(3);
    out.byteOrder(MBBigEndian);
    ASSERT_EQ(p.policy.exportRepositoryAsXML(&out), 0u);
    const QString text = p.policy.policyText();
    ASSERT_EQ(out.sizeOfMB(), size_t(text.size() + 1) * 4);
    out.seek(0);
    for (const QChar c : text)
        EXPECT_EQ(out.getUInt32BE(), c.unicode());
    EXPECT_EQ(out.getUInt32(), 0u);
}
