#include <QXFoundation/QXBezierPathUtilities.h>
#include <QXFoundation/QXMath.h>

#include "QxPathElements.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

using namespace QxPathElements;

bool closeTo(QPointF a, QPointF b, qreal tolerance = 1e-7)
{
    return std::hypot(a.x() - b.x(), a.y() - b.y()) <= tolerance;
}

QString describe(const QXBezierPath &path)
{
    QString text;
    QDebug(&text) << path;
    return text;
}

// Same element types, points within `tolerance`.
bool sameShape(const QXBezierPath &actual, const QList<Element> &expected, qreal tolerance = 1e-7)
{
    if (actual.elementCount() != expected.size())
        return false;
    for (qsizetype i = 0; i < expected.size(); ++i) {
        const Element &a = actual.elements().at(i);
        if (a.type != expected.at(i).type)
            return false;
        for (int k = 0; k < 3; ++k)
            if (!closeTo(a.points[k], expected.at(i).points[k], tolerance))
                return false;
    }
    return true;
}

QPointF endOf(const Element &e)
{
    return e.type == QXBezierPath::CurveToElement ? e.points[2] : e.points[0];
}

qreal angleBetween(QPointF a, QPointF b)
{
    return std::acos((a.x() * b.x() + a.y() * b.y()) / (std::hypot(a.x(), a.y()) * std::hypot(b.x(), b.y()))) * 180 / M_PI;
}

const QXBezierPath polyline = pathOf({move({0, 0}), line({3, 4}), line({3, 0})});
const QXBezierPath triangle = pathOf({move({0, 0}), line({4, 0}), line({4, 3}), close()});
// A line, a quarter bend and another line.
const QXBezierPath bend = pathOf({move({0, 0}), line({100, 0}), curve({200, 100}, {150, 0}, {200, 50}), line({200, 200})});

} // namespace

class tst_QXBezierPathUtilities : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundedRectangle();
    void firstPointAndLength();
    void trimmingToLength();
    void trimmingFromLength();
    void trimmingInsideCurves();
    void arrowHeadsOnStraightPaths();
    void arrowHeadsFollowThePath();
    void appendingWithoutInitialMove();
    void commandLine();
};

void tst_QXBezierPathUtilities::roundedRectangle()
{
    const QXBezierPath rect = qx_bezierPathWithRoundRect(QRectF(0, 0, 100, 50), 10, 10);
    const qreal c = 10 * kQXEllipseFactor;
    QVERIFY2(sameShape(rect, {move({10, 0}), line({90, 0}), curve({100, 10}, {95.5228474983079, 0}, {100, 4.4771525016921}),
                              line({100, 40}), curve({90, 50}, {100, 40 + c}, {90 + c, 50}), line({10, 50}),
                              curve({0, 40}, {10 - c, 50}, {0, 40 + c}), line({0, 10}), curve({10, 0}, {0, 10 - c}, {10 - c, 0}),
                              close()},
                       1e-12),
             qPrintable(describe(rect)));
    // Four lines of 80, 30, 80, 30 and four quarter circles of radius 10.
    QVERIFY(std::fabs(qx_lengthWithMaximumError(rect, 1e-6) - (220 + 20 * M_PI)) < 0.01);
    QCOMPARE(rect.bounds(), QRectF(0, 0, 100, 50));

    // Radii beyond half the size are cut back: the straight edges vanish.
    const QXBezierPath pill = qx_bezierPathWithRoundRect(QRectF(0, 0, 100, 50), 80, 40);
    QCOMPARE(pill.elementCount(), 10);
    QVERIFY(closeTo(qx_firstPoint(pill), QPointF(50, 0)));
    QVERIFY(closeTo(endOf(pill.elements().at(1)), QPointF(50, 0)));
    QVERIFY(closeTo(endOf(pill.elements().at(2)), QPointF(100, 25)));
    QVERIFY(closeTo(endOf(pill.elements().at(3)), QPointF(100, 25)));
    QCOMPARE(pill.bounds(), QRectF(0, 0, 100, 50));

    // Elliptical corners: the middle of each corner lies on the ellipse.
    const QRectF frame(10, 20, 60, 40);
    const QXBezierPath ellipses = qx_bezierPathWithRoundRect(frame, 12, 6);
    QCOMPARE(ellipses.bounds(), frame);
    QPointF corner = endOf(ellipses.elements().at(1));
    const Element &first = ellipses.elements().at(2);
    const QPointF middle = (corner + first.points[0] * 3 + first.points[1] * 3 + first.points[2]) / 8;
    const QPointF centre(70 - 12, 20 + 6);
    const qreal onEllipse = std::pow((middle.x() - centre.x()) / 12, 2) + std::pow((middle.y() - centre.y()) / 6, 2);
    QVERIFY(std::fabs(onEllipse - 1) < 1e-3);

    // Radii of 0: the corners are sharp and the length is the perimeter.
    const QXBezierPath sharp = qx_bezierPathWithRoundRect(QRectF(0, 0, 100, 50), 0, 0);
    QCOMPARE(qx_length(sharp), 300.0);
    QVERIFY(closeTo(endOf(sharp.elements().at(2)), QPointF(100, 0)));
}

