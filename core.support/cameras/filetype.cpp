#include "cameras/filetype.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "containers/pole.h"

#include <QRegularExpression>
#include <QXmlStreamReader>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

struct Row
{
    const char *extension;
    const char *classId;
    const char *progId;
    ft_t fileType;
    const char *description;
    int cameraId;
};

// The registry, in search order: the first matching row answers.
const Row kRows[] = {
    {"bin", "tbd", "binaryfile", ft_binary, "Binary File", 0},
    {"bmp", "tbd", "bmpfile", ft_bmp, "BMP Image", 12},
    {"bmp", "tbd", "Magick.BMPFile", ft_bmp, "BMP Image", 12},
    {"bmp", "tbd", "Paint.Picture", ft_bmp, "BMP Image", 12},
    {"elf", "tbd", "elffile", ft_elf, "ELF Binary", 16},
    {"emf", "tbd", "Magick.EMFFile", ft_emf, "EMF File", 6},
    {"emf", "tbd", "emffile", ft_emf, "EMF File", 6},
    {"xls", "00020820-0000-0000-C000-000000000046", "Excel.Sheet.8", ft_xls, "Microsoft Excel 97-2003 Worksheet", 2},
    {"xlsx", "", "Macro-Enabled Worksheet", ft_xlsx, "Microsoft Excel Worksheet", 5},
    {"xlsx", "00020830-0000-0000-C000-000000000046", "Excel.Sheet.12", ft_xlsx, "Microsoft Excel Worksheet", 5},
    {"xlsm", "00020832-0000-0000-C000-000000000046", "Excel.SheetMacroEnabled.12", ft_xlsx, "Microsoft Excel Macro-Enabled Worksheet", 5},
    {"xltm", "00020832-0000-0000-C000-000000000046", "Excel.TemplateMacroEnabled", ft_xlsx, "Microsoft Excel Macro-Enabled Template", 5},
    {"xltx", "00020830-0000-0000-C000-000000000046", "Excel.Template", ft_xlsx, "Microsoft Excel Template", 5},
    {"gif", "25336920-03F9-11cf-8FD0-00AA00686F13", "giffile", ft_gif, "GIF Image", 10},
    {"gif", "25336920-03F9-11cf-8FD0-00AA00686F13", "Magick.GIFFile", ft_gif, "GIF Image", 10},
    {"jpg", "25336920-03F9-11cf-8FD0-00AA00686F13", "jpegfile", ft_jpeg, "JPEG Image", 9},
    {"jfi", "25336920-03F9-11cf-8FD0-00AA00686F13", "jpegfile", ft_jpeg, "JPEG Image", 9},
    {"jfif", "25336920-03F9-11cf-8FD0-00AA00686F13", "jpegfile", ft_jpeg, "JPEG Image", 9},
    {"jif", "25336920-03F9-11cf-8FD0-00AA00686F13", "jpegfile", ft_jpeg, "JPEG Image", 9},
    {"jpe", "25336920-03F9-11cf-8FD0-00AA00686F13", "jpegfile", ft_jpeg, "JPEG Image", 9},
    {"jpeg", "25336920-03F9-11cf-8FD0-00AA00686F13", "jpegfile", ft_jpeg, "JPEG Image", 9},
    {"o", "tbd", "Mach-O .o file", ft_macho, "Mach-O File", 15},
    {"dylib", "tbd", "Mach-O .dylib file", ft_macho, "Mach-O File", 15},
    {"mp3", "tbd", "WMP11.AssocFile.MP3", ft_mp3, "MPEG1 - Layer 3", 18},
    {"m1a", "tbd", "WMP11.AssocFile.MP3", ft_mp3, "MPEG1 - Layer 1", 18},
    {"m2a", "tbd", "WMP11.AssocFile.MP3", ft_mp3, "MPEG1 - Layer 2", 18},
    {"mp1", "tbd", "WMP11.AssocFile.MP3", ft_mp3, "MPEG1 - Layer 1", 18},
    {"mp2", "tbd", "WMP11.AssocFile.MP3", ft_mp3, "MPEG1 - Layer 2", 18},
    {"mp4", "tbd", "WMP11.AssocFile.MP4", ft_mp4, "MP4 Video", 17},
    {"m4a", "tbd", "WMP11.AssocFile.M4A", ft_mp4, "MPEG-4 Audio", 17},
    {"m4v", "tbd", "WMP11.AssocFile.MP4", ft_mp4, "MP4 Video", 17},
    {"mpeg", "tbd", "WMP11.AssocFile.MPEG", ft_mpeg, "Movie Clip", 20},
    {"mpg", "tbd", "WMP11.AssocFile.MPEG", ft_mpeg, "Movie Clip", 20},
    {"pdf", "B801CA65-A1FC-11D0-85AD-444553540000", "Acrobat Document", ft_pdf, "Adobe Acrobat Document", 11},
    {"pdf", "B801CA65-A1FC-11D0-85AD-444553540000", "AcroExch.Document", ft_pdf, "Adobe Acrobat Document", 11},
    {"pdf", "B801CA65-A1FC-11D0-85AD-444553540000", "pdf_auto_file", ft_pdf, "Adobe Acrobat Document", 11},
    {"png", "25336920-03F9-11cf-8FD0-00AA00686F13", "pngfile", ft_png, "PNG Image", 8},
    {"png", "25336920-03F9-11cf-8FD0-00AA00686F13", "Magick.PNGFile", ft_png, "PNG Image", 8},
    {"ppt", "64818D10-4F9B-11CF-86EA-00AA00B929E8", "PowerPoint.Show.8", ft_ppt, "Microsoft PowerPoint 97-2003 Presentation", 3},
    {"pps", "64818D10-4F9B-11CF-86EA-00AA00B929E8", "PowerPoint.SlideShow.8", ft_ppt, "Microsoft PowerPoint 97-2003 Slide Show", 3},
    {"pptx", "CF4F55F4-8F87-4D47-80BB-5808164BB3F8", "PowerPoint.Show.12", ft_pptx, "Microsoft PowerPoint Presentation", 5},
    {"pptx", "048EB43E-2059-422F-95E0-557DA96038AF", "PowerPoint.Slide.12", ft_pptx, "Microsoft PowerPoint Presentation", 5},
    {"potm", "AA14F9C9-62B5-4637-8AC4-8F25BF29D5A7", "PowerPoint.TemplateMacroEnabled.12", ft_pptx, "Microsoft PowerPoint Macro-Enabled Design Template", 5},
    {"potx", "75D01070-1234-44E9-82F6-DB5B39A47C13", "PowerPoint.Template.12", ft_pptx, "Microsoft PowerPoint Template", 5},
    {"ppsm", "DC020317-E6E2-4A62-B9FA-B3EFE16626F4", "PowerPoint.SlideShowMacroEnabled.12", ft_pptx, "Microsoft PowerPoint Macro-Enabled Slide Show", 5},
    {"ppsx", "CF4F55F4-8F87-4D47-80BB-5808164BB3F8", "PowerPoint.SlideShow.12", ft_pptx, "Microsoft PowerPoint Slide Show", 5},
    {"pptm", "DC020317-E6E2-4A62-B9FA-B3EFE16626F4", "PowerPoint.ShowMacroEnabled.12", ft_pptx, "Microsoft PowerPoint Macro-Enabled Presentation", 5},
    {"tif", "tbd", "Magick.TIFFFile", ft_tiff, "TIFF Image", 13},
    {"tif", "tbd", "TIFImage.Document", ft_tiff, "TIFF Image", 13},
    {"tif", "tbd", "tiffile", ft_tiff, "TIFF Image", 13},
    {"tiff", "tbd", "tifffile", ft_tiff, "TIFF Image", 13},
    {"tiff", "tbd", "TIFImage.Document", ft_tiff, "TIFF Image", 13},
    {"wav", "tbd", "WMP11.AssocFile.WAV", ft_wav, "Wave Sound", 19},
    {"pe", "tbd", "exefile", ft_pe, "PE Binary", 14},
    {"dll", "tbd", "dllfile", ft_pe, "PE Binary", 14},
    {"exe", "tbd", "exefile", ft_pe, "PE Binary", 14},
    {"coff", "tbd", "cofffile", ft_coff, "COFF Binary", 14},
    {"wmf", "tbd", "wmffile", ft_wmf, "WMF File", 7},
    {"wmf", "tbd", "Magick.WMFFile", ft_wmf, "WMF File", 7},
    {"doc", "00020906-0000-0000-C000-000000000046", "Word.Document.8", ft_doc, "Microsoft Word 97 - 2003 Document", 1},
    {"dot", "00020906-0000-0000-C000-000000000046", "Word.Template.8", ft_doc, "Microsoft Word 97 - 2003 Template", 1},
    {"docx", "F4754C9B-64F5-4B40-8AF4-679732AC0607", "Word.Document.12", ft_docx, "Microsoft Word Document", 5},
    {"docm", "18A06B6B-2F3F-4E2B-A611-52BE631B2D22", "Word.DocumentMacroEnabled.12", ft_docx, "Microsoft Word Macro-Enabled Document", 5},
    {"dotm", "8A624388-AA27-43E0-89F8-2A12BFF7BCCD", "Word.TemplateMacroEnabled.12", ft_docx, "Microsoft Word Macro-Enabled Template", 5},
    {"dotx", "912ABC52-36E2-4714-8E62-A8B73CA5E390", "Word.Template.12", ft_docx, "Microsoft Word Template", 5},
    {"rtf", "00020906-0000-0000-C000-000000000046", "Word.RTF.8", ft_rtf, "Rich Text Format", 4},
    {"aiff", "tbd", "WMP11.AssocFile.AIFF", ft_unknown, "AIFF Format Sound", 0},
    {"asf", "tbd", "WMP11.AssocFile.ASF", ft_unknown, "Windows Media Audio/Video file", 0},
    {"au", "tbd", "WMP11.AssocFile.AU", ft_unknown, "AU Format Sound", 0},
    {"avi", "tbd", "WMP11.AssocFile.AVI", ft_unknown, "Video Clip", 0},
    {"dib", "D3E34B21-9D75-101A-8C3D-00AA001A1652", "Paint.Picture", ft_unknown, "Bitmap Image", 0},
    {"mid", "tbd", "WMP11.AssocFile.MIDI", ft_unknown, "MIDI Sequence", 0},
    {"midi", "tbd", "WMP11.AssocFile.MIDI", ft_unknown, "MIDI Sequence", 0},
    {"mov", "tbd", "WMP11.AssocFile.MOV", ft_unknown, "QuickTime Movie", 0},
    {"rels", "48123BC4-99D9-11D1-A6B3-00C04FD91555", "xmlfile", ft_xml, "XML Document", 5},
    {"vdx", "00021A14-0000-0000-C000-000000000046", "Visio.Drawing.11", ft_unknown, "Microsoft Visio 2003-2010 Drawing", 0},
    {"vsd", "00021A14-0000-0000-C000-000000000046", "Visio.Drawing.11", ft_unknown, "Microsoft Visio 2003-2010 Drawing", 0},
    {"vsdm", "00021A1A-0000-0000-C000-000000000046", "Visio.DrawingMacroEnabled.15", ft_unknown, "Microsoft Visio Macro-Enabled Drawing", 0},
    {"vsdx", "00021A15-0000-0000-C000-000000000046", "Visio.Drawing.15", ft_unknown, "Microsoft Visio Drawing", 0},
    {"vss", "00021A14-0000-0000-C000-000000000046", "Visio.Stencil.11", ft_unknown, "Microsoft Visio 2003-2010 Stencil", 0},
    {"vssm", "00021A1A-0000-0000-C000-000000000046", "Visio.StencilMacroEnabled.15", ft_unknown, "Microsoft Visio Macro-Enabled Stencil", 0},
    {"vssx", "00021A15-0000-0000-C000-000000000046", "Visio.Stencil.15", ft_unknown, "Microsoft Visio Stencil", 0},
    {"vst", "00021A14-0000-0000-C000-000000000046", "Visio.Template.11", ft_unknown, "Microsoft Visio 2003-2010 Template", 0},
    {"vstm", "00021A1A-0000-0000-C000-000000000046", "Visio.TemplateMacroEnabled.15", ft_unknown, "Microsoft Visio Macro-Enabled Template", 0},
    {"vstx", "00021A15-0000-0000-C000-000000000046", "Visio.Template.15", ft_unknown, "Microsoft Visio Template", 0},
    {"vsx", "00021A14-0000-0000-C000-000000000046", "Visio.Stencil.11", ft_unknown, "Microsoft Visio 2003-2010 Stencil", 0},
    {"vtx", "00021A14-0000-0000-C000-000000000046", "Visio.Template.11", ft_unknown, "Microsoft Visio 2003-2010 Template", 0},
    {"wdp", "25336920-03F9-11cf-8FD0-00AA00686F13", "wdpfile", ft_unknown, "Windows Media Photo", 0},
    {"wma", "tbd", "WMP11.AssocFile.WMA", ft_unknown, "Windows Media Audio file", 0},
    {"wmv", "tbd", "WMP11.AssocFile.WMV", ft_unknown, "Windows Media Audio/Video file", 0},
    {"xml", "48123BC4-99D9-11D1-A6B3-00C04FD91555", "xmlfile", ft_xml, "XML Document", 5},
    {"vml", "", "vmlfile", ft_xml, "VML Image", 5},
    {"doc", "", "Document", ft_doc, "", 1},
    {"docx", "", "Document", ft_docx, "", 5},
    {"ppt", "", "Presentation", ft_ppt, "", 3},
    {"pptx", "", "Presentation", ft_pptx, "", 5},
    {"xls", "", "Worksheet", ft_xls, "", 2},
    {"xlsx", "", "Worksheet", ft_xlsx, "", 5},
    // Kinds told apart by their content or extension beyond the rows above.
    // Every key that the rows above answer still finds its row first.
    {"xls", "00020810-0000-0000-C000-000000000046", "Excel.Sheet.5", ft_xls, "Microsoft Excel 5.0/95 Workbook", 2},
    {"xlt", "00020820-0000-0000-C000-000000000046", "Excel.Template.8", ft_xls, "Microsoft Excel 97-2003 Template", 2},
    {"pot", "64818D10-4F9B-11CF-86EA-00AA00B929E8", "PowerPoint.Template.8", ft_ppt, "Microsoft PowerPoint 97-2003 Template", 3},
    {"msi", "000C1084-0000-0000-C000-000000000046", "Msi.Package", ft_unknown, "Windows Installer Package", 0},
    {"msp", "000C1086-0000-0000-C000-000000000046", "Msi.Patch", ft_unknown, "Windows Installer Patch", 0},
    {"mst", "000C1082-0000-0000-C000-000000000046", "Msi.Transform", ft_unknown, "Windows Installer Transform", 0},
};

