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
struct Recorder {
    QStringList* log = nullptr;
    QString who;
    std::function<void(const QString&)> inside;
    void record(const QString& event) {
        log->append(who + ":" + event);
        if (inside) {
            inside(event);
        }
    }
};

class RecordingBannerDelegate : public PXBBannerViewDelegate, public Recorder {
  public:
    PXBBannerView* seenView = nullptr;
    void seen(const QString& event, PXBBannerView* view) {
        seenView = view;
        record(event);
    }
    void adViewDidReceiveAd(PXBBannerView* v) override { seen("receive", v); }
    void adViewDidFailToReceiveAdWithError(PXBBannerView* v, const platform::Error&) override {
        seen("fail", v);
    }
    void adViewWillPresentScreen(PXBBannerView* v) override { seen("present", v); }
    void adViewWillDismissScreen(PXBBannerView* v) override { seen("dismiss", v); }
    void adViewDidDismissScreen(PXBBannerView* v) override { seen("dismissed", v); }
    void adViewWillLeaveApplication(PXBBannerView* v) override { seen("leave", v); }
};

class RecordingInterstitialDelegate : public PXBInterstitialDelegate, public Recorder {
  public:
    PXBInterstitial* seenAd = nullptr;
    void seen(const QString& event, PXBInterstitial* ad) {
        seenAd = ad;
        record(event);
    }
    void interstitialDidReceiveAd(PXBInterstitial* i) override { seen("receive", i); }
    void interstitialDidFailToReceiveAdWithError(PXBInterstitial* i,
                                                 const platform::Error&) override {
        seen("fail", i);
    }
    void interstitialWillPresentScreen(PXBInterstitial* i) override { seen("present", i); }
    void interstitialWillDismissScreen(PXBInterstitial* i) override { seen("dismiss", i); }
    void interstitialDidDismissScreen(PXBInterstitial* i) override { seen("dismissed", i); }
    void interstitialWillLeaveApplication(PXBInterstitial* i) override { seen("leave", i); }
};

// A manager wired to a banner delegate, an SDK listener and an application delegate.
struct Wired {
    QStringList log;
    RecordingBannerDelegate banner;
    RecordingInterstitialDelegate sdk;
    RecordingInterstitialDelegate app;
    void attach(PXBDelegateManager& manager) {
        banner.log = sdk.log = app.log = &log;
        banner.who = "banner";
        sdk.who = "sdk";
        app.who = "app";
        manager.setBannerDelegate(&banner);
        manager.setSdkInterstitialDelegate(&sdk);
        manager.setInterstitialDelegate(&app);
    }
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
        int banner = 0;
        PXBInterstitial interstitial;
        Wired w;
        auto manager = PXBDelegateManager::create();
        w.attach(*manager);
        manager->setAdView(fakeBanner(&banner));
        manager->setInterstitial(&interstitial);

        raise(*manager, event);
        QCOMPARE(w.log, (QStringList{"banner:" + event, "sdk:" + event, "app:" + event}));
        QCOMPARE(w.banner.seenView, fakeBanner(&banner));
        QCOMPARE(w.sdk.seenAd, &interstitial);
        QCOMPARE(w.app.seenAd, &interstitial);
    }

    void delegateWithOneCallbackAndVanishedDelegates() {
        struct OnlyReceive : PXBBannerViewDelegate {
            int count = 0;
            void adViewDidReceiveAd(PXBBannerView*) override { ++count; }
        } delegate;
        auto manager = PXBDelegateManager::create();
        manager->setBannerDelegate(&delegate);
        {
            RecordingInterstitialDelegate gone;
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
        Wired w;
        std::weak_ptr<PXBDelegateManager> watch = banner->manager;
        bool aliveAfterRelease = false;
        w.banner.inside = [&](const QString&) {
            banner.reset();
            aliveAfterRelease = !watch.expired();
        };
        PXBDelegateManager* manager = banner->manager.get();
        w.attach(*manager);
        manager->setAdView(fakeBanner(banner.get()));

        manager->didReceiveAd();
        QVERIFY(aliveAfterRelease);
        QVERIFY(watch.expired());
        QCOMPARE(w.log, (QStringList{"banner:receive", "sdk:receive", "app:receive"}));
    }

    void eventRaisedDuringDeliveryIsDeliveredNested() {
        Wired w;
        auto manager = PXBDelegateManager::create();
        w.attach(*manager);
        manager->setInterstitialDelegate(nullptr);
        w.banner.inside = [&](const QString& event) {
            if (event == "present") {
                manager->willDismissScreen();
            }
        };
        manager->willPresentScreen();
        QCOMPARE(w.log,
                 (QStringList{"banner:present", "banner:dismiss", "sdk:dismiss", "sdk:present"}));
    }
};

QTEST_GUILESS_MAIN(TestDelegateManager)
#include "tst_delegatemanager.moc"
