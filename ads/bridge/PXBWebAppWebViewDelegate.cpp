#include "ads/bridge/PXBWebAppWebViewDelegate.h"

#include "ads/bridge/PXBBrowserWebViewDelegate.h"
#include "ads/bridge/PXBNotificationCenter.h"
#include "ads/core/PXBRequest.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/present/PXBWebAppViewController.h"
#include "ads/present/PXBWebView.h"
#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/controls.h"

#include <QSet>

namespace {

// Delegates handed over by releaseWithWebView and not yet released; kept here so that a process
// that ends before the delay still knows of them.
QSet<PXBWebAppWebViewDelegate*>& releasing() {
    static QSet<PXBWebAppWebViewDelegate*> delegates;
    return delegates;
}

}  // namespace

PXBWebAppWebViewDelegate::PXBWebAppWebViewDelegate(PXBWebAppViewControllerPrivate* webAppPrivate)
    : webAppPrivate_(webAppPrivate) {}

PXBWebAppWebViewDelegate::~PXBWebAppWebViewDelegate() {
    releasing().remove(this);
}

void PXBWebAppWebViewDelegate::webViewDidStartLoad(platform::WebView* webView) {
    PXBBrowserWebViewDelegate::timeLandingPageStart();
    PXBWebViewDelegate::webViewDidStartLoad(webView);
}

void PXBWebAppWebViewDelegate::webViewDidFinishLoad(platform::WebView* webView) {
    PXBBrowserWebViewDelegate::timeLandingPageFinish();
    PXBWebViewDelegate::webViewDidFinishLoad(webView);
    postOnShowEvent();
}

void PXBWebAppWebViewDelegate::loadedFirstPage(platform::WebView* /*webView*/) {
    if (webAppPrivate_ != nullptr && webAppPrivate_->loadingSpinner != nullptr) {
        platform::ActivityIndicatorView* spinner = webAppPrivate_->loadingSpinner;
        webAppPrivate_->loadingSpinner = nullptr;
        spinner->removeFromSuperview();
        spinner->deleteLater();
    }
}

void PXBWebAppWebViewDelegate::setPendingOnShow(bool pending) {
    pendingOnShow_ = pending;
    // A page asked for but not started yet counts as loading: the engine starts asynchronously.
    const platform::WebView* web = webAppPrivate_ != nullptr ? webAppPrivate_->webView : nullptr;
    if (web != nullptr && !web->isLoading() && hasLoadedAtLeastOnce()) {
        postOnShowEvent();
    }
}

void PXBWebAppWebViewDelegate::postOnShowEvent() {
    if (!pendingOnShow_ || calledOnShow_ || webAppPrivate_ == nullptr) {
        return;
    }
    PXBNotificationCenter::defaultCenter().postJSNotification(
        QStringLiteral("onshow"),
        QVariantMap{
            {QStringLiteral("version"), PXBRequest::sdkVersion()},
            {QStringLiteral("device"), PXBIdentifierUtilities::sharedInstance()->deviceSubmodel()}},
        webAppPrivate_->webView);
    pendingOnShow_ = false;
    calledOnShow_ = true;
}

void PXBWebAppWebViewDelegate::releaseWithWebView(platform::WebView* webView) {
    setViewController(nullptr);
    webAppPrivate_ = nullptr;
    releasing().insert(this);
    QPointer<platform::WebView> web(webView);
    const platform::Application* app = platform::Application::sharedApplication();
    if (app == nullptr || app->isTerminating()) {
        delayedRelease(web);  // no turn of the event loop is left to wait for
        return;
    }
    platform::performAfter(this, kReleaseDelaySeconds, [this, web] { delayedRelease(web); });
}

void PXBWebAppWebViewDelegate::delayedRelease(platform::WebView* webView) {
    const platform::Application* app = platform::Application::sharedApplication();
    if (app == nullptr || app->isTerminating()) {
        // Deleted later would be never: the event loop is over.
        delete webView;
        delete this;
        return;
    }
    if (webView != nullptr) {
        webView->setDelegate(nullptr);
        webView->loadHTMLStringBaseURL(QString(), QUrl());
        webView->deleteLater();
    }
    deleteLater();
}

int PXBWebAppWebViewDelegate::pendingReleases() {
    return static_cast<int>(releasing().size());
}
