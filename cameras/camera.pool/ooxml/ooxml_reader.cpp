#include "ooxml_reader.h"

#include "ooxml_package.h"
#include "ooxml_validation.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"

#include <QHash>
#include <QSet>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>
#include <functional>

namespace Ooxml {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

bool fail(ReadFault &fault, OoxmlFault what, const QString &detail)
{
    fault.fault = what;
    fault.detail = detail;
    return false;
}

// Walks the children of the document element, which must be `rootName` in
// `ns`; deeper elements are skipped. A DTD is refused: package XML has no
// use for one, and entities are how a small part expands without bound.
bool walkPackageXml(const QByteArray &xml, const QString &rootName, const QString &ns,
                    const std::function<bool(QXmlStreamReader &)> &child, QString &problem)
{
    QXmlStreamReader reader(xml);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::DTD:
            problem = QStringLiteral("document type declaration");
            return false;
        case QXmlStreamReader::EntityReference:
            problem = QStringLiteral("entity reference");
            return false;
        case QXmlStreamReader::StartElement:
            ++depth;
            if (depth == 1 && (reader.name() != rootName || reader.namespaceUri() != ns)) {
                problem = QStringLiteral("root element %1 is not %2").arg(reader.qualifiedName().toString(), rootName);
                return false;
            }
            if (depth == 2 && !child(reader)) {
                if (problem.isEmpty())
                    problem = QStringLiteral("element %1 at line %2")
                                  .arg(reader.name().toString())
                                  .arg(reader.lineNumber());
                return false;
            }
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        default:
            break;
        }
    }
    if (reader.hasError()) {
        problem = QStringLiteral("%1 at line %2").arg(reader.errorString()).arg(reader.lineNumber());
        return false;
    }
    if (depth != 0 || reader.tokenType() == QXmlStreamReader::Invalid) {
        problem = QStringLiteral("no %1 element").arg(rootName);
        return false;
    }
    return true;
}

bool attributes(const QXmlStreamReader &reader, std::initializer_list<std::pair<const char *, QString *>> wanted)
{
    const QXmlStreamAttributes all = reader.attributes();
    for (const auto &[name, value] : wanted) {
        if (!all.hasAttribute(QLatin1String(name)))
            return false;
        *value = all.value(QLatin1String(name)).toString();
    }
    return true;
}

// Reads one member within the limits; `total` counts every byte read so
// far. The archive inflates no member beyond what the limits leave.
bool readMember(ZipUtils::Unzip &zip, const QString &name, qint64 limit, qint64 totalLimit, qint64 &total,
                QByteArray &bytes, ReadFault &fault)
{
    const QString tooMuch = QStringLiteral("more than %1 bytes of parts").arg(totalLimit);
    if (total >= totalLimit)
        return fail(fault, faultTooLarge, tooMuch);
    zip.setMemberLimit(std::min(limit, totalLimit - total));
    if (!zip.getEntryData(name, bytes)) {
        if (zip.lastEntryError() != ZipUtils::EntryError::TooLarge)
            return fail(fault, faultDamagedPart, name);
        if (zip.memberLimit() < limit)
            return fail(fault, faultTooLarge, tooMuch);
        return fail(fault, faultPartTooLarge, QStringLiteral("%1 (more than %2 bytes)").arg(name).arg(limit));
    }
    total += bytes.size();
    return true;
}

} // namespace

bool parseContentTypes(const QByteArray &xml, OoxmlPackage &root, QHash<QString, QString> &overrides,
                       ReadFault &fault)
{
    QSet<QString> extensions;
    QString problem;
    bool duplicate = false;
    const bool parsed = walkPackageXml(xml, QStringLiteral("Types"), kContentTypesNamespace,
                                       [&](QXmlStreamReader &reader) {
        QString contentType;
        if (reader.name() == QLatin1String("Default")) {
            QString extension;
            if (!attributes(reader, {{"Extension", &extension}, {"ContentType", &contentType}}))
                return false;
            const QString key = extension.toLower();
            if (extensions.contains(key)) {
                duplicate = true;
                problem = QStringLiteral("Default for the extension %1").arg(extension);
                return false;
            }
            extensions.insert(key);
            OoxmlDefault *entry = root.addDefault();
            entry->m_extension = extension;
            entry->m_contentType = contentType;
        } else if (reader.name() == QLatin1String("Override")) {
            QString partName;
            if (!attributes(reader, {{"PartName", &partName}, {"ContentType", &contentType}}))
                return false;
            QString name = QUrl::fromPercentEncoding(partName.toUtf8());
            if (name.startsWith(QLatin1Char('/')))
                name.remove(0, 1);
            const QString key = partKey(name);
            if (overrides.contains(key)) {
                duplicate = true;
                problem = QStringLiteral("Override for %1").arg(partName);
                return false;
            }
            overrides.insert(key, contentType);
        }
        return true;
    }, problem);
    if (!parsed)
        return fail(fault, duplicate ? faultDuplicateContentType : faultBadContentTypes, problem);
    return true;
}

