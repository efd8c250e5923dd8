#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXImageCache.h>
#include <QXFoundation/QXString.h>

#include "imagecache/QXDiskWalker_p.h"
#include "imagecache/QXMemoryCache_p.h"
#include "platform/QXPlatform_p.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 defaultMaxCacheAge = 604800; // 7 days

// Temporary files of atomic writes are hidden, so that no listing, lookup
// or expiry rule mistakes them for entries. Leftovers of a killed writer
// are removed by the expiry pass once they are clearly abandoned.
constexpr char partialFilePrefix[] = ".qx-partial-";
constexpr qint64 abandonedPartialFileAge = 600;

constexpr unsigned char kPNGSignatureBytes[8] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A};

QString appendingPathComponent(const QString &directory, const QString &component)
{
    if (directory.isEmpty())
        return component;
    if (directory.endsWith(QLatin1Char('/')))
        return directory + component;
    return directory + QLatin1Char('/') + component;
}

// Width x height in device-independent units, truncated toward zero.
quint64 imageCost(const QImage &image)
{
    const QSizeF size = image.deviceIndependentSize();
    const double area = size.width() * size.height();
    if (!(area > 0))
        return 0;
    if (area >= 18446744073709551615.0)
        return std::numeric_limits<quint64>::max();
    return quint64(area);
}

QByteArray encodeJpeg(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "JPEG"))
        return QByteArray();
    return bytes;
}

bool isAtOrBefore(const timespec &a, const timespec &b)
{
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec <= b.tv_nsec);
}

// A regular file's whole content; null when it cannot be opened or read,
// or is not a regular file (opening a FIFO must not block). An empty file
// gives an empty, non-null array.
QByteArray readRegularFile(const QByteArray &path)
{
    int fd = open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOATIME);
    if (fd < 0 && errno == EPERM) // O_NOATIME is for the file's owner only
        fd = open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return QByteArray();
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        return QByteArray();
    }
    QByteArray data(qMax<qsizetype>(qsizetype(status.st_size), 0) + 1, Qt::Uninitialized);
    qsizetype used = 0;
    for (;;) {
        if (used == data.size())
            data.resize(data.size() * 2);
        const ssize_t got = read(fd, data.data() + used, size_t(data.size() - used));
        if (got > 0) {
            used += got;
        } else if (got == 0) {
            break;
        } else if (errno != EINTR) {
            close(fd);
            return QByteArray();
        }
    }
    close(fd);
    if (used == 0)
        return QByteArray("", 0);
    data.truncate(used);
    return data;
}

bool writeAll(int fd, const QByteArray &bytes)
{
    const char *data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = write(fd, data, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += written;
        left -= written;
    }
    return true;
}

// Writes `bytes` to a hidden temporary file in `directory` and renames it
// to `fileName`, so the file is always either the old one or the complete
// new one. A missing directory is created first.
void writeFileAtomically(const QString &directory, const QString &fileName, const QByteArray &bytes)
{
    const QByteArray nativeDirectory = QFile::encodeName(directory);
    const QByteArray target = nativeDirectory + '/' + QFile::encodeName(fileName);
    QByteArray temporary;
    int fd = -1;
    bool createdDirectory = false;
    for (int attempt = 0; attempt < 8 && fd < 0; ++attempt) {
        temporary = nativeDirectory + '/' + partialFilePrefix + QFile::encodeName(fileName) + '-'
            + QByteArray::number(QRandomGenerator::global()->generate64(), 16);
        fd = open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno == EEXIST)
            continue;
        if (errno != ENOENT || createdDirectory)
            return;
        // The directory appears with the first write (or a wipe).
        QDir().mkpath(directory);
        createdDirectory = true;
    }
    if (fd < 0)
        return;
    const bool written = writeAll(fd, bytes);
    const bool closed = close(fd) == 0;
    if (!written || !closed || rename(temporary.constData(), target.constData()) != 0)
        unlink(temporary.constData());
}

} // namespace

struct QXImageCacheState
{
    explicit QXImageCacheState(const QString &cacheNamespace)
        : fullNamespace(QXPlatform::vendorPrefix() + QStringLiteral(".QXImageCache.") + cacheNamespace)
        , diskCachePath(appendingPathComponent(qx_cachesDirectoryPath(), fullNamespace))
        , nativeDiskCachePath(QFile::encodeName(diskCachePath))
        , memoryCache(fullNamespace)
        , queue(QXPlatform::vendorPrefix() + QStringLiteral(".QXImageCache"))
    {
    }

    static QString fileNameForKey(const QString &key) { return qx_md5Hash(key); }
    QString defaultPathForKey(const QString &key) const
    {
        return appendingPathComponent(diskCachePath, fileNameForKey(key));
    }

