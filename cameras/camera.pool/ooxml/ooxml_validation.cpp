#include "ooxml_validation.h"

#include "analysis/RepositoryComponents.h"
#include "policy/ContentManagement.h"
#include "ucp_engine/BDDValidationFuncs.h"
#include "ucp_engine/id_determination.h"

#include <QHash>
#include <QSet>

#include <stdexcept>

namespace Ooxml {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

// The tree's parts and relationships, found by name and by source.
class PackageIndex
{
public:
    explicit PackageIndex(const OoxmlPackage &root)
    {
        partsOf(root).forEach([this](OoxmlPart &part) {
            m_partList << &part;
            m_parts.insert(partKey(part.m_name), &part); // a duplicate is a fault; the last one is indexed
        });
        relationshipsOf(root).forEach([this](OoxmlRelationship &relationship) {
            m_relationshipList << &relationship;
            m_from[partKey(relationship.m_source)] << &relationship;
            if (isExternalMode(relationship.m_targetMode))
                return;
            const ResolvedTarget target = resolveTarget(relationship.m_source, relationship.m_target);
            if (target.outcome != ResolvedTarget::Part)
                return;
            if (OoxmlPart *part = m_parts.value(partKey(target.name))) {
                m_targets.insert(&relationship, part);
                m_incoming[part] << shortType(relationship.m_type);
            }
        });
    }

    const QVector<OoxmlPart *> &parts() const { return m_partList; }
    const QVector<OoxmlRelationship *> &relationships() const { return m_relationshipList; }
    OoxmlPart *part(const QString &name) const { return m_parts.value(partKey(name)); }
    // The part an internal relationship leads to; null when there is none.
    OoxmlPart *target(const OoxmlRelationship *relationship) const { return m_targets.value(relationship); }
    QVector<OoxmlRelationship *> from(const QString &source) const { return m_from.value(partKey(source)); }
    QStringList incomingTypes(const OoxmlPart *part) const { return m_incoming.value(part); }

private:
    QVector<OoxmlPart *> m_partList;
    QVector<OoxmlRelationship *> m_relationshipList;
    QHash<QString, OoxmlPart *> m_parts;
    QHash<const OoxmlRelationship *, OoxmlPart *> m_targets;
    QHash<QString, QVector<OoxmlRelationship *>> m_from;
    QHash<const OoxmlPart *, QStringList> m_incoming;
};

// A part the writer writes: kept as it is, or emptied.
bool kept(const OoxmlPart *part)
{
    return part != nullptr && (part->m_disposition == dispKeep || part->m_disposition == dispEmptied);
}

// A part whose relationships are written: an emptied part has none left.
bool keptWhole(const OoxmlPart *part)
{
    return part != nullptr && part->m_disposition == dispKeep;
}

// Where a relationship stands, for messages.
QString sourceName(const OoxmlRelationship &relationship)
{
    return relationship.m_source.isEmpty() ? QStringLiteral("the package") : relationship.m_source;
}

bool kept(const OoxmlRelationship *relationship)
{
    return relationship->m_disposition == dispKeep;
}

// The parts reached from the package through kept relationships.
QSet<const OoxmlPart *> reachableParts(const PackageIndex &index)
{
    QSet<const OoxmlPart *> reached;
    QVector<QString> pending{QString()};
    while (!pending.isEmpty()) {
        const QString source = pending.takeLast();
        for (const OoxmlRelationship *relationship : index.from(source)) {
            const OoxmlPart *target = index.target(relationship);
            if (!kept(relationship) || !kept(target) || reached.contains(target))
                continue;
            reached.insert(target);
            if (keptWhole(target))
                pending << target->m_name;
        }
    }
    return reached;
}

// What goes when content goes: the relationships from and to removed
// parts, and the parts only they led to.
void removeDependents(const PackageIndex &index)
{
    const QSet<const OoxmlPart *> reached = reachableParts(index);
    for (OoxmlPart *part : index.parts())
        if (kept(part) && !reached.contains(part))
            part->m_disposition = dispRemoved;
    for (OoxmlRelationship *relationship : index.relationships()) {
        if (!kept(relationship))
            continue;
        const bool fromRemoved = !relationship->m_source.isEmpty() && !keptWhole(index.part(relationship->m_source));
        const bool toRemoved = !isExternalMode(relationship->m_targetMode) && !kept(index.target(relationship));
        if (fromRemoved || toRemoved)
            relationship->m_disposition = dispRemoved;
    }
}

// One content switch: the policy reader, the action that records a finding
// as the setting says, and the item it is reported under.
struct Switch
{
    ContentKind kind;
    ContentSwitchReader read;
    unsigned int (*report)(BDDLStructBase *node, unsigned int item, const char *name);
    OoxmlAnalysisItem item;
};
const Switch kSwitches[] = {
    {kindMacros, getManageType_macros, MACRO_REPORT_ONLY, itemMacros},
    {kindEmbeddedFiles, getManageType_embedded_files, EMBEDDED_REPORT_ONLY, itemEmbeddedFiles},
    {kindExternalLinks, getManageType_external_hyperlinks, EXTERNAL_HYPERLINK_REPORT_ONLY, itemExternalLinks},
    {kindMetadata, getManageType_metadata, META_REPORT_ONLY, itemMetadata},
    {kindReviewComments, getManageType_review_comments, REVIEW_COMMENT_REPORT_ONLY, itemReviewComments},
    {kindImages, getManageType_embedded_images, EMBEDDED_IMAGE_REPORT_ONLY, itemEmbeddedImages},
};

// Applies the policy to one package, switch by switch.
class PolicyRun
{
public:
    PolicyRun(OoxmlPackage &root, const PackageIndex &index) : m_root(root), m_index(index) {}

