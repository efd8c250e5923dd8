// Commands and tour of the imaging area: scaling, rotation, cropping, the
// blur effect, three-part images and colours.

#include "QxCommand.h"

#include <QXFoundation/QXBlurEffect.h>
#include <QXFoundation/QXColor.h>
#include <QXFoundation/QXImage.h>
#include <QXFoundation/QXThreePartImage.h>

#include <QDir>
#include <QImageReader>
#include <QImageWriter>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QRegularExpression>

#include <cmath>
#include <optional>

namespace {

std::optional<double> number(const QString &text)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// "WIDTHxHEIGHT", fractions allowed.
std::optional<QSizeF> sizeArgument(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('x'));
    if (parts.size() != 2)
        return std::nullopt;
    const std::optional<double> width = number(parts.at(0));
    const std::optional<double> height = number(parts.at(1));
    if (!width || !height)
        return std::nullopt;
    return QSizeF(*width, *height);
}

// RRGGBBAA, or RRGGBB for an opaque colour.
std::optional<QColor> tintArgument(const QString &text)
{
    static const QRegularExpression hex(QStringLiteral("^([0-9a-fA-F]{6}|[0-9a-fA-F]{8})$"));
    if (!hex.match(text).hasMatch())
        return std::nullopt;
    return qx_colorWithHexString(text);
}

bool readImage(const QString &command, const QString &path, QImage *image, int *status)
{
    QImageReader reader(path);
    *image = reader.read();
    if (image->isNull()) {
        *status = Qx::failure(command, QStringLiteral("cannot read %1: %2").arg(path, reader.errorString()));
        return false;
    }
    return true;
}

int writeImage(const QString &command, const QImage &image, const QString &path)
{
    QImageWriter writer(path);
    if (!writer.write(image))
        return Qx::failure(command, QStringLiteral("cannot write %1: %2").arg(path, writer.errorString()));
    Qx::printLine(QStringLiteral("%1: %2 x %3 pixels").arg(path).arg(image.width()).arg(image.height()));
    return QxSuccess;
}

// Reads IN, applies `transform`, writes OUT; a null result is a failure.
int transformFile(const QString &command, const QString &in, const QString &out,
                  const std::function<QImage(const QImage &)> &transform, const QString &whenNull)
{
    QImage image;
    int status = QxSuccess;
    if (!readImage(command, in, &image, &status))
        return status;
    const QImage result = transform(image);
    if (result.isNull())
        return Qx::failure(command, whenNull);
    return writeImage(command, result, out);
}

int runScale(const QxCommand &command, const QStringList &arguments)
{
    if (arguments.size() != 5)
        return Qx::usageError(command, QStringLiteral("scale needs a mode, a size, IN and OUT"));
    const QString &modeName = arguments.at(1);
    QXImageScalingMode mode;
    if (modeName == QLatin1String("fit"))
        mode = QXImageScalingModeFit;
    else if (modeName == QLatin1String("fill"))
        mode = QXImageScalingModeFill;
    else if (modeName == QLatin1String("aspect-fill"))
        mode = QXImageScalingModeAspectFill;
    else
        return Qx::usageError(command, QStringLiteral("unknown scaling mode '%1'").arg(modeName));
    const std::optional<QSizeF> size = sizeArgument(arguments.at(2));
    if (!size)
        return Qx::usageError(command, QStringLiteral("'%1' is not a size like 640x480").arg(arguments.at(2)));
    return transformFile(
        command.name, arguments.at(3), arguments.at(4),
        [&](const QImage &image) { return qx_imageByScalingToSize(image, *size, mode); },
        QStringLiteral("cannot scale to %1: the size is empty or too large").arg(arguments.at(2)));
}

int runRotate(const QxCommand &command, const QStringList &arguments)
{
    if (arguments.size() != 4)
        return Qx::usageError(command, QStringLiteral("rotate needs DEGREES, IN and OUT"));
    const std::optional<double> degrees = number(arguments.at(1));
    if (!degrees)
        return Qx::usageError(command, QStringLiteral("'%1' is not an angle").arg(arguments.at(1)));
    return transformFile(
        command.name, arguments.at(2), arguments.at(3),
        [&](const QImage &image) { return qx_imageByRotatingInDegrees(image, *degrees); },
        QStringLiteral("the rotated image would be too large"));
}

