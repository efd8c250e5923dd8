#include "platform/QXPropertyList_p.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QStringList>
#include <QTimeZone>

#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>

namespace {

struct PlistDeleter
{
    void operator()(void *node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// Property-list dates count seconds from 2001-01-01T00:00:00Z.
constexpr qint64 referenceDateMSecs = 978307200000LL;

// The text libplist's XML writer makes of one node, e.g. "<date>4001-01-01T00:00:00Z</date>".
QByteArray xmlOfNode(plist_t node)
{
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(node, &xml, &length);
    if (!xml)
        return QByteArray();
    QByteArray text(xml, qsizetype(length));
    plist_to_xml_free(xml);
    return text;
}

// One node parsed from `<plist>element</plist>`. libplist 2.2 offers no
// constructor for integers above the signed range or for dates outside
// int32 seconds, but its XML reader makes both.
PlistPtr nodeFromXml(const QByteArray &element)
{
    const QByteArray xml = "<plist version=\"1.0\">" + element + "</plist>";
    plist_t node = nullptr;
    plist_from_xml(xml.constData(), uint32_t(xml.size()), &node);
    return PlistPtr(node);
}

QByteArray elementText(const QByteArray &xml, const char *tag)
{
    const QByteArray open = QByteArray("<") + tag + '>';
    const QByteArray close = QByteArray("</") + tag + '>';
    const qsizetype start = xml.indexOf(open);
    const qsizetype end = xml.indexOf(close, start);
    if (start < 0 || end < 0)
        return QByteArray();
    return xml.mid(start + open.size(), end - start - open.size()).trimmed();
}

std::optional<QVariant> readInteger(plist_t node)
{
    uint64_t value = 0;
    plist_get_uint_val(node, &value);
    if (value <= uint64_t(std::numeric_limits<qint64>::max()))
        return QVariant(qlonglong(value));
    // The same 64 bits are a negative number or a large unsigned one; the
    // node knows which, but libplist 2.2 only says so in its XML.
    if (elementText(xmlOfNode(node), "integer").startsWith('-'))
        return QVariant(qlonglong(value));
    return QVariant(qulonglong(value));
}

std::optional<QVariant> readDate(plist_t node)
{
    // libplist keeps the seconds as a double but hands them out as int32
    // seconds (truncated towards zero) and the fraction's magnitude in
    // microseconds. Between -1 and 0 seconds the sign is lost; such a date
    // (within a second before the reference date) reads as the one after.
    int32_t seconds = 0;
    int32_t micros = 0;
    plist_get_date_val(node, &seconds, &micros);
    if (seconds != std::numeric_limits<int32_t>::min() && seconds != std::numeric_limits<int32_t>::max()) {
        const double fraction = micros / 1e6;
        const double total = seconds < 0 ? seconds - fraction : seconds + fraction;
        const qint64 msecs = std::llround(total * 1000.0);
        return QVariant(QDateTime::fromMSecsSinceEpoch(referenceDateMSecs + msecs, QTimeZone::utc()));
    }
    // Outside int32 seconds (before 1933, after 2069) the conversion
    // saturates; the XML writer still prints the date, to the second.
    static const QRegularExpression pattern(QStringLiteral("^(-?\\d+)-(\\d\\d)-(\\d\\d)T(\\d\\d):(\\d\\d):(\\d\\d)Z$"));
    const QRegularExpressionMatch match =
        pattern.match(QString::fromLatin1(elementText(xmlOfNode(node), "date")));
    if (!match.hasMatch())
        return std::nullopt;
    auto field = [&match](int n) { return match.captured(n).toInt(); };
    const QDate date(field(1), field(2), field(3));
    const QTime time(field(4), field(5), field(6));
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QVariant(QDateTime(date, time, QTimeZone::utc()));
}

std::optional<QVariant> fromNode(plist_t node, int depth)
{
    if (depth > QXPropertyList::maxDepth)
        return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
        return QVariant(plist_bool_val_is_true(node) != 0);
    case PLIST_UINT:
        return readInteger(node);
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant(value);
    }
    case PLIST_STRING: {
        uint64_t length = 0;
        const char *text = plist_get_string_ptr(node, &length);
        return QVariant(QString::fromUtf8(text, qsizetype(length)));
    }
    case PLIST_DATE:
        return readDate(node);
    case PLIST_DATA: {
        uint64_t length = 0;
        const char *bytes = plist_get_data_ptr(node, &length);
        // A non-null array also for empty data: it is a value, not "none".
        return QVariant(length ? QByteArray(bytes, qsizetype(length)) : QByteArray(""));
    }
    case PLIST_ARRAY: {
        const uint32_t count = plist_array_get_size(node);
        QVariantList list;
        list.reserve(qsizetype(count));
        for (uint32_t i = 0; i < count; ++i) {
            std::optional<QVariant> item = fromNode(plist_array_get_item(node, i), depth + 1);
            if (!item)
                return std::nullopt;
            list.append(std::move(*item));
        }
        return QVariant(list);
    }
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        if (!iter)
            return std::nullopt;
        const std::unique_ptr<void, decltype(&std::free)> iterOwner(iter, &std::free);
        for (;;) {
            char *key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iter, &key, &value);
            const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, &std::free);
            if (!value)
                break;
            std::optional<QVariant> item = fromNode(value, depth + 1);
            if (!key || !item)
                return std::nullopt;
            map.insert(QString::fromUtf8(key), std::move(*item));
        }
        return QVariant(map);
    }
    case PLIST_UID: {
        // Keyed archives refer to objects by UID; this is how the XML format spells one.
        uint64_t uid = 0;
        plist_get_uid_val(node, &uid);
        return QVariant(QVariantMap{{QStringLiteral("CF$UID"), qulonglong(uid)}});
    }
    case PLIST_KEY:
    case PLIST_NONE:
        break;
    }
    return std::nullopt;
}

