// The content-management actions of the validation unit: the handler
// families under every setting, rejection, remedies and the report helpers
// with their length limits. Each runs on an Excel root bound to a real
// session whose policy is loaded from XML (see policyrun.h).

#include "ucp_engine/BDDValidationFuncs.h"

#include "logcapture.h"
#include "policyrun.h"
#include "qtprinters.h"
#include "testcamera.h"
#include "ucp_engine/BDDLStructBase.h"

#include <gtest/gtest.h>

#include <cctype>
#include <stdexcept>
#include <string>
#include <utility>

using namespace policyrun;
using testcamera::thrownText;

namespace {

using BytesHandler = unsigned int (*)(BDDLStructBase *, unsigned int, unsigned char *, unsigned long, unsigned char,
                                      const char *);
using WordsHandler = unsigned int (*)(BDDLStructBase *, unsigned int, unsigned short *, unsigned long,
                                      unsigned short, const char *);
using ReportOnlyHandler = unsigned int (*)(BDDLStructBase *, unsigned int, const char *);

// One handler family: its prefix, the statistics id of its sanitisations
// and its forms (null where the family has none).
struct Family
{
    const char *name;
    const char *prefix;
    int statsId;
    BytesHandler bytes;
    WordsHandler words;
    ReportOnlyHandler reportOnly;
};

const Family kFamilies[] = {
    {"META", "Metadata detected in ", 278, META, META, META_REPORT_ONLY},
    {"MACRO", "Macros present in ", 275, MACRO, nullptr, MACRO_REPORT_ONLY},
    {"INTERNAL_HYPERLINK", "Internal Hyperlinks present in ", 286, INTERNAL_HYPERLINK, INTERNAL_HYPERLINK,
     INTERNAL_HYPERLINK_REPORT_ONLY},
    {"EXTERNAL_HYPERLINK", "External Hyperlinks present in ", 281, EXTERNAL_HYPERLINK, EXTERNAL_HYPERLINK,
     EXTERNAL_HYPERLINK_REPORT_ONLY},
    {"EMBEDDED", "Embedded File present in ", 276,
     +[](BDDLStructBase *node, unsigned int item, unsigned char *data, unsigned long count, unsigned char replacement,
         const char *name) { return EMBEDDED(node, item, data, count, replacement, name, nullptr); },
     nullptr, EMBEDDED_REPORT_ONLY},
    {"REVIEW_COMMENT", "Review comments present in ", 285, REVIEW_COMMENT, REVIEW_COMMENT,
     REVIEW_COMMENT_REPORT_ONLY},
    {"DYNAMIC_DATA_EXCHANGE", "DDE links present in ", 287, DYNAMIC_DATA_EXCHANGE, nullptr,
     DYNAMIC_DATA_EXCHANGE_REPORT_ONLY},
    {"EMBEDDED_IMAGE", "Embedded Image present in ", 288, EMBEDDED_IMAGE, nullptr, EMBEDDED_IMAGE_REPORT_ONLY},
};

enum class Form { Bytes, Words, ReportOnly };

const char *formName(Form form)
{
    switch (form) {
    case Form::Bytes:
        return "8-bit";
    case Form::Words:
        return "16-bit";
    case Form::ReportOnly:
        return "report-only";
    }
    return "?";
}

const char kName[] = "part1";

// The content a handler is given: "ab c", cleared to blanks.
struct Content
{
    unsigned char bytes[4] = {'a', 'b', ' ', 'c'};
    unsigned short words[4] = {'a', 'b', ' ', 'c'};

    std::string asText(Form form) const
    {
        std::string text;
        for (int i = 0; i < 4; ++i)
            text += char(form == Form::Words ? words[i] : bytes[i]);
        return text;
    }
};

// Runs one form of a family over the content; false when it has no such form.
bool run(const Family &family, Form form, BDDLStructBase *node, Content &content, const char *name = kName)
{
    unsigned int result = 0;
    switch (form) {
    case Form::Bytes:
        result = family.bytes(node, kItem, content.bytes, 4, ' ', name);
        break;
    case Form::Words:
        if (family.words == nullptr)
            return false;
        result = family.words(node, kItem, content.words, 4, ' ', name);
        break;
    case Form::ReportOnly:
        result = family.reportOnly(node, kItem, name);
        break;
    }
    EXPECT_EQ(result, 1u) << family.name << ' ' << formName(form);
    return true;
}

class ContentActions : public PolicyRun
{
};

} // namespace