    void apply(const Switch &sw)
    {
        m_setting = cmsUnknown;
        m_read = false;
        if (sw.kind == kindExternalLinks) {
            for (OoxmlRelationship *relationship : m_index.relationships())
                if (kept(relationship) && isExternalMode(relationship->m_targetMode))
                    externalLink(sw, *relationship);
        } else {
            if (sw.kind == kindMacros)
                macroEnabledType(sw);
            for (OoxmlPart *part : m_index.parts())
                if (keptWhole(part) && kindOf(*part) == sw.kind)
                    sw.kind == kindImages ? image(sw, *part) : content(sw, *part);
        }
        removeDependents(m_index);
    }

private:
    ContentKind kindOf(const OoxmlPart &part) const
    {
        return kindOfPart(part.m_contentType, part.m_name, m_index.incomingTypes(&part));
    }

    // The setting is read when the switch first has something to say, so a
    // clean package needs no policy at all.
    eVxContentManagementSetting setting(const Switch &sw)
    {
        if (!m_read) {
            m_setting = sw.read(getConfigApp(&m_root), m_root.contentManagementObject());
            m_read = true;
        }
        return m_setting;
    }

    // Records the finding as the setting says (an unknown setting throws)
    // and tells whether it is to go.
    bool record(const Switch &sw, const QString &name)
    {
        const eVxContentManagementSetting s = setting(sw);
        sw.report(&m_root, sw.item, reportName(name).c_str());
        return s == cmsSanitise;
    }

    void content(const Switch &sw, OoxmlPart &part)
    {
        if (record(sw, part.m_name))
            part.m_disposition = emptyContentOf(part.m_contentType).isEmpty() ? dispRemoved : dispEmptied;
    }

    void externalLink(const Switch &sw, OoxmlRelationship &relationship)
    {
        if (record(sw, QStringLiteral("%1 (from %2)").arg(relationship.m_target, sourceName(relationship))))
            relationship.m_disposition = dispRemoved;
    }

    // The main part's content type allows macros whether or not any are
    // there; sanitised, the package becomes its macro-free kind.
    void macroEnabledType(const Switch &sw)
    {
        OoxmlPart *main = nullptr;
        const DocumentKind *kind = mainDocumentKind(m_root, &main);
        if (kind == nullptr || kind->macroFree == nullptr)
            return;
        if (!record(sw, main->m_name + QStringLiteral(" (macro-enabled document type)")))
            return;
        const DocumentKind *macroFree = documentKindByExtension(QLatin1String(kind->macroFree));
        main->m_outputContentType = QLatin1String(macroFree->contentType);
        m_root.setDoctype(QLatin1String(macroFree->extension));
    }

    // Sanitised images go to the image camera of their format; an image it
    // cannot clean (no camera for the format, a failing camera, an output
    // larger than the image) is removed with everything that refers to it.
    void image(const Switch &sw, OoxmlPart &part)
    {
        if (setting(sw) == cmsSanitise) {
            cameraStatus_t status = cameraStatus_Fail;
            if (part.m_data != nullptr)
                status = imageCameraGateway(part.m_data, imageFileType(part.m_contentType), &part, 0, &m_root,
                                            sw.item);
            if (status != cameraStatus_Success)
                part.m_disposition = dispRemoved;
        }
        record(sw, part.m_name);
    }

