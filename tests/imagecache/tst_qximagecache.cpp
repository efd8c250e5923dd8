#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXImageCache.h>

#include <QtTest>

#include "ChildProcess.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <thread>

#include <sys/stat.h>

namespace {

// Reaches the cache's queue, to hold it while a test sets up what the
// queue will find when it runs.
class TestCache : public QXImageCache
{
public:
    using QXImageCache::QXImageCache;
    using QXImageCache::queue;

    // Holds the queue until the returned gate is opened.
    std::shared_ptr<QSemaphore> holdQueue()
    {
        auto gate = std::make_shared<QSemaphore>();
        queue().async([gate] { gate->acquire(); });
        return gate;
    }
};

QImage filledImage(int width, int height, QRgb colour)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

QByteArray encoded(const QImage &image, const char *format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

QByteArray fileContents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Waits on the main thread until everything queued on `cache` so far has run
// and its main-thread callbacks before this one have been delivered.
bool drain(QXImageCache &cache)
{
    bool done = false;
    cache.diskImageExistsWithKey(QStringLiteral("drain"), [&](bool) { done = true; });
    return QTest::qWaitFor([&] { return done; }, 10000);
}

} // namespace

class tst_QXImageCache : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void namesPathsAndSharedInstance();
    void storeWritesJpegOrTheCallersBytes();
    void memoryCostsAndLimit();
    void queryDeliveryRules();
    void disksWorkRunsInSubmissionOrder();
    void removalAndExistence();
    void readOnlyPathsAreSearchedNeverChanged();
    void cancelledQueryNeverAnswers();
    void pendingWorkOutlivesTheCache();
    void pngSignatureAndScaledImage();
    void killedWriterLeavesNoTornFile();
    void concurrentUseFromEightThreads();

private:
    QTemporaryDir m_home;
};

void tst_QXImageCache::initTestCase()
{
    QVERIFY(m_home.isValid());
    // Suites run in parallel with one HOME: each gets its own caches directory.
    qputenv("XDG_CACHE_HOME", QFile::encodeName(m_home.path()));
}

