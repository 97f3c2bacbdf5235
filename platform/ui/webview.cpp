#include "platform/ui/webview.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/ui/webengine.h"

#include <QPointer>
#include <QTimer>

namespace platform {

namespace {

WebView::BackendFactory& backendFactory() {
    static WebView::BackendFactory factory;
    return factory;
}

// What a view loads with when the engine's module is missing or broken: every load fails, saying
// why, and scripts answer nothing.
class UnavailableBackend : public WebViewBackend {
  public:
    UnavailableBackend(WebView* view, QString why) : view_(view), why_(std::move(why)) {}

    void loadRequest(const UrlRequest& request) override { fail(request.url()); }
    void loadHTML(const QString& /*html*/, const QUrl& baseUrl) override { fail(baseUrl); }
    void evaluateJavaScript(const QString& /*script*/,
                            std::function<void(const QVariant&)> done) override {
        later([done = std::move(done)] {
            if (done) {
                done(QVariant());
            }
        });
    }
    void evaluateJavaScriptToString(const QString& /*script*/,
                                    std::function<void(const QString&)> done) override {
        later([done = std::move(done)] {
            if (done) {
                done(QString());
            }
        });
    }
    bool canGoBack() const override { return false; }
    bool canGoForward() const override { return false; }
    void goBack() override {}
    void goForward() override {}
    void reload() override {}
    void stopLoading() override {}
    QString userAgent() const override { return {}; }

  private:
    void later(std::function<void()> call) { QTimer::singleShot(0, view_, std::move(call)); }
    void fail(const QUrl& url) {
        later([view = view_,
               error = Error(kWebViewErrorDomain, kWebViewErrorEngineUnavailable,
                             {{Error::kLocalizedDescriptionKey, why_}, {Error::kUrlKey, url}})] {
            view->didStartLoad();
            if (view != nullptr) {
                view->didFailLoad(error);
            }
        });
    }

