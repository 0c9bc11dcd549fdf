#pragma once

#include "fileidentifier_schema.h"

// Validating the file identifier's root. The root's validate() (declared
// with the class) is defined in this unit.
namespace FileIdentifier {

// The issue every file the identifier carries is reported with.
inline constexpr char FileNotSupportedText[] = "File is not supported";

// What validate() records: the content group "FileIdentifier" with the
// number of bytes read, and the issue "File is not supported" in the root's
// validation group. Answers 128: no file is supported by this camera. The
// id derivations and the repository may throw.
cameraStatus_t reportUnsupportedFile(FileIdentifier_class *root);

} // namespace FileIdentifier
