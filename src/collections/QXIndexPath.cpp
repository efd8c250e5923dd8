#include <QXFoundation/QXIndexPath.h>

#include <algorithm>

quint64 qx_firstIndex(const QXIndexPath &indexPath)
{
    return indexPath.indexAtPosition(0);
}

quint64 qx_lastIndex(const QXIndexPath &indexPath)
{
    return indexPath.indexAtPosition(indexPath.length() - 1);
}

QXIndexPath qx_indexPathByInsertingIndex(const QXIndexPath &indexPath, quint64 index, quint64 position)
{
    QList<quint64> indexes = indexPath.indexes();
    indexes.insert(qsizetype(std::min(position, quint64(indexes.size()))), index);
    return QXIndexPath(indexes);
}
