// The signature checks over arbitrary bytes: no read beyond the bytes given,
// and a shorter head of the same bytes never answers another type.

#include "signatures.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *reason = nullptr;
    const ft_t type = Signatures::identify(data, size, &reason);
    if (type != ft_unknown && reason == nullptr)
        std::abort();
    const ft_t head = Signatures::identify(data, size / 2, nullptr);
    if (head != ft_unknown && head != type)
        std::abort();
    return 0;
}