TEST_F(ContentActions, EveryHandlerUnderEverySetting)
{
    for (const Family &family : kFamilies) {
        for (Form form : {Form::Bytes, Form::Words, Form::ReportOnly}) {
            for (const char *setting : {"sanitise", "allow", "disallow"}) {
                setEverySwitch(setting);
                newRun();
                Content content;
                if (!run(family, form, root(), content))
                    continue;
                const std::string what = std::string(family.name) + ' ' + formName(form) + ' ' + setting;

                const QString message = QString::fromLatin1(family.prefix) + QLatin1String(kName);
                const bool reportOnly = form == Form::ReportOnly;
                const unsigned size = reportOnly ? 0 : form == Form::Words ? 8 : 4;
                const bool allow = std::string(setting) == "allow";
                EXPECT_EQ(content.asText(form), allow || reportOnly ? "ab c" : "    ") << what;

                QStringList expected;
                cameraStatus_t status = 0;
                if (std::string(setting) == "sanitise") {
                    expected << QStringLiteral("sanitise %1 %2|%3|%4")
                                    .arg(kItemGroup)
                                    .arg(message)
                                    .arg(size)
                                    .arg(sanitisationId(family.statsId, size_t(message.size())));
                    status = 64;
                } else if (allow) {
                    expected << QStringLiteral("content %1 %2|%3").arg(kStatsGroup).arg(message).arg(size);
                } else {
                    expected << QStringLiteral("issue %1 %2|0|96").arg(kItemGroup).arg(message);
                    status = 153;
                }
                EXPECT_EQ(records(), expected) << what;
                EXPECT_EQ(root()->m_cameraStatus, status) << what;
            }
        }
    }
}

TEST_F(ContentActions, ANodeInsideTheTreeActsAndReportsForItsTree)
{
    // Cameras call the handlers from the node that holds the content.
    testcamera::TestLeaf leaf;
    leaf.setRoot(root());
    leaf.setParent(root());
    for (const char *setting : {"sanitise", "disallow", "allow"}) {
        setEverySwitch(setting);
        newRun();
        leaf.setRoot(root());
        leaf.m_cameraStatus = 0;
        Content content;
        MACRO(&leaf, kItem, content.bytes, 4, ' ', kName);
        EXPECT_EQ(records().size(), 1) << setting;
        EXPECT_EQ(leaf.m_cameraStatus, std::string(setting) == "sanitise"   ? 64u
                                       : std::string(setting) == "disallow" ? 153u
                                                                            : 0u)
            << setting;
        EXPECT_EQ(root()->m_cameraStatus, 0u) << "the status belongs to the node that acted";
    }
}

TEST_F(ContentActions, ContentAlreadyClearedIsNotRecorded)
{
    for (const char *setting : {"sanitise", "disallow"}) {
        setEverySwitch(setting);
        for (const Family &family : kFamilies) {
            newRun();
            unsigned char blanks[3] = {' ', ' ', ' '};
            EXPECT_EQ(family.bytes(root(), kItem, blanks, 3, ' ', kName), 1u);
            EXPECT_EQ(records(), QStringList()) << family.name << ' ' << setting;
            EXPECT_EQ(root()->m_cameraStatus, 0u) << family.name << ' ' << setting;
        }
    }
}

TEST_F(ContentActions, AFailureAlreadyOnTheNodeStays)
{
    setEverySwitch("sanitise");
    root()->m_cameraStatus = 178;
    Content content;
    META(root(), kItem, content.bytes, 4, ' ', kName);
    EXPECT_EQ(content.asText(Form::Bytes), "    ");
    EXPECT_EQ(records().size(), 1);
    EXPECT_EQ(root()->m_cameraStatus, 178u);
}

TEST_F(ContentActions, EmbeddedFilesKeepWhatThePredicateKeeps)
{
    setEverySwitch("sanitise");
    Content content;
    EMBEDDED(root(), kItem, content.bytes, 4, '_', kName, [](int c) { return int(c == 'b' || c == ' '); });
    EXPECT_EQ(content.asText(Form::Bytes), "_b _");
    EXPECT_EQ(records().size(), 1);
    EXPECT_EQ(root()->m_cameraStatus, 64u);
}

