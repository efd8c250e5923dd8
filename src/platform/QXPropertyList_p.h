#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QByteArray>
#include <QVariant>

#include <optional>

/*
  Property lists through libplist, as QVariant trees.

  Reading:  dict -> QVariantMap, array -> QVariantList, string -> QString,
            integer -> qlonglong (qulonglong above the signed range),
            real -> double, bool -> bool, date -> QDateTime (UTC),
            data -> QByteArray, UID -> QVariantMap {"CF$UID": qulonglong}.
  Writing:  the same types back, plus QStringList and QVariantHash, every
            integer type and float. A null QVariant, nullptr, a string or key
            holding U+0000 (libplist would cut it there), an invalid date and
            every other type make the conversion fail: nothing is dropped
            silently.

  Only the binary ("bplist00") and XML formats exist here. Trees deeper than
  maxDepth fail, so hostile input cannot exhaust the stack.
*/
namespace QXPropertyList {

enum class Format { Xml, Binary };

constexpr int maxDepth = 512;

// The property list in `data` (binary or XML, told apart by the "bplist00"
// header), or nullopt when it is none or holds what QVariant cannot carry.
// `format`, when given, receives the format that was read.
QXFOUNDATION_EXPORT std::optional<QVariant> parse(const QByteArray &data, Format *format = nullptr);

// `value` as a property list in `format`; a null QByteArray when a part of
// it is not a property-list type.
QXFOUNDATION_EXPORT QByteArray serialize(const QVariant &value, Format format);

} // namespace QXPropertyList
