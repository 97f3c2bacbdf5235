// A banner's ad from request to screen, against the reference ad server: the states it passes
// through, what the request carries, every way a request fails, how navigations inside the ad
// are sorted, and which of them are the user's clicks.
#include "e2eharness.h"

#include "ads/bridge/PXBWebViewDelegate.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/signals/PXBSignals.h"
#include "ads/stats/PXBStatisticsCore.h"
#include "ads/stats/PXBTiming.h"
#include "platform/log.h"
#include "platform/notificationcenter.h"
#include "platform/ui/audioplayer.h"

using e2e::Harness;

namespace {
const QString kScriptPath = QStringLiteral("/zelm/sdk-core-v40.js");
const QString kUnit = QStringLiteral("e2e00000000000a");
constexpr int kWait = 20000;

// Stands in for the signals module to see the touches the page reports.
class TouchRecorder : public PXBSignalsModule {
  public:
    explicit TouchRecorder(QList<int>* touches) : touches_(touches) {}
    void recordTouch(int x, int y, int duration) override { *touches_ << x << y << duration; }

  private:
    QList<int>* touches_;
};

}  // namespace

class TestBannerEndToEnd : public QObject {
    Q_OBJECT
    Harness h;

  private slots:
    void initTestCase() { QVERIFY(h.start(QStringLiteral("inventory.json"))); }
    void cleanup() { h.removeBanner(); }

    // Runs first, on a fresh profile: the script has to be fetched.
    void anAdPassesThroughEveryStateToTheScreen() {
        h.addBanner(kUnit);
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        QCOMPARE(h.states, (QList<int>{3, 1, 3, 4, 5, 6}));
        QCOMPARE(h.recorder.events, QStringList{QStringLiteral("receive")});
        QVERIFY(h.webView()->isVisible());
        QVERIFY(h.waitUntilPainted());
        QCOMPARE(h.requestsTo(kScriptPath).size(), 1);
        const QList<QJsonObject> ads = h.requestsTo(QStringLiteral("/ad"));
        QCOMPARE(ads.size(), 1);

        const QVariantMap query = e2e::queryOf(ads.first());
        const QVariantMap device = PXBIdentifierUtilities::sharedInstance()->parameters();
        for (auto it = device.begin(); it != device.end(); ++it) {
            QVERIFY2(query.contains(it.key()), qPrintable(it.key()));
        }
        QCOMPARE(query.value(QStringLiteral("js")).toString(), PXBRequest::sdkVersion());
        QCOMPARE(query.value(QStringLiteral("preqs")).toString(), QStringLiteral("1"));
        QCOMPARE(query.value(QStringLiteral("slotname")).toString(), kUnit);
        const QRect frame = h.banner->frame();
        QCOMPARE(e2e::rectOf(query.value(QStringLiteral("ad_frame"))),
                 QRectF(0, frame.y(), 320, 50));
        QCOMPARE(e2e::rectOf(query.value(QStringLiteral("ad_bounds"))), QRectF(0, 0, 320, 50));
        QVERIFY(!query.contains(QStringLiteral("format")));
    }

