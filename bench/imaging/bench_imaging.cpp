// Box convolution on a 1000 × 750 working bitmap at kernel sizes 3, 75 and
// 255, next to OpenCV's cv::blur (same kernel, replicated border, same
// buffer, one thread) and memcpy of the buffer; then the whole blur effect
// with its three presets on a 4000 × 3000 image.

#include <QXFoundation/QXBlurEffect.h>

#include "QxBench.h"
#include "imaging/QXPixelKernels_p.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QRandomGenerator>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#ifdef QX_BENCH_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

// A picture with structure at every scale: gradients, a few shapes, noise.
QImage samplePicture(int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, width, height);
    gradient.setColorAt(0, QColor(30, 90, 200));
    gradient.setColorAt(1, QColor(240, 180, 40));
    painter.fillRect(image.rect(), gradient);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(200, 30, 60));
    painter.drawEllipse(QRectF(width * 0.1, height * 0.2, width * 0.3, height * 0.4));
    painter.setBrush(QColor(20, 160, 90));
    painter.drawRect(QRectF(width * 0.55, height * 0.5, width * 0.35, height * 0.3));
    painter.end();
    QRandomGenerator random(42);
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int noise = int(random.bounded(17)) - 8;
            const QRgb p = line[x];
            line[x] = qRgb(qBound(0, qRed(p) + noise, 255), qBound(0, qGreen(p) + noise, 255),
                           qBound(0, qBlue(p) + noise, 255));
        }
    }
    return image;
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const int repeats = argc > 1 ? std::max(1, atoi(argv[1])) : 30;

    const QImage working = samplePicture(1000, 750);
    QImage output(working.size(), QImage::Format_ARGB32_Premultiplied);
    const size_t bytes = size_t(working.sizeInBytes());
    std::printf("box convolution, 1000 x 750 BGRA (%.1f MiB), best of %d runs, one thread, %s\n",
                bytes / 1048576.0, repeats, QXPixelKernels::usesAvx2() ? "AVX2" : "generic code");

#ifdef QX_BENCH_HAVE_OPENCV
    cv::setNumThreads(1);
    const cv::Mat source(working.height(), working.width(), CV_8UC4, const_cast<uchar *>(working.constBits()),
                         size_t(working.bytesPerLine()));
    cv::Mat reference(output.height(), output.width(), CV_8UC4, output.bits(), size_t(output.bytesPerLine()));
#endif
    // Every measurement is taken in turn within each round, so that a
    // change of load on a shared machine reaches all of them alike.
    const int kernels[3] = {3, 75, 255};
    double copy = std::numeric_limits<double>::infinity();
    double ours[3] = {copy, copy, copy};
    double theirs[3] = {copy, copy, copy};
    for (int round = 0; round < repeats; ++round) {
        copy = std::min(copy, QxBench::bestOf(1, [&] {
            std::memcpy(output.bits(), working.constBits(), bytes);
            QxBench::keep(output);
        }));
        for (int k = 0; k < 3; ++k) {
            ours[k] = std::min(ours[k], QxBench::bestOf(1, [&] {
                QXPixelKernels::boxConvolve(QXPixelKernels::constBitmap(working), QXPixelKernels::bitmap(output),
                                            kernels[k]);
                QxBench::keep(output);
            }));
#ifdef QX_BENCH_HAVE_OPENCV
            theirs[k] = std::min(theirs[k], QxBench::bestOf(1, [&] {
                cv::blur(source, reference, cv::Size(kernels[k], kernels[k]), cv::Point(-1, -1), cv::BORDER_REPLICATE);
                QxBench::keep(reference);
            }));
#endif
        }
    }
    std::printf("  %-28s %8.3f ms  %7.0f MiB/s\n", "memcpy (floor)", copy * 1e3, QxBench::mibPerSecond(bytes, copy));
    for (int k = 0; k < 3; ++k) {
        std::printf("  %-28s %8.3f ms  %7.0f MiB/s  %5.2f x memcpy\n",
                    qPrintable(QStringLiteral("boxConvolve k=%1").arg(kernels[k])), ours[k] * 1e3,
                    QxBench::mibPerSecond(bytes, ours[k]), ours[k] / copy);
#ifdef QX_BENCH_HAVE_OPENCV
        // The same averages: OpenCV rounds through single precision, so one level apart at most.
        QImage mine(working.size(), QImage::Format_ARGB32_Premultiplied);
        QXPixelKernels::boxConvolve(QXPixelKernels::constBitmap(working), QXPixelKernels::bitmap(mine), kernels[k]);
        cv::blur(source, reference, cv::Size(kernels[k], kernels[k]), cv::Point(-1, -1), cv::BORDER_REPLICATE);
        int difference = 0;
        for (int y = 0; y < working.height(); ++y)
            for (qsizetype i = 0; i < 4 * qsizetype(working.width()); ++i)
                difference = std::max(difference, std::abs(int(mine.constScanLine(y)[i]) - int(reference.ptr<uchar>(y)[i])));
        std::printf("  %-28s %8.3f ms  %7.0f MiB/s  %5.2f x memcpy  (ours %.2f x faster; results differ by %d at most)\n",
                    qPrintable(QStringLiteral("cv::blur k=%1").arg(kernels[k])), theirs[k] * 1e3,
                    QxBench::mibPerSecond(bytes, theirs[k]), theirs[k] / copy, theirs[k] / ours[k], difference);
#endif
    }
