#include "ads/core/PXBObjectPrivate.h"

#include "ads/bridge/PXBBannerWebViewDelegate.h"
#include "ads/bridge/PXBWebViewDelegate.h"
#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBMacros.h"
#include "ads/core/PXBParameterKeys.h"
#include "ads/core/PXBRequestError.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/device/PXBNetworkChecker.h"
#include "ads/inspect/PXBInspector.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "ads/present/PXBViewController.h"
#include "ads/present/PXBWebView.h"
#include "ads/signals/PXBSignals.h"
#include "ads/stats/PXBStatistics.h"
#include "ads/stats/PXBStatisticsCore.h"
#include "ads/stats/PXBTiming.h"
#include "platform/cookiestorage.h"
#include "platform/log.h"
#include "platform/notificationcenter.h"
#include "platform/ui/application.h"
#include "platform/ui/viewcontroller.h"
#include "platform/userdefaults.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

const QString kLoadAdURL = QStringLiteral("loadAdURL");
const QString kInvalidRequest = QStringLiteral("invalidRequest");
const QString kUnableToServe = QStringLiteral("unableToServe");
const QString kExpireDateKey = QStringLiteral("expireDate");
constexpr qint64 kScriptLifetimeSeconds = 86400;

// Set once the application has finished launching: before that, a load goes ahead even while
// the application is not active. Watched from the start of the process, as the ad object's class
// did, so that ad objects made during the launch itself see it right.
bool launchFinished = false;

const struct LaunchWatcher {
    LaunchWatcher() {
        platform::NotificationCenter::defaultCenter().addObserver(
            this, platform::kApplicationDidFinishLaunchingNotification, nullptr,
            [this](const platform::Notification&) {
                launchFinished = true;
                platform::NotificationCenter::defaultCenter().removeObserver(this);
            });
    }
} launchWatcher;

QString stateName(qint32 state) {
    static const char* const names[] = {"idle",
                                        "fetching the script",
                                        "script failed",
                                        "building the ad URL",
                                        "fetching the ad",
                                        "loading the ad",
                                        "shown",
                                        "failed"};
    return state >= 0 && state < qint32(std::size(names)) ? QString::fromLatin1(names[state])
                                                          : QString::number(state);
}

QString headerValue(const PXBCachedFile* file, const QString& name) {
    return file != nullptr ? file->httpHeader(name) : QString();
}

// The number a text starts with, 0 when it starts with none ("30s" is 30, "soon" 0).
double leadingDouble(const QString& text) {
    static const QRegularExpression number(
        QStringLiteral(R"(^\s*[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)"));
    const QRegularExpressionMatch match = number.match(text);
    return match.hasMatch() ? match.captured().trimmed().toDouble() : 0.0;
}

// What one ad response may bring: a page or script beyond these is no ad but a load error, and
// trackers beyond the count are dropped rather than each fetched.
constexpr qint64 kMaximumScriptBytes = 2 * 1024 * 1024;
constexpr qint64 kMaximumAdBytes = 1024 * 1024;
constexpr qsizetype kMaximumTrackingURLs = 100;

// The longest wait between two tries of a request that failed for want of the network.
constexpr double kMaximumRetrySeconds = 300;
// How long before a refresh is due the next build's page is made, and how long after the ad
// was shown at the earliest.
constexpr double kScriptPageLeadSeconds = 0.5;
constexpr double kScriptPageEarliestSeconds = 0.4;

QVariantMap rectDictionary(const QRect& rect) {
    return {{QStringLiteral("x"), double(rect.x())},
            {QStringLiteral("y"), double(rect.y())},
            {QStringLiteral("w"), double(rect.width())},
            {QStringLiteral("h"), double(rect.height())}};
}

}  // namespace

PXBObjectPrivate::PXBObjectPrivate(PXBBannerView* view)
    : adView_(view), delegateManager_(PXBDelegateManager::create()) {
    const QRect frame = view != nullptr ? view->bounds() : QRect();
    webView_ = new PXBWebView(frame);
    webView_->setScalesPageToFit(false);
    webView_->setMediaPlaybackRequiresUserAction(true);
    webView_->setHidden(true);
    webViewDelegate_ = std::make_unique<PXBBannerWebViewDelegate>(this);
    registerForNotifications();
    // The integrator's switch: the inspector opens with the first ad object.
    static bool inspectorAsked = qEnvironmentVariableIntValue("SORVEL_INSPECTOR") != 0;
    if (std::exchange(inspectorAsked, false)) {
        PXBInspector::showInspector();
    }
    connect(PXBNetworkChecker::sharedChecker(), &PXBNetworkChecker::networkTypeChanged, this,
            [this](quint32 type) {
                if (retryTimer_ && (type == PXBNetworkChecker::kNetworkTypeWiFi ||
                                    type == PXBNetworkChecker::kNetworkTypeCellular)) {
                    platform::logDebug(QStringLiteral("<Sorvel> The network is back"));
                    retryNow();
                }
            });
    if (view != nullptr) {
        view->addSubview(webView_);
    }
}

