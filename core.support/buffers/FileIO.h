#pragma once

#include <QString>
#include <stdexcept>
#include <string>
#include <vector>

class QFile;

class IOException : public std::runtime_error
{
public:
    explicit IOException(const char *message);
    explicit IOException(const std::string &message);
    explicit IOException(const QString &message);
};

// Whole-file reads and writes. Every failure closes the file and throws
// IOException; no partial data is ever returned.
class FileIO
{
public:
    FileIO() = delete;

    static std::vector<unsigned char> readFile(QFile &file);
    static void writeToFile(QFile &file, const std::vector<unsigned char> &data);
    static void writeToFile(QFile &file, const unsigned char *data, size_t size);
};
