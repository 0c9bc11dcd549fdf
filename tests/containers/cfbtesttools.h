#pragma once

// Shared by the compound-file tests: an independent reader (python3-olefile),
// the same listing through our reader, and a builder of compound files laid
// out by hand (for 4096-byte sectors and for damaging files on purpose).

#include "fixtures/fixtures.h"
#include "buffers/MemoryBuffer.h"
#include "containers/pole.h"

#include <QCryptographicHash>
#include <QMap>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUuid>
#include <QtEndian>

#include <algorithm>
#include <vector>

namespace cfbtest {

inline QString fixture(const QString &name) { return fixturePath("cfb/" + name); }

// Deterministic filler bytes.
inline QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator random{quint32(seed)};
    std::generate(data.begin(), data.end(), [&] { return char(random.generate()); });
    return data;
}

// The C-string message a call raises, or "" when it raises none.
template <typename Call>
QString thrownBy(Call call)
{
    try {
        call();
    } catch (const char *message) {
        return QString::fromLatin1(message);
    }
    return QString();
}

// A storage over its own copy of the bytes (none for a new file), not yet opened.
struct Cfb
{
    explicit Cfb(const QByteArray &bytes = QByteArray()) : buffer(bufferOf(bytes)), storage(&buffer) {}
    QByteArray bytes() const { return bytesOf(buffer); }
    QByteArray read(const QString &path)
    {
        MemoryBuffer out;
        storage.getEntryData(path, &out);
        return bytesOf(out);
    }
    bool add(const QString &path, const QByteArray &data)
    {
        MemoryBuffer source = bufferOf(data);
        return storage.addEntry(path, &source);
    }
    MemoryBuffer buffer;
    POLE::Storage storage;
};

// Every entry by its full path: "stream <size> <sha256> <class id>" or
// "storage <class id>", class identifiers as QUuid text; "/" holds the root's.
using Listing = QMap<QString, QString>;

inline QString streamEntry(const QByteArray &data, const QString &clsid = QUuid().toString())
{
    const QByteArray hash = QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
    return QStringLiteral("stream %1 %2 %3").arg(data.size()).arg(QString::fromLatin1(hash), clsid);
}
inline QString storageEntry(const QString &clsid = QUuid().toString()) { return "storage " + clsid; }

// The listing as python3-olefile reads the file (the system interpreter, since
// another python3 may come without Debian's modules); "!error" on failure.
inline Listing olefileListing(const QString &path)
{
    static const char *script = R"PY(
import sys, hashlib, olefile
ole = olefile.OleFileIO(sys.argv[1])
uuid = lambda c: "{%s}" % (c or "00000000-0000-0000-0000-000000000000").lower()
print("/\troot " + uuid(ole.root.clsid))
for parts in ole.listdir(streams=True, storages=True):
    p = "/".join(parts)
    if ole.get_type(p) == olefile.STGTY_STREAM:
        d = ole.openstream(p).read()
        print("/%s\tstream %d %s %s" % (p, len(d), hashlib.sha256(d).hexdigest(), uuid(ole.getclsid(p))))
    else:
        print("/%s\tstorage %s" % (p, uuid(ole.getclsid(p))))
)PY";
    QProcess p;
    p.start("/usr/bin/python3", {"-c", QString::fromLatin1(script), path});
    if (!p.waitForFinished(120000) || p.exitCode() != 0)
        return {{"!error", QString::fromUtf8(p.readAllStandardError())}};
    Listing listing;
    const QStringList lines = QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines)
        listing.insert(line.section(QLatin1Char('\t'), 0, 0), line.section(QLatin1Char('\t'), 1));
    return listing;
}

// The listing as our reader sees the opened storage.
inline Listing poleListing(POLE::Storage &storage)
{
    Listing listing;
    QString id;
    storage.getClassId("/", id);
    listing.insert("/", "root " + id);
    QStringList pending{QString()};
    while (!pending.isEmpty()) {
        const QString dir = pending.takeLast();
        for (const QString &name : storage.entries(dir.isEmpty() ? "/" : dir)) {
            const QString path = dir + QLatin1Char('/') + name;
            storage.getClassId(path, id);
            MemoryBuffer data;
            if (storage.isDirectory(path))
                pending << path;
            else
                storage.getEntryData(path, &data);
            listing.insert(path, storage.isDirectory(path) ? storageEntry(id) : streamEntry(bytesOf(data), id));
        }
    }
    return listing;
}

