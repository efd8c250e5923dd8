#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXImageCache.h>

#include <QtTest>

#include "ChildProcess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 day = 86400;

// Sets the modification time to `secondsAgo` before now (negative: in the future).
bool setAge(const QString &path, qint64 secondsAgo)
{
    timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time_t(QDateTime::currentSecsSinceEpoch() - secondsAgo);
    times[1].tv_nsec = 0;
    return utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

// Creates `path` (and its directory) with `bytes`, last modified `secondsAgo` before now.
bool makeFile(const QString &path, qint64 secondsAgo, const QByteArray &bytes = QByteArray("x"))
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return false;
    file.close();
    return setAge(path, secondsAgo);
}

// Every item under `directory`, hidden ones included, as sorted relative paths.
QStringList listing(const QString &directory)
{
    QStringList items;
    QDirIterator it(directory, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        items << QDir(directory).relativeFilePath(it.next());
    items.sort();
    return items;
}

quint64 logicalSize(const QString &path)
{
    struct stat status;
    return lstat(QFile::encodeName(path).constData(), &status) == 0 ? quint64(status.st_size) : 0;
}

bool runExpiryPass(QXImageCache &cache)
{
    bool done = false;
    cache.removeExpiredImagesFromDiskWithCompletionBlock([&] {
        QVERIFY(QXDispatch::isMainThread());
        done = true;
    });
    return QTest::qWaitFor([&] { return done; }, 10000);
}

struct SizeAnswer
{
    quint64 count = 0;
    quint64 size = 0;
    bool arrived = false;
};

SizeAnswer calculateSize(QXImageCache &cache)
{
    SizeAnswer answer;
    cache.calculateSizeWithCompletionBlock([&](quint64 count, quint64 size) { answer = {count, size, true}; });
    (void)QTest::qWaitFor([&] { return answer.arrived; }, 10000);
    return answer;
}

ChildRun runTool(const QString &cacheHome, const QStringList &arguments)
{
    return runChild(qEnvironmentVariable("QX_TOOL"), QStringList{QStringLiteral("cache")} + arguments,
                    {QStringLiteral("XDG_CACHE_HOME=") + cacheHome, QStringLiteral("LC_ALL=C")});
}

} // namespace

class tst_QXImageCacheMaintenance : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void expiryByAge();
    void expiryWalksSubdirectoriesAndSkipsHiddenItems();
    void sizeLimitCutsBelowHalfOldestFirst();
    void wipeLeavesAnEmptyDirectory();
    void threeSizeMeasures();
    void toolCommands();

private:
    QTemporaryDir m_home;
};

void tst_QXImageCacheMaintenance::initTestCase()
{
    QVERIFY(m_home.isValid());
    qputenv("XDG_CACHE_HOME", QFile::encodeName(m_home.path()));
}

void tst_QXImageCacheMaintenance::expiryByAge()
{
    QXImageCache cache(QStringLiteral("age"));
    const QString dir = cache.diskCachePath();

    // A missing directory is no error; the callback still comes.
    QVERIFY(runExpiryPass(cache));
    QVERIFY(!QFileInfo::exists(dir));

    QVERIFY(makeFile(dir + QStringLiteral("/eight-days"), 8 * day));
    QVERIFY(makeFile(dir + QStringLiteral("/six-days"), 6 * day));
    QVERIFY(makeFile(dir + QStringLiteral("/future"), -3600));
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir), QStringList({QStringLiteral("future"), QStringLiteral("six-days")}));

    cache.setMaxCacheAge(6 * day + 60);
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir), QStringList({QStringLiteral("future"), QStringLiteral("six-days")}));
    cache.setMaxCacheAge(6 * day - 60);
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir), QStringList({QStringLiteral("future")}));

    // Age 0: everything not modified in the future goes, including a file
    // whose write was queued just before the pass.
    cache.setMaxCacheAge(0);
    cache.storeImage(QImage(4, 4, QImage::Format_RGB32), QStringLiteral("just-stored"));
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir), QStringList({QStringLiteral("future")}));
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("just-stored")).isNull()); // memory is not maintained here

    // A negative age puts the expiration date in the future.
    cache.setMaxCacheAge(-7200);
    QVERIFY(runExpiryPass(cache));
    QVERIFY(listing(dir).isEmpty());
}

