#include <QXFoundation/QXDispatchQueue.h>

#include <QtTest>

#include <atomic>
#include <memory>

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
    QSemaphore release;
    queue.async([&] {
        release.acquire(); // hold the queue until the test lets go
        done = 1;
    });
    std::unique_ptr<QThread> releaser(QThread::create([&] {
        QThread::msleep(50);
        release.release();
    }));
    releaser->start();
    int seen = -1;
    queue.sync([&] { seen = done; });
    QCOMPARE(seen, 1);
    QVERIFY(releaser->wait(5000));
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
    QSemaphore finished;
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
    QVERIFY(finished.tryAcquire(2, 5000));
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
    std::unique_ptr<QThread> thread(QThread::create([&] {
        QXDispatch::mainAsync([&] {
            ranOn = QThread::currentThread();
            calls << QStringLiteral("c");
        });
    }));
    thread->start();
    QVERIFY(thread->wait(5000));
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
    std::unique_ptr<QThread> thread(QThread::create([&] {
        QXDispatch::mainSync([&] { ranOn = QThread::currentThread(); });
        waited = ranOn != nullptr; // the block has run before mainSync returned
        finished = true;
    }));
    thread->start();
    QTRY_VERIFY(finished);
    QVERIFY(thread->wait(5000));
    QCOMPARE(ranOn, QThread::currentThread());
    QVERIFY(waited);
}

void tst_QXDispatchQueue::mainAfterWaitsForTheDelay()
{
    QElapsedTimer timer;
    timer.start();
    qint64 elapsed = -1;
    QThread *ranOn = nullptr;
    std::unique_ptr<QThread> thread(QThread::create([&] {
        QXDispatch::mainAfter(0.2, [&] {
            elapsed = timer.elapsed();
            ranOn = QThread::currentThread();
        });
    }));
    thread->start();
    QVERIFY(thread->wait(5000));
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
    QSemaphore arrived;
    QSemaphore allThere;
    QSemaphore finished;
    std::atomic<bool> onMain{false};
    for (int i = 0; i < count; ++i) {
        QXDispatch::backgroundAsync([&] {
            onMain = onMain || QXDispatch::isMainThread();
            arrived.release();
            if (allThere.tryAcquire(1, 10000))
                finished.release();
        });
    }
    QVERIFY(arrived.tryAcquire(count, 10000));
    allThere.release(count);
    QVERIFY(finished.tryAcquire(count, 10000));
    QVERIFY(!onMain);
}

QTEST_GUILESS_MAIN(tst_QXDispatchQueue)
#include "tst_qxdispatchqueue.moc"
