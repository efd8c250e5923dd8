#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QLocale>
#include <QString>

/*!
  Formats numbers as text with ICU, the way the library's texts need them.

  The defaults follow the platform convention the library's texts were
  written for: no grouping separator (1024, not 1,024), one integer digit at
  least, no fraction digits, rounding half to even, and the default QLocale
  at the time the formatter is created. DecimalStyle turns grouping on.
  Rounding works on the shortest decimal form of a double, so 1.005 rounds
  half up to 1.01 as a person would expect.
*/
class QXFOUNDATION_EXPORT QXNumberFormatter
{
public:
    // Values as on the platform the texts come from.
    enum RoundingMode {
        RoundCeiling = 0,
        RoundFloor = 1,
        RoundDown = 2,
        RoundUp = 3,
        RoundHalfEven = 4,
        RoundHalfDown = 5,
        RoundHalfUp = 6,
    };
    enum NumberStyle {
        NoStyle = 0,
        DecimalStyle = 1,
    };

    QXNumberFormatter();

    NumberStyle numberStyle() const { return m_numberStyle; }
    void setNumberStyle(NumberStyle style) { m_numberStyle = style; }
    RoundingMode roundingMode() const { return m_roundingMode; }
    void setRoundingMode(RoundingMode mode) { m_roundingMode = mode; }
    QLocale locale() const { return m_locale; }
    void setLocale(const QLocale &locale) { m_locale = locale; }
    int minimumIntegerDigits() const { return m_minimumIntegerDigits; }
    void setMinimumIntegerDigits(int digits) { m_minimumIntegerDigits = qBound(0, digits, 99); }
    int minimumFractionDigits() const { return m_minimumFractionDigits; }
    void setMinimumFractionDigits(int digits);
    int maximumFractionDigits() const { return m_maximumFractionDigits; }
    void setMaximumFractionDigits(int digits);
    // Grouping follows the style until it is set explicitly.
    bool usesGroupingSeparator() const;
    void setUsesGroupingSeparator(bool uses) { m_grouping = uses ? 1 : 0; }

    // The text of `value`; non-finite values give "NaN", "∞" or "-∞" as ICU writes them.
    QString stringFromNumber(double value) const;
    QString stringFromNumber(qint64 value) const;
    QString stringFromNumber(quint64 value) const;

private:
    template<typename T>
    QString format(T value) const;

    NumberStyle m_numberStyle = NoStyle;
    RoundingMode m_roundingMode = RoundHalfEven;
    QLocale m_locale;
    int m_minimumIntegerDigits = 1;
    int m_minimumFractionDigits = 0;
    int m_maximumFractionDigits = 0;
    int m_grouping = -1; // -1: follow the style
};

// A new formatter for file sizes: half-up rounding, the default locale, at
// least one integer digit and at most two fraction digits.
QXFOUNDATION_EXPORT QXNumberFormatter qx_fileSizeFormatter();

/*!
  `size` bytes as text with `formatter`: the number, one space, the unit.
  Above 1024 bytes the value is divided by 1024 into "KB", and again into
  "MB" and "GB" while it stays above 1024; there is no unit past "GB" and
  units are never plural ("0 Byte", "1.5 KB", "2048 GB"). The units are
  translated with the library's translations.
*/
QXFOUNDATION_EXPORT QString qx_formatedFileSize(const QXNumberFormatter &formatter, quint64 size);
