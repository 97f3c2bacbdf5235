// The server steers the banner: its refresh schedule, the impression URLs of every response and
// redirect hop; and the statistics that travel with each request.
#include "ads/core/PXBConfiguration.h"
#include "ads/net/PXBCachedFile.h"
#include "e2eharness.h"

#include "platform/notificationcenter.h"

#include <QScopeGuard>

using e2e::Harness;
using e2e::kWait;

namespace {

int countOf(const QStringList& list, const QString& item) {
    return static_cast<int>(list.count(item));
}

int liveWebViews() {
    const QWidgetList widgets = QApplication::allWidgets();
    return static_cast<int>(std::count_if(widgets.begin(), widgets.end(), [](QWidget* w) {
        return qobject_cast<platform::WebView*>(w) != nullptr;
    }));
}
}  // namespace

class TestRefreshEndToEnd : public QObject {
    Q_OBJECT
    Harness h;

    // The serial ("n") of every impression fetched since `since`.
    QStringList impressions(qint64 since) const {
        return e2e::queryValues(h, QStringLiteral("/t/imp"), QStringLiteral("n"), since);
    }

  private slots:
    void initTestCase() { QVERIFY(h.start(QStringLiteral("inventory.json"))); }
    void cleanup() { h.removeBanner(); }

    void theLastIntervalHoldsUntilZeroAndComesBackInTheForeground() {
        h.addBanner(QStringLiteral("e2e0000000000f2"));
        h.load();
        // Refresh 1 s, then no header (keeps 1 s), then 0 (stops).
        QTRY_VERIFY_WITH_TIMEOUT(countOf(h.recorder.events, "receive") == 3, kWait);
        QTRY_COMPARE(h.state(), int(kPXBAdStateShown));
        QVERIFY(!h.ad()->isReloadTimerActive());
        QCOMPARE(h.ad()->reloadSeconds(), 1.0);

        QVERIFY(h.setBackground(true));
        QVERIFY(h.setBackground(false));
        QVERIFY(h.ad()->isReloadTimerActive());
        QTRY_VERIFY_WITH_TIMEOUT(countOf(h.recorder.events, "receive") == 4, kWait);
    }

    void minimisingPausesRefreshAndRestoringRestartsTheFullInterval() {
        h.addBanner(QStringLiteral("e2e0000000000f1"));
        h.load();
        QTRY_VERIFY_WITH_TIMEOUT(h.recorder.events.contains("receive"), kWait);
        QTRY_VERIFY(h.ad()->isReloadTimerActive());
        QVERIFY(h.setBackground(true));
        QVERIFY(!h.ad()->isReloadTimerActive());
        const qint64 paused = h.server.lastLogSeq();
        QVERIFY(h.setBackground(false));
        QVERIFY(h.requestsTo(QStringLiteral("/ad"), paused).isEmpty());
        QVERIFY(h.ad()->isReloadTimerActive());
        QTRY_VERIFY_WITH_TIMEOUT(countOf(h.recorder.events, "receive") == 2, kWait);
    }

    void withRefreshTurnedOffTheAdStaysEvenAfterTheForeground() {
        PXBConfiguration::setRefreshesAutomatically(false);
        const auto restore = qScopeGuard([] { PXBConfiguration::setRefreshesAutomatically(true); });
        h.addBanner(QStringLiteral("e2e0000000000f1"));
        h.load();
        QTRY_VERIFY_WITH_TIMEOUT(h.recorder.events.contains("receive"), kWait);
        QTRY_COMPARE(h.state(), int(kPXBAdStateShown));
        QVERIFY(h.setBackground(true));
        QVERIFY(h.setBackground(false));
        QVERIFY(!h.ad()->isReloadTimerActive());
    }

    void theTrackingURLsOfEveryRedirectHopFire() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(QStringLiteral("e2e00000000000a"));
        h.load({{QStringLiteral("zf_redirects"), 3}});
        QTRY_VERIFY2_WITH_TIMEOUT(h.recorder.events.contains("receive"), h.trail(), kWait);
        QCOMPARE(h.requestsTo(QStringLiteral("/r"), mark).size(), 2);  // the first hop is /ad
        // Each hop's own URL, and the final answer's (tagged with the unit: a banner of an
        // earlier case may still report its impression meanwhile).
        const auto count = [&](const QString& key, const QString& value) {
            int n = 0;
            for (const QVariantMap& query : e2e::queriesTo(h, QStringLiteral("/t/imp"), mark)) {
                n += query.contains(key) && (value.isEmpty() || query.value(key) == value) ? 1 : 0;
            }
            return n;
        };
        QTRY_COMPARE_WITH_TIMEOUT(count(QStringLiteral("hop"), {}), 3, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(count(QStringLiteral("u"), QStringLiteral("e2e00000000000a")), 1,
                                  kWait);
    }

