// Arc length of random cubic segments: QXLengthOfBezierPath at two error
// bounds against QPainterPath::length() of the same segments, both measured
// against an adaptive Gauss-Legendre integration of the curve's speed.

#include <QXFoundation/QXMath.h>

#include "QxBench.h"

#include <QPainterPath>

#include <array>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr int kSegments = 100000;
constexpr double kExtent = 512;

using Segment = std::array<QPointF, 4>;

// Nodes and weights of the n-point Gauss-Legendre rule on [-1, 1], by Newton
// iteration on the Legendre polynomial in long double.
struct GaussLegendre
{
    std::vector<double> nodes;
    std::vector<double> weights;

    explicit GaussLegendre(int n)
    {
        for (int i = 1; i <= n; ++i) {
            long double x = std::cos(M_PIl * (i - 0.25L) / (n + 0.5L));
            long double derivative = 0;
            for (int iteration = 0; iteration < 100; ++iteration) {
                long double p0 = 1;
                long double p1 = x;
                for (int k = 2; k <= n; ++k) {
                    const long double p2 = ((2 * k - 1) * x * p1 - (k - 1) * p0) / k;
                    p0 = p1;
                    p1 = p2;
                }
                derivative = n * (x * p1 - p0) / (x * x - 1);
                const long double step = p1 / derivative;
                x -= step;
                if (std::fabs(step) < 1e-19L)
                    break;
            }
            nodes.push_back(double(x));
            weights.push_back(double(2 / ((1 - x * x) * derivative * derivative)));
        }
    }
};

double speed(const Segment &s, double t)
{
    const double u = 1 - t;
    const double dx = 3 * (u * u * (s[1].x() - s[0].x()) + 2 * u * t * (s[2].x() - s[1].x()) + t * t * (s[3].x() - s[2].x()));
    const double dy = 3 * (u * u * (s[1].y() - s[0].y()) + 2 * u * t * (s[2].y() - s[1].y()) + t * t * (s[3].y() - s[2].y()));
    return std::sqrt(dx * dx + dy * dy);
}

double rule(const GaussLegendre &gl, const Segment &s, double a, double b)
{
    const double half = (b - a) / 2;
    const double middle = (a + b) / 2;
    double sum = 0;
    for (size_t i = 0; i < gl.nodes.size(); ++i)
        sum += gl.weights[i] * speed(s, middle + half * gl.nodes[i]);
    return sum * half;
}

// Halves an interval until the rule on it agrees with the sum over its
// halves to within the tolerance; the speed has kinks only at cusps, where
// the halving goes deep.
double adaptive(const GaussLegendre &gl, const Segment &s, double a, double b, double whole, double tolerance, int depth)
{
    const double m = (a + b) / 2;
    const double left = rule(gl, s, a, m);
    const double right = rule(gl, s, m, b);
    if (depth == 0 || std::fabs(left + right - whole) <= tolerance)
        return left + right;
    return adaptive(gl, s, a, m, left, tolerance / 2, depth - 1) + adaptive(gl, s, m, b, right, tolerance / 2, depth - 1);
}

double referenceLength(const GaussLegendre &gl, const Segment &s)
{
    double total = 0;
    for (int i = 0; i < 8; ++i) {
        const double a = i / 8.0;
        const double b = (i + 1) / 8.0;
        total += adaptive(gl, s, a, b, rule(gl, s, a, b), 1e-11, 50);
    }
    return total;
}

struct Accuracy
{
    double maxError = 0;
    double maxErrorOverBound = 0;
    int overBound = 0;
};

template<typename Length>
Accuracy accuracy(const std::vector<Segment> &segments, const std::vector<double> &reference, double bound, Length length)
{
    Accuracy result;
    for (size_t i = 0; i < segments.size(); ++i) {
        const double error = std::fabs(length(i) - reference[i]);
        result.maxError = std::max(result.maxError, error);
        if (bound > 0) {
            result.maxErrorOverBound = std::max(result.maxErrorOverBound, error / bound);
            result.overBound += error > bound ? 1 : 0;
        }
    }
    return result;
}

} // namespace

