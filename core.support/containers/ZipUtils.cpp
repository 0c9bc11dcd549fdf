#include "containers/ZipUtils.h"

#include "buffers/MemoryBuffer.h"

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipnewinfo.h>
#include <quazip/unzip.h>

#include <QBuffer>
#include <QHash>
#include <QSet>
#include <QVector>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

namespace {

const char kUtf8[] = "UTF-8";

// The fixed part of a central directory record.
const quint64 kDirectoryRecordSize = 46;
const int kShortName = 256;

// Deflate cannot expand a stream by more than about 1032:1, so a member can
// never honestly produce more than this many bytes per compressed byte.
const qint64 kMaxDeflateRatio = 1032;
const qint64 kReadChunk = 64 * 1024;
// The first allocation for a member; larger ones grow as the bytes arrive.
const qint64 kMaxReserve = 16 * 1024 * 1024;
// How much of a device is fetched at a time: the reader asks for its
// records a few bytes at a time, and the directory is read front to back.
const qint64 kDeviceWindow = 64 * 1024;

// The archive's bytes as the reader sees them: all in memory, or fetched
// from a device a window at a time. Offsets beyond the end are refused, as
// a buffer device would.
class Source
{
public:
    Source(const char *data, qint64 size) : m_window(data), m_windowSize(size), m_size(size) {}
    explicit Source(QIODevice *device) : m_device(device), m_size(device->size()) {}

    qint64 size() const { return m_size; }

    // Copies up to count bytes at offset; the number copied.
    qint64 read(qint64 offset, char *target, qint64 count)
    {
        count = std::max<qint64>(0, std::min(count, m_size - offset));
        qint64 done = 0;
        while (done < count) {
            const qint64 at = offset + done;
            if (at < m_windowStart || at >= m_windowStart + m_windowSize) {
                // A large read goes straight to the target, a small one
                // through the window, which the next small reads then use.
                if (count - done >= kDeviceWindow)
                    return done + fetch(at, target + done, count - done);
                if (!fill(at, count - done))
                    return done;
            }
            const qint64 step = std::min(count - done, m_windowStart + m_windowSize - at);
            std::memcpy(target + done, m_window + (at - m_windowStart), static_cast<size_t>(step));
            done += step;
        }
        return done;
    }

private:
    qint64 fetch(qint64 offset, char *target, qint64 count)
    {
        if (!m_device || !m_device->seek(offset))
            return 0;
        return std::max<qint64>(0, m_device->read(target, count));
    }

    // Fetches the window holding the count bytes at offset. The end records
    // are searched backwards from the end of the archive, so a window that
    // moves back ends where the request does.
    bool fill(qint64 offset, qint64 count)
    {
        const qint64 start = offset < m_windowStart ? std::max<qint64>(0, offset + count - kDeviceWindow) : offset;
        m_cache.resize(static_cast<int>(kDeviceWindow));
        const qint64 got = fetch(start, m_cache.data(), kDeviceWindow);
        m_window = m_cache.constData();
        m_windowStart = start;
        m_windowSize = got;
        return offset < start + got;
    }

