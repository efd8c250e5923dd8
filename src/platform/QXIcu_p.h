#pragma once

#include <QLocale>
#include <QString>
#include <QTimeZone>

#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>

// Conversions between Qt's and ICU's types. QString and icu::UnicodeString
// are both UTF-16, so text crosses without transcoding.
namespace QXIcu {

inline icu::UnicodeString toUnicodeString(const QString &string)
{
    return icu::UnicodeString(reinterpret_cast<const UChar *>(string.utf16()), int32_t(string.size()));
}

inline QString toQString(const icu::UnicodeString &string)
{
    return QString(reinterpret_cast<const QChar *>(string.getBuffer()), string.length());
}

// An ICU locale for a locale identifier such as "de_DE" or "en_US_POSIX";
// Qt's "C" locale maps to "en_US_POSIX".
icu::Locale localeFromIdentifier(const QString &identifier);
inline icu::Locale toLocale(const QLocale &locale) { return localeFromIdentifier(locale.name()); }

// An ICU zone for `zone`; an invalid QTimeZone means the system's zone.
std::unique_ptr<icu::TimeZone> toTimeZone(const QTimeZone &zone);

} // namespace QXIcu
