// The banner's web view delegate: besides the bridge of every ad web view, it decides which
// navigations are the user's clicks on the ad (opened full screen, never inside the banner) and
// moves the ad to its shown or failed state when the ad's page finishes or fails.
#pragma once

#include "ads/bridge/PXBWebViewDelegate.h"

#include <QPointer>

class PXBObjectPrivate;

class PXBBannerWebViewDelegate : public PXBWebViewDelegate {
    Q_OBJECT
  public:
    // A navigation is a click only this long after the ad was shown.
    static constexpr double kMinimumSecondsBeforeClick = 0.15;

    // Becomes the delegate of the ad's web view; the ad is not retained.
    explicit PXBBannerWebViewDelegate(PXBObjectPrivate* ad);
    ~PXBBannerWebViewDelegate() override;

    // Shown ad, old enough, pressed by the user, and not a back/forward or reload navigation.
    bool isClick(int navigationType) const;

    bool webViewShouldStartLoadWithRequestNavigationType(platform::WebView* webView,
                                                         const platform::UrlRequest& request,
                                                         int navigationType) override;
    void webViewDidFinishLoad(platform::WebView* webView) override;
    void webViewDidFailLoadWithError(platform::WebView* webView,
                                     const platform::Error& error) override;

  private:
    QPointer<PXBObjectPrivate> private_;
};
