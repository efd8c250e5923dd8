#include "data/QXFileEventBackend_inotify_p.h"

#include <QXFoundation/QXFileMonitor.h>

#include "platform/QXPlatform_p.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The same mask for every watch, so that descriptors of one item can share
// its kernel watch; each source filters by its own mask.
constexpr quint32 watchMask = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF | IN_CREATE | IN_DELETE
    | IN_MOVED_FROM | IN_MOVED_TO;
constexpr quint32 entryChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

} // namespace

QXInotifyFileEventBackend::QXInotifyFileEventBackend() = default;

QXInotifyFileEventBackend::~QXInotifyFileEventBackend()
{
    if (m_reader.joinable()) {
        const quint64 one = 1;
        while (::write(m_wake, &one, sizeof one) < 0 && errno == EINTR) {
        }
        m_reader.join();
    }
    if (m_inotify >= 0)
        ::close(m_inotify);
    if (m_wake >= 0)
        ::close(m_wake);
}

bool QXInotifyFileEventBackend::startLocked()
{
    m_inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify < 0)
        return false;
    m_wake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_wake < 0) {
        const int saved = errno;
        ::close(m_inotify);
        m_inotify = -1;
        errno = saved;
        return false;
    }
    m_reader = std::thread([this] { run(); });
    return true;
}

int QXInotifyFileEventBackend::open(const QByteArray &path)
{
    std::lock_guard lock(m_mutex);
    if (m_inotify < 0 && !startLocked())
        return -1;
    const int wd = ::inotify_add_watch(m_inotify, path.constData(), watchMask);
    if (wd < 0)
        return -1;
    std::shared_ptr<Watch> &watch = m_watches[wd];
    if (!watch) {
        watch = std::make_shared<Watch>();
        watch->wd = wd;
        watch->path = path;
        struct stat st;
        if (::stat(path.constData(), &st) == 0) {
            watch->device = st.st_dev;
            watch->inode = st.st_ino;
            watch->size = st.st_size;
            watch->links = st.st_nlink;
        }
    }
    ++watch->references;
    int descriptor;
    do {
        descriptor = m_nextDescriptor;
        m_nextDescriptor = m_nextDescriptor == INT_MAX ? 0 : m_nextDescriptor + 1;
    } while (m_descriptors.count(descriptor));
    m_descriptors[descriptor].watch = watch;
    return descriptor;
}

void QXInotifyFileEventBackend::close(int descriptor)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_descriptors.find(descriptor);
    if (it == m_descriptors.end()) {
        qCWarning(lcQXFoundation, "QXFileMonitor: descriptor %d closed twice or never opened", descriptor);
        return;
    }
    const std::shared_ptr<Watch> watch = it->second.watch;
    m_descriptors.erase(it);
    if (--watch->references > 0 || !watch->alive)
        return;
    ::inotify_rm_watch(m_inotify, watch->wd);
    m_watches.erase(watch->wd);
}

int QXInotifyFileEventBackend::openDescriptorCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_descriptors.size());
}

void QXInotifyFileEventBackend::attach(int descriptor, const std::shared_ptr<QXFileEventSource> &source)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_descriptors.find(descriptor);
    if (it == m_descriptors.end())
        return;
    auto &sources = it->second.sources;
    sources.erase(std::remove_if(sources.begin(), sources.end(), [](const auto &weak) { return weak.expired(); }),
                  sources.end());
    sources.push_back(source);
}

void QXInotifyFileEventBackend::run()
{
    pthread_setname_np(pthread_self(), "QXFileEvents");
    // Many events per read; new[] aligns it for the event header.
    std::vector<char> buffer(64 * 1024);
    struct pollfd fds[2] = {{m_inotify, POLLIN, 0}, {m_wake, POLLIN, 0}};
    for (;;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            qCWarning(lcQXFoundation, "QXFileMonitor: cannot wait for file events: %s", strerror(errno));
            return;
        }
        if (fds[1].revents)
            return;
        const ssize_t n = ::read(m_inotify, buffer.data(), buffer.size());
        if (n <= 0)
            continue; // EAGAIN or EINTR: poll again
        std::lock_guard lock(m_mutex);
        for (ssize_t offset = 0; offset + ssize_t(sizeof(struct inotify_event)) <= n;) {
            const auto *event = reinterpret_cast<const struct inotify_event *>(buffer.data() + offset);
            dispatch(*event);
            offset += ssize_t(sizeof(struct inotify_event) + event->len);
        }
    }
}

void QXInotifyFileEventBackend::dispatch(const struct inotify_event &event)
{
    if (event.mask & IN_Q_OVERFLOW) {
        // Events were lost: anything may have changed.
        for (const auto &entry : m_watches)
            deliverLocked(*entry.second, DISPATCH_VNODE_WRITE);
        return;
    }
    const auto it = m_watches.find(event.wd);
    if (it == m_watches.end())
        return; // a watch removed by close()
    Watch &watch = *it->second;
    if (event.mask & IN_IGNORED) {
        // The item is gone (or its file system): the kernel dropped the watch.
        watch.alive = false;
        m_watches.erase(it);
        return;
    }
    unsigned long events = 0;
    if (event.len > 0) {
        // An entry of a watched directory: only its arrival and departure
        // change the directory.
        if (event.mask & (IN_CREATE | IN_MOVED_TO))
            events |= DISPATCH_VNODE_WRITE | DISPATCH_VNODE_EXTEND;
        if (event.mask & (IN_DELETE | IN_MOVED_FROM))
            events |= DISPATCH_VNODE_WRITE;
        if ((event.mask & entryChanges) && (event.mask & IN_ISDIR))
            events |= DISPATCH_VNODE_LINK; // a subdirectory's ".." counts as a link
    } else {
        events = itemEvents(watch, event.mask);
    }
    deliverLocked(watch, events);
}

unsigned long QXInotifyFileEventBackend::itemEvents(Watch &watch, quint32 mask)
{
    unsigned long events = 0;
    if (mask & IN_DELETE_SELF)
        events |= DISPATCH_VNODE_DELETE;
    if (mask & IN_MOVE_SELF)
        events |= DISPATCH_VNODE_RENAME;
    if (mask & IN_UNMOUNT)
        events |= DISPATCH_VNODE_REVOKE;
    if (mask & (IN_MODIFY | IN_ATTRIB)) {
        struct stat st;
        const bool sameItem = ::stat(watch.path.constData(), &st) == 0 && st.st_dev == watch.device
            && st.st_ino == watch.inode;
        if (mask & IN_MODIFY) {
            events |= DISPATCH_VNODE_WRITE;
            if (sameItem && st.st_size > watch.size)
                events |= DISPATCH_VNODE_EXTEND;
        }
        if (mask & IN_ATTRIB) {
            events |= DISPATCH_VNODE_ATTRIB;
            if (sameItem && st.st_nlink != watch.links)
                events |= DISPATCH_VNODE_LINK;
        }
        if (sameItem) {
            watch.size = st.st_size;
            watch.links = st.st_nlink;
        }
    }
    return events;
}

void QXInotifyFileEventBackend::deliverLocked(const Watch &watch, unsigned long events)
{
    if (!events)
        return;
    for (const auto &entry : m_descriptors) {
        if (entry.second.watch.get() != &watch)
            continue;
        for (const auto &weak : entry.second.sources)
            if (const std::shared_ptr<QXFileEventSource> source = weak.lock())
                source->deliver(events);
    }
}
