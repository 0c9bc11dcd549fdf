#include "policy/ContentManagement.h"

#include "buffers/MemoryBuffer.h"
#include "qtprinters.h"

#include <QBuffer>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

MemoryBuffer bufferOf(const QByteArray &text)
{
    MemoryBuffer buffer;
    buffer.putRawBytes(text.constData(), size_t(text.size()));
    buffer.seek(0, MBSeekStart);
    return buffer;
}

// A policy loaded from the given document text.
struct LoadedPolicy
{
    explicit LoadedPolicy(const QByteArray &xml) : buffer(bufferOf(xml))
    {
        result = policy.loadRepositoryFromXML(&buffer);
    }
    MemoryBuffer buffer;
    ContentManagement policy;
    unsigned int result = 0;
};

QByteArray policyDocument(const QByteArray &body)
{
    return "<?xml version=\"1.0\"?>\n<config>" + body + "</config>\n";
}

QByteArray written(const QSettings::SettingsMap &map)
{
    QByteArray bytes;
    QBuffer device(&bytes);
    device.open(QIODevice::WriteOnly);
    EXPECT_TRUE(ContentManagement::writeSettingsXml(device, map));
    return bytes;
}

QSettings::SettingsMap readBack(const QByteArray &bytes, bool *ok = nullptr)
{
    QBuffer device;
    device.setData(bytes);
    device.open(QIODevice::ReadOnly);
    QSettings::SettingsMap map;
    const bool result = ContentManagement::readSettingsXml(device, map);
    if (ok != nullptr)
        *ok = result;
    return map;
}

} // namespace

TEST(ContentManagementSettings, SwitchesReadTheirProfile)
{
    LoadedPolicy p(policyDocument("<wordConfig><macros>allow</macros></wordConfig>"));
    ASSERT_EQ(p.result, 0u);
    EXPECT_EQ(p.policy.toStringList(), QStringList{QStringLiteral("wordConfig/macros")});
    EXPECT_EQ(getManageType_macros(cfgWordConfig, p.policy), cmsAllow);
    EXPECT_EQ(getManageType_metadata(cfgWordConfig, p.policy), cmsSanitise) << "missing switch";
    EXPECT_EQ(getManageType_macros(cfgPdfConfig, p.policy), cmsSanitise) << "other profile";
    EXPECT_EQ(getManageType_macros(static_cast<eVxConfigType>(9), p.policy), cmsSanitise)
        << "a profile without a name reads every switch as sanitise";
}

TEST(ContentManagementSettings, SettingTextsAreExact)
{
    const struct
    {
        const char *text;
        eVxContentManagementSetting expected;
    } cases[] = {{"disallow", cmsDisallow}, {"sanitise", cmsSanitise}, {"allow", cmsAllow},
                 {"Allow", cmsUnknown},     {"sanitize", cmsUnknown},  {" allow", cmsUnknown}};
    for (const auto &c : cases) {
        LoadedPolicy p(policyDocument("<pdfConfig><javascript>" + QByteArray(c.text) +
                                      "</javascript></pdfConfig>"));
        EXPECT_EQ(getManageType_javascript(cfgPdfConfig, p.policy), c.expected) << c.text;
    }
}

TEST(ContentManagementSettings, WithoutAStoreEverythingSanitises)
{
    ContentManagement policy;
    EXPECT_EQ(getManageType_embedded_files(cfgSystem, policy), cmsSanitise);
    SerializationFormat format = sfXML;
    bool pretty = true;
    EXPECT_FALSE(policy.getSerializationFormat(format, pretty));
    EXPECT_TRUE(policy.toStringList().isEmpty());
    MemoryBuffer out;
    EXPECT_EQ(policy.exportRepositoryAsXML(&out), static_cast<unsigned int>(-1));
}

