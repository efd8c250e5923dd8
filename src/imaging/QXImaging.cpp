#include "imaging/QXImaging_p.h"

#include <cmath>

namespace QXImaging {

bool withinLimits(QSize pixels)
{
    return pixels.width() >= 1 && pixels.height() >= 1 && pixels.width() <= kMaximumSide
        && pixels.height() <= kMaximumSide && qint64(pixels.width()) * pixels.height() <= kMaximumPixels;
}

QSize pixelSize(QSizeF points, qreal devicePixelRatio)
{
    const double width = points.width() * devicePixelRatio;
    const double height = points.height() * devicePixelRatio;
    if (!std::isfinite(width) || !std::isfinite(height) || width < 0.5 || height < 0.5 || width >= kMaximumSide + 0.5
        || height >= kMaximumSide + 0.5)
        return QSize();
    const QSize pixels(int(std::lround(width)), int(std::lround(height)));
    return withinLimits(pixels) ? pixels : QSize();
}

QImage transparentImage(QSize pixels, qreal devicePixelRatio)
{
    if (!withinLimits(pixels))
        return QImage();
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

} // namespace QXImaging
