#include <QXFoundation/QXMath.h>

#include <algorithm>
#include <cmath>
#include <limits>

const qreal kQXEllipseFactor = 0.55228474983079;
const qreal kQXPiBy180 = 0.017453293;
const qreal kQX180ByPi = 57.295779513;

QSizeF QXSwapWidthAndHeight(QSizeF size)
{
    return QSizeF(size.height(), size.width());
}

qreal QXDegreesToRadians(qreal degrees)
{
    return degrees * kQXPiBy180;
}

qreal QXRadiansToDegrees(qreal radians)
{
    return radians * kQX180ByPi;
}

qreal QXDistanceBetweenPoints(QPointF a, QPointF b)
{
    const qreal dx = a.x() - b.x();
    const qreal dy = a.y() - b.y();
    return std::sqrt(dx * dx + dy * dy);
}

namespace {

inline QPointF midpoint(QPointF a, QPointF b)
{
    return QPointF((a.x() + b.x()) * 0.5, (a.y() + b.y()) * 0.5);
}

inline QPointF lerp(QPointF a, QPointF b, qreal t)
{
    const qreal s = 1.0 - t;
    return QPointF(s * a.x() + t * b.x(), s * a.y() + t * b.y());
}

inline qreal controlPolygonLength(const QPointF segment[4])
{
    return QXDistanceBetweenPoints(segment[0], segment[1]) + QXDistanceBetweenPoints(segment[1], segment[2])
        + QXDistanceBetweenPoints(segment[2], segment[3]);
}

// The recursion proper. The halves live in this frame, so nothing is
// allocated; each level at least shrinks the control polygon by 1/8, and the
// bound is at least 1e-12 of the top segment's size, which keeps the depth
// in the low hundreds even for cusps.
qreal lengthWithinBound(const QPointF segment[4], qreal maximumError)
{
    const qreal chord = QXDistanceBetweenPoints(segment[0], segment[3]);
    const qreal polygon = controlPolygonLength(segment);
    if (polygon - chord > maximumError) {
        QPointF left[4];
        QPointF right[4];
        QXSubdivideBezierPath(segment, left, right);
        return lengthWithinBound(left, maximumError) + lengthWithinBound(right, maximumError);
    }
    return (chord + polygon) * 0.5;
}

// Relative to the segment's size, the smallest bound that rounding errors in
// the subdivided points (a few units in the last place of the largest
// coordinate) cannot keep from being met.
constexpr qreal kSmallestRelativeError = 1e-12;
// Coordinates up to this size cannot overflow when the subdivision adds two
// of them; beyond it (and for infinities and NaN) the segment is measured
// without subdividing.
constexpr qreal kLargestCoordinate = std::numeric_limits<qreal>::max() / 8;

} // namespace

void QXSubdivideBezierPath(const QPointF segment[4], QPointF left[4], QPointF right[4])
{
    const QPointF m = midpoint(segment[1], segment[2]);
    left[0] = segment[0];
    right[3] = segment[3];
    left[1] = midpoint(segment[0], segment[1]);
    right[2] = midpoint(segment[2], segment[3]);
    left[2] = midpoint(left[1], m);
    right[1] = midpoint(m, right[2]);
    left[3] = right[0] = midpoint(left[2], right[1]);
}

void QXSubdivideBezierPathAtT(const QPointF segment[4], QPointF left[4], QPointF right[4], qreal t)
{
    const QPointF m = lerp(segment[1], segment[2], t);
    left[0] = segment[0];
    right[3] = segment[3];
    left[1] = lerp(segment[0], segment[1], t);
    right[2] = lerp(segment[2], segment[3], t);
    left[2] = lerp(left[1], m, t);
    right[1] = lerp(m, right[2], t);
    left[3] = right[0] = lerp(left[2], right[1], t);
}

qreal QXLengthOfBezierPath(const QPointF segment[4], qreal maximumError)
{
    qreal largestCoordinate = 0;
    bool inRange = true;
    for (int i = 0; i < 4; ++i) {
        for (const qreal c : {std::fabs(segment[i].x()), std::fabs(segment[i].y())}) {
            inRange = inRange && c <= kLargestCoordinate;
            largestCoordinate = std::max(largestCoordinate, c);
        }
    }
    const qreal polygon = controlPolygonLength(segment);
    if (!inRange || !std::isfinite(polygon))
        return (QXDistanceBetweenPoints(segment[0], segment[3]) + polygon) * 0.5;
    const qreal smallestError = kSmallestRelativeError * std::max(polygon, largestCoordinate);
    // A NaN bound is left alone: the recursion's comparison fails and it stops at once.
    if (maximumError < smallestError)
        maximumError = smallestError;
    return lengthWithinBound(segment, maximumError);
}

void QXSubdivideBezierPathAtLength(const QPointF segment[4], QPointF left[4], QPointF right[4], qreal length,
                                   qreal maximumError)
{
    qreal lo = 0;
    qreal hi = 1;
    qreal t = 0.5;
    for (;;) {
        QXSubdivideBezierPathAtT(segment, left, right, t);
        const qreal leftLength = QXLengthOfBezierPath(left, maximumError * 0.5);
        if (maximumError > std::fabs(length - leftLength))
            return;
        qreal next = t;
        if (length > leftLength) {
            next = (hi + t) * 0.5;
            lo = t;
        } else if (leftLength > length) {
            next = (lo + t) * 0.5;
            hi = t;
        }
        if (next == t)
            return;
        t = next;
    }
}