    QIODevice *m_device = nullptr;
    QByteArray m_cache;
    const char *m_window = nullptr;
    qint64 m_windowStart = 0;
    qint64 m_windowSize = 0;
    qint64 m_size;
};

// The reader's file functions over a Source (its opaque pointer). Each
// stream the reader opens keeps its own position.
namespace SourceIo {

struct Stream
{
    Source *source;
    quint64 position;
};

Source &sourceOf(voidpf stream)
{
    return *static_cast<Stream *>(stream)->source;
}

voidpf ZCALLBACK open(voidpf opaque, voidpf, int mode)
{
    if ((mode & ZLIB_FILEFUNC_MODE_READ) == 0)
        return nullptr;
    return new Stream{static_cast<Source *>(opaque), 0};
}

uLong ZCALLBACK read(voidpf, voidpf stream, void *target, uLong size)
{
    Stream &s = *static_cast<Stream *>(stream);
    const qint64 got = s.source->read(static_cast<qint64>(s.position), static_cast<char *>(target),
                                      static_cast<qint64>(std::min<uLong>(size, std::numeric_limits<qint64>::max())));
    s.position += static_cast<quint64>(got);
    return static_cast<uLong>(got);
}

uLong ZCALLBACK write(voidpf, voidpf, const void *, uLong)
{
    return 0;
}

ZPOS64_T ZCALLBACK tell(voidpf, voidpf stream)
{
    return static_cast<Stream *>(stream)->position;
}

int ZCALLBACK seek(voidpf, voidpf stream, ZPOS64_T offset, int origin)
{
    Stream &s = *static_cast<Stream *>(stream);
    const quint64 size = static_cast<quint64>(sourceOf(stream).size());
    const quint64 base = origin == ZLIB_FILEFUNC_SEEK_END   ? size
                         : origin == ZLIB_FILEFUNC_SEEK_CUR ? s.position
                                                            : 0;
    quint64 target;
    if (__builtin_add_overflow(base, offset, &target) || target > size)
        return -1;
    s.position = target;
    return 0;
}

int ZCALLBACK close(voidpf, voidpf stream)
{
    delete static_cast<Stream *>(stream);
    return 0;
}

int ZCALLBACK error(voidpf, voidpf)
{
    return 0;
}

zlib_filefunc64_def functions(Source *source)
{
    return {open, read, write, tell, seek, close, error, source, close};
}

} // namespace SourceIo

bool isFolderName(const QString &name)
{
    return name.endsWith(QLatin1Char('/')) || name.endsWith(QLatin1Char('\\'));
}

bool isAscii(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
}

QMap<QString, QVariant> asMap(const QVariant &value)
{
    return value.type() == QVariant::Map ? value.toMap() : QMap<QString, QVariant>();
}

// Reads the current member to its end and checks it. The claimed size only
// sizes the first allocation, and never beyond what the compressed bytes
// could produce: a record is free to lie. Reading stops one byte past the
// limit, whatever the record claims.
ZipUtils::EntryError readMember(unzFile handle, const unz_file_info64 &info, qint64 limit, QByteArray &content)
{
    using ZipUtils::EntryError;
    if (unzOpenCurrentFile(handle) != UNZ_OK)
        return EntryError::Damaged;
    const quint64 honest = std::min<quint64>(info.uncompressed_size, (info.compressed_size + 1) * kMaxDeflateRatio);
    content.reserve(static_cast<int>(std::min<quint64>({honest, static_cast<quint64>(limit), static_cast<quint64>(kMaxReserve)})));
    int status = UNZ_OK;
    while (content.size() <= limit) {
        const qint64 before = content.size();
        const qint64 step = std::min(kReadChunk, limit + 1 - before);
        content.resize(static_cast<int>(before + step));
        const int got = unzReadCurrentFile(handle, content.data() + before, static_cast<unsigned>(step));
        content.resize(static_cast<int>(before + std::max(got, 0)));
        if (got <= 0) {
            status = got;
            break;
        }
    }
    if (content.size() > limit) {
        unzCloseCurrentFile(handle);
        return EntryError::TooLarge;
    }
    // Closing checks the CRC once the member was read to its end.
    const int closed = unzCloseCurrentFile(handle);
    const bool whole = status == UNZ_OK && closed == UNZ_OK
                       && static_cast<quint64>(content.size()) == info.uncompressed_size;
    return whole ? EntryError::None : EntryError::Damaged;
}

} // namespace

namespace ZipUtils {

// --- Entry ------------------------------------------------------------------

bool Entry::add(QString name, bool isFolder)
{
    m_name = std::move(name);
    m_isFolder = isFolder;
    return true;
}

// --- Unzip ------------------------------------------------------------------

struct Unzip::Private
{
    // Where a member's directory record lies, so that reading a member
    // needs no search by name.
    struct Position
    {
        quint64 directoryOffset;
        quint64 index;
    };

    // Opens the archive over the source and lists its members; closed again
    // on failure.
    bool open(std::unique_ptr<Source> from);
    void close();
    void readEntries();
    bool listMembers();
    // Which member of the open archive each name reads as: the first of
    // that name. Built on the first lookup, with the duplicate names.
    const QHash<QString, int> &lookup() const;
    bool selectEntry(const QString &name);
    QList<QString> namesOf(bool folders) const;

