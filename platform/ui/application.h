// The shared application object: application state and its notifications, the key window, URL
// opening, the status bar, the idle timer and the interface orientation of the phone window.
#pragma once

#include "platform/weakref.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QUrl>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace platform {

class Window;
class ViewController;

// Posted on NotificationCenter::defaultCenter() with the Application as object.
inline const QString kApplicationDidFinishLaunchingNotification =
    QStringLiteral("ApplicationDidFinishLaunchingNotification");
inline const QString kApplicationWillResignActiveNotification =
    QStringLiteral("ApplicationWillResignActiveNotification");
inline const QString kApplicationDidBecomeActiveNotification =
    QStringLiteral("ApplicationDidBecomeActiveNotification");
inline const QString kApplicationDidEnterBackgroundNotification =
    QStringLiteral("ApplicationDidEnterBackgroundNotification");
inline const QString kApplicationWillEnterForegroundNotification =
    QStringLiteral("ApplicationWillEnterForegroundNotification");
inline const QString kApplicationWillTerminateNotification =
    QStringLiteral("ApplicationWillTerminateNotification");

// The in-ad message schemes; web views hand navigations to them to their delegates.
inline const QString kMessageUrlScheme = QStringLiteral("qmsg");
inline const QString kLegacyMessageUrlScheme = QStringLiteral("torvin");

// Call first thing in main(), before the QApplication exists (tests too): sets what the web
// engine, loaded later, needs of the application object and chooses Qt Multimedia's FFmpeg
// backend. Calling it again, or after the application object exists, does nothing more.
void prepareApplication();

class Application;

// The application's delegate: the life-cycle callbacks, all optional.
class ApplicationDelegate : public Referenceable {
  public:
    virtual bool applicationDidFinishLaunchingWithOptions(Application*, const QVariantMap&) {
        return true;
    }
    virtual void applicationWillResignActive(Application*) {}
    virtual void applicationDidBecomeActive(Application*) {}
    virtual void applicationDidEnterBackground(Application*) {}
    virtual void applicationWillEnterForeground(Application*) {}
    virtual void applicationWillTerminate(Application*) {}
    virtual void applicationDidReceiveMemoryWarning(Application*) {}
};

// The process entry: prepares, creates the QApplication, the delegate (owned until exit), runs
// finishLaunching() and the event loop, and returns the loop's exit code. SIGTERM, SIGINT and
// SIGHUP close the windows and end the loop with 0, as a user closing the window would.
int applicationMain(int argc, char** argv,
                    const std::function<std::unique_ptr<ApplicationDelegate>()>& makeDelegate);

class Application : public QObject {
    Q_OBJECT
  public:
    enum State : int { StateActive = 0, StateInactive = 1, StateBackground = 2 };
    static constexpr int kInvalidBackgroundTask = 0;

    // The process-wide instance, made on first use; the QApplication must exist.
    static Application* sharedApplication();

    // Not retained.
    ApplicationDelegate* delegate() const { return delegate_.get(); }
    void setDelegate(ApplicationDelegate* delegate) { delegate_.reset(delegate); }

    // Calls the delegate's didFinishLaunching and posts kApplicationDidFinishLaunchingNotification,
    // once per process; later calls do nothing.
    void finishLaunching(const QVariantMap& options = {});
    bool hasFinishedLaunching() const { return finishedLaunching_; }
    // From kApplicationWillTerminateNotification on: the event loop will not turn again, so
    // work put off for later never runs.
    bool isTerminating() const { return terminating_; }

    // Active while a window of the application is on screen, shown and not minimised, whether or
    // not it has the focus: its phone windows (Window) where it has any, otherwise its ordinary
    // top-level windows (an application that shows a banner in a QMainWindow, say) save those
    // that do not keep it running (Qt::WA_QuitOnClose off: a developer's inspector); background
    // once every such window is minimised or hidden; inactive only in between and before the first
    // window shows. Changes post the notifications (resign active before entering background, enter
    // foreground before becoming active) and call the delegate. Tests may drive the state directly
    // through applyQtState.
    State applicationState() const { return state_; }
    void applyQtState(Qt::ApplicationState qtState);