#define VX_FILE_TYPE_NAME(name, value) {name, #name},
const struct
{
    ft_t type;
    const char *name;
} kTypeNames[] = {VX_FILE_TYPES(VX_FILE_TYPE_NAME)};
#undef VX_FILE_TYPE_NAME

template <typename Predicate>
const FileTypeIdentifier_t *firstRow(const std::vector<FileTypeIdentifier_t> &rows, Predicate matches)
{
    const auto it = std::find_if(rows.begin(), rows.end(), matches);
    return it == rows.end() ? nullptr : &*it;
}

} // namespace

const char *fileTypeName(ft_t type)
{
    for (const auto &entry : kTypeNames)
        if (entry.type == type)
            return entry.name;
    return "";
}

FileType::FileType()
{
    m_fileTypes.reserve(std::size(kRows));
    for (const Row &row : kRows)
        m_fileTypes.push_back(FileTypeIdentifier_t{row.extension, row.classId, row.progId, row.fileType,
                                                   row.description,
                                                   static_cast<eCameraId_t>(row.cameraId)});
}

ft_t FileType::getFileTypeHelper(std::string key, ft_select_t column) const
{
    std::string FileTypeIdentifier_t::*field = nullptr;
    switch (column) {
    case ft_select_extension:
        field = &FileTypeIdentifier_t::extension;
        break;
    case ft_select_classid:
        field = &FileTypeIdentifier_t::classId;
        break;
    case ft_select_progid:
        field = &FileTypeIdentifier_t::progId;
        break;
    default:
        return ft_unknown;
    }
    const FileTypeIdentifier_t *row =
        firstRow(m_fileTypes, [&](const FileTypeIdentifier_t &r) { return r.*field == key; });
    return row ? row->fileType : ft_unknown;
}

