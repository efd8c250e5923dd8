// The pixel kernels against straightforward reference computations. The
// suite runs twice: with the processor's AVX2 code and, with
// QX_PIXEL_KERNELS=generic in the environment, with the portable code.

#include "imaging/QXPixelKernels_p.h"

#include <QtTest>

#include <algorithm>
#include <array>

using namespace QXPixelKernels;

namespace {

QImage randomImage(int width, int height, quint32 seed, bool opaque = false)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    QRandomGenerator random(seed);
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int alpha = opaque ? 255 : int(random.bounded(256));
            line[x] = qRgba(int(random.bounded(alpha + 1)), int(random.bounded(alpha + 1)),
                            int(random.bounded(alpha + 1)), alpha);
        }
    }
    return image;
}

// Window sums without running sums: every pixel of the window added up,
// rows and columns clamped to the bitmap.
QImage referenceBox(const QImage &source, int size)
{
    const int radius = size / 2;
    const int width = source.width();
    const int height = source.height();
    std::vector<quint64> rows(size_t(width) * size_t(height) * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int j = -radius; j <= radius; ++j) {
                const uchar *p = source.constScanLine(y) + 4 * std::clamp(x + j, 0, width - 1);
                for (int c = 0; c < 4; ++c)
                    rows[(size_t(y) * width + x) * 4 + c] += p[c];
            }
    QImage result(source.size(), QImage::Format_ARGB32_Premultiplied);
    const quint64 area = quint64(size) * quint64(size);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c) {
                quint64 sum = 0;
                for (int i = -radius; i <= radius; ++i)
                    sum += rows[(size_t(std::clamp(y + i, 0, height - 1)) * width + x) * 4 + c];
                result.scanLine(y)[4 * x + c] = uchar((2 * sum + area) / (2 * area));
            }
    return result;
}

QImage boxed(const QImage &source, int size)
{
    QImage result(source.size(), QImage::Format_ARGB32_Premultiplied);
    result.fill(0xdeadbeef);
    boxConvolve(constBitmap(source), bitmap(result), size);
    return result;
}

QImage scaled(const QImage &source, QSize size)
{
    QImage result(size, QImage::Format_ARGB32_Premultiplied);
    result.fill(0xdeadbeef);
    scale(constBitmap(source), bitmap(result));
    return result;
}

} // namespace

class tst_QXPixelKernels : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void boxConvolutionMatchesWindowAverages_data();
    void boxConvolutionMatchesWindowAverages();
    void boxConvolutionKernelSizes();
    void matrixMultiply();
    void scaling();
};

void tst_QXPixelKernels::initTestCase()
{
    qInfo("pixel kernels use %s", usesAvx2() ? "AVX2" : "the generic code");
}

void tst_QXPixelKernels::boxConvolutionMatchesWindowAverages_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("kernel");
    // Widths below, at and beyond the eight-pixel blocks; kernels inside
    // the bitmap, as wide as it, and far beyond it (edge pixels repeated).
    for (const QSize size : {QSize(1, 1), QSize(1, 9), QSize(9, 1), QSize(8, 8), QSize(17, 11), QSize(61, 23)})
        for (const int kernel : {3, 5, 9, 25, 75, 255})
            QTest::addRow("%dx%d k=%d", size.width(), size.height(), kernel) << size << kernel;
}

void tst_QXPixelKernels::boxConvolutionMatchesWindowAverages()
{
    QFETCH(QSize, size);
    QFETCH(int, kernel);
    const QImage source = randomImage(size.width(), size.height(), quint32(size.width() * 1000 + kernel));
    QCOMPARE(boxed(source, kernel), referenceBox(source, kernel));
}

