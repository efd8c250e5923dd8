// URL query strings and typed lookups on QVariantMap.

#include <QXFoundation/QXDictionary.h>
#include <QXFoundation/QXString.h>

#include "QXVariantKinds_p.h"

#include <QObject>
#include <QStringList>
#include <QVariantHash>

namespace {

// A part that does not decode is the empty string, never a null one.
QString decodedOrEmpty(QStringView text)
{
    const QString decoded = qx_URLDecodedString(text.toString());
    return decoded.isNull() ? QStringLiteral("") : decoded;
}

QString parameterText(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::Nullptr:
    case QMetaType::UnknownType:
    case QMetaType::QVariantList:
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
    case QMetaType::QStringList:
        return QString();
    default:
        return value.toString();
    }
}

} // namespace

QVariantMap qx_dictionaryWithURLParameterString(const QString &string)
{
    QVariantMap parameters;
    const QList<QStringView> pieces = QStringView(string).split(u'&');
    // From the last piece to the first, so that the first of a repeated name wins.
    for (auto it = pieces.crbegin(); it != pieces.crend(); ++it) {
        const QStringView piece = *it;
        if (piece.isEmpty())
            continue;
        const qsizetype equals = piece.indexOf(u'=');
        const QStringView name = equals < 0 ? piece : piece.first(equals);
        const QStringView value = equals < 0 ? QStringView() : piece.sliced(equals + 1);
        parameters.insert(decodedOrEmpty(name), decodedOrEmpty(value));
    }
    return parameters;
}

QString qx_URLParameterString(const QVariantMap &dictionary)
{
    QString query = QStringLiteral("");
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it) {
        if (it != dictionary.cbegin())
            query += u'&';
        query += qx_URLEncodedString(it.key());
        query += u'=';
        query += qx_URLEncodedString(parameterText(it.value()));
    }
    return query;
}

QVariant qx_objectForKey(const QVariantMap &dictionary, const QString &key, QMetaType type)
{
    const auto found = dictionary.constFind(key);
    if (found == dictionary.cend())
        return QVariant();
    const QVariant &value = found.value();
    if (value.metaType() == type)
        return value;
    const bool objectPointers = (value.metaType().flags() & QMetaType::PointerToQObject)
        && (type.flags() & QMetaType::PointerToQObject);
    if (objectPointers && type.metaObject()) {
        const QObject *object = value.value<QObject *>();
        if (object && object->metaObject()->inherits(type.metaObject()))
            return value;
    }
    return QVariant();
}

QString qx_stringForKey(const QVariantMap &dictionary, const QString &key)
{
    const QVariant value = dictionary.value(key);
    return value.metaType().id() == QMetaType::QString ? value.toString() : QString();
}

QVariant qx_numberForKey(const QVariantMap &dictionary, const QString &key)
{
    const QVariant value = dictionary.value(key);
    return QXVariantKinds::isNumber(value.metaType().id()) ? value : QVariant();
}

std::optional<QVariantList> qx_arrayForKey(const QVariantMap &dictionary, const QString &key)
{
    const QVariant value = dictionary.value(key);
    switch (value.metaType().id()) {
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return value.toList();
    default:
        return std::nullopt;
    }
}

std::optional<QVariantMap> qx_dictionaryForKey(const QVariantMap &dictionary, const QString &key)
{
    const QVariant value = dictionary.value(key);
    switch (value.metaType().id()) {
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return value.toMap();
    default:
        return std::nullopt;
    }
}
