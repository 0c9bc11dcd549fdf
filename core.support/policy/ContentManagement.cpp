#include "policy/ContentManagement.h"

#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QTextStream>
#include <QUuid>
#include <QVector>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <iterator>

namespace {

// A policy has profiles, switches and values: three levels. Documents nested
// far deeper are malformed, and refusing them keeps the node tree (whose
// destruction recurses) shallow.
const int kMaxDepth = 64;

// A name table: every lookup by name or by value walks one of these.
template <typename Enum>
struct Named
{
    Enum value;
    const char *name;
};

template <typename Enum, size_t N>
Enum valueNamed(const Named<Enum> (&table)[N], const QString &name, Enum fallback)
{
    for (const Named<Enum> &entry : table)
        if (name == QLatin1String(entry.name))
            return entry.value;
    return fallback;
}

template <typename Enum, size_t N>
QString nameOf(const Named<Enum> (&table)[N], Enum value)
{
    for (const Named<Enum> &entry : table)
        if (entry.value == value)
            return QString::fromLatin1(entry.name);
    return QString();
}

const Named<eVxConfigType> kProfiles[] = {
    {cfgSystem, "system"},        {cfgPdfConfig, "pdfConfig"}, {cfgWordConfig, "wordConfig"},
    {cfgPptConfig, "pptConfig"},  {cfgXlsConfig, "xlsConfig"}, {cfgRtfConfig, "rtfConfig"},
    {cfgTiffConfig, "tiffConfig"}, {cfgUnknown, "unknown"},
};

const Named<eVxContentManagementSetting> kSettings[] = {
    {cmsDisallow, "disallow"},
    {cmsSanitise, "sanitise"},
    {cmsAllow, "allow"},
};

const struct
{
    ft_t type;
    const char *format;
} kImageFormats[] = {
    {ft_png, "png"}, {ft_jpeg, "jpeg"}, {ft_gif, "gif"},  {ft_emf, "emf"},
    {ft_wmf, "wmf"}, {ft_bmp, "bmp"},   {ft_tiff, "tiff"}, {ft_mpeg, "mpg"},
};

// Policy keys are written with backslashes ("sysConfig\interchange_type").
// Settings on this platform separate groups with slashes only and take a
// backslash literally, so every key is given its slash form before it
// reaches the settings store.
QString settingsKey(QString key)
{
    return key.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

const QString kInterchangeTypeKey = settingsKey(QStringLiteral("sysConfig\\interchange_type"));
const QString kInterchangePrettyKey = settingsKey(QStringLiteral("sysConfig\\interchange_pretty"));

// The settings formats are registered once per process: Qt keeps a small,
// fixed number of custom format slots, and every policy object shares them.
QSettings::Format xmlSettingsFormat()
{
    static const QSettings::Format format =
        QSettings::registerFormat(QStringLiteral("xml"), &ContentManagement::readSettingsXml,
                                  &ContentManagement::writeSettingsXml, Qt::CaseSensitive);
    return format;
}

// A policy loaded from memory has no file. Settings stores that share a file
// name share their keys, so each such store gets a name of its own; its
// format refuses to write, so nothing is ever saved under that name.
bool refuseToWrite(QIODevice &, const QSettings::SettingsMap &)
{
    return false;
}

QSettings::Format memorySettingsFormat()
{
    static const QSettings::Format format = QSettings::registerFormat(
        QStringLiteral("xml"), &ContentManagement::readSettingsXml, &refuseToWrite, Qt::CaseSensitive);
    return format;
}

std::unique_ptr<QSettings> newMemoryStore()
{
    const QString name = QDir::temp().filePath(
        QStringLiteral("vxcore-policy-%1.xml").arg(QUuid::createUuid().toString(QUuid::WithoutBraces)));
    return std::make_unique<QSettings>(name, memorySettingsFormat());
}

// Streams the policy document and hands every key (in its slash form) and
// value to store(); clear() is called when the root opens.
template <typename Store, typename Clear>
bool readPolicy(QIODevice &device, Store store, Clear clear)
{
    QXmlStreamReader reader(&device);
    std::unique_ptr<XmlNode> root;
    XmlNode *open = nullptr;
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (open == nullptr) {
                if (reader.name() != ContentManagement::rootElementName())
                    return false;
                clear();
                root = std::make_unique<XmlNode>(reader.name().toString(), nullptr);
                open = root.get();
            } else {
                if (++depth > kMaxDepth)
                    return false;
                open = new XmlNode(reader.name().toString(), open);
            }
            break;
        case QXmlStreamReader::Characters:
            if (open != nullptr && !reader.isWhitespace()) {
                open->value = reader.text().toString();
                const QString key = settingsKey(open->fullPath());
                if (!key.isEmpty()) // text directly in the root names no key
                    store(key, open->value);
            }
            break;
        case QXmlStreamReader::EndElement:
            if (open == root.get())
                return true;
            if (open != nullptr) {
                open = open->parentNode();
                --depth;
            }
            break;
        default:
            break;
        }
    }
    return false;
}

} // namespace

