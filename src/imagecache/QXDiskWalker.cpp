#include "imagecache/QXDiskWalker_p.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Directories with more entries than this are visited in inode order, as
// find and du do: where names are hashed (ext4), the listing's order jumps
// around the inode table, and stat and unlink get much faster in inode order.
constexpr size_t inodeOrderThreshold = 10000;

struct Entry
{
    ino_t inode;
    qsizetype nameOffset;
    unsigned char type;
};

// Takes ownership of `directoryFd`.
void walkDirectory(int directoryFd, const QByteArray &directoryPath, int depth, const QXDiskWalker::Options &options,
                   const QXDiskWalker::Visitor &visit)
{
    DIR *directory = fdopendir(directoryFd);
    if (!directory) {
        close(directoryFd);
        return;
    }
    // The whole listing first, the names in one buffer.
    std::vector<Entry> entries;
    QByteArray names;
    while (const dirent *entry = readdir(directory)) {
        const char *name = entry->d_name;
        if (isDotOrDotDot(name) || (options.skipHidden && name[0] == '.'))
            continue;
        entries.push_back({entry->d_ino, names.size(), entry->d_type});
        names.append(name, qsizetype(std::strlen(name)) + 1);
    }
    if (entries.size() > inodeOrderThreshold)
        std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.inode < b.inode; });

    const int fd = dirfd(directory);
    for (const Entry &entry : entries) {
        const char *name = names.constData() + entry.nameOffset;
        struct stat status;
        bool haveStatus = false;
        bool isDirectory = entry.type == DT_DIR;
        if (options.statItems || entry.type == DT_UNKNOWN) {
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
