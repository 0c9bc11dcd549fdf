#pragma once

#include "cameras/filetype.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>

// The vocabulary of Office Open XML packages this camera relies on: the
// limits it reads within, part names and where relationship parts live,
// relationship targets, the document kinds and the kinds of risky content.
namespace Ooxml {

// --- limits ------------------------------------------------------------------------
// A package beyond any of these is refused rather than read: memory stays
// bounded by them whatever the input claims. Real documents stay far below;
// a workbook with a thousand sheets has a few thousand parts.
inline constexpr qint64 kMaxPackageSize = 512LL << 20;
inline constexpr int kMaxMembers = 10000;
inline constexpr qint64 kMaxPartSize = 256LL << 20;
inline constexpr qint64 kMaxTotalSize = 1LL << 30;
// The content-type list and each relationship part are parsed whole.
inline constexpr qint64 kMaxXmlPartSize = 16LL << 20;
inline constexpr int kMaxRelationships = 100000;
inline constexpr int kMaxNameLength = 1024;

// The limits as one value, so that a reader can be given smaller ones.
struct ReadLimits
{
    qint64 packageSize = kMaxPackageSize;
    int members = kMaxMembers;
    qint64 partSize = kMaxPartSize;
    qint64 totalSize = kMaxTotalSize;
    qint64 xmlPartSize = kMaxXmlPartSize;
    int relationships = kMaxRelationships;
};

inline const QString kContentTypesName = QStringLiteral("[Content_Types].xml");
inline const QString kRelationshipsContentType =
    QStringLiteral("application/vnd.openxmlformats-package.relationships+xml");
inline const QString kContentTypesNamespace =
    QStringLiteral("http://schemas.openxmlformats.org/package/2006/content-types");
inline const QString kRelationshipsNamespace =
    QStringLiteral("http://schemas.openxmlformats.org/package/2006/relationships");
inline const QString kExternalMode = QStringLiteral("External");
inline const QString kInternalMode = QStringLiteral("Internal");

// --- names -------------------------------------------------------------------------
// Part names compare without regard to letter case.
QString partKey(const QString &name);
// Why a member name cannot be a part name (empty, absolute, a backslash, an
// empty, "." or ".." segment, a segment ending in a dot, a control
// character, too long); an empty text when it can.
QString partNameFault(const QString &name);
// Whether the member is a relationship part ("dir/_rels/name.rels"); if so,
// `source` receives the name of the part whose relationships it holds (empty
// for the package's own, "_rels/.rels").
bool isRelationshipsPart(const QString &name, QString *source);
QString relationshipsPartName(const QString &source);
// The extension of a part name (after the last dot of its last segment).
QString extensionOf(const QString &name);

// --- relationships -------------------------------------------------------------------
// The last segment of a relationship type ("officeDocument", "vbaProject"):
// the same for the transitional and the strict vocabulary.
QString shortType(const QString &type);
bool isOfficeDocumentType(const QString &type);
bool isExternalMode(const QString &targetMode);

// Where an internal target leads from its source part.
struct ResolvedTarget
{
    enum Outcome { Part, Outside, Invalid } outcome = Invalid;
    QString name; // the part name, for Part
};
// The target is read as a relative reference (percent-encoded, "." and ".."
// allowed, a fragment ignored) from the source's folder; one that climbs
// above the package, or carries a scheme or an authority, leads Outside.
ResolvedTarget resolveTarget(const QString &source, const QString &target);

// --- document kinds --------------------------------------------------------------------
struct DocumentKind
{
    const char *extension;    // "docm"
    const char *contentType;  // of the main part
    ft_t family;              // ft_docx, ft_xlsx or ft_pptx
    const char *macroFree;    // the extension of the macro-free kind; null for a macro-free kind
};
// The kind whose main part has the content type; null for none.
const DocumentKind *documentKindOf(const QString &mainContentType);
const DocumentKind *documentKindByExtension(const QString &extension);

// --- risky content ---------------------------------------------------------------------
// The content switches this camera applies, in the order it applies them.
enum ContentKind {
    kindNone = 0,
    kindMacros,
    kindEmbeddedFiles,
    kindExternalLinks,
    kindMetadata,
    kindReviewComments,
    kindImages,
};
// What a part is, from its content type, its name and the short types of
// the relationships that lead to it. External links are relationships,
// never parts.
ContentKind kindOfPart(const QString &contentType, const QString &name, const QStringList &incomingTypes);
// What a part of this content type becomes when the policy removes its
// content but the part must stay: Word's main document anchors each comment
// in its text, and a package whose comments part is missing does not open,
// so comments are emptied rather than removed. Empty for every other type.
QByteArray emptyContentOf(const QString &contentType);
// The image type the image gateway is asked for; ft_unknown for formats
// without a camera type.
ft_t imageFileType(const QString &contentType);

} // namespace Ooxml