    OoxmlPackage &m_root;
    const PackageIndex &m_index;
    eVxContentManagementSetting m_setting = cmsUnknown;
    bool m_read = false;
};

void reset(const PackageIndex &index)
{
    for (OoxmlPart *part : index.parts()) {
        part->m_disposition = dispKeep;
        part->m_outputContentType.clear();
    }
    for (OoxmlRelationship *relationship : index.relationships())
        relationship->m_disposition = dispKeep;
}

// Broken but harmless: relationships whose target part is missing, and
// parts no relationship leads to, are left out and reported.
void dropBroken(OoxmlPackage &root, const PackageIndex &index)
{
    for (OoxmlRelationship *relationship : index.relationships()) {
        if (isExternalMode(relationship->m_targetMode) || index.target(relationship) != nullptr)
            continue;
        relationship->m_disposition = dispDropped;
        reportFault(&root, faultTargetMissing,
                    QStringLiteral("%1 (%2 of %3)")
                        .arg(relationship->m_target, relationship->m_id, sourceName(*relationship)));
    }
    const QSet<const OoxmlPart *> reached = reachableParts(index);
    for (OoxmlPart *part : index.parts()) {
        if (reached.contains(part))
            continue;
        part->m_disposition = dispDropped;
        reportFault(&root, faultUnreferencedPart, part->m_name);
    }
    removeDependents(index);
}

// The parts as content of the package's statistics group, one record per
// content type.
void recordInventory(OoxmlPackage &root, const PackageIndex &index)
{
    const short group = static_cast<short>(getAnalysisStatsID(&root));
    for (const OoxmlPart *part : index.parts())
        vx_analyse_group(&root, group, reportName(part->m_contentType).c_str(), part->dataSize());
    const context *ctx = root.getContext();
    if (ctx != nullptr && ctx->m_analysis != nullptr)
        ctx->m_analysis->VXAnalyseSchemaFile(root.getDoctype().toStdString(), "Office Open XML", root.m_size);
}

cameraStatus_t validatePackage(OoxmlPackage &root)
{
    const PackageIndex index(root);
    reset(index);

    int more = 0;
    const QVector<PackageFault> faults = structuralFaults(root, 20, &more);
    if (!faults.isEmpty()) {
        for (const PackageFault &fault : faults)
            reportFault(&root, fault.fault, fault.detail);
        if (more > 0)
            reportFault(&root, faults.last().fault, QStringLiteral("and %1 more faults").arg(more));
        root.m_cameraStatus = cameraStatus_Fatal;
        return cameraStatus_Fatal;
    }
    const DocumentKind *kind = mainDocumentKind(root);
    root.setFiletype(kind->family);
    root.setDoctype(QLatin1String(kind->extension));

    recordInventory(root, index);
    dropBroken(root, index);
    PolicyRun policy(root, index);
    for (const Switch &sw : kSwitches)
        policy.apply(sw);
    return root.m_cameraStatus;
}

} // namespace

const DocumentKind *mainDocumentKind(const OoxmlPackage &root, OoxmlPart **mainPart)
{
    if (mainPart != nullptr)
        *mainPart = nullptr;
    const OoxmlRelationship *main = nullptr;
    int count = 0;
    relationshipsOf(root).forEach([&](const OoxmlRelationship &relationship) {
        if (relationship.m_source.isEmpty() && isOfficeDocumentType(relationship.m_type)
            && !isExternalMode(relationship.m_targetMode)) {
            main = &relationship;
            ++count;
        }
    });
    if (count != 1)
        return nullptr;
    const ResolvedTarget target = resolveTarget(QString(), main->m_target);
    if (target.outcome != ResolvedTarget::Part)
        return nullptr;
    OoxmlPart *found = nullptr;
    partsOf(root).forEach([&](OoxmlPart &part) {
        if (found == nullptr && partKey(part.m_name) == partKey(target.name))
            found = &part;
    });
    const DocumentKind *kind = found ? documentKindOf(found->m_contentType) : nullptr;
    if (kind != nullptr && mainPart != nullptr)
        *mainPart = found;
    return kind;
}

