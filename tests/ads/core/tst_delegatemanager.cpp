#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBInterstitial.h"

#include <QTest>
#include <QThread>

#include <atomic>
#include <functional>
#include <thread>

namespace {

// Records a received ad as "<who>:receive" with the object it names, and can run extra work
// inside the callback. Serves as a banner delegate and as an interstitial delegate. (The banner
// delegate's six events are recorded end to end.)
class Recorder : public PXBBannerViewDelegate, public PXBInterstitialDelegate {
  public:
    Recorder(QStringList* log, const char* who) : log_(log), who_(who) {}
    std::function<void()> inside;
    const void* seen = nullptr;

    void adViewDidReceiveAd(PXBBannerView* v) override { record(v); }
    void interstitialDidReceiveAd(PXBInterstitial* i) override { record(i); }

  private:
    void record(const void* object) {
        seen = object;
        log_->append(who_ + ":receive");
        if (inside) {
            inside();
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

}  // namespace

class TestDelegateManager : public QObject {
    Q_OBJECT
  private slots:
    // Banner, SDK listener, application, in that order, with the interstitial they belong to;
    // a listener that is gone is forgotten instead of called.
    void everyRecipientInFixedOrder() {
        PXBInterstitial interstitial;
        Wired w;
        auto manager = PXBDelegateManager::create();
        w.attach(*manager);
        manager->setInterstitial(&interstitial);
        manager->didReceiveAd();
        QCOMPARE(w.log, (QStringList{"banner:receive", "sdk:receive", "app:receive"}));
        QCOMPARE(w.sdk.seen, &interstitial);
        QCOMPARE(w.app.seen, &interstitial);

        {
            Recorder gone(&w.log, "gone");
            manager->setSdkInterstitialDelegate(&gone);
        }
        manager->didReceiveAd();
        QCOMPARE(manager->sdkInterstitialDelegate(), nullptr);
        QCOMPARE(w.log.mid(3), (QStringList{"banner:receive", "app:receive"}));
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
        w.banner.inside = [&] {
            banner.reset();
            aliveAfterRelease = !watch.expired();
        };
        PXBDelegateManager* manager = banner->manager.get();
        w.attach(*manager);

        manager->didReceiveAd();
        QVERIFY(aliveAfterRelease);
        QVERIFY(watch.expired());
        QCOMPARE(w.log, (QStringList{"banner:receive", "sdk:receive", "app:receive"}));
    }
};

QTEST_GUILESS_MAIN(TestDelegateManager)
#include "tst_delegatemanager.moc"
