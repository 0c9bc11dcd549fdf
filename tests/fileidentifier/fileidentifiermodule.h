#pragma once

// The built file-identifier module, reached the way hosts reach it: through
// Qt's plug-in loader or a camera pool over a directory holding a copy.

#include "analysis/RepositoryComponents.h"
#include "cameras/camera_interfaces.h"
#include "fixtures/fixtures.h"
#include "ucp_engine/BDDLStructBase.h"

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

// The bytes of the root's "data" item (item 1); a null array when it holds no vector.
inline QByteArray rootData(BDDLStructBase_Root *root)
{
    BDDItemObject object;
    if (root == nullptr || !root->getItemObjectByEnum(1, object) || object.valueType() != vtUCharArray)
        return QByteArray();
    const auto *const data = *static_cast<BDDScalarArray<vtUCharArray> **>(object.value());
    return data ? QByteArray(reinterpret_cast<const char *>(data->data()), int(data->size())) : QByteArray();
}

// The repository's current document, one line per record in group order:
// "content <group> <description> x<count> <size>" and "issue ... id <hex id>".
inline QStringList repositoryLines(const RepositoryComponents::DocumentAnalysis &analysis)
{
    QStringList lines;
    if (const RepositoryComponents::DocumentStatistics *const document = analysis.currentDocument())
        for (const auto &group : document->contentGroups()) {
            const auto line = [&group](const char *kind, const auto &item) {
                return QStringLiteral("%1 %2 %3 x%4 %5").arg(QLatin1String(kind)).arg(group.first)
                    .arg(QString::fromStdString(item->description())).arg(item->instanceCount()).arg(item->totalSize());
            };
            for (const auto &item : group.second->contentItems())
                lines << line("content", item.second);
            for (const auto &item : group.second->issueItems())
                lines << line("issue", item.second) + QStringLiteral(" id %1").arg(item.second->issueId(), 0, 16);
        }
    return lines;
}

inline MemoryBuffer namedBuffer(const QByteArray &bytes, const char *name)
{
    MemoryBuffer buffer = bufferOf(bytes);
    buffer.m_name = name;
    return buffer;
}
