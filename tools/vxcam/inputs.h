#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

class MemoryBuffer;
class Reporter;

// Expands the command line's paths into files: directories are walked when
// recursive, and reported as errors otherwise. Files under `skipFolders`
// (where a command writes its outputs) are not walked into.
QStringList collectFiles(const QStringList &paths, bool recursive, Reporter &reporter,
                         const QStringList &skipFolders = {});

// A set of files by their canonical paths, resolved once: whether a path
// names one of them (through links and relative paths) then costs one
// lookup, not a walk over the set.
class CanonicalPaths
{
public:
    explicit CanonicalPaths(const QStringList &files);
    bool contains(const QString &path) const;

private:
    QSet<QString> m_paths;
};

// Makes the folder (and its parents); one error line when it cannot.
bool makeFolder(const QString &path, Reporter &reporter);

// Reads a whole file into the buffer, with the buffer named after it. On
// failure reports one error line naming the file and returns false.
bool loadFile(const QString &path, MemoryBuffer &buffer, Reporter &reporter);
