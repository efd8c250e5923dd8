#pragma once

#include <QXFoundation/QXDateComponents.h>
#include <QXFoundation/QXGlobal.h>

#include <QDateTime>
#include <QString>
#include <QTimeZone>

#include <memory>

/*!
  A calendar system in a time zone: what it takes to tell how many whole
  years, months, weeks, days, hours, minutes and seconds lie between two
  moments.

  The calendar system is named by its identifier ("gregorian", "buddhist",
  "japanese", "hebrew", "islamic-civil", "persian", "iso8601", ...); the
  zone decides where days begin and end, so a day across a daylight-saving
  change is still one day. An invalid QTimeZone given to the constructor or
  to setTimeZone() stands for the system's zone at that moment; timeZone()
  always returns the zone actually used.

  Differences are computed by ICU on wall-clock fields, largest unit first:
  31 March to 30 April is one month, and the day after 29 February 2024 in
  2025 is 1 year 1 day later. They are not mirror images: from 30 April back
  to 31 March is -30 days (or -4 weeks -2 days when weeks are asked for),
  not -1 month.

  An unknown identifier gives an invalid calendar whose components() fail.
  The class is an implicitly shared, immutable value: copies are cheap and
  may be used from several threads at once.
*/
class QXFOUNDATION_EXPORT QXCalendar
{
public:
    // The Gregorian calendar in the system's time zone.
    QXCalendar();
    explicit QXCalendar(const QString &calendarIdentifier, const QTimeZone &timeZone = QTimeZone());

    // The calendar system of the default QLocale (Buddhist for th_TH, Gregorian
    // for most) in the system's time zone, as it is when the call is made.
    static QXCalendar currentCalendar();

    bool isValid() const;
    QString calendarIdentifier() const;
    QTimeZone timeZone() const;
    void setTimeZone(const QTimeZone &zone);

    /*!
      The components of `units` (a mask of QXCalendarUnit flags; other bits are
      ignored) from `fromDate` to `toDate`: whole units, largest first, each
      counted from where the larger ones ended, negative when `toDate` is
      earlier. Units outside the mask stay QXDateComponentUndefined.

      `*ok` (when given) is false, and the components are incomplete, when a
      date is invalid, the calendar is invalid, a date lies beyond the
      calendar's reach (a few million years), or a difference does not fit
      32 bits (billions of seconds asked for without larger units).
    */
    QXDateComponents components(quint64 units, const QDateTime &fromDate, const QDateTime &toDate,
                                bool *ok = nullptr) const;

    friend QXFOUNDATION_EXPORT bool operator==(const QXCalendar &a, const QXCalendar &b);

private:
    struct Data;
    static std::shared_ptr<const Data> makeData(const QString &identifier, const QTimeZone &zone);
    std::shared_ptr<const Data> d;
};
