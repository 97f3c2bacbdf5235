// The banner an application places on screen. It keeps no state of its own: everything is
// forwarded to its ad object, found in the private-object table under the banner itself.
#pragma once

#include "ads/core/PXBBannerViewDelegate.h"
#include "ads/core/PXBRequest.h"
#include "platform/export.h"
#include "platform/ui/view.h"

#include <QString>

class PXBObjectPrivate;
class PXBWebView;

namespace platform {
class ViewController;
}

class SORVEL_EXPORT PXBBannerView : public platform::View {
    Q_OBJECT
  public:
    // Marks construction by an interface file: the ad object comes with awakeFromNib.
    struct FromInterfaceFile {};

    // initWithFrame:
    explicit PXBBannerView(const QRect& frame, QWidget* parent = nullptr);
    // init: the empty frame.
    explicit PXBBannerView(QWidget* parent = nullptr);
    PXBBannerView(FromInterfaceFile, QWidget* parent = nullptr);
    ~PXBBannerView() override;

    // The interface file calls it once the banner is connected.
    void awakeFromNib();

    QString adUnitID() const;
    void setAdUnitID(const QString& adUnitID);
    // Not retained. Optional: without one, the ad's full screens cover the top-level window the
    // banner is in, so that a banner can sit in any widget layout.
    platform::ViewController* rootViewController() const;
    void setRootViewController(platform::ViewController* controller);
    // Not retained; held by the ad object's delegate manager.
    PXBBannerViewDelegate* delegate() const;
    void setDelegate(PXBBannerViewDelegate* delegate);
    bool hasAutoRefreshed() const;
    PXBWebView* webView() const;

    void loadRequest(const PXBRequest* request);

    // The ad object (the "private" operation).
    PXBObjectPrivate* privateObject() const;

  signals:
    // The delegate's events as signals, for whoever would rather connect than implement
    // PXBBannerViewDelegate; each follows the delegate's call, on the main thread.
    void adReceived();
    // The error is a PXBRequestError.
    void adFailed(const platform::Error& error);
    void willPresentScreen();
    void willDismissScreen();
    void didDismissScreen();
    void willLeaveApplication();

  private:
    void commonInitializer();
};
