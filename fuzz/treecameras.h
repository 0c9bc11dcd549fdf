#pragma once

// The camera pool of the import fuzz targets: the file-identifier module and
// the tree camera over the test schema, copied under the names the seed
// streams give as camera names.

#include "cameras/camera_pool.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtGlobal>

#include <cstdlib>
#include <memory>

inline Camera_Pool &treeCameraPool()
{
    static QTemporaryDir directory;
    static const std::unique_ptr<Camera_Pool> made = [] {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
        if (!QFile::copy(QStringLiteral(VX_FILEIDENTIFIER_MODULE), directory.filePath("libfileidentifier.so"))
            || !QFile::copy(QStringLiteral(VX_TREE_CAMERA_MODULE), directory.filePath("libvxtree.so")))
            std::abort();
        auto loaded = std::make_unique<Camera_Pool>(directory.path());
        if (loaded->getListOfCameraNames().size() != 2)
            std::abort(); // the modules did not load: nothing to fuzz
        return loaded;
    }();
    return *made;
}