void tst_QXImageCache::namesPathsAndSharedInstance()
{
    TestCache cache(QStringLiteral("names"));
    QCOMPARE(cache.diskCachePath(), m_home.path() + QStringLiteral("/org.qxfoundation.QXImageCache.names"));
    QCOMPARE(cache.queue().label(), QStringLiteral("org.qxfoundation.QXImageCache"));
    QVERIFY(!QFileInfo::exists(cache.diskCachePath())); // created by the first write only

    QCOMPARE(cache.cachedFileNameForKey(QStringLiteral("avatar-42")), QStringLiteral("018d16023be51c8939fc73a793564140"));
    QCOMPARE(cache.cachedFileNameForKey(QString()), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    QCOMPARE(cache.cachedFileNameForKey(QStringLiteral("")), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    const QString unicodeKey = QStringLiteral("https://example.org/bild-ä€😀.png?w=1");
    QCOMPARE(cache.cachedFileNameForKey(unicodeKey),
             QString::fromLatin1(QCryptographicHash::hash(unicodeKey.toUtf8(), QCryptographicHash::Md5).toHex()));
    QCOMPARE(cache.defaultCachePathForKey(QStringLiteral("avatar-42")),
             cache.diskCachePath() + QStringLiteral("/018d16023be51c8939fc73a793564140"));
    QCOMPARE(cache.cachePathForKey(QStringLiteral("avatar-42"), QStringLiteral("/srv/images/")),
             QStringLiteral("/srv/images/018d16023be51c8939fc73a793564140"));
    QCOMPARE(cache.cachePathForKey(QStringLiteral("avatar-42"), QStringLiteral("/srv/images")),
             QStringLiteral("/srv/images/018d16023be51c8939fc73a793564140"));

    QCOMPARE(cache.maxCacheAge(), qint64(604800));
    QCOMPARE(cache.maxCacheSize(), quint64(0));
    QCOMPARE(cache.maxMemoryCost(), quint64(0));

    QXImageCache &shared = QXImageCache::sharedImageCache();
    QCOMPARE(&QXImageCache::sharedImageCache(), &shared);
    QCOMPARE(shared.diskCachePath(), m_home.path() + QStringLiteral("/org.qxfoundation.QXImageCache.default"));
    QCOMPARE(QXImageCache().diskCachePath(), shared.diskCachePath());

    // Namespaces separate both levels.
    QXImageCache a(QStringLiteral("a"));
    QXImageCache b(QStringLiteral("b"));
    const QImage red = filledImage(4, 4, qRgb(255, 0, 0));
    a.storeImage(red, QStringLiteral("k"));
    QVERIFY(!a.imageFromMemoryCacheForKey(QStringLiteral("k")).isNull());
    QVERIFY(b.imageFromMemoryCacheForKey(QStringLiteral("k")).isNull());
    QCOMPARE(a.getDiskCount(), quint64(1));
    QCOMPARE(b.getDiskCount(), quint64(0));
    QVERIFY(b.imageFromDiskCacheForKey(QStringLiteral("k")).isNull());
    QVERIFY(a.diskCachePath() != b.diskCachePath());
}

void tst_QXImageCache::storeWritesJpegOrTheCallersBytes()
{
    TestCache cache(QStringLiteral("store"));
    const QImage image = filledImage(32, 16, qRgb(10, 200, 30));
    const QByteArray png = encoded(image, "PNG");
    const QImage fromPng = QImage::fromData(png);
    const QString key = QStringLiteral("picture");
    const QString path = cache.defaultCachePathForKey(key);

    // In memory at once; on disk once the queue has run the write.
    std::shared_ptr<QSemaphore> gate = cache.holdQueue();
    cache.storeImage(fromPng, key);
    QCOMPARE(cache.imageFromMemoryCacheForKey(key), fromPng);
    QVERIFY(!QFileInfo::exists(path));
    gate->release();
    QCOMPARE(cache.getDiskCount(), quint64(1));
    const QByteArray jpeg = fileContents(path);
    QVERIFY(jpeg.startsWith("\xFF\xD8\xFF")); // re-encoded, although the image came from PNG bytes
    QVERIFY(!QXImageDataHasPNGPreffix(jpeg));
    QCOMPARE(QImage::fromData(jpeg).size(), image.size());

    // The caller's own bytes, unchanged, only with recalculate off.
    cache.storeImage(fromPng, false, png, key, true);
    cache.getSize();
    QCOMPARE(fileContents(path), png);
    cache.storeImage(fromPng, true, png, key, true);
    cache.getSize();
    QVERIFY(fileContents(path).startsWith("\xFF\xD8\xFF"));
    const QByteArray notAnImage("plain bytes, stored as given");
    cache.storeImage(fromPng, false, notAnImage, key, true);
    cache.getSize();
    QCOMPARE(fileContents(path), notAnImage);
    cache.wipeMemoryCache();
    QVERIFY(cache.imageFromDiskCacheForKey(key).isNull()); // bytes that do not decode: no image
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), notAnImage);

    // Nothing at all without an image or a key; memory only without toDisk.
    cache.storeImage(QImage(), false, png, QStringLiteral("no-image"), true);
    cache.storeImage(image, QString());
    cache.storeImage(image, QStringLiteral("memory-only"), false);
    QCOMPARE(cache.getDiskCount(), quint64(1));
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("no-image")).isNull());
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("memory-only")).isNull());
    QVERIFY(!cache.diskImageExistsWithKey(QStringLiteral("memory-only")));

    // The empty key is a key like any other.
    cache.storeImage(image, QStringLiteral(""));
    QCOMPARE(cache.getDiskCount(), quint64(2));
    QVERIFY(QFileInfo::exists(cache.diskCachePath() + QStringLiteral("/d41d8cd98f00b204e9800998ecf8427e")));

    // The written file is a normal file with the default permissions, and
    // reading it does not touch its modification time.
    struct stat before;
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &before), 0);
    QVERIFY(S_ISREG(before.st_mode));
    const mode_t mask = umask(0);
    umask(mask);
    QCOMPARE(uint(before.st_mode & 0777), uint(0666 & ~mask));
    cache.storeImage(fromPng, false, png, key, true);
    cache.getSize();
    const QDateTime old = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch() - 3 * 86400, QTimeZone::utc());
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.setFileTime(old, QFileDevice::FileModificationTime));
    }
    cache.wipeMemoryCache();
    QVERIFY(!cache.imageFromDiskCacheForKey(key).isNull());
    cache.wipeMemoryCache();
    QImage queried;
    cache.queryDiskCacheForKey(key, [&](const QImage &found, QXImageCacheType) { queried = found; });
    QTRY_VERIFY(!queried.isNull());
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), png);
    QCOMPARE(QFileInfo(path).lastModified().toUTC(), old);
}

