#include "ucp_engine/ucpLogging.h"

#include <QDebug>
#include <QMessageLogger>
#include <QString>

#include <cstdarg>

namespace {

// A logger with the category "default" but no source location: the lines
// belong to the framework, not to this file.
QDebug debugLine()
{
    return QMessageLogger(nullptr, 0, nullptr, "default").debug();
}

} // namespace

void lprintf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const QString message = format ? QString::vasprintf(format, arguments) : QString();
    va_end(arguments);
    debugLine() << message;
}

void tbLog(const char *text)
{
    debugLine() << (text ? text : "");
}
