#include "fileidentifier_preread.h"

#include "buffers/BufferExceptions.h"
#include "buffers/MemoryBuffer.h"

#include <limits>

namespace FileIdentifier {

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
} // namespace

void readRestOfInput(context *ctx, BDDScalarArray<vtUCharArray> &data, uint32_t &size)
{
    MemoryBuffer *const input = ctx ? ctx->m_inputBuffer : nullptr;
    if (input == nullptr)
        return;
    const size_t count = input->sizeToEof();
    if (count == 0)
        return;
    if (count > std::numeric_limits<uint32_t>::max() - size)
        throw ArithmeticException("Unable to convert size_t to uint32_t");
    const size_t start = data.size();
    data.resize(start + count);
    input->getRawScalarArray(data.data() + start, count, true, MBNativeOrder);
    size += static_cast<uint32_t>(count);
}

cameraStatus_t FileIdentifier_class::vir_readFromBuffer(context *ctx, BDDLStructBase *root, BDDLStructBase *parent)
{
    initialBeforeReadFromBuffer(ctx, root, parent);
    // Each read stands on its own: the data becomes what this read finds.
    m_readFlags &= static_cast<uint16_t>(~readFailed);
    try {
        MemoryBuffer *const input = ctx ? ctx->m_inputBuffer : nullptr;
        if (input == nullptr || input->sizeToEof() == 0) {
            m_readFlags |= readFailed;
            return 0;
        }
        if (m_data == nullptr)
            m_data = new BDDScalarArray<vtUCharArray>;
        m_data->clear();
        readRestOfInput(ctx, *m_data, m_size);
        if (m_data->empty())
            m_readFlags |= readFailed;
    } catch (...) {
        // A failed read is a result, not an error: the camera answers -2.
        m_readFlags |= readFailed;
    }
    return 0;
}

} // namespace FileIdentifier