ft_t FileType::getFileTypeFromFileExtension(std::string extension) const
{
    return getFileTypeHelper(std::move(extension), ft_select_extension);
}

ft_t FileType::getFileTypeFromClassID(std::string classId) const
{
    return getFileTypeHelper(std::move(classId), ft_select_classid);
}

ft_t FileType::getFileTypeFromProgID(std::string progId) const
{
    return getFileTypeHelper(std::move(progId), ft_select_progid);
}

std::string FileType::getExtensionFromFileTypeEnum(ft_t type) const
{
    const FileTypeIdentifier_t *row = findFileType(type);
    return row ? row->extension : std::string();
}

eCameraId_t FileType::getCameraIdFromFileTypeEnum(ft_t type) const
{
    const FileTypeIdentifier_t *row = findFileType(type);
    return row ? row->cameraId : eCameraId_Default;
}

const FileTypeIdentifier_t *FileType::findFileType(ft_t type) const
{
    return firstRow(m_fileTypes, [type](const FileTypeIdentifier_t &r) { return r.fileType == type; });
}

ft_t FileType::getFileTypeFromCameraId(eCameraId_t camera) const
{
    const FileTypeIdentifier_t *row =
        firstRow(m_fileTypes, [camera](const FileTypeIdentifier_t &r) { return r.cameraId == camera; });
    return row ? row->fileType : ft_unknown;
}

