#include "ads/net/PXBNetworkUtilities.h"
#include "ads/signals/PXBSignals.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/notificationcenter.h"
#include "platform/ui/application.h"
#include "platform/userdefaults.h"
#include "support/testenv.h"

#include <QTest>
#include <QThread>

namespace {

class FixedClickSignal : public PXBSignalsModule {
  public:
    QString given;
    bool fillClickSignal(const QString& clickString, QString& signal) override {
        given = clickString;
        signal = "sig";
        return true;
    }
};

}  // namespace

class TestStatistics : public QObject {
    Q_OBJECT
    testsupport::TempHome home_;
    std::unique_ptr<platform::UserDefaults> defaults_;
    std::unique_ptr<PXBStatistics> stats_;

  private slots:
    void init() {
        defaults_ = std::make_unique<platform::UserDefaults>(home_.path() + "/" +
                                                             QTest::currentTestFunction());
        stats_ = std::make_unique<PXBStatistics>(defaults_.get());
    }
    void cleanup() {
        stats_.reset();
        defaults_.reset();
    }

    void typedSettersDropOtherTypes_data() {
        QTest::addColumn<QString>("setter");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("stored");
        QTest::newRow("number") << "number" << QVariant(2.5) << true;
        QTest::newRow("string as number") << "number" << QVariant("2") << false;
        QTest::newRow("number as date") << "date" << QVariant(1) << false;
        QTest::newRow("map as array") << "array" << QVariant(QVariantMap{}) << false;
    }
    void typedSettersDropOtherTypes() {
        QFETCH(QString, setter);
        QFETCH(QVariant, value);
        QFETCH(bool, stored);
        PXBStatisticsCore core("t", defaults_.get());
        core.setString("before", "k");
        using Setter = void (PXBStatisticsCore::*)(const QVariant&, const QString&);
        const QMap<QString, Setter> setters{{"number", &PXBStatisticsCore::setNumber},
                                            {"date", &PXBStatisticsCore::setDate},
                                            {"array", &PXBStatisticsCore::setArray}};
        (core.*setters.value(setter))(value, "k");
        QCOMPARE(core.numberForKey("k"), stored ? value : QVariant("before"));
    }

    void coreCountsAndPersists() {
        {
            PXBStatisticsCore core("c", defaults_.get());
            QCOMPARE(core.addValue(2, "n"), 2);
            core.setNumber(1.9, "f");
            QCOMPARE(core.addValue(1, "f"), 2);
            core.setString("text", "s");
            QCOMPARE(core.addValue(5, "s"), 5);
            core.synchronize();
            QCOMPARE(defaults_->dictionaryForKey("sorvel_stats_c").value("n").toLongLong(), 2);
            core.addValue(1, "n");
        }
        // Destruction saved the last change.
        PXBStatisticsCore core("c", defaults_.get());
        QCOMPARE(core.numberForKey("n").toLongLong(), 3);
        core.removeAllObjects();
        QVERIFY(!core.numberForKey("n").isValid());
    }

    // Only a web address is a click (both message schemes: the notification suite); its report
    // goes with one request only. (The click's counts and timings reaching the next request are
    // proven end to end.)
    void clicks_data() {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<QStringList>("keys");
        const QStringList none{"session_id"};
        QTest::newRow("message") << QUrl("qmsg://x/click?ai=1") << none;
        QTest::newRow("blank") << QUrl("about:blank") << none;
        QTest::newRow("web address")
            << QUrl("http://ad.example/c?x=1&ai=T%20K")
            << QStringList{"pai", "pcc", "pcl", "pcrl", "ppcl", "session_id"};
    }
    void clicks() {
        QFETCH(QUrl, url);
        QFETCH(QStringList, keys);
        stats_->startTimingNamed(kPXBParameterPriorPreClickLatency);
        QCOMPARE(stats_->urlForClick(url), url);
        const bool click = keys.size() > 1;
        QCOMPARE(stats_->timingNamed(kPXBParameterPriorPreClickLatency)->isActive(), !click);
        stats_->endTimingNamed(kPXBParameterPriorClickLatency);
        const QVariantMap parameters = stats_->parameters();
        QCOMPARE(parameters.keys(), keys);
        if (click) {
            QCOMPARE(parameters.value("pai").toString(), QString("T%20K"));  // as written
            QCOMPARE(parameters.value("pcl").typeId(), QMetaType::QString);
        }
        QCOMPARE(stats_->parameters().keys(), QStringList{"session_id"});
    }

