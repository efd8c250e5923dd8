#include <QXFoundation/QXFileManager.h>
#include <QXFoundation/QXNumberFormatter.h>
#include <QXFoundation/QXString.h>

#include <QtTest>

#include <atomic>
#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(path));
    QCOMPARE(file.write(contents), contents.size());
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

bool exists(const QString &path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

// Every entry beneath `root` ("sub/file", "sub/", "link@target") with the
// contents of regular files, so two trees can be compared whole.
QStringList tree(const QString &root)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info(path);
        const QString relative = QDir(root).relativeFilePath(path);
        if (info.isSymLink()) {
            char target[4096] = {};
            const ssize_t n = ::readlink(QFile::encodeName(path).constData(), target, sizeof target - 1);
            entries << relative + QLatin1Char('@') + QString::fromLocal8Bit(target, n > 0 ? n : 0);
        }
        else if (info.isDir())
            entries << relative + QLatin1Char('/');
        else
            entries << relative + QLatin1Char('=') + QString::fromLatin1(readFile(path));
    }
    entries.sort();
    return entries;
}

struct Completion
{
    bool called = false;
    bool success = false;
    QXError error;
    QThread *thread = nullptr;

    QXFileManagerCompletionBlock block()
    {
        return [this](bool ok, const QXError &err) {
            called = true;
            success = ok;
            error = err;
            thread = QThread::currentThread();
        };
    }
};

// A sentinel that shows whether an error out-parameter was written.
const QXError untouched = QXError::withDescription(QStringLiteral("test"), 42, QStringLiteral("untouched"));

} // namespace

class tst_QXFileManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void backgroundRemoval();
    void removingSeveralItemsStopsAtTheFirstFailure();
    void removingTheContentsOfADirectory();
    void copyWithOverwrite();
    void replacementNeverLeavesTheDestinationMissing();
    void moveWithOverwrite();
    void directorySizes();
    void uniquePaths();

private:
    std::unique_ptr<QTemporaryDir> m_scratch;
    QString m_systemTemporary;
    QString m_temporary; // what the library sees as the temporary directory
    QString path(const QString &relative) const { return m_scratch->filePath(relative); }
};

void tst_QXFileManager::initTestCase()
{
    m_systemTemporary = QDir::tempPath();
}

void tst_QXFileManager::init()
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    m_scratch = std::make_unique<QTemporaryDir>(m_systemTemporary + QStringLiteral("/tst_qxfilemanager-XXXXXX"));
    QVERIFY(m_scratch->isValid());
    // A private temporary directory, so the test sees exactly what the
    // removals leave there.
    m_temporary = path(QStringLiteral("tmp"));
    QVERIFY(QDir().mkpath(m_temporary));
    qputenv("TMPDIR", QFile::encodeName(m_temporary));
    QCOMPARE(qx_temporaryDirectoryPath(), m_temporary);
}

void tst_QXFileManager::backgroundRemoval()
{
    // A tree with hidden entries, a read-only file and a symbolic link
    // pointing out of it: the tree goes, the link's target stays.
    const QString outside = path(QStringLiteral("outside.txt"));
    writeFile(outside, "keep me");
    const QString root = path(QStringLiteral("tree"));
    writeFile(root + QStringLiteral("/a.txt"), "a");
    writeFile(root + QStringLiteral("/.hidden/b.txt"), "b");
    writeFile(root + QStringLiteral("/deep/er/c.txt"), "c");
    QVERIFY(QFile::setPermissions(root + QStringLiteral("/a.txt"), QFile::ReadOwner));
    QVERIFY(QFile::link(outside, root + QStringLiteral("/link")));

    Completion done;
    qx_removeItemAtPathInBackground(root, done.block());
    QTRY_VERIFY(done.called);
    QVERIFY(done.success);
    QVERIFY(done.error.isNull());
    QCOMPARE(done.thread, QThread::currentThread());
    QVERIFY(!exists(root));
    QCOMPARE(readFile(outside), QByteArray("keep me"));
    QVERIFY(QDir(m_temporary).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));

    // The URL form, and no completion at all.
    const QString file = path(QStringLiteral("file.txt"));
    writeFile(file, "x");
    Completion byURL;
    qx_removeItemAtURLInBackground(QUrl::fromLocalFile(file), byURL.block());
    QTRY_VERIFY(byURL.called);
    QVERIFY(byURL.success);
    QVERIFY(!exists(file));
    writeFile(file, "y");
    qx_removeItemAtPathInBackground(file);
    QTRY_VERIFY(!exists(file));

    // A missing item: failure with the system's reason and the path.
    Completion missing;
    const QString nowhere = path(QStringLiteral("nowhere"));
    qx_removeItemAtPathInBackground(nowhere, missing.block());
    QTRY_VERIFY(missing.called);
    QVERIFY(!missing.success);
    QCOMPARE(missing.error.domain(), QXPOSIXErrorDomain);
    QCOMPARE(missing.error.code(), ENOENT);
    QCOMPARE(missing.error.userInfo().value(QXFilePathErrorKey).toString(), nowhere);
    QVERIFY(!missing.error.localizedDescription().isEmpty());
    QCOMPARE(missing.thread, QThread::currentThread());
}

