#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QString>

#include <functional>
#include <memory>

/*!
  A serial queue: one worker thread runs the submitted tasks one at a time,
  in submission order.

  async() returns at once; sync() returns after the task has run on the
  worker. Calling sync() from a task of the same queue would wait for
  itself: the queue reports this as a programming error (a critical log
  message in the "qxfoundation" category) and runs the task inline instead
  of hanging.

  Destroying the queue lets every task submitted so far run, then stops the
  worker. When the last owner releases the queue from inside one of its own
  tasks, the worker finishes the remaining tasks and exits by itself.
*/
class QXFOUNDATION_EXPORT QXDispatchQueue
{
public:
    explicit QXDispatchQueue(const QString &label = QString());
    ~QXDispatchQueue();
    QXDispatchQueue(const QXDispatchQueue &) = delete;
    QXDispatchQueue &operator=(const QXDispatchQueue &) = delete;

    QString label() const;

    void async(std::function<void()> task);
    void sync(const std::function<void()> &task);

    // True on the queue's worker thread, while it runs a task.
    bool isCurrent() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

/*!
  The main queue (the thread of QCoreApplication's event loop), the
  background queue (a library-owned pool of low-priority threads) and delays.
*/
namespace QXDispatch {

// True on the thread of the QCoreApplication instance.
QXFOUNDATION_EXPORT bool isMainThread();

// Queues `task` on the main thread's event loop; tasks run in the order they
// were queued, on a later turn of the loop, even when queued from the main
// thread itself. Without a QCoreApplication the task is dropped with a warning.
QXFOUNDATION_EXPORT void mainAsync(std::function<void()> task);

// Runs `task` on the main thread and waits for it. On the main thread the
// task runs at once, inline.
QXFOUNDATION_EXPORT void mainSync(const std::function<void()> &task);

// Runs `task` on the main thread `seconds` from now (0 or less: the next turn).
QXFOUNDATION_EXPORT void mainAfter(double seconds, std::function<void()> task);

// Runs `task` on a background thread at the lowest priority. Tasks run
// concurrently; a task that blocks (a network request) does not hold up the
// others, because the pool grows as needed.
QXFOUNDATION_EXPORT void backgroundAsync(std::function<void()> task);

} // namespace QXDispatch
