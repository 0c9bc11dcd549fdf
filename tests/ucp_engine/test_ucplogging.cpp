#include "ucp_engine/ucpLogging.h"

#include "logcapture.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

TEST(UcpLogging, LprintfQuotesOneLineAndTbLogWritesTheTextAsItStands)
{
    LogCapture log;
    lprintf("%s and %zu", "text", size_t(42));
    lprintf("say \"%s\"\t\n", "hi");
    tbLog("plain \"text\" line");
    tbLog(nullptr);
    EXPECT_EQ(log.messages(), (QStringList{"\"text and 42\"", "\"say \\\"hi\\\"\\t\\n\"", "plain \"text\" line", ""}));
    for (const CapturedLogLine &line : log.lines())
        EXPECT_TRUE(line.type == QtDebugMsg && line.category == "default" && !line.hasSourceLocation)
            << line.message.toStdString();
}
