#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXFileMonitor.h>

#include "data/QXFileEventSource_p.h"

#include <QtTest>

#include <atomic>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void writeFile(const QString &path, const QByteArray &contents, QIODevice::OpenMode mode = QIODevice::Truncate)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly | mode), qPrintable(path));
    QCOMPARE(file.write(contents), contents.size());
}

// Rewrites the first bytes in place: the size stays the same.
void overwriteInPlace(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QCOMPARE(file.write(contents), contents.size());
}

// What an editor does on save: write a new file, rename it over the old one.
void editorSave(const QString &path, const QByteArray &contents)
{
    const QString temporary = path + QStringLiteral(".swp");
    writeFile(temporary, contents);
    QCOMPARE(::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(path).constData()), 0);
}

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

// The watches the kernel holds for this process, over all its inotify instances.
int kernelWatchCount()
{
    int count = 0;
    DIR *fds = ::opendir("/proc/self/fd");
    if (!fds)
        return -1;
    while (const dirent *entry = ::readdir(fds)) {
        char target[64] = {};
        if (::readlinkat(::dirfd(fds), entry->d_name, target, sizeof target - 1) <= 0
            || std::strcmp(target, "anon_inode:inotify") != 0)
            continue;
        QFile info(QStringLiteral("/proc/self/fdinfo/") + QString::fromLatin1(entry->d_name));
        if (!info.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : info.readAll().split('\n'))
            count += line.startsWith("inotify wd:") ? 1 : 0;
    }
    ::closedir(fds);
    return count;
}

int openDescriptors()
{
    return QXFileEventBackend::platformBackend()->openDescriptorCount();
}

// Calls of a monitor's block and when they came.
struct Probe
{
    const QElapsedTimer *clock = nullptr;
    int calls = 0;
    qint64 at = -1;
    QThread *thread = nullptr;

    QXFileMonitor::Block block()
    {
        return [this] {
            ++calls;
            at = clock->elapsed();
            thread = QThread::currentThread();
        };
    }
};

// Collects what an event source delivers.
struct Recorder
{
    std::atomic<unsigned long> events{0};
    std::atomic<int> calls{0};
    std::atomic<bool> offQueue{false};
    std::atomic<int> cancels{0};

    unsigned long take() { return events.exchange(0); }
};

constexpr unsigned long allEvents = DISPATCH_VNODE_DELETE | DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND
    | DISPATCH_VNODE_ATTRIB | DISPATCH_VNODE_LINK | DISPATCH_VNODE_RENAME | DISPATCH_VNODE_REVOKE;

} // namespace

class tst_QXFileMonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void creation();
    void eventSourceReportsVnodeEvents();
    void descriptorsOpenAndCloseOncePerStart();
    void reportsOnceAfterTheItemSettles();
    void followingAnEditorSave();

private:
    std::unique_ptr<QTemporaryDir> m_scratch;
    QString path(const QString &relative) const { return m_scratch->filePath(relative); }
    QUrl url(const QString &relative) const { return QUrl::fromLocalFile(path(relative)); }
};

void tst_QXFileMonitor::init()
{
    // The backend warns when a descriptor is closed twice.
    QTest::failOnWarning(QRegularExpression(QStringLiteral("descriptor")));
    m_scratch = std::make_unique<QTemporaryDir>();
    QVERIFY(m_scratch->isValid());
}

