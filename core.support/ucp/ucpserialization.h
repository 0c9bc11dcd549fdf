#pragma once

// Serialisation of structure trees. The interchange forms have a header of
// their own, for code that only names them.
#include "ucp/serializationformat.h"
