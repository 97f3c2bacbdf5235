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

// Records every callback as "<who>:<event>" with the object it names, and can run extra work
// inside one. Serves as a banner delegate and as an interstitial delegate.
class Recorder : public PXBBannerViewDelegate, public PXBInterstitialDelegate {
  public:
    Recorder(QStringList* log, const char* who) : log_(log), who_(who) {}
    std::function<void(const QString&)> inside;
    const void* seen = nullptr;

    void adViewDidReceiveAd(PXBBannerView* v) override { record("receive", v); }
    void adViewDidFailToReceiveAdWithError(PXBBannerView* v, const platform::Error&) override {
        record("fail", v);
    }
    void adViewWillPresentScreen(PXBBannerView* v) override { record("present", v); }
    void adViewWillDismissScreen(PXBBannerView* v) override { record("dismiss", v); }
    void adViewDidDismissScreen(PXBBannerView* v) override { record("dismissed", v); }
    void adViewWillLeaveApplication(PXBBannerView* v) override { record("leave", v); }
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
    void record(const QString& event, const void* object) {
        seen = object;
        log_->append(who_ + ":" + event);
        if (inside) {
            inside(event);
        }
    }
    QStringList* log_;
    QString who_;
};

// A manager's three recipients: a banner delegate, an SDK listener and an application delegate.
struct Wired {
    QStringList log;
    Recorder banner{&log, "banner"};
    Recorder sdk{&log, "sdk"};
    Recorder app{&log, "app"};
    void attach(PXBDelegateManager& manager) {
        manager.setBannerDelegate(&banner);
        manager.setSdkInterstitialDelegate(&sdk);
        manager.setInterstitialDelegate(&app);
    }
};

const char* const kEvents[] = {"receive", "fail", "present", "dismiss", "dismissed", "leave"};

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
        for (const char* event : kEvents) {
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
        QCOMPARE(w.banner.seen, &banner);
        QCOMPARE(w.sdk.seen, &interstitial);
        QCOMPARE(w.app.seen, &interstitial);
    }

    void aDelegateThatIsGoneIsForgotten() {
        auto manager = PXBDelegateManager::create();
        {
            QStringList log;
            Recorder gone(&log, "gone");
            manager->setSdkInterstitialDelegate(&gone);
        }
        for (const char* event : kEvents) {
            raise(*manager, event);
        }
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
};

QTEST_GUILESS_MAIN(TestDelegateManager)
#include "tst_delegatemanager.moc"
