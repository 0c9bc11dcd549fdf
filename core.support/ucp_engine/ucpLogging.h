#pragma once

#include <QtGlobal>

// The framework's two log writers. Both write one line to Qt's debug stream
// (category "default", no file, line or function in the context), so a host
// that installs a message handler sees every framework diagnostic.

// printf-style: the formatted text is streamed as a QString, so the line
// shows it in double quotes with the stream's escaping.
void lprintf(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(1, 2);

// The text as it stands, without quotes; null gives an empty line.
void tbLog(const char *text);