#ifndef QX_BENCH_HAVE_OPENCV
    std::printf("  cv::blur: reference missing (OpenCV not found; scripts/bootstrap.sh --bench installs it)\n");
#endif
    const double times[3] = {ours[0], ours[1], ours[2]};
    std::printf("  k=255 / k=3 time ratio: %.2f\n\n", times[2] / times[0]);

    const QImage large = samplePicture(4000, 3000);
    const int effectRepeats = std::max(3, repeats / 5);
    std::printf("steps of the effect on its bitmaps, best of %d runs\n", effectRepeats);
    const double scaling = QxBench::bestOf(effectRepeats, [&] {
        QXPixelKernels::scale(QXPixelKernels::constBitmap(large), QXPixelKernels::bitmap(output));
        QxBench::keep(output);
    });
    std::printf("  %-28s %8.3f ms  %7.0f MiB/s of source\n", "scale 4000x3000 -> 1000x750", scaling * 1e3,
                QxBench::mibPerSecond(double(large.sizeInBytes()), scaling));
    const std::array<qint16, 16> saturation = {731, -37, -37, 0, -366, 402, -366, 0, -109, -109, 659, 0, 0, 0, 0, 256};
    const double matrix = QxBench::bestOf(effectRepeats, [&] {
        QXPixelKernels::matrixMultiply(QXPixelKernels::constBitmap(working), QXPixelKernels::bitmap(output), saturation, 256);
        QxBench::keep(output);
    });
    std::printf("  %-28s %8.3f ms\n\n", "matrixMultiply 1000x750", matrix * 1e3);

    std::printf("blurImage, 4000 x 3000 (%.1f MiB) into 1000 x 750, best of %d runs\n",
                large.sizeInBytes() / 1048576.0, effectRepeats);
    const struct {
        const char *name;
        QXBlurEffect effect;
    } presets[] = {
        {"blurEffect (k=75)", QXBlurEffect::blurEffect()},
        {"lightBlurEffect (k=75)", QXBlurEffect::lightBlurEffect()},
        {"darkBlurEffect (k=95)", QXBlurEffect::darkBlurEffect()},
    };
    for (const auto &preset : presets) {
        QXBlurEffect effect = preset.effect;
        const double time = QxBench::bestOf(effectRepeats, [&] {
            QImage result = effect.blurImage(large);
            QxBench::keep(result);
        });
        std::printf("  %-28s %8.3f ms\n", preset.name, time * 1e3);
    }
    return 0;
}
