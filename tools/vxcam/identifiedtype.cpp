#include "identifiedtype.h"

#include "buffers/MemoryBuffer.h"
#include "cameras/camera_pool.h"

#include <QFileInfo>

ft_t identifiedType(const QString &path, MemoryBuffer &buffer, const Camera_Pool &pool)
{
    QString reason;
    buffer.seek(0);
    ft_t type = pool.getFileTypeFromFileInMemory(&buffer, reason);
    buffer.seek(0);
    if (type == ft_unknown)
        type = pool.getSubFileTypeFromFileInMemory(&buffer, reason);
    buffer.seek(0);
    const QString extension = QFileInfo(path).suffix();
    if (type == ft_unknown)
        type = pool.getFileTypeFromFileExtension(extension.toUtf8().constData());
    if (type == ft_unknown)
        type = FileType().getFileTypeFromFileExtension(extension.toLower().toStdString());
    return type;
}
