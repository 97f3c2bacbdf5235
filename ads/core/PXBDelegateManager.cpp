#include "ads/core/PXBDelegateManager.h"

#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBInterstitial.h"
#include "platform/runloop.h"

// The banner is a plain pointer that the banner itself clears when it goes away; everything else
// is held weakly so that a delegate destroyed without being unset is simply skipped.
struct PXBDelegateManager::Fields {
    platform::WeakRef<PXBBannerViewDelegate> bannerDelegate;
    PXBBannerView* adView = nullptr;
    platform::WeakRef<PXBInterstitialDelegate> interstitialDelegate;
    platform::WeakRef<PXBInterstitial> interstitial;
    platform::WeakRef<PXBInterstitialDelegate> sdkInterstitialDelegate;
};

namespace {

const platform::Error kNoError;

}  // namespace

// What one event tells the banner delegate and what it tells the interstitial listeners.
struct PXBDelegateManager::Event {
    void (*banner)(PXBBannerViewDelegate*, PXBBannerView*, const platform::Error&);
    void (*interstitial)(PXBInterstitialDelegate*, PXBInterstitial*, const platform::Error&);
};

std::shared_ptr<PXBDelegateManager> PXBDelegateManager::create() {
    std::shared_ptr<PXBDelegateManager> manager(new PXBDelegateManager);
    manager->fields_ = std::make_shared<Fields>();
    return manager;
}

PXBBannerViewDelegate* PXBDelegateManager::bannerDelegate() const {
    return fields_->bannerDelegate.get();
}

void PXBDelegateManager::setBannerDelegate(PXBBannerViewDelegate* delegate) {
    fields_->bannerDelegate.reset(delegate);
}

PXBBannerView* PXBDelegateManager::adView() const {
    return fields_->adView;
}

void PXBDelegateManager::setAdView(PXBBannerView* view) {
    fields_->adView = view;
}

PXBInterstitialDelegate* PXBDelegateManager::interstitialDelegate() const {
    return fields_->interstitialDelegate.get();
}

void PXBDelegateManager::setInterstitialDelegate(PXBInterstitialDelegate* delegate) {
    fields_->interstitialDelegate.reset(delegate);
}

PXBInterstitial* PXBDelegateManager::interstitial() const {
    return fields_->interstitial.get();
}

void PXBDelegateManager::setInterstitial(PXBInterstitial* interstitial) {
    fields_->interstitial.reset(interstitial);
}

PXBInterstitialDelegate* PXBDelegateManager::sdkInterstitialDelegate() const {
    return fields_->sdkInterstitialDelegate.get();
}

void PXBDelegateManager::setSdkInterstitialDelegate(PXBInterstitialDelegate* delegate) {
    fields_->sdkInterstitialDelegate.reset(delegate);
}

void PXBDelegateManager::didReceiveAd() {
    static const Event event{[](PXBBannerViewDelegate* d, PXBBannerView* v,
                                const platform::Error&) { d->adViewDidReceiveAd(v); },
                             [](PXBInterstitialDelegate* d, PXBInterstitial* i,
                                const platform::Error&) { d->interstitialDidReceiveAd(i); }};
    deliver(event, kNoError);
}

void PXBDelegateManager::didFailToReceiveAdWithError(const platform::Error& error) {
    static const Event event{
        [](PXBBannerViewDelegate* d, PXBBannerView* v, const platform::Error& e) {
            d->adViewDidFailToReceiveAdWithError(v, e);
        },
        [](PXBInterstitialDelegate* d, PXBInterstitial* i, const platform::Error& e) {
            d->interstitialDidFailToReceiveAdWithError(i, e);
        }};
    deliver(event, error);
}

void PXBDelegateManager::willPresentScreen() {
    static const Event event{[](PXBBannerViewDelegate* d, PXBBannerView* v,
                                const platform::Error&) { d->adViewWillPresentScreen(v); },
                             [](PXBInterstitialDelegate* d, PXBInterstitial* i,
                                const platform::Error&) { d->interstitialWillPresentScreen(i); }};
    deliver(event, kNoError);
}

void PXBDelegateManager::willDismissScreen() {
    static const Event event{[](PXBBannerViewDelegate* d, PXBBannerView* v,
                                const platform::Error&) { d->adViewWillDismissScreen(v); },
                             [](PXBInterstitialDelegate* d, PXBInterstitial* i,
                                const platform::Error&) { d->interstitialWillDismissScreen(i); }};
    deliver(event, kNoError);
}

void PXBDelegateManager::didDismissScreen() {
    static const Event event{[](PXBBannerViewDelegate* d, PXBBannerView* v,
                                const platform::Error&) { d->adViewDidDismissScreen(v); },
                             [](PXBInterstitialDelegate* d, PXBInterstitial* i,
                                const platform::Error&) { d->interstitialDidDismissScreen(i); }};
    deliver(event, kNoError);
}

void PXBDelegateManager::willLeaveApplication() {
    static const Event event{
        [](PXBBannerViewDelegate* d, PXBBannerView* v, const platform::Error&) {
            d->adViewWillLeaveApplication(v);
        },
        [](PXBInterstitialDelegate* d, PXBInterstitial* i, const platform::Error&) {
            d->interstitialWillLeaveApplication(i);
        }};
    deliver(event, kNoError);
}

namespace {

// The banner's signals, told as a delegate would be.
class BannerSignals : public PXBBannerViewDelegate {
  public:
    void adViewDidReceiveAd(PXBBannerView* view) override { emit view->adReceived(); }
    void adViewDidFailToReceiveAdWithError(PXBBannerView* view,
                                           const platform::Error& error) override {
        emit view->adFailed(error);
    }
    void adViewWillPresentScreen(PXBBannerView* view) override { emit view->willPresentScreen(); }
    void adViewWillDismissScreen(PXBBannerView* view) override { emit view->willDismissScreen(); }
    void adViewDidDismissScreen(PXBBannerView* view) override { emit view->didDismissScreen(); }
    void adViewWillLeaveApplication(PXBBannerView* view) override {
        emit view->willLeaveApplication();
    }
};

}  // namespace

void PXBDelegateManager::deliver(const Event& event, const platform::Error& error) {
    if (!platform::isMainThread()) {
        // The raiser waits, so the event and the very error object it raised stay valid.
        platform::performOnMainThread([this, &event, &error] { deliver(event, error); }, true);
        return;
    }
    // A callback may release the banner and with it the last owner of this manager; keep both
    // the manager and its fields alive until every recipient has been served.
    const std::shared_ptr<PXBDelegateManager> keepAlive = weak_from_this().lock();
    const std::shared_ptr<Fields> fields = fields_;

    if (PXBBannerViewDelegate* delegate = fields->bannerDelegate.get()) {
        event.banner(delegate, fields->adView, error);
    }
    // Looked up again: the delegate may have destroyed the banner, which then left the fields.
    if (PXBBannerView* banner = fields->adView) {
        static BannerSignals relay;
        event.banner(&relay, banner, error);
    }
    if (PXBInterstitialDelegate* listener = fields->sdkInterstitialDelegate.get()) {
        event.interstitial(listener, fields->interstitial.get(), error);
    }
    if (PXBInterstitialDelegate* delegate = fields->interstitialDelegate.get()) {
        event.interstitial(delegate, fields->interstitial.get(), error);
    }
}
