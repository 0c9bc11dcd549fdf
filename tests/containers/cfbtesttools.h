#pragma once

// Helpers shared by the compound-file tests: an independent reader
// (python3-olefile), a walk over our own reader in the same form, and a
// builder of compound files laid out by hand (for 4096-byte sectors and for
// damaging files on purpose).

#include "fixtures/fixtures.h"
#include "buffers/MemoryBuffer.h"
#include "containers/pole.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>

#include <algorithm>
#include <cstring>
#include <vector>

namespace cfbtest {

inline QString fixture(const QString &name) { return fixturePath(QStringLiteral("cfb/") + name); }

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

inline QByteArray toBytes(const MemoryBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.constData()), int(buffer.sizeOfMB()));
}

inline QString sha256(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

// Deterministic filler bytes (xorshift).
inline QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    uint32_t x = 2463534242u + uint32_t(seed) * 7919u;
    for (char &c : data) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        c = char(x);
    }
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
    QByteArray bytes() const { return toBytes(buffer); }
    QByteArray read(const QString &path)
    {
        MemoryBuffer out;
        storage.getEntryData(path, &out);
        return toBytes(out);
    }
    bool add(const QString &path, const QByteArray &data)
    {
        MemoryBuffer source = bufferOf(data);
        return storage.addEntry(path, &source);
    }
    MemoryBuffer buffer;
    POLE::Storage storage;
};

// One entry as a reader sees it.
struct Entry
{
    QString kind; // "storage" or "stream"
    qint64 size = 0;
    QString sha256;
    QString clsid; // upper case, no braces; "" for none
};

inline Entry streamEntry(const QByteArray &data, const QString &clsid = QString())
{
    return Entry{QStringLiteral("stream"), data.size(), sha256(data), clsid};
}
inline Entry storageEntry(const QString &clsid = QString()) { return Entry{QStringLiteral("storage"), 0, QString(), clsid}; }

struct Listing
{
    bool ok = false;
    QString error;
    QString rootClsid;
    QMap<QString, Entry> entries; // by full path from "/"
};

// Every storage and stream as python3-olefile reads them. The system
// interpreter, since another python3 may come without Debian's modules.
inline Listing olefileListing(const QString &path)
{
    static const char *script = R"PY(
import sys, json, hashlib, olefile
ole = olefile.OleFileIO(sys.argv[1])
out = {"root_clsid": ole.root.clsid, "entries": []}
for parts in ole.listdir(streams=True, storages=True):
    p = "/".join(parts)
    e = {"path": "/" + p, "clsid": ole.getclsid(p), "kind": "storage", "size": 0, "sha256": ""}
    if ole.get_type(p) == olefile.STGTY_STREAM:
        data = ole.openstream(p).read()
        e.update(kind="stream", size=len(data), sha256=hashlib.sha256(data).hexdigest())
    out["entries"].append(e)
print(json.dumps(out))
)PY";
    Listing listing;
    QProcess p;
    p.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), QString::fromLatin1(script), path});
    if (!p.waitForFinished(120000) || p.exitCode() != 0) {
        listing.error = QStringLiteral("python3-olefile failed: ") + QString::fromUtf8(p.readAllStandardError());
        return listing;
    }
    const QJsonObject root = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    listing.rootClsid = root.value(QStringLiteral("root_clsid")).toString();
    for (const QJsonValue &v : root.value(QStringLiteral("entries")).toArray()) {
        const QJsonObject o = v.toObject();
        listing.entries.insert(o.value(QStringLiteral("path")).toString(),
                               Entry{o.value(QStringLiteral("kind")).toString(), qint64(o.value(QStringLiteral("size")).toDouble()),
                                     o.value(QStringLiteral("sha256")).toString(), o.value(QStringLiteral("clsid")).toString()});
    }
    listing.ok = true;
    return listing;
}

// Our class-identifier text in olefile's form.
inline QString olefileStyle(const QString &clsid)
{
    QString s = clsid.toUpper();
    s.remove(QLatin1Char('{'));
    s.remove(QLatin1Char('}'));
    return s == QLatin1String("00000000-0000-0000-0000-000000000000") ? QString() : s;
}

