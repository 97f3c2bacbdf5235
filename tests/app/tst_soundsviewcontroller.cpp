#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBObjectPrivate.h"
#include "app/Brindle_SoundsViewController.h"

#include <QTest>

#include "platform/ui/uitestmain.h"

namespace {
struct Listener : PXBBannerViewDelegate {};
}  // namespace

class TestSoundsViewController : public QObject {
    Q_OBJECT
  private slots:
    void bannerSitsFlushWithTheBottom_data() {
        QTest::addColumn<QRect>("viewFrame");
        QTest::addColumn<QRect>("bannerFrame");
        QTest::newRow("480 high") << QRect(0, 0, 320, 480) << QRect(0, 430, 320, 50);
        QTest::newRow("wider") << QRect(0, 0, 480, 300) << QRect(0, 250, 320, 50);
    }
    void bannerSitsFlushWithTheBottom() {
        QFETCH(QRect, viewFrame);
        QFETCH(QRect, bannerFrame);
        auto controller = std::make_shared<Brindle_SoundsViewController>(
            [viewFrame] { return new platform::View(viewFrame); });
        platform::View* view = controller->view();  // loads it: viewDidLoad places the banner
        PXBBannerView* banner = controller->Qarbo();
        QVERIFY(banner != nullptr);
        QCOMPARE(banner->frame(), bannerFrame);
        QCOMPARE(banner->parentWidget(), view);
        QCOMPARE(view->children().last(), banner);  // on top of the board
        QCOMPARE(banner->adUnitID(), QString("c3e91d07b4a2f68"));
        QCOMPARE(banner->rootViewController(), controller.get());
        QVERIFY(banner->delegate() == nullptr);
        // The bare request reached the ad object, which keeps its own copy.
        const PXBRequestPrivate* request = banner->privateObject()->request();
        QVERIFY(request != nullptr);
        QCOMPARE(request->gender(), 0);
        QVERIFY(request->keywords() == nullptr);
        QVERIFY(!request->isTesting());
    }

    void reloadingTheViewMakesASecondBanner() {
        auto controller = std::make_shared<Brindle_SoundsViewController>(
            [] { return new platform::View(QRect(0, 0, 320, 460)); });
        controller->view();
        QPointer<PXBBannerView> first = controller->Qarbo();
        controller->viewDidUnload();
        controller->viewDidLoad();
        QVERIFY(controller->Qarbo() != first);
        QVERIFY(first != nullptr);  // not released by the controller
        QCOMPARE(controller->view()->findChildren<PXBBannerView*>().size(), 2);
    }

    void destructionClearsTheBannerDelegateFirst() {
        auto controller = std::make_shared<Brindle_SoundsViewController>(
            [] { return new platform::View(QRect(0, 0, 320, 460)); });
        controller->view();
        Listener listener;
        PXBBannerView* banner = controller->Qarbo();
        banner->setDelegate(&listener);
        const std::shared_ptr<PXBDelegateManager> manager =
            banner->privateObject()->sharedDelegateManager();
        QCOMPARE(manager->bannerDelegate(), &listener);
        QPointer<PXBBannerView> watch = banner;
        controller.reset();
        QVERIFY(watch == nullptr);
        QVERIFY(manager->bannerDelegate() == nullptr);
        QVERIFY(manager->adView() == nullptr);
    }
};

SORVEL_UI_TEST_MAIN(TestSoundsViewController)
#include "tst_soundsviewcontroller.moc"
