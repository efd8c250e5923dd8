#include <QXFoundation/QXDateFormatter.h>

#include "platform/QXIcu_p.h"

#include <unicode/smpdtfmt.h>

#include <memory>

QXDateFormatter::QXDateFormatter()
    : m_localeIdentifier(QLocale().name())
{
}

namespace {
std::unique_ptr<icu::SimpleDateFormat> makeFormat(const QXDateFormatter &formatter)
{
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>(QXIcu::toUnicodeString(formatter.dateFormat()),
                                                          QXIcu::localeFromIdentifier(formatter.localeIdentifier()),
                                                          status);
    if (U_FAILURE(status))
        return nullptr;
    format->adoptTimeZone(QXIcu::toTimeZone(formatter.timeZone()).release());
    format->setLenient(false);
    return format;
}
} // namespace

QString QXDateFormatter::stringFromDate(const QDateTime &date) const
{
    if (!date.isValid())
        return QString();
    const std::unique_ptr<icu::SimpleDateFormat> format = makeFormat(*this);
    if (!format)
        return QString();
    icu::UnicodeString text;
    format->format(UDate(date.toMSecsSinceEpoch()), text);
    return QXIcu::toQString(text);
}

QDateTime QXDateFormatter::dateFromString(const QString &text) const
{
    const std::unique_ptr<icu::SimpleDateFormat> format = makeFormat(*this);
    if (!format)
        return QDateTime();
    const icu::UnicodeString source = QXIcu::toUnicodeString(text);
    icu::ParsePosition position(0);
    const UDate date = format->parse(source, position);
    // The whole text must be a date, as the platform's formatter requires.
    if (position.getErrorIndex() >= 0 || position.getIndex() != source.length())
        return QDateTime();
    return QDateTime::fromMSecsSinceEpoch(qint64(date), QTimeZone::utc());
}

QXDateFormatter qx_ISO8601DateFormatter()
{
    QXDateFormatter formatter;
    formatter.setLocaleIdentifier(QStringLiteral("en_US_POSIX"));
    formatter.setDateFormat(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss.SSSZ"));
    return formatter;
}
