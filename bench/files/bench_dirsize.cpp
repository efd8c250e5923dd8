// qx_direcorySize against du -sb (and a QDirIterator walk) on a large tree.
//
//   bench_files_dirsize DIR [FILES]
//
// Creates FILES files (default 100,000; sizes 0-1023 bytes) under DIR when
// DIR does not exist yet, then times each walk with a warm cache.

#include <QXFoundation/QXFileManager.h>

#include "QxBench.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>

#include <cstdio>

namespace {

quint64 makeTree(const QString &root, int files)
{
    quint64 total = 0;
    QRandomGenerator random(2024);
    const int perDirectory = 500;
    for (int i = 0; i < files; ++i) {
        const int directory = i / perDirectory;
        const QString folder = QStringLiteral("%1/d%2/e%3").arg(root).arg(directory / 10).arg(directory % 10);
        if (i % perDirectory == 0)
            QDir().mkpath(folder);
        QFile file(QStringLiteral("%1/f%2.bin").arg(folder).arg(i));
        const int size = int(random.bounded(1024));
        if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray(size, 'x')) != size) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(file.fileName()));
            std::exit(1);
        }
        total += quint64(size);
    }
    return total;
}

quint64 iteratorSize(const QString &root)
{
    quint64 total = 0;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        total += quint64(it.fileInfo().size());
    }
    return total;
}

quint64 duSize(const QString &root)
{
    QProcess du;
    du.start(QStringLiteral("du"), {QStringLiteral("-sb"), root});
    if (!du.waitForFinished(120000) || du.exitCode() != 0) {
        std::fprintf(stderr, "du -sb failed\n");
        std::exit(1);
    }
    return du.readAllStandardOutput().split('\t').value(0).toULongLong();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: bench_files_dirsize DIR [FILES]\n");
        return 2;
    }
    const QString root = arguments.at(1);
    const int files = arguments.size() > 2 ? arguments.at(2).toInt() : 100000;
    if (!QFileInfo::exists(root)) {
        std::printf("creating %d files under %s ...\n", files, qPrintable(root));
        std::fflush(stdout);
        makeTree(root, files);
    }

    quint64 ours = 0, iterated = 0, du = 0;
    // Warm the caches once for all three.
    ours = qx_direcorySize(root);
    iterated = iteratorSize(root);
    du = duSize(root);
    const int repeats = 5;
    const double oursSeconds = QxBench::bestOf(repeats, [&] { ours = qx_direcorySize(root); });
    const double iteratorSeconds = QxBench::bestOf(repeats, [&] { iterated = iteratorSize(root); });
    const double duSeconds = QxBench::bestOf(repeats, [&] { du = duSize(root); });

    std::printf("directory size of %d files (best of %d, warm cache):\n", files, repeats);
    std::printf("  qx_direcorySize        %8.1f ms  %llu bytes\n", oursSeconds * 1e3, (unsigned long long)ours);
    std::printf("  QDirIterator walk      %8.1f ms  %llu bytes\n", iteratorSeconds * 1e3, (unsigned long long)iterated);
    std::printf("  du -sb (reference)     %8.1f ms  %llu bytes (directories' own blocks included)\n",
                duSeconds * 1e3, (unsigned long long)du);
    std::printf("  qx_direcorySize / du -sb = %.2fx (goal: at most 1.5x)\n", oursSeconds / duSeconds);
    if (ours != iterated) {
        std::fprintf(stderr, "totals differ: %llu vs %llu\n", (unsigned long long)ours, (unsigned long long)iterated);
        return 1;
    }
    return 0;
}
