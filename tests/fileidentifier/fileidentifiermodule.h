#pragma once

// The built file-identifier module, reached the way hosts reach it: through
// Qt's plug-in loader or a camera pool over a directory holding a copy. The
// camera's classes are not linked into the tests; everything is seen through
// the plug-in interfaces, the structure-node interface and the repository.

#include "analysis/RepositoryComponents.h"
#include "buffers/MemoryBuffer.h"
#include "cameras/camera_interfaces.h"
#include "ucp_engine/BDDLStructBase.h"

#include <QByteArray>
#include <QFile>
#include <QPluginLoader>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdint>
#include <vector>

inline QString fileIdentifierModulePath()
{
    return QString::fromUtf8(VX_FILEIDENTIFIER_MODULE);
}

// The module's plug-in object, owned by Qt's loader; null when it does not load.
inline VXCameraPluginIF *fileIdentifierPlugin()
{
    QPluginLoader loader(fileIdentifierModulePath());
    return qobject_cast<VXCameraPluginIF *>(loader.instance());
}

// A fresh directory holding a copy of the module, plus any other files given
// as (source, name) pairs: what a camera pool is built over.
class PluginDirectory
{
public:
    explicit PluginDirectory(const QStringList &extra = {})
    {
        m_ok = m_dir.isValid() && add(fileIdentifierModulePath(), QStringLiteral("libfileidentifier.so"));
        for (int i = 0; m_ok && i + 1 < extra.size(); i += 2)
            m_ok = add(extra.at(i), extra.at(i + 1));
    }
    bool isValid() const { return m_ok; }
    QString path() const { return m_dir.path(); }

private:
    bool add(const QString &source, const QString &name) { return QFile::copy(source, m_dir.filePath(name)); }

    QTemporaryDir m_dir;
    bool m_ok = false;
};

// The bytes of the root's "data" item (item 1); empty when it holds no vector.
inline QByteArray rootData(BDDLStructBase_Root *root)
{
    BDDItemObject object;
    if (root == nullptr || !root->getItemObjectByEnum(1, object) || object.valueType() != vtUCharArray)
        return QByteArray();
    const auto *const data = *static_cast<BDDScalarArray<vtUCharArray> **>(object.value());
    return data ? QByteArray(reinterpret_cast<const char *>(data->data()), static_cast<int>(data->size()))
                : QByteArray();
}

// Whether the root's "data" item holds a vector at all.
inline bool rootHasDataVector(BDDLStructBase_Root *root)
{
    BDDItemObject object;
    return root != nullptr && root->getItemObjectByEnum(1, object)
           && *static_cast<BDDScalarArray<vtUCharArray> **>(object.value()) != nullptr;
}

// Everything the repository's current document holds, one line per record
// in group order: "content <group> <description> x<count> <total size>" and
// "issue <group> <description> x<count> <total size> id <issue id>".
inline QStringList repositoryLines(const RepositoryComponents::DocumentAnalysis &analysis)
{
    QStringList lines;
    const RepositoryComponents::DocumentStatistics *const document = analysis.currentDocument();
    if (document == nullptr)
        return lines;
    for (const auto &group : document->contentGroups()) {
        for (const auto &item : group.second->contentItems())
            lines << QStringLiteral("content %1 %2 x%3 %4")
                         .arg(group.first)
                         .arg(QString::fromStdString(item.second->description()))
                         .arg(item.second->instanceCount())
                         .arg(item.second->totalSize());
        for (const auto &item : group.second->issueItems())
            lines << QStringLiteral("issue %1 %2 x%3 %4 id %5")
                         .arg(group.first)
                         .arg(QString::fromStdString(item.second->description()))
                         .arg(item.second->instanceCount())
                         .arg(item.second->totalSize())
                         .arg(item.second->issueId(), 0, 16);
    }
    return lines;
}

inline MemoryBuffer namedBuffer(const QByteArray &bytes, const char *name)
{
    MemoryBuffer buffer(static_cast<size_t>(bytes.size()),
                        reinterpret_cast<unsigned char *>(const_cast<char *>(bytes.constData())));
    buffer.m_name = name;
    return buffer;
}
