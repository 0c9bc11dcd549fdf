#include "inputs.h"

#include "reporter.h"

#include "buffers/FileIO.h"
#include "buffers/MemoryBuffer.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

QStringList collectFiles(const QStringList &paths, bool recursive, Reporter &reporter)
{
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
        while (it.hasNext())
            found << it.next();
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
