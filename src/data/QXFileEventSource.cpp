#include "data/QXFileEventSource_p.h"

#if defined(Q_OS_LINUX)
#include "data/QXFileEventBackend_inotify_p.h"
#endif

QXFileEventSource::QXFileEventSource(unsigned long mask, std::shared_ptr<QXDispatchQueue> queue)
    : m_mask(mask)
    , m_queue(std::move(queue))
{
}

void QXFileEventSource::setEventHandler(EventHandler handler)
{
    std::lock_guard lock(m_mutex);
    if (!m_cancelled)
        m_eventHandler = std::move(handler);
}

void QXFileEventSource::setCancelHandler(CancelHandler handler)
{
    std::lock_guard lock(m_mutex);
    if (!m_cancelled)
        m_cancelHandler = std::move(handler);
}

void QXFileEventSource::resume()
{
    std::lock_guard lock(m_mutex);
    if (m_resumed || m_cancelled)
        return;
    m_resumed = true;
    if (m_pending)
        scheduleLocked();
}

bool QXFileEventSource::isCancelled() const
{
    std::lock_guard lock(m_mutex);
    return m_cancelled;
}

void QXFileEventSource::deliver(unsigned long events)
{
    events &= m_mask;
    if (!events)
        return;
    std::lock_guard lock(m_mutex);
    if (m_cancelled)
        return;
    m_pending |= events;
    if (m_resumed && !m_scheduled)
        scheduleLocked();
}

void QXFileEventSource::scheduleLocked()
{
    m_scheduled = true;
    m_queue->async([self = shared_from_this()] {
        EventHandler handler;
        unsigned long events = 0;
        {
            std::lock_guard lock(self->m_mutex);
            self->m_scheduled = false;
            if (self->m_cancelled)
                return;
            events = self->m_pending;
            self->m_pending = 0;
            handler = self->m_eventHandler;
        }
        if (handler && events)
            handler(events);
    });
}

void QXFileEventSource::cancel()
{
    std::lock_guard lock(m_mutex);
    if (m_cancelled)
        return;
    m_cancelled = true;
    m_pending = 0;
    // Runs after every delivery queued so far, which all see the flag.
    m_queue->async([self = shared_from_this()] {
        CancelHandler cancelHandler;
        EventHandler eventHandler;
        {
            std::lock_guard lock(self->m_mutex);
            cancelHandler = std::move(self->m_cancelHandler);
            eventHandler = std::move(self->m_eventHandler);
            self->m_cancelHandler = nullptr;
            self->m_eventHandler = nullptr;
        }
        if (cancelHandler)
            cancelHandler();
    });
}

std::shared_ptr<QXFileEventSource> QXFileEventBackend::createSource(int descriptor, unsigned long mask,
                                                                     std::shared_ptr<QXDispatchQueue> queue)
{
    auto source = std::make_shared<QXFileEventSource>(mask, std::move(queue));
    attach(descriptor, source);
    return source;
}

QXFileEventBackend *QXFileEventBackend::platformBackend()
{
#if defined(Q_OS_LINUX)
    // Sources and queues may still close descriptors while the process
    // exits, so the backend is never destroyed.
    static QXFileEventBackend *const backend = new QXInotifyFileEventBackend;
    return backend;
#else
#error "QXFileMonitor needs an event backend for this system (kqueue on BSD and macOS)"
#endif
}