void PXBObjectPrivate::registerForNotifications() {
    auto& center = platform::NotificationCenter::defaultCenter();
    auto observe = [&](const QString& name, void (PXBObjectPrivate::*handler)()) {
        center.addObserver(this, name, nullptr,
                           [this, handler](const platform::Notification&) { (this->*handler)(); });
    };
    if (PXBIdentifierUtilities::isOSAtLeastMajor(4, 0, 0)) {
        observe(platform::kApplicationDidEnterBackgroundNotification,
                &PXBObjectPrivate::appDidBackground);
        observe(platform::kApplicationWillEnterForegroundNotification,
                &PXBObjectPrivate::appDidForeground);
    } else {
        observe(platform::kApplicationWillResignActiveNotification,
                &PXBObjectPrivate::appDidBackground);
        observe(platform::kApplicationDidBecomeActiveNotification,
                &PXBObjectPrivate::appDidForeground);
    }
    observe(PXBViewControllerWillPresentFullScreen, &PXBObjectPrivate::deactivateReloadTimer);
    observe(PXBViewControllerDidRelinquishFullScreen, &PXBObjectPrivate::activateReloadTimer);
}

PXBObjectPrivate::~PXBObjectPrivate() {
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    // Screens shown over the banner's window close with the banner: their presenter goes with it,
    // and nothing would be left to close them.
    if (windowPresenter_ != nullptr && windowPresenter_->presentedViewController() != nullptr) {
        if (auto* screen =
                qobject_cast<PXBViewController*>(windowPresenter_->presentedViewController())) {
            screen->relinquishScreen();
        }
        windowPresenter_->dismissModalViewControllerAnimated(false);
    }
    if (webView_ != nullptr) {
        // Deleting the view stops its page's scripts and media at once: no empty page first.
        webView_->setDelegate(nullptr);
        delete webView_.data();
    }
    webViewDelegate_.reset();
    resetBuildAdWebView();
    nextScriptPage_.reset();
    if (buildAdJS_) {
        buildAdJS_->setDelegate(nullptr);
        buildAdJS_.reset();
    }
    setAdHTML(nullptr);
    for (const auto& tracker : trackers_) {
        tracker->reset();
    }
    trackers_.clear();
    resetReloadTimer();
    loadTimer_.reset();
}

platform::ViewController* PXBObjectPrivate::rootViewController() const {
    return static_cast<platform::ViewController*>(rootViewController_.data());
}

void PXBObjectPrivate::setRootViewController(platform::ViewController* controller) {
    rootViewController_ = controller;
}

platform::ViewController* PXBObjectPrivate::presenter() {
    if (platform::ViewController* root = rootViewController()) {
        return root;
    }
    if (windowPresenter_ == nullptr) {
        windowPresenter_ = std::make_shared<platform::AnchoredViewController>(adView_);
    }
    return windowPresenter_.get();
}

QString PXBObjectPrivate::adHTMLString() const {
    return adHTML_ ? adHTML_->content() : QString();
}

QUrl PXBObjectPrivate::adHTMLBaseURL() const {
    return adHTML_ ? adHTML_->httpDestinationURL() : QUrl();
}

// ---- Starting a load

void PXBObjectPrivate::loadRequest(const PXBRequest* request) {
    loadPrivateRequest(privateRequestWithRequest(request), false);
}

void PXBObjectPrivate::loadInterstitialRequest(const PXBRequest* request) {
    const PXBRequestPrivate* given = privateRequestWithRequest(request);
    std::shared_ptr<PXBRequestPrivate> interstitial = PXBRequestPrivate::createWithRequest(given);
    interstitial->setInterstitialAd(true);
    loadPrivateRequest(interstitial.get(), false);
}