// The first difference between two listings, or "" when they are equal.
inline QString difference(const Listing &ours, const Listing &theirs)
{
    for (const QString &path : ours.keys() + theirs.keys())
        if (ours.value(path) != theirs.value(path))
            return QStringLiteral("%1: ours \"%2\", theirs \"%3\"").arg(path, ours.value(path), theirs.value(path));
    return QString();
}

inline Listing olefileListingOf(const QByteArray &file)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("written.cfb");
    return writeFile(path, file) ? olefileListing(path) : Listing{{"!error", path}};
}

// Checks a file we wrote: the independent reader, and we on reopening it, must
// find exactly these streams and storages, all with zero class identifiers.
inline QString verifyWritten(const QByteArray &file, const QMap<QString, QByteArray> &streams,
                             const QStringList &storages = {})
{
    Listing expected{{"/", "root " + QUuid().toString()}};
    for (auto it = streams.begin(); it != streams.end(); ++it)
        expected.insert(it.key(), streamEntry(it.value()));
    for (const QString &storage : storages)
        expected.insert(storage, storageEntry());
    const QString theirs = difference(expected, olefileListingOf(file));
    if (!theirs.isEmpty())
        return "independent reader: " + theirs;
    Cfb reopened(file);
    if (!reopened.storage.open())
        return QStringLiteral("we cannot reopen it: result %1").arg(reopened.storage.result());
    const QString ours = difference(poleListing(reopened.storage), expected);
    return ours.isEmpty() ? QString() : "reopened by us: " + ours;
}

// --- a compound file laid out by hand ---------------------------------------

inline void put16(QByteArray &b, int at, uint16_t v) { qToLittleEndian(v, b.data() + at); }
inline void put32(QByteArray &b, int at, uint32_t v) { qToLittleEndian(v, b.data() + at); }

struct BuiltStream
{
    QString name;
    QByteArray data;
};

// Where the builder put things, so that tests can damage them. The tables,
// the directory and each stream lie in consecutive sectors or small blocks.
struct BuiltFile
{
    QByteArray bytes;
    int sectorSize = 512;
    int firstDirSector = 0;
    int firstMinifatSector = -1;

    int sectorOffset(uint32_t sector) const { return int(sector + 1) * sectorSize; }
    int batEntryOffset(uint32_t sector) const { return sectorOffset(0) + int(sector) * 4; }
    int minifatEntryOffset(uint32_t block) const { return sectorOffset(uint32_t(firstMinifatSector)) + int(block) * 4; }
    int dirEntryOffset(int index) const { return sectorOffset(uint32_t(firstDirSector)) + index * 128; }
    uint32_t firstSector(int index) const
    {
        return qFromLittleEndian<uint32_t>(bytes.constData() + dirEntryOffset(index) + 116);
    }
};

