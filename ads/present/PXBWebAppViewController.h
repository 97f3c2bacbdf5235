// The full-screen, chrome-less screen in which an ad runs a web app: a page from a URL or from
// HTML covering the whole screen, with only a close button in the top-left corner and a spinner
// until the first page has loaded.
#pragma once

#include "ads/present/PXBViewController.h"

#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

class PXBObjectPrivate;
class PXBWebAppWebViewDelegate;
class PXBWebView;

namespace platform {
class ActivityIndicatorView;
class Button;
}  // namespace platform

class PXBWebAppViewControllerPrivate : public PXBViewControllerPrivate {
    Q_OBJECT
  public:
    // Hands the web view and its delegate over to be released a little later (see
    // PXBWebAppWebViewDelegate::releaseWithWebView).
    ~PXBWebAppViewControllerPrivate() override;

    QUrl urlToLoad;
    QString htmlToLoad;
    QUrl htmlBaseURLToLoad;
    std::unique_ptr<PXBWebAppWebViewDelegate> webViewDelegate;
    QPointer<PXBWebView> webView;
    QPointer<platform::Button> closeButton;
    QPointer<platform::ActivityIndicatorView> loadingSpinner;
    // Nothing sets it on a web app screen; handed to the page delegate's opener as it is.
    QPointer<PXBObjectPrivate> adController;
};

class PXBWebAppViewController : public PXBViewController {
    Q_OBJECT
  public:
    static constexpr int kCloseButtonSize = 32;
    static constexpr int kSpinnerSize = 20;

    ~PXBWebAppViewController() override;

    PXBWebView* webView() const;
    void setWebView(PXBWebView* webView);
    PXBObjectPrivate* adController() const;
    void setAdController(PXBObjectPrivate* ad);

    // Before the screen is built, the URL or HTML is kept and shown when it first appears (the
    // URL wins when both were given). An empty URL or null HTML changes nothing.
    void load(const QUrl& url);
    void loadHTMLBaseURL(const QString& html, const QUrl& baseURL);

    void viewWillAppear(bool animated) override;
    void viewDidAppear(bool animated) override;
    void viewDidDisappear(bool animated) override;
    void didRotateFromInterfaceOrientation(int fromOrientation) override;

  protected:
    void init() override;
    std::shared_ptr<PXBViewControllerPrivate> createPrivateData() const override;

  private:
    PXBWebAppViewControllerPrivate* vars() const;
};
