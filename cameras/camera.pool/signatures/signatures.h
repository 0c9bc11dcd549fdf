#pragma once

#include "cameras/filetype.h"

#include <cstddef>

// Tells the registry's content types from the first bytes of a file, by the
// signatures and headers their formats define: PDF, PNG, JPEG, GIF, BMP,
// TIFF, EMF, WMF, RTF, PE, Mach-O, ELF, COFF objects, MP4, MPEG audio, WAV,
// MPEG program streams and XML. Formats whose leading bytes are too short
// or too common to decide alone (BMP, COFF, WMF without its placeable
// header, MPEG audio without a tag) are checked further into their headers
// and answer "structure match"; the others "signature match".
namespace Signatures {

// The type of the bytes, or ft_unknown. `reason` (may be null) receives a
// static text. Reads nothing beyond `size` bytes: give it the head of a
// file, a few KiB are enough for every format here.
ft_t identify(const unsigned char *data, size_t size, const char **reason);

} // namespace Signatures
