#include <QXFoundation/QXThreePartImage.h>

#include <QtTest>

namespace {

constexpr QRgb red = 0xffff0000;
constexpr QRgb green = 0xff00ff00;
constexpr QRgb blue = 0xff0000ff;

// 30 × 20: columns 0–9 red, 10–19 green, 20–29 blue.
QImage threeStripes()
{
    QImage image(30, 20, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(0, 0, 10, 20, QColor::fromRgba(red));
    painter.fillRect(10, 0, 10, 20, QColor::fromRgba(green));
    painter.fillRect(20, 0, 10, 20, QColor::fromRgba(blue));
    return image;
}

QImage filled(int width, int height, QRgb colour)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(colour);
    return image;
}

bool uniform(const QImage &image, QRgb colour)
{
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixel(x, y) != colour)
                return false;
    return true;
}

class CountingImage : public QXScalableImage
{
public:
    void drawInRect(QPainter &, const QRectF &rect) const override { drawn.append(rect); }
    mutable QList<QRectF> drawn;
};

} // namespace

class tst_QXThreePartImage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cutting();
    void drawingCapsAndCentre();
    void compositionOpacityAndFlip();
    void scaledImages();
    void namedImages();
};

void tst_QXThreePartImage::cutting()
{
    // Caps 10 and 10: the three stripes.
    auto parts = QXScalableImage::scaleableImageWithImage(threeStripes(), 10, 10);
    QCOMPARE(parts->leftImage().size(), QSize(10, 20));
    QVERIFY(uniform(parts->leftImage(), red));
    QVERIFY(uniform(parts->centerImage(), green));
    QVERIFY(uniform(parts->rightImage(), blue));

    // No caps: the centre is the whole image, the caps are empty.
    parts = QXScalableImage::scaleableImageWithImage(threeStripes());
    QVERIFY(parts->leftImage().isNull());
    QVERIFY(parts->rightImage().isNull());
    QCOMPARE(parts->centerImage(), threeStripes());

    // Caps 20 and 20 overlap in the source and leave no centre.
    parts = QXScalableImage::scaleableImageWithImage(threeStripes(), 20, 20);
    QVERIFY(parts->centerImage().isNull());
    QCOMPARE(parts->leftImage(), threeStripes().copy(0, 0, 20, 20));
    QCOMPARE(parts->rightImage(), threeStripes().copy(10, 0, 20, 20));

    // A cap wider than the image is transparent beyond it.
    parts = QXScalableImage::scaleableImageWithImage(threeStripes(), 40, 0);
    QCOMPARE(parts->leftImage().size(), QSize(40, 20));
    QCOMPARE(parts->leftImage().pixel(29, 5), blue);
    QCOMPARE(qAlpha(parts->leftImage().pixel(30, 5)), 0);

    // High resolution: caps are points, cut at two pixels per point.
    QImage retina = threeStripes();
    retina.setDevicePixelRatio(2.0);
    parts = QXScalableImage::scaleableImageWithImage(retina, 5, 5);
    QCOMPARE(parts->leftImage().size(), QSize(10, 20));
    QCOMPARE(parts->leftImage().deviceIndependentSize(), QSizeF(5, 10));
    QVERIFY(uniform(parts->centerImage(), green));

    // Null images and absurd caps give empty pieces, nothing else.
    parts = QXScalableImage::scaleableImageWithImage(QImage(), 5, 5);
    QVERIFY(parts->leftImage().isNull() && parts->centerImage().isNull() && parts->rightImage().isNull());
    parts = QXScalableImage::scaleableImageWithImage(threeStripes(), 1e12, qQNaN());
    QVERIFY(parts->leftImage().isNull() && parts->rightImage().isNull());
}

void tst_QXThreePartImage::drawingCapsAndCentre()
{
    QXThreePartImage parts(filled(10, 20, red), filled(3, 20, green), filled(10, 20, blue));
    QImage canvas = filled(100, 20, 0);
    {
        QPainter painter(&canvas);
        parts.drawInRect(painter, QRectF(0, 0, 100, 20));
    }
    // Caps at their own width, the centre stretched between them.
    QCOMPARE(canvas.pixel(0, 10), red);
    QCOMPARE(canvas.pixel(9, 10), red);
    QCOMPARE(canvas.pixel(10, 10), green);
    QCOMPARE(canvas.pixel(89, 10), green);
    QCOMPARE(canvas.pixel(90, 10), blue);
    QCOMPARE(canvas.pixel(99, 19), blue);

    // Narrower than the caps: they shrink in proportion and meet, no centre.
    QXThreePartImage uneven(filled(30, 20, red), filled(3, 20, green), filled(10, 20, blue));
    canvas = filled(100, 20, 0);
    {
        QPainter painter(&canvas);
        uneven.drawInRect(painter, QRectF(0, 0, 20, 20));
    }
    QCOMPARE(canvas.pixel(14, 10), red);
    QCOMPARE(canvas.pixel(15, 10), blue);
    QCOMPARE(canvas.pixel(19, 10), blue);
    QCOMPARE(qAlpha(canvas.pixel(20, 10)), 0);

    // Missing pieces are left out.
    QXThreePartImage centreOnly(QImage(), filled(1, 1, green), QImage());
    canvas = filled(10, 10, 0);
    {
        QPainter painter(&canvas);
        centreOnly.drawInRect(painter, QRectF(2, 2, 6, 6));
    }
    QCOMPARE(canvas.pixel(2, 2), green);
    QCOMPARE(canvas.pixel(7, 7), green);
    QCOMPARE(qAlpha(canvas.pixel(1, 1)), 0);
    QCOMPARE(qAlpha(canvas.pixel(8, 8)), 0);
}

