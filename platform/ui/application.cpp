#include "platform/ui/application.h"

#include "platform/log.h"
#include "platform/notificationcenter.h"
#include "platform/ui/screen.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/webengine.h"
#include "platform/ui/window.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QScreen>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTimer>

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>
#include <csignal>

#include <algorithm>

namespace platform {

namespace {

Application* sharedInstance = nullptr;

// The write end of the pipe from the signal handler to the event loop.
int terminationSignalFd = -1;

extern "C" void onTerminationSignal(int signal) {
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(terminationSignalFd, &byte, 1);
}

// SIGTERM, SIGINT and SIGHUP end the application as closing its window does, through the event
// loop: the state worth keeping is saved and the ad's screens go with the window.
void quitOnTerminationSignals(QObject* owner) {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        return;
    }
    terminationSignalFd = fds[0];
    auto* notifier = new QSocketNotifier(fds[1], QSocketNotifier::Read, owner);
    QObject::connect(notifier, &QSocketNotifier::activated, owner, [notifier] {
        char byte = 0;
        if (::read(static_cast<int>(notifier->socket()), &byte, 1) != 1) {
            return;
        }
        logLine(QStringLiteral("Quitting on signal %1").arg(int(byte)));
        QApplication::closeAllWindows();
        QCoreApplication::quit();  // whatever was left open
    });
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

// Desktop files and caches that map "x-scheme-handler/<scheme>" to an application.
QStringList mimeAssociationFiles() {
    QStringList files;
    for (const QString& dir : QStandardPaths::standardLocations(QStandardPaths::ConfigLocation)) {
        files << dir + QStringLiteral("/mimeapps.list");
    }
    for (const QString& dir :
         QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation)) {
        files << dir + QStringLiteral("/mimeapps.list") << dir + QStringLiteral("/defaults.list")
              << dir + QStringLiteral("/mimeinfo.cache");
    }
    return files;
}

bool desktopHandlesScheme(const QString& scheme) {
    const QByteArray key = "x-scheme-handler/" + scheme.toLatin1() + "=";
    for (const QString& path : mimeAssociationFiles()) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        while (!file.atEnd()) {
            const QByteArray line = file.readLine().trimmed();
            if (line.startsWith(key) && line.size() > key.size()) {
                return true;
            }
        }
    }
    return false;
}

const char* const kScreenSaverService = "org.freedesktop.ScreenSaver";
const char* const kScreenSaverPath = "/org/freedesktop/ScreenSaver";

}  // namespace

void prepareApplication() {
    static bool prepared = false;
    if (prepared || QCoreApplication::instance() != nullptr) {
        return;
    }
    prepared = true;
    // The web engine's widgets share OpenGL contexts with the rest of the application.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    // Full screens cover the banner's web view. Drawn through OpenGL, the engine's widgets are
    // composed over the window's other widgets whatever their stacking (the banner showed through
    // the browser, whose own page stayed blank); drawn into the window's backing store like any
    // widget, they stack as widgets do.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND")) {
        qputenv("QT_QUICK_BACKEND", "software");
    }
    // With the scene drawn in software, the OpenGL context the web engine makes as the
    // application starts (to share with its own) serves nothing, and on X it loads the GL
    // driver before the first window is drawn: some 60 ms on a two-core machine, and the
    // driver's memory. Without GL on X the engine composes pages in software, as it does off
    // screen. A value the user sets still decides.
    if (qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION")) {
        qputenv("QT_XCB_GL_INTEGRATION", "none");
    }
    // Qt 6.4 defaults to GStreamer on Linux; the FFmpeg backend decodes mp3, m4a and caf alike.
    if (qEnvironmentVariableIsEmpty("QT_MEDIA_BACKEND")) {
        qputenv("QT_MEDIA_BACKEND", "ffmpeg");
    }
    // The engine takes URL schemes only until it makes its first page, and a program that has
    // the engine already may make its own pages before the first web view's: the engine's part
    // is readied now, which registers the message schemes and costs such a program nothing. A
    // program without the engine loads it later, for the first web view.
    if (void* engine = dlopen("libQt6WebEngineCore.so.6", RTLD_LAZY | RTLD_NOLOAD)) {
        dlclose(engine);
        webEngine(nullptr);
    }
}

int applicationMain(int argc, char** argv,
                    const std::function<std::unique_ptr<ApplicationDelegate>()>& makeDelegate) {
    prepareApplication();
    QApplication qtApp(argc, argv);
    quitOnTerminationSignals(&qtApp);
    std::unique_ptr<ApplicationDelegate> delegate = makeDelegate ? makeDelegate() : nullptr;
    Application* app = Application::sharedApplication();
    app->setDelegate(delegate.get());
    app->finishLaunching();
    const int code = QApplication::exec();
    app->setDelegate(nullptr);
    return code;
}