// --- lookups ---------------------------------------------------------------------

eVxConfigType Lookup_profile::to_enum(const QString &name)
{
    return valueNamed(kProfiles, name, cfgUnknown);
}

QString Lookup_profile::to_name(eVxConfigType profile)
{
    return nameOf(kProfiles, profile);
}

eVxContentManagementSetting Lookup_setting::to_enum(const QString &name)
{
    return valueNamed(kSettings, name, cmsUnknown);
}

QString Lookup_setting::to_name(eVxContentManagementSetting setting)
{
    return nameOf(kSettings, setting);
}

// --- XmlNode -----------------------------------------------------------------------

XmlNode::XmlNode(const QString &nodeName, XmlNode *parent) : QObject(parent), name(nodeName) {}

XmlNode *XmlNode::parentNode() const
{
    return static_cast<XmlNode *>(parent());
}

QString XmlNode::fullPath() const
{
    QStringList names;
    for (const XmlNode *node = this; node->parentNode() != nullptr; node = node->parentNode())
        names.prepend(node->name);
    return names.join(QLatin1Char('\\'));
}

// --- ContentManagement ---------------------------------------------------------------

ContentManagement::ContentManagement() : m_format(xmlSettingsFormat()) {}

ContentManagement::~ContentManagement() = default;

const QString &ContentManagement::rootElementName()
{
    static const QString name = QStringLiteral("config");
    return name;
}

unsigned int ContentManagement::connectRepositoryToXMLFile(const QString &path)
{
    if (path.isEmpty())
        return static_cast<unsigned int>(-1);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return static_cast<unsigned int>(-1);
    m_policyText = std::make_unique<QString>(QTextStream(&file).readAll());
    file.close();
    m_settings = std::make_unique<QSettings>(path, m_format);
    return 0;
}

unsigned int ContentManagement::loadRepositoryFromXML(MemoryBuffer *buffer)
{
    if (buffer == nullptr)
        return static_cast<unsigned int>(-1);
    m_settings = newMemoryStore();
    IOMemoryBuffer device(buffer);
    if (!device.open(QIODevice::ReadOnly))
        return static_cast<unsigned int>(-1);
    const bool read = readSettingsXml(device, m_settings.get());
    // The policy text is the whole document, as for a policy file, so that a
    // policy loaded from memory can be exported again.
    device.seek(0);
    m_policyText = std::make_unique<QString>(QString::fromUtf8(device.readAll()));
    return read ? 0 : static_cast<unsigned int>(-1);
}

unsigned int ContentManagement::exportRepositoryAsXML(MemoryBuffer *buffer)
{
    if (!m_policyText || buffer == nullptr)
        return static_cast<unsigned int>(-1);
    buffer->resizeBuffer(0, false); // empty, keeping the buffer's own byte order
    const QVector<uint> codePoints = m_policyText->toUcs4();
    buffer->putRawScalarArray(codePoints.constData(), static_cast<size_t>(codePoints.size()),
                              MBNativeOrder);
    buffer->putUInt32(0);
    return 0;
}

unsigned int ContentManagement::exportConfigToAnalysisXML(XML_Reporting::ReportElement *)
{
    // The report carries no policy.
    return static_cast<unsigned int>(-1);
}

bool ContentManagement::getSerializationFormat(SerializationFormat &format, bool &pretty)
{
    if (!m_settings)
        return false;
    pretty = m_settings->value(kInterchangePrettyKey, QStringLiteral("false")).toBool();
    const QString type = m_settings->value(kInterchangeTypeKey, QStringLiteral("sisl")).toString();
    if (type == QLatin1String("sisl"))
        format = sfSISL;
    else if (type == QLatin1String("xml"))
        format = sfXML;
    return true;
}

