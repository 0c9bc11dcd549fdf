#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

#include <memory>

class MemoryBuffer;
class QBuffer;
class QIODevice;

// Zip archives: Unzip reads an archive from a buffer or a device, Zip builds
// one in memory entry by entry and hands the bytes over. Failures are
// reported by results; nothing here throws except a target buffer's write
// rule and memory exhaustion.
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

// Why the last read of a member gave nothing.
enum class EntryError {
    None,
    NotFound, // no member of that name, or no archive open
    TooLarge, // it inflates to more than the member limit
    Damaged,  // bad compressed data, a CRC or size mismatch, an unreadable record
};

class Unzip
{
public:
    // A member may inflate to this many bytes unless the caller allows more
    // (setMemberLimit): enough for any part of an ordinary document, small
    // enough that a few MB of hostile deflate data cannot take gigabytes.
    static constexpr qint64 kDefaultMemberLimit = qint64(256) << 20;
    // The most a member can ever be handed over as: a byte array's limit.
    static constexpr qint64 kMaxMemberLimit = 0x7fff0000;
    // The entries map nests folders this deep; below that, the rest of a
    // path is one key (see getEntriesMap).
    static constexpr int kMaxMapDepth = 64;

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
    // Opens an archive over the caller's buffer device, which must outlive
    // this object (or its close()).
    bool open(QBuffer *device);
    // Opens an archive over any seekable device open for reading, such as a
    // QFile: only the end records, the central directory and the members
    // read are fetched from it. The device must outlive this object (or its
    // close()) and is left open.
    bool open(QIODevice *device);
    void close();

    // Appends the archive's members to the lists (done by open()). Names are
    // decoded as UTF-8 whatever the archive's flags say: that is what
    // archives made on this platform hold, and it keeps lookups independent
    // of the process locale. A directory that cannot be walked to its end
    // lists nothing.
    void readEntries();

    // The file members, the folder members and all members, each in
    // archive order. A name held by several members is listed each time.
    QList<QString> getFilenames() const;
    QList<QString> getFolders() const;
    QList<Entry> getEntryList() const;
    // The names held by more than one member of the open archive, each once,
    // in the order of their first member. Every lookup by such a name finds
    // its first member, as other readers of the archive do.
    QList<QString> getDuplicateNames() const;

    // The file members as a tree: every path component but the last maps to
    // a nested QMap<QString, QVariant>, the last to the full path. Past
    // kMaxMapDepth folders the rest of the path is the leaf's key, so that
    // no name, however deep, nests maps without end.
    QMap<QString, QVariant> getEntriesMap() const;
    static void insertMap(QMap<QString, QVariant> &map, QString path, QString fullPath);

    // The member's size in the archive (compressed); 0 when it cannot be
    // found.
    qint64 getEntrySize(QString name);
    // The member's whole uncompressed content. False when the member is
    // missing, larger than the member limit, or damaged; the output is then
    // left untouched and lastEntryError() says which.
    bool getEntryData(QString name, QByteArray &data);
    // Same, written at the buffer's cursor under its write rule.
    bool getEntryData(QString name, MemoryBuffer *buffer);
    EntryError lastEntryError() const;

    // How many bytes one member may inflate to; at most kMaxMemberLimit.
    void setMemberLimit(qint64 bytes);
    qint64 memberLimit() const;

    // How much memory the member list of one open() may take, counted as
    // the names' size in memory plus kListCostPerMember for each member.
    // The rest of a larger directory is not listed: its members can be
    // neither read nor found, and isListComplete() says so. Unlimited
    // unless set; takes effect at the next open().
    static constexpr qint64 kListCostPerMember = 64;
    void setListLimit(qint64 bytes);
    bool isListComplete() const;

private:
    struct Private;
    std::unique_ptr<Private> m_d;
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
    struct Private;
    std::unique_ptr<Private> m_d;
};

} // namespace ZipUtils
