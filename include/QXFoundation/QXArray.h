#pragma once

#include <QXFoundation/QXCollectionTraits.h>
#include <QXFoundation/QXRange.h>

#include <QList>
#include <QRandomGenerator>
#include <QVariant>

#include <algorithm>
#include <concepts>
#include <cstddef>

/*!
  Operations on lists: de-duplication, union, intersection and difference,
  copies with elements inserted or removed, and in-place shuffle, reversal,
  move and block insertion; for JSON-like trees (QVariantList), recursive
  removal of nulls.

  The functions that take `const QList<T> &` return a new list and leave
  their argument alone; those that take `QList<T> &` change it in place.
  "Identity" and "equality" are defined in QXCollectionTraits.h: for pointer
  element types identity is the address and equality compares the pointees,
  for value types both are operator==.

  Indexes and ranges that do not lie inside the list are not an error that
  stops the program: the operation then changes nothing (a copy comes back
  unchanged, an in-place operation leaves the list as it was).

  Where an operation accepts "no list" (the union, intersection and
  difference), pass `nullptr`; an empty list `{}` is a list.
*/

/*!
  The elements without repeated instances (identity). Each instance stays
  once, at the position of its last occurrence: [a, b, a, c] gives
  [b, a, c]. Two equal but distinct objects (pointer elements) both stay.
*/
template<typename T>
QList<T> qx_uniqueMembers(const QList<T> &array)
{
    QXCollectionTraits::SameSet<T, true> seen;
    QList<T> result;
    result.reserve(array.size());
    for (auto it = array.crbegin(); it != array.crend(); ++it) {
        if (seen.insert(*it))
            result.append(*it);
    }
    std::reverse(result.begin(), result.end());
    return result;
}

// `array` followed by `other`, de-duplicated: the union of [a, b] and [b, c]
// is [a, b, c], b standing where the other list has it.
template<typename T>
QList<T> qx_unionWithArray(const QList<T> &array, const QList<T> &other)
{
    return qx_uniqueMembers(array + other);
}
// With no other list: `array` itself, duplicates included.
template<typename T, typename Null>
    requires std::same_as<Null, std::nullptr_t>
QList<T> qx_unionWithArray(const QList<T> &array, Null)
{
    return array;
}

// The elements of `array` that `other` contains (equality), de-duplicated.
template<typename T>
QList<T> qx_intersectionWithArray(const QList<T> &array, const QList<T> &other)
{
    const QXCollectionTraits::SameSet<T, false> contained(other);
    QList<T> kept;
    kept.reserve(array.size());
    for (const T &element : array) {
        if (contained.contains(element))
            kept.append(element);
    }
    return qx_uniqueMembers(kept);
}
// No other list contains nothing: the result is empty.
template<typename T, typename Null>
    requires std::same_as<Null, std::nullptr_t>
QList<T> qx_intersectionWithArray(const QList<T> &, Null)
{
    return {};
}

// The elements of `array` that `other` does not contain (equality), de-duplicated.
template<typename T>
QList<T> qx_differenceWithArray(const QList<T> &array, const QList<T> &other)
{
    const QXCollectionTraits::SameSet<T, false> contained(other);
    QList<T> kept;
    kept.reserve(array.size());
    for (const T &element : array) {
        if (!contained.contains(element))
            kept.append(element);
    }
    return qx_uniqueMembers(kept);
}
// No other list removes nothing: `array` de-duplicated.
template<typename T, typename Null>
    requires std::same_as<Null, std::nullptr_t>
QList<T> qx_differenceWithArray(const QList<T> &array, Null)
{
    return qx_uniqueMembers(array);
}

/*!
  A copy with `objects` inserted as a block at `index` (0 to the count):
  inserting [x, y] into [a, b, c] at 1 gives [a, x, y, b, c].
*/
template<typename T>
QList<T> qx_arrayByInsertingObjectsFromArray(const QList<T> &array, const QList<T> &objects, qsizetype index)
{
    if (objects.isEmpty() || index < 0 || index > array.size())
        return array;
    QList<T> result;
    result.reserve(array.size() + objects.size());
    std::copy(array.cbegin(), array.cbegin() + index, std::back_inserter(result));
    std::copy(objects.cbegin(), objects.cend(), std::back_inserter(result));
    std::copy(array.cbegin() + index, array.cend(), std::back_inserter(result));
    return result;
}

