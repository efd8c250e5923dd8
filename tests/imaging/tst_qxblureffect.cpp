#include <QXFoundation/QXBlurEffect.h>

#include "imaging/QXBlurEffect_p.h"
#include "imaging/QXPixelKernels_p.h"

#include <QtTest>

#include <limits>

namespace {

QImage filled(int width, int height, QRgb colour)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(colour);
    return image;
}

// Colourful, opaque, with edges: quadrants of four colours.
QImage quadrants(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.fillRect(0, 0, width / 2, height / 2, QColor(220, 40, 40));
    painter.fillRect(width / 2, 0, width - width / 2, height / 2, QColor(40, 200, 60));
    painter.fillRect(0, height / 2, width / 2, height - height / 2, QColor(30, 60, 230));
    painter.fillRect(width / 2, height / 2, width - width / 2, height - height / 2, QColor(240, 230, 40));
    return image;
}

bool allPixels(const QImage &image, const std::function<bool(QRgb)> &test)
{
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (!test(image.pixel(x, y)))
                return false;
    return true;
}

} // namespace

class tst_QXBlurEffect : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void presets();
    void kernelSizes();
    void saturationMatrices();
    void refusalsLeaveTheImageAlone();
    void workingSize();
    void blurAndSaturation();
    void secondDrawAndMask();
    void tint();
    void crop();
};

void tst_QXBlurEffect::presets()
{
    const QXBlurEffect plain;
    QCOMPARE(plain.radius(), 0.0);
    QCOMPARE(plain.saturationDeltaFactor(), 0.0);
    QVERIFY(!plain.tintColor().isValid());
    QVERIFY(plain.maskImage().isNull());
    QCOMPARE(plain.resize(), QSizeF(0, 0));
    QVERIFY(plain.cropRect().isNull());

    const QXBlurEffect blur = QXBlurEffect::blurEffect();
    QCOMPARE(blur.radius(), 40.0);
    QCOMPARE(blur.saturationDeltaFactor(), 1.0);
    QVERIFY(!blur.tintColor().isValid());

    const QXBlurEffect light = QXBlurEffect::lightBlurEffect();
    QCOMPARE(light.radius(), 40.0);
    QCOMPARE(light.saturationDeltaFactor(), 1.8);
    QCOMPARE(light.tintColor().redF(), 0.8f);
    QCOMPARE(light.tintColor().blueF(), 0.8f);
    QCOMPARE(light.tintColor().alphaF(), 0.2f);

    const QXBlurEffect dark = QXBlurEffect::darkBlurEffect();
    QCOMPARE(dark.radius(), 50.0);
    QCOMPARE(dark.saturationDeltaFactor(), 3.0);
    QCOMPARE(dark.tintColor().rgb(), qRgb(0, 0, 0));
    QVERIFY(qAbs(dark.tintColor().alphaF() - 0.5f) < 1e-4f);
    QCOMPARE(dark.resize(), QSizeF(0, 0));
}

void tst_QXBlurEffect::kernelSizes()
{
    using QXBlurEffectPrivate::boxKernelSize;
    QCOMPARE(boxKernelSize(40), 75);
    QCOMPARE(boxKernelSize(50), 95); // 94, made odd
    QCOMPARE(boxKernelSize(1), 3);
    QCOMPARE(boxKernelSize(0.5), 1);
    QCOMPARE(boxKernelSize(1e-6), 1);
    QCOMPARE(boxKernelSize(1e9), 2047);
    QCOMPARE(boxKernelSize(std::numeric_limits<double>::infinity()), 2047);
    QCOMPARE(boxKernelSize(std::numeric_limits<double>::quiet_NaN()), 1);
}

void tst_QXBlurEffect::saturationMatrices()
{
    using QXBlurEffectPrivate::saturationMatrix;
    using Matrix = std::array<qint16, 16>;
    QCOMPARE(saturationMatrix(1.8), (Matrix{446, -15, -15, 0, -146, 314, -146, 0, -44, -44, 417, 0, 0, 0, 0, 256}));
    QCOMPARE(saturationMatrix(3.0), (Matrix{731, -37, -37, 0, -366, 402, -366, 0, -109, -109, 659, 0, 0, 0, 0, 256}));
    QCOMPARE(saturationMatrix(0.0), (Matrix{18, 18, 18, 0, 183, 183, 183, 0, 54, 54, 54, 0, 0, 0, 0, 256}));
    QCOMPARE(saturationMatrix(1.0), (Matrix{256, 0, 0, 0, 0, 256, 0, 0, 0, 0, 256, 0, 0, 0, 0, 256}));
    // Entries beyond 16 bits are clamped rather than wrapped.
    const Matrix huge = saturationMatrix(std::numeric_limits<double>::infinity());
    QCOMPARE(huge[0], qint16(32767));
    QCOMPARE(huge[1], qint16(-32768));
    QCOMPARE(huge[15], qint16(256));
}

