// The phone window: a top-level view of the phone's size with the status-bar strip at the top,
// the root view controller's view below it and presented controllers' views over everything.
// Ctrl+Right turns it a quarter turn clockwise, Ctrl+Left counter-clockwise; Escape goes to the
// controller on top (ViewController::escapePressed).
#pragma once

#include "platform/ui/view.h"

#include <QPointer>

namespace platform {

class ViewController;

class Window : public View {
    Q_OBJECT
  public:
    Window();
    ~Window() override;

    // Shows the window and makes it the application's key window.
    void makeKeyAndVisible();
    bool isKeyWindow() const;

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

  private:
    QWidget* statusBar_ = nullptr;
    QPointer<ViewController> root_;
};

}  // namespace platform