TEST_F(ContentActions, AnUnknownSettingIsAProgrammingError)
{
    // Settings are case-sensitive: "Allow" is not one.
    setEverySwitch("Allow");
    Content content;
    LogCapture log;
    EXPECT_EQ(thrownText([&] { META(root(), kItem, content.bytes, 4, ' ', kName); }),
              "std: CONTENT_MANAGEMENT_FUNCTION(): Unknown eVxCmSwitchSetting");
    ASSERT_EQ(log.messages().size(), 1);
    EXPECT_TRUE(log.messages()[0].startsWith(
        QStringLiteral("\"CONTENT_MANAGEMENT_FUNCTION(): Unknown eVxCmSwitchSetting in Metadata detected in ")))
        << log.messages()[0].toStdString();
    EXPECT_EQ(content.asText(Form::Bytes), "    ") << "only allowed content stays";
    EXPECT_EQ(records(), QStringList());

    log.clear();
    EXPECT_EQ(thrownText([&] { MACRO_REPORT_ONLY(root(), kItem, kName); }),
              "std: CONTENT_MANAGEMENT_FUNCTION(): Unknown eVxCmSwitchSetting");
    EXPECT_EQ(thrownText([&] { REJECTED(root(), kItem, nullptr, nullptr, rejectedMacro, kName); }),
              "std: REJECTED(): Unknown eVxCmSwitchSetting");
    ASSERT_EQ(log.messages().size(), 2);
    EXPECT_TRUE(
        log.messages()[1].startsWith(QStringLiteral("\"REJECTED(): Unknown eVxCmSwitchSetting in Macros present in ")))
        << log.messages()[1].toStdString();
}

TEST_F(ContentActions, WithoutASessionThereIsNoPolicy)
{
    testcamera::TestRun detached;
    detached.root->setFiletype(ft_pdf);
    Content content;
    EXPECT_EQ(thrownText([&] { META(detached.root.get(), kItem, content.bytes, 4, ' ', kName); }),
              "Content management policy missing");
}

TEST_F(ContentActions, RejectedContentByTypeAndSetting)
{
    const struct
    {
        char type;
        const char *switchName;
        const char *prefix;
        int statsId; // of its sanitisation
    } types[] = {
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
        for (const char *setting : {"sanitise", "allow", "disallow"}) {
            // Only the type's own switch is set: the others would sanitise.
            setPolicy(QByteArray("<") + type.switchName + ">" + setting + "</" + type.switchName + ">");
            newRun();
            testcamera::TestLeaf target;
            target.m_processStatus = 0x84;
            EXPECT_EQ(REJECTED(root(), kItem, nullptr, &target, type.type, kName), 1u);

            const std::string what = std::string(type.switchName) + ' ' + setting;
            const QString message = QString::fromLatin1(type.prefix) + QLatin1String(kName);
            QStringList expected;
            cameraStatus_t status = 0;
            uint32_t targetStatus = 0x84;
            if (std::string(setting) == "sanitise") {
                expected << QStringLiteral("sanitise %1 %2|0|%3")
                                .arg(kItemGroup)
                                .arg(message)
                                .arg(sanitisationId(type.statsId, size_t(message.size())));
                status = 64;
                targetStatus = 5;
            } else if (std::string(setting) == "disallow") {
                expected << QStringLiteral("issue %1 %2|0|96").arg(kStatsGroup).arg(message);
                status = 153;
            }
            EXPECT_EQ(records(), expected) << what;
            EXPECT_EQ(root()->m_cameraStatus, status) << what;
            EXPECT_EQ(target.m_processStatus, targetStatus) << what;
        }
    }
}

TEST_F(ContentActions, RejectedUnknownContentTypes)
{
    setEverySwitch("sanitise");
    for (char type : {0, 1, 6, 12, -1}) {
        LogCapture log;
        EXPECT_EQ(thrownText([&] { REJECTED(root(), kItem, nullptr, nullptr, type, kName); }),
                  "std: REJECTED(): Unknown contentType")
            << int(type);
        ASSERT_EQ(log.messages().size(), 1);
        EXPECT_TRUE(log.messages()[0].startsWith(
            QStringLiteral("\"REJECTED():  Unknown contentType (%1) ").arg(int(type))))
            << log.messages()[0].toStdString();
    }
    EXPECT_EQ(records(), QStringList());
}

TEST_F(ContentActions, RemediesMarkTheNodeChangedAndRecordNothing)
{
    testcamera::TestLeaf target;
    target.m_processStatus = 0x84;
    EXPECT_EQ(REMEDY(root(), kItem, nullptr, &target, kName), 1u);
    EXPECT_EQ(target.m_processStatus, 5u);
    EXPECT_EQ(root()->m_cameraStatus, 64u);
    EXPECT_EQ(records(), QStringList()) << "remedies are not recorded";

    const struct
    {
        const char *before, *after;
        cameraStatus_t status;
    } clearing[] = {
        {"ab c", "    ", 64},
        {"    ", "    ", 0},
        {"", "", 0},
    };
    for (const auto &c : clearing) {
        newRun();
        std::string data = c.before;
        EXPECT_EQ(REMEDY(root(), kItem, reinterpret_cast<unsigned char *>(data.data()), data.size(), ' ', kName), 1u);
        EXPECT_EQ(data, c.after) << '"' << c.before << '"';
        EXPECT_EQ(root()->m_cameraStatus, c.status) << '"' << c.before << '"';
    }

    const struct
    {
        const char *destination, *source;
        cameraStatus_t status;
    } copies[] = {
        {"old text", "new text", 64},
        {"same", "same", 0},
    };
    for (const auto &c : copies) {
        newRun();
        std::string destination = c.destination;
        std::string source = c.source;
        EXPECT_EQ(REMEDY_COPY(root(), kItem, reinterpret_cast<unsigned char *>(destination.data()),
                              reinterpret_cast<unsigned char *>(source.data()), source.size(), kName),
                  1u);
        EXPECT_EQ(destination, c.source);
        EXPECT_EQ(root()->m_cameraStatus, c.status) << c.destination;
    }
}

