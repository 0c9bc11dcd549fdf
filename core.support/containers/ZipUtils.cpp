#include "containers/ZipUtils.h"

#include "buffers/MemoryBuffer.h"

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipnewinfo.h>

#include <QBuffer>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

namespace {

const char kUtf8[] = "UTF-8";

// The fixed part of a central directory record.
const quint64 kDirectoryRecordSize = 46;
const int kShortName = 256;

// A QByteArray cannot hold more than this; a member that inflates beyond it
// cannot be handed over and counts as unreadable.
const qint64 kMaxMemberSize = 0x7fff0000;
// Deflate cannot expand a stream by more than about 1032:1, so a member can
// never honestly produce more than this many bytes per compressed byte.
const qint64 kMaxDeflateRatio = 1032;
const qint64 kReadChunk = 64 * 1024;
// The first allocation for a member; larger ones grow as the bytes arrive.
const qint64 kMaxReserve = 16 * 1024 * 1024;

// Reading straight from memory for the archives this class holds itself.
// The reader fetches its records a byte or two at a time, and going through
// a QIODevice for each of those costs more than everything else it does.
// The reader hands these functions the device it was made with; its bytes
// are taken from there. Offsets beyond the end are refused, as a buffer
// device would.
namespace MemoryIo {

struct Stream
{
    const char *data;
    uLong size;
    uLong position;
};

voidpf ZCALLBACK open(voidpf, voidpf device, int mode)
{
    if ((mode & ZLIB_FILEFUNC_MODE_READ) == 0)
        return nullptr;
    const QByteArray &bytes = static_cast<QBuffer *>(device)->data();
    return new Stream{bytes.constData(), static_cast<uLong>(bytes.size()), 0};
}

uLong ZCALLBACK read(voidpf, voidpf stream, void *target, uLong size)
{
    Stream &s = *static_cast<Stream *>(stream);
    const uLong count = std::min(size, s.size - s.position);
    // Most reads are of a byte or two: not worth a library call.
    if (count <= 4) {
        char *out = static_cast<char *>(target);
        for (uLong i = 0; i < count; ++i)
            out[i] = s.data[s.position + i];
    } else {
        std::memcpy(target, s.data + s.position, count);
    }
    s.position += count;
    return count;
}

uLong ZCALLBACK write(voidpf, voidpf, const void *, uLong)
{
    return 0;
}

uLong ZCALLBACK tell(voidpf, voidpf stream)
{
    return static_cast<Stream *>(stream)->position;
}

int ZCALLBACK seek(voidpf, voidpf stream, uLong offset, int origin)
{
    Stream &s = *static_cast<Stream *>(stream);
    const uLong base = origin == ZLIB_FILEFUNC_SEEK_END   ? s.size
                       : origin == ZLIB_FILEFUNC_SEEK_CUR ? s.position
                                                          : 0;
    uLong target;
    if (__builtin_add_overflow(base, offset, &target) || target > s.size)
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

zlib_filefunc_def functions()
{
    return {open, read, write, tell, seek, close, error, nullptr};
}

} // namespace MemoryIo

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
// could produce: a record is free to lie. A damaged member (bad deflate
// data, a CRC mismatch, fewer or more bytes than its record says) fails.
bool readMember(unzFile handle, const unz_file_info64 &info, QByteArray &content)
{
    if (unzOpenCurrentFile(handle) != UNZ_OK)
        return false;
    const qint64 honest = std::min<quint64>(info.uncompressed_size,
                                            (info.compressed_size + 1) * kMaxDeflateRatio);
    content.reserve(static_cast<int>(std::min(honest, kMaxReserve)));
    int status = UNZ_OK;
    for (;;) {
        const qint64 before = content.size();
        if (before >= kMaxMemberSize) {
            status = UNZ_BADZIPFILE;
            break;
        }
        const qint64 step = std::min(kReadChunk, kMaxMemberSize - before);
        content.resize(static_cast<int>(before + step));
        const int got = unzReadCurrentFile(handle, content.data() + before, static_cast<unsigned>(step));
        content.resize(static_cast<int>(before + std::max(got, 0)));
        if (got <= 0) {
            status = got;
            break;
        }
    }
    // Closing checks the CRC once the member was read to its end.
    const int closed = unzCloseCurrentFile(handle);
    return status == UNZ_OK && closed == UNZ_OK
           && static_cast<quint64>(content.size()) == info.uncompressed_size;
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

Unzip::Unzip() = default;

Unzip::~Unzip()
{
    // The reader closes its device, so it must go before the device does.
    close();
    m_zip.reset();
}

bool Unzip::open(MemoryBuffer *buffer)
{
    return openBytes(buffer, true);
}

bool Unzip::openInPlace(const MemoryBuffer *buffer)
{
    return openBytes(buffer, false);
}

bool Unzip::openBytes(const MemoryBuffer *buffer, bool copy)
{
    close();
    if (!buffer)
        return false;
    const size_t size = buffer->sizeOfMB();
    if (size == 0 || size > static_cast<size_t>(std::numeric_limits<int>::max()))
        return false;
    // The previous reader may still point at the device about to be replaced.
    m_zip.reset();
    m_buffer.reset();
    const char *bytes = reinterpret_cast<const char *>(buffer->constData());
    const int length = static_cast<int>(size);
    m_data = std::make_unique<QByteArray>(copy ? QByteArray(bytes, length)
                                               : QByteArray::fromRawData(bytes, length));
    m_buffer = std::make_unique<QBuffer>(m_data.get());
    zlib_filefunc_def memory = MemoryIo::functions();
    return openReader(m_buffer.get(), &memory);
}

bool Unzip::open(QBuffer *device)
{
    close();
    if (!device || device->size() == 0)
        return false;
    return openReader(device, nullptr);
}

// The memory functions offer 64-bit offsets on this platform, and a buffer
// never exceeds what a byte array holds, so archives with zip64 records
// read through them as through the device.
bool Unzip::openReader(QBuffer *device, zlib_filefunc_def *io)
{
    m_zip = std::make_unique<QuaZip>(device);
    if (!m_zip->open(QuaZip::mdUnzip, io))
        return false;
    m_isOpen = true;
    m_positions.clear();
    m_lookup.clear();
    m_firstOpenEntry = m_names.size();
    readEntries();
    return true;
}

void Unzip::close()
{
    if (!m_isOpen)
        return;
    m_zip->close();
    m_isOpen = false;
}

// Walks the central directory with the reader's own calls: they read a name
// of any length, and tell where each record lies. (The wrapper's name
// listing reads past its buffer for names over 256 bytes, and its lookup by
// name is limited to such names too.) Appends to the member lists as it
// goes; the caller takes everything back on failure.
bool Unzip::listMembers()
{
    unzFile handle = m_zip->getUnzFile();
    // Every record takes at least its fixed part, so no honest directory
    // holds more members than this.
    const quint64 maxMembers = static_cast<quint64>(m_zip->getIoDevice()->size()) / kDirectoryRecordSize;
    // Most names are short; a longer one is read again with room for it.
    QByteArray rawName(kShortName, '\0');
    const auto readCurrent = [handle, &rawName](unz_file_info64 &info) {
        return unzGetCurrentFileInfo64(handle, &info, rawName.data(), static_cast<uLong>(rawName.size()),
                                       nullptr, 0, nullptr, 0) == UNZ_OK;
    };
    int status = unzGoToFirstFile(handle);
    for (quint64 count = 0; status == UNZ_OK; ++count) {
        unz_file_info64 info;
        unz64_file_pos position;
        if (count >= maxMembers || !readCurrent(info))
            return false;
        if (info.size_filename > static_cast<uLong>(rawName.size())) {
            rawName.resize(static_cast<int>(info.size_filename));
            if (!readCurrent(info))
                return false;
        }
        if (unzGetFilePos64(handle, &position) != UNZ_OK)
            return false;
        m_names.append(QString::fromUtf8(rawName.constData(), static_cast<int>(info.size_filename)));
        m_positions.append({position.pos_in_zip_directory, position.num_of_file});
        status = unzGoToNextFile(handle);
    }
    return status == UNZ_END_OF_LIST_OF_FILE;
}

void Unzip::readEntries()
{
    if (!m_isOpen)
        return;
    const int names = m_names.size();
    const int positions = m_positions.size();
    if (!listMembers()) {
        m_names.erase(m_names.begin() + names, m_names.end());
        m_positions.resize(positions);
    }
    m_lookup.clear();
}

QList<QString> Unzip::namesOf(bool folders) const
{
    QList<QString> selected;
    for (const QString &name : m_names)
        if (isFolderName(name) == folders)
            selected.append(name);
    return selected;
}

QList<Entry> Unzip::getEntryList() const
{
    QList<Entry> entries;
    entries.reserve(m_names.size());
    for (const QString &name : m_names) {
        Entry entry;
        entry.add(name, isFolderName(name));
        entries.append(entry);
    }
    return entries;
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
// in the deepest one and stores them back bottom-up. Done as a loop rather
// than by recursion because a stored name may have tens of thousands of
// components.
void Unzip::insertMap(QMap<QString, QVariant> &map, QString path, QString fullPath)
{
    const QStringList parts = path.split(QLatin1Char('/'));
    if (parts.isEmpty())
        return;
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

bool Unzip::selectEntry(const QString &name)
{
    if (!m_isOpen || !m_zip)
        return false;
    if (m_lookup.isEmpty()) {
        m_lookup.reserve(m_positions.size());
        for (int i = 0; i < m_positions.size(); ++i)
            m_lookup.insert(m_names.at(m_firstOpenEntry + i), i);
    }
    const auto found = m_lookup.constFind(name);
    if (found == m_lookup.cend())
        return false;
    const Position &where = m_positions.at(*found);
    const unz64_file_pos position = {where.directoryOffset, where.index};
    return unzGoToFilePos64(m_zip->getUnzFile(), &position) == UNZ_OK;
}

qint64 Unzip::getEntrySize(QString name)
{
    unz_file_info64 info;
    if (!selectEntry(name)
        || unzGetCurrentFileInfo64(m_zip->getUnzFile(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        return 0;
    return static_cast<qint64>(std::min<quint64>(info.compressed_size, std::numeric_limits<qint64>::max()));
}

bool Unzip::getEntryData(QString name, QByteArray &data)
{
    unz_file_info64 info;
    if (!selectEntry(name)
        || unzGetCurrentFileInfo64(m_zip->getUnzFile(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        return false;
    // A member claiming more compressed bytes than the archive holds is cut
    // short; one larger than a byte array can hold cannot be handed over.
    const quint64 archiveSize = static_cast<quint64>(m_zip->getIoDevice()->size());
    if (info.compressed_size > archiveSize
        || info.uncompressed_size > static_cast<quint64>(kMaxMemberSize))
        return false;

    QByteArray content;
    if (!readMember(m_zip->getUnzFile(), info, content))
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

// --- Zip --------------------------------------------------------------------

Zip::Zip() = default;

Zip::~Zip()
{
    close();
    m_zip.reset();
}

// Opening an archive that is already open is refused rather than silently
// throwing away what was added so far.
bool Zip::open(int size)
{
    if (m_isOpen)
        return false;
    m_zip.reset();
    m_buffer.reset();
    m_data = std::make_unique<QByteArray>();
    if (size > 0)
        m_data->reserve(size);
    m_buffer = std::make_unique<QBuffer>(m_data.get());
    m_zip = std::make_unique<QuaZip>();
    m_zip->setDataDescriptorWritingEnabled(true);
    m_zip->setFileNameCodec(kUtf8);
    m_zip->setIoDevice(m_buffer.get());
    if (!m_zip->open(QuaZip::mdCreate))
        return false;
    m_isOpen = true;
    return true;
}

bool Zip::writeEntry(const QString &name, const char *data, qint64 size)
{
    if (!m_isOpen)
        return false;
    // Plain names keep the classic header; others are stored as UTF-8 and
    // flagged so, which every current reader understands.
    const bool utf8 = !isAscii(name);
    m_zip->setUtf8Enabled(utf8);

    const int kMemLevel = 8;
    QuaZipFile member(m_zip.get());
    if (!member.open(QIODevice::WriteOnly, QuaZipNewInfo(name), nullptr, 0, Z_DEFLATED,
                     Z_DEFAULT_COMPRESSION, false, -MAX_WBITS, kMemLevel, Z_DEFAULT_STRATEGY))
        return false;
    const bool written = size == 0 || member.write(data, size) == size;
    member.close();
    return written && member.getZipError() == ZIP_OK;
}

bool Zip::addEntry(QString name, const QByteArray &data)
{
    return writeEntry(name, data.constData(), data.size());
}

// A null buffer still leaves an empty member behind, but says it failed.
bool Zip::addEntry(QString name, MemoryBuffer *buffer)
{
    if (!buffer) {
        writeEntry(name, nullptr, 0);
        return false;
    }
    return writeEntry(name, reinterpret_cast<const char *>(buffer->constData()),
                      static_cast<qint64>(buffer->sizeOfMB()));
}

bool Zip::close()
{
    if (!m_zip || !m_isOpen)
        return false;
    m_zip->close();
    m_isOpen = false;
    return true;
}

int Zip::getZipFileSize() const
{
    return m_buffer ? m_data->size() : 0;
}

bool Zip::copyZipFile(QByteArray &out)
{
    close();
    if (!m_buffer || m_data->isEmpty())
        return false;
    out = *m_data;
    return true;
}

bool Zip::copyZipFileToBuffer(MemoryBuffer *buffer)
{
    close();
    if (!m_buffer || m_data->isEmpty() || !buffer)
        return false;
    const size_t size = static_cast<size_t>(m_data->size());
    buffer->resizeBuffer(size, false);
    buffer->putRawBytes(m_data->constData(), size);
    return true;
}

} // namespace ZipUtils
