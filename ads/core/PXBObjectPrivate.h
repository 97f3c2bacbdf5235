// The ad object behind a banner: it walks one ad request through its states (fetch the support
// script, build the ad URL in a hidden page, fetch the ad HTML, show it), keeps the trackers and
// the refresh timer, and tells the application through its delegate manager. The banner creates
// one in its common initialiser and forwards to it.
#pragma once

#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBRequestPrivate.h"
#include "ads/core/PXBScriptPage.h"
#include "ads/inspect/PXBInspection.h"
#include "ads/net/PXBCachedFile.h"
#include "ads/net/PXBClickTracker.h"
#include "ads/present/PXBWebView.h"
#include "platform/runloop.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QVariantList>

#include <memory>
#include <vector>

class PXBBannerView;
class PXBBannerWebViewDelegate;
class PXBWebViewDelegate;

namespace platform {
struct Notification;
class ViewController;
class WebView;
}  // namespace platform

// The states of one request.
enum PXBAdState : qint32 {
    kPXBAdStateIdle = 0,
    kPXBAdStateFetchingScript = 1,
    kPXBAdStateScriptFailed = 2,
    kPXBAdStateBuildingURL = 3,
    kPXBAdStateFetchingHTML = 4,
    kPXBAdStateLoadingHTML = 5,
    kPXBAdStateShown = 6,
    kPXBAdStateFailed = 7,
};

