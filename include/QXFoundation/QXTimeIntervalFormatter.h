#pragma once

#include <QXFoundation/QXCalendar.h>
#include <QXFoundation/QXDateComponents.h>
#include <QXFoundation/QXGlobal.h>

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QVariant>

/*!
  Tells the time between two dates in words: "5 minutes ago", "2 hours from
  now", "about 1 hour ago", "just now", and for English and German the
  idiomatic "yesterday" or "nächstes Jahr".

  The numbers are real calendar differences computed by calendar(): 31 March
  to 30 April is one month, a day across a daylight-saving change is one day.
  Units are never rounded; a unit left out because of
  numberOfSignificantUnits() only makes the phrase approximate ("about").

  The words come from the library's translations for the default QLocale,
  looked up when the formatter is created (the deictic expressions, formats
  and qualifier, which are then ordinary properties) or at each call (unit
  names). The idiomatic phrases are fixed English and German texts chosen by
  the language of locale().

  The formatter formats only: getObjectValue() always refuses. It keeps no
  state between calls, so the same dates and settings always give the same
  text. A null QString is the answer "no phrase": a null date, an object that
  is not a number, or an interval none of whose admitted units is at least 1.
*/
class QXFOUNDATION_EXPORT QXTimeIntervalFormatter
{
public:
    // Every default: the current locale and calendar, the translated words,
    // a margin of one second, one significant unit down to the second.
    QXTimeIntervalFormatter();

    // Its language picks the idiomatic phrases; the C locale counts as English.
    QLocale locale() const { return m_locale; }
    void setLocale(const QLocale &locale) { m_locale = locale; }
    QXCalendar calendar() const { return m_calendar; }
    void setCalendar(const QXCalendar &calendar) { m_calendar = calendar; }

    // "ago", "just now", "from now": appended to the past, the whole present,
    // appended to the future. An empty past or future expression adds nothing.
    QString pastDeicticExpression() const { return m_pastDeicticExpression; }
    void setPastDeicticExpression(const QString &expression) { m_pastDeicticExpression = expression; }
    QString presentDeicticExpression() const { return m_presentDeicticExpression; }
    void setPresentDeicticExpression(const QString &expression) { m_presentDeicticExpression = expression; }
    QString futureDeicticExpression() const { return m_futureDeicticExpression; }
    void setFutureDeicticExpression(const QString &expression) { m_futureDeicticExpression = expression; }
    // "%@ %@": the unit phrase, then the deictic expression ("%2$@ %1$@" in German).
    QString deicticExpressionFormat() const { return m_deicticExpressionFormat; }
    void setDeicticExpressionFormat(const QString &format) { m_deicticExpressionFormat = format; }
    // "%@ %@": the number, then the unit name.
    QString suffixExpressionFormat() const { return m_suffixExpressionFormat; }
    void setSuffixExpressionFormat(const QString &format) { m_suffixExpressionFormat = format; }

    // Intervals shorter than this many seconds are the present (default 1.0).
    double presentTimeIntervalMargin() const { return m_presentTimeIntervalMargin; }
    void setPresentTimeIntervalMargin(double seconds) { m_presentTimeIntervalMargin = seconds; }

    // Try "yesterday", "next month" ... before the numbers (default false).
    bool usesIdiomaticDeicticExpressions() const { return m_usesIdiomaticDeicticExpressions; }
    void setUsesIdiomaticDeicticExpressions(bool uses) { m_usesIdiomaticDeicticExpressions = uses; }

    // "about %@": wraps the whole phrase when a non-zero unit was left out,
    // if usesApproximateQualifier() (default false).
    QString approximateQualifierFormat() const { return m_approximateQualifierFormat; }
    void setApproximateQualifierFormat(const QString &format) { m_approximateQualifierFormat = format; }
    bool usesApproximateQualifier() const { return m_usesApproximateQualifier; }
    void setUsesApproximateQualifier(bool uses) { m_usesApproximateQualifier = uses; }

