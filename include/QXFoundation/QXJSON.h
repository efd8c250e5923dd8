#pragma once

#include <QXFoundation/QXError.h>
#include <QXFoundation/QXGlobal.h>

#include <QByteArray>
#include <QFlags>
#include <QVariant>

/*!
  JSON parsing that can drop nulls on the way.

  JSON maps to QVariant as QJsonValue::toVariant() maps it: objects are
  QVariantMap, arrays QVariantList, strings QString, integers that fit
  qint64 qlonglong (also when written as 1.0), other numbers double, true
  and false bool, and null QVariant::fromValue(nullptr).

  Parse errors carry the domain QXJSONErrorDomain (QXError.h), the parser's error
  number (QJsonParseError::ParseError) as the code, the parser's message and
  the byte offset as the description ("unterminated object at offset 12"),
  and the offset again under QXJSONErrorOffsetKey.
*/

QXFOUNDATION_EXPORT extern const QString QXJSONErrorOffsetKey;

enum class QXJSONReadingOption {
    // Parsed values are always mutable QVariants; these two are accepted for
    // the sake of callers that pass them and change nothing.
    MutableContainers = 1 << 0,
    MutableLeaves = 1 << 1,
    // A bare string, number, true, false or null is a document as well.
    FragmentsAllowed = 1 << 2,
};
Q_DECLARE_FLAGS(QXJSONReadingOptions, QXJSONReadingOption)
Q_DECLARE_OPERATORS_FOR_FLAGS(QXJSONReadingOptions)

/*!
  Parses `data`. With `removingNulls`, nulls are then removed as
  qx_recursivelyRemoveNullsIgnoringArrays() does: null values of objects
  always, null elements of arrays unless `ignoreArrays`.
  `{"a":null,"b":[1,null,{"c":null,"d":2}]}` gives {"b":[1,{"d":2}]}, or
  {"b":[1,null,{"d":2}]} when arrays are ignored. A null document stays null.

  On failure: an invalid QVariant, and the reason in `*error` when `error`
  is given. On success `*error` is left as it was.
*/
QXFOUNDATION_EXPORT QVariant qx_JSONObjectWithData(const QByteArray &data, QXJSONReadingOptions options,
                                                   QXError *error, bool removingNulls, bool ignoreArrays = false);

/*!
  The same parse and null removal, straight from JSON text to compact JSON
  text (no white space, object keys sorted), without building QVariants on
  the way: several times faster on large documents. The text is what
  QJsonDocument writes for the value qx_JSONObjectWithData() returns. A null
  QByteArray on failure.
*/
QXFOUNDATION_EXPORT QByteArray qx_JSONDataByRemovingNulls(const QByteArray &data, QXJSONReadingOptions options,
                                                          QXError *error, bool ignoreArrays = false);

// Compact JSON text of a QVariant tree (also of a bare string, number, bool or null).
QXFOUNDATION_EXPORT QByteArray qx_JSONDataWithObject(const QVariant &object);
