// The ad object behind a banner: it keeps the banner's ad unit, root view controller, delegate
// manager and request. The banner creates one in its common initialiser and forwards to it.
#pragma once

#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBRequestPrivate.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

class PXBBannerView;
class PXBWebView;

namespace platform {
class ViewController;
}

class PXBObjectPrivate : public QObject {
    Q_OBJECT
  public:
    // initWithView: the banner, not retained (the banner owns this object).
    explicit PXBObjectPrivate(PXBBannerView* view);
    ~PXBObjectPrivate() override;

    PXBBannerView* adView() const { return adView_; }
    QString adUnitID() const { return adUnitID_; }
    void setAdUnitID(const QString& adUnitID) { adUnitID_ = adUnitID; }
    // Not retained; reads null once the controller is gone.
    platform::ViewController* rootViewController() const;
    void setRootViewController(platform::ViewController* controller);
    PXBDelegateManager* delegateManager() const { return delegateManager_.get(); }
    std::shared_ptr<PXBDelegateManager> sharedDelegateManager() const { return delegateManager_; }
    // Nothing ever sets it: a banner never reports that it refreshed by itself.
    bool hasAutoRefreshed() const { return hasAutoRefreshed_; }
    // The visible ad web view; none until an ad is loaded into it.
    PXBWebView* webView() const { return webView_; }
    // The request being served: the object's own copy of the last one loaded.
    const PXBRequestPrivate* request() const { return request_.get(); }

    // Takes its own copy of `request` (a new empty request when there is none).
    void loadRequest(const PXBRequest* request);
    // Drops every delayed message aimed at this object.
    void cancelPendingActions();

  private:
    PXBBannerView* adView_ = nullptr;
    QString adUnitID_;
    std::shared_ptr<PXBDelegateManager> delegateManager_;
    QPointer<QObject> rootViewController_;
    PXBWebView* webView_ = nullptr;
    std::shared_ptr<PXBRequestPrivate> request_;
    bool hasAutoRefreshed_ = false;
};
