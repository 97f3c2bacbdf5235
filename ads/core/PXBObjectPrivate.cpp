#include "ads/core/PXBObjectPrivate.h"

#include "platform/log.h"
#include "platform/runloop.h"
#include "platform/ui/viewcontroller.h"

PXBObjectPrivate::PXBObjectPrivate(PXBBannerView* view)
    : adView_(view), delegateManager_(PXBDelegateManager::create()) {}

PXBObjectPrivate::~PXBObjectPrivate() = default;

platform::ViewController* PXBObjectPrivate::rootViewController() const {
    return static_cast<platform::ViewController*>(rootViewController_.data());
}

void PXBObjectPrivate::setRootViewController(platform::ViewController* controller) {
    rootViewController_ = controller;
}

void PXBObjectPrivate::loadRequest(const PXBRequest* request) {
    if (request != request_.get()) {
        request_ = PXBRequestPrivate::createWithRequest(request);
    }
    platform::logDebug(QStringLiteral("<Sorvel> Request for ad unit %1 accepted").arg(adUnitID_));
}

void PXBObjectPrivate::cancelPendingActions() {
    platform::cancelPreviousPerformRequests(this);
}