TEST(ContentManagementSettings, InterchangeFormat)
{
    const struct
    {
        const char *body;
        SerializationFormat expected;
        bool pretty;
    } cases[] = {
        {"", sfSISL, false},
        {"<sysConfig><interchange_type>xml</interchange_type></sysConfig>", sfXML, false},
        {"<sysConfig><interchange_type>XML</interchange_type></sysConfig>", sfXML, false},
        {"<sysConfig><interchange_type>sisl</interchange_type><interchange_pretty>true</interchange_pretty>"
         "</sysConfig>",
         sfSISL, true},
    };
    for (const auto &c : cases) {
        LoadedPolicy p(policyDocument(c.body));
        SerializationFormat format = sfXML; // "XML" is not a format name and leaves this alone
        bool pretty = !c.pretty;
        ASSERT_TRUE(p.policy.getSerializationFormat(format, pretty)) << c.body;
        EXPECT_EQ(format, c.expected) << c.body;
        EXPECT_EQ(pretty, c.pretty) << c.body;
    }
}

TEST(ContentManagementLookups, ProfilesAndImageFormats)
{
    EXPECT_EQ(ContentManagement::getProfileEnum(QStringLiteral("tiffConfig")), cfgTiffConfig);
    EXPECT_EQ(ContentManagement::getProfileEnum(QStringLiteral("foo")), cfgUnknown);
    EXPECT_EQ(ContentManagement::getProfileName(cfgXlsConfig), QStringLiteral("xlsConfig"));
    EXPECT_EQ(ContentManagement::getProfileName(static_cast<eVxConfigType>(9)), QString());

    const std::pair<ft_t, const char *> images[] = {{ft_png, "png"}, {ft_jpeg, "jpeg"}, {ft_gif, "gif"},
                                                    {ft_emf, "emf"}, {ft_wmf, "wmf"},   {ft_bmp, "bmp"},
                                                    {ft_tiff, "tiff"}, {ft_mpeg, "mpg"}};
    for (const auto &[type, name] : images) {
        QString format;
        EXPECT_TRUE(ContentManagement::isPA_ImageExportImport(type, format)) << type;
        EXPECT_EQ(format, QString::fromLatin1(name));
    }
    QString untouched = QStringLiteral("keep");
    EXPECT_FALSE(ContentManagement::isPA_ImageExportImport(ft_rtf, untouched));
    EXPECT_EQ(untouched, QStringLiteral("keep"));
}

TEST(ContentManagementXml, WriterGroupsReversesSiblingsAndIndentsWithTabs)
{
    QSettings::SettingsMap map;
    map.insert(QStringLiteral("pdfConfig/acroform"), QStringLiteral("sanitise"));
    map.insert(QStringLiteral("pdfConfig/macros"), QStringLiteral("allow"));
    map.insert(QStringLiteral("wordConfig/macros"), QStringLiteral("disallow"));
    const QByteArray expected = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                "<config>\n"
                                "\t<wordConfig>\n"
                                "\t\t<macros>disallow</macros>\n"
                                "\t</wordConfig>\n"
                                "\t<pdfConfig>\n"
                                "\t\t<macros>allow</macros>\n"
                                "\t\t<acroform>sanitise</acroform>\n"
                                "\t</pdfConfig>\n"
                                "</config>\n";
    const QByteArray bytes = written(map);
    EXPECT_EQ(bytes, expected);
    bool ok = false;
    EXPECT_EQ(readBack(bytes, &ok), map);
    EXPECT_TRUE(ok);
}

TEST(ContentManagementXml, GroupsAreReusedIgnoringCase)
{
    QSettings::SettingsMap map;
    map.insert(QStringLiteral("Sys/a"), QStringLiteral("1"));
    map.insert(QStringLiteral("sys/b"), QStringLiteral("2"));
    const QByteArray bytes = written(map);
    EXPECT_EQ(bytes.count("<Sys>"), 1) << bytes.constData();
    EXPECT_EQ(bytes.count("<sys>"), 0) << bytes.constData();
}

