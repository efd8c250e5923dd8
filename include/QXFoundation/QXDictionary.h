#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

/*!
  Operations on dictionaries (QVariantMap): recursive removal of JSON nulls,
  URL query strings in both directions, and lookups that check the type of
  the value they find.
*/

/*!
  Removes every entry whose value is a JSON null (QVariant::fromValue(nullptr)),
  whatever `ignoreArrays` says, and cleans nested lists and maps in place:
  `ignoreArrays` keeps the null elements of nested lists at every depth
  (see qx_recursivelyRemoveNullsIgnoringArrays() in QXArray.h).
*/
QXFOUNDATION_EXPORT void qx_recursivelyRemoveNulls(QVariantMap &dictionary);
QXFOUNDATION_EXPORT void qx_recursivelyRemoveNullsIgnoringArrays(QVariantMap &dictionary, bool ignoreArrays);

/*!
  The names and values of a URL query string ("x=1&y=a%20b"), decoded with
  qx_URLDecodedString() (percent escapes as UTF-8; "+" stays "+"). Pieces
  are separated by "&", empty pieces are skipped, a piece without "=" is a
  name with the empty value, and the first "=" divides name from value
  ("w=p=q" gives w → "p=q"). A name or value that does not decode becomes the
  empty string. Of a repeated name the first occurrence counts. Values are
  QStrings.
*/
QXFOUNDATION_EXPORT QVariantMap qx_dictionaryWithURLParameterString(const QString &string);

/*!
  "name=value" pairs joined by "&", both sides encoded with
  qx_URLEncodedString(), in the map's key order (sorted; do not rely on any
  order). A value is written as its text: a string as it is, a number as
  its digits, a bool as 1 or 0 (a number, as in JSON-like data from other
  platforms), a JSON null and a value without a text form (a list, a map)
  as the empty string. An empty map gives the empty string.
*/
QXFOUNDATION_EXPORT QString qx_URLParameterString(const QVariantMap &dictionary);

/*!
  The value for `key` if it is of `type`, else an invalid QVariant. A
  pointer to a QObject also matches the type of a pointer to any of its
  base classes (subclasses count).
*/
QXFOUNDATION_EXPORT QVariant qx_objectForKey(const QVariantMap &dictionary, const QString &key, QMetaType type);
// The value if it is a QString, else a null QString.
QXFOUNDATION_EXPORT QString qx_stringForKey(const QVariantMap &dictionary, const QString &key);
/*!
  The value if it is a number (a bool, an integer of any width or a
  floating-point value), else an invalid QVariant. A string of digits is
  not a number.
*/
QXFOUNDATION_EXPORT QVariant qx_numberForKey(const QVariantMap &dictionary, const QString &key);
// The value if it is a list (QVariantList, or QStringList as a QVariantList), else nothing.
QXFOUNDATION_EXPORT std::optional<QVariantList> qx_arrayForKey(const QVariantMap &dictionary, const QString &key);
// The value if it is a map (QVariantMap, or QVariantHash as a QVariantMap), else nothing.
QXFOUNDATION_EXPORT std::optional<QVariantMap> qx_dictionaryForKey(const QVariantMap &dictionary, const QString &key);