PlistPtr dateNode(const QDateTime &dateTime, bool wholeSeconds)
{
    if (!dateTime.isValid())
        return nullptr;
    const qint64 msecs = dateTime.toMSecsSinceEpoch() - referenceDateMSecs;
    // Whole seconds rounded down and a non-negative fraction: libplist adds them.
    const qint64 seconds = msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000);
    const qint64 millis = wholeSeconds ? 0 : msecs - seconds * 1000;
    if (seconds > std::numeric_limits<int32_t>::min() && seconds < std::numeric_limits<int32_t>::max())
        return PlistPtr(plist_new_date(int32_t(seconds), int32_t(millis * 1000)));
    // Far dates go through the XML reader, to the second.
    const QDateTime utc = QDateTime::fromMSecsSinceEpoch(referenceDateMSecs + seconds * 1000, QTimeZone::utc());
    const QDate date = utc.date();
    const QTime time = utc.time();
    if (date.year() < 1 || date.year() > 9999)
        return nullptr;
    const QByteArray text = QString::asprintf("%04d-%02d-%02dT%02d:%02d:%02dZ", date.year(), date.month(), date.day(),
                                              time.hour(), time.minute(), time.second())
                                .toLatin1();
    PlistPtr node = nodeFromXml("<date>" + text + "</date>");
    if (!node || plist_get_node_type(node.get()) != PLIST_DATE)
        return nullptr;
    return node;
}

PlistPtr integerNode(qlonglong value)
{
    return PlistPtr(plist_new_uint(uint64_t(value)));
}

PlistPtr unsignedNode(qulonglong value)
{
    if (value <= qulonglong(std::numeric_limits<qint64>::max()))
        return PlistPtr(plist_new_uint(value));
    // plist_new_uint would store it as a negative number.
    PlistPtr node = nodeFromXml("<integer>" + QByteArray::number(value) + "</integer>");
    if (!node || plist_get_node_type(node.get()) != PLIST_UINT)
        return nullptr;
    return node;
}