const FileTypeIdentifier_t *FileType::findExtension(const std::string &extension) const
{
    return firstRow(m_fileTypes, [&](const FileTypeIdentifier_t &r) { return r.extension == extension; });
}

const FileTypeIdentifier_t *FileType::findProgId(const std::string &progId) const
{
    return firstRow(m_fileTypes, [&](const FileTypeIdentifier_t &r) { return r.progId == progId; });
}

const FileTypeIdentifier_t *FileType::findClassId(const std::string &classId) const
{
    return firstRow(m_fileTypes, [&](const FileTypeIdentifier_t &r) { return r.classId == classId; });
}

// --- Office Open XML sub-type --------------------------------------------------

namespace {

const char kOpcStructureMatch[] = "structure match";
const char kContentTypesPart[] = "[Content_Types].xml";
// [Content_Types].xml lists a few dozen types; anything this large is not one.
const qint64 kContentTypesLimit = 1 << 20;

// Whether some file member lies in the top-level folder (or is named so):
// the same as the folder being a key of the archive's entries map, without
// building the map.
bool hasTopLevelFolder(const QList<QString> &fileNames, const QString &folder)
{
    return std::any_of(fileNames.cbegin(), fileNames.cend(), [&folder](const QString &name) {
        return name.startsWith(folder)
               && (name.size() == folder.size() || name.at(folder.size()) == QLatin1Char('/'));
    });
}

ft_t packageFamily(const QList<QString> &fileNames)
{
    static const std::pair<const char *, ft_t> kPackageFolders[] = {{"word", ft_docx}, {"xl", ft_xlsx}, {"ppt", ft_pptx}};
    for (const auto &[folder, type] : kPackageFolders)
        if (hasTopLevelFolder(fileNames, QLatin1String(folder)))
            return type;
    return ft_unknown;
}

// The main part's content type of each package kind, and the registry's
// extension for that kind. Content types compare without letter case.
const struct
{
    const char *contentType;
    const char *extension;
    bool macroEnabled;
} kMainContentTypes[] = {
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml", "docx", false},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.template.main+xml", "dotx", false},
    {"application/vnd.ms-word.document.macroenabled.main+xml", "docm", true},
    {"application/vnd.ms-word.template.macroenabledtemplate.main+xml", "dotm", true},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml", "xlsx", false},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.template.main+xml", "xltx", false},
    {"application/vnd.ms-excel.sheet.macroenabled.main+xml", "xlsm", true},
    {"application/vnd.ms-excel.template.macroenabled.main+xml", "xltm", true},
    {"application/vnd.openxmlformats-officedocument.presentationml.presentation.main+xml", "pptx", false},
    {"application/vnd.openxmlformats-officedocument.presentationml.slideshow.main+xml", "ppsx", false},
    {"application/vnd.openxmlformats-officedocument.presentationml.template.main+xml", "potx", false},
    {"application/vnd.ms-powerpoint.presentation.macroenabled.main+xml", "pptm", true},
    {"application/vnd.ms-powerpoint.slideshow.macroenabled.main+xml", "ppsm", true},
    {"application/vnd.ms-powerpoint.template.macroenabled.main+xml", "potm", true},
};
const char kVbaProjectType[] = "application/vnd.ms-office.vbaproject";
const char kVbaProjectPart[] = "vbaproject.bin";

