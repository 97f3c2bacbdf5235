#include "reachability.h"

#include "runloop.h"

#include <QNetworkInformation>

namespace platform {

std::unique_ptr<ReachabilityMonitor> ReachabilityMonitor::create() {
    if (QNetworkInformation::instance() == nullptr &&
        !QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) {
        return nullptr;
    }
    return std::unique_ptr<ReachabilityMonitor>(
        new ReachabilityMonitor(QNetworkInformation::instance()));
}

ReachabilityMonitor::ReachabilityMonitor(QNetworkInformation* information)
    : information_(information) {
    connect(information, &QNetworkInformation::reachabilityChanged, this,
            &ReachabilityMonitor::scheduleReport);
    connect(information, &QNetworkInformation::transportMediumChanged, this,
            &ReachabilityMonitor::scheduleReport);
}

ReachabilityMonitor::~ReachabilityMonitor() = default;

ReachabilityReading ReachabilityMonitor::reading() const {
    ReachabilityReading reading;
    if (!information_) {
        return reading;
    }
    using R = QNetworkInformation::Reachability;
    switch (information_->reachability()) {
        case R::Disconnected:
            reading.scope = ReachabilityReading::Scope::Disconnected;
            break;
        case R::Local:
            reading.scope = ReachabilityReading::Scope::Local;
            break;
        case R::Site:
            reading.scope = ReachabilityReading::Scope::Site;
            break;
        case R::Online:
            reading.scope = ReachabilityReading::Scope::Online;
            break;
        case R::Unknown:
            break;
    }
    reading.cellular =
        information_->transportMedium() == QNetworkInformation::TransportMedium::Cellular;
    return reading;
}

void ReachabilityMonitor::scheduleReport() {
    if (reportPending_) {
        return;
    }
    reportPending_ = true;
    performAfter(this, 0, [this] {
        reportPending_ = false;
        emit readingChanged();
    });
}

}  // namespace platform
