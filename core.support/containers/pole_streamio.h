#pragma once

// Internal to the compound-file storage: one opened stream.

#include "containers/pole_alloctable.h"

#include <QString>

#include <array>
#include <vector>

namespace POLE {

class StorageIO;
struct DirEntry;

class StreamIO
{
public:
    StreamIO(StorageIO *io, uint64_t entry, const QString &name);
    ~StreamIO();

    StreamIO(const StreamIO &) = delete;
    StreamIO &operator=(const StreamIO &) = delete;

    // The storage closed: the stream behaves as one that failed to open.
    void detach() { m_io = nullptr; }
    bool attached() const { return m_io != nullptr; }

    DirEntry *entry() const;
    uint64_t size() const;
    QString fullName() const { return m_fullName; }

    // Reads from `pos`, at most to the end of the stream; a read that comes
    // short of it (damage, see damage()) sets m_fail.
    uint64_t read(uint64_t pos, unsigned char *data, uint64_t maxlen);
    uint64_t write(uint64_t pos, const unsigned char *data, uint64_t len);
    void setSize(uint64_t newSize);
    int getch();
    void flush();

    // Why the stream cannot be read in full, with how much of it can; empty
    // when it can.
    QString damage() const;

    uint64_t m_pos = 0;
    bool m_eof = false;
    bool m_fail = false;

private:
    static constexpr size_t kCacheSize = 4096;

    bool isSmall() const;
    void resize(uint64_t newSize);
    uint64_t writeBlocks(uint64_t pos, const unsigned char *data, uint64_t len);
    void fillZeros(uint64_t from, uint64_t to);

    StorageIO *m_io;
    uint64_t m_entry;
    QString m_fullName;
    AllocTable::Walk m_chain;
    std::array<unsigned char, kCacheSize> m_cache{};
    uint64_t m_cacheSize = 0;
    uint64_t m_cachePos = 0;
};

} // namespace POLE
