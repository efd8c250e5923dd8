#include "platform/QXIcu_p.h"

icu::Locale QXIcu::localeFromIdentifier(const QString &identifier)
{
    if (identifier.isEmpty() || identifier == QLatin1String("C"))
        return icu::Locale("en_US_POSIX");
    return icu::Locale(identifier.toLatin1().constData());
}

std::unique_ptr<icu::TimeZone> QXIcu::toTimeZone(const QTimeZone &zone)
{
    const QTimeZone effective = zone.isValid() ? zone : QTimeZone::systemTimeZone();
    const QByteArray id = effective.id();
    std::unique_ptr<icu::TimeZone> tz(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(id.constData())));
    if (*tz == icu::TimeZone::getUnknown()) {
        // Zones ICU does not know by name (a bare "UTC+01:00" from Qt) still
        // have a fixed offset that Qt can tell.
        const int offset = effective.offsetFromUtc(QDateTime::currentDateTimeUtc());
        tz.reset(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8("GMT")));
        tz->setRawOffset(offset * 1000);
    }
    return tz;
}