void tst_QXImageCacheMaintenance::expiryWalksSubdirectoriesAndSkipsHiddenItems()
{
    QXImageCache cache(QStringLiteral("tree"));
    const QString dir = cache.diskCachePath();
    const qint64 old = 8 * day;
    QVERIFY(makeFile(dir + QStringLiteral("/sub/old"), old));
    QVERIFY(makeFile(dir + QStringLiteral("/sub/new"), 60));
    QVERIFY(makeFile(dir + QStringLiteral("/sub/deeper/old"), old));
    QVERIFY(setAge(dir + QStringLiteral("/sub/deeper"), old));
    QVERIFY(setAge(dir + QStringLiteral("/sub"), old));
    QVERIFY(makeFile(dir + QStringLiteral("/.hidden-old"), old));
    QVERIFY(makeFile(dir + QStringLiteral("/.hiddendir/old"), old));
    // Temporary files of interrupted writes: removed once abandoned (ten minutes), only at the top.
    QVERIFY(makeFile(dir + QStringLiteral("/.qx-partial-0123-abandoned"), 11 * 60));
    QVERIFY(makeFile(dir + QStringLiteral("/.qx-partial-0123-writing"), 60));
    QVERIFY(makeFile(dir + QStringLiteral("/sub/.qx-partial-0123-nested"), old));
    // A link to a directory elsewhere is an item of its own, never followed.
    QTemporaryDir elsewhere;
    QVERIFY(makeFile(elsewhere.path() + QStringLiteral("/precious"), old));
    QVERIFY(QFile::link(elsewhere.path(), dir + QStringLiteral("/link")));

    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir), QStringList({QStringLiteral(".hidden-old"), QStringLiteral(".hiddendir"),
                                        QStringLiteral(".hiddendir/old"), QStringLiteral(".qx-partial-0123-writing"),
                                        QStringLiteral("link"), QStringLiteral("sub"),
                                        QStringLiteral("sub/.qx-partial-0123-nested"), QStringLiteral("sub/deeper"),
                                        QStringLiteral("sub/new")}));
    QVERIFY(QFileInfo::exists(elsewhere.path() + QStringLiteral("/precious")));

    // An old link goes like an old file; its target stays.
    QVERIFY(setAge(dir + QStringLiteral("/link"), old));
    QVERIFY(runExpiryPass(cache));
    QVERIFY(!QFileInfo(dir + QStringLiteral("/link")).isSymLink());
    QVERIFY(QFileInfo::exists(elsewhere.path() + QStringLiteral("/precious")));
}

void tst_QXImageCacheMaintenance::sizeLimitCutsBelowHalfOldestFirst()
{
    QXImageCache cache(QStringLiteral("limit"));
    const QString dir = cache.diskCachePath();
    // Ten one-byte files, f0 the oldest (in a subdirectory: it counts too).
    QStringList names;
    for (int i = 0; i < 10; ++i) {
        names << (i == 0 ? QStringLiteral("sub/f0") : QStringLiteral("f%1").arg(i));
        QVERIFY(makeFile(dir + QLatin1Char('/') + names.last(), 3600 - i * 60));
    }
    struct stat status;
    QCOMPARE(lstat(QFile::encodeName(dir + QStringLiteral("/f1")).constData(), &status), 0);
    const quint64 allocated = quint64(status.st_blocks) * 512;
    if (allocated == 0)
        QSKIP("this file system allocates no blocks for small files");

    // No limit, or a total at the limit: nothing goes.
    QVERIFY(runExpiryPass(cache));
    cache.setMaxCacheSize(10 * allocated);
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir).size(), 11);

    // The limit is on allocated blocks (10 bytes in all, logically): over
    // it, the oldest go until the rest is below half of the limit.
    cache.setMaxCacheSize(5 * allocated);
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir), QStringList({QStringLiteral("f8"), QStringLiteral("f9"), QStringLiteral("sub")}));

    // Expired files go first, whatever the size; hidden files are not counted.
    QVERIFY(makeFile(dir + QStringLiteral("/ancient"), 30 * day));
    for (int i = 0; i < 20; ++i)
        QVERIFY(makeFile(dir + QStringLiteral("/.hidden%1").arg(i), 30 * day));
    QVERIFY(runExpiryPass(cache));
    QCOMPARE(listing(dir).filter(QRegularExpression(QStringLiteral("^[^.]"))),
             QStringList({QStringLiteral("f8"), QStringLiteral("f9"), QStringLiteral("sub")}));
    QCOMPARE(listing(dir).size(), 23);
}

