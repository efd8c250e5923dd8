#pragma once

#include <QXFoundation/QXCancellationToken.h>
#include <QXFoundation/QXGlobal.h>

#include <QByteArray>
#include <QImage>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <type_traits>

class QXDispatchQueue;
struct QXImageCacheState;

// Where the image handed to a query's done callback comes from.
enum QXImageCacheType : int {
    QXImageCacheTypeNone = 0,   // the query had no key; nothing was looked up
    QXImageCacheTypeDisk = 1,   // the disk lookup answered (the image is null when nothing was found)
    QXImageCacheTypeMemory = 2, // the memory cache had the image
};

/*!
  A two-level image cache under string keys: decoded images in a memory
  cache that may drop entries at any time, and encoded files in a directory
  under the user's caches directory (qx_cachesDirectoryPath()), where they
  survive restarts until they expire, are removed, or the cache is wiped.

  Each cache has a namespace; its full namespace is
  "org.qxfoundation.QXImageCache." + namespace and names both the memory
  cache and the disk directory. A key's file is named by the MD5 digest of
  the key (32 lowercase hex characters, nothing added); its content is the
  encoded image, JPEG unless the caller hands in its own bytes.

  Threads: every disk write, removal, asynchronous read and maintenance pass
  runs on the cache's own serial queue, one at a time, in submission order.
  Callbacks that follow queued work are delivered on the main thread, on a
  later turn of its event loop. The memory cache can be used from any
  thread. The whole class is safe to call from several threads at once.

  Lifetime: queued work holds the cache's internal state, so a cache can be
  destroyed while work is pending; that work still runs and its callbacks
  are still delivered.

  Disk writes are atomic: the bytes go to a hidden temporary file in the
  same directory (".qx-partial-" + file name + a random suffix) that is
  renamed over the key's file, so a reader, or a process killed in the
  middle of a write, sees the old file or the new one, never a torn one.

  No operation reports a file-system error: a failed write leaves no file,
  and later lookups simply miss.
*/
class QXFOUNDATION_EXPORT QXImageCache
{
public:
    using Completion = std::function<void()>;
    using QueryDone = std::function<void(const QImage &image, QXImageCacheType cacheType)>;
    using ExistsCompletion = std::function<void(bool exists)>;
    using SizeCompletion = std::function<void(quint64 fileCount, quint64 totalSize)>;

    // The process-wide cache with the namespace "default", created on first
    // use (thread-safely) and kept until the process ends.
    static QXImageCache &sharedImageCache();

    // A cache with the namespace "default".
    QXImageCache();
    // The namespace is used unchanged (no check, no escaping): a "/" in it
    // makes a nested directory. Nothing is created on disk until the first
    // write or wipe.
    explicit QXImageCache(const QString &cacheNamespace);
    virtual ~QXImageCache();
    QXImageCache(const QXImageCache &) = delete;
    QXImageCache &operator=(const QXImageCache &) = delete;

    // Absolute path of the cache's own directory.
    QString diskCachePath() const;

    // Adds a directory that lookups search, read-only, after diskCachePath();
    // a path already in the list (same string) is not added twice. The list
    // only grows. Maintenance never touches these directories.
    void addReadOnlyCachePath(const QString &path);
    QStringList customPaths() const;

    // Seconds a disk file may live (default 604800, 7 days); used by the expiry pass.
    qint64 maxCacheAge() const;
    void setMaxCacheAge(qint64 seconds);
    // Limit of the memory cache's total cost; 0 (the default) means no limit.
    quint64 maxMemoryCost() const;
    void setMaxMemoryCost(quint64 cost);
    // Byte limit of the disk directory for the expiry pass; 0 (the default) means no limit.
    quint64 maxCacheSize() const;
    void setMaxCacheSize(quint64 bytes);

    // --- Store ---------------------------------------------------------
    // The image enters the memory cache at once, on the calling thread,
    // with the cost width x height (device-independent size, truncated).
    // With toDisk, the encoded bytes are written on the queue: the image
    // encoded as JPEG (default quality) when recalculateFromImage is true
    // or imageData is null, otherwise imageData unchanged. A null image or
    // a null key makes the call do nothing at all, even when data is given.
    void storeImage(const QImage &image, const QString &key);
    void storeImage(const QImage &image, const QString &key, bool toDisk);
    void storeImage(const QImage &image, bool recalculateFromImage, const QByteArray &imageData,
                    const QString &key, bool toDisk);

