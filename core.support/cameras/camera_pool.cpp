#include "cameras/camera_pool.h"

#include <QDebug>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QPluginLoader>

#include <algorithm>
#include <stdexcept>

namespace {

// Log lines are written as whole texts, without QDebug's quoting and spacing.
void logLine(const QString &line)
{
    qDebug().noquote() << line;
}

// The plug-in object is looked up afresh for every question rather than
// cached, so the pool never holds a pointer the loader could invalidate.
VXCameraPluginIF *pluginOf(const Camera_Pool_Entry &entry)
{
    return qobject_cast<VXCameraPluginIF *>(entry.loader->instance());
}

// The identifier a file declares, for the log; metadata that is not a Qt
// plug-in's may hold anything there.
QString declaredIid(const QJsonValue &iid)
{
    return iid.toVariant().toString();
}

} // namespace

Camera_Pool::Camera_Pool() : Camera_Pool(QStringLiteral(".")) {}

Camera_Pool::Camera_Pool(const QString &directory)
{
    logLine(QStringLiteral("Loading pool of (version: " VXCameraPluginIF_iid ") camera plugins ..."));
    scanDirectory(directory);
    qDebug() << "num cameras:" << m_cameraPool.size();
}

void Camera_Pool::scanDirectory(const QString &directory)
{
    // A missing directory simply lists nothing. Without QDir::System in the
    // filter, dangling links are not listed either.
    QDirIterator it(directory, QStringList{QStringLiteral("*.so")}, QDir::NoFilter,
                    QDirIterator::FollowSymlinks);
    QList<QPair<QString, QString>> files; // file name, path
    while (it.hasNext()) {
        it.next();
        const QString name = it.fileName();
        if (name != QLatin1String(".") && name != QLatin1String(".."))
            files.append(qMakePair(name, it.filePath()));
    }
    // Loading in name order keeps the log the same from one run to the next,
    // whatever order the file system lists the directory in.
    std::sort(files.begin(), files.end());
    for (const auto &file : qAsConst(files))
        loadPlugin(file.first, file.second);
}

bool Camera_Pool::loadPlugin(QString name, QString path)
{
    auto entry = QSharedPointer<Camera_Pool_Entry>::create();
    // The loader looks a relative path up in Qt's library paths rather than
    // the working directory, so it is given the absolute one.
    entry->loader = QSharedPointer<QPluginLoader>::create(QFileInfo(path).absoluteFilePath());

    // The metadata is read from the file without loading it, so foreign
    // libraries never run any code in this process.
    const QJsonObject metaData = entry->loader->metaData();
    const QJsonValue iid = metaData.value(QLatin1String("IID"));
    if (iid != QJsonValue(QLatin1String(VXCameraPluginIF_iid))) {
        if (metaData.isEmpty())
            logLine(QStringLiteral("skipping other DLL ") + name);
        else
            logLine(QStringLiteral("Rejecting plugin ") + name + QStringLiteral(" version:") + declaredIid(iid));
        return false;
    }

    if (!entry->loader->load())
        return false;
    logLine(QStringLiteral("Loading plugin ") + name + QStringLiteral(" version:") + declaredIid(iid));
    logLine(QString::fromUtf8(QJsonDocument(metaData).toJson(QJsonDocument::Compact)));

    VXCameraPluginIF *const plugin = pluginOf(*entry);
    if (plugin == nullptr)
        return false;
    // A plug-in that fails while registering is left out rather than taking
    // the whole pool, and the host with it, down.
    try {
        entry->fileType = plugin->getRegisteredFileTypeEnum();
        plugin->initialiseIDLookups();
    } catch (...) {
        logLine(QStringLiteral("Fault in Camera_Pool::loadPlugin ") + name);
        return false;
    }
    entry->name = name;
    m_cameraPool.insert(name, entry);
    return true;
}

QStringList Camera_Pool::getListOfCameraNames() const
{
    return m_cameraPool.keys();
}

ft_t Camera_Pool::getFileTypeFromCameraName(QString name) const
{
    const QSharedPointer<Camera_Pool_Entry> entry = m_cameraPool.value(name);
    return entry ? entry->fileType : ft_unknown;
}

VXCameraPluginIF *Camera_Pool::getPluginFromCameraName(QString name) const
{
    const QSharedPointer<Camera_Pool_Entry> entry = m_cameraPool.value(name);
    return entry ? pluginOf(*entry) : nullptr;
}

const Camera_Pool_Entry *Camera_Pool::findEntry(ft_t type) const
{
    const auto found = std::find_if(m_cameraPool.cbegin(), m_cameraPool.cend(),
                                    [type](const QSharedPointer<Camera_Pool_Entry> &entry) {
                                        return entry->fileType == type;
                                    });
    return found == m_cameraPool.cend() ? nullptr : found->data();
}

