// Commands and tour of the image cache: what a cache directory holds, the
// expiry pass and the wipe.

#include "QxCommand.h"

#include <QXFoundation/QXImageCache.h>
#include <QXFoundation/QXNumberFormatter.h>

#include <QBuffer>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QMap>
#include <QPainter>

namespace {

struct CacheOptions
{
    QString cacheNamespace = QStringLiteral("default");
    qint64 maxAge = 604800;
    quint64 maxSize = 0;
};

// Parses [--namespace NS] and, where allowed, [--max-age SECONDS] [--max-size BYTES].
bool parseOptions(const QStringList &arguments, bool allowLimits, CacheOptions *options, QString *error)
{
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &option = arguments.at(i);
        const bool known = option == QLatin1String("--namespace")
            || (allowLimits && (option == QLatin1String("--max-age") || option == QLatin1String("--max-size")));
        if (!known) {
            *error = QStringLiteral("unexpected argument '%1'").arg(option);
            return false;
        }
        if (i + 1 >= arguments.size()) {
            *error = QStringLiteral("%1 needs a value").arg(option);
            return false;
        }
        const QString value = arguments.at(++i);
        bool ok = true;
        if (option == QLatin1String("--namespace"))
            options->cacheNamespace = value;
        else if (option == QLatin1String("--max-age"))
            options->maxAge = value.toLongLong(&ok, 10);
        else
            options->maxSize = value.toULongLong(&ok, 10);
        if (!ok || value.startsWith(QLatin1Char('+'))) {
            *error = QStringLiteral("'%1' is not a valid value for %2").arg(value, option);
            return false;
        }
    }
    return true;
}

QString sizeText(quint64 bytes)
{
    return QStringLiteral("%1 bytes (%2)").arg(bytes).arg(qx_formatedFileSize(qx_fileSizeFormatter(), bytes));
}

QString fileCount(qsizetype count)
{
    return count == 1 ? QStringLiteral("1 file") : QStringLiteral("%1 files").arg(count);
}

// Every file under `directory` (hidden ones included) with its size, by relative path.
QMap<QString, qint64> filesIn(const QString &directory)
{
    QMap<QString, qint64> files;
    const QDir base(directory);
    QDirIterator it(directory, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        files.insert(base.relativeFilePath(it.filePath()), it.fileInfo().size());
    }
    return files;
}

// Runs `start` and spins the event loop until its completion arrives on the main thread.
void runAndWait(const std::function<void(const QXImageCache::Completion &)> &start)
{
    QEventLoop loop;
    start([&loop] { loop.quit(); });
    loop.exec();
}

int info(const QxCommand &command, const QStringList &arguments)
{
    CacheOptions options;
    QString error;
    if (!parseOptions(arguments, false, &options, &error))
        return Qx::usageError(command, error);
    const QXImageCache cache(options.cacheNamespace);
    Qx::printLine(QStringLiteral("directory: ") + cache.diskCachePath());
    Qx::printLine(QStringLiteral("files: %1").arg(cache.getDiskCount()));
    Qx::printLine(QStringLiteral("size: ") + sizeText(cache.getSize()));
    return QxSuccess;
}

int clean(const QxCommand &command, const QStringList &arguments)
{
    CacheOptions options;
    QString error;
    if (!parseOptions(arguments, true, &options, &error))
        return Qx::usageError(command, error);
    QXImageCache cache(options.cacheNamespace);
    cache.setMaxCacheAge(options.maxAge);
    cache.setMaxCacheSize(options.maxSize);
    // The pass reports nothing itself: what it removed is what is gone afterwards.
    const QMap<QString, qint64> before = filesIn(cache.diskCachePath());
    runAndWait([&](const QXImageCache::Completion &done) { cache.removeExpiredImagesFromDiskWithCompletionBlock(done); });
    const QMap<QString, qint64> after = filesIn(cache.diskCachePath());
    quint64 removedBytes = 0;
    int removedFiles = 0;
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (after.contains(it.key()))
            continue;
        Qx::printLine(QStringLiteral("removed %1 (%2 bytes)").arg(it.key()).arg(it.value()));
        removedBytes += quint64(it.value());
        ++removedFiles;
    }
    Qx::printLine(QStringLiteral("removed %1, %2; %3 left in %4")
                      .arg(fileCount(removedFiles), sizeText(removedBytes), fileCount(after.size()),
                           cache.diskCachePath()));
    return QxSuccess;
}

int wipe(const QxCommand &command, const QStringList &arguments)
{
    CacheOptions options;
    QString error;
    if (!parseOptions(arguments, false, &options, &error))
        return Qx::usageError(command, error);
    QXImageCache cache(options.cacheNamespace);
    const quint64 items = cache.getDiskCount();
    const quint64 size = cache.getSize();
    runAndWait([&](const QXImageCache::Completion &done) { cache.wipeDiskCacheOnCompletion(done); });
    if (!QFileInfo(cache.diskCachePath()).isDir())
        return Qx::failure(command.name, QStringLiteral("cannot create %1").arg(cache.diskCachePath()));
    Qx::printLine(QStringLiteral("wiped %1: %2 items, %3").arg(cache.diskCachePath()).arg(items).arg(sizeText(size)));
    return QxSuccess;
}