    // --- Lookup --------------------------------------------------------
    /*!
      Looks the key up and hands the image to `done`:
      - without a `done` callback nothing happens and a null token comes back;
      - a null key: done(null image, QXImageCacheTypeNone), at once on the
        calling thread; a null token comes back;
      - a memory hit: done(image, QXImageCacheTypeMemory), at once on the
        calling thread; a null token comes back;
      - otherwise the disk read is queued and its token returned. When the
        queue reaches the read and the token is cancelled, nothing more
        happens and `done` is never called; otherwise the image read (and
        put into the memory cache) or a null image goes to
        done(image, QXImageCacheTypeDisk) on the main thread. Cancelling
        after the read has started has no effect.
    */
    QXCancellationToken queryDiskCacheForKey(const QString &key, const QueryDone &done);

    QImage imageFromMemoryCacheForKey(const QString &key) const;
    // Memory first, then disk, on the calling thread (outside the queue, so
    // a write still queued is not seen on disk); an image read from disk
    // enters the memory cache. Null when neither level has it.
    QImage imageFromDiskCacheForKey(const QString &key);
    // Whether an item exists at the key's path in diskCachePath(), tested on
    // the calling thread; read-only directories are not looked at.
    bool diskImageExistsWithKey(const QString &key) const;
    // The same test on the queue; the answer goes to `completion` on the main thread.
    void diskImageExistsWithKey(const QString &key, ExistsCompletion completion);

    // --- Removal -------------------------------------------------------
    // Removes the key from memory at once; with fromDisk (the default) the
    // file in diskCachePath() is removed on the queue and `completion`
    // follows on the main thread. Without fromDisk the completion is called
    // at once on the calling thread. A null key does nothing, and the
    // completion is not called. Files in read-only directories stay.
    void removeImageForKey(const QString &key, bool fromDisk = true, Completion completion = {});
    template<typename Callable, std::enable_if_t<std::is_invocable_v<Callable &>, bool> = true>
    void removeImageForKey(const QString &key, Callable &&completion)
    {
        removeImageForKey(key, true, Completion(std::forward<Callable>(completion)));
    }
    // Empties the memory cache; the disk is not touched.
    void wipeMemoryCache();

    // --- Paths and disk reads --------------------------------------------
    // MD5 of the key's UTF-8 bytes as lowercase hex; a null key hashes as "".
    QString cachedFileNameForKey(const QString &key) const;
    QString cachePathForKey(const QString &key, const QString &inPath) const;
    QString defaultCachePathForKey(const QString &key) const;
    // The bytes of the key's file in diskCachePath(), else in the first
    // read-only directory that has it; a null QByteArray when none can be
    // read. Only regular files count. The bytes are not checked.
    QByteArray diskImageDataBySearchingAllPathsForKey(const QString &key) const;
    // Those bytes decoded (any format Qt's image readers know); null when
    // there are none or they do not decode.
    QImage diskImageForKey(const QString &key) const;

    // --- Disk maintenance (all on the queue, in order with other disk work) ---
    // Removes the directory with everything in it and creates it again, empty.
    void wipeDiskCache();
    void wipeDiskCacheOnCompletion(Completion completion);
    /*!
      The expiry pass over diskCachePath(), recursively, skipping hidden
      items (names beginning with ".") and not descending into hidden
      directories:
      1. every file last modified at or before now - maxCacheAge() is removed;
         directories are never removed, but files inside them are;
      2. if maxCacheSize() is set and the allocated size (blocks on disk) of
         the remaining files exceeds it, files are removed oldest first
         until the total is below half of maxCacheSize().
      Temporary files left by an interrupted write (".qx-partial-*") are
      removed once they are more than ten minutes old.
    */
    void removeExpiredImagesFromDisk();
    void removeExpiredImagesFromDiskWithCompletionBlock(Completion completion);
    // Sum of the logical sizes (st_size) of every item under diskCachePath(),
    // hidden items and directories included. Blocks the caller until the
    // queue has run everything queued before it and the count itself.
    quint64 getSize() const;
    // Number of items under diskCachePath() (files and directories, hidden
    // ones included); blocks like getSize().
    quint64 getDiskCount() const;
    // Counts the non-hidden items (directories included) and adds up their
    // logical sizes (directories add 0); the result goes to `completion`
    // on the main thread.
    void calculateSizeWithCompletionBlock(SizeCompletion completion);

protected:
    // The serial queue that carries the cache's disk work. Work queued here
    // runs in order with the cache's own; do not call getSize() or
    // getDiskCount() from inside it.
    QXDispatchQueue &queue() const;

private:
    std::shared_ptr<QXImageCacheState> d;
};

// Returns `image` unchanged; the key is not used.
QXFOUNDATION_EXPORT QImage QXImageCacheScaledImageForKey(const QString &key, const QImage &image);

// True when `data` is at least 8 bytes long and begins with the PNG
// signature 89 50 4E 47 0D 0A 1A 0A.
QXFOUNDATION_EXPORT bool QXImageDataHasPNGPreffix(const QByteArray &data);
