#pragma once

#include <QString>
#include <QStringList>

class MemoryBuffer;
class Reporter;

// Expands the command line's paths into files: directories are walked when
// recursive, and reported as errors otherwise.
QStringList collectFiles(const QStringList &paths, bool recursive, Reporter &reporter);

// Reads a whole file into the buffer, with the buffer named after it. On
// failure reports one error line naming the file and returns false.
bool loadFile(const QString &path, MemoryBuffer &buffer, Reporter &reporter);
