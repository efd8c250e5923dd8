#pragma once

// Runs the qx tool (path from the QX_TOOL environment variable that every
// suite receives) and collects what it printed.

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

struct QxRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

inline QxRun runQx(const QStringList &arguments, const QByteArray &input = QByteArray(),
                   const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(qEnvironmentVariable("QX_TOOL"), arguments);
    QxRun run;
    if (!process.waitForStarted(10000))
        return run;
    process.write(input);
    process.closeWriteChannel();
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