    void remember(const QString &key, const QImage &image) { memoryCache.setObject(key, image, imageCost(image)); }

    std::shared_ptr<const QStringList> readOnlyPaths() const
    {
        std::lock_guard lock(customPathsMutex);
        return customPaths;
    }

    QByteArray diskData(const QString &key) const
    {
        const QString fileName = fileNameForKey(key);
        QByteArray data = readRegularFile(QFile::encodeName(appendingPathComponent(diskCachePath, fileName)));
        if (!data.isNull())
            return data;
        const std::shared_ptr<const QStringList> directories = readOnlyPaths();
        for (const QString &directory : *directories) {
            data = readRegularFile(QFile::encodeName(appendingPathComponent(directory, fileName)));
            if (!data.isNull())
                return data;
        }
        return QByteArray();
    }

    QImage diskImage(const QString &key) const
    {
        const QByteArray data = diskData(key);
        return data.isEmpty() ? QImage() : QImage::fromData(data);
    }

    void removeExpiredFiles() const;
    quint64 totalLogicalSize() const;
    quint64 itemCount() const;
    void visibleCountAndSize(quint64 *fileCount, quint64 *totalSize) const;

    const QString fullNamespace;
    const QString diskCachePath;
    const QByteArray nativeDiskCachePath;
    QXMemoryCache<QString, QImage> memoryCache;
    std::atomic<qint64> maxCacheAge{defaultMaxCacheAge};
    std::atomic<quint64> maxCacheSize{0};
    // Locked, so that paths may be added while other threads already use
    // the cache. Readers take the current list; a change makes a new one,
    // so a list once published is never written again (appending in place
    // to a QStringList that another thread has just released is a race in
    // Qt's reference counting).
    mutable std::mutex customPathsMutex;
    std::shared_ptr<const QStringList> customPaths = std::make_shared<const QStringList>();
    // Last, so it is destroyed first: tasks it still runs see the other members.
    mutable QXDispatchQueue queue;
};

void QXImageCacheState::removeExpiredFiles() const
{
    struct KeptFile
    {
        QByteArray path;
        timespec modified;
        quint64 allocatedSize;
    };

    const qint64 maxAge = maxCacheAge.load(std::memory_order_relaxed);
    const quint64 sizeLimit = maxCacheSize.load(std::memory_order_relaxed);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    timespec expiration = now;
    if (__builtin_sub_overflow(qint64(now.tv_sec), maxAge, &expiration.tv_sec))
        expiration.tv_sec = maxAge > 0 ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
    const timespec partialExpiration{now.tv_sec - abandonedPartialFileAge, now.tv_nsec};

    std::vector<KeptFile> kept; // only needed for the size limit
    quint64 currentSize = 0;
    QXDiskWalker::Options options;
    options.statItems = true;
    // Hidden items are filtered here rather than by the walk, to see the
    // cache's own abandoned temporary files at the top level.
    QXDiskWalker::walk(nativeDiskCachePath, options, [&](const QXDiskWalker::Item &item) {
        if (item.name[0] == '.') {
            if (item.status && !item.isDirectory && item.depth == 0
                && std::strncmp(item.name, partialFilePrefix, sizeof(partialFilePrefix) - 1) == 0
                && isAtOrBefore(item.status->st_mtim, partialExpiration))
                unlinkat(item.directoryFd, item.name, 0);
            return false;
        }
        if (item.isDirectory)
            return true; // neither removed nor counted, but its files are looked at
        if (!item.status)
            return false; // no modification date: kept, and counts nothing
        // Removed as the walk meets them: the same files, in the same order,
        // as collecting them first, without keeping their paths.
        if (isAtOrBefore(item.status->st_mtim, expiration)) {
            unlinkat(item.directoryFd, item.name, 0);
            return false;
        }
        const quint64 allocated = quint64(item.status->st_blocks) * 512;
        currentSize += allocated;
        if (sizeLimit > 0)
            kept.push_back({item.directoryPath + '/' + item.name, item.status->st_mtim, allocated});
        return false;
    });

    if (sizeLimit == 0 || currentSize <= sizeLimit)
        return;
    // Cut to below half the limit, so the next passes have room to spare.
    const quint64 targetSize = sizeLimit / 2;
    std::stable_sort(kept.begin(), kept.end(), [](const KeptFile &a, const KeptFile &b) {
        return a.modified.tv_sec < b.modified.tv_sec
            || (a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec < b.modified.tv_nsec);
    });
    for (const KeptFile &file : kept) {
        if (unlink(file.path.constData()) != 0)
            continue; // still there, still counted
        currentSize -= file.allocatedSize;
        if (currentSize < targetSize)
            break;
    }
}

