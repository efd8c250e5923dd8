// Commands and tour section of the geometry area: arc length of one cubic
// segment, and an SVG picture of a path trimmed at both ends with arrow heads.

#include "QxCommand.h"

#include <QXFoundation/QXBezierPath.h>
#include <QXFoundation/QXBezierPathUtilities.h>
#include <QXFoundation/QXMath.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>

#include <cmath>
#include <optional>

namespace {

QString number(qreal value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

// A number for the picture: short, and never "-0".
QString svgNumber(qreal value)
{
    const qreal rounded = std::round(value * 1000.0) / 1000.0;
    return QString::number(rounded == 0 ? 0.0 : rounded, 'g', 10);
}

// Ten significant digits: enough to read, without the last bits of rounding.
QString shortNumber(qreal value)
{
    return QString::number(value, 'g', 10);
}

QString pointText(QPointF p)
{
    return QStringLiteral("(%1, %2)").arg(shortNumber(p.x()), shortNumber(p.y()));
}

std::optional<qreal> parseNumber(const QString &text)
{
    bool ok = false;
    const qreal value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// Absolute SVG path data with the commands M, L, C and Z ("M 0 0 C 0 50 100 50
// 100 0 Z"); commas count as blanks and a command may repeat its numbers.
std::optional<QXBezierPath> parsePathData(const QString &data, QString *error)
{
    static const QRegularExpression token(QStringLiteral("[MLCZ]|[-+]?(?:\\d+\\.?\\d*|\\.\\d+)(?:[eE][-+]?\\d+)?|[,\\s]+|."));
    QStringList tokens;
    for (const QRegularExpressionMatch &match : token.globalMatch(data)) {
        const QString text = match.captured();
        if (!text.trimmed().remove(QLatin1Char(',')).isEmpty())
            tokens.append(text);
    }
    QXBezierPath path;
    QChar command;
    qsizetype i = 0;
    auto take = [&](int count, QPointF *points) {
        for (int k = 0; k < count; ++k) {
            const std::optional<qreal> x = i < tokens.size() ? parseNumber(tokens.at(i)) : std::nullopt;
            const std::optional<qreal> y = i + 1 < tokens.size() ? parseNumber(tokens.at(i + 1)) : std::nullopt;
            if (!x || !y)
                return false;
            points[k] = QPointF(*x, *y);
            i += 2;
        }
        return true;
    };
    while (i < tokens.size()) {
        const QString &t = tokens.at(i);
        if (t.size() == 1 && QStringLiteral("MLCZ").contains(t.at(0))) {
            command = t.at(0);
            ++i;
            if (command == QLatin1Char('Z')) {
                path.closePath();
                command = QChar();
            }
            continue;
        }
        if (command.isNull() || !parseNumber(t)) {
            *error = QStringLiteral("unexpected '%1' in the path data (absolute M, L, C and Z only)").arg(t);
            return std::nullopt;
        }
        QPointF points[3];
        const int count = command == QLatin1Char('C') ? 3 : 1;
        if (!take(count, points)) {
            *error = QStringLiteral("'%1' needs %2 numbers").arg(command).arg(count * 2);
            return std::nullopt;
        }
        if (command == QLatin1Char('M')) {
            path.moveToPoint(points[0]);
            command = QLatin1Char('L'); // as in SVG, further pairs draw lines
        } else if (command == QLatin1Char('L')) {
            path.lineToPoint(points[0]);
        } else {
            path.curveToPoint(points[2], points[0], points[1]);
        }
    }
    return path;
}

QString svgPathData(const QXBezierPath &path)
{
    QStringList parts;
    for (const QXBezierPath::Element &element : path.elements()) {
        switch (element.type) {
        case QXBezierPath::MoveToElement:
            parts << QStringLiteral("M %1 %2").arg(svgNumber(element.points[0].x()), svgNumber(element.points[0].y()));
            break;
        case QXBezierPath::LineToElement:
            parts << QStringLiteral("L %1 %2").arg(svgNumber(element.points[0].x()), svgNumber(element.points[0].y()));
            break;
        case QXBezierPath::CurveToElement:
            parts << QStringLiteral("C %1 %2 %3 %4 %5 %6")
                         .arg(svgNumber(element.points[0].x()), svgNumber(element.points[0].y()),
                              svgNumber(element.points[1].x()), svgNumber(element.points[1].y()),
                              svgNumber(element.points[2].x()), svgNumber(element.points[2].y()));
            break;
        case QXBezierPath::ClosePathElement:
            parts << QStringLiteral("Z");
            break;
        }
    }
    return parts.join(QLatin1Char(' '));
}

// A trimmed-from path keeps the move-tos of the part cut away, so its first
// point is still the uncut start. The arrow heads of the picture belong at
// the cut, so a move-to that is directly followed by another is dropped.
QXBezierPath withoutEmptyMoves(const QXBezierPath &path)
{
    QXBezierPath result;
    const QList<QXBezierPath::Element> &elements = path.elements();
    for (qsizetype i = 0; i < elements.size(); ++i) {
        if (elements.at(i).type == QXBezierPath::MoveToElement && i + 1 < elements.size()
            && elements.at(i + 1).type == QXBezierPath::MoveToElement)
            continue;
        const QXBezierPath::Element &e = elements.at(i);
        switch (e.type) {
        case QXBezierPath::MoveToElement: result.moveToPoint(e.points[0]); break;
        case QXBezierPath::LineToElement: result.lineToPoint(e.points[0]); break;
        case QXBezierPath::CurveToElement: result.curveToPoint(e.points[2], e.points[0], e.points[1]); break;
        case QXBezierPath::ClosePathElement: result.closePath(); break;
        }
    }
    return result;
}

QXBezierPath samplePath()
{
    QXBezierPath path;
    path.moveToPoint(QPointF(20, 160));
    path.curveToPoint(QPointF(160, 100), QPointF(20, 40), QPointF(160, 20));
    path.curveToPoint(QPointF(300, 40), QPointF(160, 180), QPointF(300, 180));
    path.lineToPoint(QPointF(300, 120));
    return path;
}

struct Picture
{
    QXBezierPath original;
    QXBezierPath trimmed;
    QXBezierPath startHead;
    QXBezierPath endHead;
    qreal length = 0;
    qreal from = 0;
    qreal to = 0;
};

Picture makePicture(const QXBezierPath &path, std::optional<qreal> from, std::optional<qreal> to, qreal arrow,
                    qreal angle, qreal maximumError)
{
    Picture picture;
    picture.original = path;
    picture.length = qx_lengthWithMaximumError(path, maximumError);
    picture.from = from.value_or(picture.length * 0.1);
    picture.to = to.value_or(picture.length * 0.9);
    const QXBezierPath head = qx_bezierPathByTrimmingToLength(path, picture.to, maximumError);
    picture.trimmed = withoutEmptyMoves(qx_bezierPathByTrimmingFromLength(head, picture.from, maximumError));
    if (arrow > 0) {
        picture.startHead = qx_bezierPathWithArrowHeadForStartOfLength(picture.trimmed, arrow, angle);
        picture.endHead = qx_bezierPathWithArrowHeadForEndOfLength(picture.trimmed, arrow, angle);
    }
    return picture;
}

QByteArray svgDocument(const Picture &picture)
{
    QRectF box = picture.original.controlPointBounds();
    for (const QXBezierPath *path : {&picture.startHead, &picture.endHead})
        if (!path->isEmpty())
            box = box.united(path->bounds());
    const qreal margin = std::max({box.width(), box.height(), 1.0}) * 0.08 + 4;
    box.adjust(-margin, -margin, margin, margin);
    const qreal stroke = std::max(box.width(), box.height()) / 250.0;

    QString svg;
    svg += QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                          "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"%1 %2 %3 %4\" width=\"%5\" height=\"%6\">\n")
               .arg(svgNumber(box.x()), svgNumber(box.y()), svgNumber(box.width()), svgNumber(box.height()))
               .arg(qRound(std::min(800.0, 800.0 * box.width() / std::max(box.width(), box.height()))))
               .arg(qRound(std::min(800.0, 800.0 * box.height() / std::max(box.width(), box.height()))));
    svg += QStringLiteral("  <title>Path of length %1 trimmed to %2 … %3, arrow heads at both ends</title>\n")
               .arg(svgNumber(picture.length), svgNumber(picture.from), svgNumber(picture.to));
    svg += QStringLiteral("  <rect x=\"%1\" y=\"%2\" width=\"%3\" height=\"%4\" fill=\"white\"/>\n")
               .arg(svgNumber(box.x()), svgNumber(box.y()), svgNumber(box.width()), svgNumber(box.height()));
    auto pathElement = [&](const QString &id, const QXBezierPath &path, const QString &colour, qreal width,
                           const QString &extra) {
        svg += QStringLiteral("  <path id=\"%1\" d=\"%2\" fill=\"none\" stroke=\"%3\" stroke-width=\"%4\" "
                              "stroke-linejoin=\"round\" stroke-linecap=\"round\"%5/>\n")
                   .arg(id, svgPathData(path), colour, svgNumber(width), extra);
    };
    pathElement(QStringLiteral("original"), picture.original, QStringLiteral("#b0b0b0"), stroke,
                QStringLiteral(" stroke-dasharray=\"%1 %1\"").arg(svgNumber(stroke * 3)));
    pathElement(QStringLiteral("trimmed"), picture.trimmed, QStringLiteral("#1f5fbf"), stroke * 2, QString());
    if (!picture.startHead.isEmpty())
        pathElement(QStringLiteral("start-arrow"), picture.startHead, QStringLiteral("#c0392b"), stroke * 2, QString());
    if (!picture.endHead.isEmpty())
        pathElement(QStringLiteral("end-arrow"), picture.endHead, QStringLiteral("#c0392b"), stroke * 2, QString());
    svg += QStringLiteral("</svg>\n");
    return svg.toUtf8();
}

bool writeFile(const QString &path, const QByteArray &bytes, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

int runLength(const QxCommand &command, const QStringList &arguments)
{
    qreal maximumError = 0.1;
    QList<qreal> values;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == QLatin1String("--error")) {
            if (i + 1 >= arguments.size())
                return Qx::usageError(command, QStringLiteral("--error needs a value"));
            const std::optional<qreal> value = parseNumber(arguments.at(++i));
            if (!value || *value <= 0)
                return Qx::usageError(command, QStringLiteral("--error needs a positive number"));
            maximumError = *value;
            continue;
        }
        const std::optional<qreal> value = parseNumber(argument);
        if (!value)
            return Qx::usageError(command, QStringLiteral("'%1' is not a coordinate").arg(argument));
        values.append(*value);
    }
    if (values.size() != 8)
        return Qx::usageError(command, QStringLiteral("length needs 8 coordinates, got %1").arg(values.size()));
    const QPointF segment[4] = {{values[0], values[1]}, {values[2], values[3]}, {values[4], values[5]}, {values[6], values[7]}};
    Qx::printLine(number(QXLengthOfBezierPath(segment, maximumError)));
    return QxSuccess;
}

int runSvg(const QxCommand &command, const QStringList &arguments)
{
    QXBezierPath path = samplePath();
    std::optional<qreal> from;
    std::optional<qreal> to;
    qreal arrow = 12;
    qreal angle = 30;
    qreal maximumError = 0.1;
    QString output;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &option = arguments.at(i);
        if (i + 1 >= arguments.size())
            return Qx::usageError(command, QStringLiteral("'%1' needs a value").arg(option));
        const QString &value = arguments.at(++i);
        if (option == QLatin1String("--path")) {
            QString error;
            const std::optional<QXBezierPath> parsed = parsePathData(value, &error);
            if (!parsed)
                return Qx::usageError(command, error);
            path = *parsed;
            continue;
        }
        if (option == QLatin1String("--output") || option == QLatin1String("-o")) {
            output = value;
            continue;
        }
        const std::optional<qreal> parsed = parseNumber(value);
        if (!parsed)
            return Qx::usageError(command, QStringLiteral("'%1' is not a number").arg(value));
        if (option == QLatin1String("--from"))
            from = parsed;
        else if (option == QLatin1String("--to"))
            to = parsed;
        else if (option == QLatin1String("--arrow"))
            arrow = *parsed;
        else if (option == QLatin1String("--angle"))
            angle = *parsed;
        else if (option == QLatin1String("--error") && *parsed > 0)
            maximumError = *parsed;
        else if (option == QLatin1String("--error"))
            return Qx::usageError(command, QStringLiteral("--error needs a positive number"));
        else
            return Qx::usageError(command, QStringLiteral("unknown option '%1'").arg(option));
    }
    const QByteArray svg = svgDocument(makePicture(path, from, to, arrow, angle, maximumError));
    if (output.isEmpty() || output == QLatin1String("-")) {
        Qx::writeStdout(svg);
        return QxSuccess;
    }
    QString error;
    if (!writeFile(output, svg, &error))
        return Qx::failure(command.name, error);
    return QxSuccess;
}

