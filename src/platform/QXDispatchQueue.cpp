#include <QXFoundation/QXDispatchQueue.h>

#include "platform/QXPlatform_p.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <pthread.h>

struct QXDispatchQueue::State
{
    QString label;
    // Standard types rather than QMutex/QWaitCondition: ThreadSanitizer
    // follows them through the C library, but not into an uninstrumented Qt,
    // whose waits would look like a mutex locked twice.
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks;
    bool stopping = false;
    std::thread thread;
};

namespace {
// The queue whose task is running on this thread, if any.
thread_local const void *currentQueue = nullptr;
} // namespace

QXDispatchQueue::QXDispatchQueue(const QString &label)
    : m_state(std::make_shared<State>())
{
    m_state->label = label;
    // The worker holds the state, not the queue object, so it can outlive a
    // queue released from one of its own tasks.
    std::shared_ptr<State> state = m_state;
    m_state->thread = std::thread([state] {
        // The kernel keeps 15 bytes of a thread's name: enough to tell queues apart in a debugger.
        const QByteArray name = (state->label.isEmpty() ? QStringLiteral("QXDispatchQueue") : state->label).toUtf8().left(15);
        pthread_setname_np(pthread_self(), name.constData());
        currentQueue = state.get();
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(state->mutex);
                state->wake.wait(lock, [&] { return !state->tasks.empty() || state->stopping; });
                if (state->tasks.empty())
                    break;
                task = std::move(state->tasks.front());
                state->tasks.pop_front();
            }
            task();
        }
        currentQueue = nullptr;
    });
}

QXDispatchQueue::~QXDispatchQueue()
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopping = true;
        m_state->wake.notify_all();
    }
    if (isCurrent()) {
        // Released from inside a task: the worker cannot wait for itself. It
        // drains the remaining tasks and ends on its own.
        m_state->thread.detach();
        return;
    }
    m_state->thread.join();
}

QString QXDispatchQueue::label() const
{
    return m_state->label;
}

bool QXDispatchQueue::isCurrent() const
{
    return currentQueue == m_state.get();
}

void QXDispatchQueue::async(std::function<void()> task)
{
    if (!task)
        return;
    std::lock_guard lock(m_state->mutex);
    m_state->tasks.push_back(std::move(task));
    m_state->wake.notify_one();
}

void QXDispatchQueue::sync(const std::function<void()> &task)
{
    if (!task)
        return;
    if (isCurrent()) {
        qCCritical(lcQXFoundation, "QXDispatchQueue::sync called from a task of queue \"%s\"; "
                                   "running it inline instead of deadlocking",
                   qUtf8Printable(m_state->label));
        task();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneCondition;
    bool done = false;
    async([&] {
        task();
        std::lock_guard lock(doneMutex);
        done = true;
        doneCondition.notify_all();
    });
    std::unique_lock lock(doneMutex);
    doneCondition.wait(lock, [&] { return done; });
}

bool QXDispatch::isMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

namespace {
// The main queue's tasks wait in a list of our own, behind a std::mutex, and
// each call posted to the main thread (by name, so that Qt allocates and
// frees everything it posts) runs the oldest one. Handing the tasks
// themselves through Qt's event queue would be just as correct, but
// ThreadSanitizer cannot see the ordering inside an uninstrumented Qt and
// reports every hand-over as a race.
class MainQueue : public QObject
{
    Q_OBJECT

public:
    explicit MainQueue(QObject *parent)
        : QObject(parent)
    {
    }
    ~MainQueue() override { current.store(nullptr, std::memory_order_release); }

    // Created on the main thread with each QCoreApplication, as its child.
    static inline std::atomic<MainQueue *> current{nullptr};

    void post(std::function<void()> task)
    {
        {
            std::lock_guard lock(mutex);
            tasks.push_back(std::move(task));
        }
        QMetaObject::invokeMethod(this, "runNext", Qt::QueuedConnection);
    }

public Q_SLOTS:
    void runNext()
    {
        std::function<void()> task;
        {
            std::lock_guard lock(mutex);
            if (tasks.empty())
                return;
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        task();
    }

private:
    std::mutex mutex;
    std::deque<std::function<void()>> tasks;
};

void createMainQueue()
{
    MainQueue::current.store(new MainQueue(QCoreApplication::instance()), std::memory_order_release);
}
Q_COREAPP_STARTUP_FUNCTION(createMainQueue)
} // namespace

void QXDispatch::mainAsync(std::function<void()> task)
{
    MainQueue *queue = QCoreApplication::instance() ? MainQueue::current.load(std::memory_order_acquire) : nullptr;
    if (!queue) {
        qCWarning(lcQXFoundation, "QXDispatch::mainAsync: no QCoreApplication; the task is dropped");
        return;
    }
    queue->post(std::move(task));
}

void QXDispatch::mainSync(const std::function<void()> &task)
{
    QCoreApplication *app = QCoreApplication::instance();
    MainQueue *queue = app ? MainQueue::current.load(std::memory_order_acquire) : nullptr;
    if (!queue || QThread::currentThread() == app->thread()) {
        task();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneCondition;
    bool done = false;
    queue->post([&] {
        task();
        std::lock_guard lock(doneMutex);
        done = true;
        doneCondition.notify_all();
    });
    std::unique_lock lock(doneMutex);
    doneCondition.wait(lock, [&] { return done; });
}

void QXDispatch::mainAfter(double seconds, std::function<void()> task)
{
    // Timers belong to the thread that starts them, so the timer is started
    // from the main thread itself.
    const int msec = seconds > 0 ? int(qMin(seconds * 1000.0 + 0.5, double(INT_MAX))) : 0;
    mainAsync([msec, task = std::move(task)]() mutable {
        QTimer::singleShot(msec, Qt::PreciseTimer, QCoreApplication::instance(), std::move(task));
    });
}

namespace {
// GCD's global queues add threads while tasks block; a pool capped at the
// core count would let two blocking requests stall every other background task.
struct BackgroundPool
{
    QThreadPool pool;
    BackgroundPool() { pool.setMaxThreadCount(qMax(64, QThread::idealThreadCount())); }
};
Q_GLOBAL_STATIC(BackgroundPool, backgroundPool)
} // namespace

void QXDispatch::backgroundAsync(std::function<void()> task)
{
    if (!task)
        return;
    // The pool's threads serve only this queue, so they stay at the lowest priority.
    backgroundPool()->pool.start([task = std::move(task)] {
        QThread::currentThread()->setPriority(QThread::LowestPriority);
        task();
    });
}

#include "QXDispatchQueue.moc"
