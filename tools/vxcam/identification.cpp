#include "identification.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"
#include "containers/ZipUtils.h"
#include "containers/pole.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>

#include <new>
#include <stdexcept>

namespace {

using Evidence = Identification::Evidence;

// The directory listing of a zip archive may take this much memory; a
// larger directory is judged by the members listed within it.
const qint64 kZipListLimit = 32 << 20;

const char kZipLead[] = "PK";
const char kCompoundFileLead[] = "\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1";

// One question put to the pool: the answer, the reason the plug-in gave and
// the plug-in file that answered.
struct PoolAnswer
{
    ft_t type = ft_unknown;
    QString method;
    QString camera;
};

Evidence evidenceOf(const QString &method)
{
    if (method == QLatin1String("structure match"))
        return Evidence::Structure;
    if (method == QLatin1String("class identifier"))
        return Evidence::ClassId;
    if (method == QLatin1String("stream names"))
        return Evidence::StreamNames;
    // "signature match", and whatever else a plug-in says of the bytes.
    return Evidence::Signature;
}

// Types whose content the identification checks: a file without their
// signature or structure is not of that type, whatever its name says. The
// others (unstructured binary, COFF objects beyond the reliable cases, the
// types of plug-ins of their own) may still be named by their extension.
bool decidedByContent(ft_t type)
{
    switch (type) {
    case ft_coff:
    case ft_mpeg_other:
    case ft_binary:
    case ft_unknown:
        return false;
    default:
        return (type >= ft_pdf && type <= ft_coff) || (type >= ft_zip && type <= ft_tar) || type == ft_xml
               || (type >= ft_cfb_docx && type <= ft_cfb_pptx);
    }
}

// Descriptions for the types the registry has no row for.
QString plainDescription(ft_t type)
{
    static const QHash<int, const char *> kPlain = {
        {ft_zip, "ZIP archive"},
        {ft_gzip, "gzip compressed data"},
        {ft_bzip2, "bzip2 compressed data"},
        {ft_7zip, "7-Zip archive"},
        {ft_rar, "RAR archive"},
        {ft_tar, "tar archive"},
        {ft_cfb, "compound file"},
        {ft_cfb_docx, "Word Open XML document in a compound file"},
        {ft_cfb_xlsx, "Excel Open XML workbook in a compound file"},
        {ft_cfb_pptx, "PowerPoint Open XML presentation in a compound file"},
        {ft_opc, "Office Open XML package"},
        {ft_mpeg_other, "MPEG data"},
        {ft_fileidentifier, "file for the file-identifier camera"},
    };
    const char *text = kPlain.value(type, nullptr);
    return text ? QString::fromLatin1(text) : QString::fromLatin1(fileTypeName(type));
}

// Text is what a person could read: UTF-8 without control characters
// other than the usual white space. The head may end inside a character.
bool looksLikeText(const QByteArray &bytes)
{
    int i = 0;
    const int size = bytes.size();
    while (i < size) {
        const auto c = static_cast<unsigned char>(bytes.at(i));
        if (c < 0x80) {
            if (c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != 0x1b)
                return false;
            if (c == 0x7f)
                return false;
            ++i;
            continue;
        }
        const int length = c >= 0xf0 && c < 0xf5 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 && c < 0xe0 ? 2 : 0;
        if (length == 0 || (c >= 0xf0 && c >= 0xf5))
            return false;
        for (int k = 1; k < length; ++k) {
            if (i + k >= size)
                return true; // cut short by the head
            if ((static_cast<unsigned char>(bytes.at(i + k)) & 0xc0) != 0x80)
                return false;
        }
        i += length;
    }
    return true;
}

QString methodText(const char *reason)
{
    return reason ? QString::fromLatin1(reason) : QString();
}

} // namespace

// --- Identification -----------------------------------------------------------

QString Identification::typeName() const
{
    return QString::fromLatin1(fileTypeName(type));
}

