#include <QXFoundation/QXBezierPath.h>

#include <QDebug>
#include <QPainterPath>
#include <QTransform>
#include <QVarLengthArray>

#include <cmath>

namespace {

// QPointF's operator== is fuzzy; the path keeps and compares exact values.
bool samePoint(QPointF a, QPointF b)
{
    return a.x() == b.x() && a.y() == b.y();
}

QPointF endPoint(const QXBezierPath::Element &element)
{
    return element.type == QXBezierPath::CurveToElement ? element.points[2] : element.points[0];
}

// Grows a rectangle given by its edges; starts empty.
struct Extent
{
    qreal minX = 0, minY = 0, maxX = 0, maxY = 0;
    bool empty = true;

    void add(QPointF p)
    {
        if (empty) {
            minX = maxX = p.x();
            minY = maxY = p.y();
            empty = false;
            return;
        }
        minX = std::min(minX, p.x());
        maxX = std::max(maxX, p.x());
        minY = std::min(minY, p.y());
        maxY = std::max(maxY, p.y());
    }

    QRectF rect() const { return empty ? QRectF() : QRectF(QPointF(minX, minY), QPointF(maxX, maxY)); }
};

qreal cubicAt(qreal p0, qreal p1, qreal p2, qreal p3, qreal t)
{
    const qreal s = 1 - t;
    return s * s * s * p0 + 3 * s * s * t * p1 + 3 * s * t * t * p2 + t * t * t * p3;
}

// Parameters in (0, 1) where one coordinate of a cubic has a zero derivative:
// the roots of a t² + b t + c with a = -p0 + 3p1 - 3p2 + p3,
// b = 2(p0 - 2p1 + p2), c = p1 - p0.
int extremaOfCubic(qreal p0, qreal p1, qreal p2, qreal p3, qreal roots[2])
{
    const qreal a = -p0 + 3 * p1 - 3 * p2 + p3;
    const qreal b = 2 * (p0 - 2 * p1 + p2);
    const qreal c = p1 - p0;
    int count = 0;
    auto keep = [&](qreal t) {
        if (t > 0 && t < 1)
            roots[count++] = t;
    };
    const qreal scale = std::fabs(a) + std::fabs(b) + std::fabs(c);
    if (scale == 0)
        return 0;
    if (std::fabs(a) <= 1e-12 * scale) {
        if (b != 0)
            keep(-c / b);
        return count;
    }
    const qreal discriminant = b * b - 4 * a * c;
    if (discriminant < 0)
        return 0;
    // The numerically stable pair of roots.
    const qreal q = -0.5 * (b + std::copysign(std::sqrt(discriminant), b));
    keep(q / a);
    if (q != 0)
        keep(c / q);
    return count;
}

void addCurveExtrema(Extent &extent, QPointF p0, QPointF p1, QPointF p2, QPointF p3)
{
    qreal roots[2];
    for (int axis = 0; axis < 2; ++axis) {
        const auto coordinate = [axis](QPointF p) { return axis == 0 ? p.x() : p.y(); };
        const int count = extremaOfCubic(coordinate(p0), coordinate(p1), coordinate(p2), coordinate(p3), roots);
        for (int i = 0; i < count; ++i) {
            const qreal t = roots[i];
            extent.add(QPointF(cubicAt(p0.x(), p1.x(), p2.x(), p3.x(), t), cubicAt(p0.y(), p1.y(), p2.y(), p3.y(), t)));
        }
    }
}

QRectF boundsOf(const QList<QXBezierPath::Element> &elements, bool withControlPoints)
{
    Extent extent;
    QPointF current;
    QPointF subpathStart;
    for (const QXBezierPath::Element &element : elements) {
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            extent.add(element.points[0]);
            current = subpathStart = element.points[0];
            break;
        case QXBezierPath::LineToElement:
            extent.add(current);
            extent.add(element.points[0]);
            current = element.points[0];
            break;
        case QXBezierPath::CurveToElement:
            extent.add(current);
            extent.add(element.points[2]);
            if (withControlPoints) {
                extent.add(element.points[0]);
                extent.add(element.points[1]);
            } else {
                addCurveExtrema(extent, current, element.points[0], element.points[1], element.points[2]);
            }
            current = element.points[2];
            break;
        case QXBezierPath::ClosePathElement:
            extent.add(current);
            extent.add(subpathStart);
            current = subpathStart;
            break;
        }
    }
    return extent.rect();
}

