#include "ads/core/PXBRequest.h"

#include "ads/core/PXBRequestPrivate.h"

std::shared_ptr<PXBRequest> PXBRequest::request() {
    return PXBRequestPrivate::create();
}

std::shared_ptr<PXBRequest> PXBRequest::create() {
    return PXBRequestPrivate::create();
}

std::shared_ptr<PXBRequest> PXBRequest::copy() const {
    return PXBRequestPrivate::createWithRequest(this);
}

const QString& PXBRequest::sdkVersion() {
    static const QString version = QString::asprintf("zelm-sdk-i-v%d.%d.%d", 4, 1, 1);
    return version;
}
