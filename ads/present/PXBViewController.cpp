#include "ads/present/PXBViewController.h"

#include "ads/core/PXBParameterKeys.h"
#include "ads/core/PXBPrivateUtilities.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/log.h"
#include "platform/notificationcenter.h"
#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/view.h"
#include "platform/ui/webview.h"
#include "platform/ui/window.h"

#include <QCoreApplication>

namespace {

const QString kSettingsMessage = QStringLiteral("settings");

// The status bar is hidden only for screens that cover everything.
bool coversStatusBar(const platform::ViewController* controller) {
    return !PXBIdentifierUtilities::isOSAtLeastMajor(3, 2, 0) ||
           controller->modalPresentationStyle() == platform::ModalPresentationStyleFullScreen;
}

int upCount = 0;

}  // namespace

PXBViewController::PXBViewController() = default;

PXBViewController::~PXBViewController() {
    // The application hears "did dismiss" only once the screen is really gone.
    if (presentedOverApplication_ && private_ != nullptr && private_->delegateManager) {
        private_->delegateManager->didDismissScreen();
    }
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    PXBPrivateUtilities::removePrivateObjectForKey(this);
}

void PXBViewController::init() {
    std::shared_ptr<PXBViewControllerPrivate> data = createPrivateData();
    private_ = data.get();
    PXBPrivateUtilities::setPrivateObject(std::move(data), this);
    setSupportedOrientations(PXBOrientationAny);
    platform::View* v = view();
    v->setAutoresizingMask(platform::ViewAutoresizingFlexibleWidth |
                           platform::ViewAutoresizingFlexibleHeight);
    v->setOpaque(true);
    v->setBackgroundColor(Qt::black);
    v->setClipsToBounds(true);
    setModalTransitionStyle(platform::ModalTransitionStyleCoverVertical);
    platform::NotificationCenter::defaultCenter().addObserver(
        this, kSettingsMessage, v,
        [this](const platform::Notification& n) { settingsChanged(n.userInfo); });
    // A screen still up when the application ends goes with the window it covers, while the
    // application object is still there for its teardown; holding itself, it would outlive
    // both.
    platform::NotificationCenter::defaultCenter().addObserver(
        this, platform::kApplicationWillTerminateNotification, nullptr,
        [this](const platform::Notification&) {
            upCount -= int(self_ != nullptr);
            self_.reset();
        });
}

int PXBViewController::screensUp() {
    return upCount;
}

void PXBViewController::keepUp(std::shared_ptr<PXBViewController> self) {
    upCount += int(self != nullptr) - int(self_ != nullptr);
    // Released on the next turn: the caller may be this screen's own button or page.
    platform::performAfter(qApp, 0, [old = std::exchange(self_, std::move(self))] {});
}

std::shared_ptr<PXBViewControllerPrivate> PXBViewController::createPrivateData() const {
    return std::make_shared<PXBViewControllerPrivate>();
}

int PXBViewController::supportedOrientations() const {
    return private_->supportedOrientations;
}

void PXBViewController::setSupportedOrientations(int orientations) {
    if (orientations != PXBOrientationNone) {
        private_->supportedOrientations = orientations;
    }
}

platform::WebView* PXBViewController::openingWebView() const {
    return private_->openingWebView;
}

void PXBViewController::setOpeningWebView(platform::WebView* webView) {
    private_->openingWebView = webView;
}

std::shared_ptr<PXBDelegateManager> PXBViewController::delegateManager() const {
    if (!private_->delegateManager) {
        private_->delegateManager = PXBDelegateManager::create();
    }
    return private_->delegateManager;
}

void PXBViewController::setDelegateManager(std::shared_ptr<PXBDelegateManager> manager) {
    private_->delegateManager = std::move(manager);
}

bool PXBViewController::statusBarWasHidden() const {
    return private_->statusBarWasHidden;
}

void PXBViewController::setStatusBarWasHidden(bool hidden) {
    private_->statusBarWasHidden = hidden;
}