// One subpath while the path is read for reversal: where it starts and the
// segments drawn from there, each with its start point.
struct Segment
{
    QXBezierPath::ElementType type;
    QPointF from;
    QPointF control1;
    QPointF control2;
    QPointF to;
};

void appendReversedSubpath(QXBezierPath &result, QPointF start, const QVarLengthArray<Segment, 16> &segments,
                           bool closed)
{
    if (!closed) {
        result.moveToPoint(segments.isEmpty() ? start : segments.last().to);
        for (qsizetype i = segments.size() - 1; i >= 0; --i) {
            const Segment &segment = segments.at(i);
            if (segment.type == QXBezierPath::LineToElement)
                result.lineToPoint(segment.from);
            else
                result.curveToPoint(segment.from, segment.control2, segment.control1);
        }
        return;
    }
    result.moveToPoint(start);
    const QPointF last = segments.isEmpty() ? start : segments.last().to;
    if (!samePoint(last, start))
        result.lineToPoint(last);
    for (qsizetype i = segments.size() - 1; i >= 0; --i) {
        const Segment &segment = segments.at(i);
        if (segment.type == QXBezierPath::LineToElement) {
            // The close-path draws the first line, reversed, by itself.
            if (i > 0)
                result.lineToPoint(segment.from);
        } else {
            result.curveToPoint(segment.from, segment.control2, segment.control1);
        }
    }
    result.closePath();
}

} // namespace

void QXBezierPath::moveToPoint(QPointF point)
{
    m_elements.append(Element{MoveToElement, {point, QPointF(), QPointF()}});
}

void QXBezierPath::lineToPoint(QPointF point)
{
    m_elements.append(Element{LineToElement, {point, QPointF(), QPointF()}});
}

void QXBezierPath::curveToPoint(QPointF endPoint, QPointF controlPoint1, QPointF controlPoint2)
{
    m_elements.append(Element{CurveToElement, {controlPoint1, controlPoint2, endPoint}});
}

void QXBezierPath::closePath()
{
    m_elements.append(Element{ClosePathElement, {}});
}

void QXBezierPath::removeAllPoints()
{
    m_elements.clear();
}

void QXBezierPath::appendBezierPath(const QXBezierPath &path)
{
    // Copy first: `path` may be this path.
    const QList<Element> elements = path.m_elements;
    m_elements.append(elements);
}

QXBezierPath::ElementType QXBezierPath::elementAtIndex(qsizetype index, QPointF *associatedPoints) const
{
    if (index < 0 || index >= m_elements.size())
        return ClosePathElement;
    const Element &element = m_elements.at(index);
    if (associatedPoints) {
        const int count = element.type == CurveToElement ? 3 : element.type == ClosePathElement ? 0 : 1;
        for (int i = 0; i < count; ++i)
            associatedPoints[i] = element.points[i];
    }
    return element.type;
}

QPointF QXBezierPath::currentPoint() const
{
    QPointF current;
    QPointF subpathStart;
    for (const Element &element : m_elements) {
        switch (element.type) {
        case MoveToElement:
            current = subpathStart = element.points[0];
            break;
        case LineToElement:
        case CurveToElement:
            current = endPoint(element);
            break;
        case ClosePathElement:
            current = subpathStart;
            break;
        }
    }
    return current;
}

QRectF QXBezierPath::bounds() const
{
    return boundsOf(m_elements, false);
}

QRectF QXBezierPath::controlPointBounds() const
{
    return boundsOf(m_elements, true);
}

void QXBezierPath::transformUsingAffineTransform(const QTransform &transform)
{
    for (Element &element : m_elements) {
        const int count = element.type == CurveToElement ? 3 : element.type == ClosePathElement ? 0 : 1;
        for (int i = 0; i < count; ++i)
            element.points[i] = transform.map(element.points[i]);
    }
}

QXBezierPath QXBezierPath::transformed(const QTransform &transform) const
{
    QXBezierPath result = *this;
    result.transformUsingAffineTransform(transform);
    return result;
}