QxCommand bezierCommand()
{
    QxCommand command;
    command.name = QStringLiteral("bezier");
    command.synopsis = QStringLiteral(
        "bezier length X0 Y0 X1 Y1 X2 Y2 X3 Y3 [--error E]\n"
        "bezier svg [--path DATA] [--from L] [--to L] [--arrow LENGTH] [--angle DEGREES] [--error E] [-o FILE]");
    command.help = QStringLiteral(
        "length: prints the arc length of the cubic segment from (X0, Y0) to (X3, Y3) with control\n"
        "        points (X1, Y1) and (X2, Y2), measured to within about E (default 0.1).\n"
        "svg:    writes an SVG picture (to FILE, or standard output) of a path trimmed to the part\n"
        "        between the lengths L (default 10% and 90% of its length), with V-shaped arrow\n"
        "        heads of barb LENGTH (default 12) at ANGLE degrees (default 30) at both ends of the\n"
        "        kept part. The uncut path is drawn dashed. DATA is absolute SVG path data with M, L,\n"
        "        C and Z (\"M 0 0 C 0 80 100 80 100 0 Z\"); without it a sample S-curve is drawn.");
    command.run = [command](const QStringList &arguments) {
        if (arguments.isEmpty())
            return Qx::usageError(command, QStringLiteral("missing action"));
        const QString &action = arguments.at(0);
        if (action == QLatin1String("length"))
            return runLength(command, arguments.mid(1));
        if (action == QLatin1String("svg"))
            return runSvg(command, arguments.mid(1));
        return Qx::usageError(command, QStringLiteral("unknown action '%1'").arg(action));
    };
    return command;
}