    void aHeaderWithEmptyAndBrokenPiecesYieldsTheGoodURLs() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(QStringLiteral("e2e00000000000a"));
        h.load({{QStringLiteral("zf_creative"), QStringLiteral("split")}});
        QTRY_VERIFY_WITH_TIMEOUT(h.recorder.events.contains("receive"), kWait);
        QCOMPARE(h.ad()->pendingTrackingURLs().size(), 2);
        QTRY_COMPARE_WITH_TIMEOUT(h.requestsTo(QStringLiteral("/t/imp"), mark).size(), 2, kWait);
        QTRY_COMPARE(h.ad()->trackerCount(), 0);  // finished trackers are let go
    }

    // A refresh's ad URL is built in a page that was loaded with the script ahead of time, and
    // that page serves that one build: the script never finds what an earlier request left. A
    // script that moves on its own before it is asked spoils the page loaded ahead, and each
    // build loads a page of its own instead. The served script is wrapped to count its builds
    // and to tell how far its page had loaded when asked.
    void everyBuildRunsInAPageOfItsOwn_data() {
        QTest::addColumn<bool>("speaksUnasked");
        QTest::addColumn<QString>("refreshesFind");  // document.readyState at a refresh's build
        QTest::newRow("quiet script: refreshes build in a page loaded ahead")
            << false << "complete";
        QTest::newRow("script that speaks unasked: every build loads its page")
            << true << "loading";
    }

    void everyBuildRunsInAPageOfItsOwn() {
        QFETCH(bool, speaksUnasked);
        QFETCH(QString, refreshesFind);
        const QString unit = QStringLiteral("e2e0000000000f1");
        if (PXBCachedFile(nullptr, PXBConfiguration::scriptURL()).content().isEmpty()) {
            h.addBanner(unit);
            h.load();
            QTRY_VERIFY_WITH_TIMEOUT(h.recorder.events.contains("receive"), kWait);
            h.removeBanner();
        }
        const QString served = PXBCachedFile(nullptr, PXBConfiguration::scriptURL()).content();
        QVERIFY(!served.isEmpty());
        const QString wrapper = QStringLiteral(R"(
;(function (global) {
  var build = global.ZELM_buildAdURL, builds = 0;
  global.ZELM_buildAdURL = function (params) {
    if (typeof params === 'string') params = JSON.parse(params);
    params.builds = ++builds;
    params.ready = document.readyState;
    build(params);
  };
  if (%1) global.setTimeout(function () {
    if (!builds) global.location.href = 'qmsg:///unasked';
  }, 0);
})(this);)")
                                    .arg(speaksUnasked ? "true" : "false");
        h.server.setPathFaults(e2e::kScriptPath, {{QStringLiteral("body"), served + wrapper}});
        h.forgetScript(false);
        const auto restore = qScopeGuard([this] {
            h.server.setPathFaults(e2e::kScriptPath, {});
            h.forgetScript(false);
        });

        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(unit);
        h.load();
        QTRY_VERIFY2_WITH_TIMEOUT(countOf(h.recorder.events, "receive") >= 3, h.trail(), kWait);
        const QList<QVariantMap> requests = e2e::queriesTo(h, QStringLiteral("/ad"), mark);
        QVERIFY(requests.size() >= 3);
        for (qsizetype i = 0; i < requests.size(); ++i) {
            QCOMPARE(requests[i].value("builds").toString(), QStringLiteral("1"));
            // The first request has no page made ahead: it loads one with the call inside.
            QCOMPARE(requests[i].value("ready").toString(),
                     i == 0 ? QStringLiteral("loading") : refreshesFind);
        }
    }

    // Refresh after refresh (200; SORVEL_SOAK_CYCLES sets another count), three creatives in
    // turn every 0.5 s: each request counts on from the one before, in one session, with the
    // latency of the ad before it; each ad is counted once; and nothing piles up: the banner's web
    // view and at most the page that builds the next request live at any time. (A refresh that
    // falls due while the ad still loads is dropped and refreshing stops: a slow build on a busy
    // machine needs the room a shorter interval would not leave.)
    void refreshAfterRefreshLeavesNothingBehind() {
        const int cycles = qEnvironmentVariableIsSet("SORVEL_SOAK_CYCLES")
                               ? qEnvironmentVariableIntValue("SORVEL_SOAK_CYCLES")
                               : 200;
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(QStringLiteral("e2e00000000005a"));
        h.load();
        for (const int reached : {cycles / 2, cycles}) {
            QTRY_VERIFY2_WITH_TIMEOUT(
                countOf(h.recorder.events, "receive") >= reached ||
                    h.recorder.events.size() > countOf(h.recorder.events, "receive"),
                qPrintable(QStringLiteral("%1 ads, state %2, refresh %3")
                               .arg(countOf(h.recorder.events, "receive"))
                               .arg(h.state())
                               .arg(h.ad()->isReloadTimerActive() ? "due" : "off")),
                reached * 2000);
            QTRY_VERIFY_WITH_TIMEOUT(liveWebViews() <= 2, kWait);
        }
        QCOMPARE(h.recorder.events.count(), countOf(h.recorder.events, "receive"));
        const QList<QVariantMap> requests = e2e::queriesTo(h, QStringLiteral("/ad"), mark);
        QVERIFY(requests.size() >= cycles);
        for (qsizetype i = 1; i < requests.size(); ++i) {
            const QVariantMap& q = requests[i];
            const QVariantMap& before = requests[i - 1];
            QCOMPARE(q.value("preqs").toLongLong(), before.value("preqs").toLongLong() + 1);
            QCOMPARE(q.value("session_id"), before.value("session_id"));
            QVERIFY(q.contains("prl"));
            QVERIFY(q.value("ptime").toLongLong() > before.value("ptime").toLongLong());
        }
        QTRY_VERIFY_WITH_TIMEOUT(impressions(mark).size() >= cycles, kWait);
        const QStringList fetched = impressions(mark);
        QCOMPARE(QSet<QString>(fetched.begin(), fetched.end()).size(), fetched.size());
        QSet<QString> creatives;
        for (const QJsonObject& entry : h.requestsTo(QStringLiteral("/ad"), mark)) {
            creatives.insert(entry.value(QStringLiteral("creative")).toString());
        }
        QCOMPARE(creatives, (QSet<QString>{"soak-plain", "soak-touch", "soak-offer"}));
    }
};

SORVEL_E2E_MAIN(TestRefreshEndToEnd)
#include "tst_e2e_refresh.moc"
