#include "policy/ContentManagement.h"

#include "buffers/IOMemoryBuffer.h"
#include "buffers/MemoryBuffer.h"

#include <QDebug>
#include <QFile>
#include <QHash>
#include <QPair>
#include <QRegularExpression>
#include <QTextStream>
#include <QVector>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <iterator>
#include <limits>
#include <vector>

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

// The settings format is registered once per process: Qt keeps a small,
// fixed number of custom format slots, and every policy object shares one.
QSettings::Format xmlSettingsFormat()
{
    static const QSettings::Format format =
        QSettings::registerFormat(QStringLiteral("xml"), &ContentManagement::readSettingsXml,
                                  &ContentManagement::writeSettingsXml, Qt::CaseSensitive);
    return format;
}

// Hands a device's bytes on to the XML reader until they hold more "=" than
// a policy can use. Every attribute needs one, and the reader compares each
// attribute of an element with all before it: without a bound, one element
// with 200 000 attributes takes minutes. A policy has no attributes; its
// declaration and the odd comment stay far below the bound. The reader takes
// a few kilobytes at a time, so it never sees the element that trips it whole.
class EqualSignBoundDevice final : public QIODevice
{
public:
    explicit EqualSignBoundDevice(QIODevice &source) : m_source(source) { open(ReadOnly | Unbuffered); }

    bool isSequential() const override { return true; }
    bool atEnd() const override { return m_exceeded || m_source.atEnd(); }
    bool exceeded() const { return m_exceeded; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (m_exceeded)
            return -1;
        const qint64 n = m_source.read(data, maxSize);
        if (n > 0) {
            m_equalSigns += std::count(data, data + n, '=');
            if (m_equalSigns > ContentManagement::maxEqualSigns) {
                m_exceeded = true;
                return -1;
            }
        }
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QIODevice &m_source;
    qint64 m_equalSigns = 0;
    bool m_exceeded = false;
};

// Encodings that write "=" as the byte 0x3D and nothing else as that byte
// (the UTFs with their zero bytes beside it), so counting bytes counts the
// signs. Others (EBCDIC, UTF-7) could hide attributes from the count.
bool countableEncoding(const QStringRef &name)
{
    static const QRegularExpression known(QStringLiteral("^(utf-(8|16|32)(le|be)?|us-ascii|iso-8859-[0-9]+)$"),
                                          QRegularExpression::CaseInsensitiveOption);
    return name.isEmpty() || known.match(name).hasMatch();
}

// The values a policy repeats for key after key ("allow", "sanitise"): a
// value equal to a recent one shares its text instead of holding a copy.
class RecentValues
{
public:
    QString take(const QStringRef &text)
    {
        for (const QString &recent : m_recent)
            if (recent == text)
                return recent;
        // A copy of its own, never the reader's buffer, which may be far
        // larger than the value and would stay alive with it.
        QString value(text.unicode(), text.size());
        m_recent[m_next] = value;
        m_next = (m_next + 1) % std::size(m_recent);
        return value;
    }

private:
    QString m_recent[4];
    size_t m_next = 0;
};

// Streams the policy document and hands every key (in its slash form) and
// value to store(); clear() is called when the root opens. Only the open
// elements have nodes: a closed one is done with, so memory stays in
// proportion to the keys, not to the document's elements.
template <typename Store, typename Clear>
bool readPolicy(QIODevice &device, Store store, Clear clear)
{
    EqualSignBoundDevice bounded(device);
    QXmlStreamReader reader(&bounded);
    RecentValues values;
    std::unique_ptr<XmlNode> root;
    XmlNode *open = nullptr;
    int depth = 0;
    const auto refuse = [&](const char *why) {
        qDebug("policy refused: %s", why);
        return false;
    };
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartDocument:
            if (!countableEncoding(reader.documentEncoding()))
                return refuse("unsupported encoding");
            break;
        case QXmlStreamReader::DTD:
            // Entities are declared here; a policy uses none.
            return refuse("document type declaration");
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
                open->value = values.take(reader.text());
                const QString key = settingsKey(open->fullPath());
                if (!key.isEmpty()) // text directly in the root names no key
                    store(key, open->value);
            }
            break;
        case QXmlStreamReader::EndElement:
            if (open == root.get())
                return true;
            if (open != nullptr) {
                const std::unique_ptr<XmlNode> closed(open);
                open = open->parentNode();
                --depth;
            }
            break;
        case QXmlStreamReader::Invalid:
            return bounded.exceeded() ? refuse("too many attributes") : false;
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

// --- stores ---------------------------------------------------------------------------

// Where a policy's keys live. Keys are looked up as a settings store looks
// them up: slashes and backslashes alike, empty parts ignored.
class PolicyStore
{
public:
    virtual ~PolicyStore() = default;
    virtual QString value(const QString &key) const = 0;
    virtual QStringList keys() const = 0;
    virtual QSettings::Status status() const = 0;
};

namespace {

// A policy file, through the registered settings format.
class SettingsFileStore final : public PolicyStore
{
public:
    SettingsFileStore(const QString &path, QSettings::Format format) : m_settings(path, format) {}

