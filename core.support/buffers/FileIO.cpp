#include "buffers/FileIO.h"

#include <QFile>

IOException::IOException(const char *message) : std::runtime_error(message) {}

IOException::IOException(const std::string &message) : std::runtime_error(message) {}

IOException::IOException(const QString &message) : std::runtime_error(message.toStdString()) {}

namespace {

// Every failure closes the file first and names Qt's reason for it.
[[noreturn]] void closeAndThrow(QFile &file, const char *pattern)
{
    const QString reason = file.errorString();
    file.close();
    throw IOException(QString::fromLatin1(pattern).arg(reason));
}

void openOrThrow(QFile &file, QIODevice::OpenMode mode)
{
    if (!file.open(mode))
        closeAndThrow(file, "Could not open file for the following reason: %1.");
}

} // namespace

std::vector<unsigned char> FileIO::readFile(QFile &file)
{
    openOrThrow(file, QIODevice::ReadOnly);
    const qint64 size = file.size();
    if (size <= 0) {
        file.close();
        throw IOException("File size is 0");
    }

    std::vector<unsigned char> data(static_cast<size_t>(size));
    qint64 done = 0;
    while (!file.atEnd() && done < size) {
        const qint64 n = file.read(reinterpret_cast<char *>(data.data()) + done, size - done);
        if (n < 0)
            closeAndThrow(file, "Error occurred while reading file: %1.");
        if (n == 0)
            break;
        done += n;
    }
    file.close();
    if (done != size)
        throw IOException("File could not be read correctly.");
    return data;
}

void FileIO::writeToFile(QFile &file, const std::vector<unsigned char> &data)
{
    writeToFile(file, data.data(), data.size());
}

void FileIO::writeToFile(QFile &file, const unsigned char *data, size_t length)
{
    openOrThrow(file, QIODevice::WriteOnly);
    const qint64 size = static_cast<qint64>(length);
    qint64 done = 0;
    while (done < size) {
        const qint64 n = file.write(reinterpret_cast<const char *>(data) + done, size - done);
        if (n < 0)
            closeAndThrow(file, "Failed to write file for the following reason: %1.");
        if (n == 0)
            break;
        done += n;
    }
    file.close();
    if (done != size)
        throw IOException("File was not written out correctly.");
}