const PXBRequestPrivate* PXBObjectPrivate::privateRequestWithRequest(const PXBRequest* request) {
    return dynamic_cast<const PXBRequestPrivate*>(request);
}

void PXBObjectPrivate::loadPrivateRequest(const PXBRequestPrivate* request, bool autoRefresh) {
    if (isMakingRequest()) {
        platform::logDebug(QStringLiteral("<Sorvel> A request is in flight; this load is ignored"));
        PXBInspection::refused(QStringLiteral("a load of %1").arg(adUnitID_),
                               QStringLiteral("a request is in flight"));
        return;
    }
    if (!isAppActive()) {
        return;
    }
    if (!supportsMinimumRequirementsForRequest(request)) {
        return;
    }
    if (!autoRefresh) {
        hasAutoRefreshed_ = false;
    }
    // The refresh passes the object's own request, which it keeps as it is.
    if (request == nullptr || request != request_.get()) {
        request_ = PXBRequestPrivate::createWithRequest(request);
    }
    PXBStatistics& statistics = PXBStatistics::sharedStatistics();
    if (!statistics.timingNamed(kPXBParameterTimeSinceFirstRequest)) {
        statistics.startTimingNamed(kPXBParameterTimeSinceFirstRequest);
    }
    statistics.incrementAdRequestCount();
    request_->setCounter(static_cast<qint32>(statistics.adRequestCount()));
    changeState(kPXBAdStateBuildingURL);
    ensureSupportFiles();
}

bool PXBObjectPrivate::isMakingRequest() const {
    switch (state_) {
        case kPXBAdStateFetchingScript:
        case kPXBAdStateBuildingURL:
        case kPXBAdStateFetchingHTML:
        case kPXBAdStateLoadingHTML:
            return true;
        default:
            return false;
    }
}

bool PXBObjectPrivate::isAppActive() {
    if (QCoreApplication::instance() == nullptr) {
        return true;
    }
    if (platform::Application::sharedApplication()->applicationState() ==
        platform::Application::StateActive) {
        return true;
    }
    return !launchFinished;
}

bool PXBObjectPrivate::supportsMinimumRequirementsForRequest(const PXBRequestPrivate* request) {
    if (PXBRequestPrivate::deviceAtLeastMinimumOSMajorVersion(3, 0)) {
        return true;
    }
    const std::shared_ptr<PXBDelegateManager> manager = delegateManager_;
    QPointer<PXBObjectPrivate> self(this);
    manager->didFailToReceiveAdWithError(
        PXBRequestError::errorWithCode(kPXBErrorOSVersionTooLow, request));
    if (self != nullptr) {
        changeState(kPXBAdStateFailed);
    }
    return false;
}

QUrl PXBObjectPrivate::jsBuildAdURL() {
    return PXBConfiguration::scriptURL();
}

void PXBObjectPrivate::changeState(qint32 state) {
    if (state == state_) {
        return;
    }
    platform::logDebug(QStringLiteral("<Sorvel> Ad state %1 -> %2").arg(state_).arg(state));
    state_ = state;
    if (PXBInspection::isOn()) {
        inspect(PXBInspection::Kind::State, stateName(state));
    }
    // A page that never finishes loading (a stalled server, a busy loop, a stuck renderer) must
    // not hold the ad: it fails as timed out and the refresh goes on.
    if (state == kPXBAdStateBuildingURL || state == kPXBAdStateLoadingHTML) {
        loadTimer_ = platform::Timer::scheduled(PXBConfiguration::loadTimeoutSeconds(), false,
                                                [this] { loadTimedOut(); });
    } else {
        loadTimer_.reset();
    }
    if (refreshWaiting_ && !isMakingRequest()) {
        refreshWaiting_ = false;
        if (isAppActive()) {
            activateReloadTimer();
        }
    }
    if (state == kPXBAdStateShown) {
        failedTries_ = 0;
        retryTimer_.reset();
        if (webView_ != nullptr) {
            webView_->setTouched(false);
        }
        timeLastLoaded_ = PXBTiming::counter();
    }
    emit stateChanged(state);
}

void PXBObjectPrivate::cancelPendingActions() {
    platform::cancelPreviousPerformRequests(this);
    refreshWaiting_ = false;
    resetReloadTimer();
    retryTimer_.reset();
}