    QString value(const QString &key) const override { return m_settings.value(settingsKey(key)).toString(); }
    QStringList keys() const override { return m_settings.allKeys(); }
    QSettings::Status status() const override { return m_settings.status(); }

private:
    QSettings m_settings;
};

// A policy read from memory: its keys and nothing else, never on disk. The
// keys are one sorted array rather than a tree of nodes, which would take
// several times the document's size.
class MemoryStore final : public PolicyStore
{
public:
    explicit MemoryStore(QIODevice &device)
    {
        const bool read = readPolicy(
            device, [this](const QString &key, const QString &value) { m_entries.push_back({key, value}); },
            [this] { m_entries.clear(); });
        if (!read) {
            m_entries.clear();
            m_status = QSettings::FormatError;
        }
        // Sorted by key; of a key given twice, the later value counts.
        std::stable_sort(m_entries.begin(), m_entries.end(), keyLess);
        const auto last = std::unique(m_entries.rbegin(), m_entries.rend(),
                                      [](const Entry &a, const Entry &b) { return a.key == b.key; });
        m_entries.erase(m_entries.begin(), last.base());
        m_entries.shrink_to_fit();
    }

    QString value(const QString &key) const override
    {
        const Entry wanted{normalisedKey(key), QString()};
        const auto at = std::lower_bound(m_entries.begin(), m_entries.end(), wanted, keyLess);
        return at != m_entries.end() && at->key == wanted.key ? at->value : QString();
    }
    QStringList keys() const override
    {
        QStringList keys;
        keys.reserve(int(m_entries.size()));
        for (const Entry &entry : m_entries)
            keys.append(entry.key);
        return keys;
    }
    QSettings::Status status() const override { return m_status; }

private:
    struct Entry
    {
        QString key;
        QString value;
    };
    static bool keyLess(const Entry &a, const Entry &b) { return a.key < b.key; }
    // The key as the reader stores it: "a/b", whatever separators surround
    // or repeat between the parts.
    static QString normalisedKey(const QString &key)
    {
        return settingsKey(key).split(QLatin1Char('/'), Qt::SkipEmptyParts).join(QLatin1Char('/'));
    }

    std::vector<Entry> m_entries;
    QSettings::Status m_status = QSettings::NoError;
};

} // namespace

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
    m_store = std::make_unique<SettingsFileStore>(path, m_format);
    return 0;
}

unsigned int ContentManagement::loadRepositoryFromXML(MemoryBuffer *buffer)
{
    // A text of more than 2 GiB is no policy, and no string could hold it.
    if (buffer == nullptr || buffer->sizeOfMB() > size_t(std::numeric_limits<int>::max()))
        return static_cast<unsigned int>(-1);
    IOMemoryBuffer device(buffer);
    if (!device.open(QIODevice::ReadOnly))
        return static_cast<unsigned int>(-1);
    m_store = std::make_unique<MemoryStore>(device);
    // The policy text is the whole document, as for a policy file, so that a
    // policy loaded from memory can be exported again.
    m_policyText = std::make_unique<QString>(
        QString::fromUtf8(reinterpret_cast<const char *>(buffer->constData()), static_cast<int>(buffer->sizeOfMB())));
    return m_store->status() == QSettings::NoError ? 0 : static_cast<unsigned int>(-1);
}

unsigned int ContentManagement::exportRepositoryAsXML(MemoryBuffer *buffer)
{
    if (!m_policyText || buffer == nullptr)
        return static_cast<unsigned int>(-1);
    buffer->resizeBuffer(0, false); // empty, keeping the buffer's own byte order
    // Code points a block at a time: a large policy is not held a second time
    // as a whole array of them.
    const QString &text = *m_policyText;
    uint block[1024];
    size_t filled = 0;
    for (int i = 0; i < text.size(); ++i) {
        uint codePoint = text.at(i).unicode();
        if (QChar::isHighSurrogate(codePoint) && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            codePoint = QChar::surrogateToUcs4(text.at(i), text.at(i + 1));
            ++i;
        } else if (QChar::isSurrogate(codePoint)) {
            codePoint = QChar::ReplacementCharacter; // half a pair
        }
        block[filled++] = codePoint;
        if (filled == std::size(block) || i + 1 == text.size()) {
            buffer->putRawScalarArray(block, filled, MBNativeOrder);
            filled = 0;
        }
    }
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
    if (!m_store)
        return false;
    const auto valueOr = [this](const QString &key, const QString &fallback) {
        const QString value = m_store->value(key);
        return value.isNull() ? fallback : value;
    };
    pretty = QVariant(valueOr(kInterchangePrettyKey, QStringLiteral("false"))).toBool();
    const QString type = valueOr(kInterchangeTypeKey, QStringLiteral("sisl"));
    if (type == QLatin1String("sisl"))
        format = sfSISL;
    else if (type == QLatin1String("xml"))
        format = sfXML;
    return true;
}

eVxContentManagementSetting ContentManagement::getSetting(const QString &profile,
                                                          const QString &switchName)
{
    // A profile without a name has no keys, whatever the separators would make of it.
    if (!m_store || profile.isEmpty())
        return cmsSanitise;
    const QString text = m_store->value(profile + QLatin1Char('/') + switchName);
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
    return m_store ? m_store->keys() : QStringList();
}

QString ContentManagement::valueOf(const QString &key) const
{
    return m_store ? m_store->value(key) : QString();
}

QSettings::Status ContentManagement::status() const
{
    return m_store ? m_store->status() : QSettings::NoError;
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
    // Children by case-folded name, so that finding a group takes the same
    // time however many siblings it has.
    QHash<QPair<const XmlNode *, QString>, XmlNode *> children;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        XmlNode *node = &root;
        const QStringList parts = settingsKey(it.key()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        // Deeper than a policy can be read back (and than a tree of nodes is
        // safely torn down).
        if (parts.size() > kMaxDepth)
            return false;
        for (const QString &part : parts) {
            XmlNode *&child = children[qMakePair(static_cast<const XmlNode *>(node), part.toCaseFolded())];
            if (child == nullptr)
                child = new XmlNode(part, node);
            node = child;
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
