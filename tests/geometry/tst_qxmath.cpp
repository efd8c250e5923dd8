#include <QXFoundation/QXMath.h>

#include <QtTest>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <random>

// Every allocation made on the test's thread while `countingAllocations` is
// set is counted, whether it goes through operator new or straight to malloc
// (as Qt's containers do). Under AddressSanitizer and ThreadSanitizer malloc
// belongs to the sanitizer, so only operator new is counted there.
namespace {
thread_local bool countingAllocations = false;
std::atomic<int> allocationCount{0};

void noteAllocation()
{
    if (countingAllocations)
        ++allocationCount;
}
} // namespace

void *operator new(std::size_t size)
{
    noteAllocation();
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define QX_COUNT_MALLOC 1
extern "C" {
void *__libc_malloc(std::size_t);
void *__libc_calloc(std::size_t, std::size_t);
void *__libc_realloc(void *, std::size_t);

void *malloc(std::size_t size)
{
    noteAllocation();
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size)
{
    noteAllocation();
    return __libc_calloc(count, size);
}

void *realloc(void *p, std::size_t size)
{
    noteAllocation();
    return __libc_realloc(p, size);
}
}
#endif

namespace {

QPointF pointOnCurve(const QPointF s[4], qreal t)
{
    const qreal u = 1 - t;
    return s[0] * (u * u * u) + s[1] * (3 * u * u * t) + s[2] * (3 * u * t * t) + s[3] * (t * t * t);
}

qreal speed(const QPointF s[4], qreal t)
{
    const qreal u = 1 - t;
    const QPointF d = (s[1] - s[0]) * (3 * u * u) + (s[2] - s[1]) * (6 * u * t) + (s[3] - s[2]) * (3 * t * t);
    return std::hypot(d.x(), d.y());
}

// Adaptive Simpson integration of the speed: a reference arc length that
// shares nothing with the library's polygon-and-chord estimate.
qreal simpson(const QPointF s[4], qreal a, qreal b, qreal fa, qreal fm, qreal fb, qreal whole, qreal tolerance, int depth)
{
    const qreal m = (a + b) / 2;
    const qreal lm = speed(s, (a + m) / 2);
    const qreal rm = speed(s, (m + b) / 2);
    const qreal left = (m - a) / 6 * (fa + 4 * lm + fm);
    const qreal right = (b - m) / 6 * (fm + 4 * rm + fb);
    if (depth <= 0 || std::fabs(left + right - whole) <= 15 * tolerance)
        return left + right + (left + right - whole) / 15;
    return simpson(s, a, m, fa, lm, fm, left, tolerance / 2, depth - 1)
        + simpson(s, m, b, fm, rm, fb, right, tolerance / 2, depth - 1);
}

qreal referenceLength(const QPointF s[4])
{
    qreal total = 0;
    // Sixteen pieces first, so that no cusp hides between the first samples.
    for (int i = 0; i < 16; ++i) {
        const qreal a = i / 16.0;
        const qreal b = (i + 1) / 16.0;
        const qreal fa = speed(s, a);
        const qreal fm = speed(s, (a + b) / 2);
        const qreal fb = speed(s, b);
        total += simpson(s, a, b, fa, fm, fb, (b - a) / 6 * (fa + 4 * fm + fb), 1e-12, 40);
    }
    return total;
}

bool samePoint(QPointF a, QPointF b)
{
    return a.x() == b.x() && a.y() == b.y();
}

bool closeTo(QPointF a, QPointF b, qreal tolerance)
{
    return std::hypot(a.x() - b.x(), a.y() - b.y()) <= tolerance;
}

} // namespace

class tst_QXMath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void constantsAndAngles();
    void subdivisionHalves();
    void subdivisionAtParameter();
    void lengthOfStraightSegments();
    void lengthRecursion();
    void lengthAccuracy();
    void lengthWithUnusableBounds();
    void bisectionOnT();
    void bisectionOnCurves();
    void segmentFunctionsDoNotAllocate();
};