void PXBViewController::presentFromViewController(platform::ViewController* presenter) {
    if (presenter == nullptr) {
        platform::logLine(
            QStringLiteral("<Sorvel> No UIViewController supplied to the ad.  Cannot continue."));
        return;
    }
    view()->setUserInteractionEnabled(false);
    keepUp(std::static_pointer_cast<PXBViewController>(shared_from_this()));
    platform::NotificationCenter::defaultCenter().postNotification(
        PXBViewControllerWillPresentFullScreen, this);

    if (qobject_cast<PXBViewController*>(presenter) != nullptr) {
        private_->interactingWithParent = false;
        presenter->presentModalViewController(shared_from_this(), true);
        return;
    }

    private_->interactingWithParent = true;
    presentedOverApplication_ = true;
    const QPointer<platform::ViewController> presenterLeft(presenter);
    delegateManager()->willPresentScreen();
    if (presenterLeft == nullptr) {
        // The application let the banner go as it heard of the screen, and with it what the
        // screen would have covered: nothing is presented.
        platform::NotificationCenter::defaultCenter().postNotification(
            PXBViewControllerDidRelinquishFullScreen, this);
        keepUp(nullptr);
        return;
    }
    platform::Application* app = platform::Application::sharedApplication();
    if (coversStatusBar(this)) {
        private_->statusBarWasHidden = app->isStatusBarHidden();
        if (!private_->statusBarWasHidden) {
            app->setStatusBarHidden(true, false);
        }
    }
    // The screen saver stays away while the ad screen is up.
    private_->publisherIdleTimerDisabled = app->isIdleTimerDisabled();
    app->setIdleTimerDisabled(true);
    presentSelfFrom(presenter);
}

void PXBViewController::presentSelfFrom(platform::ViewController* presenter) {
    platform::Window* key = platform::Application::sharedApplication()->keyWindow();
    if (platform::ViewController* root = key != nullptr ? key->rootViewController() : nullptr) {
        root->presentModalViewController(shared_from_this(), true);
        return;
    }
    presenter->presentModalViewController(shared_from_this(), true);
    // Without a root controller the appearance callback may never come; viewDidAppear runs its
    // work only once, so a second call is harmless.
    QPointer<PXBViewController> guard(this);
    platform::performAfter(this, 0.6, [guard] {
        if (guard != nullptr) {
            guard->viewDidAppear(false);
        }
    });
}

void PXBViewController::viewDidAppear(bool animated) {
    if (view()->isUserInteractionEnabled()) {
        return;
    }
    platform::ViewController::viewDidAppear(animated);
    view()->setUserInteractionEnabled(true);
    if (isFirstPXBViewController() && private_->interactingWithParent) {
        private_->interactingWithParent = false;
    }
}

bool PXBViewController::escapePressed() {
    relinquishScreen();
    return true;
}

void PXBViewController::relinquishScreen() {
    if (!self_) {
        return;  // not on screen (a second close while the first one runs)
    }
    view()->setUserInteractionEnabled(false);
    keepUp(nullptr);

    platform::ViewController* presenting = presentingViewController();
    if (isFirstPXBViewController()) {
        private_->interactingWithParent = true;
        delegateManager()->willDismissScreen();
        platform::Application* app = platform::Application::sharedApplication();
        if (coversStatusBar(this) && !private_->statusBarWasHidden) {
            app->setStatusBarHidden(false, false);
        }
        app->setIdleTimerDisabled(private_->publisherIdleTimerDisabled);
    } else {
        private_->interactingWithParent = false;
    }
    if (presenting != nullptr) {
        presenting->dismissModalViewControllerAnimated(true);
    }
    platform::NotificationCenter::defaultCenter().postNotification(
        PXBViewControllerDidRelinquishFullScreen, this);
}

void PXBViewController::viewDidDisappear(bool animated) {
    platform::ViewController::viewDidDisappear(animated);
    PXBStatistics& statistics = PXBStatistics::sharedStatistics();
    statistics.endTimingNamed(kPXBParameterPriorLandingPageDuration);
    statistics.endTimingNamed(kPXBParameterPriorClickLatency);
    if (isFirstPXBViewController() && private_->interactingWithParent) {
        private_->interactingWithParent = false;
        if (private_->appClosing) {
            delegateManager()->willLeaveApplication();
        }
    }
}

bool PXBViewController::isFirstPXBViewController() const {
    return qobject_cast<PXBViewController*>(parentViewController()) == nullptr;
}

int PXBViewController::orientationFromString(const QString& string) {
    if (string == QLatin1String("any")) {
        return PXBOrientationAny;
    }
    if (string == QLatin1String("portrait")) {
        return PXBOrientationPortrait;
    }
    if (string == QLatin1String("landscape")) {
        return PXBOrientationLandscape;
    }
    return PXBOrientationNone;
}

void PXBViewController::settingsChanged(const QVariantMap& userInfo) {
    setSupportedOrientations(
        orientationFromString(userInfo.value(QStringLiteral("supportedorientations")).toString()));
}

bool PXBViewController::shouldAutorotateToInterfaceOrientation(int orientation) {
    switch (supportedOrientations()) {
        case PXBOrientationPortrait:
            return orientation == 1 || orientation == 2;
        case PXBOrientationLandscape:
            return orientation == 3 || orientation == 4;
        default:
            return true;
    }
}