void tst_QXPixelKernels::boxConvolutionKernelSizes()
{
    const QImage source = randomImage(23, 13, 7);
    // Size 1 copies; an even size acts as the next odd one; sizes below 1
    // act as 1 and sizes above the maximum as the maximum.
    QCOMPARE(boxed(source, 1), source);
    QCOMPARE(boxed(source, 0), source);
    QCOMPARE(boxed(source, -5), source);
    QCOMPARE(boxed(source, 4), boxed(source, 5));
    QCOMPARE(boxed(source, 100000), referenceBox(source, kMaximumBoxKernelSize));
    QCOMPARE(boxed(source, kMaximumBoxKernelSize - 1), referenceBox(source, kMaximumBoxKernelSize));

    // One bright pixel spreads evenly and rounds to the nearest: 255 / 9 is 28.3.
    QImage dot(5, 5, QImage::Format_ARGB32_Premultiplied);
    dot.fill(Qt::transparent);
    dot.setPixel(2, 2, 0xffffffff);
    const QImage spread = boxed(dot, 3);
    QCOMPARE(spread.pixel(1, 1), qRgba(28, 28, 28, 28));
    QCOMPARE(spread.pixel(0, 0), 0u);
    // A uniform picture stays exactly as it is, however large the kernel.
    QImage flat(40, 30, QImage::Format_ARGB32_Premultiplied);
    flat.fill(qRgba(10, 20, 30, 200));
    QCOMPARE(boxed(flat, 2047), flat);

    // Mismatched or empty bitmaps are left alone.
    QImage other(22, 13, QImage::Format_ARGB32_Premultiplied);
    other.fill(0x12345678);
    boxConvolve(constBitmap(source), bitmap(other), 3);
    QCOMPARE(other.pixel(0, 0), 0x12345678u);
    boxConvolve(ConstBitmap{}, bitmap(other), 3);
}

void tst_QXPixelKernels::matrixMultiply()
{
    const QImage source = randomImage(37, 5, 3);
    const std::array<qint16, 16> matrix = {446, -15, -15, 0, -146, 314, -146, 0, -44, -44, 417, 0, 0, 0, 0, 256};
    for (const int divisor : {256, 200}) {
        QImage result(source.size(), QImage::Format_ARGB32_Premultiplied);
        QXPixelKernels::matrixMultiply(constBitmap(source), bitmap(result), matrix, divisor);
        for (int y = 0; y < source.height(); ++y)
            for (int x = 0; x < source.width(); ++x) {
                const uchar *in = source.constScanLine(y) + 4 * x;
                const uchar *out = result.constScanLine(y) + 4 * x;
                int expected[4];
                for (int c = 0; c < 4; ++c) {
                    const int sum = in[0] * matrix[c] + in[1] * matrix[4 + c] + in[2] * matrix[8 + c]
                        + in[3] * matrix[12 + c];
                    expected[c] = std::clamp(int(std::floor(double(sum) / divisor + 0.5)), 0, 255);
                }
                for (int c = 0; c < 3; ++c)
                    QCOMPARE(int(out[c]), std::min(expected[c], expected[3]));
                QCOMPARE(int(out[3]), expected[3]);
            }
    }

    // In place, and clamping at both ends: white doubled stays white, a
    // negative matrix gives black, transparent stays transparent.
    QImage pixels(3, 1, QImage::Format_ARGB32_Premultiplied);
    pixels.setPixel(0, 0, 0xffffffff);
    pixels.setPixel(1, 0, 0xff808080);
    pixels.setPixel(2, 0, 0x00000000);
    std::array<qint16, 16> doubling{};
    doubling[0] = doubling[5] = doubling[10] = 512;
    doubling[15] = 256;
    QXPixelKernels::matrixMultiply(constBitmap(pixels), bitmap(pixels), doubling, 256);
    QCOMPARE(pixels.pixel(0, 0), 0xffffffffu);
    QCOMPARE(pixels.pixel(1, 0), 0xffffffffu);
    QCOMPARE(pixels.pixel(2, 0), 0u);
    std::array<qint16, 16> negative{};
    negative[0] = negative[5] = negative[10] = -256;
    negative[15] = 256;
    QXPixelKernels::matrixMultiply(constBitmap(pixels), bitmap(pixels), negative, 256);
    QCOMPARE(pixels.pixel(0, 0), 0xff000000u);
}