void tst_QXBezierPathUtilities::firstPointAndLength()
{
    QCOMPARE(qx_firstPoint(QXBezierPath()), QPointF(0, 0));
    QCOMPARE(qx_length(QXBezierPath()), 0.0);
    QCOMPARE(qx_firstPoint(polyline), QPointF(0, 0));
    QCOMPARE(qx_firstPoint(pathOf({move({7, -2}), line({0, 0})})), QPointF(7, -2));
    // Without a leading move-to the first point is the origin, where the walk starts.
    const QXBezierPath noMove = pathOf({line({3, 4}), move({9, 9})});
    QCOMPARE(qx_firstPoint(noMove), QPointF(0, 0));
    QCOMPARE(qx_length(noMove), 5.0);

    QCOMPARE(qx_length(polyline), 9.0);
    QXBezierPath closed = polyline;
    closed.closePath();
    QCOMPARE(qx_length(closed), 12.0);
    QCOMPARE(qx_length(triangle), 12.0);
    // Moves add nothing; each close goes back to its own subpath's start.
    QCOMPARE(qx_length(pathOf({move({0, 0}), line({3, 4}), move({10, 10}), line({10, 13}), line({14, 13}), close()})), 17.0);

    // A circle of four curves: a hair over 2π·100, to within each curve's bound.
    const qreal k = 100 * kQXEllipseFactor;
    const QXBezierPath circle = pathOf({move({100, 0}), curve({0, 100}, {100, k}, {k, 100}), curve({-100, 0}, {-k, 100}, {-100, k}),
                                        curve({0, -100}, {-100, -k}, {-k, -100}), curve({100, 0}, {k, -100}, {100, -k}), close()});
    const qreal exact = qx_lengthWithMaximumError(circle, 1e-6);
    QVERIFY(exact > 200 * M_PI && exact < 200 * M_PI + 0.1);
    QVERIFY(std::fabs(qx_length(circle) - exact) <= 4 * 0.1);
    QVERIFY(qx_length(circle) != exact);
}