void PXBObjectPrivate::loadTimedOut() {
    const bool building = state_ == kPXBAdStateBuildingURL;
    platform::logDebug(QStringLiteral("<Sorvel> The %1 did not load within %2 s")
                           .arg(building ? QStringLiteral("page that builds the ad URL")
                                         : QStringLiteral("ad's page"))
                           .arg(PXBConfiguration::loadTimeoutSeconds()));
    // Failed first, so that the view's own report of the stopped load finds nothing to fail.
    changeState(kPXBAdStateFailed);
    if (building) {
        if (buildAdWebView_) {
            buildAdWebView_->abandonLoad();
        }
        resetBuildAdWebView();
    } else if (webView_ != nullptr) {
        webView_->abandonLoad();
    }
    QPointer<PXBObjectPrivate> self(this);
    reportError(kPXBErrorTimeout);
    if (self != nullptr && isAppActive()) {
        activateReloadTimer();
        retryAfterNetworkFailure();
    }
}

void PXBObjectPrivate::reportError(int code) {
    if (PXBInspection::isOn()) {
        inspect(PXBInspection::Kind::Error, PXBRequestError::localizedStringForErrorCode(code));
    }
    // The application's delegate may destroy this object while it is told.
    const std::shared_ptr<PXBDelegateManager> manager = delegateManager_;
    manager->didFailToReceiveAdWithError(PXBRequestError::errorWithCode(code, request_.get()));
}

// ---- The support script and the hidden page

