// The file monitor's latency: from the last write of a burst to the call of
// its block, minus the one-second settle time.
//
//   bench_files_monitor DIR [TRIALS]

#include <QXFoundation/QXFileMonitor.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

void spin(int msec)
{
    QEventLoop loop;
    QTimer::singleShot(msec, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: bench_files_monitor DIR [TRIALS]\n");
        return 2;
    }
    const QString path = QDir(arguments.at(1)).filePath(QStringLiteral("monitored.log"));
    const int trials = arguments.size() > 2 ? arguments.at(2).toInt() : 20;
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return 1;
    }
    QElapsedTimer clock;
    clock.start();
    qint64 reportedAt = -1;
    auto monitor = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(path), [&] { reportedAt = clock.nsecsElapsed(); });
    monitor->startMonitoring();

    std::vector<double> latencies;
    for (int trial = 0; trial < trials; ++trial) {
        reportedAt = -1;
        qint64 lastWrite = 0;
        for (int i = 0; i < 3; ++i) {
            QFile file(path);
            if (!file.open(QIODevice::Append) || file.write(QByteArray(256, 'w')) != 256)
                return 1;
            file.close();
            lastWrite = clock.nsecsElapsed();
            if (i < 2)
                spin(20);
        }
        QElapsedTimer timeout;
        timeout.start();
        while (reportedAt < 0 && timeout.elapsed() < 5000) {
            QEventLoop loop;
            loop.processEvents(QEventLoop::WaitForMoreEvents, 50);
        }
        if (reportedAt < 0) {
            std::fprintf(stderr, "trial %d: no report within 5 s\n", trial);
            return 1;
        }
        latencies.push_back(double(reportedAt - lastWrite) / 1e6 - 1000.0);
        spin(50);
    }
    std::vector<double> sorted = latencies;
    std::sort(sorted.begin(), sorted.end());
    const auto at = [&sorted](double q) { return sorted[size_t(q * double(sorted.size() - 1) + 0.5)]; };
    double sum = 0;
    for (double l : sorted)
        sum += l;
    std::printf("file monitor latency over %d trials (last write to block, minus the 1000 ms settle time):\n", trials);
    std::printf("  median %.2f ms  mean %.2f ms  min %.2f ms  p90 %.2f ms  max %.2f ms (goal: median under 50 ms)\n",
                at(0.5), sum / double(sorted.size()), sorted.front(), at(0.9), sorted.back());
    return 0;
}
