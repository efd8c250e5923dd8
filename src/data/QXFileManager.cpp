#include <QXFoundation/QXFileManager.h>

#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXNumberFormatter.h>
#include <QXFoundation/QXString.h>

#include <QDateTime>
#include <QFile>
#include <QRandomGenerator>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const QString QXFilePathErrorKey = QStringLiteral("NSFilePath");

namespace {

QByteArray nativePath(const QString &path)
{
    return QFile::encodeName(path);
}

QXError fileError(int errnum, const QString &path)
{
    QXError base = QXError::fromErrno(errnum);
    QVariantMap userInfo = base.userInfo();
    userInfo.insert(QXFilePathErrorKey, path);
    return QXError(base.domain(), base.code(), userInfo);
}

bool itemExists(const QByteArray &path)
{
    struct stat st;
    return ::lstat(path.constData(), &st) == 0;
}

QString appendingPathComponent(const QString &directory, const QString &name)
{
    if (directory.isEmpty())
        return name;
    QString result = directory;
    while (result.size() > 1 && result.endsWith(QLatin1Char('/')))
        result.chop(1);
    if (result != QLatin1String("/"))
        result += QLatin1Char('/');
    return result + name;
}

QString parentDirectory(const QString &path)
{
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(QLatin1Char('/')))
        trimmed.chop(1);
    const qsizetype slash = trimmed.lastIndexOf(QLatin1Char('/'));
    if (slash < 0)
        return QStringLiteral(".");
    if (slash == 0)
        return QStringLiteral("/");
    return trimmed.left(slash);
}

// A hidden name next to `path` for an item that only passes through: on the
// same file system as `path`, so that a rename to or from it is atomic.
QString temporarySibling(const QString &path)
{
    quint64 random[2];
    QRandomGenerator::global()->fillRange(random);
    return appendingPathComponent(parentDirectory(path),
                                  QStringLiteral(".qx-%1%2.tmp").arg(random[0], 16, 16, QLatin1Char('0'))
                                      .arg(random[1], 16, 16, QLatin1Char('0')));
}

// A fresh name for a process, as unique as a UUID.
QString globallyUniqueString()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

int renameNoReplace(const char *from, const char *to)
{
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
        return errno;
    // File systems without the flag: check, then rename (a small window).
    struct stat st;
    if (::lstat(to, &st) == 0)
        return EEXIST;
    return ::rename(from, to) == 0 ? 0 : errno;
}

// Removal ---------------------------------------------------------------

struct RemovalFrame
{
    DIR *dir = nullptr;
    QByteArray name; // the directory's name inside its parent
    bool removedSomething = false;
};

// Removes the item at `path`, a directory with everything in it. Stops at
// the first failure and returns its errno (0 on success). Iterative, so a
// deep tree cannot exhaust the stack.
int removeTree(const QByteArray &path)
{
    struct stat st;
    if (::lstat(path.constData(), &st) != 0)
        return errno;
    if (!S_ISDIR(st.st_mode))
        return ::unlink(path.constData()) == 0 ? 0 : errno;

    std::vector<RemovalFrame> stack;
    auto closeAll = [&stack] {
        for (RemovalFrame &frame : stack)
            ::closedir(frame.dir);
        stack.clear();
    };
    const int rootFd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (rootFd < 0)
        return errno;
    DIR *root = ::fdopendir(rootFd);
    if (!root) {
        const int saved = errno;
        ::close(rootFd);
        return saved;
    }
    stack.push_back({root, path, false});
    while (!stack.empty()) {
        RemovalFrame &frame = stack.back();
        errno = 0;
        const dirent *entry = ::readdir(frame.dir);
        if (!entry) {
            if (errno != 0) {
                const int saved = errno;
                closeAll();
                return saved;
            }
            if (stack.size() == 1) {
                ::closedir(frame.dir);
                stack.clear();
                if (::rmdir(path.constData()) == 0)
                    return 0;
                return errno;
            }
            const int parentFd = ::dirfd(stack[stack.size() - 2].dir);
            if (::unlinkat(parentFd, frame.name.constData(), AT_REMOVEDIR) == 0) {
                ::closedir(frame.dir);
                stack.pop_back();
                stack.back().removedSomething = true;
                continue;
            }
            // Some file systems skip entries while a directory is emptied
            // under the reader: read it again once something went.
            if (errno == ENOTEMPTY && frame.removedSomething) {
                frame.removedSomething = false;
                ::rewinddir(frame.dir);
                continue;
            }
            const int saved = errno;
            closeAll();
            return saved;
        }
        if (isDotOrDotDot(entry->d_name))
            continue;
        const int fd = ::dirfd(frame.dir);
        bool isDirectory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat entryStat;
            if (::fstatat(fd, entry->d_name, &entryStat, AT_SYMLINK_NOFOLLOW) != 0) {
                const int saved = errno;
                closeAll();
                return saved;
            }
            isDirectory = S_ISDIR(entryStat.st_mode);
        }
        if (!isDirectory) {
            if (::unlinkat(fd, entry->d_name, 0) != 0) {
                const int saved = errno;
                closeAll();
                return saved;
            }
            frame.removedSomething = true;
            continue;
        }
        const int childFd = ::openat(fd, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        DIR *child = childFd >= 0 ? ::fdopendir(childFd) : nullptr;
        if (!child) {
            const int saved = errno;
            if (childFd >= 0)
                ::close(childFd);
            closeAll();
            return saved;
        }
        // `frame` may dangle after the push; take what is needed first.
        QByteArray name(entry->d_name);
        stack.push_back({child, std::move(name), false});
    }
    return 0;
}

