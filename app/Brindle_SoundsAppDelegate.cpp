#include "app/Brindle_SoundsAppDelegate.h"

Brindle_SoundsAppDelegate::~Brindle_SoundsAppDelegate() {
    // The controller first, then the window, as the outlets were released on the phone. The
    // window gives the controller's view back before it goes (see platform::Window).
    if (window_ != nullptr) {
        window_->setRootViewController(nullptr);
    }
    viewController_.reset();
    window_.reset();
}

void Brindle_SoundsAppDelegate::setWindow(std::unique_ptr<platform::Window> window) {
    window_ = std::move(window);
}

void Brindle_SoundsAppDelegate::setViewController(
    std::shared_ptr<Brindle_SoundsViewController> controller) {
    viewController_ = std::move(controller);
}

bool Brindle_SoundsAppDelegate::applicationDidFinishLaunchingWithOptions(
    platform::Application* /*application*/, const QVariantMap& /*options*/) {
    // The window's root controller: its view becomes the window's content below the status bar.
    window_->setRootViewController(viewController_.get());
    window_->makeKeyAndVisible();
    return true;
}
