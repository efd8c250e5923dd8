#include <QXFoundation/QXNotificationCenter.h>

#include <QMutexLocker>

#include <algorithm>

QXNotificationCenter::QXNotificationCenter() = default;
QXNotificationCenter::~QXNotificationCenter()
{
    QMutexLocker locker(&m_mutex);
    for (const Registration &r : m_registrations)
        QObject::disconnect(r.contextConnection);
}

QXNotificationCenter &QXNotificationCenter::defaultCenter()
{
    static QXNotificationCenter center;
    return center;
}

QXNotificationCenter::Token QXNotificationCenter::addObserver(const QString &name, Observer observer,
                                                              const QObject *context, const QVariant &object)
{
    if (!observer)
        return 0;
    QMutexLocker locker(&m_mutex);
    const Token token = m_nextToken++;
    QMetaObject::Connection connection;
    if (context) {
        // Runs in the destroying thread while the context is still alive; the
        // connection is cut when the registration ends first.
        connection = QObject::connect(context, &QObject::destroyed, [this, token] { removeObserver(token); });
    }
    m_registrations.push_back({token, name, object, context != nullptr, context,
                               std::make_shared<Observer>(std::move(observer)), connection});
    return token;
}

void QXNotificationCenter::removeObserver(Token token)
{
    QMutexLocker locker(&m_mutex);
    std::erase_if(m_registrations, [token](const Registration &r) {
        if (r.token != token)
            return false;
        QObject::disconnect(r.contextConnection);
        return true;
    });
}

void QXNotificationCenter::removeObservers(const QObject *context)
{
    if (!context)
        return;
    QMutexLocker locker(&m_mutex);
    std::erase_if(m_registrations, [context](const Registration &r) {
        if (!r.hasContext || r.context != context)
            return false;
        QObject::disconnect(r.contextConnection);
        return true;
    });
}

bool QXNotificationCenter::isRegistered(Token token) const
{
    QMutexLocker locker(&m_mutex);
    return std::any_of(m_registrations.cbegin(), m_registrations.cend(),
                       [token](const Registration &r) { return r.token == token; });
}

void QXNotificationCenter::post(const QString &name, const QVariant &object, const QVariantMap &userInfo)
{
    post(QXNotification{name, object, userInfo});
}

void QXNotificationCenter::post(const QXNotification &notification)
{
    // Snapshot the matching observers, then call them without the lock so an
    // observer may post, add or remove observers itself.
    std::vector<std::pair<Token, std::shared_ptr<Observer>>> matching;
    {
        QMutexLocker locker(&m_mutex);
        for (const Registration &r : m_registrations) {
            if (r.hasContext && !r.context)
                continue;
            if (!r.name.isEmpty() && r.name != notification.name)
                continue;
            if (r.object.isValid() && r.object != notification.object)
                continue;
            matching.emplace_back(r.token, r.observer);
        }
    }
    for (const auto &[token, observer] : matching) {
        if (isRegistered(token))
            (*observer)(notification);
    }
}

int QXNotificationCenter::observerCount() const
{
    QMutexLocker locker(&m_mutex);
    return int(m_registrations.size());
}
