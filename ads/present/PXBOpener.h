// Carries out what an ad asks to open after a click: another application (through the desktop),
// the in-app browser, a full-screen web app or the mail composer. The web view delegates own one
// each and set its context before calling it. It is also where the client's rules for leaving the
// banner hold: each open needs a fresh press on the ad web view that asked and uses it up, only
// one ad screen and one composer are up at a time, and the desktop gets only safe schemes.
#pragma once

#include "ads/bridge/PXBNotification.h"
#include "ads/core/PXBDelegateManager.h"
#include "platform/error.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

#include <memory>
#include <optional>

class PXBObjectPrivate;
class PXBWebAppViewController;

namespace platform {
class MailComposeViewController;
class ViewController;
class WebView;
}  // namespace platform

class PXBOpener : public QObject {
  public:
    // What an in-ad "open" message asks for.
    struct OpenRequest {
        QString action;  // "a" as sent: "browser", "webapp", "video"; anything else leaves the app
        QUrl url;        // "u", when it is text making a well-formed URL
        QString html;    // "html", when it is text; null otherwise
        int orientation = 0;  // "o": "p" portrait, "l" landscape, anything else any
    };
    // Nothing when the message names nothing that can be opened: no URL, and no HTML for a web app.
    static std::optional<OpenRequest> openRequestFromParameters(const QVariantMap& parameters);

    // The fields of a "mailto:" URL, as the composer is filled with them.
    struct MailFields {
        QString recipient;
        QStringList cc;   // "cc" split at ","
        QStringList bcc;  // "bcc" split at ","
        QString subject;
        QString body;
    };
    // A "mailto:" URL longer than this is refused whole: the composer never has to lay out
    // megabytes of text an ad made up.
    static constexpr qsizetype kMaximumMailURLLength = 64 * 1024;
    // Recipients beyond this many (recipient, then "cc", then "bcc") are dropped.
    static constexpr int kMaximumMailAddresses = 50;
    static MailFields mailFieldsFromURL(const QUrl& mailtoURL);

    // Whether a click on `url` can lead anywhere: the composer for "mailto:", the desktop for the
    // schemes it may have (see PXBConfiguration::mayHandOver).
    static bool mayOpen(const QUrl& url);

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
    // Not retained: the web view whose press each open needs and uses up. Once set, an open
    // without a fresh press on it (or after it is gone) is refused; an opener never given one
    // acts for the application's own controls (the browser's toolbar), which only the user
    // presses.
    platform::WebView* askingWebView() const;
    void setAskingWebView(platform::WebView* webView);
    // Not retained: the ad whose pending click trackers fire on every open.
    PXBObjectPrivate* adController() const;
    void setAdController(PXBObjectPrivate* ad);

    // Another application for the URL, through the desktop, on the next turn. While a click
    // tracking is in flight it waits for it, at most three times 0.3 s (shared by all openers);
    // the waits go on after the opener is gone.
    void openApp(const QUrl& url);
    // Each needs a viewController and a URL (or HTML); without them nothing happens.
    void openBrowserToURL(const QUrl& url, int supportedOrientations);
    void openWebApp(const QUrl& url, int supportedOrientations);
    void openWebAppWithHTML(const QString& html, int supportedOrientations);
    // A configured web app screen, not presented yet.
    std::shared_ptr<PXBWebAppViewController> webAppOrientations(int supportedOrientations);
    // An in-ad "open" message: "a" the action, "u" the URL, "html", "o" the orientation.
    void openNotification(const PXBNotification& notification);
    // The mail composer filled from a "mailto:" URL (recipient, "cc", "bcc", "subject", "body").
    void openEmailComposer(const QUrl& mailtoURL);
    // The composer's end, whatever its result: it goes, and the viewController takes the keys.
    void mailComposeControllerDidFinishWithResult(platform::MailComposeViewController* composer,
                                                  int result, const platform::Error& error);
    // Fires the ad's pending click tracking URLs.
    void didOpen();

  private:
    // Whether the user's press allows opening `what` now; uses the press up. A refusal is
    // logged with `what`.
    bool userPressed(const QString& what);
    // The same, once it is sure there is somewhere to present a screen and none is up.
    bool mayPresent(const QString& what);
    // The same, once it is sure the desktop may have `url`.
    bool mayLeaveFor(const QUrl& url);
    void carryPress(platform::WebView* opened) const;
    void presentBrowser(const QUrl& url, int supportedOrientations);
    // From `html` when `url` is empty.
    void presentWebApp(const QUrl& url, const QString& html, int supportedOrientations);

    std::shared_ptr<PXBDelegateManager> delegateManager_;
    QPointer<QObject> askingWebView_;
    bool askedByPage_ = false;
    QPointer<QObject> viewController_;
    QUrl referringURL_;
    QPointer<QObject> openingWebView_;
    QPointer<QObject> adController_;
};
