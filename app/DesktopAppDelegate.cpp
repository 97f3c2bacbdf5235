#include "app/DesktopAppDelegate.h"

#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBRequestError.h"
#include "app/Bundle.h"
#include "platform/log.h"
#include "platform/ui/notice.h"
#include "platform/ui/webview.h"
#include "platform/ui/webviewpaint.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QIcon>
#include <QMouseEvent>
#include <QPixmap>
#include <QTimer>

#ifdef BRINDLE_WITH_ADSERVER
#include "adserver/adserver.h"
#endif

namespace {
void say(const QString& line) {
    qInfo().noquote() << "brindle-sounds:" << line;
}

// The page the banner shows its ad in. The program knows the banner by its public interface
// only, where the web view is opaque: it finds its platform view among the banner's children.
platform::WebView* adPageOf(PXBBannerView* banner) {
    return banner != nullptr ? banner->findChild<platform::WebView*>() : nullptr;
}

// A press and release of the left button on the widget under the view's middle (the web
// engine's own), through the application's event delivery as a user's would go.
void pressMiddleOf(QWidget* view) {
    if (view == nullptr) {
        return;
    }
    const QPoint middle = view->rect().center();
    QWidget* target = view->childAt(middle);
    if (target == nullptr) {
        target = view;
    }
    const QPointF local = target->mapFrom(view, middle);
    const QPointF global = view->mapToGlobal(middle);
    for (const QEvent::Type type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
        QMouseEvent event(type, local, local, global, Qt::LeftButton,
                          type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(target, &event);
    }
    say(QStringLiteral("pressed the ad"));
}
}  // namespace

void BannerMonitor::adViewDidReceiveAd(PXBBannerView*) {
    say(QStringLiteral("ad shown"));
    offlineTold_ = false;
    emit adShown();
}

void BannerMonitor::adViewDidFailToReceiveAdWithError(PXBBannerView* view,
                                                      const platform::Error& error) {
    say(QStringLiteral("no ad (%1 %2): %3")
            .arg(error.domain())
            .arg(error.code())
            .arg(error.localizedDescription()));
    // An empty banner says nothing by itself: the user hears once why (until an ad comes back),
    // and that the board is not affected. The client tries again by itself.
    if (error.domain() == kPXBErrorDomain && error.code() == kPXBErrorNetworkError &&
        !std::exchange(offlineTold_, true) && view != nullptr) {
        platform::Notice::show(
            view, QCoreApplication::translate("BannerMonitor",
                                              "The ad cannot reach its server and will try again. "
                                              "The sound board works as ever."));
        say(QStringLiteral("said on screen that the ad is offline"));
    }
    emit adFailed();
}

void BannerMonitor::adViewWillPresentScreen(PXBBannerView*) {
    say(QStringLiteral("ad opens a full screen"));
    emit screenPresented();
}

void BannerMonitor::adViewWillDismissScreen(PXBBannerView*) {
    say(QStringLiteral("ad's full screen closing"));
}

void BannerMonitor::adViewDidDismissScreen(PXBBannerView*) {
    say(QStringLiteral("ad's full screen closed"));
}

void BannerMonitor::adViewWillLeaveApplication(PXBBannerView*) {
    say(QStringLiteral("ad leaves the application"));
}

// The window's first paint: the moment the user sees the board (and the benchmarks time).
bool FirstFrameWatch::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint) {
        watched->removeEventFilter(this);
        say(QStringLiteral("board on screen"));
    }
    return false;
}

DesktopAppDelegate::DesktopAppDelegate(AppOptions options) : options_(std::move(options)) {}

DesktopAppDelegate::~DesktopAppDelegate() {
    if (viewController() != nullptr && viewController()->Qarbo() != nullptr) {
        viewController()->Qarbo()->setDelegate(nullptr);
    }
}

void DesktopAppDelegate::configureAdClient() {
    platform::setDebugLogging(options_.verbose);
    if (options_.inspector) {
        PXBConfiguration::showInspector();
    }
    if (options_.startsBuiltInAdServer()) {
#ifdef BRINDLE_WITH_ADSERVER
        adServer_ = new adserver::AdServer;
        adServerOwner_.reset(adServer_);
        if (adServer_->start(0)) {
            say(QStringLiteral("built-in ad server at %1").arg(adServer_->url().toString()));
            PXBConfiguration::setAdServerURL(adServer_->url());
            PXBConfiguration::setScriptHostURL(adServer_->url());
            return;
        }
        say(QStringLiteral("built-in ad server did not start: %1").arg(adServer_->errorString()));
        adServerOwner_.reset();
        adServer_ = nullptr;
#endif
        say(QStringLiteral("no ad server configured (--ad-server or SORVEL_AD_SERVER)"));
        return;
    }
    PXBConfiguration::setAdServerURL(options_.adServer);
    PXBConfiguration::setScriptHostURL(options_.scriptHost);
    say(QStringLiteral("ad server %1, script from %2")
            .arg(PXBConfiguration::adServerURL().toString(),
                 PXBConfiguration::scriptURL().toString()));
}

