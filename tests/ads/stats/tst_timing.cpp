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
