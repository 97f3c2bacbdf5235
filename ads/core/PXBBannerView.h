/// \file
/// PXBBannerView, the banner widget.
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

/// The banner an application places on screen.
///
/// A banner is a QWidget for any layout. Give it an ad unit and a request and it shows the ad,
/// refreshes it, and opens the ad's full screens when the user presses it; its events go to its
/// delegate, if it has one, and then out as signals.
class SORVEL_EXPORT PXBBannerView : public platform::View {
    Q_OBJECT
  public:
    /// Marks construction by an interface file: the ad object comes with awakeFromNib().
    struct FromInterfaceFile {};

    /// A banner with `frame`, in the parent's coordinates.
    explicit PXBBannerView(const QRect& frame, QWidget* parent = nullptr);
    /// A banner with the empty frame, for a layout to size.
    explicit PXBBannerView(QWidget* parent = nullptr);
    /// A banner made by an interface file: it has no ad object until awakeFromNib().
    PXBBannerView(FromInterfaceFile, QWidget* parent = nullptr);
    /// Cancels the ad's pending refresh and retry.
    ~PXBBannerView() override;

    /// The interface file calls it once the banner is connected.
    void awakeFromNib();

    /// The ad unit whose ads the banner shows, sent with every request.
    QString adUnitID() const;
    void setAdUnitID(const QString& adUnitID);  ///< Sets adUnitID().
    /// The view controller that presents the ad's full screens. Not retained. Optional: without
    /// one, the ad's full screens cover the top-level window the banner is in, so that a banner
    /// can sit in any widget layout.
    platform::ViewController* rootViewController() const;
    /// Sets rootViewController().
    void setRootViewController(platform::ViewController* controller);
    /// The delegate told of the banner's ads. Not retained; held by the ad object's delegate
    /// manager.
    PXBBannerViewDelegate* delegate() const;
    void setDelegate(PXBBannerViewDelegate* delegate);  ///< Sets delegate().
    /// Whether the ad on show came from an automatic refresh. The client never sets it, so it is
    /// always false.
    bool hasAutoRefreshed() const;
    /// The web view the ad is shown in. Its class is the ad client's own, not part of this
    /// interface.
    PXBWebView* webView() const;

    /// Asks the ad server for an ad for `request` (an empty request when null). The banner keeps
    /// its own copy, which its refreshes reuse; a load while a request is in flight is ignored.
    void loadRequest(const PXBRequest* request);

    /// The ad object (the "private" operation). Its class is the ad client's own, not part of
    /// this interface.
    PXBObjectPrivate* privateObject() const;

  signals:
    /// \name Events
    /// The delegate's events as signals, for whoever would rather connect than implement
    /// PXBBannerViewDelegate; each follows the delegate's call, on the main thread.
    ///@{

    /// An ad has been received and is shown in the banner.
    void adReceived();
    /// A request failed. The error is a PXBRequestError.
    void adFailed(const platform::Error& error);
    /// A full screen is about to cover the application.
    void willPresentScreen();
    /// That full screen is about to be dismissed.
    void willDismissScreen();
    /// That full screen has been dismissed.
    void didDismissScreen();
    /// A click is about to open another application.
    void willLeaveApplication();
    ///@}

  private:
    void commonInitializer();
};
