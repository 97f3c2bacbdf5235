// The native end of the bridge from an ad page's script: every web view that shows ad content has
// one of these as its delegate. Message URLs ("qmsg", "torvin") become actions and are never
// loaded; other links are sorted by scheme into those loaded in place, mail, other applications
// and refused ones.
#pragma once

#include "platform/log.h"
#include "platform/ui/webview.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class PXBClickTracker;
class PXBOpener;

namespace platform {
class ViewController;
}

// Posted on the default notification centre with the web view as object; user info "u" (the
// URL's text) and, for message URLs, "a" (the message name).
inline const QString PXBWebViewDelegateDidReceiveWebAction = QStringLiteral("didReceiveWebAction");

class PXBWebViewDelegate : public QObject, public platform::WebViewDelegate {
    Q_OBJECT
  public:
    PXBWebViewDelegate();
    ~PXBWebViewDelegate() override;

    bool webViewShouldStartLoadWithRequestNavigationType(platform::WebView* webView,
                                                         const platform::UrlRequest& request,
                                                         int navigationType) override;
    void webViewDidFinishLoad(platform::WebView* webView) override;
    // A full screen whose page's process is gone closes: a blank screen helps nobody.
    void webViewContentProcessDidEnd(platform::WebView* webView) override;
    // Called once, at the first finished load.
    virtual void loadedFirstPage(platform::WebView* /*webView*/) {}

    PXBOpener* opener() const { return opener_.get(); }
    // Not retained: for a web view opened by another one, the web view that opened it.
    platform::WebView* openingWebView() const { return openingWebView_; }
    void setOpeningWebView(platform::WebView* webView) { openingWebView_ = webView; }
    // Not retained: the controller that presents full-screen content.
    platform::ViewController* viewController() const;
    void setViewController(platform::ViewController* controller);
    bool hasLoadedAtLeastOnce() const { return hasLoadedAtLeastOnce_; }

    // Tells the page its orientation (1 portrait 0°, 2 upside down 180°, 3 landscape right 90°,
    // 4 landscape left -90°) and calls its onorientationchange handler; other values do nothing.
    static void notifyWebViewOfOrientationChange(platform::WebView* webView, int orientation);
    // The script notifyWebViewOfOrientationChange evaluates, or empty for an unknown orientation.
    static QString orientationScript(int orientation);
    // Whether two pages' URLs share scheme, host and port (web pages only: no data: or
    // about: page is anyone's origin).
    static bool isSameOrigin(const QUrl& a, const QUrl& b);
    // The value's integer value, or -1 when the key is missing.
    static int intForKey(const QString& key, const QVariantMap& dictionary);

    // The answer goes to `sender`, the page that asked.
    void evaluateJavaScriptInOpener(const QVariantMap& parameters, platform::WebView* sender);
    void processCanOpenURLs(const QStringList& urls, platform::WebView* webView);
    void processTouchSignals(const QVariantMap& parameters);
    void trackURLString(const QString& urlString, bool appendSpamSignals);

  private:
    // One in-ad message: acted on, never loaded.
    void handleMessage(platform::WebView* webView, const QUrl& url);
    void logFromPage(const QString& text);

    bool hasLoadedAtLeastOnce_ = false;
    std::unique_ptr<PXBOpener> opener_;
    std::unique_ptr<PXBClickTracker> tracker_;
    QPointer<QObject> viewController_;
    QPointer<platform::WebView> openingWebView_;
    platform::LogRateLimiter pageLog_{20, 10000};
};
