// Nothing an ad server or an ad can do breaks the sound board: a hostile script host, ad endpoint,
// steering headers, trackers, ad pages and in-ad messages, each driven through the reference ad
// server's fault switches. Every row checks what the client does about it, then that a good ad
// still shows and that the sound board beside it still plays a sound when pressed.
#include "hostilesuite.h"

#include "ads/bridge/PXBWebViewDelegate.h"

#include <QUrlQuery>

#include <cmath>
#include <limits>

using e2e::fault;
using e2e::kScriptPath;
using e2e::kWait;
using e2e::logHas;

namespace {
const QString& kUnit = e2e::kHostileUnit;
}  // namespace

class TestHostileEndToEnd : public QObject, e2e::HostileSuite {
    Q_OBJECT

  private slots:
    void initTestCase() { start(); }
    void cleanupTestCase() { stop(); }
    void cleanup() { reset(this); }

    void scriptHostFaults_data() {
        // Faults on the script's path, none cached.
        QTest::addColumn<QJsonObject>("scriptFault");
        QTest::addColumn<QString>("reply");  // the script's answer ("" as it should)
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("event");    // to the banner delegate; "" none
        QTest::addColumn<QString>("logLine");  // waited for when there is no event
        QTest::addColumn<int>("adRequests");
        const QJsonObject none;
        // clang-format off
        QTest::newRow("script 404: script failed, network error") << QJsonObject{{"status", 404}} << "" << 2 << "fail 2" << "" << 0;
        QTest::newRow("script connection dropped: network error") << QJsonObject{{"drop", true}} << "" << 2 << "fail 2" << "" << 0;
        QTest::newRow("script cut off mid-body: network error, nothing kept") << QJsonObject{{"truncate", true}} << "" << 2 << "fail 2" << "" << 0;
        QTest::newRow("script body is HTML: no answer, stays building") << QJsonObject{{"body", "<html><body>Service unavailable</body></html>"}}
            << "" << 3 << "" << "ZELM_buildAdURL is not defined" << 0;
        QTest::newRow("script body is not UTF-8: refused, network error") << QJsonObject{{"bodyHex", "fffe80c328a0a1"}}
            << "" << 2 << "fail 2" << "" << 0;
        QTest::newRow("script of 3 MiB: beyond the script's 2 MiB, network error") << QJsonObject{{"oversizeBytes", 3 * 1024 * 1024}}
            << "" << 2 << "fail 2" << "" << 0;
        QTest::newRow("script throws: stays building") << none << "throw" << 3 << "" << "the support script gave up" << 0;
        QTest::newRow("script never answers: stays building") << none << "none" << 3 << "" << "ZELM_buildAdURL answers none" << 0;
        QTest::newRow("script answers an unknown message: ignored") << none << "unknown" << 3 << "" << "ZELM_buildAdURL answers unknown" << 0;
        QTest::newRow("script answers twice: one ad request") << none << "twice" << 6 << "receive" << "" << 1;
        QTest::newRow("script goes to file:: refused, stays building") << none << "file" << 3 << "" << "ZELM_buildAdURL answers file" << 0;
        QTest::newRow("script goes to about:blank: stays building") << none << "blank" << 3 << "" << "ZELM_buildAdURL answers blank" << 0;
        QTest::newRow("script 304, none cached: nothing to run, network error") << QJsonObject{{"status", 304}} << "" << 2 << "fail 2" << "" << 0;
        // clang-format on
    }

