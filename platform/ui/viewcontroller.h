// A view controller: owns a view loaded on first use, receives the appearance and rotation
// callbacks, and presents other controllers modally over the whole window (stacked if need be).
#pragma once

#include "platform/ui/view.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

namespace platform {

class Window;

enum ModalTransitionStyle : int {
    ModalTransitionStyleCoverVertical = 0,  // slides up from the bottom edge
    ModalTransitionStyleFlipHorizontal = 1,
    ModalTransitionStyleCrossDissolve = 2,
    ModalTransitionStylePartialCurl = 3,
};

enum ModalPresentationStyle : int {
    ModalPresentationStyleFullScreen = 0,
    ModalPresentationStylePageSheet = 1,
    ModalPresentationStyleFormSheet = 2,
    ModalPresentationStyleCurrentContext = 3,
};

// Controllers are shared: a presenting controller holds its presented controller until the
// dismissal is over, and a controller may hold itself (shared_from_this) while it is on screen.
// The appearance callbacks run in this order:
//   present:  presenter viewWillDisappear, presented viewWillAppear,
//             (transition) presented viewDidAppear, presenter viewDidDisappear
//   dismiss:  top viewWillDisappear, presenter viewWillAppear,
//             (transition) presenter viewDidAppear, top viewDidDisappear
// Without animation the transition is immediate and the "did" calls come before the call returns;
// with it they come when the 0.3 s slide ends.
class ViewController : public QObject, public std::enable_shared_from_this<ViewController> {
    Q_OBJECT
  public:
    static constexpr double kTransitionSeconds = 0.3;

    ViewController();
    ~ViewController() override;

    // Loads the view on first use (loadView, then viewDidLoad).
    View* view();
    bool isViewLoaded() const { return view_ != nullptr; }
    // Gives the controller a view it then owns (replacing and deleting any earlier one).
    void setView(View* view);

    // Makes the view; the default is an empty view of the application frame's size.
    virtual void loadView();
    virtual void viewDidLoad() {}
    virtual void viewDidUnload() {}
    virtual void viewWillAppear(bool /*animated*/) {}
    virtual void viewDidAppear(bool /*animated*/) {}
    virtual void viewWillDisappear(bool /*animated*/) {}
    virtual void viewDidDisappear(bool /*animated*/) {}
    // Unloads the view when it is in no window (then viewDidUnload).
    virtual void didReceiveMemoryWarning();

    // Presents `controller` full screen over presentationWindow(). A controller that already
    // presents one passes the new one to the top of its stack. Transition style 0 slides the view
    // up when animated. Over a window that is not a phone Window the screen follows the window's
    // size while it is up, and Esc goes to the top of the stack as it does in a phone Window.
    void presentModalViewController(std::shared_ptr<ViewController> controller, bool animated);
    // Dismisses the controller this one presents, with everything stacked above it; sent to the
    // presented controller itself (which presents nothing), it is passed to its presenter.
    void dismissModalViewControllerAnimated(bool animated);

    ViewController* presentedViewController() const { return presented_.get(); }
    // For a presented controller both are the controller that presented it.
    ViewController* presentingViewController() const { return presenting_; }
    ViewController* parentViewController() const { return presenting_; }

    int modalTransitionStyle() const { return transitionStyle_; }
    void setModalTransitionStyle(int style) { transitionStyle_ = style; }
    // Every style covers the phone-sized window, as on the phone; the value is kept for callers.
    int modalPresentationStyle() const { return presentationStyle_; }

    // Rotation: the window asks the top controller, then tells every controller of the stack.
    virtual bool shouldAutorotateToInterfaceOrientation(int orientation);
    virtual void didRotateFromInterfaceOrientation(int /*fromOrientation*/) {}
    int interfaceOrientation() const;

    // The Escape key: the window offers it to the top controller, then to each one below down to
    // the root, until one takes it (returns true). A screen that can be closed closes; by default
    // a controller lets it pass.
    virtual bool escapePressed() { return false; }

    // Gives keyboard focus to the view.
    virtual bool becomeFirstResponder();

    // The window the controller's view is in, if any.
    Window* window() const;
    // The top-level widget that full screens presented by this controller cover: the window the
    // view is in, or the key window when the view is in none.
    virtual QWidget* presentationWindow() const;
    // True between viewWillAppear and viewWillDisappear.
    bool isVisible() const { return visible_; }
    // True between viewDidAppear and viewDidDisappear: on screen, its transition over.
    bool hasAppeared() const { return appeared_; }

    // The window calls these when it shows or hides its root controller.
    void beginAppearance(bool appearing, bool animated);
    void endAppearance(bool appearing, bool animated);

  private:
    QPointer<View> view_;
    std::shared_ptr<ViewController> presented_;
    QPointer<ViewController> presenting_;
    int transitionStyle_ = ModalTransitionStyleCoverVertical;
    int presentationStyle_ = ModalPresentationStyleFullScreen;
    bool visible_ = false;
    bool appeared_ = false;
};

// The presenter for views that live in an ordinary QWidget window rather than in a phone Window:
// it shows no view of its own and presents full screens over whatever top-level window `anchor`
// is in at the time of presenting.
class AnchoredViewController : public ViewController {
    Q_OBJECT
  public:
    explicit AnchoredViewController(QWidget* anchor) : anchor_(anchor) {}
    QWidget* presentationWindow() const override;
    bool becomeFirstResponder() override;

  private:
    QPointer<QWidget> anchor_;
};

}  // namespace platform