const char *Identification::evidenceName(Evidence evidence)
{
    switch (evidence) {
    case Evidence::Signature:
        return "signature";
    case Evidence::Structure:
        return "structure";
    case Evidence::ClassId:
        return "class id";
    case Evidence::StreamNames:
        return "stream names";
    case Evidence::Extension:
        return "extension";
    case Evidence::None:
        break;
    }
    return "none";
}

QJsonObject Identification::toJson() const
{
    if (!ok())
        return QJsonObject{{QStringLiteral("path"), path}, {QStringLiteral("error"), error}};
    QJsonObject object{
        {QStringLiteral("path"), path},
        {QStringLiteral("type"), type},
        {QStringLiteral("type_name"), typeName()},
        {QStringLiteral("description"), description},
        {QStringLiteral("evidence"), QLatin1String(evidenceName(evidence))},
    };
    const auto put = [&object](const char *key, const QJsonValue &value, bool applies) {
        if (applies)
            object.insert(QLatin1String(key), value);
    };
    put("empty", true, empty);
    put("encrypted", true, encrypted);
    put("macros", true, macros);
    put("camera", camera, !camera.isEmpty());
    put("archive_type", archiveType, archiveType != ft_unknown);
    put("archive_method", archiveMethod, archiveType != ft_unknown);
    put("opc_subtype", opcSubtype, opcSubtype != ft_unknown);
    put("cfb_subtype", cfbSubtype, cfbSubtype != ft_unknown);
    put("cfb_method", cfbMethod, cfbSubtype != ft_unknown);
    put("extension", extension, !extension.isEmpty());
    put("extension_type", extensionType, extensionType != ft_unknown);
    put("duplicate_names", QJsonArray::fromStringList(duplicateNames), !duplicateNames.isEmpty());
    return object;
}

QString Identification::summary() const
{
    if (!ok())
        return QStringLiteral("%1: %2").arg(path, error);
    if (empty)
        return QStringLiteral("%1: empty").arg(path);
    QString line = QStringLiteral("%1: %2 [%3], ").arg(path, description, typeName());
    line += evidence == Evidence::None ? QStringLiteral("not identified")
            : evidence == Evidence::Extension
                ? QStringLiteral("by extension only")
                : QStringLiteral("by %1").arg(QLatin1String(evidenceName(evidence)));
    QStringList flags;
    if (encrypted)
        flags << QStringLiteral("encrypted");
    if (macros)
        flags << QStringLiteral("macros");
    if (!duplicateNames.isEmpty())
        flags << QStringLiteral("duplicate member names");
    if (!flags.isEmpty())
        line += QStringLiteral("; %1").arg(flags.join(QStringLiteral(", ")));
    return line;
}

QStringList Identification::details() const
{
    QStringList lines;
    const auto name = [](ft_t t) { return QString::fromLatin1(fileTypeName(t)); };
    if (!camera.isEmpty())
        lines << QStringLiteral("  answered by: %1").arg(camera);
    if (archiveType != ft_unknown)
        lines << QStringLiteral("  archive: %1 (%2)").arg(name(archiveType), archiveMethod);
    if (opcSubtype != ft_unknown)
        lines << QStringLiteral("  Office Open XML package: %1").arg(name(opcSubtype));
    if (cfbSubtype != ft_unknown)
        lines << QStringLiteral("  compound file: %1 (%2)").arg(name(cfbSubtype), cfbMethod);
    if (!extension.isEmpty())
        lines << QStringLiteral("  extension: .%1 (%2)").arg(extension, name(extensionType));
    if (!duplicateNames.isEmpty())
        lines << QStringLiteral("  duplicate member names: %1").arg(duplicateNames.join(QStringLiteral(", ")));
    return lines;
}

// --- Identifier -----------------------------------------------------------------

struct Identifier::Private
{
    explicit Private(const Camera_Pool &from) : pool(from)
    {
        for (const QString &name : pool.getListOfCameraNames())
            names.insert(pool.getPluginFromCameraName(name), name);
    }

