#include "ads/stats/PXBTiming.h"
#include "ads/stats/PXBTimingManager.h"
#include "platform/notificationcenter.h"
#include "platform/ui/application.h"
#include "platform/userdefaults.h"
#include "support/testenv.h"

#include <QTest>
#include <QThread>

class TestTiming : public QObject {
    Q_OBJECT
  private slots:
    void elapsedFromReadings_data() {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("end");
        QTest::addColumn<quint32>("milliseconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("never started") << 0.0 << 0.0 << 0u << "0";
        QTest::newRow("ended") << 10.0 << 10.25 << 250u << "250";
        QTest::newRow("truncated") << 1.0 << 1.0019 << 1u << "1";
        // A start persisted before a restart lies after the current counter.
        QTest::newRow("start in the future") << PXBTiming::counter() + 1000 << 0.0 << 0u << "0";
        QTest::newRow("saturated") << 1.0 << 1e7 << 4294967295u << "-1";
    }
    void elapsedFromReadings() {
        QFETCH(double, start);
        QFETCH(double, end);
        auto timing = PXBTiming::fromDictionaryRepresentation(
            {{kPXBTimingCategoryKey, "t"}, {kPXBTimingStartKey, start}, {kPXBTimingEndKey, end}});
        QFETCH(quint32, milliseconds);
        QFETCH(QString, text);
        QCOMPARE(timing->elapsedMilliseconds(), milliseconds);
        QCOMPARE(timing->elapsedMillisecondsString(), text);
    }

    void lifecycle() {
        PXBTiming timing("x");
        timing.end();
        QCOMPARE(timing.startSeconds(), 0.0);
        QCOMPARE(timing.endSeconds(), 0.0);
        QVERIFY(!timing.isActive());

        timing.start();
        QVERIFY(timing.isActive());
        QThread::msleep(20);
        const quint32 first = timing.elapsedMilliseconds();
        QVERIFY(first >= 20);
        QThread::msleep(20);
        QVERIFY(timing.elapsedMilliseconds() >= first + 20);

        timing.end();
        QVERIFY(!timing.isActive());
        const quint32 fixed = timing.elapsedMilliseconds();
        QThread::msleep(20);
        QCOMPARE(timing.elapsedMilliseconds(), fixed);

        timing.reset();
        QCOMPARE(timing.startSeconds(), 0.0);
        QCOMPARE(timing.elapsedMilliseconds(), 0u);
    }

    void valuesAndPersistentForm() {
        PXBTiming timing("pcl");
        QVERIFY(!timing.dictionaryRepresentation().contains(kPXBTimingKeyUserDataKey));
        timing.setValue("first", "k");
        timing.setValue(QVariant(), "k");
        QCOMPARE(timing.valueForKey("k").toString(), QString("first"));
        timing.start();
        timing.end();

        const PXBTiming copy(timing);
        QCOMPARE(copy.category(), QString("pcl"));
        QCOMPARE(copy.startSeconds(), timing.startSeconds());
        QCOMPARE(copy.endSeconds(), timing.endSeconds());
        QCOMPARE(copy.keysAndValues(), (QVariantMap{{"k", "first"}}));

        timing.removeValueForKey("k");
        QVERIFY(timing.keysAndValues().isEmpty());
        QVERIFY(timing.dictionaryRepresentation().contains(kPXBTimingKeyUserDataKey));
        QVERIFY(PXBTiming::withCategory(QString()) == nullptr);

        auto junk = PXBTiming::fromDictionaryRepresentation({{kPXBTimingStartKey, "12.5"}});
        QCOMPARE(junk->startSeconds(), 0.0);
    }

    void managerPersistsAndReadsBackOnce() {
        testsupport::TempHome home;
        platform::UserDefaults defaults(home.path() + "/d.plist");
        double start = 0;
        {
            PXBTimingManager manager("shared", &defaults);
            QCOMPARE(manager.userDefaultsKey(), QString("sorvel_timing_shared"));
            auto running = manager.addTimingWithCategory("prl");
            running->start();
            running->setValue("v", "k");
            start = running->startSeconds();
            manager.addTimingWithCategory("ended")->start();
            manager.timingForCategory("ended")->end();
            manager.addTimingWithCategory("gone");
            manager.removeTimingForCategory("gone");
        }
        PXBTimingManager manager("shared", &defaults);
        QCOMPARE(manager.categories(), (QStringList{"ended", "prl"}));
        auto prl = manager.timingForCategory("prl");
        QCOMPARE(prl->startSeconds(), start);
        QVERIFY(prl->isActive());
        QCOMPARE(prl->valueForKey("k").toString(), QString("v"));
        QVERIFY(!manager.timingForCategory("ended")->isActive());

        // Later records in the store are not read again.
        PXBTimingManager other("shared", &defaults);
        other.addTimingWithCategory("late");
        other.synchronize();
        QVERIFY(manager.timingForCategory("late") == nullptr);
        PXBTimingManager fresh("other", &defaults);
        QVERIFY(fresh.timings().isEmpty());
    }

    void savesWhenTheApplicationTerminates() {
        testsupport::TempHome home;
        platform::UserDefaults defaults(home.path() + "/d.plist");
        PXBTimingManager manager("t", &defaults);
        manager.addTimingWithCategory("ptime")->start();
        QVERIFY(!defaults.objectForKey("sorvel_timing_t").toMap().contains("ptime"));
        platform::NotificationCenter::defaultCenter().postNotification(
            platform::kApplicationWillTerminateNotification);
        QVERIFY(defaults.dictionaryForKey("sorvel_timing_t").contains("ptime"));
    }

    void storedKeyNamesTheTiming() {
        testsupport::TempHome home;
        platform::UserDefaults defaults(home.path() + "/d.plist");
        defaults.setObjectForKey(
            QVariantMap{{"a", QVariantMap{{kPXBTimingCategoryKey, "b"}}}, {"bad", 5}},
            "sorvel_timing_t");
        PXBTimingManager manager("t", &defaults);
        QCOMPARE(manager.timingForCategory("a")->category(), QString("b"));
        QCOMPARE(manager.timingForCategory("bad")->elapsedMilliseconds(), 0u);
    }
};

QTEST_GUILESS_MAIN(TestTiming)
#include "tst_timing.moc"
