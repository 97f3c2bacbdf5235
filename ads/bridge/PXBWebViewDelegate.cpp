#include "ads/bridge/PXBWebViewDelegate.h"

#include "ads/bridge/PXBNotification.h"
#include "ads/bridge/PXBNotificationCenter.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/inspect/PXBInspection.h"
#include "ads/net/PXBClickTracker.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "ads/present/PXBOpener.h"
#include "ads/present/PXBViewController.h"
#include "ads/signals/PXBSignals.h"
#include "platform/log.h"
#include "platform/notificationcenter.h"
#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/audioplayer.h"
#include "platform/ui/viewcontroller.h"

PXBWebViewDelegate::PXBWebViewDelegate() : opener_(std::make_unique<PXBOpener>()) {}

PXBWebViewDelegate::~PXBWebViewDelegate() {
    if (tracker_) {
        tracker_->reset();
    }
}

platform::ViewController* PXBWebViewDelegate::viewController() const {
    return static_cast<platform::ViewController*>(viewController_.data());
}

void PXBWebViewDelegate::setViewController(platform::ViewController* controller) {
    viewController_ = controller;
}

bool PXBWebViewDelegate::webViewShouldStartLoadWithRequestNavigationType(
    platform::WebView* webView, const platform::UrlRequest& request, int navigationType) {
    const QUrl url = request.url();
    const QString scheme = url.scheme().toLower();
    if (const QString agent = request.valueForHTTPHeaderField(QStringLiteral("User-Agent"));
        !agent.isEmpty()) {
        PXBNetworkUtilities::setUserAgentString(agent);
    }
    opener_->setViewController(viewController());
    opener_->setAskingWebView(webView);
    const QString urlText = url.toString(QUrl::FullyEncoded);

    if (PXBNotification::isNotificationURL(url)) {
        // The bridge is the ad page's own: a frame inside it (another party's, as often as not)
        // gets no say in what the client does.
        if (webView->isNavigatingFrame()) {
            platform::logDebug(QStringLiteral("<Sorvel> A frame's message is refused"));
            PXBInspection::refused(url.toString(QUrl::FullyEncoded).left(200),
                                   QStringLiteral("a frame's message, not the ad page's"));
        } else {
            handleMessage(webView, url);
        }
        return false;
    }

    const bool ownPageLoad =
        navigationType == platform::WebViewNavigationTypeOther && url.path().size() < 2;
    if (!ownPageLoad) {
        platform::NotificationCenter::defaultCenter().postNotification(
            PXBWebViewDelegateDidReceiveWebAction, webView, {{QStringLiteral("u"), urlText}});
    }
    if (scheme == QLatin1String("mailto")) {
        opener_->openEmailComposer(url);
        return false;
    }
    if (scheme == QLatin1String("file")) {
        return false;
    }
    if (scheme == QLatin1String("about") || scheme == QLatin1String("http") ||
        scheme == QLatin1String("https")) {
        return true;
    }
    opener_->openApp(url);
    return false;
}

void PXBWebViewDelegate::handleMessage(platform::WebView* webView, const QUrl& url) {
    const std::optional<PXBNotification> message = PXBNotification::notificationFromURL(url);
    const QString name = message ? message->name() : QString();
    const QVariantMap parameters = message ? message->parameters() : QVariantMap();
    platform::NotificationCenter::defaultCenter().postNotification(
        PXBWebViewDelegateDidReceiveWebAction, webView,
        {{QStringLiteral("u"), url.toString(QUrl::FullyEncoded)}, {QStringLiteral("a"), name}});
    const QString u = parameters.value(QStringLiteral("u")).toString();

    if (name == QLatin1String("click")) {
        // A click the user did not make is never reported.
        if (webView->hasUserActivation()) {
            trackURLString(u, true);
        } else {
            platform::logDebug(
                QStringLiteral("<Sorvel> A click message without a press is refused"));
        }
    } else if (name == QLatin1String("close")) {
        // Only full screens can give up the screen; a banner's controller cannot.
        if (auto* screen = qobject_cast<PXBViewController*>(viewController_.data())) {
            screen->relinquishScreen();
        }
    } else if (name == QLatin1String("httpTrack")) {
        trackURLString(u, false);
    } else if (name == QLatin1String("log")) {
        logFromPage(parameters.value(QStringLiteral("string")).toString());
    } else if (name == QLatin1String("open")) {
        opener_->openNotification(*message);
    } else if (name == QLatin1String("touch")) {
        processTouchSignals(parameters);
    } else if (name == QLatin1String("vibrate")) {
        platform::playSystemSound(platform::kSystemSoundVibrate);
    } else if (name == QLatin1String("canOpenURLs")) {
        const QString urls = parameters.value(QStringLiteral("urls")).toString();
        processCanOpenURLs(urls.split(QLatin1Char(',')), webView);
    } else if (name == QLatin1String("evalInOpener")) {
        // The banner's page answers only a page of its own origin: another site's page in a full
        // screen has no business reading its cookies or storage.
        if (openingWebView_ != nullptr &&
            !isSameOrigin(webView->request().url(), openingWebView_->request().url())) {
            platform::logDebug(
                QStringLiteral("<Sorvel> evalInOpener from another origin is refused"));
        } else if (openingWebView_ != nullptr) {
            QVariantMap copy = parameters;
            QPointer<platform::WebView> sender(webView);
            platform::performAfter(
                this, 0, [this, copy, sender] { evaluateJavaScriptInOpener(copy, sender); });
        }
    } else {
        PXBNotificationCenter::defaultCenter().postNotificationFromURL(url, webView, 0);
    }
}

