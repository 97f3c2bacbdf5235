// The desktop's additions around the phone application: the ad server configuration (or the
// built-in reference server), one window per profile, a log line for every banner event, the
// screenshot, the press on the ad and the timed quit of the command line. The phone's delegate and
// controller stay as they were.
#pragma once

#include "ads/core/PXBBannerViewDelegate.h"
#include "app/AppOptions.h"
#include "app/Brindle_SoundsAppDelegate.h"
#include "app/SingleInstance.h"

#include <QObject>
#include <QPointer>

#include <memory>

namespace adserver {
class AdServer;
}

// Hears the banner's events for the desktop: each goes to the log, the first ad shown triggers the
// screenshot when one is wanted, and an ad that cannot reach its server is told on screen once.
class BannerMonitor : public QObject, public PXBBannerViewDelegate {
    Q_OBJECT
  public:
    void adViewDidReceiveAd(PXBBannerView* view) override;
    void adViewDidFailToReceiveAdWithError(PXBBannerView* view,
                                           const platform::Error& error) override;
    void adViewWillPresentScreen(PXBBannerView* view) override;
    void adViewWillDismissScreen(PXBBannerView* view) override;
    void adViewDidDismissScreen(PXBBannerView* view) override;
    void adViewWillLeaveApplication(PXBBannerView* view) override;

  signals:
    void adShown();
    void adFailed();
    void screenPresented();

  private:
    bool offlineTold_ = false;
};

class FirstFrameWatch : public QObject {
  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};

class DesktopAppDelegate : public Brindle_SoundsAppDelegate {
  public:
    explicit DesktopAppDelegate(AppOptions options);
    ~DesktopAppDelegate() override;

    // Configures the ad client before the phone application launches, then adds the desktop's
    // parts once its window is up.
    bool applicationDidFinishLaunchingWithOptions(platform::Application* application,
                                                  const QVariantMap& options) override;

    // Writes the window to `path` as PNG; false when it cannot.
    bool saveScreenshot(const QString& path) const;
    adserver::AdServer* builtInAdServer() const { return adServer_; }

  private:
    void configureAdClient();
    void takeScreenshotAndQuit();
    // Once the page of the screen on top has loaded and been drawn.
    void takeScreenshotOfTopScreen();

    AppOptions options_;
    // The built-in server, owned as a plain QObject so that builds without it need no type.
    std::unique_ptr<QObject> adServerOwner_;
    adserver::AdServer* adServer_ = nullptr;
    BannerMonitor monitor_;
    SingleInstance instance_;
    FirstFrameWatch firstFrame_;
    bool screenshotTaken_ = false;
    bool adPressed_ = false;
};
