// Commands and tour of the file-manager utilities and the file monitor:
// directory sizes, free paths, and watching an item until it settles.

#include "QxCommand.h"

#include <QXFoundation/QXFileManager.h>
#include <QXFoundation/QXFileMonitor.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTextStream>
#include <QTime>
#include <QTimer>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace {

QxCommand duCommand()
{
    QxCommand command;
    command.name = QStringLiteral("du");
    command.synopsis = QStringLiteral("du PATH");
    command.help = QStringLiteral(
        "Prints the total size of the files beneath the directory PATH: the number of bytes, a tab,\n"
        "and the size as text (\"1536\\t1.5 KB\"). Hidden files count, symbolic links count as\n"
        "themselves and are not followed, directories add nothing of their own.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() != 1)
            return Qx::usageError(command, QStringLiteral("expected one PATH"));
        const QFileInfo info(arguments.at(0));
        if (!info.exists())
            return Qx::failure(command.name, QStringLiteral("%1: no such file or directory").arg(arguments.at(0)));
        if (!info.isDir())
            return Qx::failure(command.name, QStringLiteral("%1: not a directory").arg(arguments.at(0)));
        const quint64 size = qx_direcorySize(arguments.at(0));
        Qx::printLine(QStringLiteral("%1\t%2").arg(size).arg(qx_formatedSize(size)));
        return int(QxSuccess);
    };
    return command;
}

QxCommand uniquePathCommand()
{
    QxCommand command;
    command.name = QStringLiteral("unique-path");
    command.synopsis = QStringLiteral("unique-path NAME DIR [--hash]");
    command.help = QStringLiteral(
        "Prints a path in DIR for a new item named NAME at which nothing exists yet: NAME itself, or\n"
        "\"BASE 2.EXT\", \"BASE 3.EXT\" ... With --hash the base becomes its MD5 text (numbered\n"
        "candidates are hashed too). Nothing is created.");
    command.run = [command](const QStringList &arguments) {
        QStringList positional = arguments;
        const bool hash = positional.removeAll(QStringLiteral("--hash")) > 0;
        if (positional.size() != 2)
            return Qx::usageError(command, QStringLiteral("expected NAME and DIR"));
        if (positional.at(0).isEmpty())
            return Qx::usageError(command, QStringLiteral("NAME is empty"));
        Qx::printLine(qx_uniquePathForFile(positional.at(0), positional.at(1), hash));
        return int(QxSuccess);
    };
    return command;
}

// SIGINT and SIGTERM end the event loop through a pipe: a signal handler
// may only write to a descriptor.
int signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

QxCommand watchCommand()
{
    QxCommand command;
    command.name = QStringLiteral("watch");
    command.synopsis = QStringLiteral("watch PATH");
    command.help = QStringLiteral(
        "Watches the file or directory PATH and prints one line each time it has changed and then\n"
        "kept its size for a second: the local time, the size in bytes and as text. Saves that\n"
        "replace the file (write a new one, rename it over the old) are followed. Stops with exit\n"
        "status 0 on Ctrl-C (or SIGTERM), with 1 when PATH is removed.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() != 1)
            return Qx::usageError(command, QStringLiteral("expected one PATH"));
        const QString path = QFileInfo(arguments.at(0)).absoluteFilePath();
        auto monitor = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(path), {});
        if (!monitor)
            return Qx::failure(command.name, QStringLiteral("%1: no such file or directory").arg(arguments.at(0)));

        if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
            return Qx::failure(command.name, QStringLiteral("cannot set up signal handling"));
        QSocketNotifier notifier(signalPipe[0], QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, qApp, [] { QCoreApplication::exit(QxSuccess); });
        struct sigaction action = {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &action, nullptr);
        ::sigaction(SIGTERM, &action, nullptr);

        const bool directory = monitor->isDirectoryAtURL();
        monitor->setBlock([&monitor, path, directory, name = command.name] {
            const quint64 size = directory ? qx_direcorySize(path) : qx_sizeOfFilesAtPaths({path});
            Qx::printLine(QStringLiteral("%1  %2 bytes  %3")
                              .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz")))
                              .arg(size)
                              .arg(qx_formatedSize(size)));
            // Follow the path: a save that replaced the file leaves the
            // monitor on the old one.
            monitor->stopMonitoring();
            if (!QFileInfo::exists(path)) {
                Qx::failure(name, QStringLiteral("%1 was removed").arg(path));
                QCoreApplication::exit(QxFailure);
                return;
            }
            monitor->startMonitoring();
        });
        monitor->startMonitoring();
        QTextStream(stderr) << "qx watch: watching " << path << "; press Ctrl-C to stop\n";
        const int status = QCoreApplication::exec();
        monitor.reset();
        ::signal(SIGINT, SIG_DFL);
        ::signal(SIGTERM, SIG_DFL);
        return status;
    };
    return command;
}

// Runs the event loop until `done` or for at most `msec`.
void waitFor(const std::function<bool()> &done, int msec)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < msec) {
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

void writeFile(const QString &path, const QByteArray &contents, QIODevice::OpenMode mode = QIODevice::Truncate)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | mode))
        file.write(contents);
}

