#pragma once

#include <QCache>
#include <QString>

#include <limits>
#include <mutex>
#include <optional>

/*!
  The library's thread-safe memory cache: key to value with a cost per
  entry and a limit on the total cost, least recently used entries evicted
  first. A limit of 0 means no limit.

  QCache does the bookkeeping; a mutex makes every call safe from any
  thread (even lookups, which reorder QCache's recency list). Values are
  copied in and out, so they must be cheap to copy (implicitly shared Qt
  types). std::mutex rather than QMutex so that ThreadSanitizer sees the
  locking.
*/
template<typename Key, typename T>
class QXMemoryCache
{
public:
    explicit QXMemoryCache(const QString &name = QString())
        : m_name(name)
        , m_cache(unlimited)
    {
    }
    QXMemoryCache(const QXMemoryCache &) = delete;
    QXMemoryCache &operator=(const QXMemoryCache &) = delete;

    QString name() const
    {
        std::lock_guard lock(m_mutex);
        return m_name;
    }
    void setName(const QString &name)
    {
        std::lock_guard lock(m_mutex);
        m_name = name;
    }

    quint64 totalCostLimit() const
    {
        std::lock_guard lock(m_mutex);
        return m_limit;
    }
    // Evicts at once what no longer fits.
    void setTotalCostLimit(quint64 limit)
    {
        std::lock_guard lock(m_mutex);
        m_limit = limit;
        m_cache.setMaxCost(clamped(limit == 0 ? unlimited : limit));
    }

    // Replaces an entry under the same key. An entry whose cost alone is
    // over the limit is not kept (and the old entry under its key is gone).
    // Costs above 2^53 count as 2^53.
    void setObject(const Key &key, const T &value, quint64 cost)
    {
        std::lock_guard lock(m_mutex);
        if (m_limit != 0 && cost > m_limit) {
            m_cache.remove(key);
            return;
        }
        // QCache trims to maxCost - cost before adding, so its signed total
        // never overflows; capping each cost keeps "no limit" from evicting.
        m_cache.insert(key, new T(value), qsizetype(qMin(cost, maximumCost)));
    }

    std::optional<T> object(const Key &key) const
    {
        std::lock_guard lock(m_mutex);
        if (const T *value = m_cache.object(key))
            return *value;
        return std::nullopt;
    }

    void removeObject(const Key &key)
    {
        std::lock_guard lock(m_mutex);
        m_cache.remove(key);
    }

    void removeAllObjects()
    {
        std::lock_guard lock(m_mutex);
        m_cache.clear();
    }

    qsizetype count() const
    {
        std::lock_guard lock(m_mutex);
        return m_cache.count();
    }
    quint64 totalCost() const
    {
        std::lock_guard lock(m_mutex);
        return quint64(m_cache.totalCost());
    }

private:
    static constexpr qsizetype unlimited = std::numeric_limits<qsizetype>::max();
    // Costs count up to 2^53, the last whole number a double (the usual
    // source of a cost) still holds exactly; without a limit that leaves
    // room for 1024 entries of the largest cost before any is evicted.
    static constexpr quint64 maximumCost = quint64(1) << 53;
    static qsizetype clamped(quint64 cost) { return cost > quint64(unlimited) ? unlimited : qsizetype(cost); }

    mutable std::mutex m_mutex;
    QString m_name;
    QCache<Key, T> m_cache;
    quint64 m_limit = 0;
};
