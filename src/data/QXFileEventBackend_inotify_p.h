#pragma once

#include "data/QXFileEventSource_p.h"

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

/*!
  The event backend over Linux inotify. One inotify instance serves the
  whole process (the kernel allows a user only 128 of them), read by one
  thread that turns inotify events into vnode event bits:

  | inotify                                    | vnode bits       |
  |--------------------------------------------|------------------|
  | IN_DELETE_SELF                             | DELETE           |
  | IN_MODIFY on the item                      | WRITE, and EXTEND when it grew |
  | IN_ATTRIB on the item                      | ATTRIB, and LINK when its link count changed |
  | IN_MOVE_SELF                               | RENAME           |
  | IN_UNMOUNT                                 | REVOKE           |
  | a directory's entry created or moved in    | WRITE, EXTEND    |
  | a directory's entry deleted or moved out   | WRITE            |
  | ... when that entry is a directory         | also LINK        |
  | event queue overflow                       | WRITE to every source |

  Writes to and attribute changes of the entries inside a watched directory
  concern those entries, not the directory, and are not reported. Size and
  link count are compared with the item's last values as seen through its
  path, only while the path still leads to the same item.

  A descriptor is one open(); several descriptors of one item share one
  kernel watch, which is removed when the last of them is closed. After the
  item is gone (the kernel drops the watch) its descriptors stay open and
  quiet until they are closed.
*/
class QXInotifyFileEventBackend final : public QXFileEventBackend
{
public:
    QXInotifyFileEventBackend();
    ~QXInotifyFileEventBackend() override;

    int open(const QByteArray &path) override;
    void close(int descriptor) override;
    int openDescriptorCount() const override;

protected:
    void attach(int descriptor, const std::shared_ptr<QXFileEventSource> &source) override;

private:
    struct Watch
    {
        int wd = -1;
        QByteArray path; // as first opened, to compare size and link count
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        nlink_t links = 0;
        int references = 0;
        bool alive = true; // false once the kernel dropped it
    };
    struct Descriptor
    {
        std::shared_ptr<Watch> watch;
        std::vector<std::weak_ptr<QXFileEventSource>> sources;
    };

    bool startLocked();
    void run();
    void dispatch(const struct inotify_event &event);
    unsigned long itemEvents(Watch &watch, quint32 mask);
    void deliverLocked(const Watch &watch, unsigned long events);

    mutable std::mutex m_mutex;
    int m_inotify = -1;
    int m_wake = -1;
    std::thread m_reader;
    int m_nextDescriptor = 0;
    std::unordered_map<int, Descriptor> m_descriptors;
    std::unordered_map<int, std::shared_ptr<Watch>> m_watches; // by watch descriptor
};
