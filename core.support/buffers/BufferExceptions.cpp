#include "buffers/BufferExceptions.h"

namespace {

std::string formatMessage(const char *pattern, uint64_t a, uint64_t b, uint64_t c)
{
    return QString::fromLatin1(pattern)
        .arg(QString::number(a), QString::number(b), QString::number(c))
        .toStdString();
}

} // namespace

ReadBufferException::ReadBufferException(uint64_t size, uint64_t offset, uint64_t requested)
    : std::runtime_error(formatMessage("Read beyond end of buffer occurred: Size of buffer (%1), "
                                       "Offset (%2), Size requested (%3)",
                                       size, offset, requested))
{
}

WriteBufferException::WriteBufferException(uint64_t size, uint64_t offset, uint64_t requested)
    : std::runtime_error(formatMessage("Write beyond end of buffer occurred: Size of buffer (%1), "
                                       "Offset (%2), Size requested (%3)",
                                       size, offset, requested))
{
}

SeekBufferException::SeekBufferException(uint64_t size, uint64_t oldOffset, uint64_t newOffset)
    : std::runtime_error(formatMessage("Seek beyond end of buffer occurred: Size of buffer (%1), "
                                       "Old offset (%2), New offset (%3)",
                                       size, oldOffset, newOffset))
{
}

ArithmeticException::ArithmeticException(const char *message) : std::runtime_error(message) {}

ArithmeticException::ArithmeticException(const std::string &message) : std::runtime_error(message) {}

ArithmeticException::ArithmeticException(const QString &message)
    : std::runtime_error(message.toStdString())
{
}