QVector<PackageFault> structuralFaults(const OoxmlPackage &root, int limit, int *more)
{
    QVector<PackageFault> faults;
    int extra = 0;
    const auto add = [&](OoxmlFault fault, const QString &detail) {
        if (faults.size() < limit)
            faults.append({fault, detail});
        else
            ++extra;
    };

    const int partCount = root.m_parts ? static_cast<int>(root.m_parts->size()) : 0;
    const int relationshipCount = root.m_relationships ? static_cast<int>(root.m_relationships->size()) : 0;
    if (partCount > kMaxMembers)
        add(faultTooManyParts, QStringLiteral("%1 parts; the limit is %2").arg(partCount).arg(kMaxMembers));
    if (relationshipCount > kMaxRelationships)
        add(faultBadRelationships,
            QStringLiteral("%1 relationships; the limit is %2").arg(relationshipCount).arg(kMaxRelationships));
    if (!faults.isEmpty()) {
        if (more != nullptr)
            *more = extra;
        return faults; // not worth looking at closer
    }

    QSet<QString> names;
    qint64 total = 0;
    partsOf(root).forEach([&](const OoxmlPart &part) {
        const QString fault = partNameFault(part.m_name);
        if (!fault.isEmpty())
            add(faultBadPartName, QStringLiteral("%1: %2").arg(reportName(part.m_name).c_str(), fault));
        else if (isRelationshipsPart(part.m_name, nullptr) || partKey(part.m_name) == partKey(kContentTypesName))
            add(faultBadPartName, QStringLiteral("%1 is not a part").arg(part.m_name));
        const QString key = partKey(part.m_name);
        if (names.contains(key))
            add(faultDuplicatePart, part.m_name);
        names.insert(key);
        if (part.m_contentType.isEmpty())
            add(faultNoContentType, part.m_name);
        const qint64 size = static_cast<qint64>(part.dataSize());
        total += size;
        if (size > kMaxPartSize)
            add(faultPartTooLarge, part.m_name);
    });
    if (total > kMaxTotalSize)
        add(faultTooLarge, QStringLiteral("more than %1 bytes of parts").arg(kMaxTotalSize));
    // A part name may not be the folder of another one ("a" and "a/b").
    for (const QString &key : qAsConst(names))
        for (int slash = key.indexOf(QLatin1Char('/')); slash > 0; slash = key.indexOf(QLatin1Char('/'), slash + 1))
            if (names.contains(key.left(slash)))
                add(faultBadPartName, QStringLiteral("%1 is both a part and a folder").arg(key.left(slash)));

    QSet<QString> ids;
    relationshipsOf(root).forEach([&](const OoxmlRelationship &relationship) {
        const QString &source = relationship.m_source;
        const QString where = sourceName(relationship);
        if (!source.isEmpty() && !names.contains(partKey(source)))
            add(faultOrphanRelationships, reportName(source).c_str());
        const QString id = partKey(source) + QLatin1Char('\n') + relationship.m_id;
        if (relationship.m_id.isEmpty() || ids.contains(id))
            add(faultBadRelationship,
                QStringLiteral("id '%1' of %2 missing or repeated").arg(relationship.m_id, where));
        ids.insert(id);
        if (relationship.m_type.isEmpty() || relationship.m_target.isEmpty())
            add(faultBadRelationship, QStringLiteral("%1 of %2 without type or target").arg(relationship.m_id, where));
        const QString &mode = relationship.m_targetMode;
        if (!mode.isEmpty() && mode.compare(kInternalMode, Qt::CaseInsensitive) != 0 && !isExternalMode(mode))
            add(faultBadRelationship, QStringLiteral("target mode '%1' of %2").arg(mode, where));
        if (!mode.isEmpty() && isExternalMode(mode))
            return;
        const ResolvedTarget target = resolveTarget(source, relationship.m_target);
        if (target.outcome == ResolvedTarget::Outside)
            add(faultTargetOutside, QStringLiteral("%1 (%2 of %3)").arg(reportName(relationship.m_target).c_str(),
                                                                        relationship.m_id, where));
        else if (target.outcome == ResolvedTarget::Invalid && !relationship.m_target.isEmpty())
            add(faultBadRelationship,
                QStringLiteral("target '%1' of %2").arg(reportName(relationship.m_target).c_str(), where));
    });

    if (faults.isEmpty() && mainDocumentKind(root) == nullptr)
        add(faultNoMainDocument, QStringLiteral("no officeDocument relationship to a Word, Excel or PowerPoint part"));
    if (more != nullptr)
        *more = extra;
    return faults;
}

cameraStatus_t OoxmlPackage::validate()
{
    try {
        return validatePackage(*this);
    } catch (const std::exception &e) {
        vx_issue(this, 464, "Validation Exception in: %s: %s", get_desc_string(), e.what());
    } catch (const char *text) {
        vx_issue(this, 464, "Validation Exception in: %s: %s", get_desc_string(), text);
    } catch (...) {
        vx_issue(this, 464, "Validation Exception in: %s", get_desc_string());
    }
    throw std::runtime_error(get_desc_string());
}

} // namespace Ooxml
