#include <QXFoundation/QXImage.h>
#include <QXFoundation/QXMath.h>

#include <QtTest>

#include <cmath>
#include <limits>

namespace {

// Vertical stripes of the given colours, each `stripe` pixels wide.
QImage stripes(const QList<QRgb> &colours, int stripe, int height)
{
    QImage image(stripe * int(colours.size()), height, QImage::Format_ARGB32_Premultiplied);
    for (int i = 0; i < colours.size(); ++i)
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < stripe; ++x)
                image.setPixel(i * stripe + x, y, colours.at(i));
    return image;
}

QImage filled(int width, int height, QRgb colour)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(colour);
    return image;
}

bool near(QRgb a, QRgb b, int tolerance = 2)
{
    return qAbs(qRed(a) - qRed(b)) <= tolerance && qAbs(qGreen(a) - qGreen(b)) <= tolerance
        && qAbs(qBlue(a) - qBlue(b)) <= tolerance && qAbs(qAlpha(a) - qAlpha(b)) <= tolerance;
}

constexpr QRgb red = 0xffff0000;
constexpr QRgb green = 0xff00ff00;
constexpr QRgb blue = 0xff0000ff;
constexpr QRgb white = 0xffffffff;

} // namespace

class tst_QXImage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wrappingAndModes();
    void fill();
    void fit();
    void aspectFill();
    void rotation();
    void cropping();
    void refusals();
};

void tst_QXImage::wrappingAndModes()
{
    QImage bitmap = filled(64, 32, red);
    bitmap.setDevicePixelRatio(2.0);
    const QImage wrapped = qx_imageWithCGImage(bitmap);
    QCOMPARE(wrapped.deviceIndependentSize(), QSizeF(64, 32));
    QCOMPARE(wrapped.pixel(63, 31), red);

    // The mode picks the operation; unknown modes fill.
    const QImage wide = stripes({red, blue}, 100, 100);
    const QSizeF square(100, 100);
    QCOMPARE(qx_imageByScalingToSize(wide, square, QXImageScalingModeFit), qx_imageByScalingToFitSize(wide, square));
    QCOMPARE(qx_imageByScalingToSize(wide, square, QXImageScalingModeAspectFill),
             qx_imageByScalingToAspectFillSize(wide, square));
    QCOMPARE(qx_imageByScalingToSize(wide, square, QXImageScalingModeFill), qx_imageByScalingToFillSize(wide, square));
    QCOMPARE(qx_imageByScalingToSize(wide, square, static_cast<QXImageScalingMode>(7)),
             qx_imageByScalingToFillSize(wide, square));
}

void tst_QXImage::fill()
{
    // Stretched, aspect ratio not kept, every pixel covered.
    const QImage result = qx_imageByScalingToFillSize(stripes({red, blue}, 100, 100), QSizeF(50, 80));
    QCOMPARE(result.size(), QSize(50, 80));
    QCOMPARE(result.format(), QImage::Format_ARGB32_Premultiplied);
    QVERIFY(near(result.pixel(0, 0), red));
    QVERIFY(near(result.pixel(20, 79), red));
    QVERIFY(near(result.pixel(30, 0), blue));
    QVERIFY(near(result.pixel(49, 79), blue));

    // A high-resolution image keeps its ratio: the size is in points.
    QImage retina = filled(200, 200, green);
    retina.setDevicePixelRatio(2.0);
    const QImage sharp = qx_imageByScalingToFillSize(retina, QSizeF(50, 25));
    QCOMPARE(sharp.size(), QSize(100, 50));
    QCOMPARE(sharp.deviceIndependentSize(), QSizeF(50, 25));
}

void tst_QXImage::fit()
{
    // 200 × 100 into 100 × 100: scale 0.5, drawn 100 × 50 at (0, 25).
    QImage result = qx_imageByScalingToFitSize(filled(200, 100, red), QSizeF(100, 100));
    QCOMPARE(result.size(), QSize(100, 100));
    QCOMPARE(qAlpha(result.pixel(50, 24)), 0);
    QVERIFY(near(result.pixel(50, 25), red));
    QVERIFY(near(result.pixel(0, 50), red));
    QVERIFY(near(result.pixel(99, 74), red));
    QCOMPARE(qAlpha(result.pixel(50, 75)), 0);

    // 100 × 200 into 100 × 100: drawn 50 × 100 at (25, 0).
    result = qx_imageByScalingToFitSize(filled(100, 200, blue), QSizeF(100, 100));
    QCOMPARE(qAlpha(result.pixel(24, 50)), 0);
    QVERIFY(near(result.pixel(25, 0), blue));
    QVERIFY(near(result.pixel(74, 99), blue));
    QCOMPARE(qAlpha(result.pixel(75, 50)), 0);

    // Into its own size: drawn unscaled at the origin, pixel for pixel.
    const QImage picture = stripes({red, green, blue}, 7, 9);
    QCOMPARE(qx_imageByScalingToFitSize(picture, QSizeF(21, 9)), picture);

    // The same proportions: the whole target, no margin.
    result = qx_imageByScalingToFitSize(filled(40, 20, green), QSizeF(80, 40));
    QVERIFY(near(result.pixel(0, 0), green));
    QVERIFY(near(result.pixel(79, 39), green));
}

