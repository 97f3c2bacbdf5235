// A hidden page that already holds the support script, made shortly before a refresh is due, so
// that building the next ad URL does not wait for a page to load. Each page serves one build
// only and is made after the last build ended: no request ever sees another request's script
// state.
#pragma once

#include "platform/ui/webview.h"

#include <QString>
#include <QUrl>

#include <memory>

class PXBScriptPage : public platform::WebViewDelegate {
  public:
    PXBScriptPage(const QString& script, const QUrl& baseURL);
    ~PXBScriptPage();

    // Loaded, untouched by any navigation of its own, and made from this script and base URL.
    bool isReadyFor(const QString& script, const QUrl& baseURL) const;
    // The hidden view, without a delegate, for the caller to set its own.
    std::unique_ptr<platform::WebView> takeView();

    // The page before any build: the script alone.
    static QString scriptPage(const QString& script);
    // What the build runs in a page that holds the script: the same call the page made from
    // scratch carries, as a script element of its own, so that an error in it reaches the
    // page's console in the same words.
    static QString buildCall(const QString& parametersJSON);

    bool webViewShouldStartLoadWithRequestNavigationType(platform::WebView* webView,
                                                         const platform::UrlRequest& request,
                                                         int navigationType) override;
    void webViewDidFinishLoad(platform::WebView* webView) override;
    void webViewDidFailLoadWithError(platform::WebView* webView,
                                     const platform::Error& error) override;
    void webViewContentProcessDidEnd(platform::WebView* webView) override;

  private:
    std::unique_ptr<platform::WebView> view_;
    QString script_;
    QUrl baseURL_;
    bool asked_ = false;    // the view asked for its HTML string
    bool loaded_ = false;   // and the page has loaded
    bool spoiled_ = false;  // the page did anything else: it serves no build
};
