// The one place through which the ad client tells the application about an ad's life. Events
// may be raised on any thread; delivery is always on the main thread, to the banner delegate,
// then the SDK's interstitial listener, then the application's interstitial delegate.
#pragma once

#include "ads/core/PXBBannerViewDelegate.h"
#include "platform/error.h"
#include "platform/weakref.h"

#include <QPointer>

#include <memory>

class PXBBannerView;
class PXBInterstitial;
class PXBInterstitialDelegate;

// Shared by the ad object and the full screens it presents (hence shared ownership); it holds
// none of the objects it reports to.
class PXBDelegateManager : public std::enable_shared_from_this<PXBDelegateManager> {
  public:
    static std::shared_ptr<PXBDelegateManager> create();

    PXBBannerViewDelegate* bannerDelegate() const;
    void setBannerDelegate(PXBBannerViewDelegate* delegate);
    PXBBannerView* adView() const;
    void setAdView(PXBBannerView* view);

    PXBInterstitialDelegate* interstitialDelegate() const;
    void setInterstitialDelegate(PXBInterstitialDelegate* delegate);
    PXBInterstitial* interstitial() const;
    void setInterstitial(PXBInterstitial* interstitial);
    PXBInterstitialDelegate* sdkInterstitialDelegate() const;
    void setSdkInterstitialDelegate(PXBInterstitialDelegate* delegate);

    // The six events. From a thread other than the main thread they block until delivered.
    void didReceiveAd();
    void didFailToReceiveAdWithError(const platform::Error& error);
    void willPresentScreen();
    void willDismissScreen();
    void didDismissScreen();
    void willLeaveApplication();

  private:
    PXBDelegateManager() = default;
    struct Event;
    void deliver(const Event& event, const platform::Error& error);

    struct Fields;
    std::shared_ptr<Fields> fields_;
};