QString Camera_Pool::getCameraNameFromFileType(ft_t type) const
{
    const Camera_Pool_Entry *const entry = findEntry(type);
    return entry ? entry->name : QStringLiteral("unknown");
}

VXCameraPluginIF *Camera_Pool::getPluginFromFileType(ft_t type) const
{
    const Camera_Pool_Entry *const entry = findEntry(type);
    return entry ? pluginOf(*entry) : nullptr;
}

VXCameraPluginIF &Camera_Pool::requirePlugin(ft_t type, const char *failure) const
{
    VXCameraPluginIF *const plugin = getPluginFromFileType(type);
    if (plugin == nullptr)
        throw std::runtime_error(failure);
    return *plugin;
}

const AnalysisGroupIdMap_t *Camera_Pool::getAnalysisGroupIdMap(ft_t type) const
{
    VXCameraPluginIF *const plugin = getPluginFromFileType(type);
    return plugin ? plugin->getAnalysisGroupIdMap() : nullptr;
}

uint32_t Camera_Pool::getErrMsgID(ft_t type, char *key) const
{
    return requirePlugin(type, "Unable to determine Error Message ID").getErrMsgID(key);
}

uint32_t Camera_Pool::getSanitisationMsgID(ft_t type, char *key) const
{
    return requirePlugin(type, "Unable to determine Sanitisation Message ID").getSanitisationMsgID(key);
}

uint32_t Camera_Pool::getAnalysisGroupID(ft_t type, unsigned int item) const
{
    return requirePlugin(type, "Unable to determine Analysis Group ID").getAnalysisGroupID(item);
}

ft_t Camera_Pool::iterate_camera_pool_for_ftype(const std::function<ft_t(VXCameraPluginIF *)> &question) const
{
    try {
        for (const QSharedPointer<Camera_Pool_Entry> &entry : m_cameraPool) {
            VXCameraPluginIF *const plugin = pluginOf(*entry);
            if (plugin == nullptr)
                throw "Camera_Pool::iterate_camera_pool_for_ftype.pluginstance == nullptr";
            const ft_t answer = question(plugin);
            if (answer != ft_unknown)
                return answer;
        }
    } catch (...) {
        // Whatever a plug-in throws, the question just goes unanswered; the
        // plug-ins after the failing one are not asked.
        logLine(QStringLiteral("Fault in Camera_Pool::iterate_camera_pool_for_ftype"));
    }
    return ft_unknown;
}

ft_t Camera_Pool::getFileTypeFromFileExtension(const char *extension) const
{
    try {
        return iterate_camera_pool_for_ftype(
            [extension](VXCameraPluginIF *plugin) { return plugin->getFileTypeFromFileExtension(extension); });
    } catch (...) {
        logLine(QStringLiteral("Fault in Camera_Pool::getFileTypeFromFileExtension"));
        return ft_unknown;
    }
}

ft_t Camera_Pool::fileTypeFromMemory(ft_t (VXCameraPluginIF::*question)(MemoryBuffer *, const char **),
                                     MemoryBuffer *buffer, QString &reason, const char *fault) const
{
    try {
        // One reason pointer for the whole walk: a text left by a plug-in that
        // did not answer survives unless a later one replaces it.
        const char *text = nullptr;
        const ft_t type = iterate_camera_pool_for_ftype(
            [question, buffer, &text](VXCameraPluginIF *plugin) { return (plugin->*question)(buffer, &text); });
        if (text != nullptr)
            reason = QString::fromUtf8(text);
        return type;
    } catch (...) {
        logLine(QLatin1String(fault));
        return ft_unknown;
    }
}

ft_t Camera_Pool::getFileTypeFromFileInMemory(MemoryBuffer *buffer, QString &reason) const
{
    return fileTypeFromMemory(&VXCameraPluginIF::getFileTypeFromFileInMemory, buffer, reason,
                              "Fault in Camera_Pool::getFileTypeFromFileInMemory");
}

ft_t Camera_Pool::getSubFileTypeFromFileInMemory(MemoryBuffer *buffer, QString &reason) const
{
    return fileTypeFromMemory(&VXCameraPluginIF::getSubTypeFromFileInMemory, buffer, reason,
                              "Fault in Camera_Pool::getSubFileTypeFromFileInMemory");
}

ft_t Camera_Pool::getFileTypeFromProgID(const char *) const
{
    return ft_unknown;
}

ft_t Camera_Pool::getFileTypeFromClassID(const char *) const
{
    return ft_unknown;
}
