// vxcam cfb: looks into compound files and changes them. See kHelp for the
// verbs. Files are read in place, through the storage over the file itself.

#include "cfbfiles.h"
#include "command.h"
#include "reporter.h"

#include "cameras/filetype.h"
#include "containers/pole.h"

#include <QJsonObject>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>

namespace {

const char *const kCommand = "cfb";
const QString kAllZero = QStringLiteral("{00000000-0000-0000-0000-000000000000}");

const char *const kHelp =
    "verbs:\n"
    "  ls FILE               every storage and stream with its size and class identifier\n"
    "  cat FILE PATH         a stream's bytes on standard output\n"
    "  cat FILE --all        every stream's bytes, in the order ls lists them, back to back\n"
    "  info FILE             header fields, table statistics and the sub-type\n"
    "  add FILE PATH SOURCE  store SOURCE's bytes (an empty file too) as stream PATH, replacing it\n"
    "  rm FILE PATH          delete a stream, or a storage with all below it\n"
    "  new FILE              write an empty compound file (FILE must not exist)\n"
    "  extract FILE DIR      write every stream as a file under DIR, storages as folders\n"
    "                        (--verbose: a line per file)\n"
    "\n"
    "PATH is a stream's path inside the file (\"/Workbook\", \"Workbook\", \"/ObjectPool/x/Ole\").\n"
    "Names with control characters are shown and typed as \\xNN (\"\\x01CompObj\"); extract\n"
    "names files the same way. Names are told apart without regard to case, as the format\n"
    "does: a PATH in other case finds an entry when exactly one matches, and add to a name\n"
    "that differs only in case replaces that stream's bytes and keeps its name.\n"
    "\n"
    "A damaged file or stream is reported on a line of its own and gives exit status 1;\n"
    "cat writes the bytes the file holds and never makes up the rest. add and rm lock\n"
    "FILE while they change it and replace it with a changed copy, keeping its mode (and\n"
    "owner where allowed); a failure leaves FILE as it was.\n";

// --- names ----------------------------------------------------------------------

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

// A name as a file name: escaped as ls shows it, the separator too. Names
// of dots alone are escaped whole, and the empty name (which holds no NUL,
// as no name does) is "\x00": no name leads out of its folder.
QString safeFileName(const QString &name)
{
    if (name.isEmpty())
        return QStringLiteral("\\x00");
    if (name.count(QLatin1Char('.')) == name.size() && name.size() <= 2)
        return QStringLiteral("\\x2e").repeated(name.size());
    return escapeName(name).replace(QLatin1Char('/'), QLatin1String("\\x2f"));
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

// --- output -----------------------------------------------------------------------

// Writes raw bytes to standard output; false, with the reason reported, when
// they cannot all be written (a full disk, a closed pipe).
bool writeOut(const char *data, size_t size, Reporter &reporter)
{
    if (std::fwrite(data, 1, size, stdout) == size)
        return true;
    reporter.error(QStringLiteral("standard output"), QString::fromLocal8Bit(std::strerror(errno)));
    return false;
}

// Whatever is still buffered for standard output must arrive too.
bool finishOutput(Reporter &reporter)
{
    errno = 0;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    reporter.error(QStringLiteral("standard output"),
                   errno ? QString::fromLocal8Bit(std::strerror(errno)) : QStringLiteral("write error"));
    return false;
}

// --- reading ------------------------------------------------------------------------

QString openFailure(const POLE::Storage &storage)
{
    const QStringList why = storage.damage();
    switch (storage.result()) {
    case POLE::Storage::NotOLE:
        return QStringLiteral("not a compound file");
    case POLE::Storage::BadOLE:
        return why.isEmpty() ? QStringLiteral("damaged compound file header")
                             : QStringLiteral("damaged compound file: ") + escapeName(why.first());
    default:
        return QStringLiteral("cannot open the compound file");
    }
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

bool reportDamage(const POLE::Storage &storage, const QString &file, Reporter &reporter)
{
    const QStringList damage = storage.damage();
    for (const QString &problem : damage)
        reporter.error(file, QStringLiteral("damaged: %1").arg(escapeName(problem)), file);
    return damage.isEmpty();
}

void reportStreamDamage(const QString &file, const QString &path, const QString &why, Reporter &reporter)
{
    reporter.error(file, QStringLiteral("%1: damaged: %2").arg(escapeName(path), escapeName(why)), file);
}

// Opens FILE read-only as a compound file and lets `work` read it; the
// storage's exceptions become one error line. Returns the exit status.
int onStorage(const QString &file, Reporter &reporter, const std::function<bool(POLE::Storage &)> &work)
{
    QFile device(file);
    QString error;
    if (!openForReading(device, error)) {
        reporter.error(file, error, file);
        return 1;
    }
    const bool ok = guarded(reporter, file, [&] {
        POLE::Storage storage(&device);
        if (!storage.open()) {
            reporter.error(file, openFailure(storage), file);
            return false;
        }
        return work(storage);
    });
    return ok && reporter.errorCount() == 0 ? 0 : 1;
}

struct Entry
{
    QString path;
    QString name;
    QStringList folders; // the storages it lies in
    bool isStorage;
};

// Every entry below the root, storages before their contents, each level by name.
void collectEntries(const QMap<QString, QVariant> &level, const QString &dir, const QStringList &folders,
                    std::vector<Entry> &out)
{
    for (auto it = level.begin(); it != level.end(); ++it) {
        const bool isStorage = it.value().type() == QVariant::Map;
        const QString path = dir + QLatin1Char('/') + it.key();
        out.push_back({path, it.key(), folders, isStorage});
        if (isStorage)
            collectEntries(it.value().toMap(), path, folders + QStringList{it.key()}, out);
    }
}

std::vector<Entry> allEntries(const POLE::Storage &storage)
{
    std::vector<Entry> entries;
    collectEntries(storage.getEntriesMap(), QString(), {}, entries);
    return entries;
}

// Finds the entry a path typed by the user names (see kHelp); reports and
// returns false when several entries match.
bool resolve(const POLE::Storage &storage, const QString &path, QString &resolved, const QString &file,
             Reporter &reporter)
{
    QStringList candidates;
    if (storage.resolvePath(path, resolved, &candidates))
        return true;
    for (QString &candidate : candidates)
        candidate = escapeName(candidate);
    reporter.error(file, QStringLiteral("%1 matches several entries: %2")
                             .arg(escapeName(path), candidates.join(QStringLiteral(", "))), file);
    return false;
}

// Copies a stream to `write`, a chunk at a time; false once `write` fails.
bool copyStream(POLE::Stream &stream, const std::function<bool(const char *, size_t)> &write)
{
    QByteArray chunk(1 << 16, Qt::Uninitialized);
    for (;;) {
        const auto n = stream.read(reinterpret_cast<unsigned char *>(chunk.data()), unsigned(chunk.size()));
        if (n == 0)
            return true;
        if (!write(chunk.constData(), size_t(n)))
            return false;
    }
}

// --- the verbs ------------------------------------------------------------------------

QString listingLine(const QString &name, const QString &size, const QString &clsid)
{
    return rightTrimmed(
        QStringLiteral("%1 %2  %3").arg(name, -40).arg(size, 10).arg(clsid == kAllZero ? QString() : clsid));
}

int runLs(const QString &file, Reporter &reporter)
{
    return onStorage(file, reporter, [&](POLE::Storage &storage) {
        reportDamage(storage, file, reporter);
        QString rootId;
        storage.getClassId(QStringLiteral("/"), rootId);
        reporter.result(QJsonObject{{QStringLiteral("file"), file},
                                    {QStringLiteral("path"), QStringLiteral("/")},
                                    {QStringLiteral("kind"), QStringLiteral("storage")},
                                    {QStringLiteral("size"), 0},
                                    {QStringLiteral("clsid"), rootId}},
                        listingLine(QStringLiteral("/"), QString(), rootId));
        for (const Entry &entry : allEntries(storage)) {
            QString clsid;
            storage.getClassId(entry.path, clsid);
            QString damage;
            qint64 size = 0;
            if (!entry.isStorage) {
                const POLE::Stream stream(&storage, entry.path);
                size = qint64(stream.size());
                damage = stream.damage();
            }
            QJsonObject object{{QStringLiteral("file"), file},
                               {QStringLiteral("path"), entry.path},
                               {QStringLiteral("kind"),
                                entry.isStorage ? QStringLiteral("storage") : QStringLiteral("stream")},
                               {QStringLiteral("size"), size},
                               {QStringLiteral("clsid"), clsid}};
            if (!damage.isEmpty())
                object.insert(QStringLiteral("damage"), damage);
            const QString name = QString((entry.folders.size() + 1) * 2, QLatin1Char(' ')) + escapeName(entry.name) +
                                 (entry.isStorage ? QStringLiteral("/") : QString());
            reporter.result(object, listingLine(name, entry.isStorage ? QString() : QString::number(size), clsid));
            if (!damage.isEmpty())
                reportStreamDamage(file, entry.path, damage, reporter);
        }
        return true;
    });
}

// Writes one stream to standard output; its damage is reported after the
// bytes the file holds for it.
bool catStream(POLE::Storage &storage, const QString &path, const QString &file, Reporter &reporter)
{
    POLE::Stream stream(&storage, path);
    if (!copyStream(stream, [&](const char *data, size_t size) { return writeOut(data, size, reporter); }))
        return false;
    if (stream.fail()) {
        const QString why = stream.damage();
        reportStreamDamage(file, path, why.isEmpty() ? storage.errorString() : why, reporter);
    }
    return true;
}

int runCat(const QString &file, const QString &pathArgument, Reporter &reporter)
{
    return onStorage(file, reporter, [&](POLE::Storage &storage) {
        QString path;
        if (!resolve(storage, streamPath(pathArgument), path, file, reporter))
            return false;
        if (!storage.exists(path) || storage.isDirectory(path)) {
            reporter.error(file, QStringLiteral("no stream %1").arg(escapeName(path)), file);
            reportDamage(storage, file, reporter); // perhaps why
            return false;
        }
        return catStream(storage, path, file, reporter);
    });
}

int runCatAll(const QString &file, Reporter &reporter)
{
    return onStorage(file, reporter, [&](POLE::Storage &storage) {
        reportDamage(storage, file, reporter);
        std::vector<Entry> entries = allEntries(storage);
        reporter.beginBatch(int(entries.size()));
        for (const Entry &entry : entries) {
            if (!entry.isStorage && !catStream(storage, entry.path, file, reporter))
                return false;
            reporter.advance(entry.path);
        }
        reporter.endBatch();
        return true;
    });
}

int runInfo(const QString &file, Reporter &reporter)
{
    return onStorage(file, reporter, [&](POLE::Storage &storage) {
        reportDamage(storage, file, reporter);
        const POLE::HeaderInfo h = storage.headerInfo();
        uint64_t dir, unusedDir, bat, freeBat, sbat, freeSbat;
        storage.GetStats(dir, unusedDir, bat, freeBat, sbat, freeSbat);
        const ContainerKind kind = FileType().describeCompoundFile(storage);
        const ft_t subtype = kind.type;
        const QString reason = kind.reason != nullptr && subtype != ft_unknown ? QString::fromLatin1(kind.reason)
                                                                                : QString();
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
        lines << QStringLiteral("  directory entries %1 (%2 unused), BAT entries %3 (%4 free), "
                                "SBAT entries %5 (%6 free)")
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

// Human output is one summary line; --verbose adds a line per file written.
int runExtract(const QString &file, const QString &directory, bool verbose, Reporter &reporter)
{
    return onStorage(file, reporter, [&](POLE::Storage &storage) {
        reportDamage(storage, file, reporter);
        ExtractDir target;
        QString error;
        if (!target.open(directory, error)) {
            reporter.error(directory, error, directory);
            return false;
        }
        const std::vector<Entry> entries = allEntries(storage);
        int extracted = 0;
        reporter.beginBatch(int(entries.size()));
        for (const Entry &entry : entries) {
            reporter.advance(entry.path);
            if (entry.isStorage)
                continue;
            POLE::Stream stream(&storage, entry.path);
            const QString why = stream.damage();
            if (!why.isEmpty()) { // no file of part of a stream
                reportStreamDamage(file, entry.path, why, reporter);
                continue;
            }
            QStringList folders;
            for (const QString &folder : entry.folders)
                folders << safeFileName(folder);
            const QString name = safeFileName(entry.name);
            const bool written = target.writeFile(folders, name, [&](QFile &out, QString &failure) {
                const bool copied = copyStream(stream, [&](const char *data, size_t size) {
                    return out.write(data, qint64(size)) == qint64(size);
                });
                if (!copied)
                    failure = out.errorString();
                else if (stream.fail())
                    failure = QStringLiteral("damaged: ") + storage.errorString();
                return copied && !stream.fail();
            }, error);
            const QString output = QStringList(folders + QStringList{name}).join(QLatin1Char('/'));
            if (!written) {
                reporter.error(file, QStringLiteral("%1: %2").arg(escapeName(entry.path), error), file);
                continue;
            }
            ++extracted;
            const QString outputPath = directory + QLatin1Char('/') + output;
            if (reporter.json() || verbose)
                reporter.result(QJsonObject{{QStringLiteral("file"), file},
                                            {QStringLiteral("path"), entry.path},
                                            {QStringLiteral("output"), outputPath},
                                            {QStringLiteral("size"), qint64(stream.size())}},
                                QStringLiteral("%1 -> %2 (%3 bytes)").arg(escapeName(entry.path), outputPath)
                                    .arg(stream.size()));
        }
        reporter.endBatch();
        if (!reporter.json())
            reporter.result({}, QStringLiteral("%1: %2 streams extracted into %3")
                                    .arg(file)
                                    .arg(extracted)
                                    .arg(directory));
        return true;
    });
}

// Locks FILE, lets `change` work on a copy of it, and puts the copy in its
// place; `done` reports the change once it is in place.
int changeFile(const QString &file, Reporter &reporter, const std::function<bool(POLE::Storage &)> &change,
               const std::function<void()> &done)
{
    LockedEdit edit;
    QString error;
    if (!edit.begin(file, error)) {
        reporter.error(file, error, file);
        return 1;
    }
    const bool ok = guarded(reporter, file, [&] {
        POLE::Storage storage(&edit.copy());
        if (!storage.open(true, false)) {
            reporter.error(file, openFailure(storage), file);
            return false;
        }
        if (!change(storage))
            return false;
        storage.flush();
        storage.close();
        if (!storage.errorString().isEmpty()) {
            reporter.error(file, QStringLiteral("cannot write the changed file: %1").arg(storage.errorString()), file);
            return false;
        }
        return true;
    });
    if (!ok)
        return 1;
    if (!edit.commit(error)) {
        reporter.error(file, QStringLiteral("cannot save the change: %1").arg(error), file);
        return 1;
    }
    done();
    return 0;
}

int runAdd(const QString &file, const QString &pathArgument, const QString &sourcePath, Reporter &reporter)
{
    QFile source(sourcePath);
    QString error;
    if (!openForReading(source, error)) {
        reporter.error(sourcePath, error, sourcePath);
        return 1;
    }
    QString path;
    return changeFile(file, reporter, [&](POLE::Storage &storage) {
        if (!resolve(storage, streamPath(pathArgument), path, file, reporter))
            return false;
        if (storage.isDirectory(path)) {
            reporter.error(file, QStringLiteral("%1 is a storage").arg(escapeName(path)), file);
            return false;
        }
        // Storing a file replaces the stream; the storage itself would keep
        // the tail of a longer one.
        if (storage.exists(path))
            storage.deleteByName(path);
        if (!storage.addEntry(path, source)) {
            reporter.error(file,
                           QStringLiteral("cannot store %1 (is a part of the path a stream?)").arg(escapeName(path)),
                           file);
            return false;
        }
        return true;
    }, [&] {
        reporter.result(QJsonObject{{QStringLiteral("file"), file},
                                    {QStringLiteral("added"), path},
                                    {QStringLiteral("size"), source.size()}},
                        QStringLiteral("%1: added %2 (%3 bytes)").arg(file, escapeName(path)).arg(source.size()));
    });
}

int runRm(const QString &file, const QString &pathArgument, Reporter &reporter)
{
    QString path;
    return changeFile(file, reporter, [&](POLE::Storage &storage) {
        if (!resolve(storage, streamPath(pathArgument), path, file, reporter))
            return false;
        if (path == QLatin1String("/")) {
            reporter.error(file, QStringLiteral("the root cannot be removed"), file);
            return false;
        }
        if (!storage.deleteByName(path)) {
            reporter.error(file, QStringLiteral("no entry %1").arg(escapeName(path)), file);
            return false;
        }
        return true;
    }, [&] {
        reporter.result(QJsonObject{{QStringLiteral("file"), file}, {QStringLiteral("removed"), path}},
                        QStringLiteral("%1: removed %2").arg(file, escapeName(path)));
    });
}

int runNew(const QString &file, Reporter &reporter)
{
    QString error;
    const bool ok = createNewFile(file, [&](QFile &out, QString &failure) {
        POLE::Storage storage(&out);
        if (!storage.open(true, true)) {
            failure = out.errorString();
            return false;
        }
        storage.flush();
        failure = storage.errorString();
        return failure.isEmpty();
    }, error);
    if (!ok) {
        reporter.error(file, error, file);
        return 1;
    }
    reporter.result(QJsonObject{{QStringLiteral("file"), file}, {QStringLiteral("created"), true}},
                    QStringLiteral("%1: created").arg(file));
    return 0;
}

int runVerb(CommandContext &context)
{
    CommandArgs args(context.args);
    const bool all = args.takeFlag({"--all"});
    const QStringList a = args.operands();
    if (!args.ok())
        return usageError(context, kCommand, args.error());
    if (a.isEmpty())
        return usageError(context, kCommand, QStringLiteral("missing verb: ls, cat, info, add, rm, new or extract"));
    const QString verb = a.first();
    struct Verb
    {
        const char *name;
        int operands;
    };
    static const Verb verbs[] = {{"ls", 1}, {"cat", 2}, {"info", 1}, {"add", 3}, {"rm", 2}, {"new", 1}, {"extract", 2}};
    const auto known = std::find_if(std::begin(verbs), std::end(verbs),
                                    [&](const Verb &v) { return verb == QLatin1String(v.name); });
    if (known == std::end(verbs))
        return usageError(context, kCommand, QStringLiteral("unknown verb %1").arg(verb));
    if (all && verb != QLatin1String("cat"))
        return usageError(context, kCommand, QStringLiteral("--all goes with cat only"));
    const int operands = known->operands - (all ? 1 : 0);
    if (a.size() - 1 != operands)
        return usageError(context, kCommand,
                          all ? QStringLiteral("cat --all takes FILE only")
                              : QStringLiteral("%1 takes %2 argument(s)").arg(verb).arg(known->operands));

    Reporter &reporter = context.reporter;
    if (verb == QLatin1String("ls"))
        return runLs(a.at(1), reporter);
    if (verb == QLatin1String("cat"))
        return all ? runCatAll(a.at(1), reporter) : runCat(a.at(1), a.at(2), reporter);
    if (verb == QLatin1String("info"))
        return runInfo(a.at(1), reporter);
    if (verb == QLatin1String("add"))
        return runAdd(a.at(1), a.at(2), a.at(3), reporter);
    if (verb == QLatin1String("rm"))
        return runRm(a.at(1), a.at(2), reporter);
    if (verb == QLatin1String("extract"))
        return runExtract(a.at(1), a.at(2), context.verbose, reporter);
    return runNew(a.at(1), reporter);
}

int runCfb(CommandContext &context)
{
    const int status = runVerb(context);
    return finishOutput(context.reporter) ? status : std::max(status, 1);
}

const CommandRegistrar registration({kCommand, "cfb VERB FILE [PATH [SOURCE] | DIR | --all]",
                                     "look into compound files and change them", runCfb, kHelp});

} // namespace