void tst_QXImageCache::memoryCostsAndLimit()
{
    QXImageCache cache(QStringLiteral("costs"));
    const QImage wide = filledImage(100, 50, qRgb(1, 2, 3)); // cost 5000
    QImage retina = filledImage(21, 21, qRgb(4, 5, 6));     // 10.5 x 10.5 points: cost 110
    retina.setDevicePixelRatio(2.0);

    cache.setMaxMemoryCost(5000);
    QCOMPARE(cache.maxMemoryCost(), quint64(5000));
    cache.storeImage(wide, QStringLiteral("wide"), false);
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("wide")).isNull());
    cache.setMaxMemoryCost(4999); // lowering the limit evicts what no longer fits
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("wide")).isNull());
    cache.storeImage(wide, QStringLiteral("wide"), false); // too costly on its own: not kept
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("wide")).isNull());

    cache.setMaxMemoryCost(110);
    cache.storeImage(retina, QStringLiteral("retina"), false);
    QCOMPARE(cache.imageFromMemoryCacheForKey(QStringLiteral("retina")).devicePixelRatio(), 2.0);
    cache.setMaxMemoryCost(109);
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("retina")).isNull());

    // Least recently used goes first.
    cache.setMaxMemoryCost(10000);
    cache.storeImage(wide, QStringLiteral("first"), false);
    cache.storeImage(wide, QStringLiteral("second"), false);
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("first")).isNull()); // now the most recent
    cache.storeImage(retina, QStringLiteral("third"), false);
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("first")).isNull());
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("second")).isNull());
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("third")).isNull());

    // 0 means no limit, even for costs beyond what a signed 64-bit count holds.
    cache.setMaxMemoryCost(0);
    QImage huge = filledImage(100, 100, qRgb(7, 8, 9));
    huge.setDevicePixelRatio(1e-9); // 1e11 x 1e11 points
    for (int i = 0; i < 100; ++i)
        cache.storeImage(huge, QStringLiteral("huge%1").arg(i), false);
    for (int i = 0; i < 100; ++i)
        QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("huge%1").arg(i)).isNull());
    cache.setMaxMemoryCost(quint64(1) << 63 | 5);
    QCOMPARE(cache.maxMemoryCost(), quint64(1) << 63 | 5);
    cache.storeImage(huge, QStringLiteral("over"), false);
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("over")).isNull());

    cache.wipeMemoryCache();
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("first")).isNull());
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("huge0")).isNull());
}

