#include <QXFoundation/QXDispatchQueue.h>

#include <QtTest>

#include <atomic>
#include <memory>
#include <semaphore>
#include <thread>

class tst_QXDispatchQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runsTasksInSubmissionOrderOnItsOwnThread();
    void syncWaitsForEarlierTasks();
    void syncFromInsideTheQueueDoesNotDeadlock();
    void destructionRunsPendingTasks();
    void releasedFromItsOwnTask();
    void mainQueueRunsLaterInOrder();
    void mainSyncFromBackgroundAndFromMain();
    void mainAfterWaitsForTheDelay();
    void backgroundTasksRunConcurrently();
};

void tst_QXDispatchQueue::runsTasksInSubmissionOrderOnItsOwnThread()
{
    QXDispatchQueue queue(QStringLiteral("org.qxfoundation.test"));
    QCOMPARE(queue.label(), QStringLiteral("org.qxfoundation.test"));
    QVERIFY(!queue.isCurrent());
    std::vector<int> order;
    QThread *worker = nullptr;
    bool currentInside = false;
    for (int i = 0; i < 1000; ++i) {
        queue.async([&, i] {
            order.push_back(i);
            worker = QThread::currentThread();
            currentInside = queue.isCurrent();
        });
    }
    queue.sync([] {});
    QCOMPARE(order.size(), size_t(1000));
    QVERIFY(std::is_sorted(order.begin(), order.end()));
    QVERIFY(worker != QThread::currentThread());
    QVERIFY(currentInside);
}

void tst_QXDispatchQueue::syncWaitsForEarlierTasks()
{
    QXDispatchQueue queue;
    std::atomic<int> done{0};
    std::binary_semaphore release{0};
    queue.async([&] {
        release.acquire(); // hold the queue until the test lets go
        done = 1;
    });
    std::thread releaser([&] {
        QThread::msleep(50);
        release.release();
    });
    int seen = -1;
    queue.sync([&] { seen = done; });
    QCOMPARE(seen, 1);
    releaser.join();
}

void tst_QXDispatchQueue::syncFromInsideTheQueueDoesNotDeadlock()
{
    QXDispatchQueue queue(QStringLiteral("reentrant"));
    bool innerRan = false;
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("sync called from a task of queue \"reentrant\"")));
    queue.sync([&] { queue.sync([&] { innerRan = true; }); });
    QVERIFY(innerRan);
}

void tst_QXDispatchQueue::destructionRunsPendingTasks()
{
    std::atomic<int> ran{0};
    {
        QXDispatchQueue queue;
        for (int i = 0; i < 100; ++i)
            queue.async([&] {
                QThread::usleep(100);
                ++ran;
            });
    }
    QCOMPARE(ran.load(), 100);
}

void tst_QXDispatchQueue::releasedFromItsOwnTask()
{
    auto queue = std::make_shared<QXDispatchQueue>();
    std::weak_ptr<QXDispatchQueue> weak = queue;
    std::counting_semaphore<2> finished{0};
    std::atomic<bool> laterRan{false};
    queue->async([&finished, keep = queue]() mutable {
        keep.reset(); // may be the last owner: the queue is destroyed on its own worker
        finished.release();
    });
    queue->async([&] {
        laterRan = true;
        finished.release();
    });
    queue.reset();
    QVERIFY(finished.try_acquire_for(std::chrono::seconds(5)));
    QVERIFY(finished.try_acquire_for(std::chrono::seconds(5)));
    QVERIFY(laterRan);
    QVERIFY(weak.expired());
}

void tst_QXDispatchQueue::mainQueueRunsLaterInOrder()
{
    QStringList calls;
    QXDispatch::mainAsync([&] { calls << QStringLiteral("a"); });
    QXDispatch::mainAsync([&] { calls << QStringLiteral("b"); });
    QVERIFY(QXDispatch::isMainThread());
    QVERIFY(calls.isEmpty()); // never inline, even from the main thread

    QThread *ranOn = nullptr;
    std::thread thread([&] {
        QXDispatch::mainAsync([&] {
            ranOn = QThread::currentThread();
            calls << QStringLiteral("c");
        });
    });
    thread.join();
    QTRY_COMPARE(calls, (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    QCOMPARE(ranOn, QThread::currentThread());
}

void tst_QXDispatchQueue::mainSyncFromBackgroundAndFromMain()
{
    bool inline_ = false;
    QXDispatch::mainSync([&] { inline_ = true; });
    QVERIFY(inline_);

    QThread *ranOn = nullptr;
    bool waited = false;
    std::atomic<bool> finished{false};
    std::thread thread([&] {
        QXDispatch::mainSync([&] { ranOn = QThread::currentThread(); });
        waited = ranOn != nullptr; // the block has run before mainSync returned
        finished = true;
    });
    QTRY_VERIFY(finished);
    thread.join();
    QCOMPARE(ranOn, QThread::currentThread());
    QVERIFY(waited);
}

void tst_QXDispatchQueue::mainAfterWaitsForTheDelay()
{
    QElapsedTimer timer;
    timer.start();
    qint64 elapsed = -1;
    QThread *ranOn = nullptr;
    std::thread thread([&] {
        QXDispatch::mainAfter(0.2, [&] {
            elapsed = timer.elapsed();
            ranOn = QThread::currentThread();
        });
    });
    thread.join();
    QTRY_VERIFY_WITH_TIMEOUT(elapsed >= 0, 10000);
    QVERIFY2(elapsed >= 195, qPrintable(QString::number(elapsed)));
    QCOMPARE(ranOn, QThread::currentThread());

    bool zeroRan = false;
    QXDispatch::mainAfter(-1, [&] { zeroRan = true; });
    QVERIFY(!zeroRan);
    QTRY_VERIFY(zeroRan);
}

void tst_QXDispatchQueue::backgroundTasksRunConcurrently()
{
    // Eight tasks that can only finish together: with fewer threads than
    // tasks they would wait for each other forever.
    constexpr int count = 8;
    std::counting_semaphore<count> arrived{0};
    std::counting_semaphore<count> allThere{0};
    std::counting_semaphore<count> finished{0};
    std::atomic<bool> onMain{false};
    for (int i = 0; i < count; ++i) {
        QXDispatch::backgroundAsync([&] {
            if (QXDispatch::isMainThread())
                onMain = true;
            arrived.release();
            if (allThere.try_acquire_for(std::chrono::seconds(10)))
                finished.release();
        });
    }
    for (int i = 0; i < count; ++i)
        QVERIFY(arrived.try_acquire_for(std::chrono::seconds(10)));
    allThere.release(count);
    for (int i = 0; i < count; ++i)
        QVERIFY(finished.try_acquire_for(std::chrono::seconds(10)));
    QVERIFY(!onMain);
}

QTEST_GUILESS_MAIN(tst_QXDispatchQueue)
#include "tst_qxdispatchqueue.moc"
