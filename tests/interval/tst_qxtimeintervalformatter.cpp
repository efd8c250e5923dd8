#include <QXFoundation/QXCalendar.h>
#include <QXFoundation/QXTimeIntervalFormatter.h>

#include <QtConcurrent>
#include <QtTest>

#include <cmath>
#include <limits>

class tst_QXTimeIntervalFormatter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void defaults();
    void presentMarginAndDirection();
    void significantUnitsAndQualifier();
    void leastSignificantUnitAndWeeks();
    void unitNamesFullAndAbbreviated();
    void deicticExpressionsAndFormats();
    void idiomaticRules();
    void idiomaticPhrasesInFormatting();
    void calendarArithmeticAcrossMonthEnds();
    void calendarArithmeticAcrossDaylightSaving();
    void calendars();
    void germanTranslation();
    void objectValuesAndRefusedParsing();
    void badInputGivesNoPhrase();
    void oneFormatterSharedByThreads();
    void commandLine();

private:
    // A formatter with the defaults, on a Gregorian calendar in UTC so the
    // machine's zone plays no part.
    static QXTimeIntervalFormatter makeFormatter();
    // The phrase for the moment `seconds` after a fixed reference date.
    static QString phrase(const QXTimeIntervalFormatter &formatter, double seconds);
};

namespace {

const QDateTime reference(QDate(2024, 5, 15), QTime(12, 0), QTimeZone::utc());

QDateTime berlin(int year, int month, int day, int hour, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), QTimeZone("Europe/Berlin"));
}

QXDateComponents components(qint64 year, qint64 month, qint64 week, qint64 day)
{
    QXDateComponents result;
    result.setYear(year);
    result.setMonth(month);
    result.setWeekOfYear(week);
    result.setDay(day);
    return result;
}

constexpr qint64 U = QXDateComponentUndefined;

} // namespace

QXTimeIntervalFormatter tst_QXTimeIntervalFormatter::makeFormatter()
{
    QXTimeIntervalFormatter formatter;
    formatter.setCalendar(QXCalendar(QStringLiteral("gregorian"), QTimeZone::utc()));
    return formatter;
}

QString tst_QXTimeIntervalFormatter::phrase(const QXTimeIntervalFormatter &formatter, double seconds)
{
    return formatter.stringForTimeIntervalFromDate(reference, reference.addMSecs(qint64(std::llround(seconds * 1000))));
}

void tst_QXTimeIntervalFormatter::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
}

void tst_QXTimeIntervalFormatter::cleanup()
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
}

void tst_QXTimeIntervalFormatter::defaults()
{
    const QXTimeIntervalFormatter formatter;
    QCOMPARE(formatter.locale(), QLocale());
    QCOMPARE(formatter.calendar().calendarIdentifier(), QStringLiteral("gregorian"));
    QCOMPARE(formatter.calendar().timeZone(), QTimeZone::systemTimeZone());
    QCOMPARE(formatter.pastDeicticExpression(), QStringLiteral("ago"));
    QCOMPARE(formatter.presentDeicticExpression(), QStringLiteral("just now"));
    QCOMPARE(formatter.futureDeicticExpression(), QStringLiteral("from now"));
    QCOMPARE(formatter.deicticExpressionFormat(), QStringLiteral("%@ %@"));
    QCOMPARE(formatter.suffixExpressionFormat(), QStringLiteral("%@ %@"));
    QCOMPARE(formatter.approximateQualifierFormat(), QStringLiteral("about %@"));
    QCOMPARE(formatter.presentTimeIntervalMargin(), 1.0);
    QCOMPARE(formatter.significantUnits(), quint64(252));
    QCOMPARE(formatter.numberOfSignificantUnits(), quint64(1));
    QCOMPARE(formatter.leastSignificantUnit(), quint64(QXCalendarUnitSecond));
    QVERIFY(!formatter.usesIdiomaticDeicticExpressions());
    QVERIFY(!formatter.usesApproximateQualifier());
    QVERIFY(!formatter.usesAbbreviatedCalendarUnits());

    // Relative to the real clock: both ends are taken from one reading of it.
    QCOMPARE(formatter.stringForTimeInterval(0), QStringLiteral("just now"));
    QCOMPARE(formatter.stringForTimeInterval(-300), QStringLiteral("5 minutes ago"));
    QCOMPARE(formatter.stringForTimeInterval(7200), QStringLiteral("2 hours from now"));
}