Application* Application::sharedApplication() {
    // Not qApp: that is a QApplication, and a program without widgets has none.
    if (sharedInstance == nullptr && QCoreApplication::instance() != nullptr) {
        sharedInstance = new Application();
    }
    return sharedInstance;
}

Application::Application() : QObject(QCoreApplication::instance()) {
    // The desktop's focus says nothing about whether the user can see us (Qt's own application
    // state follows it): the visibility of the application's windows decides.
    state_ = StateInactive;
    for (QWidget* widget : applicationWindows()) {
        if (widget->isVisible() && !widget->isMinimized()) {
            state_ = StateActive;
        }
    }
    QCoreApplication::instance()->installEventFilter(this);
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
            &Application::aboutToQuit);
    connect(this, &QObject::destroyed, [] { sharedInstance = nullptr; });
}

void Application::post(const QString& name) {
    NotificationCenter::defaultCenter().postNotification(name, this);
}

void Application::finishLaunching(const QVariantMap& options) {
    if (finishedLaunching_) {
        return;
    }
    finishedLaunching_ = true;
    if (ApplicationDelegate* d = delegate()) {
        d->applicationDidFinishLaunchingWithOptions(this, options);
    }
    post(kApplicationDidFinishLaunchingNotification);
}

void Application::applyQtState(Qt::ApplicationState qtState) {
    const State next = qtState == Qt::ApplicationActive     ? StateActive
                       : qtState == Qt::ApplicationInactive ? StateInactive
                                                            : StateBackground;
    if (next == state_) {
        return;
    }
    if (state_ == StateActive) {
        if (ApplicationDelegate* d = delegate()) {
            d->applicationWillResignActive(this);
        }
        post(kApplicationWillResignActiveNotification);
        state_ = StateInactive;
    }
    if (next == StateBackground) {
        state_ = StateBackground;
        if (ApplicationDelegate* d = delegate()) {
            d->applicationDidEnterBackground(this);
        }
        post(kApplicationDidEnterBackgroundNotification);
        return;
    }
    if (state_ == StateBackground) {
        if (ApplicationDelegate* d = delegate()) {
            d->applicationWillEnterForeground(this);
        }
        post(kApplicationWillEnterForegroundNotification);
        state_ = StateInactive;
    }
    if (next == StateActive) {
        state_ = StateActive;
        if (ApplicationDelegate* d = delegate()) {
            d->applicationDidBecomeActive(this);
        }
        post(kApplicationDidBecomeActiveNotification);
    }
}

void Application::whenFirstFrameDrawn(QObject* context, std::function<void()> task) {
    afterFirstFrame_.emplace_back(context, std::move(task));
    // A program without a GUI draws no frame to wait for.
    if (firstFrameDrawn_ ||
        qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr) {
        QMetaObject::invokeMethod(this, &Application::runAfterFirstFrame, Qt::QueuedConnection);
    } else if (!std::exchange(firstFrameWaitStarted_, true)) {
        QTimer::singleShot(kFirstFrameWaitMilliseconds, this, [this] {
            firstFrameDrawn_ = true;
            runAfterFirstFrame();
        });
    }
}

void Application::runAfterFirstFrame() {
    for (auto& [context, task] : std::exchange(afterFirstFrame_, {})) {
        if (context != nullptr) {
            task();
        }
    }
}

