#pragma once

#include "cameras/filetype.h"

#include <QString>

class Camera_Pool;
class MemoryBuffer;

// The file's type as identify answers it: the plug-ins' main-type answer,
// else their sub-type answer, else their answer for the extension, else the
// file-type registry's. The buffer holds the whole file and is left at 0.
ft_t identifiedType(const QString &path, MemoryBuffer &buffer, const Camera_Pool &pool);
