#include <QXFoundation/QXColor.h>

#include <QRgba64>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace {

struct Components
{
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 0;
};

// The colour's components in RGB; nothing for a colour that has none.
std::optional<Components> componentsOf(const QColor &color)
{
    if (!color.isValid())
        return std::nullopt;
    if (color.spec() == QColor::ExtendedRgb)
        return Components{color.redF(), color.greenF(), color.blueF(), color.alphaF()};
    // The 16-bit channels give exact values (c × 257 / 65535 is c / 255).
    const QRgba64 rgba = color.rgba64();
    return Components{rgba.red() / 65535.0, rgba.green() / 65535.0, rgba.blue() / 65535.0, rgba.alpha() / 65535.0};
}

QColor makeColor(double red, double green, double blue, double alpha)
{
    double values[4] = {red, green, blue, alpha};
    bool inRange = true;
    for (double &value : values) {
        if (std::isnan(value))
            value = 0.0;
        inRange = inRange && value >= 0.0 && value <= 1.0;
    }
    if (!inRange) // QColor keeps such values as ExtendedRgb
        return QColor::fromRgbF(float(values[0]), float(values[1]), float(values[2]), float(values[3]));
    const auto channel = [](double value) { return quint16(std::lround(value * 65535.0)); };
    return QColor::fromRgba64(channel(values[0]), channel(values[1]), channel(values[2]), channel(values[3]));
}

int hexDigit(QChar character)
{
    const char16_t c = character.unicode();
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    return -1;
}

// One unsigned hexadecimal number at the start of the text, as a scanner reads it.
std::optional<quint32> scanHexInt(QStringView text)
{
    qsizetype i = 0;
    // White space and line breaks: the separators, tab to carriage return, NEL.
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    if (i + 2 < text.size() && text.at(i) == u'0' && (text.at(i + 1) == u'x' || text.at(i + 1) == u'X')
        && hexDigit(text.at(i + 2)) >= 0)
        i += 2;
    quint64 value = 0;
    bool overflow = false;
    qsizetype digits = 0;
    for (; i < text.size(); ++i, ++digits) {
        const int digit = hexDigit(text.at(i));
        if (digit < 0)
            break;
        if (!overflow) {
            value = value * 16 + quint64(digit);
            overflow = value > std::numeric_limits<quint32>::max();
        }
    }
    if (digits == 0)
        return std::nullopt;
    return overflow ? std::numeric_limits<quint32>::max() : quint32(value);
}

QString hexGroup(const QColor &color, double component, int channel16)
{
    long long value = 0;
    if (color.spec() == QColor::ExtendedRgb) {
        const double scaled = std::trunc(component * 255.0);
        value = std::isfinite(scaled) ? (long long)std::clamp(scaled, -2147483648.0, 2147483647.0) : 0;
    } else {
        // component × 255, truncated, in integers: exact for the stored channel.
        value = (long long)channel16 * 255 / 65535;
    }
    return QString::asprintf("%02x", unsigned(int(value)));
}

} // namespace

QColor qx_colorWithWhite(qreal white, qreal alpha)
{
    return makeColor(white, white, white, alpha);
}

QColor qx_colorWithRed(qreal red, qreal green, qreal blue, qreal alpha)
{
    return makeColor(red, green, blue, alpha);
}

QColor qx_colorWithRGBHex(quint32 hex)
{
    return QColor::fromRgb(int((hex >> 16) & 0xff), int((hex >> 8) & 0xff), int(hex & 0xff));
}

QColor qx_colorWithRGBAHex(quint32 hex)
{
    return QColor::fromRgb(int(hex >> 24), int((hex >> 16) & 0xff), int((hex >> 8) & 0xff), int(hex & 0xff));
}

QColor qx_colorWithHexString(const QString &string)
{
    const std::optional<quint32> hex = scanHexInt(string);
    if (!hex)
        return QColor();
    return string.size() < 7 ? qx_colorWithRGBHex(*hex) : qx_colorWithRGBAHex(*hex);
}

QString qx_hexStringFromColor(const QColor &color)
{
    const std::optional<Components> c = componentsOf(color);
    if (!c)
        return QString();
    const QRgba64 rgba = color.spec() == QColor::ExtendedRgb ? QRgba64() : color.rgba64();
    return hexGroup(color, c->red, rgba.red()) + hexGroup(color, c->green, rgba.green())
        + hexGroup(color, c->blue, rgba.blue()) + hexGroup(color, c->alpha, rgba.alpha());
}

double qx_luminosity(const QColor &color)
{
    const Components c = componentsOf(color).value_or(Components{});
    return 0.212671 * c.red + 0.71516 * c.green + 0.072169 * c.blue;
}

QColor qx_contrastingColor(const QColor &color)
{
    // NaN compares false and gives white too.
    return qx_luminosity(color) >= 0.5 ? QColor(Qt::black) : QColor(Qt::white);
}

QColor qx_colorWithRGBBlendFrom(const QColor &color, const QColor &other, const QList<qreal> &blendingAmounts)
{
    const Components from = componentsOf(color).value_or(Components{});
    const Components to = componentsOf(other).value_or(Components{});
    const auto amount = [&blendingAmounts](qsizetype i) { return i < blendingAmounts.size() ? blendingAmounts.at(i) : 0.0; };
    const auto blend = [](double a, double b, double t) { return a * (1.0 - t) + b * t; };
    return makeColor(blend(from.red, to.red, amount(0)), blend(from.green, to.green, amount(1)),
                     blend(from.blue, to.blue, amount(2)), blend(from.alpha, to.alpha, amount(3)));
}

QColor qx_darkerColorBy(const QColor &color, qreal amount)
{
    if (!componentsOf(color))
        return QColor();
    return qx_colorWithRGBBlendFrom(color, QColor(Qt::black), {amount, amount, amount, 0.0});
}

QColor qx_darkerColor(const QColor &color)
{
    return qx_darkerColorBy(color, 0.5);
}

QColor qx_lighterColorBy(const QColor &color, qreal amount)
{
    if (!componentsOf(color))
        return QColor();
    return qx_colorWithRGBBlendFrom(color, QColor(Qt::white), {amount, amount, amount, 0.0});
}

QColor qx_lighterColor(const QColor &color)
{
    return qx_lighterColorBy(color, 0.5);
}

QColor qx_colorWithAlpha(const QColor &color, qreal alpha)
{
    const std::optional<Components> c = componentsOf(color);
    if (!c)
        return QColor();
    return makeColor(c->red, c->green, c->blue, alpha);
}
