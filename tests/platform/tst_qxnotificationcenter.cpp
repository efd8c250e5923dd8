#include <QXFoundation/QXNotificationCenter.h>

#include <QtTest>

#include <thread>

class tst_QXNotificationCenter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deliversSynchronouslyInRegistrationOrder();
    void filtersByNameAndObject();
    void removesByTokenAndByContext();
    void changesDuringDeliveryApplyAtOnce();
    void deliversOnThePostingThread();
};

void tst_QXNotificationCenter::deliversSynchronouslyInRegistrationOrder()
{
    QXNotificationCenter center;
    QStringList calls;
    center.addObserver(QStringLiteral("Changed"), [&](const QXNotification &n) {
        calls << QStringLiteral("first:") + n.name + QLatin1Char(':') + n.userInfo.value(QStringLiteral("k")).toString();
    });
    center.addObserver(QStringLiteral("Changed"), [&](const QXNotification &) { calls << QStringLiteral("second"); });
    center.post(QStringLiteral("Changed"), QVariant(), {{QStringLiteral("k"), QStringLiteral("v")}});
    // Delivered before post() returned, in the order of registration.
    QCOMPARE(calls, (QStringList{QStringLiteral("first:Changed:v"), QStringLiteral("second")}));
    QCOMPARE(center.addObserver(QStringLiteral("x"), {}), QXNotificationCenter::Token(0));
    QCOMPARE(&QXNotificationCenter::defaultCenter(), &QXNotificationCenter::defaultCenter());
}

void tst_QXNotificationCenter::filtersByNameAndObject()
{
    QXNotificationCenter center;
    int named = 0, any = 0, forObject = 0;
    center.addObserver(QStringLiteral("A"), [&](const QXNotification &) { ++named; });
    center.addObserver(QString(), [&](const QXNotification &) { ++any; });
    center.addObserver(QStringLiteral("A"), [&](const QXNotification &) { ++forObject; }, nullptr, QVariant(42));

    center.post(QStringLiteral("A"));
    center.post(QStringLiteral("B"));
    center.post(QStringLiteral("A"), QVariant(41));
    center.post(QStringLiteral("A"), QVariant(42));
    QCOMPARE(named, 3);
    QCOMPARE(any, 4);
    QCOMPARE(forObject, 1);
}

void tst_QXNotificationCenter::removesByTokenAndByContext()
{
    QXNotificationCenter center;
    int byToken = 0, byContext = 0, other = 0;
    const auto token = center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { ++byToken; });
    auto context = std::make_unique<QObject>();
    center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { ++byContext; }, context.get());
    center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { ++byContext; }, context.get());
    QObject keeper;
    center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { ++other; }, &keeper);

    center.post(QStringLiteral("N"));
    QCOMPARE(byToken, 1);
    QCOMPARE(byContext, 2);

    center.removeObserver(token);
    context.reset(); // both registrations made with it end
    center.post(QStringLiteral("N"));
    QCOMPARE(byToken, 1);
    QCOMPARE(byContext, 2);
    QCOMPARE(other, 2);
    QCOMPARE(center.observerCount(), 1);

    center.removeObservers(&keeper);
    center.post(QStringLiteral("N"));
    QCOMPARE(other, 2);
    QCOMPARE(center.observerCount(), 0);

    // A context that outlives its center must not call into the dead center.
    QObject survivor;
    {
        QXNotificationCenter shortLived;
        shortLived.addObserver(QStringLiteral("N"), [](const QXNotification &) {}, &survivor);
    }
}

void tst_QXNotificationCenter::changesDuringDeliveryApplyAtOnce()
{
    QXNotificationCenter center;
    QStringList calls;
    QXNotificationCenter::Token second = 0;
    center.addObserver(QStringLiteral("N"), [&](const QXNotification &) {
        calls << QStringLiteral("first");
        center.removeObserver(second);
        center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { calls << QStringLiteral("late"); });
    });
    second = center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { calls << QStringLiteral("second"); });
    center.post(QStringLiteral("N"));
    QCOMPARE(calls, QStringList{QStringLiteral("first")});

    // An observer may post from inside a delivery without deadlocking.
    int nested = 0;
    center.addObserver(QStringLiteral("Outer"), [&](const QXNotification &) { center.post(QStringLiteral("Inner")); });
    center.addObserver(QStringLiteral("Inner"), [&](const QXNotification &) { ++nested; });
    center.post(QStringLiteral("Outer"));
    QCOMPARE(nested, 1);
}

void tst_QXNotificationCenter::deliversOnThePostingThread()
{
    QXNotificationCenter center;
    std::thread::id deliveredOn;
    center.addObserver(QStringLiteral("N"), [&](const QXNotification &) { deliveredOn = std::this_thread::get_id(); });
    // std::thread: ThreadSanitizer sees its join, not QThread::wait() inside Qt.
    std::thread thread([&] { center.post(QStringLiteral("N")); });
    const std::thread::id postedOn = thread.get_id();
    thread.join();
    QVERIFY(deliveredOn == postedOn);
}

QTEST_GUILESS_MAIN(tst_QXNotificationCenter)
#include "tst_qxnotificationcenter.moc"
