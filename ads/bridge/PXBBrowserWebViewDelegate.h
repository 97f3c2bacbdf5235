// The in-app browser's page delegate: the bridge of every ad web view, plus the statistics of
// the visit (page navigations, landing-page load and stay timings) and the browser's toolbar
// kept up to date with each load.
#pragma once

#include "ads/bridge/PXBWebViewDelegate.h"

#include <QPointer>

class PXBBrowserController;

class PXBBrowserWebViewDelegate : public PXBWebViewDelegate {
    Q_OBJECT
  public:
    // The browser is not retained.
    explicit PXBBrowserWebViewDelegate(PXBBrowserController* browserController);
    ~PXBBrowserWebViewDelegate() override;

    bool webViewShouldStartLoadWithRequestNavigationType(platform::WebView* webView,
                                                         const platform::UrlRequest& request,
                                                         int navigationType) override;
    void webViewDidStartLoad(platform::WebView* webView) override;
    void webViewDidFinishLoad(platform::WebView* webView) override;
    void webViewDidFailLoadWithError(platform::WebView* webView,
                                     const platform::Error& error) override;

    // The landing-page timings: "plpl" runs from the first start until the first finish, then
    // "plpd" runs while the user stays. The web app's delegate times its pages the same way.
    static void timeLandingPageStart();
    static void timeLandingPageFinish();

  private:
    void refreshToolbar();

    QPointer<PXBBrowserController> browserController_;
};