void tst_QXTimeIntervalFormatter::presentMarginAndDirection()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    QCOMPARE(phrase(formatter, 0), QStringLiteral("just now"));
    QCOMPARE(phrase(formatter, 0.5), QStringLiteral("just now"));
    QCOMPARE(phrase(formatter, -0.999), QStringLiteral("just now"));
    // The margin itself is no longer the present.
    QCOMPARE(phrase(formatter, -1), QStringLiteral("1 second ago"));
    QCOMPARE(phrase(formatter, 1), QStringLiteral("1 second from now"));
    QCOMPARE(phrase(formatter, -120), QStringLiteral("2 minutes ago"));
    QCOMPARE(phrase(formatter, 7200), QStringLiteral("2 hours from now"));
    // Whole units only: 1 minute 59 seconds is not rounded up.
    QCOMPARE(phrase(formatter, -119), QStringLiteral("1 minute ago"));

    formatter.setPresentTimeIntervalMargin(60);
    QCOMPARE(phrase(formatter, -59), QStringLiteral("just now"));
    QCOMPARE(phrase(formatter, -60), QStringLiteral("1 minute ago"));
    formatter.setPresentDeicticExpression(QStringLiteral("right now"));
    QCOMPARE(phrase(formatter, 10), QStringLiteral("right now"));

    // Without a margin, an interval of nothing has no unit to show.
    formatter.setPresentTimeIntervalMargin(0);
    QVERIFY(phrase(formatter, 0).isNull());
    QCOMPARE(phrase(formatter, 3), QStringLiteral("3 seconds from now"));
}

void tst_QXTimeIntervalFormatter::significantUnitsAndQualifier()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    const double hourMinuteForty = -3700; // 1 hour, 1 minute, 40 seconds
    QCOMPARE(phrase(formatter, hourMinuteForty), QStringLiteral("1 hour ago"));
    formatter.setUsesApproximateQualifier(true);
    QCOMPARE(phrase(formatter, hourMinuteForty), QStringLiteral("about 1 hour ago"));
    QCOMPARE(phrase(formatter, -hourMinuteForty), QStringLiteral("about 1 hour from now"));
    // Nothing dropped, nothing approximate.
    QCOMPARE(phrase(formatter, -3600), QStringLiteral("1 hour ago"));

    formatter.setNumberOfSignificantUnits(2);
    QCOMPARE(phrase(formatter, hourMinuteForty), QStringLiteral("about 1 hour 1 minute ago"));
    formatter.setUsesApproximateQualifier(false);
    QCOMPARE(phrase(formatter, hourMinuteForty), QStringLiteral("1 hour 1 minute ago"));
    // A zero unit neither shows nor counts: the seconds take its place.
    QCOMPARE(phrase(formatter, -3640), QStringLiteral("1 hour 40 seconds ago"));

    formatter.setNumberOfSignificantUnits(0);
    formatter.setUsesApproximateQualifier(true);
    QCOMPARE(phrase(formatter, hourMinuteForty), QStringLiteral("1 hour 1 minute 40 seconds ago"));
    const double everything = -(2 * 86400 + 3 * 3600 + 4 * 60 + 5);
    QCOMPARE(phrase(formatter, everything), QStringLiteral("2 days 3 hours 4 minutes 5 seconds ago"));

    // Units outside the mask are not computed: their time flows into the smaller ones.
    formatter.setSignificantUnits(QXCalendarUnitMinute | QXCalendarUnitSecond);
    QCOMPARE(phrase(formatter, hourMinuteForty), QStringLiteral("61 minutes 40 seconds ago"));
    formatter.setSignificantUnits(QXCalendarUnitHour);
    formatter.setNumberOfSignificantUnits(1);
    // The remainder is dropped without rounding and without "about": it was never a unit.
    QCOMPARE(phrase(formatter, -(2 * 3600 + 3599)), QStringLiteral("2 hours ago"));
    QVERIFY(phrase(formatter, -3599).isNull());
}

void tst_QXTimeIntervalFormatter::leastSignificantUnitAndWeeks()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setLeastSignificantUnit(QXCalendarUnitMinute);
    QVERIFY(phrase(formatter, -30).isNull());
    QCOMPARE(phrase(formatter, -90), QStringLiteral("1 minute ago"));
    // Seconds hidden by the least significant unit are not "dropped" units.
    formatter.setUsesApproximateQualifier(true);
    QCOMPARE(phrase(formatter, -90), QStringLiteral("1 minute ago"));
    formatter.setLeastSignificantUnit(QXCalendarUnitDay);
    QCOMPARE(phrase(formatter, -(3 * 86400 + 7200)), QStringLiteral("3 days ago"));
    QVERIFY(phrase(formatter, -7200).isNull());

    // The week's flag is larger than every other unit's: with the second as
    // the least significant unit weeks are computed but never shown.
    const double tenDays = -10 * 86400;
    formatter.setLeastSignificantUnit(QXCalendarUnitSecond);
    formatter.setUsesApproximateQualifier(false);
    formatter.setSignificantUnits(formatter.significantUnits() | QXCalendarUnitWeekOfYear);
    QCOMPARE(phrase(formatter, tenDays), QStringLiteral("3 days ago"));
    formatter.setLeastSignificantUnit(QXCalendarUnitWeekOfYear);
    QCOMPARE(phrase(formatter, tenDays), QStringLiteral("1 week ago"));
    QCOMPARE(phrase(formatter, -21 * 86400), QStringLiteral("3 weeks ago"));
    formatter.setNumberOfSignificantUnits(0);
    QCOMPARE(phrase(formatter, tenDays - 60), QStringLiteral("1 week 3 days 1 minute ago"));
    formatter.setUsesAbbreviatedCalendarUnits(true);
    QCOMPARE(phrase(formatter, 14 * 86400), QStringLiteral("2 wks from now"));
    // ... but the week has no name of its own.
    QVERIFY(formatter.localizedStringForNumber(2, QXCalendarUnitWeekOfYear).isNull());
}

