#include "reporter.h"

#include <QDateTime>
#include <QJsonDocument>

#include <unistd.h>

namespace {
// Below this many files a batch finishes before a progress line helps.
const int kProgressThreshold = 200;
const qint64 kRedrawMs = 100;

QString escapeControls(const QString &text)
{
    QString escaped;
    escaped.reserve(text.size());
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            escaped += QStringLiteral("\\x")
                       + QString::number(c.unicode(), 16).toUpper().rightJustified(2, QLatin1Char('0'));
        else
            escaped += c;
    }
    return escaped;
}

void writeLine(FILE *stream, const QByteArray &line)
{
    fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stream);
    fputc('\n', stream);
}
} // namespace

Reporter::Reporter(bool json) : m_json(json) {}

void Reporter::result(const QJsonObject &object, const QString &humanLine)
{
    clearProgress();
    if (m_json)
        writeLine(stdout, QJsonDocument(object).toJson(QJsonDocument::Compact));
    else
        writeLine(stdout, humanLine.toUtf8());
}

void Reporter::error(const QString &subject, const QString &message, const QString &path)
{
    ++m_errors;
    clearProgress();
    if (m_json && !path.isEmpty()) {
        QJsonObject object{{QStringLiteral("path"), path}, {QStringLiteral("error"), message}};
        writeLine(stdout, QJsonDocument(object).toJson(QJsonDocument::Compact));
    }
    fflush(stdout); // keep results and errors in order when both go to one terminal
    writeLine(stderr, escapeControls(QStringLiteral("vxcam: %1: %2").arg(subject, message)).toUtf8());
}

void Reporter::text(const QString &line)
{
    clearProgress();
    writeLine(stdout, line.toUtf8());
}

void Reporter::beginBatch(int total)
{
    m_total = total;
    m_done = 0;
    m_progress = total > kProgressThreshold && isatty(STDERR_FILENO);
}

void Reporter::advance(const QString &current)
{
    ++m_done;
    if (!m_progress)
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (m_done != m_total && now - m_lastDraw < kRedrawMs)
        return;
    m_lastDraw = now;
    fflush(stdout);
    const QString line = QStringLiteral("\r\033[K[%1/%2] %3").arg(m_done).arg(m_total).arg(current);
    fputs(line.toUtf8().constData(), stderr);
    fflush(stderr);
    m_progressShown = true;
}

void Reporter::endBatch()
{
    clearProgress();
    m_progress = false;
}

void Reporter::clearProgress()
{
    if (!m_progressShown)
        return;
    fputs("\r\033[K", stderr);
    fflush(stderr);
    m_progressShown = false;
}
