#include <QXFoundation/QXFileMonitor.h>

#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXFileManager.h>

#include "data/QXFileEventSource_p.h"

#include <QCoreApplication>
#include <QFile>
#include <QPointer>
#include <QRecursiveMutex>
#include <QThread>
#include <QTimer>

#include <atomic>

#include <sys/stat.h>

struct QXFileMonitor::Private
{
    mutable QRecursiveMutex mutex;
    QUrl fileURL;
    bool isDirectory = false;
    unsigned long events = DefaultEvents;
    Block block;
    // Written on the monitor's queue, read and written on the main thread.
    std::atomic<quint64> lastSize{0};
    // Bumped by every stop, so that a timer that fires after a stop made on
    // another thread (before the stop reached the timer) reports nothing.
    quint64 epoch = 0; // under the mutex
    quint64 armedEpoch = 0; // the epoch in which the timer was armed; main thread only

    quint64 currentEpoch() const
    {
        QMutexLocker locker(&mutex);
        return epoch;
    }
    std::shared_ptr<QXDispatchQueue> queue;
    std::shared_ptr<QXFileEventSource> source;

    quint64 measureSize() const
    {
        QUrl url;
        bool directory;
        {
            QMutexLocker locker(&mutex);
            url = fileURL;
            directory = isDirectory;
        }
        if (directory)
            return qx_direcorySizeAtURL(url);
        return url.isLocalFile() ? qx_sizeOfFilesAtPaths({url.toLocalFile()}) : 0;
    }
};

namespace {

// The queue's worker may be waiting for the main thread (an event handler
// re-arming the timer), so the queue must never be destroyed by a thread
// that waits for it. It is destroyed from one of its own tasks instead,
// after everything submitted before, which never blocks the caller.
std::shared_ptr<QXDispatchQueue> makeMonitorQueue()
{
    return std::shared_ptr<QXDispatchQueue>(new QXDispatchQueue(QStringLiteral("kQXFileMonitorQueue")),
                                            [](QXDispatchQueue *queue) { queue->async([queue] { delete queue; }); });
}

} // namespace

std::unique_ptr<QXFileMonitor> QXFileMonitor::fileMonitorForFileURL(const QUrl &fileURL, Block block)
{
    return fileMonitorForFileURL(fileURL, DefaultEvents, std::move(block));
}

std::unique_ptr<QXFileMonitor> QXFileMonitor::fileMonitorForFileURL(const QUrl &fileURL, unsigned long atEvents,
                                                                    Block block)
{
    if (!fileURL.isLocalFile())
        return nullptr;
    struct stat st;
    if (::stat(QFile::encodeName(fileURL.toLocalFile()).constData(), &st) != 0)
        return nullptr;
    auto d = std::make_shared<Private>();
    d->fileURL = fileURL;
    d->isDirectory = S_ISDIR(st.st_mode);
    d->events = atEvents;
    d->block = std::move(block);
    d->queue = makeMonitorQueue();
    std::unique_ptr<QXFileMonitor> monitor(new QXFileMonitor(std::move(d)));
    // The timer lives on the main thread's event loop, and so does the monitor.
    if (QCoreApplication *app = QCoreApplication::instance(); app && monitor->thread() != app->thread())
        monitor->moveToThread(app->thread());
    return monitor;
}

QXFileMonitor::QXFileMonitor(std::shared_ptr<Private> d)
    : d(std::move(d))
    , m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(1000);
    // A coarse timer may be 5% late: 50 ms on top of the settle time.
    m_timer->setTimerType(Qt::PreciseTimer);
    connect(m_timer, &QTimer::timeout, this, [this] {
        if (this->d->armedEpoch == this->d->currentEpoch())
            timerAction(m_timer);
    });
}

QXFileMonitor::~QXFileMonitor()
{
    stopMonitoring();
}

QUrl QXFileMonitor::fileURL() const
{
    QMutexLocker locker(&d->mutex);
    return d->fileURL;
}

void QXFileMonitor::setFileURL(const QUrl &fileURL)
{
    QMutexLocker locker(&d->mutex);
    d->fileURL = fileURL;
}

bool QXFileMonitor::isDirectoryAtURL() const
{
    QMutexLocker locker(&d->mutex);
    return d->isDirectory;
}

unsigned long QXFileMonitor::events() const
{
    QMutexLocker locker(&d->mutex);
    return d->events;
}

void QXFileMonitor::setEvents(unsigned long events)
{
    QMutexLocker locker(&d->mutex);
    d->events = events;
}

QXFileMonitor::Block QXFileMonitor::block() const
{
    QMutexLocker locker(&d->mutex);
    return d->block;
}

void QXFileMonitor::setBlock(Block block)
{
    QMutexLocker locker(&d->mutex);
    d->block = std::move(block);
}

QTimer *QXFileMonitor::timer() const
{
    return m_timer->isActive() ? m_timer : nullptr;
}

void QXFileMonitor::startMonitoring()
{
    QMutexLocker locker(&d->mutex);
    if (d->source)
        return;
    QXFileEventBackend *backend = QXFileEventBackend::platformBackend();
    const int descriptor = backend->open(QFile::encodeName(d->fileURL.toLocalFile()));
    if (descriptor < 0)
        return;
    std::shared_ptr<QXFileEventSource> source = backend->createSource(descriptor, d->events, d->queue);

    std::weak_ptr<Private> weakD = d;
    std::weak_ptr<QXFileEventSource> weakSource = source;
    QPointer<QXFileMonitor> monitor(this);
    source->setEventHandler([weakD, weakSource, monitor](unsigned long fired) {
        const std::shared_ptr<Private> dd = weakD.lock();
        if (!dd)
            return;
        unsigned long mask;
        {
            QMutexLocker locker(&dd->mutex);
            mask = dd->events;
        }
        if (!(fired & mask))
            return;
        dd->lastSize = dd->measureSize();
        QXDispatch::mainSync([&] {
            // A stop made on the main thread while this event was on its way wins.
            const std::shared_ptr<QXFileEventSource> current = weakSource.lock();
            if (monitor && current && !current->isCancelled())
                monitor->setupTimer();
        });
    });
    source->setCancelHandler([backend, descriptor] { backend->close(descriptor); });
    d->source = source;
    source->resume();
}

void QXFileMonitor::stopMonitoring()
{
    QMutexLocker locker(&d->mutex);
    ++d->epoch;
    if (QThread::currentThread() == thread())
        m_timer->stop();
    else
        QMetaObject::invokeMethod(m_timer, &QTimer::stop, Qt::QueuedConnection);
    if (d->source) {
        d->source->cancel();
        d->source.reset();
    }
}

void QXFileMonitor::setupTimer()
{
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, &QXFileMonitor::setupTimer, Qt::QueuedConnection);
        return;
    }
    d->armedEpoch = d->currentEpoch();
    m_timer->start();
}

void QXFileMonitor::timerAction(QTimer *timer)
{
    Q_UNUSED(timer);
    const quint64 size = d->measureSize();
    if (size != d->lastSize.load()) {
        // Still changing: wait another second.
        d->lastSize = size;
        setupTimer();
        return;
    }
    const Block block = this->block();
    if (block)
        block();
}
