#pragma once

#include <QByteArray>

#include <functional>

#include <sys/stat.h>

/*!
  A recursive directory walk for the image cache's maintenance, on POSIX
  *at() calls: each directory is opened once and its entries are looked at
  relative to it, so a walk over 100,000 files costs what `find` or `du`
  cost, and no process-wide state (the working directory) is touched, so
  walks may run on several threads at once.

  Items are visited in pre-order, in the order the directory lists them
  (very large directories in inode order, which is much faster on ext4).
  Symbolic links are items of their own and never followed. A directory
  that cannot be opened or read contributes nothing beyond itself: the walk
  has no error reporting, as the cache ignores file-system errors.
*/
namespace QXDiskWalker {

struct Item
{
    int directoryFd;                 // the item's directory, open for unlinkat() and friends
    const QByteArray &directoryPath; // the item's directory as a path (the root as given, then "/name"s)
    const char *name;                // the item's name in that directory
    int depth;                       // 0 for the root's own entries
    bool isDirectory;
    // The item's own status (lstat) when the walk was asked for it and it
    // could be read; null otherwise.
    const struct stat *status;
};

struct Options
{
    // Names beginning with "." are neither visited nor descended into.
    bool skipHidden = false;
    // Fill Item::status for every item (otherwise only when the directory
    // listing does not say whether an item is a directory, and not passed on).
    bool statItems = false;
};

// Returns true to descend into the item when it is a directory; the result
// is ignored for other items.
using Visitor = std::function<bool(const Item &item)>;

// Walks everything below `root` (the root itself is not visited). A root
// that is missing or not a directory yields nothing.
void walk(const QByteArray &root, const Options &options, const Visitor &visit);

// Removes `path` and, if it is a directory, everything in it, without
// following symbolic links. False when something could not be removed.
bool removeTree(const QByteArray &path);

} // namespace QXDiskWalker
