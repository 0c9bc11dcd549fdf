// Identification over arbitrary bytes: the archive dispatcher, and the
// container kinds read the way vxcam reads files (a zip archive through a
// device, a compound file's root entries). Any answer is fine; a crash,
// hang or runaway allocation is not, and the dispatcher's cursor must end
// at 0.

#include "bytesdevice.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/filetype.h"
#include "containers/ZipUtils.h"
#include "containers/pole.h"
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

    const FileType registry;
    {
        BytesDevice device(data, size);
        ZipUtils::Unzip package;
        package.setListLimit(1 << 20);
        if (package.open(&device)) {
            const ContainerKind kind = registry.describeOpcPackage(package);
            if (kind.row && kind.row->fileType != kind.type)
                std::abort(); // the exact kind belongs to the family
        }
    }
    {
        POLE::Storage storage(&buffer);
        try {
            if (storage.open(false, false))
                registry.describeCompoundFile(storage);
        } catch (const char *) {
            // a damaged directory's names: reported by a text, as callers expect
        }
    }
    return 0;
}