void tst_QXFileMonitor::creation()
{
    QVERIFY(!QXFileMonitor::fileMonitorForFileURL(url(QStringLiteral("missing")), {}));
    QVERIFY(!QXFileMonitor::fileMonitorForFileURL(QUrl(QStringLiteral("https://example.com/file")), {}));

    writeFile(path(QStringLiteral("file.txt")), "x");
    const int descriptorsBefore = openDescriptors();
    int called = 0;
    const auto file = QXFileMonitor::fileMonitorForFileURL(url(QStringLiteral("file.txt")), [&] { ++called; });
    QVERIFY(file);
    QVERIFY(!file->isDirectoryAtURL());
    QCOMPARE(file->events(), 0x67ul);
    QCOMPARE(file->fileURL(), url(QStringLiteral("file.txt")));
    QVERIFY(!file->timer());
    QCOMPARE(openDescriptors(), descriptorsBefore); // creating does not start
    file->block()();
    QCOMPARE(called, 1);
    file->setEvents(DISPATCH_VNODE_ATTRIB);
    QCOMPARE(file->events(), DISPATCH_VNODE_ATTRIB);
    file->setBlock({});
    QVERIFY(!file->block());

    const auto directory = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(m_scratch->path()),
                                                                DISPATCH_VNODE_WRITE, {});
    QVERIFY(directory);
    QVERIFY(directory->isDirectoryAtURL());
    QCOMPARE(directory->events(), DISPATCH_VNODE_WRITE);

    // Made on another thread, a monitor still belongs to the main thread, where its timer runs.
    std::unique_ptr<QXFileMonitor> fromThread;
    std::unique_ptr<QThread> thread(QThread::create([&] {
        fromThread = QXFileMonitor::fileMonitorForFileURL(url(QStringLiteral("file.txt")), {});
    }));
    thread->start();
    QVERIFY(thread->wait(5000));
    QVERIFY(fromThread);
    QCOMPARE(fromThread->thread(), QThread::currentThread());
    fromThread->setupTimer();
    QVERIFY(fromThread->timer());
    fromThread->stopMonitoring();
    QVERIFY(!fromThread->timer());
}