void tst_QXThreePartImage::compositionOpacityAndFlip()
{
    // Half-transparent red pieces on white: the default blends (source-over, full opacity).
    const QImage translucent = filled(4, 4, qRgba(128, 0, 0, 128));
    QXThreePartImage parts(translucent, translucent, translucent);
    QImage canvas = filled(20, 4, 0xffffffff);
    {
        QPainter painter(&canvas);
        parts.drawInRect(painter, QRectF(0, 0, 20, 4));
    }
    QCOMPARE(canvas.pixel(10, 2), qRgb(255, 127, 127));

    // Copy replaces; a fraction of 0.5 halves the coverage.
    canvas = filled(20, 4, 0xffffffff);
    {
        QPainter painter(&canvas);
        parts.drawInRect(painter, QRectF(0, 0, 20, 4), QPainter::CompositionMode_Source, 1.0, false);
    }
    QCOMPARE(canvas.pixel(10, 2), qRgba(128, 0, 0, 128));
    canvas = filled(20, 4, 0xffffffff);
    {
        QPainter painter(&canvas);
        QXThreePartImage(filled(4, 4, red), filled(4, 4, red), filled(4, 4, red))
            .drawInRect(painter, QRectF(0, 0, 20, 4), QPainter::CompositionMode_SourceOver, 0.5, false);
    }
    QVERIFY(qAbs(qGreen(canvas.pixel(10, 2)) - 128) <= 1 && qRed(canvas.pixel(10, 2)) == 255);

    // Flipped: the painter's y axis points up, the pieces stay upright.
    QImage topRed = filled(4, 4, blue);
    QPainter(&topRed).fillRect(0, 0, 4, 1, QColor::fromRgba(red));
    QXThreePartImage flippedParts(topRed, topRed, topRed);
    canvas = filled(12, 4, 0);
    {
        QPainter painter(&canvas);
        painter.translate(0, 4);
        painter.scale(1, -1);
        flippedParts.drawInRect(painter, QRectF(0, 0, 12, 4), QPainter::CompositionMode_SourceOver, 1.0, true);
    }
    QCOMPARE(canvas.pixel(6, 0), red);
    QCOMPARE(canvas.pixel(6, 3), blue);
    canvas = filled(12, 4, 0);
    {
        QPainter painter(&canvas);
        flippedParts.drawInRect(painter, QRectF(0, 0, 12, 4), QPainter::CompositionMode_SourceOver, 1.0, true);
    }
    QCOMPARE(canvas.pixel(6, 3), red);
}

void tst_QXThreePartImage::scaledImages()
{
    const auto parts = QXScalableImage::scaleableImageWithImage(threeStripes(), 10, 10);
    const QImage wide = parts->scaledImageWithSize(QSizeF(60, 20));
    QCOMPARE(wide.size(), QSize(60, 20));
    QCOMPARE(wide.pixel(9, 0), red);
    QCOMPARE(wide.pixel(30, 10), green);
    QCOMPARE(wide.pixel(50, 19), blue);

    // Width zero or less: nothing drawn, a null image.
    CountingImage counting;
    QVERIFY(counting.scaledImageWithSize(QSizeF(0, 20)).isNull());
    QVERIFY(counting.scaledImageWithSize(QSizeF(-5, 20)).isNull());
    QVERIFY(counting.drawn.isEmpty());
    // The image asks the receiver to draw into its whole area.
    QCOMPARE(counting.scaledImageWithSize(QSizeF(8, 6)).size(), QSize(8, 6));
    QCOMPARE(counting.drawn, QList<QRectF>{QRectF(0, 0, 8, 6)});

    // The base class draws nothing: a transparent image.
    const QXScalableImage base;
    const QImage empty = base.scaledImageWithSize(QSizeF(5, 5));
    QCOMPARE(empty.size(), QSize(5, 5));
    QVERIFY(uniform(empty, 0));
}

void tst_QXThreePartImage::namedImages()
{
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    QVERIFY(filled(3, 5, red).save(directory.filePath(QStringLiteral("left.png"))));
    QVERIFY(filled(1, 5, green).save(directory.filePath(QStringLiteral("centre.png"))));
    const auto parts = QXScalableImage::scaleableImageWithLeftImageNamed(
        directory.filePath(QStringLiteral("left.png")), directory.filePath(QStringLiteral("centre")),
        directory.filePath(QStringLiteral("missing")));
    QCOMPARE(parts->leftImage().size(), QSize(3, 5));
    QCOMPARE(parts->leftImage().pixel(0, 0), red);
    QCOMPARE(parts->centerImage().pixel(0, 0), green); // ".png" is tried for a name without suffix
    QVERIFY(parts->rightImage().isNull());
}

QTEST_MAIN(tst_QXThreePartImage)
#include "tst_qxthreepartimage.moc"