void PXBObjectPrivate::ensureSupportFiles() {
    if (!buildAdJS_) {
        changeState(kPXBAdStateFetchingScript);
        buildAdJS_ = std::make_unique<PXBCachedFile>(fileDelegate(), jsBuildAdURL());
        buildAdJS_->setMaximumBodyBytes(kMaximumScriptBytes);
    }
    // Cookies that trackers, click URLs and the frames of an ad set for other sites live as long
    // as the process: only the ad server's own outlast it, so nothing named in an ad response
    // can follow the user from one launch to the next.
    if (platform::HttpCookieStorage* jar = platform::HttpCookieStorage::sharedStorage()) {
        jar->setLastingHosts({PXBConfiguration::adServerURL().host()});
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    PXBStatisticsCore store(QStringLiteral("PXBObjectPrivate"));
    const QDateTime expires = store.dateForKey(kExpireDateKey);
    if (expires.isValid() && !buildAdJS_->content().isEmpty() && expires >= now) {
        // Revalidated less than a day ago: build from the cached script, no network at all.
        cachedFileDownloadDidEnd(buildAdJS_.get());
        return;
    }
    store.setDate(now.addSecs(kScriptLifetimeSeconds), kExpireDateKey);
    store.synchronize();
    changeState(kPXBAdStateFetchingScript);
    buildAdJS_->validate();
}

void PXBObjectPrivate::failedToDownloadJavaScriptWithError(const platform::Error& error) {
    changeState(kPXBAdStateScriptFailed);
    if (!buildAdJS_->content().isEmpty()) {
        platform::logDebug(
            QStringLiteral("<Sorvel> Support script failed (%1); using the cached copy")
                .arg(error.localizedDescription()));
        buildAdUrl();
        return;
    }
    QPointer<PXBObjectPrivate> self(this);
    reportError(kPXBErrorNetworkError);
    if (self != nullptr) {
        retryAfterNetworkFailure();
    }
}

void PXBObjectPrivate::addAdditionalParameters(QVariantMap& parameters) const {
    if (!adUnitID_.isEmpty()) {
        parameters.insert(kPXBParameterAdSlotID, adUnitID_);
    }
    if (request_ && request_->isInterstitialAd()) {
        parameters.insert(kPXBParameterAdFormat, QStringLiteral("interstitial_mb"));
        return;
    }
    const QWidget* view = adView_ != nullptr ? static_cast<const QWidget*>(adView_)
                                             : static_cast<const QWidget*>(webView_.data());
    if (view == nullptr) {
        return;
    }
    parameters.insert(kPXBParameterAdFrame, rectDictionary(view->geometry()));
    parameters.insert(kPXBParameterAdBounds, rectDictionary(view->rect()));
}

QString PXBObjectPrivate::buildAdPage(const QString& script, const QString& parametersJSON) {
    return QStringLiteral("<html><head><script>") + script + QStringLiteral("</script>") +
           QStringLiteral("<script>%1(%2);</script>")
               .arg(QStringLiteral("ZELM_buildAdURL"), parametersJSON) +
           QStringLiteral("</head><body></body></html>");
}

void PXBObjectPrivate::buildAdUrl() {
    const QString script = buildAdJS_->content();
    if (script.isEmpty()) {
        failedToDownloadJavaScriptWithError(platform::Error());
        return;
    }
    changeState(kPXBAdStateBuildingURL);
    QVariantMap parameters = request_->parameters();
    addAdditionalParameters(parameters);
    if (PXBInspection::isOn()) {
        QVariantMap shown = parameters;
        // The location travels encrypted; the inspector shows it as the application gave it.
        if (request_->location()) {
            shown.insert(QStringLiteral("(location as given)"),
                         request_->location()->description());
        }
        inspect(PXBInspection::Kind::Request, QString(), shown);
    }
    const QString json = PXBMacros::jsonify(parameters);
    const QUrl baseURL = PXBConfiguration::adServerURL();
    if (const std::unique_ptr<PXBScriptPage> prepared = std::move(nextScriptPage_);
        prepared && prepared->isReadyFor(script, baseURL)) {
        setupBuildAdWebView(prepared->takeView());
        buildAdWebView_->evaluateJavaScript(PXBScriptPage::buildCall(json));
    } else {
        setupBuildAdWebView();
        buildAdWebView_->loadHTMLStringBaseURL(buildAdPage(script, json), baseURL);
    }
    // The first ad need not wait for the banner's page to be made once its URL is known.
    webView_->preparePage();
}

void PXBObjectPrivate::setupBuildAdWebView(std::unique_ptr<platform::WebView> view) {
    resetBuildAdWebView();
    buildAdWebViewDelegate_ = std::make_unique<PXBWebViewDelegate>();
    buildAdWebView_ =
        view ? std::move(view) : std::make_unique<platform::WebView>(QRect(0, 0, 1, 1));
    buildAdWebView_->setHidden(true);
    buildAdWebView_->setDelegate(buildAdWebViewDelegate_.get());
    auto& center = platform::NotificationCenter::defaultCenter();
    const void* page = buildAdWebView_.get();
    center.addObserver(this, kLoadAdURL, page,
                       [this](const platform::Notification& n) { loadAdURL(n); });
    center.addObserver(this, kInvalidRequest, page,
                       [this](const platform::Notification& n) { invalidRequest(n); });
    center.addObserver(this, kUnableToServe, page,
                       [this](const platform::Notification& n) { unableToServe(n); });
}

void PXBObjectPrivate::resetBuildAdWebView() {
    auto& center = platform::NotificationCenter::defaultCenter();
    for (const QString& name : {kLoadAdURL, kInvalidRequest, kUnableToServe}) {
        center.removeObserver(this, name, nullptr);
    }
    if (buildAdWebView_) {
        buildAdWebView_->setDelegate(nullptr);
        // Its page may still be delivering the message that got us here: let it unwind first.
        buildAdWebView_.release()->deleteLater();
    }
    buildAdWebViewDelegate_.reset();
}

// ---- The script's answers

void PXBObjectPrivate::loadAdURL(const platform::Notification& notification) {
    resetBuildAdWebView();
    const QVariantMap& info = notification.userInfo;
    if (info.contains(QStringLiteral("errors"))) {
        reportError(kPXBErrorInvalidRequest);
        return;
    }
    changeState(kPXBAdStateFetchingHTML);
    QUrl url(info.value(QStringLiteral("url")).toString());
    const QString type = info.value(QStringLiteral("type")).toString();
    PXBSignals::setRequestTypeAndVersion(PXBRequestPrivate::requestTypeFromString(type),
                                         PXBRequest::sdkVersion());
    if (const QVariantMap signals_ = PXBRequestPrivate::spamSignals(); !signals_.isEmpty()) {
        url = PXBNetworkUtilities::appendQueryParameters(signals_, url);
    }
    if (type == QLatin1String("plinth")) {
        url = PXBNetworkUtilities::appendQueryKey(kPXBParameterPlinthSeqNum, QStringLiteral("1"),
                                                  url);
    }
    PXBStatistics::sharedStatistics().startTimingNamed(kPXBParameterPriorRequestLatency);
    if (PXBInspection::isOn()) {
        inspect(PXBInspection::Kind::AdURL, url.toString(QUrl::FullyEncoded));
    }
    loadHTMLFromURL(url);
}

void PXBObjectPrivate::invalidRequest(const platform::Notification& notification) {
    resetBuildAdWebView();
    platform::logLine(QStringLiteral("<Sorvel> Invalid Request: %1")
                          .arg(platform::describe(notification.userInfo)));
    reportError(kPXBErrorInvalidRequest);
}

void PXBObjectPrivate::unableToServe(const platform::Notification& notification) {
    resetBuildAdWebView();
    platform::logLine(QStringLiteral("<Sorvel> Unable to serve: %1")
                          .arg(platform::describe(notification.userInfo)));
    reportError(kPXBErrorInvalidRequest);
}

// ---- The ad HTML

void PXBObjectPrivate::loadHTMLFromURL(const QUrl& url) {
    auto file = std::make_unique<PXBCachedFile>(fileDelegate(), url);
    file->setMaximumBodyBytes(kMaximumAdBytes);
    setAdHTML(std::move(file));
}

void PXBObjectPrivate::setAdHTML(std::unique_ptr<PXBCachedFile> file) {
    if (file == adHTML_) {
        return;
    }
    if (adHTML_) {
        adHTML_->setDelegate(nullptr);
        adHTML_->invalidate();
    }
    adHTML_ = std::move(file);
    if (adHTML_) {
        adHTML_->validate();
    }
    pendingTrackingURLs_.clear();
    pendingClickURLs_.clear();
}

void PXBObjectPrivate::showAd() {
    const QString html = adHTML_->content().trimmed();
    const QUrl baseURL = adHTML_->httpDestinationURL();
    addReloadInformationFromHeaders();
    if (html.isEmpty()) {
        changeState(kPXBAdStateFailed);
        reportError(kPXBErrorNoFill);
        return;
    }
    changeState(kPXBAdStateLoadingHTML);
    webView_->loadHTMLStringBaseURL(html, baseURL);
}

void PXBObjectPrivate::failedAdRequestWithError(const platform::Error& error, PXBCachedFile* file) {
    const int status = file != nullptr ? file->httpStatusCode() : 0;
    changeState(kPXBAdStateFailed);
    int code = kPXBErrorNetworkError;
    if (status == 400) {
        platform::logLine(QStringLiteral(
            "<Sorvel> Server rejected ad parameters.  Typically this is because the ad unit ID "
            "is incorrect."));
        code = kPXBErrorInvalidRequest;
    } else if (status > 400) {
        code = kPXBErrorServerError;
    }
    platform::logDebug(QStringLiteral("<Sorvel> Ad request failed (HTTP %1): %2")
                           .arg(status)
                           .arg(error.localizedDescription()));
    QPointer<PXBObjectPrivate> self(this);
    reportError(code);
    if (self != nullptr) {
        addReloadInformationFromHeaders();
        if (code == kPXBErrorNetworkError) {
            retryAfterNetworkFailure();
        }
    }
}

void PXBObjectPrivate::cachedFileDownloadDidEnd(PXBCachedFile* file) {
    if (file == buildAdJS_.get()) {
        buildAdUrl();
        return;
    }
    processHTTPHeaders(file);
    showAd();
}

void PXBObjectPrivate::cachedFileDownloadDidFail(PXBCachedFile* file,
                                                 const platform::Error& error) {
    if (file == buildAdJS_.get()) {
        failedToDownloadJavaScriptWithError(error);
        return;
    }
    failedAdRequestWithError(error, file);
}

platform::Error PXBObjectPrivate::cachedFileShouldRedirectToURL(PXBCachedFile* file,
                                                                const QUrl& /*url*/) {
    // The headers are the redirect's own: tracking URLs of every hop accumulate.
    processHTTPHeaders(file);
    return platform::Error();
}

// ---- Response headers and trackers

void PXBObjectPrivate::createOrReuseArrayOfURLsFromHeader(QList<QUrl>& array,
                                                          const QString& header) {
    if (header.isEmpty()) {
        return;
    }
    // Split at every single blank: two blanks in a row give an empty piece, which is skipped.
    qsizetype dropped = 0;
    for (const QString& piece : header.split(QLatin1Char(' '))) {
        const QString trimmed = piece.trimmed();
        if (trimmed.isEmpty()) {
            continue;
        }
        const QUrl url(trimmed, QUrl::StrictMode);
        if (!url.isValid() || url.toString().isEmpty()) {
            continue;
        }
        if (array.size() >= kMaximumTrackingURLs) {
            ++dropped;
        } else {
            array.append(url);
        }
    }
    if (dropped > 0) {
        platform::logDebug(QStringLiteral("<Sorvel> %1 tracking URLs beyond the first %2 dropped")
                               .arg(dropped)
                               .arg(kMaximumTrackingURLs));
    }
}

void PXBObjectPrivate::processHTTPHeaders(PXBCachedFile* file) {
    if (PXBInspection::isOn()) {
        inspect(PXBInspection::Kind::Response,
                QStringLiteral("HTTP %1").arg(file->httpStatusCode()), file->httpHeaders());
    }
    createOrReuseArrayOfURLsFromHeader(pendingTrackingURLs_,
                                       headerValue(file, QStringLiteral("X-Zelm-Tracking-Urls")));
    createOrReuseArrayOfURLsFromHeader(
        pendingClickURLs_, headerValue(file, QStringLiteral("X-Zelm-Click-Tracking-Urls")));
    if (const int orientations = PXBViewController::orientationFromString(
            headerValue(file, QStringLiteral("X-Zelm-Orientation")));
        orientations != 0) {
        supportedOrientations_ = orientations;
    }
    if (const QString timeout = headerValue(file, QStringLiteral("X-Zelm-Interstitial-Timeout"));
        !timeout.isEmpty()) {
        platform::UserDefaults::standardUserDefaults().setFloatForKey(
            static_cast<float>(leadingDouble(timeout)), QStringLiteral("applicationTimeout"));
    }
}

void PXBObjectPrivate::trackURLs(const QVariantList& urls) {
    for (const QVariant& element : urls) {
        QUrl url;
        if (element.typeId() == QMetaType::QUrl) {
            url = element.toUrl();
        } else if (element.typeId() == QMetaType::QString) {
            url = QUrl(element.toString());
        } else {
            continue;
        }
        if (url.isEmpty()) {
            continue;
        }
        auto tracker = std::make_unique<PXBClickTracker>(trackerDelegate());
        if (PXBInspection::isOn()) {
            inspectTracker(tracker.get(), url.toString(QUrl::FullyEncoded), QStringLiteral("sent"));
        }
        tracker->trackURL(url);
        trackers_.push_back(std::move(tracker));
    }
}

void PXBObjectPrivate::trackURLs(const QList<QUrl>& urls) {
    QVariantList list;
    for (const QUrl& url : urls) {
        list.append(url);
    }
    trackURLs(list);
}

void PXBObjectPrivate::cleanupTrackers() {
    std::erase_if(trackers_, [](const auto& tracker) { return tracker->hasTracked(); });
}

void PXBObjectPrivate::trackerDidRedirect(PXBClickTracker* tracker, const QUrl& url) {
    if (PXBInspection::isOn()) {
        inspectTracker(tracker, url.toString(QUrl::FullyEncoded), QStringLiteral("counted"));
    }
    platform::performAfter(this, 0, [this] { cleanupTrackers(); });
}

void PXBObjectPrivate::trackerDidFailWithError(PXBClickTracker* tracker,
                                               const platform::Error& error) {
    if (PXBInspection::isOn()) {
        const QString why = error.isNull()
                                ? QStringLiteral("HTTP %1").arg(tracker->httpStatusCode())
                                : error.localizedDescription();
        inspectTracker(tracker, tracker->trackingURL().toString(QUrl::FullyEncoded),
                       QStringLiteral("failed: ") + why);
    }
    platform::performAfter(this, 0, [this] { cleanupTrackers(); });
}

// ---- Refresh

void PXBObjectPrivate::addReloadInformationFromHeaders() {
    const QString rate = headerValue(adHTML_.get(), QStringLiteral("X-Zelm-Refresh-Rate"));
    // No bounds and no default: a value that does not parse reads as 0, which stops refresh.
    scheduleReloadTimer(rate.isEmpty() ? reloadSeconds_ : leadingDouble(rate));
}

void PXBObjectPrivate::scheduleReloadTimer(double seconds) {
    resetReloadTimer();
    const bool refreshes = seconds != 0.0 && PXBConfiguration::refreshesAutomatically();
    if (PXBInspection::isOn()) {
        inspect(PXBInspection::Kind::Refresh,
                refreshes ? QStringLiteral("every %1 s").arg(seconds) : QStringLiteral("off"),
                {{QStringLiteral("seconds"), refreshes ? seconds : 0.0}});
    }
    if (!refreshes) {
        return;
    }
    reloadTimer_ = platform::Timer::scheduled(seconds, false, [this] { reloadCurrentRequest(); });
    reloadSeconds_ = seconds;
    // A page load is most of a build's time: the next build's page is made ahead, shortly before
    // the refresh, so that it does not sit idle for the whole interval. Not when that would be
    // sooner than kScriptPageEarliestSeconds from now (a refresh every 0.9 s or more often): the
    // engine page the last build let go would not be ready for another view yet, and an engine
    // page made afresh for every refresh costs memory the engine never gives all back.
    const double prepareAfter = seconds - kScriptPageLeadSeconds;
    if (prepareAfter >= kScriptPageEarliestSeconds) {
        scriptPageTimer_ =
            platform::Timer::scheduled(prepareAfter, false, [this] { prepareScriptPage(); });
    }
}

void PXBObjectPrivate::prepareScriptPage() {
    if (!buildAdJS_ || buildAdJS_->content().isEmpty() || !isAppActive()) {
        return;
    }
    nextScriptPage_ =
        std::make_unique<PXBScriptPage>(buildAdJS_->content(), PXBConfiguration::adServerURL());
}

void PXBObjectPrivate::resetReloadTimer() {
    reloadTimer_.reset();
    scriptPageTimer_.reset();
}

void PXBObjectPrivate::activateReloadTimer() {
    scheduleReloadTimer(reloadSeconds_);
}

void PXBObjectPrivate::deactivateReloadTimer() {
    refreshWaiting_ = false;
    resetReloadTimer();
    nextScriptPage_.reset();
    if (PXBInspection::isOn()) {
        inspect(PXBInspection::Kind::Refresh, QStringLiteral("paused in the background"),
                {{QStringLiteral("seconds"), 0.0}});
    }
}

void PXBObjectPrivate::reloadCurrentRequest() {
    // A refresh that comes while the last request is still under way (its page loading longer
    // than the interval) waits until that request ends and then one whole interval, so that the
    // ad it brings stays on screen long enough to be pressed; lost, nothing would ever schedule
    // the next refresh.
    if (isMakingRequest()) {
        platform::logDebug(QStringLiteral("<Sorvel> The refresh waits for the request under way"));
        resetReloadTimer();
        refreshWaiting_ = true;
        return;
    }
    platform::logDebug(QStringLiteral("<Sorvel> Refreshing the ad"));
    loadPrivateRequest(request_.get(), true);
}

// Without a refresh interval from the server (before the first ad, say) a request that failed
// for want of the network would leave the banner empty for the whole session. This client tries
// it again, waiting twice as long after each failure so that a server or link that stays down is
// not hammered, and at once when the system reports the network back.
void PXBObjectPrivate::retryAfterNetworkFailure() {
    if (reloadTimer_ || !isAppActive()) {
        return;  // the refresh brings the next ad; the background none
    }
    const double seconds =
        std::min(PXBConfiguration::firstRetrySeconds() * std::pow(2.0, std::min(failedTries_, 16)),
                 kMaximumRetrySeconds);
    ++failedTries_;
    platform::logDebug(
        QStringLiteral("<Sorvel> The ad could not reach its server; trying again in %1 s")
            .arg(seconds));
    scheduleRetry(seconds);
}

void PXBObjectPrivate::scheduleRetry(double seconds) {
    retrySeconds_ = seconds;
    retryTimer_ = platform::Timer::scheduled(seconds, false, [this] { retryNow(); });
}

void PXBObjectPrivate::retryNow() {
    retryTimer_.reset();
    reloadCurrentRequest();
}

void PXBObjectPrivate::appDidBackground() {
    deactivateReloadTimer();
    // A retry due while in the background waits for the foreground, its wait begun again.
    retryInterrupted_ = retryTimer_ != nullptr;
    retryTimer_.reset();
}

void PXBObjectPrivate::appDidForeground() {
    activateReloadTimer();
    if (std::exchange(retryInterrupted_, false) && !reloadTimer_) {
        scheduleRetry(retrySeconds_);
    }
}

// ---- Inspection

void PXBObjectPrivate::inspect(PXBInspection::Kind kind, const QString& text,
                               const QVariantMap& details) {
    PXBInspection::record(this, adUnitID_, kind, text, details);
}

void PXBObjectPrivate::inspectTracker(const PXBClickTracker* tracker, const QString& url,
                                      const QString& status) {
    inspect(PXBInspection::Kind::Tracker, url,
            {{QStringLiteral("id"), QString::number(quintptr(tracker), 16)},
             {QStringLiteral("status"), status}});
}
