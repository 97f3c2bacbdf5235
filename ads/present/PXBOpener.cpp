#include "ads/present/PXBOpener.h"

#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBObjectPrivate.h"
#include "ads/inspect/PXBInspection.h"
#include "ads/net/PXBClickTracker.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "ads/present/PXBBrowserController.h"
#include "ads/present/PXBWebAppViewController.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/log.h"
#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/mailcomposer.h"
#include "platform/ui/notice.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/webview.h"
#include "platform/ui/window.h"

#include <QCoreApplication>

namespace {

constexpr int kMaximumWaits = 3;
constexpr double kWaitSeconds = 0.3;

// Shared by every opener: two quick clicks share the budget of waits.
int repeatCount = 0;

// The composer on screen, if any: one at a time, so that an ad cannot stack them.
QPointer<QObject> composerUp;

bool isMail(const QUrl& url) {
    return url.scheme().compare(QLatin1String("mailto"), Qt::CaseInsensitive) == 0;
}

void refuse(const QString& what, const QString& why) {
    platform::logDebug(QStringLiteral("<Sorvel> Refused to open %1: %2").arg(what, why));
    PXBInspection::refused(QStringLiteral("open %1").arg(what), why);
}

// What an attempt to leave the application needs; the waits carry it, not the opener, which may
// be gone by then (the browser's throw-away opener always is).
struct LeaveContext {
    std::shared_ptr<PXBDelegateManager> delegateManager;
    QPointer<QObject> adController;
};

void fireClickTrackers(QObject* adController) {
    if (auto* ad = static_cast<PXBObjectPrivate*>(adController)) {
        ad->trackURLs(ad->pendingClickURLs());
    }
}

void attemptToLeave(const LeaveContext& context, const QUrl& url) {
    fireClickTrackers(context.adController);
    if (PXBClickTracker::activeTrackings() && repeatCount < kMaximumWaits) {
        ++repeatCount;
        platform::performAfter(qApp, kWaitSeconds,
                               [context, url] { attemptToLeave(context, url); });
        return;
    }
    repeatCount = 0;
    if (context.delegateManager) {
        context.delegateManager->willLeaveApplication();
    }
    platform::performAfter(qApp, 0, [url] {
        platform::Application* app = platform::Application::sharedApplication();
        if (!app->openURL(url)) {
            // Not silent: the user pressed the ad and expects something to open.
            platform::Notice::show(app->keyWindow(),
                                   QObject::tr("Nothing on this computer opens \u201c%1\u201d.")
                                       .arg(url.toDisplayString().left(80)));
        }
    });
}

// The composer's delegate. It lives with the composer, so that Cancel and Send still close it
// when the banner has moved on to its next ad (and its opener is gone) while the user writes.
class ComposerCloser : public QObject, public platform::MailComposeViewControllerDelegate {
  public:
    ComposerCloser(PXBOpener* opener, platform::MailComposeViewController* composer)
        : QObject(composer), opener_(opener), viewController_(opener->viewController()) {}

    void mailComposeControllerDidFinishWithResult(platform::MailComposeViewController* composer,
                                                  int result,
                                                  const platform::Error& error) override {
        if (composerUp == composer) {
            composerUp = nullptr;
        }
        if (opener_ != nullptr) {
            opener_->mailComposeControllerDidFinishWithResult(composer, result, error);
            return;
        }
        composer->dismissModalViewControllerAnimated(true);
        if (viewController_ != nullptr) {
            viewController_->becomeFirstResponder();
        }
    }

  private:
    QPointer<PXBOpener> opener_;
    QPointer<platform::ViewController> viewController_;
};

}  // namespace

PXBOpener::PXBOpener() = default;

PXBOpener::~PXBOpener() = default;

platform::ViewController* PXBOpener::viewController() const {
    return static_cast<platform::ViewController*>(viewController_.data());
}

void PXBOpener::setViewController(platform::ViewController* controller) {
    viewController_ = controller;
}

platform::WebView* PXBOpener::openingWebView() const {
    return static_cast<platform::WebView*>(openingWebView_.data());
}

void PXBOpener::setOpeningWebView(platform::WebView* webView) {
    openingWebView_ = webView;
}

platform::WebView* PXBOpener::askingWebView() const {
    return static_cast<platform::WebView*>(askingWebView_.data());
}

void PXBOpener::setAskingWebView(platform::WebView* webView) {
    askingWebView_ = webView;
    askedByPage_ = true;
}

bool PXBOpener::mayOpen(const QUrl& url) {
    if (isMail(url)) {
        return url.toString(QUrl::FullyEncoded).size() <= kMaximumMailURLLength;
    }
    return PXBConfiguration::mayHandOver(url);
}

bool PXBOpener::userPressed(const QString& what) {
    // On the desktop nothing stands between an ad and the user: no single application in front,
    // no other application opening only visibly. So whatever leaves the banner needs the user's
    // own press on the page that asks, and one press opens one thing.
    if (!askedByPage_) {
        return true;
    }
    platform::WebView* asking = askingWebView();
    if (asking != nullptr && asking->consumeUserActivation()) {
        return true;
    }
    refuse(what, QStringLiteral("no press on the ad"));
    return false;
}

