// The in-app browser an ad's click opens over the application: the advertiser's page above a
// toolbar of back, forward, reload (a spinner while loading), "open in the desktop's browser" and
// done, so the user can look at the page without leaving the application.
#pragma once

#include "ads/present/PXBViewController.h"

#include <QPointer>
#include <QUrl>

#include <memory>

class PXBWebView;
class PXBWebViewDelegate;

namespace platform {
class ActivityIndicatorView;
class BarButtonItem;
class Toolbar;
}  // namespace platform

class QLabel;

class PXBBrowserControllerPrivate : public PXBViewControllerPrivate {
    Q_OBJECT
  public:
    ~PXBBrowserControllerPrivate() override;

    QUrl urlToLoad;  // given before the web view existed, loaded when it is built
    QUrl referringURLToLoad;
    std::unique_ptr<PXBWebViewDelegate> webViewDelegate;
    // The views and items belong to the controller's view; the pointers follow them.
    QPointer<PXBWebView> webView;
    QPointer<platform::Toolbar> toolbar;
    QPointer<platform::BarButtonItem> flexibleSpaceButton;  // stands in four places of the bar
    QPointer<platform::BarButtonItem> backButton;
    QPointer<platform::BarButtonItem> backButtonDisabled;  // never filled
    QPointer<platform::BarButtonItem> forwardButton;
    QPointer<platform::BarButtonItem> forwardButtonDisabled;  // never filled
    QPointer<platform::BarButtonItem> reloadButton;
    QPointer<platform::BarButtonItem> safariButton;
    QPointer<platform::BarButtonItem> doneButton;
    QPointer<platform::BarButtonItem> spinnerContainingButton;
    QPointer<platform::ActivityIndicatorView> spinner;
    QPointer<QLabel> address;
};

class PXBBrowserController : public PXBViewController {
    Q_OBJECT
  public:
    // Heights of the toolbar, in points.
    static constexpr int kToolbarHeight = 44;
    static constexpr int kLandscapePhoneToolbarHeight = 30;
    // Height of the strip above the page that says where the page is.
    static constexpr int kAddressHeight = 20;

    ~PXBBrowserController() override;

    PXBWebView* webView() const;
    void setWebView(PXBWebView* webView);
    platform::Toolbar* toolbar() const;
    void setToolbar(platform::Toolbar* toolbar);

    // Loads `url` with `referringURL` as its "Referer" (none when empty); before the screen is
    // built the two are kept and loaded, once, when it first appears.
    void loadReferringURL(const QUrl& url, const QUrl& referringURL);
    void load(const QUrl& url) { loadReferringURL(url, QUrl()); }

    void back();
    void forward();
    void reload();
    void stop();
    // Hands the page to the desktop's browser; the in-app browser stays.
    void openInSafari();
    // Brings the toolbar and the address strip up to date with the page.
    void refreshToolbar();
    // What the address strip shows: the page's host and path, "Not secure" before a plain http
    // page's.
    QString shownAddress() const;

    void viewWillAppear(bool animated) override;
    void didRotateFromInterfaceOrientation(int fromOrientation) override;
    // A browser whose first page sent the user out of the application before anything finished
    // closes itself when the user comes back.
    void appDidEnterForeground();

  protected:
    void init() override;
    std::shared_ptr<PXBViewControllerPrivate> createPrivateData() const override;

  private:
    PXBBrowserControllerPrivate* vars() const;
    void createToolbarButtons();
    platform::BarButtonItem* buttonWithImage(const QImage& image, const QString& name, int width,
                                             bool enabled, void (PXBBrowserController::*action)());
};