void tst_QXFileManager::removingSeveralItemsStopsAtTheFirstFailure()
{
    Completion empty;
    qx_removeItemsAtPathsInBackground({}, empty.block());
    QTRY_VERIFY(empty.called);
    QVERIFY(!empty.success);
    QVERIFY(empty.error.isNull());

    const QString first = path(QStringLiteral("first.txt"));
    const QString third = path(QStringLiteral("third"));
    writeFile(first, "first item");
    writeFile(third + QStringLiteral("/inside.txt"), "third item");
    Completion failed;
    qx_removeItemsAtPathsInBackground({first, path(QStringLiteral("second-is-missing")), third}, failed.block());
    QTRY_VERIFY(failed.called);
    QVERIFY(!failed.success);
    QCOMPARE(failed.error.code(), ENOENT);
    // The first item has left its place but was not deleted: it waits in
    // the temporary directory. The third was never touched.
    QVERIFY(!exists(first));
    const QStringList aside = QDir(m_temporary).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(aside.size(), 1);
    QCOMPARE(readFile(QDir(m_temporary).filePath(aside.first())), QByteArray("first item"));
    QCOMPARE(readFile(third + QStringLiteral("/inside.txt")), QByteArray("third item"));

    const QString second = path(QStringLiteral("second.txt"));
    writeFile(second, "2");
    Completion all;
    qx_removeItemsAtPathsInBackground({second, third}, all.block());
    QTRY_VERIFY(all.called);
    QVERIFY(all.success);
    QVERIFY(all.error.isNull());
    QCOMPARE(all.thread, QThread::currentThread());
    QVERIFY(!exists(second));
    QVERIFY(!exists(third));
}

void tst_QXFileManager::removingTheContentsOfADirectory()
{
    const QString directory = path(QStringLiteral("box"));
    writeFile(directory + QStringLiteral("/one.txt"), "1");
    writeFile(directory + QStringLiteral("/.two"), "2");
    writeFile(directory + QStringLiteral("/three/four.txt"), "4");
    Completion done;
    qx_removeContentsOfDirectoryAtPathInBackground(directory, done.block());
    QTRY_VERIFY(done.called);
    QVERIFY(done.success);
    QVERIFY(QFileInfo(directory).isDir());
    QVERIFY(QDir(directory).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot));

    // Nothing left to remove: failure without error.
    Completion empty;
    qx_removeContentsOfDirectoryAtPathInBackground(directory, empty.block());
    QTRY_VERIFY(empty.called);
    QVERIFY(!empty.success);
    QVERIFY(empty.error.isNull());

    // A directory that cannot be listed is reported at once, on the calling thread.
    Completion unlistable;
    qx_removeContentsOfDirectoryAtPathInBackground(path(QStringLiteral("absent")), unlistable.block());
    QVERIFY(unlistable.called);
    QVERIFY(!unlistable.success);
    QCOMPARE(unlistable.error.code(), ENOENT);
    const QString file = path(QStringLiteral("plain.txt"));
    writeFile(file, "not a directory");
    Completion notADirectory;
    qx_removeContentsOfDirectoryAtPathInBackground(file, notADirectory.block());
    QVERIFY(notADirectory.called);
    QCOMPARE(notADirectory.error.code(), ENOTDIR);
    QCOMPARE(readFile(file), QByteArray("not a directory"));
}

