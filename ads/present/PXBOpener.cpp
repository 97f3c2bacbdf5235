#include "ads/present/PXBOpener.h"

#include "ads/core/PXBObjectPrivate.h"
#include "ads/net/PXBClickTracker.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "ads/present/PXBBrowserController.h"
#include "ads/present/PXBWebAppViewController.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/mailcomposer.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/webview.h"

#include <QCoreApplication>

namespace {

constexpr int kMaximumWaits = 3;
constexpr double kWaitSeconds = 0.3;

// Shared by every opener: two quick clicks share the budget of waits.
int repeatCount = 0;

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
    platform::performAfter(qApp, 0,
                           [url] { platform::Application::sharedApplication()->openURL(url); });
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

PXBObjectPrivate* PXBOpener::adController() const {
    return static_cast<PXBObjectPrivate*>(adController_.data());
}

void PXBOpener::setAdController(PXBObjectPrivate* ad) {
    adController_ = ad;
}

void PXBOpener::didOpen() {
    fireClickTrackers(adController_);
}

void PXBOpener::openApp(const QUrl& url) {
    if (url.isEmpty()) {
        return;
    }
    attemptToLeave(LeaveContext{delegateManager_, adController_}, url);
}

void PXBOpener::openBrowserToURL(const QUrl& url, int supportedOrientations) {
    if (viewController() == nullptr || url.isEmpty()) {
        return;
    }
    auto browser = PXBViewController::create<PXBBrowserController>();
    browser->setSupportedOrientations(supportedOrientations);
    browser->setOpeningWebView(openingWebView());
    browser->loadReferringURL(url, referringURL_);
    browser->setDelegateManager(delegateManager_);
    browser->presentFromViewController(viewController());
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
    if (viewController() == nullptr || url.isEmpty()) {
        return;
    }
    std::shared_ptr<PXBWebAppViewController> webApp = webAppOrientations(supportedOrientations);
    webApp->load(url);
    webApp->presentFromViewController(viewController());
    didOpen();
}

void PXBOpener::openWebAppWithHTML(const QString& html, int supportedOrientations) {
    if (viewController() == nullptr || html.isNull()) {
        return;
    }
    std::shared_ptr<PXBWebAppViewController> webApp = webAppOrientations(supportedOrientations);
    webApp->loadHTMLBaseURL(html, QUrl());
    webApp->presentFromViewController(viewController());
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
    const QUrl clickURL = request->url.isEmpty()
                              ? QUrl()
                              : PXBStatistics::sharedStatistics().urlForClick(request->url);
    if (action == QLatin1String("browser")) {
        openBrowserToURL(clickURL, orientation);
    } else if (action == QLatin1String("webapp")) {
        if (!clickURL.isEmpty()) {
            openWebApp(clickURL, orientation);
        } else if (!request->html.isNull()) {
            openWebAppWithHTML(request->html, orientation);
        }
    } else if (action == QLatin1String("video")) {
        openBrowserToURL(clickURL, orientation);
    } else if (action == QLatin1String("call") || action == QLatin1String("app")) {
        // Calls and applications go where every other action goes: out of the application.
        openApp(clickURL);
    } else {
        openApp(clickURL);
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
    mail.cc = list("cc");
    mail.bcc = list("bcc");
    mail.subject = fields.value(QStringLiteral("subject")).toString();
    mail.body = fields.value(QStringLiteral("body")).toString();
    return mail;
}

void PXBOpener::openEmailComposer(const QUrl& mailtoURL) {
    if (viewController() == nullptr || mailtoURL.isEmpty()) {
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
