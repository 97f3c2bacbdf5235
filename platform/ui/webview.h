// A web view over Qt WebEngine with the phone web view's interface: its delegate decides on every
// navigation of the page and its frames (including in-ad message URLs and schemes the engine does
// not load) and hears when the page's loads start, finish and fail. Script evaluation is
// asynchronous here.
#pragma once

#include "platform/error.h"
#include "platform/ui/view.h"
#include "platform/urlrequest.h"
#include "platform/weakref.h"

#include <QVariant>

#include <functional>
#include <memory>

namespace platform {

class WebView;

// Navigation types, numbered as the phone numbered them. "Form resubmitted" has no counterpart
// in the engine and is never reported.
enum WebViewNavigationType : int {
    WebViewNavigationTypeLinkClicked = 0,
    WebViewNavigationTypeFormSubmitted = 1,
    WebViewNavigationTypeBackForward = 2,
    WebViewNavigationTypeReload = 3,
    WebViewNavigationTypeFormResubmitted = 4,
    WebViewNavigationTypeOther = 5,
};

// Data detector bits (kept for callers: the engine detects nothing in page text).
enum DataDetectorTypes : int {
    DataDetectorTypeNone = 0,
    DataDetectorTypePhoneNumber = 1,
    DataDetectorTypeLink = 2,
    DataDetectorTypeAddress = 4,
    DataDetectorTypeCalendarEvent = 8,
    DataDetectorTypeAll = -1,
};

inline const QString kWebViewErrorDomain = QStringLiteral("WebKitErrorDomain");
// Error code of a load stopped by stopLoading() or replaced by another load.
inline constexpr int kWebViewErrorCancelled = -999;
// Error code of a load whose own next step was refused: a redirect the delegate turned down or
// that leads to a scheme the engine does not load.
inline constexpr int kWebViewErrorFrameLoadInterrupted = 102;
// Error code of an HTML string too large for the engine to load.
inline constexpr int kWebViewErrorPageTooLarge = 103;
// Error code of a load whose page's content process crashed or was killed.
inline constexpr int kWebViewErrorContentProcessEnded = 104;
// Error code of every load of a program whose web engine cannot be loaded.
inline constexpr int kWebViewErrorEngineUnavailable = 105;

class WebViewDelegate : public Referenceable {
  public:
    // Asked for every navigation of the page and of its frames, whoever started it: loadRequest
    // (type 5), an HTML string (a request for its base URL, "about:blank" without one, type 5),
    // links the user clicks (0), forms (1), scripts setting the location (5), target=_blank links
    // and window.open (shown in this view), back/forward (2), reload (3), redirects (5) and a
    // frame's source (5). The request carries the page's "User-Agent" header field (and any
    // fields the caller of loadRequest set). Refusing loads nothing; refusing a redirect of the
    // running load ends that load with kWebViewErrorFrameLoadInterrupted. A navigation the delegate
    // allows to a scheme the engine does not load (qmsg, torvin, mailto, tel, ...) is dropped:
    // such URLs never reach the desktop from here. Start, finish and failure are the page's only:
    // a frame's load reports none of its own.
    virtual bool webViewShouldStartLoadWithRequestNavigationType(WebView*, const UrlRequest&,
                                                                 int /*navigationType*/) {
        return true;
    }
    virtual void webViewDidStartLoad(WebView*) {}
    // Also for a page the server sent with an error status (404, 500, ...): it arrived and shows.
    // Failures are the network's (kNetworkErrorDomain), stops and the engine's own errors.
    virtual void webViewDidFinishLoad(WebView*) {}
    virtual void webViewDidFailLoadWithError(WebView*, const Error&) {}
    // The page's content process ended abnormally (crashed, or the system killed it), whether or
    // not a load was running: the view is blank until its next load.
    virtual void webViewContentProcessDidEnd(WebView*) {}
};

// What loads the pages of a WebView: the web engine, or a stand-in set with setBackendFactory
// (the dispatch fuzz target's page that goes nowhere).
class WebViewBackend {
  public:
    virtual ~WebViewBackend() = default;
    virtual void loadRequest(const UrlRequest& request) = 0;
    virtual void loadHTML(const QString& html, const QUrl& baseUrl) = 0;
    virtual void evaluateJavaScript(const QString& script,
                                    std::function<void(const QVariant&)> done) = 0;
    // The phone's conversion: String(result), "" for undefined, null or an exception.
    virtual void evaluateJavaScriptToString(const QString& script,
                                            std::function<void(const QString&)> done) = 0;
    virtual bool canGoBack() const = 0;
    virtual bool canGoForward() const = 0;
    virtual void goBack() = 0;
    virtual void goForward() = 0;
    virtual void reload() = 0;
    virtual void stopLoading() = 0;
    // See WebView::abandonLoad.
    virtual void abandonLoad() { stopLoading(); }
    virtual QString userAgent() const = 0;
    // The process that runs the page's content, 0 when there is none.
    virtual qint64 contentProcessId() const { return 0; }
    // The view's settings changed (see WebView's setters).
    virtual void settingsChanged() {}
    // See WebView::preparePage.
    virtual void preparePage() {}
    // The view is about to be shown or was resized.
    virtual void viewShown() {}
    virtual void viewResized() {}
};

class WebView : public View {
    Q_OBJECT
  public:
    using BackendFactory = std::function<std::unique_ptr<WebViewBackend>(WebView*)>;

    explicit WebView(QWidget* parent = nullptr);
    explicit WebView(const QRect& frame, QWidget* parent = nullptr);
    ~WebView() override;