void tst_QXFileMonitor::eventSourceReportsVnodeEvents()
{
    QXFileEventBackend *backend = QXFileEventBackend::platformBackend();
    const int descriptorsBefore = openDescriptors();
    const QString file = path(QStringLiteral("watched.txt"));
    writeFile(file, "12345");
    auto queue = std::make_shared<QXDispatchQueue>(QStringLiteral("events"));

    auto watch = [&](const QString &item, unsigned long mask, Recorder &recorder) {
        const int descriptor = backend->open(native(item));
        std::shared_ptr<QXFileEventSource> source = backend->createSource(descriptor, mask, queue);
        source->setEventHandler([&recorder, queue = queue.get()](unsigned long events) {
            recorder.events |= events;
            ++recorder.calls;
            if (!queue->isCurrent())
                recorder.offQueue = true;
        });
        source->setCancelHandler([&recorder, backend, descriptor] {
            ++recorder.cancels;
            backend->close(descriptor);
        });
        source->resume();
        return std::make_pair(descriptor, source);
    };
    // Lets pending events arrive, then returns what came.
    auto settle = [](Recorder &recorder, unsigned long expected) -> unsigned long {
        const QDeadlineTimer deadline(5000);
        while ((recorder.events & expected) != expected && !deadline.hasExpired())
            QTest::qWait(10);
        QTest::qWait(50);
        return recorder.take();
    };

    Recorder all;
    Recorder attributesOnly;
    auto [allDescriptor, allSource] = watch(file, allEvents, all);
    auto [attribDescriptor, attribSource] = watch(file, DISPATCH_VNODE_ATTRIB, attributesOnly);
    QVERIFY(allDescriptor != attribDescriptor);
    QCOMPARE(openDescriptors(), descriptorsBefore + 2);

    writeFile(file, "678", QIODevice::Append);
    QCOMPARE(settle(all, DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND),
             DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND);
    overwriteInPlace(file, "abc");
    QCOMPARE(settle(all, DISPATCH_VNODE_WRITE), DISPATCH_VNODE_WRITE);
    QVERIFY(QFile::setPermissions(file, QFile::ReadOwner));
    QCOMPARE(settle(all, DISPATCH_VNODE_ATTRIB), DISPATCH_VNODE_ATTRIB);
    const QString second = path(QStringLiteral("second-name.txt"));
    QCOMPARE(::link(native(file).constData(), native(second).constData()), 0);
    QCOMPARE(settle(all, DISPATCH_VNODE_ATTRIB | DISPATCH_VNODE_LINK), DISPATCH_VNODE_ATTRIB | DISPATCH_VNODE_LINK);
    const QString renamed = path(QStringLiteral("renamed.txt"));
    QCOMPARE(::rename(native(file).constData(), native(renamed).constData()), 0);
    QCOMPARE(settle(all, DISPATCH_VNODE_RENAME) & DISPATCH_VNODE_RENAME, DISPATCH_VNODE_RENAME);
    // The narrower source saw only attribute changes, on a shared kernel watch.
    QVERIFY(attributesOnly.take() & DISPATCH_VNODE_ATTRIB);

    // Closing one descriptor of an item leaves the other one working.
    attribSource->cancel();
    QTRY_COMPARE(attributesOnly.cancels.load(), 1);
    QCOMPARE(openDescriptors(), descriptorsBefore + 1);
    QVERIFY(QFile::setPermissions(renamed, QFile::ReadOwner | QFile::WriteOwner));
    QCOMPARE(settle(all, DISPATCH_VNODE_ATTRIB), DISPATCH_VNODE_ATTRIB);
    QCOMPARE(attributesOnly.take(), 0ul);

    // One name goes: not yet deleted. The last goes: deleted.
    QCOMPARE(::unlink(native(second).constData()), 0);
    QVERIFY(!(settle(all, DISPATCH_VNODE_ATTRIB) & DISPATCH_VNODE_DELETE));
    QCOMPARE(::unlink(native(renamed).constData()), 0);
    QVERIFY(settle(all, DISPATCH_VNODE_DELETE) & DISPATCH_VNODE_DELETE);

    // A directory reports changes of its entries, not of what is in them.
    const QString directory = path(QStringLiteral("dir"));
    QVERIFY(QDir().mkpath(directory));
    writeFile(directory + QStringLiteral("/existing.txt"), "e");
    Recorder dir;
    auto [dirDescriptor, dirSource] = watch(directory, allEvents, dir);
    writeFile(directory + QStringLiteral("/new.txt"), "n");
    QCOMPARE(settle(dir, DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND) & ~DISPATCH_VNODE_ATTRIB,
             DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND);
    writeFile(directory + QStringLiteral("/existing.txt"), "more", QIODevice::Append);
    QTest::qWait(200);
    QCOMPARE(dir.take(), 0ul);
    QVERIFY(QDir(directory).mkdir(QStringLiteral("sub")));
    QCOMPARE(settle(dir, DISPATCH_VNODE_LINK) & DISPATCH_VNODE_LINK, DISPATCH_VNODE_LINK);
    QVERIFY(QFile::remove(directory + QStringLiteral("/new.txt")));
    QCOMPARE(settle(dir, DISPATCH_VNODE_WRITE), DISPATCH_VNODE_WRITE);

    // A delivery already waiting in the queue when the source is cancelled is dropped.
    const QString busy = path(QStringLiteral("busy.txt"));
    writeFile(busy, "b");
    Recorder late;
    auto [lateDescriptor, lateSource] = watch(busy, allEvents, late);
    QSemaphore hold;
    queue->async([&hold] { hold.acquire(); });
    writeFile(busy, "more", QIODevice::Append);
    QTest::qWait(200); // the event reaches the source and waits behind the held queue
    lateSource->cancel();
    hold.release();
    QTRY_COMPARE(late.cancels.load(), 1);
    QCOMPARE(late.calls.load(), 0);

    // Cancelled sources deliver nothing more and close their descriptor once.
    const int callsBefore = dir.calls;
    dirSource->cancel();
    dirSource->cancel();
    allSource->cancel();
    writeFile(directory + QStringLiteral("/late.txt"), "l");
    QTRY_COMPARE(dir.cancels.load(), 1);
    QTRY_COMPARE(all.cancels.load(), 1);
    QTest::qWait(100);
    QCOMPARE(dir.calls.load(), callsBefore);
    QCOMPARE(openDescriptors(), descriptorsBefore);
    QVERIFY(!all.offQueue && !dir.offQueue);

    QCOMPARE(backend->open(native(path(QStringLiteral("absent")))), -1);
    QCOMPARE(errno, ENOENT);
}

