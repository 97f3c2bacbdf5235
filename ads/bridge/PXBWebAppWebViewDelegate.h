// The web app screen's page delegate: the bridge of every ad web view, the landing-page timings,
// the spinner taken away once the first page is there, and the page's "onshow" message, sent
// once, when the page has loaded and the screen is up, in whichever order those happen.
#pragma once

#include "ads/bridge/PXBWebViewDelegate.h"

#include <QPointer>

class PXBWebAppViewControllerPrivate;

class PXBWebAppWebViewDelegate : public PXBWebViewDelegate {
    Q_OBJECT
  public:
    // How long a released page outlives its screen, so that the dismissal's slide shows it.
    static constexpr double kReleaseDelaySeconds = 2.0;

    // The web app is not retained.
    explicit PXBWebAppWebViewDelegate(PXBWebAppViewControllerPrivate* webAppPrivate);
    ~PXBWebAppWebViewDelegate() override;

    void webViewDidStartLoad(platform::WebView* webView) override;
    void webViewDidFinishLoad(platform::WebView* webView) override;
    void loadedFirstPage(platform::WebView* webView) override;

    // Sends "onshow" at once unless the page is still loading (or has not loaded yet).
    void setPendingOnShow(bool pending);
    void postOnShowEvent();

    // Takes over this delegate (released by the caller) and `webView`: after the release delay
    // the page is emptied, stopping its scripts and media, and both are deleted.
    void releaseWithWebView(platform::WebView* webView);
    // Delegates whose release is still due (they are deleted when it comes).
    static int pendingReleases();

  private:
    void delayedRelease(platform::WebView* webView);

    QPointer<PXBWebAppViewControllerPrivate> webAppPrivate_;
    bool pendingOnShow_ = false;
    bool calledOnShow_ = false;
};
