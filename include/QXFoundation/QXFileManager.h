#pragma once

#include <QXFoundation/QXError.h>
#include <QXFoundation/QXGlobal.h>

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

/*!
  File-manager utilities: removal in the background, copy and move that may
  overwrite, sizes of directory trees and file lists, and free paths for new
  items (numbered, MD5-hashed or random).

  These are free functions without a receiver: the file manager they extend
  keeps no state that would change what they do, so there is nothing to
  construct. Paths are local file-system paths; a URL argument must be a
  local file URL. No function creates the item whose path it returns.

  "An item exists at a path" means that the path itself can be looked up
  without following a final symbolic link (lstat): a dangling symbolic link
  is an item, so a free path is never one that a new file would be written
  through.
*/

// Key of QXError::userInfo() holding the path on which a file operation failed.
QXFOUNDATION_EXPORT extern const QString QXFilePathErrorKey;

/*!
  Completion of the background removals: the success flag and, on failure,
  the error of the step that failed (a null QXError where none is reported).
*/
using QXFileManagerCompletionBlock = std::function<void(bool success, const QXError &error)>;

/*!
  Removes the file or directory tree at `path` in the background and returns
  at once. The item is first moved to a fresh name in the temporary
  directory (qx_temporaryDirectoryPath()), so it leaves its place at once,
  and is then deleted there. When the temporary directory is on another file
  system the item is renamed to a hidden sibling instead, so that a large
  tree is never copied only to be deleted.

  The completion runs on the main thread, synchronously: the background work
  waits until it has returned, so do not block the main thread waiting for
  the removal. Callable from any thread.
*/
QXFOUNDATION_EXPORT void qx_removeItemAtPathInBackground(const QString &path,
                                                         QXFileManagerCompletionBlock completionBlock = {});
// The same for the local path of `url`.
QXFOUNDATION_EXPORT void qx_removeItemAtURLInBackground(const QUrl &url,
                                                        QXFileManagerCompletionBlock completionBlock = {});
/*!
  Removes every item of `paths` in the background with one completion. All
  items are first moved away in the list's order; the first move that fails
  ends the work with its error (the items already moved stay in the
  temporary directory, the rest stay in place). Then the moved items are
  deleted in order; the first deletion that fails ends the work with its
  error. An empty list is a failure without error.
*/
QXFOUNDATION_EXPORT void qx_removeItemsAtPathsInBackground(const QStringList &paths,
                                                           QXFileManagerCompletionBlock completionBlock = {});
/*!
  Lists the directory at `path` at once, on the calling thread, and removes
  every entry in it (hidden ones too; not the directory itself) as
  qx_removeItemsAtPathsInBackground() does, entries sorted by name. When the
  directory cannot be listed the completion runs at once, on the calling
  thread, with that error. An empty directory ends in failure without error.
*/
QXFOUNDATION_EXPORT void qx_removeContentsOfDirectoryAtPathInBackground(const QString &path,
                                                                        QXFileManagerCompletionBlock completionBlock = {});

/*!
  Copies the item at `source` (a file, a directory tree or a symbolic link,
  which is copied as a link) to `toURL`. Permissions and modification times
  are kept.

  The copy is made under a temporary name next to the destination and then
  renamed into place, so the destination never holds a partial copy. When
  an item exists at the destination and `overwrite` is on, the copy
  replaces it atomically (rename(2), or an exchange of the two names when a
  directory is involved): at no moment is the destination missing, and a
  failure leaves the old destination as it was. When an item exists and
  `overwrite` is off, the result is false and `error` is set to a null
  QXError.

  An empty source or destination returns false without touching `error`.
  Otherwise `error` receives the failing step's error, or a null QXError on
  success.
*/
QXFOUNDATION_EXPORT bool qx_copyItemAtURL(const QUrl &source, const QUrl &toURL, bool overwrite,
                                          QXError *error = nullptr);
QXFOUNDATION_EXPORT bool qx_copyItemAtPath(const QString &source, const QString &toPath, bool overwrite,
                                           QXError *error = nullptr);
/*!
  Moves the item at `source` to `toURL`: a rename on one file system, a copy
  followed by the removal of the source across file systems. With
  `overwrite` on, an existing destination is replaced by the source item
  atomically as for qx_copyItemAtURL(), and no item is left at the source.
  Results and errors as for qx_copyItemAtURL(). Moving an item onto itself
  succeeds and changes nothing.
*/
QXFOUNDATION_EXPORT bool qx_moveItemAtURL(const QUrl &source, const QUrl &toURL, bool overwrite,
                                          QXError *error = nullptr);
QXFOUNDATION_EXPORT bool qx_moveItemAtPath(const QString &source, const QString &toPath, bool overwrite,
                                           QXError *error = nullptr);

/*!
  The total size in bytes of the items beneath the directory at `url`: the
  walk is recursive, includes hidden items, does not follow symbolic links
  below the directory and crosses mount points. Every item that is not a
  directory adds its own size (a symbolic link the length of its target);
  directories add nothing; hard links count once per name. The directory
  itself is not counted. An empty, missing or unreadable tree gives 0, an
  unreadable subtree adds 0.
*/
QXFOUNDATION_EXPORT quint64 qx_direcorySizeAtURL(const QUrl &url);
QXFOUNDATION_EXPORT quint64 qx_direcorySize(const QString &path);
/*!
  The sum of the items' own sizes (a final symbolic link is not followed; a
  directory adds its own entry's size, not its contents). An item that
  cannot be read adds 0.
*/
QXFOUNDATION_EXPORT quint64 qx_sizeOfFilesAtPaths(const QStringList &paths);

// Display text of a byte count: qx_formatedFileSize() with a new qx_fileSizeFormatter().
QXFOUNDATION_EXPORT QString qx_formatedSize(quint64 size);
QXFOUNDATION_EXPORT QString qx_formatedSizeOfDirectory(const QString &path);
QXFOUNDATION_EXPORT QString qx_formatedSizeOfFilesAtPaths(const QStringList &paths);

/*!
  A path in the directory `inPath` at which no item exists, for a file named
  `file`. The name is split into base and extension at its last dot (a
  leading or trailing dot starts or ends no extension: ".profile" and
  "Folder." have none). With `hashFileName` the base becomes its MD5 text.
  The first candidate is the base plus "." and the extension, if any; while
  an item exists there, the candidates are "BASE 2", "BASE 3" ... plus the
  extension, and with hashing on each numbered name is itself hashed, so a
  hashed candidate never shows its number.

  "Report.txt" in a directory holding "Report.txt" and "Report 2.txt" gives
  ".../Report 3.txt"; "Folder" gives ".../Folder 2", never "Folder 2.".
*/
QXFOUNDATION_EXPORT QString qx_uniquePathForFile(const QString &file, const QString &inPath, bool hashFileName = false);
/*!
  A free path with a random name: the decimal text of the current time in
  seconds plus a random number below 1000, with "." and `extension` when the
  extension is not empty, through qx_uniquePathForFile() with hashing on.
  The last component is 32 lowercase hexadecimal characters, followed by the
  extension where one was given.
*/
QXFOUNDATION_EXPORT QString qx_uniqueRandomPathForFileWithExtension(const QString &extension, const QString &inPath);
QXFOUNDATION_EXPORT QString qx_uniqueRandomDirectoryPathInPath(const QString &path);
