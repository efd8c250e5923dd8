#include <QXFoundation/QXCalendar.h>

#include "platform/QXIcu_p.h"

#include <unicode/calendar.h>
#include <unicode/strenum.h>

#include <array>
#include <cstring>
#include <utility>

struct QXCalendar::Data
{
    QString identifier;
    QTimeZone zone;
    // Never changed after construction: every computation works on a clone,
    // so copies of a QXCalendar can share it across threads.
    std::unique_ptr<const icu::Calendar> prototype;
};

namespace {

bool isKnownCalendar(const QByteArray &identifier)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::StringEnumeration> known(
        icu::Calendar::getKeywordValuesForLocale("calendar", icu::Locale::getRoot(), false, status));
    if (U_FAILURE(status) || !known)
        return false;
    while (const char *name = known->next(nullptr, status)) {
        if (identifier == name)
            return true;
    }
    return false;
}

} // namespace

std::shared_ptr<const QXCalendar::Data> QXCalendar::makeData(const QString &identifier, const QTimeZone &requestedZone)
{
    auto data = std::make_shared<Data>();
    data->identifier = identifier;
    data->zone = requestedZone.isValid() ? requestedZone : QTimeZone::systemTimeZone();
    const QByteArray id = identifier.toLatin1();
    // ICU quietly falls back to the Gregorian calendar for a name it does not
    // know, which would compute plausible but wrong differences.
    if (!isKnownCalendar(id))
        return data;
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale locale = icu::Locale::getRoot();
    locale.setKeywordValue("calendar", id.constData(), status);
    std::unique_ptr<icu::Calendar> calendar(
        icu::Calendar::createInstance(QXIcu::toTimeZone(data->zone).release(), locale, status));
    if (U_SUCCESS(status) && calendar)
        data->prototype = std::move(calendar);
    return data;
}

QXCalendar::QXCalendar()
    : QXCalendar(QStringLiteral("gregorian"))
{
}

QXCalendar::QXCalendar(const QString &calendarIdentifier, const QTimeZone &timeZone)
    : d(makeData(calendarIdentifier, timeZone))
{
}

QXCalendar QXCalendar::currentCalendar()
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(QXIcu::toLocale(QLocale()), status));
    if (U_FAILURE(status) || !calendar)
        return QXCalendar();
    return QXCalendar(QString::fromLatin1(calendar->getType()));
}

bool QXCalendar::isValid() const
{
    return d->prototype != nullptr;
}

QString QXCalendar::calendarIdentifier() const
{
    return d->identifier;
}

QTimeZone QXCalendar::timeZone() const
{
    return d->zone;
}

void QXCalendar::setTimeZone(const QTimeZone &zone)
{
    d = makeData(d->identifier, zone);
}

QXDateComponents QXCalendar::components(quint64 units, const QDateTime &fromDate, const QDateTime &toDate,
                                        bool *ok) const
{
    // Largest first: each difference is counted from where the larger ones ended.
    static constexpr std::array<std::pair<QXCalendarUnit, UCalendarDateFields>, 7> fields{{
        {QXCalendarUnitYear, UCAL_YEAR},
        {QXCalendarUnitMonth, UCAL_MONTH},
        {QXCalendarUnitWeekOfYear, UCAL_WEEK_OF_YEAR},
        {QXCalendarUnitDay, UCAL_DATE},
        {QXCalendarUnitHour, UCAL_HOUR_OF_DAY},
        {QXCalendarUnitMinute, UCAL_MINUTE},
        {QXCalendarUnitSecond, UCAL_SECOND},
    }};

    QXDateComponents result;
    if (ok)
        *ok = false;
    if (!d->prototype || !fromDate.isValid() || !toDate.isValid())
        return result;
    const std::unique_ptr<icu::Calendar> calendar(d->prototype->clone());
    if (!calendar)
        return result;
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(UDate(fromDate.toMSecsSinceEpoch()), status);
    const UDate target = UDate(toDate.toMSecsSinceEpoch());
    for (const auto &[unit, field] : fields) {
        if (!(units & unit))
            continue;
        // Advances the calendar by the whole units it returns.
        const int32_t difference = calendar->fieldDifference(target, field, status);
        if (U_FAILURE(status))
            return result;
        result.setValue(difference, unit);
    }
    if (ok)
        *ok = true;
    return result;
}

bool operator==(const QXCalendar &a, const QXCalendar &b)
{
    return a.d == b.d || (a.d->identifier == b.d->identifier && a.d->zone == b.d->zone);
}
