// Carries out what an ad asks to open after a click: another application (through the desktop),
// the in-app browser, a full-screen web app or the mail composer. The web view delegates own one
// each and set its context before calling it.
#pragma once

#include "ads/bridge/PXBNotification.h"
#include "ads/core/PXBDelegateManager.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

class PXBObjectPrivate;
class PXBWebAppViewController;

namespace platform {
class ViewController;
class WebView;
}  // namespace platform

class PXBOpener : public QObject {
  public:
    PXBOpener();
    ~PXBOpener() override;

    // Receives willLeaveApplication; handed on to every screen the opener presents.
    std::shared_ptr<PXBDelegateManager> delegateManager() const { return delegateManager_; }
    void setDelegateManager(std::shared_ptr<PXBDelegateManager> manager) {
        delegateManager_ = std::move(manager);
    }
    // Not retained: the controller over which screens and the composer are presented.
    platform::ViewController* viewController() const;
    void setViewController(platform::ViewController* controller);
    // The page that led to the click, sent as "Referer" by the browser.
    QUrl referringURL() const { return referringURL_; }
    void setReferringURL(const QUrl& url) { referringURL_ = url; }
    // Not retained: the ad web view that asked.
    platform::WebView* openingWebView() const;
    void setOpeningWebView(platform::WebView* webView);
    // Not retained: the ad whose pending click trackers fire on every open.
    PXBObjectPrivate* adController() const;
    void setAdController(PXBObjectPrivate* ad);

    void openApp(const QUrl& url);
    void openBrowserToURL(const QUrl& url, int supportedOrientations);
    void openWebApp(const QUrl& url, int supportedOrientations);
    void openWebAppWithHTML(const QString& html, int supportedOrientations);
    void openNotification(const PXBNotification& notification);
    void openEmailComposer(const QUrl& mailtoURL);
    // Fires the ad's pending click tracking URLs.
    void didOpen();

  private:
    std::shared_ptr<PXBDelegateManager> delegateManager_;
    QPointer<QObject> viewController_;
    QUrl referringURL_;
    QPointer<QObject> openingWebView_;
    QPointer<QObject> adController_;
};
