#include "ads/core/PXBScriptPage.h"

#include <QJsonArray>
#include <QJsonDocument>

PXBScriptPage::PXBScriptPage(const QString& script, const QUrl& baseURL)
    : view_(std::make_unique<platform::WebView>(QRect(0, 0, 1, 1))),
      script_(script),
      baseURL_(baseURL) {
    view_->setHidden(true);
    view_->setDelegate(this);
    view_->loadHTMLStringBaseURL(scriptPage(script), baseURL);
}

PXBScriptPage::~PXBScriptPage() {
    if (view_) {
        view_->setDelegate(nullptr);
        // A page of ours may be what is reporting right now: let it unwind first.
        view_.release()->deleteLater();
    }
}

bool PXBScriptPage::isReadyFor(const QString& script, const QUrl& baseURL) const {
    return view_ && loaded_ && !spoiled_ && script == script_ && baseURL == baseURL_;
}

std::unique_ptr<platform::WebView> PXBScriptPage::takeView() {
    if (view_) {
        view_->setDelegate(nullptr);
    }
    return std::move(view_);
}

QString PXBScriptPage::scriptPage(const QString& script) {
    return QStringLiteral("<html><head><script>") + script +
           QStringLiteral("</script></head><body></body></html>");
}

QString PXBScriptPage::buildCall(const QString& parametersJSON) {
    const QString call = QStringLiteral("ZELM_buildAdURL(%1);").arg(parametersJSON);
    const QByteArray quoted = QJsonDocument(QJsonArray{call}).toJson(QJsonDocument::Compact);
    return QStringLiteral(
               "(function(){var s=document.createElement('script');s.text=%1;"
               "(document.head||document.documentElement).appendChild(s);})()")
        .arg(QString::fromUtf8(quoted.mid(1, quoted.size() - 2)));
}

bool PXBScriptPage::webViewShouldStartLoadWithRequestNavigationType(
    platform::WebView* /*webView*/, const platform::UrlRequest& /*request*/,
    int /*navigationType*/) {
    // Only the page's own HTML string loads. A message or a move the script makes before any
    // build has nobody to answer it: the page is set aside and the build starts from scratch,
    // where the same script will say it again to someone who listens.
    if (!asked_) {
        asked_ = true;
        return true;
    }
    spoiled_ = true;
    return false;
}

void PXBScriptPage::webViewDidFinishLoad(platform::WebView* /*webView*/) {
    loaded_ = true;
}

void PXBScriptPage::webViewDidFailLoadWithError(platform::WebView* /*webView*/,
                                                const platform::Error& /*error*/) {
    spoiled_ = true;
}

void PXBScriptPage::webViewContentProcessDidEnd(platform::WebView* /*webView*/) {
    spoiled_ = true;
}
