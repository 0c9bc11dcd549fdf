#include "ucp_engine/ucpLogging.h"

#include "logcapture.h"
#include "qtprinters.h"

#include <gtest/gtest.h>

TEST(UcpLogging, LprintfFormatsAndQuotesOneLine)
{
    LogCapture log;
    lprintf("x=%d", 5);
    lprintf("%s and %zu", "text", size_t(42));
    lprintf("say \"%s\"", "hi");
    lprintf("\n");
    lprintf("a\tb");
    EXPECT_EQ(log.messages(), (QStringList{QStringLiteral("\"x=5\""),
                                           QStringLiteral("\"text and 42\""),
                                           QStringLiteral("\"say \\\"hi\\\"\""),
                                           QStringLiteral("\"\\n\""),
                                           QStringLiteral("\"a\\tb\"")}));
}

TEST(UcpLogging, TbLogWritesTheTextAsItStands)
{
    LogCapture log;
    tbLog("plain \"text\" line");
    tbLog(nullptr);
    tbLog("");
    EXPECT_EQ(log.messages(),
              (QStringList{QStringLiteral("plain \"text\" line"), QString(), QString()}));
}

TEST(UcpLogging, BothWriteDebugLinesInTheDefaultCategoryWithoutSourceLocation)
{
    LogCapture log;
    lprintf("%s", "one");
    tbLog("two");
    ASSERT_EQ(log.lines().size(), 2u);
    for (const CapturedLogLine &line : log.lines()) {
        EXPECT_EQ(line.type, QtDebugMsg) << line.message.toStdString();
        EXPECT_EQ(line.category, QStringLiteral("default")) << line.message.toStdString();
        EXPECT_FALSE(line.hasSourceLocation) << line.message.toStdString();
    }
}
