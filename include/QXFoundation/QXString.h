#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QString>
#include <QStringConverter>

/*!
  String utilities: standard directories, relative paths, digests, URL
  percent-encoding, query parameters, trimming, prefix and suffix removal.

  Every function takes its string by value semantics and returns a new
  string; none changes its argument. A null QString argument behaves as an
  empty one (there is no "nil in, nil out"); functions that can fail return
  a null QString. Lengths and indexes are UTF-16 code units.
*/

// Standard directories, numbered as on the platform these names come from.
enum class QXSearchPathDirectory : quint64 {
    Library = 5,
    Document = 9,
    Desktop = 12,
    Caches = 13,
    ApplicationSupport = 14,
    Downloads = 15,
    Movies = 17,
    Music = 18,
    Pictures = 19,
    Trash = 102,
};

/*!
  The user's directory of that kind, from QStandardPaths; a null QString
  when there is none. Nothing is created and existence is not checked.
  Caches is GenericCacheLocation (~/.cache, or $XDG_CACHE_HOME), Document is
  DocumentsLocation, ApplicationSupport is GenericDataLocation
  (~/.local/share), Library is the parent of GenericDataLocation (~/.local),
  Trash is the freedesktop trash under GenericDataLocation. Any other value
  gives a null QString.
*/
QXFOUNDATION_EXPORT QString qx_userDirectoryPathForSearchPath(QXSearchPathDirectory directory);
QXFOUNDATION_EXPORT QString qx_documentsDirectoryPath();
QXFOUNDATION_EXPORT QString qx_cachesDirectoryPath();
QXFOUNDATION_EXPORT QString qx_applicationSupportDirectoryPath();
QXFOUNDATION_EXPORT QString qx_libraryDirectoryPath();
// QDir::tempPath(): honours $TMPDIR; no trailing slash.
QXFOUNDATION_EXPORT QString qx_temporaryDirectoryPath();

/*!
  `path` rewritten relative to `basePath`: one ".." for every component of
  the base after the common leading components, then the rest of the path.
  Components are compared exactly (case-sensitive); an absolute path's first
  component is "/", repeated slashes count once, and a trailing slash is a
  component of its own ("/a/b/" is "/", "a", "b", "/"). A path relative to
  itself is the empty string.
*/
QXFOUNDATION_EXPORT QString qx_stringWithPathRelativeTo(const QString &path, const QString &basePath);
// Relative to the application's directory.
QXFOUNDATION_EXPORT QString qx_stringWithPathRelativeToMainBundle(const QString &path);

// Lowercase hexadecimal digests of the string's UTF-8 bytes (32, 40 and 64 characters).
QXFOUNDATION_EXPORT QString qx_md5Hash(const QString &string);
QXFOUNDATION_EXPORT QString qx_sha1Hash(const QString &string);
QXFOUNDATION_EXPORT QString qx_sha256Hash(const QString &string);
// A C string is text: without these a literal would be ambiguous between
// the QString and the QByteArray overloads.
inline QString qx_md5Hash(const char *string) { return qx_md5Hash(QString::fromUtf8(string)); }
inline QString qx_sha1Hash(const char *string) { return qx_sha1Hash(QString::fromUtf8(string)); }
inline QString qx_sha256Hash(const char *string) { return qx_sha256Hash(QString::fromUtf8(string)); }

/*!
  Percent-encodes the UTF-8 bytes of `string` with uppercase hex digits.
  Only ASCII letters and digits and _ . ! ~ * ( ) / @ $ , stay as they are;
  everything else is escaped, the hyphen, apostrophe, space, ? = & + ; : < >
  and % among them ("a-b c" gives "a%2Db%20c").
*/
QXFOUNDATION_EXPORT QString qx_URLEncodeString(const QString &string);
/*!
  Replaces every percent escape by its byte and reads the bytes as UTF-8.
  A plus sign stays a plus sign. A malformed escape ("%zz", a lone "%") or
  bytes that are not UTF-8 give a null QString.
*/
QXFOUNDATION_EXPORT QString qx_URLDecodeString(const QString &string);
inline QString qx_URLEncodedString(const QString &string) { return qx_URLEncodeString(string); }
inline QString qx_URLDecodedString(const QString &string) { return qx_URLDecodeString(string); }

/*!
  `urlString` with "name=value" appended (both URL-encoded), after "?" when
  the string has no "?" yet and after "&" otherwise. An empty name or value
  returns `urlString` unchanged.
*/
QXFOUNDATION_EXPORT QString qx_URLStringByAppendingParameter(const QString &urlString, const QString &parameter,
                                                             const QString &value);

// Without leading and trailing white space: spaces, tabs and the other
// Unicode space separators. Line breaks are not white space here and stay.
QXFOUNDATION_EXPORT QString qx_trimedString(const QString &string);
// Without one leading `prefix` (or one trailing `suffix`); unchanged when it is not there.
QXFOUNDATION_EXPORT QString qx_stringByRemovingPrefix(const QString &string, const QString &prefix);
QXFOUNDATION_EXPORT QString qx_stringByRemovingSuffix(const QString &string, const QString &suffix);

/*!
  The file at `path`, decrypted under `key` (see <QXFoundation/QXEncryption.h>)
  and decoded from `encoding` by QStringDecoder, which drops a leading byte
  order mark. A null QString when the file cannot be read, does not decrypt,
  or its bytes are not valid in `encoding`; empty plaintext gives an empty,
  non-null string.
*/
QXFOUNDATION_EXPORT QString qx_stringWithContentsOfEncryptedFile(const QString &path, const QByteArray &key,
                                                                 QStringConverter::Encoding encoding);