int runCrop(const QxCommand &command, const QStringList &arguments)
{
    if (arguments.size() != 7)
        return Qx::usageError(command, QStringLiteral("crop needs X, Y, WIDTH, HEIGHT, IN and OUT"));
    double values[4];
    for (int i = 0; i < 4; ++i) {
        const std::optional<double> value = number(arguments.at(1 + i));
        if (!value)
            return Qx::usageError(command, QStringLiteral("'%1' is not a number").arg(arguments.at(1 + i)));
        values[i] = *value;
    }
    const QRectF rect(values[0], values[1], values[2], values[3]);
    return transformFile(
        command.name, arguments.at(5), arguments.at(6),
        [&](const QImage &image) { return qx_imageByCroppingToRect(image, rect); },
        QStringLiteral("the rectangle lies outside the image"));
}

int runBlur(const QxCommand &command, const QStringList &arguments)
{
    // The preset is the base wherever it stands; the other options override it.
    const bool light = arguments.contains(QLatin1String("--light"));
    const bool dark = arguments.contains(QLatin1String("--dark"));
    if (light && dark)
        return Qx::usageError(command, QStringLiteral("choose one of --light and --dark"));
    QXBlurEffect effect = light ? QXBlurEffect::lightBlurEffect()
                                : dark ? QXBlurEffect::darkBlurEffect() : QXBlurEffect::blurEffect();
    QStringList files;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        const bool hasValue = i + 1 < arguments.size();
        if (argument == QLatin1String("--light") || argument == QLatin1String("--dark")) {
            continue;
        } else if (argument == QLatin1String("--radius") || argument == QLatin1String("--saturation")) {
            const std::optional<double> value = hasValue ? number(arguments.at(i + 1)) : std::nullopt;
            if (!value)
                return Qx::usageError(command, QStringLiteral("%1 needs a number").arg(argument));
            if (argument == QLatin1String("--radius"))
                effect.setRadius(*value);
            else
                effect.setSaturationDeltaFactor(*value);
            ++i;
        } else if (argument == QLatin1String("--tint")) {
            const std::optional<QColor> tint = hasValue ? tintArgument(arguments.at(i + 1)) : std::nullopt;
            if (!tint)
                return Qx::usageError(command, QStringLiteral("--tint needs a colour like 00000080 (RRGGBBAA)"));
            effect.setTintColor(*tint);
            ++i;
        } else if (argument.startsWith(QLatin1String("--"))) {
            return Qx::usageError(command, QStringLiteral("unknown option '%1'").arg(argument));
        } else {
            files.append(argument);
        }
    }
    if (files.size() != 2)
        return Qx::usageError(command, QStringLiteral("blur needs IN and OUT"));
    return transformFile(
        command.name, files.at(0), files.at(1), [&](const QImage &image) { return effect.blurImage(image); },
        QStringLiteral("nothing to blur"));
}

QxCommand imageCommand()
{
    QxCommand command;
    command.name = QStringLiteral("image");
    command.synopsis = QStringLiteral(
        "image scale fit|fill|aspect-fill WIDTHxHEIGHT IN OUT\n"
        "image rotate DEGREES IN OUT\n"
        "image crop X Y WIDTH HEIGHT IN OUT\n"
        "image blur [--light | --dark | --radius R --saturation S --tint RRGGBBAA] IN OUT");
    command.help = QStringLiteral(
        "Reads the image IN, transforms it and writes OUT in the format its extension names\n"
        "(png, jpg, bmp, ppm ...). PNG keeps transparency; formats without it drop the alpha.\n"
        "Sizes are in points (pixels for an ordinary file). Prints OUT and its pixel size.\n"
        "\n"
        "scale fill         stretches IN to exactly WIDTHxHEIGHT\n"
        "scale fit          fits all of IN inside, centred, with transparent margins\n"
        "scale aspect-fill  covers WIDTHxHEIGHT and cuts the overflow away symmetrically\n"
        "rotate             turns IN clockwise about its centre; the corners are transparent\n"
        "crop               keeps the pixels of the rectangle (clipped to the image)\n"
        "blur               the frosted-glass effect: a picture a quarter of the size, blurred.\n"
        "                   Without options radius 40 and no other change; --light adds white,\n"
        "                   --dark black and both more saturation. --radius (working pixels),\n"
        "                   --saturation (1 keeps colours, 0 greys) and --tint override them.\n"
        "\n"
        "Exit status 1 when IN cannot be read, OUT cannot be written or the result would be\n"
        "empty (a crop outside the image) or too large (more than 32767 pixels a side).");
    command.application = QxCommand::Application::Gui;
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        const QString &action = arguments.at(0);
        if (action == QLatin1String("scale"))
            return runScale(command, arguments);
        if (action == QLatin1String("rotate"))
            return runRotate(command, arguments);
        if (action == QLatin1String("crop"))
            return runCrop(command, arguments);
        if (action == QLatin1String("blur"))
            return runBlur(command, arguments);
        return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(action));
    };
    return command;
}

