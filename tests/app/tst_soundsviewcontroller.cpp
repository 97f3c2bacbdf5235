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