void tst_QXImageCache::queryDeliveryRules()
{
    TestCache cache(QStringLiteral("query"));
    const QImage image = filledImage(8, 8, qRgb(0, 0, 255));
    const QString key = QStringLiteral("blue");

    // No callback: nothing happens.
    QVERIFY(cache.queryDiskCacheForKey(key, {}).isNull());

    // No key and memory hits answer before the call returns.
    int calls = 0;
    QXImageCacheType type = QXImageCacheType(-1);
    QImage answer;
    auto record = [&](const QImage &found, QXImageCacheType cacheType) {
        ++calls;
        answer = found;
        type = cacheType;
        QVERIFY(QXDispatch::isMainThread());
    };
    QVERIFY(cache.queryDiskCacheForKey(QString(), record).isNull());
    QCOMPARE(calls, 1);
    QCOMPARE(type, QXImageCacheTypeNone);
    QVERIFY(answer.isNull());

    cache.storeImage(image, key);
    QVERIFY(cache.queryDiskCacheForKey(key, record).isNull());
    QCOMPARE(calls, 2);
    QCOMPARE(type, QXImageCacheTypeMemory);
    QCOMPARE(answer, image);

    // A disk lookup answers on a later turn of the main loop, even when
    // asked from the main thread, and fills the memory cache.
    cache.wipeMemoryCache();
    const QXCancellationToken token = cache.queryDiskCacheForKey(key, record);
    QVERIFY(!token.isNull());
    QVERIFY(!token.isCancelled());
    cache.getSize(); // the read has run ...
    QCOMPARE(calls, 2); // ... but the answer waits for the event loop
    QTRY_COMPARE(calls, 3);
    QCOMPARE(type, QXImageCacheTypeDisk);
    QCOMPARE(answer.size(), image.size());
    QVERIFY(!cache.imageFromMemoryCacheForKey(key).isNull());

    // A key that is nowhere: a null image from the disk lookup.
    QVERIFY(!cache.queryDiskCacheForKey(QStringLiteral("missing"), record).isNull());
    QTRY_COMPARE(calls, 4);
    QCOMPARE(type, QXImageCacheTypeDisk);
    QVERIFY(answer.isNull());

    // From another thread: memory hits answer on that thread, disk
    // lookups on the main thread.
    cache.wipeMemoryCache();
    std::thread::id memoryAnswerThread;
    std::thread::id diskAnswerThread;
    std::thread worker([&] {
        cache.storeImage(image, QStringLiteral("in-memory"), false);
        cache.queryDiskCacheForKey(QStringLiteral("in-memory"), [&](const QImage &, QXImageCacheType) {
            memoryAnswerThread = std::this_thread::get_id();
        });
        cache.queryDiskCacheForKey(key, [&](const QImage &, QXImageCacheType) { diskAnswerThread = std::this_thread::get_id(); });
    });
    const std::thread::id workerId = worker.get_id();
    worker.join();
    QVERIFY(memoryAnswerThread == workerId);
    QTRY_VERIFY(diskAnswerThread == std::this_thread::get_id());

    // The synchronous lookup reads the disk on the calling thread and remembers.
    cache.wipeMemoryCache();
    QCOMPARE(cache.imageFromDiskCacheForKey(key).size(), image.size());
    QVERIFY(!cache.imageFromMemoryCacheForKey(key).isNull());
    QVERIFY(cache.imageFromDiskCacheForKey(QString()).isNull());

    // Blocking calls from inside a callback are fine: the queue never waits for the main thread.
    cache.wipeMemoryCache();
    quint64 countInside = 0;
    cache.queryDiskCacheForKey(key, [&](const QImage &, QXImageCacheType) { countInside = cache.getDiskCount() + 1; });
    QTRY_COMPARE(countInside, quint64(2));
}

void tst_QXImageCache::disksWorkRunsInSubmissionOrder()
{
    QXImageCache cache(QStringLiteral("order"));
    const QImage image = filledImage(8, 8, qRgb(9, 9, 9));
    QStringList events;

    // A burst of stores, then each key's query, removal and test: each
    // step sees what the one before it did, and the callbacks come back
    // in the order the work was queued.
    for (int i = 0; i < 20; ++i)
        cache.storeImage(image, QStringLiteral("k%1").arg(i));
    cache.wipeMemoryCache();
    for (int i = 0; i < 20; ++i) {
        const QString key = QStringLiteral("k%1").arg(i);
        cache.queryDiskCacheForKey(key, [&, i](const QImage &found, QXImageCacheType) {
            events << QStringLiteral("query %1 %2").arg(i).arg(found.isNull() ? QLatin1String("miss") : QLatin1String("hit"));
        });
        cache.removeImageForKey(key, [&, i] { events << QStringLiteral("removed %1").arg(i); });
        cache.diskImageExistsWithKey(key, [&, i](bool exists) {
            events << QStringLiteral("exists %1 %2").arg(i).arg(exists ? QLatin1String("yes") : QLatin1String("no"));
        });
    }
    cache.calculateSizeWithCompletionBlock([&](quint64 count, quint64 size) {
        events << QStringLiteral("size %1 %2").arg(count).arg(size);
    });
    QTRY_COMPARE(events.size(), 61);
    QStringList expected;
    for (int i = 0; i < 20; ++i)
        expected << QStringLiteral("query %1 hit").arg(i) << QStringLiteral("removed %1").arg(i)
                 << QStringLiteral("exists %1 no").arg(i);
    expected << QStringLiteral("size 0 0");
    QCOMPARE(events, expected);

    // The blocking measures wait for earlier work.
    for (int i = 0; i < 10; ++i)
        cache.storeImage(image, QStringLiteral("again%1").arg(i));
    QCOMPARE(cache.getDiskCount(), quint64(10));
    quint64 expectedSize = 0;
    for (const QFileInfo &info : QDir(cache.diskCachePath()).entryInfoList(QDir::Files))
        expectedSize += quint64(info.size());
    QVERIFY(expectedSize > 0);
    QCOMPARE(cache.getSize(), expectedSize);
}

