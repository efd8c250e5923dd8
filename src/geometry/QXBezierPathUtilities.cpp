#include <QXFoundation/QXBezierPathUtilities.h>

#include <QXFoundation/QXMath.h>

#include <QTransform>

#include <algorithm>

namespace {

constexpr qreal kDefaultMaximumError = 0.1;

qreal validLength(qreal length)
{
    return length > 0 ? length : 0; // NaN fails the comparison as well
}

QPointF pointAlong(QPointF from, QPointF to, qreal fraction)
{
    return from + (to - from) * fraction;
}

// The elements of a path, visited in order with the current point and the
// start of the current subpath kept up to date.
template<typename Visit>
void walk(const QXBezierPath &path, Visit visit)
{
    QPointF current;
    QPointF subpathStart;
    for (const QXBezierPath::Element &element : path.elements()) {
        if (!visit(element, current, subpathStart))
            return;
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            current = subpathStart = element.points[0];
            break;
        case QXBezierPath::LineToElement:
            current = element.points[0];
            break;
        case QXBezierPath::CurveToElement:
            current = element.points[2];
            break;
        case QXBezierPath::ClosePathElement:
            current = subpathStart;
            break;
        }
    }
}

QXBezierPath rotatedAbout(QXBezierPath path, QPointF centre, qreal degrees)
{
    const QTransform rotation = QTransform().translate(centre.x(), centre.y()).rotate(degrees).translate(-centre.x(), -centre.y());
    path.transformUsingAffineTransform(rotation);
    return path;
}

} // namespace

QXBezierPath qx_bezierPathWithRoundRect(const QRectF &rect, qreal xRadius, qreal yRadius)
{
    const qreal minX = rect.left();
    const qreal minY = rect.top();
    const qreal maxX = rect.right();
    const qreal maxY = rect.bottom();
    const qreal rx = std::min(xRadius, rect.width() * 0.5);
    const qreal ry = std::min(yRadius, rect.height() * 0.5);
    const qreal cx = kQXEllipseFactor * rx;
    const qreal cy = kQXEllipseFactor * ry;
    const qreal ix0 = minX + rx;
    const qreal ix1 = maxX - rx;
    const qreal iy0 = minY + ry;
    const qreal iy1 = maxY - ry;

    QXBezierPath path;
    path.moveToPoint(QPointF(ix0, minY));
    path.lineToPoint(QPointF(ix1, minY));
    path.curveToPoint(QPointF(maxX, iy0), QPointF(ix1 + cx, minY), QPointF(maxX, iy0 - cy));
    path.lineToPoint(QPointF(maxX, iy1));
    path.curveToPoint(QPointF(ix1, maxY), QPointF(maxX, iy1 + cy), QPointF(ix1 + cx, maxY));
    path.lineToPoint(QPointF(ix0, maxY));
    path.curveToPoint(QPointF(minX, iy1), QPointF(ix0 - cx, maxY), QPointF(minX, iy1 + cy));
    path.lineToPoint(QPointF(minX, iy0));
    path.curveToPoint(QPointF(ix0, minY), QPointF(minX, iy0 - cy), QPointF(ix0 - cx, minY));
    path.closePath();
    return path;
}

QPointF qx_firstPoint(const QXBezierPath &path)
{
    if (path.isEmpty() || path.elements().constFirst().type != QXBezierPath::MoveToElement)
        return QPointF(0, 0);
    return path.elements().constFirst().points[0];
}

qreal qx_length(const QXBezierPath &path)
{
    return qx_lengthWithMaximumError(path, kDefaultMaximumError);
}

qreal qx_lengthWithMaximumError(const QXBezierPath &path, qreal maximumError)
{
    qreal length = 0;
    walk(path, [&](const QXBezierPath::Element &element, QPointF current, QPointF subpathStart) {
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            break;
        case QXBezierPath::LineToElement:
            length += QXDistanceBetweenPoints(current, element.points[0]);
            break;
        case QXBezierPath::CurveToElement: {
            const QPointF segment[4] = {current, element.points[0], element.points[1], element.points[2]};
            length += QXLengthOfBezierPath(segment, maximumError);
            break;
        }
        case QXBezierPath::ClosePathElement:
            length += QXDistanceBetweenPoints(current, subpathStart);
            break;
        }
        return true;
    });
    return length;
}

