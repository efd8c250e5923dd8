#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QList>
#include <QPointF>
#include <QRectF>

#include <array>

class QDebug;
class QPainterPath;
class QTransform;

// A path of straight lines and cubic Bezier curves, kept as the list of
// elements it was built from: move-to, line-to, curve-to and close-path.
// Unlike QPainterPath it records where a subpath is closed, which the
// library's walking operations (length, trimming, arrow heads) depend on;
// convert to QPainterPath to draw it.
//
// Elements are kept exactly as appended: consecutive move-tos stay, and a
// path may begin with a line or curve, which then starts at (0, 0). After a
// close-path the current point is the start of the closed subpath, and a
// line or curve appended without a move-to continues from there.
//
// Coordinates are plain numbers; the operations assume nothing about the
// direction of the y axis.
class QXFOUNDATION_EXPORT QXBezierPath
{
public:
    enum ElementType {
        MoveToElement = 0,    // 1 point: the new current point
        LineToElement = 1,    // 1 point: the end point
        CurveToElement = 2,   // 3 points: control point 1, control point 2, end point
        ClosePathElement = 3, // no point: a straight line back to the subpath's start
    };

    enum WindingRule {
        NonZeroWindingRule = 0,
        EvenOddWindingRule = 1,
    };

    struct Element
    {
        ElementType type = MoveToElement;
        // Only the first 1 (move, line) or 3 (curve) points are used; the
        // others are (0, 0).
        std::array<QPointF, 3> points{};

        friend bool operator==(const Element &, const Element &) = default;
    };

    QXBezierPath() = default;

    void moveToPoint(QPointF point);
    void lineToPoint(QPointF point);
    void curveToPoint(QPointF endPoint, QPointF controlPoint1, QPointF controlPoint2);
    void closePath();
    void removeAllPoints();

    // Appends every element of `path`, its move-tos included.
    void appendBezierPath(const QXBezierPath &path);

    qsizetype elementCount() const { return m_elements.size(); }
    bool isEmpty() const { return m_elements.isEmpty(); }
    const QList<Element> &elements() const { return m_elements; }
    // The element's type; its points are copied to `associatedPoints` (room
    // for 3) when given. An index outside the path reads as a close-path
    // and copies nothing.
    ElementType elementAtIndex(qsizetype index, QPointF *associatedPoints = nullptr) const;

    // Where the next line or curve starts: the end of the last element, the
    // subpath's start after a close-path, (0, 0) for an empty path.
    QPointF currentPoint() const;

    // The smallest rectangle that holds every point drawn by the path (and
    // every move-to point); curves count with their extreme points, not their
    // control points. A null QRectF for an empty path.
    QRectF bounds() const;
    // The same with the curves' control points included.
    QRectF controlPointBounds() const;

    WindingRule windingRule() const { return m_windingRule; }
    void setWindingRule(WindingRule rule) { m_windingRule = rule; }

    // Maps every point, control points included, through `transform`.
    void transformUsingAffineTransform(const QTransform &transform);
    QXBezierPath transformed(const QTransform &transform) const;

    // The same shape drawn in the opposite direction, subpath by subpath, the
    // subpaths in their original order. An open subpath starts at its old
    // end point. A closed subpath keeps its start point and runs the other
    // way round: its closing line becomes its first segment (left out when it
    // has no length), and a straight last segment back to the start is left
    // to the close-path. Every subpath of the result starts with a move-to.
    QXBezierPath bezierPathByReversingPath() const;

    // For drawing. A close-path becomes QPainterPath::closeSubpath(), which
    // adds a line back to the start where one is needed. QPainterPath merges
    // consecutive move-tos into the last one.
    QPainterPath toPainterPath() const;
    // QPainterPath does not record closing: a subpath that returns to its
    // start point counts as closed here, as Qt's stroker also treats it. A
    // final line-to back to the start becomes a close-path, a final curve-to
    // back to it is followed by one. Lines and curves of no length never
    // reach here: QPainterPath drops them when they are added. A QPainterPath
    // that is empty by Qt's measure (nothing but one move-to) gives an empty
    // path, with the fill rule carried over (Qt's default is odd-even).
    static QXBezierPath fromPainterPath(const QPainterPath &path);

    friend bool operator==(const QXBezierPath &, const QXBezierPath &) = default;

private:
    QList<Element> m_elements;
    WindingRule m_windingRule = NonZeroWindingRule;
};

QXFOUNDATION_EXPORT QDebug operator<<(QDebug debug, const QXBezierPath &path);