void tst_QXTimeIntervalFormatter::unitNamesFullAndAbbreviated()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    const struct
    {
        QXCalendarUnit unit;
        const char *singular, *plural, *shortSingular, *shortPlural;
    } table[] = {
        {QXCalendarUnitYear, "year", "years", "yr", "yrs"},
        {QXCalendarUnitMonth, "month", "months", "mo", "mos"},
        {QXCalendarUnitDay, "day", "days", "day", "days"},
        {QXCalendarUnitHour, "hour", "hours", "hr", "hrs"},
        {QXCalendarUnitMinute, "minute", "minutes", "min", "mins"},
        {QXCalendarUnitSecond, "second", "seconds", "s", "s"},
    };
    for (const auto &row : table) {
        formatter.setUsesAbbreviatedCalendarUnits(false);
        QCOMPARE(formatter.localizedStringForNumber(1, row.unit), QLatin1String(row.singular));
        QCOMPARE(formatter.localizedStringForNumber(0, row.unit), QLatin1String(row.plural));
        QCOMPARE(formatter.localizedStringForNumber(21, row.unit), QLatin1String(row.plural));
        formatter.setUsesAbbreviatedCalendarUnits(true);
        QCOMPARE(formatter.localizedStringForNumber(1, row.unit), QLatin1String(row.shortSingular));
        QCOMPARE(formatter.localizedStringForNumber(2, row.unit), QLatin1String(row.shortPlural));
    }
    for (const quint64 other : {quint64(0), quint64(2), quint64(QXCalendarUnitWeekOfYear), quint64(12), quint64(256)})
        QVERIFY(formatter.localizedStringForNumber(1, other).isNull());

    QCOMPARE(phrase(formatter, -45), QStringLiteral("45 s ago"));
    QCOMPARE(phrase(formatter, -1), QStringLiteral("1 s ago"));
    QCOMPARE(phrase(formatter, -7200), QStringLiteral("2 hrs ago"));
    QCOMPARE(phrase(formatter, 3600), QStringLiteral("1 hr from now"));
    QCOMPARE(phrase(formatter, -180), QStringLiteral("3 mins ago"));
    QCOMPARE(phrase(formatter, -3 * 86400), QStringLiteral("3 days ago"));
    QCOMPARE(phrase(formatter, 86400), QStringLiteral("1 day from now"));
}

void tst_QXTimeIntervalFormatter::deicticExpressionsAndFormats()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setPastDeicticExpression(QString(QLatin1String("")));
    QCOMPARE(phrase(formatter, -120), QStringLiteral("2 minutes"));
    QCOMPARE(phrase(formatter, 120), QStringLiteral("2 minutes from now"));
    formatter.setPastDeicticExpression(QString());
    QCOMPARE(phrase(formatter, -120), QStringLiteral("2 minutes"));
    formatter.setFutureDeicticExpression(QString());
    QCOMPARE(phrase(formatter, 120), QStringLiteral("2 minutes"));

    formatter.setPastDeicticExpression(QStringLiteral("earlier"));
    formatter.setFutureDeicticExpression(QStringLiteral("later"));
    formatter.setDeicticExpressionFormat(QStringLiteral("%2$@: %1$@"));
    QCOMPARE(phrase(formatter, -120), QStringLiteral("earlier: 2 minutes"));
    QCOMPARE(phrase(formatter, 120), QStringLiteral("later: 2 minutes"));
    formatter.setSuffixExpressionFormat(QStringLiteral("%@%@"));
    formatter.setNumberOfSignificantUnits(2);
    formatter.setUsesAbbreviatedCalendarUnits(true);
    QCOMPARE(phrase(formatter, -3700), QStringLiteral("earlier: 1hr 1min"));
    formatter.setUsesApproximateQualifier(true);
    formatter.setApproximateQualifierFormat(QStringLiteral("~%@~"));
    QCOMPARE(phrase(formatter, -3700), QStringLiteral("~earlier: 1hr 1min~"));
}

