// The content-management actions on an Excel root bound to a real session
// whose policy is loaded from XML (see policyrun.h).

#include "ucp_engine/BDDValidationFuncs.h"

#include "logcapture.h"
#include "policyrun.h"
#include "ucp_engine/BDDLStructBase.h"

#include <string>
#include <vector>

using namespace policyrun;

namespace {

using BytesHandler = unsigned (*)(BDDLStructBase *, unsigned, unsigned char *, unsigned long, unsigned char,
                                  const char *);
using WordsHandler = unsigned (*)(BDDLStructBase *, unsigned, unsigned short *, unsigned long, unsigned short,
                                  const char *);

// One handler family: its message prefix, the statistics id of its
// sanitisations and its forms (null where it has none).
const struct Family
{
    const char *name, *prefix;
    int statsId;
    BytesHandler bytes;
    WordsHandler words;
    unsigned (*reportOnly)(BDDLStructBase *, unsigned, const char *);
} kFamilies[] = {
    {"META", "Metadata detected in ", 278, META, META, META_REPORT_ONLY},
    {"MACRO", "Macros present in ", 275, MACRO, nullptr, MACRO_REPORT_ONLY},
    {"INTERNAL_HYPERLINK", "Internal Hyperlinks present in ", 286, INTERNAL_HYPERLINK, INTERNAL_HYPERLINK,
     INTERNAL_HYPERLINK_REPORT_ONLY},
    {"EXTERNAL_HYPERLINK", "External Hyperlinks present in ", 281, EXTERNAL_HYPERLINK, EXTERNAL_HYPERLINK,
     EXTERNAL_HYPERLINK_REPORT_ONLY},
    {"EMBEDDED", "Embedded File present in ", 276,
     +[](BDDLStructBase *node, unsigned item, unsigned char *data, unsigned long count, unsigned char replacement,
         const char *name) { return EMBEDDED(node, item, data, count, replacement, name, nullptr); },
     nullptr, EMBEDDED_REPORT_ONLY},
    {"REVIEW_COMMENT", "Review comments present in ", 285, REVIEW_COMMENT, REVIEW_COMMENT, REVIEW_COMMENT_REPORT_ONLY},
    {"DYNAMIC_DATA_EXCHANGE", "DDE links present in ", 287, DYNAMIC_DATA_EXCHANGE, nullptr,
     DYNAMIC_DATA_EXCHANGE_REPORT_ONLY},
    {"EMBEDDED_IMAGE", "Embedded Image present in ", 288, EMBEDDED_IMAGE, nullptr, EMBEDDED_IMAGE_REPORT_ONLY},
};

const char kName[] = "part1";
const char *const kSettings[] = {"sanitise", "allow", "disallow"};

template <typename T>
std::vector<T> text(const std::string &bytes)
{
    return std::vector<T>(bytes.begin(), bytes.end());
}

cameraStatus_t statusOf(const std::string &setting)
{
    return setting == "sanitise" ? 64 : setting == "disallow" ? 153 : 0;
}

// The one record a handler makes, by setting.
QString expectedRecord(const std::string &setting, const char *prefix, int statsId, unsigned size,
                       short issueGroup = kItemGroup)
{
    const QString message = QLatin1String(prefix) + QLatin1String(kName);
    if (setting == "sanitise")
        return QStringLiteral("sanitise %1 %2|%3|%4").arg(kItemGroup).arg(message).arg(size)
            .arg(sanitisationId(statsId, size_t(message.size())));
    if (setting == "allow")
        return QStringLiteral("content %1 %2|%3").arg(kStatsGroup).arg(message).arg(size);
    return QStringLiteral("issue %1 %2|0|96").arg(issueGroup).arg(message);
}

} // namespace

using ContentActions = PolicyRun;

