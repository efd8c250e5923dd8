#pragma once

// The system side of QXFileMonitor: an event source that reports, for one
// open item, which vnode events (DISPATCH_VNODE_*) fired, serially on a
// queue, and a backend per system that opens items for event notification
// and feeds their sources. Linux has the inotify backend; a kqueue backend
// would serve BSD and macOS behind the same interface.

#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXGlobal.h>

#include <QByteArray>

#include <functional>
#include <memory>
#include <mutex>

/*!
  Delivers the event bits of one open item to an event handler on a serial
  queue. Bits that fire while a delivery is still waiting in the queue are
  merged into it, so a burst costs one handler call per turn of the queue.
  Nothing is delivered before resume() (bits that fire meanwhile wait for
  it) or after cancel(): a handler call that has not begun when cancel()
  returns never begins. After cancel() the cancel handler runs once, on the
  queue, after every delivery queued before it; then both handlers are
  released.
*/
class QXFOUNDATION_EXPORT QXFileEventSource : public std::enable_shared_from_this<QXFileEventSource>
{
public:
    using EventHandler = std::function<void(unsigned long events)>;
    using CancelHandler = std::function<void()>;

    QXFileEventSource(unsigned long mask, std::shared_ptr<QXDispatchQueue> queue);

    unsigned long mask() const { return m_mask; }
    void setEventHandler(EventHandler handler);
    void setCancelHandler(CancelHandler handler);
    void resume();
    void cancel();
    bool isCancelled() const;

    // For the backend: `events` fired on the item (any thread).
    void deliver(unsigned long events);

private:
    void scheduleLocked();

    const unsigned long m_mask;
    const std::shared_ptr<QXDispatchQueue> m_queue;
    mutable std::mutex m_mutex;
    EventHandler m_eventHandler;
    CancelHandler m_cancelHandler;
    unsigned long m_pending = 0;
    bool m_scheduled = false;
    bool m_resumed = false;
    bool m_cancelled = false;
};

/*!
  Opens items for event notification only and feeds the event sources made
  on them. A descriptor stands for one open() and is closed exactly once;
  two descriptors may refer to one item.
*/
class QXFOUNDATION_EXPORT QXFileEventBackend
{
public:
    virtual ~QXFileEventBackend() = default;

    // The process-wide backend of this system, created on first use and
    // kept until the process ends.
    static QXFileEventBackend *platformBackend();

    // A descriptor (>= 0) for the item at `path` (a final symbolic link is
    // followed), or -1 with errno set.
    virtual int open(const QByteArray &path) = 0;
    // Closes a descriptor of open(); its sources receive nothing more.
    virtual void close(int descriptor) = 0;
    // How many descriptors are open.
    virtual int openDescriptorCount() const = 0;

    // A suspended source for the events in `mask` of the descriptor's item,
    // delivering on `queue`.
    std::shared_ptr<QXFileEventSource> createSource(int descriptor, unsigned long mask,
                                                    std::shared_ptr<QXDispatchQueue> queue);

protected:
    virtual void attach(int descriptor, const std::shared_ptr<QXFileEventSource> &source) = 0;
};