bool PXBOpener::mayPresent(const QString& what) {
    if (viewController() == nullptr) {
        return false;
    }
    // One ad screen at a time: a second one would only stack over the first, and a page could
    // pile them up faster than the user can close them.
    if (PXBViewController::screensUp() > 0) {
        refuse(what, QStringLiteral("an ad screen is up already"));
        return false;
    }
    return userPressed(what);
}

void PXBOpener::carryPress(platform::WebView* opened) const {
    // The screen exists because of the press: its first load may still lead to another
    // application (a store link behind a click tracker) without a press of its own.
    if (opened != nullptr && askedByPage_) {
        opened->inheritUserActivation(askingWebView());
    }
}

PXBObjectPrivate* PXBOpener::adController() const {
    return static_cast<PXBObjectPrivate*>(adController_.data());
}

void PXBOpener::setAdController(PXBObjectPrivate* ad) {
    adController_ = ad;
}

void PXBOpener::didOpen() {
    fireClickTrackers(adController_);
}

bool PXBOpener::mayLeaveFor(const QUrl& url) {
    if (!PXBConfiguration::mayHandOver(url)) {
        refuse(QStringLiteral("a %1: URL").arg(url.scheme().left(32)),
               QStringLiteral("not a scheme the desktop may have"));
        return false;
    }
    return userPressed(QStringLiteral("another application"));
}

void PXBOpener::openApp(const QUrl& url) {
    if (url.isEmpty()) {
        return;
    }
    // Mail is written in the application, never handed over.
    if (isMail(url)) {
        openEmailComposer(url);
        return;
    }
    if (mayLeaveFor(url)) {
        attemptToLeave(LeaveContext{delegateManager_, adController_}, url);
    }
}

void PXBOpener::openBrowserToURL(const QUrl& url, int supportedOrientations) {
    if (url.isEmpty() || !mayPresent(QStringLiteral("the browser"))) {
        return;
    }
    presentBrowser(url, supportedOrientations);
}

void PXBOpener::presentBrowser(const QUrl& url, int supportedOrientations) {
    auto browser = PXBViewController::create<PXBBrowserController>();
    browser->setSupportedOrientations(supportedOrientations);
    browser->setOpeningWebView(openingWebView());
    browser->loadReferringURL(url, referringURL_);
    browser->setDelegateManager(delegateManager_);
    browser->presentFromViewController(viewController());
    carryPress(browser->webView());
    didOpen();
}

std::shared_ptr<PXBWebAppViewController> PXBOpener::webAppOrientations(int supportedOrientations) {
    auto webApp = PXBViewController::create<PXBWebAppViewController>();
    webApp->setSupportedOrientations(supportedOrientations);
    webApp->setOpeningWebView(openingWebView());
    webApp->setDelegateManager(delegateManager_);
    return webApp;
}

void PXBOpener::openWebApp(const QUrl& url, int supportedOrientations) {
    if (url.isEmpty() || !mayPresent(QStringLiteral("a web app"))) {
        return;
    }
    presentWebApp(url, QString(), supportedOrientations);
}

void PXBOpener::openWebAppWithHTML(const QString& html, int supportedOrientations) {
    if (html.isNull() || !mayPresent(QStringLiteral("a web app"))) {
        return;
    }
    presentWebApp(QUrl(), html, supportedOrientations);
}

void PXBOpener::presentWebApp(const QUrl& url, const QString& html, int supportedOrientations) {
    std::shared_ptr<PXBWebAppViewController> webApp = webAppOrientations(supportedOrientations);
    if (url.isEmpty()) {
        webApp->loadHTMLBaseURL(html, QUrl());
    } else {
        webApp->load(url);
    }
    webApp->presentFromViewController(viewController());
    carryPress(webApp->webView());
    didOpen();
}

std::optional<PXBOpener::OpenRequest> PXBOpener::openRequestFromParameters(
    const QVariantMap& parameters) {
    OpenRequest request;
    request.action = parameters.value(QStringLiteral("a")).toString();
    // Only text makes a URL: a number or a list under "u" counts as none.
    const QVariant u = parameters.value(QStringLiteral("u"));
    if (u.typeId() == QMetaType::QString && !u.toString().isEmpty()) {
        // Text that is no well-formed URL (a broken escape, a blank) is no URL either, rather
        // than a relative one that opens a screen onto nothing.
        request.url = QUrl(u.toString(), QUrl::StrictMode);
        if (!request.url.isValid()) {
            request.url = QUrl();
        }
    }
    const QVariant html = parameters.value(QStringLiteral("html"));
    if (html.typeId() == QMetaType::QString) {
        request.html = html.toString();
    }
    if (request.url.isEmpty() &&
        (request.html.isNull() || request.action != QLatin1String("webapp"))) {
        return std::nullopt;
    }

    const QVariant o = parameters.value(QStringLiteral("o"));
    request.orientation = PXBOrientationAny;
    if (o.typeId() == QMetaType::QString) {
        if (o.toString() == QLatin1String("p")) {
            request.orientation = PXBOrientationPortrait;
        } else if (o.toString() == QLatin1String("l")) {
            request.orientation = PXBOrientationLandscape;
        }
    }
    return request;
}

