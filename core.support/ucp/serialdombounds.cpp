#include "ucp/serialdombounds.h"

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

namespace SerialDomBounds {

Budget::Budget(qint64 inputSize, int factor)
    : m_limit(kFloor + uint64_t(inputSize < 0 ? 0 : inputSize) * uint64_t(factor < 0 ? 0 : factor))
{
}

} // namespace SerialDomBounds
