#include "cameras/filetype.h"

#include "buffers/MemoryBuffer.h"
#include "containers/ZipUtils.h"
#include "containers/pole.h"

#include <QRegularExpression>

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
    const FileTypeIdentifier_t *row =
        firstRow(m_fileTypes, [type](const FileTypeIdentifier_t &r) { return r.fileType == type; });
    return row ? row->extension : std::string();
}

eCameraId_t FileType::getCameraIdFromFileTypeEnum(ft_t type) const
{
    const FileTypeIdentifier_t *row =
        firstRow(m_fileTypes, [type](const FileTypeIdentifier_t &r) { return r.fileType == type; });
    return row ? row->cameraId : eCameraId_Default;
}

ft_t FileType::getFileTypeFromCameraId(eCameraId_t camera) const
{
    const FileTypeIdentifier_t *row =
        firstRow(m_fileTypes, [camera](const FileTypeIdentifier_t &r) { return r.cameraId == camera; });
    return row ? row->fileType : ft_unknown;
}

const FileTypeIdentifier_t *FileType::findExtension(const std::string &extension) const
{
    return firstRow(m_fileTypes,
                    [&](const FileTypeIdentifier_t &r) { return r.extension == extension; });
}

// --- Office Open XML sub-type --------------------------------------------------

namespace {

const char kOpcStructureMatch[] = "structure match";

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

    static const std::pair<const char *, ft_t> kPackageFolders[] = {
        {"word", ft_docx}, {"xl", ft_xlsx}, {"ppt", ft_pptx}};
    const QList<QString> fileNames = package.getFilenames();
    ft_t subType = ft_unknown;
    for (const auto &[folder, type] : kPackageFolders) {
        if (hasTopLevelFolder(fileNames, QLatin1String(folder))) {
            subType = type;
            break;
        }
    }
    if (subType != ft_unknown && reason)
        *reason = kOpcStructureMatch;
    package.close();
    return subType;
}

// --- compound-file sub-type: from the class identifier of the root entry ------------

namespace {

// Root streams that only the binary Office formats write. A file whose root
// class identifier is all zeros or unknown is still recognised by them: some
// writers leave the identifier empty or use an older one (spreadsheets saved
// by LibreOffice carry the Excel 5 identifier, which the registry does not
// list), and these names are as specific as the identifier. Only a format's
// main stream counts: the table streams of a Word file and "Current User" of
// a presentation never appear without it, and alone they prove nothing.
const struct
{
    const char *name;
    ft_t type;
} kRootStreamTypes[] = {
    {"WordDocument", ft_doc},
    {"Workbook", ft_xls},
    {"PowerPoint Document", ft_ppt},
};

ft_t typeFromRootStreams(const POLE::Storage &storage)
{
    const QStringList names = storage.entries(QStringLiteral("/"));
    for (const auto &row : kRootStreamTypes)
        if (names.contains(QLatin1String(row.name)) && !storage.isDirectory(QLatin1Char('/') + QLatin1String(row.name)))
            return row.type;
    return ft_unknown;
}

} // namespace

ft_t FileType::determineCfbSubType(MemoryBuffer *buffer, const char **reason, BDDLStructBase_Root *root)
{
    static const char *const kClassIdentifier = "class identifier";
    static const char *const kStructureMatch = "structure match";
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

    QString classId;
    storage.getClassId(QStringLiteral("/"), classId);
    classId.replace(QRegularExpression(QStringLiteral("[{}]")), QString());
    ft_t type = getFileTypeFromClassID(classId.toUpper().toUtf8().toStdString());
    const char *method = kClassIdentifier;
    switch (type) {
    case ft_docx:
        type = ft_cfb_docx;
        break;
    case ft_xlsx:
        type = ft_cfb_xlsx;
        break;
    case ft_pptx:
        type = ft_cfb_pptx;
        break;
    case ft_unknown:
        type = typeFromRootStreams(storage);
        method = kStructureMatch;
        break;
    default:
        break;
    }
    if (type != ft_unknown && reason != nullptr)
        *reason = method;
    storage.close();
    return type;
}
