// A press opens the ad: the in-app browser, the web app screen, the mail composer and other
// applications, with what the application's delegate hears, what the server sees, and what
// travels with the next request.
#include "e2eharness.h"

#include "ads/bridge/PXBWebAppWebViewDelegate.h"
#include "ads/present/PXBBrowserController.h"
#include "ads/present/PXBWebAppViewController.h"
#include "platform/log.h"
#include "platform/ui/controls.h"
#include "platform/ui/mailcomposer.h"
#include "platform/ui/notice.h"

#include <QDBusConnection>
#include <QLineEdit>
#include <QProcess>
#include <QScopeGuard>
#include <QToolButton>

using e2e::Harness;
using e2e::kWait;

namespace {
const QString kUnit = QStringLiteral("e2e00000000000a");
const QString kRefreshingUnit = QStringLiteral("e2e0000000000f3");

// Toolbar places of the browser's items.
constexpr int kBackPlace = 0;
constexpr int kForwardPlace = 2;
constexpr int kMiddlePlace = 4;  // reload, or the spinner while a page loads
constexpr int kDesktopPlace = 6;
constexpr int kDonePlace = 8;

const QStringList kPresentedAndDismissed{
    QStringLiteral("willPresent"), QStringLiteral("willDismiss"), QStringLiteral("didDismiss")};

QString percentEncoded(const QString& text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}
}  // namespace

// The desktop's screen saver, on a session bus of the suite's own: it records who keeps it away.
class ScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
  public:
    QList<uint> inhibitions;  // cookies handed out and not given back yet
    int calls = 0;

  public slots:
    Q_SCRIPTABLE uint Inhibit(const QString&, const QString&) {
        ++calls;
        inhibitions << ++lastCookie_;
        return lastCookie_;
    }
    Q_SCRIPTABLE void UnInhibit(uint cookie) {
        ++calls;
        inhibitions.removeAll(cookie);
    }

  private:
    uint lastCookie_ = 0;
};

class TestFullScreenEndToEnd : public QObject {
    Q_OBJECT
    Harness h;
    QProcess sessionBus;
    ScreenSaver screenSaver;

    // What the ad's pages heard from the client (the bridge reports each message to /msg).
    QStringList pageMessages(qint64 since) const {
        return e2e::queryValues(h, QStringLiteral("/msg"), QStringLiteral("name"), since);
    }

    QStringList screenEvents() const {
        QStringList events = h.recorder.events;
        events.removeAll(QStringLiteral("receive"));
        return events;
    }

    // A banner showing `creative`, painted and old enough for a press to be a click.
    bool showBanner(const QString& creative, const QString& unit = kUnit) {
        h.addBanner(unit);
        h.load({{QStringLiteral("zf_creative"), creative}});
        return h.waitUntilClickable();
    }

    // A banner whose page sends the in-ad messages `urls` once pressed, and the press.
    bool pressMessagesBanner(const QStringList& urls) {
        h.addBanner(kUnit);
        h.loadMessages(urls, true);
        return h.pressShownAd();
    }

    static void pressToolbar(PXBBrowserController* browser, int place) {
        QWidget* button = browser->toolbar()->widgetAt(place);
        QVERIFY(button != nullptr);
        QTRY_VERIFY(button->isEnabled());
        QTest::mouseClick(button, Qt::LeftButton);
    }

    // The request changes when the load is asked for, before it starts: the page itself tells
    // when it is there.
    static bool browserShows(PXBBrowserController* browser, const QString& path) {
        return e2e::waitFor(
            [&] {
                return browser->webView() != nullptr && !browser->webView()->isLoading() &&
                       Harness::evaluate(
                           browser->webView(),
                           QStringLiteral("location.pathname + ' ' + document.readyState")) ==
                           path + QStringLiteral(" complete");
            },
            kWait);
    }

