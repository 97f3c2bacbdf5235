#include "ads/present/PXBBrowserController.h"

#include "ads/bridge/PXBBrowserWebViewDelegate.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/present/PXBIntrinsicImages.h"
#include "ads/present/PXBOpener.h"
#include "ads/present/PXBWebView.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/notificationcenter.h"
#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/controls.h"
#include "platform/urlrequest.h"

#include <QHBoxLayout>
#include <QLabel>

using platform::BarButtonItem;

namespace {

// One line that shortens itself in the middle to its width, keeping the host and the path's end.
class AddressLabel : public QLabel {
  public:
    using QLabel::QLabel;
    void setAddress(const QString& address) {
        address_ = address;
        elide();
    }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QLabel::resizeEvent(event);
        elide();
    }

  private:
    void elide() {
        setText(fontMetrics().elidedText(address_, Qt::ElideMiddle, contentsRect().width()));
    }
    QString address_;
};

}  // namespace

PXBBrowserControllerPrivate::~PXBBrowserControllerPrivate() {
    if (webView != nullptr) {
        webView->setDelegate(nullptr);
    }
    webViewDelegate.reset();
    if (webView != nullptr) {
        // Stops the page's scripts and media at once; the view itself goes with its superview.
        webView->loadHTMLStringBaseURL(QString(), QUrl());
    }
}

PXBBrowserController::~PXBBrowserController() {
    platform::NotificationCenter::defaultCenter().removeObserver(this);
}

void PXBBrowserController::init() {
    PXBViewController::init();
    view()->setBackgroundColor(Qt::white);
    if (PXBIdentifierUtilities::isOSAtLeastMajor(4, 0, 0)) {
        platform::NotificationCenter::defaultCenter().addObserver(
            this, platform::kApplicationWillEnterForegroundNotification, nullptr,
            [this](const platform::Notification&) { appDidEnterForeground(); });
    }
}

std::shared_ptr<PXBViewControllerPrivate> PXBBrowserController::createPrivateData() const {
    return std::make_shared<PXBBrowserControllerPrivate>();
}

PXBBrowserControllerPrivate* PXBBrowserController::vars() const {
    return static_cast<PXBBrowserControllerPrivate*>(privateData());
}

PXBWebView* PXBBrowserController::webView() const {
    return vars()->webView;
}

void PXBBrowserController::setWebView(PXBWebView* webView) {
    vars()->webView = webView;
}

platform::Toolbar* PXBBrowserController::toolbar() const {
    return vars()->toolbar;
}

void PXBBrowserController::setToolbar(platform::Toolbar* toolbar) {
    vars()->toolbar = toolbar;
}

void PXBBrowserController::loadReferringURL(const QUrl& url, const QUrl& referringURL) {
    if (url.isEmpty()) {
        return;
    }
    PXBBrowserControllerPrivate* v = vars();
    if (v->webView == nullptr) {
        v->urlToLoad = url;
        v->referringURLToLoad = referringURL;
        return;
    }
    platform::UrlRequest request(url);
    if (!referringURL.isEmpty()) {
        request.setValueForHTTPHeaderField(referringURL.toString(QUrl::FullyEncoded),
                                           QStringLiteral("Referer"));
    }
    v->webView->loadRequest(request);
}

