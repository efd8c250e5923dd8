#include <QXFoundation/QXImage.h>
#include <QXFoundation/QXMath.h>

#include "imaging/QXImaging_p.h"

#include <QPainter>
#include <QTransform>

#include <algorithm>
#include <cmath>

namespace {

qreal ratioOf(const QImage &image)
{
    const qreal ratio = image.devicePixelRatio();
    return std::isfinite(ratio) && ratio > 0 ? ratio : 1.0;
}

QSizeF pointSizeOf(const QImage &image)
{
    return QSizeF(image.size()) / ratioOf(image);
}

/*
  Draws the part `source` (in the image's pixels) of the image into `target`
  (painter coordinates, in points on a canvas of `canvasRatio` pixels per
  point). QPainter's smooth transform is bilinear, which skips source pixels
  when it shrinks by more than half; a reduction is therefore done first,
  on the whole image, with QImage's area-averaging scaler, whose result is
  never larger than the image itself. Coordinates stay within the image and
  the canvas, well inside the range of QPainter's fixed-point raster.
*/
void drawScaled(QPainter &painter, const QRectF &target, const QImage &image, const QRectF &source, qreal canvasRatio)
{
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const double xFactor = target.width() * canvasRatio / source.width();
    const double yFactor = target.height() * canvasRatio / source.height();
    if (xFactor < 1.0 || yFactor < 1.0) {
        const QSize reduced(std::clamp(int(std::lround(image.width() * std::min(xFactor, 1.0))), 1, image.width()),
                            std::clamp(int(std::lround(image.height() * std::min(yFactor, 1.0))), 1, image.height()));
        if (reduced != image.size()) {
            const double sx = double(reduced.width()) / image.width();
            const double sy = double(reduced.height()) / image.height();
            painter.drawImage(target, image.scaled(reduced, Qt::IgnoreAspectRatio, Qt::SmoothTransformation),
                              QRectF(source.x() * sx, source.y() * sy, source.width() * sx, source.height() * sy));
            return;
        }
    }
    painter.drawImage(target, image, source);
}

} // namespace

QImage qx_imageWithCGImage(const QImage &bitmap)
{
    QImage image = bitmap;
    if (!image.isNull() && image.devicePixelRatio() != 1.0)
        image.setDevicePixelRatio(1.0);
    return image;
}

QImage qx_imageByScalingToSize(const QImage &image, QSizeF size, QXImageScalingMode mode)
{
    switch (mode) {
    case QXImageScalingModeFit: return qx_imageByScalingToFitSize(image, size);
    case QXImageScalingModeAspectFill: return qx_imageByScalingToAspectFillSize(image, size);
    default: return qx_imageByScalingToFillSize(image, size);
    }
}

QImage qx_imageByScalingToFillSize(const QImage &image, QSizeF size)
{
    if (image.isNull())
        return QImage();
    const qreal ratio = ratioOf(image);
    QImage result = QXImaging::transparentImage(QXImaging::pixelSize(size, ratio), ratio);
    if (result.isNull())
        return result;
    QPainter painter(&result);
    drawScaled(painter, QRectF(QPointF(0, 0), result.deviceIndependentSize()), image, QRectF(image.rect()), ratio);
    return result;
}

QImage qx_imageByScalingToFitSize(const QImage &image, QSizeF size)
{
    if (image.isNull())
        return QImage();
    const qreal ratio = ratioOf(image);
    QImage result = QXImaging::transparentImage(QXImaging::pixelSize(size, ratio), ratio);
    if (result.isNull())
        return result;
    const QSizeF source = pointSizeOf(image);
    QRectF drawn(QPointF(0, 0), size);
    // Exact comparison on purpose: QSizeF's operator== is fuzzy.
    if (source.width() != size.width() || source.height() != size.height()) {
        const double widthFactor = size.width() / source.width();
        const double heightFactor = size.height() / source.height();
        const double factor = std::min(widthFactor, heightFactor);
        drawn.setSize(QSizeF(source.width() * factor, source.height() * factor));
        if (heightFactor > widthFactor)
            drawn.moveTop((size.height() - drawn.height()) * 0.5);
        else if (widthFactor > heightFactor)
            drawn.moveLeft((size.width() - drawn.width()) * 0.5);
    }
    QPainter painter(&result);
    drawScaled(painter, drawn, image, QRectF(image.rect()), ratio);
    return result;
}