void tst_QXBezierPathUtilities::trimmingToLength()
{
    QCOMPARE(qx_bezierPathByTrimmingToLength(QXBezierPath(), 5), QXBezierPath());
    QVERIFY(sameShape(qx_bezierPathByTrimmingToLength(polyline, 6), {move({0, 0}), line({3, 4}), line({3, 3})}));
    QCOMPARE(qx_bezierPathByTrimmingToLength(polyline, 100), polyline);
    QCOMPARE(qx_bezierPathByTrimmingToLength(polyline, 9), polyline);
    QCOMPARE(qx_bezierPathByTrimmingToLength(polyline, 0).elements(), QList({move({0, 0}), line({0, 0})}));
    // Exactly at a vertex the line is kept whole and the next one starts with length 0.
    QCOMPARE(qx_bezierPathByTrimmingToLength(polyline, 5).elements(), QList({move({0, 0}), line({3, 4}), line({3, 4})}));
    // Negative and NaN lengths count as 0.
    QCOMPARE(qx_bezierPathByTrimmingToLength(polyline, -3), qx_bezierPathByTrimmingToLength(polyline, 0));
    QCOMPARE(qx_bezierPathByTrimmingToLength(polyline, std::numeric_limits<qreal>::quiet_NaN()),
             qx_bezierPathByTrimmingToLength(polyline, 0));

    // Cut short, a close-path becomes a line along the closing side.
    QVERIFY(sameShape(qx_bezierPathByTrimmingToLength(triangle, 10), {move({0, 0}), line({4, 0}), line({4, 3}), line({1.6, 1.2})}));
    QCOMPARE(qx_bezierPathByTrimmingToLength(triangle, 12), triangle);
    // A path that begins without a move-to is cut from the origin.
    QVERIFY(sameShape(qx_bezierPathByTrimmingToLength(pathOf({line({3, 4})}), 1), {line({0.6, 0.8})}));
    // Later subpaths are dropped once the length is used up.
    QVERIFY(sameShape(qx_bezierPathByTrimmingToLength(pathOf({move({0, 0}), line({4, 0}), move({0, 5}), line({4, 5})}), 6),
                      {move({0, 0}), line({4, 0}), move({0, 5}), line({2, 5})}));

    // Exactly at the end of a curve: the whole curve, then a line of length 0.
    const QXBezierPath throughCurve = pathOf(bend.elements().mid(0, 3));
    const QXBezierPath trimmed = qx_bezierPathByTrimmingToLength(bend, qx_length(throughCurve));
    QCOMPARE(trimmed.elements().mid(0, 3), throughCurve.elements());
    QCOMPARE(trimmed.elements().constLast(), line({200, 100}));
    QCOMPARE(trimmed.elementCount(), 4);
}

void tst_QXBezierPathUtilities::trimmingFromLength()
{
    QCOMPARE(qx_bezierPathByTrimmingFromLength(QXBezierPath(), 5), QXBezierPath());
    QVERIFY(sameShape(qx_bezierPathByTrimmingFromLength(polyline, 6), {move({0, 0}), move({3, 3}), line({3, 0})}));
    QCOMPARE(qx_bezierPathByTrimmingFromLength(polyline, 0).elements(), QList({move({0, 0}), move({0, 0}), line({3, 4}), line({3, 0})}));
    // Exactly at a vertex the kept part starts with a move to that vertex.
    QCOMPARE(qx_bezierPathByTrimmingFromLength(polyline, 5).elements(), QList({move({0, 0}), move({3, 4}), line({3, 0})}));
    // At or past the end only the move-tos remain.
    QCOMPARE(qx_bezierPathByTrimmingFromLength(polyline, 9).elements(), QList({move({0, 0})}));
    QCOMPARE(qx_bezierPathByTrimmingFromLength(polyline, 50).elements(), QList({move({0, 0})}));
    QCOMPARE(qx_bezierPathByTrimmingFromLength(polyline, -1), qx_bezierPathByTrimmingFromLength(polyline, 0));

    // Cut inside the closing side: a move to the cut, a line to the start.
    QVERIFY(sameShape(qx_bezierPathByTrimmingFromLength(triangle, 10), {move({0, 0}), move({1.6, 1.2}), line({0, 0})}));
    // Cut before the closing side: the close-path is kept as it is, and so
    // closes the kept part back to the cut point, its subpath's start now.
    const QXBezierPath fromTwo = qx_bezierPathByTrimmingFromLength(triangle, 2);
    QCOMPARE(fromTwo.elements(), QList({move({0, 0}), move({2, 0}), line({4, 0}), line({4, 3}), close()}));
    QCOMPARE(fromTwo.currentPoint(), QPointF(2, 0));

    // The move-tos of the part cut away are kept.
    QVERIFY(sameShape(qx_bezierPathByTrimmingFromLength(pathOf({move({0, 0}), line({3, 4}), move({10, 0}), line({10, 5})}), 7),
                      {move({0, 0}), move({10, 0}), move({10, 2}), line({10, 5})}));
}