QXBezierPath qx_bezierPathByTrimmingToLength(const QXBezierPath &path, qreal length, qreal maximumError)
{
    length = validLength(length);
    QXBezierPath result;
    qreal accumulated = 0;
    walk(path, [&](const QXBezierPath::Element &element, QPointF current, QPointF subpathStart) {
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            result.moveToPoint(element.points[0]);
            return true;
        case QXBezierPath::LineToElement:
        case QXBezierPath::ClosePathElement: {
            const bool isClose = element.type == QXBezierPath::ClosePathElement;
            const QPointF end = isClose ? subpathStart : element.points[0];
            const qreal d = QXDistanceBetweenPoints(current, end);
            if (!(length < accumulated + d)) {
                if (isClose)
                    result.closePath();
                else
                    result.lineToPoint(end);
                accumulated += d;
                return true;
            }
            result.lineToPoint(pointAlong(current, end, (length - accumulated) / d));
            return false;
        }
        case QXBezierPath::CurveToElement: {
            const QPointF segment[4] = {current, element.points[0], element.points[1], element.points[2]};
            const qreal curveLength = QXLengthOfBezierPath(segment, maximumError);
            if (!(length < accumulated + curveLength)) {
                result.curveToPoint(element.points[2], element.points[0], element.points[1]);
                accumulated += curveLength;
                return true;
            }
            QPointF left[4];
            QPointF right[4];
            QXSubdivideBezierPathAtLength(segment, left, right, length - accumulated, maximumError);
            result.curveToPoint(left[3], left[1], left[2]);
            return false;
        }
        }
        return true;
    });
    return result;
}

QXBezierPath qx_bezierPathByTrimmingFromLength(const QXBezierPath &path, qreal length, qreal maximumError)
{
    length = validLength(length);
    QXBezierPath result;
    qreal accumulated = 0;
    walk(path, [&](const QXBezierPath::Element &element, QPointF current, QPointF subpathStart) {
        // Exactly at `length` still counts as before it.
        const bool past = accumulated > length;
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            result.moveToPoint(element.points[0]);
            break;
        case QXBezierPath::LineToElement:
        case QXBezierPath::ClosePathElement: {
            const bool isClose = element.type == QXBezierPath::ClosePathElement;
            const QPointF end = isClose ? subpathStart : element.points[0];
            const qreal d = QXDistanceBetweenPoints(current, end);
            if (past) {
                if (isClose)
                    result.closePath();
                else
                    result.lineToPoint(end);
            } else if (accumulated + d > length) {
                result.moveToPoint(pointAlong(current, end, (length - accumulated) / d));
                result.lineToPoint(end);
            }
            accumulated += d;
            break;
        }
        case QXBezierPath::CurveToElement: {
            const QPointF segment[4] = {current, element.points[0], element.points[1], element.points[2]};
            const qreal curveLength = QXLengthOfBezierPath(segment, maximumError);
            if (past) {
                result.curveToPoint(element.points[2], element.points[0], element.points[1]);
            } else if (accumulated + curveLength > length) {
                QPointF left[4];
                QPointF right[4];
                QXSubdivideBezierPathAtLength(segment, left, right, length - accumulated, maximumError);
                result.moveToPoint(right[0]);
                result.curveToPoint(right[3], right[1], right[2]);
            }
            accumulated += curveLength;
            break;
        }
        }
        return true;
    });
    return result;
}

QXBezierPath qx_bezierPathWithArrowHeadForStartOfLength(const QXBezierPath &path, qreal length, qreal angle)
{
    const QXBezierPath barb = qx_bezierPathByTrimmingToLength(path, length);
    const QPointF tip = qx_firstPoint(path);
    QXBezierPath head = rotatedAbout(barb.bezierPathByReversingPath(), tip, -angle);
    qx_appendBezierPathRemovingInitialMoveToPoint(head, rotatedAbout(barb, tip, angle));
    return head;
}

QXBezierPath qx_bezierPathWithArrowHeadForEndOfLength(const QXBezierPath &path, qreal length, qreal angle)
{
    return qx_bezierPathWithArrowHeadForStartOfLength(path.bezierPathByReversingPath(), length, angle);
}

void qx_appendBezierPathRemovingInitialMoveToPoint(QXBezierPath &path, const QXBezierPath &other)
{
    // Copy first: `other` may be `path` itself.
    const QList<QXBezierPath::Element> elements = other.elements();
    for (qsizetype i = 0; i < elements.size(); ++i) {
        const QXBezierPath::Element &element = elements.at(i);
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            if (i > 0)
                path.moveToPoint(element.points[0]);
            break;
        case QXBezierPath::LineToElement:
            path.lineToPoint(element.points[0]);
            break;
        case QXBezierPath::CurveToElement:
            path.curveToPoint(element.points[2], element.points[0], element.points[1]);
            break;
        case QXBezierPath::ClosePathElement:
            path.closePath();
            break;
        }
    }
}
