#include "platform/ui/scriptablewebview.h"

#include "platform/runloop.h"

#include <QPointer>

namespace platform {

ScriptedWebViewBackend* ScriptedWebViewBackend::of(WebView* view) {
    return view != nullptr ? dynamic_cast<ScriptedWebViewBackend*>(view->backend()) : nullptr;
}

void ScriptedWebViewBackend::installForNewWebViews() {
    WebView::setBackendFactory(
        [](WebView* view) { return std::make_unique<ScriptedWebViewBackend>(view); });
}

bool ScriptedWebViewBackend::navigate(const UrlRequest& request, int navigationType, bool loads) {
    QPointer<QObject> alive(this);
    if (!view_->shouldStartLoad(request, navigationType) || alive == nullptr) {
        return false;
    }
    if (loads) {
        startLoad();
    }
    return true;
}

void ScriptedWebViewBackend::startLoad() {
    loading_ = true;
    view_->didStartLoad();
    if (autoFinish_) {
        performAfter(this, 0, [this] {
            if (loading_) {
                finishLoad();
            }
        });
    }
}

void ScriptedWebViewBackend::finishLoad() {
    loading_ = false;
    view_->didFinishLoad();
}

void ScriptedWebViewBackend::failLoad(const Error& error) {
    loading_ = false;
    view_->didFailLoad(error);
}

void ScriptedWebViewBackend::navigateLater(const UrlRequest& request, int navigationType) {
    // The engine never calls the delegate during the load call.
    performAfter(this, 0, [this, request, navigationType] { navigate(request, navigationType); });
}

void ScriptedWebViewBackend::loadRequest(const UrlRequest& request) {
    requests_.append(request);
    navigateLater(request, WebViewNavigationTypeOther);
}

void ScriptedWebViewBackend::loadHTML(const QString& html, const QUrl& baseUrl) {
    html_.append(html);
    baseUrls_.append(baseUrl);
    navigateLater(UrlRequest(baseUrl.isEmpty() ? QUrl(QStringLiteral("about:blank")) : baseUrl),
                  WebViewNavigationTypeOther);
}

void ScriptedWebViewBackend::evaluateJavaScript(const QString& script,
                                                std::function<void(const QVariant&)> done) {
    scripts_.append(script);
    const QVariant result = scriptHandler_ ? scriptHandler_(script) : QVariant();
    performAfter(this, 0, [done = std::move(done), result] {
        if (done) {
            done(result);
        }
    });
}

void ScriptedWebViewBackend::evaluateJavaScriptToString(const QString& script,
                                                        std::function<void(const QString&)> done) {
    evaluateJavaScript(script, [done = std::move(done)](const QVariant& result) {
        if (done) {
            done(result.toString());
        }
    });
}

void ScriptedWebViewBackend::goBack() {
    actions_ << QStringLiteral("back");
}
void ScriptedWebViewBackend::goForward() {
    actions_ << QStringLiteral("forward");
}
void ScriptedWebViewBackend::reload() {
    actions_ << QStringLiteral("reload");
}
void ScriptedWebViewBackend::stopLoading() {
    actions_ << QStringLiteral("stop");
    if (loading_) {
        failLoad(Error::withDescription(kWebViewErrorDomain, kWebViewErrorCancelled,
                                        QStringLiteral("cancelled")));
    }
}

ScriptableWebView::ScriptableWebView(QWidget* parent)
    : WebView([](WebView* view) { return std::make_unique<ScriptedWebViewBackend>(view); },
              parent) {}

ScriptedWebViewBackend* ScriptableWebView::script() const {
    return static_cast<ScriptedWebViewBackend*>(backend());
}

}  // namespace platform