void tst_QXTimeIntervalFormatter::idiomaticRules()
{
    const QXTimeIntervalFormatter formatter = makeFormatter();
    const struct
    {
        QXDateComponents components;
        const char16_t *english, *german; // null: no rule holds
    } cases[] = {
        {components(-1, 5, U, 3), u"last year", u"leztes Jahr"},
        {components(0, -1, U, U), u"last month", u"lezter Monat"},
        {components(0, 0, -1, 6), u"last week", u"lezte Woche"},
        {components(0, 0, 0, -1), u"yesterday", u"Gestern"},
        {components(1, -3, U, U), u"next year", u"n\u00e4chstes Jahr"},
        {components(0, 1, 2, 3), u"next month", u"n\u00e4chster Monat"},
        {components(0, 0, 1, -2), u"next week", u"n\u00e4chste Woche"},
        {components(0, 0, 0, 1), u"tomorrow", u"Morgen"},
        // The month rule needs a zero year; the next-year rule then answers.
        {components(1, -1, U, U), u"next year", u"n\u00e4chstes Jahr"},
        // Units outside the mask are undefined, which is never 0.
        {components(0, 0, U, -1), nullptr, nullptr},
        {components(U, -1, U, U), nullptr, nullptr},
        {components(U, U, -1, U), nullptr, nullptr},
        {components(0, 0, 0, 0), nullptr, nullptr},
        {components(0, 2, 0, 0), nullptr, nullptr},
        {QXDateComponents(), nullptr, nullptr},
    };
    for (const auto &c : cases) {
        const QString english = formatter.enRelativeDateStringForComponents(c.components);
        const QString german = formatter.deRelativeDateStringForComponents(c.components);
        if (c.english) {
            QCOMPARE(english, QString::fromUtf16(c.english));
            QCOMPARE(german, QString::fromUtf16(c.german));
        } else {
            QVERIFY2(english.isNull(), qPrintable(english));
            QVERIFY2(german.isNull(), qPrintable(german));
        }
    }
    // The umlaut is one precomposed character.
    QCOMPARE(formatter.deRelativeDateStringForComponents(components(1, 0, 0, 0)).at(1), QChar(0x00E4));

    // The table follows the formatter's locale, not the default one.
    QXTimeIntervalFormatter byLocale = makeFormatter();
    const QXDateComponents lastYear = components(-1, 0, U, U);
    for (const auto &[locale, expected] : {
             std::pair{QLocale(QLocale::English, QLocale::UnitedKingdom), u"last year"},
             std::pair{QLocale::c(), u"last year"},
             std::pair{QLocale(QLocale::German, QLocale::Austria), u"leztes Jahr"},
         }) {
        byLocale.setLocale(locale);
        QCOMPARE(byLocale.localizedIdiomaticDeicticExpressionForComponents(lastYear), QString::fromUtf16(expected));
    }
    for (const QLocale &other : {QLocale(QLocale::French, QLocale::France), QLocale(QLocale::LowGerman)}) {
        byLocale.setLocale(other);
        QVERIFY(byLocale.localizedIdiomaticDeicticExpressionForComponents(lastYear).isNull());
    }
}

void tst_QXTimeIntervalFormatter::idiomaticPhrasesInFormatting()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setLocale(QLocale(QLocale::English, QLocale::UnitedStates));
    formatter.setUsesIdiomaticDeicticExpressions(true);
    formatter.setUsesApproximateQualifier(true);
    const QDateTime june = QDateTime(QDate(2024, 6, 12), QTime(9, 0), QTimeZone::utc());
    const auto at = [](int y, int m, int d, int h) { return QDateTime(QDate(y, m, d), QTime(h, 0), QTimeZone::utc()); };

    // Year -1 whatever the months; no qualifier and no "ago" are added.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2023, 1, 2, 9)), QStringLiteral("last year"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2023, 6, 1, 9)), QStringLiteral("last year"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 7, 20, 9)), QStringLiteral("next month"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2025, 8, 1, 9)), QStringLiteral("next year"));
    // Two years away no rule holds: the numbers are used.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2022, 6, 1, 9)), QStringLiteral("about 2 years ago"));
    // With the default units the week is undefined: no "yesterday".
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 11, 8)), QStringLiteral("about 1 day ago"));

    formatter.setSignificantUnits(formatter.significantUnits() | QXCalendarUnitWeekOfYear);
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 11, 8)), QStringLiteral("yesterday"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 13, 20)), QStringLiteral("tomorrow"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 3, 9)), QStringLiteral("last week"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 20, 9)), QStringLiteral("next week"));
    // Less than a whole day is neither yesterday nor tomorrow.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 11, 18)), QStringLiteral("15 hours ago"));

    formatter.setLocale(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2023, 1, 2, 9)), QStringLiteral("leztes Jahr"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 7, 20, 9)), QStringLiteral("n\u00e4chster Monat"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 6, 11, 8)), QStringLiteral("Gestern"));
    formatter.setLocale(QLocale(QLocale::French, QLocale::France));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2023, 1, 2, 9)), QStringLiteral("about 1 year ago"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, at(2024, 7, 20, 9)), QStringLiteral("about 1 month from now"));
    // The present still wins over every phrase.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(june, june.addMSecs(400)), QStringLiteral("just now"));
}

