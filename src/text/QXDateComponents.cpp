#include <QXFoundation/QXDateComponents.h>

qint64 QXDateComponents::valueForComponent(quint64 unit) const
{
    switch (unit) {
    case QXCalendarUnitYear: return m_year;
    case QXCalendarUnitMonth: return m_month;
    case QXCalendarUnitWeekOfYear: return m_weekOfYear;
    case QXCalendarUnitDay: return m_day;
    case QXCalendarUnitHour: return m_hour;
    case QXCalendarUnitMinute: return m_minute;
    case QXCalendarUnitSecond: return m_second;
    default: return QXDateComponentUndefined;
    }
}

void QXDateComponents::setValue(qint64 value, quint64 forComponent)
{
    switch (forComponent) {
    case QXCalendarUnitYear: m_year = value; break;
    case QXCalendarUnitMonth: m_month = value; break;
    case QXCalendarUnitWeekOfYear: m_weekOfYear = value; break;
    case QXCalendarUnitDay: m_day = value; break;
    case QXCalendarUnitHour: m_hour = value; break;
    case QXCalendarUnitMinute: m_minute = value; break;
    case QXCalendarUnitSecond: m_second = value; break;
    default: break;
    }
}
