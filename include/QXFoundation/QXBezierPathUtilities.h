#pragma once

#include <QXFoundation/QXBezierPath.h>

// Operations on Bezier paths: rounded rectangles, the first point, arc length,
// trimming to or from a length, arrow heads, and appending without the
// initial move. The operations that return a path build a new one and leave
// their argument unchanged; only qx_appendBezierPathRemovingInitialMoveToPoint
// changes the path it is given.
//
// The walking operations (length and trimming) visit the elements in order
// and keep the current point and the start of the current subpath, both
// (0, 0) before the first element. Curves are measured and split with
// QXLengthOfBezierPath and QXSubdivideBezierPathAtLength to a maximum error,
// 0.1 path units unless given; see QXLengthOfBezierPath for bounds of 0 or
// less.

// A closed rounded rectangle: a quarter ellipse of radii xRadius and yRadius
// (each cut back to half the rectangle's width or height) at every corner.
// It starts on the edge at rect.top() just right of the corner at
// rect.left(), and runs towards rect.right() first: counter-clockwise when
// y grows upwards, clockwise on a Qt widget. Ten elements: a move, four lines
// (of length 0 where the radii take the whole edge), four curves, a close.
QXFOUNDATION_EXPORT QXBezierPath qx_bezierPathWithRoundRect(const QRectF &rect, qreal xRadius, qreal yRadius);

// The point of the first element if it is a move-to, else (0, 0).
QXFOUNDATION_EXPORT QPointF qx_firstPoint(const QXBezierPath &path);

// The arc length of the whole path, closing lines included, with curves
// measured to `maximumError` (0.1 for qx_length). 0 for an empty path.
QXFOUNDATION_EXPORT qreal qx_length(const QXBezierPath &path);
QXFOUNDATION_EXPORT qreal qx_lengthWithMaximumError(const QXBezierPath &path, qreal maximumError);

// The first `length` units of the path. The last element kept is cut where
// the length is reached (a line-to the cut point replaces a close-path cut
// short); a length at or beyond the path's own gives a copy. A negative or
// NaN length counts as 0.
QXFOUNDATION_EXPORT QXBezierPath qx_bezierPathByTrimmingToLength(const QXBezierPath &path, qreal length,
                                                                 qreal maximumError = 0.1);
// Everything after the first `length` units of the path. The move-tos of the
// part cut away are kept; the kept part starts with a move-to the cut point
// (also when the cut falls exactly on a vertex). A negative or NaN length
// counts as 0.
QXFOUNDATION_EXPORT QXBezierPath qx_bezierPathByTrimmingFromLength(const QXBezierPath &path, qreal length,
                                                                   qreal maximumError = 0.1);

// A V-shaped arrow head at the start of the path: two barbs, each the path's
// first `length` units turned by `angle` degrees about the first point, one
// each way (positive angles turn counter-clockwise when y grows upwards).
// One open subpath from the tip of the barb turned by -angle through the
// first point to the tip of the other; the barbs follow the path's shape.
QXFOUNDATION_EXPORT QXBezierPath qx_bezierPathWithArrowHeadForStartOfLength(const QXBezierPath &path, qreal length,
                                                                            qreal angle);
// The same at the end of the path: the arrow head at the start of the
// reversed path.
QXFOUNDATION_EXPORT QXBezierPath qx_bezierPathWithArrowHeadForEndOfLength(const QXBezierPath &path, qreal length,
                                                                          qreal angle);

// Appends the elements of `other` to `path`, except its first element when
// that is a move-to, so the appended lines continue from `path`'s current
// point. Later move-tos of `other` are appended as they are.
QXFOUNDATION_EXPORT void qx_appendBezierPathRemovingInitialMoveToPoint(QXBezierPath &path, const QXBezierPath &other);
