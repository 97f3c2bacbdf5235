// The application delegate: puts the main window with the main view controller on screen.
#pragma once

#include "app/Brindle_SoundsViewController.h"
#include "platform/ui/application.h"
#include "platform/ui/window.h"

#include <memory>

class Brindle_SoundsAppDelegate : public platform::ApplicationDelegate {
  public:
    Brindle_SoundsAppDelegate() = default;
    ~Brindle_SoundsAppDelegate() override;

    // Owned; set by the interface before launching finishes.
    platform::Window* window() const { return window_.get(); }
    void setWindow(std::unique_ptr<platform::Window> window);
    Brindle_SoundsViewController* viewController() const { return viewController_.get(); }
    void setViewController(std::shared_ptr<Brindle_SoundsViewController> controller);

    bool applicationDidFinishLaunchingWithOptions(platform::Application* application,
                                                  const QVariantMap& options) override;
    void applicationWillResignActive(platform::Application*) override {}
    void applicationDidEnterBackground(platform::Application*) override {}
    void applicationWillEnterForeground(platform::Application*) override {}
    void applicationDidBecomeActive(platform::Application*) override {}
    void applicationWillTerminate(platform::Application*) override {}
    void applicationDidReceiveMemoryWarning(platform::Application*) override {}

  private:
    std::unique_ptr<platform::Window> window_;
    std::shared_ptr<Brindle_SoundsViewController> viewController_;
};
