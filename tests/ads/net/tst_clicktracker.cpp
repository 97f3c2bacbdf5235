#include "ads/core/PXBConfiguration.h"
#include "ads/net/PXBClickTracker.h"
#include "adserver/adserver.h"
#include "platform/files.h"
#include "support/httptestserver.h"
#include "support/testenv.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using platform::Error;

namespace {

// Records each report with whether a tracking still counted as active at that moment; can
// destroy its tracker from inside the report.
class Recorder : public PXBClickTrackerDelegate {
  public:
    void trackerDidRedirect(PXBClickTracker* tracker, const QUrl& url) override {
        record(tracker, "redirect " + url.toString());
    }
    void trackerDidFailWithError(PXBClickTracker* tracker, const Error& error) override {
        record(tracker, error.isNull() ? QStringLiteral("fail") : "fail " + error.domain());
    }
    void record(PXBClickTracker* tracker, const QString& event) {
        events << event;
        activeAtReport << PXBClickTracker::activeTrackings();
        if (destroyOnReport && owned.get() == tracker) {
            owned.reset();
        }
    }

    QStringList events;
    QList<bool> activeAtReport;
    bool destroyOnReport = false;
    std::unique_ptr<PXBClickTracker> owned;
};

}  // namespace

class TestClickTracker : public QObject {
    Q_OBJECT
  private:
    testsupport::TempHome home_;
    QTemporaryDir inventoryDir_;
    adserver::AdServer server_;
    QString origin_;  // "http://127.0.0.1:PORT"
    QString secureLanding_;

    QUrl url(const QString& pathAndQuery) const { return QUrl(origin_ + pathAndQuery); }
    QString expand(QString text) const {
        return text.replace("{origin}", origin_).replace("{secure}", secureLanding_);
    }
    // "path status" of each request the server answered (or saw abandoned) after `since`.
    QStringList logSince(qint64 since) const {
        QStringList lines;
        for (const QJsonValue& value : server_.logEntries(since)) {
            const QJsonObject entry = value.toObject();
            lines << entry["path"].toString() + " " + QString::number(entry["status"].toInt()) +
                         (entry["abandoned"].toBool() ? " abandoned" : "");
        }
        return lines;
    }
    // Follows one more URL to its end: whatever the trackings before it still had to say
    // has been said by then.
    bool settle() {
        Recorder recorder;
        PXBClickTracker sentinel(&recorder);
        sentinel.trackURL(url("/t/ctrk?sentinel=1"));
        return QTest::qWaitFor([&] { return !recorder.events.isEmpty(); });
    }

  private slots:
    void initTestCase() {
        // A landing behind https where nothing listens: the reference server speaks plain http
        // only, so a followed https hop shows as a connection failure instead of a success.
        secureLanding_ =
            QStringLiteral("https://127.0.0.1:%1/landing/").arg(testsupport::unusedPort());
        auto creative = [](const char* id, const QString& landing) {
            return QJsonObject{{"id", id}, {"html", "<p>creative</p>"}, {"landing", landing}};
        };
        const QJsonObject inventory{
            {"adUnits", QJsonArray{QJsonObject{{"id", "aaaaaaaaaaaaaa1"},
                                               {"creatives", QJsonArray{"plain"}}}}},
            {"creatives", QJsonArray{creative("plain", "/landing/"),
                                     creative("store", "sorvelstore://app/brindle-sounds-pro"),
                                     creative("secure", secureLanding_),
                                     creative("slow", "/t/ctrk?zf_delayMs=60000")}}};
        const QString path = inventoryDir_.filePath("inventory.json");
        QVERIFY(platform::writeFileAtomically(path, QJsonDocument(inventory).toJson()));
        server_.setRequestFaultsEnabled(true);
        QVERIFY2(server_.start(0, "127.0.0.1", path), qPrintable(server_.errorString()));
        origin_ = server_.url().toString();
        origin_.chop(1);  // the trailing slash
        PXBConfiguration::setAdServerURL(server_.url());
    }