QxCommand cacheCommand()
{
    QxCommand command;
    command.name = QStringLiteral("cache");
    command.synopsis = QStringLiteral(
        "cache info [--namespace NS]\n"
        "cache clean [--namespace NS] [--max-age SECONDS] [--max-size BYTES]\n"
        "cache wipe [--namespace NS]");
    command.help = QStringLiteral(
        "Works on the disk directory of the image cache with namespace NS (default \"default\"):\n"
        "$XDG_CACHE_HOME (or ~/.cache) / org.qxfoundation.QXImageCache.NS.\n"
        "info:  the directory, the number of items in it (subdirectories and hidden files included)\n"
        "       and their size in bytes and as text.\n"
        "clean: the expiry pass: removes files older than SECONDS (default 604800, 7 days); then, if\n"
        "       BYTES is given (default 0, no limit) and the files take more blocks on disk than that,\n"
        "       removes the oldest until they take less than half. Hidden files stay. Prints each\n"
        "       file it removed.\n"
        "wipe:  removes everything in the directory and leaves it empty.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        const QString &action = arguments.first();
        const QStringList rest = arguments.mid(1);
        if (action == QLatin1String("info"))
            return info(command, rest);
        if (action == QLatin1String("clean"))
            return clean(command, rest);
        if (action == QLatin1String("wipe"))
            return wipe(command, rest);
        return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(action));
    };
    return command;
}

QImage tourImage()
{
    QImage image(160, 90, QImage::Format_RGB32);
    image.fill(QColor(30, 60, 120));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(QColor(250, 190, 40));
    painter.setPen(Qt::NoPen);
    painter.drawEllipse(QPointF(80, 45), 30, 30);
    return image;
}

void tour(QxTour &tour)
{
    QXImageCache cache(QStringLiteral("qx-tour"));
    const QString key = QStringLiteral("avatar-42");
    tour.line(QStringLiteral("Two levels: decoded images in memory, encoded files on disk named by the key's MD5."));
    tour.example(QStringLiteral("diskCachePath() of namespace \"qx-tour\""), cache.diskCachePath());
    tour.example(QStringLiteral("cachedFileNameForKey(\"avatar-42\")"), cache.cachedFileNameForKey(key));

    const QImage image = tourImage();
    cache.storeImage(image, key);
    tour.example(QStringLiteral("storeImage(160x90 image, \"avatar-42\"); imageFromMemoryCacheForKey"),
                 cache.imageFromMemoryCacheForKey(key).isNull() ? QStringLiteral("null") : QStringLiteral("found at once"));
    tour.example(QStringLiteral("getDiskCount(), getSize() (wait for the queued JPEG write)"),
                 QStringLiteral("%1 file, %2").arg(cache.getDiskCount()).arg(sizeText(cache.getSize())));

    cache.wipeMemoryCache();
    QString answer;
    QElapsedTimer timer;
    timer.start();
    runAndWait([&](const QXImageCache::Completion &done) {
        cache.queryDiskCacheForKey(key, [&, done](const QImage &found, QXImageCacheType type) {
            answer = QStringLiteral("%1x%2 image, type %3 (disk), on the main thread after %4 µs")
                         .arg(found.width())
                         .arg(found.height())
                         .arg(int(type))
                         .arg(timer.nsecsElapsed() / 1000);
            done();
        });
    });
    tour.example(QStringLiteral("wipeMemoryCache(); queryDiskCacheForKey(\"avatar-42\", done)"), answer);
    cache.queryDiskCacheForKey(key, [&](const QImage &, QXImageCacheType type) {
        answer = QStringLiteral("type %1 (memory), before the call returned").arg(int(type));
    });
    tour.example(QStringLiteral("queryDiskCacheForKey again"), answer);

    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    tour.example(QStringLiteral("QXImageDataHasPNGPreffix(PNG bytes), (the file on disk)"),
                 QStringLiteral("%1, %2")
                     .arg(QXImageDataHasPNGPreffix(png) ? QLatin1String("true") : QLatin1String("false"),
                          QXImageDataHasPNGPreffix(cache.diskImageDataBySearchingAllPathsForKey(key))
                              ? QLatin1String("true")
                              : QLatin1String("false")));

    cache.setMaxCacheAge(0);
    runAndWait([&](const QXImageCache::Completion &done) { cache.removeExpiredImagesFromDiskWithCompletionBlock(done); });
    tour.example(QStringLiteral("setMaxCacheAge(0); removeExpiredImagesFromDisk(); getDiskCount()"),
                 QString::number(cache.getDiskCount()));
    runAndWait([&](const QXImageCache::Completion &done) { cache.wipeDiskCacheOnCompletion(done); });
    QDir().rmdir(cache.diskCachePath()); // the tour leaves nothing behind
}

} // namespace

void registerImageCacheCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(cacheCommand());
    tourSections.push_back({QStringLiteral("Image cache"), tour});
}
