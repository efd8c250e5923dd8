#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QImage>
#include <QPainter>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <memory>

class QXThreePartImage;

/*!
  Something that can be drawn into a rectangle of any width without
  distorting its ends, such as the background of a button, a bar or a
  badge. It is not an image itself: it draws through a QPainter and can
  render itself into a new image of a given size.

  The base class draws nothing; QXThreePartImage is the one kind the
  factories make. Sizes and rectangles are in points (painter coordinates).
*/
class QXFOUNDATION_EXPORT QXScalableImage
{
public:
    QXScalableImage() = default;
    virtual ~QXScalableImage();

    // A three-part image holding the three pieces unchanged (null pieces allowed).
    static std::unique_ptr<QXThreePartImage> scaleableImageWithLeftImage(const QImage &leftImage,
                                                                        const QImage &centerImage,
                                                                        const QImage &rightImage);
    /*!
      The same with the pieces looked up by name; a name that finds nothing
      gives a null piece. A name is tried as it stands (a file path, or a
      resource path such as ":/images/cap.png"), then as ":/NAME", each also
      with ".png" appended when the name has no suffix.
    */
    static std::unique_ptr<QXThreePartImage> scaleableImageWithLeftImageNamed(const QString &leftName,
                                                                             const QString &centerName,
                                                                             const QString &rightName);
    /*!
      The image cut into a left cap of `leftCapWidth` points, a right cap of
      `rightCapWidth` points and the centre between them, each piece as tall
      as the image. Parts of a cap beyond the image stay transparent. A piece
      of width zero or less is a null image (a QImage cannot have such a
      width): with no caps the centre is the whole image, and caps wider
      than the image together leave no centre.
    */
    static std::unique_ptr<QXThreePartImage> scaleableImageWithImage(const QImage &image, qreal leftCapWidth = 0,
                                                                    qreal rightCapWidth = 0);

    // Draws with source-over, full opacity, not flipped. Nothing in the base.
    virtual void drawInRect(QPainter &painter, const QRectF &rect) const;
    /*!
      Draws with the given composition mode and opacity (`fraction`, 0–1).
      `flipped` says that the painter's y axis points upwards (as after
      QPainter::scale(1, -1)), so each piece is mirrored to stay upright.
      Nothing in the base.
    */
    virtual void drawInRect(QPainter &painter, const QRectF &rect, QPainter::CompositionMode operation,
                            qreal fraction, bool flipped) const;

    /*!
      A new transparent image of `size` (device pixel ratio 1, whole pixels
      by rounding) with the receiver drawn into (0, 0, width, height) by
      drawInRect(). A width of zero or less, or a size the image functions
      would refuse (see QXImage.h), gives a null image, and nothing is drawn.
    */
    QImage scaledImageWithSize(QSizeF size) const;

protected:
    QXScalableImage(const QXScalableImage &) = default;
    QXScalableImage &operator=(const QXScalableImage &) = default;
};

// The derived class's header comes with this one: the factories return it.
#include <QXFoundation/QXThreePartImage.h>