void tst_QXBezierPathUtilities::trimmingInsideCurves()
{
    const qreal total = qx_length(bend);
    for (const qreal bound : {0.1, 1e-4}) {
        for (const qreal cut : {101.0, 150.0, total - 101}) {
            const QXBezierPath head = qx_bezierPathByTrimmingToLength(bend, cut, bound);
            const QXBezierPath tail = qx_bezierPathByTrimmingFromLength(bend, cut, bound);
            // The head ends with part of the bend, the tail starts with the rest.
            QCOMPARE(head.elementCount(), 3);
            QCOMPARE(head.elements().at(2).type, QXBezierPath::CurveToElement);
            QCOMPARE(tail.elements().at(1).type, QXBezierPath::MoveToElement);
            QCOMPARE(tail.elements().at(2).type, QXBezierPath::CurveToElement);
            QCOMPARE(tail.elements().constLast(), bend.elements().constLast());
            QCOMPARE(tail.elementCount(), 4);
            // Both sides of the cut are the same split of the curve.
            const QPointF cutPoint = endOf(head.elements().at(2));
            QCOMPARE(tail.elements().at(1).points[0], cutPoint);
            // Put back together, the pieces are the curve: the tangents at the
            // cut line up, and the lengths add up.
            const QPointF in = cutPoint - head.elements().at(2).points[1];
            const QPointF out = tail.elements().at(2).points[0] - cutPoint;
            QVERIFY(std::fabs(in.x() * out.y() - in.y() * out.x()) < 1e-9 * (1 + std::hypot(in.x(), in.y()) * std::hypot(out.x(), out.y())));
            QVERIFY(std::fabs(qx_lengthWithMaximumError(head, 1e-6) - cut) <= 1.5 * bound);
            QVERIFY(std::fabs(qx_lengthWithMaximumError(head, 1e-6) + qx_lengthWithMaximumError(tail, 1e-6)
                              - qx_lengthWithMaximumError(bend, 1e-6)) < 1e-5);
        }
    }
}

void tst_QXBezierPathUtilities::arrowHeadsOnStraightPaths()
{
    const qreal c = 2 * std::cos(M_PI / 6);
    const QXBezierPath arrow = pathOf({move({0, 0}), line({10, 0})});
    QXBezierPath head = qx_bezierPathWithArrowHeadForStartOfLength(arrow, 2, 30);
    QVERIFY2(sameShape(head, {move({c, -1}), line({0, 0}), line({c, 1})}), qPrintable(describe(head)));
    head = qx_bezierPathWithArrowHeadForEndOfLength(arrow, 2, 30);
    QVERIFY2(sameShape(head, {move({10 - c, 1}), line({10, 0}), line({10 - c, -1})}), qPrintable(describe(head)));
    QCOMPARE(arrow.elementCount(), 2); // the argument stays as it was

    // A path without a move-to starts at the origin.
    head = qx_bezierPathWithArrowHeadForStartOfLength(pathOf({line({10, 0})}), 2, 30);
    QVERIFY(sameShape(head, {move({c, -1}), line({0, 0}), line({c, 1})}));

    // The end of a closed path is its start, reached along the closing side.
    head = qx_bezierPathWithArrowHeadForEndOfLength(triangle, 1, 90);
    QVERIFY2(sameShape(head, {move({0.6, -0.8}), line({0, 0}), line({-0.6, 0.8})}), qPrintable(describe(head)));

    // A barb longer than the path follows the whole path.
    head = qx_bezierPathWithArrowHeadForStartOfLength(polyline, 100, 180);
    QVERIFY(sameShape(head, {move({-3, 0}), line({-3, -4}), line({0, 0}), line({-3, -4}), line({-3, 0})}));

    QCOMPARE(qx_bezierPathWithArrowHeadForStartOfLength(QXBezierPath(), 2, 30), QXBezierPath());
    QCOMPARE(qx_bezierPathWithArrowHeadForEndOfLength(QXBezierPath(), 2, 30), QXBezierPath());
}