void tst_QXMath::constantsAndAngles()
{
    QCOMPARE(kQXEllipseFactor, 0.55228474983079);
    QVERIFY(std::fabs(kQXEllipseFactor - 4 * (std::sqrt(2.0) - 1) / 3) < 5e-15);
    QCOMPARE(kQXPiBy180, 0.017453293);
    QCOMPARE(kQX180ByPi, 57.295779513);

    // The short factors, not π: 180° is 3.14159274.
    QCOMPARE(QXDegreesToRadians(180), 180 * 0.017453293);
    QVERIFY(std::fabs(QXDegreesToRadians(180) - 3.14159274) < 1e-12);
    QVERIFY(QXDegreesToRadians(180) != M_PI);
    QCOMPARE(QXRadiansToDegrees(1), 57.295779513);
    QCOMPARE(QXRadiansToDegrees(-2), -2 * 57.295779513);
    // There and back is close, but not exact.
    const qreal back = QXRadiansToDegrees(QXDegreesToRadians(90));
    QVERIFY(back != 90);
    QVERIFY(std::fabs(back - 90) < 1e-5);

    QCOMPARE(QXSwapWidthAndHeight(QSizeF(640, 480)), QSizeF(480, 640));
    QCOMPARE(QXSwapWidthAndHeight(QSizeF(-1, 0.5)), QSizeF(0.5, -1));

    QCOMPARE(QXDistanceBetweenPoints(QPointF(0, 0), QPointF(3, 4)), 5.0);
    QCOMPARE(QXDistanceBetweenPoints(QPointF(3, 4), QPointF(0, 0)), 5.0);
    QCOMPARE(QXDistanceBetweenPoints(QPointF(-1, -1), QPointF(-1, -1)), 0.0);
    QCOMPARE(QXDistanceBetweenPoints(QPointF(-2, 1), QPointF(1, -3)), 5.0);
}

void tst_QXMath::subdivisionHalves()
{
    const QPointF arch[4] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    QPointF left[4];
    QPointF right[4];
    QXSubdivideBezierPath(arch, left, right);
    const QPointF expectedLeft[4] = {{0, 0}, {0, 0.5}, {0.25, 0.75}, {0.5, 0.75}};
    const QPointF expectedRight[4] = {{0.5, 0.75}, {0.75, 0.75}, {1, 0.5}, {1, 0}};
    for (int i = 0; i < 4; ++i) {
        QVERIFY2(samePoint(left[i], expectedLeft[i]), qPrintable(QString::number(i)));
        QVERIFY2(samePoint(right[i], expectedRight[i]), qPrintable(QString::number(i)));
    }

    // On any segment the halves trace the original: left(u) = B(u/2), right(u) = B(1/2 + u/2).
    const QPointF s[4] = {{-3.5, 7}, {12, -4.25}, {2, 19}, {30, 1}};
    QXSubdivideBezierPath(s, left, right);
    for (const qreal u : {0.0, 0.2, 0.5, 0.9, 1.0}) {
        QVERIFY(closeTo(pointOnCurve(left, u), pointOnCurve(s, u / 2), 1e-12));
        QVERIFY(closeTo(pointOnCurve(right, u), pointOnCurve(s, 0.5 + u / 2), 1e-12));
    }
    QVERIFY(samePoint(left[3], right[0]));

    // The midpoint split is the general split at t = 0.5.
    QPointF leftAtT[4];
    QPointF rightAtT[4];
    QXSubdivideBezierPathAtT(s, leftAtT, rightAtT, 0.5);
    for (int i = 0; i < 4; ++i) {
        QVERIFY(closeTo(left[i], leftAtT[i], 1e-12));
        QVERIFY(closeTo(right[i], rightAtT[i], 1e-12));
    }
}

