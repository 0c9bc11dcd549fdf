#include "ucp_engine/ucpLogging.h"

#include "logcapture.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

TEST(UcpLogging, LprintfQuotesOneLineAndTbLogWritesTheTextAsItStands)
{
    LogCapture log;
    lprintf("%s and %zu", "text", size_t(42));
    lprintf("say \"%s\"", "hi");
    lprintf("a\tb\n");
    tbLog("plain \"text\" line");
    tbLog(nullptr);
    EXPECT_EQ(log.messages(), (QStringList{"\"text and 42\"", "\"say \\\"hi\\\"\"", "\"a\\tb\\n\"",
                                           "plain \"text\" line", ""}));
    for (const CapturedLogLine &line : log.lines()) {
        EXPECT_EQ(line.type, QtDebugMsg) << line.message.toStdString();
        EXPECT_EQ(line.category, QStringLiteral("default")) << line.message.toStdString();
        EXPECT_FALSE(line.hasSourceLocation) << line.message.toStdString();
    }
}
