#include <QXFoundation/QXScalableImage.h>

#include "imaging/QXImaging_p.h"

#include <QFileInfo>

#include <cmath>

namespace {

QImage imageNamed(const QString &name)
{
    if (name.isEmpty())
        return QImage();
    QStringList candidates{name};
    if (!name.startsWith(QLatin1Char(':')))
        candidates.append(QStringLiteral(":/") + name);
    if (QFileInfo(name).suffix().isEmpty()) {
        for (qsizetype i = 0, count = candidates.size(); i < count; ++i)
            candidates.append(candidates.at(i) + QStringLiteral(".png"));
    }
    for (const QString &candidate : std::as_const(candidates)) {
        if (!QFileInfo(candidate).isFile())
            continue;
        const QImage image(candidate);
        if (!image.isNull())
            return image;
    }
    return QImage();
}

// The part of `image` at `x` (points, may lie partly outside) of `width`
// points, as tall as the image; a null image when the width is not positive.
QImage piece(const QImage &image, qreal x, qreal width)
{
    const qreal ratio = image.devicePixelRatio();
    const QSizeF points = image.deviceIndependentSize();
    if (!(width > 0))
        return QImage();
    QImage result = QXImaging::transparentImage(QXImaging::pixelSize(QSizeF(width, points.height()), ratio), ratio);
    if (result.isNull())
        return result;
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(QRectF(QPointF(0, 0), QSizeF(width, points.height())), image,
                      QRectF(x * ratio, 0, width * ratio, image.height()));
    return result;
}

} // namespace

QXScalableImage::~QXScalableImage() = default;

std::unique_ptr<QXThreePartImage> QXScalableImage::scaleableImageWithLeftImage(const QImage &leftImage,
                                                                               const QImage &centerImage,
                                                                               const QImage &rightImage)
{
    return std::make_unique<QXThreePartImage>(leftImage, centerImage, rightImage);
}

std::unique_ptr<QXThreePartImage> QXScalableImage::scaleableImageWithLeftImageNamed(const QString &leftName,
                                                                                    const QString &centerName,
                                                                                    const QString &rightName)
{
    return scaleableImageWithLeftImage(imageNamed(leftName), imageNamed(centerName), imageNamed(rightName));
}

std::unique_ptr<QXThreePartImage> QXScalableImage::scaleableImageWithImage(const QImage &image, qreal leftCapWidth,
                                                                           qreal rightCapWidth)
{
    if (image.isNull())
        return scaleableImageWithLeftImage(QImage(), QImage(), QImage());
    const qreal width = image.deviceIndependentSize().width();
    const qreal centerWidth = width - (leftCapWidth + rightCapWidth);
    return scaleableImageWithLeftImage(piece(image, 0, leftCapWidth), piece(image, leftCapWidth, centerWidth),
                                       piece(image, width - rightCapWidth, rightCapWidth));
}

void QXScalableImage::drawInRect(QPainter &painter, const QRectF &rect) const
{
    Q_UNUSED(painter);
    Q_UNUSED(rect);
}

void QXScalableImage::drawInRect(QPainter &painter, const QRectF &rect, QPainter::CompositionMode operation,
                                 qreal fraction, bool flipped) const
{
    Q_UNUSED(painter);
    Q_UNUSED(rect);
    Q_UNUSED(operation);
    Q_UNUSED(fraction);
    Q_UNUSED(flipped);
}

QImage QXScalableImage::scaledImageWithSize(QSizeF size) const
{
    if (!(size.width() > 0))
        return QImage();
    QImage image = QXImaging::transparentImage(QXImaging::pixelSize(size, 1.0));
    if (image.isNull())
        return image;
    QPainter painter(&image);
    drawInRect(painter, QRectF(QPointF(0, 0), size));
    return image;
}