void tst_QXTimeIntervalFormatter::calendarArithmeticAcrossMonthEnds()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setNumberOfSignificantUnits(0);
    formatter.setCalendar(QXCalendar(QStringLiteral("gregorian"), QTimeZone("Europe/Berlin")));
    const auto between = [&formatter](const QDateTime &from, const QDateTime &to) {
        return formatter.stringForTimeIntervalFromDate(from, to);
    };

    // A calendar month, not 30 days' worth of seconds.
    QCOMPARE(between(berlin(2024, 3, 31, 10), berlin(2024, 4, 30, 10)), QStringLiteral("1 month from now"));
    QCOMPARE(between(berlin(2024, 1, 31, 10), berlin(2024, 2, 29, 10)), QStringLiteral("1 month from now"));
    // Backwards from the end of a longer month the month does not fit.
    QCOMPARE(between(berlin(2024, 4, 30, 10), berlin(2024, 3, 31, 10)), QStringLiteral("30 days ago"));
    QCOMPARE(between(berlin(2024, 3, 31, 10), berlin(2024, 2, 29, 9, 59, 30)),
             QStringLiteral("1 month 30 seconds ago"));
    QCOMPARE(between(berlin(2024, 2, 29, 9, 59, 30), berlin(2024, 3, 31, 10)),
             QStringLiteral("1 month 2 days 30 seconds from now"));

    // Leap days: a year from 29 February ends on 28 February.
    QCOMPARE(between(berlin(2024, 2, 29, 0), berlin(2025, 2, 28, 0)), QStringLiteral("1 year from now"));
    QCOMPARE(between(berlin(2024, 2, 29, 0), berlin(2025, 3, 1, 0)), QStringLiteral("1 year 1 day from now"));
    QCOMPARE(between(berlin(2023, 2, 28, 0), berlin(2024, 2, 28, 0)), QStringLiteral("1 year from now"));
    QCOMPARE(between(berlin(2023, 3, 1, 0), berlin(2024, 2, 29, 0)), QStringLiteral("11 months 28 days from now"));
    QCOMPARE(between(berlin(2024, 2, 28, 12), berlin(2024, 3, 1, 12)), QStringLiteral("2 days from now"));

    // The same through the calendar: signed, largest first, undefined outside the mask.
    const QXCalendar calendar(QStringLiteral("gregorian"), QTimeZone("Europe/Berlin"));
    bool ok = false;
    const QXDateComponents back = calendar.components(QXCalendarUnitMonth | QXCalendarUnitDay | QXCalendarUnitSecond,
                                                      berlin(2024, 3, 31, 10), berlin(2024, 2, 29, 9, 59, 30), &ok);
    QVERIFY(ok);
    QCOMPARE(back.month(), -1);
    QCOMPARE(back.day(), 0);
    QCOMPARE(back.second(), -30);
    QCOMPARE(back.year(), U);
    QCOMPARE(back.hour(), U);
    QCOMPARE(back.valueForComponent(QXCalendarUnitMonth), -1);
    QCOMPARE(back.valueForComponent(QXCalendarUnitMonth | QXCalendarUnitDay), U);
    const QXDateComponents weeks = calendar.components(QXCalendarUnitMonth | QXCalendarUnitWeekOfYear | QXCalendarUnitDay,
                                                       berlin(2024, 4, 30, 10), berlin(2024, 3, 31, 10));
    QCOMPARE(weeks.month(), 0);
    QCOMPARE(weeks.weekOfYear(), -4);
    QCOMPARE(weeks.day(), -2);
}