QString componentLine(const char *name, double value)
{
    return QStringLiteral("%1 %2 (%3)")
        .arg(QLatin1String(name), -6)
        .arg(value, 0, 'f', 4)
        .arg(int(std::lround(value * 255)));
}

QxCommand colorCommand()
{
    QxCommand command;
    command.name = QStringLiteral("color");
    command.synopsis = QStringLiteral("color HEXSTRING");
    command.help = QStringLiteral(
        "Reads a colour the way the library reads hexadecimal strings and prints its components\n"
        "(0-1, and 0-255), its luminosity, the contrasting colour and its hex string again.\n"
        "Leading white space and a 0x prefix are skipped; strings shorter than 7 characters are\n"
        "RRGGBB, longer ones RRGGBBAA ('ff0000' is red, 'ff000080' half-transparent red, 'fff'\n"
        "is 0x000fff). Exit status 1 when the string does not start with a hex digit ('#fff').");
    command.run = [command](const QStringList &arguments) {
        if (arguments.size() != 1)
            return Qx::usageError(command, QStringLiteral("expected one HEXSTRING"));
        const QColor color = qx_colorWithHexString(arguments.at(0));
        if (!color.isValid())
            return Qx::failure(command.name, QStringLiteral("no hexadecimal number at the start of '%1'").arg(arguments.at(0)));
        Qx::printLine(QStringLiteral("form        %1").arg(arguments.at(0).size() < 7 ? QStringLiteral("RGB")
                                                                                          : QStringLiteral("RGBA")));
        Qx::printLine(componentLine("red", color.redF()));
        Qx::printLine(componentLine("green", color.greenF()));
        Qx::printLine(componentLine("blue", color.blueF()));
        Qx::printLine(componentLine("alpha", color.alphaF()));
        Qx::printLine(QStringLiteral("luminosity  %1").arg(qx_luminosity(color), 0, 'g', 6));
        Qx::printLine(QStringLiteral("contrasting %1").arg(qx_contrastingColor(color) == QColor(Qt::black)
                                                               ? QStringLiteral("black")
                                                               : QStringLiteral("white")));
        Qx::printLine(QStringLiteral("hex         %1").arg(qx_hexStringFromColor(color)));
        return int(QxSuccess);
    };
    return command;
}