void tst_QXImageCacheMaintenance::wipeLeavesAnEmptyDirectory()
{
    QXImageCache fresh(QStringLiteral("never-written"));
    QVERIFY(!QFileInfo::exists(fresh.diskCachePath()));
    bool wiped = false;
    fresh.wipeDiskCacheOnCompletion([&] {
        QVERIFY(QXDispatch::isMainThread());
        wiped = true;
    });
    QVERIFY(!wiped);
    QTRY_VERIFY(wiped);
    QVERIFY(QFileInfo(fresh.diskCachePath()).isDir());
    QVERIFY(listing(fresh.diskCachePath()).isEmpty());

    QXImageCache cache(QStringLiteral("wipe"));
    const QImage image(6, 6, QImage::Format_RGB32);
    cache.storeImage(image, QStringLiteral("a"));
    QVERIFY(makeFile(cache.diskCachePath() + QStringLiteral("/.hidden"), 0));
    QVERIFY(makeFile(cache.diskCachePath() + QStringLiteral("/sub/.deep/file"), 0));
    cache.wipeDiskCache();
    QCOMPARE(cache.getDiskCount(), quint64(0));
    QVERIFY(QFileInfo(cache.diskCachePath()).isDir());
    QVERIFY(!cache.imageFromMemoryCacheForKey(QStringLiteral("a")).isNull()); // the disk wipe leaves memory alone
    cache.storeImage(image, QStringLiteral("b"));
    cache.wipeMemoryCache(); // and the memory wipe leaves the disk alone
    QVERIFY(cache.imageFromMemoryCacheForKey(QStringLiteral("a")).isNull());
    QCOMPARE(cache.getDiskCount(), quint64(1));
}

void tst_QXImageCacheMaintenance::threeSizeMeasures()
{
    QXImageCache cache(QStringLiteral("sizes"));
    const QString dir = cache.diskCachePath();
    QCOMPARE(cache.getSize(), quint64(0)); // no directory yet
    QCOMPARE(cache.getDiskCount(), quint64(0));
    SizeAnswer answer = calculateSize(cache);
    QVERIFY(answer.arrived);
    QCOMPARE(answer.count, quint64(0));
    QCOMPARE(answer.size, quint64(0));
    QVERIFY(QDir().mkpath(dir));
    answer = calculateSize(cache);
    QVERIFY(answer.arrived && answer.count == 0 && answer.size == 0);

    QVERIFY(makeFile(dir + QStringLiteral("/a"), 0, QByteArray(1000, 'a')));
    QVERIFY(makeFile(dir + QStringLiteral("/b"), 0, QByteArray(3000, 'b')));
    QVERIFY(makeFile(dir + QStringLiteral("/.h"), 0, QByteArray(500, 'h')));
    QVERIFY(makeFile(dir + QStringLiteral("/sub/c"), 0, QByteArray(700, 'c')));
    QVERIFY(makeFile(dir + QStringLiteral("/.hd/d"), 0, QByteArray(200, 'd')));

    // Every item, hidden ones and directories included, in count and logical size.
    QCOMPARE(cache.getDiskCount(), quint64(7));
    const quint64 directories = logicalSize(dir + QStringLiteral("/sub")) + logicalSize(dir + QStringLiteral("/.hd"));
    QCOMPARE(cache.getSize(), quint64(5400) + directories);
    const ChildRun du = runChild(QStringLiteral("du"), {QStringLiteral("-sb"), dir});
    if (du.exitCode == 0) { // du counts the directory itself as well
        const quint64 reference = du.output.split(QLatin1Char('\t')).first().toULongLong();
        QCOMPARE(cache.getSize(), reference - logicalSize(dir));
    }

    // Visible items only: a, b, sub and sub/c; directories add no bytes.
    answer = calculateSize(cache);
    QVERIFY(answer.arrived);
    QCOMPARE(answer.count, quint64(4));
    QCOMPARE(answer.size, quint64(4700));
}