// What each handler overwrites, records and merges under each setting, called
// from a node below the root as cameras do: the node takes the status.
// Content already cleared is recorded only when allowed.
TEST_F(ContentActions, EveryHandlerUnderEverySetting)
{
    enum Form { Bytes, Words, ReportOnly };
    const char *const formNames[] = {"8-bit", "16-bit", "report-only"};
    for (const std::string setting : kSettings) {
        setEverySwitch(setting);
        for (const Family &family : kFamilies) {
            for (const Form form : {Bytes, Words, ReportOnly}) {
                for (const std::string before : {"ab c", "    "}) {
                    if (form == Words && family.words == nullptr)
                        continue;
                    newRun();
                    testcamera::TestLeaf node;
                    node.setRoot(root());
                    std::vector<unsigned char> bytes = text<unsigned char>(before);
                    std::vector<unsigned short> words = text<unsigned short>(before);
                    const unsigned long count = bytes.size();
                    const unsigned result =
                        form == Bytes   ? family.bytes(&node, kItem, bytes.data(), count, ' ', kName)
                        : form == Words ? family.words(&node, kItem, words.data(), count, ' ', kName)
                                        : family.reportOnly(&node, kItem, kName);
                    const std::string what =
                        std::string(family.name) + ' ' + formNames[form] + ' ' + setting + " \"" + before + '"';
                    EXPECT_EQ(result, 1u) << what;

                    const bool allow = setting == "allow";
                    const std::string after = allow || form == ReportOnly ? before : "    ";
                    EXPECT_EQ(bytes, text<unsigned char>(form == Bytes ? after : before)) << what;
                    EXPECT_EQ(words, text<unsigned short>(form == Words ? after : before)) << what;
                    const bool recorded = allow || form == ReportOnly || before != "    ";
                    const unsigned size = form == ReportOnly ? 0 : unsigned(count * (form == Words ? 2 : 1));
                    EXPECT_EQ(records(), recorded ? QStringList{expectedRecord(setting, family.prefix, family.statsId,
                                                                               size)}
                                                  : QStringList())
                        << what;
                    EXPECT_EQ(node.m_cameraStatus, recorded ? statusOf(setting) : 0) << what;
                    EXPECT_EQ(root()->m_cameraStatus, 0u) << what;
                }
            }
        }
    }

    setEverySwitch("sanitise"); // a failure stays; EMBEDDED's predicate spares bytes
    root()->m_cameraStatus = 178;
    unsigned char bytes[] = "ab c";
    EMBEDDED(root(), kItem, bytes, 4, '_', kName, [](int c) { return int(c == 'b' || c == ' '); });
    EXPECT_STREQ(reinterpret_cast<char *>(bytes), "_b _");
    EXPECT_EQ(root()->m_cameraStatus, 178u);
}

TEST_F(ContentActions, UnknownSettingsAndContentTypesAreProgrammingErrors)
{
    setEverySwitch("Allow"); // settings are case-sensitive
    unsigned char bytes[] = "ab c";
    LogCapture log;
    EXPECT_EQ(thrownText([&] { META(root(), kItem, bytes, 4, ' ', kName); }),
              "std: CONTENT_MANAGEMENT_FUNCTION(): Unknown eVxCmSwitchSetting");
    EXPECT_STREQ(reinterpret_cast<char *>(bytes), "    ") << "only allowed content stays";
    EXPECT_EQ(thrownText([&] { REJECTED(root(), kItem, nullptr, nullptr, rejectedMacro, kName); }),
              "std: REJECTED(): Unknown eVxCmSwitchSetting");
    for (const char type : {0, 1, 6, 12, -1})
        EXPECT_EQ(thrownText([&] { REJECTED(root(), kItem, nullptr, nullptr, type, kName); }),
                  "std: REJECTED(): Unknown contentType")
            << int(type);
    ASSERT_EQ(log.messages().size(), 7) << "each failure is logged first";
    EXPECT_TRUE(log.messages()[6].startsWith("\"REJECTED():  Unknown contentType (-1) "))
        << log.messages()[6].toStdString();
    EXPECT_EQ(records(), QStringList());

    testcamera::TestRun detached; // no session, no policy
    EXPECT_EQ(thrownText([&] { META(detached.root.get(), kItem, bytes, 4, ' ', kName); }),
              "Content management policy missing");
}

TEST_F(ContentActions, RejectedContentByTypeAndSetting)
{
    const struct { char type; const char *switchName, *prefix; int statsId; } types[] = {
        {2, "embedded_files", "Embedded File present in ", 276},
        {3, "metadata", "Metadata detected in ", 278},
        {4, "internal_hyperlinks", "Internal Hyperlinks present in ", 286},
        {5, "external_hyperlinks", "External Hyperlinks present in ", 281},
        {7, "macros", "Macros present in ", 275},
        {8, "review_comments", "Review comments present in ", 276},
        {9, "dynamic_data_exchange", "DDE links present in ", 287},
        {10, "embedded_images", "Embedded Image present in ", 288},
        {11, "geotiff", "GeoTIFF data present in ", 276},
    };
    for (const auto &type : types) {
        for (const std::string setting : kSettings) {
            setPolicy(element(type.switchName, setting)); // the others would sanitise
            testcamera::TestLeaf target;
            target.m_processStatus = 0x84;
            EXPECT_EQ(REJECTED(root(), kItem, nullptr, &target, type.type, kName), 1u);
            const std::string what = std::string(type.switchName) + ' ' + setting;
            EXPECT_EQ(records(), setting == "allow"
                                     ? QStringList()
                                     : QStringList{expectedRecord(setting, type.prefix, type.statsId, 0, kStatsGroup)})
                << what;
            EXPECT_EQ(root()->m_cameraStatus, statusOf(setting)) << what;
            EXPECT_EQ(target.m_processStatus, setting == "sanitise" ? 5u : 0x84u) << what;
        }
    }
}

