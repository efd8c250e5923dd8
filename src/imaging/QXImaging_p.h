#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QImage>
#include <QSize>
#include <QSizeF>

// Helpers shared by the imaging sources: the bounds every new image keeps to.
namespace QXImaging {

// QPainter's raster engine works in 16.16 fixed point, so no side may pass 32767.
constexpr int kMaximumSide = 32767;
// 2^28 pixels (1 GiB at four bytes a pixel).
constexpr qint64 kMaximumPixels = qint64(1) << 28;

// Whether an image of these pixels may be made.
bool withinLimits(QSize pixels);

// `points` × `devicePixelRatio`, each side rounded to the nearest whole
// pixel; an invalid QSize when a side is not finite, rounds to less than one
// pixel or passes the limits.
QSize pixelSize(QSizeF points, qreal devicePixelRatio);

// A transparent Format_ARGB32_Premultiplied image of that many pixels; a
// null image when the size is outside the limits or memory runs out.
QImage transparentImage(QSize pixels, qreal devicePixelRatio = 1.0);

} // namespace QXImaging