quint64 QXImageCacheState::totalLogicalSize() const
{
    quint64 size = 0;
    QXDiskWalker::Options options;
    options.statItems = true;
    QXDiskWalker::walk(nativeDiskCachePath, options, [&](const QXDiskWalker::Item &item) {
        if (item.status)
            size += quint64(item.status->st_size);
        return true;
    });
    return size;
}

quint64 QXImageCacheState::itemCount() const
{
    quint64 count = 0;
    QXDiskWalker::walk(nativeDiskCachePath, {}, [&](const QXDiskWalker::Item &) {
        ++count;
        return true;
    });
    return count;
}

void QXImageCacheState::visibleCountAndSize(quint64 *fileCount, quint64 *totalSize) const
{
    quint64 count = 0;
    quint64 size = 0;
    QXDiskWalker::Options options;
    options.skipHidden = true;
    options.statItems = true;
    QXDiskWalker::walk(nativeDiskCachePath, options, [&](const QXDiskWalker::Item &item) {
        ++count;
        if (item.status && !item.isDirectory)
            size += quint64(item.status->st_size);
        return true;
    });
    *fileCount = count;
    *totalSize = size;
}

QXImageCache &QXImageCache::sharedImageCache()
{
    static QXImageCache instance;
    return instance;
}

QXImageCache::QXImageCache()
    : QXImageCache(QStringLiteral("default"))
{
}

QXImageCache::QXImageCache(const QString &cacheNamespace)
    : d(std::make_shared<QXImageCacheState>(cacheNamespace))
{
}

// Pending tasks hold the state; it goes when the last of them has run.
QXImageCache::~QXImageCache() = default;

QString QXImageCache::diskCachePath() const
{
    return d->diskCachePath;
}

void QXImageCache::addReadOnlyCachePath(const QString &path)
{
    if (path.isNull())
        return;
    std::lock_guard lock(d->customPathsMutex);
    if (d->customPaths->contains(path))
        return;
    QStringList paths;
    paths.reserve(d->customPaths->size() + 1);
    paths << *d->customPaths << path;
    d->customPaths = std::make_shared<const QStringList>(std::move(paths));
}

QStringList QXImageCache::customPaths() const
{
    return *d->readOnlyPaths();
}

qint64 QXImageCache::maxCacheAge() const
{
    return d->maxCacheAge.load(std::memory_order_relaxed);
}

void QXImageCache::setMaxCacheAge(qint64 seconds)
{
    d->maxCacheAge.store(seconds, std::memory_order_relaxed);
}

quint64 QXImageCache::maxMemoryCost() const
{
    return d->memoryCache.totalCostLimit();
}

void QXImageCache::setMaxMemoryCost(quint64 cost)
{
    d->memoryCache.setTotalCostLimit(cost);
}

quint64 QXImageCache::maxCacheSize() const
{
    return d->maxCacheSize.load(std::memory_order_relaxed);
}

void QXImageCache::setMaxCacheSize(quint64 bytes)
{
    d->maxCacheSize.store(bytes, std::memory_order_relaxed);
}

void QXImageCache::storeImage(const QImage &image, const QString &key)
{
    storeImage(image, true, QByteArray(), key, true);
}

void QXImageCache::storeImage(const QImage &image, const QString &key, bool toDisk)
{
    storeImage(image, true, QByteArray(), key, toDisk);
}

void QXImageCache::storeImage(const QImage &image, bool recalculateFromImage, const QByteArray &imageData,
                              const QString &key, bool toDisk)
{
    if (image.isNull() || key.isNull())
        return;
    d->remember(key, image);
    if (!toDisk)
        return;
    d->queue.async([state = d, image, recalculateFromImage, imageData, key] {
        QByteArray bytes = imageData;
        if (bytes.isNull() || recalculateFromImage)
            bytes = encodeJpeg(image);
        if (bytes.isNull())
            return;
        writeFileAtomically(state->diskCachePath, QXImageCacheState::fileNameForKey(key), bytes);
    });
}

QXCancellationToken QXImageCache::queryDiskCacheForKey(const QString &key, const QueryDone &done)
{
    if (!done)
        return QXCancellationToken();
    if (key.isNull()) {
        done(QImage(), QXImageCacheTypeNone);
        return QXCancellationToken();
    }
    if (const std::optional<QImage> image = d->memoryCache.object(key)) {
        done(*image, QXImageCacheTypeMemory);
        return QXCancellationToken();
    }
    const QXCancellationToken token = QXCancellationToken::create();
    d->queue.async([state = d, key, done, token] {
        if (token.isCancelled())
            return;
        QImage image = state->diskImage(key);
        if (!image.isNull())
            state->remember(key, image);
        QXDispatch::mainAsync([done, image = std::move(image)] { done(image, QXImageCacheTypeDisk); });
    });
    return token;
}

