// The phone window: a view of the phone's size with the status-bar strip at the top, the root
// view controller's view below it and presented controllers' views over everything. It is shown
// in a desktop window of its own that the user may resize: the phone window scales with it,
// keeping its aspect. Ctrl+Right turns it a quarter turn clockwise, Ctrl+Left counter-clockwise;
// Escape goes to the controller on top (ViewController::escapePressed).
#pragma once

#include "platform/ui/view.h"

#include <QPointer>

#include <memory>

namespace platform {

class ViewController;
class WindowFrame;

class Window : public View {
    Q_OBJECT
  public:
    Window();
    ~Window() override;

    // Shows the window and makes it the application's key window.
    void makeKeyAndVisible();
    bool isKeyWindow() const;

    // The desktop's window this one is shown in: shown, minimised, raised and activated in its
    // stead. Resized, it scales the phone window to fit and fills what is left on two sides
    // with black bars; turning the phone window turns it too.
    QWidget* desktopWindow() const;
    // Desktop pixels per point of this window: 1 while the desktop window has its natural size.
    double scaleFactor() const;

    // Not owned. Its view fills the application frame (below the status bar while shown).
    ViewController* rootViewController() const { return root_; }
    void setRootViewController(ViewController* controller);
    // The controller on top: the last one presented over the root, or the root.
    ViewController* topViewController() const;

    // Turns the interface to `orientation` if the top controller agrees: the status bar and the
    // window turn, views autoresize, and every controller of the stack hears
    // didRotateFromInterfaceOrientation. Returns whether it turned.
    bool rotateTo(int orientation);
    void rotateClockwise();
    void rotateCounterClockwise();

    // Lays out the status bar, the root view and presented views for the current state.
    void relayout();

  protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    QWidget* statusBar_ = nullptr;
    QPointer<ViewController> root_;
    std::unique_ptr<WindowFrame> frame_;
};

}  // namespace platform
