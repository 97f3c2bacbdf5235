#include "ads/bridge/PXBBannerWebViewDelegate.h"

#include "ads/core/PXBObjectPrivate.h"
#include "ads/core/PXBParameterKeys.h"
#include "ads/core/PXBRequestError.h"
#include "ads/present/PXBOpener.h"
#include "ads/present/PXBWebView.h"
#include "ads/stats/PXBStatistics.h"
#include "ads/stats/PXBTiming.h"

PXBBannerWebViewDelegate::PXBBannerWebViewDelegate(PXBObjectPrivate* ad) : private_(ad) {
    if (PXBWebView* webView = ad->webView()) {
        webView->setDelegate(this);
    }
    opener()->setAdController(ad);
}

PXBBannerWebViewDelegate::~PXBBannerWebViewDelegate() {
    if (private_ != nullptr && private_->webView() != nullptr &&
        private_->webView()->delegate() == this) {
        private_->webView()->setDelegate(nullptr);
    }
}

bool PXBBannerWebViewDelegate::isClick(int navigationType) const {
    if (private_ == nullptr || private_->state() != kPXBAdStateShown) {
        return false;
    }
    if (PXBTiming::counter() - private_->timeLastLoaded() < kMinimumSecondsBeforeClick) {
        return false;
    }
    if (navigationType == platform::WebViewNavigationTypeBackForward ||
        navigationType == platform::WebViewNavigationTypeReload) {
        return false;
    }
    // Touched since the ad was shown, and pressed a moment ago: a press long before cannot
    // make the page's later navigation the user's click.
    return private_->webView() != nullptr && private_->webView()->touched() &&
           private_->webView()->hasUserActivation();
}

bool PXBBannerWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(
    platform::WebView* webView, const platform::UrlRequest& request, int navigationType) {
    if (private_ == nullptr) {
        return PXBWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(webView, request,
                                                                                   navigationType);
    }
    setViewController(private_->presenter());
    opener()->setDelegateManager(private_->sharedDelegateManager());
    opener()->setViewController(viewController());
    opener()->setOpeningWebView(webView);

    // A click that leads nowhere the client may open is no click: nothing is counted.
    const bool leadsNowhere =
        !PXBOpener::mayOpen(request.url()) && request.url().scheme() != QLatin1String("about");
    if (!isClick(navigationType) || leadsNowhere) {
        return PXBWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(webView, request,
                                                                                   navigationType);
    }
    const QUrl clickURL = PXBStatistics::sharedStatistics().urlForClick(request.url());
    QPointer<PXBObjectPrivate> ad(private_);
    if (!PXBWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(webView, request,
                                                                             navigationType)) {
        return false;
    }
    if (ad == nullptr) {
        return false;
    }
    opener()->setReferringURL(webView->request().url());
    if (clickURL.scheme().toLower().startsWith(QLatin1String("http"))) {
        const int orientations = ad->supportedOrientations();
        if (ad->pendingClickURLs().isEmpty()) {
            opener()->openBrowserToURL(clickURL, orientations);
        } else {
            opener()->openWebApp(clickURL, orientations);
        }
    }
    // A click never loads inside the banner.
    return false;
}

void PXBBannerWebViewDelegate::webViewDidFinishLoad(platform::WebView* webView) {
    PXBWebViewDelegate::webViewDidFinishLoad(webView);
    QPointer<PXBObjectPrivate> ad(private_);
    if (ad == nullptr || ad->state() != kPXBAdStateLoadingHTML) {
        return;
    }
    ad->changeState(kPXBAdStateShown);
    if (ad->webView() != nullptr) {
        ad->webView()->setHidden(false);
    }
    // The application's delegate may tear the banner down from here.
    const std::shared_ptr<PXBDelegateManager> manager = ad->sharedDelegateManager();
    manager->didReceiveAd();
    if (ad == nullptr) {
        return;
    }
    ad->trackURLs(ad->pendingTrackingURLs());
    PXBStatistics& statistics = PXBStatistics::sharedStatistics();
    statistics.endTimingNamed(kPXBParameterPriorRequestLatency);
    statistics.startTimingNamed(kPXBParameterPriorPreClickLatency);
}

void PXBBannerWebViewDelegate::webViewDidFailLoadWithError(platform::WebView* webView,
                                                           const platform::Error& error) {
    PXBWebViewDelegate::webViewDidFailLoadWithError(webView, error);
    // Only the ad's own load fails the ad: a later navigation of a shown ad, or the end of a
    // load the ad gave up on (timed out), is none of its business.
    if (private_ == nullptr || private_->state() != kPXBAdStateLoadingHTML) {
        return;
    }
    private_->changeState(kPXBAdStateFailed);
    const std::shared_ptr<PXBDelegateManager> manager = private_->sharedDelegateManager();
    manager->didFailToReceiveAdWithError(
        PXBRequestError::errorWithCode(kPXBErrorNetworkError, private_->request()));
}
