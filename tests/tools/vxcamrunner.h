#pragma once

// Runs the built vxcam the way a user would and collects what it printed.

#include "fixtures/fixtures.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QStringList>

struct VxcamRun
{
    int exitCode = -1; // -1 when it crashed or did not finish
    QByteArray out;
    QByteArray err;

    QList<QJsonObject> jsonLines() const
    {
        QList<QJsonObject> objects;
        for (const QByteArray &line : out.split('\n'))
            if (!line.isEmpty())
                objects << QJsonDocument::fromJson(line).object();
        return objects;
    }
    // Whether standard error is exactly one line.
    bool oneErrorLine() const { return err.endsWith('\n') && err.count('\n') == 1; }
};

inline VxcamRun runVxcam(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(VXCAM_PATH), arguments);
    VxcamRun run;
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    process.kill();
    process.waitForFinished();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}
