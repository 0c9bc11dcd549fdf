#pragma once

// Helpers shared by the compound-file tests: an independent reader
// (python3-olefile through QProcess), libgsf's writer, a small builder of
// compound files laid out by hand (for 4096-byte sectors and for damaging
// files on purpose), and walks over our own reader.

#include "fixtures/fixtures.h"
#include "buffers/MemoryBuffer.h"
#include "containers/pole.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <algorithm>
#include <cstring>
#include <vector>

namespace cfbtest {

inline QString fixture(const QString &name)
{
    return fixturePath(QStringLiteral("cfb/") + name);
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

inline bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

inline MemoryBuffer toBuffer(const QByteArray &data)
{
    MemoryBuffer buffer(size_t(data.size()));
    if (!data.isEmpty())
        buffer.putRawBytes(data.constData(), size_t(data.size()));
    buffer.seek(0, MBSeekStart);
    return buffer;
}

inline QByteArray toBytes(const MemoryBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.constData()), int(buffer.sizeOfMB()));
}

inline QString sha256(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

// One entry as a reader sees it.
struct Entry
{
    QString kind; // "storage" or "stream"
    qint64 size = 0;
    QString sha256;
    QString clsid; // upper-case, no braces; "" for none
    int sid = -1;  // directory slot, as the independent reader found it
};

struct Listing
{
    bool ok = false;
    QString error;
    QString rootClsid;
    QMap<QString, Entry> entries; // full path from "/"
};

// The Python interpreter that has olefile: the system one first, since a
// user's own python3 may come without Debian's modules.
inline QString olefilePython()
{
    static const QString found = [] {
        for (const QString &candidate : {QStringLiteral("/usr/bin/python3"), QStringLiteral("python3")}) {
            QProcess p;
            p.start(candidate, {QStringLiteral("-c"), QStringLiteral("import olefile")});
            if (p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0)
                return candidate;
        }
        return QString();
    }();
    return found;
}

// Lists a compound file with python3-olefile: every storage and stream with
// its size, the SHA-256 of its bytes and its class identifier.
inline Listing olefileListing(const QString &path)
{
    static const char *script = R"PY(
import sys, json, hashlib, olefile
ole = olefile.OleFileIO(sys.argv[1])
out = {"root_clsid": ole.root.clsid, "entries": []}
for parts in ole.listdir(streams=True, storages=True):
    p = "/".join(parts)
    t = ole.get_type(p)
    e = {"path": "/" + p, "clsid": ole.getclsid(p), "sid": ole._find(p)}
    if t == olefile.STGTY_STREAM:
        data = ole.openstream(p).read()
        e.update(kind="stream", size=len(data), sha256=hashlib.sha256(data).hexdigest())
    else:
        e.update(kind="storage", size=0, sha256="")
    out["entries"].append(e)
print(json.dumps(out))
)PY";
    Listing listing;
    const QString python = olefilePython();
    if (python.isEmpty()) {
        listing.error = QStringLiteral("no python3 with olefile (install python3-olefile)");
        return listing;
    }
    QProcess p;
    p.start(python, {QStringLiteral("-c"), QString::fromLatin1(script), path});
    if (!p.waitForFinished(120000) || p.exitCode() != 0) {
        listing.error = QString::fromUtf8(p.readAllStandardError());
        return listing;
    }
    const QJsonObject root = QJsonDocument::fromJson(p.readAllStandardOutput()).object();
    listing.rootClsid = root.value(QStringLiteral("root_clsid")).toString();
    for (const QJsonValue &v : root.value(QStringLiteral("entries")).toArray()) {
        const QJsonObject o = v.toObject();
        Entry e;
        e.kind = o.value(QStringLiteral("kind")).toString();
        e.size = qint64(o.value(QStringLiteral("size")).toDouble());
        e.sha256 = o.value(QStringLiteral("sha256")).toString();
        e.clsid = o.value(QStringLiteral("clsid")).toString();
        e.sid = o.value(QStringLiteral("sid")).toInt(-1);
        listing.entries.insert(o.value(QStringLiteral("path")).toString(), e);
    }
    listing.ok = true;
    return listing;
}