    void outcomes_data() {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("destroyOnReport");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("trackingURL");
        QTest::addColumn<QStringList>("log");

        // (A click followed to its landing, and a tracker kept off the local network, are
        // proven end to end.)
        const QString store = QStringLiteral("sorvelstore://app/brindle-sounds-pro");
        const QString network = "fail " + platform::kNetworkErrorDomain;
        // clang-format off
        QTest::newRow("304") << "/t/ctrk?zf_status=304" << false << "redirect {origin}/t/ctrk?zf_status=304" << "{origin}/t/ctrk?zf_status=304" << QStringList{"/t/ctrk 304"};
        QTest::newRow("204 is no success, and fails once") << "/t/imp?empty=1" << false << "fail" << "{origin}/t/imp?empty=1" << QStringList{"/t/imp 204"};
        // Followed, not taken for a store link: the fetch's own outcome is reported.
        QTest::newRow("https hop followed") << "/t/click?c=secure" << false << network << "{secure}" << QStringList{"/t/click 302"};
        QTest::newRow("store link, tracker deleted in the report") << "/t/click?c=store" << true << "redirect " + store << QString() << QStringList{"/t/click 302"};
        // clang-format on
    }
    void outcomes() {
        QFETCH(QString, target);
        QFETCH(bool, destroyOnReport);
        QFETCH(QString, event);
        QFETCH(QString, trackingURL);
        QFETCH(QStringList, log);
        const qint64 since = server_.lastLogSeq();
        Recorder recorder;
        recorder.destroyOnReport = destroyOnReport;
        recorder.owned = std::make_unique<PXBClickTracker>(&recorder);
        QVERIFY(!PXBClickTracker::activeTrackings());

        recorder.owned->trackURL(url(expand(target)));
        QVERIFY(PXBClickTracker::activeTrackings());
        QVERIFY(!recorder.owned->hasTracked());
        QTRY_COMPARE(recorder.events, QStringList{expand(event)});
        QCOMPARE(recorder.activeAtReport, QList<bool>{false});
        QVERIFY(!PXBClickTracker::activeTrackings());
        QCOMPARE(recorder.owned == nullptr, destroyOnReport);
        if (recorder.owned) {
            QVERIFY(recorder.owned->hasTracked());
            QCOMPARE(recorder.owned->trackingURL(), QUrl(expand(trackingURL)));
        }

        QTRY_COMPARE(logSince(since), log);
        QVERIFY(settle());
        QCOMPARE(recorder.events.size(), 1);
        QCOMPARE(logSince(since), log + QStringList{"/t/ctrk 200"});
    }

    void secondTrackingAbandonsFirst() {
        const qint64 since = server_.lastLogSeq();
        const QUrl first = url("/t/click?c=slow");
        const QUrl second = url("/t/ctrk?n=3");

        Recorder recorder;
        PXBClickTracker tracker(&recorder);
        tracker.trackURL(first);
        // Redirected to the landing, which answers only after a minute.
        QTRY_COMPARE(tracker.trackingURL(), url("/t/ctrk?zf_delayMs=60000"));
        tracker.trackURL(second);
        QVERIFY(PXBClickTracker::activeTrackings());
        QTRY_COMPARE(recorder.events, QStringList{"redirect " + second.toString()});
        QVERIFY(!PXBClickTracker::activeTrackings());
        QVERIFY(settle());
        QCOMPARE(recorder.events.size(), 1);
        // The slow landing never completed; the server may have seen it abandoned.
        QStringList log = logSince(since);
        log.removeAll("/t/ctrk 200 abandoned");
        QCOMPARE(log, (QStringList{"/t/click 302", "/t/ctrk 200", "/t/ctrk 200"}));
    }

    void countedWhileRunning() {
        // One count for the process: every end lowers it, never below zero, whichever tracker
        // ends, so a reset of an idle tracker lowers what another one raised.
        const QUrl slow = url("/t/ctrk?zf_delayMs=60000");
        Recorder recorder;
        auto a = std::make_unique<PXBClickTracker>(&recorder);
        PXBClickTracker b(&recorder);
        a->trackURL(slow);
        QVERIFY(PXBClickTracker::activeTrackings());
        PXBClickTracker().reset();  // an idle tracker: its reset and its end
        QVERIFY(!PXBClickTracker::activeTrackings());
        a->trackURL(slow);  // restarted: its own reset, then one more
        QVERIFY(PXBClickTracker::activeTrackings());
        b.trackURL(url("/t/ctrk?n=4"));
        QTRY_COMPARE(recorder.events.size(), 1);
        QVERIFY(!PXBClickTracker::activeTrackings());  // b's start took a's count with it

        a->trackURL(slow);
        QVERIFY(PXBClickTracker::activeTrackings());
        a.reset();  // destroyed mid-tracking
        QVERIFY(!PXBClickTracker::activeTrackings());
        b.trackURL(QUrl());  // nothing to track
        QVERIFY(!PXBClickTracker::activeTrackings());
        QVERIFY(settle());
        QCOMPARE(recorder.events.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestClickTracker)
#include "tst_clicktracker.moc"
