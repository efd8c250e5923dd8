#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QtGlobal>

#include <limits>

/*!
  Calendar units as bit flags. The values are those of the platform the
  library's interfaces come from, so stored masks keep their meaning: 252 is
  year, month, day, hour, minute and second. The week's flag (8192) is larger
  than every other unit's, which matters wherever units are compared as
  numbers.
*/
enum QXCalendarUnit : quint64 {
    QXCalendarUnitYear = 4,
    QXCalendarUnitMonth = 8,
    QXCalendarUnitDay = 16,
    QXCalendarUnitHour = 32,
    QXCalendarUnitMinute = 64,
    QXCalendarUnitSecond = 128,
    QXCalendarUnitWeekOfYear = 8192,
};

// The value of a component that was not computed or set.
inline constexpr qint64 QXDateComponentUndefined = std::numeric_limits<qint64>::max();

/*!
  A set of calendar components: the year, month, week of year, day, hour,
  minute and second of a date or of the difference between two dates.
  Every component starts as QXDateComponentUndefined; QXCalendar fills the
  ones it was asked for, with a sign (negative for a difference into the past).
*/
class QXFOUNDATION_EXPORT QXDateComponents
{
public:
    qint64 year() const { return m_year; }
    void setYear(qint64 value) { m_year = value; }
    qint64 month() const { return m_month; }
    void setMonth(qint64 value) { m_month = value; }
    qint64 weekOfYear() const { return m_weekOfYear; }
    void setWeekOfYear(qint64 value) { m_weekOfYear = value; }
    qint64 day() const { return m_day; }
    void setDay(qint64 value) { m_day = value; }
    qint64 hour() const { return m_hour; }
    void setHour(qint64 value) { m_hour = value; }
    qint64 minute() const { return m_minute; }
    void setMinute(qint64 value) { m_minute = value; }
    qint64 second() const { return m_second; }
    void setSecond(qint64 value) { m_second = value; }

    // The component of `unit` (one flag); QXDateComponentUndefined for any
    // other value, a mask of several flags included.
    qint64 valueForComponent(quint64 unit) const;
    // Sets the component of `unit` (one flag); anything else is ignored.
    void setValue(qint64 value, quint64 forComponent);

    friend bool operator==(const QXDateComponents &, const QXDateComponents &) = default;

private:
    qint64 m_year = QXDateComponentUndefined;
    qint64 m_month = QXDateComponentUndefined;
    qint64 m_weekOfYear = QXDateComponentUndefined;
    qint64 m_day = QXDateComponentUndefined;
    qint64 m_hour = QXDateComponentUndefined;
    qint64 m_minute = QXDateComponentUndefined;
    qint64 m_second = QXDateComponentUndefined;
};
