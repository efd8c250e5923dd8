#include <QXFoundation/QXBezierPath.h>

#include "QxPathElements.h"

#include <QPainterPath>
#include <QTransform>
#include <QtTest>

#include <cmath>

namespace {

using namespace QxPathElements;

// The points a path passes through, in drawing order, with curves sampled:
// the reversed path must pass through the same points backwards.
QList<QPointF> trace(const QXBezierPath &path)
{
    QList<QPointF> points;
    QPointF current;
    QPointF start;
    for (const QXBezierPath::Element &e : path.elements()) {
        switch (e.type) {
        case QXBezierPath::MoveToElement:
            current = start = e.points[0];
            points << current;
            break;
        case QXBezierPath::LineToElement:
            if (points.isEmpty())
                points << current;
            current = e.points[0];
            points << current;
            break;
        case QXBezierPath::CurveToElement:
            if (points.isEmpty())
                points << current;
            for (int i = 1; i <= 4; ++i) {
                const qreal t = i / 4.0;
                const qreal u = 1 - t;
                points << current * (u * u * u) + e.points[0] * (3 * u * u * t) + e.points[1] * (3 * u * t * t)
                        + e.points[2] * (t * t * t);
            }
            current = e.points[2];
            break;
        case QXBezierPath::ClosePathElement:
            current = start;
            points << current;
            break;
        }
    }
    // Consecutive duplicates carry no shape.
    QList<QPointF> unique;
    for (const QPointF &p : points)
        if (unique.isEmpty() || std::hypot(unique.last().x() - p.x(), unique.last().y() - p.y()) > 1e-9)
            unique << p;
    return unique;
}

} // namespace

class tst_QXBezierPath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void buildingAndReading();
    void currentPoint();
    void appending();
    void bounds();
    void transforming();
    void reversingOpenSubpaths();
    void reversingClosedSubpaths();
    void reversalKeepsTheShape();
    void toPainterPath();
    void fromPainterPath();
};

void tst_QXBezierPath::buildingAndReading()
{
    QXBezierPath path;
    QVERIFY(path.isEmpty());
    QCOMPARE(path.elementCount(), 0);
    path.moveToPoint(QPointF(1, 2));
    path.moveToPoint(QPointF(3, 4)); // consecutive move-tos are both kept
    path.lineToPoint(QPointF(5, 6));
    path.curveToPoint(QPointF(9, 10), QPointF(7, 8), QPointF(8, 9));
    path.closePath();
    QVERIFY(!path.isEmpty());
    QCOMPARE(path.elementCount(), 5);

    QPointF points[3] = {QPointF(-1, -1), QPointF(-1, -1), QPointF(-1, -1)};
    QCOMPARE(path.elementAtIndex(0, points), QXBezierPath::MoveToElement);
    QCOMPARE(points[0], QPointF(1, 2));
    QCOMPARE(path.elementAtIndex(1), QXBezierPath::MoveToElement);
    QCOMPARE(path.elementAtIndex(2, points), QXBezierPath::LineToElement);
    QCOMPARE(points[0], QPointF(5, 6));
    QCOMPARE(path.elementAtIndex(3, points), QXBezierPath::CurveToElement);
    // Control point 1, control point 2, end point.
    QCOMPARE(points[0], QPointF(7, 8));
    QCOMPARE(points[1], QPointF(8, 9));
    QCOMPARE(points[2], QPointF(9, 10));
    // A close-path and an index outside the path copy no points.
    points[0] = QPointF(-1, -1);
    QCOMPARE(path.elementAtIndex(4, points), QXBezierPath::ClosePathElement);
    QCOMPARE(path.elementAtIndex(5, points), QXBezierPath::ClosePathElement);
    QCOMPARE(path.elementAtIndex(-1, points), QXBezierPath::ClosePathElement);
    QCOMPARE(points[0], QPointF(-1, -1));
    QCOMPARE(int(QXBezierPath::MoveToElement), 0);
    QCOMPARE(int(QXBezierPath::ClosePathElement), 3);

    // A value type: copies are independent.
    QXBezierPath copy = path;
    copy.lineToPoint(QPointF(0, 0));
    QCOMPARE(path.elementCount(), 5);
    QVERIFY(copy != path);
    path.removeAllPoints();
    QVERIFY(path.isEmpty());
    QCOMPARE(copy.elementCount(), 6);
}