// Every ContentType of the part's Default and Override elements, lower
// case. A document type declaration ends the reading: the part has no use
// for one, and its entities could expand without bound.
QStringList contentTypes(const QByteArray &part)
{
    QStringList types;
    QXmlStreamReader xml(part);
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::DTD)
            break;
        if (token != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("Override") || xml.name() == QLatin1String("Default"))
            types << xml.attributes().value(QLatin1String("ContentType")).toString().toLower();
    }
    return types;
}

} // namespace

ft_t FileType::determineOpcSubType(MemoryBuffer *buffer, const char **reason)
{
    if (!buffer)
        return ft_unknown;
    ScopeGuard rewind([buffer] { buffer->seek(0, MBSeekStart); });

    // Read in place: the archive lives only as long as this call.
    ZipUtils::Unzip package;
    if (!package.openInPlace(buffer))
        return ft_unknown;
    const ft_t subType = packageFamily(package.getFilenames());
    if (subType != ft_unknown && reason)
        *reason = kOpcStructureMatch;
    package.close();
    return subType;
}

ContainerKind FileType::describeOpcPackage(ZipUtils::Unzip &package) const
{
    ContainerKind kind;
    const QList<QString> names = package.getFilenames();
    kind.type = packageFamily(names);
    if (kind.type == ft_unknown)
        return kind;
    kind.reason = kOpcStructureMatch;
    kind.macros = std::any_of(names.cbegin(), names.cend(), [](const QString &name) {
        return name.section(QLatin1Char('/'), -1).compare(QLatin1String(kVbaProjectPart), Qt::CaseInsensitive) == 0;
    });

    const qint64 limit = package.memberLimit();
    package.setMemberLimit(std::min(limit, kContentTypesLimit));
    QByteArray part;
    const bool read = package.getEntryData(QLatin1String(kContentTypesPart), part);
    package.setMemberLimit(limit);
    if (!read)
        return kind;
    for (const QString &type : contentTypes(part)) {
        if (type == QLatin1String(kVbaProjectType))
            kind.macros = true;
        for (const auto &main : kMainContentTypes) {
            if (type != QLatin1String(main.contentType))
                continue;
            // A macro-enabled main part says so whatever the folders say.
            kind.macros = kind.macros || main.macroEnabled;
            const FileTypeIdentifier_t *row = findExtension(main.extension);
            if (row && row->fileType == kind.type && !kind.row)
                kind.row = row;
        }
    }
    return kind;
}

