#include "platform/runloop.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <atomic>

using namespace platform;

class TestRunLoop : public QObject {
    Q_OBJECT
  private slots:
    void zeroDelayRunsOnALaterTurnNeverDuringTheCall() {
        QObject target;
        int runs = 0;
        performAfter(&target, 0, [&] { ++runs; });
        QCOMPARE(runs, 0);
        QCOMPARE(pendingPerformRequests(&target), 1);
        QTRY_COMPARE(runs, 1);
        QCOMPARE(pendingPerformRequests(&target), 0);
    }

    void delayedWorkRunsInOrderOfDueTime() {
        QObject target;
        QStringList order;
        performAfter(&target, 0.05, [&] { order << "late"; });
        performAfter(&target, 0, [&] { order << "first"; });
        performAfter(&target, 0.01, [&] { order << "middle"; });
        QTRY_COMPARE(order, (QStringList{"first", "middle", "late"}));
    }

    void cancellationIsByTarget() {
        QObject a;
        QObject b;
        int ranA = 0;
        int ranB = 0;
        performAfter(&a, 0, [&] { ++ranA; });
        performAfter(&a, 0.01, [&] { ++ranA; });
        performAfter(&b, 0, [&] { ++ranB; });
        cancelPreviousPerformRequests(&a);
        QCOMPARE(pendingPerformRequests(&a), 0);
        QTRY_COMPARE(ranB, 1);
        QTest::qWait(30);
        QCOMPARE(ranA, 0);
    }

    void workForADestroyedTargetNeverRuns() {
        int runs = 0;
        {
            QObject target;
            performAfter(&target, 0, [&] { ++runs; });
        }
        QTest::qWait(20);
        QCOMPARE(runs, 0);
    }

    void workMayScheduleAndCancelForItsOwnTarget() {
        QObject target;
        int runs = 0;
        performAfter(&target, 0, [&] {
            ++runs;
            performAfter(&target, 0, [&] { ++runs; });
            performAfter(&target, 0.01, [&] { runs += 100; });
            cancelPreviousPerformRequests(&target);
            performAfter(&target, 0, [&] { ++runs; });
        });
        QTRY_COMPARE(runs, 2);
        QTest::qWait(30);
        QCOMPARE(runs, 2);
    }

    void performOnMainThreadFromWorkerWaits() {
        QVERIFY(isMainThread());
        std::atomic<bool> ranOnMain{false};
        std::atomic<bool> workerSawIt{false};
        std::atomic<bool> workerWasMain{true};
        QThread* worker = QThread::create([&] {
            workerWasMain = isMainThread();
            performOnMainThread([&] { ranOnMain = isMainThread(); }, true);
            workerSawIt = ranOnMain.load();
        });
        worker->start();
        QTRY_VERIFY(worker->isFinished());
        delete worker;
        QVERIFY(!workerWasMain);
        QVERIFY(ranOnMain);
        QVERIFY(workerSawIt);
    }

    void performOnMainThreadOnMainRunsAtOnceOnlyWhenWaiting() {
        int runs = 0;
        performOnMainThread([&] { ++runs; }, true);
        QCOMPARE(runs, 1);
        performOnMainThread([&] { ++runs; }, false);
        QCOMPARE(runs, 1);
        QTRY_COMPARE(runs, 2);
    }

    void timers() {
        int oneShot = 0;
        auto once = Timer::scheduled(0.01, false, [&] { ++oneShot; });
        QTRY_COMPARE(oneShot, 1);
        QVERIFY(!once->isValid());

        int ticks = 0;
        auto repeating = Timer::scheduled(0.005, true, [&] { ++ticks; });
        QTRY_VERIFY(ticks >= 3);
        repeating->invalidate();
        const int stopped = ticks;
        QTest::qWait(30);
        QCOMPARE(ticks, stopped);

        int never = 0;
        auto cancelled = Timer::scheduled(0.01, false, [&] { ++never; });
        cancelled->invalidate();
        QTest::qWait(30);
        QCOMPARE(never, 0);
    }

    void timerDestroyedFromItsOwnCallback() {
        std::unique_ptr<Timer> timer;
        int runs = 0;
        timer = Timer::scheduled(0.005, true, [&] {
            ++runs;
            timer.reset();
        });
        QTRY_VERIFY(!timer);
        QTest::qWait(20);
        QCOMPARE(runs, 1);
    }
};

QTEST_GUILESS_MAIN(TestRunLoop)
#include "tst_runloop.moc"
