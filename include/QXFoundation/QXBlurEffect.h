#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QColor>
#include <QImage>
#include <QRectF>
#include <QSizeF>

/*!
  A blur for frosted backgrounds behind panels: blurImage() turns an image
  into a small, blurred, optionally desaturated or oversaturated and tinted
  image, which the caller draws scaled up.

  A default-constructed effect has every parameter zero: no crop, the
  working size taken from the first image, no blur, saturation factor 0
  (grey) and no tint. The three factories give ready-made parameter sets.
  The effect is plain data; it is copyable and its only change during
  blurImage() is the defaulting of resize(). Use one object from one thread
  at a time while resize() is still zero.

  blurImage(), step by step:
  1. A null image, or one smaller than one point in either direction, is
     returned unchanged (the same shared image).
  2. A non-empty cropRect() cuts that part of the bitmap out first (pixels,
     origin at the top-left corner, widened to whole pixels and clipped to
     the bitmap); a rectangle that misses the bitmap, or is not finite,
     gives a null image.
  3. If resize() is (0, 0) it becomes the source's size in pixels and keeps
     that value, so a later call works with the first image's size.
  4. The working bitmap has resize() / 4 pixels in each direction (both
     truncated to whole numbers first); the source is resampled to it with
     an area-averaging filter (linear interpolation where it grows). A
     resize() with a negative or non-finite side, or one whose working size
     is zero in a direction or passes 4096 × 4096 pixels, leaves the image
     unchanged.
  5. With radius() above 2^-23, one box blur with a square kernel of
     floor(radius × 3 × √(2π) / 4 + 0.5) pixels, made odd by adding one where
     it is even (radius 40 gives 75, 50 gives 95), edges extended; kernels
     above 2047 pixels act as 2047. Its cost per pixel is the same for any
     kernel size.
  6. With |saturationDeltaFactor() − 1| above 2^-23, a colour matrix that
     mixes each pixel with its luminance (Rec. 709 weights) by the factor,
     in 8.8 fixed point, results clamped to 0–255 and to the pixel's alpha.
  7. The result starts as the processed bitmap; if it was blurred, the
     processed bitmap is drawn over it once more, clipped to maskImage()
     when one is set (stretched to the whole result, its rows in reverse
     order, so its top row lies over the result's bottom row). Last, a valid
     tintColor() is laid over the whole result (source-over).
  The result is a Format_ARGB32_Premultiplied image of the working size,
  device pixel ratio 1. The input is never changed.
*/
class QXFOUNDATION_EXPORT QXBlurEffect
{
public:
    QXBlurEffect() = default;

    // Radius 40, no tint, saturation factor 1.
    static QXBlurEffect blurEffect();
    // Radius 40, white 0.8 at alpha 0.2 laid over, saturation factor 1.8.
    static QXBlurEffect lightBlurEffect();
    // Radius 50, black at alpha 0.5 laid over, saturation factor 3.
    static QXBlurEffect darkBlurEffect();

    // Blur radius in working pixels; no blur at or below 2^-23 (or NaN).
    double radius() const { return m_radius; }
    void setRadius(double radius) { m_radius = radius; }

    // Laid over the result; an invalid QColor (the default) lays nothing.
    QColor tintColor() const { return m_tintColor; }
    void setTintColor(const QColor &color) { m_tintColor = color; }

    // 1 keeps the colours, 0 makes them grey, above 1 strengthens them. NaN
    // changes nothing; matrix entries beyond the 16-bit range are clamped.
    double saturationDeltaFactor() const { return m_saturationDeltaFactor; }
    void setSaturationDeltaFactor(double factor) { m_saturationDeltaFactor = factor; }

    /*!
      Clip mask for the second drawing of a blurred result; a null image
      (the default) means no mask. Any size is accepted: it is stretched to
      the result. Where the mask has an alpha channel its alpha is the
      coverage; an opaque mask (no alpha channel) covers by its grey level,
      white fully and black not at all.
    */
    QImage maskImage() const { return m_maskImage; }
    void setMaskImage(const QImage &mask) { m_maskImage = mask; }

    // Size the working size is derived from (a quarter of it); (0, 0)
    // means the first source's pixel size.
    QSizeF resize() const { return m_resize; }
    void setResize(QSizeF size) { m_resize = size; }

    // Part of the source bitmap to keep, in its pixels; an empty rectangle
    // (zero width or height) keeps all of it.
    QRectF cropRect() const { return m_cropRect; }
    void setCropRect(const QRectF &rect) { m_cropRect = rect; }

    // The processed image (see the class description); may set resize().
    QImage blurImage(const QImage &image);

private:
    double m_radius = 0.0;
    QColor m_tintColor;
    double m_saturationDeltaFactor = 0.0;
    QImage m_maskImage;
    QSizeF m_resize = QSizeF(0, 0);
    QRectF m_cropRect;
};
