#pragma once

// Internal to the compound-file storage: an opened file. Loads the header,
// the tables and the directory, moves stream data between the caller's
// bytes and the device, allocates and frees blocks, and writes the changed
// tables back on a flush.

#include "containers/pole_alloctable.h"
#include "containers/pole_dirtree.h"
#include "containers/pole_header.h"

#include <QIODevice>
#include <QStringList>

#include <memory>
#include <vector>

class IOMemoryBuffer;
class MemoryBuffer;

namespace POLE {

class StreamIO;

class StorageIO
{
public:
    explicit StorageIO(MemoryBuffer *buffer);
    explicit StorageIO(QIODevice *device);
    ~StorageIO();

    StorageIO(const StorageIO &) = delete;
    StorageIO &operator=(const StorageIO &) = delete;

    bool open(bool writeable, bool create);
    void close();
    void flush();

    bool opened() const { return m_opened; }
    bool writeable() const { return m_opened && m_writeable; }
    int result() const { return m_result; }
    const QStringList &damage() const { return m_damage; }
    const QString &errorString() const { return m_error; }

    const Header &header() const { return m_header; }
    DirTree &dirtree() { return m_dirtree; }
    const DirTree &dirtree() const { return m_dirtree; }
    const AllocTable &bbat() const { return m_bbat; }
    const AllocTable &sbat() const { return m_sbat; }

    uint64_t bigBlockSize() const { return uint64_t(1) << m_header.b_shift; }
    uint64_t smallBlockSize() const { return uint64_t(1) << m_header.s_shift; }
    uint64_t threshold() const { return m_header.threshold; }
    uint64_t fileSize() const { return m_filesize; }

    // The entry a path names, or npos; nothing is found in an unopened storage.
    uint64_t find(const QString &path) const { return m_opened ? m_dirtree.find(path) : npos; }

    std::unique_ptr<StreamIO> streamIO(const QString &path, bool create, uint64_t size);
    bool deleteEntry(const QString &path, int depth);

    // The block chain of a stream entry: in a writeable storage all of it;
    // in a read-only one the blocks its size needs, each claimed for the
    // entry, so that a chain running into another's ends there.
    AllocTable::Walk chainOf(uint64_t entry) const;
    // Who holds a block claimed by another chain, in words.
    QString ownerName(uint32_t owner) const;
    // How far the table a stream's blocks come from was meant to reach: a
    // chain that leaves the table below this leaves the file.
    uint64_t claimedEntries(bool small) const { return small ? m_sbat.count() : m_claimedBatEntries; }

    // Where block `index` of a chain starts in the file; false when a small
    // block lies outside the small-block container.
    bool blockOffset(const std::vector<uint64_t> &chain, bool small, uint64_t index, uint64_t &offset) const;
    // Copies between `data` and the blocks of a chain, from byte `pos` of the
    // chain on; contiguous blocks move in one device operation. Stops at the
    // end of the chain and, reading, at the end of the file: only bytes the
    // file holds are returned.
    uint64_t transfer(const std::vector<uint64_t> &chain, bool small, uint64_t pos, unsigned char *readTo,
                      const unsigned char *writeFrom, uint64_t len);

    uint64_t extendFile(std::vector<uint64_t> &chain);
    void addSmallBlock(std::vector<uint64_t> &chain);
    // Frees the blocks of a chain and overwrites them with zeros.
    void freeChain(const std::vector<uint64_t> &chain, bool small);

    void registerStream(StreamIO *stream) { m_streams.push_back(stream); }
    void unregisterStream(StreamIO *stream);

private:
    bool createNew();
    void load(bool writeable);
    bool loadTables();
    bool openDevice(QIODevice::OpenMode mode);

    // Reads what the file holds of the range; returns the bytes read.
    uint64_t readAt(uint64_t offset, unsigned char *data, uint64_t len);
    void writeAt(uint64_t offset, const unsigned char *data, uint64_t len);
    bool writeAll(const unsigned char *data, uint64_t len, uint64_t offset);
    void noteError(const QString &fallback);
    uint64_t sectorOffset(uint64_t sector) const { return (sector + 1) << m_header.b_shift; }
    // Reads the sectors of a table's chain; bytes the file lacks read as free entries.
    std::vector<unsigned char> loadTableChain(const std::vector<uint64_t> &chain, const QString &what);
    // Writes one whole sector, refusing numbers the table does not know:
    // a damaged file must not make us write terabytes away.
    void saveSector(uint64_t sector, const unsigned char *data, uint64_t len);
    uint64_t fileSectors() const
    {
        return m_filesize > bigBlockSize() ? (m_filesize - 1) >> m_header.b_shift : 0;
    }
    void addBatBlock();
    void coverTable();
    void padToAllocatedEnd();
    void zeroBlocks(const std::vector<uint64_t> &chain, bool small);
    void noteDamage(const QString &problem);
    void noteChain(const QString &what, const AllocTable::Walk &walk, uint64_t start);
    void claim(const std::vector<uint64_t> &sectors, uint32_t owner);

    std::unique_ptr<IOMemoryBuffer> m_ownDevice; // over the caller's buffer, if given one
    QIODevice *m_device;                         // that device, or the caller's
    bool m_closeDevice = false;                  // whether open() opened the device
    int m_result = 1;
    bool m_opened = false;
    uint64_t m_filesize = 0;
    bool m_writeable = false;
    Header m_header;
    DirTree m_dirtree;
    AllocTable m_bbat;
    AllocTable m_sbat;
    uint64_t m_claimedBatEntries = 0;
    std::vector<uint64_t> m_sb_blocks;   // the small-block container's chain
    std::vector<uint64_t> m_mbat_blocks; // MBAT sector numbers
    std::vector<uint64_t> m_mbat_data;   // BAT sector numbers held in MBAT sectors
    bool m_mbatDirty = false;
    std::vector<StreamIO *> m_streams;
    QStringList m_damage;
    QString m_error;
    // Owners of blocks, in read-only storages: entry index + 1, or one of
    // the owners below; 0 for none.
    mutable std::vector<uint32_t> m_bigOwners;
    mutable std::vector<uint32_t> m_smallOwners;
};

} // namespace POLE
