// A full-screen ad and what its delegates may implement. Nothing in this application shows one
// yet; the types exist so that the delegate manager can report to interstitial listeners.
#pragma once

#include "platform/error.h"
#include "platform/weakref.h"

class PXBInterstitial : public platform::Referenceable {};

// Every operation is optional; each is called on the main thread by the delegate manager.
class PXBInterstitialDelegate : public platform::Referenceable {
  public:
    virtual void interstitialDidReceiveAd(PXBInterstitial* /*interstitial*/) {}
    virtual void interstitialDidFailToReceiveAdWithError(PXBInterstitial* /*interstitial*/,
                                                         const platform::Error& /*error*/) {}
    virtual void interstitialWillPresentScreen(PXBInterstitial* /*interstitial*/) {}
    virtual void interstitialWillDismissScreen(PXBInterstitial* /*interstitial*/) {}
    virtual void interstitialDidDismissScreen(PXBInterstitial* /*interstitial*/) {}
    virtual void interstitialWillLeaveApplication(PXBInterstitial* /*interstitial*/) {}
};