PlistPtr stringNode(const QString &string)
{
    // libplist's strings end at the first zero byte: refuse rather than cut.
    if (string.contains(QChar(0)))
        return nullptr;
    return PlistPtr(plist_new_string(string.toUtf8().constData()));
}

class TreeWriter
{
public:
    // XML holds dates to the second, and libplist's writer would round
    // dates before 2001 up; round them all down beforehand.
    explicit TreeWriter(QXPropertyList::Format format)
        : m_wholeSeconds(format == QXPropertyList::Format::Xml)
    {
    }

    PlistPtr node(const QVariant &value, int depth) const
    {
        if (depth > QXPropertyList::maxDepth)
            return nullptr;
        switch (value.typeId()) {
        case QMetaType::QVariantMap: return dict(value.toMap(), depth);
        case QMetaType::QVariantHash: return dict(value.toHash(), depth);
        case QMetaType::QVariantList: return array(value.toList(), depth);
        case QMetaType::QStringList: return array(value.toStringList(), depth);
        case QMetaType::QString: return stringNode(value.toString());
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            return PlistPtr(plist_new_data(bytes.constData(), uint64_t(bytes.size())));
        }
        case QMetaType::QDateTime: return dateNode(value.toDateTime(), m_wholeSeconds);
        case QMetaType::Bool: return PlistPtr(plist_new_bool(value.toBool() ? 1 : 0));
        case QMetaType::Double:
        case QMetaType::Float: return PlistPtr(plist_new_real(value.toDouble()));
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::Short:
        case QMetaType::Int:
        case QMetaType::Long:
        case QMetaType::LongLong: return integerNode(value.toLongLong());
        case QMetaType::UChar:
        case QMetaType::UShort:
        case QMetaType::UInt:
        case QMetaType::ULong:
        case QMetaType::ULongLong: return unsignedNode(value.toULongLong());
        default: return nullptr;
        }
    }

private:
    template<typename Map>
    PlistPtr dict(const Map &map, int depth) const
    {
        PlistPtr dict(plist_new_dict());
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (it.key().contains(QChar(0)))
                return nullptr;
            PlistPtr item = node(it.value(), depth + 1);
            if (!item)
                return nullptr;
            plist_dict_set_item(dict.get(), it.key().toUtf8().constData(), item.release());
        }
        return dict;
    }

    template<typename List>
    PlistPtr array(const List &list, int depth) const
    {
        PlistPtr array(plist_new_array());
        for (const auto &element : list) {
            PlistPtr item = node(QVariant(element), depth + 1);
            if (!item)
                return nullptr;
            plist_array_append_item(array.get(), item.release());
        }
        return array;
    }

    bool m_wholeSeconds;
};

} // namespace

std::optional<QVariant> QXPropertyList::parse(const QByteArray &data, Format *format)
{
    if (data.isEmpty() || quint64(data.size()) > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    const auto length = uint32_t(data.size());
    const bool binary = plist_is_binary(data.constData(), length) != 0;
    plist_t root = nullptr;
    if (binary)
        plist_from_bin(data.constData(), length, &root);
    else
        plist_from_xml(data.constData(), length, &root);
    const PlistPtr owner(root);
    if (!root)
        return std::nullopt;
    std::optional<QVariant> value = fromNode(root, 0);
    if (value && format)
        *format = binary ? Format::Binary : Format::Xml;
    return value;
}

QByteArray QXPropertyList::serialize(const QVariant &value, Format format)
{
    const PlistPtr root = TreeWriter(format).node(value, 0);
    if (!root)
        return QByteArray();
    char *bytes = nullptr;
    uint32_t length = 0;
    if (format == Format::Binary) {
        plist_to_bin(root.get(), &bytes, &length);
        const QByteArray result = bytes ? QByteArray(bytes, qsizetype(length)) : QByteArray();
        plist_to_bin_free(bytes);
        return result;
    }
    plist_to_xml(root.get(), &bytes, &length);
    const QByteArray result = bytes ? QByteArray(bytes, qsizetype(length)) : QByteArray();
    plist_to_xml_free(bytes);
    return result;
}
