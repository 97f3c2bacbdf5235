// The base of every full screen an ad opens over the application (the in-app browser and the web
// app screen). It covers the application and gives it back, takes the status bar and the screen
// saver while it is up, keeps the orientations the ad allows, and tells the rest of the ad client
// and the application's delegate about it. Screens can stack (a web app may open the browser over
// itself); only the bottom screen of a stack raises delegate events and touches the status bar
// and the screen saver.
#pragma once

#include "ads/core/PXBDelegateManager.h"
#include "platform/ui/viewcontroller.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <memory>

namespace platform {
class WebView;
}

// Posted on the default notification centre with the controller as object.
inline const QString PXBViewControllerWillPresentFullScreen =
    QStringLiteral("PXBViewControllerWillPresentFullScreen");
inline const QString PXBViewControllerDidRelinquishFullScreen =
    QStringLiteral("PXBViewControllerDidRelinquishFullScreen");

// Orientation sets an ad may ask for.
enum PXBOrientation : int {
    PXBOrientationNone = 0,  // not a setting
    PXBOrientationAny = 1,
    PXBOrientationPortrait = 2,
    PXBOrientationLandscape = 3,
};

// A screen's state, kept in the private-object table under its controller. Subclasses extend it.
class PXBViewControllerPrivate : public QObject {
    Q_OBJECT
  public:
    int supportedOrientations = PXBOrientationAny;
    QPointer<platform::WebView> openingWebView;
    std::shared_ptr<PXBDelegateManager> delegateManager;
    bool statusBarWasHidden = false;
    bool publisherIdleTimerDisabled = false;
    // Never set in this client; kept so that a screen closed by leaving the application can say
    // so to the delegate.
    bool appClosing = false;
    // The screen is being presented over, or removed from, an application view controller.
    bool interactingWithParent = false;
};

class PXBViewController : public platform::ViewController {
    Q_OBJECT
  public:
    // Screens are made in two steps so that each class supplies its own private data; always
    // make them through create().
    template <class T>
    static std::shared_ptr<T> create() {
        auto controller = std::make_shared<T>();
        static_cast<PXBViewController*>(controller.get())->init();
        return controller;
    }

    PXBViewController();
    ~PXBViewController() override;

    int supportedOrientations() const;
    // 0 leaves the setting as it is, so that an unknown orientation never clears a valid one.
    void setSupportedOrientations(int orientations);
    // Not retained: the ad web view this screen was opened from.
    platform::WebView* openingWebView() const;
    void setOpeningWebView(platform::WebView* webView);
    // Made on first use when none was set.
    std::shared_ptr<PXBDelegateManager> delegateManager() const;
    void setDelegateManager(std::shared_ptr<PXBDelegateManager> manager);
    bool statusBarWasHidden() const;
    void setStatusBarWasHidden(bool hidden);

    // Puts this screen over `presenter`; the screen keeps itself alive until relinquishScreen.
    // Without a presenter it only logs.
    void presentFromViewController(platform::ViewController* presenter);
    // The modal presentation itself: over the key window's root controller when there is one,
    // else over `presenter`.
    virtual void presentSelfFrom(platform::ViewController* presenter);
    // Takes the screen away again (the close button, "Done", an in-ad "close" message).
    Q_INVOKABLE void relinquishScreen();
    // Escape closes the screen, as its close button or "Done" does.
    bool escapePressed() override;
    // Whether this screen is the bottom of a stack of ad screens.
    bool isFirstPXBViewController() const;
    // How many ad screens are up (presented and not relinquished yet), of every ad.
    static int screensUp();

    // "any" 1, "portrait" 2, "landscape" 3 (exact, case-sensitive); anything else 0.
    static int orientationFromString(const QString& string);
    // The ad's "settings" message: "supportedorientations" in the user info.
    void settingsChanged(const QVariantMap& userInfo);

    bool shouldAutorotateToInterfaceOrientation(int orientation) override;
    void viewDidAppear(bool animated) override;
    void viewDidDisappear(bool animated) override;

  protected:
    // The second step of construction; subclasses call the base first.
    virtual void init();
    virtual std::shared_ptr<PXBViewControllerPrivate> createPrivateData() const;
    PXBViewControllerPrivate* privateData() const { return private_; }

  private:
    // Holds the screen while it is up, or lets it go (null).
    void keepUp(std::shared_ptr<PXBViewController> self);

    PXBViewControllerPrivate* private_ = nullptr;  // owned by the private-object table
    std::shared_ptr<PXBViewController> self_;      // while the screen is up
    bool presentedOverApplication_ = false;
};