// A landscape of sorts: sky, sun, hills, a house, with sharp edges and
// strong colours so that every effect shows.
QImage samplePicture()
{
    QImage image(480, 320, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient sky(0, 0, 0, 320);
    sky.setColorAt(0, QColor(40, 110, 220));
    sky.setColorAt(1, QColor(250, 200, 120));
    painter.fillRect(image.rect(), sky);
    QRadialGradient sun(QPointF(360, 90), 50);
    sun.setColorAt(0, QColor(255, 250, 200));
    sun.setColorAt(1, QColor(255, 170, 30));
    painter.setPen(Qt::NoPen);
    painter.setBrush(sun);
    painter.drawEllipse(QPointF(360, 90), 50, 50);
    QPainterPath hills;
    hills.moveTo(0, 230);
    hills.cubicTo(120, 150, 220, 280, 480, 200);
    hills.lineTo(480, 320);
    hills.lineTo(0, 320);
    hills.closeSubpath();
    painter.setBrush(QColor(40, 150, 70));
    painter.drawPath(hills);
    painter.setBrush(QColor(200, 40, 40));
    painter.drawRect(QRectF(90, 190, 70, 60));
    painter.setBrush(QColor(90, 50, 30));
    painter.drawPolygon(QPolygonF({QPointF(80, 192), QPointF(125, 150), QPointF(170, 192)}));
    painter.setBrush(QColor(250, 230, 90));
    painter.drawRect(QRectF(105, 205, 18, 18));
    painter.setPen(QPen(Qt::white, 3));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(image.rect().adjusted(1, 1, -2, -2));
    return image;
}

// A rounded button background: dark caps, a lighter centre.
QImage buttonSource()
{
    QImage image(60, 32, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient shade(0, 0, 0, 32);
    shade.setColorAt(0, QColor(120, 170, 250));
    shade.setColorAt(1, QColor(30, 80, 190));
    painter.setBrush(shade);
    painter.setPen(QPen(QColor(20, 40, 110), 2));
    painter.drawRoundedRect(QRectF(1, 1, 58, 30), 15, 15);
    return image;
}

void tour(QxTour &tour)
{
    tour.line(QStringLiteral("Colours from hex strings: the length decides between RRGGBB and RRGGBBAA."));
    for (const char *text : {"336699", "ff000080", "fff", "#336699"}) {
        const QColor color = qx_colorWithHexString(QString::fromLatin1(text));
        tour.example(QStringLiteral("qx_colorWithHexString(\"%1\")").arg(QLatin1String(text)),
                     color.isValid() ? QStringLiteral("%1, luminosity %2, contrasting %3")
                                           .arg(qx_hexStringFromColor(color))
                                           .arg(qx_luminosity(color), 0, 'g', 4)
                                           .arg(qx_contrastingColor(color) == QColor(Qt::black)
                                                    ? QStringLiteral("black")
                                                    : QStringLiteral("white"))
                                     : QStringLiteral("invalid (no hex digit at the start)"));
    }
    tour.example(QStringLiteral("qx_darkerColor(ff8000ff)"), qx_hexStringFromColor(qx_darkerColor(qx_colorWithRGBHex(0xff8000))));
    tour.example(QStringLiteral("qx_lighterColorBy(ff8000ff, 0.25)"),
                 qx_hexStringFromColor(qx_lighterColorBy(qx_colorWithRGBHex(0xff8000), 0.25)));

    const QString folder = tour.galleryDirectory();
    const QDir directory(folder);
    const QImage picture = samplePicture();
    QStringList written;
    const auto save = [&](const QString &name, const QImage &image, const QString &what) {
        if (!image.isNull() && image.save(directory.filePath(name)))
            written.append(QStringLiteral("%1  %2 x %3  %4").arg(name, -24).arg(image.width()).arg(image.height()).arg(what));
        else
            written.append(QStringLiteral("%1  could not be written").arg(name, -24));
    };
    save(QStringLiteral("sample.png"), picture, QStringLiteral("the picture every effect starts from"));
    save(QStringLiteral("fill-200x200.png"), qx_imageByScalingToFillSize(picture, QSizeF(200, 200)),
         QStringLiteral("stretched"));
    save(QStringLiteral("fit-200x200.png"), qx_imageByScalingToFitSize(picture, QSizeF(200, 200)),
         QStringLiteral("whole picture, transparent margins"));
    save(QStringLiteral("aspect-fill-200x200.png"), qx_imageByScalingToAspectFillSize(picture, QSizeF(200, 200)),
         QStringLiteral("covered, sides cut away"));
    save(QStringLiteral("rotate-30.png"), qx_imageByRotatingInDegrees(picture, 30),
         QStringLiteral("30 degrees clockwise, transparent corners"));
    save(QStringLiteral("crop.png"), qx_imageByCroppingToRect(picture, QRectF(60, 130, 160, 140)),
         QStringLiteral("the house"));
    QXBlurEffect plain = QXBlurEffect::blurEffect();
    save(QStringLiteral("blur.png"), plain.blurImage(picture), QStringLiteral("blurEffect: radius 40"));
    QXBlurEffect light = QXBlurEffect::lightBlurEffect();
    save(QStringLiteral("blur-light.png"), light.blurImage(picture),
         QStringLiteral("lightBlurEffect: more colour, white veil"));
    QXBlurEffect dark = QXBlurEffect::darkBlurEffect();
    save(QStringLiteral("blur-dark.png"), dark.blurImage(picture),
         QStringLiteral("darkBlurEffect: radius 50, strong colour, black veil"));
    QXBlurEffect grey;
    grey.setRadius(8);
    save(QStringLiteral("blur-grey.png"), grey.blurImage(picture), QStringLiteral("radius 8, saturation 0"));

    // One button background drawn at three widths: the caps keep their shape.
    const auto button = QXScalableImage::scaleableImageWithImage(buttonSource(), 16, 16);
    QImage buttons(320, 120, QImage::Format_ARGB32_Premultiplied);
    buttons.fill(Qt::white);
    {
        QPainter painter(&buttons);
        button->drawInRect(painter, QRectF(10, 8, 40, 32));
        button->drawInRect(painter, QRectF(10, 46, 140, 32));
        button->drawInRect(painter, QRectF(10, 84, 300, 32));
    }
    save(QStringLiteral("three-part.png"), buttons, QStringLiteral("one button, three widths"));

    tour.line(QStringLiteral("Pictures written to %1:").arg(QDir::toNativeSeparators(folder)));
    for (const QString &line : std::as_const(written))
        tour.line(QStringLiteral("  ") + line);
}

} // namespace

void registerImagingCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(imageCommand());
    commands.push_back(colorCommand());
    tourSections.push_back({QStringLiteral("Images and colours"), tour});
}