TEST_F(ContentActions, TextsAreCutToTheirLimits)
{
    const std::string longName(400, 'n');
    const std::string prefix = "Metadata detected in ";

    // Disallow texts: 255 characters.
    setEverySwitch("disallow");
    META_REPORT_ONLY(root(), kItem, longName.c_str());
    EXPECT_EQ(records(), QStringList{QStringLiteral("issue %1 %2|0|96")
                                         .arg(kItemGroup)
                                         .arg(QString::fromStdString((prefix + longName).substr(0, 255)))});

    // Sanitisation keys: 99 characters, whichever way the id is made.
    setEverySwitch("sanitise");
    newRun();
    META_REPORT_ONLY(root(), kItem, longName.c_str());
    REJECTED(root(), kItem, nullptr, nullptr, rejectedMacro, longName.c_str());
    ASSERT_EQ(records().size(), 2);
    for (const auto &[line, statsId] : {std::pair{0, 275}, std::pair{1, 278}})
        EXPECT_TRUE(records()[line].endsWith(QStringLiteral("|0|%1").arg(sanitisationId(statsId, 99))))
            << records()[line].toStdString();
    EXPECT_EQ(returnSanitisationID(root(), "key %s", longName.c_str(), eAnalysisStats_Metadata),
              sanitisationId(278, 99));
    EXPECT_EQ(returnSanitisationID(root(), "key %s", "x", eAnalysisStats_Metadata), sanitisationId(278, 5));
}

TEST_F(ContentActions, MessagesMustStayBelow1024Characters)
{
    const std::string prefix = "Macros present in ";
    const std::string fits(1023 - prefix.size(), 'f');
    const std::string tooLong(1024 - prefix.size(), 't');
    const QString failure = QStringLiteral("Item name and prefix exceed the message length.");

    ReportContentItem(root(), 7, prefix.c_str(), fits.c_str());
    EXPECT_EQ(ReportSanitiseItem(root(), kItem, 7, prefix.c_str(), fits.c_str(), 9), 0u);
    const QString message = QString::fromStdString(prefix + fits);
    EXPECT_EQ(records(), (QStringList{
                             QStringLiteral("content %1 %2|7").arg(kStatsGroup).arg(message),
                             QStringLiteral("sanitise %1 %2|7|9").arg(kItemGroup).arg(message),
                         }));

    // Too long: a log line with the text cut to 1023 characters, then the fault.
    const std::string huge(3000, 'h');
    const auto reportContent = +[](BDDLStructBase *node, const char *p, const char *n) {
        ReportContentItem(node, 0, p, n);
    };
    const auto reportSanitise = +[](BDDLStructBase *node, const char *p, const char *n) {
        ReportSanitiseItem(node, kItem, 0, p, n, 0);
    };
    for (const auto &report : {reportContent, reportSanitise}) {
        for (const std::string &name : {tooLong, huge}) {
            LogCapture log;
            EXPECT_EQ(thrownText([&] { report(root(), prefix.c_str(), name.c_str()); }),
                      "std: " + failure.toStdString());
            EXPECT_EQ(log.messages(), QStringList{failure + QLatin1Char(' ')
                                                  + QString::fromStdString((prefix + name).substr(0, 1023))});
        }
    }
    EXPECT_EQ(records().size(), 2) << "nothing more was recorded";
}

TEST_F(ContentActions, SanitisationTypesFollowTheExactPrefix)
{
    const std::pair<const char *, int> cases[] = {
        {"Macros present in ", 275},
        {"Internal Hyperlinks present in ", 286},
        {"External Hyperlinks present in ", 281},
        {"Metadata detected in ", 278},
        {"DDE links present in ", 287},
        {"Embedded Image present in ", 288},
        {"Embedded File present in ", 276},
        {"Review comments present in ", 276},
        {"Macros present in", 276},
        {"macros present in ", 276},
        {"", 276},
        {nullptr, 276},
    };
    for (const auto &[prefix, statsId] : cases)
        EXPECT_EQ(getSanitisationTypeAnalysisId(prefix), statsId) << (prefix ? prefix : "(null)");
}
