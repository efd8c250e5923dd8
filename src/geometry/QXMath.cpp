#include <QXFoundation/QXMath.h>

#include <cmath>

const qreal kQXEllipseFactor = 0.55228474983079;
const qreal kQXPiBy180 = 0.017453293;
const qreal kQX180ByPi = 57.295779513;

QSizeF QXSwapWidthAndHeight(QSizeF size)
{
    return QSizeF(size.height(), size.width());
}

qreal QXDegreesToRadians(qreal degrees)
{
    return degrees * kQXPiBy180;
}

qreal QXRadiansToDegrees(qreal radians)
{
    return radians * kQX180ByPi;
}

qreal QXDistanceBetweenPoints(QPointF a, QPointF b)
{
    const qreal dx = a.x() - b.x();
    const qreal dy = a.y() - b.y();
    return std::sqrt(dx * dx + dy * dy);
}
