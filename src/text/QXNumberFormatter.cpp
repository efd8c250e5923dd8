#include <QXFoundation/QXNumberFormatter.h>

#include "platform/QXIcu_p.h"

#include <QXFoundation/QXBundle.h>

#include <unicode/numberformatter.h>

#include <limits>
#include <string>

namespace number = icu::number;

QXNumberFormatter::QXNumberFormatter() = default;

void QXNumberFormatter::setMinimumFractionDigits(int digits)
{
    m_minimumFractionDigits = qBound(0, digits, 99);
    m_maximumFractionDigits = qMax(m_maximumFractionDigits, m_minimumFractionDigits);
}

void QXNumberFormatter::setMaximumFractionDigits(int digits)
{
    m_maximumFractionDigits = qBound(0, digits, 99);
    m_minimumFractionDigits = qMin(m_minimumFractionDigits, m_maximumFractionDigits);
}

bool QXNumberFormatter::usesGroupingSeparator() const
{
    return m_grouping < 0 ? m_numberStyle == DecimalStyle : m_grouping == 1;
}

static UNumberFormatRoundingMode toIcu(QXNumberFormatter::RoundingMode mode)
{
    switch (mode) {
    case QXNumberFormatter::RoundCeiling: return UNUM_ROUND_CEILING;
    case QXNumberFormatter::RoundFloor: return UNUM_ROUND_FLOOR;
    case QXNumberFormatter::RoundDown: return UNUM_ROUND_DOWN;
    case QXNumberFormatter::RoundUp: return UNUM_ROUND_UP;
    case QXNumberFormatter::RoundHalfEven: return UNUM_ROUND_HALFEVEN;
    case QXNumberFormatter::RoundHalfDown: return UNUM_ROUND_HALFDOWN;
    case QXNumberFormatter::RoundHalfUp: return UNUM_ROUND_HALFUP;
    }
    return UNUM_ROUND_HALFEVEN;
}

template<typename T>
QString QXNumberFormatter::format(T value) const
{
    const number::LocalizedNumberFormatter formatter =
        number::NumberFormatter::with()
            .precision(number::Precision::minMaxFraction(m_minimumFractionDigits, m_maximumFractionDigits))
            .roundingMode(toIcu(m_roundingMode))
            .grouping(usesGroupingSeparator() ? UNUM_GROUPING_AUTO : UNUM_GROUPING_OFF)
            .integerWidth(number::IntegerWidth::zeroFillTo(m_minimumIntegerDigits))
            .locale(QXIcu::toLocale(m_locale));
    UErrorCode status = U_ZERO_ERROR;
    number::FormattedNumber formatted;
    if constexpr (std::is_floating_point_v<T>)
        formatted = formatter.formatDouble(value, status);
    else if constexpr (std::is_signed_v<T>)
        formatted = formatter.formatInt(value, status);
    else if (value <= quint64(std::numeric_limits<int64_t>::max()))
        formatted = formatter.formatInt(int64_t(value), status);
    else
        formatted = formatter.formatDecimal(std::to_string(value), status);
    const icu::UnicodeString text = formatted.toString(status);
    return U_SUCCESS(status) ? QXIcu::toQString(text) : QString();
}

QString QXNumberFormatter::stringFromNumber(double value) const
{
    return format(value);
}

QString QXNumberFormatter::stringFromNumber(qint64 value) const
{
    return format(value);
}

QString QXNumberFormatter::stringFromNumber(quint64 value) const
{
    return format(value);
}

QXNumberFormatter qx_fileSizeFormatter()
{
    QXNumberFormatter formatter;
    formatter.setRoundingMode(QXNumberFormatter::RoundHalfUp);
    formatter.setLocale(QLocale());
    formatter.setMinimumIntegerDigits(1);
    formatter.setMinimumFractionDigits(0);
    formatter.setMaximumFractionDigits(2);
    return formatter;
}

QString qx_formatedFileSize(const QXNumberFormatter &formatter, quint64 size)
{
    const QXBundle &bundle = QXBundle::frameworkBundle();
    double value = double(size);
    QString unit = bundle.localizedStringForKey(QStringLiteral("Byte"));
    if (size >= 1025) {
        value *= 0.0009765625;
        unit = bundle.localizedStringForKey(QStringLiteral("KB"));
    }
    if (value > 1024) {
        value /= 1024;
        unit = bundle.localizedStringForKey(QStringLiteral("MB"));
    }
    if (value > 1024) {
        value /= 1024;
        unit = bundle.localizedStringForKey(QStringLiteral("GB"));
    }
    return formatter.stringFromNumber(value) + QLatin1Char(' ') + unit;
}