QImage qx_imageByScalingToAspectFillSize(const QImage &image, QSizeF size)
{
    if (image.isNull() || !QXImaging::pixelSize(size, ratioOf(image)).isValid())
        return QImage();
    const qreal ratio = ratioOf(image);
    const QSizeF source = pointSizeOf(image);
    const double widthFactor = size.width() / source.width();
    const double heightFactor = size.height() / source.height();
    const QSizeF scaled = heightFactor > widthFactor
        ? QSizeF(source.width() * size.height() / source.height(), size.height())
        : QSizeF(size.width(), source.height() * size.width() / source.width());
    if (std::trunc(scaled.width()) == std::trunc(size.width()) && std::trunc(scaled.height()) == std::trunc(size.height()))
        return qx_imageByScalingToFillSize(image, scaled);

    // The crop of the scaled image, in points as the scaled image would
    // have them, then in its pixels. The differences go through single
    // precision before the floor, as the original computation did.
    const double x = std::floor(float(scaled.width() * 0.5 - size.width() * 0.5));
    const double y = std::floor(float(scaled.height() * 0.5 - size.height() * 0.5));
    const double scaledWidth = std::round(scaled.width() * ratio);
    const double scaledHeight = std::round(scaled.height() * ratio);
    const double left = std::max(std::floor(x * ratio), 0.0);
    const double top = std::max(std::floor(y * ratio), 0.0);
    const double right = std::min(std::ceil((x + size.width()) * ratio), scaledWidth);
    const double bottom = std::min(std::ceil((y + size.height()) * ratio), scaledHeight);
    if (!(right - left >= 1.0) || !(bottom - top >= 1.0) || right - left > QXImaging::kMaximumSide
        || bottom - top > QXImaging::kMaximumSide)
        return QImage();
    QImage result = QXImaging::transparentImage(QSize(int(right - left), int(bottom - top)), ratio);
    if (result.isNull())
        return result;
    // Rendering only the kept part of the source is the same as scaling it
    // all and cutting afterwards.
    const double xScale = image.width() / scaledWidth;
    const double yScale = image.height() / scaledHeight;
    QPainter painter(&result);
    drawScaled(painter, QRectF(QPointF(0, 0), result.deviceIndependentSize()), image,
               QRectF(left * xScale, top * yScale, (right - left) * xScale, (bottom - top) * yScale), ratio);
    return result;
}

QImage qx_imageByRotatingInDegrees(const QImage &image, double degrees)
{
    if (image.isNull() || !std::isfinite(degrees))
        return QImage();
    // Within [0, 360) QTransform turns the right angles exactly.
    double angle = std::fmod(degrees, 360.0);
    if (angle < 0)
        angle += 360.0;
    if (angle >= 360.0)
        angle = 0.0;
    QTransform rotation;
    rotation.rotate(angle);
    const qreal ratio = ratioOf(image);
    const QSizeF source = pointSizeOf(image);
    const QSizeF bounds = rotation.mapRect(QRectF(QPointF(0, 0), source)).size();
    QImage result = QXImaging::transparentImage(QXImaging::pixelSize(bounds, ratio), ratio);
    if (result.isNull())
        return result;
    // About the centre of the whole pixels the result has, so that the
    // picture stays centred when its bounds were rounded.
    const QSizeF canvas = result.deviceIndependentSize();
    QPainter painter(&result);
    painter.setRenderHints(QPainter::SmoothPixmapTransform | QPainter::Antialiasing);
    painter.translate(canvas.width() * 0.5, canvas.height() * 0.5);
    painter.rotate(angle);
    painter.translate(-source.width() * 0.5, -source.height() * 0.5);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(QRectF(QPointF(0, 0), source), image);
    return result;
}

QImage qx_imageByRotatingInRadians(const QImage &image, double radians)
{
    return qx_imageByRotatingInDegrees(image, QXRadiansToDegrees(radians));
}

QImage qx_imageByCroppingToRect(const QImage &image, const QRectF &rect)
{
    if (image.isNull() || !std::isfinite(rect.x()) || !std::isfinite(rect.y()) || !std::isfinite(rect.width())
        || !std::isfinite(rect.height()))
        return QImage();
    const QRectF area = rect.normalized();
    if (area.width() <= 0 || area.height() <= 0)
        return QImage();
    const double left = std::max(std::floor(area.left()), 0.0);
    const double top = std::max(std::floor(area.top()), 0.0);
    const double right = std::min(std::ceil(area.right()), double(image.width()));
    const double bottom = std::min(std::ceil(area.bottom()), double(image.height()));
    if (right <= left || bottom <= top)
        return QImage();
    QImage result = image.copy(QRect(int(left), int(top), int(right - left), int(bottom - top)));
    result.setDevicePixelRatio(1.0);
    return result;
}
