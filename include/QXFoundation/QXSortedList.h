#pragma once

#include <QXFoundation/QXCollectionTraits.h>
#include <QXFoundation/QXRange.h>

#include <QList>

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>

// How a sort descriptor orders two objects a and b: a before b, the same, a after b.
enum class QXComparisonResult : int {
    OrderedAscending = -1,
    OrderedSame = 0,
    OrderedDescending = 1,
};

/*!
  A sort descriptor: compares two objects. An empty function is "no
  descriptor".
*/
template<typename T>
using QXSortDescriptor = std::function<QXComparisonResult(const T &a, const T &b)>;

namespace QXSortDescriptors {

// Orders values by their operator<, ascending (smaller first) or descending.
template<typename T>
QXSortDescriptor<T> byValue(bool ascending = true)
{
    return [ascending](const T &a, const T &b) {
        if (a < b)
            return ascending ? QXComparisonResult::OrderedAscending : QXComparisonResult::OrderedDescending;
        if (b < a)
            return ascending ? QXComparisonResult::OrderedDescending : QXComparisonResult::OrderedAscending;
        return QXComparisonResult::OrderedSame;
    };
}

} // namespace QXSortDescriptors

/*!
  A list that keeps its objects ordered as they are inserted.

  The order is the REVERSE of the sort descriptor's: an object the
  descriptor puts before another stands after it in the list. With a
  descriptor that sorts numbers ascending the list holds them largest
  first; inserting 5, 3, 4 gives [5, 4, 3]. Objects that compare the same
  keep the newest first. Without a descriptor the list keeps insertion
  order.

  The insertion index is found by binary search: about log2(count)
  comparisons, each asking the descriptor about the new object first and a
  listed object second. The objects are kept in consecutive chunks of at
  most a thousand or so, so that an insertion moves at most one chunk's
  worth of objects instead of half the list; reading by index locates the
  chunk by binary search.

  Indexes are 0 to count − 1. Out-of-range indexes are not fatal:
  objectAtIndex() then gives a default-constructed T and
  removeObjectAtIndex() does nothing. indexOfObject() uses equality
  (QXCollectionTraits.h), not the descriptor.

  A value type: copies are independent (and cheap until one of them
  changes). Iterators are bidirectional, in list order (range-for works;
  rbegin()/rend() or std::views::reverse go the other way); changing the
  list invalidates them.
*/
template<typename T>
class QXSortedList
{
    // Half of this is the size a full chunk splits into.
    static constexpr qsizetype MaximumChunkSize = 1024;
    using Chunks = QList<QList<T>>;

public:
    class const_iterator
    {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using iterator_concept = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = qsizetype;
        using pointer = const T *;
        using reference = const T &;

        const_iterator() = default;

        reference operator*() const { return m_chunks->at(m_chunk).at(m_offset); }
        pointer operator->() const { return &operator*(); }

        const_iterator &operator++()
        {
            if (++m_offset == m_chunks->at(m_chunk).size()) {
                ++m_chunk;
                m_offset = 0;
            }
            return *this;
        }
        const_iterator operator++(int)
        {
            const_iterator previous = *this;
            ++*this;
            return previous;
        }
        const_iterator &operator--()
        {
            if (m_offset == 0) {
                --m_chunk;
                m_offset = m_chunks->at(m_chunk).size() - 1;
            } else {
                --m_offset;
            }
            return *this;
        }
        const_iterator operator--(int)
        {
            const_iterator previous = *this;
            --*this;
            return previous;
        }

        friend bool operator==(const const_iterator &a, const const_iterator &b)
        {
            return a.m_chunk == b.m_chunk && a.m_offset == b.m_offset;
        }

    private:
        friend class QXSortedList;
        const_iterator(const Chunks *chunks, qsizetype chunk, qsizetype offset)
            : m_chunks(chunks)
            , m_chunk(chunk)
            , m_offset(offset)
        {
        }

        const Chunks *m_chunks = nullptr;
        qsizetype m_chunk = 0;
        qsizetype m_offset = 0;
    };
    using iterator = const_iterator;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;
    using reverse_iterator = const_reverse_iterator;
    using value_type = T;
    using size_type = qsizetype;
    using difference_type = qsizetype;
    using reference = const T &;
    using const_reference = const T &;

    explicit QXSortedList(QXSortDescriptor<T> sortDescriptor = {})
        : m_sortDescriptor(std::move(sortDescriptor))
    {
    }

    // The descriptor given at creation (an empty function for none).
    const QXSortDescriptor<T> &sortDescriptor() const { return m_sortDescriptor; }