// Our class-identifier text in olefile's form: upper case without braces,
// and "" for all zeros.
inline QString olefileStyle(const QString &clsid)
{
    QString s = clsid.toUpper();
    s.remove(QLatin1Char('{'));
    s.remove(QLatin1Char('}'));
    return s == QLatin1String("00000000-0000-0000-0000-000000000000") ? QString() : s;
}

// Everything our reader sees, in the same form as olefileListing.
inline Listing poleListing(POLE::Storage &storage)
{
    Listing listing;
    QString rootId;
    storage.getClassId(QStringLiteral("/"), rootId);
    listing.rootClsid = olefileStyle(rootId);
    std::vector<QString> pending{QString()};
    while (!pending.empty()) {
        const QString dir = pending.back();
        pending.pop_back();
        for (const QString &name : storage.entries(dir.isEmpty() ? QStringLiteral("/") : dir)) {
            const QString path = dir + QLatin1Char('/') + name;
            Entry e;
            QString id;
            storage.getClassId(path, id);
            e.clsid = olefileStyle(id);
            if (storage.isDirectory(path)) {
                e.kind = QStringLiteral("storage");
                pending.push_back(path);
            } else {
                e.kind = QStringLiteral("stream");
                MemoryBuffer data;
                storage.getEntryData(path, &data);
                e.size = qint64(data.sizeOfMB());
                e.sha256 = sha256(toBytes(data));
            }
            listing.entries.insert(path, e);
        }
    }
    listing.ok = true;
    return listing;
}

// Describes the first difference between two listings, or "" when equal.
inline QString compareListings(const Listing &ours, const Listing &theirs)
{
    if (!theirs.ok)
        return QStringLiteral("independent reader failed: ") + theirs.error;
    if (ours.rootClsid != theirs.rootClsid)
        return QStringLiteral("root class id %1 vs %2").arg(ours.rootClsid, theirs.rootClsid);
    for (auto it = theirs.entries.begin(); it != theirs.entries.end(); ++it) {
        if (!ours.entries.contains(it.key()))
            return QStringLiteral("we miss %1").arg(it.key());
        const Entry &a = ours.entries.value(it.key());
        const Entry &b = it.value();
        if (a.kind != b.kind || a.size != b.size || a.sha256 != b.sha256 || a.clsid != b.clsid)
            return QStringLiteral("%1 differs: ours %2 %3 bytes %4 [%5], theirs %6 %7 bytes %8 [%9]")
                .arg(it.key(), a.kind)
                .arg(a.size)
                .arg(a.sha256.left(12), a.clsid, b.kind)
                .arg(b.size)
                .arg(b.sha256.left(12), b.clsid);
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
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("written.cfb"));
    if (!writeFile(path, file))
        return QStringLiteral("cannot write %1").arg(path);
    Listing expected;
    expected.ok = true;
    for (auto it = streams.begin(); it != streams.end(); ++it)
        expected.entries.insert(it.key(), Entry{QStringLiteral("stream"), it.value().size(), sha256(it.value()), QString()});
    for (const QString &storage : storages)
        expected.entries.insert(storage, Entry{QStringLiteral("storage"), 0, QString(), QString()});
    const Listing theirs = olefileListing(path);
    QString difference = compareListings(expected, theirs);
    if (!difference.isEmpty())
        return QStringLiteral("independent reader: ") + difference;
    MemoryBuffer buffer = toBuffer(file);
    POLE::Storage storage(&buffer);
    if (!storage.open())
        return QStringLiteral("we cannot reopen it: result %1").arg(storage.result());
    difference = compareListings(poleListing(storage), theirs);
    return difference.isEmpty() ? QString() : QStringLiteral("reopened by us: ") + difference;
}

// Runs `gsf createole OUT INPUTS...` in `dir`; true on success.
inline bool gsfCreateOle(const QString &dir, const QString &out, const QStringList &inputs)
{
    QProcess p;
    p.setWorkingDirectory(dir);
    p.start(QStringLiteral("gsf"), QStringList{QStringLiteral("createole"), out} + inputs);
    return p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

// Deterministic filler bytes.
inline QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    uint32_t x = 2463534242u + uint32_t(seed) * 7919u;
    for (int i = 0; i < size; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        data[i] = char(x);
    }
    return data;
}

