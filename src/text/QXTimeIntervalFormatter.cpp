#include <QXFoundation/QXTimeIntervalFormatter.h>

#include <QXFoundation/QXBundle.h>

#include "platform/QXFormat_p.h"

#include <QMetaType>

#include <array>
#include <cmath>
#include <cstdlib>

namespace {

QString localized(const QString &key, const QString &value = QString())
{
    return QXBundle::frameworkBundle().localizedStringForKey(key, value);
}

struct UnitNames
{
    quint64 unit;
    const char *singular;
    const char *plural;
    const char *abbreviatedSingular;
    const char *abbreviatedPlural;
};

// Keys of the library's translations. The day has no abbreviation of its own,
// and the abbreviated second is the same in singular and plural.
constexpr std::array<UnitNames, 6> unitNames{{
    {QXCalendarUnitYear, "year", "years", "yr", "yrs"},
    {QXCalendarUnitMonth, "month", "months", "mo", "mos"},
    {QXCalendarUnitDay, "day", "days", "day", "days"},
    {QXCalendarUnitHour, "hour", "hours", "hr", "hrs"},
    {QXCalendarUnitMinute, "minute", "minutes", "min", "mins"},
    {QXCalendarUnitSecond, "second", "seconds", "s", "s"},
}};

// Only used inside phrases: a week count has no name of its own in
// localizedStringForNumber(), but "2" alone would mean nothing.
constexpr UnitNames weekNames{QXCalendarUnitWeekOfYear, "week", "weeks", "wk", "wks"};

// The order in which units are shown.
constexpr std::array<quint64, 7> displayOrder{
    QXCalendarUnitYear, QXCalendarUnitMonth, QXCalendarUnitWeekOfYear, QXCalendarUnitDay,
    QXCalendarUnitHour, QXCalendarUnitMinute, QXCalendarUnitSecond,
};

QString nameFrom(const UnitNames &names, quint64 number, bool abbreviated)
{
    const bool singular = number == 1;
    const char *key = abbreviated ? (singular ? names.abbreviatedSingular : names.abbreviatedPlural)
                                  : (singular ? names.singular : names.plural);
    return localized(QString::fromLatin1(key));
}

struct IdiomaticTable
{
    const char16_t *lastYear;
    const char16_t *lastMonth;
    const char16_t *lastWeek;
    const char16_t *yesterday;
    const char16_t *nextYear;
    const char16_t *nextMonth;
    const char16_t *nextWeek;
    const char16_t *tomorrow;
};

constexpr IdiomaticTable englishPhrases{
    u"last year", u"last month", u"last week", u"yesterday",
    u"next year", u"next month", u"next week", u"tomorrow",
};

// Fixed texts, spelled exactly as the library has always shown them.
constexpr IdiomaticTable germanPhrases{
    u"leztes Jahr", u"lezter Monat", u"lezte Woche", u"Gestern",
    u"n\u00e4chstes Jahr", u"n\u00e4chster Monat", u"n\u00e4chste Woche", u"Morgen",
};

// Components outside the unit mask are QXDateComponentUndefined, which is
// none of -1, 0 and 1, so a rule that needs them never holds.
QString idiomaticPhrase(const IdiomaticTable &table, const QXDateComponents &c)
{
    const qint64 y = c.year(), m = c.month(), w = c.weekOfYear(), d = c.day();
    const char16_t *phrase = nullptr;
    if (y == -1)
        phrase = table.lastYear;
    else if (m == -1 && y == 0)
        phrase = table.lastMonth;
    else if (w == -1 && y == 0 && m == 0)
        phrase = table.lastWeek;
    else if (d == -1 && y == 0 && m == 0 && w == 0)
        phrase = table.yesterday;
    else if (y == 1)
        phrase = table.nextYear;
    else if (m == 1 && y == 0)
        phrase = table.nextMonth;
    else if (w == 1 && y == 0 && m == 0)
        phrase = table.nextWeek;
    else if (d == 1 && y == 0 && m == 0 && w == 0)
        phrase = table.tomorrow;
    return phrase ? QString::fromUtf16(phrase) : QString();
}

bool isNumber(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

} // namespace

QXTimeIntervalFormatter::QXTimeIntervalFormatter()
    : m_calendar(QXCalendar::currentCalendar())
    , m_pastDeicticExpression(localized(QStringLiteral("ago")))
    , m_presentDeicticExpression(localized(QStringLiteral("just now")))
    , m_futureDeicticExpression(localized(QStringLiteral("from now")))
    , m_deicticExpressionFormat(localized(QStringLiteral("Deictic Expression Format String"), QStringLiteral("%@ %@")))
    , m_suffixExpressionFormat(localized(QStringLiteral("Suffix Expression Format String"), QStringLiteral("%@ %@")))
    , m_approximateQualifierFormat(localized(QStringLiteral("about %@")))
{
}

QString QXTimeIntervalFormatter::stringForObjectValue(const QVariant &object) const
{
    if (!isNumber(object))
        return QString();
    return stringForTimeInterval(object.toDouble());
}

bool QXTimeIntervalFormatter::getObjectValue(QVariant *object, const QString &string,
                                             QString *errorDescription) const
{
    Q_UNUSED(object);
    Q_UNUSED(string);
    if (errorDescription)
        *errorDescription = localized(QStringLiteral("Method Not Implemented"));
    return false;
}

QString QXTimeIntervalFormatter::stringForTimeInterval(double seconds) const
{
    // Beyond this the milliseconds of the date no longer fit 64 bits.
    constexpr double limit = 9.0e15;
    if (!std::isfinite(seconds) || std::fabs(seconds) > limit)
        return QString();
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return stringForTimeIntervalFromDate(now, now.addMSecs(qint64(std::llround(seconds * 1000.0))));
}

QString QXTimeIntervalFormatter::stringForTimeIntervalFromDate(const QDateTime &fromDate,
                                                               const QDateTime &toDate) const
{
    if (!fromDate.isValid() || !toDate.isValid())
        return QString();
    // In double: far-apart dates would overflow a difference of milliseconds.
    const double delta = (double(fromDate.toMSecsSinceEpoch()) - double(toDate.toMSecsSinceEpoch())) / 1000.0;
    if (m_presentTimeIntervalMargin > std::fabs(delta))
        return m_presentDeicticExpression;

    bool ok = false;
    const QXDateComponents components = m_calendar.components(m_significantUnits, fromDate, toDate, &ok);
    if (!ok)
        return QString();

    if (m_usesIdiomaticDeicticExpressions) {
        const QString idiomatic = localizedIdiomaticDeicticExpressionForComponents(components);
        if (!idiomatic.isNull())
            return idiomatic;
    }

    QString result;
    quint64 shown = 0;
    bool approximate = false;
    for (const quint64 unit : displayOrder) {
        if (!(m_significantUnits & unit) || m_leastSignificantUnit < unit)
            continue;
        const quint64 number = quint64(std::llabs(qint64(qint32(components.valueForComponent(unit)))));
        if (number == 0)
            continue;
        const QString unitPhrase =
            QXFormat::format(m_suffixExpressionFormat, {QString::number(number), unitPhraseName(number, unit)});
        if (result.isNull()) {
            result = unitPhrase;
        } else if (m_numberOfSignificantUnits != 0 && shown >= m_numberOfSignificantUnits) {
            approximate = true;
        } else {
            result += QLatin1Char(' ') + unitPhrase;
        }
        ++shown;
    }
    if (result.isNull())
        return QString();

    const QString &expression = delta > 0 ? m_pastDeicticExpression : m_futureDeicticExpression;
    if (!expression.isEmpty())
        result = QXFormat::format(m_deicticExpressionFormat, {result, expression});
    if (approximate && m_usesApproximateQualifier)
        result = QXFormat::format(m_approximateQualifierFormat, {result});
    return result;
}

QString QXTimeIntervalFormatter::localizedStringForNumber(quint64 number, quint64 ofCalendarUnit) const
{
    for (const UnitNames &names : unitNames) {
        if (names.unit == ofCalendarUnit)
            return nameFrom(names, number, m_usesAbbreviatedCalendarUnits);
    }
    return QString();
}

QString QXTimeIntervalFormatter::unitPhraseName(quint64 number, quint64 unit) const
{
    if (unit == QXCalendarUnitWeekOfYear)
        return nameFrom(weekNames, number, m_usesAbbreviatedCalendarUnits);
    return localizedStringForNumber(number, unit);
}

QString QXTimeIntervalFormatter::localizedIdiomaticDeicticExpressionForComponents(
    const QXDateComponents &components) const
{
    // Qt's C locale stands for untranslated English, like en_US_POSIX.
    const QString language = m_locale.language() == QLocale::C ? QStringLiteral("en")
                                                                 : QLocale::languageToCode(m_locale.language());
    if (language == QLatin1String("en"))
        return enRelativeDateStringForComponents(components);
    if (language == QLatin1String("de"))
        return deRelativeDateStringForComponents(components);
    return QString();
}

QString QXTimeIntervalFormatter::enRelativeDateStringForComponents(const QXDateComponents &components) const
{
    return idiomaticPhrase(englishPhrases, components);
}

QString QXTimeIntervalFormatter::deRelativeDateStringForComponents(const QXDateComponents &components) const
{
    return idiomaticPhrase(germanPhrases, components);
}