void tst_QXBlurEffect::refusalsLeaveTheImageAlone()
{
    // Half a point wide: the same image comes back.
    QImage thin = filled(1, 20, 0xff102030);
    thin.setDevicePixelRatio(2.0);
    QXBlurEffect effect = QXBlurEffect::darkBlurEffect();
    QCOMPARE(effect.blurImage(thin).cacheKey(), thin.cacheKey());
    QVERIFY(effect.blurImage(QImage()).isNull());

    // Working sizes that cannot be made leave the image unchanged too.
    const QImage picture = quadrants(40, 40);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const QSizeF resize : {QSizeF(-40, 40), QSizeF(nan, 40), QSizeF(40, inf), QSizeF(3, 40), QSizeF(40, 0),
                                QSizeF(16388, 40), QSizeF(1e12, 1e12)}) {
        QXBlurEffect sized = QXBlurEffect::blurEffect();
        sized.setResize(resize);
        QCOMPARE(sized.blurImage(picture).cacheKey(), picture.cacheKey());
    }
    // Non-finite and absurd parameters still give a result of the working size.
    QXBlurEffect wild;
    wild.setRadius(inf);
    wild.setSaturationDeltaFactor(inf);
    wild.setMaskImage(filled(3000, 1, 0xffffffff));
    QCOMPARE(wild.blurImage(picture).size(), QSize(10, 10));
    wild.setRadius(nan);
    wild.setSaturationDeltaFactor(nan);
    QCOMPARE(wild.blurImage(picture).size(), QSize(10, 10));
}

void tst_QXBlurEffect::workingSize()
{
    // A plain effect: no blur, saturation 0 (grey), a quarter of the size,
    // and resize() keeps the first image's size.
    QXBlurEffect plain;
    const QImage grey = plain.blurImage(quadrants(400, 300));
    QCOMPARE(grey.size(), QSize(100, 75));
    QCOMPARE(grey.format(), QImage::Format_ARGB32_Premultiplied);
    QCOMPARE(plain.resize(), QSizeF(400, 300));
    QVERIFY(allPixels(grey, [](QRgb p) { return qRed(p) == qGreen(p) && qGreen(p) == qBlue(p) && qAlpha(p) == 255; }));
    QCOMPARE(plain.blurImage(quadrants(200, 200)).size(), QSize(100, 75));

    QXBlurEffect sized = QXBlurEffect::blurEffect();
    sized.setResize(QSizeF(40, 41));
    QCOMPARE(sized.blurImage(quadrants(400, 300)).size(), QSize(10, 10));
    sized.setResize(QSizeF(7.9, 8.5)); // truncated first: 7 / 4 and 8 / 4
    QCOMPARE(sized.blurImage(quadrants(400, 300)).size(), QSize(1, 2));
}

void tst_QXBlurEffect::blurAndSaturation()
{
    // The plain blur is one box convolution of the scaled picture, kernel 75.
    const QImage picture = quadrants(400, 300);
    QXBlurEffect blur = QXBlurEffect::blurEffect();
    const QImage blurred = blur.blurImage(picture);
    QCOMPARE(blurred.size(), QSize(100, 75));
    QImage scaled(100, 75, QImage::Format_ARGB32_Premultiplied);
    QXPixelKernels::scale(QXPixelKernels::constBitmap(picture), QXPixelKernels::bitmap(scaled));
    QImage expected(scaled.size(), QImage::Format_ARGB32_Premultiplied);
    QXPixelKernels::boxConvolve(QXPixelKernels::constBitmap(scaled), QXPixelKernels::bitmap(expected), 75);
    QCOMPARE(blurred, expected);
    // Blurred indeed: near the middle all four colours mix.
    const QRgb middle = blurred.pixel(45, 33);
    QVERIFY(qRed(middle) < 200 && qGreen(middle) > 60 && qBlue(middle) > 60);

    // The dark effect on white: white stays white through blur and
    // saturation, then black at 50 % makes it mid-grey.
    QXBlurEffect dark = QXBlurEffect::darkBlurEffect();
    const QImage darkened = dark.blurImage(filled(400, 300, 0xffffffff));
    QCOMPARE(darkened.size(), QSize(100, 75));
    QVERIFY(allPixels(darkened, [](QRgb p) {
        return qAbs(qRed(p) - 128) <= 1 && qRed(p) == qGreen(p) && qGreen(p) == qBlue(p) && qAlpha(p) == 255;
    }));

    // Saturation without blur applies the matrix to the scaled picture.
    QXBlurEffect vivid;
    vivid.setSaturationDeltaFactor(3.0);
    const QImage saturated = vivid.blurImage(picture);
    QImage matrixed(scaled.size(), QImage::Format_ARGB32_Premultiplied);
    QXPixelKernels::matrixMultiply(QXPixelKernels::constBitmap(scaled), QXPixelKernels::bitmap(matrixed),
                                   QXBlurEffectPrivate::saturationMatrix(3.0), 256);
    QCOMPARE(saturated, matrixed);
    // (40, 200, 60) drifts away from grey: green up, red and blue down.
    const QRgb strong = saturated.pixel(99, 0);
    QVERIFY(qGreen(strong) == 255 && qRed(strong) < 40 && qBlue(strong) < 60);

    // A factor within 2^-23 of 1 changes nothing.
    QXBlurEffect almost;
    almost.setSaturationDeltaFactor(1.0000001);
    QCOMPARE(almost.blurImage(picture), scaled);
}