void PXBBrowserController::viewWillAppear(bool animated) {
    PXBViewController::viewWillAppear(animated);
    PXBBrowserControllerPrivate* v = vars();
    if (v->webView != nullptr) {
        return;
    }
    // The masks are the phone's: on a phone the toolbar may grow in height with its superview.
    int toolbarHeight = kToolbarHeight;
    int webViewMask = 0;
    int toolbarMask = 0;
    if (!PXBIdentifierUtilities::sharedInstance()->isPhoneIdiom()) {
        webViewMask = platform::ViewAutoresizingFlexibleWidth |
                      platform::ViewAutoresizingFlexibleHeight;  // 18
        toolbarMask = platform::ViewAutoresizingFlexibleWidth |
                      platform::ViewAutoresizingFlexibleTopMargin |
                      platform::ViewAutoresizingFlexibleBottomMargin;  // 42
    } else {
        webViewMask = platform::ViewAutoresizingFlexibleWidth |
                      platform::ViewAutoresizingFlexibleHeight |
                      platform::ViewAutoresizingFlexibleBottomMargin;  // 50
        toolbarMask = platform::ViewAutoresizingFlexibleWidth |
                      platform::ViewAutoresizingFlexibleTopMargin |
                      platform::ViewAutoresizingFlexibleHeight |
                      platform::ViewAutoresizingFlexibleBottomMargin;  // 58
        if (PXBIdentifierUtilities::sharedInstance()->isOrientationLandscape()) {
            toolbarHeight = kLandscapePhoneToolbarHeight;
        }
    }
    const QRect bounds = view()->bounds();
    // On the desktop nothing else says whose page this is: the strip above it does.
    auto* strip = new platform::View(QRect(0, 0, bounds.width(), kAddressHeight));
    strip->setAutoresizingMask(platform::ViewAutoresizingFlexibleWidth |
                               platform::ViewAutoresizingFlexibleBottomMargin);
    view()->addSubview(strip);
    auto* address = new AddressLabel(strip);
    auto* layout = new QHBoxLayout(strip);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(address);
    address->setAutoFillBackground(true);
    address->setBackgroundRole(QPalette::Window);
    address->setForegroundRole(QPalette::WindowText);
    address->setContentsMargins(6, 0, 6, 0);
    address->setTextFormat(Qt::PlainText);
    address->setAccessibleName(tr("Page address"));
    v->address = address;
    auto* webView = new PXBWebView(
        QRect(0, kAddressHeight, bounds.width(), bounds.height() - toolbarHeight - kAddressHeight));
    v->webView = webView;
    webView->setAutoresizingMask(webViewMask);
    view()->addSubview(webView);
    // The opposite of the ad's own web view: the advertiser's page is an ordinary page.
    webView->setDataDetectorTypes(platform::DataDetectorTypeAll);

    v->webViewDelegate = std::make_unique<PXBBrowserWebViewDelegate>(this);
    v->webViewDelegate->setViewController(this);
    v->webViewDelegate->setOpeningWebView(openingWebView());
    // The page's own opener has no delegate manager: leaving the application is announced by
    // the opener of the ad itself and by the toolbar's desktop-browser button only.
    webView->setDelegate(v->webViewDelegate.get());

    if (!v->urlToLoad.isEmpty()) {
        const QUrl url = std::exchange(v->urlToLoad, QUrl());
        const QUrl referrer = std::exchange(v->referringURLToLoad, QUrl());
        loadReferringURL(url, referrer);
    }

    auto* bar = new platform::Toolbar(
        QRect(0, bounds.height() - toolbarHeight, bounds.width(), toolbarHeight));
    bar->setAutoresizingMask(toolbarMask);
    bar->setAutoresizesSubviews(true);
    bar->setTintColor(Qt::black);
    v->toolbar = bar;
    view()->addSubview(bar);

    createToolbarButtons();
    refreshToolbar();
}

BarButtonItem* PXBBrowserController::buttonWithImage(const QImage& image, const QString& name,
                                                     int width, bool enabled,
                                                     void (PXBBrowserController::*action)()) {
    BarButtonItem* item = BarButtonItem::withImage(
        image, platform::BarButtonItemStylePlain, [this, action] { (this->*action)(); }, vars());
    item->setWidth(width);
    item->setEnabled(enabled);
    item->setAccessibilityLabel(name);
    item->setIsAccessibilityElement(true);
    return item;
}

void PXBBrowserController::createToolbarButtons() {
    PXBBrowserControllerPrivate* v = vars();
    v->flexibleSpaceButton =
        BarButtonItem::withSystemItem(platform::BarButtonSystemItemFlexibleSpace, {}, v);

    v->backButton = buttonWithImage(PXBIntrinsicImages::browserBackButton(), QStringLiteral("Back"),
                                    27, false, &PXBBrowserController::back);
    v->forwardButton =
        buttonWithImage(PXBIntrinsicImages::browserForwardButton(), QStringLiteral("Forward"), 27,
                        false, &PXBBrowserController::forward);

    auto* spinner = new platform::ActivityIndicatorView(platform::ActivityIndicatorViewStyleWhite);
    spinner->setAutoresizingMask(platform::ViewAutoresizingFlexibleLeftMargin |
                                 platform::ViewAutoresizingFlexibleRightMargin);
    spinner->setFrame(QRect(0, 0, 20, 20));
    v->spinner = spinner;
    v->spinnerContainingButton = BarButtonItem::withCustomView(spinner, v);
    v->spinnerContainingButton->setWidth(20);
    v->spinnerContainingButton->setAccessibilityLabel(QStringLiteral("Spinner"));
    v->spinnerContainingButton->setIsAccessibilityElement(true);

    const auto systemButton = [this, v](int systemItem, void (PXBBrowserController::*action)(),
                                        const QString& name) {
        BarButtonItem* item = BarButtonItem::withSystemItem(
            systemItem, [this, action] { (this->*action)(); }, v);
        item->setAccessibilityLabel(name);
        item->setIsAccessibilityElement(true);
        return item;
    };
    v->reloadButton = systemButton(platform::BarButtonSystemItemRefresh,
                                   &PXBBrowserController::reload, QStringLiteral("Reload"));
    v->reloadButton->setWidth(27);
    v->safariButton =
        systemButton(platform::BarButtonSystemItemAction, &PXBBrowserController::openInSafari,
                     QStringLiteral("View in Safari"));
    v->safariButton->setWidth(27);
    v->safariButton->setEnabled(false);
    v->doneButton = systemButton(platform::BarButtonSystemItemDone,
                                 &PXBBrowserController::relinquishScreen, QStringLiteral("Done"));
    v->doneButton->setStyle(platform::BarButtonItemStyleDone);

    v->backButton->setToolTip(tr("Back"));
    v->forwardButton->setToolTip(tr("Forward"));
    v->reloadButton->setToolTip(tr("Reload the page"));
    v->safariButton->setToolTip(tr("Open the page in your web browser"));
    v->doneButton->setToolTip(tr("Close (Esc)"));
}