void tst_QXTimeIntervalFormatter::calendarArithmeticAcrossDaylightSaving()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setNumberOfSignificantUnits(0);
    const QDateTime beforeSpring = berlin(2024, 3, 30, 12);
    const QDateTime afterSpring = berlin(2024, 3, 31, 12);
    QCOMPARE(beforeSpring.secsTo(afterSpring), 23 * 3600);

    // In UTC the spring day is 23 hours; in Berlin it is one calendar day.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(beforeSpring, afterSpring), QStringLiteral("23 hours from now"));
    formatter.setCalendar(QXCalendar(QStringLiteral("gregorian"), QTimeZone("Europe/Berlin")));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(beforeSpring, afterSpring), QStringLiteral("1 day from now"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(afterSpring, beforeSpring), QStringLiteral("1 day ago"));
    // The autumn day has 25 hours.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(berlin(2024, 10, 26, 12), berlin(2024, 10, 27, 12)),
             QStringLiteral("1 day from now"));
    // Short of a calendar day, the hours are elapsed ones: that night had 25.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(berlin(2024, 10, 26, 12), berlin(2024, 10, 27, 11, 30)),
             QStringLiteral("24 hours 30 minutes from now"));
    // Hours are elapsed hours: 01:30 to 03:30 on the spring night is one hour.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(berlin(2024, 3, 31, 1, 30), berlin(2024, 3, 31, 3, 30)),
             QStringLiteral("1 hour from now"));
    // A month across the change keeps the wall-clock time.
    QCOMPARE(formatter.stringForTimeIntervalFromDate(berlin(2024, 3, 15, 12), berlin(2024, 4, 15, 12)),
             QStringLiteral("1 month from now"));

    // The calendar's zone, not the zone the dates were written in, decides.
    const QDateTime utcBefore = beforeSpring.toUTC();
    const QDateTime utcAfter = afterSpring.toUTC();
    QCOMPARE(formatter.stringForTimeIntervalFromDate(utcBefore, utcAfter), QStringLiteral("1 day from now"));
}

void tst_QXTimeIntervalFormatter::calendars()
{
    const QXCalendar gregorian;
    QVERIFY(gregorian.isValid());
    QCOMPARE(gregorian.calendarIdentifier(), QStringLiteral("gregorian"));
    QCOMPARE(gregorian.timeZone(), QTimeZone::systemTimeZone());

    QXCalendar zoned(QStringLiteral("gregorian"), QTimeZone("Europe/Berlin"));
    QCOMPARE(zoned.timeZone().id(), QByteArray("Europe/Berlin"));
    QVERIFY(zoned != QXCalendar(QStringLiteral("gregorian"), QTimeZone("Asia/Tokyo")));
    QXCalendar copy = zoned;
    copy.setTimeZone(QTimeZone("Asia/Tokyo"));
    QCOMPARE(zoned.timeZone().id(), QByteArray("Europe/Berlin"));
    QCOMPARE(copy, QXCalendar(QStringLiteral("gregorian"), QTimeZone("Asia/Tokyo")));

    // The current calendar follows the default locale's calendar system.
    QLocale::setDefault(QLocale(QLocale::Thai, QLocale::Thailand));
    QCOMPARE(QXCalendar::currentCalendar().calendarIdentifier(), QStringLiteral("buddhist"));
    QCOMPARE(QXTimeIntervalFormatter().calendar().calendarIdentifier(), QStringLiteral("buddhist"));
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(QXCalendar::currentCalendar().calendarIdentifier(), QStringLiteral("gregorian"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));

    // Another calendar system has other months: from 1 Iyar 5784 (9 May
    // 2024) to 1 Sivan (7 June) is one Hebrew month but 29 Gregorian days.
    const QXCalendar hebrew(QStringLiteral("hebrew"), QTimeZone::utc());
    const QXCalendar utcGregorian(QStringLiteral("gregorian"), QTimeZone::utc());
    QVERIFY(hebrew.isValid());
    const QDateTime iyar(QDate(2024, 5, 9), QTime(12, 0), QTimeZone::utc());
    const QDateTime sivan(QDate(2024, 6, 7), QTime(12, 0), QTimeZone::utc());
    const quint64 monthAndDay = QXCalendarUnitMonth | QXCalendarUnitDay;
    QCOMPARE(hebrew.components(monthAndDay, iyar, sivan).month(), 1);
    QCOMPARE(hebrew.components(monthAndDay, iyar, sivan).day(), 0);
    QCOMPARE(utcGregorian.components(monthAndDay, iyar, sivan).month(), 0);
    QCOMPARE(utcGregorian.components(monthAndDay, iyar, sivan).day(), 29);

    // An unknown system is refused rather than quietly read as Gregorian.
    const QXCalendar unknown(QStringLiteral("martian"));
    QVERIFY(!unknown.isValid());
    QCOMPARE(unknown.calendarIdentifier(), QStringLiteral("martian"));
    bool ok = true;
    QCOMPARE(unknown.components(QXCalendarUnitDay, iyar, sivan, &ok), QXDateComponents());
    QVERIFY(!ok);
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setCalendar(unknown);
    QVERIFY(phrase(formatter, -300).isNull());
    QCOMPARE(phrase(formatter, 0), QStringLiteral("just now"));
}

