#pragma once

#include "cameras/filetype.h"

#include <cstddef>

class MemoryBuffer;

// Tells from a buffer's bytes whether it holds one of the archive formats
// ZIP, GZIP, BZIP2, 7-Zip, RAR or TAR. Every reason text handed out is a
// static string; a null reason pointer means "don't tell". The functions
// move the buffer's cursor while they work; the dispatcher leaves it at 0.
namespace FileIdentifier {

// Tries every detector in turn and answers with the first match, or
// ft_unknown. An Office Open XML package answers ft_unknown with the
// reason "structure match": it is left to the cameras of its own kind.
ft_t getFileTypeFromFileInMemory(MemoryBuffer *buffer, const char **reason);

// Each detector stores its type and reason and answers true on a match,
// and stores no type otherwise. A buffer too short for the signature is
// simply not of that format.
bool isZIPFile(MemoryBuffer *buffer, ft_t *type, const char **reason);
bool isGZIPFile(MemoryBuffer *buffer, ft_t *type, const char **reason);
bool isBZIP2File(MemoryBuffer *buffer, ft_t *type, const char **reason);
bool is7ZIPFile(MemoryBuffer *buffer, ft_t *type, const char **reason);
bool isRARFile(MemoryBuffer *buffer, ft_t *type, const char **reason);
bool isTARFile(MemoryBuffer *buffer, ft_t *type, const char **reason);

// Whether the bytes from the cursor on start with a valid tar header.
bool file_is_tar(MemoryBuffer *buffer);

// The kind of tar header at bytes: 0 none (or fewer than 512 bytes),
// 1 old style, 2 POSIX ustar, 3 GNU.
int is_tar(const unsigned char *bytes, size_t length);

// The value of an octal text field of the given width, or -1. Leading
// white space is skipped (a field of nothing but white space looks at the
// byte after it, as tar always has one there); the digits may end early
// at a NUL or white space.
int from_oct(const char *field, size_t digits);

} // namespace FileIdentifier
