#pragma once

#include <QString>
#include <QStringList>

class MemoryBuffer;
class Reporter;

// Expands the command line's paths into files: directories are walked when
// recursive, and reported as errors otherwise. Files under `skipFolders`
// (where a command writes its outputs) are not walked into.
QStringList collectFiles(const QStringList &paths, bool recursive, Reporter &reporter,
                         const QStringList &skipFolders = {});

// Whether `target` names one of the files (through links and relative paths).
bool namesOneOf(const QString &target, const QStringList &files);

// Makes the folder (and its parents); one error line when it cannot.
bool makeFolder(const QString &path, Reporter &reporter);

// Reads a whole file into the buffer, with the buffer named after it. On
// failure reports one error line naming the file and returns false.
bool loadFile(const QString &path, MemoryBuffer &buffer, Reporter &reporter);