void tst_QXImage::aspectFill()
{
    // 200 × 100 into 100 × 100: the height factor wins, scaled 200 × 100,
    // cut at (50, 0): of the stripes red|green|blue|white the middle two remain.
    QImage result = qx_imageByScalingToAspectFillSize(stripes({red, green, blue, white}, 50, 100), QSizeF(100, 100));
    QCOMPARE(result.size(), QSize(100, 100));
    QCOMPARE(result.pixel(0, 0), green);
    QCOMPARE(result.pixel(49, 99), green);
    QCOMPARE(result.pixel(50, 0), blue);
    QCOMPARE(result.pixel(99, 99), blue);

    // The same on the other axis: 100 × 200 is cut at (0, 50).
    const QImage tall = qx_imageByRotatingInDegrees(stripes({red, green, blue, white}, 50, 100), 90);
    result = qx_imageByScalingToAspectFillSize(tall, QSizeF(100, 100));
    QCOMPARE(result.size(), QSize(100, 100));
    QCOMPARE(result.pixel(50, 0), green);
    QCOMPARE(result.pixel(50, 99), blue);

    // 251 × 250: scaled 100.4 × 100 truncates to the target, no cut.
    const QImage nearlySquare = stripes({red, green, blue}, 84, 250).copy(0, 0, 251, 250);
    result = qx_imageByScalingToAspectFillSize(nearlySquare, QSizeF(100, 100));
    QCOMPARE(result.size(), QSize(100, 100));
    QVERIFY(near(result.pixel(0, 50), red));
    QVERIFY(near(result.pixel(99, 50), blue));

    // A shrink with a cut: 400 × 100 into 50 × 50 is scaled to 200 × 50
    // and cut at (75, 0), the middle quarter of the picture.
    result = qx_imageByScalingToAspectFillSize(stripes({red, green, blue, white}, 100, 100), QSizeF(50, 50));
    QCOMPARE(result.size(), QSize(50, 50));
    QVERIFY(near(result.pixel(10, 25), green));
    QVERIFY(near(result.pixel(40, 25), blue));

    // An extreme target renders only what it keeps.
    result = qx_imageByScalingToAspectFillSize(filled(1000, 1000, red), QSizeF(30000, 1));
    QCOMPARE(result.size(), QSize(30000, 1));
    QVERIFY(near(result.pixel(15000, 0), red));
}

void tst_QXImage::rotation()
{
    // A red top row on blue.
    QImage picture = filled(200, 100, blue);
    for (int x = 0; x < 200; ++x)
        picture.setPixel(x, 0, red);

    QImage turned = qx_imageByRotatingInDegrees(picture, 90);
    QCOMPARE(turned.size(), QSize(100, 200));
    // Clockwise: the top row becomes the right column.
    QCOMPARE(turned.pixel(99, 0), red);
    QCOMPARE(turned.pixel(99, 199), red);
    QCOMPARE(turned.pixel(0, 100), blue);
    QCOMPARE(turned.pixel(98, 100), blue);

    QCOMPARE(qx_imageByRotatingInDegrees(picture, 0), picture.convertToFormat(QImage::Format_ARGB32_Premultiplied));
    QCOMPARE(qx_imageByRotatingInDegrees(picture, 360), qx_imageByRotatingInDegrees(picture, 0));
    QCOMPARE(qx_imageByRotatingInDegrees(picture, -270), turned);
    QCOMPARE(qx_imageByRotatingInDegrees(picture, 450), turned);

    const QImage upsideDown = qx_imageByRotatingInDegrees(picture, 180);
    QCOMPARE(upsideDown.size(), QSize(200, 100));
    QCOMPARE(upsideDown.pixel(100, 99), red);
    QCOMPARE(upsideDown.pixel(100, 0), blue);

    // 45°: both sides (w + h) / √2, transparent corners, opaque centre.
    const QImage diagonal = qx_imageByRotatingInDegrees(picture, 45);
    const int side = int(std::lround(300 / std::sqrt(2.0)));
    QCOMPARE(diagonal.size(), QSize(side, side));
    QCOMPARE(qAlpha(diagonal.pixel(0, 0)), 0);
    QCOMPARE(qAlpha(diagonal.pixel(side - 1, side - 1)), 0);
    QVERIFY(near(diagonal.pixel(side / 2, side / 2), blue));

    // Radians go through QXRadiansToDegrees: π/2 is a quarter turn.
    const QImage quarter = qx_imageByRotatingInRadians(picture, M_PI / 2);
    QCOMPARE(quarter.size(), turned.size());
    for (const QPoint p : {QPoint(99, 10), QPoint(99, 190), QPoint(10, 100), QPoint(50, 50)})
        QVERIFY(near(quarter.pixel(p), turned.pixel(p), 8));
}

