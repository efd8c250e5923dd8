#pragma once

// Element builders for the path suites: a path is written as the list of
// elements it should hold, then built through the public API.

#include <QXFoundation/QXBezierPath.h>

#include <QList>

namespace QxPathElements {

using Element = QXBezierPath::Element;

inline Element move(QPointF p) { return Element{QXBezierPath::MoveToElement, {p, {}, {}}}; }
inline Element line(QPointF p) { return Element{QXBezierPath::LineToElement, {p, {}, {}}}; }
inline Element curve(QPointF end, QPointF c1, QPointF c2) { return Element{QXBezierPath::CurveToElement, {c1, c2, end}}; }
inline Element close() { return Element{QXBezierPath::ClosePathElement, {}}; }

inline QXBezierPath pathOf(const QList<Element> &elements)
{
    QXBezierPath path;
    for (const Element &e : elements) {
        switch (e.type) {
        case QXBezierPath::MoveToElement: path.moveToPoint(e.points[0]); break;
        case QXBezierPath::LineToElement: path.lineToPoint(e.points[0]); break;
        case QXBezierPath::CurveToElement: path.curveToPoint(e.points[2], e.points[0], e.points[1]); break;
        case QXBezierPath::ClosePathElement: path.closePath(); break;
        }
    }
    return path;
}

} // namespace QxPathElements
