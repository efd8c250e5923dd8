// Commands and tour section of the interval area: time between dates in words.

#include "QxCommand.h"

#include <QXFoundation/QXCalendar.h>
#include <QXFoundation/QXTimeIntervalFormatter.h>

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <cmath>

namespace {

// Restores the default locale when a command or the tour changed it.
class DefaultLocaleScope
{
public:
    DefaultLocaleScope() = default;
    ~DefaultLocaleScope() { QLocale::setDefault(m_previous); }
    DefaultLocaleScope(const DefaultLocaleScope &) = delete;
    DefaultLocaleScope &operator=(const DefaultLocaleScope &) = delete;

private:
    QLocale m_previous;
};

bool parseLocale(const QString &name, QLocale *locale)
{
    const QLocale candidate(name);
    // QLocale falls back to C for names it does not know.
    if (candidate.language() == QLocale::C && name != QLatin1String("C") && name != QLatin1String("POSIX"))
        return false;
    *locale = candidate;
    return true;
}

QxCommand agoCommand()
{
    QxCommand command;
    command.name = QStringLiteral("ago");
    command.synopsis = QStringLiteral("ago SECONDS [--units N] [--approximate] [--abbreviated] [--idiomatic] [--locale NAME]");
    command.help = QStringLiteral(
        "Prints the phrase for the moment SECONDS from now (negative is the past, fractions allowed):\n"
        "'qx ago -300' prints \"5 minutes ago\", 'qx ago 7200' \"2 hours from now\", and anything\n"
        "under one second \"just now\". Months and years are calendar differences in the system's\n"
        "time zone (honours TZ).\n\n"
        "  --units N       show up to N non-zero units, largest first (default 1; 0 shows all):\n"
        "                  'qx ago -3700 --units 2' prints \"1 hour 1 minute ago\"\n"
        "  --approximate   say \"about\" when units were left out: \"about 1 hour ago\"\n"
        "  --abbreviated   short unit names: \"2 hrs ago\", \"45 s ago\"\n"
        "  --idiomatic     \"last year\", \"next month\" where they apply (English and German)\n"
        "  --locale NAME   words and idioms of locale NAME (de_DE: \"vor 5 Minuten\")\n\n"
        "Exit status 1 when no unit is large enough to be shown or the date is out of range.");
    command.run = [command](const QStringList &arguments) {
        bool haveSeconds = false;
        double seconds = 0;
        quint64 units = 1;
        bool approximate = false, abbreviated = false, idiomatic = false;
        QLocale locale;
        bool haveLocale = false;
        for (qsizetype i = 0; i < arguments.size(); ++i) {
            const QString &argument = arguments.at(i);
            if (argument == QLatin1String("--approximate")) {
                approximate = true;
            } else if (argument == QLatin1String("--abbreviated")) {
                abbreviated = true;
            } else if (argument == QLatin1String("--idiomatic")) {
                idiomatic = true;
            } else if (argument == QLatin1String("--units") || argument == QLatin1String("--locale")) {
                if (i + 1 >= arguments.size())
                    return Qx::usageError(command, QStringLiteral("%1 needs a value").arg(argument));
                const QString &value = arguments.at(++i);
                if (argument == QLatin1String("--units")) {
                    bool ok = false;
                    units = value.startsWith(QLatin1Char('+')) ? 0 : value.toULongLong(&ok, 10);
                    if (!ok)
                        return Qx::usageError(command, QStringLiteral("'%1' is not a number of units").arg(value));
                } else {
                    if (!parseLocale(value, &locale))
                        return Qx::usageError(command, QStringLiteral("unknown locale '%1'").arg(value));
                    haveLocale = true;
                }
            } else {
                bool ok = false;
                const double value = argument.toDouble(&ok);
                if (!ok || !std::isfinite(value)) {
                    return Qx::usageError(command, argument.startsWith(QLatin1String("--"))
                                                       ? QStringLiteral("unknown option '%1'").arg(argument)
                                                       : QStringLiteral("'%1' is not a number of seconds").arg(argument));
                }
                if (haveSeconds)
                    return Qx::usageError(command, QStringLiteral("expected one SECONDS value"));
                seconds = value;
                haveSeconds = true;
            }
        }
        if (!haveSeconds)
            return Qx::usageError(command, QStringLiteral("missing SECONDS"));

        DefaultLocaleScope scope;
        // The words are looked up for the default locale when the formatter is made.
        if (haveLocale)
            QLocale::setDefault(locale);
        QXTimeIntervalFormatter formatter;
        formatter.setNumberOfSignificantUnits(units);
        formatter.setUsesApproximateQualifier(approximate);
        formatter.setUsesAbbreviatedCalendarUnits(abbreviated);
        formatter.setUsesIdiomaticDeicticExpressions(idiomatic);
        const QString phrase = formatter.stringForTimeInterval(seconds);
        if (phrase.isNull())
            return Qx::failure(command.name, QStringLiteral("no phrase for %1 seconds").arg(arguments.join(QLatin1Char(' '))));
        Qx::printLine(phrase);
        return int(QxSuccess);
    };
    return command;
}

void tour(QxTour &tour)
{
    // Fixed dates in a fixed zone, so the tour reads the same everywhere.
    const QTimeZone berlin("Europe/Berlin");
    const auto at = [&berlin](const char *text) {
        const QDateTime wallClock = QDateTime::fromString(QString::fromLatin1(text), Qt::ISODate);
        return QDateTime(wallClock.date(), wallClock.time(), berlin);
    };
    DefaultLocaleScope scope;
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));

    QXTimeIntervalFormatter formatter;
    formatter.setCalendar(QXCalendar(QStringLiteral("gregorian"), berlin));
    tour.line(QStringLiteral("Seconds relative to now, with the defaults (one unit, no rounding):"));
    for (const double seconds : {0.5, -45.0, -3700.0, 7200.0, -86400.0 * 3})
        tour.example(QStringLiteral("stringForTimeInterval(%1)").arg(seconds), formatter.stringForTimeInterval(seconds));

    formatter.setNumberOfSignificantUnits(2);
    formatter.setUsesApproximateQualifier(true);
    tour.example(QStringLiteral("two units and \"about\": stringForTimeInterval(-3700)"),
                 formatter.stringForTimeInterval(-3700));
    formatter.setUsesAbbreviatedCalendarUnits(true);
    tour.example(QStringLiteral("abbreviated: stringForTimeInterval(-7500)"), formatter.stringForTimeInterval(-7500));
    formatter = QXTimeIntervalFormatter();
    formatter.setCalendar(QXCalendar(QStringLiteral("gregorian"), berlin));

    tour.line(QStringLiteral("Months are calendar months, days are calendar days (Europe/Berlin):"));
    const QDateTime march31 = at("2024-03-31T10:00:00");
    tour.example(QStringLiteral("31 Mar → 30 Apr"),
                 formatter.stringForTimeIntervalFromDate(march31, at("2024-04-30T10:00:00")));
    tour.example(QStringLiteral("30 Mar 12:00 → 31 Mar 12:00 (23 hours: clocks went forward)"),
                 formatter.stringForTimeIntervalFromDate(at("2024-03-30T12:00:00"), at("2024-03-31T12:00:00")));

    tour.line(QStringLiteral("Idiomatic phrases (the week and day ones need the week unit):"));
    formatter.setUsesIdiomaticDeicticExpressions(true);
    formatter.setSignificantUnits(formatter.significantUnits() | QXCalendarUnitWeekOfYear);
    const QDateTime june = at("2024-06-12T09:00:00");
    tour.example(QStringLiteral("12 Jun 2024 9:00 → 11 Jun 8:00"),
                 formatter.stringForTimeIntervalFromDate(june, at("2024-06-11T08:00:00")));
    tour.example(QStringLiteral("12 Jun 2024 → 20 Jul"),
                 formatter.stringForTimeIntervalFromDate(june, at("2024-07-20T09:00:00")));
    formatter.setLocale(QLocale(QLocale::German, QLocale::Germany));
    tour.example(QStringLiteral("in German: 12 Jun 2024 → 3 Feb 2023"),
                 formatter.stringForTimeIntervalFromDate(june, at("2023-02-03T09:00:00")));

    tour.line(QStringLiteral("German words come from the library's translations:"));
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QXTimeIntervalFormatter german;
    tour.example(QStringLiteral("stringForTimeInterval(-300) in de_DE"), german.stringForTimeInterval(-300));
    tour.example(QStringLiteral("stringForTimeInterval(172800) in de_DE"), german.stringForTimeInterval(172800));
}

} // namespace

void registerIntervalCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(agoCommand());
    tourSections.push_back({QStringLiteral("Time intervals in words"), tour});
}
