#include "imagecache/QXDiskWalker_p.h"

#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Takes ownership of `directoryFd`.
void walkDirectory(int directoryFd, const QByteArray &directoryPath, int depth, const QXDiskWalker::Options &options,
                   const QXDiskWalker::Visitor &visit)
{
    DIR *directory = fdopendir(directoryFd);
    if (!directory) {
        close(directoryFd);
        return;
    }
    const int fd = dirfd(directory);
    while (const dirent *entry = readdir(directory)) {
        const char *name = entry->d_name;
        if (isDotOrDotDot(name) || (options.skipHidden && name[0] == '.'))
            continue;
        struct stat status;
        bool haveStatus = false;
        bool isDirectory = entry->d_type == DT_DIR;
        if (options.statItems || entry->d_type == DT_UNKNOWN) {
            haveStatus = fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
            if (haveStatus)
                isDirectory = S_ISDIR(status.st_mode);
        }
        const QXDiskWalker::Item item{fd, directoryPath, name, depth, isDirectory,
                                      haveStatus && options.statItems ? &status : nullptr};
        if (!visit(item) || !isDirectory)
            continue;
        const int child = openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (child < 0)
            continue;
        QByteArray childPath = directoryPath;
        childPath.reserve(directoryPath.size() + 1 + qsizetype(std::strlen(name)));
        childPath += '/';
        childPath += name;
        walkDirectory(child, childPath, depth + 1, options, visit);
    }
    closedir(directory);
}

// Takes ownership of `directoryFd`.
bool removeContents(int directoryFd)
{
    DIR *directory = fdopendir(directoryFd);
    if (!directory) {
        close(directoryFd);
        return false;
    }
    bool removedAll = true;
    const int fd = dirfd(directory);
    while (const dirent *entry = readdir(directory)) {
        const char *name = entry->d_name;
        if (isDotOrDotDot(name))
            continue;
        if (unlinkat(fd, name, 0) == 0 || errno == ENOENT)
            continue;
        if (errno != EISDIR && errno != EPERM) {
            removedAll = false;
            continue;
        }
        const int child = openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (child >= 0)
            removedAll &= removeContents(child);
        if (unlinkat(fd, name, AT_REMOVEDIR) != 0 && errno != ENOENT)
            removedAll = false;
    }
    closedir(directory);
    return removedAll;
}

} // namespace

void QXDiskWalker::walk(const QByteArray &root, const Options &options, const Visitor &visit)
{
    const int fd = open(root.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0)
        walkDirectory(fd, root, 0, options, visit);
}

bool QXDiskWalker::removeTree(const QByteArray &path)
{
    if (unlink(path.constData()) == 0 || errno == ENOENT)
        return true;
    if (errno != EISDIR && errno != EPERM)
        return false;
    const int fd = open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    bool removedAll = fd >= 0 && removeContents(fd);
    if (rmdir(path.constData()) != 0 && errno != ENOENT)
        removedAll = false;
    return removedAll;
}
