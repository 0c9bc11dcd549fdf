#pragma once

#include "cameras/filetype.h"
#include "ucp/serializationformat.h"

#include <QObject>
#include <QSettings>
#include <QString>
#include <QStringList>

#include <memory>

class MemoryBuffer;
class PolicyStore;
class QIODevice;
namespace XML_Reporting {
struct ReportElement;
}

// Document profiles of the policy.
enum eVxConfigType {
    cfgSystem = 0,
    cfgPdfConfig = 1,
    cfgWordConfig = 2,
    cfgPptConfig = 3,
    cfgXlsConfig = 4,
    cfgRtfConfig = 5,
    cfgTiffConfig = 6,
    cfgUnknown = 255,
};

// What a content switch says; cmsUnknown stands for a text that is not a setting.
enum eVxContentManagementSetting {
    cmsUnknown = 0,
    cmsDisallow = 1,
    cmsSanitise = 2,
    cmsAllow = 3,
};

// Profile names <-> profiles. An unknown name is cfgUnknown; an unknown
// profile has the empty name.
class Lookup_profile
{
public:
    static eVxConfigType to_enum(const QString &name);
    static QString to_name(eVxConfigType profile);
};

// Setting names ("disallow", "sanitise", "allow") -> settings; anything else is cmsUnknown.
class Lookup_setting
{
public:
    static eVxContentManagementSetting to_enum(const QString &name);
    static QString to_name(eVxContentManagementSetting setting);
};

// One element of the policy document while it is read or written.
class XmlNode : public QObject
{
public:
    XmlNode(const QString &name, XmlNode *parent);

    QString name;
    QString value;

    // The key of the node: the names from below the root down to this node,
    // joined by backslashes.
    QString fullPath() const;
    XmlNode *parentNode() const;
};

// The run's content-management policy: per document profile and content
// switch, whether such content is allowed, sanitised or disallowed, and the
// interchange format of serialised trees. Its file and buffer form is a small
// XML document with the root element "config".
//
// A policy connected to a file is a settings store on that file, read through
// the "xml" settings format registered with QSettings. A policy loaded from
// memory keeps its keys in memory only: nothing of it touches the disk.
class ContentManagement
{
public:
    ContentManagement();
    ~ContentManagement();

    ContentManagement(const ContentManagement &) = delete;
    ContentManagement &operator=(const ContentManagement &) = delete;

    // 0 on success; (unsigned)-1 when the file cannot be read.
    unsigned int connectRepositoryToXMLFile(const QString &path);
    // 0 on success; (unsigned)-1 when the buffer does not hold a policy. The
    // policy text is the whole document, as for a file.
    unsigned int loadRepositoryFromXML(MemoryBuffer *buffer);
    unsigned int exportRepositoryAsXML(MemoryBuffer *buffer);
    // The report carries no policy: writes nothing and answers (unsigned)-1.
    unsigned int exportConfigToAnalysisXML(XML_Reporting::ReportElement *element);

    bool getSerializationFormat(SerializationFormat &format, bool &pretty);
    eVxContentManagementSetting getSetting(const QString &profile, const QString &switchName);
    static eVxConfigType getProfileEnum(const QString &name);
    static QString getProfileName(eVxConfigType profile);
    QStringList toStringList() const;
    // The text stored under a key; empty without a store.
    QString valueOf(const QString &key) const;

    // The read status of the store (FormatError for a malformed document);
    // NoError without one.
    QSettings::Status status() const;
    // The policy text read with the policy; empty without one.
    QString policyText() const;

    static bool isPA_ImageExportImport(ft_t type, QString &format);

    // Reading refuses what a policy never holds and what would make reading
    // it costly: a document type declaration (and with it every entity), and
    // more than maxEqualSigns "=" characters, so that attributes stay few.
    // For that count to hold, the document must be in UTF-8, UTF-16, UTF-32,
    // US-ASCII or an ISO 8859 encoding.
    static bool readSettingsXml(QIODevice &device, QSettings::SettingsMap &map);
    static bool readSettingsXml(QIODevice &device, QSettings *settings);
    // False for a key of more than 64 parts, which no policy document could
    // hand back.
    static bool writeSettingsXml(QIODevice &device, const QSettings::SettingsMap &map);

    // The root element of the policy document.
    static const QString &rootElementName();

    static constexpr int maxEqualSigns = 1024;

private:
    std::unique_ptr<PolicyStore> m_store;
    QSettings::Format m_format;
    std::unique_ptr<QString> m_policyText;
};

// One reader per content switch, all alike: the switch's setting in the profile.
#define VX_CONTENT_SWITCHES(X)                                                                     \
    X(acroform)                                                                                    \
    X(actions_all)                                                                                 \
    X(dynamic_data_exchange)                                                                       \
    X(embedded_files)                                                                              \
    X(embedded_images)                                                                             \
    X(external_hyperlinks)                                                                         \
    X(geotiff)                                                                                     \
    X(internal_hyperlinks)                                                                         \
    X(javascript)                                                                                  \
    X(macros)                                                                                      \
    X(metadata)                                                                                    \
    X(review_comments)                                                                             \
    X(value_outside_reasonable_limits)                                                             \
    X(watermark)

#define VX_DECLARE_SWITCH_READER(name)                                                             \
    eVxContentManagementSetting getManageType_##name(eVxConfigType profile, ContentManagement &policy);
VX_CONTENT_SWITCHES(VX_DECLARE_SWITCH_READER)
#undef VX_DECLARE_SWITCH_READER

using ContentSwitchReader = eVxContentManagementSetting (*)(eVxConfigType, ContentManagement &);

// Every content switch by name, in the order above; for tools that list a policy.
struct ContentSwitch
{
    const char *name;
    ContentSwitchReader read;
};
const ContentSwitch *contentSwitches(size_t *count);
