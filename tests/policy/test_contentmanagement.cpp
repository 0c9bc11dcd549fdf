#include "policy/ContentManagement.h"

#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"
#include "fixtures/fixtures.h"
#include "qtprinters.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QVector>
#include <gtest/gtest.h>

#include <sys/inotify.h>
#include <unistd.h>

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

QByteArray utf16WithByteOrderMark(const QByteArray &utf8)
{
    const QString text = QString::fromUtf8(utf8);
    return QByteArray("\xff\xfe", 2) + QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
}

// Attributes a0="v" a1="v" ... on the root element.
QByteArray rootWithAttributes(int count)
{
    QByteArray xml = "<config";
    for (int i = 0; i < count; ++i)
        xml += " a" + QByteArray::number(i) + "=\"v\"";
    return xml + "><wordConfig><macros>allow</macros></wordConfig></config>";
}

} // namespace

// What a document yields as keys and as the word profile's macros switch.
// Hostile documents are refused quickly and without blowing up: entities
// (which could expand a small file to gigabytes), and attributes by the
// hundred thousand (which the XML reader compares pairwise).
TEST(ContentManagement, DocumentsGiveKeysAndSettingsHostileOnesNone)
{
    const QByteArray deep = QByteArray("<a>").repeated(100000) + "x" + QByteArray("</a>").repeated(100000);
    const QByteArray huge(1 << 20, 'v');
    const auto macros = [](const QByteArray &value) { return "<wordConfig><macros>" + value + "</macros></wordConfig>"; };
    const QByteArray entityBomb = "<!DOCTYPE config [<!ENTITY a \"" + QByteArray(4000, 'A') + "\">]><config>"
        + macros(QByteArray("&a;").repeated(100000)) + "</config>";
    const int bound = ContentManagement::maxEqualSigns;
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
        {"internal entity", "<!DOCTYPE config [<!ENTITY a \"allow\">]><config>" + macros("&a;") + "</config>", false,
         {}, cmsSanitise},
        {"document type alone", "<!DOCTYPE config><config>" + macros("allow") + "</config>", false, {}, cmsSanitise},
        {"entity bomb", entityBomb, false, {}, cmsSanitise},
        {"200 000 attributes", rootWithAttributes(200000), false, {}, cmsSanitise},
        {"attributes up to the bound", "<?xml version='1.0'?>" + rootWithAttributes(bound - 1), true, wordMacros,
         cmsAllow},
        {"one attribute over the bound", "<?xml version='1.0'?>" + rootWithAttributes(bound), false, {}, cmsSanitise},
        {"UTF-16", utf16WithByteOrderMark(document(macros("allow"))), true, wordMacros, cmsAllow},
        {"declared ISO-8859-1",
         "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?><config>" + macros("allow") + "</config>", true, wordMacros,
         cmsAllow},
        // Attributes in UTF-7 carry no "=" byte ("+AD0-"), so the bound could not see them.
        {"declared UTF-7", "<?xml version=\"1.0\" encoding=\"UTF-7\"?><config>" + macros("allow") + "</config>", false,
         {}, cmsSanitise},
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

    // Fifty thousand siblings are grouped without comparing each with all the others.
    QSettings::SettingsMap many;
    for (int i = 0; i < 50000; ++i)
        many.insert(QStringLiteral("group/k%1").arg(i), QStringLiteral("allow"));
    EXPECT_EQ(readBack(written(many), ok), many);

    // Keys deeper than a policy can be read back are refused.
    QByteArray deep;
    QBuffer device(&deep);
    ASSERT_TRUE(device.open(QIODevice::WriteOnly));
    const QString deepKey = QStringLiteral("a/").repeated(64) + QStringLiteral("a");
    EXPECT_FALSE(ContentManagement::writeSettingsXml(device, QSettings::SettingsMap{{deepKey, QStringLiteral("x")}}));
}