bool Application::eventFilter(QObject* watched, QEvent* event) {
    const QEvent::Type type = event->type();
    if (type == QEvent::Paint && !firstFrameDrawn_ && watched->isWidgetType() &&
        static_cast<QWidget*>(watched)->isWindow()) {
        // The window's children have drawn by now, and the frame goes to the screen next.
        firstFrameDrawn_ = true;
        QMetaObject::invokeMethod(this, &Application::runAfterFirstFrame, Qt::QueuedConnection);
    }
    if ((type == QEvent::Show || type == QEvent::Hide || type == QEvent::WindowStateChange) &&
        !windowCheckQueued_ && watched->isWidgetType() &&
        static_cast<QWidget*>(watched)->isWindow()) {
        // Looked at on the next turn, when the widget's own state has settled.
        windowCheckQueued_ = true;
        QMetaObject::invokeMethod(this, &Application::followWindows, Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void Application::followWindows() {
    windowCheckQueued_ = false;
    const QList<QWidget*> windows = applicationWindows();
    const bool onScreen = std::any_of(windows.begin(), windows.end(), [](QWidget* widget) {
        return widget->isVisible() && !widget->isMinimized();
    });
    if (windows.isEmpty()) {
        return;  // nothing shown yet (or the last window gone at exit): the state stays
    }
    applyQtState(onScreen ? Qt::ApplicationActive : Qt::ApplicationHidden);
}

QList<QWidget*> Application::applicationWindows() {
    QList<QWidget*> phoneWindows;
    QList<QWidget*> plainWindows;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* phone = qobject_cast<Window*>(widget)) {
            if (QWidget* shown = phone->desktopWindow()) {  // none yet while it is being made
                phoneWindows.append(shown);
            }
        } else if (widget->windowType() == Qt::Window &&
                   !widget->testAttribute(Qt::WA_DontShowOnScreen) &&
                   widget->testAttribute(Qt::WA_QuitOnClose)) {
            plainWindows.append(widget);
        }
    }
    return phoneWindows.isEmpty() ? plainWindows : phoneWindows;
}

void Application::aboutToQuit() {
    terminating_ = true;
    if (ApplicationDelegate* d = delegate()) {
        d->applicationWillTerminate(this);
    }
    post(kApplicationWillTerminateNotification);
    setIdleTimerDisabled(false);
}

Window* Application::keyWindow() const {
    return keyWindow_.data();
}

void Application::setKeyWindow(Window* window) {
    keyWindow_ = window;
}

ViewController* Application::rootViewController() const {
    return keyWindow_ ? keyWindow_->rootViewController() : nullptr;
}

bool Application::openURL(const QUrl& url) {
    if (!url.isValid() || url.scheme().isEmpty()) {
        return false;
    }
    openedUrls_.append(url);
    if (opener_) {
        return opener_(url);
    }
    return QDesktopServices::openUrl(url);
}

bool Application::canOpenURL(const QUrl& url) const {
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || scheme.isEmpty()) {
        return false;
    }
    if (scheme == QLatin1String("http") || scheme == QLatin1String("https") ||
        scheme == QLatin1String("mailto")) {
        return true;
    }
    return desktopHandlesScheme(scheme);
}

void Application::setStatusBarHidden(bool hidden, bool /*animated*/) {
    if (hidden == statusBarHidden_) {
        return;
    }
    statusBarHidden_ = hidden;
    emit statusBarChanged();
}

QRect Application::statusBarFrame() const {
    if (statusBarHidden_) {
        return {};
    }
    return QRect(0, 0, Screen::sizeForOrientation(orientation_).width(), kStatusBarHeight);
}

void Application::setStatusBarOrientation(int orientation, bool /*animated*/) {
    if (orientation < InterfaceOrientationPortrait ||
        orientation > InterfaceOrientationLandscapeLeft || orientation == orientation_) {
        return;
    }
    const int previous = orientation_;
    orientation_ = orientation;
    emit statusBarOrientationChanged(orientation, previous);
    emit statusBarChanged();
}

void Application::setIdleTimerDisabled(bool disabled) {
    idleTimerDisabled_ = disabled;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || bus.interface() == nullptr ||
        !bus.interface()->isServiceRegistered(QLatin1String(kScreenSaverService))) {
        inhibitCookie_ = 0;
        return;
    }
    if (disabled && inhibitCookie_ == 0) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QLatin1String(kScreenSaverService), QLatin1String(kScreenSaverPath),
            QLatin1String(kScreenSaverService), QStringLiteral("Inhibit"));
        call << QCoreApplication::applicationName() << QStringLiteral("Full-screen content");
        const QDBusReply<uint> reply = bus.call(call, QDBus::Block, 2000);
        inhibitCookie_ = reply.isValid() ? reply.value() : 0;
    } else if (!disabled && inhibitCookie_ != 0) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QLatin1String(kScreenSaverService), QLatin1String(kScreenSaverPath),
            QLatin1String(kScreenSaverService), QStringLiteral("UnInhibit"));
        call << inhibitCookie_;
        bus.call(call, QDBus::NoBlock);
        inhibitCookie_ = 0;
    }
}

double Screen::scale() {
    if (QGuiApplication::primaryScreen() == nullptr) {
        return 1.0;
    }
    return QGuiApplication::primaryScreen()->devicePixelRatio();
}

QSize Screen::sizeForOrientation(int orientation) {
    return isLandscape(orientation) ? QSize(kPhoneScreenHeight, kPhoneScreenWidth)
                                    : QSize(kPhoneScreenWidth, kPhoneScreenHeight);
}

QRect Screen::bounds() {
    Application* app = Application::sharedApplication();
    return QRect(QPoint(0, 0), sizeForOrientation(app != nullptr ? app->statusBarOrientation()
                                                                 : InterfaceOrientationPortrait));
}

QRect Screen::applicationFrame() {
    Application* app = Application::sharedApplication();
    const QRect all = bounds();
    if (app == nullptr || app->isStatusBarHidden()) {
        return all;
    }
    return all.adjusted(0, kStatusBarHeight, 0, 0);
}

}  // namespace platform
