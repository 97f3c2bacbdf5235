#include "ads/bridge/PXBBrowserWebViewDelegate.h"

#include "ads/present/PXBBrowserController.h"
#include "ads/stats/PXBStatistics.h"
#include "ads/stats/PXBTiming.h"
#include "platform/urlrequest.h"

namespace {

bool isTimingRunning(const QString& name) {
    const std::shared_ptr<PXBTiming> timing = PXBStatistics::sharedStatistics().timingNamed(name);
    return timing && timing->isActive();
}

}  // namespace

PXBBrowserWebViewDelegate::PXBBrowserWebViewDelegate(PXBBrowserController* browserController)
    : browserController_(browserController) {}

PXBBrowserWebViewDelegate::~PXBBrowserWebViewDelegate() = default;

void PXBBrowserWebViewDelegate::timeLandingPageStart() {
    if (!isTimingRunning(kPXBParameterPriorLandingPageLoad)) {
        PXBStatistics::sharedStatistics().startTimingNamed(kPXBParameterPriorLandingPageLoad);
    }
}

void PXBBrowserWebViewDelegate::timeLandingPageFinish() {
    if (!isTimingRunning(kPXBParameterPriorLandingPageDuration)) {
        PXBStatistics& statistics = PXBStatistics::sharedStatistics();
        statistics.endTimingNamed(kPXBParameterPriorLandingPageLoad);
        statistics.startTimingNamed(kPXBParameterPriorLandingPageDuration);
    }
}

bool PXBBrowserWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(
    platform::WebView* webView, const platform::UrlRequest& request, int navigationType) {
    if (navigationType == platform::WebViewNavigationTypeLinkClicked ||
        navigationType == platform::WebViewNavigationTypeFormSubmitted) {
        const QString scheme = request.url().scheme().toLower();
        if (scheme == QLatin1String("http")) {
            PXBStatistics::sharedStatistics().incrementPageNavigationCount();
        } else if (scheme == QLatin1String("https")) {
            PXBStatistics::sharedStatistics().incrementSSLPageNavigationCount();
        }
    }
    return PXBWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(webView, request,
                                                                               navigationType);
}

void PXBBrowserWebViewDelegate::webViewDidStartLoad(platform::WebView* webView) {
    timeLandingPageStart();
    PXBWebViewDelegate::webViewDidStartLoad(webView);
    refreshToolbar();
}

void PXBBrowserWebViewDelegate::webViewDidFinishLoad(platform::WebView* webView) {
    timeLandingPageFinish();
    PXBWebViewDelegate::webViewDidFinishLoad(webView);
    refreshToolbar();
}

void PXBBrowserWebViewDelegate::webViewDidFailLoadWithError(platform::WebView* webView,
                                                            const platform::Error& error) {
    PXBWebViewDelegate::webViewDidFailLoadWithError(webView, error);
    refreshToolbar();
}

void PXBBrowserWebViewDelegate::refreshToolbar() {
    if (browserController_ != nullptr) {
        browserController_->refreshToolbar();
    }
}