void tst_QXImageCacheMaintenance::toolCommands()
{
    if (qEnvironmentVariableIsEmpty("QX_TOOL"))
        QSKIP("QX_TOOL is not set");
    QTemporaryDir home;
    const QString dir = home.path() + QStringLiteral("/org.qxfoundation.QXImageCache.tool");
    const QStringList ns{QStringLiteral("--namespace"), QStringLiteral("tool")};

    ChildRun run = runTool(home.path(), QStringList{QStringLiteral("info")} + ns);
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.output.contains(QStringLiteral("directory: ") + dir), qPrintable(run.output));
    QVERIFY2(run.output.contains(QStringLiteral("files: 0\n")), qPrintable(run.output));
    QVERIFY2(run.output.contains(QStringLiteral("size: 0 bytes")), qPrintable(run.output));

    QVERIFY(makeFile(dir + QStringLiteral("/old"), 8 * day, QByteArray(2048, 'o')));
    QVERIFY(makeFile(dir + QStringLiteral("/new"), 0, QByteArray(1536, 'n')));
    run = runTool(home.path(), QStringList{QStringLiteral("info")} + ns);
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.output.contains(QStringLiteral("files: 2\n")), qPrintable(run.output));
    QVERIFY2(run.output.contains(QStringLiteral("size: 3584 bytes (3.5 KB)")), qPrintable(run.output));

    run = runTool(home.path(), QStringList{QStringLiteral("clean")} + ns);
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.output.contains(QStringLiteral("removed old (2048 bytes)")), qPrintable(run.output));
    QVERIFY2(!run.output.contains(QStringLiteral("removed new")), qPrintable(run.output));
    QCOMPARE(listing(dir), QStringList{QStringLiteral("new")});

    QVERIFY(makeFile(dir + QStringLiteral("/older"), 3600));
    run = runTool(home.path(), QStringList{QStringLiteral("clean"), QStringLiteral("--max-age"), QStringLiteral("60")} + ns);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(listing(dir), QStringList{QStringLiteral("new")});
    run = runTool(home.path(), QStringList{QStringLiteral("clean"), QStringLiteral("--max-size"), QStringLiteral("1")} + ns);
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.output.contains(QStringLiteral("removed new")), qPrintable(run.output));
    QVERIFY(listing(dir).isEmpty());

    QVERIFY(makeFile(dir + QStringLiteral("/sub/x"), 0));
    run = runTool(home.path(), QStringList{QStringLiteral("wipe")} + ns);
    QCOMPARE(run.exitCode, 0);
    QVERIFY(QFileInfo(dir).isDir());
    QVERIFY(listing(dir).isEmpty());

    for (const QStringList &wrong : {QStringList{}, QStringList{QStringLiteral("frobnicate")},
                                     QStringList{QStringLiteral("clean"), QStringLiteral("--max-age"), QStringLiteral("soon")},
                                     QStringList{QStringLiteral("clean"), QStringLiteral("--max-size"), QStringLiteral("-1")},
                                     QStringList{QStringLiteral("info"), QStringLiteral("--namespace")}}) {
        run = runTool(home.path(), wrong);
        QVERIFY2(run.exitCode == 2, qPrintable(wrong.join(QLatin1Char(' '))));
    }
}

QTEST_GUILESS_MAIN(tst_QXImageCacheMaintenance)

#include "tst_qximagecachemaintenance.moc"