    void clickSignalBecomesAQueryKey() {
        auto module = std::make_unique<FixedClickSignal>();
        FixedClickSignal* fixed = module.get();
        PXBSignals::installModule(std::move(module));
        const QUrl url("http://ad.example/c?ai=abc");
        const QUrl opened = stats_->urlForClick(url);
        QUrl plain("http://ad.example/c");
        const QUrl notSignalled = stats_->urlForClick(plain);
        const QString given = fixed->given;
        PXBSignals::installModule(nullptr);
        QCOMPARE(given, QString("abc"));
        QCOMPARE(opened, PXBNetworkUtilities::appendQueryKey("sig", QVariant(), url));
        QCOMPARE(notSignalled, plain);
    }

    void backgroundedClickReportsMillisecondsSinceTheClick() {
        stats_->urlForClick(QUrl("http://ad.example/c"));
        stats_->setClickBackgroundedApp();
        QThread::msleep(40);
        const QVariantMap parameters = stats_->parameters();
        QCOMPARE(parameters.value("pcl").typeId(), QMetaType::UInt);
        QVERIFY(parameters.value("pcl").toUInt() >= 40);
        QCOMPARE(parameters.value("pclb").toInt(), 1);
        QVERIFY(!parameters.contains("date"));
        QVERIFY(!stats_->parameters().contains("pclb"));
    }

    void impressionTicketFromClickTracking_data() {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<QString>("ticket");
        QTest::newRow("older network") << QUrl("http://ads.torvin.com/ck/T123") << "T123";
        QTest::newRow("five characters") << QUrl("http://torvin.com/abcd") << "d";
        QTest::newRow("four characters") << QUrl("http://ads.torvin.com/abc") << "";
        QTest::newRow("other network") << QUrl("http://ads.example.com/ck/T123") << "";
    }
    void impressionTicketFromClickTracking() {
        QFETCH(QUrl, url);
        QFETCH(QString, ticket);
        stats_->addClickTrackingURL(url);  // no click yet: lost
        stats_->urlForClick(QUrl("http://ad.example/c"));
        stats_->addClickTrackingURL(url);
        const QVariantMap parameters = stats_->parameters();
        QCOMPARE(parameters.value("pit").toString(), ticket);
        QCOMPARE(parameters.contains("pit"), !ticket.isEmpty());
    }

    void countersAndFlagsAreReportedOnce() {
        stats_->setAdRequestCount(7);
        stats_->setBreakOutToSafari();
        stats_->setAppOpenInterstitialTimeOut();
        stats_->setAppOpenInterstitialNoFill();
        stats_->incrementSSLPageNavigationCount();
        const QVariantMap first = stats_->parameters();
        const QVariantMap expected{
            {"preqs", 7}, {"pcbo", 1}, {"aoi_timedout", 1}, {"aoi_nofill", 1}, {"plpsnc", 1}};
        for (auto it = expected.begin(); it != expected.end(); ++it) {
            QCOMPARE(first.value(it.key()).toInt(), it.value().toInt());
        }
        QCOMPARE(stats_->parameters().keys(), (QStringList{"preqs", "session_id"}));
        QCOMPARE(stats_->adRequestCount(), 7);
    }
};

QTEST_GUILESS_MAIN(TestStatistics)
#include "tst_statistics.moc"
