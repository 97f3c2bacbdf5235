// A banner in an ordinary main window, as an application that is not built on phone windows
// embeds it: no root view controller, no delegate, only the banner's signals. The application's
// state follows that window, and the ad's full screens cover it.
#include "e2eharness.h"

#include <QMainWindow>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QStatusBar>

using e2e::Harness;
using e2e::kWait;

class TestPlainWindowEndToEnd : public QObject {
    Q_OBJECT
    adserver::AdServer server;

  private slots:
    void initTestCase() {
        e2e::captureLog();
        const QString inventory =
            qEnvironmentVariable("SORVEL_SOURCE_DIR") + QStringLiteral("/tests/e2e/inventory.json");
        QVERIFY(server.start(0, QStringLiteral("127.0.0.1"), inventory));
        PXBConfiguration::setAdServerURL(server.url());
        platform::Application::sharedApplication()->setUrlOpener([](const QUrl&) { return true; });
    }

    void aBannerInAStatusBarShowsItsAdAndItsScreenCoversTheWindow() {
        QMainWindow window;
        window.setCentralWidget(new QPlainTextEdit);
        auto* banner = new PXBBannerView;
        banner->setFixedSize(320, 50);
        banner->setAdUnitID(QStringLiteral("e2e00000000000a"));
        window.statusBar()->addPermanentWidget(banner);
        QSignalSpy received(banner, &PXBBannerView::adReceived);
        QSignalSpy presented(banner, &PXBBannerView::willPresentScreen);
        QSignalSpy dismissed(banner, &PXBBannerView::didDismissScreen);
        window.resize(640, 480);
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        auto* app = platform::Application::sharedApplication();
        QTRY_COMPARE(app->applicationState(), platform::Application::StateActive);

        banner->loadRequest(PXBRequest::create().get());
        QTRY_COMPARE_WITH_TIMEOUT(received.size(), 1, kWait);
        PXBObjectPrivate* ad = banner->privateObject();
        QVERIFY(Harness::waitUntilClickable(banner));
        Harness::pressOn(banner->webView(), QPoint(160, 25));
        QTRY_COMPARE_WITH_TIMEOUT(presented.size(), 1, kWait);

        platform::ViewController* screen = ad->presenter()->presentedViewController();
        QVERIFY(screen != nullptr);
        QCOMPARE(screen->view()->parentWidget(), &window);
        QTRY_COMPARE(screen->view()->geometry(), window.rect());
        window.resize(800, 600);
        QTRY_COMPARE(screen->view()->geometry(), QRect(0, 0, 800, 600));

        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QTest::keyClick(&window, Qt::Key_Escape);
        QTRY_COMPARE_WITH_TIMEOUT(dismissed.size(), 1, kWait);
        QVERIFY(ad->presenter()->presentedViewController() == nullptr);

        // The application takes the banner away while its screen is up: the screen goes too,
        // and the next ad may open one again.
        QVERIFY(Harness::waitUntilClickable(banner));
        Harness::pressOn(banner->webView(), QPoint(160, 25));
        QTRY_COMPARE_WITH_TIMEOUT(presented.size(), 2, kWait);
        QPointer<platform::View> again = ad->presenter()->presentedViewController()->view();
        delete banner;
        QTRY_VERIFY(again == nullptr || !again->isVisible());
        QTRY_COMPARE(PXBViewController::screensUp(), 0);

        window.showMinimized();
        QTRY_COMPARE(app->applicationState(), platform::Application::StateBackground);
    }
};

SORVEL_E2E_MAIN(TestPlainWindowEndToEnd)
#include "tst_e2e_plainwindow.moc"