void tst_QXFileMonitor::descriptorsOpenAndCloseOncePerStart()
{
    const QString file = path(QStringLiteral("log.txt"));
    writeFile(file, "start");
    const int descriptors = openDescriptors();
    const int watches = kernelWatchCount();
    QElapsedTimer clock;
    clock.start();
    Probe a{&clock}, b{&clock};
    auto first = QXFileMonitor::fileMonitorForFileURL(url(QStringLiteral("log.txt")), a.block());
    auto second = QXFileMonitor::fileMonitorForFileURL(url(QStringLiteral("log.txt")), b.block());

    first->startMonitoring();
    first->startMonitoring(); // still one descriptor, one source
    QCOMPARE(openDescriptors(), descriptors + 1);
    QCOMPARE(kernelWatchCount(), watches + 1);
    first->stopMonitoring();
    QTRY_COMPARE(openDescriptors(), descriptors);
    QCOMPARE(kernelWatchCount(), watches);

    // Stop and start at once: the old descriptor closes, the new one watches.
    first->startMonitoring();
    first->stopMonitoring();
    first->startMonitoring();
    second->startMonitoring(); // the same item: one kernel watch for both
    QTRY_COMPARE(openDescriptors(), descriptors + 2);
    QCOMPARE(kernelWatchCount(), watches + 1);
    second->stopMonitoring();
    QTRY_COMPARE(openDescriptors(), descriptors + 1);
    QCOMPARE(kernelWatchCount(), watches + 1);

    writeFile(file, " more", QIODevice::Append);
    QTRY_COMPARE_WITH_TIMEOUT(a.calls, 1, 5000);
    QCOMPARE(a.thread, QThread::currentThread());
    QCOMPARE(b.calls, 0);

    first.reset(); // destroying a watching monitor stops it
    QTRY_COMPARE(openDescriptors(), descriptors);
    QCOMPARE(kernelWatchCount(), watches);

    // An item that cannot be opened starts nothing; a later start works.
    QVERIFY(QFile::remove(file));
    second->startMonitoring();
    QCOMPARE(openDescriptors(), descriptors);
    writeFile(file, "again");
    second->startMonitoring();
    QCOMPARE(openDescriptors(), descriptors + 1);
    second.reset();
    QTRY_COMPARE(openDescriptors(), descriptors);
}

