// Nothing leaves the banner without the user's press: every way out of it a page has, tried
// without a press and after a real one, with the desktop's opener replaced by a stand-in that only
// records what it is handed; and nothing an ad does sticks it: faked notifications, a third
// party's frame, a load that never ends, a beforeunload handler, a screen whose page dies.
#include "hostilesuite.h"

#include "ads/present/PXBBrowserController.h"
#include "ads/present/PXBWebAppViewController.h"

#include <QDesktopServices>
#include <QElapsedTimer>

using e2e::fault;
using e2e::Harness;
using e2e::kWait;
using e2e::logHas;

namespace {
const QString& kUnit = e2e::kHostileUnit;

// Every scheme an ad here tries to hand to the desktop.
constexpr const char* kDesktopSchemes[] = {"http", "https", "tel",  "sms",  "mailto",
                                           "file", "smb",   "ssh",  "sftp", "apt",
                                           "nfs",  "steam", "data", "blob", "sorvelstore"};
}  // namespace

class TestWaysOutEndToEnd : public QObject, e2e::HostileSuite {
    Q_OBJECT
    // What the desktop's opener was handed, whoever handed it over (the ad client or the engine).
    QStringList handedToDesktop;

  public slots:
    void handOver(const QUrl& url) { handedToDesktop << url.toString(); }