// Everything our reader sees, in the same form as olefileListing.
inline Listing poleListing(Cfb &file)
{
    Listing listing{true, QString(), QString(), {}};
    QString id;
    file.storage.getClassId(QStringLiteral("/"), id);
    listing.rootClsid = olefileStyle(id);
    std::vector<QString> pending{QString()};
    while (!pending.empty()) {
        const QString dir = pending.back();
        pending.pop_back();
        for (const QString &name : file.storage.entries(dir.isEmpty() ? QStringLiteral("/") : dir)) {
            const QString path = dir + QLatin1Char('/') + name;
            file.storage.getClassId(path, id);
            const bool storage = file.storage.isDirectory(path);
            listing.entries.insert(path, storage ? storageEntry(olefileStyle(id)) : streamEntry(file.read(path), olefileStyle(id)));
            if (storage)
                pending.push_back(path);
        }
    }
    return listing;
}

// The first difference between two listings, or "" when they are equal.
inline QString compareListings(const Listing &ours, const Listing &theirs)
{
    if (!theirs.ok)
        return QStringLiteral("independent reader failed: ") + theirs.error;
    if (ours.rootClsid != theirs.rootClsid)
        return QStringLiteral("root class id %1 vs %2").arg(ours.rootClsid, theirs.rootClsid);
    auto describe = [](const Entry &e) {
        return QStringLiteral("%1 %2 bytes %3 [%4]").arg(e.kind).arg(e.size).arg(e.sha256.left(12), e.clsid);
    };
    for (auto it = theirs.entries.begin(); it != theirs.entries.end(); ++it) {
        const Entry a = ours.entries.value(it.key(), Entry{QStringLiteral("nothing"), 0, QString(), QString()});
        const Entry &b = it.value();
        if (a.kind != b.kind || a.size != b.size || a.sha256 != b.sha256 || a.clsid != b.clsid)
            return it.key() + QStringLiteral(": ours ") + describe(a) + QStringLiteral(", theirs ") + describe(b);
    }
    for (auto it = ours.entries.begin(); it != ours.entries.end(); ++it)
        if (!theirs.entries.contains(it.key()))
            return QStringLiteral("we list %1, the other reader does not").arg(it.key());
    return QString();
}

// Checks a file we wrote: the independent reader must find exactly these
// streams and storages (with zero class identifiers), and so must we.
inline QString verifyWritten(const QByteArray &file, const QMap<QString, QByteArray> &streams,
                             const QStringList &storages = {})
{
    Listing expected{true, QString(), QString(), {}};
    for (auto it = streams.begin(); it != streams.end(); ++it)
        expected.entries.insert(it.key(), streamEntry(it.value()));
    for (const QString &storage : storages)
        expected.entries.insert(storage, storageEntry());
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("written.cfb"));
    if (!writeFile(path, file))
        return QStringLiteral("cannot write ") + path;
    const Listing theirs = olefileListing(path);
    QString difference = compareListings(expected, theirs);
    if (!difference.isEmpty())
        return QStringLiteral("independent reader: ") + difference;
    Cfb reopened(file);
    if (!reopened.storage.open())
        return QStringLiteral("we cannot reopen it: result %1").arg(reopened.storage.result());
    difference = compareListings(poleListing(reopened), theirs);
    return difference.isEmpty() ? QString() : QStringLiteral("reopened by us: ") + difference;
}

// --- a compound file laid out by hand ---------------------------------------

inline void put16(QByteArray &b, int at, uint16_t v) { qToLittleEndian(v, b.data() + at); }
inline void put32(QByteArray &b, int at, uint32_t v) { qToLittleEndian(v, b.data() + at); }

struct BuiltStream
{
    QString name;
    QByteArray data;
};

// Where the builder put things, so that tests can damage them. The tables and
// the directory each lie in consecutive sectors.
struct BuiltFile
{
    QByteArray bytes;
    int sectorSize = 512;
    int firstBatSector = 0;
    int firstDirSector = 0;
    int firstMinifatSector = -1;
    std::vector<std::vector<uint32_t>> chains; // each stream's sectors or small blocks, in directory order

    int sectorOffset(uint32_t sector) const { return int(sector + 1) * sectorSize; }
    int batEntryOffset(uint32_t sector) const { return sectorOffset(uint32_t(firstBatSector)) + int(sector) * 4; }
    int minifatEntryOffset(uint32_t block) const { return sectorOffset(uint32_t(firstMinifatSector)) + int(block) * 4; }
    int dirEntryOffset(int index) const { return sectorOffset(uint32_t(firstDirSector)) + index * 128; }
};

