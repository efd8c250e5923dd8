#pragma once

#include <QXFoundation/QXScalableImage.h>

/*!
  A left cap, a centre piece and a right cap, drawn side by side across a
  rectangle: each cap keeps its own width in points, the centre is
  stretched over the width between them, and every piece spans the
  rectangle's full height. A null piece is left out (its width counts as
  zero). When the rectangle is narrower than the two caps together there is
  no centre and the caps shrink in proportion to their widths, so that they
  still meet exactly at the rectangle's edges.
*/
class QXFOUNDATION_EXPORT QXThreePartImage : public QXScalableImage
{
public:
    QXThreePartImage() = default;
    QXThreePartImage(const QImage &leftImage, const QImage &centerImage, const QImage &rightImage);
    QXThreePartImage(const QXThreePartImage &) = default;
    QXThreePartImage &operator=(const QXThreePartImage &) = default;

    QImage leftImage() const { return m_leftImage; }
    void setLeftImage(const QImage &image) { m_leftImage = image; }
    QImage centerImage() const { return m_centerImage; }
    void setCenterImage(const QImage &image) { m_centerImage = image; }
    QImage rightImage() const { return m_rightImage; }
    void setRightImage(const QImage &image) { m_rightImage = image; }

    void drawInRect(QPainter &painter, const QRectF &rect) const override;
    void drawInRect(QPainter &painter, const QRectF &rect, QPainter::CompositionMode operation, qreal fraction,
                    bool flipped) const override;

private:
    QImage m_leftImage;
    QImage m_centerImage;
    QImage m_rightImage;
};
