#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <vector>

// One posted notification: its name, the object it concerns (may be null)
// and optional user information.
struct QXNotification
{
    QString name;
    QVariant object;
    QVariantMap userInfo;
};

/*!
  The process-wide channel through which the library's components announce
  events (the rating prompt's answers, reachability changes ...).

  Delivery is synchronous: post() calls every matching observer on the
  posting thread, in the order of registration, before it returns. An
  observer registered with a context QObject is removed when that object is
  destroyed; any observer can be removed with the token addObserver()
  returned. Observers added or removed while a notification is being
  delivered take effect for that delivery too: a removed observer is not
  called any more, an added one is not called for it. The center is
  thread-safe.
*/
class QXFOUNDATION_EXPORT QXNotificationCenter
{
public:
    using Observer = std::function<void(const QXNotification &)>;
    // Identifies a registration; 0 is never a valid token.
    using Token = quint64;

    QXNotificationCenter();
    ~QXNotificationCenter();
    QXNotificationCenter(const QXNotificationCenter &) = delete;
    QXNotificationCenter &operator=(const QXNotificationCenter &) = delete;

    // The center every component of the library posts to.
    static QXNotificationCenter &defaultCenter();

    /*!
      Registers `observer` for notifications called `name` (an empty name
      matches every notification). When `object` is valid, only notifications
      whose object compares equal to it are delivered. When `context` is
      given, the registration ends when the context is destroyed.
    */
    Token addObserver(const QString &name, Observer observer, const QObject *context = nullptr,
                      const QVariant &object = QVariant());
    void removeObserver(Token token);
    // Removes every registration made with this context.
    void removeObservers(const QObject *context);

    void post(const QString &name, const QVariant &object = QVariant(),
              const QVariantMap &userInfo = QVariantMap());
    void post(const QXNotification &notification);

    // Number of live registrations (for diagnostics and tests).
    int observerCount() const;

private:
    struct Registration
    {
        Token token;
        QString name;
        QVariant object;
        bool hasContext;
        QPointer<const QObject> context;
        std::shared_ptr<Observer> observer;
        QMetaObject::Connection contextConnection;
    };
    bool isRegistered(Token token) const;

    mutable QMutex m_mutex;
    std::vector<Registration> m_registrations;
    Token m_nextToken = 1;
};