    qsizetype count() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }

    // The object at the start (or end) of the list; nothing when it is empty.
    std::optional<T> firstObject() const
    {
        return isEmpty() ? std::nullopt : std::optional<T>(m_chunks.first().first());
    }
    std::optional<T> lastObject() const
    {
        return isEmpty() ? std::nullopt : std::optional<T>(m_chunks.last().last());
    }

    // The object at `index`; a default-constructed T outside 0 … count − 1.
    T objectAtIndex(qsizetype index) const
    {
        if (index < 0 || index >= m_count)
            return T();
        const Position position = locate(index);
        return m_chunks.at(position.chunk).at(position.offset);
    }

    // The objects in list order.
    QList<T> allObjects() const
    {
        QList<T> objects;
        objects.reserve(m_count);
        for (const QList<T> &chunk : m_chunks)
            objects.append(chunk);
        return objects;
    }

    /*!
      Where insertObject() would put `object`: after every object the
      descriptor orders after it and before every object it compares the
      same as. Without a descriptor, the count.
    */
    qsizetype indexForInsertingObject(const T &object) const
    {
        const Position position = insertionPosition(object);
        return position.chunk < m_chunks.size() ? m_starts.at(position.chunk) + position.offset : m_count;
    }

    // The first index of an object equal to `object`, or QXNotFound.
    qsizetype indexOfObject(const T &object) const
    {
        for (qsizetype c = 0; c < m_chunks.size(); ++c) {
            const QList<T> &chunk = m_chunks.at(c);
            for (qsizetype i = 0; i < chunk.size(); ++i) {
                if (QXCollectionTraits::isEqual(chunk.at(i), object))
                    return m_starts.at(c) + i;
            }
        }
        return QXNotFound;
    }

    void insertObject(const T &object) { insertAt(insertionPosition(object), object); }

    // Removes every object equal to `object`.
    void removeObject(const T &object)
    {
        const auto isEqual = [&object](const T &element) { return QXCollectionTraits::isEqual(element, object); };
        qsizetype kept = 0;
        for (qsizetype c = 0; c < m_chunks.size();) {
            // Chunks without a match stay shared with copies of the list.
            if (std::any_of(m_chunks.at(c).cbegin(), m_chunks.at(c).cend(), isEqual))
                m_chunks[c].removeIf(isEqual);
            const QList<T> &chunk = m_chunks.at(c);
            if (chunk.isEmpty()) {
                m_chunks.removeAt(c);
                m_starts.removeAt(c);
                continue;
            }
            m_starts[c] = kept;
            kept += chunk.size();
            ++c;
        }
        m_count = kept;
    }

    // Removes the object at `index`; nothing happens outside 0 … count − 1.
    void removeObjectAtIndex(qsizetype index)
    {
        if (index < 0 || index >= m_count)
            return;
        const Position position = locate(index);
        QList<T> &chunk = m_chunks[position.chunk];
        chunk.removeAt(position.offset);
        --m_count;
        for (qsizetype c = position.chunk + 1; c < m_starts.size(); ++c)
            --m_starts[c];
        if (chunk.isEmpty()) {
            m_chunks.removeAt(position.chunk);
            m_starts.removeAt(position.chunk);
        }
    }

    void removeAllObjects()
    {
        m_chunks.clear();
        m_starts.clear();
        m_count = 0;
    }

    const_iterator begin() const { return const_iterator(&m_chunks, 0, 0); }
    const_iterator end() const { return const_iterator(&m_chunks, m_chunks.size(), 0); }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }
    const_reverse_iterator crbegin() const { return rbegin(); }
    const_reverse_iterator crend() const { return rend(); }

private:
    struct Position
    {
        qsizetype chunk = 0;
        qsizetype offset = 0;
    };

    // `index` must lie in 0 … count − 1.
    Position locate(qsizetype index) const
    {
        const auto after = std::upper_bound(m_starts.cbegin(), m_starts.cend(), index);
        const qsizetype chunk = qsizetype(after - m_starts.cbegin()) - 1;
        return {chunk, index - m_starts.at(chunk)};
    }

    // The same index as a binary search over the whole list, found first
    // among the chunks (by their last objects) and then inside one chunk.
    Position insertionPosition(const T &object) const
    {
        if (!m_sortDescriptor || m_chunks.isEmpty())
            return {m_chunks.size(), 0};
        const auto isBefore = [this, &object](const T &listed) {
            return m_sortDescriptor(object, listed) == QXComparisonResult::OrderedAscending;
        };
        qsizetype low = 0;
        qsizetype high = m_chunks.size();
        while (low < high) {
            const qsizetype middle = low + (high - low) / 2;
            if (isBefore(m_chunks.at(middle).last()))
                low = middle + 1;
            else
                high = middle;
        }
        if (low == m_chunks.size())
            return {low, 0};
        const QList<T> &chunk = m_chunks.at(low);
        // The chunk's last object is known not to come after `object`.
        const auto found = std::partition_point(chunk.cbegin(), chunk.cend() - 1, isBefore);
        return {low, qsizetype(found - chunk.cbegin())};
    }

    void insertAt(Position position, const T &object)
    {
        if (m_chunks.isEmpty()) {
            m_chunks.append(QList<T>{object});
            m_starts.append(0);
            m_count = 1;
            return;
        }
        if (position.chunk == m_chunks.size()) {
            position.chunk = m_chunks.size() - 1;
            position.offset = m_chunks.last().size();
        }
        QList<T> &chunk = m_chunks[position.chunk];
        chunk.insert(position.offset, object);
        ++m_count;
        for (qsizetype c = position.chunk + 1; c < m_starts.size(); ++c)
            ++m_starts[c];
        if (chunk.size() > MaximumChunkSize) {
            const qsizetype half = chunk.size() / 2;
            QList<T> tail = chunk.sliced(half);
            chunk.remove(half, chunk.size() - half);
            m_chunks.insert(position.chunk + 1, std::move(tail));
            m_starts.insert(position.chunk + 1, m_starts.at(position.chunk) + half);
        }
    }

    QXSortDescriptor<T> m_sortDescriptor;
    Chunks m_chunks;              // never an empty chunk
    QList<qsizetype> m_starts;    // the list index of each chunk's first object
    qsizetype m_count = 0;
};
