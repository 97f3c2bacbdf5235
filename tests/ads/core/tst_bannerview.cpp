#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBObjectPrivate.h"
#include "ads/core/PXBPrivateUtilities.h"
#include "ads/core/PXBRequestError.h"
#include "platform/notificationcenter.h"
#include "platform/runloop.h"
#include "platform/ui/viewcontroller.h"

#include <QApplication>
#include <QTest>

#include "platform/ui/uitestmain.h"

namespace {

// Destroys the banner while it is being told of the failure.
struct DestroyingDelegate : PXBBannerViewDelegate {
    PXBBannerView* banner = nullptr;
    QList<qint64> codes;
    void adViewDidFailToReceiveAdWithError(PXBBannerView* view,
                                           const platform::Error& error) override {
        QCOMPARE(view, banner);
        QCOMPARE(error.domain(), kPXBErrorDomain);
        codes << error.code();
        delete banner;
    }
};

}  // namespace

class TestBannerView : public QObject {
    Q_OBJECT
  private slots:
    // A banner from an interface file gets its ad object once awoken, as one made with a frame
    // (every end-to-end banner) does at once; both go with the banner.
    void aBannerFromAnInterfaceFileMakesItsAdObjectWhenAwoken() {
        const int before = PXBPrivateUtilities::count();
        auto banner = std::make_unique<PXBBannerView>(PXBBannerView::FromInterfaceFile{});
        QVERIFY(banner->privateObject() == nullptr);
        banner->awakeFromNib();
        PXBObjectPrivate* object = banner->privateObject();
        QVERIFY(object != nullptr);
        QCOMPARE(object->adView(), banner.get());
        // The ad object, and the touch record of its web view.
        QCOMPARE(PXBPrivateUtilities::count(), before + 2);
        QCOMPARE(object->webView()->parentWidget(), banner.get());
        // The root view controller is not retained: it reads null once it is gone.
        auto controller = std::make_shared<platform::ViewController>();
        banner->setRootViewController(controller.get());
        controller.reset();
        QVERIFY(banner->rootViewController() == nullptr);

        QPointer<PXBObjectPrivate> watch = object;
        banner.reset();
        QVERIFY(watch == nullptr);
        QCOMPARE(PXBPrivateUtilities::count(), before);
    }

    void destructionUndoesEverything() {
        auto& center = platform::NotificationCenter::defaultCenter();
        const int observers = center.observerCount();
        auto* banner = new PXBBannerView;
        DestroyingDelegate delegate;
        banner->setDelegate(&delegate);
        const std::shared_ptr<PXBDelegateManager> manager =
            banner->privateObject()->sharedDelegateManager();
        PXBObjectPrivate* object = banner->privateObject();
        platform::performAfter(object, 0, [] { QFAIL("ran after the banner was gone"); });
        center.addObserver(banner, "SomeNotification", nullptr, [](const auto&) {});
        delete banner;
        QCOMPARE(center.observerCount(), observers);
        QVERIFY(manager->adView() == nullptr);
        QTest::qWait(20);  // the cancelled work would have run by now
    }

    void theTableReleasesReplacedAndRemovedValues() {
        int key = 0;
        auto value = std::make_shared<QObject>();
        QPointer<QObject> first = value.get();
        PXBPrivateUtilities::setPrivateObject(std::move(value), &key);
        value.reset();
        QCOMPARE(PXBPrivateUtilities::privateObjectForKey(&key), first.data());
        QVERIFY(PXBPrivateUtilities::privateObjectForKey<PXBObjectPrivate>(&key) == nullptr);
        PXBPrivateUtilities::setPrivateObject(std::make_shared<QObject>(), &key);
        QVERIFY(first == nullptr);
        QPointer<QObject> second = PXBPrivateUtilities::privateObjectForKey(&key);
        PXBPrivateUtilities::removePrivateObjectForKey(&key);
        QVERIFY(second == nullptr);
        PXBPrivateUtilities::removePrivateObjectForKey(&key);  // absent: nothing happens
        QVERIFY(PXBPrivateUtilities::privateObjectForKey(&key) == nullptr);
    }
};

SORVEL_UI_TEST_MAIN(TestBannerView)
#include "tst_bannerview.moc"
