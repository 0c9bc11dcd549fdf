#include "inputs.h"

#include "reporter.h"

#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

// The canonical form of a path that need not exist yet: its folder's
// canonical path and its name.
QString canonicalTarget(const QString &path)
{
    const QFileInfo info(path);
    if (info.exists())
        return info.canonicalFilePath();
    const QString folder = QFileInfo(info.absolutePath()).canonicalFilePath();
    return folder.isEmpty() ? info.absoluteFilePath() : folder + QLatin1Char('/') + info.fileName();
}

} // namespace

CanonicalPaths::CanonicalPaths(const QStringList &files)
{
    for (const QString &file : files)
        m_paths.insert(canonicalTarget(file));
}

bool CanonicalPaths::contains(const QString &path) const
{
    return m_paths.contains(canonicalTarget(path));
}

bool makeFolder(const QString &path, Reporter &reporter)
{
    if (QDir().mkpath(path))
        return true;
    reporter.error(path, QStringLiteral("cannot make the folder"), path);
    return false;
}

QStringList collectFiles(const QStringList &paths, bool recursive, Reporter &reporter,
                         const QStringList &skipFolders)
{
    QStringList skipped;
    for (const QString &folder : skipFolders)
        if (!folder.isEmpty() && QFileInfo(folder).isDir())
            skipped << QFileInfo(folder).canonicalFilePath() + QLatin1Char('/');
    const auto isSkipped = [&](const QString &file) {
        const QString canonical = QFileInfo(file).canonicalFilePath();
        return std::any_of(skipped.begin(), skipped.end(),
                           [&](const QString &folder) { return canonical.startsWith(folder); });
    };
    QStringList files;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (!info.isDir()) {
            files << path; // missing or unreadable files are reported when read
            continue;
        }
        if (!recursive) {
            reporter.error(path, QStringLiteral("is a directory (use -r to walk it)"), path);
            continue;
        }
        QStringList found;
        QDirIterator it(path, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next();
            if (!isSkipped(file))
                found << file;
        }
        found.sort();
        files << found;
    }
    return files;
}

bool loadFile(const QString &path, MemoryBuffer &buffer, Reporter &reporter)
{
    const QFileInfo info(path);
    if (info.isDir()) {
        reporter.error(path, QStringLiteral("is a directory"), path);
        return false;
    }
    if (!info.exists()) {
        reporter.error(path, QStringLiteral("no such file"), path);
        return false;
    }
    if (!info.isFile()) {
        // Devices and pipes could block or never end.
        reporter.error(path, QStringLiteral("not a regular file"), path);
        return false;
    }
    try {
        QFile file(path);
        buffer.readFromFile(file, false);
        buffer.seek(0, MBSeekStart);
        buffer.m_name = info.fileName().toStdString();
        return true;
    } catch (const std::exception &e) {
        reporter.error(path, QString::fromUtf8(e.what()), path);
        return false;
    }
}