    bool isOpen = false;
    unzFile handle = nullptr;
    std::unique_ptr<Source> source;
    // The archive's bytes when they were copied from the caller's buffer.
    QByteArray copy;
    // Every member listed so far, in archive order: the file, folder and
    // entry lists are views of it.
    QList<QString> names;
    // Where the records of the archive now open lie, in archive order, and
    // its first member in names.
    QVector<Position> positions;
    int firstOpenEntry = 0;
    mutable QHash<QString, int> byName;
    mutable QList<QString> duplicates;
    qint64 memberLimit = kDefaultMemberLimit;
    qint64 listLimit = std::numeric_limits<qint64>::max();
    bool listComplete = true;
    EntryError lastError = EntryError::None;
};

bool Unzip::Private::open(std::unique_ptr<Source> from)
{
    source = std::move(from);
    zlib_filefunc64_def io = SourceIo::functions(source.get());
    handle = unzOpen2_64(nullptr, &io);
    if (handle == nullptr) {
        close();
        return false;
    }
    isOpen = true;
    listComplete = true;
    firstOpenEntry = names.size();
    readEntries();
    return true;
}

void Unzip::Private::close()
{
    if (handle != nullptr)
        unzClose(handle);
    handle = nullptr;
    isOpen = false;
    source.reset();
    copy.clear();
    positions.clear();
    byName.clear();
    duplicates.clear();
}

void Unzip::Private::readEntries()
{
    if (!isOpen)
        return;
    const int listed = names.size();
    const int placed = positions.size();
    if (!listMembers()) {
        names.erase(names.begin() + listed, names.end());
        positions.resize(placed);
    }
    byName.clear();
    duplicates.clear();
}

// Walks the central directory with the reader's own calls: they read a name
// of any length, and tell where each record lies. Appends to the member
// lists as it goes; the caller takes everything back on failure.
bool Unzip::Private::listMembers()
{
    // Every record takes at least its fixed part, so no honest directory
    // holds more members than this.
    const quint64 maxMembers = static_cast<quint64>(source->size()) / kDirectoryRecordSize;
    // Most names are short; a longer one is read again with room for it.
    QByteArray rawName(kShortName, '\0');
    const auto readCurrent = [this, &rawName](unz_file_info64 &info) {
        return unzGetCurrentFileInfo64(handle, &info, rawName.data(), static_cast<uLong>(rawName.size()), nullptr,
                                       0, nullptr, 0)
               == UNZ_OK;
    };
    qint64 cost = 0;
    int status = unzGoToFirstFile(handle);
    for (quint64 count = 0; status == UNZ_OK; ++count) {
        unz_file_info64 info;
        unz64_file_pos position;
        if (count >= maxMembers || !readCurrent(info))
            return false;
        cost += 2 * static_cast<qint64>(info.size_filename) + kListCostPerMember;
        if (cost > listLimit) {
            listComplete = false;
            return true;
        }
        if (info.size_filename > static_cast<uLong>(rawName.size())) {
            rawName.resize(static_cast<int>(info.size_filename));
            if (!readCurrent(info))
                return false;
        }
        if (unzGetFilePos64(handle, &position) != UNZ_OK)
            return false;
        names.append(QString::fromUtf8(rawName.constData(), static_cast<int>(info.size_filename)));
        positions.append({position.pos_in_zip_directory, position.num_of_file});
        status = unzGoToNextFile(handle);
    }
    return status == UNZ_END_OF_LIST_OF_FILE;
}

const QHash<QString, int> &Unzip::Private::lookup() const
{
    if (byName.isEmpty() && !positions.isEmpty()) {
        byName.reserve(positions.size());
        QSet<QString> seenTwice;
        for (int i = 0; i < positions.size(); ++i) {
            const QString &name = names.at(firstOpenEntry + i);
            if (!byName.contains(name))
                byName.insert(name, i);
            else if (!seenTwice.contains(name)) {
                seenTwice.insert(name);
                duplicates.append(name);
            }
        }
    }
    return byName;
}

bool Unzip::Private::selectEntry(const QString &name)
{
    if (!isOpen)
        return false;
    const QHash<QString, int> &members = lookup();
    const auto found = members.constFind(name);
    if (found == members.cend())
        return false;
    const Position &where = positions.at(*found);
    const unz64_file_pos position = {where.directoryOffset, where.index};
    return unzGoToFilePos64(handle, &position) == UNZ_OK;
}

QList<QString> Unzip::Private::namesOf(bool folders) const
{
    QList<QString> selected;
    for (const QString &name : names)
        if (isFolderName(name) == folders)
            selected.append(name);
    return selected;
}

Unzip::Unzip() : m_d(std::make_unique<Private>()) {}

Unzip::~Unzip()
{
    close();
}

bool Unzip::open(MemoryBuffer *buffer)
{
    close();
    if (!buffer || buffer->sizeOfMB() == 0
        || buffer->sizeOfMB() > static_cast<size_t>(std::numeric_limits<int>::max()))
        return false;
    m_d->copy = QByteArray(reinterpret_cast<const char *>(buffer->constData()), static_cast<int>(buffer->sizeOfMB()));
    return m_d->open(std::make_unique<Source>(m_d->copy.constData(), m_d->copy.size()));
}

bool Unzip::openInPlace(const MemoryBuffer *buffer)
{
    close();
    if (!buffer || buffer->sizeOfMB() == 0)
        return false;
    const auto size = static_cast<qint64>(std::min<size_t>(buffer->sizeOfMB(), std::numeric_limits<qint64>::max()));
    return m_d->open(std::make_unique<Source>(reinterpret_cast<const char *>(buffer->constData()), size));
}

bool Unzip::open(QBuffer *device)
{
    close();
    if (!device || device->buffer().isEmpty())
        return false;
    const QByteArray &bytes = device->buffer();
    return m_d->open(std::make_unique<Source>(bytes.constData(), bytes.size()));
}

bool Unzip::open(QIODevice *device)
{
    if (auto *buffer = qobject_cast<QBuffer *>(device))
        return open(buffer);
    close();
    if (!device || !device->isReadable() || device->isSequential() || device->size() <= 0)
        return false;
    return m_d->open(std::make_unique<Source>(device));
}

void Unzip::close()
{
    m_d->close();
}

void Unzip::readEntries()
{
    m_d->readEntries();
}

QList<QString> Unzip::getFilenames() const
{
    return m_d->namesOf(false);
}

QList<QString> Unzip::getFolders() const
{
    return m_d->namesOf(true);
}

QList<Entry> Unzip::getEntryList() const
{
    QList<Entry> entries;
    entries.reserve(m_d->names.size());
    for (const QString &name : qAsConst(m_d->names)) {
        Entry entry;
        entry.add(name, isFolderName(name));
        entries.append(entry);
    }
    return entries;
}

QList<QString> Unzip::getDuplicateNames() const
{
    m_d->lookup();
    return m_d->duplicates;
}

QMap<QString, QVariant> Unzip::getEntriesMap() const
{
    QList<QString> names = getFilenames();
    std::sort(names.begin(), names.end());
    QMap<QString, QVariant> map;
    for (const QString &name : names)
        insertMap(map, name, name);
    return map;
}

// Walks down the folders taking each nested map out by value, puts the leaf
// in the deepest one and stores them back bottom-up. Nesting stops at
// kMaxMapDepth: copying and destroying nested maps recurses once per level,
// and a stored name may have tens of thousands of components.
void Unzip::insertMap(QMap<QString, QVariant> &map, QString path, QString fullPath)
{
    QStringList parts = path.split(QLatin1Char('/'));
    if (parts.isEmpty())
        return;
    if (parts.size() > kMaxMapDepth + 1) {
        const QString rest = parts.mid(kMaxMapDepth).join(QLatin1Char('/'));
        parts.erase(parts.begin() + kMaxMapDepth, parts.end());
        parts.append(rest);
    }
    const int folderCount = parts.size() - 1;
    std::vector<QMap<QString, QVariant>> folders;
    folders.reserve(static_cast<size_t>(folderCount));
    for (int i = 0; i < folderCount; ++i) {
        const QMap<QString, QVariant> &parent = i == 0 ? map : folders.back();
        folders.push_back(asMap(parent.value(parts.at(i))));
    }
    QMap<QString, QVariant> &deepest = folders.empty() ? map : folders.back();
    deepest.insert(parts.last(), QVariant(fullPath));
    for (int i = folderCount - 1; i >= 0; --i) {
        QMap<QString, QVariant> &parent = i == 0 ? map : folders[static_cast<size_t>(i - 1)];
        parent.insert(parts.at(i), QVariant(std::move(folders[static_cast<size_t>(i)])));
        folders.pop_back();
    }
}

qint64 Unzip::getEntrySize(QString name)
{
    unz_file_info64 info;
    if (!m_d->selectEntry(name)
        || unzGetCurrentFileInfo64(m_d->handle, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        return 0;
    return static_cast<qint64>(std::min<quint64>(info.compressed_size, std::numeric_limits<qint64>::max()));
}

bool Unzip::getEntryData(QString name, QByteArray &data)
{
    EntryError &error = m_d->lastError;
    unz_file_info64 info;
    if (!m_d->selectEntry(name)) {
        error = EntryError::NotFound;
        return false;
    }
    if (unzGetCurrentFileInfo64(m_d->handle, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK
        || info.compressed_size > static_cast<quint64>(m_d->source->size())) {
        error = EntryError::Damaged;
        return false;
    }
    if (info.uncompressed_size > static_cast<quint64>(m_d->memberLimit)) {
        error = EntryError::TooLarge;
        return false;
    }
    QByteArray content;
    error = readMember(m_d->handle, info, m_d->memberLimit, content);
    if (error != EntryError::None)
        return false;
    data = std::move(content);
    return true;
}

bool Unzip::getEntryData(QString name, MemoryBuffer *buffer)
{
    if (!buffer)
        return false;
    QByteArray data;
    if (!getEntryData(std::move(name), data))
        return false;
    buffer->putRawBytes(data.constData(), static_cast<size_t>(data.size()));
    return true;
}

EntryError Unzip::lastEntryError() const
{
    return m_d->lastError;
}

void Unzip::setListLimit(qint64 bytes)
{
    m_d->listLimit = std::max<qint64>(bytes, 0);
}

bool Unzip::isListComplete() const
{
    return m_d->listComplete;
}

void Unzip::setMemberLimit(qint64 bytes)
{
    m_d->memberLimit = std::clamp<qint64>(bytes, 0, kMaxMemberLimit);
}

qint64 Unzip::memberLimit() const
{
    return m_d->memberLimit;
}

// --- Zip --------------------------------------------------------------------

struct Zip::Private
{
    bool write(const QString &name, const char *data, qint64 size);

    std::unique_ptr<QuaZip> zip;
    bool isOpen = false;
    std::unique_ptr<QByteArray> data;
    std::unique_ptr<QBuffer> buffer;
};

Zip::Zip() : m_d(std::make_unique<Private>()) {}

Zip::~Zip()
{
    close();
    m_d->zip.reset(); // it may close the buffer, so it goes first
}

// Opening an archive that is already open is refused rather than silently
// throwing away what was added so far.
bool Zip::open(int size)
{
    if (m_d->isOpen)
        return false;
    m_d->zip.reset();
    m_d->buffer.reset();
    m_d->data = std::make_unique<QByteArray>();
    if (size > 0)
        m_d->data->reserve(size);
    m_d->buffer = std::make_unique<QBuffer>(m_d->data.get());
    m_d->zip = std::make_unique<QuaZip>();
    m_d->zip->setDataDescriptorWritingEnabled(true);
    m_d->zip->setFileNameCodec(kUtf8);
    m_d->zip->setIoDevice(m_d->buffer.get());
    if (!m_d->zip->open(QuaZip::mdCreate))
        return false;
    m_d->isOpen = true;
    return true;
}

bool Zip::Private::write(const QString &name, const char *bytes, qint64 size)
{
    if (!isOpen)
        return false;
    // Plain names keep the classic header; others are stored as UTF-8 and
    // flagged so, which every current reader understands.
    zip->setUtf8Enabled(!isAscii(name));

    const int kMemLevel = 8;
    QuaZipFile member(zip.get());
    if (!member.open(QIODevice::WriteOnly, QuaZipNewInfo(name), nullptr, 0, Z_DEFLATED, Z_DEFAULT_COMPRESSION, false,
                     -MAX_WBITS, kMemLevel, Z_DEFAULT_STRATEGY))
        return false;
    const bool written = size == 0 || member.write(bytes, size) == size;
    member.close();
    return written && member.getZipError() == ZIP_OK;
}

bool Zip::addEntry(QString name, const QByteArray &data)
{
    return m_d->write(name, data.constData(), data.size());
}

// A null buffer still leaves an empty member behind, but says it failed.
bool Zip::addEntry(QString name, MemoryBuffer *buffer)
{
    if (!buffer) {
        m_d->write(name, nullptr, 0);
        return false;
    }
    return m_d->write(name, reinterpret_cast<const char *>(buffer->constData()),
                      static_cast<qint64>(buffer->sizeOfMB()));
}

bool Zip::close()
{
    if (!m_d->zip || !m_d->isOpen)
        return false;
    m_d->zip->close();
    m_d->isOpen = false;
    return true;
}

int Zip::getZipFileSize() const
{
    return m_d->buffer ? m_d->data->size() : 0;
}

bool Zip::copyZipFile(QByteArray &out)
{
    close();
    if (!m_d->buffer || m_d->data->isEmpty())
        return false;
    out = *m_d->data;
    return true;
}

bool Zip::copyZipFileToBuffer(MemoryBuffer *buffer)
{
    close();
    if (!m_d->buffer || m_d->data->isEmpty() || !buffer)
        return false;
    const size_t size = static_cast<size_t>(m_d->data->size());
    buffer->resizeBuffer(size, false);
    buffer->putRawBytes(m_d->data->constData(), size);
    return true;
}

} // namespace ZipUtils
