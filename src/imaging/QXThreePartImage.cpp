#include <QXFoundation/QXThreePartImage.h>

#include <cmath>

namespace {

qreal widthOf(const QImage &image)
{
    return image.isNull() ? 0.0 : image.deviceIndependentSize().width();
}

void drawPiece(QPainter &painter, const QImage &image, const QRectF &target, bool flipped)
{
    if (image.isNull() || !(target.width() > 0) || !(target.height() > 0))
        return;
    if (!flipped) {
        painter.drawImage(target, image);
        return;
    }
    painter.save();
    painter.translate(0, target.top() + target.bottom());
    painter.scale(1, -1);
    painter.drawImage(target, image);
    painter.restore();
}

} // namespace

QXThreePartImage::QXThreePartImage(const QImage &leftImage, const QImage &centerImage, const QImage &rightImage)
    : m_leftImage(leftImage)
    , m_centerImage(centerImage)
    , m_rightImage(rightImage)
{
}

void QXThreePartImage::drawInRect(QPainter &painter, const QRectF &rect) const
{
    drawInRect(painter, rect, QPainter::CompositionMode_SourceOver, 1.0, false);
}

void QXThreePartImage::drawInRect(QPainter &painter, const QRectF &rect, QPainter::CompositionMode operation,
                                  qreal fraction, bool flipped) const
{
    if (!painter.isActive() || !std::isfinite(rect.x()) || !std::isfinite(rect.y()) || !(rect.width() > 0)
        || !(rect.height() > 0) || !std::isfinite(rect.width()) || !std::isfinite(rect.height()))
        return;
    qreal left = widthOf(m_leftImage);
    qreal right = widthOf(m_rightImage);
    if (left + right > rect.width()) {
        const qreal shrink = rect.width() / (left + right);
        left *= shrink;
        right *= shrink;
    }
    const qreal center = rect.width() - left - right;

    painter.save();
    painter.setCompositionMode(operation);
    painter.setOpacity(painter.opacity() * std::clamp(std::isnan(fraction) ? 0.0 : fraction, 0.0, 1.0));
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    drawPiece(painter, m_leftImage, QRectF(rect.left(), rect.top(), left, rect.height()), flipped);
    drawPiece(painter, m_centerImage, QRectF(rect.left() + left, rect.top(), center, rect.height()), flipped);
    drawPiece(painter, m_rightImage, QRectF(rect.right() - right, rect.top(), right, rect.height()), flipped);
    painter.restore();
}