  private slots:
    void initTestCase() {
        start();
        // The desktop's own opener, with a stand-in for every scheme an ad here tries: whatever
        // way an ad finds to the desktop ends there, and nothing is really opened.
        platform::Application::sharedApplication()->setUrlOpener({});
        for (const char* scheme : kDesktopSchemes) {
            QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), this, "handOver");
        }
    }
    void cleanupTestCase() {
        for (const char* scheme : kDesktopSchemes) {
            QDesktopServices::unsetUrlHandler(QString::fromLatin1(scheme));
        }
        stop();
    }
    void cleanup() {
        handedToDesktop.clear();
        reset(this);
    }

    // Every way out of the banner a page has, tried without a press (refused, with the reason in
    // the log, nothing opened, nothing counted) and after one (exactly one thing opens, and only
    // what may be opened). The open messages and mail links that pass show in
    // tst_e2e_fullscreen.
    void waysOutNeedAPress_data() {
        QTest::addColumn<QStringList>("send");  // what the page does, in turn (see hostile.json)
        QTest::addColumn<bool>("press");
        QTest::addColumn<QString>("opens");   // "nothing", "browser", "webapp", "composer",
                                              // "desktop <URL>" or "tracker <path>"
        QTest::addColumn<QString>("reason");  // in the log when something is refused
        const QString noPress = QStringLiteral("no press on the ad");
        const QString unsafe = QStringLiteral("not a scheme the desktop may have");
        const QString oneScreen = QStringLiteral("an ad screen is up already");
        const QString tel = QStringLiteral("tel:5551234");
        const QStringList unsafeURLs{"file:///etc/passwd",
                                     "smb://127.0.0.1/share",
                                     "ssh://127.0.0.1/",
                                     "sftp://127.0.0.1/",
                                     "apt:sl",
                                     "steam://run/1",
                                     "nfs://127.0.0.1/export/launch.desktop",
                                     "data:text/html,x"};
        QStringList unsafeOpens;
        for (const QString& url : unsafeURLs) {
            unsafeOpens << "qmsg:///open?a=app&u=" +
                               QString::fromLatin1(QUrl::toPercentEncoding(url));
        }
        QStringList manyScreens;
        for (int i = 0; i < 16; ++i) {
            manyScreens
                << QStringLiteral("qmsg:///open?a=webapp&u={origin}/webapp/%3Fn%3D%1").arg(i);
        }
        QString manyAddresses = QStringLiteral("mailto:a0@hostile.example?cc=");
        for (int i = 1; i < 60; ++i) {
            manyAddresses += QStringLiteral("a%1@hostile.example%2")
                                 .arg(i)
                                 .arg(i == 30  ? "&bcc="
                                      : i < 59 ? ","
                                               : "");
        }
        // clang-format off
        QTest::newRow("navigation to tel:, no press") << QStringList{tel} << false << "nothing" << noPress;
        QTest::newRow("frame navigation to tel:, no press") << QStringList{"frame " + tel} << false << "nothing" << noPress;
        QTest::newRow("window.open of tel:, no press") << QStringList{"window " + tel} << false << "nothing" << noPress;
        QTest::newRow("open a=app, no press") << QStringList{"qmsg:///open?a=app&u=tel%3A5551234"} << false << "nothing" << noPress;
        QTest::newRow("open a=browser, no press") << QStringList{"qmsg:///open?a=browser&u={origin}/landing/"} << false << "nothing" << noPress;
        QTest::newRow("open a=webapp, no press") << QStringList{"qmsg:///open?a=webapp&u={origin}/webapp/"} << false << "nothing" << noPress;
        QTest::newRow("mailto:, no press") << QStringList{"mailto:ads@hostile.example"} << false << "nothing" << noPress;
        QTest::newRow("click message, no press: not reported") << QStringList{"qmsg:///click?u={origin}/t/unpressed-click"} << false << "nothing"
            << "A click message without a press is refused";
        QTest::newRow("tel: after a press: handed over") << QStringList{tel} << true << "desktop " + tel << "";
        QTest::newRow("frame navigation to tel: after a press: handed over") << QStringList{"frame " + tel} << true << "desktop " + tel << "";
        QTest::newRow("window.open of tel: after a press: handed over") << QStringList{"window " + tel} << true << "desktop " + tel << "";
        QTest::newRow("unsafe schemes by navigation after a press: refused, tel: goes") << unsafeURLs + QStringList{tel} << true
            << "desktop " + tel << "";
        QTest::newRow("unsafe schemes by open message after a press: refused, tel: goes")
            << unsafeOpens + QStringList{"qmsg:///open?a=call&u=tel%3A5551234"} << true << "desktop " + tel << unsafe;
        QTest::newRow("the integrator's scheme after a press: handed over") << QStringList{"qmsg:///open?a=app&u=sorvelstore%3A%2F%2Fapp%2Fx"}
            << true << "desktop sorvelstore://app/x" << "";
        QTest::newRow("older form's launch after a press") << QStringList{"torvin://launch?url={origin}/landing/"} << true << "browser" << "";
        QTest::newRow("two opens from one press: the first only") << QStringList{"qmsg:///open?a=browser&u={origin}/landing/", tel}
            << true << "browser" << noPress;
        QTest::newRow("16 screens from one press: one") << manyScreens << true << "webapp" << oneScreen;
        QTest::newRow("mailto: with 60 addresses: 50 kept, Bcc shown") << QStringList{manyAddresses} << true << "composer" << "";
        QTest::newRow("mailto: of 1 MiB: refused, the window keeps answering") << QStringList{"mailbody 1048576"} << true << "nothing"
            << "the mail link is longer than";
        QTest::newRow("mailto: twice from two presses: one composer") << QStringList{"mailto:ads@hostile.example", "mailto:more@hostile.example"}
            << true << "composer" << "";
        QTest::newRow("click message after a press: reported") << QStringList{"qmsg:///click?u={origin}/t/pressed-click"} << true
            << "tracker /t/pressed-click" << "";
        // clang-format on
    }

    void waysOutNeedAPress() {
        QFETCH(QStringList, send);
        QFETCH(bool, press);
        QFETCH(QString, opens);
        QFETCH(QString, reason);
        if (QByteArray(QTest::currentDataTag()).contains("integrator")) {
            PXBConfiguration::setHandOverSchemes({QStringLiteral("SorvelStore")});
        }
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        watchPage(this);
        h.loadMessages(send, press);
        if (press) {
            QVERIFY(h.pressShownAd());
        }
        // The window answers throughout: no turn of its event loop waits long.
        QElapsedTimer sinceTick;
        sinceTick.start();
        qint64 longestTurn = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this,
                [&] { longestTurn = std::max(longestTurn, sinceTick.restart()); });
        ticker.start(10);
        QTRY_VERIFY_WITH_TIMEOUT(doneSeen, kWait);
        if (!reason.isEmpty()) {
            QTRY_VERIFY2_WITH_TIMEOUT(logHas(reason), h.trail(), kWait);
        }
        const QList<QUrl>& opened = platform::Application::sharedApplication()->openedURLs();
        if (opens.startsWith(QLatin1String("desktop "))) {
            QTRY_COMPARE_WITH_TIMEOUT(handedToDesktop, QStringList{opens.mid(8)}, kWait);
            QCOMPARE(opened, QList<QUrl>{QUrl(opens.mid(8))});
        } else if (opens == QLatin1String("browser") || opens == QLatin1String("webapp")) {
            QTRY_VERIFY_WITH_TIMEOUT(
                h.top()->inherits(opens == QLatin1String("browser") ? "PXBBrowserController"
                                                                    : "PXBWebAppViewController"),
                kWait);
        } else if (opens == QLatin1String("composer")) {
            QTRY_VERIFY_WITH_TIMEOUT(h.topAs<platform::MailComposeViewController>(), kWait);
            auto* composer = h.topAs<platform::MailComposeViewController>();
            const int addresses =
                int(composer->toRecipients().size() + composer->ccRecipients().size() +
                    composer->bccRecipients().size());
            QCOMPARE(addresses, send.first().count(QLatin1Char('@')) > 50 ? 50 : 1);
            QCOMPARE(h.root->presentedViewController(), composer);
        } else if (opens.startsWith(QLatin1String("tracker "))) {
            QTRY_COMPARE_WITH_TIMEOUT(h.requestsTo(opens.mid(8), mark).size(), 1, kWait);
        }
        if (!opens.startsWith(QLatin1String("desktop "))) {
            QVERIFY(opened.isEmpty());
            QVERIFY(handedToDesktop.isEmpty());
        }
        const bool screen = opens == QLatin1String("browser") || opens == QLatin1String("webapp");
        QCOMPARE(PXBViewController::screensUp(), screen ? 1 : 0);
        if (!screen && opens != QLatin1String("composer")) {
            QCOMPARE(h.top(), h.root.get());
        }
        QVERIFY(h.requestsTo(QStringLiteral("/t/unpressed-click"), mark).isEmpty());
        QVERIFY2(longestTurn < 2000, qPrintable(QString::number(longestTurn)));
        QCOMPARE(h.state(), int(kPXBAdStateShown));

        // The next request tells the server of the clicks since the last one: none when
        // everything was refused.
        const qint64 next = h.server.lastLogSeq();
        aGoodAdStillShows();
        const QString clicks = e2e::queryOf(h.requestsTo(QStringLiteral("/ad"), next).value(0))
                                   .value("pcc")
                                   .toString();
        if (opens == QLatin1String("nothing")) {
            QVERIFY2(clicks.isEmpty() || clicks == QLatin1String("0"), qPrintable(clicks));
        }
    }

    // A page names its messages freely: named like the application's "background" or the
    // screens' "full screen up", they reach nobody who listens for the real ones, and the
    // refresh goes on.
    void fakedNotificationsStopNothing() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        watchPage(this);
        h.load(fault("creative", "spoof-background"));
        QTRY_VERIFY_WITH_TIMEOUT(doneSeen, kWait);
        QTRY_VERIFY_WITH_TIMEOUT(h.requestsTo(QStringLiteral("/ad"), mark).size() >= 2, kWait);
        aGoodAdStillShows();
    }

    // A frame inside the ad (another party's) gets no say, pressed or not: its messages are
    // refused, its click is never reported, nothing opens.
    void aFramesMessagesAreRefused() {
        const qint64 mark = h.server.lastLogSeq();
        h.addBanner(kUnit);
        watchPage(this);
        h.load(fault("creative", "third-party-frame"));
        QVERIFY(h.pressShownAd());
        QTRY_VERIFY_WITH_TIMEOUT(doneSeen, kWait);
        QVERIFY(logHas(QStringLiteral("A frame's message is refused")));
        QVERIFY(h.requestsTo(QStringLiteral("/t/frame-click"), mark).isEmpty());
        QVERIFY(platform::Application::sharedApplication()->openedURLs().isEmpty());
        QVERIFY(handedToDesktop.isEmpty());
        QCOMPARE(h.top(), h.root.get());
        aGoodAdStillShows();
    }

    // An ad whose page never finishes loading (its script loops for ever, a beforeunload
    // handler would hold the next load) fails as timed out, and the refresh goes on.
    void nothingHoldsTheAd_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<QString>("event");  // what the banner's delegate hears
        QTest::newRow("a load that never ends: timed out, the refresh goes on") << "stuck-refresh"
                                                                                << "fail 5";
        QTest::newRow("beforeunload, pressed: the next ad replaces it") << "beforeunload-refresh"
                                                                        << "receive";
    }

    void nothingHoldsTheAd() {
        QFETCH(QString, creative);
        QFETCH(QString, event);
        if (event == QLatin1String("fail 5")) {
            PXBConfiguration::setLoadTimeoutSeconds(4);  // not to wait the full 10 s
        }
        const qint64 mark = h.server.lastLogSeq();
        h.server.setPathFaults(QStringLiteral("/ad"), {{QStringLiteral("creative"), creative}});
        h.addBanner(kUnit);
        h.load();
        if (event == QLatin1String("receive")) {
            QVERIFY(h.pressShownAd());  // a handler may hold a page only once it was pressed
        }
        const int wanted = event == QLatin1String("receive") ? 2 : 1;
        QTRY_VERIFY2_WITH_TIMEOUT(h.recorder.events.count(event) >= wanted, h.trail(), kWait);
        const int requests = int(h.requestsTo(QStringLiteral("/ad"), mark).size());
        QTRY_VERIFY2_WITH_TIMEOUT(h.requestsTo(QStringLiteral("/ad"), mark).size() > requests,
                                  h.trail(), kWait);
        // The server's next ad is a good one: the same banner shows it at its next refresh (in a
        // new content process, where the stuck page had one of its own).
        h.server.setPathFaults(QStringLiteral("/ad"), {{QStringLiteral("creative"), "refresh-1s"}});
        const int shown = int(h.recorder.events.count(QStringLiteral("receive")));
        QTRY_VERIFY2_WITH_TIMEOUT(h.recorder.events.count(QStringLiteral("receive")) > shown,
                                  h.trail(), kWait);
        h.server.setPathFaults(QStringLiteral("/ad"), {});
        aGoodAdStillShows();
    }

    // A full screen whose page's content process dies closes, and the application hears it
    // close.
    void aFullScreenWhosePageDiesCloses() {
        h.addBanner(kUnit);
        h.loadMessages(QStringList{"qmsg:///open?a=webapp&u={origin}/webapp/"}, true);
        QVERIFY(h.pressShownAd());
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBWebAppViewController>() != nullptr, kWait);
        PXBWebView* page = h.topAs<PXBWebAppViewController>()->webView();
        QVERIFY(Harness::waitUntilPainted(page));
        QVERIFY(Harness::killContentProcess(page));
        QTRY_COMPARE_WITH_TIMEOUT(h.top(), h.root.get(), kWait);
        QTRY_COMPARE_WITH_TIMEOUT(
            h.recorder.events,
            (QStringList{QStringLiteral("receive"), QStringLiteral("willPresent"),
                         QStringLiteral("willDismiss"), QStringLiteral("didDismiss")}),
            kWait);
        aGoodAdStillShows();
    }
};

SORVEL_E2E_MAIN(TestWaysOutEndToEnd)
#include "tst_e2e_waysout.moc"