// --- compound-file sub-type: from the class identifier of the root entry ------------

namespace {

const char kClassIdentifier[] = "class identifier";
const char kStreamNames[] = "stream names";

// Root streams that only the binary Office formats write. A file whose root
// class identifier is all zeros or unknown is still recognised by them: some
// writers leave the identifier empty, and these names are as specific as the
// identifier. Only a format's main stream counts: the table streams of a
// Word file and "Current User" of a presentation never appear without it,
// and alone they prove nothing. A Book stream is what Excel 5.0 and 95
// wrote before Workbook.
const struct
{
    const char *name;
    ft_t type;
    const char *progId;
} kRootStreamTypes[] = {
    {"WordDocument", ft_doc, "Word.Document.8"},
    {"Workbook", ft_xls, "Excel.Sheet.8"},
    {"Book", ft_xls, "Excel.Sheet.5"},
    {"PowerPoint Document", ft_ppt, "PowerPoint.Show.8"},
};

// The compound-file variants of the Open XML document types.
ft_t compoundVariant(ft_t type)
{
    switch (type) {
    case ft_docx:
        return ft_cfb_docx;
    case ft_xlsx:
        return ft_cfb_xlsx;
    case ft_pptx:
        return ft_cfb_pptx;
    default:
        return type;
    }
}

class RootEntries
{
public:
    explicit RootEntries(const POLE::Storage &storage)
        : m_storage(storage), m_names(storage.entries(QStringLiteral("/")))
    {
    }