    void scriptHostFaults() {
        QFETCH(QJsonObject, scriptFault);
        QFETCH(QString, reply);
        QFETCH(int, state);
        QFETCH(QString, event);
        QFETCH(QString, logLine);
        QFETCH(int, adRequests);
        if (!scriptFault.isEmpty()) {
            h.server.setPathFaults(kScriptPath, scriptFault);
            h.forgetScript(false);
        }
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        QVariantMap extras = fault("creative", "plain");
        if (!reply.isEmpty()) {
            extras.insert(QStringLiteral("zf_scriptReply"), reply);
        }
        h.load(extras);
        if (event.isEmpty()) {
            QTRY_VERIFY2_WITH_TIMEOUT(logHas(logLine), h.trail(), kWait);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(!h.recorder.events.isEmpty(), kWait);
            QCOMPARE(h.recorder.events, QStringList{event});
        }
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), state, kWait);
        if (state == kPXBAdStateBuildingURL) {
            // Stuck waiting for an answer: no refresh, and a further load is swallowed.
            QVERIFY(!h.ad()->isReloadTimerActive());
            h.load();
            QCOMPARE(h.state(), state);
            QVERIFY(h.recorder.events.isEmpty());
        }
        if (reply == QLatin1String("twice")) {
            // The second answer finds the hidden page gone; wait for it to have come and gone.
            QTRY_VERIFY_WITH_TIMEOUT(!h.requestsTo(QStringLiteral("/t/imp"), mark).isEmpty(),
                                     kWait);
        }
        QCOMPARE(h.requestsTo(QStringLiteral("/ad"), mark).size(), adRequests);
        if (state == kPXBAdStateBuildingURL && !scriptFault.isEmpty()) {
            // A 200 answer is the day's script, however broken: only a new day fetches again.
            h.forgetScript(false);
        }
        aGoodAdStillShows();
    }

    void adEndpointFaults_data() {
        QTest::addColumn<QVariantMap>("extras");
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("logLine");
        const QString rejected = QStringLiteral(
            "<Sorvel> Server rejected ad parameters.  Typically this is because the ad unit ID "
            "is incorrect.");
        // clang-format off
        QTest::newRow("ad 100: no final answer, network error") << fault("status", 100) << 7 << "fail 2" << "";
        QTest::newRow("ad 204: failed, network error") << fault("status", 204) << 7 << "fail 2" << "";
        QTest::newRow("ad 302 without Location: failed, network error") << fault("status", 302) << 7 << "fail 2" << "";
        QTest::newRow("ad 400: parameters rejected") << fault("status", 400) << 7 << "fail 0" << rejected;
        QTest::newRow("ad 401: server error") << fault("status", 401) << 7 << "fail 3" << "";
        QTest::newRow("ad after 10 redirects: shown") << fault("redirects", 10) << 6 << "receive" << "";
        QTest::newRow("ad after 11 redirects: too many, network error") << fault("redirects", 11) << 7 << "fail 2" << "";
        QTest::newRow("ad redirect to file:: network error") << QVariantMap{{"zf_status", 302}, {"zf_location", "file:///etc/passwd"}} << 7 << "fail 2" << "";
        QTest::newRow("ad empty body: no fill") << fault("emptyBody", 1) << 7 << "fail 1" << "";
        QTest::newRow("ad blank body: no fill") << fault("creative", "blank") << 7 << "fail 1" << "";
        QTest::newRow("ad bytes not UTF-8: unreadable, no fill") << fault("bodyHex", "3c68746d6c3e3c626f64793eff fe 80 c3 28 3c2f626f64793e3c2f68746d6c3e") << 7 << "fail 1" << "";
        QTest::newRow("ad X-Zelm headers repeated: shown") << fault("repeatedHeader", 1) << 6 << "receive" << "";
        QTest::newRow("ad header line without colon: shown or network error") << fault("malformedHeader", 1) << -1 << "" << "";
        QTest::newRow("ad cut off mid-body: network error") << fault("truncate", 1) << 7 << "fail 2" << "";
        QTest::newRow("ad of 8 MiB: page too large, network error") << fault("oversizeBytes", 8 * 1024 * 1024) << 7 << "fail 2" << "";
        // clang-format on
    }

    void adEndpointFaults() {
        QFETCH(QVariantMap, extras);
        QFETCH(int, state);
        QFETCH(QString, event);
        QFETCH(QString, logLine);
        h.addBanner(kUnit);
        if (!extras.contains(QStringLiteral("zf_creative"))) {
            extras.insert(QStringLiteral("zf_creative"), QStringLiteral("plain"));
        }
        h.load(extras);
        QTRY_VERIFY_WITH_TIMEOUT(!h.recorder.events.isEmpty(), kWait);
        if (state < 0) {
            // Either reading is right; what matters is an answer and a working client after.
            QVERIFY2(h.recorder.events == QStringList{QStringLiteral("receive")} ||
                         h.recorder.events == QStringList{QStringLiteral("fail 2")},
                     qPrintable(h.recorder.events.join(' ')));
        } else {
            QCOMPARE(h.recorder.events, QStringList{event});
            QCOMPARE(h.state(), state);
        }
        if (!logLine.isEmpty()) {
            QVERIFY2(logHas(logLine), qPrintable(e2e::logLines().join('\n')));
        }
        aGoodAdStillShows();
    }

    void garbageSteeringHeaders_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<double>("reloadSeconds");  // NaN: not checked
        QTest::addColumn<bool>("timerActive");
        const double any = std::numeric_limits<double>::quiet_NaN();
        // clang-format off
        QTest::newRow("refresh \"soon\": reads 0, refresh off") << "refresh-soon" << 0.0 << false;
        QTest::newRow("refresh \"1e9\": a timer far away, no overflow") << "refresh-huge" << 1e9 << true;
        QTest::newRow("refresh \"1e999\": a timer far away, no overflow") << "refresh-overflow" << any << true;
        QTest::newRow("refresh \"0.01\": no bound, the ad is shown") << "refresh-tiny" << 0.01 << false;
        QTest::newRow("refresh \"-1\": no bound, the ad is shown") << "refresh-negative" << -1.0 << false;
        QTest::newRow("orientation \"sideways\", timeout \"whenever\": ignored") << "sideways" << 0.0 << false;
        // clang-format on
    }

    void garbageSteeringHeaders() {
        QFETCH(QString, creative);
        QFETCH(double, reloadSeconds);
        QFETCH(bool, timerActive);
        h.addBanner(kUnit);
        h.load(fault("creative", creative));
        QTRY_VERIFY_WITH_TIMEOUT(h.recorder.events.contains(QStringLiteral("receive")), kWait);
        QVERIFY(!h.recorder.events.join(' ').contains(QStringLiteral("fail")));
        if (!std::isnan(reloadSeconds)) {
            QCOMPARE(h.ad()->reloadSeconds(), reloadSeconds);
        }
        // Intervals below a second refresh as fast as the server answers: no timer to look at.
        if (std::isnan(reloadSeconds) || reloadSeconds == 0.0 || reloadSeconds >= 1) {
            QTRY_COMPARE(h.ad()->isReloadTimerActive(), timerActive);
            QCOMPARE(h.state(), int(kPXBAdStateShown));
            QCOMPARE(h.recorder.events.size(), 1);
        }
        if (creative == QLatin1String("sideways")) {
            QCOMPARE(h.ad()->supportedOrientations(), 1);
        }
        aGoodAdStillShows();
    }

    void hostileTrackers_data() {
        QTest::addColumn<QVariantMap>("extras");
        QTest::addColumn<int>("fetched");  // impression requests that arrive
        QTest::addColumn<int>("pending");  // trackers still waiting at the end
        // clang-format off
        QTest::newRow("tracking URLs with control characters: the good one fires")
            << fault("creative", "control-tracking") << 1 << 0;
        // As many as fit the 100 KiB the network layer takes of one header field.
        QTest::newRow("1200 tracking URLs in one header: the first 100 fire, the rest are dropped")
            << QVariantMap{{"zf_creative", "plain"}, {"zf_extraTrackingUrls", 1199}} << 100 << 0;
        QTest::newRow("a tracking URL that never answers: the ad is shown regardless")
            << fault("creative", "silent-tracking") << 1 << 1;
        QTest::newRow("a tracking URL that redirects for ever: given up, the next one fires")
            << fault("creative", "looping-tracking") << 1 << 0;
        // clang-format on
    }

    void hostileTrackers() {
        QFETCH(QVariantMap, extras);
        QFETCH(int, fetched);
        QFETCH(int, pending);
        const qint64 mark = h.server.lastLogSeq();
        QVERIFY2(h.showAd(kUnit, extras), h.trail());
        auto answered = [&] {
            int n = 0;
            for (const QJsonObject& entry : h.requestsTo(QStringLiteral("/t/imp"), mark)) {
                n += entry[QStringLiteral("status")].toInt() == 200 ? 1 : 0;
            }
            return n;
        };
        QTRY_COMPARE_WITH_TIMEOUT(answered(), fetched, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(h.ad()->trackerCount(), pending, kWait);
        QCOMPARE(answered(), fetched);  // and no more came after them
        for (const QUrl& url : h.ad()->pendingTrackingURLs()) {
            const QString text = url.toString(QUrl::FullyEncoded);
            QVERIFY2(
                std::none_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x20; }),
                qPrintable(text));
        }
        aGoodAdStillShows();
    }

    void hostileAdPages_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<QString>("doneKey");  // a parameter of the page's "done" message
        QTest::addColumn<QString>("doneValue");
        // "" when the page stays and says "done"; else a path the page ends at, or a log line
        // (a page that ends somewhere and then says "done" names both).
        QTest::addColumn<QString>("endsWith");
        // clang-format off
        QTest::newRow("alert() does not block") << "alert" << "after" << "alert" << "";
        QTest::newRow("confirm() does not block, answers false") << "confirm" << "confirm" << "false" << "";
        QTest::newRow("prompt() does not block, answers null") << "prompt" << "prompt" << "null" << "";
        QTest::newRow("navigation to file:: refused, page stays") << "nav-file" << "" << "" << "";
        QTest::newRow("navigation to javascript:: page stays") << "nav-javascript" << "" << "" << "";
        QTest::newRow("1000 messages in a burst: the engine throttles, the app keeps up") << "qmsg-flood-1000" << "" << ""
            << "Throttling navigation";
        QTest::newRow("canOpenURLs with 10 000 URLs: each answered") << "can-open-flood" << "answered" << "10000" << "";
        QTest::newRow("200 window.open calls: shown in place, nothing else opens") << "window-flood" << "" << "" << "/landing/";
        QTest::newRow("endless script loop: the main thread keeps answering") << "endless-loop" << "loop" << "1" << "";
        QTest::newRow("a page that navigates itself every 10 ms: followed in place") << "self-nav" << "hops" << "100" << "/preview/self-nav";
        // clang-format on
    }

    void hostileAdPages() {
        QFETCH(QString, creative);
        QFETCH(QString, doneKey);
        QFETCH(QString, doneValue);
        QFETCH(QString, endsWith);
        h.addBanner(kUnit);
        watchPage(this);
        QStringList logMessages;  // the text of each "log" message the bridge received
        platform::NotificationCenter::defaultCenter().addObserver(
            &logMessages, PXBWebViewDelegateDidReceiveWebAction, h.webView(),
            [&logMessages](const platform::Notification& n) {
                if (n.userInfo.value(QStringLiteral("a")) == QLatin1String("log")) {
                    logMessages << QUrlQuery(QUrl(n.userInfo.value(QStringLiteral("u")).toString()))
                                       .queryItemValue(QStringLiteral("string"));
                }
            });
        h.load(fault("creative", creative));
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        const QUrl adPage = h.webView()->request().url();
        if (endsWith.startsWith(QLatin1Char('/'))) {
            QTRY_COMPARE_WITH_TIMEOUT(h.webView()->request().url().path(), endsWith, kWait);
        } else if (!endsWith.isEmpty()) {
            QTRY_VERIFY_WITH_TIMEOUT(logHas(endsWith), kWait);
        }
        if (endsWith.isEmpty() || !doneKey.isEmpty()) {
            QTRY_VERIFY_WITH_TIMEOUT(doneSeen, kWait);
        }
        if (!doneKey.isEmpty()) {
            QCOMPARE(doneInfo.value(doneKey).toString(), doneValue);
        }
        if (creative == QLatin1String("endless-loop")) {
            // The page's own thread is stuck for good; ours is not.
            bool fired = false;
            QTimer::singleShot(500, [&] { fired = true; });
            QTRY_VERIFY_WITH_TIMEOUT(fired, kWait);
        }
        if (creative.startsWith(QLatin1String("qmsg-flood"))) {
            // The messages reached the bridge (the log's ration of them: tst_e2e_limits).
            QVERIFY(logMessages.contains(QStringLiteral("flood149")));
        }
        platform::NotificationCenter::defaultCenter().removeObserver(&logMessages);
        QCOMPARE(h.state(), int(kPXBAdStateShown));
        if (!endsWith.startsWith(QLatin1Char('/'))) {
            QCOMPARE(h.webView()->request().url(), adPage);
        }
        QVERIFY(platform::Application::sharedApplication()->openedURLs().isEmpty());
        QCOMPARE(h.top(), h.root.get());
        aGoodAdStillShows();
    }

    void contentProcessKilled_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<int>("killedIn");  // the banner's state when the processes go
        QTest::newRow("while the ad loads: the load fails, network error")
            << "loop-while-loading" << int(kPXBAdStateLoadingHTML);
        QTest::newRow("while the ad is shown: the next refresh shows one again")
            << "refresh-1s" << int(kPXBAdStateShown);
    }

    void contentProcessKilled() {
        QFETCH(QString, creative);
        QFETCH(int, killedIn);
        h.addBanner(kUnit);
        h.load(fault("creative", creative));
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), killedIn, kWait);
        if (killedIn == kPXBAdStateShown) {
            QVERIFY(h.waitUntilPainted());
        }
        QVERIFY(e2e::Harness::killContentProcess(h.webView()));
        QTRY_VERIFY_WITH_TIMEOUT(logHas(QStringLiteral("content process ended")), kWait);
        if (killedIn == kPXBAdStateLoadingHTML) {
            QTRY_COMPARE_WITH_TIMEOUT(h.recorder.events, QStringList{QStringLiteral("fail 2")},
                                      kWait);
            QCOMPARE(h.state(), int(kPXBAdStateFailed));
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(h.recorder.events.count(QStringLiteral("receive")), 2, kWait);
            QCOMPARE(h.state(), int(kPXBAdStateShown));
            QVERIFY(h.waitUntilPainted());
        }
        aGoodAdStillShows();
    }

    void bannerGoneWhileTheServerIsSlow_data() {
        QTest::addColumn<QString>("path");  // the slow answer
        QTest::addColumn<int>("state");     // the state the banner is removed in
        QTest::newRow("removed while the script is on its way") << kScriptPath << 1;
        QTest::newRow("removed while the ad is on its way") << QStringLiteral("/ad") << 4;
    }

    void bannerGoneWhileTheServerIsSlow() {
        QFETCH(QString, path);
        QFETCH(int, state);
        if (path == kScriptPath) {
            h.forgetScript(false);
        }
        h.server.setPathFaults(path, QJsonObject{{"delayMs", 1500}});
        h.addBanner(kUnit);
        h.load(fault("creative", "plain"));
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), state, kWait);
        // The fetch is cancelled, before or after the server got it (a slow build may not have
        // sent it yet); a late answer then finds no one.
        h.removeBanner();
        h.server.setPathFaults(path, {});
        aGoodAdStillShows();
    }

    void messagesWithBadParameters_data() {
        QTest::addColumn<QStringList>("send");
        // clang-format off
        QTest::newRow("open without a usable u") << QStringList{"qmsg:///open", "qmsg:///open?u=", "qmsg:///open?u=%zz%&a=browser", "qmsg:///open?a=browser", "qmsg:///open?u=&u=&u"};
        QTest::newRow("webapp, click, evalInOpener, log without their parameter") << QStringList{"qmsg:///webapp", "qmsg:///click", "qmsg:///evalInOpener", "qmsg:///log", "qmsg:///canOpenURLs"};
        QTest::newRow("httpTrack and touch with garbage") << QStringList{"qmsg:///httpTrack?u=%00%01", "qmsg:///touch?tx=ab&ty=&td=%FF"};
        QTest::newRow("no name or an unknown one") << QStringList{"qmsg:///", "qmsg://", "torvin://", "qmsg:///noSuchThing?x=1"};
        // clang-format on
    }

    void messagesWithBadParameters() {
        QFETCH(QStringList, send);
        h.addBanner(kUnit);
        watchPage(this);
        h.loadMessages(send);
        QTRY_VERIFY_WITH_TIMEOUT(doneSeen, kWait);
        QCOMPARE(h.state(), int(kPXBAdStateShown));
        QVERIFY(platform::Application::sharedApplication()->openedURLs().isEmpty());
        QCOMPARE(h.top(), h.root.get());
        aGoodAdStillShows();
    }
};

SORVEL_E2E_MAIN(TestHostileEndToEnd)
#include "tst_e2e_hostile.moc"