QString pathText(const QXBezierPath &path)
{
    QStringList parts;
    for (const QXBezierPath::Element &element : path.elements()) {
        switch (element.type) {
        case QXBezierPath::MoveToElement: parts << QStringLiteral("move ") + pointText(element.points[0]); break;
        case QXBezierPath::LineToElement: parts << QStringLiteral("line ") + pointText(element.points[0]); break;
        case QXBezierPath::CurveToElement: parts << QStringLiteral("curve ") + pointText(element.points[2]); break;
        case QXBezierPath::ClosePathElement: parts << QStringLiteral("close"); break;
        }
    }
    return parts.join(QStringLiteral(", "));
}

QString rounded(qreal value)
{
    return QString::number(value, 'f', 4);
}

void tour(QxTour &tour)
{
    tour.line(QStringLiteral("Angles use the short factors 0.017453293 and 57.295779513:"));
    tour.example(QStringLiteral("QXDegreesToRadians(180)"), number(QXDegreesToRadians(180)));
    tour.example(QStringLiteral("QXRadiansToDegrees(1)"), number(QXRadiansToDegrees(1)));

    tour.line(QStringLiteral("A cubic segment split at its middle (de Casteljau):"));
    const QPointF arch[4] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    QPointF left[4];
    QPointF right[4];
    QXSubdivideBezierPath(arch, left, right);
    tour.example(QStringLiteral("QXSubdivideBezierPath((0,0) (0,1) (1,1) (1,0)) left"),
                 QStringLiteral("%1 %2 %3 %4").arg(pointText(left[0]), pointText(left[1]), pointText(left[2]), pointText(left[3])));
    tour.line(QStringLiteral("Arc length to an error bound; a straight segment needs no subdivision:"));
    const QPointF straight[4] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}};
    tour.example(QStringLiteral("QXLengthOfBezierPath((0,0) (1,0) (2,0) (3,0), 0.1)"), number(QXLengthOfBezierPath(straight, 0.1)));
    const QPointF quarter[4] = {{100, 0}, {100, 100 * kQXEllipseFactor}, {100 * kQXEllipseFactor, 100}, {0, 100}};
    for (const qreal bound : {0.1, 1e-3, 1e-6})
        tour.example(QStringLiteral("quarter circle of radius 100, bound %1").arg(number(bound)),
                     QStringLiteral("%1 (the circle itself: %2)").arg(shortNumber(QXLengthOfBezierPath(quarter, bound)), shortNumber(M_PI * 50)));
    QXSubdivideBezierPathAtLength(straight, left, right, 1, 0.01);
    tour.example(QStringLiteral("QXSubdivideBezierPathAtLength(straight, 1, 0.01) cut at"), pointText(left[3]));

    tour.line(QStringLiteral("Paths: length, trimming and arrow heads:"));
    QXBezierPath polyline;
    polyline.moveToPoint(QPointF(0, 0));
    polyline.lineToPoint(QPointF(3, 4));
    polyline.lineToPoint(QPointF(3, 0));
    tour.example(QStringLiteral("qx_length(move (0, 0), line (3, 4), line (3, 0))"), number(qx_length(polyline)));
    tour.example(QStringLiteral("qx_bezierPathByTrimmingToLength(…, 6)"), pathText(qx_bezierPathByTrimmingToLength(polyline, 6)));
    tour.example(QStringLiteral("qx_bezierPathByTrimmingFromLength(…, 6)"), pathText(qx_bezierPathByTrimmingFromLength(polyline, 6)));
    QXBezierPath arrowLine;
    arrowLine.moveToPoint(QPointF(0, 0));
    arrowLine.lineToPoint(QPointF(10, 0));
    const QXBezierPath head = qx_bezierPathWithArrowHeadForStartOfLength(arrowLine, 2, 30);
    tour.example(QStringLiteral("qx_bezierPathWithArrowHeadForStartOfLength(move (0, 0), line (10, 0), 2, 30)"), pathText(head));
    const QXBezierPath roundRect = qx_bezierPathWithRoundRect(QRectF(0, 0, 100, 50), 10, 10);
    tour.example(QStringLiteral("qx_bezierPathWithRoundRect((0, 0, 100, 50), 10, 10)"),
                 QStringLiteral("%1 elements, length %2").arg(roundRect.elementCount()).arg(rounded(qx_length(roundRect))));

    const QString file = QDir(tour.galleryDirectory()).filePath(QStringLiteral("bezier-trimmed-arrows.svg"));
    QString error;
    if (writeFile(file, svgDocument(makePicture(samplePath(), std::nullopt, std::nullopt, 12, 30, 0.1)), &error))
        tour.example(QStringLiteral("qx bezier svg -o %1").arg(file), QStringLiteral("an S-curve trimmed to 10%…90% of its length, arrow heads at both ends"));
    else
        tour.line(error);
}

} // namespace

void registerGeometryCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tourSections)
{
    commands.push_back(bezierCommand());
    tourSections.push_back({QStringLiteral("Geometry and Bezier paths"), tour});
}