    QPointer<WebView> view_;
    QString why_;
};

}  // namespace

WebView::WebView(QWidget* parent) : View(parent) {
    init();
}

WebView::WebView(const QRect& frame, QWidget* parent) : View(frame, parent) {
    init();
}

void WebView::touchReached(QEvent::Type type) {
    lastUserInput_ = monotonicSeconds();
    activatedAt_ = lastUserInput_;
    activationUsed_ = false;
    View::touchReached(type);
}

bool WebView::hasUserActivation() const {
    return !activationUsed_ && monotonicSeconds() - activatedAt_ < kUserActivationSeconds;
}

bool WebView::consumeUserActivation() {
    if (!hasUserActivation()) {
        return false;
    }
    activationUsed_ = true;
    return true;
}

void WebView::inheritUserActivation(const WebView* from) {
    if (from != nullptr) {
        activatedAt_ = from->activatedAt_;
        activationUsed_ = false;
    }
}

bool WebView::hadRecentUserInput() const {
    return monotonicSeconds() - lastUserInput_ < 2.0;
}

void WebView::init() {
    watchTouches();
    // A stand-in is made at once; the engine's back-end when the view first needs it, so that
    // views made before the first window is drawn do not load the engine in front of it.
    if (backendFactory()) {
        backend_ = backendFactory()(this);
    }
}

WebViewBackend* WebView::backend() {
    if (backend_ == nullptr) {
        QString error;
        const WebEngine* engine = webEngine(&error);
        if (engine == nullptr) {
            static const bool told =
                (logLine(QStringLiteral("<Sorvel> No web pages: ") + error), true);
            Q_UNUSED(told);
        }
        backend_ = engine != nullptr ? engine->makeBackend(this)
                                     : std::make_unique<UnavailableBackend>(this, error);
        backend_->settingsChanged();
        if (isVisible()) {
            backend_->viewShown();
        }
    }
    return backend_.get();
}

WebView::~WebView() {
    delegate_.reset();
    backend_.reset();
}

void WebView::setBackendFactory(BackendFactory factory) {
    backendFactory() = std::move(factory);
}

void WebView::loadRequest(const UrlRequest& request) {
    if (request.url().isEmpty()) {
        return;
    }
    backend()->loadRequest(request);
}

void WebView::loadHTMLStringBaseURL(const QString& html, const QUrl& baseUrl) {
    backend()->loadHTML(html, baseUrl);
}

void WebView::evaluateJavaScript(const QString& script, std::function<void(const QVariant&)> done) {
    backend()->evaluateJavaScript(script, std::move(done));
}

void WebView::stringByEvaluatingJavaScriptFromString(const QString& script,
                                                     std::function<void(const QString&)> done) {
    backend()->evaluateJavaScriptToString(script, std::move(done));
}

bool WebView::canGoBack() const {
    return backend_ != nullptr && backend_->canGoBack();
}
bool WebView::canGoForward() const {
    return backend_ != nullptr && backend_->canGoForward();
}
void WebView::goBack() {
    backend()->goBack();
}
void WebView::goForward() {
    backend()->goForward();
}
void WebView::reload() {
    backend()->reload();
}
void WebView::stopLoading() {
    if (backend_ != nullptr) {
        backend_->stopLoading();
    }
}

void WebView::abandonLoad() {
    if (backend_ != nullptr) {
        backend_->abandonLoad();
    }
}
QString WebView::userAgent() {
    return backend()->userAgent();
}

void WebView::setScalesPageToFit(bool on) {
    scalesPageToFit_ = on;
    if (backend_ != nullptr) {
        backend_->settingsChanged();
    }
}

void WebView::setMediaPlaybackRequiresUserAction(bool on) {
    mediaRequiresUserAction_ = on;
    if (backend_ != nullptr) {
        backend_->settingsChanged();
    }
}

void WebView::setBackgroundColor(const QColor& color) {
    View::setBackgroundColor(color);
    if (backend_) {
        backend_->settingsChanged();
    }
}

void WebView::setOpaque(bool opaque) {
    View::setOpaque(opaque);
    if (backend_) {
        backend_->settingsChanged();
    }
}

QColor WebView::pageBackgroundColor() const {
    if (isOpaque()) {
        return backgroundColor().isValid() ? QColor(backgroundColor().rgb()) : QColor(Qt::white);
    }
    return backgroundColor().isValid() ? backgroundColor() : QColor(Qt::transparent);
}

bool WebView::shouldStartLoad(UrlRequest request, int navigationType, bool mainFrame) {
    if (request.valueForHTTPHeaderField(QStringLiteral("User-Agent")).isEmpty()) {
        request.setValueForHTTPHeaderField(backend()->userAgent(), QStringLiteral("User-Agent"));
    }
    QPointer<WebView> self(this);
    if (WebViewDelegate* d = delegate()) {
        navigatingFrame_ = !mainFrame;
        const bool allowed =
            d->webViewShouldStartLoadWithRequestNavigationType(this, request, navigationType);
        if (self == nullptr) {
            return false;
        }
        navigatingFrame_ = false;
        if (!allowed) {
            return false;
        }
    }
    if (self == nullptr) {
        return false;
    }
    if (mainFrame) {
        request_ = request;
    }
    return true;
}

void WebView::didStartLoad() {
    loading_ = true;
    if (WebViewDelegate* d = delegate()) {
        d->webViewDidStartLoad(this);
    }
}

void WebView::didFinishLoad() {
    loading_ = false;
    if (WebViewDelegate* d = delegate()) {
        d->webViewDidFinishLoad(this);
    }
}

void WebView::didFailLoad(const Error& error) {
    loading_ = false;
    if (WebViewDelegate* d = delegate()) {
        d->webViewDidFailLoadWithError(this, error);
    }
}

void WebView::contentProcessDidEnd() {
    if (WebViewDelegate* d = delegate()) {
        d->webViewContentProcessDidEnd(this);
    }
}

void WebView::showEvent(QShowEvent* event) {
    View::showEvent(event);
    if (backend_ != nullptr) {
        backend_->viewShown();
    }
}

void WebView::resizeEvent(QResizeEvent* event) {
    View::resizeEvent(event);
    if (backend_ != nullptr) {
        backend_->viewResized();
    }
}

}  // namespace platform