void tst_QXMath::subdivisionAtParameter()
{
    const QPointF s[4] = {{1, 2}, {4, 9}, {-6, 3}, {8, -5}};
    QPointF left[4];
    QPointF right[4];

    QXSubdivideBezierPathAtT(s, left, right, 0);
    for (int i = 0; i < 4; ++i) {
        QVERIFY(samePoint(left[i], s[0]));
        QVERIFY(samePoint(right[i], s[i]));
    }
    QXSubdivideBezierPathAtT(s, left, right, 1);
    for (int i = 0; i < 4; ++i) {
        QVERIFY(samePoint(left[i], s[i]));
        QVERIFY(samePoint(right[i], s[3]));
    }

    for (const qreal t : {0.3, 0.75}) {
        QXSubdivideBezierPathAtT(s, left, right, t);
        QVERIFY(samePoint(left[3], right[0]));
        QVERIFY(closeTo(left[3], pointOnCurve(s, t), 1e-12));
        for (const qreal u : {0.0, 0.25, 0.6, 1.0}) {
            QVERIFY(closeTo(pointOnCurve(left, u), pointOnCurve(s, t * u), 1e-12));
            QVERIFY(closeTo(pointOnCurve(right, u), pointOnCurve(s, t + (1 - t) * u), 1e-12));
        }
    }

    // t is not clamped: outside [0, 1] the curve is extrapolated.
    QXSubdivideBezierPathAtT(s, left, right, 2);
    QVERIFY(closeTo(left[3], pointOnCurve(s, 2), 1e-9));
    QVERIFY(closeTo(pointOnCurve(left, 0.25), pointOnCurve(s, 0.5), 1e-9));
    QXSubdivideBezierPathAtT(s, left, right, -0.5);
    QVERIFY(closeTo(right[0], pointOnCurve(s, -0.5), 1e-9));
}

void tst_QXMath::lengthOfStraightSegments()
{
    // Control points on the line: polygon and chord agree, so no subdivision
    // happens and the result is exact for every bound, 0 and below included.
    const QPointF straight[4] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}};
    for (const qreal bound : {10.0, 0.1, 1e-3, 1e-12, 0.0, -1.0})
        QCOMPARE(QXLengthOfBezierPath(straight, bound), 3.0);
    const QPointF diagonal[4] = {{0, 0}, {0.6, 0.8}, {1.8, 2.4}, {3, 4}};
    QCOMPARE(QXLengthOfBezierPath(diagonal, 0.1), 5.0);

    const QPointF point[4] = {{7, -2}, {7, -2}, {7, -2}, {7, -2}};
    for (const qreal bound : {0.1, 0.0, -5.0})
        QCOMPARE(QXLengthOfBezierPath(point, bound), 0.0);
}

void tst_QXMath::lengthRecursion()
{
    // Polygon 10, chord 6: at a bound of 4 the difference is not above the
    // bound and the mean, 8, is the answer; just below it the segment is split.
    const QPointF tent[4] = {{0, 0}, {3, 4}, {3, 4}, {6, 0}};
    QCOMPARE(QXLengthOfBezierPath(tent, 4), 8.0);
    QVERIFY(std::fabs(QXLengthOfBezierPath(tent, 3.999) - 8.0) > 0.5);

    // The arch: polygon 3 and chord 1 (difference 2); each half has polygon
    // 0.5 + √2/4 + 0.25 and chord √13/4 (difference 0.2021). With a bound of
    // 0.25 the whole is split once and each half stops, because both halves
    // get the caller's bound, not half of it.
    const QPointF arch[4] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    const qreal halfPolygon = 0.5 + std::sqrt(2.0) / 4 + 0.25;
    const qreal halfChord = std::sqrt(13.0) / 4;
    QCOMPARE(QXLengthOfBezierPath(arch, 2), 2.0);
    QVERIFY(std::fabs(QXLengthOfBezierPath(arch, 0.25) - (halfPolygon + halfChord)) < 1e-15);
    // A bound below the halves' difference splits them again.
    QVERIFY(std::fabs(QXLengthOfBezierPath(arch, 0.2) - (halfPolygon + halfChord)) > 1e-3);
}

void tst_QXMath::lengthAccuracy()
{
    // Seeded random segments, loops and cusps among them.
    std::mt19937_64 random(20240601);
    std::uniform_real_distribution<qreal> coordinate(-200, 200);
    for (int n = 0; n < 300; ++n) {
        QPointF s[4];
        for (QPointF &p : s)
            p = QPointF(coordinate(random), coordinate(random));
        const qreal reference = referenceLength(s);
        const qreal chord = QXDistanceBetweenPoints(s[0], s[3]);
        const qreal polygon = QXDistanceBetweenPoints(s[0], s[1]) + QXDistanceBetweenPoints(s[1], s[2])
            + QXDistanceBetweenPoints(s[2], s[3]);
        for (const qreal bound : {1.0, 0.1, 1e-3, 1e-6}) {
            const qreal length = QXLengthOfBezierPath(s, bound);
            QVERIFY(length >= chord - 1e-9 && length <= polygon + 1e-9);
            QVERIFY2(std::fabs(length - reference) <= bound,
                     qPrintable(QStringLiteral("segment %1, bound %2: %3 against %4").arg(n).arg(bound).arg(length, 0, 'g', 17).arg(reference, 0, 'g', 17)));
        }
    }
    // A quarter circle of radius 100 drawn with the ellipse factor is a hair
    // longer than the true quarter circle.
    const QPointF quarter[4] = {{100, 0}, {100, 100 * kQXEllipseFactor}, {100 * kQXEllipseFactor, 100}, {0, 100}};
    QVERIFY(std::fabs(QXLengthOfBezierPath(quarter, 1e-6) - referenceLength(quarter)) < 1e-6);
    QVERIFY(QXLengthOfBezierPath(quarter, 1e-6) > 50 * M_PI);
    QVERIFY(QXLengthOfBezierPath(quarter, 1e-6) < 50 * M_PI + 0.03);
}

