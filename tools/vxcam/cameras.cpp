#include "command.h"
#include "reporter.h"
#include "session.h"

#include "cameras/camera_pool.h"

#include <QDir>
#include <QJsonObject>

#include <memory>

namespace {

// One loaded camera plug-in.
struct CameraListing
{
    QString name;
    QString path;
    ft_t type = ft_unknown;
};

QJsonObject toJson(const CameraListing &camera)
{
    return QJsonObject{
        {QStringLiteral("plugin"), camera.name},
        {QStringLiteral("path"), camera.path},
        {QStringLiteral("type"), camera.type},
        {QStringLiteral("type_name"), QString::fromLatin1(fileTypeName(camera.type))},
    };
}

QString toLine(const CameraListing &camera)
{
    QString line = QStringLiteral("%1: type %2").arg(camera.name).arg(camera.type);
    // A plug-in may register a number this build has no name for.
    const QString typeName = QString::fromLatin1(fileTypeName(camera.type));
    if (!typeName.isEmpty())
        line += QStringLiteral(" (%1)").arg(typeName);
    return line;
}

int runCameras(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    const QString subject = QStringLiteral("cameras");
    CommandArgs args(context.args);
    const QStringList operands = args.operands();
    if (!args.ok())
        return usageError(context, "cameras", args.error());
    if (!operands.isEmpty())
        return usageError(context, "cameras", QStringLiteral("takes no arguments"));
    const std::unique_ptr<Camera_Pool> pool = openCameraPool(context.pluginDir, subject, reporter);
    if (pool == nullptr)
        return 1;
    const QStringList names = pool->getListOfCameraNames();
    const QDir dir(context.pluginDir);
    for (const QString &name : names) {
        const CameraListing camera{name, dir.filePath(name), pool->getFileTypeFromCameraName(name)};
        reporter.result(toJson(camera), toLine(camera));
    }
    return 0;
}

const char kHelp[] =
    "Loads the camera plug-ins of the plug-in folder (see vxcam --help for the\n"
    "folder in use; --plugins DIR chooses another) and lists them in the order\n"
    "they are asked: file name, then the file type each one registers.\n"
    "\n"
    "arguments:\n"
    "  none\n"
    "\n"
    "output:\n"
    "  NAME: type N (TYPE NAME), one line per plug-in; with --json one object\n"
    "  per plug-in: plugin, path, type, type_name\n"
    "\n"
    "exit status:\n"
    "  0 listed, 1 the folder is missing or holds no camera plug-in, 2 usage error\n";

const CommandRegistrar registration({"cameras", "cameras", "list the camera plug-ins of the plug-in directory",
                                     runCameras, kHelp});

} // namespace
