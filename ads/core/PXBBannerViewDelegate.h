/// \file
/// PXBBannerViewDelegate, what an application implements to hear about its banner's ads.
#pragma once

#include "platform/error.h"
#include "platform/export.h"
#include "platform/weakref.h"

class PXBBannerView;

/// What an application may implement to hear about its banner's ads. Every operation is optional
/// and is called on the main thread, through the banner's delegate manager.
///
/// A delegate is given to PXBBannerView::setDelegate(). The banner does not own it, and one that
/// is destroyed first is simply told nothing more. The banner's signals follow each call.
class SORVEL_EXPORT PXBBannerViewDelegate : public platform::Referenceable {
  public:
    /// An ad has been received and is shown in the banner.
    virtual void adViewDidReceiveAd(PXBBannerView* /*view*/) {}
    /// A request failed; the error is a PXBRequestError (domain "com.sorvel.ads").
    virtual void adViewDidFailToReceiveAdWithError(PXBBannerView* /*view*/,
                                                   const platform::Error& /*error*/) {}
    /// A full screen (browser, web app) is about to cover the application after a click.
    virtual void adViewWillPresentScreen(PXBBannerView* /*view*/) {}
    /// That full screen is about to be dismissed.
    virtual void adViewWillDismissScreen(PXBBannerView* /*view*/) {}
    /// That full screen has been dismissed.
    virtual void adViewDidDismissScreen(PXBBannerView* /*view*/) {}
    /// A click is about to open another application.
    virtual void adViewWillLeaveApplication(PXBBannerView* /*view*/) {}
};
