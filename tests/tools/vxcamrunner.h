#pragma once

// Runs the built vxcam the way a user would and collects what it printed.

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

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

// Writes a new file of the directory and gives its path; an empty path when it cannot.
inline QString writeTestFile(const QTemporaryDir &dir, const char *name, const QByteArray &bytes)
{
    QFile file(dir.filePath(QLatin1String(name)));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName() : QString();
}