void tst_QXImageCache::removalAndExistence()
{
    TestCache cache(QStringLiteral("removal"));
    const QImage image = filledImage(8, 8, qRgb(50, 60, 70));
    const QString key = QStringLiteral("gone");
    cache.storeImage(image, key);
    QVERIFY(cache.getDiskCount() == 1 && cache.diskImageExistsWithKey(key));

    // Memory goes at once, the file on the queue, the callback after it on the main thread.
    std::shared_ptr<QSemaphore> gate = cache.holdQueue();
    int removed = 0;
    cache.removeImageForKey(key, [&] {
        ++removed;
        QVERIFY(QXDispatch::isMainThread());
    });
    QVERIFY(cache.imageFromMemoryCacheForKey(key).isNull());
    QVERIFY(cache.diskImageExistsWithKey(key));
    bool existsAnswer = true;
    cache.diskImageExistsWithKey(key, [&](bool exists) { existsAnswer = exists; });
    gate->release();
    QTRY_COMPARE(removed, 1);
    QVERIFY(!cache.diskImageExistsWithKey(key));
    QTRY_VERIFY(!existsAnswer);

    // Memory only: the callback runs before the call returns and the file stays.
    cache.storeImage(image, key);
    cache.getSize();
    cache.removeImageForKey(key, false, [&] { ++removed; });
    QCOMPARE(removed, 2);
    QVERIFY(cache.imageFromMemoryCacheForKey(key).isNull());
    QVERIFY(cache.diskImageExistsWithKey(key));
    cache.removeImageForKey(key);
    QCOMPARE(cache.getDiskCount(), quint64(0));

    // No key: nothing happens, and the callback is never called.
    cache.removeImageForKey(QString(), [&] { ++removed; });
    cache.removeImageForKey(QString(), false, [&] { ++removed; });
    QVERIFY(drain(cache));
    QCOMPARE(removed, 2);

    // Existence counts any item at the key's path; a directory there is
    // no image, and removal takes it away too.
    QVERIFY(QDir().mkpath(cache.defaultCachePathForKey(QStringLiteral("dir")) + QStringLiteral("/inner")));
    QVERIFY(cache.diskImageExistsWithKey(QStringLiteral("dir")));
    QVERIFY(cache.diskImageDataBySearchingAllPathsForKey(QStringLiteral("dir")).isNull());
    cache.removeImageForKey(QStringLiteral("dir"));
    QCOMPARE(cache.getDiskCount(), quint64(0));
}

void tst_QXImageCache::readOnlyPathsAreSearchedNeverChanged()
{
    QXImageCache cache(QStringLiteral("readonly"));
    QTemporaryDir first;
    QTemporaryDir second;
    const QString key = QStringLiteral("bundled");
    const QImage green = filledImage(6, 3, qRgb(0, 255, 0));
    const QByteArray png = encoded(green, "PNG");
    const QString bundledPath = cache.cachePathForKey(key, second.path());
    QVERIFY(writeFile(bundledPath, png));

    QVERIFY(cache.customPaths().isEmpty());
    cache.addReadOnlyCachePath(first.path());
    cache.addReadOnlyCachePath(second.path());
    cache.addReadOnlyCachePath(first.path());
    QCOMPARE(cache.customPaths(), QStringList({first.path(), second.path()}));

    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), png);
    QVERIFY(!cache.diskImageExistsWithKey(key)); // only the cache's own directory counts
    QCOMPARE(cache.imageFromDiskCacheForKey(key).convertToFormat(QImage::Format_RGB32), green);
    QVERIFY(!cache.imageFromMemoryCacheForKey(key).isNull());

    // An earlier directory wins; the cache's own file wins over all.
    const QByteArray firstBytes = encoded(filledImage(2, 2, qRgb(1, 1, 1)), "PNG");
    QVERIFY(writeFile(cache.cachePathForKey(key, first.path()), firstBytes));
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), firstBytes);
    cache.storeImage(green, false, QByteArray("own"), key, true);
    cache.getSize();
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), QByteArray("own"));

    // Removal and maintenance leave the read-only files alone.
    bool removed = false;
    cache.removeImageForKey(key, [&] { removed = true; });
    QTRY_VERIFY(removed);
    cache.setMaxCacheAge(0);
    cache.removeExpiredImagesFromDisk();
    cache.wipeDiskCache();
    QCOMPARE(cache.getDiskCount(), quint64(0));
    QCOMPARE(fileContents(bundledPath), png);
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), firstBytes);

    // What cannot be read as a regular file counts as absent; an empty file is read (as no image).
    QVERIFY(QFile::remove(cache.cachePathForKey(key, first.path())));
    QVERIFY(QDir().mkdir(cache.cachePathForKey(key, first.path())));
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), png);
    QVERIFY(::mkfifo(QFile::encodeName(cache.defaultCachePathForKey(key)).constData(), 0600) == 0);
    QCOMPARE(cache.diskImageDataBySearchingAllPathsForKey(key), png); // and does not block
    QVERIFY(QFile::remove(cache.defaultCachePathForKey(key)));
    QVERIFY(writeFile(cache.defaultCachePathForKey(key), QByteArray()));
    const QByteArray empty = cache.diskImageDataBySearchingAllPathsForKey(key);
    QVERIFY(!empty.isNull() && empty.isEmpty());
    cache.wipeMemoryCache();
    QVERIFY(cache.diskImageForKey(key).isNull());
}

