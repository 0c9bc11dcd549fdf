#pragma once

#include "cameras/camera_interfaces.h"

#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <functional>

class MemoryBuffer;
class QPluginLoader;

// One loaded camera plug-in. The loader is shared so that an entry can be
// handed around without copying the loader; the library stays loaded when the
// loader goes.
struct Camera_Pool_Entry
{
    QSharedPointer<QPluginLoader> loader;
    ft_t fileType = ft_unknown;
    QString name; // the file name without directory, also the entry's key
};

// The registry of camera plug-ins. The constructor loads every camera
// plug-in of one directory; afterwards the pool routes questions to them.
// Every walk over the plug-ins goes in ascending order of file name, which
// decides between plug-ins that register the same type or answer the same
// question. Not thread-safe: one thread at a time.
class Camera_Pool
{
public:
    // Scans the process's current working directory.
    Camera_Pool();
    // Scans `directory` instead, for hosts that keep their plug-ins elsewhere.
    explicit Camera_Pool(const QString &directory);

    Camera_Pool(const Camera_Pool &) = delete;
    Camera_Pool &operator=(const Camera_Pool &) = delete;

    // Loads one file if it is a camera plug-in; true when it was added.
    bool loadPlugin(QString name, QString path);

    QStringList getListOfCameraNames() const;
    ft_t getFileTypeFromCameraName(QString name) const;
    // The plug-in object loaded from that file; null if none. Lets a host
    // tell which plug-in gave an answer during a routing walk.
    VXCameraPluginIF *getPluginFromCameraName(QString name) const;
    // The first plug-in (by file name) registered for the type; "unknown" / null if none.
    QString getCameraNameFromFileType(ft_t type) const;
    VXCameraPluginIF *getPluginFromFileType(ft_t type) const;

    const AnalysisGroupIdMap_t *getAnalysisGroupIdMap(ft_t type) const;
    // These three throw std::runtime_error when no plug-in registered the type.
    uint32_t getErrMsgID(ft_t type, char *key) const;
    uint32_t getSanitisationMsgID(ft_t type, char *key) const;
    uint32_t getAnalysisGroupID(ft_t type, unsigned int item) const;

    // The first non-zero answer of the plug-ins; 0 if none answers or one fails.
    ft_t getFileTypeFromFileExtension(const char *extension) const;
    // `reason` takes the last reason text any asked plug-in gave, and is left
    // alone when none gave one.
    ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, QString &reason) const;
    ft_t getSubFileTypeFromFileInMemory(MemoryBuffer *buffer, QString &reason) const;
    // The pool does not route these; they are answered by the file-type registry.
    ft_t getFileTypeFromProgID(const char *progId) const;
    ft_t getFileTypeFromClassID(const char *classId) const;

    // Asks `question` of each plug-in in turn and returns the first non-zero
    // answer. An exception from any plug-in ends the walk with 0.
    ft_t iterate_camera_pool_for_ftype(const std::function<ft_t(VXCameraPluginIF *)> &question) const;

private:
    void scanDirectory(const QString &directory);
    const Camera_Pool_Entry *findEntry(ft_t type) const;
    VXCameraPluginIF &requirePlugin(ft_t type, const char *failure) const;
    ft_t fileTypeFromMemory(ft_t (VXCameraPluginIF::*question)(MemoryBuffer *, const char **),
                            MemoryBuffer *buffer, QString &reason, const char *fault) const;

    QMap<QString, QSharedPointer<Camera_Pool_Entry>> m_cameraPool;
};