void tst_QXFileManager::copyWithOverwrite()
{
    const QString source = path(QStringLiteral("source.txt"));
    writeFile(source, "new contents");
    QVERIFY(QFile::setPermissions(source, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    const QDateTime modified = QDateTime::fromSecsSinceEpoch(1500000000);
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
    }

    // Nothing given: failure, and the error is not written.
    QXError error = untouched;
    QVERIFY(!qx_copyItemAtPath(QString(), path(QStringLiteral("x")), true, &error));
    QVERIFY(!qx_copyItemAtURL(QUrl::fromLocalFile(source), QUrl(), true, &error));
    QCOMPARE(error, untouched);

    // A fresh destination gets the contents, permissions and times.
    const QString fresh = path(QStringLiteral("fresh.txt"));
    QVERIFY(qx_copyItemAtPath(source, fresh, false, &error));
    QVERIFY(error.isNull());
    QCOMPARE(readFile(fresh), QByteArray("new contents"));
    QCOMPARE(QFileInfo(fresh).permissions(), QFileInfo(source).permissions());
    QCOMPARE(QFileInfo(fresh).lastModified(), modified);

    // An existing destination stays without overwrite; the error is nil.
    const QString existing = path(QStringLiteral("existing.txt"));
    writeFile(existing, "old contents");
    error = untouched;
    QVERIFY(!qx_copyItemAtPath(source, existing, false, &error));
    QVERIFY(error.isNull());
    QCOMPARE(readFile(existing), QByteArray("old contents"));

    // With overwrite it gets the source's contents; the source stays.
    error = untouched;
    QVERIFY(qx_copyItemAtURL(QUrl::fromLocalFile(source), QUrl::fromLocalFile(existing), true, &error));
    QVERIFY(error.isNull());
    QCOMPARE(readFile(existing), QByteArray("new contents"));
    QCOMPARE(readFile(source), QByteArray("new contents"));

    // Trees: hidden entries, empty directories and symbolic links (copied as links).
    const QString sourceTree = path(QStringLiteral("site"));
    writeFile(sourceTree + QStringLiteral("/index.html"), "<html>");
    writeFile(sourceTree + QStringLiteral("/.config"), "hidden");
    writeFile(sourceTree + QStringLiteral("/assets/logo.svg"), "<svg>");
    QVERIFY(QDir().mkpath(sourceTree + QStringLiteral("/empty")));
    QVERIFY(QFile::link(QStringLiteral("assets/logo.svg"), sourceTree + QStringLiteral("/logo")));
    const QStringList expected = tree(sourceTree);
    const QString copy = path(QStringLiteral("copy"));
    QVERIFY(qx_copyItemAtPath(sourceTree, copy, false, &error));
    QCOMPARE(tree(copy), expected);
    QCOMPARE(tree(sourceTree), expected);

    // A tree over a non-empty tree: the old entries go, nothing else is left beside it.
    const QString published = path(QStringLiteral("published"));
    writeFile(published + QStringLiteral("/stale.html"), "stale");
    const QStringList before = QDir(m_scratch->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QVERIFY(qx_copyItemAtPath(sourceTree, published, true, &error));
    QCOMPARE(tree(published), expected);
    QCOMPARE(QDir(m_scratch->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), before);
    // A file over a directory, and a copy of a file onto itself.
    QVERIFY(qx_copyItemAtPath(source, published, true, &error));
    QCOMPARE(readFile(published), QByteArray("new contents"));
    QVERIFY(qx_copyItemAtPath(source, source, true, &error));
    QCOMPARE(readFile(source), QByteArray("new contents"));

    // Failures carry the system's reason.
    QVERIFY(!qx_copyItemAtPath(path(QStringLiteral("missing")), fresh, true, &error));
    QCOMPARE(error.code(), ENOENT);
    QVERIFY(!qx_copyItemAtPath(source, path(QStringLiteral("no/such/dir/file")), false, &error));
    QCOMPARE(error.code(), ENOENT);
    QVERIFY(!qx_copyItemAtPath(sourceTree, sourceTree + QStringLiteral("/assets/inner"), false, &error));
    QCOMPARE(error.code(), EINVAL);
    QCOMPARE(tree(sourceTree), expected);
}

void tst_QXFileManager::replacementNeverLeavesTheDestinationMissing()
{
    // A reader looks at the destinations all the time while they are
    // replaced again and again: it must always find an item there.
    const QString file = path(QStringLiteral("config.json"));
    const QString directory = path(QStringLiteral("current"));
    writeFile(file, "{}");
    writeFile(directory + QStringLiteral("/v0.txt"), "0");
    const QString sourceFile = path(QStringLiteral("incoming.json"));
    const QString sourceDirectory = path(QStringLiteral("release"));
    writeFile(sourceDirectory + QStringLiteral("/a.txt"), "a");
    writeFile(sourceDirectory + QStringLiteral("/b/c.txt"), "c");
    std::atomic<bool> stop{false};
    std::atomic<int> looks{0};
    std::atomic<int> misses{0};
    std::unique_ptr<QThread> reader(QThread::create([&] {
        const QByteArray f = QFile::encodeName(file);
        const QByteArray d = QFile::encodeName(directory);
        while (!stop) {
            struct stat st;
            if (::lstat(f.constData(), &st) != 0 || ::lstat(d.constData(), &st) != 0)
                ++misses;
            ++looks;
        }
    }));
    reader->start();
    const QString staging = path(QStringLiteral("staging"));
    for (int i = 0; i < 100; ++i) {
        QXError error;
        writeFile(sourceFile, QByteArray::number(i));
        QVERIFY2(qx_copyItemAtPath(sourceFile, file, true, &error), qPrintable(error.localizedDescription()));
        QVERIFY2(qx_moveItemAtPath(sourceFile, file, true, &error), qPrintable(error.localizedDescription()));
        QVERIFY2(qx_copyItemAtPath(sourceDirectory, directory, true, &error), qPrintable(error.localizedDescription()));
        QVERIFY2(qx_copyItemAtPath(sourceDirectory, staging, false, &error), qPrintable(error.localizedDescription()));
        QVERIFY2(qx_moveItemAtPath(staging, directory, true, &error), qPrintable(error.localizedDescription()));
    }
    stop = true;
    QVERIFY(reader->wait(5000));
    QVERIFY(looks > 0);
    QCOMPARE(misses.load(), 0);
    QCOMPARE(readFile(file), QByteArray("99"));
    QCOMPARE(tree(directory), tree(sourceDirectory));

    // A copy that fails half-way leaves the destination as it was and
    // nothing beside it. Writes past a small file-size limit fail (EFBIG),
    // for root as well.
    const QString big = path(QStringLiteral("big.bin"));
    writeFile(big, QByteArray(64 * 1024, 'b'));
    const QString bigTree = path(QStringLiteral("bigtree"));
    writeFile(bigTree + QStringLiteral("/small.txt"), "small");
    writeFile(bigTree + QStringLiteral("/zz-big.bin"), QByteArray(64 * 1024, 'b'));
    const QString precious = path(QStringLiteral("precious.txt"));
    writeFile(precious, "precious");
    const QString preciousTree = path(QStringLiteral("precious"));
    writeFile(preciousTree + QStringLiteral("/inside.txt"), "inside");
    const QStringList directoryBefore = tree(preciousTree);
    const QStringList scratchBefore = QDir(m_scratch->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);

    struct rlimit saved;
    QCOMPARE(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = saved;
    limited.rlim_cur = 4096;
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    QXError copyFile, copyTree;
    const bool copiedFile = qx_copyItemAtPath(big, precious, true, &copyFile);
    const bool copiedTree = qx_copyItemAtPath(bigTree, preciousTree, true, &copyTree);
    ::setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);

    QVERIFY(!copiedFile);
    QCOMPARE(copyFile.code(), EFBIG);
    QVERIFY(!copiedTree);
    QCOMPARE(copyTree.code(), EFBIG);
    QCOMPARE(readFile(precious), QByteArray("precious"));
    QCOMPARE(tree(preciousTree), directoryBefore);
    QCOMPARE(QDir(m_scratch->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), scratchBefore);
}

void tst_QXFileManager::moveWithOverwrite()
{
    QXError error = untouched;
    QVERIFY(!qx_moveItemAtPath(path(QStringLiteral("a")), QString(), true, &error));
    QVERIFY(!qx_moveItemAtURL(QUrl(), QUrl::fromLocalFile(path(QStringLiteral("a"))), true, &error));
    QCOMPARE(error, untouched);

    const QString source = path(QStringLiteral("draft.txt"));
    const QString target = path(QStringLiteral("final.txt"));
    writeFile(source, "draft");
    QVERIFY(qx_moveItemAtPath(source, target, false, &error));
    QVERIFY(error.isNull());
    QVERIFY(!exists(source));
    QCOMPARE(readFile(target), QByteArray("draft"));

    writeFile(source, "second draft");
    error = untouched;
    QVERIFY(!qx_moveItemAtPath(source, target, false, &error));
    QVERIFY(error.isNull());
    QCOMPARE(readFile(source), QByteArray("second draft"));
    QCOMPARE(readFile(target), QByteArray("draft"));

    QVERIFY(qx_moveItemAtURL(QUrl::fromLocalFile(source), QUrl::fromLocalFile(target), true, &error));
    QVERIFY(!exists(source));
    QCOMPARE(readFile(target), QByteArray("second draft"));

    // A tree over a non-empty tree, and a tree over a file: no item at the
    // source and nothing left beside the destination.
    const QString sourceTree = path(QStringLiteral("incoming"));
    writeFile(sourceTree + QStringLiteral("/new.txt"), "new");
    const QStringList expected = tree(sourceTree);
    const QString targetTree = path(QStringLiteral("current"));
    writeFile(targetTree + QStringLiteral("/old.txt"), "old");
    const QStringList before = QDir(m_scratch->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QVERIFY(qx_moveItemAtPath(sourceTree, targetTree, true, &error));
    QVERIFY(!exists(sourceTree));
    QCOMPARE(tree(targetTree), expected);
    QStringList after = before;
    after.removeOne(QStringLiteral("incoming"));
    QCOMPARE(QDir(m_scratch->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), after);
    QVERIFY(qx_moveItemAtPath(targetTree, target, true, &error));
    QCOMPARE(tree(target), expected);
    QVERIFY(!exists(targetTree));

    // Onto itself: nothing changes. Onto another name of the same file: one name is left.
    QVERIFY(qx_moveItemAtPath(target, target, true, &error));
    QCOMPARE(tree(target), expected);
    const QString original = path(QStringLiteral("original.txt"));
    const QString hardLink = path(QStringLiteral("hardlink.txt"));
    writeFile(original, "shared");
    QCOMPARE(::link(QFile::encodeName(original).constData(), QFile::encodeName(hardLink).constData()), 0);
    QVERIFY(qx_moveItemAtPath(hardLink, original, true, &error));
    QVERIFY(!exists(hardLink));
    QCOMPARE(readFile(original), QByteArray("shared"));

    QVERIFY(!qx_moveItemAtPath(path(QStringLiteral("missing")), target, true, &error));
    QCOMPARE(error.code(), ENOENT);

    // Across file systems the item is copied, then removed at the source.
    QTemporaryDir elsewhere(QStringLiteral("/dev/shm/qxtest-XXXXXX"));
    struct stat here, there;
    if (elsewhere.isValid() && ::stat(QFile::encodeName(m_scratch->path()).constData(), &here) == 0
        && ::stat(QFile::encodeName(elsewhere.path()).constData(), &there) == 0 && here.st_dev != there.st_dev) {
        const QString remoteTree = elsewhere.filePath(QStringLiteral("remote"));
        writeFile(remoteTree + QStringLiteral("/r.txt"), "remote");
        QVERIFY(qx_moveItemAtPath(remoteTree, target, true, &error));
        QVERIFY(!exists(remoteTree));
        QCOMPARE(readFile(target + QStringLiteral("/r.txt")), QByteArray("remote"));
        const QString remoteFile = elsewhere.filePath(QStringLiteral("f.txt"));
        writeFile(remoteFile, "far");
        QVERIFY(qx_moveItemAtPath(remoteFile, path(QStringLiteral("near.txt")), false, &error));
        QVERIFY(!exists(remoteFile));
        QCOMPARE(readFile(path(QStringLiteral("near.txt"))), QByteArray("far"));
    } else {
        qInfo("no second file system at /dev/shm: moves across file systems not exercised");
    }
}

void tst_QXFileManager::directorySizes()
{
    const QString root = path(QStringLiteral("sized"));
    QVERIFY(QDir().mkpath(root));
    QCOMPARE(qx_direcorySize(root), quint64(0));
    writeFile(root + QStringLiteral("/ten.bin"), QByteArray(10, 'x'));
    writeFile(root + QStringLiteral("/sub/twenty.bin"), QByteArray(20, 'y'));
    QCOMPARE(qx_direcorySize(root), quint64(30));
    QCOMPARE(qx_direcorySizeAtURL(QUrl::fromLocalFile(root)), quint64(30));

    // Hidden entries count; a symbolic link counts as itself (the length of
    // its target) and a linked directory is not entered.
    writeFile(root + QStringLiteral("/.hidden/five.bin"), QByteArray(5, 'z'));
    const QString bigOutside = path(QStringLiteral("outside/big.bin"));
    writeFile(bigOutside, QByteArray(5000, 'o'));
    QVERIFY(QFile::link(bigOutside, root + QStringLiteral("/big-link")));
    QVERIFY(QFile::link(path(QStringLiteral("outside")), root + QStringLiteral("/dir-link")));
    const quint64 links = quint64(QFile::encodeName(bigOutside).size() + QFile::encodeName(path(QStringLiteral("outside"))).size());
    QCOMPARE(qx_direcorySize(root), 35 + links);

    // A larger tree against an independent walk.
    quint64 expected = 35 + links;
    QRandomGenerator random(7);
    for (int i = 0; i < 300; ++i) {
        const int size = int(random.bounded(3000));
        writeFile(root + QStringLiteral("/d%1/e%2/f%3.bin").arg(i % 7).arg(i % 5).arg(i), QByteArray(size, 'r'));
        expected += quint64(size);
    }
    QCOMPARE(qx_direcorySize(root), expected);

    // Nothing to measure.
    QCOMPARE(qx_direcorySize(path(QStringLiteral("absent"))), quint64(0));
    QCOMPARE(qx_direcorySize(root + QStringLiteral("/ten.bin")), quint64(0));
    QCOMPARE(qx_direcorySize(QString()), quint64(0));
    QCOMPARE(qx_direcorySizeAtURL(QUrl(QStringLiteral("https://example.com/"))), quint64(0));

    // File lists add the items' own sizes: a directory its entry, not its contents.
    struct stat subStat;
    QCOMPARE(::lstat(QFile::encodeName(root + QStringLiteral("/sub")).constData(), &subStat), 0);
    const QStringList files{root + QStringLiteral("/ten.bin"), path(QStringLiteral("absent")),
                            root + QStringLiteral("/sub"), root + QStringLiteral("/big-link")};
    const quint64 listed = 10 + quint64(subStat.st_size) + quint64(QFile::encodeName(bigOutside).size());
    QCOMPARE(qx_sizeOfFilesAtPaths(files), listed);
    QCOMPARE(qx_sizeOfFilesAtPaths({}), quint64(0));

    // The display texts are those of the file-size formatter.
    QCOMPARE(qx_formatedSize(1536), QStringLiteral("1.5 KB"));
    QCOMPARE(qx_formatedSize(0), qx_formatedFileSize(qx_fileSizeFormatter(), 0));
    QCOMPARE(qx_formatedSizeOfDirectory(root), qx_formatedFileSize(qx_fileSizeFormatter(), expected));
    QCOMPARE(qx_formatedSizeOfFilesAtPaths(files), qx_formatedFileSize(qx_fileSizeFormatter(), listed));
}

void tst_QXFileManager::uniquePaths()
{
    const QString directory = path(QStringLiteral("names"));
    QVERIFY(QDir().mkpath(directory));
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("Report.txt"), directory), directory + QStringLiteral("/Report.txt"));
    writeFile(directory + QStringLiteral("/Report.txt"), "1");
    writeFile(directory + QStringLiteral("/Report 2.txt"), "2");
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("Report.txt"), directory), directory + QStringLiteral("/Report 3.txt"));
    // A trailing slash on the directory changes nothing.
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("Report.txt"), directory + QLatin1Char('/')),
             directory + QStringLiteral("/Report 3.txt"));

    // Without an extension no dot is added; a leading or trailing dot is part of the name.
    QVERIFY(QDir().mkpath(directory + QStringLiteral("/Folder")));
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("Folder"), directory), directory + QStringLiteral("/Folder 2"));
    writeFile(directory + QStringLiteral("/.profile"), "p");
    QCOMPARE(qx_uniquePathForFile(QStringLiteral(".profile"), directory), directory + QStringLiteral("/.profile 2"));
    writeFile(directory + QStringLiteral("/notes."), "n");
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("notes."), directory), directory + QStringLiteral("/notes. 2"));
    writeFile(directory + QStringLiteral("/archive.tar.gz"), "a");
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("archive.tar.gz"), directory),
             directory + QStringLiteral("/archive.tar 2.gz"));
    // A dangling symbolic link is an item: a new file must not be written through it.
    QVERIFY(QFile::link(path(QStringLiteral("gone")), directory + QStringLiteral("/dangling.txt")));
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("dangling.txt"), directory),
             directory + QStringLiteral("/dangling 2.txt"));

    // Hashed names: the first is the hash of the base, numbered ones hash
    // "<hashed base> n", so the number never shows.
    const QString hashed = qx_md5Hash(QStringLiteral("Report"));
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("Report.txt"), directory, true),
             directory + QLatin1Char('/') + hashed + QStringLiteral(".txt"));
    writeFile(directory + QLatin1Char('/') + hashed + QStringLiteral(".txt"), "h");
    QCOMPARE(qx_uniquePathForFile(QStringLiteral("Report.txt"), directory, true),
             directory + QLatin1Char('/') + qx_md5Hash(hashed + QStringLiteral(" 2")) + QStringLiteral(".txt"));

    // Random names: the hash of the time in seconds plus a number below 1000; nothing is created.
    const QStringList before = QDir(directory).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    const quint64 start = quint64(QDateTime::currentSecsSinceEpoch());
    const QString randomFile = qx_uniqueRandomPathForFileWithExtension(QStringLiteral("png"), directory);
    const QString randomDirectory = qx_uniqueRandomDirectoryPathInPath(directory);
    const quint64 end = quint64(QDateTime::currentSecsSinceEpoch());
    QCOMPARE(QDir(directory).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot), before);
    const QRegularExpression hex(QStringLiteral("^[0-9a-f]{32}$"));
    const QFileInfo fileInfo(randomFile);
    QCOMPARE(fileInfo.absolutePath(), directory);
    QCOMPARE(fileInfo.suffix(), QStringLiteral("png"));
    QVERIFY2(hex.match(fileInfo.completeBaseName()).hasMatch(), qPrintable(randomFile));
    QCOMPARE(QFileInfo(randomDirectory).absolutePath(), directory);
    QVERIFY2(hex.match(QFileInfo(randomDirectory).fileName()).hasMatch(), qPrintable(randomDirectory));
    auto drawnFromTheClock = [&](const QString &name) {
        for (quint64 n = start; n <= end + 999; ++n)
            if (qx_md5Hash(QString::number(n)) == name)
                return true;
        return false;
    };
    QVERIFY(drawnFromTheClock(QFileInfo(randomDirectory).fileName()));
    QVERIFY(drawnFromTheClock(fileInfo.completeBaseName()));
}

QTEST_GUILESS_MAIN(tst_QXFileManager)
#include "tst_qxfilemanager.moc"