// Both stores look keys up as settings do: either separator, empty parts ignored.
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

    for (ContentManagement *loaded : {&policy, &first.policy})
        for (const char *key : {"xlsConfig/macros", "xlsConfig\\macros", "/xlsConfig//macros/"})
            EXPECT_EQ(loaded->valueOf(QString::fromLatin1(key)), QStringLiteral("disallow")) << key;
    LoadedPolicy twice(document("<xlsConfig><macros>allow</macros></xlsConfig><xlsConfig><macros>disallow</macros>"
                                "</xlsConfig>"));
    EXPECT_EQ(twice.policy.toStringList(), QStringList{QStringLiteral("xlsConfig/macros")});
    EXPECT_EQ(getManageType_macros(cfgXlsConfig, twice.policy), cmsDisallow) << "the later value counts";
}

// A policy loaded from memory creates, opens and writes no file: nothing
// appears in the temporary folder (where a settings store would put its
// file), not even for a moment.
TEST(ContentManagement, MemoryPolicyTouchesNoFile)
{
    const QTemporaryDir tmp;
    const QByteArray oldTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", tmp.path().toLocal8Bit());
    const int watch = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(watch, 0);
    ASSERT_GE(inotify_add_watch(watch, QFile::encodeName(tmp.path()).constData(), IN_ALL_EVENTS), 0);
    {
        LoadedPolicy p(document("<wordConfig><macros>allow</macros></wordConfig>"));
        EXPECT_EQ(getManageType_macros(cfgWordConfig, p.policy), cmsAllow);
    }
    char events[4096];
    EXPECT_LE(read(watch, events, sizeof events), 0) << "something happened in the temporary folder";
    close(watch);
    qputenv("TMPDIR", oldTmp);
}

// Memory while a large policy is read and kept stays a small multiple of its
// size (the peak resident size, reset before the load).
TEST(ContentManagement, LargePolicyMemoryInProportion)
{
    QByteArray xml = "<config>";
    int keys = 0;
    while (xml.size() < (4 << 20)) {
        const QByteArray key = "k" + QByteArray::number(keys++);
        xml += "<" + key + ">allow</" + key + ">";
    }
    xml += "</config>";
    MemoryBuffer buffer = bufferOf(xml);
    QFile clearRefs(QStringLiteral("/proc/self/clear_refs"));
    if (!clearRefs.open(QIODevice::WriteOnly) || clearRefs.write("5") != 1)
        GTEST_SKIP() << "the peak resident size cannot be reset here";
    clearRefs.close();
    const qint64 before = statusKiB("VmRSS:");
    ContentManagement policy;
    ASSERT_EQ(policy.loadRepositoryFromXML(&buffer), 0u);
    const double factor = double(statusKiB("VmHWM:") - before) * 1024 / xml.size();
    EXPECT_EQ(policy.toStringList().size(), keys);
    EXPECT_EQ(policy.valueOf(QStringLiteral("k12345")), QStringLiteral("allow"));
    // The policy text alone is twice the document (UTF-16). Under the address
    // sanitizer the figure counts nearly everything ever allocated while reading.
    EXPECT_LT(factor, kSanitized ? 40.0 : 8.0);
}

TEST(ContentManagement, ExportWritesCodePointsInTheBuffersOrderThenZero)
{
    // One character of two UTF-8 bytes, one beyond 16 bits (a surrogate pair
    // in the text), and enough text to need more than one block of them.
    LoadedPolicy p("<config>\xc3\xa9\xf0\x9f\x98\x80" + QByteArray(3000, 'x') + "</config>");
    MemoryBuffer out(3);
    out.byteOrder(MBBigEndian);
    ASSERT_EQ(p.policy.exportRepositoryAsXML(&out), 0u);
    const QVector<uint> codePoints = p.policy.policyText().toUcs4();
    ASSERT_EQ(codePoints.value(9), 0x1F600u);
    ASSERT_EQ(out.sizeOfMB(), size_t(codePoints.size() + 1) * 4);
    out.seek(0);
    for (const uint c : codePoints)
        ASSERT_EQ(out.getUInt32BE(), c);
    EXPECT_EQ(out.getUInt32(), 0u);
}