void tst_QXBezierPathUtilities::arrowHeadsFollowThePath()
{
    // A quarter circle of radius 100 from (100, 0), counter-clockwise.
    const qreal k = 100 * kQXEllipseFactor;
    const QXBezierPath arc = pathOf({move({100, 0}), curve({0, 100}, {100, k}, {k, 100})});
    const QXBezierPath head = qx_bezierPathWithArrowHeadForStartOfLength(arc, 20, 25);
    QCOMPARE(head.elementCount(), 3);
    QCOMPARE(head.elements().at(1).type, QXBezierPath::CurveToElement);
    QCOMPARE(head.elements().at(2).type, QXBezierPath::CurveToElement);
    const QPointF tip(100, 0);
    QVERIFY(closeTo(endOf(head.elements().at(1)), tip, 1e-9));
    const QPointF right = head.elements().at(0).points[0] - tip;
    const QPointF left = endOf(head.elements().at(2)) - tip;
    // Each barb is the first 20 units of the arc turned by ±25°: its chord is
    // 2·100·sin(0.1), the barbs are 50° apart, around the arc's own chord.
    const qreal chord = 200 * std::sin(0.1);
    QVERIFY(std::fabs(std::hypot(right.x(), right.y()) - chord) < 0.05);
    QVERIFY(std::fabs(std::hypot(left.x(), left.y()) - chord) < 0.05);
    QVERIFY(std::fabs(angleBetween(left, right) - 50) < 1e-9);
    const QPointF along(100 * std::cos(0.2) - 100, 100 * std::sin(0.2));
    QVERIFY(std::fabs(angleBetween(left, along) - 25) < 0.1);
    QVERIFY(std::fabs(angleBetween(right, along) - 25) < 0.1);
    // The path's last barb is the one turned counter-clockwise (y up).
    QVERIFY(along.x() * left.y() - along.y() * left.x() > 0);
    QVERIFY(along.x() * right.y() - along.y() * right.x() < 0);
    // Each barb is curved like the arc, so the head is twice as long as a barb.
    QVERIFY(std::fabs(qx_length(head) - 40) < 0.2);

    // At the end the barbs point back along the arc from (0, 100).
    const QXBezierPath endHead = qx_bezierPathWithArrowHeadForEndOfLength(arc, 20, 25);
    QVERIFY(closeTo(endOf(endHead.elements().at(1)), QPointF(0, 100), 1e-9));
    const QPointF back(100 * std::sin(0.2), 100 * std::cos(0.2) - 100);
    QVERIFY(std::fabs(angleBetween(endHead.elements().at(0).points[0] - QPointF(0, 100), back) - 25) < 0.1);
}

void tst_QXBezierPathUtilities::appendingWithoutInitialMove()
{
    QXBezierPath path = pathOf({move({0, 0}), line({1, 0})});
    qx_appendBezierPathRemovingInitialMoveToPoint(path, pathOf({move({5, 5}), line({6, 5}), move({7, 7}), curve({8, 8}, {7, 8}, {8, 7}), close()}));
    QCOMPARE(path.elements(), QList({move({0, 0}), line({1, 0}), line({6, 5}), move({7, 7}), curve({8, 8}, {7, 8}, {8, 7}), close()}));

    // Only a leading move-to is dropped.
    path = pathOf({move({0, 0})});
    qx_appendBezierPathRemovingInitialMoveToPoint(path, pathOf({line({2, 2}), move({3, 3})}));
    QCOMPARE(path.elements(), QList({move({0, 0}), line({2, 2}), move({3, 3})}));

    // Onto itself.
    path = pathOf({move({0, 0}), line({1, 0})});
    qx_appendBezierPathRemovingInitialMoveToPoint(path, path);
    QCOMPARE(path.elements(), QList({move({0, 0}), line({1, 0}), line({1, 0})}));

    QXBezierPath empty;
    qx_appendBezierPathRemovingInitialMoveToPoint(empty, polyline);
    QCOMPARE(empty.elements(), QList({line({3, 4}), line({3, 0})}));
    qx_appendBezierPathRemovingInitialMoveToPoint(path, QXBezierPath());
    QCOMPARE(path.elementCount(), 3);
}

