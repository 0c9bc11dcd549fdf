#include "cfb.h"
#include "command.h"
#include "inputs.h"
#include "reporter.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "cameras/filetype.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonObject>

#include <memory>

// vxcam identify: asks the camera plug-ins of the plug-in directory, through
// one camera pool, what each file is. The main-type question comes first,
// then the sub-type question (container and archive kinds), then the
// extension; the first non-zero answer is the file's type. The file-type
// registry answers for the extension when no plug-in does. The registry's
// extension columns and the two package sub-types are reported beside it.

namespace {

// One question put to the pool: the answer, the method the plug-in named
// (its reason text) and the plug-in file that answered.
struct PoolAnswer
{
    ft_t type = ft_unknown;
    QString method;
    QString camera;
};

// Which question gave the file's type.
enum class AnsweredBy { None, MainType, SubType, Extension };

const char *answeredByName(AnsweredBy by)
{
    switch (by) {
    case AnsweredBy::MainType:
        return "main-type";
    case AnsweredBy::SubType:
        return "sub-type";
    case AnsweredBy::Extension:
        return "extension";
    case AnsweredBy::None:
        break;
    }
    return "none";
}

// The pool's questions, with the name of the plug-in that answered: the
// pool's own routing walk, watched.
class PoolQuestions
{
public:
    explicit PoolQuestions(const Camera_Pool &pool) : m_pool(pool)
    {
        for (const QString &name : pool.getListOfCameraNames())
            m_names.insert(pool.getPluginFromCameraName(name), name);
    }

    PoolAnswer mainType(MemoryBuffer &buffer) const
    {
        return ask([&buffer](VXCameraPluginIF *plugin, const char **reason) {
            return plugin->getFileTypeFromFileInMemory(&buffer, reason);
        });
    }

    PoolAnswer subType(MemoryBuffer &buffer) const
    {
        return ask([&buffer](VXCameraPluginIF *plugin, const char **reason) {
            return plugin->getSubTypeFromFileInMemory(&buffer, reason);
        });
    }

    // The extension as it stands: each plug-in applies its own letter-case rule.
    PoolAnswer extension(const QByteArray &extension) const
    {
        PoolAnswer answer = ask([&extension](VXCameraPluginIF *plugin, const char **) {
            return plugin->getFileTypeFromFileExtension(extension.constData());
        });
        if (answer.type != ft_unknown)
            answer.method = QStringLiteral("extension");
        return answer;
    }

private:
    // Like the pool's questions, one reason pointer is shared by every
    // plug-in asked, so a reason given without an answer survives.
    template <typename Question>
    PoolAnswer ask(const Question &question) const
    {
        const char *reason = nullptr;
        const VXCameraPluginIF *answering = nullptr;
        PoolAnswer answer;
        answer.type = m_pool.iterate_camera_pool_for_ftype([&](VXCameraPluginIF *plugin) {
            const ft_t type = question(plugin, &reason);
            if (type != ft_unknown)
                answering = plugin;
            return type;
        });
        if (reason != nullptr)
            answer.method = QString::fromUtf8(reason);
        if (answer.type != ft_unknown)
            answer.camera = m_names.value(answering);
        return answer;
    }

    const Camera_Pool &m_pool;
    QHash<const VXCameraPluginIF *, QString> m_names;
};

// What is known about one file.
struct Identification
{
    QString path;
    QString extension;             // as the file name has it
    ft_t extensionType = ft_unknown; // the registry's answer
    QString description;
    eCameraId_t cameraId = eCameraId_Default;
    PoolAnswer mainType;
    PoolAnswer subType;             // the archive kinds
    PoolAnswer extensionAnswer;     // the plug-ins' answer
    ft_t opcSubType = ft_unknown;   // the kind of Office Open XML package
    ft_t cfbSubType = ft_unknown;   // the kind of compound file
    QString cfbMethod;

    // The file's type: the first question answered.
    AnsweredBy answeredBy = AnsweredBy::None;
    PoolAnswer answer;
};

QString typeName(ft_t type)
{
    return QString::fromLatin1(fileTypeName(type));
}

// Everything one run needs, made once: the registry and the pool.
class Identifier
{
public:
    Identifier(const FileType &registry, const Camera_Pool &pool) : m_registry(registry), m_questions(pool) {}

    Identification identify(const QString &path, MemoryBuffer &buffer) const
    {
        Identification id;
        id.path = path;
        id.extension = QFileInfo(path).suffix();
        identifyByExtension(id);
        id.mainType = m_questions.mainType(buffer);
        id.subType = m_questions.subType(buffer);
        id.extensionAnswer = m_questions.extension(id.extension.toUtf8());
        identifyPackage(buffer, id);
        decide(id);
        return id;
    }

private:
    // Extensions in the registry are lower case; a user's FILE.DOC means .doc.
    void identifyByExtension(Identification &id) const
    {
        const std::string extension = id.extension.toLower().toStdString();
        id.extensionType = m_registry.getFileTypeFromFileExtension(extension);
        if (const FileTypeIdentifier_t *row = m_registry.findExtension(extension))
            id.description = QString::fromStdString(row->description);
        id.cameraId = m_registry.getCameraIdFromFileTypeEnum(id.extensionType);
    }

    // The archive identification declines Office Open XML packages with
    // "structure match"; only then is the package's own kind worth asking for.
    void identifyPackage(MemoryBuffer &buffer, Identification &id) const
    {
        if (id.subType.type == ft_unknown && id.subType.method == QLatin1String("structure match"))
            id.opcSubType = FileType().determineOpcSubType(&buffer, nullptr);
        id.cfbSubType = compoundFileSubType(buffer, &id.cfbMethod);
    }