void PXBWebViewDelegate::webViewDidFinishLoad(platform::WebView* webView) {
    notifyWebViewOfOrientationChange(
        webView, platform::Application::sharedApplication()->statusBarOrientation());
    if (!hasLoadedAtLeastOnce_) {
        hasLoadedAtLeastOnce_ = true;
        loadedFirstPage(webView);
    }
}

void PXBWebViewDelegate::webViewContentProcessDidEnd(platform::WebView* /*webView*/) {
    if (auto* screen = qobject_cast<PXBViewController*>(viewController_.data())) {
        QPointer<PXBViewController> guard(screen);
        platform::performAfter(this, 0, [guard] {
            if (guard != nullptr) {
                guard->relinquishScreen();
            }
        });
    }
}

QString PXBWebViewDelegate::orientationScript(int orientation) {
    int degrees = 0;
    switch (orientation) {
        case 1:
            degrees = 0;
            break;
        case 2:
            degrees = 180;
            break;
        case 3:
            degrees = 90;
            break;
        case 4:
            degrees = -90;
            break;
        default:
            return {};
    }
    // Deliberately unguarded: a page without a handler just gets a script error.
    return QStringLiteral(
               "window.__defineGetter__('orientation',function(){return %1;});"
               "window.onorientationchange();")
        .arg(degrees);
}

void PXBWebViewDelegate::notifyWebViewOfOrientationChange(platform::WebView* webView,
                                                          int orientation) {
    const QString script = orientationScript(orientation);
    if (webView != nullptr && !script.isEmpty()) {
        webView->stringByEvaluatingJavaScriptFromString(script);
    }
}

bool PXBWebViewDelegate::isSameOrigin(const QUrl& a, const QUrl& b) {
    const QString scheme = a.scheme();
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https")) {
        return false;
    }
    const int defaultPort = scheme == QLatin1String("https") ? 443 : 80;
    return !a.host().isEmpty() && b.scheme() == scheme && a.host() == b.host() &&
           a.port(defaultPort) == b.port(defaultPort);
}

int PXBWebViewDelegate::intForKey(const QString& key, const QVariantMap& dictionary) {
    const auto it = dictionary.constFind(key);
    if (it == dictionary.constEnd()) {
        return -1;
    }
    // The leading integer of the text, as the phone's intValue read it ("12px" is 12, "x" 0).
    const QString text = it->toString().trimmed();
    qsizetype end = 0;
    if (end < text.size() && (text[end] == QLatin1Char('-') || text[end] == QLatin1Char('+'))) {
        ++end;
    }
    while (end < text.size() && text[end].isDigit()) {
        ++end;
    }
    bool ok = false;
    const qlonglong value = text.left(end).toLongLong(&ok);
    if (!ok) {
        return 0;
    }
    return static_cast<int>(std::clamp<qlonglong>(value, INT_MIN, INT_MAX));
}

void PXBWebViewDelegate::evaluateJavaScriptInOpener(const QVariantMap& parameters,
                                                    platform::WebView* sender) {
    platform::WebView* opener = openingWebView_;
    if (opener == nullptr) {
        return;
    }
    // Evaluation is asynchronous here: the answer goes out when it arrives, to the page that
    // asked (the "webView" entry is only text and names no view of ours).
    QPointer<platform::WebView> target(sender);
    opener->stringByEvaluatingJavaScriptFromString(
        parameters.value(QStringLiteral("js")).toString(), [target](const QString& result) {
            if (target != nullptr) {
                PXBNotificationCenter::defaultCenter().postJSNotification(
                    QStringLiteral("evalJavaScriptInOpenerResult"),
                    QVariantMap{{QStringLiteral("result"), result}}, target);
            }
        });
}

void PXBWebViewDelegate::logFromPage(const QString& text) {
    // The page's author writes these lines, not us: they go to the debug log only (shown with
    // --verbose), marked, escaped, cut short and rationed, so an ad can neither fill the disk
    // nor pass its text off as the application's.
    if (!lcSorvelDebug().isDebugEnabled()) {
        return;
    }
    switch (pageLog_.take()) {
        case platform::LogRateLimiter::kWrite:
            platform::logDebug(QStringLiteral("<Sorvel> [ad log] ") + platform::escapeForLog(text));
            break;
        case platform::LogRateLimiter::kDropFirst:
            platform::logDebug(QStringLiteral(
                "<Sorvel> [ad log] too many lines: the page's log is cut off for now"));
            break;
        case platform::LogRateLimiter::kDrop:
            break;
    }
}

void PXBWebViewDelegate::processCanOpenURLs(const QStringList& urls, platform::WebView* webView) {
    const QVariantMap answer =
        PXBIdentifierUtilities::sharedInstance()->canOpenURLs(QVariant(urls).toList());
    PXBNotificationCenter::defaultCenter().postJSNotification(QStringLiteral("openableURLs"),
                                                              answer, webView);
}

void PXBWebViewDelegate::processTouchSignals(const QVariantMap& parameters) {
    PXBSignals::recordTouch(intForKey(QStringLiteral("tx"), parameters),
                            intForKey(QStringLiteral("ty"), parameters),
                            intForKey(QStringLiteral("td"), parameters));
}

void PXBWebViewDelegate::trackURLString(const QString& urlString, bool appendSpamSignals) {
    if (!tracker_) {
        tracker_ = std::make_unique<PXBClickTracker>();
    }
    QUrl url(urlString);
    if (appendSpamSignals) {
        const QString clickString =
            PXBNetworkUtilities::parameterValueForKey(QStringLiteral("ai"), url);
        QString signal;
        if (!clickString.isNull() && PXBSignals::fillClickSignal(clickString, signal)) {
            url = PXBNetworkUtilities::appendQueryKey(signal, QVariant(), url);
        }
    }
    tracker_->trackURL(url);
}
