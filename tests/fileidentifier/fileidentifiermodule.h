#pragma once

// The built file-identifier module, reached the way hosts reach it: through
// Qt's plug-in loader or a camera pool over a directory holding a copy.

#include "cameras/camera_interfaces.h"
#include "fixtures/fixtures.h"

#include <QFile>
#include <QPluginLoader>
#include <QStringList>
#include <QTemporaryDir>

inline QString fileIdentifierModulePath()
{
    return QString::fromUtf8(VX_FILEIDENTIFIER_MODULE);
}

// The module's plug-in object, owned by Qt's loader; null when it does not load.
inline VXCameraPluginIF *fileIdentifierPlugin()
{
    return qobject_cast<VXCameraPluginIF *>(QPluginLoader(fileIdentifierModulePath()).instance());
}

// A temporary directory holding a copy of the module and of the modules
// given as (source, name) pairs.
struct PluginDirectory : QTemporaryDir
{
    explicit PluginDirectory(QStringList modules = {})
    {
        modules << fileIdentifierModulePath() << QStringLiteral("libfileidentifier.so");
        for (int i = 0; i + 1 < modules.size(); i += 2)
            copied = QFile::copy(modules.at(i), filePath(modules.at(i + 1))) && copied;
    }
    bool copied = true;
};