void PXBBrowserController::refreshToolbar() {
    PXBBrowserControllerPrivate* v = vars();
    if (v->webView == nullptr || v->toolbar == nullptr || v->backButton == nullptr) {
        return;
    }
    v->backButton->setEnabled(v->webView->canGoBack());
    v->forwardButton->setEnabled(v->webView->canGoForward());
    BarButtonItem* middle = nullptr;
    if (!v->webView->isLoading()) {
        middle = v->reloadButton;
        v->spinner->stopAnimating();
        v->safariButton->setEnabled(true);
    } else {
        middle = v->spinnerContainingButton;
        v->spinner->startAnimating();
        v->safariButton->setEnabled(false);
    }
    if (v->address != nullptr) {
        static_cast<AddressLabel*>(v->address.data())->setAddress(shownAddress());
        v->address->setToolTip(v->webView->request().url().toDisplayString());
    }
    BarButtonItem* space = v->flexibleSpaceButton;
    v->toolbar->setItems({v->backButton, space, v->forwardButton, space, middle, space,
                          v->safariButton, space, v->doneButton});
}

QString PXBBrowserController::shownAddress() const {
    const PXBWebView* web = webView();
    const QUrl url = web != nullptr ? web->request().url() : QUrl();
    if (url.isEmpty()) {
        return {};
    }
    // The host as it travels (punycode), so that letters borrowed from another script cannot
    // pass one site off as another.
    const QString where = url.host(QUrl::FullyEncoded) +
                          (url.port() > 0 ? QStringLiteral(":%1").arg(url.port()) : QString()) +
                          url.path();
    return url.scheme() == QLatin1String("http") ? tr("Not secure") + QStringLiteral(" · ") + where
                                                 : where;
}

void PXBBrowserController::back() {
    if (PXBWebView* web = webView(); web != nullptr && web->canGoBack()) {
        web->goBack();
    }
}

void PXBBrowserController::forward() {
    if (PXBWebView* web = webView(); web != nullptr && web->canGoForward()) {
        web->goForward();
    }
}

void PXBBrowserController::reload() {
    if (PXBWebView* web = webView()) {
        web->reload();
    }
}

void PXBBrowserController::stop() {
    if (PXBWebView* web = webView()) {
        web->stopLoading();
    }
}

void PXBBrowserController::openInSafari() {
    PXBWebView* web = webView();
    if (web == nullptr) {
        return;
    }
    // A throw-away opener: its work (waits included) does not need it to live on.
    PXBOpener opener;
    opener.setDelegateManager(delegateManager());
    opener.openApp(web->request().url());
    PXBStatistics::sharedStatistics().setBreakOutToSafari();
}

void PXBBrowserController::appDidEnterForeground() {
    PXBBrowserControllerPrivate* v = vars();
    if (v->webViewDelegate && !v->webViewDelegate->hasLoadedAtLeastOnce()) {
        QPointer<PXBBrowserController> guard(this);
        platform::performAfter(this, 0, [guard] {
            if (guard != nullptr) {
                guard->relinquishScreen();
            }
        });
    }
}

void PXBBrowserController::didRotateFromInterfaceOrientation(int fromOrientation) {
    PXBViewController::didRotateFromInterfaceOrientation(fromOrientation);
    PXBWebViewDelegate::notifyWebViewOfOrientationChange(webView(), interfaceOrientation());
}
