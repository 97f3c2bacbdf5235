#include "ads/stats/PXBTiming.h"
#include "ads/stats/PXBTimingManager.h"
#include "platform/userdefaults.h"
#include "support/testenv.h"

#include <QTest>

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

    void valuesAndMalformedRecords() {
        PXBTiming timing("pcl");
        timing.setValue("first", "k");
        timing.setValue(QVariant(), "k");  // no value: the old one stays
        QCOMPARE(timing.valueForKey("k").toString(), QString("first"));
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
