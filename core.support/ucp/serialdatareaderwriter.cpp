#include "ucp/serialdatareaderwriter.h"

namespace {
[[maybe_unused]] const char *const NoNameString = "noname";
}

SerialDataReaderWriter::~SerialDataReaderWriter() = default;

QString SerialDataReaderWriter::formatStreamName(const QString &streamName, int a, int b, const QString &extension,
                                                 const char *defaultExtension)
{
    const QString suffix = extension == QLatin1String("default") ? QLatin1String(defaultExtension) : extension;
    // One pass over the pattern, so a stream name holding "%1" stays as it is.
    return QStringLiteral("Id_%1_%2_%3.%4").arg(QString::number(a), streamName, QString::number(b), suffix);
}
