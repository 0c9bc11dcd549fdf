#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdio>

// All output of vxcam goes through here: human-readable lines or JSON Lines
// on standard output, one-line errors on standard error, and a progress line
// on a terminal for long batches.
class Reporter
{
public:
    explicit Reporter(bool json);

    bool json() const { return m_json; }

    // One result: the JSON object with --json, else the human line.
    void result(const QJsonObject &object, const QString &humanLine);
    // One failure naming its subject; counted for the exit status. Control
    // characters (a file name may hold a line feed) are shown as \xNN so the
    // error stays one line.
    void error(const QString &subject, const QString &message, const QString &path = QString());
    // Plain text on standard output (tables, listings).
    void text(const QString &line);

    void beginBatch(int total);
    void advance(const QString &current);
    void endBatch();

    int errorCount() const { return m_errors; }

private:
    void clearProgress();

    bool m_json;
    int m_errors = 0;
    int m_total = 0;
    int m_done = 0;
    bool m_progress = false;
    bool m_progressShown = false;
    qint64 m_lastDraw = 0;
};