void tst_QXBezierPath::currentPoint()
{
    QXBezierPath path;
    QCOMPARE(path.currentPoint(), QPointF(0, 0));
    path.lineToPoint(QPointF(2, 1)); // a path may begin without a move-to
    QCOMPARE(path.currentPoint(), QPointF(2, 1));
    path.moveToPoint(QPointF(10, 10));
    QCOMPARE(path.currentPoint(), QPointF(10, 10));
    path.curveToPoint(QPointF(20, 0), QPointF(12, 5), QPointF(15, 5));
    QCOMPARE(path.currentPoint(), QPointF(20, 0));
    path.closePath();
    QCOMPARE(path.currentPoint(), QPointF(10, 10));
    path.lineToPoint(QPointF(30, 30));
    QCOMPARE(path.currentPoint(), QPointF(30, 30));
    path.closePath(); // still the subpath that began at (10, 10)
    QCOMPARE(path.currentPoint(), QPointF(10, 10));
}

void tst_QXBezierPath::appending()
{
    QXBezierPath path = pathOf({move({0, 0}), line({1, 0})});
    const QXBezierPath other = pathOf({move({5, 5}), curve({6, 6}, {5, 6}, {6, 5}), close()});
    path.appendBezierPath(other);
    QCOMPARE(path.elements(), QList({move({0, 0}), line({1, 0}), move({5, 5}), curve({6, 6}, {5, 6}, {6, 5}), close()}));
    path.appendBezierPath(path);
    QCOMPARE(path.elementCount(), 10);
    QCOMPARE(path.elements().mid(5), path.elements().mid(0, 5));
    path.appendBezierPath(QXBezierPath());
    QCOMPARE(path.elementCount(), 10);
}

void tst_QXBezierPath::bounds()
{
    QCOMPARE(QXBezierPath().bounds(), QRectF());
    QCOMPARE(QXBezierPath().controlPointBounds(), QRectF());

    // The arch rises to 7.5, three quarters of its control points' height.
    const QXBezierPath arch = pathOf({move({0, 0}), curve({10, 0}, {0, 10}, {10, 10})});
    QCOMPARE(arch.bounds(), QRectF(0, 0, 10, 7.5));
    QCOMPARE(arch.controlPointBounds(), QRectF(0, 0, 10, 10));
    // The same turned on its side, and a curve with two extrema on one axis.
    const QXBezierPath side = pathOf({move({0, 0}), curve({0, 10}, {10, 0}, {10, 10})});
    QCOMPARE(side.bounds(), QRectF(0, 0, 7.5, 10));
    const QXBezierPath wave = pathOf({move({0, 0}), curve({30, 0}, {10, 30}, {20, -30})});
    const QRectF waveBounds = wave.bounds();
    // y(t) = 90t(1-t)(1-2t): extrema ±90·√3/36·… at t = (3 ∓ √3)/6.
    const qreal t = (3 - std::sqrt(3.0)) / 6;
    const qreal peak = 90 * t * (1 - t) * (1 - 2 * t);
    QVERIFY(std::fabs(waveBounds.top() + peak) < 1e-9);
    QVERIFY(std::fabs(waveBounds.bottom() - peak) < 1e-9);
    QCOMPARE(waveBounds.left(), 0.0);
    QCOMPARE(waveBounds.right(), 30.0);

    // A path that begins with a line starts at the origin; move-tos count.
    const QXBezierPath fromOrigin = pathOf({line({4, 3}), move({-2, 8})});
    QCOMPARE(fromOrigin.bounds(), QRectF(QPointF(-2, 0), QPointF(4, 8)));
    // A lone point gives an empty rectangle at the point.
    const QRectF lone = pathOf({move({3, 4})}).bounds();
    QCOMPARE(lone.topLeft(), QPointF(3, 4));
    QCOMPARE(lone.size(), QSizeF(0, 0));
}

void tst_QXBezierPath::transforming()
{
    const QXBezierPath path = pathOf({move({1, 0}), line({2, 0}), curve({3, 1}, {2, 1}, {3, 0}), close()});
    QXBezierPath moved = path.transformed(QTransform::fromTranslate(10, 20));
    QCOMPARE(moved.elements(), QList({move({11, 20}), line({12, 20}), curve({13, 21}, {12, 21}, {13, 20}), close()}));
    QCOMPARE(path.elementAtIndex(0), QXBezierPath::MoveToElement); // the original stays
    QPointF p[3];
    path.elementAtIndex(0, p);
    QCOMPARE(p[0], QPointF(1, 0));

    // A quarter turn counter-clockwise (y up) maps (x, y) to (-y, x).
    moved = path;
    moved.transformUsingAffineTransform(QTransform().rotate(90));
    QCOMPARE(moved.elements(), QList({move({0, 1}), line({0, 2}), curve({-1, 3}, {-1, 2}, {0, 3}), close()}));
    moved.transformUsingAffineTransform(QTransform::fromScale(2, -1));
    QCOMPARE(moved.elements(), QList({move({0, -1}), line({0, -2}), curve({-2, -3}, {-2, -2}, {0, -3}), close()}));
}