void tst_QXImageCache::cancelledQueryNeverAnswers()
{
    TestCache cache(QStringLiteral("cancel"));
    const QImage image = filledImage(8, 8, qRgb(90, 0, 90));
    cache.storeImage(image, QStringLiteral("a"));
    cache.storeImage(image, QStringLiteral("b"));
    cache.wipeMemoryCache();

    std::shared_ptr<QSemaphore> gate = cache.holdQueue();
    QStringList answered;
    const QXCancellationToken first = cache.queryDiskCacheForKey(QStringLiteral("a"), [&](const QImage &, QXImageCacheType) {
        answered << QStringLiteral("a");
    });
    const QXCancellationToken second = cache.queryDiskCacheForKey(QStringLiteral("b"), [&](const QImage &, QXImageCacheType) {
        answered << QStringLiteral("b");
    });
    QVERIFY(!(first == second));
    QXCancellationToken copy = first;
    copy.cancel(); // copies share the flag
    QVERIFY(first.isCancelled());
    QVERIFY(!second.isCancelled());
    gate->release();
    QVERIFY(drain(cache));
    QCOMPARE(answered, QStringList{QStringLiteral("b")});
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("a")).isNull()); // never read
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("b")).isNull());

    // Cancelling once the lookup has run changes nothing; null tokens are inert.
    second.cancel();
    QCOMPARE(answered.size(), 1);
    QXCancellationToken none;
    none.cancel();
    QVERIFY(!none.isCancelled() && !none);
}

void tst_QXImageCache::pendingWorkOutlivesTheCache()
{
    const QImage image = filledImage(8, 8, qRgb(3, 30, 130));
    auto cache = std::make_unique<TestCache>(QStringLiteral("lifetime"));
    const QString directory = cache->diskCachePath();
    const QString path = cache->defaultCachePathForKey(QStringLiteral("late"));
    std::shared_ptr<QSemaphore> gate = cache->holdQueue();
    QStringList delivered;
    cache->storeImage(image, QStringLiteral("late"));
    cache->storeImage(image, QStringLiteral("later"));
    cache->wipeMemoryCache();
    cache->queryDiskCacheForKey(QStringLiteral("late"), [&](const QImage &found, QXImageCacheType) {
        delivered << (found.isNull() ? QStringLiteral("miss") : QStringLiteral("hit"));
    });
    cache->removeImageForKey(QStringLiteral("later"), [&] { delivered << QStringLiteral("removed"); });
    cache->calculateSizeWithCompletionBlock([&](quint64 count, quint64) { delivered << QString::number(count); });
    cache->removeExpiredImagesFromDiskWithCompletionBlock([&] { delivered << QStringLiteral("expired"); });
    cache.reset(); // destroyed with all of that still queued
    gate->release();
    QTRY_COMPARE(delivered, QStringList({QStringLiteral("hit"), QStringLiteral("removed"), QStringLiteral("1"),
                                         QStringLiteral("expired")}));
    QVERIFY(QFileInfo(path).isFile());
    QVERIFY(QDir(directory).removeRecursively());
}

