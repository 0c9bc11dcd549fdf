#pragma once

#include "fileidentifier_schema.h"

#include <cstdint>

// Reading the input into the file identifier's root. The root's
// vir_readFromBuffer (declared with the class) is defined in this unit.
namespace FileIdentifier {

// Appends every byte from the input's cursor to its end to `data`, adds their
// number to `size` and leaves the cursor at the end: the effect of reading
// them one unsigned byte at a time through the context, in one copy. Throws
// ArithmeticException when the size would not fit 32 bits, before anything
// is read. Nothing to read, or no input, reads nothing.
void readRestOfInput(context *ctx, BDDScalarArray<vtUCharArray> &data, uint32_t &size);

} // namespace FileIdentifier
