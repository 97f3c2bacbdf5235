#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBInterstitial.h"

#include <QTest>
#include <QThread>

#include <atomic>
#include <functional>
#include <thread>

namespace {

// Stands in for a banner: only its address travels through the manager.
PXBBannerView* fakeBanner(void* address) {
    return static_cast<PXBBannerView*>(address);
}

// Records every callback as "<who>:<event>" and can run extra work inside one.
class RecordingBannerDelegate : public PXBBannerViewDelegate {
  public:
    QStringList* log = nullptr;
    PXBBannerView* seenView = nullptr;
    std::function<void(const QString&)> inside;

    void record(const QString& event, PXBBannerView* view) {
        seenView = view;
        log->append("banner:" + event);
        if (inside) {
            inside(event);
        }
    }
    void adViewDidReceiveAd(PXBBannerView* v) override { record("receive", v); }
    void adViewDidFailToReceiveAdWithError(PXBBannerView* v, const platform::Error&) override {
        record("fail", v);
    }
    void adViewWillPresentScreen(PXBBannerView* v) override { record("present", v); }
    void adViewWillDismissScreen(PXBBannerView* v) override { record("dismiss", v); }
    void adViewDidDismissScreen(PXBBannerView* v) override { record("dismissed", v); }
    void adViewWillLeaveApplication(PXBBannerView* v) override { record("leave", v); }
};

class RecordingInterstitialDelegate : public PXBInterstitialDelegate {
  public:
    RecordingInterstitialDelegate(QStringList* log, QString who) : log_(log), who_(who) {}
    PXBInterstitial* seen = nullptr;

    void record(const QString& event, PXBInterstitial* i) {
        seen = i;
        log_->append(who_ + ":" + event);
    }
    void interstitialDidReceiveAd(PXBInterstitial* i) override { record("receive", i); }
    void interstitialDidFailToReceiveAdWithError(PXBInterstitial* i,
                                                 const platform::Error&) override {
        record("fail", i);
    }
    void interstitialWillPresentScreen(PXBInterstitial* i) override { record("present", i); }
    void interstitialWillDismissScreen(PXBInterstitial* i) override { record("dismiss", i); }
    void interstitialDidDismissScreen(PXBInterstitial* i) override { record("dismissed", i); }
    void interstitialWillLeaveApplication(PXBInterstitial* i) override { record("leave", i); }

  private:
    QStringList* log_;
    QString who_;
};

void raise(PXBDelegateManager& manager, const QString& event) {
    if (event == "receive") {
        manager.didReceiveAd();
    } else if (event == "fail") {
        manager.didFailToReceiveAdWithError(platform::Error("com.sorvel.ads", 1));
    } else if (event == "present") {
        manager.willPresentScreen();
    } else if (event == "dismiss") {
        manager.willDismissScreen();
    } else if (event == "dismissed") {
        manager.didDismissScreen();
    } else if (event == "leave") {
        manager.willLeaveApplication();
    }
}

}  // namespace

class TestDelegateManager : public QObject {
    Q_OBJECT
  private slots:
    void everyRecipientInFixedOrder_data() {
        QTest::addColumn<QString>("event");
        for (const char* event : {"receive", "fail", "present", "dismiss", "dismissed", "leave"}) {
            QTest::newRow(event) << QString(event);
        }
    }
    void everyRecipientInFixedOrder() {
        QFETCH(QString, event);
        QStringList log;
        int banner = 0;
        RecordingBannerDelegate bannerDelegate;
        bannerDelegate.log = &log;
        RecordingInterstitialDelegate sdk(&log, "sdk");
        RecordingInterstitialDelegate app(&log, "app");
        PXBInterstitial interstitial;
        auto manager = PXBDelegateManager::create();
        manager->setBannerDelegate(&bannerDelegate);
        manager->setAdView(fakeBanner(&banner));
        manager->setInterstitialDelegate(&app);
        manager->setSdkInterstitialDelegate(&sdk);
        manager->setInterstitial(&interstitial);

        raise(*manager, event);
        QCOMPARE(log, (QStringList{"banner:" + event, "sdk:" + event, "app:" + event}));
        QCOMPARE(bannerDelegate.seenView, fakeBanner(&banner));
        QCOMPARE(sdk.seen, &interstitial);
        QCOMPARE(app.seen, &interstitial);
    }