void tst_QXPixelKernels::scaling()
{
    // Equal sizes copy exactly.
    const QImage source = randomImage(29, 17, 11);
    QCOMPARE(scaled(source, source.size()), source);

    // A reduction by a whole factor averages each block of pixels.
    QImage blocks(8, 4, QImage::Format_ARGB32_Premultiplied);
    QImage expected(2, 1, QImage::Format_ARGB32_Premultiplied);
    for (int bx = 0; bx < 2; ++bx) {
        int sum[4] = {};
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                const int alpha = 35 * (x + y) + 10 * bx + 15;
                const QRgb pixel = qRgba(alpha / 3, alpha / 2, alpha, alpha);
                blocks.setPixel(4 * bx + x, y, pixel);
                sum[0] += qRed(pixel), sum[1] += qGreen(pixel), sum[2] += qBlue(pixel), sum[3] += qAlpha(pixel);
            }
        expected.setPixel(bx, 0, qRgba((sum[0] + 8) / 16, (sum[1] + 8) / 16, (sum[2] + 8) / 16, (sum[3] + 8) / 16));
    }
    QImage result = scaled(blocks, QSize(2, 1));
    for (int x = 0; x < 2; ++x)
        for (int c = 0; c < 4; ++c)
            QVERIFY(qAbs(int(result.constScanLine(0)[4 * x + c]) - int(expected.constScanLine(0)[4 * x + c])) <= 1);

    // Three pixels into two: each output covers one and a half inputs.
    QImage row(3, 1, QImage::Format_ARGB32_Premultiplied);
    row.setPixel(0, 0, 0xff000000);
    row.setPixel(1, 0, 0xffffffff);
    row.setPixel(2, 0, 0xff000000);
    result = scaled(row, QSize(2, 1));
    QCOMPARE(qRed(result.pixel(0, 0)), 85);
    QCOMPARE(qRed(result.pixel(1, 0)), 85);

    // An enlargement interpolates between pixel centres and repeats the edges.
    QImage pair(2, 1, QImage::Format_ARGB32_Premultiplied);
    pair.setPixel(0, 0, 0xff000000);
    pair.setPixel(1, 0, 0xffffffff);
    result = scaled(pair, QSize(4, 1));
    const int reds[] = {0, 64, 191, 255};
    for (int x = 0; x < 4; ++x)
        QVERIFY2(qAbs(qRed(result.pixel(x, 0)) - reds[x]) <= 1, qPrintable(QString::number(qRed(result.pixel(x, 0)))));

    // A huge reduction still weighs every pixel: a ramp averages to its middle.
    QImage ramp(20000, 1, QImage::Format_ARGB32_Premultiplied);
    for (int x = 0; x < ramp.width(); ++x)
        ramp.setPixel(x, 0, qRgba(0, 0, x * 256 / ramp.width(), 255));
    result = scaled(ramp, QSize(1, 1));
    QVERIFY(qAbs(qBlue(result.pixel(0, 0)) - 128) <= 1);
    QCOMPARE(qAlpha(result.pixel(0, 0)), 255);

    // Premultiplied pixels stay valid (no colour above its alpha).
    const QImage translucent = randomImage(50, 40, 5);
    for (const QSize size : {QSize(13, 7), QSize(97, 83)}) {
        const QImage out = scaled(translucent, size);
        for (int y = 0; y < out.height(); ++y)
            for (int x = 0; x < out.width(); ++x) {
                const QRgb p = out.pixel(x, y);
                QVERIFY(qRed(p) <= qAlpha(p) && qGreen(p) <= qAlpha(p) && qBlue(p) <= qAlpha(p));
            }
    }
}

QTEST_GUILESS_MAIN(tst_QXPixelKernels)
#include "tst_qxpixelkernels.moc"