void tst_QXBezierPathUtilities::commandLine()
{
    const QString tool = qEnvironmentVariable("QX_TOOL");
    if (tool.isEmpty())
        QSKIP("QX_TOOL is not set");
    auto run = [&](const QStringList &arguments, QByteArray *out = nullptr) {
        QProcess process;
        process.start(tool, QStringList{QStringLiteral("bezier")} + arguments);
        if (!process.waitForFinished(20000))
            return -1;
        if (out)
            *out = process.readAllStandardOutput();
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    };
    QByteArray out;
    QCOMPARE(run({"length", "0", "0", "1", "0", "2", "0", "3", "0"}, &out), 0);
    QCOMPARE(out, QByteArray("3\n"));
    QCOMPARE(run({"length", "0", "0", "0", "1", "1", "1", "1", "0", "--error", "2"}, &out), 0);
    QCOMPARE(out, QByteArray("2\n"));
    QCOMPARE(run({"length", "0", "0", "0", "1", "1", "1", "1", "0", "--error", "1e-9"}, &out), 0);
    QVERIFY(std::fabs(out.trimmed().toDouble() - 2) < 1e-6 && out.trimmed().toDouble() != 2);
    QCOMPARE(run({"length", "0", "0", "1"}), 2);
    QCOMPARE(run({"length", "0", "0", "1", "0", "2", "0", "3", "x"}), 2);
    QCOMPARE(run({"length", "0", "0", "1", "0", "2", "0", "3", "0", "--error", "0"}), 2);
    QCOMPARE(run({"length", "0", "0", "1", "0", "2", "0", "3", "0", "--error"}), 2);
    QCOMPARE(run({"twist"}), 2);

    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("arrow.svg"));
    QCOMPARE(run({"svg", "--path", "M 0 0 L 100 0", "--from", "10", "--to", "90", "--arrow", "5", "--angle", "30", "-o", file}), 0);
    QFile written(file);
    QVERIFY(written.open(QIODevice::ReadOnly));
    const QByteArray svg = written.readAll();
    QVERIFY(svg.contains("<svg xmlns=\"http://www.w3.org/2000/svg\""));
    QVERIFY(svg.contains("id=\"trimmed\" d=\"M 10 0 L 90 0\""));
    QVERIFY(svg.contains("id=\"start-arrow\" d=\"M 14.33 -2.5 L 10 0 L 14.33 2.5\""));
    QVERIFY(svg.contains("id=\"end-arrow\" d=\"M 85.67 2.5 L 90 0 L 85.67 -2.5\""));

    QCOMPARE(run({"svg", "--path", "M 0 0 C 0 80 100 80 100 0 Z"}, &out), 0);
    QVERIFY(out.startsWith("<?xml"));
    QVERIFY(out.contains("id=\"original\" d=\"M 0 0 C 0 80 100 80 100 0 Z\""));
    QCOMPARE(run({"svg", "--path", "M 0 0 Q 1 1 2 2"}), 2);
    QCOMPARE(run({"svg", "--path", "M 0 0 C 1 1"}), 2);
    QCOMPARE(run({"svg", "--from"}), 2);
}

QTEST_GUILESS_MAIN(tst_QXBezierPathUtilities)
#include "tst_qxbezierpathutilities.moc"