bool parseRelationships(const QByteArray &xml, const QString &source, OoxmlPackage &root, ReadFault &fault,
                        int limit)
{
    QString problem;
    int count = root.m_relationships ? static_cast<int>(root.m_relationships->size()) : 0;
    const bool parsed = walkPackageXml(xml, QStringLiteral("Relationships"), kRelationshipsNamespace,
                                       [&](QXmlStreamReader &reader) {
        if (reader.name() != QLatin1String("Relationship"))
            return true;
        if (++count > limit) {
            problem = QStringLiteral("more than %1 relationships").arg(limit);
            return false;
        }
        QString id, type, target;
        if (!attributes(reader, {{"Id", &id}, {"Type", &type}, {"Target", &target}}))
            return false;
        OoxmlRelationship *relationship = root.addRelationship();
        relationship->m_source = source;
        relationship->m_id = id;
        relationship->m_type = type;
        relationship->m_target = target;
        relationship->m_targetMode = reader.attributes().value(QLatin1String("TargetMode")).toString();
        return true;
    }, problem);
    if (!parsed)
        return fail(fault, faultBadRelationships,
                    QStringLiteral("%1: %2").arg(relationshipsPartName(source), problem));
    return true;
}

bool readPackage(const MemoryBuffer &input, OoxmlPackage &root, ReadFault &fault, const ReadLimits &limits)
{
    root.clear();
    if (input.sizeOfMB() > static_cast<size_t>(limits.packageSize))
        return fail(fault, faultTooLarge,
                    QStringLiteral("%1 bytes; the limit is %2").arg(input.sizeOfMB()).arg(limits.packageSize));
    ZipUtils::Unzip zip;
    if (!zip.openInPlace(&input))
        return fail(fault, faultNotZip, QStringLiteral("the package cannot be opened as a zip archive"));
    const QList<QString> duplicates = zip.getDuplicateNames();
    if (!duplicates.isEmpty())
        return fail(fault, duplicates.contains(kContentTypesName) ? faultDuplicateContentType : faultDuplicatePart,
                    duplicates.join(QStringLiteral(", ")));
    const QList<QString> names = zip.getFilenames();
    const int members = names.size() + zip.getFolders().size();
    if (members > limits.members)
        return fail(fault, faultTooManyParts,
                    QStringLiteral("%1 members; the limit is %2").arg(members).arg(limits.members));

    QHash<QString, QString> overrides;
    bool haveContentTypes = false;
    qint64 total = 0;
    QByteArray bytes;
    for (const QString &name : names) {
        QString source;
        if (partKey(name) == partKey(kContentTypesName)) {
            if (haveContentTypes)
                return fail(fault, faultDuplicateContentType, QStringLiteral("a second %1").arg(name));
            haveContentTypes = true;
            if (!readMember(zip, name, limits.xmlPartSize, limits.totalSize, total, bytes, fault)
                || !parseContentTypes(bytes, root, overrides, fault))
                return false;
        } else if (isRelationshipsPart(name, &source)) {
            if (!readMember(zip, name, limits.xmlPartSize, limits.totalSize, total, bytes, fault)
                || !parseRelationships(bytes, source, root, fault, limits.relationships))
                return false;
        } else {
            if (!readMember(zip, name, limits.partSize, limits.totalSize, total, bytes, fault))
                return false;
            OoxmlPart *part = root.addPart();
            part->m_name = name;
            part->m_partSize = static_cast<uint32_t>(bytes.size());
            if (!bytes.isEmpty())
                part->m_data = new BDDScalarArray<vtUCharArray>(bytes.constBegin(), bytes.constEnd());
        }
    }
    if (!haveContentTypes)
        return fail(fault, faultNoContentTypes, kContentTypesName);

    QHash<QString, QString> defaults;
    defaultsOf(root).forEach(
        [&](const OoxmlDefault &entry) { defaults.insert(entry.m_extension.toLower(), entry.m_contentType); });
    partsOf(root).forEach([&](OoxmlPart &part) {
        const QString key = partKey(part.m_name);
        part.m_contentType = overrides.contains(key) ? overrides.value(key)
                                                     : defaults.value(extensionOf(part.m_name).toLower());
    });
    root.m_position = 0;
    root.m_size = static_cast<uint32_t>(input.sizeOfMB());
    if (const DocumentKind *kind = mainDocumentKind(root)) {
        root.setFiletype(kind->family);
        root.setDoctype(QLatin1String(kind->extension));
    }
    return true;
}

cameraStatus_t OoxmlPackage::vir_readFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent)
{
    initialBeforeReadFromBuffer(ctx, root, parent);
    m_readFlags &= static_cast<uint16_t>(~readFailed);
    ReadFault fault;
    bool read = false;
    try {
        MemoryBuffer *const input = ctx ? ctx->m_inputBuffer : nullptr;
        if (input == nullptr || input->sizeOfMB() == 0)
            fault.detail = QStringLiteral("no bytes to read");
        else
            read = readPackage(*input, *this, fault);
    } catch (const std::bad_alloc &) {
        fault = ReadFault{faultTooLarge, QStringLiteral("out of memory")};
    }
    if (!read) {
        // A package read in part is no package: nothing of it is kept.
        clear();
        m_readFlags |= readFailed;
        reportFault(this, fault.fault, fault.detail);
    }
    return 0;
}

} // namespace Ooxml
