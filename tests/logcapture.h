#pragma once

// Collects what the code under test writes to Qt's message stream while a
// LogCapture is alive, so tests can compare log lines exactly.

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <vector>

struct CapturedLogLine
{
    QtMsgType type;
    QString category;
    QString message;
    // Whether the message context named a file, line or function.
    bool hasSourceLocation;
};

class LogCapture
{
public:
    LogCapture()
        : m_previous(qInstallMessageHandler(&LogCapture::handler))
    {
        s_active = this;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_active = nullptr;
    }

    const std::vector<CapturedLogLine> &lines() const { return m_lines; }
    QStringList messages() const
    {
        QStringList result;
        for (const CapturedLogLine &line : m_lines)
            result << line.message;
        return result;
    }
    void clear() { m_lines.clear(); }

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (!s_active)
            return;
        const bool located = context.file != nullptr || context.line != 0 || context.function != nullptr;
        s_active->m_lines.push_back(
            {type, QString::fromLatin1(context.category ? context.category : ""), message, located});
    }

    inline static LogCapture *s_active = nullptr;
    QtMessageHandler m_previous;
    std::vector<CapturedLogLine> m_lines;
};
