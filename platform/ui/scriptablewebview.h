// A web view without an engine, for tests: it records what the code under test asks of it and
// lets the test play the page's part (navigations, load ends, script results), so that delegate
// calls can be driven without starting Qt WebEngine.
#pragma once

#include "platform/ui/webview.h"

#include <QStringList>

namespace platform {

class ScriptedWebViewBackend : public QObject, public WebViewBackend {
    Q_OBJECT
  public:
    explicit ScriptedWebViewBackend(WebView* view) : view_(view) {}

    // The back-end of `view` if it is a scripted one.
    static ScriptedWebViewBackend* of(WebView* view);
    // Makes every WebView created from now on (subclasses too) scripted; undo with
    // WebView::setBackendFactory({}).
    static void installForNewWebViews();

    // --- What the page does (the test plays it) ---
    // Offers a navigation to the delegate as the engine would. When allowed and `loads` is set,
    // the load starts at once and finishes on a later turn (unless autoFinish is off).
    bool navigate(const UrlRequest& request, int navigationType, bool loads = true);
    void startLoad();
    void finishLoad();
    void failLoad(const Error& error);
    // Loads end by themselves on the next turn unless this is off (then call finishLoad).
    void setAutoFinish(bool on) { autoFinish_ = on; }
    // Answers scripts; the default answers every script with an invalid value ("").
    void setScriptHandler(std::function<QVariant(const QString&)> handler) {
        scriptHandler_ = std::move(handler);
    }
    void setCanGoBack(bool can) { canGoBack_ = can; }
    void setCanGoForward(bool can) { canGoForward_ = can; }
    void setUserAgent(const QString& agent) { userAgent_ = agent; }

    // --- What the code under test asked ---
    const QList<UrlRequest>& loadedRequests() const { return requests_; }
    const QStringList& loadedHTML() const { return html_; }
    const QList<QUrl>& loadedBaseURLs() const { return baseUrls_; }
    const QStringList& evaluatedScripts() const { return scripts_; }
    const QStringList& actions() const { return actions_; }  // "back", "forward", "reload", "stop"

    // WebViewBackend
    void loadRequest(const UrlRequest& request) override;
    void loadHTML(const QString& html, const QUrl& baseUrl) override;
    void evaluateJavaScript(const QString& script,
                            std::function<void(const QVariant&)> done) override;
    void evaluateJavaScriptToString(const QString& script,
                                    std::function<void(const QString&)> done) override;
    bool canGoBack() const override { return canGoBack_; }
    bool canGoForward() const override { return canGoForward_; }
    void goBack() override;
    void goForward() override;
    void reload() override;
    void stopLoading() override;
    QString userAgent() const override { return userAgent_; }

  private:
    void navigateLater(const UrlRequest& request, int navigationType);

    WebView* view_;
    bool autoFinish_ = true;
    bool loading_ = false;
    bool canGoBack_ = false;
    bool canGoForward_ = false;
    QString userAgent_ = QStringLiteral("Mozilla/5.0 (X11; Linux x86_64) ScriptedWebView");
    std::function<QVariant(const QString&)> scriptHandler_;
    QList<UrlRequest> requests_;
    QStringList html_;
    QList<QUrl> baseUrls_;
    QStringList scripts_;
    QStringList actions_;
};

// A WebView that is always scripted.
class ScriptableWebView : public WebView {
    Q_OBJECT
  public:
    explicit ScriptableWebView(QWidget* parent = nullptr);
    ScriptedWebViewBackend* script() const;
};

}  // namespace platform
