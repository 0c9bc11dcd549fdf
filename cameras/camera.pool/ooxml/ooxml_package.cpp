#include "ooxml_package.h"

#include <QRegularExpression>
#include <QUrl>

#include <algorithm>
#include <iterator>

namespace Ooxml {

namespace {

[[maybe_unused]] const char *const NoNameString = "noname";

const DocumentKind kDocumentKinds[] = {
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml", ft_docx, nullptr},
    {"dotx", "application/vnd.openxmlformats-officedocument.wordprocessingml.template.main+xml", ft_docx, nullptr},
    {"docm", "application/vnd.ms-word.document.macroEnabled.main+xml", ft_docx, "docx"},
    {"dotm", "application/vnd.ms-word.template.macroEnabledTemplate.main+xml", ft_docx, "dotx"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml", ft_xlsx, nullptr},
    {"xltx", "application/vnd.openxmlformats-officedocument.spreadsheetml.template.main+xml", ft_xlsx, nullptr},
    {"xlsm", "application/vnd.ms-excel.sheet.macroEnabled.main+xml", ft_xlsx, "xlsx"},
    {"xltm", "application/vnd.ms-excel.template.macroEnabled.main+xml", ft_xlsx, "xltx"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation.main+xml", ft_pptx, nullptr},
    {"potx", "application/vnd.openxmlformats-officedocument.presentationml.template.main+xml", ft_pptx, nullptr},
    {"ppsx", "application/vnd.openxmlformats-officedocument.presentationml.slideshow.main+xml", ft_pptx, nullptr},
    {"pptm", "application/vnd.ms-powerpoint.presentation.macroEnabled.main+xml", ft_pptx, "pptx"},
    {"potm", "application/vnd.ms-powerpoint.template.macroEnabled.main+xml", ft_pptx, "potx"},
    {"ppsm", "application/vnd.ms-powerpoint.slideshow.macroEnabled.main+xml", ft_pptx, "ppsx"},
};

// Content types (compared in lower case) and relationship types (short,
// compared in lower case) that tell a part's kind.
struct KindRule
{
    ContentKind kind;
    const char *const *contentTypes;
    const char *const *relationshipTypes;
};

const char *const kMacroTypes[] = {
    "application/vnd.ms-office.vbaproject",
    "application/vnd.ms-word.vbadata+xml",
    "application/vnd.ms-office.vbaprojectsignature",
    "application/vnd.ms-office.vbaprojectsignatureagile",
    "application/vnd.ms-office.vbaprojectsignaturev3",
    "application/vnd.ms-excel.macrosheet+xml",
    "application/vnd.ms-excel.intlmacrosheet+xml",
    "application/vnd.ms-word.keymapcustomizations+xml",
    "application/vnd.ms-word.attachedtoolbars",
    nullptr,
};
const char *const kMacroRelationships[] = {
    "vbaproject", "wordvbadata", "vbaprojectsignature", "vbaprojectsignatureagile", "vbaprojectsignaturev3",
    "xlmacrosheet", "xlintlmacrosheet", "keymapcustomizations", "attachedtoolbars", nullptr,
};
const char *const kEmbeddedTypes[] = {
    "application/vnd.openxmlformats-officedocument.oleobject",
    "application/vnd.ms-office.activex+xml",
    "application/vnd.ms-office.activex",
    nullptr,
};
const char *const kEmbeddedRelationships[] = {"oleobject", "package", "control", "activexcontrolbinary", nullptr};
const char *const kMetadataTypes[] = {
    "application/vnd.openxmlformats-package.core-properties+xml",
    "application/vnd.openxmlformats-officedocument.extended-properties+xml",
    "application/vnd.openxmlformats-officedocument.custom-properties+xml",
    nullptr,
};
const char *const kMetadataRelationships[] = {"core-properties", "extended-properties", "custom-properties", nullptr};
const char *const kCommentTypes[] = {
    "application/vnd.openxmlformats-officedocument.wordprocessingml.comments+xml",
    "application/vnd.openxmlformats-officedocument.wordprocessingml.commentsextended+xml",
    "application/vnd.openxmlformats-officedocument.wordprocessingml.commentsids+xml",
    "application/vnd.openxmlformats-officedocument.wordprocessingml.commentsextensible+xml",
    "application/vnd.openxmlformats-officedocument.wordprocessingml.people+xml",
    "application/vnd.openxmlformats-officedocument.spreadsheetml.comments+xml",
    "application/vnd.ms-excel.threadedcomments+xml",
    "application/vnd.ms-excel.person+xml",
    "application/vnd.openxmlformats-officedocument.presentationml.comments+xml",
    "application/vnd.openxmlformats-officedocument.presentationml.commentauthors+xml",
    "application/vnd.ms-powerpoint.comments+xml",
    "application/vnd.ms-powerpoint.authors+xml",
    nullptr,
};
const char *const kCommentRelationships[] = {
    "comments", "commentsextended", "commentsids", "commentsextensible", "people",
    "threadedcomment", "person", "commentauthors", "authors", nullptr,
};

// In order of precedence: a part that is both (an embedded workbook that
// holds macros) counts as the first.
const KindRule kKindRules[] = {
    {kindMacros, kMacroTypes, kMacroRelationships},
    {kindEmbeddedFiles, kEmbeddedTypes, kEmbeddedRelationships},
    {kindReviewComments, kCommentTypes, kCommentRelationships},
    {kindMetadata, kMetadataTypes, kMetadataRelationships},
};

bool listed(const char *const *list, const QString &lowered)
{
    for (; *list != nullptr; ++list)
        if (lowered == QLatin1String(*list))
            return true;
    return false;
}

const struct
{
    const char *contentType;
    ft_t type;
} kImageTypes[] = {
    {"image/png", ft_png},   {"image/jpeg", ft_jpeg}, {"image/jpg", ft_jpeg},   {"image/gif", ft_gif},
    {"image/x-emf", ft_emf}, {"image/emf", ft_emf},   {"image/x-wmf", ft_wmf},  {"image/wmf", ft_wmf},
    {"image/bmp", ft_bmp},   {"image/x-bmp", ft_bmp}, {"image/tiff", ft_tiff},
};

} // namespace

QString partKey(const QString &name)
{
    return name.toLower();
}

QString partNameFault(const QString &name)
{
    if (name.isEmpty())
        return QStringLiteral("empty part name");
    if (name.size() > kMaxNameLength)
        return QStringLiteral("part name longer than %1 characters").arg(kMaxNameLength);
    if (name.startsWith(QLatin1Char('/')))
        return QStringLiteral("absolute member name");
    if (name.contains(QLatin1Char('\\')))
        return QStringLiteral("backslash in a part name");
    for (const QChar c : name)
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return QStringLiteral("control character in a part name");
    for (const QString &segment : name.split(QLatin1Char('/'))) {
        if (segment.isEmpty())
            return QStringLiteral("empty segment in a part name");
        if (segment == QLatin1String(".") || segment == QLatin1String(".."))
            return QStringLiteral("'%1' in a part name").arg(segment);
        if (segment.endsWith(QLatin1Char('.')))
            return QStringLiteral("part name segment ending in a dot");
    }
    return QString();
}

bool isRelationshipsPart(const QString &name, QString *source)
{
    static const QRegularExpression pattern(QStringLiteral("^(.*/)?_rels/([^/]*)\\.rels$"),
                                            QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = pattern.match(name);
    if (!match.hasMatch())
        return false;
    if (source != nullptr)
        *source = match.captured(1) + match.captured(2);
    return true;
}

QString relationshipsPartName(const QString &source)
{
    const int slash = source.lastIndexOf(QLatin1Char('/'));
    return source.left(slash + 1) + QStringLiteral("_rels/") + source.mid(slash + 1) + QStringLiteral(".rels");
}

QString extensionOf(const QString &name)
{
    const QString last = name.mid(name.lastIndexOf(QLatin1Char('/')) + 1);
    const int dot = last.lastIndexOf(QLatin1Char('.'));
    return dot < 0 ? QString() : last.mid(dot + 1);
}

QString shortType(const QString &type)
{
    return type.mid(type.lastIndexOf(QLatin1Char('/')) + 1);
}

bool isOfficeDocumentType(const QString &type)
{
    return shortType(type).compare(QLatin1String("officeDocument"), Qt::CaseInsensitive) == 0;
}

bool isExternalMode(const QString &targetMode)
{
    return targetMode.compare(kExternalMode, Qt::CaseInsensitive) == 0;
}

ResolvedTarget resolveTarget(const QString &source, const QString &target)
{
    ResolvedTarget resolved;
    static const QRegularExpression scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*:"));
    QString reference = target.left(target.indexOf(QLatin1Char('#')));
    if (reference.isEmpty())
        return resolved;
    if (reference.startsWith(QLatin1String("//")) || scheme.match(reference).hasMatch()) {
        resolved.outcome = ResolvedTarget::Outside;
        return resolved;
    }
    reference = QUrl::fromPercentEncoding(reference.toUtf8());
    if (reference.contains(QLatin1Char('\\')))
        return resolved;

    QStringList segments;
    if (!reference.startsWith(QLatin1Char('/'))) {
        segments = source.split(QLatin1Char('/'));
        segments.removeLast();
    }
    const QStringList steps = reference.split(QLatin1Char('/'));
    for (int i = 0; i < steps.size(); ++i) {
        const QString &step = steps.at(i);
        if (step.isEmpty() && i == 0)
            continue; // the leading slash of an absolute reference
        if (step == QLatin1String("."))
            continue;
        if (step == QLatin1String("..")) {
            if (segments.isEmpty()) {
                resolved.outcome = ResolvedTarget::Outside;
                return resolved;
            }
            segments.removeLast();
            continue;
        }
        segments << step;
    }
    resolved.name = segments.join(QLatin1Char('/'));
    resolved.outcome = resolved.name.isEmpty() ? ResolvedTarget::Invalid : ResolvedTarget::Part;
    return resolved;
}

const DocumentKind *documentKindOf(const QString &mainContentType)
{
    const auto found = std::find_if(std::begin(kDocumentKinds), std::end(kDocumentKinds), [&](const DocumentKind &k) {
        return mainContentType.compare(QLatin1String(k.contentType), Qt::CaseInsensitive) == 0;
    });
    return found == std::end(kDocumentKinds) ? nullptr : found;
}

const DocumentKind *documentKindByExtension(const QString &extension)
{
    const auto found = std::find_if(std::begin(kDocumentKinds), std::end(kDocumentKinds), [&](const DocumentKind &k) {
        return extension.compare(QLatin1String(k.extension), Qt::CaseInsensitive) == 0;
    });
    return found == std::end(kDocumentKinds) ? nullptr : found;
}

ContentKind kindOfPart(const QString &contentType, const QString &name, const QStringList &incomingTypes)
{
    const QString type = contentType.toLower();
    QStringList incoming;
    for (const QString &t : incomingTypes)
        incoming << t.toLower();
    for (const KindRule &rule : kKindRules) {
        if (listed(rule.contentTypes, type))
            return rule.kind;
        for (const QString &t : qAsConst(incoming))
            if (listed(rule.relationshipTypes, t))
                return rule.kind;
    }
    // Objects lie in an "embeddings" folder whatever their own type says.
    const QStringList folders = partKey(name).split(QLatin1Char('/')).mid(0, name.count(QLatin1Char('/')));
    if (folders.contains(QLatin1String("embeddings")))
        return kindEmbeddedFiles;
    if (type.startsWith(QLatin1String("image/")))
        return kindImages;
    return kindNone;
}

QByteArray emptyContentOf(const QString &contentType)
{
    static const QLatin1String kWordComments(
        "application/vnd.openxmlformats-officedocument.wordprocessingml.comments+xml");
    if (contentType.compare(kWordComments, Qt::CaseInsensitive) != 0)
        return QByteArray();
    return QByteArrayLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<w:comments "
                             "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\"/>");
}

ft_t imageFileType(const QString &contentType)
{
    const QString type = contentType.toLower();
    for (const auto &row : kImageTypes)
        if (type == QLatin1String(row.contentType))
            return row.type;
    return ft_unknown;
}

} // namespace Ooxml
