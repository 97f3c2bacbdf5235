#include "ads/present/PXBWebAppViewController.h"

#include "ads/bridge/PXBNotificationCenter.h"
#include "ads/bridge/PXBWebAppWebViewDelegate.h"
#include "ads/core/PXBObjectPrivate.h"
#include "ads/present/PXBIntrinsicImages.h"
#include "ads/present/PXBOpener.h"
#include "ads/present/PXBWebView.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/ui/controls.h"
#include "platform/urlrequest.h"

PXBWebAppViewControllerPrivate::~PXBWebAppViewControllerPrivate() {
    if (webView != nullptr) {
        // The page stays until a dismissal's slide is over; the delegate lets it go then.
        webView->removeFromSuperview();
    }
    if (webViewDelegate) {
        PXBWebAppWebViewDelegate* delegate = webViewDelegate.release();
        delegate->releaseWithWebView(webView);
    } else {
        delete webView.data();
    }
}

PXBWebAppViewController::~PXBWebAppViewController() = default;

void PXBWebAppViewController::init() {
    PXBViewController::init();
    vars()->loadingSpinner =
        new platform::ActivityIndicatorView(platform::ActivityIndicatorViewStyleWhite, view());
    vars()->loadingSpinner->hide();
}

std::shared_ptr<PXBViewControllerPrivate> PXBWebAppViewController::createPrivateData() const {
    return std::make_shared<PXBWebAppViewControllerPrivate>();
}

PXBWebAppViewControllerPrivate* PXBWebAppViewController::vars() const {
    return static_cast<PXBWebAppViewControllerPrivate*>(privateData());
}

PXBWebView* PXBWebAppViewController::webView() const {
    return vars()->webView;
}

void PXBWebAppViewController::setWebView(PXBWebView* webView) {
    vars()->webView = webView;
}

PXBObjectPrivate* PXBWebAppViewController::adController() const {
    return vars()->adController;
}

void PXBWebAppViewController::setAdController(PXBObjectPrivate* ad) {
    vars()->adController = ad;
}

void PXBWebAppViewController::load(const QUrl& url) {
    if (url.isEmpty()) {
        return;
    }
    if (PXBWebView* web = webView()) {
        web->loadRequest(platform::UrlRequest(url));
    } else {
        vars()->urlToLoad = url;
    }
}

void PXBWebAppViewController::loadHTMLBaseURL(const QString& html, const QUrl& baseURL) {
    if (html.isNull()) {
        return;
    }
    if (PXBWebView* web = webView()) {
        web->loadHTMLStringBaseURL(html, baseURL);
    } else {
        vars()->htmlToLoad = html;
        vars()->htmlBaseURLToLoad = baseURL;
    }
}

void PXBWebAppViewController::viewWillAppear(bool animated) {
    PXBViewController::viewWillAppear(animated);
    PXBWebAppViewControllerPrivate* v = vars();
    if (v->webView != nullptr) {
        return;
    }
    auto* web = new PXBWebView(view()->bounds());
    v->webView = web;
    view()->addSubview(web);

    v->webViewDelegate = std::make_unique<PXBWebAppWebViewDelegate>(v);
    v->webViewDelegate->setViewController(this);
    v->webViewDelegate->setOpeningWebView(openingWebView());
    // The page's own opener has no delegate manager: leaving the application is announced by
    // the opener of the ad itself only.
    v->webViewDelegate->opener()->setAdController(v->adController);
    web->setDelegate(v->webViewDelegate.get());

    if (!v->urlToLoad.isEmpty()) {
        web->loadRequest(platform::UrlRequest(std::exchange(v->urlToLoad, QUrl())));
    } else if (!v->htmlToLoad.isNull()) {
        web->loadHTMLStringBaseURL(std::exchange(v->htmlToLoad, QString()),
                                   std::exchange(v->htmlBaseURLToLoad, QUrl()));
    }

    auto* close = new platform::Button(platform::Button::TypeCustom);
    close->setImage(PXBIntrinsicImages::closeButton(), platform::ControlStateNormal);
    close->setShowsTouchWhenHighlighted(true);
    close->setEnabled(true);
    close->setFrame(QRect(0, 0, kCloseButtonSize, kCloseButtonSize));
    close->addTarget([this] { relinquishScreen(); }, platform::ControlEventTouchUpInside);
    view()->addSubview(close);
    v->closeButton = close;

    if (platform::ActivityIndicatorView* spinner = v->loadingSpinner) {
        const QRect bounds = view()->bounds();
        spinner->setFrame(QRect((bounds.width() - kSpinnerSize) / 2,
                                (bounds.height() - kSpinnerSize) / 2, kSpinnerSize, kSpinnerSize));
        spinner->setAutoresizingMask(platform::ViewAutoresizingFlexibleLeftMargin |
                                     platform::ViewAutoresizingFlexibleRightMargin);
        spinner->startAnimating();
        web->addSubview(spinner);
    }
}

void PXBWebAppViewController::viewDidAppear(bool animated) {
    PXBViewController::viewDidAppear(animated);
    if (vars()->webViewDelegate) {
        vars()->webViewDelegate->setPendingOnShow(true);
    }
}

void PXBWebAppViewController::viewDidDisappear(bool animated) {
    PXBStatistics& statistics = PXBStatistics::sharedStatistics();
    statistics.endTimingNamed(kPXBParameterPriorLandingPageDuration);
    statistics.endTimingNamed(kPXBParameterPriorClickLatency);
    PXBNotificationCenter::defaultCenter().postJSNotification(QStringLiteral("onhide"),
                                                              std::nullopt, webView());
    PXBViewController::viewDidDisappear(animated);
}

void PXBWebAppViewController::didRotateFromInterfaceOrientation(int fromOrientation) {
    PXBViewController::didRotateFromInterfaceOrientation(fromOrientation);
    PXBWebViewDelegate::notifyWebViewOfOrientationChange(webView(), interfaceOrientation());
}