    bool hasStream(const char *name) const { return has(name) && !isStorage(name); }
    bool hasStorage(const char *name) const { return has(name) && isStorage(name); }

private:
    bool has(const char *name) const { return m_names.contains(QLatin1String(name)); }
    bool isStorage(const char *name) const { return m_storage.isDirectory(QLatin1Char('/') + QLatin1String(name)); }

    const POLE::Storage &m_storage;
    const QStringList m_names;
};

} // namespace

ContainerKind FileType::describeCompoundFile(const POLE::Storage &storage) const
{
    ContainerKind kind;
    const RootEntries root(storage);
    kind.macros = root.hasStorage("Macros") || root.hasStorage("_VBA_PROJECT_CUR");
    // An encrypted package is a compound file around the real one; what
    // kind of document that holds cannot be told without the password.
    if (root.hasStream("EncryptionInfo") && root.hasStream("EncryptedPackage")) {
        kind.encrypted = true;
        kind.reason = kStreamNames;
        return kind;
    }

    QString classId;
    storage.getClassId(QStringLiteral("/"), classId);
    classId.replace(QRegularExpression(QStringLiteral("[{}]")), QString());
    if (const FileTypeIdentifier_t *row = findClassId(classId.toUpper().toUtf8().toStdString())) {
        kind.type = compoundVariant(row->fileType);
        kind.row = row;
        kind.reason = kClassIdentifier;
    } else {
        for (const auto &stream : kRootStreamTypes) {
            if (root.hasStream(stream.name)) {
                kind.type = stream.type;
                kind.row = findProgId(stream.progId);
                kind.reason = kStreamNames;
                break;
            }
        }
    }
    // Excel 5.0/95 and 97-2003 workbooks share class identifiers among
    // writers; the main stream tells the version.
    if (kind.type == ft_xls) {
        const char *version = root.hasStream("Workbook") ? "Excel.Sheet.8" : root.hasStream("Book") ? "Excel.Sheet.5" : nullptr;
        if (version != nullptr)
            kind.row = findProgId(version);
    }
    return kind;
}

ft_t FileType::determineCfbSubType(MemoryBuffer *buffer, const char **reason, BDDLStructBase_Root *root)
{
    if (root == nullptr || buffer == nullptr)
        return ft_unknown;

    buffer->seek(0, MBSeekStart);
    // Puts the cursor back however we leave, the directory-name exceptions included.
    ScopeGuard rewind([buffer] { buffer->seek(0, MBSeekStart); });
    POLE::Storage storage(buffer);
    if (!storage.open(false, false)) {
        storage.close();
        return ft_unknown;
    }
    const ContainerKind kind = describeCompoundFile(storage);
    if (kind.type != ft_unknown && reason != nullptr)
        *reason = kind.reason;
    storage.close();
    return kind.type;
}