// --- a compound file laid out by hand ---------------------------------------

inline void put16(QByteArray &b, int at, uint16_t v)
{
    b[at] = char(v);
    b[at + 1] = char(v >> 8);
}
inline void put32(QByteArray &b, int at, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b[at + i] = char(v >> (8 * i));
}
inline uint32_t get32(const QByteArray &b, int at)
{
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= uint32_t(uint8_t(b[at + i])) << (8 * i);
    return v;
}

struct BuiltStream
{
    QString name;
    QByteArray data;
};

// Where the builder put things, so that tests can damage them.
struct BuiltFile
{
    QByteArray bytes;
    int sectorSize = 512;
    int firstBatSector = 0;
    int firstDirSector = 0;
    std::vector<std::vector<uint32_t>> chains; // each stream's big-block or small-block chain

    int sectorOffset(uint32_t sector) const { return int(sector + 1) * sectorSize; }
    int batEntryOffset(uint32_t sector) const { return sectorOffset(uint32_t(firstBatSector)) + int(sector) * 4; }
    int dirEntryOffset(int index) const { return sectorOffset(uint32_t(firstDirSector)) + index * 128; }
};

// A valid compound file with the given streams at the root, sibling tree as a
// chain in name order. sectorShift 9 or 12; at most 109 BAT sectors.
inline BuiltFile buildCompoundFile(const std::vector<BuiltStream> &streamsIn, int sectorShift = 9,
                                   const QByteArray &rootClsid = QByteArray(16, '\0'))
{
    std::vector<BuiltStream> streams = streamsIn;
    std::sort(streams.begin(), streams.end(), [](const BuiltStream &a, const BuiltStream &b) {
        return a.name.size() != b.name.size() ? a.name.size() < b.name.size() : a.name < b.name;
    });
    const int ss = 1 << sectorShift;
    const int epb = ss / 4;
    auto sectorsFor = [ss](int bytes) { return (bytes + ss - 1) / ss; };

    QByteArray mini;
    std::vector<int> miniStart(streams.size(), -1);
    for (size_t i = 0; i < streams.size(); ++i)
        if (streams[i].data.size() < 4096 && !streams[i].data.isEmpty()) {
            miniStart[i] = mini.size() / 64;
            mini += streams[i].data;
            mini += QByteArray((64 - mini.size() % 64) % 64, '\0');
        }
    const int miniBlocks = mini.size() / 64;
    const int dirSectors = sectorsFor(int(streams.size() + 1) * 128);
    const int minifatSectors = miniBlocks ? sectorsFor(miniBlocks * 4) : 0;
    const int miniSectors = sectorsFor(mini.size());
    int bigSectors = 0;
    for (const BuiltStream &s : streams)
        if (s.data.size() >= 4096)
            bigSectors += sectorsFor(s.data.size());
    const int data = dirSectors + minifatSectors + miniSectors + bigSectors;
    int batSectors = 1;
    while (batSectors * epb < data + batSectors)
        ++batSectors;
    const int total = batSectors + data;

    BuiltFile f;
    f.sectorSize = ss;
    f.firstBatSector = 0;
    f.firstDirSector = batSectors;
    f.bytes = QByteArray((total + 1) * ss, '\0');
    QByteArray &b = f.bytes;
    std::vector<uint32_t> bat(size_t(batSectors * epb), 0xFFFFFFFF);
    auto chain = [&bat](int first, int count) {
        std::vector<uint32_t> c;
        for (int i = 0; i < count; ++i) {
            bat[size_t(first + i)] = i + 1 < count ? uint32_t(first + i + 1) : 0xFFFFFFFE;
            c.push_back(uint32_t(first + i));
        }
        return c;
    };
    for (int i = 0; i < batSectors; ++i)
        bat[size_t(i)] = 0xFFFFFFFD;
    int next = batSectors;
    chain(next, dirSectors);
    const int dirStart = next;
    next += dirSectors;
    const int minifatStart = minifatSectors ? next : -2;
    chain(next, minifatSectors);
    next += minifatSectors;
    const int miniStreamStart = miniSectors ? next : -2;
    chain(next, miniSectors);
    for (int i = 0; i < miniSectors; ++i)
        std::memcpy(b.data() + (next + i + 1) * ss, mini.constData() + i * ss, size_t(std::min(ss, mini.size() - i * ss)));
    next += miniSectors;

    // Header.
    const unsigned char magic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(b.data(), magic, 8);
    put16(b, 24, 0x3E);
    put16(b, 26, sectorShift == 12 ? 4 : 3);
    put16(b, 28, 0xFFFE);
    put16(b, 30, uint16_t(sectorShift));
    put16(b, 32, 6);
    put32(b, 40, sectorShift == 12 ? uint32_t(dirSectors) : 0);
    put32(b, 44, uint32_t(batSectors));
    put32(b, 48, uint32_t(dirStart));
    put32(b, 56, 4096);
    put32(b, 60, uint32_t(minifatStart));
    put32(b, 64, uint32_t(minifatSectors));
    put32(b, 68, 0xFFFFFFFE);
    put32(b, 72, 0);
    for (int i = 0; i < 109; ++i)
        put32(b, 76 + i * 4, i < batSectors ? uint32_t(i) : 0xFFFFFFFF);

    // Directory: root, then the streams as a right-leaning chain.
    auto dirEntry = [&](int index, const QString &name, int type, uint32_t left, uint32_t right, uint32_t child,
                        uint32_t start, uint32_t size) {
        const int at = (dirStart + 1) * ss + index * 128;
        for (int c = 0; c < name.size(); ++c)
            put16(b, at + c * 2, name.at(c).unicode());
        put16(b, at + 64, uint16_t(name.size() * 2 + 2));
        b[at + 66] = char(type);
        b[at + 67] = 1;
        put32(b, at + 68, left);
        put32(b, at + 72, right);
        put32(b, at + 76, child);
        put32(b, at + 116, start);
        put32(b, at + 120, size);
    };
    const int n = int(streams.size());
    dirEntry(0, QStringLiteral("Root Entry"), 5, 0xFFFFFFFF, 0xFFFFFFFF, n ? 1 : 0xFFFFFFFF,
             uint32_t(miniStreamStart), uint32_t(miniSectors * ss));
    std::memcpy(b.data() + (dirStart + 1) * ss + 80, rootClsid.constData(), 16);
    std::vector<uint32_t> minifat(size_t(minifatSectors * epb), 0xFFFFFFFF);
    for (int i = 0; i < n; ++i) {
        const BuiltStream &s = streams[size_t(i)];
        uint32_t start = 0xFFFFFFFE;
        std::vector<uint32_t> c;
        if (s.data.size() >= 4096) {
            const int count = sectorsFor(s.data.size());
            c = chain(next, count);
            std::memcpy(b.data() + (next + 1) * ss, s.data.constData(), size_t(s.data.size()));
            start = uint32_t(next);
            next += count;
        } else if (!s.data.isEmpty()) {
            const int first = miniStart[size_t(i)];
            const int count = (s.data.size() + 63) / 64;
            for (int k = 0; k < count; ++k) {
                minifat[size_t(first + k)] = k + 1 < count ? uint32_t(first + k + 1) : 0xFFFFFFFE;
                c.push_back(uint32_t(first + k));
            }
            start = uint32_t(first);
        }
        f.chains.push_back(c);
        dirEntry(i + 1, s.name, 2, 0xFFFFFFFF, i + 1 < n ? uint32_t(i + 2) : 0xFFFFFFFF, 0xFFFFFFFF, start,
                 uint32_t(s.data.size()));
    }
    for (size_t i = 0; i < bat.size(); ++i)
        put32(b, (int(i / size_t(epb)) + 1) * ss + int(i % size_t(epb)) * 4, bat[i]);
    for (size_t i = 0; i < minifat.size(); ++i)
        put32(b, (minifatStart + int(i / size_t(epb)) + 1) * ss + int(i % size_t(epb)) * 4, minifat[i]);
    return f;
}

} // namespace cfbtest
