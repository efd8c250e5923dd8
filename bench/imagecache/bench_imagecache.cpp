// Image cache: memory hit latency, store and query throughput of 64 KiB
// JPEG files, and the expiry pass and getSize() over 100,000 small files,
// next to `find -mmin -delete` and `du -sb` on the same directory.
//
//   bench_imagecache SCRATCH_DIR [FILES]

#include "QxBench.h"

#include <QXFoundation/QXImageCache.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

double percentile(std::vector<double> values, double fraction)
{
    std::sort(values.begin(), values.end());
    return values[size_t(fraction * double(values.size() - 1))];
}

// Per-hit latency in nanoseconds, measured over batches of 100 hits.
std::vector<double> memoryHitLatencies(const QXImageCache &cache, const QString &key, int batches)
{
    std::vector<double> perHit;
    perHit.reserve(size_t(batches));
    for (int b = 0; b < batches; ++b) {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 100; ++i)
            QxBench::keep(cache.imageFromMemoryCacheForKey(key));
        perHit.push_back(double(timer.nsecsElapsed()) / 100.0);
    }
    return perHit;
}

QByteArray jpegOfAbout(qsizetype bytes)
{
    // Noise compresses badly: grow a noise image until its JPEG reaches the size.
    for (int side = 64;; side += 4) {
        QImage image(side, side, QImage::Format_RGB32);
        QRandomGenerator generator(7);
        for (int y = 0; y < side; ++y) {
            auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
            for (int x = 0; x < side; ++x)
                line[x] = generator.generate() | 0xff000000u;
        }
        QByteArray jpeg;
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPEG");
        if (jpeg.size() >= bytes)
            return jpeg;
    }
}

void waitFor(const std::function<void(const QXImageCache::Completion &)> &start)
{
    QEventLoop loop;
    start([&loop] { loop.quit(); });
    loop.exec();
}

// `count` one-hundred-byte files in `directory`; every other one last
// modified two hours ago, the rest now.
void makeSmallFiles(const QString &directory, int count)
{
    QDir().mkpath(directory);
    const QByteArray base = QFile::encodeName(directory) + '/';
    const QByteArray content(100, 'x');
    const time_t old = time(nullptr) - 7200;
    for (int i = 0; i < count; ++i) {
        const QByteArray path = base + QByteArray::number(quint64(i) * 2654435761u % 4294967291u, 16);
        const int fd = open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || write(fd, content.constData(), size_t(content.size())) != content.size()) {
            std::fprintf(stderr, "cannot create %s\n", path.constData());
            std::exit(1);
        }
        close(fd);
        if (i % 2 == 0) {
            const timespec times[2] = {{0, UTIME_OMIT}, {old, 0}};
            utimensat(AT_FDCWD, path.constData(), times, 0);
        }
    }
    sync();
}

double timeCommand(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
{
    QProcess process;
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    process.waitForFinished(-1);
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program), process.readAllStandardError().constData());
        std::exit(1);
    }
    if (output)
        *output = process.readAllStandardOutput();
    return seconds;
}