eVxContentManagementSetting ContentManagement::getSetting(const QString &profile,
                                                          const QString &switchName)
{
    if (!m_settings)
        return cmsSanitise;
    const QString text = m_settings->value(profile + QLatin1Char('/') + switchName).toString();
    if (text.isEmpty())
        return cmsSanitise;
    return Lookup_setting::to_enum(text);
}

eVxConfigType ContentManagement::getProfileEnum(const QString &name)
{
    return Lookup_profile::to_enum(name);
}

QString ContentManagement::getProfileName(eVxConfigType profile)
{
    return Lookup_profile::to_name(profile);
}

QStringList ContentManagement::toStringList() const
{
    return m_settings ? m_settings->allKeys() : QStringList();
}

QString ContentManagement::valueOf(const QString &key) const
{
    return m_settings ? m_settings->value(settingsKey(key)).toString() : QString();
}

QSettings::Status ContentManagement::status() const
{
    return m_settings ? m_settings->status() : QSettings::NoError;
}

QString ContentManagement::policyText() const
{
    return m_policyText ? *m_policyText : QString();
}

bool ContentManagement::isPA_ImageExportImport(ft_t type, QString &format)
{
    for (const auto &image : kImageFormats)
        if (image.type == type) {
            format = QString::fromLatin1(image.format);
            return true;
        }
    return false;
}

bool ContentManagement::readSettingsXml(QIODevice &device, QSettings::SettingsMap &map)
{
    QSettings::SettingsMap read;
    const bool ok = readPolicy(
        device, [&](const QString &key, const QString &value) { read.insert(key, value); },
        [&] { read.clear(); });
    if (ok)
        map.swap(read);
    else
        map.clear();
    return ok;
}

bool ContentManagement::readSettingsXml(QIODevice &device, QSettings *settings)
{
    if (settings == nullptr)
        return false;
    bool rootOpened = false;
    const bool ok = readPolicy(
        device, [&](const QString &key, const QString &value) { settings->setValue(key, value); },
        [&] {
            settings->clear();
            rootOpened = true;
        });
    // A document that breaks off after its root opened must not leave half a
    // policy behind: a caller ignoring the result would apply it.
    if (!ok && rootOpened)
        settings->clear();
    return ok;
}

bool ContentManagement::writeSettingsXml(QIODevice &device, const QSettings::SettingsMap &map)
{
    XmlNode root(rootElementName(), nullptr);
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        XmlNode *node = &root;
        const QStringList parts = settingsKey(it.key()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        for (const QString &part : parts) {
            XmlNode *next = nullptr;
            for (QObject *child : node->children()) {
                auto *candidate = static_cast<XmlNode *>(child);
                if (candidate->name.compare(part, Qt::CaseInsensitive) == 0) {
                    next = candidate;
                    break;
                }
            }
            node = next != nullptr ? next : new XmlNode(part, node);
        }
        node->value = it.value().toString();
    }

    QXmlStreamWriter writer(&device);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(-1); // one tab per level
    writer.writeStartDocument();
    // Depth first with a stack: children are pushed in creation order and so
    // come out last first. A null entry closes the element opened before it.
    QVector<const XmlNode *> stack{&root};
    while (!stack.isEmpty()) {
        const XmlNode *node = stack.takeLast();
        if (node == nullptr) {
            writer.writeEndElement();
            continue;
        }
        writer.writeStartElement(node->name);
        const QObjectList &children = node->children();
        if (children.isEmpty()) {
            writer.writeCharacters(node->value);
            writer.writeEndElement();
            continue;
        }
        stack.append(nullptr);
        for (const QObject *child : children)
            stack.append(static_cast<const XmlNode *>(child));
    }
    writer.writeEndDocument();
    return true;
}

// --- switch readers --------------------------------------------------------------------

#define VX_DEFINE_SWITCH_READER(name)                                                              \
    eVxContentManagementSetting getManageType_##name(eVxConfigType profile, ContentManagement &policy) \
    {                                                                                              \
        return policy.getSetting(ContentManagement::getProfileName(profile), QStringLiteral(#name)); \
    }
VX_CONTENT_SWITCHES(VX_DEFINE_SWITCH_READER)
#undef VX_DEFINE_SWITCH_READER

const ContentSwitch *contentSwitches(size_t *count)
{
#define VX_SWITCH_ENTRY(name) {#name, &getManageType_##name},
    static const ContentSwitch all[] = {VX_CONTENT_SWITCHES(VX_SWITCH_ENTRY)};
#undef VX_SWITCH_ENTRY
    if (count != nullptr)
        *count = std::size(all);
    return all;
}