// A valid compound file with the given streams at the root, as directory
// entries 1.. in the order given, each the right sibling of the one before
// (readers do not rely on sibling order). sectorShift 9 or 12; the BAT sectors
// come first, at most 109 of them.
inline BuiltFile buildCompoundFile(const std::vector<BuiltStream> &streams, int sectorShift = 9,
                                   const QByteArray &rootClsid = QByteArray(16, '\0'))
{
    const uint32_t none = 0xFFFFFFFF, end = 0xFFFFFFFE;
    const int ss = 1 << sectorShift, n = int(streams.size());
    auto sectorsFor = [ss](int bytes) { return (bytes + ss - 1) / ss; };
    auto isSmall = [](const QByteArray &d) { return !d.isEmpty() && d.size() < 4096; };
    QByteArray mini; // the small-block container
    int bigSectors = 0;
    for (const BuiltStream &s : streams) {
        if (isSmall(s.data))
            mini += s.data.leftJustified((s.data.size() + 63) / 64 * 64, '\0');
        else
            bigSectors += sectorsFor(s.data.size());
    }
    const int dirSectors = sectorsFor((n + 1) * 128), minifatSectors = sectorsFor(mini.size() / 16);
    BuiltFile f;
    f.sectorSize = ss;
    const int dataSectors = dirSectors + minifatSectors + sectorsFor(mini.size()) + bigSectors;
    int batSectors = 1;
    while (batSectors * (ss / 4) < batSectors + dataSectors)
        ++batSectors;
    f.bytes = QByteArray((1 + batSectors + dataSectors) * ss, '\0');
    QByteArray &b = f.bytes;
    b.replace(76, 436, QByteArray(436, '\xff')); // the header's list of BAT sectors
    b.replace(f.sectorOffset(0), batSectors * ss, QByteArray(batSectors * ss, '\xff'));
    for (int sector = 0; sector < batSectors; ++sector) {
        put32(b, f.batEntryOffset(uint32_t(sector)), 0xFFFFFFFD);
        put32(b, 76 + sector * 4, uint32_t(sector));
    }
    // Chains consecutive sectors in the BAT, or small blocks in the minifat.
    auto link = [&](bool inBat, int first, int count) {
        for (int i = first; i < first + count; ++i) {
            const int at = inBat ? f.batEntryOffset(uint32_t(i)) : f.minifatEntryOffset(uint32_t(i));
            put32(b, at, i + 1 < first + count ? uint32_t(i + 1) : end);
        }
        return count ? uint32_t(first) : end;
    };
    int next = batSectors; // the next free sector
    auto place = [&](int count, const QByteArray &content) {
        b.replace(f.sectorOffset(uint32_t(next)), content.size(), content);
        next += count;
        return link(true, next - count, count);
    };
    f.firstDirSector = next;
    place(dirSectors, {});
    f.firstMinifatSector = minifatSectors ? next : -1;
    place(minifatSectors, QByteArray(minifatSectors * ss, '\xff'));
    const uint32_t miniStart = place(sectorsFor(mini.size()), mini);

    auto dirEntry = [&](int index, const QString &name, int type, uint32_t child, uint32_t right, uint32_t start,
                        uint32_t size) {
        const int at = f.dirEntryOffset(index);
        for (int c = 0; c < name.size(); ++c)
            put16(b, at + c * 2, name.at(c).unicode());
        put16(b, at + 64, uint16_t(name.size() * 2 + 2));
        b[at + 66] = char(type);
        b[at + 67] = 1; // black
        for (const auto &field : {std::make_pair(68, none), {72, right}, {76, child}, {116, start}, {120, size}})
            put32(b, at + field.first, field.second);
    };
    dirEntry(0, "Root Entry", 5, n ? 1 : none, none, miniStart, uint32_t(sectorsFor(mini.size()) * ss));
    b.replace(f.dirEntryOffset(0) + 80, 16, rootClsid);
    int miniNext = 0;
    for (int i = 0; i < n; ++i) {
        const QByteArray &data = streams[size_t(i)].data;
        const int blocks = (data.size() + 63) / 64;
        const uint32_t start = isSmall(data) ? link(false, miniNext, blocks) : place(sectorsFor(data.size()), data);
        miniNext += isSmall(data) ? blocks : 0;
        const uint32_t right = i + 1 < n ? uint32_t(i + 2) : none;
        dirEntry(i + 1, streams[size_t(i)].name, 2, none, right, start, uint32_t(data.size()));
    }

    b.replace(0, 76, QByteArray("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8).leftJustified(76, '\0'));
    for (const auto &field :
         {std::make_pair(24, 0x3E), {26, sectorShift == 12 ? 4 : 3}, {28, 0xFFFE}, {30, sectorShift}, {32, 6}})
        put16(b, field.first, uint16_t(field.second));
    for (const auto &field : {std::make_pair(40, sectorShift == 12 ? uint32_t(dirSectors) : 0u),
                              {44, uint32_t(batSectors)},
                              {48, uint32_t(f.firstDirSector)}, {56, 4096u},
                              {60, minifatSectors ? uint32_t(f.firstMinifatSector) : end},
                              {64, uint32_t(minifatSectors)},
                              {68, end}})
        put32(b, field.first, field.second);
    return f;
}

} // namespace cfbtest