// Moves the item out of its place to a fresh name in the temporary
// directory (or, across file systems, to a hidden sibling). Returns the new
// path, or a null string with `error` set.
QString moveAside(const QString &path, QXError *error)
{
    const QByteArray from = nativePath(path);
    QString aside = appendingPathComponent(qx_temporaryDirectoryPath(), globallyUniqueString());
    int result = from.isEmpty() ? ENOENT : renameNoReplace(from.constData(), nativePath(aside).constData());
    if (result == EXDEV) {
        aside = temporarySibling(path);
        result = renameNoReplace(from.constData(), nativePath(aside).constData());
    }
    if (result != 0) {
        *error = fileError(result, path);
        return QString();
    }
    return aside;
}

void complete(const QXFileManagerCompletionBlock &block, bool success, const QXError &error)
{
    if (block)
        QXDispatch::mainSync([&] { block(success, error); });
}

// Copying ---------------------------------------------------------------

int copyFileContents(int in, int out)
{
    bool copiedSome = false;
    for (;;) {
        const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, size_t(1) << 30, 0);
        if (n > 0) {
            copiedSome = true;
            continue;
        }
        if (n == 0 && copiedSome)
            return 0;
        if (n == 0)
            break; // empty, or a file whose size the kernel does not know: read it to be sure
        if (errno == EINTR)
            continue;
        if (copiedSome)
            return errno;
        if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP && errno != EPERM)
            return errno;
        break;
    }
    std::vector<char> buffer(128 * 1024);
    for (;;) {
        const ssize_t n = ::read(in, buffer.data(), buffer.size());
        if (n == 0)
            return 0;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        for (ssize_t written = 0; written < n;) {
            const ssize_t w = ::write(out, buffer.data() + written, size_t(n - written));
            if (w < 0) {
                if (errno == EINTR)
                    continue;
                return errno;
            }
            written += w;
        }
    }
}

