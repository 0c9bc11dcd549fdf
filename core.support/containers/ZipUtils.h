#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>
#include <QVector>

#include <memory>

class MemoryBuffer;
class QBuffer;
class QuaZip;
struct zlib_filefunc_def_s;

// Zip archives held entirely in memory: Unzip reads an archive from a buffer,
// Zip builds one entry by entry and hands the bytes over. Neither touches
// the file system. Failures are reported by results; nothing here throws
// except a target buffer's write rule and memory exhaustion.
namespace ZipUtils {

// One archive member: its path as stored (separator "/") and whether it is
// a folder member (its name ends with "/" or "\").
class Entry
{
public:
    Entry() = default;

    bool add(QString name, bool isFolder);

    const QString &name() const { return m_name; }
    bool isFolder() const { return m_isFolder; }

private:
    QString m_name;
    bool m_isFolder = false;
};

class Unzip
{
public:
    Unzip();
    ~Unzip();
    Unzip(const Unzip &) = delete;
    Unzip &operator=(const Unzip &) = delete;

    // Opens a copy of the buffer's bytes; the buffer and its cursor are left
    // alone and may go away afterwards.
    bool open(MemoryBuffer *buffer);
    // Opens the buffer's bytes where they lie, without a copy: the buffer
    // must stay alive and unchanged until close().
    bool openInPlace(const MemoryBuffer *buffer);
    // Opens an archive over the caller's device, which must outlive this
    // object (or its close()). The device is closed when the archive closes.
    bool open(QBuffer *device);
    void close();

    // Appends the archive's members to the lists (done by open()). Names are
    // decoded as UTF-8 whatever the archive's flags say: that is what
    // archives made on this platform hold, and it keeps lookups independent
    // of the process locale. A directory that cannot be walked to its end
    // lists nothing.
    void readEntries();

    // The file members, the folder members and all members, each in
    // archive order.
    QList<QString> getFilenames() const { return namesOf(false); }
    QList<QString> getFolders() const { return namesOf(true); }
    QList<Entry> getEntryList() const;

    // The file members as a tree: every path component but the last maps to
    // a nested QMap<QString, QVariant>, the last to the full path.
    QMap<QString, QVariant> getEntriesMap() const;
    static void insertMap(QMap<QString, QVariant> &map, QString path, QString fullPath);

    // The member's size in the archive (compressed); 0 when it cannot be
    // found. A name held by several members means the last of them.
    qint64 getEntrySize(QString name);
    // The member's whole uncompressed content. False when the member is
    // missing, cannot be opened or turns out damaged; the output is then
    // left untouched.
    bool getEntryData(QString name, QByteArray &data);
    // Same, written at the buffer's cursor under its write rule.
    bool getEntryData(QString name, MemoryBuffer *buffer);

private:
    // Where a member's directory record lies, so that reading a member
    // needs no search by name.
    struct Position
    {
        quint64 directoryOffset;
        quint64 index;
    };

    bool openBytes(const MemoryBuffer *buffer, bool copy);
    bool openReader(QBuffer *device, zlib_filefunc_def_s *io);
    bool listMembers();
    bool selectEntry(const QString &name);
    QList<QString> namesOf(bool folders) const;

    bool m_isOpen = false;
    std::unique_ptr<QuaZip> m_zip;
    std::unique_ptr<QByteArray> m_data;
    std::unique_ptr<QBuffer> m_buffer;
    // Every member listed so far, in archive order: the file, folder and
    // entry lists are views of it.
    QList<QString> m_names;
    // Where the records of the archive now open lie, in archive order; its
    // first member in m_names; and, built on the first lookup, which of its
    // members each name reads as (the last one of that name).
    QVector<Position> m_positions;
    int m_firstOpenEntry = 0;
    QHash<QString, int> m_lookup;
};

class Zip
{
public:
    Zip();
    ~Zip();
    Zip(const Zip &) = delete;
    Zip &operator=(const Zip &) = delete;

    // Starts a new archive in memory with size bytes reserved for it.
    bool open(int size);
    // Adds a deflated member under exactly the given name. A name given
    // twice makes two members; no folder members are made.
    bool addEntry(QString name, const QByteArray &data);
    // Adds all of the buffer's bytes, whatever its cursor.
    bool addEntry(QString name, MemoryBuffer *buffer);
    // Finishes the archive (writes its central directory).
    bool close();

    int getZipFileSize() const;
    // Both finish the archive first; no entries can be added afterwards.
    bool copyZipFile(QByteArray &out);
    bool copyZipFileToBuffer(MemoryBuffer *buffer);

private:
    bool writeEntry(const QString &name, const char *data, qint64 size);

    std::unique_ptr<QuaZip> m_zip;
    bool m_isOpen = false;
    std::unique_ptr<QBuffer> m_buffer;
    std::unique_ptr<QByteArray> m_data;
};

} // namespace ZipUtils
