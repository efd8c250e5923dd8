#pragma once

#include <QXFoundation/QXGlobal.h>
#include <QXFoundation/QXRange.h>

#include <QList>
#include <QMetaType>

#include <initializer_list>

/*!
  A path of indexes into nested lists (or a tree): (1, 2, 3) is the fourth
  child of the third child of the second top-level item. A value type; the
  default path is empty.
*/
class QXIndexPath
{
public:
    QXIndexPath() = default;
    explicit QXIndexPath(quint64 index)
        : m_indexes{index}
    {
    }
    QXIndexPath(std::initializer_list<quint64> indexes)
        : m_indexes(indexes)
    {
    }
    explicit QXIndexPath(const QList<quint64> &indexes)
        : m_indexes(indexes)
    {
    }

    qsizetype length() const { return m_indexes.size(); }
    // The index at `position`, or QXNotFound beyond the end.
    quint64 indexAtPosition(qsizetype position) const
    {
        return position >= 0 && position < m_indexes.size() ? m_indexes.at(position) : quint64(QXNotFound);
    }
    const QList<quint64> &indexes() const { return m_indexes; }

    QXIndexPath indexPathByAddingIndex(quint64 index) const
    {
        QXIndexPath path = *this;
        path.m_indexes.append(index);
        return path;
    }
    // The path without its last index; the empty path stays empty.
    QXIndexPath indexPathByRemovingLastIndex() const
    {
        return QXIndexPath(m_indexes.isEmpty() ? m_indexes : m_indexes.first(m_indexes.size() - 1));
    }

    friend bool operator==(const QXIndexPath &a, const QXIndexPath &b) { return a.m_indexes == b.m_indexes; }
    friend bool operator!=(const QXIndexPath &a, const QXIndexPath &b) { return !(a == b); }

private:
    QList<quint64> m_indexes;
};

Q_DECLARE_METATYPE(QXIndexPath)

// The index at position 0 (or the last position); QXNotFound for the empty path.
QXFOUNDATION_EXPORT quint64 qx_firstIndex(const QXIndexPath &indexPath);
QXFOUNDATION_EXPORT quint64 qx_lastIndex(const QXIndexPath &indexPath);
/*!
  A path one longer, with `index` inserted at `position` (0 to the length)
  and the indexes from there on moved up one: inserting 9 into (1, 2, 3) at
  1 gives (1, 9, 2, 3), at 3 gives (1, 2, 3, 9). A position beyond the
  length appends, as the length itself does.
*/
QXFOUNDATION_EXPORT QXIndexPath qx_indexPathByInsertingIndex(const QXIndexPath &indexPath, quint64 index,
                                                             quint64 position);