  private slots:
    void initTestCase() {
        // Before anything asks for the session bus: the connection, once made, is kept.
        sessionBus.start(QStringLiteral("dbus-daemon"),
                         {QStringLiteral("--session"), QStringLiteral("--nofork"),
                          QStringLiteral("--print-address=1")});
        if (sessionBus.waitForStarted(5000) && sessionBus.waitForReadyRead(5000)) {
            qputenv("DBUS_SESSION_BUS_ADDRESS", sessionBus.readLine().trimmed());
            QDBusConnection bus = QDBusConnection::sessionBus();
            QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/ScreenSaver"), &screenSaver,
                                       QDBusConnection::ExportScriptableSlots));
            QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.ScreenSaver")));
        }
        QVERIFY(h.start(QStringLiteral("inventory.json")));
        // The store links of the inventory: a scheme the integrator lets ads hand over.
        PXBConfiguration::setHandOverSchemes({QStringLiteral("sorvelstore")});
    }

    void cleanupTestCase() {
        sessionBus.terminate();
        sessionBus.waitForFinished(5000);
    }

    void cleanup() {
        platform::Application::sharedApplication()->setUrlOpener([](const QUrl&) { return true; });
        h.closeScreens();
        h.server.setPathFaults(QStringLiteral("/t/ctrk"), {});
        h.server.setPathFaults(QStringLiteral("/landing/never.html"), {});
        h.server.setPathFaults(QStringLiteral("/landing/"), {});
        h.removeBanner();
    }

    // The screen saver stays away while the browser is up, and only then.
    void aClickOpensTheBrowserAndTheNextRequestTellsOfTheVisit() {
        const bool bus = QDBusConnection::sessionBus().isConnected();
        if (!bus) {
            qWarning("no dbus-daemon to run a session bus: the screen saver goes unchecked");
        }
        QVERIFY(showBanner(QStringLiteral("plain-refresh"), kRefreshingUnit));
        // A press that lands while the next ad (every second) is on its way is no click.
        QString adPage;
        qint64 mark = 0;
        for (int attempt = 0; attempt < 5 && h.topAs<PXBBrowserController>() == nullptr;
             ++attempt) {
            QVERIFY(h.waitUntilClickable());
            adPage = h.webView()->request().url().toString(QUrl::FullyEncoded);
            mark = h.server.lastLogSeq();
            h.click();
            if (e2e::waitFor([&] { return h.topAs<PXBBrowserController>() != nullptr; }, 3000))
                break;
        }
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>() != nullptr, kWait);
        auto* browser = h.topAs<PXBBrowserController>();
        QElapsedTimer up;
        up.start();
        QCOMPARE(screenEvents(), QStringList{QStringLiteral("willPresent")});
        QCOMPARE(screenSaver.inhibitions.size(), bus ? 1 : 0);
        QVERIFY(browserShows(browser, QStringLiteral("/landing/")));
        const QList<QJsonObject> clicks = h.requestsTo(QStringLiteral("/t/click"), mark);
        QCOMPARE(clicks.size(), 1);
        QCOMPARE(clicks.first()[QStringLiteral("headers")][QStringLiteral("Referer")].toString(),
                 adPage);
        QCOMPARE(h.webView()->request().url().toString(QUrl::FullyEncoded), adPage);

        // Two pages of the site by link, back and forward with the toolbar.
        QVERIFY(Harness::waitUntilPainted(browser->webView()));
        const QPoint link = Harness::centreOf(browser->webView(), "main a[href='menu.html']");
        QVERIFY(link.x() >= 0);
        Harness::pressOn(browser->webView(), link);
        QVERIFY(browserShows(browser, QStringLiteral("/landing/menu.html")));
        pressToolbar(browser, kBackPlace);
        QVERIFY(browserShows(browser, QStringLiteral("/landing/")));
        pressToolbar(browser, kForwardPlace);
        QVERIFY(browserShows(browser, QStringLiteral("/landing/menu.html")));
        // The strip above the page says where it is, plain http marked as such.
        QTRY_COMPARE(browser->shownAddress(),
                     QStringLiteral("Not secure · 127.0.0.1:%1/landing/menu.html")
                         .arg(h.server.url().port()));

        // The refresh (every second) waits while the browser covers the banner.
        QTRY_VERIFY_WITH_TIMEOUT(up.elapsed() > 2000, kWait);
        QCOMPARE(h.requestsTo(QStringLiteral("/ad"), mark).size(), 0);
        const qint64 dismissed = h.server.lastLogSeq();
        pressToolbar(browser, kDonePlace);
        QTRY_COMPARE_WITH_TIMEOUT(screenEvents(), kPresentedAndDismissed, kWait);
        QTRY_VERIFY(screenSaver.inhibitions.isEmpty());
        QCOMPARE(screenSaver.calls, bus ? 2 : 0);
        QTRY_VERIFY_WITH_TIMEOUT(!h.requestsTo(QStringLiteral("/ad"), dismissed).isEmpty(), kWait);
        const QVariantMap next =
            e2e::queryOf(h.requestsTo(QStringLiteral("/ad"), dismissed).first());
        QCOMPARE(next.value(QStringLiteral("pcc")).toString(), QStringLiteral("1"));
        for (const char* timing : {"pcl", "ppcl", "pcrl", "plpl", "plpd"}) {
            QVERIFY2(next.contains(QLatin1String(timing)), timing);
        }
        QVERIFY(next.value(QStringLiteral("pcl")).toLongLong() > 2000);
        QVERIFY(next.value(QStringLiteral("plpl")).toLongLong() > 0);
        // One link to a page; back and forward are not navigations of the user's own.
        QCOMPARE(next.value(QStringLiteral("plpnc")).toString(), QStringLiteral("1"));
    }

    // A keyboard user reaches the ad with Tab, a ring showing where the focus went, opens it
    // with Return as a press would (its click is tracked), and closes its screen with Esc.
    void theKeyboardReachesAndOpensTheAd() {
        QVERIFY(showBanner(QStringLiteral("plain")));
        h.window->desktopWindow()->activateWindow();  // in front, as the user's window is
        QVERIFY(QTest::qWaitForWindowActive(h.window->desktopWindow()));
        auto* ring = h.webView()->findChild<QWidget*>(QStringLiteral("focusRing"));
        QVERIFY(ring != nullptr);
        QVERIFY(!ring->isVisible());
        const qint64 mark = h.server.lastLogSeq();
        // Tab until the ad's link has the focus; the page moves its own in its own time.
        const auto linkFocused = [&] {
            return Harness::evaluate(h.webView(),
                                     QStringLiteral("document.activeElement.tagName")) ==
                   QStringLiteral("A");
        };
        for (int press = 0; press < 4 && !linkFocused(); ++press) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            e2e::waitFor(linkFocused, 3000);
        }
        QVERIFY(linkFocused());
        QVERIFY(ring->isVisible());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>() != nullptr, kWait);
        QCOMPARE(h.requestsTo(QStringLiteral("/t/click"), mark).size(), 1);
        QVERIFY(browserShows(h.topAs<PXBBrowserController>(), QStringLiteral("/landing/")));
        // Off screen the window is no longer the active one once the screen is up; under a
        // window manager it stays active.
        h.window->desktopWindow()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(h.window->desktopWindow()));
        QTest::keyClick(h.window.get(), Qt::Key_Escape);
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>() == nullptr, kWait);
    }

    // Whatever size the user gives the window, a press where they see the ad opens it: the phone
    // window is drawn scaled, between bars, and the press reaches the ad through the desktop's.
    void aPressThroughAResizedWindowOpensTheAd_data() {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<double>("scale");
        QTest::newRow("twice the size") << QSize(640, 960) << 2.0;
        QTest::newRow("wide: bars left and right") << QSize(900, 600) << 1.25;
    }
    void aPressThroughAResizedWindowOpensTheAd() {
        QFETCH(QSize, size);
        QFETCH(double, scale);
        QWidget* desktop = h.window->desktopWindow();
        const QSize natural = desktop->size();
        const auto restore = qScopeGuard([&] { desktop->resize(natural); });
        desktop->resize(size);
        QTRY_COMPARE(desktop->size(), size);
        QVERIFY(showBanner(QStringLiteral("plain")));
        const qint64 mark = h.server.lastLogSeq();
        const QPoint seen = desktop->mapFromGlobal(h.webView()->mapToGlobal(QPoint(160, 25)));
        QCOMPARE(h.window->scaleFactor(), scale);
        QVERIFY2(std::abs(seen.x() - size.width() / 2) <= 1, qPrintable(QString::number(seen.x())));
        QWidget* target = desktop->childAt(seen);  // the desktop window's, as a real press
        QVERIFY(target != nullptr);
        const QPoint local = target->mapFrom(desktop, seen);
        QTest::mousePress(target, Qt::LeftButton, {}, local);
        QTest::mouseRelease(target, Qt::LeftButton, {}, local);
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>() != nullptr, kWait);
        QCOMPARE(h.requestsTo(QStringLiteral("/t/click"), mark).size(), 1);
    }

    // A click on an ad with click tracking opens a web app, whose page hears "onshow"; its close
    // button sends "onhide", and the closed page stays for the dismissal and goes 2 s later.
    void aClickOnATrackedAdOpensAWebApp() {
        // An earlier case's web app may still be on its way out.
        QTRY_COMPARE_WITH_TIMEOUT(PXBWebAppWebViewDelegate::pendingReleases(), 0, kWait);
        QVERIFY(showBanner(QStringLiteral("tracked")));
        const qint64 mark = h.server.lastLogSeq();
        h.click();
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBWebAppViewController>() != nullptr, kWait);
        auto* webApp = h.topAs<PXBWebAppViewController>();
        QTRY_VERIFY_WITH_TIMEOUT(!h.requestsTo(QStringLiteral("/t/ctrk"), mark).isEmpty(), kWait);
        QTRY_COMPARE_WITH_TIMEOUT(pageMessages(mark), QStringList{QStringLiteral("onshow")}, kWait);
        QVERIFY(Harness::waitUntilPainted(webApp->webView()));
        const QRect close = webApp->view()->childAt(QPoint(16, 16))->geometry();
        QCOMPARE(close, QRect(0, 0, 32, 32));

        QPointer<platform::WebView> page = webApp->webView();
        QTest::mouseClick(webApp->view()->childAt(QPoint(16, 16)), Qt::LeftButton, {},
                          QPoint(16, 16));
        QElapsedTimer closed;
        closed.start();
        QTRY_COMPARE_WITH_TIMEOUT(pageMessages(mark),
                                  (QStringList{QStringLiteral("onshow"), QStringLiteral("onhide")}),
                                  kWait);
        QTRY_COMPARE_WITH_TIMEOUT(screenEvents(), kPresentedAndDismissed, kWait);
        QVERIFY(h.top() == h.root.get());
        QVERIFY(page != nullptr);
        QCOMPARE(PXBWebAppWebViewDelegate::pendingReleases(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(page == nullptr, kWait);
        QVERIFY2(closed.elapsed() >= 1900, qPrintable(QString::number(closed.elapsed())));
        QCOMPARE(PXBWebAppWebViewDelegate::pendingReleases(), 0);
    }

    // An "open" message's action, content and orientation choose the screen and what it allows.
    void openMessagesChooseTheScreen_data() {
        QTest::addColumn<QString>("params");  // of the "open" message ({origin}: the server)
        QTest::addColumn<QString>("screen");  // "webapp" or "browser"
        QTest::addColumn<int>("orientations");
        QTest::addColumn<QString>("shows");  // text of the screen's page
        const QString html = percentEncoded(QStringLiteral(
            "<html><body style='background:#fff'><h1 id='quick'>Quick booking</h1></body></html>"));
        // clang-format off
        QTest::newRow("web app from HTML alone") << "a=webapp&html=" + html << "webapp" << 1 << "Quick booking";
        QTest::newRow("landscape") << "a=webapp&o=l&u={origin}/webapp/" << "webapp" << 3 << "Coffee Club";
        QTest::newRow("upper-case L is any") << "a=browser&o=L&u={origin}/landing/" << "browser" << 1 << "Roasters";
        // clang-format on
    }

    void openMessagesChooseTheScreen() {
        QFETCH(QString, params);
        QFETCH(QString, screen);
        QFETCH(int, orientations);
        QFETCH(QString, shows);
        QVERIFY(pressMessagesBanner({QStringLiteral("qmsg:///open?") + params}));
        QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<PXBViewController*>(h.top()) != nullptr, kWait);
        auto* top = qobject_cast<PXBViewController*>(h.top());
        QCOMPARE(screen == QLatin1String("webapp"),
                 qobject_cast<PXBWebAppViewController*>(top) != nullptr);
        QCOMPARE(top->supportedOrientations(), orientations);
        QCOMPARE(top->shouldAutorotateToInterfaceOrientation(1), orientations != 3);
        auto* page = top->view()->findChild<platform::WebView*>();
        QVERIFY(page != nullptr);
        QTRY_VERIFY_WITH_TIMEOUT(
            Harness::evaluate(page, QStringLiteral("document.body ? document.body.innerText : ''"))
                .contains(shows),
            kWait);
        // Escape closes it as its own close button does.
        h.window->desktopWindow()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(h.window->desktopWindow()));
        QTest::keyClick(h.window.get(), Qt::Key_Escape);
        QTRY_VERIFY_WITH_TIMEOUT(h.top() == h.root.get(), kWait);
        QTRY_COMPARE_WITH_TIMEOUT(screenEvents(), kPresentedAndDismissed, kWait);
    }

    // A mailto: link's recipients, copies, subject and body fill the composer.
    void aMailLinkFillsTheComposer() {
        QVERIFY(showBanner(QStringLiteral("contact")));
        const QPoint mail = Harness::centreOf(h.webView(), "a[href^='mailto:']");
        QVERIFY(mail.x() >= 0);
        h.click(mail);
        QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<platform::MailComposeViewController*>(h.top()),
                                 kWait);
        auto* composer = qobject_cast<platform::MailComposeViewController*>(h.top());
        QCOMPARE(composer->toRecipients(),
                 QStringList{QStringLiteral("tables@pine-and-pepper.example")});
        QCOMPARE(composer->ccRecipients(),
                 (QStringList{QStringLiteral("host@pine-and-pepper.example"),
                              QStringLiteral("chef@pine-and-pepper.example")}));
        QCOMPARE(composer->subject(), QStringLiteral("Table for two"));
        QCOMPARE(composer->messageBody(), QStringLiteral("Hello!"));
        QVERIFY(screenEvents().isEmpty());  // the composer is no ad screen
        // Escape cancels, from inside the text as well.
        h.window->desktopWindow()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(h.window->desktopWindow()));
        QTest::keyClick(composer->view()->findChild<QLineEdit*>(), Qt::Key_Escape);
        QTRY_VERIFY(h.top() == h.root.get());
    }

    // A store link (the click's redirect in the browser) is handed over once its click tracking
    // has answered, or after three waits of 0.3 s without it. A desktop that opens nothing for
    // it gets a notice said.
    void aStoreClickWaitsForItsTrackingThreeTimesAtMost_data() {
        QTest::addColumn<int>("trackingDelayMs");
        QTest::addColumn<bool>("desktopOpens");
        QTest::newRow("tracking answers late: handed over after it") << 500 << true;
        QTest::newRow("tracking never answers: handed over without it, nothing opens")
            << 60000 << false;
    }

    void aStoreClickWaitsForItsTrackingThreeTimesAtMost() {
        QFETCH(int, trackingDelayMs);
        QFETCH(bool, desktopOpens);
        const bool answers = trackingDelayMs < 900;
        h.server.setPathFaults(QStringLiteral("/t/ctrk"),
                               {{QStringLiteral("delayMs"), trackingDelayMs}});
        QVERIFY(showBanner(QStringLiteral("store")));
        const qint64 mark = h.server.lastLogSeq();
        auto trackedBeforeLeaving = std::make_shared<bool>(false);
        platform::Application::sharedApplication()->setUrlOpener(
            [this, mark, trackedBeforeLeaving, desktopOpens](const QUrl&) {
                *trackedBeforeLeaving = !h.requestsTo(QStringLiteral("/t/ctrk"), mark).isEmpty();
                return desktopOpens;
            });
        h.click();
        const QList<QUrl>& opened = platform::Application::sharedApplication()->openedURLs();
        QTRY_VERIFY_WITH_TIMEOUT(!opened.isEmpty(), kWait);
        const QDateTime handedOver = QDateTime::currentDateTimeUtc();
        QCOMPARE(opened, QList<QUrl>{QUrl(QStringLiteral("sorvelstore://app/brindle-sounds-pro"))});
        QCOMPARE(*trackedBeforeLeaving, answers);
        platform::Notice* notice = platform::Notice::current(h.window.get());
        QCOMPARE(notice != nullptr, !desktopOpens);
        QVERIFY(desktopOpens || notice->text().contains(QStringLiteral("sorvelstore:")));
        // The browser's page left, not the ad: the application hears of the browser only.
        QCOMPARE(screenEvents(), QStringList{QStringLiteral("willPresent")});
        if (!answers) {
            const QList<QJsonObject> clicks = h.requestsTo(QStringLiteral("/t/click"), mark);
            QCOMPARE(clicks.size(), 1);
            const QDateTime redirected = QDateTime::fromString(
                clicks.first()[QStringLiteral("time")].toString(), Qt::ISODateWithMs);
            QVERIFY2(redirected.msecsTo(handedOver) >= 850,
                     qPrintable(QString::number(redirected.msecsTo(handedOver))));
        }
    }

    // The ad's "X-Zelm-Orientation" is what the browser its click opens allows. Reload shows the
    // spinner in its place (and disables the desktop button) until the page is back; the desktop
    // button hands the page to the desktop and tells the application it is left, while the
    // browser stays.
    void theBrowsersToolbarReloadsAndHandsThePageToTheDesktop() {
        QVERIFY(showBanner(QStringLiteral("landscape")));
        h.click();
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>() != nullptr, kWait);
        auto* browser = h.topAs<PXBBrowserController>();
        QCOMPARE(browser->supportedOrientations(), int(PXBOrientationLandscape));
        QVERIFY(!browser->shouldAutorotateToInterfaceOrientation(1));
        QVERIFY(browserShows(browser, QStringLiteral("/landing/")));
        platform::Toolbar* bar = browser->toolbar();
        QTRY_VERIFY(bar->widgetAt(kDesktopPlace)->isEnabled());

        h.server.setPathFaults(QStringLiteral("/landing/"), {{QStringLiteral("delayMs"), 1500}});
        pressToolbar(browser, kMiddlePlace);
        QTRY_VERIFY_WITH_TIMEOUT(
            qobject_cast<platform::ActivityIndicatorView*>(bar->widgetAt(kMiddlePlace)), kWait);
        QVERIFY(!bar->widgetAt(kDesktopPlace)->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(
            !qobject_cast<platform::ActivityIndicatorView*>(bar->widgetAt(kMiddlePlace)), kWait);
        h.server.setPathFaults(QStringLiteral("/landing/"), {});
        QVERIFY(bar->widgetAt(kDesktopPlace)->isEnabled());
        QVERIFY(browserShows(browser, QStringLiteral("/landing/")));

        // The keyboard reaches every button of the toolbar with Tab, through the page's links
        // and out of them, and the button with the focus shows it.
        QHash<QWidget*, QImage> unfocused;
        for (QToolButton* button : bar->findChildren<QToolButton*>()) {
            if (button->isEnabled()) {
                unfocused.insert(button, button->grab().toImage());
            }
        }
        QCOMPARE(unfocused.size(), 3);  // reload, desktop, done: back and forward await a history
        h.window->desktopWindow()->activateWindow();  // in front, as the user's window is
        QVERIFY(QTest::qWaitForWindowActive(h.window->desktopWindow()));
        const auto focusedInPage = [&] {
            return Harness::evaluate(browser->webView(),
                                     QStringLiteral("document.activeElement.outerHTML"));
        };
        QString inPage = focusedInPage();
        QSet<QWidget*> reached;
        for (int press = 0; press < 40 && reached.size() < unfocused.size(); ++press) {
            QWidget* before = h.window->focusWidget();
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            // The page moves its own focus in its own time.
            QTRY_VERIFY(h.window->focusWidget() != before || focusedInPage() != inPage);
            inPage = focusedInPage();
            QWidget* now = h.window->focusWidget();
            if (unfocused.contains(now) && !reached.contains(now)) {
                reached.insert(now);
                QVERIFY2(now->grab().toImage() != unfocused.value(now), qPrintable(now->toolTip()));
            }
        }
        QCOMPARE(reached.size(), unfocused.size());

        pressToolbar(browser, kDesktopPlace);
        const QList<QUrl>& opened = platform::Application::sharedApplication()->openedURLs();
        QTRY_COMPARE_WITH_TIMEOUT(opened.size(), 1, kWait);
        QCOMPARE(opened.first().path(), QStringLiteral("/landing/"));
        QCOMPARE(screenEvents(),
                 (QStringList{QStringLiteral("willPresent"), QStringLiteral("willLeave")}));
        QVERIFY(h.top() == browser);
    }

    // A web app's page may have its opener, the banner's page, evaluate a script only from the
    // banner's own origin: another's (a web app given as HTML has none) would read its cookies.
    void evalInOpenerAnswersOnlyTheBannersOrigin_data() {
        QTest::addColumn<bool>("sameOrigin");
        QTest::newRow("same origin: answered") << true;
        QTest::newRow("another origin: refused") << false;
    }

    void evalInOpenerAnswersOnlyTheBannersOrigin() {
        QFETCH(bool, sameOrigin);
        platform::setDebugLogging(true);  // for the refusal's line
        const qint64 mark = h.server.lastLogSeq();
        QVERIFY(pressMessagesBanner(
            {sameOrigin ? QStringLiteral("qmsg:///open?a=webapp&u=%1preview/eval-in-opener")
                              .arg(percentEncoded(h.server.url().toString()))
                        : QStringLiteral("qmsg:///open?a=webapp&html=") +
                              percentEncoded(
                                  QStringLiteral(
                                      "<html><head><script src='%1zelm/sdk-core-v40.js'></script>"
                                      "</head><body>app<script>ZELM.on('onshow',function(){ZELM."
                                      "send('evalInOpener',{js:'document.cookie'});});</script>"
                                      "</body></html>")
                                      .arg(h.server.url().toString()))}));
        const QString result = QStringLiteral("evalJavaScriptInOpenerResult");
        if (sameOrigin) {
            QTRY_VERIFY_WITH_TIMEOUT(pageMessages(mark).contains(result), kWait);
            for (const QVariantMap& query : e2e::queriesTo(h, QStringLiteral("/msg"), mark)) {
                if (query.value(QStringLiteral("name")) == result) {
                    QCOMPARE(query.value(QStringLiteral("data")).toMap(),
                             (QVariantMap{{QStringLiteral("result"), QStringLiteral("/ad")}}));
                }
            }
        } else {
            QTRY_VERIFY2_WITH_TIMEOUT(
                e2e::logHas(QStringLiteral("evalInOpener from another origin")), h.trail(), kWait);
            QVERIFY(!pageMessages(mark).contains(result));
        }
        platform::setDebugLogging(false);
    }

    // A browser whose first page never arrives is closed when the application comes back.
    void comingBackToABrowserThatNeverLoadedClosesIt() {
        h.server.setPathFaults(QStringLiteral("/landing/never.html"),
                               {{QStringLiteral("delayMs"), 60000}});
        QVERIFY(pressMessagesBanner(
            {QStringLiteral("qmsg:///open?a=browser&u={origin}/landing/never.html")}));
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>() != nullptr, kWait);
        QTRY_VERIFY_WITH_TIMEOUT(h.topAs<PXBBrowserController>()->webView()->isLoading(), kWait);
        QVERIFY(h.setBackground(true));
        QVERIFY(h.setBackground(false));
        QTRY_VERIFY2_WITH_TIMEOUT(h.top() == h.root.get(), h.trail(), kWait);
        QCOMPARE(screenEvents(), kPresentedAndDismissed);
    }
};

SORVEL_E2E_MAIN(TestFullScreenEndToEnd)
#include "tst_e2e_fullscreen.moc"