void tst_QXImage::cropping()
{
    QImage picture = stripes({red, green, blue}, 10, 20);
    picture.setDevicePixelRatio(2.0);
    QImage cut = qx_imageByCroppingToRect(picture, QRectF(10, 5, 10, 10));
    QCOMPARE(cut.size(), QSize(10, 10));
    QCOMPARE(cut.devicePixelRatio(), 1.0); // pixels are points after the cut
    QCOMPARE(cut.pixel(0, 0), green);
    QCOMPARE(cut.pixel(9, 9), green);

    // Clipped to the bitmap; fractions widen to whole pixels; negative sizes flip.
    QCOMPARE(qx_imageByCroppingToRect(picture, QRectF(25, -5, 100, 100)).size(), QSize(5, 20));
    cut = qx_imageByCroppingToRect(picture, QRectF(9.5, 0.2, 1.0, 1.0));
    QCOMPARE(cut.size(), QSize(2, 2));
    QCOMPARE(cut.pixel(0, 0), red);
    QCOMPARE(cut.pixel(1, 0), green);
    QCOMPARE(qx_imageByCroppingToRect(picture, QRectF(30, 20, -10, -10)).pixel(0, 0), blue);

    // Nothing inside: a null image.
    QVERIFY(qx_imageByCroppingToRect(picture, QRectF(30, 0, 10, 10)).isNull());
    QVERIFY(qx_imageByCroppingToRect(picture, QRectF(-100, -100, 50, 50)).isNull());
    QVERIFY(qx_imageByCroppingToRect(picture, QRectF(5, 5, 0, 10)).isNull());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    QVERIFY(qx_imageByCroppingToRect(picture, QRectF(nan, 0, 5, 5)).isNull());
    QVERIFY(qx_imageByCroppingToRect(picture, QRectF(0, 0, inf, 5)).isNull());
    QCOMPARE(qx_imageByCroppingToRect(picture, QRectF(-1e300, -1e300, 2e300, 2e300)).size(), picture.size());
}

void tst_QXImage::refusals()
{
    const QImage none;
    const QImage picture = filled(10, 10, red);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (int mode = 0; mode < 3; ++mode) {
        const auto scaling = static_cast<QXImageScalingMode>(mode);
        QVERIFY(qx_imageByScalingToSize(none, QSizeF(10, 10), scaling).isNull());
        // Sizes that are empty, negative, not finite, below half a pixel or
        // beyond the limits give null images without asking for the memory.
        for (const QSizeF size : {QSizeF(0, 10), QSizeF(10, -1), QSizeF(nan, 10), QSizeF(10, inf), QSizeF(0.4, 10),
                                  QSizeF(1e9, 1e9), QSizeF(40000, 1), QSizeF(20000, 20000)})
            QVERIFY2(qx_imageByScalingToSize(picture, size, scaling).isNull(),
                     qPrintable(QStringLiteral("mode %1, %2 x %3").arg(mode).arg(size.width()).arg(size.height())));
    }
    QVERIFY(qx_imageByRotatingInDegrees(none, 90).isNull());
    QVERIFY(qx_imageByRotatingInDegrees(picture, nan).isNull());
    QVERIFY(qx_imageByRotatingInDegrees(picture, inf).isNull());
    QCOMPARE(qx_imageByRotatingInDegrees(picture, 1e300).isNull(), false);
    QVERIFY(qx_imageByRotatingInDegrees(filled(30000, 1, red), 45).isNull()); // 21214 × 21214 is too many pixels
    QVERIFY(qx_imageByCroppingToRect(none, QRectF(0, 0, 5, 5)).isNull());
    QVERIFY(qx_imageWithCGImage(none).isNull());
}

QTEST_MAIN(tst_QXImage)
#include "tst_qximage.moc"