int main()
{
    std::mt19937_64 random(4242);
    std::uniform_real_distribution<double> coordinate(0, kExtent);
    std::vector<Segment> segments(kSegments);
    for (Segment &s : segments)
        for (QPointF &p : s)
            p = QPointF(coordinate(random), coordinate(random));

    std::vector<QPainterPath> painterPaths(kSegments);
    for (int i = 0; i < kSegments; ++i) {
        painterPaths[i].moveTo(segments[i][0]);
        painterPaths[i].cubicTo(segments[i][1], segments[i][2], segments[i][3]);
    }

    const GaussLegendre gl16(16);
    const GaussLegendre gl24(24);
    std::vector<double> reference(kSegments);
    double referenceAgreement = 0;
    const double referenceSeconds = QxBench::bestOf(1, [&] {
        for (int i = 0; i < kSegments; ++i)
            reference[i] = referenceLength(gl16, segments[i]);
    });
    for (int i = 0; i < kSegments; ++i)
        referenceAgreement = std::max(referenceAgreement, std::fabs(reference[i] - referenceLength(gl24, segments[i])));

    auto libraryTime = [&](double bound) {
        return QxBench::bestOf(5, [&] {
            double sum = 0;
            for (const Segment &s : segments)
                sum += QXLengthOfBezierPath(s.data(), bound);
            QxBench::keep(sum);
        });
    };
    const double library01 = libraryTime(0.1);
    const double library0001 = libraryTime(1e-3);
    const double painter = QxBench::bestOf(5, [&] {
        double sum = 0;
        for (const QPainterPath &path : painterPaths)
            sum += path.length();
        QxBench::keep(sum);
    });

    const Accuracy acc01 = accuracy(segments, reference, 0.1, [&](size_t i) { return QXLengthOfBezierPath(segments[i].data(), 0.1); });
    const Accuracy acc0001 = accuracy(segments, reference, 1e-3, [&](size_t i) { return QXLengthOfBezierPath(segments[i].data(), 1e-3); });
    const Accuracy accPainter = accuracy(segments, reference, 0.1, [&](size_t i) { return painterPaths[i].length(); });

    double meanLength = 0;
    for (double length : reference)
        meanLength += length / kSegments;

    const auto ns = [](double seconds) { return seconds / kSegments * 1e9; };
    std::printf("Arc length of %d random cubic segments (points uniform in [0, %g]², mean length %.1f), one thread\n",
                kSegments, kExtent, meanLength);
    std::printf("%-40s %11s %12s %15s %20s\n", "method", "ns/segment", "max |error|", "error / bound", "segments over bound");
    std::printf("%-40s %11.1f %12.3g %15.3f %9d of %d\n", "QXLengthOfBezierPath, bound 0.1", ns(library01),
                acc01.maxError, acc01.maxErrorOverBound, acc01.overBound, kSegments);
    std::printf("%-40s %11.1f %12.3g %15.3f %9d of %d\n", "QXLengthOfBezierPath, bound 1e-3", ns(library0001),
                acc0001.maxError, acc0001.maxErrorOverBound, acc0001.overBound, kSegments);
    std::printf("%-40s %11.1f %12.3g %15.3f %9d of %d\n", "QPainterPath::length() (against 0.1)", ns(painter),
                accPainter.maxError, accPainter.maxErrorOverBound, accPainter.overBound, kSegments);
    std::printf("%-40s %11.1f %12s\n", "reference: adaptive Gauss-Legendre 16", ns(referenceSeconds), "-");
    std::printf("\n");
    std::printf("reference check: adaptive 16-point and 24-point rules differ by at most %.3g\n", referenceAgreement);
    std::printf("QXLengthOfBezierPath at 0.1 is %.2fx the speed of QPainterPath::length(); at 1e-3 %.2fx\n",
                painter / library01, painter / library0001);
    return 0;
}
