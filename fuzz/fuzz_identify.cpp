// Identification over arbitrary bytes: any answer is fine, a crash, hang or
// runaway allocation is not, and the cursor must end at 0.

#include "buffers/MemoryBuffer.h"
#include "fileidentification.h"

#include <QtGlobal>

#include <cstdint>
#include <cstdlib>

namespace {
void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool installed = (qInstallMessageHandler(quiet), true);
    (void)installed;

    MemoryBuffer buffer(size, const_cast<unsigned char *>(data));
    const char *reason = nullptr;
    const ft_t type = FileIdentifier::getFileTypeFromFileInMemory(&buffer, &reason);
    if (!reason || buffer.tell() != 0)
        std::abort();
    if (type == ft_unknown && size >= 2 && data[0] == 'P' && data[1] == 'K') {
        const ft_t package = FileType().determineOpcSubType(&buffer, nullptr);
        if (package != ft_docx && package != ft_xlsx && package != ft_pptx)
            std::abort(); // a zip is declined only when it is a package
    }
    if (size >= 512)
        FileIdentifier::is_tar(data, size);
    return 0;
}
