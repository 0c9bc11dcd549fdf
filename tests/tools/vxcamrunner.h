#pragma once

// Runs the built vxcam the way a user would and collects what it printed.

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QStringList>

struct VxcamRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    // Standard output as JSON Lines.
    QList<QJsonObject> jsonLines() const
    {
        QList<QJsonObject> objects;
        for (const QByteArray &line : out.split('\n'))
            if (!line.isEmpty())
                objects << QJsonDocument::fromJson(line).object();
        return objects;
    }
    QList<QByteArray> errLines() const
    {
        QList<QByteArray> lines = err.split('\n');
        lines.removeAll(QByteArray());
        return lines;
    }
};

inline VxcamRun runVxcam(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(VXCAM_PATH), arguments);
    VxcamRun run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}