void PXBOpener::openNotification(const PXBNotification& notification) {
    const std::optional<OpenRequest> request = openRequestFromParameters(notification.parameters());
    if (!request) {
        return;
    }
    const QString& action = request->action;
    const int orientation = request->orientation;
    // Everything is checked before the click is counted: a refused open counts nothing.
    const auto click = [&request] {
        return PXBStatistics::sharedStatistics().urlForClick(request->url);
    };
    if (action == QLatin1String("browser") || action == QLatin1String("video")) {
        if (!request->url.isEmpty() && mayPresent(QStringLiteral("the browser"))) {
            presentBrowser(click(), orientation);
        }
    } else if (action == QLatin1String("webapp")) {
        if ((!request->url.isEmpty() || !request->html.isNull()) &&
            mayPresent(QStringLiteral("a web app"))) {
            presentWebApp(request->url.isEmpty() ? QUrl() : click(), request->html, orientation);
        }
    } else if (isMail(request->url)) {
        openEmailComposer(request->url);
    } else if (mayLeaveFor(request->url)) {
        // Calls, applications and every other action go out of the application, to the
        // desktop, and only with the schemes it may have.
        attemptToLeave(LeaveContext{delegateManager_, adController_}, click());
    }
}

PXBOpener::MailFields PXBOpener::mailFieldsFromURL(const QUrl& mailtoURL) {
    // The caller only sends "mailto:" URLs; the prefix is dropped unread.
    const QString rest = mailtoURL.toString(QUrl::FullyEncoded).mid(7);
    const qsizetype question = rest.indexOf(QLatin1Char('?'));
    const QVariantMap fields =
        question < 0 ? QVariantMap()
                     : PXBNetworkUtilities::dictionaryFromQueryString(rest.mid(question + 1));
    const auto list = [&fields](const char* key) {
        const QString value = fields.value(QLatin1String(key)).toString();
        return value.isNull() ? QStringList() : value.split(QLatin1Char(','));
    };
    MailFields mail;
    mail.recipient = question < 0 ? rest : rest.left(question);
    // Every recipient is one the user sees and may remove, but not a list longer than anyone
    // reads before pressing Send.
    int room = kMaximumMailAddresses - int(!mail.recipient.isEmpty());
    const auto capped = [&room](QStringList addresses) {
        if (addresses.size() > room) {
            platform::logDebug(QStringLiteral("<Sorvel> A mail link names more than %1 "
                                              "recipients; the rest are dropped")
                                   .arg(kMaximumMailAddresses));
            addresses.resize(std::max(room, 0));
        }
        room -= int(addresses.size());
        return addresses;
    };
    mail.cc = capped(list("cc"));
    mail.bcc = capped(list("bcc"));
    mail.subject = fields.value(QStringLiteral("subject")).toString();
    mail.body = fields.value(QStringLiteral("body")).toString();
    return mail;
}

void PXBOpener::openEmailComposer(const QUrl& mailtoURL) {
    const QString what = QStringLiteral("the mail composer");
    if (viewController() == nullptr || mailtoURL.isEmpty()) {
        return;
    }
    if (composerUp != nullptr) {
        refuse(what, QStringLiteral("a composer is up already"));
        return;
    }
    if (mailtoURL.toString(QUrl::FullyEncoded).size() > kMaximumMailURLLength) {
        refuse(what,
               QStringLiteral("the mail link is longer than %1 bytes").arg(kMaximumMailURLLength));
        return;
    }
    if (!userPressed(what)) {
        return;
    }
    const MailFields mail = mailFieldsFromURL(mailtoURL);
    auto composer = std::make_shared<platform::MailComposeViewController>();
    composer->setMailComposeDelegate(new ComposerCloser(this, composer.get()));
    composer->setToRecipients({mail.recipient});
    composer->setCcRecipients(mail.cc);
    composer->setBccRecipients(mail.bcc);
    composer->setSubject(mail.subject);
    composer->setMessageBody(mail.body, false);
    composer->setModalTransitionStyle(platform::ModalTransitionStyleCoverVertical);
    viewController()->presentModalViewController(composer, true);
    composerUp = composer.get();
    didOpen();
}

void PXBOpener::mailComposeControllerDidFinishWithResult(
    platform::MailComposeViewController* composer, int /*result*/,
    const platform::Error& /*error*/) {
    composer->dismissModalViewControllerAnimated(true);
    if (platform::ViewController* controller = viewController()) {
        controller->becomeFirstResponder();
    }
}
