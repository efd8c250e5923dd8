#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QColor>
#include <QList>
#include <QString>

/*!
  Colour utilities: colours from hexadecimal numbers and strings, the
  hexadecimal string of a colour, relative luminance, a contrasting black
  or white, per-channel blending, lighter and darker variants and a copy
  with another alpha.

  Every result is a QColor of spec Rgb (ExtendedRgb where a blend
  extrapolates beyond 0–1), whose 16-bit channels hold every c / 255
  exactly. Components are read in RGB whatever the colour's spec. An
  invalid QColor stands for a colour that cannot be converted to RGB: it
  makes the functions that convert return an invalid QColor (or a null
  QString), and a blend treats it as all zeros.
*/

// An RGB colour with red = green = blue = `white`.
QXFOUNDATION_EXPORT QColor qx_colorWithWhite(qreal white, qreal alpha);
QXFOUNDATION_EXPORT QColor qx_colorWithRed(qreal red, qreal green, qreal blue, qreal alpha);

// 0xRRGGBB (bits 31–24 ignored), alpha 1; each channel c becomes c / 255.
QXFOUNDATION_EXPORT QColor qx_colorWithRGBHex(quint32 hex);
// 0xRRGGBBAA.
QXFOUNDATION_EXPORT QColor qx_colorWithRGBAHex(quint32 hex);

/*!
  Reads one hexadecimal number from the start of `string`: leading white
  space and line breaks are skipped, an optional "0x" or "0X" prefix is
  accepted, digits are case-insensitive, reading stops at the first other
  character, and a number too large for 32 bits reads as 0xFFFFFFFF. With
  no digit at all ("#336699", "") the result is an invalid QColor.
  Otherwise the length of the whole string, in UTF-16 code units, decides
  the form: below 7 qx_colorWithRGBHex(), from 7 on qx_colorWithRGBAHex().
  So "fff" is 0x000FFF (no short form), and "0xff0000" and " ff0000" are
  both 0x00FF0000 read as RGBA, transparent green.
*/
QXFOUNDATION_EXPORT QColor qx_colorWithHexString(const QString &string);

/*!
  Eight lowercase hexadecimal digits, red, green, blue and alpha, each
  component × 255 truncated toward zero ("%02x"): 50 % grey is 7f7f7fff. A
  component outside 0–1 (an extended colour) writes a longer group, as the
  format does. A null QString for an invalid colour.
*/
QXFOUNDATION_EXPORT QString qx_hexStringFromColor(const QColor &color);

// 0.212671 red + 0.71516 green + 0.072169 blue; 0 for an invalid colour.
QXFOUNDATION_EXPORT double qx_luminosity(const QColor &color);

// Black when qx_luminosity() is 0.5 or more, white otherwise (an invalid colour gives white).
QXFOUNDATION_EXPORT QColor qx_contrastingColor(const QColor &color);

/*!
  Every channel i (red, green, blue, alpha) as
  color_i × (1 − amount_i) + other_i × amount_i. Amounts are not clamped:
  beyond 0–1 they extrapolate. A missing amount counts as 0, extra ones are
  ignored.
*/
QXFOUNDATION_EXPORT QColor qx_colorWithRGBBlendFrom(const QColor &color, const QColor &other,
                                                    const QList<qreal> &blendingAmounts);

// Blended toward black by `amount` (alpha unchanged); invalid for an invalid colour.
QXFOUNDATION_EXPORT QColor qx_darkerColorBy(const QColor &color, qreal amount);
QXFOUNDATION_EXPORT QColor qx_darkerColor(const QColor &color);
// Blended toward white by `amount` (alpha unchanged); invalid for an invalid colour.
QXFOUNDATION_EXPORT QColor qx_lighterColorBy(const QColor &color, qreal amount);
QXFOUNDATION_EXPORT QColor qx_lighterColor(const QColor &color);

// The colour's red, green and blue with `alpha`; invalid for an invalid colour.
QXFOUNDATION_EXPORT QColor qx_colorWithAlpha(const QColor &color, qreal alpha);
