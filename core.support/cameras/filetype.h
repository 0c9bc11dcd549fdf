#pragma once

#include <cstdint>
#include <string>
#include <vector>

class BDDLStructBase_Root;
class MemoryBuffer;
namespace POLE {
class Storage;
}
namespace ZipUtils {
class Unzip;
}

// Every file type the system names. The numbers are stored in structure
// roots and cross the plug-in interface, so they never change.
#define VX_FILE_TYPES(X)                                                                           \
    X(ft_unknown, 0)                                                                               \
    X(ft_pdf, 16)                                                                                  \
    X(ft_doc, 17)                                                                                  \
    X(ft_docx, 18)                                                                                 \
    X(ft_ppt, 19)                                                                                  \
    X(ft_pptx, 20)                                                                                 \
    X(ft_xls, 21)                                                                                  \
    X(ft_xlsx, 22)                                                                                 \
    X(ft_png, 23)                                                                                  \
    X(ft_jpeg, 24)                                                                                 \
    X(ft_gif, 25)                                                                                  \
    X(ft_emf, 26)                                                                                  \
    X(ft_wmf, 27)                                                                                  \
    X(ft_rtf, 28)                                                                                  \
    X(ft_bmp, 29)                                                                                  \
    X(ft_tiff, 30)                                                                                 \
    X(ft_pe, 31)                                                                                   \
    X(ft_macho, 32)                                                                                \
    X(ft_elf, 33)                                                                                  \
    X(ft_mp4, 34)                                                                                  \
    X(ft_mp3, 35)                                                                                  \
    X(ft_mpeg_other, 36)                                                                           \
    X(ft_wav, 37)                                                                                  \
    X(ft_mpeg, 38)                                                                                 \
    X(ft_coff, 39)                                                                                 \
    X(ft_zip, 256)                                                                                 \
    X(ft_gzip, 257)                                                                                \
    X(ft_bzip2, 258)                                                                               \
    X(ft_7zip, 259)                                                                                \
    X(ft_rar, 260)                                                                                 \
    X(ft_tar, 261)                                                                                 \
    X(ft_xml, 512)                                                                                 \
    X(ft_binary, 514)                                                                              \
    X(ft_cfb_docx, 768)                                                                            \
    X(ft_cfb_xlsx, 769)                                                                            \
    X(ft_cfb_pptx, 770)                                                                            \
    X(ft_ppt_pictures, 774)                                                                        \
    X(ft_equation_native, 776)                                                                     \
    X(ft_compobj, 777)                                                                             \
    X(ft_doc_summary_info, 778)                                                                    \
    X(ft_opc, 779)                                                                                 \
    X(ft_cfb, 780)                                                                                 \
    X(ft_pdf_structure, 782)                                                                       \
    X(ft_fileidentifier, 783)

#define VX_DECLARE_FILE_TYPE(name, value) name = value,
enum ft_t : int32_t { VX_FILE_TYPES(VX_DECLARE_FILE_TYPE) };
#undef VX_DECLARE_FILE_TYPE

// The enumerator's name ("ft_gzip") for a type; "" for a number that is not one.
const char *fileTypeName(ft_t type);

enum eCameraId_t : int32_t {
    eCameraId_Default = 0,
    eCameraId_Word = 1,
    eCameraId_Excel = 2,
    eCameraId_PowerPoint = 3,
    eCameraId_Rtf = 4,
    eCameraId_OpenXml = 5,
    eCameraId_Emf = 6,
    eCameraId_Wmf = 7,
    eCameraId_Png = 8,
    eCameraId_Jpeg = 9,
    eCameraId_Gif = 10,
    eCameraId_Pdf = 11,
    eCameraId_Bmp = 12,
    eCameraId_Tiff = 13,
    eCameraId_WinExe = 14,
    eCameraId_MachO = 15,
    eCameraId_Elf = 16,
    eCameraId_Mp4 = 17,
    eCameraId_Mp3 = 18,
    eCameraId_Wav = 19,
    eCameraId_Mpeg2 = 20,
    eCameraId_OpcPackage = 21,
};

enum ft_select_t : int {
    ft_select_extension = 0,
    ft_select_classid = 1,
    ft_select_progid = 2,
};

struct FileTypeIdentifier_t
{
    std::string extension;
    std::string classId;
    std::string progId;
    ft_t fileType;
    std::string description;
    eCameraId_t cameraId;
};

// What a container's own structure says beyond its type: the registry row
// of its exact kind (a template, a macro-enabled or an older version) when
// the content tells it, and what inspection must know before opening it.
struct ContainerKind
{
    // The type as determineOpcSubType and determineCfbSubType answer it.
    ft_t type = ft_unknown;
    // How the kind was found ("structure match", "class identifier",
    // "stream names"); null when nothing was.
    const char *reason = nullptr;
    // Points into the registry that answered, and lives as long as it.
    const FileTypeIdentifier_t *row = nullptr;
    bool encrypted = false;
    bool macros = false;
};

// The registry of file types: extensions, ProgIDs and class identifiers tied
// to a type, a description and the camera that handles it. A plain value
// object; build one where a question is asked. Every search returns the first
// matching row, so row order is part of the meaning.
class FileType
{
public:
    FileType();

    ft_t getFileTypeHelper(std::string key, ft_select_t column) const;
    ft_t getFileTypeFromFileExtension(std::string extension) const;
    ft_t getFileTypeFromClassID(std::string classId) const;
    ft_t getFileTypeFromProgID(std::string progId) const;
    std::string getExtensionFromFileTypeEnum(ft_t type) const;
    eCameraId_t getCameraIdFromFileTypeEnum(ft_t type) const;
    ft_t getFileTypeFromCameraId(eCameraId_t camera) const;

    // The first row for an extension, ProgID or class identifier, or null;
    // lets a host show the row's description beside the type.
    const FileTypeIdentifier_t *findExtension(const std::string &extension) const;
    const FileTypeIdentifier_t *findProgId(const std::string &progId) const;
    const FileTypeIdentifier_t *findClassId(const std::string &classId) const;
    // The first row of a type, or null.
    const FileTypeIdentifier_t *findFileType(ft_t type) const;

    ft_t determineOpcSubType(MemoryBuffer *buffer, const char **reason);
    ft_t determineCfbSubType(MemoryBuffer *buffer, const char **reason, BDDLStructBase_Root *root);

    // The kind of an open Office Open XML package: its family from its
    // top-level folders (as determineOpcSubType), its exact kind and macros
    // from the main part's content type, macros also from a vbaProject.bin
    // part. Reads at most [Content_Types].xml, and no more than 1 MiB of it.
    ContainerKind describeOpcPackage(ZipUtils::Unzip &package) const;
    // The kind of an open compound file: from its root class identifier
    // (as determineCfbSubType), else from its root streams; an encrypted
    // Office Open XML package by its EncryptionInfo and EncryptedPackage
    // streams; macros by a Macros or _VBA_PROJECT_CUR storage.
    ContainerKind describeCompoundFile(const POLE::Storage &storage) const;

private:
    std::vector<FileTypeIdentifier_t> m_fileTypes;
};
