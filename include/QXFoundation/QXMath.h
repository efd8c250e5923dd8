#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QPointF>
#include <QSizeF>

// Control-point distance, as a fraction of the radius, that approximates a
// quarter ellipse with one cubic segment: 4(√2 − 1)/3 to 14 digits.
QXFOUNDATION_EXPORT extern const qreal kQXEllipseFactor;
// Degree/radian factors. They are the short decimals 0.017453293 and
// 57.295779513, not full-precision π/180 and 180/π, so a conversion there
// and back does not give the exact input back.
QXFOUNDATION_EXPORT extern const qreal kQXPiBy180;
QXFOUNDATION_EXPORT extern const qreal kQX180ByPi;

// `size` with width and height exchanged.
QXFOUNDATION_EXPORT QSizeF QXSwapWidthAndHeight(QSizeF size);
// degrees × kQXPiBy180.
QXFOUNDATION_EXPORT qreal QXDegreesToRadians(qreal degrees);
// radians × kQX180ByPi.
QXFOUNDATION_EXPORT qreal QXRadiansToDegrees(qreal radians);
// The Euclidean distance between two points.
QXFOUNDATION_EXPORT qreal QXDistanceBetweenPoints(QPointF a, QPointF b);
