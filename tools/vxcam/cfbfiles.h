#pragma once

// The files vxcam cfb reads, changes and writes. A change holds an exclusive
// lock on the file from reading it to replacing it, works on a copy beside
// it, and puts the copy in its place only once all of it is written; a new
// file appears whole or not at all. Errors come back in the system's words.

#include <QFile>
#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

#include <sys/stat.h>

class TempFile;

// Opens an existing regular file for reading; false with `error` set when it cannot.
bool openForReading(QFile &file, QString &error);

class LockedEdit
{
public:
    LockedEdit();
    ~LockedEdit(); // without commit(): the copy goes, the file stays as it was
    LockedEdit(const LockedEdit &) = delete;
    LockedEdit &operator=(const LockedEdit &) = delete;

    // Locks `path` (waiting for other edits to finish) and copies it beside itself.
    bool begin(const QString &path, QString &error);
    // The copy, open for reading and writing.
    QFile &copy() { return m_copyFile; }
    // Puts the copy in the file's place, keeping the file's mode, and its
    // owner where the system allows, then releases the lock.
    bool commit(QString &error);

private:
    bool writeInPlace(QString &error);

    QByteArray m_path;
    QByteArray m_name; // within m_dirFd
    int m_fd = -1;     // the original, locked
    int m_dirFd = -1;
    struct stat m_stat{};
    std::unique_ptr<TempFile> m_copy;
    QFile m_copyFile;
};

// Writes a new file that must not exist yet through `write`, which gets it
// open for reading and writing.
bool createNewFile(const QString &path, const std::function<bool(QFile &, QString &)> &write, QString &error);

// A directory that files are extracted into. Folders below it are made as
// needed and never followed when they are links, so nothing lands outside it.
class ExtractDir
{
public:
    ExtractDir() = default;
    ~ExtractDir();
    ExtractDir(const ExtractDir &) = delete;
    ExtractDir &operator=(const ExtractDir &) = delete;

    // Makes the directory if it is missing (its parent must exist).
    bool open(const QString &path, QString &error);
    // Writes `name` in the folder `folders` (names below the directory)
    // through `write`; the file appears whole or not at all.
    bool writeFile(const QStringList &folders, const QString &name,
                   const std::function<bool(QFile &, QString &)> &write, QString &error);

private:
    int folder(const QStringList &folders, QString &error);

    int m_fd = -1;
    QHash<QString, int> m_folders; // by path below the directory
};