bool DesktopAppDelegate::applicationDidFinishLaunchingWithOptions(
    platform::Application* application, const QVariantMap& options) {
    // The dock and the window manager match the window to the menu entry by this name (on
    // Wayland it is the application id); the icon is the entry's, from the theme once
    // installed, else the copy built into the program. It comes after the first frame: reading
    // any image loads every image format plugin Qt has, and looking up the theme reads its
    // folders, which held the board back by a few milliseconds.
    QGuiApplication::setDesktopFileName(QStringLiteral("brindle-sounds"));
    application->whenFirstFrameDrawn(&monitor_, [] {
        QIcon icon(QStringLiteral(":/brindle-sounds/brindle-sounds-256.png"));
        icon.addFile(QStringLiteral(":/brindle-sounds/brindle-sounds-48.png"));
        QGuiApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("brindle-sounds"), icon));
    });
    if (!options_.newInstance) {
        QObject::connect(&instance_, &SingleInstance::showRequested, &instance_, [this] {
            say(QStringLiteral("another start brought the window to the front"));
            if (window() != nullptr) {
                QWidget* shown = window()->desktopWindow();
                shown->showNormal();
                shown->raise();
                shown->activateWindow();
            }
        });
        if (!instance_.listen()) {
            say(QStringLiteral("cannot take later starts' requests: %1")
                    .arg(SingleInstance::socketName()));
        }
    }
    configureAdClient();
    say(QStringLiteral("sounds from %1").arg(Bundle::mainBundle().resourcePath()));
    const bool launched =
        Brindle_SoundsAppDelegate::applicationDidFinishLaunchingWithOptions(application, options);

    if (PXBBannerView* banner = viewController()->Qarbo()) {
        banner->setDelegate(&monitor_);
    }
    if (window() != nullptr) {
        window()->installEventFilter(&firstFrame_);
    }
    if (!options_.screenshotPath.isEmpty() && options_.pressAd) {
        // The screenshot shows what the press opened.
        QObject::connect(&monitor_, &BannerMonitor::screenPresented, &monitor_,
                         [this] { takeScreenshotOfTopScreen(); });
    } else if (!options_.screenshotPath.isEmpty()) {
        QObject::connect(&monitor_, &BannerMonitor::adShown, &monitor_, [this] {
            // The ad's page has loaded; its first frame follows shortly.
            platform::WebView* page = adPageOf(viewController()->Qarbo());
            if (page == nullptr) {
                takeScreenshotAndQuit();
                return;
            }
            platform::whenPagePainted(page, [this](bool) { takeScreenshotAndQuit(); });
        });
    }
    if (!options_.screenshotPath.isEmpty()) {
        // Without an ad the empty banner is what there is to see: no use waiting.
        QObject::connect(&monitor_, &BannerMonitor::adFailed, &monitor_,
                         [this] { takeScreenshotAndQuit(); });
        QTimer::singleShot(static_cast<int>(options_.screenshotDelay * 1000), &monitor_,
                           [this] { takeScreenshotAndQuit(); });
    }
    if (options_.pressAd) {
        QObject::connect(&monitor_, &BannerMonitor::adShown, &monitor_, [this] {
            QPointer<platform::WebView> view(adPageOf(viewController()->Qarbo()));
            if (view == nullptr || adPressed_) {
                return;
            }
            adPressed_ = true;
            // Drawn, and a moment older than the shortest click the ad client takes.
            platform::whenPagePainted(view, [view](bool) {
                QTimer::singleShot(300, view, [view] { pressMiddleOf(view); });
            });
        });
    }
    if (options_.quitAfter >= 0) {
        QTimer::singleShot(static_cast<int>(options_.quitAfter * 1000), &monitor_, [] {
            say(QStringLiteral("quitting as asked"));
            QCoreApplication::exit(0);
        });
    }
    return launched;
}

void DesktopAppDelegate::takeScreenshotOfTopScreen() {
    // The screen slides in and then loads its page: look again until that page has loaded.
    auto* poll = new QTimer(&monitor_);
    poll->start(100);
    QObject::connect(poll, &QTimer::timeout, poll, [this, poll] {
        platform::ViewController* top =
            window() != nullptr ? window()->topViewController() : nullptr;
        auto* page = top != nullptr ? top->view()->findChild<platform::WebView*>() : nullptr;
        if (page == nullptr || !top->hasAppeared() || page->isLoading() ||
            page->request().url().isEmpty()) {
            return;
        }
        poll->deleteLater();
        platform::whenPagePainted(page, [this](bool) { takeScreenshotAndQuit(); });
    });
}

bool DesktopAppDelegate::saveScreenshot(const QString& path) const {
    if (window() == nullptr) {
        return false;
    }
    return window()->grab().save(path, "PNG");
}

void DesktopAppDelegate::takeScreenshotAndQuit() {
    if (screenshotTaken_) {
        return;
    }
    screenshotTaken_ = true;
    const bool saved = saveScreenshot(options_.screenshotPath);
    say(saved
            ? QStringLiteral("screenshot written to %1").arg(options_.screenshotPath)
            : QStringLiteral("could not write the screenshot to %1").arg(options_.screenshotPath));
    QCoreApplication::exit(saved ? 0 : 1);
}
