#include "containers/ZipUtils.h"

#include "buffers/MemoryBuffer.h"

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipfileinfo.h>
#include <quazip/quazipnewinfo.h>

#include <QBuffer>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

const char kUtf8[] = "UTF-8";

// A QByteArray cannot hold more than this; a member that inflates beyond it
// cannot be handed over and counts as unreadable.
const qint64 kMaxMemberSize = 0x7fff0000;
// Deflate cannot expand a stream by more than about 1032:1, so a member can
// never honestly produce more than this many bytes per compressed byte.
const qint64 kMaxDeflateRatio = 1032;
const qint64 kReadChunk = 64 * 1024;
// The first allocation for a member; larger ones grow as the bytes arrive.
const qint64 kMaxReserve = 16 * 1024 * 1024;

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

// Reads an open member to its end. The claimed size only sizes the first
// allocation, and never beyond what the compressed bytes could produce:
// a header is free to lie.
bool readMember(QuaZipFile &member, const QuaZipFileInfo64 &info, QByteArray &content)
{
    const qint64 honest = std::min<quint64>(info.uncompressedSize,
                                            (info.compressedSize + 1) * kMaxDeflateRatio);
    content.reserve(static_cast<int>(std::min(honest, kMaxReserve)));
    for (;;) {
        const qint64 before = content.size();
        if (before >= kMaxMemberSize)
            return false;
        const qint64 step = std::min(kReadChunk, kMaxMemberSize - before);
        content.resize(static_cast<int>(before + step));
        const qint64 got = member.read(content.data() + before, step);
        if (got < 0)
            return false;
        content.resize(static_cast<int>(before + got));
        if (got == 0)
            return true;
    }
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
    close();
    if (!buffer)
        return false;
    const size_t size = buffer->sizeOfMB();
    if (size == 0 || size > static_cast<size_t>(std::numeric_limits<int>::max()))
        return false;
    // The previous reader may still point at the device about to be replaced.
    m_zip.reset();
    m_buffer.reset();
    m_data = std::make_unique<QByteArray>(reinterpret_cast<const char *>(buffer->constData()),
                                          static_cast<int>(size));
    m_buffer = std::make_unique<QBuffer>(m_data.get());
    return open(m_buffer.get());
}

bool Unzip::open(QBuffer *device)
{
    close();
    if (!device || device->size() == 0)
        return false;
    m_zip = std::make_unique<QuaZip>(device);
    // Names decode the same whatever the process locale; archives flagged
    // as UTF-8 are decoded so anyway.
    m_zip->setFileNameCodec(kUtf8);
    if (!m_zip->open(QuaZip::mdUnzip))
        return false;
    m_isOpen = true;
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

void Unzip::readEntries()
{
    if (!m_isOpen)
        return;
    // An archive whose central directory cannot be walked to its end lists
    // nothing at all.
    const QStringList names = m_zip->getFileNameList();
    for (const QString &name : names) {
        const bool folder = isFolderName(name);
        (folder ? m_folderNames : m_fileNames).append(name);
        Entry entry;
        entry.add(name, folder);
        m_entries.append(entry);
    }
}

QMap<QString, QVariant> Unzip::getEntriesMap() const
{
    QList<QString> names = m_fileNames;
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
    return m_isOpen && m_zip && m_zip->setCurrentFile(name, QuaZip::csDefault);
}

qint64 Unzip::getEntrySize(QString name)
{
    if (!selectEntry(name))
        return 0;
    QuaZipFile member(m_zip.get());
    return std::max<qint64>(member.csize(), 0);
}

bool Unzip::getEntryData(QString name, QByteArray &data)
{
    if (!selectEntry(name))
        return false;
    QuaZipFileInfo64 info;
    if (!m_zip->getCurrentFileInfo(&info))
        return false;
    // A member claiming more compressed bytes than the archive holds is cut
    // short; so is one too large to hold in memory.
    const quint64 archiveSize = static_cast<quint64>(m_zip->getIoDevice()->size());
    if (info.compressedSize > archiveSize
        || info.uncompressedSize > static_cast<quint64>(kMaxMemberSize))
        return false;

    QuaZipFile member(m_zip.get());
    if (!member.open(QIODevice::ReadOnly))
        return false;
    QByteArray content;
    const bool complete = readMember(member, info, content);
    member.close(); // checks the CRC when the member was read to its end
    // A damaged member (bad deflate data, a CRC mismatch, fewer or more bytes
    // than its header says) is not handed over as if it were the content.
    if (!complete || member.getZipError() != UNZ_OK
        || static_cast<quint64>(content.size()) != info.uncompressedSize)
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
    m_zip->setFileNameCodec(kUtf8);

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