// A valid compound file with the given streams at the root, in directory
// order (shorter names first, then by code unit) and linked as a chain of
// right siblings. sectorShift 9 or 12; at most 109 BAT sectors.
inline BuiltFile buildCompoundFile(std::vector<BuiltStream> streams, int sectorShift = 9,
                                   const QByteArray &rootClsid = QByteArray(16, '\0'))
{
    std::sort(streams.begin(), streams.end(), [](const BuiltStream &a, const BuiltStream &b) {
        return a.name.size() != b.name.size() ? a.name.size() < b.name.size() : a.name < b.name;
    });
    const uint32_t none = 0xFFFFFFFF, end = 0xFFFFFFFE;
    const int ss = 1 << sectorShift, epb = ss / 4, n = int(streams.size());
    auto sectorsFor = [ss](int bytes) { return (bytes + ss - 1) / ss; };
    auto isSmall = [](const QByteArray &d) { return !d.isEmpty() && d.size() < 4096; };

    QByteArray mini; // the small-block container
    int bigSectors = 0;
    for (const BuiltStream &s : streams) {
        if (isSmall(s.data))
            mini += s.data + QByteArray((64 - s.data.size() % 64) % 64, '\0');
        else
            bigSectors += sectorsFor(s.data.size());
    }
    const int dirSectors = sectorsFor((n + 1) * 128), minifatSectors = sectorsFor(mini.size() / 64 * 4);
    const int miniSectors = sectorsFor(mini.size());
    const int dataSectors = dirSectors + minifatSectors + miniSectors + bigSectors;
    int batSectors = 1;
    while (batSectors * epb < dataSectors + batSectors)
        ++batSectors;

    BuiltFile f;
    f.sectorSize = ss;
    f.bytes = QByteArray((batSectors + dataSectors + 1) * ss, '\0');
    QByteArray &b = f.bytes;
    std::vector<uint32_t> bat(size_t(batSectors * epb), none), minifat(size_t(minifatSectors * epb), none);
    std::fill_n(bat.begin(), batSectors, 0xFFFFFFFD);
    auto link = [&](std::vector<uint32_t> &table, int first, int count) {
        std::vector<uint32_t> chain;
        for (int i = 0; i < count; ++i) {
            table[size_t(first + i)] = i + 1 < count ? uint32_t(first + i + 1) : end;
            chain.push_back(uint32_t(first + i));
        }
        return chain;
    };
    int next = batSectors; // the next free sector
    auto place = [&](int count, const QByteArray &content) {
        const std::vector<uint32_t> chain = link(bat, next, count);
        std::memcpy(b.data() + f.sectorOffset(uint32_t(next)), content.constData(), size_t(content.size()));
        next += count;
        return chain;
    };
    f.firstDirSector = next;
    place(dirSectors, {});
    f.firstMinifatSector = minifatSectors ? next : -1;
    place(minifatSectors, {});
    const uint32_t miniStart = miniSectors ? uint32_t(next) : end;
    place(miniSectors, mini);

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
    dirEntry(0, QStringLiteral("Root Entry"), 5, n ? 1 : none, none, miniStart, uint32_t(miniSectors * ss));
    b.replace(f.dirEntryOffset(0) + 80, 16, rootClsid);
    int miniNext = 0;
    for (int i = 0; i < n; ++i) {
        const QByteArray &data = streams[size_t(i)].data;
        std::vector<uint32_t> chain;
        if (isSmall(data)) {
            chain = link(minifat, miniNext, (data.size() + 63) / 64);
            miniNext += int(chain.size());
        } else {
            chain = place(sectorsFor(data.size()), data);
        }
        dirEntry(i + 1, streams[size_t(i)].name, 2, none, i + 1 < n ? uint32_t(i + 2) : none,
                 chain.empty() ? end : chain.front(), uint32_t(data.size()));
        f.chains.push_back(chain);
    }

    b.replace(0, 8, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8);
    for (const auto &field : {std::make_pair(24, 0x3E), {26, sectorShift == 12 ? 4 : 3}, {28, 0xFFFE}, {30, sectorShift}, {32, 6}})
        put16(b, field.first, uint16_t(field.second));
    for (const auto &field : {std::make_pair(40, sectorShift == 12 ? uint32_t(dirSectors) : 0u), {44, uint32_t(batSectors)},
                              {48, uint32_t(f.firstDirSector)}, {56, 4096u},
                              {60, minifatSectors ? uint32_t(f.firstMinifatSector) : end}, {64, uint32_t(minifatSectors)},
                              {68, end}})
        put32(b, field.first, field.second);
    for (int i = 0; i < 109; ++i)
        put32(b, 76 + i * 4, i < batSectors ? uint32_t(i) : none);
    for (size_t i = 0; i < bat.size(); ++i)
        put32(b, f.batEntryOffset(uint32_t(i)), bat[i]);
    for (size_t i = 0; i < minifat.size(); ++i)
        put32(b, f.minifatEntryOffset(uint32_t(i)), minifat[i]);
    return f;
}

} // namespace cfbtest