void tst_QXImageCache::pngSignatureAndScaledImage()
{
    const QByteArray signature("\x89PNG\r\n\x1a\n", 8);
    QVERIFY(QXImageDataHasPNGPreffix(signature));
    QVERIFY(QXImageDataHasPNGPreffix(signature + QByteArray("IHDR rest of a file")));
    QVERIFY(QXImageDataHasPNGPreffix(encoded(filledImage(2, 2, qRgb(0, 0, 0)), "PNG")));
    QVERIFY(!QXImageDataHasPNGPreffix(signature.left(7)));
    QVERIFY(!QXImageDataHasPNGPreffix(QByteArray()));
    QByteArray almost = signature;
    almost[7] = '\x0b';
    QVERIFY(!QXImageDataHasPNGPreffix(almost));
    QVERIFY(!QXImageDataHasPNGPreffix(encoded(filledImage(2, 2, qRgb(0, 0, 0)), "JPEG")));

    const QImage image = filledImage(3, 3, qRgb(1, 2, 3));
    const QImage same = QXImageCacheScaledImageForKey(QStringLiteral("any"), image);
    QCOMPARE(same.constBits(), image.constBits()); // the very image, not a copy
    QVERIFY(QXImageCacheScaledImageForKey(QString(), QImage()).isNull());
}

// Run by the kill test in a child process: stores large files under 12
// keys as fast as it can until it is killed. Prints the MD5 of every file content it may
// write, then "ready" once the first files are on disk.
static int runWriteBurst(const QString &cacheHome, const QString &keyPrefix)
{
    qputenv("XDG_CACHE_HOME", QFile::encodeName(cacheHome));
    QXImageCache cache(QStringLiteral("burst"));
    QList<QByteArray> blobs;
    QTextStream out(stdout);
    for (int variant = 0; variant < 4; ++variant) {
        QImage noise(600, 600, QImage::Format_RGB32);
        QRandomGenerator generator(quint32(variant + 1));
        for (int y = 0; y < noise.height(); ++y) {
            auto *line = reinterpret_cast<QRgb *>(noise.scanLine(y));
            for (int x = 0; x < noise.width(); ++x)
                line[x] = generator.generate() | 0xff000000u;
        }
        blobs << encoded(noise, "JPEG");
        out << QCryptographicHash::hash(blobs.last(), QCryptographicHash::Md5).toHex() << '\n';
    }
    const QImage small = filledImage(4, 4, qRgb(0, 0, 0));
    for (quint64 i = 0;; ++i) {
        cache.storeImage(small, false, blobs.at(qsizetype(i % 4)), keyPrefix + QString::number(i % 12), true);
        if (i % 4 == 3) {
            cache.getDiskCount(); // keeps the queue short
            if (i == 3) {
                out << "ready\n";
                out.flush();
            }
        }
    }
}

void tst_QXImageCache::killedWriterLeavesNoTornFile()
{
    QTemporaryDir home;
    const QString directory = home.path() + QStringLiteral("/org.qxfoundation.QXImageCache.burst");
    QSet<QByteArray> complete;
    for (int round = 0; round < 5; ++round) {
        ChildProcess child;
        // Keys of their own in every round, so that no round repairs what an earlier one broke.
        QVERIFY(child.start(QCoreApplication::applicationFilePath(),
                            {QStringLiteral("--write-burst"), home.path(), QStringLiteral("round%1-").arg(round)}));
        const QByteArray output = child.readUntil("ready\n", 20000);
        QVERIFY2(output.contains("ready\n"), "the writer did not start writing");
        QTest::qSleep(20 + QRandomGenerator::global()->bounded(150));
        child.kill(SIGKILL);
        QCOMPARE(child.waitForExit(), -1);
        for (const QByteArray &line : output.split('\n'))
            if (line.size() == 32)
                complete.insert(line);
    }
    QCOMPARE(complete.size(), 4);

    const QFileInfoList files = QDir(directory).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    int entries = 0;
    for (const QFileInfo &info : files) {
        if (info.fileName().startsWith(QLatin1Char('.'))) {
            QVERIFY2(info.fileName().startsWith(QStringLiteral(".qx-partial-")), qPrintable(info.fileName()));
            continue;
        }
        ++entries;
        const QByteArray bytes = fileContents(info.filePath());
        QVERIFY2(complete.contains(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex()),
                 qPrintable(QStringLiteral("%1 is torn (%2 bytes)").arg(info.fileName()).arg(bytes.size())));
        QVERIFY(!QImage::fromData(bytes).isNull());
    }
    QVERIFY(entries > 0);
}