    void delegateWithOneCallbackAndVanishedDelegates() {
        struct OnlyReceive : PXBBannerViewDelegate {
            int count = 0;
            void adViewDidReceiveAd(PXBBannerView*) override { ++count; }
        } delegate;
        auto manager = PXBDelegateManager::create();
        manager->setBannerDelegate(&delegate);
        {
            RecordingInterstitialDelegate gone(nullptr, "gone");
            manager->setSdkInterstitialDelegate(&gone);
        }
        for (const char* event : {"receive", "fail", "present", "dismiss", "dismissed", "leave"}) {
            raise(*manager, event);
        }
        QCOMPARE(delegate.count, 1);
        QCOMPARE(manager->sdkInterstitialDelegate(), nullptr);
    }

    void failureFromWorkerReachesMainThreadWhileWorkerWaits() {
        struct FailureDelegate : PXBBannerViewDelegate {
            std::atomic<bool> workerReturned{false};
            bool returnedBeforeDelivery = true;
            QThread* thread = nullptr;
            const platform::Error* error = nullptr;
            void adViewDidFailToReceiveAdWithError(PXBBannerView*,
                                                   const platform::Error& e) override {
                thread = QThread::currentThread();
                error = &e;
                // Give a worker that did not wait the chance to run ahead.
                QThread::msleep(50);
                returnedBeforeDelivery = workerReturned;
            }
        } delegate;
        auto manager = PXBDelegateManager::create();
        manager->setBannerDelegate(&delegate);
        const platform::Error error("com.sorvel.ads", 2, {{"k", "v"}});
        std::atomic<bool> done{false};
        std::thread worker([&] {
            manager->didFailToReceiveAdWithError(error);
            delegate.workerReturned = true;
            done = true;
        });
        QTRY_VERIFY(done);
        worker.join();
        QCOMPARE(delegate.thread, QThread::currentThread());
        QCOMPARE(delegate.error, &error);
        QVERIFY(!delegate.returnedBeforeDelivery);
    }

    void callbackReleasingTheBannerAndItsManager() {
        // The banner owns the manager; the delegate destroys the banner inside its callback.
        struct Banner {
            std::shared_ptr<PXBDelegateManager> manager = PXBDelegateManager::create();
        };
        auto banner = std::make_unique<Banner>();
        QStringList log;
        RecordingBannerDelegate delegate;
        delegate.log = &log;
        RecordingInterstitialDelegate sdk(&log, "sdk");
        RecordingInterstitialDelegate app(&log, "app");
        std::weak_ptr<PXBDelegateManager> watch = banner->manager;
        bool aliveAfterRelease = false;
        delegate.inside = [&](const QString&) {
            banner.reset();
            aliveAfterRelease = !watch.expired();
        };
        PXBDelegateManager* manager = banner->manager.get();
        manager->setBannerDelegate(&delegate);
        manager->setAdView(fakeBanner(banner.get()));
        manager->setSdkInterstitialDelegate(&sdk);
        manager->setInterstitialDelegate(&app);

        manager->didReceiveAd();
        QVERIFY(aliveAfterRelease);
        QVERIFY(watch.expired());
        QCOMPARE(log, (QStringList{"banner:receive", "sdk:receive", "app:receive"}));
    }

    void eventRaisedDuringDeliveryIsDeliveredNested() {
        QStringList log;
        RecordingBannerDelegate delegate;
        delegate.log = &log;
        RecordingInterstitialDelegate sdk(&log, "sdk");
        auto manager = PXBDelegateManager::create();
        manager->setBannerDelegate(&delegate);
        manager->setSdkInterstitialDelegate(&sdk);
        delegate.inside = [&](const QString& event) {
            if (event == "present") {
                manager->willDismissScreen();
            }
        };
        manager->willPresentScreen();
        QCOMPARE(log,
                 (QStringList{"banner:present", "banner:dismiss", "sdk:dismiss", "sdk:present"}));
    }
};

QTEST_GUILESS_MAIN(TestDelegateManager)
#include "tst_delegatemanager.moc"