QXBezierPath QXBezierPath::bezierPathByReversingPath() const
{
    QXBezierPath result;
    result.m_windingRule = m_windingRule;
    result.m_elements.reserve(m_elements.size() + m_elements.size() / 2);

    QVarLengthArray<Segment, 16> segments;
    QPointF current;
    QPointF start;
    bool open = false; // a subpath has begun and is not yet written out
    for (const Element &element : m_elements) {
        switch (element.type) {
        case MoveToElement:
            if (open)
                appendReversedSubpath(result, start, segments, false);
            segments.clear();
            start = current = element.points[0];
            open = true;
            break;
        case LineToElement:
        case CurveToElement:
            if (!open) {
                // A line or curve without a move-to starts at the current point.
                segments.clear();
                start = current;
                open = true;
            }
            segments.append(Segment{element.type, current, element.points[0], element.points[1], endPoint(element)});
            current = endPoint(element);
            break;
        case ClosePathElement:
            if (!open) {
                segments.clear();
                start = current;
            }
            appendReversedSubpath(result, start, segments, true);
            segments.clear();
            current = start;
            open = false;
            break;
        }
    }
    if (open)
        appendReversedSubpath(result, start, segments, false);
    return result;
}

QPainterPath QXBezierPath::toPainterPath() const
{
    QPainterPath path;
    path.setFillRule(m_windingRule == EvenOddWindingRule ? Qt::OddEvenFill : Qt::WindingFill);
    for (const Element &element : m_elements) {
        switch (element.type) {
        case MoveToElement:
            path.moveTo(element.points[0]);
            break;
        case LineToElement:
            path.lineTo(element.points[0]);
            break;
        case CurveToElement:
            path.cubicTo(element.points[0], element.points[1], element.points[2]);
            break;
        case ClosePathElement:
            path.closeSubpath();
            break;
        }
    }
    return path;
}

QXBezierPath QXBezierPath::fromPainterPath(const QPainterPath &path)
{
    QXBezierPath result;
    result.m_windingRule = path.fillRule() == Qt::OddEvenFill ? EvenOddWindingRule : NonZeroWindingRule;
    // Setting a fill rule gives even an empty QPainterPath a move to (0, 0);
    // Qt counts a path that is only one move-to as empty, and so does this.
    if (path.isEmpty())
        return result;
    QPointF start;
    qsizetype subpathBegin = 0; // index in the result of the subpath's first element
    auto closeIfReturned = [&]() {
        const qsizetype drawn = result.m_elements.size() - subpathBegin - 1;
        if (drawn < 1 || result.m_elements.at(subpathBegin).type != MoveToElement)
            return;
        const Element &last = result.m_elements.constLast();
        if (!samePoint(endPoint(last), start))
            return;
        // QPainterPath drops lines of no length, so a line back to the start
        // always follows something else that was drawn.
        if (last.type == LineToElement)
            result.m_elements.last() = Element{ClosePathElement, {}};
        else
            result.closePath();
    };
    const int count = path.elementCount();
    for (int i = 0; i < count; ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        switch (element.type) {
        case QPainterPath::MoveToElement:
            closeIfReturned();
            subpathBegin = result.m_elements.size();
            start = element;
            result.moveToPoint(element);
            break;
        case QPainterPath::LineToElement:
            result.lineToPoint(element);
            break;
        case QPainterPath::CurveToElement:
            // Always followed by its two data elements.
            if (i + 2 < count) {
                result.curveToPoint(path.elementAt(i + 2), element, path.elementAt(i + 1));
                i += 2;
            }
            break;
        case QPainterPath::CurveToDataElement:
            break;
        }
    }
    closeIfReturned();
    return result;
}

QDebug operator<<(QDebug debug, const QXBezierPath &path)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "QXBezierPath(";
    bool first = true;
    for (const QXBezierPath::Element &element : path.elements()) {
        if (!first)
            debug << ", ";
        first = false;
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            debug << "move " << element.points[0];
            break;
        case QXBezierPath::LineToElement:
            debug << "line " << element.points[0];
            break;
        case QXBezierPath::CurveToElement:
            debug << "curve " << element.points[2] << " via " << element.points[0] << ' ' << element.points[1];
            break;
        case QXBezierPath::ClosePathElement:
            debug << "close";
            break;
        }
    }
    debug << ')';
    return debug;
}
