#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QImage>

#include <array>

/*
  The library's own pixel kernels, on 32-bit premultiplied pixels whose
  bytes lie in memory in the order blue, green, red, alpha
  (QImage::Format_ARGB32_Premultiplied on a little-endian machine; an
  opaque Format_RGB32 buffer has the same bytes and may be read as well).

  Internal: exported only for the test suites and the benchmarks.
*/
namespace QXPixelKernels {

struct ConstBitmap
{
    const uchar *bits = nullptr;
    qsizetype bytesPerLine = 0;
    int width = 0;
    int height = 0;
};

struct Bitmap
{
    uchar *bits = nullptr;
    qsizetype bytesPerLine = 0;
    int width = 0;
    int height = 0;

    operator ConstBitmap() const { return {bits, bytesPerLine, width, height}; }
};

// Views of a QImage in one of the two formats above (the caller checks the format).
inline ConstBitmap constBitmap(const QImage &image)
{
    return {image.constBits(), image.bytesPerLine(), image.width(), image.height()};
}
inline Bitmap bitmap(QImage &image)
{
    return {image.bits(), image.bytesPerLine(), image.width(), image.height()};
}

// Larger kernels are clamped to this size. It keeps every window sum of a
// channel (at most 255 × size²) within 31 bits, which the exact integer
// division below relies on.
constexpr int kMaximumBoxKernelSize = 2047;

/*
  Box convolution: every channel of every destination pixel is the average
  of the size × size source pixels centred on it, rounded to the nearest
  integer; pixels outside the bitmap repeat the nearest edge pixel. An even
  size is taken as the next odd one; sizes below 1 as 1 (a copy), above
  kMaximumBoxKernelSize as that maximum. Source and destination have the
  same dimensions and must not overlap.

  The cost per pixel does not depend on the kernel size: the vertical sums
  of a row are updated from the previous row's (one row enters, one
  leaves), and each output row slides a running sum along them. No
  intermediate bitmap is allocated, only one row of column sums.
*/
QXFOUNDATION_EXPORT void boxConvolve(ConstBitmap source, Bitmap destination, int kernelSize);

/*
  Colour matrix: `matrix` has one row per input channel and one column per
  output channel, both in memory order (blue, green, red, alpha). Each output
  channel is the sum of input × entry, divided by `divisor` (rounded to
  the nearest integer, halves away from zero) and clamped to 0–255; the
  colour channels are then clamped to the output alpha, so that the result
  stays a valid premultiplied pixel. A divisor below 1 is taken as 1. Source
  and destination have the same dimensions; they may be the same buffer.
*/
QXFOUNDATION_EXPORT void matrixMultiply(ConstBitmap source, Bitmap destination, const std::array<qint16, 16> &matrix,
                                        int divisor);

/*
  Resamples the source to the destination's dimensions, each axis
  separately: a reduction averages the source pixels under each destination
  pixel weighted by the area they cover (a box filter, so no source pixel
  is skipped however large the reduction); an enlargement interpolates
  linearly between the two nearest source pixel centres, edges repeated.
  Equal sizes copy the pixels exactly. Weights are 14-bit fixed point.
*/
QXFOUNDATION_EXPORT void scale(ConstBitmap source, Bitmap destination);

// Whether the kernels use their AVX2 code: on a processor that has it,
// unless QX_PIXEL_KERNELS=generic is in the environment at the first call.
QXFOUNDATION_EXPORT bool usesAvx2();

} // namespace QXPixelKernels
