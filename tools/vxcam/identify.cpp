#include "cfb.h"
#include "command.h"
#include "inputs.h"
#include "reporter.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/filetype.h"
#include "fileidentification.h"

#include <QFileInfo>
#include <QJsonObject>

#include <cstring>

namespace {

// What is known about one file.
struct Identification
{
    QString path;
    QString extension;
    ft_t extensionType = ft_unknown;
    QString description;
    eCameraId_t cameraId = eCameraId_Default;
    ft_t type = ft_unknown;      // what the bytes say (archive kinds)
    QString method;              // how the bytes were recognised
    ft_t opcSubType = ft_unknown; // the kind of Office Open XML package
    ft_t cfbSubType = ft_unknown; // the kind of compound file
    QString cfbMethod;
};

// Extensions in the registry are lower case; a user's FILE.DOC means .doc.
Identification identifyByExtension(const FileType &registry, const QString &path)
{
    Identification id;
    id.path = path;
    id.extension = QFileInfo(path).suffix().toLower();
    const std::string extension = id.extension.toStdString();
    id.extensionType = registry.getFileTypeFromFileExtension(extension);
    if (const FileTypeIdentifier_t *row = registry.findExtension(extension))
        id.description = QString::fromStdString(row->description);
    id.cameraId = registry.getCameraIdFromFileTypeEnum(id.extensionType);
    return id;
}

// The dispatcher declines Office Open XML packages with "structure match";
// only then is the package's own kind worth asking for.
void identifyByContent(MemoryBuffer &buffer, Identification &id)
{
    const char *reason = nullptr;
    id.type = FileIdentifier::getFileTypeFromFileInMemory(&buffer, &reason);
    id.method = QString::fromLatin1(reason);
    if (id.type == ft_unknown && std::strcmp(reason, "structure match") == 0)
        id.opcSubType = FileType().determineOpcSubType(&buffer, nullptr);
    id.cfbSubType = compoundFileSubType(buffer, &id.cfbMethod);
}

QString typeName(ft_t type)
{
    return QString::fromLatin1(fileTypeName(type));
}

QJsonObject toJson(const Identification &id)
{
    return QJsonObject{
        {QStringLiteral("path"), id.path},
        {QStringLiteral("extension"), id.extension},
        {QStringLiteral("extension_type"), id.extensionType},
        {QStringLiteral("extension_type_name"), QString::fromLatin1(fileTypeName(id.extensionType))},
        {QStringLiteral("description"), id.description},
        {QStringLiteral("camera_id"), id.cameraId},
        {QStringLiteral("type"), id.type},
        {QStringLiteral("type_name"), typeName(id.type)},
        {QStringLiteral("method"), id.method},
        {QStringLiteral("opc_subtype"), id.opcSubType},
        {QStringLiteral("opc_subtype_name"), typeName(id.opcSubType)},
        {QStringLiteral("cfb_subtype"), id.cfbSubType},
        {QStringLiteral("cfb_subtype_name"), typeName(id.cfbSubType)},
        {QStringLiteral("cfb_method"), id.cfbMethod},
    };
}

QString toLine(const Identification &id)
{
    QString line = QStringLiteral("%1: extension type %2 (%3)")
                       .arg(id.path)
                       .arg(id.extensionType)
                       .arg(typeName(id.extensionType));
    if (!id.description.isEmpty())
        line += QStringLiteral(" \"%1\"").arg(id.description);
    line += QStringLiteral(", camera %1").arg(id.cameraId);
    line += QStringLiteral("; archive type %1 (%2): %3").arg(id.type).arg(typeName(id.type), id.method);
    if (id.opcSubType != ft_unknown)
        line += QStringLiteral("; Office Open XML %1 (%2)").arg(id.opcSubType).arg(typeName(id.opcSubType));
    if (id.cfbSubType != ft_unknown)
        line += QStringLiteral("; compound file %1 (%2): %3")
                    .arg(id.cfbSubType)
                    .arg(typeName(id.cfbSubType), id.cfbMethod);
    return line;
}

int runIdentify(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    if (context.args.isEmpty()) {
        reporter.error(QStringLiteral("identify"), QStringLiteral("no files given"));
        return 1;
    }
    const QStringList files = collectFiles(context.args, context.recursive, reporter);
    const FileType registry;
    MemoryBuffer buffer;

    reporter.beginBatch(files.size());
    for (const QString &path : files) {
        if (loadFile(path, buffer, reporter)) {
            Identification id = identifyByExtension(registry, path);
            identifyByContent(buffer, id);
            reporter.result(toJson(id), toLine(id));
        }
        reporter.advance(path);
    }
    reporter.endBatch();
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration({"identify", "identify [-r] FILE|DIR...",
                                     "tell what kind of file each one is", runIdentify});

} // namespace