    // The pool's routing walk, watched for the plug-in that answers. As in
    // the pool's own questions, one reason pointer is shared by every
    // plug-in asked.
    template <typename Question>
    PoolAnswer ask(const Question &question) const
    {
        const char *reason = nullptr;
        const VXCameraPluginIF *answering = nullptr;
        PoolAnswer answer;
        answer.type = pool.iterate_camera_pool_for_ftype([&](VXCameraPluginIF *plugin) {
            const ft_t type = question(plugin, &reason);
            if (type != ft_unknown)
                answering = plugin;
            return type;
        });
        if (reason != nullptr)
            answer.method = QString::fromUtf8(reason);
        if (answer.type != ft_unknown)
            answer.camera = names.value(answering);
        return answer;
    }

    // One file's identification as it is worked out.
    struct Run
    {
        Identification &id;
        // The registry row that named the verdict's exact kind, if the content did.
        const FileTypeIdentifier_t *row = nullptr;
    };

    void identify(QFile &file, Run &run) const;
    void decide(Run &run, ft_t type, Evidence evidence, const FileTypeIdentifier_t *row = nullptr) const;
    bool identifyPackage(QFile &file, Run &run) const;
    void identifyCompoundFile(QFile &file, Run &run) const;
    void identifyByExtension(Run &run) const;

    const Camera_Pool &pool;
    const FileType registry;
    QHash<const VXCameraPluginIF *, QString> names;
};

void Identifier::Private::decide(Run &run, ft_t type, Evidence evidence, const FileTypeIdentifier_t *row) const
{
    Identification &id = run.id;
    id.type = type;
    id.evidence = evidence;
    run.row = row;
    const FileTypeIdentifier_t *described = row && !row->description.empty() ? row : registry.findFileType(type);
    id.description = described && !described->description.empty() ? QString::fromStdString(described->description)
                                                                   : plainDescription(type);
}

Identifier::Identifier(const Camera_Pool &pool) : m_d(std::make_unique<Private>(pool)) {}

Identifier::~Identifier() = default;