    static void decide(Identification &id)
    {
        if (id.mainType.type != ft_unknown) {
            id.answeredBy = AnsweredBy::MainType;
            id.answer = id.mainType;
        } else if (id.subType.type != ft_unknown) {
            id.answeredBy = AnsweredBy::SubType;
            id.answer = id.subType;
        } else if (id.extensionAnswer.type != ft_unknown) {
            id.answeredBy = AnsweredBy::Extension;
            id.answer = id.extensionAnswer;
        } else if (id.extensionType != ft_unknown) {
            id.answeredBy = AnsweredBy::Extension;
            id.answer = PoolAnswer{id.extensionType, QStringLiteral("file-type registry"), QString()};
        }
    }

    const FileType &m_registry;
    const PoolQuestions m_questions;
};

QJsonObject toJson(const Identification &id)
{
    return QJsonObject{
        {QStringLiteral("path"), id.path},
        {QStringLiteral("extension"), id.extension.toLower()},
        {QStringLiteral("extension_type"), id.extensionType},
        {QStringLiteral("extension_type_name"), typeName(id.extensionType)},
        {QStringLiteral("description"), id.description},
        {QStringLiteral("camera_id"), id.cameraId},
        {QStringLiteral("main_type"), id.mainType.type},
        {QStringLiteral("main_type_name"), typeName(id.mainType.type)},
        {QStringLiteral("main_method"), id.mainType.method},
        {QStringLiteral("type"), id.subType.type},
        {QStringLiteral("type_name"), typeName(id.subType.type)},
        {QStringLiteral("method"), id.subType.method},
        {QStringLiteral("plugin_extension_type"), id.extensionAnswer.type},
        {QStringLiteral("opc_subtype"), id.opcSubType},
        {QStringLiteral("opc_subtype_name"), typeName(id.opcSubType)},
        {QStringLiteral("cfb_subtype"), id.cfbSubType},
        {QStringLiteral("cfb_subtype_name"), typeName(id.cfbSubType)},
        {QStringLiteral("cfb_method"), id.cfbMethod},
        {QStringLiteral("answered_by"), QLatin1String(answeredByName(id.answeredBy))},
        {QStringLiteral("camera"), id.answer.camera},
        {QStringLiteral("answer"), id.answer.type},
        {QStringLiteral("answer_name"), typeName(id.answer.type)},
        {QStringLiteral("answer_method"), id.answer.method},
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
    line += QStringLiteral("; archive type %1 (%2): %3")
                .arg(id.subType.type)
                .arg(typeName(id.subType.type), id.subType.method);
    if (id.opcSubType != ft_unknown)
        line += QStringLiteral("; Office Open XML %1 (%2)").arg(id.opcSubType).arg(typeName(id.opcSubType));
    if (id.cfbSubType != ft_unknown)
        line += QStringLiteral("; compound file %1 (%2): %3")
                    .arg(id.cfbSubType)
                    .arg(typeName(id.cfbSubType), id.cfbMethod);
    if (id.answeredBy == AnsweredBy::None) {
        line += QStringLiteral("; not identified");
    } else {
        line += QStringLiteral("; identified by the %1 question as %2 (%3): %4")
                    .arg(QLatin1String(answeredByName(id.answeredBy)))
                    .arg(id.answer.type)
                    .arg(typeName(id.answer.type), id.answer.method);
        if (!id.answer.camera.isEmpty())
            line += QStringLiteral(" [%1]").arg(id.answer.camera);
    }
    return line;
}

// The pool quietly loads nothing from a missing or empty directory; a user
// who mistyped --plugins is told instead. Null after reporting the error.
std::unique_ptr<Camera_Pool> loadPool(const QString &directory, Reporter &reporter)
{
    const QString subject = QStringLiteral("identify");
    if (!QFileInfo(directory).isDir()) {
        reporter.error(subject, QStringLiteral("no plug-in directory %1").arg(directory));
        return nullptr;
    }
    auto pool = std::make_unique<Camera_Pool>(directory);
    if (pool->getListOfCameraNames().isEmpty()) {
        reporter.error(subject, QStringLiteral("no camera plug-ins in %1").arg(directory));
        return nullptr;
    }
    return pool;
}

int runIdentify(CommandContext &context)
{
    Reporter &reporter = context.reporter;
    CommandArgs args(context.args);
    const QStringList paths = args.operands();
    if (!args.ok())
        return usageError(context, "identify", args.error());
    if (paths.isEmpty()) {
        reporter.error(QStringLiteral("identify"), QStringLiteral("no files given"));
        return 1;
    }
    const std::unique_ptr<Camera_Pool> pool = loadPool(context.pluginDir, reporter);
    if (pool == nullptr)
        return 1;
    const QStringList files = collectFiles(paths, context.recursive, reporter);
    const FileType registry;
    const Identifier identifier(registry, *pool);
    MemoryBuffer buffer;

    reporter.beginBatch(files.size());
    for (const QString &path : files) {
        if (loadFile(path, buffer, reporter)) {
            const Identification id = identifier.identify(path, buffer);
            reporter.result(toJson(id), toLine(id));
        }
        reporter.advance(path);
    }
    reporter.endBatch();
    return reporter.errorCount() == 0 ? 0 : 1;
}

const CommandRegistrar registration({"identify", "identify [-r] FILE|DIR...",
                                     "ask the camera plug-ins what each file is", runIdentify});

} // namespace