    // Not retained.
    WebViewDelegate* delegate() const { return delegate_.get(); }
    void setDelegate(WebViewDelegate* delegate) { delegate_.reset(delegate); }

    void loadRequest(const UrlRequest& request);
    // Loads `html` as a page of `baseUrl` (its origin, and the base for relative links). The
    // engine caps such a page at 2 MB.
    void loadHTMLStringBaseURL(const QString& html, const QUrl& baseUrl);

    // Runs `script` in the page's main world. Asynchronous: `done` gets the result later on the
    // main thread (never during the call), converted as the phone did: String(result), or ""
    // for undefined, null or an exception. `done` is not called if the view is destroyed first.
    void stringByEvaluatingJavaScriptFromString(const QString& script,
                                                std::function<void(const QString&)> done = {});
    // The same, with the engine's own conversion of the result (numbers, strings, lists, maps).
    void evaluateJavaScript(const QString& script, std::function<void(const QVariant&)> done = {});

    bool canGoBack() const;
    bool canGoForward() const;
    void goBack();
    void goForward();
    void reload();
    void stopLoading();
    // Stops a load that is taking too long; when the page's content process does not answer
    // either (a script that never yields), the process is ended a second later and the view is
    // blank until its next load, which starts a new one.
    void abandonLoad();
    // Makes the page and starts its content process now, for a first load that is coming: that
    // load then need not wait for them. The delegate hears nothing of it; a view that has a page
    // already is left as it is.
    void preparePage() { backend()->preparePage(); }
    // Between webViewDidStartLoad and webViewDidFinishLoad / webViewDidFailLoadWithError.
    bool isLoading() const { return loading_; }
    // The last main-frame request the delegate allowed.
    const UrlRequest& request() const { return request_; }
    QString userAgent();
    // The process that runs the page's content, 0 while there is none. When it ends abnormally
    // (a crash, the system killing it), a running load fails and the view stays blank until the
    // next load.
    qint64 contentProcessId() const { return backend_ ? backend_->contentProcessId() : 0; }

    // Settings. Scaling to fit zooms a page wider than the view out to the view's width.
    bool scalesPageToFit() const { return scalesPageToFit_; }
    void setScalesPageToFit(bool on);
    int dataDetectorTypes() const { return dataDetectorTypes_; }
    void setDataDetectorTypes(int types) { dataDetectorTypes_ = types; }
    // Media always plays inline on the desktop; the flag is kept for callers.
    bool allowsInlineMediaPlayback() const { return allowsInlineMediaPlayback_; }
    void setAllowsInlineMediaPlayback(bool on) { allowsInlineMediaPlayback_ = on; }
    // Maps to the engine's "playback requires a user gesture"; on by default, as on the phone.
    bool mediaPlaybackRequiresUserAction() const { return mediaRequiresUserAction_; }
    void setMediaPlaybackRequiresUserAction(bool on);
    // A view that is not opaque shows its background colour (clear: what lies beneath) where
    // the page has none.
    void setBackgroundColor(const QColor& color) override;
    void setOpaque(bool opaque) override;
    // The colour the page is drawn on, from the two settings above.
    QColor pageBackgroundColor() const;

    // The view's back-end. The engine's is made when first asked for (a load, a script, the
    // user agent), not with the view: the engine's libraries load then (see webengine.h).
    WebViewBackend* backend();

    // Every WebView created while a factory is set uses the back-end it makes (a stand-in for
    // the engine); an empty factory restores the engine.
    static void setBackendFactory(BackendFactory factory);

    // For back-ends: report the engine's events. shouldStartLoad asks the delegate (adding the
    // "User-Agent" field to the request when missing) and records an allowed main-frame request.
    bool shouldStartLoad(UrlRequest request, int navigationType, bool mainFrame = true);
    void didStartLoad();
    void didFinishLoad();
    void didFailLoad(const Error& error);
    void contentProcessDidEnd();

    // Records user input: the engine reports script navigations as link clicks, so a "link
    // clicked" without a press on this view in the last two seconds is reported as "other".
    void touchReached(QEvent::Type type) override;
    bool hadRecentUserInput() const;

    // The user's activation of this view: a press on it (or Enter or Space while it has the
    // keyboard focus) less than kUserActivationSeconds ago that nothing has used yet. Whatever a
    // page does to get out of its view is allowed only with one, and uses it up, so one press
    // lets a page open one thing at most.
    static constexpr double kUserActivationSeconds = 5.0;
    bool hasUserActivation() const;
    bool consumeUserActivation();
    // A view opened by a press elsewhere carries that press for its first steps (a redirect to
    // another application as it loads).
    void inheritUserActivation(const WebView* from);
    // While the delegate is asked about a navigation: whether it is a frame's rather than the
    // page's own.
    bool isNavigatingFrame() const { return navigatingFrame_; }

  protected:
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    void init();

    WeakRef<WebViewDelegate> delegate_;
    std::unique_ptr<WebViewBackend> backend_;
    UrlRequest request_;
    bool loading_ = false;
    bool scalesPageToFit_ = false;
    int dataDetectorTypes_ = DataDetectorTypePhoneNumber;
    bool allowsInlineMediaPlayback_ = false;
    bool mediaRequiresUserAction_ = true;
    double lastUserInput_ = -1e9;
    double activatedAt_ = -1e9;
    bool activationUsed_ = false;
    bool navigatingFrame_ = false;
};

}  // namespace platform
