#include <QXFoundation/QXBlurEffect.h>
#include <QXFoundation/QXImage.h>

#include "imaging/QXBlurEffect_p.h"
#include "imaging/QXPixelKernels_p.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace QXBlurEffectPrivate {

int boxKernelSize(double radius)
{
    const double size = std::floor(radius * 3.0 * kSquareRootOfTwoPi * 0.25 + 0.5);
    // NaN and infinities included: no comparison below lets them through.
    if (!(size < QXPixelKernels::kMaximumBoxKernelSize))
        return std::isnan(size) ? 1 : QXPixelKernels::kMaximumBoxKernelSize;
    const int kernel = std::max(int(size), 0);
    return (kernel % 2 == 1) ? kernel : kernel + 1;
}

std::array<qint16, 16> saturationMatrix(double s)
{
    // Rec. 709 luminance; the red diagonal is 0.7873, not 0.7874, as the
    // effect has always had it.
    const double entries[16] = {
        0.0722 + 0.9278 * s, 0.0722 - 0.0722 * s, 0.0722 - 0.0722 * s, 0,
        0.7152 - 0.7152 * s, 0.7152 + 0.2848 * s, 0.7152 - 0.7152 * s, 0,
        0.2126 - 0.2126 * s, 0.2126 - 0.2126 * s, 0.2126 + 0.7873 * s, 0,
        0,                   0,                   0,                   1,
    };
    std::array<qint16, 16> matrix{};
    for (size_t i = 0; i < 16; ++i) {
        float scaled = float(entries[i] * kSaturationDivisor);
        if (std::isnan(scaled))
            scaled = 0.0f;
        matrix[i] = qint16(std::lround(std::clamp(scaled, -32768.0f, 32767.0f)));
    }
    return matrix;
}

} // namespace QXBlurEffectPrivate

namespace {

using namespace QXBlurEffectPrivate;

// The mask's coverage at the working size, rows reversed.
QImage maskCoverage(const QImage &mask, QSize size)
{
    const QImage scaled = mask.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    QImage coverage;
    if (scaled.hasAlphaChannel()) {
        coverage = scaled.convertToFormat(QImage::Format_Alpha8);
    } else {
        // The grey level of an opaque mask is its coverage: same bytes, read as alpha.
        const QImage grey = scaled.convertToFormat(QImage::Format_Grayscale8);
        coverage = QImage(grey.constBits(), grey.width(), grey.height(), grey.bytesPerLine(), QImage::Format_Alpha8)
                       .copy();
    }
    return coverage.mirrored(false, true);
}

// Each pixel drawn over itself (source-over), weighted by the mask's
// coverage where there is a mask: p + coverage × p × (1 − alpha). Opaque
// and transparent pixels stay as they are.
void drawOverItself(QImage &image, const QImage &coverage)
{
    for (int y = 0; y < image.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        const uchar *mask = coverage.isNull() ? nullptr : coverage.constScanLine(y);
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = line[x];
            const uint alpha = qAlpha(pixel);
            const uint weight = (255 - alpha) * (mask ? mask[x] : 255u); // 0 ... 255²
            if (alpha == 0 || weight == 0)
                continue;
            const auto over = [weight](uint channel) { return channel + (channel * weight + 255 * 255 / 2) / (255 * 255); };
            line[x] = qRgba(int(over(qRed(pixel))), int(over(qGreen(pixel))), int(over(qBlue(pixel))), int(over(alpha)));
        }
    }
}

bool readableDirectly(const QImage &image)
{
    // Format_RGB32 stores 0xff in the alpha byte: the same bytes as an opaque premultiplied pixel.
    return image.format() == QImage::Format_ARGB32_Premultiplied || image.format() == QImage::Format_RGB32;
}

} // namespace

QXBlurEffect QXBlurEffect::blurEffect()
{
    QXBlurEffect effect;
    effect.setRadius(40.0);
    effect.setSaturationDeltaFactor(1.0);
    return effect;
}

QXBlurEffect QXBlurEffect::lightBlurEffect()
{
    QXBlurEffect effect;
    effect.setRadius(40.0);
    effect.setTintColor(QColor::fromRgbF(0.8f, 0.8f, 0.8f, 0.2f));
    effect.setSaturationDeltaFactor(1.8);
    return effect;
}

QXBlurEffect QXBlurEffect::darkBlurEffect()
{
    QXBlurEffect effect;
    effect.setRadius(50.0);
    effect.setTintColor(QColor::fromRgbF(0.0f, 0.0f, 0.0f, 0.5f));
    effect.setSaturationDeltaFactor(3.0);
    return effect;
}

QImage QXBlurEffect::blurImage(const QImage &image)
{
    const QSizeF points = image.deviceIndependentSize();
    if (image.isNull() || !(points.width() >= 1.0) || !(points.height() >= 1.0))
        return image;

    QImage current = image;
    if (m_cropRect.width() != 0 && m_cropRect.height() != 0) {
        current = qx_imageByCroppingToRect(image, m_cropRect);
        if (current.isNull())
            return current;
    }

    if (m_resize.width() == 0 && m_resize.height() == 0)
        m_resize = QSizeF(current.width(), current.height());
    const double resizeWidth = m_resize.width();
    const double resizeHeight = m_resize.height();
    const double limit = double(kWorkingSizeDivisor) * (kMaximumWorkingSide + 1);
    if (!(resizeWidth >= 0 && resizeWidth < limit) || !(resizeHeight >= 0 && resizeHeight < limit))
        return image;
    const QSize working(int(unsigned(resizeWidth) / kWorkingSizeDivisor),
                        int(unsigned(resizeHeight) / kWorkingSizeDivisor));
    if (working.isEmpty())
        return image;

    const QImage source = readableDirectly(current) ? current : current.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QImage first(working, QImage::Format_ARGB32_Premultiplied);
    if (source.isNull() || first.isNull())
        return image;
    QXPixelKernels::scale(QXPixelKernels::constBitmap(source), QXPixelKernels::bitmap(first));

    // Blur and saturation alternate between two bitmaps: first → second → first.
    const bool blur = m_radius > kThreshold;
    const bool saturate = std::fabs(m_saturationDeltaFactor - 1.0) > kThreshold;
    // Nothing else may share `first` while the kernels write: a shared QImage would detach into a copy.
    QImage processed;
    if (blur || saturate) {
        QImage second(working, QImage::Format_ARGB32_Premultiplied);
        if (!second.isNull()) {
            if (blur) {
                QXPixelKernels::boxConvolve(QXPixelKernels::constBitmap(first), QXPixelKernels::bitmap(second),
                                            boxKernelSize(m_radius));
            }
            QImage &from = blur ? second : first;
            QImage &to = blur ? first : second;
            if (saturate) {
                QXPixelKernels::matrixMultiply(QXPixelKernels::constBitmap(from), QXPixelKernels::bitmap(to),
                                               saturationMatrix(m_saturationDeltaFactor), kSaturationDivisor);
            }
            processed = saturate ? to : from;
        }
    }
    if (processed.isNull()) // nothing to do, or no memory for the second bitmap
        processed = first;
    first = QImage();

    // The output starts as the processed bitmap, which is ours to change.
    QImage output = std::move(processed);
    if (blur)
        drawOverItself(output, m_maskImage.isNull() ? QImage() : maskCoverage(m_maskImage, working));
    if (m_tintColor.isValid()) {
        QPainter painter(&output);
        painter.fillRect(output.rect(), m_tintColor);
    }
    return output;
}
