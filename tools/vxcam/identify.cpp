#include "command.h"
#include "inputs.h"
#include "reporter.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/filetype.h"

#include <QFileInfo>
#include <QJsonObject>

namespace {

// What is known about one file.
struct Identification
{
    QString path;
    QString extension;
    ft_t extensionType = ft_unknown;
    QString description;
    eCameraId_t cameraId = eCameraId_Default;
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

QJsonObject toJson(const Identification &id)
{
    return QJsonObject{
        {QStringLiteral("path"), id.path},
        {QStringLiteral("extension"), id.extension},
        {QStringLiteral("extension_type"), id.extensionType},
        {QStringLiteral("extension_type_name"), QString::fromLatin1(fileTypeName(id.extensionType))},
        {QStringLiteral("description"), id.description},
        {QStringLiteral("camera_id"), id.cameraId},
    };
}

QString toLine(const Identification &id)
{
    QString line = QStringLiteral("%1: extension type %2 (%3)")
                       .arg(id.path)
                       .arg(id.extensionType)
                       .arg(QString::fromLatin1(fileTypeName(id.extensionType)));
    if (!id.description.isEmpty())
        line += QStringLiteral(" \"%1\"").arg(id.description);
    line += QStringLiteral(", camera %1").arg(id.cameraId);
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
            const Identification id = identifyByExtension(registry, path);
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
