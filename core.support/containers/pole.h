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

    QStringList entries(const QString &path = QStringLiteral("/")) const;
    bool isDirectory(const QString &path) const;
    bool exists(const QString &path) const;
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

    // Dumps the header, the tables and the directory to standard output.
    void debug() const;

private:
    friend class Stream;
    std::unique_ptr<StorageIO> m_io;
};

class Stream
{
public:
    // Opens the stream at path; with create on a writeable storage a missing
    // stream (and any storage on its way) is created with the given size.
    Stream(Storage *storage, const QString &path, bool create = false, long long size = 0);
    ~Stream();

    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    QString fullName() const;
    unsigned long long tell() const;
    bool eof() const;
    bool fail() const;
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