    // QXCalendarUnit flags computed and possibly shown (default 252: year to second).
    quint64 significantUnits() const { return m_significantUnits; }
    void setSignificantUnits(quint64 units) { m_significantUnits = units; }
    // How many non-zero units are shown at most; 0 means all (default 1).
    quint64 numberOfSignificantUnits() const { return m_numberOfSignificantUnits; }
    void setNumberOfSignificantUnits(quint64 count) { m_numberOfSignificantUnits = count; }
    // Units whose flag value is greater are not shown (default 128, the
    // second). The week's flag is 8192, so weeks show only from 8192 on.
    quint64 leastSignificantUnit() const { return m_leastSignificantUnit; }
    void setLeastSignificantUnit(quint64 unit) { m_leastSignificantUnit = unit; }
    // "hrs", "mins", "s" instead of "hours", "minutes", "seconds" (default false).
    bool usesAbbreviatedCalendarUnits() const { return m_usesAbbreviatedCalendarUnits; }
    void setUsesAbbreviatedCalendarUnits(bool uses) { m_usesAbbreviatedCalendarUnits = uses; }

    /*!
      The phrase for a number: stringForTimeInterval() of its value. Booleans
      and every integer and floating-point type count as numbers; anything
      else (a string of digits, an invalid QVariant) gives a null QString.
    */
    QString stringForObjectValue(const QVariant &object) const;

    /*!
      Parsing is not supported: always returns false, leaves `object`
      untouched and, when `errorDescription` is given, stores the translated
      "Method Not Implemented" in it.
    */
    bool getObjectValue(QVariant *object, const QString &string, QString *errorDescription = nullptr) const;

    /*!
      The phrase for the moment `seconds` from now (negative is the past):
      -300 gives "5 minutes ago", 7200 "2 hours from now". Seconds count to
      the millisecond. A value that is not finite gives a null QString, and
      so does one beyond the calendar's reach (a few million years).
    */
    QString stringForTimeInterval(double seconds) const;

    /*!
      The phrase for `toDate` seen from `fromDate`; a null QString when a
      date is invalid, when no admitted unit is at least 1, or when the
      calendar cannot tell the difference.
    */
    QString stringForTimeIntervalFromDate(const QDateTime &fromDate, const QDateTime &toDate) const;

    /*!
      The translated name of `unit` (one QXCalendarUnit flag) for `number`:
      singular for exactly 1, plural otherwise, abbreviated if
      usesAbbreviatedCalendarUnits(). Null for any other flag, the week's
      included.
    */
    QString localizedStringForNumber(quint64 number, quint64 ofCalendarUnit) const;

    // The idiomatic phrase of locale()'s language ("en" or "de"), or null.
    QString localizedIdiomaticDeicticExpressionForComponents(const QXDateComponents &components) const;
    // "last year", "next month", "yesterday" ...; null when no rule holds.
    QString enRelativeDateStringForComponents(const QXDateComponents &components) const;
    // "leztes Jahr", "nächster Monat", "Gestern" ...; null when no rule holds.
    QString deRelativeDateStringForComponents(const QXDateComponents &components) const;

private:
    QString unitPhraseName(quint64 number, quint64 unit) const;

    QLocale m_locale;
    QXCalendar m_calendar;
    QString m_pastDeicticExpression;
    QString m_presentDeicticExpression;
    QString m_futureDeicticExpression;
    QString m_deicticExpressionFormat;
    QString m_suffixExpressionFormat;
    double m_presentTimeIntervalMargin = 1.0;
    bool m_usesIdiomaticDeicticExpressions = false;
    QString m_approximateQualifierFormat;
    bool m_usesApproximateQualifier = false;
    quint64 m_significantUnits = 252;
    quint64 m_numberOfSignificantUnits = 1;
    quint64 m_leastSignificantUnit = 128;
    bool m_usesAbbreviatedCalendarUnits = false;
};