void tst_QXTimeIntervalFormatter::germanTranslation()
{
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QXTimeIntervalFormatter formatter = makeFormatter();
    QCOMPARE(formatter.pastDeicticExpression(), QStringLiteral("vor"));
    QCOMPARE(formatter.deicticExpressionFormat(), QStringLiteral("%2$@ %1$@"));
    QCOMPARE(phrase(formatter, 0), QStringLiteral("gerade eben"));
    QCOMPARE(phrase(formatter, -300), QStringLiteral("vor 5 Minuten"));
    QCOMPARE(phrase(formatter, -1), QStringLiteral("vor 1 Sekunde"));
    QCOMPARE(phrase(formatter, 7200), QStringLiteral("in 2 Stunden"));
    QCOMPARE(phrase(formatter, -86400), QStringLiteral("vor 1 Tag"));
    QCOMPARE(phrase(formatter, -3 * 86400), QStringLiteral("vor 3 Tagen"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(reference, reference.addMonths(2)), QStringLiteral("in 2 Monaten"));
    QCOMPARE(formatter.stringForTimeIntervalFromDate(reference, reference.addYears(-1)), QStringLiteral("vor 1 Jahr"));
    formatter.setUsesApproximateQualifier(true);
    formatter.setNumberOfSignificantUnits(2);
    QCOMPARE(phrase(formatter, -3700), QStringLiteral("etwa vor 1 Stunde 1 Minute"));
    formatter.setUsesAbbreviatedCalendarUnits(true);
    QCOMPARE(phrase(formatter, -7260), QStringLiteral("vor 2 Std. 1 Min."));
    formatter.setSignificantUnits(formatter.significantUnits() | QXCalendarUnitWeekOfYear);
    formatter.setLeastSignificantUnit(QXCalendarUnitWeekOfYear);
    formatter.setUsesAbbreviatedCalendarUnits(false);
    QCOMPARE(phrase(formatter, -15 * 86400), QStringLiteral("vor 2 Wochen 1 Tag"));

    QString error;
    QVERIFY(!formatter.getObjectValue(nullptr, QStringLiteral("vor 5 Minuten"), &error));
    QCOMPARE(error, QStringLiteral("Methode nicht implementiert"));
}

void tst_QXTimeIntervalFormatter::objectValuesAndRefusedParsing()
{
    const QXTimeIntervalFormatter formatter;
    QCOMPARE(formatter.stringForObjectValue(-120), QStringLiteral("2 minutes ago"));
    QCOMPARE(formatter.stringForObjectValue(QVariant(-120.0)), QStringLiteral("2 minutes ago"));
    QCOMPARE(formatter.stringForObjectValue(QVariant(qint64(7200))), QStringLiteral("2 hours from now"));
    QCOMPARE(formatter.stringForObjectValue(QVariant(true)), QStringLiteral("1 second from now"));
    QCOMPARE(formatter.stringForObjectValue(QVariant(0.25f)), QStringLiteral("just now"));
    QVERIFY(formatter.stringForObjectValue(QStringLiteral("-120")).isNull());
    QVERIFY(formatter.stringForObjectValue(QVariant()).isNull());
    QVERIFY(formatter.stringForObjectValue(QVariant::fromValue(nullptr)).isNull());
    QVERIFY(formatter.stringForObjectValue(QDateTime::currentDateTimeUtc()).isNull());

    QVariant object(42);
    QString error = QStringLiteral("unchanged?");
    QVERIFY(!formatter.getObjectValue(&object, QStringLiteral("2 minutes ago"), &error));
    QCOMPARE(object, QVariant(42));
    QCOMPARE(error, QStringLiteral("Method Not Implemented"));
    QVERIFY(!formatter.getObjectValue(&object, QString(), nullptr));
    QVERIFY(!formatter.getObjectValue(nullptr, QStringLiteral("just now")));
}

void tst_QXTimeIntervalFormatter::badInputGivesNoPhrase()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    QVERIFY(formatter.stringForTimeIntervalFromDate(QDateTime(), reference).isNull());
    QVERIFY(formatter.stringForTimeIntervalFromDate(reference, QDateTime()).isNull());
    for (const double bad : {std::nan(""), std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(), 1e300, -9.1e15})
        QVERIFY(formatter.stringForTimeInterval(bad).isNull());
    // Far, but within the calendar's reach.
    const QString farPast = formatter.stringForTimeInterval(-3.2e13);
    QVERIFY2(QRegularExpression(QStringLiteral("^101\\d{4} years ago$")).match(farPast).hasMatch(), qPrintable(farPast));
    // Far beyond it, the answer is some text or none, quickly and without a crash.
    (void)formatter.stringForTimeInterval(9e15);
    (void)formatter.stringForTimeInterval(-9e15);

    // No unit to compute, or a difference too large for the only unit asked for.
    formatter.setSignificantUnits(0);
    QVERIFY(phrase(formatter, -300).isNull());
    formatter.setSignificantUnits(QXCalendarUnitSecond);
    QCOMPARE(phrase(formatter, -86400 * 365.0), QStringLiteral("31536000 seconds ago"));
    QVERIFY(phrase(formatter, -86400 * 365.0 * 100).isNull());

    formatter.setSignificantUnits(252);
    formatter.setPresentTimeIntervalMargin(std::nan(""));
    QCOMPARE(phrase(formatter, -2), QStringLiteral("2 seconds ago"));
    formatter.setPresentTimeIntervalMargin(std::numeric_limits<double>::infinity());
    QCOMPARE(phrase(formatter, -3.2e9), QStringLiteral("just now"));
    // A format without placeholders is taken as it stands.
    formatter.setPresentTimeIntervalMargin(1);
    formatter.setSuffixExpressionFormat(QStringLiteral("a while"));
    QCOMPARE(phrase(formatter, -300), QStringLiteral("a while ago"));
}