QImage QXImageCache::imageFromMemoryCacheForKey(const QString &key) const
{
    return d->memoryCache.object(key).value_or(QImage());
}

QImage QXImageCache::imageFromDiskCacheForKey(const QString &key)
{
    if (key.isNull())
        return QImage();
    if (const std::optional<QImage> image = d->memoryCache.object(key))
        return *image;
    const QImage image = d->diskImage(key);
    if (!image.isNull())
        d->remember(key, image);
    return image;
}

bool QXImageCache::diskImageExistsWithKey(const QString &key) const
{
    struct stat status;
    return stat(QFile::encodeName(d->defaultPathForKey(key)).constData(), &status) == 0;
}

void QXImageCache::diskImageExistsWithKey(const QString &key, ExistsCompletion completion)
{
    // Without a completion nobody can learn the answer: nothing to queue.
    if (!completion)
        return;
    d->queue.async([path = QFile::encodeName(d->defaultPathForKey(key)), completion = std::move(completion)] {
        struct stat status;
        const bool exists = stat(path.constData(), &status) == 0;
        QXDispatch::mainAsync([completion, exists] { completion(exists); });
    });
}

void QXImageCache::removeImageForKey(const QString &key, bool fromDisk, Completion completion)
{
    if (key.isNull())
        return;
    d->memoryCache.removeObject(key);
    if (!fromDisk) {
        if (completion)
            completion();
        return;
    }
    d->queue.async([path = QFile::encodeName(d->defaultPathForKey(key)), completion = std::move(completion)] {
        QXDiskWalker::removeTree(path);
        if (completion)
            QXDispatch::mainAsync(completion);
    });
}

void QXImageCache::wipeMemoryCache()
{
    d->memoryCache.removeAllObjects();
}

QString QXImageCache::cachedFileNameForKey(const QString &key) const
{
    return QXImageCacheState::fileNameForKey(key);
}

QString QXImageCache::cachePathForKey(const QString &key, const QString &inPath) const
{
    return appendingPathComponent(inPath, QXImageCacheState::fileNameForKey(key));
}

QString QXImageCache::defaultCachePathForKey(const QString &key) const
{
    return d->defaultPathForKey(key);
}

QByteArray QXImageCache::diskImageDataBySearchingAllPathsForKey(const QString &key) const
{
    return d->diskData(key);
}

QImage QXImageCache::diskImageForKey(const QString &key) const
{
    return d->diskImage(key);
}

void QXImageCache::wipeDiskCache()
{
    wipeDiskCacheOnCompletion(Completion());
}

void QXImageCache::wipeDiskCacheOnCompletion(Completion completion)
{
    d->queue.async([state = d, completion = std::move(completion)] {
        QXDiskWalker::removeTree(state->nativeDiskCachePath);
        QDir().mkpath(state->diskCachePath);
        if (completion)
            QXDispatch::mainAsync(completion);
    });
}

void QXImageCache::removeExpiredImagesFromDisk()
{
    removeExpiredImagesFromDiskWithCompletionBlock(Completion());
}

void QXImageCache::removeExpiredImagesFromDiskWithCompletionBlock(Completion completion)
{
    d->queue.async([state = d, completion = std::move(completion)] {
        state->removeExpiredFiles();
        if (completion)
            QXDispatch::mainAsync(completion);
    });
}

quint64 QXImageCache::getSize() const
{
    quint64 size = 0;
    d->queue.sync([state = d.get(), &size] { size = state->totalLogicalSize(); });
    return size;
}

quint64 QXImageCache::getDiskCount() const
{
    quint64 count = 0;
    d->queue.sync([state = d.get(), &count] { count = state->itemCount(); });
    return count;
}

void QXImageCache::calculateSizeWithCompletionBlock(SizeCompletion completion)
{
    d->queue.async([state = d, completion = std::move(completion)] {
        quint64 fileCount = 0;
        quint64 totalSize = 0;
        state->visibleCountAndSize(&fileCount, &totalSize);
        if (completion)
            QXDispatch::mainAsync([completion, fileCount, totalSize] { completion(fileCount, totalSize); });
    });
}

QXDispatchQueue &QXImageCache::queue() const
{
    return d->queue;
}

QImage QXImageCacheScaledImageForKey(const QString &key, const QImage &image)
{
    Q_UNUSED(key);
    return image;
}

bool QXImageDataHasPNGPreffix(const QByteArray &data)
{
    return data.size() >= qsizetype(sizeof(kPNGSignatureBytes))
        && std::memcmp(data.constData(), kPNGSignatureBytes, sizeof(kPNGSignatureBytes)) == 0;
}