    void aLaterAdIsBuiltFromTheCachedScript() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        // A new ad object makes its script file anew (1), but reads it from the disk.
        QCOMPARE(h.states, (QList<int>{3, 1, 3, 4, 5, 6}));
        QVERIFY(h.requestsTo(kScriptPath, mark).isEmpty());
        const QList<QJsonObject> ads = h.requestsTo(QStringLiteral("/ad"), mark);
        QCOMPARE(ads.size(), 1);
        // The ad before was shown: its request latency travels with this request.
        QVERIFY(e2e::queryOf(ads.first()).contains(QStringLiteral("prl")));
    }

    void aLoadWhileARequestIsInFlightIsSwallowed() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        h.load();
        QCOMPARE(h.state(), int(kPXBAdStateBuildingURL));
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        QCOMPARE(h.recorder.events, QStringList{QStringLiteral("receive")});
        QCOMPARE(h.requestsTo(QStringLiteral("/ad"), mark).size(), 1);
    }

    void everyFailureReportsItsStateCodeAndLogLine_data() {
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QVariantMap>("extras");
        QTest::addColumn<int>("scriptStatus");  // the script's fault; 0: served
        QTest::addColumn<bool>("scriptCached");
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("logLine");
        const QVariantMap none;
        auto fault = [](const char* key, const QVariant& value) {
            return QVariantMap{{QStringLiteral("zf_") + QLatin1String(key), value}};
        };
        // clang-format off
        QTest::newRow("no fill") << "e2e00000000000c" << none << 0 << true << 7 << "fail 1" << "";
        QTest::newRow("blank ad") << kUnit << fault("creative", "blank") << 0 << true << 7 << "fail 1" << "";
        QTest::newRow("parameters rejected (400)") << "not-an-ad-unit" << none << 0 << true << 7 << "fail 0"
            << "<Sorvel> Server rejected ad parameters.  Typically this is because the ad unit ID is incorrect.";
        QTest::newRow("server error (503)") << kUnit << fault("status", 503) << 0 << true << 7 << "fail 3" << "";
        QTest::newRow("server error (500)") << kUnit << fault("status", 500) << 0 << true << 7 << "fail 3" << "";
        QTest::newRow("no response") << kUnit << fault("drop", 1) << 0 << true << 7 << "fail 2" << "";
        QTest::newRow("script reports errors") << "e2e00000000000d" << none << 0 << true << 3 << "fail 0" << "";
        QTest::newRow("unable to serve") << "e2e00000000000b" << none << 0 << true << 3 << "fail 0"
            << "<Sorvel> Unable to serve: ";
        QTest::newRow("invalid request") << "" << none << 0 << true << 3 << "fail 0"
            << "<Sorvel> Invalid Request: ";
        QTest::newRow("script missing, stale copy used") << kUnit << none << 404 << true << 6 << "receive" << "";
        QTest::newRow("script missing, none cached") << kUnit << none << 404 << false << 2 << "fail 2" << "";
        QTest::newRow("script host down, none cached") << kUnit << none << -1 << false << 2 << "fail 2" << "";
        // clang-format on
    }

    void everyFailureReportsItsStateCodeAndLogLine() {
        QFETCH(QString, unit);
        QFETCH(QVariantMap, extras);
        QFETCH(int, scriptStatus);
        QFETCH(bool, scriptCached);
        QFETCH(int, state);
        QFETCH(QString, event);
        QFETCH(QString, logLine);
        if (scriptStatus != 0) {
            h.forgetScript(scriptCached);
            h.server.setPathFaults(kScriptPath, scriptStatus < 0
                                                    ? QJsonObject{{"drop", true}}
                                                    : QJsonObject{{"status", scriptStatus}});
        }
        h.addBanner(unit);
        h.load(extras);
        QTRY_VERIFY_WITH_TIMEOUT(!h.recorder.events.isEmpty(), kWait);
        h.server.setPathFaults(kScriptPath, {});
        QCOMPARE(h.recorder.events, QStringList{event});
        QCOMPARE(h.state(), state);
        if (!logLine.isEmpty()) {
            QVERIFY2(std::any_of(e2e::logLines().begin(), e2e::logLines().end(),
                                 [&](const QString& line) { return line.startsWith(logLine); }),
                     qPrintable(e2e::logLines().join('\n')));
        }
        // A request that failed with the script in hand schedules no retry of the script.
        if (state == kPXBAdStateScriptFailed) {
            QVERIFY(!h.ad()->isReloadTimerActive());
        }
    }

    void anOSBelowTheMinimumSendsNothing() {
        const PXBIdentifierUtilities::Environment real = PXBIdentifierUtilities::environment();
        PXBIdentifierUtilities::Environment old = real;
        old.systemVersion = [] { return QStringLiteral("2.2.1"); };
        PXBIdentifierUtilities::setEnvironment(old);
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        h.load();
        PXBIdentifierUtilities::setEnvironment(real);
        QCOMPARE(h.recorder.events, QStringList{QStringLiteral("fail 4")});
        QCOMPARE(h.state(), int(kPXBAdStateFailed));
        QCOMPARE(h.server.lastLogSeq(), mark);
    }

    void navigationsInsideTheAdAreSortedByScheme_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<QString>("handedOver");  // to another application; empty: none
        QTest::addColumn<QString>("webAction");   // "a" or "u" of the web action; empty: none
        QTest::addColumn<bool>("pageStays");
        // clang-format off
        QTest::newRow("message URL: acted on, never loaded") << "nav-qmsg" << "" << "custom" << true;
        QTest::newRow("tel: without a press: stays") << "nav-tel" << "" << "tel:5551234" << true;
        QTest::newRow("unknown scheme without a press: stays") << "nav-store" << "" << "sorvelstore://app/x" << true;
        QTest::newRow("file: refused") << "nav-file" << "" << "file:///etc/hostname" << true;
        QTest::newRow("path \"/\" by the page: loads, no web action") << "nav-root" << "" << "" << false;
        // clang-format on
    }

    void navigationsInsideTheAdAreSortedByScheme() {
        QFETCH(QString, creative);
        QFETCH(QString, handedOver);
        QFETCH(QString, webAction);
        QFETCH(bool, pageStays);
        QStringList actions;
        QVariantMap customInfo;
        auto& center = platform::NotificationCenter::defaultCenter();
        h.addBanner(kUnit);
        center.addObserver(this, PXBWebViewDelegateDidReceiveWebAction, h.webView(),
                           [&](const platform::Notification& n) {
                               const QString a = n.userInfo.value(QStringLiteral("a")).toString();
                               actions << (a.isEmpty() ? n.userInfo.value("u").toString() : a);
                           });
        center.addObserver(this, QStringLiteral("custom"), h.webView(),
                           [&](const platform::Notification& n) { customInfo = n.userInfo; });
        const qint64 mark = h.server.lastLogSeq();
        h.load({{QStringLiteral("zf_creative"), creative}});
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        const QUrl adPage = h.webView()->request().url();
        if (pageStays) {
            // The page says "done" once its navigation has had its turn.
            QTRY_VERIFY_WITH_TIMEOUT(actions.contains(QStringLiteral("done")), kWait);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(!h.requestsTo(QStringLiteral("/"), mark).isEmpty(), kWait);
            QTRY_COMPARE_WITH_TIMEOUT(h.webView()->request().url().path(), QStringLiteral("/"),
                                      kWait);
        }
        center.removeObserver(this);

        const QList<QUrl>& opened = platform::Application::sharedApplication()->openedURLs();
        QCOMPARE(opened.isEmpty() ? QString() : opened.first().toString(), handedOver);
        actions.removeAll(QStringLiteral("done"));
        // The ad's own page (read from the list: the page may have moved on by now).
        actions.removeIf([](const QString& u) { return QUrl(u).path() == QLatin1String("/ad"); });
        QCOMPARE(actions.join(' '), webAction);
        if (pageStays) {
            QCOMPARE(h.webView()->request().url(), adPage);
        }
        if (creative == QLatin1String("nav-qmsg")) {
            QCOMPARE(customInfo, (QVariantMap{{QStringLiteral("a"), QStringLiteral("1")}}));
        }
        QCOMPARE(h.state(), int(kPXBAdStateShown));
    }

    void inAdMessagesBecomeActions_data() {
        QTest::addColumn<QStringList>("send");  // message URLs the page navigates to in turn
        QTest::addColumn<QString>("logLine");
        QTest::addColumn<QString>("serverRequest");  // path (and message name) the server sees
        QTest::addColumn<QList<int>>("effects");     // system sounds, or the touch recorded
        QTest::addColumn<bool>("press");             // the page sends once pressed, not on load
        // clang-format off
        QTest::newRow("log: with --verbose, marked as the ad's") << QStringList{"qmsg:///log?string=hello%20ad"} << "<Sorvel> [ad log] hello ad" << "" << QList<int>{} << false;
        QTest::newRow("log without --verbose: not written") << QStringList{"qmsg:///log?string=quiet%20ad"} << "quiet: <Sorvel> [ad log] quiet ad" << "" << QList<int>{} << false;
        QTest::newRow("log, older form") << QStringList{"torvin://log?string=old%20form"} << "<Sorvel> [ad log] old form" << ""
            << QList<int>{} << false;
        QTest::newRow("older form's host in capitals: no message") << QStringList{"torvin://LOG?string=shouted"}
            << "not: <Sorvel> [ad log] shouted" << "" << QList<int>{} << false;
        QTest::newRow("vibrate") << QStringList{"qmsg:///vibrate"} << "" << "" << QList<int>{4095} << false;
        QTest::newRow("touch") << QStringList{"qmsg:///touch?tx=12&ty=34&td=5"} << "" << ""
            << QList<int>{12, 34, 5} << false;
        QTest::newRow("touch with letters") << QStringList{"qmsg:///touch?tx=ab&ty=7px"} << "" << ""
            << QList<int>{0, 7, -1} << false;
        QTest::newRow("httpTrack") << QStringList{"qmsg:///httpTrack?u={origin}/t/ctrk%3Fk%3Dh"} << ""
            << "/t/ctrk" << QList<int>{} << false;
        QTest::newRow("click after a press") << QStringList{"qmsg:///click?u={origin}/t/ctrk%3Fk%3Dc%26ai%3Dx"} << ""
            << "/t/ctrk" << QList<int>{} << true;
        QTest::newRow("canOpenURLs answers openableURLs")
            << QStringList{"qmsg:///canOpenURLs?urls=http://a.example/,nosuchscheme://x"} << ""
            << "/msg openableURLs" << QList<int>{} << false;
        QTest::newRow("evalInOpener without an opener is dropped")
            << QStringList{"qmsg:///evalInOpener?js=1%2B1", "qmsg:///canOpenURLs?urls=http://a.example/"}
            << "" << "/msg openableURLs" << QList<int>{} << false;
        // clang-format on
    }

    void inAdMessagesBecomeActions() {
        QFETCH(QStringList, send);
        QFETCH(QString, logLine);
        QFETCH(QString, serverRequest);
        QFETCH(QList<int>, effects);
        QFETCH(bool, press);
        // As --verbose does; "quiet: " rows run without it.
        platform::setDebugLogging(!logLine.startsWith(QLatin1String("quiet: ")));
        QList<int> seen;
        platform::setSystemSoundPlayer([&](int sound) { seen << sound; });
        PXBSignals::installModule(std::make_unique<TouchRecorder>(&seen));
        QStringList actions;
        h.addBanner(kUnit);
        platform::NotificationCenter::defaultCenter().addObserver(
            this, PXBWebViewDelegateDidReceiveWebAction, h.webView(),
            [&](const platform::Notification& n) { actions << n.userInfo.value("a").toString(); });
        const qint64 mark = h.server.lastLogSeq();
        h.load({{QStringLiteral("zf_creative"), QStringLiteral("messages")},
                {QStringLiteral("send"), send},
                {QStringLiteral("onPress"), press}});
        if (press) {
            QVERIFY(h.pressShownAd());
        }
        QTRY_VERIFY_WITH_TIMEOUT(actions.contains(QStringLiteral("done")), kWait);
        platform::NotificationCenter::defaultCenter().removeObserver(this);
        if (!serverRequest.isEmpty()) {
            const QStringList wanted = serverRequest.split(' ');
            auto matching = [&] {
                QList<QJsonObject> found;
                for (const QJsonObject& entry : h.requestsTo(wanted[0], mark)) {
                    if (wanted.size() == 1 ||
                        e2e::queryOf(entry).value("name").toString() == wanted[1]) {
                        found << entry;
                    }
                }
                return found;
            };
            QTRY_COMPARE_WITH_TIMEOUT(matching().size(), 1, kWait);
            if (wanted.value(1) == QLatin1String("openableURLs")) {
                QCOMPARE(e2e::queryOf(matching().first())
                             .value("data")
                             .toMap()
                             .value("http://a.example/"),
                         QVariant(true));
            }
        }
        platform::setSystemSoundPlayer({});
        PXBSignals::installModule(nullptr);
        QCOMPARE(seen, effects);
        platform::setDebugLogging(false);
        if (logLine.startsWith(QLatin1String("not: ")) ||
            logLine.startsWith(QLatin1String("quiet: "))) {
            QVERIFY(!e2e::logLines().contains(logLine.mid(logLine.indexOf(u' ') + 1)));
        } else if (!logLine.isEmpty()) {
            QVERIFY(e2e::logLines().contains(logLine));
        }
        // An evaluation in an opener that does not exist answers nothing.
        QVERIFY(!e2e::queryValues(h, QStringLiteral("/msg"), QStringLiteral("name"), mark)
                     .contains(QStringLiteral("evalJavaScriptInOpenerResult")));
        QCOMPARE(h.state(), int(kPXBAdStateShown));
    }

    void onlyAPressAfterTheAdIsShownMakesAClick_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<QString>("press");  // "none", "at once" (as the ad shows), "later"
        QTest::addColumn<bool>("isClick");
        QTest::newRow("link followed by the page itself") << "link-by-script"
                                                          << "none" << false;
        QTest::newRow("press, then the page's link within 0.15 s") << "link-by-script"
                                                                   << "at once" << false;
        QTest::newRow("press on the shown ad") << "plain"
                                               << "later" << true;
    }

    void onlyAPressAfterTheAdIsShownMakesAClick() {
        QFETCH(QString, creative);
        QFETCH(QString, press);
        QFETCH(bool, isClick);
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        double navigatedAfter = -1;
        if (press == QLatin1String("at once")) {
            QObject::connect(h.ad(), &PXBObjectPrivate::stateChanged, h.ad(), [&](qint32 state) {
                if (state == kPXBAdStateShown) {
                    QTimer::singleShot(0, h.banner, [&] { h.click(); });
                }
            });
        }
        h.load({{QStringLiteral("zf_creative"), creative}});
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        const QUrl adPage = h.webView()->request().url();
        if (press == QLatin1String("later")) {
            QVERIFY(h.waitUntilPainted());
            QTRY_VERIFY(PXBTiming::counter() - h.ad()->timeLastLoaded() >= 0.15);
            h.click();
        }
        QTRY_VERIFY_WITH_TIMEOUT(!h.requestsTo(QStringLiteral("/t/click"), mark).isEmpty(), kWait);
        navigatedAfter = PXBTiming::counter() - h.ad()->timeLastLoaded();
        if (press == QLatin1String("at once")) {
            QVERIFY(h.webView()->touched());
        }
        if (isClick) {
            // Opened full screen; the banner keeps its page.
            QTRY_VERIFY(h.recorder.events.contains(QStringLiteral("willPresent")));
            QCOMPARE(h.webView()->request().url(), adPage);
        } else {
            // The link loads inside the banner like any navigation.
            QTRY_COMPARE_WITH_TIMEOUT(h.webView()->request().url().path(),
                                      QStringLiteral("/landing/"), kWait);
        }
        qDebug() << press << "navigation" << navigatedAfter << "s after the ad was shown";
    }

    // The script's request type reaches the ad URL: "plinth" adds seq_num=1, others nothing.
    void aPlinthRequestCarriesItsSequenceNumber_data() {
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QString>("seqNum");  // empty: none
        QTest::newRow("html") << kUnit << QString();
        QTest::newRow("plinth") << QStringLiteral("e2e00000000000e") << QStringLiteral("1");
    }

    void aPlinthRequestCarriesItsSequenceNumber() {
        QFETCH(QString, unit);
        QFETCH(QString, seqNum);
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(unit);
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        const QList<QVariantMap> ads = e2e::queriesTo(h, QStringLiteral("/ad"), mark);
        QCOMPARE(ads.size(), 1);
        QCOMPARE(ads.first().value(QStringLiteral("seq_num")).toString(), seqNum);
    }

    // Runs last: launching finishes once per process. Until then a load in the background goes
    // ahead; after it, only a load in the foreground does.
    void aBackgroundLoadWaitsOnlyOnceLaunchingHasFinished() {
        platform::Application* app = platform::Application::sharedApplication();
        QVERIFY(!app->hasFinishedLaunching());
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        h.window->showMinimized();
        QTRY_COMPARE(app->applicationState(), platform::Application::StateBackground);
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);

        app->finishLaunching();
        h.load();
        QCOMPARE(h.states, (QList<int>{3, 1, 3, 4, 5, 6}));  // nothing more

        h.window->showNormal();
        QTRY_COMPARE(app->applicationState(), platform::Application::StateActive);
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.states.size(), 10, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        QCOMPARE(h.requestsTo(QStringLiteral("/ad"), mark).size(), 2);
    }
};

SORVEL_E2E_MAIN(TestBannerEndToEnd)
#include "tst_e2e_banner.moc"
