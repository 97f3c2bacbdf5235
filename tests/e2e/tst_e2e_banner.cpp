// A banner's ad from request to screen: the states it passes through, what the request carries,
// how a request fails, how navigations inside the ad are sorted, and which are the user's clicks.
#include "e2eharness.h"

#include "ads/bridge/PXBWebViewDelegate.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/device/PXBNetworkChecker.h"
#include "ads/inspect/PXBInspector.h"
#include "ads/signals/PXBSignals.h"
#include "ads/stats/PXBStatisticsCore.h"
#include "ads/stats/PXBTiming.h"
#include "platform/log.h"
#include "platform/notificationcenter.h"
#include "platform/ui/audioplayer.h"

#include <QScopeGuard>
#include <QSignalSpy>
#include <QTreeWidget>

using e2e::Harness;
using e2e::kScriptPath;
using e2e::kWait;

namespace {
const QString kUnit = QStringLiteral("e2e00000000000a");

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
        QSignalSpy received(h.banner.data(), &PXBBannerView::adReceived);
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        QCOMPARE(h.states, (QList<int>{3, 1, 3, 4, 5, 6}));
        QCOMPARE(h.recorder.events, QStringList{QStringLiteral("receive")});
        QCOMPARE(received.size(), 1);  // the signal as well as the delegate
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
        QVERIFY(!query.contains(QStringLiteral("seq_num")));  // the unit's request type is html
        QVERIFY(!query.contains(QStringLiteral("prl")));      // no ad before it
    }

    // What an integrator opens first when no ad shows: the banner's state walk, its request, ad
    // URL, response and trackers, the refresh countdown, and each refused action with its reason.
    void theInspectorShowsWhatTheBannerDidAndWhatWasRefused() {
        QPointer<PXBInspector> inspector = PXBInspector::showInspector();
        const auto guard = qScopeGuard([&] { delete inspector.data(); });
        h.addBanner(kUnit);
        h.loadMessages({QStringLiteral("qmsg:///open?a=webapp&u={origin}/webapp/")});
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        const auto section = [&](const char* name) {
            return inspector->section(kUnit, QString::fromLatin1(name));
        };
        const auto childValue = [](QTreeWidgetItem* item, const QString& what) {
            for (int i = 0; i < item->childCount(); ++i) {
                if (item->child(i)->text(0) == what) {
                    return item->child(i)->text(1);
                }
            }
            return QStringLiteral("(absent)");
        };
        QTreeWidgetItem* states = section("State");
        QVERIFY(states != nullptr);
        QCOMPARE(states->child(states->childCount() - 1)->text(0), QStringLiteral("shown"));
        QCOMPARE(childValue(section("Request"), QStringLiteral("slotname")), kUnit);
        QVERIFY(section("Ad URL")->text(1).startsWith(h.server.url().toString() + "ad?"));
        QCOMPARE(section("Response")->text(1), QStringLiteral("HTTP 200"));
        QVERIFY(childValue(section("Response"), QStringLiteral("X-Zelm-Tracking-Urls"))
                    .contains("/t/imp"));
        QCOMPARE(section("Refresh")->text(1), QStringLiteral("off"));  // the ad names no interval
        // The impression tracker, sent and counted.
        QTreeWidgetItem* trackers = section("Trackers");
        QTRY_VERIFY_WITH_TIMEOUT(
            trackers->childCount() > 0 && trackers->child(0)->text(1).startsWith("counted after"),
            kWait);
        QVERIFY(trackers->child(0)->text(0).contains("/t/imp"));
        QTreeWidgetItem* refused = inspector->refusedActions();
        const auto refusedForWantOfAPress = [refused] {
            for (int i = 0; i < refused->childCount(); ++i) {
                if (refused->child(i)->text(1) == QLatin1String("no press on the ad")) {
                    return true;
                }
            }
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(refusedForWantOfAPress(), kWait);
    }

    // The unit's request type ("plinth") and the request's location, encrypted, reach the ad
    // URL; the server's log reads the location back.
    void aLaterAdIsBuiltFromTheCachedScript() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(QStringLiteral("e2e00000000000e"));
        auto request = PXBRequest::create();
        request->setLocationWithLatitude(48.5, 2.25, 50);
        h.banner->loadRequest(request.get());
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        // A new ad object makes its script file anew (1), but reads it from the disk.
        QCOMPARE(h.states, (QList<int>{3, 1, 3, 4, 5, 6}));
        QVERIFY(h.requestsTo(kScriptPath, mark).isEmpty());
        const QList<QJsonObject> ads = h.requestsTo(QStringLiteral("/ad"), mark);
        QCOMPARE(ads.size(), 1);
        const QVariantMap query = e2e::queryOf(ads.first());
        // The ad before was shown: its request latency travels with this request.
        QVERIFY(query.contains(QStringLiteral("prl")));
        QCOMPARE(query.value(QStringLiteral("seq_num")).toString(), QStringLiteral("1"));
        const QJsonObject place = ads.first()[QStringLiteral("uule")].toObject();
        QCOMPARE(place[QStringLiteral("latitude")].toDouble(), 48.5);
        QCOMPARE(place[QStringLiteral("longitude")].toDouble(), 2.25);
    }

    // How the ad server's and the script's answers fail (no fill, 400, a load while one is on its
    // way) shows in tst_e2e_hostile; these are the script's own verdicts.
    void everyFailureReportsItsStateCodeAndLogLine_data() {
        QTest::addColumn<QString>("unit");
        QTest::addColumn<bool>("scriptMissing");  // a 404 for the script, a stale copy cached
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("logLine");
        // clang-format off
        QTest::newRow("script reports errors") << "e2e00000000000d" << false << 3 << "fail 0" << "";
        QTest::newRow("unable to serve") << "e2e00000000000b" << false << 3 << "fail 0" << "<Sorvel> Unable to serve: ";
        QTest::newRow("invalid request") << "" << false << 3 << "fail 0" << "<Sorvel> Invalid Request: ";
        QTest::newRow("script missing, stale copy used") << kUnit << true << 6 << "receive" << "";
        // clang-format on
    }

    void everyFailureReportsItsStateCodeAndLogLine() {
        QFETCH(QString, unit);
        QFETCH(bool, scriptMissing);
        QFETCH(int, state);
        QFETCH(QString, event);
        QFETCH(QString, logLine);
        if (scriptMissing) {
            h.forgetScript(true);
            h.server.setPathFaults(kScriptPath, {{"status", 404}});
        }
        h.addBanner(unit);
        QSignalSpy failed(h.banner.data(), &PXBBannerView::adFailed);
        h.load();
        QTRY_VERIFY_WITH_TIMEOUT(!h.recorder.events.isEmpty(), kWait);
        h.server.setPathFaults(kScriptPath, {});
        QCOMPARE(h.recorder.events, QStringList{event});
        QStringList signalled;  // the same failures, as signals
        for (const QList<QVariant>& arguments : std::as_const(failed)) {
            signalled << QStringLiteral("fail %1").arg(
                arguments[0].value<platform::Error>().code());
        }
        QCOMPARE(signalled,
                 event.startsWith(QLatin1String("fail")) ? QStringList{event} : QStringList{});
        QCOMPARE(h.state(), state);
        QVERIFY2(logLine.isEmpty() || e2e::logHas(logLine), h.trail());
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

    // Without a press nothing is handed over (tel: and others: tst_e2e_waysout): a navigation
    // becomes a web action, or loads.
    void navigationsInsideTheAdAreSortedByScheme_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<QString>("webAction");  // "a" or "u" of the web action; empty: none
        QTest::addColumn<bool>("pageStays");
        // clang-format off
        QTest::newRow("message URL: acted on, never loaded") << "nav-qmsg" << "custom" << true;
        QTest::newRow("unknown scheme without a press: stays") << "nav-store" << "sorvelstore://app/x" << true;
        QTest::newRow("path \"/\" by the page: loads, no web action") << "nav-root" << "" << false;
        // clang-format on
    }

    void navigationsInsideTheAdAreSortedByScheme() {
        QFETCH(QString, creative);
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

        QVERIFY(platform::Application::sharedApplication()->openedURLs().isEmpty());
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

    // Messages that open something or report to the server, pressed or not: tst_e2e_waysout and
    // tst_e2e_limits.
    void inAdMessagesBecomeActions_data() {
        QTest::addColumn<QStringList>("send");  // message URLs the page navigates to in turn
        QTest::addColumn<QString>("logLine");
        QTest::addColumn<QList<int>>("effects");  // system sounds, or the touch recorded
        QTest::addColumn<bool>("answered");       // the page hears which URLs open
        // clang-format off
        QTest::newRow("log without --verbose: not written") << QStringList{"qmsg:///log?string=quiet%20ad"} << "quiet: <Sorvel> [ad log] quiet ad" << QList<int>{} << false;
        QTest::newRow("log, older form") << QStringList{"torvin://log?string=old%20form"} << "<Sorvel> [ad log] old form" << QList<int>{} << false;
        QTest::newRow("older form's host in capitals: no message") << QStringList{"torvin://LOG?string=shouted"} << "not: <Sorvel> [ad log] shouted" << QList<int>{} << false;
        QTest::newRow("vibrate") << QStringList{"qmsg:///vibrate"} << "" << QList<int>{4095} << false;
        QTest::newRow("touch") << QStringList{"qmsg:///touch?tx=12&ty=34&td=5"} << "" << QList<int>{12, 34, 5} << false;
        QTest::newRow("touch with letters") << QStringList{"qmsg:///touch?tx=ab&ty=7px"} << "" << QList<int>{0, 7, -1} << false;
        QTest::newRow("canOpenURLs answers openableURLs") << QStringList{"qmsg:///canOpenURLs?urls=http://a.example/,nosuchscheme://x"} << "" << QList<int>{} << true;
        QTest::newRow("evalInOpener without an opener is dropped")
            << QStringList{"qmsg:///evalInOpener?js=1%2B1", "qmsg:///canOpenURLs?urls=http://a.example/"} << "" << QList<int>{} << true;
        // clang-format on
    }

    void inAdMessagesBecomeActions() {
        QFETCH(QStringList, send);
        QFETCH(QString, logLine);
        QFETCH(QList<int>, effects);
        QFETCH(bool, answered);
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
        h.loadMessages(send);
        QTRY_VERIFY_WITH_TIMEOUT(actions.contains(QStringLiteral("done")), kWait);
        platform::NotificationCenter::defaultCenter().removeObserver(this);
        const auto answers = [&] {
            QList<QVariantMap> found = e2e::queriesTo(h, QStringLiteral("/msg"), mark);
            found.removeIf([](const QVariantMap& q) {
                return q.value("name").toString() != QLatin1String("openableURLs");
            });
            return found;
        };
        QTRY_COMPARE_WITH_TIMEOUT(answers().size(), answered ? 1 : 0, kWait);
        if (answered) {
            QCOMPARE(answers().first().value("data").toMap().value("http://a.example/"),
                     QVariant(true));
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

    // A press that opens the ad full screen: tst_e2e_fullscreen. A link the page follows itself,
    // or within 0.15 s of the ad showing, is no click: it loads inside the banner.
    void aLinkBeforeTheAdIsShownIsNoClick_data() {
        QTest::addColumn<bool>("pressAtOnce");
        QTest::newRow("link followed by the page itself") << false;
        QTest::newRow("press, then the page's link within 0.15 s") << true;
    }

    void aLinkBeforeTheAdIsShownIsNoClick() {
        QFETCH(bool, pressAtOnce);
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        if (pressAtOnce) {
            QObject::connect(h.ad(), &PXBObjectPrivate::stateChanged, h.ad(), [&](qint32 state) {
                if (state == kPXBAdStateShown) {
                    QTimer::singleShot(0, h.banner, [&] { h.click(); });
                }
            });
        }
        h.load({{QStringLiteral("zf_creative"), QStringLiteral("link-by-script")}});
        QTRY_VERIFY_WITH_TIMEOUT(!h.requestsTo(QStringLiteral("/t/click"), mark).isEmpty(), kWait);
        QCOMPARE(h.webView()->touched(), pressAtOnce);
        QTRY_COMPARE_WITH_TIMEOUT(h.webView()->request().url().path(), QStringLiteral("/landing/"),
                                  kWait);
        QVERIFY(!h.recorder.events.contains(QStringLiteral("willPresent")));
    }

    // Before any ad there is no refresh interval: a request that cannot get its support script
    // (as when offline) is tried again, each wait at least twice the one before, and at once
    // when the system reports the network back.
    void aRequestFailedForWantOfTheNetworkIsTriedAgain() {
        h.forgetScript(false);
        h.server.setPathFaults(kScriptPath, {{"status", 503}});
        const double first = 0.3;
        const auto restore = qScopeGuard([&] {
            h.server.setPathFaults(kScriptPath, {});
            PXBConfiguration::setFirstRetrySeconds(5);
        });
        PXBConfiguration::setFirstRetrySeconds(first);
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        h.load();
        QTRY_VERIFY_WITH_TIMEOUT(h.requestsTo(kScriptPath, mark).size() >= 4, kWait);
        const QList<QJsonObject> tries = h.requestsTo(kScriptPath, mark);
        for (qsizetype i = 1; i < 4; ++i) {
            const auto at = [&](qsizetype k) {
                return QDateTime::fromString(tries[k][QStringLiteral("time")].toString(),
                                             Qt::ISODateWithMs);
            };
            const qint64 gapMs = at(i - 1).msecsTo(at(i));
            QVERIFY2(gapMs >= first * 1000 * (1 << (i - 1)) - 10,
                     qPrintable(QString::number(gapMs)));
        }
        QVERIFY(h.recorder.events.size() >= 3);
        QCOMPARE(h.recorder.events.first(), QStringLiteral("fail 2"));

        // A wait far longer than any test's is cut short by the network coming back.
        PXBConfiguration::setFirstRetrySeconds(120);
        h.addBanner(kUnit);
        h.load();
        QTRY_VERIFY_WITH_TIMEOUT(h.ad()->isRetryPending(), kWait);
        QCOMPARE(h.ad()->retrySeconds(), 120.0);
        h.server.setPathFaults(kScriptPath, {});
        PXBNetworkChecker* checker = PXBNetworkChecker::sharedChecker();
        checker->setNetworkTypeFromFlags(0);
        checker->setNetworkTypeFromFlags(PXBNetworkChecker::kReachableFlag);
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        QVERIFY(!h.ad()->isRetryPending());
    }

    // Runs last: launching finishes once per process. Until then a load in the background goes
    // ahead; after it, only a load in the foreground does.
    void aBackgroundLoadWaitsOnlyOnceLaunchingHasFinished() {
        platform::Application* app = platform::Application::sharedApplication();
        QVERIFY(!app->hasFinishedLaunching());
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        QVERIFY(h.setBackground(true));
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);

        app->finishLaunching();
        h.load();
        QCOMPARE(h.states, (QList<int>{3, 1, 3, 4, 5, 6}));  // nothing more

        QVERIFY(h.setBackground(false));
        h.load();
        QTRY_COMPARE_WITH_TIMEOUT(h.states.size(), 10, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(h.state(), int(kPXBAdStateShown), kWait);
        QCOMPARE(h.requestsTo(QStringLiteral("/ad"), mark).size(), 2);
    }
};

SORVEL_E2E_MAIN(TestBannerEndToEnd)
#include "tst_e2e_banner.moc"
