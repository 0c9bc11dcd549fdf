// vxcam cfb: looks into compound files and changes them.
//
//   cfb ls FILE               every storage and stream with size and class identifier
//   cfb cat FILE PATH         a stream's bytes on standard output
//   cfb info FILE             header fields, table statistics and the sub-type
//   cfb add FILE PATH SOURCE  stores SOURCE's bytes as stream PATH, replacing it
//   cfb rm FILE PATH          deletes a stream or a storage with all below it
//   cfb new FILE              writes an empty compound file
//
// Names may hold control characters ("\x01CompObj"); they are shown and
// accepted as \xNN. A change is written to a temporary file that then
// replaces FILE, so a failure leaves FILE as it was.

#include "cfb.h"
#include "command.h"
#include "inputs.h"
#include "reporter.h"

#include "buffers/MemoryBuffer.h"
#include "containers/pole.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QSaveFile>

#include <functional>

namespace {

const QString kAllZero = QStringLiteral("{00000000-0000-0000-0000-000000000000}");

QString escapeName(const QString &name)
{
    QString out;
    for (const QChar c : name) {
        if (c.unicode() < 0x20 || c == QLatin1Char('\\'))
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

QString unescapeName(const QString &text)
{
    QString out;
    for (int i = 0; i < text.size(); ++i) {
        bool ok = false;
        if (text.at(i) == QLatin1Char('\\') && i + 3 < text.size() && text.at(i + 1) == QLatin1Char('x')) {
            const ushort code = text.mid(i + 2, 2).toUShort(&ok, 16);
            if (ok) {
                out += QChar(code);
                i += 3;
                continue;
            }
        }
        out += text.at(i);
    }
    return out;
}

QString rightTrimmed(QString line)
{
    while (line.endsWith(QLatin1Char(' ')))
        line.chop(1);
    return line;
}

// Stream paths are absolute inside the file.
QString streamPath(const QString &argument)
{
    const QString path = unescapeName(argument);
    return path.startsWith(QLatin1Char('/')) ? path : QLatin1Char('/') + path;
}

// Runs `work` and turns the storage's exceptions into one error line.
bool guarded(Reporter &reporter, const QString &file, const std::function<bool()> &work)
{
    try {
        return work();
    } catch (const char *message) {
        reporter.error(file, QString::fromLatin1(message), file);
    } catch (const std::exception &e) {
        reporter.error(file, QString::fromUtf8(e.what()), file);
    }
    return false;
}

QString openFailure(int result)
{
    switch (result) {
    case POLE::Storage::NotOLE:
        return QStringLiteral("not a compound file");
    case POLE::Storage::BadOLE:
        return QStringLiteral("damaged compound file header");
    default:
        return QStringLiteral("cannot open the compound file");
    }
}

bool openStorage(POLE::Storage &storage, bool writeable, const QString &file, Reporter &reporter)
{
    if (storage.open(writeable, false))
        return true;
    reporter.error(file, openFailure(storage.result()), file);
    return false;
}

// Writes the buffer to `file` through a temporary file.
bool saveAtomically(const MemoryBuffer &buffer, const QString &file, Reporter &reporter)
{
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly)) {
        reporter.error(file, out.errorString(), file);
        return false;
    }
    const qint64 size = qint64(buffer.sizeOfMB());
    if (out.write(reinterpret_cast<const char *>(buffer.constData()), size) != size || !out.commit()) {
        reporter.error(file, out.errorString(), file);
        return false;
    }
    return true;
}

// Loads FILE, opens it as a compound file and lets `work` read or change it;
// the storage's exceptions become one error line. Returns the exit status.
int onStorage(const QString &file, bool writeable, Reporter &reporter,
              const std::function<bool(POLE::Storage &, MemoryBuffer &)> &work)
{
    MemoryBuffer buffer;
    if (!loadFile(file, buffer, reporter))
        return 1;
    const bool ok = guarded(reporter, file, [&] {
        POLE::Storage storage(&buffer);
        return openStorage(storage, writeable, file, reporter) && work(storage, buffer);
    });
    return ok ? 0 : 1;
}

// --- the sub-verbs ------------------------------------------------------------

void listLevel(POLE::Storage &storage, const QMap<QString, QVariant> &level, const QString &dir, int depth,
               Reporter &reporter, const QString &file)
{
    for (auto it = level.begin(); it != level.end(); ++it) {
        const QString path = dir + QLatin1Char('/') + it.key();
        const bool isStorage = it.value().type() == QVariant::Map;
        QString clsid;
        storage.getClassId(path, clsid);
        const qint64 size = isStorage ? 0 : qint64(POLE::Stream(&storage, path).size());
        const QJsonObject object{{QStringLiteral("file"), file},
                                 {QStringLiteral("path"), path},
                                 {QStringLiteral("kind"), isStorage ? QStringLiteral("storage") : QStringLiteral("stream")},
                                 {QStringLiteral("size"), size},
                                 {QStringLiteral("clsid"), clsid}};
        const QString name = QString(depth * 2, QLatin1Char(' ')) + escapeName(it.key()) + (isStorage ? QStringLiteral("/") : QString());
        const QString line = QStringLiteral("%1 %2  %3")
                                 .arg(name, -40)
                                 .arg(isStorage ? QString() : QString::number(size), 10)
                                 .arg(clsid == kAllZero ? QString() : clsid);
        reporter.result(object, rightTrimmed(line));
        if (isStorage)
            listLevel(storage, it.value().toMap(), path, depth + 1, reporter, file);
    }
}

int runLs(const QString &file, Reporter &reporter)
{
    return onStorage(file, false, reporter, [&](POLE::Storage &storage, MemoryBuffer &) {
        QString rootId;
        storage.getClassId(QStringLiteral("/"), rootId);
        reporter.result(QJsonObject{{QStringLiteral("file"), file},
                                    {QStringLiteral("path"), QStringLiteral("/")},
                                    {QStringLiteral("kind"), QStringLiteral("storage")},
                                    {QStringLiteral("size"), 0},
                                    {QStringLiteral("clsid"), rootId}},
                        rightTrimmed(QStringLiteral("%1 %2  %3")
                                         .arg(QStringLiteral("/"), -40)
                                         .arg(QString(), 10)
                                         .arg(rootId == kAllZero ? QString() : rootId)));
        listLevel(storage, storage.getEntriesMap(), QString(), 1, reporter, file);
        return true;
    });
}

int runCat(const QString &file, const QString &pathArgument, Reporter &reporter)
{
    const QString path = streamPath(pathArgument);
    return onStorage(file, false, reporter, [&](POLE::Storage &storage, MemoryBuffer &) {
        if (!storage.exists(path) || storage.isDirectory(path)) {
            reporter.error(file, QStringLiteral("no stream %1").arg(escapeName(path)), file);
            return false;
        }
        POLE::Stream stream(&storage, path);
        QByteArray chunk(64 * 1024, Qt::Uninitialized);
        for (;;) {
            const auto n = stream.read(reinterpret_cast<unsigned char *>(chunk.data()), unsigned(chunk.size()));
            if (n == 0)
                break;
            reporter.bytes(chunk.left(int(n)));
        }
        return true;
    });
}

int runInfo(const QString &file, Reporter &reporter)
{
    return onStorage(file, false, reporter, [&](POLE::Storage &storage, MemoryBuffer &buffer) {
        const POLE::HeaderInfo h = storage.headerInfo();
        uint64_t dir, unusedDir, bat, freeBat, sbat, freeSbat;
        storage.GetStats(dir, unusedDir, bat, freeBat, sbat, freeSbat);
        storage.close();
        QString reason;
        const ft_t subtype = compoundFileSubType(buffer, &reason);
        const QJsonObject object{
            {QStringLiteral("file"), file},
            {QStringLiteral("sector_size"), qint64(1) << h.bigBlockShift},
            {QStringLiteral("small_block_size"), qint64(1) << h.smallBlockShift},
            {QStringLiteral("b_shift"), int(h.bigBlockShift)},
            {QStringLiteral("s_shift"), int(h.smallBlockShift)},
            {QStringLiteral("num_bat"), qint64(h.numBat)},
            {QStringLiteral("dirent_start"), qint64(h.direntStart)},
            {QStringLiteral("threshold"), qint64(h.threshold)},
            {QStringLiteral("sbat_start"), qint64(h.sbatStart)},
            {QStringLiteral("num_sbat"), qint64(h.numSbat)},
            {QStringLiteral("mbat_start"), qint64(h.mbatStart)},
            {QStringLiteral("num_mbat"), qint64(h.numMbat)},
            {QStringLiteral("dir_entries"), qint64(dir)},
            {QStringLiteral("unused_dir_entries"), qint64(unusedDir)},
            {QStringLiteral("bat_entries"), qint64(bat)},
            {QStringLiteral("free_bat_entries"), qint64(freeBat)},
            {QStringLiteral("sbat_entries"), qint64(sbat)},
            {QStringLiteral("free_sbat_entries"), qint64(freeSbat)},
            {QStringLiteral("cfb_subtype"), int(subtype)},
            {QStringLiteral("cfb_subtype_name"), QString::fromLatin1(fileTypeName(subtype))},
            {QStringLiteral("cfb_subtype_reason"), reason},
        };
        QStringList lines{file + QLatin1Char(':')};
        lines << QStringLiteral("  sector size %1 (b_shift %2), small blocks %3 (s_shift %4), threshold %5")
                     .arg(qint64(1) << h.bigBlockShift)
                     .arg(h.bigBlockShift)
                     .arg(qint64(1) << h.smallBlockShift)
                     .arg(h.smallBlockShift)
                     .arg(h.threshold);
        lines << QStringLiteral("  num_bat %1, dirent_start %2, sbat_start %3, num_sbat %4, mbat_start %5, num_mbat %6")
                     .arg(h.numBat)
                     .arg(h.direntStart)
                     .arg(h.sbatStart)
                     .arg(h.numSbat)
                     .arg(h.mbatStart)
                     .arg(h.numMbat);
        lines << QStringLiteral("  directory entries %1 (%2 unused), BAT entries %3 (%4 free), SBAT entries %5 (%6 free)")
                     .arg(dir)
                     .arg(unusedDir)
                     .arg(bat)
                     .arg(freeBat)
                     .arg(sbat)
                     .arg(freeSbat);
        lines << (subtype == ft_unknown ? QStringLiteral("  sub-type: none")
                                        : QStringLiteral("  sub-type: %1 (%2) by %3")
                                              .arg(int(subtype))
                                              .arg(QString::fromLatin1(fileTypeName(subtype)), reason));
        reporter.result(object, lines.join(QLatin1Char('\n')));
        return true;
    });
}

// Opens FILE read-write, lets `change` work on it, and saves the result.
int changeFile(const QString &file, Reporter &reporter, const std::function<bool(POLE::Storage &)> &change)
{
    return onStorage(file, true, reporter, [&](POLE::Storage &storage, MemoryBuffer &buffer) {
        if (!change(storage))
            return false;
        storage.flush();
        storage.close();
        return saveAtomically(buffer, file, reporter);
    });
}

int runAdd(const QString &file, const QString &pathArgument, const QString &source, Reporter &reporter)
{
    MemoryBuffer data;
    if (!loadFile(source, data, reporter))
        return 1;
    const QString path = streamPath(pathArgument);
    return changeFile(file, reporter, [&](POLE::Storage &storage) {
        if (storage.isDirectory(path)) {
            reporter.error(file, QStringLiteral("%1 is a storage").arg(escapeName(path)), file);
            return false;
        }
        // Storing a file replaces the stream; the storage itself would keep
        // the tail of a longer one.
        if (storage.exists(path))
            storage.deleteByName(path);
        if (!storage.addEntry(path, &data)) {
            reporter.error(file, QStringLiteral("cannot store %1 (is a part of the path a stream?)").arg(escapeName(path)), file);
            return false;
        }
        reporter.result(QJsonObject{{QStringLiteral("file"), file},
                                    {QStringLiteral("added"), path},
                                    {QStringLiteral("size"), qint64(data.sizeOfMB())}},
                        QStringLiteral("%1: added %2 (%3 bytes)").arg(file, escapeName(path)).arg(data.sizeOfMB()));
        return true;
    });
}

int runRm(const QString &file, const QString &pathArgument, Reporter &reporter)
{
    const QString path = streamPath(pathArgument);
    return changeFile(file, reporter, [&](POLE::Storage &storage) {
        if (path == QLatin1String("/") || !storage.deleteByName(path)) {
            reporter.error(file, path == QLatin1String("/") ? QStringLiteral("the root cannot be removed")
                                                              : QStringLiteral("no entry %1").arg(escapeName(path)),
                           file);
            return false;
        }
        reporter.result(QJsonObject{{QStringLiteral("file"), file}, {QStringLiteral("removed"), path}},
                        QStringLiteral("%1: removed %2").arg(file, escapeName(path)));
        return true;
    });
}

int runNew(const QString &file, Reporter &reporter)
{
    if (QFileInfo::exists(file)) {
        reporter.error(file, QStringLiteral("already exists"), file);
        return 1;
    }
    MemoryBuffer buffer;
    const bool ok = guarded(reporter, file, [&] {
        POLE::Storage storage(&buffer);
        if (!storage.open(true, true)) {
            reporter.error(file, openFailure(storage.result()), file);
            return false;
        }
        storage.flush();
        storage.close();
        return saveAtomically(buffer, file, reporter);
    });
    if (ok)
        reporter.result(QJsonObject{{QStringLiteral("file"), file}, {QStringLiteral("created"), true}},
                        QStringLiteral("%1: created").arg(file));
    return ok ? 0 : 1;
}

int usage(Reporter &reporter, const QString &message)
{
    reporter.error(QStringLiteral("cfb"), message + QStringLiteral(" (see vxcam --help)"));
    return 2;
}

int runCfb(CommandContext &context)
{
    const QStringList &a = context.args;
    Reporter &reporter = context.reporter;
    if (a.isEmpty())
        return usage(reporter, QStringLiteral("missing sub-command: ls, cat, info, add, rm or new"));
    const QString verb = a.first();
    struct Verb
    {
        const char *name;
        int arguments;
    };
    static const Verb verbs[] = {{"ls", 1}, {"cat", 2}, {"info", 1}, {"add", 3}, {"rm", 2}, {"new", 1}};
    const auto known = std::find_if(std::begin(verbs), std::end(verbs), [&](const Verb &v) { return verb == QLatin1String(v.name); });
    if (known == std::end(verbs))
        return usage(reporter, QStringLiteral("unknown sub-command %1").arg(verb));
    if (a.size() - 1 != known->arguments)
        return usage(reporter, QStringLiteral("%1 takes %2 argument(s)").arg(verb).arg(known->arguments));

    if (verb == QLatin1String("ls"))
        return runLs(a.at(1), reporter);
    if (verb == QLatin1String("cat"))
        return runCat(a.at(1), a.at(2), reporter);
    if (verb == QLatin1String("info"))
        return runInfo(a.at(1), reporter);
    if (verb == QLatin1String("add"))
        return runAdd(a.at(1), a.at(2), a.at(3), reporter);
    if (verb == QLatin1String("rm"))
        return runRm(a.at(1), a.at(2), reporter);
    return runNew(a.at(1), reporter);
}

const CommandRegistrar registration({"cfb", "cfb VERB FILE [PATH [SOURCE]]",
                                     "compound files: ls, cat, info, add, rm, new", runCfb});

} // namespace

ft_t compoundFileSubType(MemoryBuffer &buffer, QString *reason)
{
    // The structure root is only checked for being there.
    static int placeholderRoot;
    const char *method = nullptr;
    ft_t type = ft_unknown;
    try {
        type = FileType().determineCfbSubType(&buffer, &method, reinterpret_cast<BDDLStructBase_Root *>(&placeholderRoot));
    } catch (const char *) {
        type = ft_unknown; // a damaged directory: no sub-type
    }
    buffer.seek(0, MBSeekStart);
    if (reason != nullptr)
        *reason = method != nullptr && type != ft_unknown ? QString::fromLatin1(method) : QString();
    return type;
}
