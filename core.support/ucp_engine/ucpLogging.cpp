#include "ucp_engine/ucpLogging.h"

#include <QDebug>
#include <QMessageLogger>
#include <QString>

#include <cstdarg>

void lprintf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const QString message = format ? QString::vasprintf(format, arguments) : QString();
    va_end(arguments);
    QMessageLogger().debug() << message;
}

void tbLog(const char *text)
{
    QMessageLogger().debug() << (text ? text : "");
}
