#include <QXFoundation/QXDispatchQueue.h>

#include "platform/QXPlatform_p.h"
#include "platform/QXTsan_p.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <pthread.h>

// The queue synchronises with the standard library's primitives rather than
// QMutex/QWaitCondition: ThreadSanitizer sees through them even though Qt's
// own libraries are not instrumented.
struct QXDispatchQueue::State
{
    QString label;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks;
    bool stopping = false;
    std::thread thread;
};

namespace {
// The queue whose task is running on this thread, if any.
thread_local const void *currentQueue = nullptr;

// std::condition_variable::wait is compiled into libstdc++, which
// ThreadSanitizer does not watch: the relock inside it is invisible, so it
// is marked here, before the predicate reads what the notifier wrote. (The
// caller's own lock is seen: it is taken in instrumented code.)
template <typename Predicate>
void waitUntil(std::condition_variable &condition, std::unique_lock<std::mutex> &lock, Predicate predicate)
{
    while (!predicate()) {
        condition.wait(lock);
        QXTsan::acquire(lock.mutex());
    }
}
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
                std::unique_lock locker(state->mutex);
                waitUntil(state->wake, locker, [&] { return !state->tasks.empty() || state->stopping; });
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
        std::lock_guard locker(m_state->mutex);
        m_state->stopping = true;
    }
    m_state->wake.notify_all();
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
    {
        std::lock_guard locker(m_state->mutex);
        m_state->tasks.push_back(std::move(task));
    }
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
        std::lock_guard locker(doneMutex);
        done = true;
        doneCondition.notify_all();
    });
    std::unique_lock locker(doneMutex);
    waitUntil(doneCondition, locker, [&] { return done; });
}

bool QXDispatch::isMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

namespace {
// A task travels to the main thread inside an event rather than a queued
// functor: the event is complete before Qt takes it, so the hand-off can be
// marked for ThreadSanitizer between the last write and the post.
class MainTaskEvent : public QEvent
{
public:
    explicit MainTaskEvent(std::function<void()> task)
        : QEvent(eventType())
        , m_task(std::move(task))
    {
    }

    static QEvent::Type eventType()
    {
        static const auto type = QEvent::Type(QEvent::registerEventType());
        return type;
    }

    void run() const { m_task(); }

private:
    std::function<void()> m_task;
};

class MainTaskReceiver : public QObject
{
public:
    bool event(QEvent *event) override
    {
        if (event->type() != MainTaskEvent::eventType())
            return QObject::event(event);
        QXTsan::acquire(event);
        static_cast<const MainTaskEvent *>(event)->run();
        return true;
    }
};

// The receiver lives on the application's thread and dies with the application.
QObject *mainTaskReceiver(QCoreApplication *app)
{
    static std::mutex mutex;
    static QPointer<QObject> receiver;
    std::lock_guard locker(mutex);
    if (!receiver) {
        auto created = std::make_unique<MainTaskReceiver>();
        created->moveToThread(app->thread());
        QObject::connect(app, &QObject::destroyed, created.get(), [object = created.get()] { delete object; },
                         Qt::DirectConnection);
        receiver = created.release();
    }
    return receiver;
}
} // namespace

void QXDispatch::mainAsync(std::function<void()> task)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        qCWarning(lcQXFoundation, "QXDispatch::mainAsync: no QCoreApplication; the task is dropped");
        return;
    }
    if (!task)
        return;
    auto event = std::make_unique<MainTaskEvent>(std::move(task));
    QXTsan::release(event.get());
    QCoreApplication::postEvent(mainTaskReceiver(app), event.release());
}

void QXDispatch::mainSync(const std::function<void()> &task)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        task();
        return;
    }
    // A queued call and a wait on the standard library's primitives, rather
    // than a blocking queued connection, so every step is visible to
    // ThreadSanitizer and the posted call owns all it touches.
    struct Done
    {
        std::mutex mutex;
        std::condition_variable condition;
        bool done = false;
    };
    auto done = std::make_shared<Done>();
    mainAsync([done, &task] {
        task();
        std::lock_guard locker(done->mutex);
        done->done = true;
        done->condition.notify_all();
    });
    std::unique_lock locker(done->mutex);
    waitUntil(done->condition, locker, [&] { return done->done; });
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
    auto handoff = std::make_shared<std::function<void()>>(std::move(task));
    QXTsan::release(handoff.get());
    backgroundPool()->pool.start([handoff] {
        QXTsan::acquire(handoff.get());
        QThread::currentThread()->setPriority(QThread::LowestPriority);
        (*handoff)();
    });
}