TEST_F(ContentActions, RemediesMergeTheirStatusAndRecordNothing)
{
    testcamera::TestLeaf target;
    target.m_processStatus = 0x84;
    EXPECT_EQ(REMEDY(root(), kItem, nullptr, &target, kName), 1u);
    EXPECT_EQ(target.m_processStatus, 5u) << "the target is marked changed";
    EXPECT_EQ(root()->m_cameraStatus, 64u);

    const struct { const char *before, *source, *after; cameraStatus_t status; } cases[] = {
        {"ab c", nullptr, "    ", 64}, {"    ", nullptr, "    ", 0}, // source null: blank
        {"old text", "new text", "new text", 64}, {"same", "same", "same", 0}};
    for (const auto &c : cases) {
        newRun();
        std::string data = c.before, source = c.source ? c.source : "";
        auto *bytes = reinterpret_cast<unsigned char *>(data.data());
        EXPECT_EQ(c.source ? REMEDY_COPY(root(), kItem, bytes, reinterpret_cast<unsigned char *>(source.data()),
                                         source.size(), kName)
                           : REMEDY(root(), kItem, bytes, data.size(), ' ', kName),
                  1u);
        EXPECT_EQ(data, c.after) << '"' << c.before << '"';
        EXPECT_EQ(root()->m_cameraStatus, c.status) << '"' << c.before << '"';
        EXPECT_EQ(records(), QStringList()) << '"' << c.before << '"';
    }
}

TEST_F(ContentActions, TextsAreCutToTheirLimits)
{
    const std::string longName(400, 'n');
    setEverySwitch("disallow"); // disallow texts: 255 characters
    META_REPORT_ONLY(root(), kItem, longName.c_str());
    const QString cut = QString::fromStdString(("Metadata detected in " + longName).substr(0, 255));
    EXPECT_EQ(records(), QStringList{"issue 1001 " + cut + "|0|96"});

    setEverySwitch("sanitise"); // sanitisation keys: 99 characters, whichever way the id is made
    REJECTED(root(), kItem, nullptr, nullptr, rejectedMacro, longName.c_str());
    ASSERT_EQ(records().size(), 1);
    EXPECT_TRUE(records()[0].endsWith(QStringLiteral("|0|%1").arg(sanitisationId(275, 99))))
        << records()[0].toStdString();
    EXPECT_EQ(returnSanitisationID(root(), "key %s", "x", eAnalysisStats_Metadata), sanitisationId(278, 5));

    // Messages stay below 1024 characters; longer ones log the text cut to 1023, then fail.
    newRun();
    const std::string prefix = "Macros present in ";
    const std::string fits(1023 - prefix.size(), 'f'), tooLong(1024 - prefix.size(), 't');
    ReportContentItem(root(), 7, prefix.c_str(), fits.c_str());
    EXPECT_EQ(ReportSanitiseItem(root(), kItem, 7, prefix.c_str(), fits.c_str(), 9), 0u);
    const QString message = QString::fromStdString(prefix + fits);
    EXPECT_EQ(records(), (QStringList{QStringLiteral("content %1 %2|7").arg(kStatsGroup).arg(message),
                                      QStringLiteral("sanitise %1 %2|7|9").arg(kItemGroup).arg(message)}));
    const QString failure = QStringLiteral("Item name and prefix exceed the message length.");
    for (bool content : {true, false}) {
        LogCapture log;
        EXPECT_EQ(thrownText([&] {
                      if (content)
                          ReportContentItem(root(), 0, prefix.c_str(), tooLong.c_str());
                      else
                          ReportSanitiseItem(root(), kItem, 0, prefix.c_str(), tooLong.c_str(), 0);
                  }),
                  "std: " + failure.toStdString());
        EXPECT_EQ(log.messages(),
                  QStringList{failure + QLatin1Char(' ') + QString::fromStdString((prefix + tooLong).substr(0, 1023))});
    }
    EXPECT_EQ(records().size(), 2) << "nothing more was recorded";
}