void tst_QXBlurEffect::secondDrawAndMask()
{
    // Half-transparent grey shows the second drawing: drawn over itself it
    // becomes more opaque. Radius 1e-7 is within the threshold (no blur,
    // no second drawing); 2e-7 is a blur of kernel 1 and draws twice.
    const QImage translucent = filled(40, 40, qRgba(64, 64, 64, 128));
    QXBlurEffect effect;
    effect.setSaturationDeltaFactor(1.0);
    effect.setRadius(1e-7);
    QCOMPARE(qAlpha(effect.blurImage(translucent).pixel(5, 5)), 128);
    effect.setRadius(2e-7);
    const int twice = 128 + 128 * 127 / 255;
    QVERIFY(qAbs(qAlpha(effect.blurImage(translucent).pixel(5, 5)) - twice) <= 1);

    // A mask with an opaque top half and a transparent bottom half: its
    // rows are reversed, so the second drawing reaches the bottom half.
    QImage mask(7, 30, QImage::Format_ARGB32);
    mask.fill(Qt::transparent);
    QPainter(&mask).fillRect(0, 0, 7, 15, Qt::white);
    effect.setMaskImage(mask);
    QImage result = effect.blurImage(translucent);
    QCOMPARE(qAlpha(result.pixel(5, 0)), 128);
    QVERIFY(qAbs(qAlpha(result.pixel(5, 9)) - twice) <= 1);

    // An opaque mask covers by its grey level: white on the left only.
    QImage greyMask(100, 3, QImage::Format_RGB32);
    greyMask.fill(Qt::black);
    QPainter(&greyMask).fillRect(0, 0, 50, 3, Qt::white);
    effect.setMaskImage(greyMask);
    result = effect.blurImage(translucent);
    QVERIFY(qAbs(qAlpha(result.pixel(0, 5)) - twice) <= 1);
    QCOMPARE(qAlpha(result.pixel(9, 5)), 128);
}

void tst_QXBlurEffect::tint()
{
    // No blur, no saturation change, a tint: the scaled picture upright
    // with the tint over it, and the mask is not used.
    QImage picture = filled(40, 40, 0xffffffff);
    QPainter(&picture).fillRect(0, 0, 40, 4, Qt::black);
    QXBlurEffect effect;
    effect.setSaturationDeltaFactor(1.0);
    effect.setTintColor(QColor(255, 0, 0, 128));
    effect.setMaskImage(filled(10, 10, 0x00000000));
    const QImage result = effect.blurImage(picture);
    QCOMPARE(result.size(), QSize(10, 10));
    const QRgb top = result.pixel(5, 0);
    const QRgb below = result.pixel(5, 9);
    QVERIFY(qAbs(qRed(top) - 128) <= 1 && qGreen(top) == 0 && qAlpha(top) == 255);
    QVERIFY(qRed(below) == 255 && qAbs(qGreen(below) - 127) <= 1 && qAbs(qBlue(below) - 127) <= 1);

    // The light effect lays white 0.8 at 20 % over black: about 41.
    QXBlurEffect light = QXBlurEffect::lightBlurEffect();
    const QRgb lifted = light.blurImage(filled(80, 80, 0xff000000)).pixel(3, 3);
    QVERIFY(qAbs(qRed(lifted) - 41) <= 1 && qAlpha(lifted) == 255);
}

void tst_QXBlurEffect::crop()
{
    // Only the red top-left quadrant, and the working size comes from the cut.
    QXBlurEffect effect = QXBlurEffect::blurEffect();
    effect.setCropRect(QRectF(0, 0, 200, 150));
    const QImage result = effect.blurImage(quadrants(400, 300));
    QCOMPARE(result.size(), QSize(50, 37));
    QCOMPARE(effect.resize(), QSizeF(200, 150));
    QVERIFY(allPixels(result, [](QRgb p) { return p == qRgb(220, 40, 40); }));

    // A rectangle beside the image leaves nothing: a null image.
    QXBlurEffect outside = QXBlurEffect::blurEffect();
    outside.setCropRect(QRectF(500, 0, 10, 10));
    QVERIFY(outside.blurImage(quadrants(400, 300)).isNull());
    // An empty rectangle means no crop.
    QXBlurEffect empty = QXBlurEffect::blurEffect();
    empty.setCropRect(QRectF(10, 10, 0, 50));
    QCOMPARE(empty.blurImage(quadrants(400, 300)).size(), QSize(100, 75));
}

QTEST_MAIN(tst_QXBlurEffect)
#include "tst_qxblureffect.moc"
