#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>

class QTimer;

// The file-system events a QXFileMonitor can watch for, with the values the
// platform's vnode event sources use. Where the platform's own dispatch
// header is included too, its identical definitions are used.
#ifndef DISPATCH_VNODE_DELETE
// The item was deleted (its last name removed).
inline constexpr unsigned long DISPATCH_VNODE_DELETE = 0x01;
// The item was written to; for a directory: an entry was added, removed or renamed.
inline constexpr unsigned long DISPATCH_VNODE_WRITE = 0x02;
// The item grew; for a directory: an entry was added.
inline constexpr unsigned long DISPATCH_VNODE_EXTEND = 0x04;
// Its attributes (permissions, owner, times, link count) changed.
inline constexpr unsigned long DISPATCH_VNODE_ATTRIB = 0x08;
// Its link count changed.
inline constexpr unsigned long DISPATCH_VNODE_LINK = 0x10;
// The item was renamed or moved.
inline constexpr unsigned long DISPATCH_VNODE_RENAME = 0x20;
// Access to it was revoked: its file system was unmounted.
inline constexpr unsigned long DISPATCH_VNODE_REVOKE = 0x40;
#endif

/*!
  Watches one file or one directory and calls a block on the main thread
  once it has changed and then settled.

  An event of the mask (by default delete, write, extend, rename and revoke,
  0x67) arms a one-second timer on the main thread; each further event
  starts the second anew. When the timer fires, the item's size is measured
  again: if it changed since the last measurement the wait starts over,
  otherwise the block is called. A file still being written, or a directory
  still being filled, is thus reported once, after the writing stopped. The
  size of a directory is the total of its tree (qx_direcorySizeAtURL()); the
  size of a file is its own (0 once it is gone). Whether the item is a
  directory is decided when the monitor is created.

  The monitor watches the item it opened at startMonitoring(), not the path:
  once the item is deleted or renamed (an editor that saves by writing a new
  file and renaming it over the old one does both), the monitor reports
  that change and then stays quiet. To follow the path across such saves,
  restart the monitor from its block:

      monitor->setBlock([m = monitor.get()] { reload(); m->stopMonitoring(); m->startMonitoring(); });

  Threads: events are read on a serial queue of the monitor's own; the
  timer, the settle check and the block run on the main thread, to which the
  monitor belongs (created on another thread, it moves there). startMonitoring()
  and stopMonitoring() may be called from any thread. Destroy the monitor on
  the main thread (or with deleteLater()); destroying it stops it, and a
  pending report is dropped.
*/
class QXFOUNDATION_EXPORT QXFileMonitor : public QObject
{
    Q_OBJECT

public:
    using Block = std::function<void()>;

    // Delete, write, extend, rename and revoke.
    static constexpr unsigned long DefaultEvents = 0x67;

    // A monitor for `fileURL`, or null when no item exists at its local path
    // (or it is not a local file URL). The monitor does not start by itself.
    static std::unique_ptr<QXFileMonitor> fileMonitorForFileURL(const QUrl &fileURL, Block block);
    static std::unique_ptr<QXFileMonitor> fileMonitorForFileURL(const QUrl &fileURL, unsigned long atEvents,
                                                                Block block);
    ~QXFileMonitor() override;

    // The watched item. A new URL takes effect at the next startMonitoring().
    QUrl fileURL() const;
    void setFileURL(const QUrl &fileURL);
    // Whether the item was a directory when the monitor was created.
    bool isDirectoryAtURL() const;
    // The events that lead to a report. The events the running event
    // source listens for are fixed at startMonitoring(); a narrower mask
    // set later filters what that source delivers.
    unsigned long events() const;
    void setEvents(unsigned long events);
    // The change handler; an empty function reports nothing.
    Block block() const;
    void setBlock(Block block);
    // The pending settle timer, or null when none is pending. It belongs to
    // the monitor: setupTimer() arms it and stopMonitoring() cancels it.
    QTimer *timer() const;

    // Opens the item and starts watching it; does nothing while watching.
    // When the item cannot be opened, nothing starts and nothing is
    // reported; the call can be repeated later.
    void startMonitoring();
    // Cancels a pending report and stops watching. The item is closed once
    // the events already read have been handled.
    void stopMonitoring();
    // (Re)arms the one-second settle timer. Main thread only.
    void setupTimer();
    // The settle check: calls the block when the size is unchanged since the
    // last measurement, else waits another second. Main thread only.
    void timerAction(QTimer *timer);

private:
    struct Private;
    explicit QXFileMonitor(std::shared_ptr<Private> d);
    std::shared_ptr<Private> d;
    QTimer *m_timer;
};