Identification Identifier::identify(const QString &path) const
{
    Identification id;
    id.path = path;
    const auto failed = [&path](const QString &error) {
        Identification failure;
        failure.path = path;
        failure.error = error;
        return failure;
    };
    const QFileInfo info(path);
    if (info.isDir())
        return failed(QStringLiteral("is a directory"));
    if (!info.exists())
        return failed(QStringLiteral("no such file"));
    if (!info.isFile()) // devices and pipes could block or never end
        return failed(QStringLiteral("not a regular file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failed(QStringLiteral("cannot be read (%1)").arg(file.errorString()));
    try {
        Private::Run run{id};
        m_d->identify(file, run);
    } catch (const std::bad_alloc &) {
        return failed(QStringLiteral("out of memory while identifying it"));
    } catch (const std::exception &e) {
        return failed(QString::fromUtf8(e.what()));
    } catch (const char *message) {
        return failed(QString::fromUtf8(message));
    } catch (...) {
        return failed(QStringLiteral("identification failed"));
    }
    return id;
}

void Identifier::Private::identify(QFile &file, Run &run) const
{
    Identification &id = run.id;
    id.extension = QFileInfo(id.path).suffix().toLower();
    if (file.size() == 0) {
        id.empty = true;
        id.description = QStringLiteral("empty");
        identifyByExtension(run);
        return;
    }
    const QByteArray head = file.read(kHeadSize);
    if (head.isEmpty())
        throw std::runtime_error(QStringLiteral("cannot be read (%1)").arg(file.errorString()).toStdString());
    MemoryBuffer buffer(static_cast<size_t>(head.size()),
                        reinterpret_cast<unsigned char *>(const_cast<char *>(head.constData())));
    buffer.m_name = QFileInfo(id.path).fileName().toStdString();

    const PoolAnswer main = ask([&buffer](VXCameraPluginIF *plugin, const char **reason) {
        return plugin->getFileTypeFromFileInMemory(&buffer, reason);
    });
    buffer.seek(0, MBSeekStart);
    const PoolAnswer archive = ask([&buffer](VXCameraPluginIF *plugin, const char **reason) {
        return plugin->getSubTypeFromFileInMemory(&buffer, reason);
    });
    if (archive.type != ft_unknown) {
        id.archiveType = archive.type;
        id.archiveMethod = archive.method;
    }

    if (main.type != ft_unknown) {
        decide(run, main.type, evidenceOf(main.method));
        id.camera = main.camera;
    } else if (head.startsWith(kZipLead) && identifyPackage(file, run)) {
        // an Office Open XML package
    } else if (archive.type != ft_unknown) {
        decide(run, archive.type, evidenceOf(archive.method));
        id.camera = archive.camera;
    } else if (head.startsWith(QByteArray::fromRawData(kCompoundFileLead, 8))) {
        identifyCompoundFile(file, run);
    }
    identifyByExtension(run);
    if (id.type == ft_unknown && id.evidence == Evidence::None)
        id.description = looksLikeText(head) ? QStringLiteral("text") : QStringLiteral("data");
}

// Reads the archive's end records and central directory through the file,
// and [Content_Types].xml if it is a package.
bool Identifier::Private::identifyPackage(QFile &file, Run &run) const
{
    Identification &id = run.id;
    ZipUtils::Unzip package;
    package.setListLimit(kZipListLimit);
    if (!package.open(&file))
        return false;
    id.duplicateNames = package.getDuplicateNames();
    const ContainerKind kind = registry.describeOpcPackage(package);
    id.opcSubtype = kind.type;
    if (kind.type == ft_unknown)
        return false;
    decide(run, kind.type, Evidence::Structure, kind.row);
    id.macros = kind.macros;
    return true;
}

// Reads the header, the allocation tables and the root directory through
// the file. A compound file of no known kind is still a compound file.
void Identifier::Private::identifyCompoundFile(QFile &file, Run &run) const
{
    Identification &id = run.id;
    ContainerKind kind;
    {
        POLE::Storage storage(&file);
        try {
            if (storage.open(false, false))
                kind = registry.describeCompoundFile(storage);
        } catch (const char *) {
            kind = ContainerKind(); // a damaged directory: no kind
        }
        storage.close();
    }
    id.cfbSubtype = kind.type;
    id.cfbMethod = kind.type != ft_unknown ? methodText(kind.reason) : QString();
    id.encrypted = kind.encrypted;
    id.macros = kind.macros;
    const ft_t type = kind.type != ft_unknown ? kind.type : ft_cfb;
    decide(run, type, kind.reason ? evidenceOf(QString::fromLatin1(kind.reason)) : Evidence::Signature, kind.row);
    if (kind.encrypted)
        id.description = QStringLiteral("encrypted Office Open XML package");
}

// The extension refines a content verdict of its own type, unless the
// content named a kind more exactly than the extension can (a macro-enabled
// package, an older workbook); without a content verdict it names only
// types whose content nothing checks.
void Identifier::Private::identifyByExtension(Run &run) const
{
    Identification &id = run.id;
    const std::string extension = id.extension.toStdString();
    const FileTypeIdentifier_t *row = registry.findExtension(extension);
    id.extensionType = registry.getFileTypeFromFileExtension(extension);
    PoolAnswer named;
    if (!id.extension.isEmpty()) {
        const QByteArray asGiven = QFileInfo(id.path).suffix().toUtf8();
        named = ask([&asGiven](VXCameraPluginIF *plugin, const char **) {
            return plugin->getFileTypeFromFileExtension(asGiven.constData());
        });
        if (named.type != ft_unknown)
            id.extensionType = named.type;
    }
    if (id.empty)
        return;
    if (id.type != ft_unknown) {
        if (row && row->fileType == id.type && !row->description.empty()
            && (run.row == nullptr || row->classId == run.row->classId))
            id.description = QString::fromStdString(row->description);
        return;
    }
    if (id.evidence != Evidence::None || id.extensionType == ft_unknown || decidedByContent(id.extensionType))
        return;
    decide(run, id.extensionType, Evidence::Extension, named.type != ft_unknown ? nullptr : row);
    id.camera = named.camera;
}
