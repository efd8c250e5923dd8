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

// Cubic Bezier segments. A segment is four points: start point, first control
// point, second control point, end point. The functions read `segment` and
// fill caller-owned arrays of four points; an output must not be the input.
// None of them allocates memory.

// Splits `segment` at its parameter midpoint t = 0.5 into `left` and `right`.
QXFOUNDATION_EXPORT void QXSubdivideBezierPath(const QPointF segment[4], QPointF left[4], QPointF right[4]);
// Splits `segment` at parameter `t` (de Casteljau). `t` is not clamped: a
// value outside [0, 1] extrapolates the curve.
QXFOUNDATION_EXPORT void QXSubdivideBezierPathAtT(const QPointF segment[4], QPointF left[4], QPointF right[4], qreal t);
// The arc length of `segment`, estimated by halving the segment until, on
// every piece, the control polygon exceeds the chord by no more than
// `maximumError`; each piece then counts as the mean of the two.
//
// Bounds below what double arithmetic can resolve would subdivide without
// end, so the bound used is never less than 1e-12 × the segment's size (the
// larger of its control-polygon length and its largest coordinate). This
// also gives 0, negative and NaN bounds a meaning: the most exact length the
// arithmetic allows (NaN: no subdivision). A segment with an infinite or NaN
// coordinate is not subdivided either.
QXFOUNDATION_EXPORT qreal QXLengthOfBezierPath(const QPointF segment[4], qreal maximumError);
// Splits `segment` where the arc length from its start reaches `length`, by
// bisection on t: it stops when the left piece's length (measured with half
// of `maximumError`) is within `maximumError` of `length`, or when t no longer
// changes in double precision. The outputs hold the split at the last t
// tried; a `length` at or beyond the segment's length gives t close to 1, one
// at or below 0 gives t = 0.
QXFOUNDATION_EXPORT void QXSubdivideBezierPathAtLength(const QPointF segment[4], QPointF left[4], QPointF right[4],
                                                       qreal length, qreal maximumError);