void tst_QXMath::lengthWithUnusableBounds()
{
    // Bounds of 0 or less, or too small for double arithmetic, must not
    // subdivide without end; they give the most exact length available.
    const QPointF s[4] = {{0, 0}, {10, 40}, {60, -20}, {50, 30}};
    const qreal reference = referenceLength(s);
    for (const qreal bound : {0.0, -1.0, 1e-300, -std::numeric_limits<qreal>::infinity()})
        QVERIFY(std::fabs(QXLengthOfBezierPath(s, bound) - reference) < 1e-9);

    // The same far from the origin, where the coordinates' own rounding is larger.
    QPointF far[4];
    for (int i = 0; i < 4; ++i)
        far[i] = s[i] + QPointF(1e9, -1e9);
    QVERIFY(std::fabs(QXLengthOfBezierPath(far, 0) - reference) < 1e-3);

    // A cusp: the speed drops to zero halfway.
    const QPointF cusp[4] = {{0, 0}, {100, 100}, {0, 100}, {100, 0}};
    QVERIFY(std::fabs(QXLengthOfBezierPath(cusp, 0) - referenceLength(cusp)) < 1e-8);

    // A NaN bound stops at once: the mean of polygon and chord.
    QCOMPARE(QXLengthOfBezierPath(s, std::numeric_limits<qreal>::quiet_NaN()),
             (QXDistanceBetweenPoints(s[0], s[3]) + QXDistanceBetweenPoints(s[0], s[1])
              + QXDistanceBetweenPoints(s[1], s[2]) + QXDistanceBetweenPoints(s[2], s[3]))
                 * 0.5);

    // Coordinates that are not finite, or so large that sums overflow, are
    // measured without subdividing and do not hang.
    const qreal inf = std::numeric_limits<qreal>::infinity();
    const qreal nan = std::numeric_limits<qreal>::quiet_NaN();
    const qreal huge = std::numeric_limits<qreal>::max() / 2;
    const QPointF infinite[4] = {{0, 0}, {inf, 0}, {1, 1}, {2, 0}};
    const QPointF notANumber[4] = {{0, 0}, {1, nan}, {1, 1}, {2, 0}};
    const QPointF enormous[4] = {{-huge, 0}, {huge, huge}, {-huge, huge}, {huge, 0}};
    QVERIFY(!std::isfinite(QXLengthOfBezierPath(infinite, 0.1)));
    QVERIFY(std::isnan(QXLengthOfBezierPath(notANumber, 0)));
    QVERIFY(!std::isnan(QXLengthOfBezierPath(enormous, 0)));
}