    // Runs `task` on a later turn of the event loop once a window has drawn its first frame
    // (unless `context` is gone by then), so that work which can wait (loading a backend or a
    // module) stays out of the way of the first thing the user sees. Once that frame is drawn,
    // on the next turn (at once in a program without a GUI); a program that draws no window
    // within kFirstFrameWaitMilliseconds runs its tasks then.
    void whenFirstFrameDrawn(QObject* context, std::function<void()> task);
    static constexpr int kFirstFrameWaitMilliseconds = 1000;

    // The window made key by Window::makeKeyAndVisible(), and its root view controller.
    Window* keyWindow() const;
    void setKeyWindow(Window* window);
    ViewController* rootViewController() const;

    // Hands `url` to the desktop (QDesktopServices::openUrl), or to the opener set below. Every
    // URL is recorded in openedURLs(). Returns whether it was handed over.
    bool openURL(const QUrl& url);
    // Whether the desktop has a handler for the URL's scheme: http, https and mailto always;
    // others when a desktop entry claims "x-scheme-handler/<scheme>" or Qt has a URL handler
    // for it.
    bool canOpenURL(const QUrl& url) const;
    // Replaces the desktop as receiver of openURL (tests set one that records and returns true);
    // an empty function restores the desktop.
    void setUrlOpener(std::function<bool(const QUrl&)> opener) { opener_ = std::move(opener); }
    const QList<QUrl>& openedURLs() const { return openedUrls_; }
    void clearOpenedURLs() { openedUrls_.clear(); }

    // The phone's status bar: a 20-point strip at the top of the key window.
    bool isStatusBarHidden() const { return statusBarHidden_; }
    void setStatusBarHidden(bool hidden, bool animated = false);
    // In the current orientation's coordinates; an empty rectangle while hidden.
    QRect statusBarFrame() const;
    int statusBarOrientation() const { return orientation_; }
    // Turns the status bar and with it the phone window (see Window::rotateTo, which also asks
    // and tells the view controllers).
    void setStatusBarOrientation(int orientation, bool animated = false);

    // While disabled, the desktop is asked (over D-Bus, where it offers that) not to blank the
    // screen or lock.
    bool isIdleTimerDisabled() const { return idleTimerDisabled_; }
    void setIdleTimerDisabled(bool disabled);

    // Background tasks are not offered on the desktop: callers take their fallback.
    bool isMultitaskingSupported() const { return false; }
    int beginBackgroundTaskWithExpirationHandler(const std::function<void()>&) {
        return kInvalidBackgroundTask;
    }
    void endBackgroundTask(int) {}

  signals:
    void statusBarChanged();
    void statusBarOrientationChanged(int orientation, int previous);

  private:
    Application();
    void post(const QString& name);
    void aboutToQuit();
    bool eventFilter(QObject* watched, QEvent* event) override;
    void followWindows();
    void runAfterFirstFrame();
    // The windows whose visibility makes the application state (see applicationState).
    static QList<QWidget*> applicationWindows();

    WeakRef<ApplicationDelegate> delegate_;
    State state_ = StateActive;
    bool finishedLaunching_ = false;
    bool terminating_ = false;
    bool windowCheckQueued_ = false;
    bool firstFrameDrawn_ = false;
    bool firstFrameWaitStarted_ = false;
    std::vector<std::pair<QPointer<QObject>, std::function<void()>>> afterFirstFrame_;
    QPointer<Window> keyWindow_;
    std::function<bool(const QUrl&)> opener_;
    QList<QUrl> openedUrls_;
    bool statusBarHidden_ = false;
    int orientation_ = 1;
    bool idleTimerDisabled_ = false;
    uint inhibitCookie_ = 0;
};

}  // namespace platform
