#pragma once

#include <QXFoundation/QXGlobal.h>

#include <array>

// The blur effect's arithmetic, separate so that the suites can check it.
namespace QXBlurEffectPrivate {

// 2^-23: radius and saturation changes at or below it do nothing.
constexpr double kThreshold = 1.1920928955078125e-07;
// √(2π), as the kernel size rule writes it.
constexpr double kSquareRootOfTwoPi = 2.5066282746310002;
constexpr int kSaturationDivisor = 256;
constexpr int kWorkingSizeDivisor = 4;
// The working bitmap's largest side (a resize of 16384 pixels).
constexpr int kMaximumWorkingSide = 4096;

// floor(radius × 3 × √(2π) × 0.25 + 0.5), odd; clamped to 1 ... 2047.
QXFOUNDATION_EXPORT int boxKernelSize(double radius);

// The saturation matrix for factor s in memory channel order (rows are input
// channels, columns output channels), × 256 and rounded half away from zero,
// clamped to the 16-bit range.
QXFOUNDATION_EXPORT std::array<qint16, 16> saturationMatrix(double s);

} // namespace QXBlurEffectPrivate
