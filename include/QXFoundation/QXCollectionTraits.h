#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QHashFunctions>
#include <QList>
#include <QSharedPointer>
#include <QVariant>

#include <concepts>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <unordered_set>

/*!
  The two notions of sameness used by the list operations (QXArray.h) and by
  QXSortedList:

  - identity: the same object. For pointer element types (raw pointers,
    QSharedPointer, std::shared_ptr) that is the same address; for value
    types it is operator==.
  - equality: the objects' own equality. For pointer element types the
    pointees are compared with operator== when the pointee type has one (a
    null pointer equals only a null pointer); without one (QObject, for
    instance) equality falls back to identity. For value types it is
    operator==, except for QVariant (see variantsEqual()).

  Lists of values hashable with qHash() (integers, QString, QByteArray, your
  own types with a qHash overload) are worked through a hash set, in linear
  time; QVariant, floating-point values and types without qHash are compared
  pairwise.
*/
namespace QXCollectionTraits {

template<typename T>
struct PointerTraits
{
    static constexpr bool isPointer = false;
};

template<typename E>
struct PointerTraits<E *>
{
    static constexpr bool isPointer = true;
    using Element = E;
    static const void *address(E *pointer) { return pointer; }
};

template<typename E>
struct PointerTraits<QSharedPointer<E>>
{
    static constexpr bool isPointer = true;
    using Element = E;
    static const void *address(const QSharedPointer<E> &pointer) { return pointer.data(); }
};

template<typename E>
struct PointerTraits<std::shared_ptr<E>>
{
    static constexpr bool isPointer = true;
    using Element = E;
    static const void *address(const std::shared_ptr<E> &pointer) { return pointer.get(); }
};

template<typename T>
concept Pointer = PointerTraits<T>::isPointer;

// Types whose qHash() agrees with operator==. QVariant has none in Qt 6.4
// and would compare 1 and 1.0 equal anyway; floating point is left out for
// the sake of 0.0 == -0.0.
template<typename T>
concept ValueHashable = !Pointer<T> && !std::is_floating_point_v<T> && !std::same_as<T, QVariant>
    && requires(const T &value) {
           { qHash(value) } -> std::convertible_to<size_t>;
       };

template<typename T>
concept PointeeComparable = Pointer<T> && std::equality_comparable<typename PointerTraits<T>::Element>;

/*!
  Equality of JSON-like values: numbers (bool included) compare by value
  (1 equals 1.0), values of different kinds never match (the string "1" is
  not the number 1, although QVariant's operator== says it is), lists and
  maps compare element by element under the same rule, anything else with
  QVariant's operator==.
*/
QXFOUNDATION_EXPORT bool variantsEqual(const QVariant &a, const QVariant &b);

template<typename T>
bool isIdentical(const T &a, const T &b)
{
    if constexpr (Pointer<T>)
        return PointerTraits<T>::address(a) == PointerTraits<T>::address(b);
    else if constexpr (std::same_as<T, QVariant>)
        return variantsEqual(a, b);
    else
        return a == b;
}

template<typename T>
bool isEqual(const T &a, const T &b)
{
    if constexpr (PointeeComparable<T>) {
        if (!a || !b)
            return isIdentical(a, b);
        return *a == *b;
    } else {
        return isIdentical(a, b);
    }
}

// Whether a hash consistent with identity (or equality) exists for T.
template<typename T>
constexpr bool hasIdentityHash = Pointer<T> || ValueHashable<T>;
template<typename T>
concept PointeeHashable = PointeeComparable<T>
    && ValueHashable<std::remove_cv_t<typename PointerTraits<T>::Element>>;
template<typename T>
constexpr bool hasEqualityHash = ValueHashable<T> || (Pointer<T> && !PointeeComparable<T>) || PointeeHashable<T>;

struct IdentityHash
{
    template<typename T>
    size_t operator()(const T &value) const
    {
        if constexpr (Pointer<T>)
            return qHash(quintptr(PointerTraits<T>::address(value)));
        else
            return qHash(value);
    }
};

struct IdentityEqual
{
    template<typename T>
    bool operator()(const T &a, const T &b) const { return isIdentical(a, b); }
};

struct EqualityHash
{
    template<typename T>
    size_t operator()(const T &value) const
    {
        if constexpr (PointeeComparable<T>)
            return value ? qHash(*value) : 0;
        else
            return IdentityHash()(value);
    }
};

struct EqualityEqual
{
    template<typename T>
    bool operator()(const T &a, const T &b) const { return isEqual(a, b); }
};

/*!
  A set of elements under one notion of sameness: hashed where a consistent
  hash exists, a plain list searched from the start otherwise.
*/
template<typename T, bool ByIdentity>
class SameSet
{
    static constexpr bool hashed = ByIdentity ? hasIdentityHash<T> : hasEqualityHash<T>;
    using Hash = std::conditional_t<ByIdentity, IdentityHash, EqualityHash>;
    using Equal = std::conditional_t<ByIdentity, IdentityEqual, EqualityEqual>;
    using Storage = std::conditional_t<hashed, std::unordered_set<T, Hash, Equal>, QList<T>>;

public:
    SameSet() = default;
    explicit SameSet(const QList<T> &elements)
    {
        if constexpr (hashed) {
            m_storage.reserve(size_t(elements.size()));
            m_storage.insert(elements.cbegin(), elements.cend());
        } else {
            m_storage = elements; // duplicates do no harm to contains()
        }
    }

    bool contains(const T &value) const
    {
        if constexpr (hashed) {
            return m_storage.find(value) != m_storage.end();
        } else {
            for (const T &element : m_storage)
                if (Equal()(element, value))
                    return true;
            return false;
        }
    }

    // True when the value was not in the set yet.
    bool insert(const T &value)
    {
        if constexpr (hashed) {
            return m_storage.insert(value).second;
        } else {
            if (contains(value))
                return false;
            m_storage.append(value);
            return true;
        }
    }

private:
    Storage m_storage;
};

} // namespace QXCollectionTraits