void tst_QXBezierPath::reversingOpenSubpaths()
{
    QCOMPARE(QXBezierPath().bezierPathByReversingPath(), QXBezierPath());

    // Lines and curves backwards from the old end point; control points swap.
    const QXBezierPath open = pathOf({move({0, 0}), line({1, 0}), curve({4, 0}, {2, 1}, {3, 1})});
    QCOMPARE(open.bezierPathByReversingPath().elements(),
             QList({move({4, 0}), curve({1, 0}, {3, 1}, {2, 1}), line({0, 0})}));

    // Subpaths keep their order; a lone move-to stays; a path that begins
    // without a move-to starts at the origin.
    const QXBezierPath several = pathOf({line({1, 1}), move({5, 5}), move({6, 6}), line({7, 6}), line({7, 8})});
    QCOMPARE(several.bezierPathByReversingPath().elements(),
             QList({move({1, 1}), line({0, 0}), move({5, 5}), move({7, 8}), line({7, 6}), line({6, 6})}));
}

void tst_QXBezierPath::reversingClosedSubpaths()
{
    // A closed polygon keeps its start and runs the other way round: the
    // closing side comes first, the first side is left to the close-path.
    const QXBezierPath triangle = pathOf({move({0, 0}), line({4, 0}), line({4, 3}), close()});
    const QXBezierPath reversed = triangle.bezierPathByReversingPath();
    QCOMPARE(reversed.elements(), QList({move({0, 0}), line({4, 3}), line({4, 0}), close()}));
    QCOMPARE(reversed.bezierPathByReversingPath(), triangle);

    // A closed subpath whose last segment already returns to the start has
    // no closing line to turn into a segment; a first curve stays a curve.
    const QXBezierPath drop = pathOf({move({0, 0}), curve({4, 0}, {1, -2}, {3, -2}), line({2, 3}), line({0, 0}), close()});
    const QXBezierPath dropReversed = drop.bezierPathByReversingPath();
    QCOMPARE(dropReversed.elements(),
             QList({move({0, 0}), line({2, 3}), line({4, 0}), curve({0, 0}, {3, -2}, {1, -2}), close()}));

    // After a close-path, a line without a move-to starts a subpath at the
    // closed subpath's start; a close with nothing drawn stays a closed point.
    const QXBezierPath continued = pathOf({move({1, 1}), line({3, 1}), close(), line({1, 5}), close(), close()});
    QCOMPARE(continued.bezierPathByReversingPath().elements(),
             QList({move({1, 1}), line({3, 1}), close(), move({1, 1}), line({1, 5}), close(), move({1, 1}), close()}));

    // A mix of open and closed subpaths.
    const QXBezierPath mixed = pathOf({move({0, 0}), line({1, 0}), move({5, 5}), line({6, 5}), line({6, 6}), close(), move({9, 9}), line({9, 8})});
    QCOMPARE(mixed.bezierPathByReversingPath().elements(),
             QList({move({1, 0}), line({0, 0}), move({5, 5}), line({6, 6}), line({6, 5}), close(), move({9, 8}), line({9, 9})}));

    QXBezierPath evenOdd = triangle;
    evenOdd.setWindingRule(QXBezierPath::EvenOddWindingRule);
    QCOMPARE(evenOdd.bezierPathByReversingPath().windingRule(), QXBezierPath::EvenOddWindingRule);
}

void tst_QXBezierPath::reversalKeepsTheShape()
{
    const QList<QXBezierPath> paths = {
        pathOf({move({0, 0}), line({10, 0}), curve({20, 10}, {15, 0}, {20, 5}), line({20, 20})}),
        pathOf({move({0, 0}), curve({10, 0}, {0, 10}, {10, 10}), line({5, -5}), close()}),
        pathOf({move({0, 0}), line({3, 0}), line({3, 3}), line({0, 0}), close()}),
    };
    for (const QXBezierPath &path : paths) {
        QList<QPointF> forwards = trace(path);
        const QList<QPointF> backwards = trace(path.bezierPathByReversingPath());
        const bool closed = path.elements().constLast().type == QXBezierPath::ClosePathElement;
        if (closed) {
            // A closed loop traced backwards from the same start.
            QList<QPointF> expected{forwards.constFirst()};
            for (qsizetype i = forwards.size() - 2; i >= 0; --i)
                expected << forwards.at(i);
            forwards = expected;
        } else {
            std::reverse(forwards.begin(), forwards.end());
        }
        QCOMPARE(backwards.size(), forwards.size());
        for (qsizetype i = 0; i < forwards.size(); ++i)
            QVERIFY2(std::hypot(backwards.at(i).x() - forwards.at(i).x(), backwards.at(i).y() - forwards.at(i).y()) < 1e-12,
                     qPrintable(QString::number(i)));
    }
}

