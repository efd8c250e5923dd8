#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QMetaType>

#include <limits>

// What index lookups return when there is nothing: the largest signed 64-bit
// integer, 2^63 − 1.
inline constexpr qint64 QXNotFound = std::numeric_limits<qint64>::max();

/*!
  A location and a length, both unsigned 64-bit: the span of elements that
  starts at `location` and covers `length` of them. A plain value type; the
  default range is location 0, length 0.
*/
class QXRange
{
public:
    constexpr QXRange() noexcept = default;
    constexpr QXRange(quint64 location, quint64 length) noexcept
        : m_location(location)
        , m_length(length)
    {
    }

    static constexpr QXRange range() noexcept { return rangeAtLocation(0, 0); }
    static constexpr QXRange rangeAtLocation(quint64 location, quint64 length) noexcept
    {
        return QXRange(location, length);
    }

    constexpr quint64 location() const noexcept { return m_location; }
    constexpr void setLocation(quint64 location) noexcept { m_location = location; }
    constexpr quint64 length() const noexcept { return m_length; }
    constexpr void setLength(quint64 length) noexcept { m_length = length; }

    // Whether the range lies inside a sequence of `count` elements; an empty
    // range at `count` does. Free of overflow for every location and length.
    constexpr bool liesWithin(quint64 count) const noexcept
    {
        return m_location <= count && m_length <= count - m_location;
    }

    friend constexpr bool operator==(const QXRange &a, const QXRange &b) noexcept = default;

private:
    quint64 m_location = 0;
    quint64 m_length = 0;
};

Q_DECLARE_TYPEINFO(QXRange, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(QXRange)