void tour(QxTour &tour)
{
    const QString folder = QDir(tour.galleryDirectory()).filePath(QStringLiteral("files"));
    QDir(folder).removeRecursively();
    QDir().mkpath(folder + QStringLiteral("/drafts"));
    writeFile(folder + QStringLiteral("/Report.txt"), QByteArray(1200, 'r'));
    writeFile(folder + QStringLiteral("/Report 2.txt"), QByteArray(300, 'r'));
    writeFile(folder + QStringLiteral("/drafts/notes.md"), QByteArray(2500, 'n'));
    const auto shown = [&folder](const QString &path) { return QDir(folder).relativeFilePath(path); };

    tour.line(QStringLiteral("Free paths for new files in %1 (it holds Report.txt and Report 2.txt):").arg(folder));
    tour.example(QStringLiteral("qx_uniquePathForFile(\"Report.txt\", folder)"),
                 shown(qx_uniquePathForFile(QStringLiteral("Report.txt"), folder)));
    tour.example(QStringLiteral("qx_uniquePathForFile(\"Folder\", folder)"),
                 shown(qx_uniquePathForFile(QStringLiteral("Folder"), folder)));
    tour.example(QStringLiteral("qx_uniquePathForFile(\"Report.txt\", folder, hashFileName)"),
                 shown(qx_uniquePathForFile(QStringLiteral("Report.txt"), folder, true)));
    tour.example(QStringLiteral("qx_uniqueRandomPathForFileWithExtension(\"png\", folder)"),
                 shown(qx_uniqueRandomPathForFileWithExtension(QStringLiteral("png"), folder)));

    tour.line(QStringLiteral("Sizes: a tree counts every file beneath it, a list each item itself:"));
    tour.example(QStringLiteral("qx_direcorySize(folder)"), QString::number(qx_direcorySize(folder)));
    tour.example(QStringLiteral("qx_formatedSizeOfDirectory(folder)"), qx_formatedSizeOfDirectory(folder));
    tour.example(QStringLiteral("qx_formatedSizeOfFilesAtPaths({Report.txt, missing})"),
                 qx_formatedSizeOfFilesAtPaths({folder + QStringLiteral("/Report.txt"), folder + QStringLiteral("/missing")}));

    tour.line(QStringLiteral("Copy and move replace an existing destination only when asked, and atomically:"));
    QXError error;
    const bool refused = qx_copyItemAtPath(folder + QStringLiteral("/Report.txt"), folder + QStringLiteral("/Report 2.txt"),
                                           false, &error);
    tour.example(QStringLiteral("qx_copyItemAtPath(Report.txt, Report 2.txt, overwrite = false)"),
                 QStringLiteral("%1, error %2").arg(refused ? QStringLiteral("true") : QStringLiteral("false"),
                                                    error.isNull() ? QStringLiteral("none") : error.localizedDescription()));
    const bool copied = qx_copyItemAtPath(folder + QStringLiteral("/Report.txt"), folder + QStringLiteral("/Report 2.txt"),
                                          true, &error);
    tour.example(QStringLiteral("qx_copyItemAtPath(Report.txt, Report 2.txt, overwrite = true)"),
                 QStringLiteral("%1; Report 2.txt now holds %2 bytes")
                     .arg(copied ? QStringLiteral("true") : QStringLiteral("false"))
                     .arg(QFileInfo(folder + QStringLiteral("/Report 2.txt")).size()));
    const bool moved = qx_moveItemAtPath(folder + QStringLiteral("/missing"), folder + QStringLiteral("/x"), false, &error);
    tour.example(QStringLiteral("qx_moveItemAtPath(missing, x, overwrite = false)"),
                 QStringLiteral("%1: %2").arg(moved ? QStringLiteral("true") : QStringLiteral("false"),
                                             error.localizedDescription()));

    tour.line(QStringLiteral("Removal in the background, the completion on the main thread:"));
    bool removed = false;
    bool finished = false;
    qx_removeItemAtPathInBackground(folder + QStringLiteral("/drafts"), [&](bool success, const QXError &) {
        removed = success;
        finished = true;
    });
    waitFor([&] { return finished; }, 5000);
    tour.example(QStringLiteral("qx_removeItemAtPathInBackground(drafts)"),
                 QStringLiteral("completion: success %1; drafts exists: %2")
                     .arg(removed ? QStringLiteral("true") : QStringLiteral("false"),
                          QFileInfo::exists(folder + QStringLiteral("/drafts")) ? QStringLiteral("yes")
                                                                                 : QStringLiteral("no")));

    tour.line(QStringLiteral("A file monitor reports a change once the item has kept its size for a second:"));
    const QString log = folder + QStringLiteral("/build.log");
    writeFile(log, "start\n");
    QElapsedTimer clock;
    qint64 reportedAfter = -1;
    auto monitor = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(log), [&] { reportedAfter = clock.elapsed(); });
    monitor->startMonitoring();
    for (int i = 0; i < 3; ++i) {
        writeFile(log, "line\n", QIODevice::Append);
        clock.start();
        waitFor([] { return false; }, 200);
    }
    waitFor([&] { return reportedAfter >= 0; }, 5000);
    tour.example(QStringLiteral("three writes 200 ms apart to build.log"),
                 reportedAfter >= 0 ? QStringLiteral("one report, %1 ms after the last write, size %2 bytes")
                                          .arg(reportedAfter)
                                          .arg(QFileInfo(log).size())
                                    : QStringLiteral("no report within 5 s"));
}

} // namespace

void registerFilesCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(duCommand());
    commands.push_back(watchCommand());
    commands.push_back(uniquePathCommand());
    tourSections.push_back({QStringLiteral("File manager and file monitor"), tour});
}
