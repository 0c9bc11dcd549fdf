#include "ooxml_writer.h"

#include "ooxml_package.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"

#include <QHash>
#include <QSet>
#include <QUrl>
#include <QXmlStreamWriter>

#include <limits>

namespace Ooxml {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

bool kept(const OoxmlPart &part)
{
    return part.m_disposition == dispKeep || part.m_disposition == dispEmptied;
}

QString outputContentType(const OoxmlPart &part)
{
    return part.m_outputContentType.isEmpty() ? part.m_contentType : part.m_outputContentType;
}

// The content-type list of the parts written: the original defaults that a
// written part still uses (a default nothing uses would name content that is
// gone), one for relationship parts, and overrides for every part no
// default covers.
QByteArray contentTypesOf(const OoxmlPackage &root)
{
    QHash<QString, QString> defaultOf;
    QList<QPair<QString, QString>> originalDefaults;
    defaultsOf(root).forEach([&](const OoxmlDefault &entry) {
        defaultOf.insert(entry.m_extension.toLower(), entry.m_contentType);
        originalDefaults.append({entry.m_extension, entry.m_contentType});
    });
    QSet<QString> used;
    QList<QPair<QString, QString>> overrides;
    partsOf(root).forEach([&](const OoxmlPart &part) {
        if (!kept(part))
            return;
        const QString extension = extensionOf(part.m_name).toLower();
        const QString type = outputContentType(part);
        const auto found = defaultOf.constFind(extension);
        if (found != defaultOf.constEnd() && found->compare(type, Qt::CaseInsensitive) == 0)
            used.insert(extension);
        else
            overrides.append({QLatin1Char('/') + part.m_name, type});
    });
    QList<QPair<QString, QString>> defaults{{QStringLiteral("rels"), kRelationshipsContentType}};
    for (const auto &entry : qAsConst(originalDefaults)) {
        const QString extension = entry.first.toLower();
        if (used.contains(extension) && extension != QLatin1String("rels"))
            defaults.append(entry);
    }
    return contentTypesXml(defaults, overrides);
}

} // namespace

QByteArray contentTypesXml(const QList<QPair<QString, QString>> &defaults,
                           const QList<QPair<QString, QString>> &overrides)
{
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    writer.writeStartDocument(QStringLiteral("1.0"), true);
    writer.writeStartElement(QStringLiteral("Types"));
    writer.writeAttribute(QStringLiteral("xmlns"), kContentTypesNamespace);
    for (const auto &[extension, type] : defaults) {
        writer.writeEmptyElement(QStringLiteral("Default"));
        writer.writeAttribute(QStringLiteral("Extension"), extension);
        writer.writeAttribute(QStringLiteral("ContentType"), type);
    }
    for (const auto &[name, type] : overrides) {
        writer.writeEmptyElement(QStringLiteral("Override"));
        // Part names are URIs: characters outside them are percent-encoded.
        writer.writeAttribute(QStringLiteral("PartName"),
                              QString::fromLatin1(QUrl::toPercentEncoding(name, "/!$&'()*+,;=:@-._~")));
        writer.writeAttribute(QStringLiteral("ContentType"), type);
    }
    writer.writeEndElement();
    writer.writeEndDocument();
    return xml;
}

QByteArray relationshipsXml(const QList<const OoxmlRelationship *> &relationships)
{
    QByteArray xml;
    QXmlStreamWriter writer(&xml);
    writer.writeStartDocument(QStringLiteral("1.0"), true);
    writer.writeStartElement(QStringLiteral("Relationships"));
    writer.writeAttribute(QStringLiteral("xmlns"), kRelationshipsNamespace);
    for (const OoxmlRelationship *relationship : relationships) {
        writer.writeEmptyElement(QStringLiteral("Relationship"));
        writer.writeAttribute(QStringLiteral("Id"), relationship->m_id);
        writer.writeAttribute(QStringLiteral("Type"), relationship->m_type);
        writer.writeAttribute(QStringLiteral("Target"), relationship->m_target);
        if (!relationship->m_targetMode.isEmpty())
            writer.writeAttribute(QStringLiteral("TargetMode"), relationship->m_targetMode);
    }
    writer.writeEndElement();
    writer.writeEndDocument();
    return xml;
}

bool writePackage(const OoxmlPackage &root, MemoryBuffer &output)
{
    QHash<QString, QList<const OoxmlRelationship *>> relationshipsFrom;
    relationshipsOf(root).forEach([&](const OoxmlRelationship &relationship) {
        if (relationship.m_disposition == dispKeep)
            relationshipsFrom[partKey(relationship.m_source)].append(&relationship);
    });

    qint64 estimate = 0;
    partsOf(root).forEach([&](const OoxmlPart &part) { estimate += static_cast<qint64>(part.dataSize()); });
    ZipUtils::Zip zip;
    // The output is usually smaller than the parts it holds; a guess, no limit.
    if (!zip.open(static_cast<int>(std::min<qint64>(estimate / 2, std::numeric_limits<int>::max() / 2))))
        return false;
    bool written = zip.addEntry(kContentTypesName, contentTypesOf(root));
    const auto packageRelationships = relationshipsFrom.constFind(QString());
    if (packageRelationships != relationshipsFrom.constEnd())
        written = written && zip.addEntry(relationshipsPartName(QString()), relationshipsXml(*packageRelationships));
    partsOf(root).forEach([&](const OoxmlPart &part) {
        if (!written || !kept(part))
            return;
        QByteArray bytes;
        if (part.m_disposition == dispEmptied)
            bytes = emptyContentOf(part.m_contentType);
        else if (part.m_data != nullptr)
            bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(part.m_data->data()),
                                            static_cast<int>(part.m_data->size()));
        written = zip.addEntry(part.m_name, bytes);
        const auto relationships = relationshipsFrom.constFind(partKey(part.m_name));
        if (written && relationships != relationshipsFrom.constEnd())
            written = zip.addEntry(relationshipsPartName(part.m_name), relationshipsXml(*relationships));
    });
    return written && zip.copyZipFileToBuffer(&output);
}

cameraStatus_t OoxmlPackage::vir_writeToBuffer(context *ctx)
{
    // The check comes first: a package never validated is reported even
    // when there would be nothing to write.
    if (!ucpNodeOkToWrite(this))
        return 0;
    MemoryBuffer *const output = ctx ? ctx->m_outputBuffer : nullptr;
    if (output == nullptr)
        return 0;
    return writePackage(*this, *output) ? cameraStatus_Success : cameraStatus_Fail;
}

} // namespace Ooxml
