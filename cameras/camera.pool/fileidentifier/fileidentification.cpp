#include "fileidentification.h"

#include "buffers/MemoryBuffer.h"

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>

namespace {

const char kReasonUnknown[] = "Reason unknown";
const char kSignatureMatch[] = "signature match";
const char kStructureMatch[] = "structure match";

// Leading bytes of a format, compared at the very start of the buffer.
struct Signature
{
    ft_t type;
    size_t length;
    unsigned char bytes[6];
};

const Signature kZip = {ft_zip, 2, {0x50, 0x4B}};
const Signature kGzip = {ft_gzip, 2, {0x1F, 0x8B}};
const Signature kBzip2 = {ft_bzip2, 3, {0x42, 0x5A, 0x68}};
const Signature k7zip = {ft_7zip, 6, {0x37, 0x7A, 0xBC, 0xAF, 0x27, 0x1C}};
const Signature kRar = {ft_rar, 6, {0x52, 0x61, 0x72, 0x21, 0x1A, 0x07}};

// The ustar magic sits at this offset of a tar header; a buffer shorter
// than the magic's end cannot carry it.
const size_t kTarMagicOffset = 257;
const unsigned char kTarMagic[] = {'u', 's', 't', 'a', 'r'};
const size_t kTarMinimumSize = kTarMagicOffset + sizeof kTarMagic;
const size_t kTarHeaderSize = 512;
const size_t kTarChecksumOffset = 148;
const size_t kTarChecksumWidth = 8;

// Reads length bytes at the cursor and moves past them.
void readLead(MemoryBuffer *buffer, unsigned char *lead, size_t length)
{
    buffer->getRawScalarArray(lead, length, false, MBNativeOrder);
    buffer->seek(length, MBSeekForward);
}

bool startsWith(MemoryBuffer *buffer, const Signature &signature)
{
    buffer->seek(0, MBSeekStart);
    if (buffer->sizeToEof() < signature.length)
        return false;
    unsigned char lead[sizeof signature.bytes];
    readLead(buffer, lead, signature.length);
    return std::memcmp(lead, signature.bytes, signature.length) == 0;
}

bool found(ft_t what, const char *why, ft_t *type, const char **reason)
{
    if (type)
        *type = what;
    if (reason)
        *reason = why;
    return true;
}

bool detectSignature(MemoryBuffer *buffer, const Signature &signature, ft_t *type,
                     const char **reason)
{
    return buffer && startsWith(buffer, signature)
           && found(signature.type, kSignatureMatch, type, reason);
}

bool isOfficePackage(ft_t type)
{
    return type == ft_docx || type == ft_xlsx || type == ft_pptx;
}

} // namespace

namespace FileIdentifier {

ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason)
{
    using Detector = bool (*)(MemoryBuffer *, ft_t *, const char **);
    // Cheapest first: the two-byte tests before the ones that look further.
    static const Detector kDetectors[] = {isZIPFile, isGZIPFile, isBZIP2File,
                                          is7ZIPFile, isRARFile, isTARFile};
    ft_t type = ft_unknown;
    if (reason)
        *reason = kReasonUnknown;
    if (!buffer)
        return ft_unknown;
    for (const Detector detect : kDetectors) {
        buffer->seek(0, MBSeekStart);
        if (detect(buffer, &type, reason))
            break;
    }
    buffer->seek(0, MBSeekStart);
    return type;
}

bool isZIPFile(MemoryBuffer *buffer, ft_t *type, const char **reason)
{
    if (!buffer || !startsWith(buffer, kZip))
        return false;
    // An Office Open XML package belongs to the cameras of its own kind, so
    // it is not answered as a plain zip (determineOpcSubType has already
    // said "structure match"). The sub-type reads nothing of the registry's
    // table, so one registry serves every call instead of building a new
    // table each time.
    static FileType registry;
    if (isOfficePackage(registry.determineOpcSubType(buffer, reason)))
        return false;
    return found(ft_zip, kSignatureMatch, type, reason);
}

bool isGZIPFile(MemoryBuffer *buffer, ft_t *type, const char **reason)
{
    return detectSignature(buffer, kGzip, type, reason);
}

bool isBZIP2File(MemoryBuffer *buffer, ft_t *type, const char **reason)
{
    return detectSignature(buffer, kBzip2, type, reason);
}

bool is7ZIPFile(MemoryBuffer *buffer, ft_t *type, const char **reason)
{
    return detectSignature(buffer, k7zip, type, reason);
}

bool isRARFile(MemoryBuffer *buffer, ft_t *type, const char **reason)
{
    return detectSignature(buffer, kRar, type, reason);
}

bool isTARFile(MemoryBuffer *buffer, ft_t *type, const char **reason)
{
    if (!buffer || buffer->sizeToEof() < kTarMinimumSize)
        return false;
    buffer->seek(kTarMagicOffset, MBSeekStart);
    unsigned char magic[sizeof kTarMagic];
    readLead(buffer, magic, sizeof magic);
    if (std::memcmp(magic, kTarMagic, sizeof magic) == 0)
        return found(ft_tar, kSignatureMatch, type, reason);
    // Old-style archives carry no magic; their header checksum tells.
    buffer->seek(0, MBSeekStart);
    return file_is_tar(buffer) && found(ft_tar, kStructureMatch, type, reason);
}

// Only the first header matters, so the bytes are examined where they lie
// instead of being copied out.
bool file_is_tar(MemoryBuffer *buffer)
{
    if (!buffer)
        return false;
    const size_t left = buffer->sizeToEof();
    return left != 0 && is_tar(buffer->constData() + buffer->tell(), left) != 0;
}

int is_tar(const unsigned char *bytes, size_t length)
{
    if (length < kTarHeaderSize)
        return 0;
    const int recorded =
        from_oct(reinterpret_cast<const char *>(bytes + kTarChecksumOffset), kTarChecksumWidth);

    // The checksum is the byte sum of the header with its own field counted
    // as eight spaces: the field's bytes come out as signed chars, the rest
    // count as unsigned.
    int32_t sum = 0;
    for (size_t i = 0; i < kTarHeaderSize; ++i)
        sum += bytes[i];
    for (size_t i = 0; i < kTarChecksumWidth; ++i)
        sum -= static_cast<signed char>(bytes[kTarChecksumOffset + i]);
    sum += static_cast<int32_t>(' ' * kTarChecksumWidth);
    if (sum != recorded)
        return 0;

    static const char kGnuMagic[] = "ustar  "; // with its NUL: 8 bytes
    static const char kPosixMagic[] = "ustar";  // with its NUL: 6 bytes
    const char *magic = reinterpret_cast<const char *>(bytes + kTarMagicOffset);
    if (std::memcmp(magic, kGnuMagic, sizeof kGnuMagic) == 0)
        return 3;
    if (std::memcmp(magic, kPosixMagic, sizeof kPosixMagic) == 0)
        return 2;
    return 1;
}

int from_oct(const char *field, size_t digits)
{
    const auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    if (digits == 0)
        return -1;
    while (isSpace(*field)) {
        if (digits == 0)
            return -1; // a blank field running on
        ++field;
        --digits;
    }
    // A value too large for the result is no better than a malformed one.
    int64_t value = 0;
    while (digits > 0 && *field >= '0' && *field <= '7') {
        value = value * 8 + (*field - '0');
        if (value > INT_MAX)
            return -1;
        ++field;
        --digits;
    }
    if (digits > 0 && *field != '\0' && !isSpace(*field))
        return -1;
    return static_cast<int>(value);
}

} // namespace FileIdentifier
