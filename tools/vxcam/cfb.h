#pragma once

#include "cameras/filetype.h"

#include <QString>

class MemoryBuffer;

// The compound-file sub-type of a whole file held in `buffer` (see
// FileType::determineCfbSubType): ft_unknown for anything else, including a
// compound file too damaged to read. `reason` gets the method that found the
// type. The buffer is left at position 0.
ft_t compoundFileSubType(MemoryBuffer &buffer, QString *reason = nullptr);