int copyFile(int srcDir, const char *srcName, int dstDir, const char *dstName, const struct stat &st)
{
    const int in = ::openat(srcDir, srcName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (in < 0)
        return errno;
    const int out = ::openat(dstDir, dstName, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        const int saved = errno;
        ::close(in);
        return saved;
    }
    int result = copyFileContents(in, out);
    if (result == 0 && ::fchmod(out, st.st_mode & 07777) != 0)
        result = errno;
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (result == 0 && ::futimens(out, times) != 0)
        result = errno;
    if (::close(out) != 0 && result == 0)
        result = errno;
    ::close(in);
    return result;
}

// Copies a non-directory entry; the caller has its lstat.
int copyLeaf(int srcDir, const char *srcName, int dstDir, const char *dstName, const struct stat &st)
{
    if (S_ISREG(st.st_mode))
        return copyFile(srcDir, srcName, dstDir, dstName, st);
    if (S_ISLNK(st.st_mode)) {
        std::vector<char> target(size_t(st.st_size > 0 ? st.st_size : PATH_MAX) + 1);
        const ssize_t n = ::readlinkat(srcDir, srcName, target.data(), target.size());
        if (n < 0)
            return errno;
        if (size_t(n) >= target.size())
            return ENAMETOOLONG; // the link changed while it was read
        target[size_t(n)] = '\0';
        return ::symlinkat(target.data(), dstDir, dstName) == 0 ? 0 : errno;
    }
    // Pipes and sockets are made anew; devices need the privilege to do so.
    return ::mknodat(dstDir, dstName, st.st_mode, st.st_rdev) == 0 ? 0 : errno;
}

struct CopyFrame
{
    DIR *source = nullptr;
    int destination = -1;
    struct stat stat;
};

int finishDirectory(const CopyFrame &frame)
{
    int result = 0;
    if (::fchmod(frame.destination, frame.stat.st_mode & 07777) != 0)
        result = errno;
    const struct timespec times[2] = {frame.stat.st_atim, frame.stat.st_mtim};
    if (result == 0 && ::futimens(frame.destination, times) != 0)
        result = errno;
    return result;
}

// Copies the item at `from` to the new name `to`, which must not exist.
int copyTree(const QByteArray &from, const QByteArray &to)
{
    struct stat st;
    if (::lstat(from.constData(), &st) != 0)
        return errno;
    if (!S_ISDIR(st.st_mode))
        return copyLeaf(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), st);

    std::vector<CopyFrame> stack;
    auto closeAll = [&stack] {
        for (CopyFrame &frame : stack) {
            ::closedir(frame.source);
            ::close(frame.destination);
        }
        stack.clear();
    };
    auto openPair = [&stack](int srcDir, const char *srcName, int dstDir, const char *dstName,
                             const struct stat &dirStat) -> int {
        // Owner-writable while it is filled; the real mode is set at the end.
        if (::mkdirat(dstDir, dstName, 0700) != 0)
            return errno;
        const int srcFd = ::openat(srcDir, srcName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (srcFd < 0)
            return errno;
        DIR *dir = ::fdopendir(srcFd);
        if (!dir) {
            const int saved = errno;
            ::close(srcFd);
            return saved;
        }
        const int dstFd = ::openat(dstDir, dstName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (dstFd < 0) {
            const int saved = errno;
            ::closedir(dir);
            return saved;
        }
        stack.push_back({dir, dstFd, dirStat});
        return 0;
    };
    int result = openPair(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), st);
    while (result == 0 && !stack.empty()) {
        CopyFrame &frame = stack.back();
        errno = 0;
        const dirent *entry = ::readdir(frame.source);
        if (!entry) {
            result = errno != 0 ? errno : finishDirectory(frame);
            if (result != 0)
                break;
            ::closedir(frame.source);
            ::close(frame.destination);
            stack.pop_back();
            continue;
        }
        if (isDotOrDotDot(entry->d_name))
            continue;
        const int srcFd = ::dirfd(frame.source);
        struct stat entryStat;
        if (::fstatat(srcFd, entry->d_name, &entryStat, AT_SYMLINK_NOFOLLOW) != 0) {
            result = errno;
            break;
        }
        if (S_ISDIR(entryStat.st_mode))
            result = openPair(srcFd, entry->d_name, frame.destination, entry->d_name, entryStat);
        else
            result = copyLeaf(srcFd, entry->d_name, frame.destination, entry->d_name, entryStat);
    }
    closeAll();
    return result;
}

// True when `path` is the directory `directory` or lies beneath it.
bool isWithin(const QByteArray &path, const QByteArray &directory)
{
    char *realPath = ::realpath(path.constData(), nullptr);
    char *realDirectory = ::realpath(directory.constData(), nullptr);
    bool within = false;
    if (realPath && realDirectory) {
        const QByteArray p(realPath);
        QByteArray d(realDirectory);
        if (!d.endsWith('/'))
            d += '/';
        within = p == realDirectory || p.startsWith(d);
    }
    std::free(realPath);
    std::free(realDirectory);
    return within;
}

// Puts `newItem` at `destination`, which exists, with no moment at which
// the destination is missing where the file system allows it. Both are on
// one file system. The old destination is deleted afterwards.
int replaceItem(const QByteArray &destination, const QByteArray &newItem)
{
    struct stat destinationStat;
    struct stat newStat;
    if (::lstat(destination.constData(), &destinationStat) != 0)
        return errno;
    if (::lstat(newItem.constData(), &newStat) != 0)
        return errno;
    if (!S_ISDIR(destinationStat.st_mode) && !S_ISDIR(newStat.st_mode))
        return ::rename(newItem.constData(), destination.constData()) == 0 ? 0 : errno;

    // A directory is involved, which rename(2) cannot put over a non-empty
    // directory or a file: swap the two names in one step, then delete the
    // old item under the new item's former name.
    if (::renameat2(AT_FDCWD, newItem.constData(), AT_FDCWD, destination.constData(), RENAME_EXCHANGE) == 0) {
        removeTree(newItem); // the destination is in place; a leftover is only clutter
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
        return errno;
    // No exchange on this file system: set the old item aside, put the new
    // one in place, and put the old one back if that fails.
    const QByteArray backup = nativePath(temporarySibling(QFile::decodeName(destination)));
    if (::rename(destination.constData(), backup.constData()) != 0)
        return errno;
    if (::rename(newItem.constData(), destination.constData()) != 0) {
        const int saved = errno;
        ::rename(backup.constData(), destination.constData());
        return saved;
    }
    removeTree(backup);
    return 0;
}

// Copies `from` to a hidden sibling of `to` and returns the sibling's path,
// or a null array with `result` set (nothing is left behind).
QByteArray copyBesideDestination(const QByteArray &from, const QString &to, int *result)
{
    const QByteArray staging = nativePath(temporarySibling(to));
    *result = copyTree(from, staging);
    if (*result != 0) {
        removeTree(staging);
        return QByteArray();
    }
    return staging;
}

bool finish(bool success, const QXError &result, QXError *error)
{
    qxSetError(error, result);
    return success;
}

// Directory size ----------------------------------------------------------

quint64 sizeOfTree(const QByteArray &path)
{
    const int rootFd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0)
        return 0;
    DIR *root = ::fdopendir(rootFd);
    if (!root) {
        ::close(rootFd);
        return 0;
    }
    // One open directory per level below the root; a level that cannot be
    // opened (no permission, or no descriptor left) adds nothing.
    std::vector<DIR *> stack{root};
    quint64 total = 0;
    while (!stack.empty()) {
        DIR *dir = stack.back();
        const dirent *entry = ::readdir(dir);
        if (!entry) {
            ::closedir(dir);
            stack.pop_back();
            continue;
        }
        if (isDotOrDotDot(entry->d_name))
            continue;
        const int fd = ::dirfd(dir);
        bool isDirectory = entry->d_type == DT_DIR;
        if (!isDirectory) {
            struct stat st;
            if (::fstatat(fd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            isDirectory = S_ISDIR(st.st_mode);
            if (!isDirectory) {
                total += quint64(st.st_size);
                continue;
            }
        }
        const int childFd = ::openat(fd, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (childFd < 0)
            continue;
        if (DIR *child = ::fdopendir(childFd))
            stack.push_back(child);
        else
            ::close(childFd);
    }
    return total;
}

// The part of a file name before and after its extension's dot.
void splitExtension(const QString &file, QString *base, QString *extension)
{
    const qsizetype nameStart = file.lastIndexOf(QLatin1Char('/')) + 1;
    const qsizetype dot = file.lastIndexOf(QLatin1Char('.'));
    if (dot > nameStart && dot < file.size() - 1) {
        *base = file.left(dot);
        *extension = file.mid(dot + 1);
    } else {
        *base = file;
        extension->clear();
    }
}

QString withExtension(const QString &name, const QString &extension)
{
    return extension.isEmpty() ? name : name + QLatin1Char('.') + extension;
}

QString randomName()
{
    const quint32 random = QRandomGenerator::global()->bounded(1000u);
    const double seconds = double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 + random;
    return QString::number(quint64(seconds));
}

} // namespace

void qx_removeItemAtPathInBackground(const QString &path, QXFileManagerCompletionBlock completionBlock)
{
    QXDispatch::backgroundAsync([path, block = std::move(completionBlock)] {
        QXError error;
        const QString aside = moveAside(path, &error);
        bool success = !aside.isNull();
        if (success) {
            const int result = removeTree(nativePath(aside));
            success = result == 0;
            if (!success)
                error = fileError(result, aside);
        }
        complete(block, success, error);
    });
}

void qx_removeItemAtURLInBackground(const QUrl &url, QXFileManagerCompletionBlock completionBlock)
{
    qx_removeItemAtPathInBackground(url.toLocalFile(), std::move(completionBlock));
}

void qx_removeItemsAtPathsInBackground(const QStringList &paths, QXFileManagerCompletionBlock completionBlock)
{
    QXDispatch::backgroundAsync([paths, block = std::move(completionBlock)] {
        if (paths.isEmpty()) {
            complete(block, false, QXError());
            return;
        }
        QStringList moved;
        moved.reserve(paths.size());
        for (const QString &path : paths) {
            QXError error;
            const QString aside = moveAside(path, &error);
            if (aside.isNull()) {
                complete(block, false, error);
                return;
            }
            moved.append(aside);
        }
        for (const QString &aside : std::as_const(moved)) {
            const int result = removeTree(nativePath(aside));
            if (result != 0) {
                complete(block, false, fileError(result, aside));
                return;
            }
        }
        complete(block, true, QXError());
    });
}

void qx_removeContentsOfDirectoryAtPathInBackground(const QString &path, QXFileManagerCompletionBlock completionBlock)
{
    const QByteArray native = nativePath(path);
    DIR *dir = native.isEmpty() ? nullptr : ::opendir(native.constData());
    if (!dir) {
        const int saved = native.isEmpty() ? ENOENT : errno;
        if (completionBlock)
            completionBlock(false, fileError(saved, path));
        return;
    }
    QStringList names;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(dir);
        if (!entry)
            break;
        if (!isDotOrDotDot(entry->d_name))
            names.append(QFile::decodeName(entry->d_name));
    }
    const int readError = errno;
    ::closedir(dir);
    if (readError != 0) {
        if (completionBlock)
            completionBlock(false, fileError(readError, path));
        return;
    }
    std::sort(names.begin(), names.end());
    QStringList paths;
    paths.reserve(names.size());
    for (const QString &name : std::as_const(names))
        paths.append(appendingPathComponent(path, name));
    qx_removeItemsAtPathsInBackground(paths, std::move(completionBlock));
}

bool qx_copyItemAtURL(const QUrl &source, const QUrl &toURL, bool overwrite, QXError *error)
{
    if (source.isEmpty() || toURL.isEmpty())
        return false;
    return qx_copyItemAtPath(source.toLocalFile(), toURL.toLocalFile(), overwrite, error);
}

bool qx_copyItemAtPath(const QString &source, const QString &toPath, bool overwrite, QXError *error)
{
    if (source.isEmpty() || toPath.isEmpty())
        return false;
    const QByteArray from = nativePath(source);
    const QByteArray to = nativePath(toPath);
    struct stat sourceStat;
    if (::lstat(from.constData(), &sourceStat) != 0)
        return finish(false, fileError(errno, source), error);
    const bool destinationExists = itemExists(to);
    if (destinationExists && !overwrite)
        return finish(false, QXError(), error);
    // The copy is made beside the destination; inside the source it would copy itself forever.
    if (S_ISDIR(sourceStat.st_mode) && isWithin(nativePath(parentDirectory(toPath)), from))
        return finish(false, fileError(EINVAL, toPath), error);

    int result = 0;
    const QByteArray staging = copyBesideDestination(from, toPath, &result);
    if (staging.isNull())
        return finish(false, fileError(result, source), error);
    if (destinationExists) {
        result = replaceItem(to, staging);
    } else {
        result = renameNoReplace(staging.constData(), to.constData());
        if (result == EEXIST && overwrite) // it appeared meanwhile
            result = replaceItem(to, staging);
    }
    if (result != 0) {
        removeTree(staging);
        if (result == EEXIST)
            return finish(false, QXError(), error);
        return finish(false, fileError(result, toPath), error);
    }
    return finish(true, QXError(), error);
}

bool qx_moveItemAtURL(const QUrl &source, const QUrl &toURL, bool overwrite, QXError *error)
{
    if (source.isEmpty() || toURL.isEmpty())
        return false;
    return qx_moveItemAtPath(source.toLocalFile(), toURL.toLocalFile(), overwrite, error);
}

bool qx_moveItemAtPath(const QString &source, const QString &toPath, bool overwrite, QXError *error)
{
    if (source.isEmpty() || toPath.isEmpty())
        return false;
    const QByteArray from = nativePath(source);
    const QByteArray to = nativePath(toPath);
    struct stat sourceStat;
    if (::lstat(from.constData(), &sourceStat) != 0)
        return finish(false, fileError(errno, source), error);
    struct stat destinationStat;
    const bool destinationExists = ::lstat(to.constData(), &destinationStat) == 0;
    if (destinationExists && !overwrite)
        return finish(false, QXError(), error);

    if (destinationExists && sourceStat.st_dev == destinationStat.st_dev
        && sourceStat.st_ino == destinationStat.st_ino) {
        // Two names of one item. A directory (or the very same name) is
        // already where it should be; a second hard link of a file goes.
        if (S_ISDIR(sourceStat.st_mode) || from == to)
            return finish(true, QXError(), error);
        if (::unlink(from.constData()) != 0)
            return finish(false, fileError(errno, source), error);
        return finish(true, QXError(), error);
    }

    int result = 0;
    if (!destinationExists) {
        result = renameNoReplace(from.constData(), to.constData());
        if (result == EEXIST && !overwrite) // it appeared meanwhile
            return finish(false, QXError(), error);
    }
    if (destinationExists || result == EEXIST) {
        if (::lstat(to.constData(), &destinationStat) != 0)
            return finish(false, fileError(errno, toPath), error);
        if (!S_ISDIR(sourceStat.st_mode) && !S_ISDIR(destinationStat.st_mode)) {
            result = ::rename(from.constData(), to.constData()) == 0 ? 0 : errno;
        } else {
            // Set the source aside beside the destination first, so that
            // what the exchange leaves behind is a hidden sibling, never an
            // item at the source's name; put it back if the swap fails.
            const QByteArray staging = nativePath(temporarySibling(toPath));
            result = renameNoReplace(from.constData(), staging.constData());
            if (result == 0) {
                result = replaceItem(to, staging);
                if (result != 0)
                    ::rename(staging.constData(), from.constData());
            }
        }
    }
    if (result == EXDEV) {
        // Another file system: copy beside the destination, put the copy in
        // place, then remove the source.
        const QByteArray staging = copyBesideDestination(from, toPath, &result);
        if (staging.isNull())
            return finish(false, fileError(result, source), error);
        result = itemExists(to) ? replaceItem(to, staging) : renameNoReplace(staging.constData(), to.constData());
        if (result != 0) {
            removeTree(staging);
            if (result == EEXIST)
                return finish(false, QXError(), error);
            return finish(false, fileError(result, toPath), error);
        }
        result = removeTree(from);
        if (result != 0)
            return finish(false, fileError(result, source), error);
        return finish(true, QXError(), error);
    }
    if (result != 0)
        return finish(false, fileError(result, toPath), error);
    return finish(true, QXError(), error);
}

quint64 qx_direcorySizeAtURL(const QUrl &url)
{
    if (!url.isLocalFile())
        return 0;
    return qx_direcorySize(url.toLocalFile());
}

quint64 qx_direcorySize(const QString &path)
{
    if (path.isEmpty())
        return 0;
    return sizeOfTree(nativePath(path));
}

quint64 qx_sizeOfFilesAtPaths(const QStringList &paths)
{
    quint64 total = 0;
    for (const QString &path : paths) {
        struct stat st;
        if (!path.isEmpty() && ::lstat(nativePath(path).constData(), &st) == 0)
            total += quint64(st.st_size);
    }
    return total;
}

QString qx_formatedSize(quint64 size)
{
    return qx_formatedFileSize(qx_fileSizeFormatter(), size);
}

QString qx_formatedSizeOfDirectory(const QString &path)
{
    return qx_formatedSize(qx_direcorySize(path));
}

QString qx_formatedSizeOfFilesAtPaths(const QStringList &paths)
{
    return qx_formatedSize(qx_sizeOfFilesAtPaths(paths));
}

QString qx_uniquePathForFile(const QString &file, const QString &inPath, bool hashFileName)
{
    QString base;
    QString extension;
    splitExtension(file, &base, &extension);
    if (hashFileName)
        base = qx_md5Hash(base);
    QString path = appendingPathComponent(inPath, withExtension(base, extension));
    for (quint64 n = 2; itemExists(nativePath(path)); ++n) {
        QString numbered = QStringLiteral("%1 %2").arg(base).arg(n);
        if (hashFileName)
            numbered = qx_md5Hash(numbered);
        path = appendingPathComponent(inPath, withExtension(numbered, extension));
    }
    return path;
}

QString qx_uniqueRandomPathForFileWithExtension(const QString &extension, const QString &inPath)
{
    return qx_uniquePathForFile(withExtension(randomName(), extension), inPath, true);
}

QString qx_uniqueRandomDirectoryPathInPath(const QString &path)
{
    return qx_uniquePathForFile(randomName(), path, true);
}