class PXBObjectPrivate : public QObject,
                         private PXBCachedFileDelegate,
                         private PXBClickTrackerDelegate {
    Q_OBJECT
  public:
    // initWithView: the banner, not retained (the banner owns this object). The ad web view
    // becomes the banner's subview.
    explicit PXBObjectPrivate(PXBBannerView* view);
    ~PXBObjectPrivate() override;

    PXBBannerView* adView() const { return adView_; }
    QString adUnitID() const { return adUnitID_; }
    void setAdUnitID(const QString& adUnitID) { adUnitID_ = adUnitID; }
    // Not retained; reads null once the controller is gone.
    platform::ViewController* rootViewController() const;
    void setRootViewController(platform::ViewController* controller);
    // What presents the ad's full screens: the root view controller; without one, a presenter
    // that puts them over the banner's own top-level window, so that a banner works in any
    // widget layout.
    platform::ViewController* presenter();
    PXBDelegateManager* delegateManager() const { return delegateManager_.get(); }
    std::shared_ptr<PXBDelegateManager> sharedDelegateManager() const { return delegateManager_; }
    // Nothing ever sets it: a banner never reports that it refreshed by itself.
    bool hasAutoRefreshed() const { return hasAutoRefreshed_; }
    // The visible ad web view, hidden until the first ad is shown.
    PXBWebView* webView() const { return webView_; }
    // The request being served: the object's own copy of the last one loaded.
    const PXBRequestPrivate* request() const { return request_.get(); }
    qint32 state() const { return state_; }
    // The timing counter when the ad was last shown.
    double timeLastLoaded() const { return timeLastLoaded_; }
    // Orientations for full-screen ads (1 any, 2 portrait, 3 landscape).
    qint32 supportedOrientations() const { return supportedOrientations_; }
    // The current ad HTML and the URL it finally came from.
    QString adHTMLString() const;
    QUrl adHTMLBaseURL() const;
    PXBCachedFile* adHTML() const { return adHTML_.get(); }
    void setAdHTML(std::unique_ptr<PXBCachedFile> file);
    QList<QUrl> pendingTrackingURLs() const { return pendingTrackingURLs_; }
    QList<QUrl> pendingClickURLs() const { return pendingClickURLs_; }
    // The interval of the last refresh scheduled (0 before any) and whether one is pending.
    double reloadSeconds() const { return reloadSeconds_; }
    bool isReloadTimerActive() const { return reloadTimer_ != nullptr; }
    // Whether a request that failed for want of the network is to be tried again, and after how
    // many seconds (the last wait scheduled).
    bool isRetryPending() const { return retryTimer_ != nullptr; }
    double retrySeconds() const { return retrySeconds_; }

    void loadRequest(const PXBRequest* request);
    void loadInterstitialRequest(const PXBRequest* request);
    // A private request is used as it is; anything else gives none, and the load then takes a
    // new empty request.
    static const PXBRequestPrivate* privateRequestWithRequest(const PXBRequest* request);
    // Swallowed while a request is in flight or the application is in the background; otherwise
    // the object keeps its own copy of `request` (the one it has when given that).
    void loadPrivateRequest(const PXBRequestPrivate* request, bool autoRefresh);
    bool isMakingRequest() const;
    static bool isAppActive();
    bool supportsMinimumRequirementsForRequest(const PXBRequestPrivate* request);
    // The support script's address.
    static QUrl jsBuildAdURL();
    // The per-load parameters: "slotname", then "format" for an interstitial or the banner's
    // "ad_frame" and "ad_bounds".
    void addAdditionalParameters(QVariantMap& parameters) const;
    // The hidden page that runs the support script with `parametersJSON`.
    static QString buildAdPage(const QString& script, const QString& parametersJSON);
    void changeState(qint32 state);
    // Drops every delayed message aimed at this object and stops the refresh timer.
    void cancelPendingActions();

    // Response headers, trackers and refresh.
    void processHTTPHeaders(PXBCachedFile* file);
    // Splits a header at single blanks into the URLs it holds, appended to `array`.
    static void createOrReuseArrayOfURLsFromHeader(QList<QUrl>& array, const QString& header);
    // Elements that are URLs or strings each get a tracker; others are skipped.
    void trackURLs(const QVariantList& urls);
    void trackURLs(const QList<QUrl>& urls);
    void cleanupTrackers();
    int trackerCount() const { return static_cast<int>(trackers_.size()); }
    void addReloadInformationFromHeaders();
    void scheduleReloadTimer(double seconds);
    void resetReloadTimer();
    void activateReloadTimer();
    void deactivateReloadTimer();
    void reloadCurrentRequest();

    // Tells whether the ad is loading or shown, for the banner's web view delegate.
    PXBBannerWebViewDelegate* webViewDelegate() const { return webViewDelegate_.get(); }

  signals:
    // Every change of state, for whoever watches the ad's progress (diagnostics, tests).
    void stateChanged(qint32 state);

  private:
    void ensureSupportFiles();
    void failedToDownloadJavaScriptWithError(const platform::Error& error);
    void buildAdUrl();
    // With `view`, a page that already holds the script; else a new view.
    void setupBuildAdWebView(std::unique_ptr<platform::WebView> view = nullptr);
    void resetBuildAdWebView();
    // Makes the next build's page ahead (nextScriptPage_).
    void prepareScriptPage();
    void registerForNotifications();
    void loadAdURL(const platform::Notification& notification);
    void invalidRequest(const platform::Notification& notification);
    void unableToServe(const platform::Notification& notification);
    void loadHTMLFromURL(const QUrl& url);
    void showAd();
    void failedAdRequestWithError(const platform::Error& error, PXBCachedFile* file);
    void reportError(int code);
    void loadTimedOut();
    void retryAfterNetworkFailure();
    void scheduleRetry(double seconds);
    void retryNow();

    void cachedFileDownloadDidEnd(PXBCachedFile* file) override;
    void cachedFileDownloadDidFail(PXBCachedFile* file, const platform::Error& error) override;
    platform::Error cachedFileShouldRedirectToURL(PXBCachedFile* file, const QUrl& url) override;
    void trackerDidRedirect(PXBClickTracker* tracker, const QUrl& url) override;
    void trackerDidFailWithError(PXBClickTracker* tracker, const platform::Error& error) override;

    PXBCachedFileDelegate* fileDelegate() { return this; }
    PXBClickTrackerDelegate* trackerDelegate() { return this; }
    void appDidBackground();
    void appDidForeground();
    // Tells the inspector (callers first ask PXBInspection::isOn()).
    void inspect(PXBInspection::Kind kind, const QString& text, const QVariantMap& details = {});
    void inspectTracker(const PXBClickTracker* tracker, const QString& url, const QString& status);

    PXBBannerView* adView_ = nullptr;
    QString adUnitID_;
    std::shared_ptr<PXBDelegateManager> delegateManager_;
    QPointer<QObject> rootViewController_;
    std::shared_ptr<platform::ViewController> windowPresenter_;
    QPointer<PXBWebView> webView_;
    std::unique_ptr<platform::WebView> buildAdWebView_;
    std::unique_ptr<PXBBannerWebViewDelegate> webViewDelegate_;
    std::unique_ptr<PXBWebViewDelegate> buildAdWebViewDelegate_;
    std::unique_ptr<PXBScriptPage> nextScriptPage_;  // the next build's page, made ahead
    std::unique_ptr<PXBCachedFile> buildAdJS_;
    std::unique_ptr<PXBCachedFile> adHTML_;
    std::shared_ptr<PXBRequestPrivate> request_;
    qint32 state_ = kPXBAdStateIdle;
    double timeLastLoaded_ = 0;
    std::vector<std::unique_ptr<PXBClickTracker>> trackers_;
    QList<QUrl> pendingTrackingURLs_;
    QList<QUrl> pendingClickURLs_;
    std::unique_ptr<platform::Timer> reloadTimer_;
    std::unique_ptr<platform::Timer> scriptPageTimer_;
    std::unique_ptr<platform::Timer> loadTimer_;
    bool refreshWaiting_ = false;  // a refresh came while a request was under way
    std::unique_ptr<platform::Timer> retryTimer_;
    int failedTries_ = 0;  // requests failed for want of the network since the last ad shown
    double retrySeconds_ = 0;
    bool retryInterrupted_ = false;  // a retry was due when the application went to the background
    double reloadSeconds_ = 0;
    bool hasAutoRefreshed_ = false;
    qint32 supportedOrientations_ = 1;
};