void tst_QXTimeIntervalFormatter::oneFormatterSharedByThreads()
{
    QXTimeIntervalFormatter formatter = makeFormatter();
    formatter.setCalendar(QXCalendar(QStringLiteral("gregorian"), QTimeZone("Europe/Berlin")));
    formatter.setNumberOfSignificantUnits(0);
    QList<qint64> offsets;
    for (qint64 i = 0; i < 400; ++i)
        offsets.append((i % 2 ? 1 : -1) * (i * i * 997 + i * 86400 * 3));
    const auto format = [&formatter](qint64 seconds) {
        return formatter.stringForTimeIntervalFromDate(reference, reference.addSecs(seconds));
    };
    QStringList expected;
    for (const qint64 seconds : offsets)
        expected.append(format(seconds));
    QThreadPool pool;
    pool.setMaxThreadCount(4);
    const QStringList concurrent = QtConcurrent::blockingMapped<QStringList>(&pool, offsets, format);
    QCOMPARE(concurrent, expected);
}

void tst_QXTimeIntervalFormatter::commandLine()
{
    const QString tool = qEnvironmentVariable("QX_TOOL");
    if (tool.isEmpty())
        QSKIP("QX_TOOL is not set");
    const auto run = [&tool](const QStringList &arguments, int *exitCode) {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("en_US.UTF-8"));
        environment.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
        process.setProcessEnvironment(environment);
        process.start(tool, QStringList{QStringLiteral("ago")} + arguments);
        if (!process.waitForFinished(20000))
            return QStringLiteral("<timeout>");
        *exitCode = process.exitCode();
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    };
    int status = -1;
    QCOMPARE(run({QStringLiteral("-300")}, &status), QStringLiteral("5 minutes ago"));
    QCOMPARE(status, 0);
    QCOMPARE(run({QStringLiteral("7200")}, &status), QStringLiteral("2 hours from now"));
    QCOMPARE(run({QStringLiteral("0.2")}, &status), QStringLiteral("just now"));
    QCOMPARE(run({QStringLiteral("--units"), QStringLiteral("2"), QStringLiteral("--approximate"), QStringLiteral("-3700")},
                 &status),
             QStringLiteral("about 1 hour 1 minute ago"));
    QCOMPARE(run({QStringLiteral("-7200"), QStringLiteral("--abbreviated")}, &status), QStringLiteral("2 hrs ago"));
    // 400 days back is always in the previous calendar year's reach, never two years.
    QCOMPARE(run({QStringLiteral("--idiomatic"), QString::number(-400 * 86400)}, &status), QStringLiteral("last year"));
    QCOMPARE(run({QStringLiteral("-300"), QStringLiteral("--locale"), QStringLiteral("de_DE")}, &status),
             QStringLiteral("vor 5 Minuten"));
    QCOMPARE(run({QStringLiteral("--locale"), QStringLiteral("de_DE"), QStringLiteral("--idiomatic"),
                  QString::number(400 * 86400)},
                 &status),
             QStringLiteral("n\u00e4chstes Jahr"));
    QCOMPARE(status, 0);

    for (const QStringList &wrong : {QStringList{}, QStringList{QStringLiteral("soon")},
                                     QStringList{QStringLiteral("-5"), QStringLiteral("--units")},
                                     QStringList{QStringLiteral("-5"), QStringLiteral("--units"), QStringLiteral("-1")},
                                     QStringList{QStringLiteral("-5"), QStringLiteral("--locale"), QStringLiteral("xx_YY")},
                                     QStringList{QStringLiteral("-5"), QStringLiteral("--loud")},
                                     QStringList{QStringLiteral("nan")}}) {
        status = -1;
        QCOMPARE(run(wrong, &status), QString());
        QCOMPARE(status, 2);
    }
    status = -1;
    QCOMPARE(run({QStringLiteral("1e300")}, &status), QString());
    QCOMPARE(status, 1);
}

QTEST_GUILESS_MAIN(tst_QXTimeIntervalFormatter)
#include "tst_qxtimeintervalformatter.moc"