void tst_QXBezierPath::toPainterPath()
{
    QXBezierPath path = pathOf({move({1, 1}), line({4, 1}), curve({4, 4}, {5, 2}, {5, 3}), close(), line({0, 9})});
    path.setWindingRule(QXBezierPath::EvenOddWindingRule);
    const QPainterPath painterPath = path.toPainterPath();
    QCOMPARE(painterPath.fillRule(), Qt::OddEvenFill);
    // move, line, curve (three elements), the closing line, then the line
    // after the close, which Qt starts with a move to the subpath's start.
    QCOMPARE(painterPath.elementCount(), 8);
    QCOMPARE(painterPath.elementAt(2).type, QPainterPath::CurveToElement);
    QCOMPARE(QPointF(painterPath.elementAt(2)), QPointF(5, 2));
    QCOMPARE(QPointF(painterPath.elementAt(4)), QPointF(4, 4));
    QCOMPARE(painterPath.elementAt(5).type, QPainterPath::LineToElement);
    QCOMPARE(QPointF(painterPath.elementAt(5)), QPointF(1, 1));
    QCOMPARE(painterPath.elementAt(6).type, QPainterPath::MoveToElement);
    QCOMPARE(QPointF(painterPath.elementAt(6)), QPointF(1, 1));
    QCOMPARE(QPointF(painterPath.elementAt(7)), QPointF(0, 9));
    QVERIFY(QXBezierPath().toPainterPath().isEmpty());
    QVERIFY(QXBezierPath::fromPainterPath(QXBezierPath().toPainterPath()).isEmpty());
    QCOMPARE(QXBezierPath().toPainterPath().fillRule(), Qt::WindingFill);
}

void tst_QXBezierPath::fromPainterPath()
{
    // Closed subpaths come back closed.
    const QXBezierPath triangle = pathOf({move({0, 0}), line({4, 0}), line({4, 3}), close()});
    QCOMPARE(QXBezierPath::fromPainterPath(triangle.toPainterPath()), triangle);
    const QXBezierPath loop = pathOf({move({0, 0}), curve({10, 0}, {0, 10}, {10, 10}), curve({0, 0}, {10, -10}, {0, -10}), close()});
    QCOMPARE(QXBezierPath::fromPainterPath(loop.toPainterPath()), loop);
    QPainterPath rect;
    rect.addRect(QRectF(1, 2, 3, 4));
    QCOMPARE(QXBezierPath::fromPainterPath(rect).elements(),
             QList({move({1, 2}), line({4, 2}), line({4, 6}), line({1, 6}), close()}));
    QPainterPath ellipse;
    ellipse.addEllipse(QPointF(0, 0), 5, 5);
    const QXBezierPath circle = QXBezierPath::fromPainterPath(ellipse);
    QCOMPARE(circle.elements().constLast().type, QXBezierPath::ClosePathElement);
    QCOMPARE(circle.elementAtIndex(1), QXBezierPath::CurveToElement);

    // Open subpaths stay open; one that returns to its start is closed.
    const QXBezierPath open = pathOf({move({0, 0}), curve({3, 3}, {1, 0}, {3, 2}), line({5, 3})});
    QCOMPARE(QXBezierPath::fromPainterPath(open.toPainterPath()), open);
    QPainterPath there;
    there.moveTo(2, 2);
    there.lineTo(6, 2);
    there.moveTo(7, 7);
    there.lineTo(8, 8);
    there.lineTo(7, 7);
    QCOMPARE(QXBezierPath::fromPainterPath(there).elements(),
             QList({move({2, 2}), line({6, 2}), move({7, 7}), line({8, 8}), close()}));

    QPainterPath evenOdd;
    evenOdd.setFillRule(Qt::OddEvenFill);
    evenOdd.lineTo(1, 1);
    const QXBezierPath fromEvenOdd = QXBezierPath::fromPainterPath(evenOdd);
    QCOMPARE(fromEvenOdd.windingRule(), QXBezierPath::EvenOddWindingRule);
    QCOMPARE(fromEvenOdd.elements(), QList({move({0, 0}), line({1, 1})}));
    // QPainterPath's own default is the odd-even rule.
    QVERIFY(QXBezierPath::fromPainterPath(QPainterPath()).isEmpty());
    QCOMPARE(QXBezierPath::fromPainterPath(QPainterPath()).windingRule(), QXBezierPath::EvenOddWindingRule);
}

QTEST_GUILESS_MAIN(tst_QXBezierPath)
#include "tst_qxbezierpath.moc"