void tst_QXMath::bisectionOnT()
{
    const QPointF straight[4] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}};
    QPointF left[4];
    QPointF right[4];

    // On this segment the length up to t is 3t, so the bisection goes
    // 0.5 (1.5), 0.25 (0.75), 0.375 (1.125), 0.3125, 0.34375, 0.328125 and
    // stops at 0.3359375, the first t within 0.01 of the target 1.
    QXSubdivideBezierPathAtLength(straight, left, right, 1, 0.01);
    QVERIFY(closeTo(left[3], QPointF(1, 0), 0.01));
    QCOMPARE(left[3], QPointF(3 * 0.3359375, 0));
    QVERIFY(samePoint(right[0], left[3]));
    QVERIFY(samePoint(left[0], straight[0]));
    QVERIFY(samePoint(right[3], straight[3]));

    // The first try may already be close enough.
    QXSubdivideBezierPathAtLength(straight, left, right, 1.5, 0.01);
    QCOMPARE(left[3], QPointF(1.5, 0));

    // A looser bound stops earlier: 0.25 (0.75) is within 0.3 of 1.
    QXSubdivideBezierPathAtLength(straight, left, right, 1, 0.3);
    QCOMPARE(left[3], QPointF(0.75, 0));

    // Beyond the end t creeps up to 1 until it no longer moves; below 0
    // it falls to exactly 0.
    QXSubdivideBezierPathAtLength(straight, left, right, 10, 0.01);
    QVERIFY(left[3].x() <= 3 && left[3].x() > 3 - 1e-12);
    QXSubdivideBezierPathAtLength(straight, left, right, -1, 0.01);
    for (int i = 0; i < 4; ++i) {
        QVERIFY(samePoint(left[i], straight[0]));
        QVERIFY(samePoint(right[i], straight[i]));
    }
    // With a bound of 0 the bisection runs until t stops moving.
    QXSubdivideBezierPathAtLength(straight, left, right, 1, 0);
    QVERIFY(std::fabs(left[3].x() - 1) < 1e-14);
    // A NaN length stops after the first try.
    QXSubdivideBezierPathAtLength(straight, left, right, std::numeric_limits<qreal>::quiet_NaN(), 0.01);
    QCOMPARE(left[3], QPointF(1.5, 0));
}

void tst_QXMath::bisectionOnCurves()
{
    std::mt19937_64 random(7);
    std::uniform_real_distribution<qreal> coordinate(0, 300);
    for (int n = 0; n < 50; ++n) {
        QPointF s[4];
        for (QPointF &p : s)
            p = QPointF(coordinate(random), coordinate(random));
        const qreal total = referenceLength(s);
        for (const qreal bound : {0.1, 1e-4}) {
            for (const qreal fraction : {0.1, 0.5, 0.93}) {
                const qreal target = total * fraction;
                QPointF left[4];
                QPointF right[4];
                QXSubdivideBezierPathAtLength(s, left, right, target, bound);
                QVERIFY(samePoint(left[3], right[0]));
                QVERIFY(samePoint(left[0], s[0]));
                QVERIFY(samePoint(right[3], s[3]));
                // The left piece's own length is the target within the bound
                // (plus the half bound it was measured with).
                QVERIFY2(std::fabs(referenceLength(left) - target) <= 1.5 * bound,
                         qPrintable(QStringLiteral("segment %1: %2 against %3").arg(n).arg(referenceLength(left)).arg(target)));
                QVERIFY(std::fabs(referenceLength(left) + referenceLength(right) - total) < 1e-6);
            }
        }
    }
}

void tst_QXMath::segmentFunctionsDoNotAllocate()
{
    const QPointF s[4] = {{0, 0}, {10, 400}, {600, -200}, {500, 300}};
    QPointF left[4];
    QPointF right[4];
    qreal sink = 0;

    // The counter works: operator new is seen, and so is a Qt container
    // (malloc) wherever malloc is counted.
    allocationCount = 0;
    countingAllocations = true;
    sink += std::make_unique<QPointF>(s[1])->x();
    countingAllocations = false;
    QVERIFY(allocationCount > 0);
#ifdef QX_COUNT_MALLOC
    allocationCount = 0;
    countingAllocations = true;
    {
        QList<QPointF> list;
        list.append(s[1]);
        sink += list.constFirst().x();
    }
    countingAllocations = false;
    QVERIFY(allocationCount > 0);
#endif

    allocationCount = 0;
    countingAllocations = true;
    QXSubdivideBezierPath(s, left, right);
    QXSubdivideBezierPathAtT(s, left, right, 0.3);
    sink += QXLengthOfBezierPath(s, 1e-9);
    sink += QXLengthOfBezierPath(s, 0);
    QXSubdivideBezierPathAtLength(s, left, right, 321, 1e-6);
    QXSubdivideBezierPathAtLength(s, left, right, 321, 0);
    countingAllocations = false;
    QCOMPARE(allocationCount.load(), 0);
    QVERIFY(sink > 0);
}

QTEST_GUILESS_MAIN(tst_QXMath)
#include "tst_qxmath.moc"