void tst_QXImageCache::concurrentUseFromEightThreads()
{
    TestCache cache(QStringLiteral("threads"));
    cache.setMaxMemoryCost(64 * 64 * 6);
    cache.setMaxCacheSize(48 * 1024);
    std::atomic<int> expected{0};
    std::atomic<int> delivered{0};
    std::atomic<int> offMainThread{0};
    std::atomic<int> running{8};
    auto arrived = [&] {
        if (!QXDispatch::isMainThread())
            ++offMainThread;
        ++delivered;
    };
    // std::thread rather than QThread: ThreadSanitizer sees a join, not
    // QThread::wait() inside the uninstrumented Qt library.
    std::vector<std::thread> threads;
    QDeadlineTimer deadline(1500);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            QRandomGenerator random(quint32(t + 1));
            const QImage image = filledImage(64, 64, qRgb(t * 30, 0, 0));
            while (!deadline.hasExpired()) {
                const QString key = QStringLiteral("k%1").arg(random.bounded(24));
                switch (random.bounded(12)) {
                case 0:
                case 1: cache.storeImage(image, key); break;
                case 2: cache.storeImage(image, key, false); break;
                case 3:
                    // A memory hit answers on this thread at once and returns no token.
                    if (!cache.queryDiskCacheForKey(key, [&](const QImage &, QXImageCacheType type) {
                                  if (type != QXImageCacheTypeMemory)
                                      arrived();
                              }).isNull())
                        ++expected;
                    break;
                case 4: cache.imageFromDiskCacheForKey(key); break;
                case 5:
                    ++expected;
                    cache.removeImageForKey(key, [&] { arrived(); });
                    break;
                case 6:
                    ++expected;
                    cache.diskImageExistsWithKey(key, [&](bool) { arrived(); });
                    break;
                case 7:
                    ++expected;
                    cache.removeExpiredImagesFromDiskWithCompletionBlock([&] { arrived(); });
                    break;
                case 8:
                    ++expected;
                    cache.calculateSizeWithCompletionBlock([&](quint64, quint64) { arrived(); });
                    break;
                case 9: cache.getSize(); cache.getDiskCount(); break;
                case 10: random.bounded(8) == 0 ? cache.wipeMemoryCache() : cache.addReadOnlyCachePath(key); break;
                case 11:
                    if (random.bounded(16) == 0) {
                        ++expected;
                        cache.wipeDiskCacheOnCompletion([&] { arrived(); });
                    } else {
                        // A second instance on the same directory, gone with work pending.
                        QXImageCache sibling(QStringLiteral("threads"));
                        sibling.storeImage(image, key);
                        ++expected;
                        sibling.removeImageForKey(QStringLiteral("k0"), [&] { arrived(); });
                    }
                    break;
                }
            }
            --running;
        });
    }
    QTRY_COMPARE_WITH_TIMEOUT(running.load(), 0, 60000); // delivering callbacks meanwhile
    for (std::thread &thread : threads)
        thread.join();
    QVERIFY(expected.load() > 100);
    QTRY_COMPARE_WITH_TIMEOUT(delivered.load(), expected.load(), 30000);
    QCOMPARE(offMainThread.load(), 0);
    QVERIFY(drain(cache));
    QCOMPARE(delivered.load(), expected.load()); // nothing delivered twice either

    // Still consistent afterwards: every file left decodes, a store round-trips.
    for (const QFileInfo &info : QDir(cache.diskCachePath()).entryInfoList(QDir::Files))
        QVERIFY(!QImage::fromData(fileContents(info.filePath())).isNull());
    cache.storeImage(filledImage(5, 5, qRgb(1, 1, 1)), QStringLiteral("final"));
    cache.wipeMemoryCache();
    QImage found;
    cache.queryDiskCacheForKey(QStringLiteral("final"), [&](const QImage &image, QXImageCacheType) { found = image; });
    QTRY_COMPARE(found.size(), QSize(5, 5));
}

int main(int argc, char **argv)
{
    if (argc == 4 && qstrcmp(argv[1], "--write-burst") == 0) {
        QCoreApplication app(argc, argv);
        return runWriteBurst(QFile::decodeName(argv[2]), QString::fromUtf8(argv[3]));
    }
    QCoreApplication app(argc, argv);
    tst_QXImageCache test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_qximagecache.moc"