quint64 countFiles(const QString &directory)
{
    return quint64(QDir(directory).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot).size());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: bench_imagecache SCRATCH_DIR [FILES]\n");
        return 2;
    }
    const QString scratch = QDir(arguments.at(1)).absolutePath();
    const int smallFiles = arguments.size() > 2 ? arguments.at(2).toInt() : 100000;
    qputenv("XDG_CACHE_HOME", QFile::encodeName(scratch));

    // --- Memory hits ---------------------------------------------------------
    {
        QXImageCache cache(QStringLiteral("bench-memory"));
        QImage image(256, 256, QImage::Format_RGB32);
        image.fill(Qt::darkCyan);
        for (int i = 0; i < 1000; ++i)
            cache.storeImage(image, QStringLiteral("https://example.org/avatars/%1.jpg").arg(i), false);
        const QString key = QStringLiteral("https://example.org/avatars/500.jpg");
        memoryHitLatencies(cache, key, 1000); // warm up
        const std::vector<double> one = memoryHitLatencies(cache, key, 20000);
        std::printf("memory hit, 1 thread:   median %.0f ns, p99 %.0f ns (batches of 100 hits, 1000 entries)\n",
                    percentile(one, 0.5), percentile(one, 0.99));
        std::vector<double> other;
        QThread *second = QThread::create([&] { other = memoryHitLatencies(cache, key, 20000); });
        second->start();
        const std::vector<double> contended = memoryHitLatencies(cache, key, 20000);
        second->wait();
        delete second;
        std::printf("memory hit, 2 threads:  median %.0f ns, p99 %.0f ns (the same key from both)\n",
                    percentile(contended, 0.5), percentile(contended, 0.99));
    }

    // --- Store and query of 64 KiB JPEG files --------------------------------
    {
        const QByteArray jpeg = jpegOfAbout(64 * 1024);
        const QImage image = QImage::fromData(jpeg);
        const int count = 2000;
        QXImageCache cache(QStringLiteral("bench-files"));
        cache.wipeDiskCache();
        cache.getDiskCount();
        QStringList keys;
        for (int i = 0; i < count; ++i)
            keys << QStringLiteral("https://example.org/photos/%1.jpg").arg(i);

        double seconds = QxBench::bestOf(3, [&] {
            for (const QString &key : std::as_const(keys))
                cache.storeImage(image, false, jpeg, key, true);
            cache.getDiskCount(); // waits for the queued writes
        });
        std::printf("store, own bytes:       %.0f files/s, %.0f MiB/s (%d files of %lld bytes, atomic rename)\n",
                    count / seconds, QxBench::mibPerSecond(double(count) * double(jpeg.size()), seconds), count,
                    qlonglong(jpeg.size()));

        const QByteArray directory = QFile::encodeName(cache.diskCachePath()) + '/';
        const double plain = QxBench::bestOf(3, [&] {
            for (const QString &key : std::as_const(keys)) {
                const QByteArray path = directory + QFile::encodeName(cache.cachedFileNameForKey(key));
                const int fd = open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
                QxBench::keep(write(fd, jpeg.constData(), size_t(jpeg.size())));
                close(fd);
            }
        });
        std::printf("  reference: open/write/close in place: %.0f files/s (%.2fx the cache's time)\n",
                    count / plain, seconds / plain);

        const int encodeCount = 300;
        seconds = QxBench::bestOf(2, [&] {
            for (int i = 0; i < encodeCount; ++i)
                cache.storeImage(image, keys.at(i));
            cache.getDiskCount();
        });
        std::printf("store, JPEG encoding:   %.0f images/s (%dx%d pixels)\n", encodeCount / seconds, image.width(),
                    image.height());
        for (int i = 0; i < encodeCount; ++i)
            cache.storeImage(image, false, jpeg, keys.at(i), true);

        seconds = QxBench::bestOf(3, [&] {
            cache.wipeMemoryCache();
            int answered = 0;
            QEventLoop loop;
            for (const QString &key : std::as_const(keys)) {
                cache.queryDiskCacheForKey(key, [&](const QImage &found, QXImageCacheType) {
                    if (found.isNull()) {
                        std::fprintf(stderr, "query missed\n");
                        std::exit(1);
                    }
                    if (++answered == count)
                        loop.quit();
                });
            }
            loop.exec();
        });
        std::printf("query from disk:        %.0f images/s, %.0f MiB/s of files (read + decode + main-thread delivery)\n",
                    count / seconds, QxBench::mibPerSecond(double(count) * double(jpeg.size()), seconds));
        seconds = QxBench::bestOf(3, [&] {
            for (const QString &key : std::as_const(keys))
                QxBench::keep(cache.diskImageDataBySearchingAllPathsForKey(key));
        });
        std::printf("  of which reading:     %.0f files/s, %.0f MiB/s\n", count / seconds,
                    QxBench::mibPerSecond(double(count) * double(jpeg.size()), seconds));
        cache.wipeDiskCache();
        cache.getDiskCount();
        QDir(cache.diskCachePath()).removeRecursively();
    }

    // --- Expiry pass and getSize over many small files ------------------------
    {
        QXImageCache cache(QStringLiteral("bench-expiry"));
        cache.setMaxCacheAge(3600); // the older half expires
        const QString directory = cache.diskCachePath();
        const QString findDirectory = scratch + QStringLiteral("/find-reference");
        const int rounds = 3;
        std::vector<double> ours, theirs;
        for (int round = 0; round < rounds; ++round) {
            QDir(directory).removeRecursively();
            QDir(findDirectory).removeRecursively();
            makeSmallFiles(directory, smallFiles);
            makeSmallFiles(findDirectory, smallFiles);
            // Alternate who goes first, so neither always meets a warmer cache.
            auto runOurs = [&] {
                QElapsedTimer timer;
                timer.start();
                waitFor([&](const QXImageCache::Completion &done) { cache.removeExpiredImagesFromDiskWithCompletionBlock(done); });
                ours.push_back(double(timer.nsecsElapsed()) / 1e9);
            };
            auto runFind = [&] {
                theirs.push_back(timeCommand(QStringLiteral("find"), {findDirectory, QStringLiteral("-type"), QStringLiteral("f"),
                                                                      QStringLiteral("-mmin"), QStringLiteral("+60"),
                                                                      QStringLiteral("-delete")}));
            };
            if (round % 2 == 0) {
                runOurs();
                runFind();
            } else {
                runFind();
                runOurs();
            }
            if (countFiles(directory) != quint64(smallFiles / 2) || countFiles(findDirectory) != quint64(smallFiles / 2)) {
                std::fprintf(stderr, "expiry removed %llu, find removed %llu, expected %d each\n",
                             smallFiles - countFiles(directory), smallFiles - countFiles(findDirectory), smallFiles / 2);
                return 1;
            }
        }
        const double best = *std::min_element(ours.begin(), ours.end());
        const double reference = *std::min_element(theirs.begin(), theirs.end());
        std::printf("expiry pass:            %.1f ms for %d files, half expired (best of %d)\n", best * 1e3, smallFiles,
                    rounds);
        std::printf("  reference: find DIR -type f -mmin +60 -delete: %.1f ms -> %.2fx the reference (goal <= 1.5x)\n",
                    reference * 1e3, best / reference);

        // Only what is kept: a pure scan, nothing to delete.
        ours.clear();
        theirs.clear();
        for (int round = 0; round < 5; ++round) {
            QElapsedTimer timer;
            timer.start();
            waitFor([&](const QXImageCache::Completion &done) { cache.removeExpiredImagesFromDiskWithCompletionBlock(done); });
            ours.push_back(double(timer.nsecsElapsed()) / 1e9);
            theirs.push_back(timeCommand(QStringLiteral("find"), {findDirectory, QStringLiteral("-type"), QStringLiteral("f"),
                                                                  QStringLiteral("-mmin"), QStringLiteral("+60"),
                                                                  QStringLiteral("-delete")}));
        }
        std::printf("expiry pass, none due:  %.1f ms for %d files; find: %.1f ms -> %.2fx\n",
                    *std::min_element(ours.begin(), ours.end()) * 1e3, smallFiles / 2,
                    *std::min_element(theirs.begin(), theirs.end()) * 1e3,
                    *std::min_element(ours.begin(), ours.end()) / *std::min_element(theirs.begin(), theirs.end()));

        // getSize over the full set.
        QDir(directory).removeRecursively();
        makeSmallFiles(directory, smallFiles);
        quint64 size = 0;
        const double sizeSeconds = QxBench::bestOf(5, [&] { size = cache.getSize(); });
        QByteArray duOutput;
        double duSeconds = 1e9;
        for (int i = 0; i < 5; ++i)
            duSeconds = std::min(duSeconds, timeCommand(QStringLiteral("du"), {QStringLiteral("-sb"), directory}, &duOutput));
        struct stat root;
        stat(QFile::encodeName(directory).constData(), &root);
        const quint64 duBytes = duOutput.split('\t').first().toULongLong();
        std::printf("getSize:                %.1f ms for %d files (%llu bytes)\n", sizeSeconds * 1e3, smallFiles,
                    static_cast<unsigned long long>(size));
        std::printf("  reference: du -sb DIR: %.1f ms -> %.2fx the reference (goal <= 1.5x); du says %llu bytes with the directory itself\n",
                    duSeconds * 1e3, sizeSeconds / duSeconds, static_cast<unsigned long long>(duBytes));
        if (duBytes != size + quint64(root.st_size)) {
            std::fprintf(stderr, "getSize disagrees with du\n");
            return 1;
        }
        const double countSeconds = QxBench::bestOf(5, [&] { QxBench::keep(cache.getDiskCount()); });
        std::printf("getDiskCount:           %.1f ms for %d files\n", countSeconds * 1e3, smallFiles);
        QDir(directory).removeRecursively();
        QDir(findDirectory).removeRecursively();
    }
    return 0;
}