void tst_QXFileMonitor::reportsOnceAfterTheItemSettles()
{
    // Several monitors at once, so the suite waits for the settle time only once.
    const QString burst = path(QStringLiteral("burst.log"));
    const QString inPlace = path(QStringLiteral("inplace.txt"));
    const QString folder = path(QStringLiteral("folder"));
    const QString growing = path(QStringLiteral("growing"));
    const QString stopped = path(QStringLiteral("stopped.txt"));
    const QString destroyed = path(QStringLiteral("destroyed.txt"));
    const QString deleted = path(QStringLiteral("deleted.txt"));
    const QString masked = path(QStringLiteral("masked.txt"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QDir().mkpath(growing + QStringLiteral("/sub")));
    writeFile(growing + QStringLiteral("/sub/data.bin"), "d");
    for (const QString &file : {burst, inPlace, stopped, destroyed, deleted, masked})
        writeFile(file, "0123456789");

    QElapsedTimer clock;
    clock.start();
    Probe pBurst{&clock}, pInPlace{&clock}, pFolder{&clock}, pGrowing{&clock}, pStopped{&clock},
        pDestroyed{&clock}, pDeleted{&clock}, pMasked{&clock};
    auto monitor = [](const QString &item, Probe &probe, unsigned long events = QXFileMonitor::DefaultEvents) {
        auto m = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(item), events, probe.block());
        m->startMonitoring();
        return m;
    };
    const auto mBurst = monitor(burst, pBurst);
    const auto mInPlace = monitor(inPlace, pInPlace);
    const auto mFolder = monitor(folder, pFolder);
    const auto mGrowing = monitor(growing, pGrowing);
    const auto mStopped = monitor(stopped, pStopped);
    auto mDestroyed = monitor(destroyed, pDestroyed);
    const auto mDeleted = monitor(deleted, pDeleted);
    const auto mMasked = monitor(masked, pMasked, DISPATCH_VNODE_WRITE);

    qint64 lastBurstWrite = 0;
    const qint64 growingEvent = clock.elapsed();
    writeFile(growing + QStringLiteral("/arrived.txt"), "a"); // an event for the directory
    writeFile(folder + QStringLiteral("/new.txt"), "hello");
    overwriteInPlace(inPlace, "ABCDEFGHIJ");
    writeFile(stopped, "x", QIODevice::Append);
    writeFile(destroyed, "x", QIODevice::Append);
    QVERIFY(QFile::remove(deleted));
    QVERIFY(QFile::setPermissions(masked, QFile::ReadOwner)); // attributes: not in the mask
    for (int i = 0; i < 5; ++i) {
        writeFile(burst, QByteArray(100, 'b'), QIODevice::Append);
        lastBurstWrite = clock.elapsed();
        if (i == 2) {
            QTRY_VERIFY(mStopped->timer()); // settling
            mStopped->stopMonitoring();
            QVERIFY(!mStopped->timer());
            mDestroyed.reset();
        }
        if (i == 4)
            // The directory's tree grows without an event for the directory
            // itself: the settle check sees it and waits another second.
            writeFile(growing + QStringLiteral("/sub/data.bin"), "more", QIODevice::Append);
        else
            QTest::qWait(150);
    }

    QTRY_VERIFY_WITH_TIMEOUT(pBurst.calls && pInPlace.calls && pFolder.calls && pGrowing.calls && pDeleted.calls, 6000);
    QTest::qWait(300); // room for a second report that must not come
    QCOMPARE(pBurst.calls, 1);
    QVERIFY2(pBurst.at - lastBurstWrite >= 990, qPrintable(QString::number(pBurst.at - lastBurstWrite)));
    QCOMPARE(pInPlace.calls, 1);
    QCOMPARE(pFolder.calls, 1);
    QCOMPARE(pGrowing.calls, 1);
    QVERIFY2(pGrowing.at - growingEvent >= 1990, qPrintable(QString::number(pGrowing.at - growingEvent)));
    QCOMPARE(pDeleted.calls, 1);
    QCOMPARE(pStopped.calls, 0);
    QCOMPARE(pDestroyed.calls, 0);
    QCOMPARE(pMasked.calls, 0);
    QVERIFY(!mBurst->timer());
}

void tst_QXFileMonitor::followingAnEditorSave()
{
    const QString document = path(QStringLiteral("document.md"));
    writeFile(document, "version 1");
    QElapsedTimer clock;
    clock.start();
    QByteArray seen;
    int restartingCalls = 0;
    auto restarting = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(document), {});
    restarting->setBlock([&, m = restarting.get()] {
        ++restartingCalls;
        QFile file(document);
        if (file.open(QIODevice::ReadOnly))
            seen = file.readAll();
        m->stopMonitoring();
        m->startMonitoring();
    });
    Probe plain{&clock};
    auto bound = QXFileMonitor::fileMonitorForFileURL(QUrl::fromLocalFile(document), plain.block());
    restarting->startMonitoring();
    bound->startMonitoring();

    editorSave(document, "version 2, longer");
    QTRY_COMPARE_WITH_TIMEOUT(restartingCalls, 1, 5000);
    QCOMPARE(seen, QByteArray("version 2, longer"));
    QTRY_COMPARE(plain.calls, 1);

    // The monitor that restarted follows the path to the new file; the
    // other one stays with the replaced file and hears nothing more.
    editorSave(document, "version 3");
    QTRY_COMPARE_WITH_TIMEOUT(restartingCalls, 2, 5000);
    QCOMPARE(seen, QByteArray("version 3"));
    QCOMPARE(plain.calls, 1);
}

QTEST_GUILESS_MAIN(tst_QXFileMonitor)
#include "tst_qxfilemonitor.moc"