// A copy without the first (or last) element; an empty list stays empty.
template<typename T>
QList<T> qx_arrayByRemovingFirstObject(const QList<T> &array)
{
    return array.isEmpty() ? array : array.sliced(1);
}
template<typename T>
QList<T> qx_arrayByRemovingLastObject(const QList<T> &array)
{
    return array.isEmpty() ? array : array.first(array.size() - 1);
}

template<typename T>
QList<T> qx_arrayByRemovingObjectAtIndex(const QList<T> &array, qsizetype index)
{
    if (index < 0 || index >= array.size())
        return array;
    QList<T> result = array;
    result.removeAt(index);
    return result;
}

template<typename T>
QList<T> qx_arrayByRemovingObjectsInRange(const QList<T> &array, QXRange range)
{
    if (!range.liesWithin(quint64(array.size())))
        return array;
    QList<T> result = array;
    result.remove(qsizetype(range.location()), qsizetype(range.length()));
    return result;
}

// A copy without every element equal to `object`.
template<typename T>
QList<T> qx_arrayByRemovingObject(const QList<T> &array, const std::type_identity_t<T> &object)
{
    QList<T> result;
    result.reserve(array.size());
    for (const T &element : array) {
        if (!QXCollectionTraits::isEqual(element, object))
            result.append(element);
    }
    return result;
}

// A copy without every element equal to any of `objects`.
template<typename T>
QList<T> qx_arrayByRemovingObjectsFromArray(const QList<T> &array, const QList<T> &objects)
{
    const QXCollectionTraits::SameSet<T, false> removed(objects);
    QList<T> result;
    result.reserve(array.size());
    for (const T &element : array) {
        if (!removed.contains(element))
            result.append(element);
    }
    return result;
}

template<typename T>
QList<T> qx_reverseArray(const QList<T> &array)
{
    return QList<T>(array.crbegin(), array.crend());
}

/*!
  Shuffles `array` in place, every permutation equally likely: a forward
  Fisher-Yates shuffle that exchanges element i with one picked uniformly
  from i to the end. The one-argument form draws from
  QRandomGenerator::global(); pass a seeded generator to repeat a shuffle.
*/
template<typename T>
void qx_shuffle(QList<T> &array, QRandomGenerator &generator)
{
    const qsizetype count = array.size();
    for (qsizetype i = 0; i + 1 < count; ++i) {
        const qsizetype j = i + qsizetype(generator.bounded(quint64(count - i)));
        if (j != i)
            array.swapItemsAt(i, j);
    }
}
template<typename T>
void qx_shuffle(QList<T> &array)
{
    qx_shuffle(array, *QRandomGenerator::global());
}

template<typename T>
void qx_reverse(QList<T> &array)
{
    std::reverse(array.begin(), array.end());
}

/*!
  Moves the element at `from` so that it stands at `to` afterwards: `to`
  counts positions in the list without the element, and any `to` at or
  beyond its end appends. In [a, b, c, d], 0 → 2 gives [b, c, a, d], 3 → 0
  gives [d, a, b, c] and 1 → 10 gives [a, c, d, b]. A `from` outside the list
  or a negative `to` changes nothing.
*/
template<typename T>
void qx_moveObjectFromIndex(QList<T> &array, qsizetype from, qsizetype to)
{
    if (from == to || from < 0 || from >= array.size() || to < 0)
        return;
    array.move(from, std::min(to, array.size() - 1));
}

// Inserts `objects` as a block at `index` (0 to the count), in their order.
template<typename T>
void qx_insertObjects(QList<T> &array, const QList<T> &objects, qsizetype index)
{
    if (objects.isEmpty() || index < 0 || index > array.size())
        return;
    const QList<T> block = objects; // `objects` may be `array` itself
    const qsizetype oldCount = array.size();
    array.append(block);
    std::rotate(array.begin() + index, array.begin() + oldCount, array.end());
}

/*!
  Removes JSON nulls (QVariant::fromValue(nullptr)) from a tree of lists and
  maps, in place. Without `ignoreArrays`, null elements of lists go at every
  depth; with it they stay. Null values of maps always go, also in maps
  nested inside lists. Nested QVariantList and QVariantMap values (and
  QVariantHash values) are cleaned in place; other values, an invalid
  QVariant among them, are left as they are.
*/
QXFOUNDATION_EXPORT void qx_recursivelyRemoveNulls(QVariantList &array);
QXFOUNDATION_EXPORT void qx_recursivelyRemoveNullsIgnoringArrays(QVariantList &array, bool ignoreArrays);
