#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QTimeZone>

/*!
  Writes and reads dates with an ICU date pattern ("yyyy-MM-dd'T'HH:mm:ss.SSSZ").

  The locale is an identifier such as "de_DE" or "en_US_POSIX" (the fixed
  locale for machine-readable formats, which QLocale cannot express); it
  defaults to the default QLocale. The time zone defaults to the system's
  zone, read each time a date is formatted or parsed.
*/
class QXFOUNDATION_EXPORT QXDateFormatter
{
public:
    QXDateFormatter();

    QString dateFormat() const { return m_dateFormat; }
    void setDateFormat(const QString &format) { m_dateFormat = format; }
    QString localeIdentifier() const { return m_localeIdentifier; }
    void setLocaleIdentifier(const QString &identifier) { m_localeIdentifier = identifier; }
    void setLocale(const QLocale &locale) { m_localeIdentifier = locale.name(); }
    // An invalid zone (the default) stands for the system's zone.
    QTimeZone timeZone() const { return m_timeZone; }
    void setTimeZone(const QTimeZone &zone) { m_timeZone = zone; }

    // A null QString for an invalid date or pattern.
    QString stringFromDate(const QDateTime &date) const;
    // The date the whole text stands for, in UTC; invalid when it does not parse.
    QDateTime dateFromString(const QString &text) const;

private:
    QString m_dateFormat;
    QString m_localeIdentifier;
    QTimeZone m_timeZone;
};

// A new formatter for ISO 8601 timestamps with milliseconds and the zone
// offset ("2024-03-05T14:07:09.042+0100"): the en_US_POSIX locale, the pattern
// "yyyy-MM-dd'T'HH:mm:ss.SSSZ" and the system's time zone.
QXFOUNDATION_EXPORT QXDateFormatter qx_ISO8601DateFormatter();