TEST(ContentManagementXml, MalformedDocumentsGiveNoKeys)
{
    const char *documents[] = {
        "<settings><a>1</a></settings>",                  // wrong root
        "<config><wordConfig><macros>allow</macros>",     // ends before the root closes
        "<config><a>1</b></config>",                      // not XML
        "",                                               // nothing at all
        "<?xml version=\"1.0\"?><!-- only a comment -->", // no element
    };
    for (const char *document : documents) {
        bool ok = true;
        const QSettings::SettingsMap map = readBack(document, &ok);
        EXPECT_FALSE(ok) << document;
        EXPECT_TRUE(map.isEmpty()) << document;
    }
}

TEST(ContentManagementXml, HostileDocumentsEndCleanly)
{
    // Deep nesting is refused rather than built.
    const QByteArray deep = "<config>" + QByteArray("<a>").repeated(100000) + "x" +
                            QByteArray("</a>").repeated(100000) + "</config>";
    bool ok = true;
    EXPECT_TRUE(readBack(deep, &ok).isEmpty());
    EXPECT_FALSE(ok);

    // A huge value is just a value; text in the root itself names no key.
    const QByteArray big(1 << 20, 'v');
    const QSettings::SettingsMap map =
        readBack("<config>stray<pdfConfig><acroform>" + big + "</acroform></pdfConfig></config>", &ok);
    EXPECT_TRUE(ok);
    ASSERT_EQ(map.size(), 1);
    EXPECT_EQ(map.first().toString().size(), big.size());

    // What follows the closed root is never read.
    EXPECT_EQ(readBack("<config><a>1</a></config><config><b>2</b></config>", &ok).keys(),
              QStringList{QStringLiteral("a")});
}

TEST(ContentManagementStore, FileAndBufferForms)
{
    QTemporaryDir dir;
    ContentManagement policy;
    EXPECT_EQ(policy.connectRepositoryToXMLFile(QString()), static_cast<unsigned int>(-1));
    EXPECT_EQ(policy.connectRepositoryToXMLFile(dir.filePath(QStringLiteral("absent.xml"))),
              static_cast<unsigned int>(-1));

    const QByteArray document = policyDocument("<xlsConfig><macros>disallow</macros></xlsConfig>");
    const QString path = dir.filePath(QStringLiteral("policy.xml"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(document);
    file.close();
    ASSERT_EQ(policy.connectRepositoryToXMLFile(path), 0u);
    EXPECT_EQ(getManageType_macros(cfgXlsConfig, policy), cmsDisallow);
    EXPECT_EQ(policy.policyText(), QString::fromUtf8(document));

    LoadedPolicy fromMemory(document);
    EXPECT_EQ(getManageType_macros(cfgXlsConfig, fromMemory.policy), cmsDisallow);
    EXPECT_EQ(fromMemory.policy.policyText(), QString::fromUtf8(document));

    LoadedPolicy broken("<nope/>");
    EXPECT_EQ(broken.result, static_cast<unsigned int>(-1));
}

TEST(ContentManagementStore, ExportWritesCodePointsInTheBuffersOrderThenZero)
{
    LoadedPolicy p("<config>\xc3\xa9</config>"); // one non-ASCII character
    MemoryBuffer out(3);
    out.byteOrder(MBBigEndian);
    ASSERT_EQ(p.policy.exportRepositoryAsXML(&out), 0u);
    const QString text = p.policy.policyText();
    ASSERT_EQ(out.sizeOfMB(), size_t(text.size() + 1) * 4);
    out.seek(0, MBSeekStart);
    for (const QChar c : text)
        EXPECT_EQ(out.getUInt32BE(), c.unicode());
    EXPECT_EQ(out.getUInt32(), 0u);
}

TEST(ContentManagementStore, PoliciesLoadedFromMemoryAreIndependent)
{
    LoadedPolicy first(policyDocument("<wordConfig><macros>allow</macros></wordConfig>"));
    LoadedPolicy second(policyDocument("<pdfConfig><macros>disallow</macros></pdfConfig>"));
    EXPECT_EQ(first.policy.toStringList(), QStringList{QStringLiteral("wordConfig/macros")});
    EXPECT_EQ(second.policy.toStringList(), QStringList{QStringLiteral("pdfConfig/macros")});
    EXPECT_EQ(getManageType_macros(cfgWordConfig, first.policy), cmsAllow);
}
