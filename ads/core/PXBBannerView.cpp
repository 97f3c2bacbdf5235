#include "ads/core/PXBBannerView.h"

#include "ads/core/PXBObjectPrivate.h"
#include "ads/core/PXBPrivateUtilities.h"
#include "platform/notificationcenter.h"

PXBBannerView::PXBBannerView(const QRect& frame, QWidget* parent) : platform::View(frame, parent) {
    commonInitializer();
}

PXBBannerView::PXBBannerView(QWidget* parent) : PXBBannerView(QRect(), parent) {}

PXBBannerView::PXBBannerView(FromInterfaceFile, QWidget* parent) : platform::View(parent) {}

PXBBannerView::~PXBBannerView() {
    if (PXBObjectPrivate* object = privateObject()) {
        object->cancelPendingActions();
        // The manager may outlive the ad object (full screens share it); it must not keep
        // pointing at a banner that is gone.
        object->delegateManager()->setAdView(nullptr);
    }
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    PXBPrivateUtilities::removePrivateObjectForKey(this);
}

void PXBBannerView::awakeFromNib() {
    commonInitializer();
}

void PXBBannerView::commonInitializer() {
    setBackgroundColor(Qt::transparent);
    // What a screen reader says before the ad page's own content.
    setAccessibleName(tr("Advertisement"));
    auto object = std::make_shared<PXBObjectPrivate>(this);
    // The banner's signals go out whether or not a delegate is ever set.
    object->delegateManager()->setAdView(this);
    PXBPrivateUtilities::setPrivateObject(std::move(object), this);
}

PXBObjectPrivate* PXBBannerView::privateObject() const {
    return PXBPrivateUtilities::privateObjectForKey<PXBObjectPrivate>(this);
}

QString PXBBannerView::adUnitID() const {
    const PXBObjectPrivate* object = privateObject();
    return object != nullptr ? object->adUnitID() : QString();
}

void PXBBannerView::setAdUnitID(const QString& adUnitID) {
    if (PXBObjectPrivate* object = privateObject()) {
        object->setAdUnitID(adUnitID);
    }
}

platform::ViewController* PXBBannerView::rootViewController() const {
    const PXBObjectPrivate* object = privateObject();
    return object != nullptr ? object->rootViewController() : nullptr;
}

void PXBBannerView::setRootViewController(platform::ViewController* controller) {
    if (PXBObjectPrivate* object = privateObject()) {
        object->setRootViewController(controller);
    }
}

PXBBannerViewDelegate* PXBBannerView::delegate() const {
    const PXBObjectPrivate* object = privateObject();
    return object != nullptr ? object->delegateManager()->bannerDelegate() : nullptr;
}

void PXBBannerView::setDelegate(PXBBannerViewDelegate* delegate) {
    if (PXBObjectPrivate* object = privateObject()) {
        object->delegateManager()->setBannerDelegate(delegate);
        object->delegateManager()->setAdView(this);
    }
}

bool PXBBannerView::hasAutoRefreshed() const {
    const PXBObjectPrivate* object = privateObject();
    return object != nullptr && object->hasAutoRefreshed();
}

PXBWebView* PXBBannerView::webView() const {
    const PXBObjectPrivate* object = privateObject();
    return object != nullptr ? object->webView() : nullptr;
}

void PXBBannerView::loadRequest(const PXBRequest* request) {
    if (PXBObjectPrivate* object = privateObject()) {
        object->loadRequest(request);
    }
}
