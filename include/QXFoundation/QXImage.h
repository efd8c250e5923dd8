#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QImage>
#include <QRectF>
#include <QSizeF>

/*!
  Image transforms: wrapping a bitmap, scaling by one of three modes,
  rotation and cropping.

  Every function returns a new image and leaves its argument alone. Sizes
  are in points, an image's deviceIndependentSize() (its pixels divided by
  its devicePixelRatio()); cropping alone works in the bitmap's pixels.
  "Invalid" means a null QImage, and every function returns a null QImage
  for it.

  Results are Format_ARGB32_Premultiplied images with the argument's device
  pixel ratio, unless a function says otherwise. A size in points becomes
  whole pixels by rounding each side to the nearest pixel. No result is
  made with a side above 32767 pixels or with more than 2^28 pixels in all;
  a size beyond that, or one that is not finite or rounds to less than one
  pixel, gives a null image instead, so that no bad argument can ask for
  an absurd amount of memory.
*/

// The mode argument of qx_imageByScalingToSize(). Every value other than
// Fit and AspectFill behaves as Fill.
enum QXImageScalingMode : int {
    QXImageScalingModeFill = 0,
    QXImageScalingModeFit = 1,
    QXImageScalingModeAspectFill = 2,
};

/*!
  The bitmap as an image whose size in points equals its size in pixels: a
  shallow copy with a device pixel ratio of 1.
*/
QXFOUNDATION_EXPORT QImage qx_imageWithCGImage(const QImage &bitmap);

// The result of the scaling function `mode` selects.
QXFOUNDATION_EXPORT QImage qx_imageByScalingToSize(const QImage &image, QSizeF size, QXImageScalingMode mode);

/*!
  The whole image stretched to exactly `size`, aspect ratio not kept. It
  covers every pixel of the result.
*/
QXFOUNDATION_EXPORT QImage qx_imageByScalingToFillSize(const QImage &image, QSizeF size);

/*!
  An image of exactly `size` with the whole image drawn inside it, aspect
  ratio kept and centred along the axis with room to spare (an image of
  that very size is drawn unscaled at the origin); the margins are
  transparent. The drawing rectangle is not rounded to whole points.
*/
QXFOUNDATION_EXPORT QImage qx_imageByScalingToFitSize(const QImage &image, QSizeF size);

/*!
  An image of `size` covered completely by the image, aspect ratio kept and
  the overflow cut away symmetrically. The image is scaled until it covers
  `size` in both directions; when the scaled size, truncated to whole
  points, equals `size` truncated the same way, that scaled image is the
  result (251 × 250 into 100 × 100 gives 100.4 × 100, rounded to 100 × 100
  pixels). Otherwise the result is the part of it at
  (floor(scaled width / 2 − width / 2), floor(scaled height / 2 − height / 2))
  of `size`, computed in points and cut at the image's pixel ratio. Only
  the part that is kept is ever rendered, so an extreme target such as
  10000 × 1 needs no intermediate image of the full scaled size.
*/
QXFOUNDATION_EXPORT QImage qx_imageByScalingToAspectFillSize(const QImage &image, QSizeF size);

/*!
  The whole image rotated about its centre by `degrees`; a positive angle
  turns it clockwise. The result is just large enough for the turned
  picture (the bounds of the turned rectangle: 90° turns 200 × 100 into
  100 × 200, 45° gives sides of (w + h) / √2); the corners outside the
  picture are transparent. The rotation is rendered at once into a new
  bitmap: later changes to the argument, which Qt shares by copy-on-write
  anyway, cannot reach it. A non-finite angle gives a null image.
*/
QXFOUNDATION_EXPORT QImage qx_imageByRotatingInDegrees(const QImage &image, double degrees);

// qx_imageByRotatingInDegrees() with the angle converted by QXRadiansToDegrees().
QXFOUNDATION_EXPORT QImage qx_imageByRotatingInRadians(const QImage &image, double radians);

/*!
  The pixels of the image inside `rect`, which is in the bitmap's pixels with
  its origin at the top-left corner. The rectangle is first normalised
  (negative sizes flipped), then widened to whole pixels (origin rounded
  down, far edges up) and clipped to the bitmap. The result keeps the
  image's pixel format and has a device pixel ratio of 1, as
  qx_imageWithCGImage() gives. A rectangle that is empty, not finite, or
  does not meet the bitmap gives a null image.
*/
QXFOUNDATION_EXPORT QImage qx_imageByCroppingToRect(const QImage &image, const QRectF &rect);
