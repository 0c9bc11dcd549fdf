#pragma once

#include "cameras/filetype.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <memory>

class Camera_Pool;

// What one file is: a verdict from its content first (the plug-ins' main
// type, then the archive kind, the Office Open XML kind and the
// compound-file kind), and only then from its extension, which can still
// refine a content verdict (a .dot Word file is a template) but never
// contradict one. The answers each question gave are kept beside it.
struct Identification
{
    // What the verdict rests on.
    enum class Evidence { None, Signature, Structure, ClassId, StreamNames, Extension };

    QString path;
    // Why the file could not be read; nothing else is then set.
    QString error;
    // A file of no bytes: reported as such, with no type.
    bool empty = false;

    // The verdict.
    ft_t type = ft_unknown;
    QString description;
    Evidence evidence = Evidence::None;
    bool encrypted = false;
    bool macros = false;

    // The details. `camera` is the plug-in file whose content answer was
    // taken, empty when the registry's container checks or the extension
    // gave the verdict.
    QString camera;
    ft_t archiveType = ft_unknown;
    QString archiveMethod;
    ft_t opcSubtype = ft_unknown;
    ft_t cfbSubtype = ft_unknown;
    QString cfbMethod;
    QString extension; // lower case, without the dot
    ft_t extensionType = ft_unknown;
    // Names held by more than one member of a zip archive; each reads as
    // its first member.
    QStringList duplicateNames;

    bool ok() const { return error.isEmpty(); }
    QString typeName() const;
    static const char *evidenceName(Evidence evidence);

    // One object: path, type, type_name, description and evidence always;
    // the details and flags only where they apply.
    QJsonObject toJson() const;
    // "PATH: description [type name], by evidence", like file(1).
    QString summary() const;
    // The details, one per line, for --verbose.
    QStringList details() const;
};

// Identifies files through the camera plug-ins of a pool and the file-type
// registry. Reads the head of a file for signatures, and for containers
// only what their kind needs (a zip archive's end and central directory,
// one small part; a compound file's header, tables and root directory), so
// memory stays bounded whatever the file's size.
class Identifier
{
public:
    // The pool must outlive the identifier.
    explicit Identifier(const Camera_Pool &pool);
    ~Identifier();
    Identifier(const Identifier &) = delete;
    Identifier &operator=(const Identifier &) = delete;

    // Never throws: a file that cannot be read, or whose identification
    // fails on its own (out of memory included), gives an Identification
    // with its error set.
    Identification identify(const QString &path) const;

    // How much of a file's start the plug-ins see.
    static constexpr qint64 kHeadSize = 64 * 1024;

private:
    struct Private;
    std::unique_ptr<Private> m_d;
};
