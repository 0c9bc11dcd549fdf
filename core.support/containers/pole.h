#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <memory>

class MemoryBuffer;
class QIODevice;

// Compound files (structured storage: storages and streams inside one file)
// read and written in a caller's MemoryBuffer or through a caller's device
// (a QFile, say). Either is used in place: the file is never copied as a
// whole, and reading a stream reads the tables, the directory and that
// stream's sectors.
//
// A Storage is used by one thread at a time. Streams opened on a storage must
// not be used after the storage is closed or destroyed; they then behave as
// streams that could not be opened.
namespace POLE {

class StorageIO;
class StreamIO;

// The header fields of an opened file, for tools that show them.
struct HeaderInfo
{
    unsigned bigBlockShift = 0;   // sector size is 1 << bigBlockShift
    unsigned smallBlockShift = 0; // small-block size is 1 << smallBlockShift
    uint64_t numBat = 0;
    uint64_t direntStart = 0;
    uint64_t threshold = 0;
    uint64_t sbatStart = 0;
    uint64_t numSbat = 0;
    uint64_t mbatStart = 0;
    uint64_t numMbat = 0;
};

class Storage
{
public:
    // Result codes of result().
    enum Result { Ok = 0, OpenFailed = 1, NotOLE = 2, BadOLE = 3 };

    explicit Storage(MemoryBuffer *buffer);
    // Over a caller's random-access device, which must outlive the storage.
    // A device that is already open is used as it is (it must be readable,
    // and writable for changes) and close() leaves it open; a closed one is
    // opened by open() (read-only, read-write, or truncated to create a new
    // file) and closed again by close().
    explicit Storage(QIODevice *device);
    ~Storage();

    Storage(const Storage &) = delete;
    Storage &operator=(const Storage &) = delete;

    // Loads the compound file in the buffer, or with create replaces the
    // buffer's contents by a new, empty compound file. True when result() is Ok.
    bool open(bool writeable = false, bool create = false);
    // Closes the device without writing anything; see flush().
    void close();
    // Writes every change made since the last flush into the buffer.
    void flush();

    int result() const;
    bool isWriteable() const;
    HeaderInfo headerInfo() const;

    // What could not be read of the opened file, one problem a line (at most
    // twenty): tables or directory entries beyond the end of the file, chains
    // that loop or lead nowhere, links into nothing, names repeated among
    // siblings, entries no walk reaches. Empty for a sound file. When open()
    // fails on a bad header, why.
    QStringList damage() const;
    // The device's own words for the first read or write that failed since
    // open(), a full disk say; empty while every one succeeded. Changes that
    // could not be written leave the file as it was or damaged: a caller
    // checks this after flush().
    QString errorString() const;

    QStringList entries(const QString &path = QStringLiteral("/")) const;
    bool isDirectory(const QString &path) const;
    bool exists(const QString &path) const;
    // Names are compared exactly, as lookups do; the format itself tells
    // names apart without regard to case. `resolved` gets `path` with every
    // part that names an entry spelt as the entry is: an exact name, else the
    // one sibling whose name differs only in case. From the first part that
    // names nothing on, the parts stay as given. False, with the matching
    // entries in `candidates`, when a part matches several siblings.
    bool resolvePath(const QString &path, QString &resolved, QStringList *candidates = nullptr) const;
    bool getClassId(const QString &path, QString &id) const;
    bool setClassId(const QString &path, const QString &id);

    bool getEntryData(const QString &path, MemoryBuffer *buffer);
    bool getEntryData(const QString &path, QIODevice &device);
    bool addEntry(const QString &path, MemoryBuffer *buffer);
    bool addEntry(const QString &path, QIODevice &device);
    bool deleteByName(const QString &path);

    QMap<QString, QVariant> getEntriesMap() const;
    QStringList GetAllStreams(const QString &path) const;
    void GetStats(uint64_t &dirEntries, uint64_t &unusedDirEntries, uint64_t &batEntries,
                  uint64_t &freeBatEntries, uint64_t &sbatEntries, uint64_t &freeSbatEntries) const;

    static void insertMap(QMap<QString, QVariant> &map, const QString &path, const QString &value);

private:
    friend class Stream;
    std::unique_ptr<StorageIO> m_io;
};

class Stream
{
public:
    // Opens the stream at path; with create on a writeable storage a missing
    // stream (and any storage on its way) is created with the given size,
    // unless a missing name differs only in case from an existing sibling's.
    Stream(Storage *storage, const QString &path, bool create = false, long long size = 0);
    ~Stream();

    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    QString fullName() const;
    unsigned long long tell() const;
    bool eof() const;
    // True without a stream, and once a read came short of the stream's size.
    bool fail() const;
    // Why the stream cannot be read in full (a chain that ends early, loops,
    // runs into another or leaves the file) and how many bytes can; empty
    // when it can. Reads return only bytes the file holds for the stream.
    QString damage() const;
    unsigned long long size() const;
    void setSize(long long size);
    void seek(unsigned long long pos);
    int getch();
    unsigned long long read(unsigned char *data, unsigned long long maxlen);
    unsigned long long write(const unsigned char *data, unsigned long long len);
    void flush();
    QString getClassId() const;

private:
    std::unique_ptr<StreamIO> m_io;
};

} // namespace POLE
