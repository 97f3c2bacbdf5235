#include "ads/device/PXBNetworkChecker.h"

#include "platform/runloop.h"

#include <QNetworkInformation>

namespace {

// Turns Qt's reachability and transport medium into reachability flags. One system change can
// arrive as two signals (reachability, then medium); they are gathered into a single report on
// the next turn of the event loop.
class NetworkInformationSource : public PXBReachabilitySource {
  public:
    explicit NetworkInformationSource(QNetworkInformation* info) : info_(info) {
        connect(info, &QNetworkInformation::reachabilityChanged, this,
                &NetworkInformationSource::scheduleReport);
        connect(info, &QNetworkInformation::transportMediumChanged, this,
                &NetworkInformationSource::scheduleReport);
    }

  private:
    void scheduleReport() {
        if (reportPending_) {
            return;
        }
        reportPending_ = true;
        platform::performAfter(this, 0, [this] {
            reportPending_ = false;
            // A backend that has lost track says nothing rather than "not reachable".
            if (!info_ || info_->reachability() == QNetworkInformation::Reachability::Unknown) {
                return;
            }
            emit flagsChanged(PXBNetworkChecker::flagsForNetworkInformation(
                info_->reachability(), info_->transportMedium()));
        });
    }

    QPointer<QNetworkInformation> info_;
    bool reportPending_ = false;
};

PXBNetworkChecker::SourceFactory& sourceFactory() {
    static PXBNetworkChecker::SourceFactory factory =
        &PXBNetworkChecker::makeNetworkInformationSource;
    return factory;
}

QString& hostNameStorage() {
    static QString host = QStringLiteral("localhost");
    return host;
}

}  // namespace

void PXBNetworkChecker::setSourceFactory(SourceFactory factory) {
    sourceFactory() = factory ? std::move(factory) : &makeNetworkInformationSource;
}

std::unique_ptr<PXBReachabilitySource> PXBNetworkChecker::makeNetworkInformationSource(
    const QString& hostName) {
    Q_UNUSED(hostName);
    if (QNetworkInformation::instance() == nullptr &&
        !QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) {
        return nullptr;
    }
    return std::make_unique<NetworkInformationSource>(QNetworkInformation::instance());
}

quint32 PXBNetworkChecker::flagsForNetworkInformation(
    QNetworkInformation::Reachability reachability, QNetworkInformation::TransportMedium medium) {
    using R = QNetworkInformation::Reachability;
    if (reachability == R::Disconnected || reachability == R::Unknown) {
        return 0;
    }
    quint32 flags = kReachableFlag;
    if (medium == QNetworkInformation::TransportMedium::Cellular) {
        flags |= kIsWWANFlag;
    }
    return flags;
}

QString PXBNetworkChecker::webHostName() {
    return hostNameStorage();
}

void PXBNetworkChecker::setWebHostName(const QString& hostName) {
    hostNameStorage() = hostName;
}

PXBNetworkChecker* PXBNetworkChecker::sharedChecker() {
    static PXBNetworkChecker* shared = [] {
        auto* checker = new PXBNetworkChecker();
        checker->setEnabled(true);
        return checker;
    }();
    return shared;
}

PXBNetworkChecker::PXBNetworkChecker(QObject* parent) : QObject(parent) {}

PXBNetworkChecker::~PXBNetworkChecker() {
    stopNetworkChecking();
}

void PXBNetworkChecker::setEnabled(bool enabled) {
    if (enabled == isEnabled()) {
        return;
    }
    if (enabled) {
        startNetworkChecking();
    } else {
        stopNetworkChecking();
    }
}

void PXBNetworkChecker::startNetworkChecking() {
    networkType_ = kNetworkTypeUnknown;
    if (networkRef_) {
        return;
    }
    networkRef_ = sourceFactory()(webHostName());
    if (!networkRef_) {
        return;
    }
    // No reading now: the type stays unknown until the first change arrives.
    connect(networkRef_.get(), &PXBReachabilitySource::flagsChanged, this,
            &PXBNetworkChecker::setNetworkTypeFromFlags);
}

void PXBNetworkChecker::stopNetworkChecking() {
    if (!networkRef_) {
        return;
    }
    networkRef_.reset();
    networkType_ = kNetworkTypeUnknown;
}

QString PXBNetworkChecker::networkTypeString() const {
    switch (networkType_) {
        case kNetworkTypeWiFi:
            return QStringLiteral("wi");
        case kNetworkTypeCellular:
            return QStringLiteral("ed");
        default:
            return QString();
    }
}

void PXBNetworkChecker::setNetworkTypeFromFlags(quint32 flags) {
    ++changeCount_;
    if ((flags & kReachableFlag) == 0) {
        networkType_ = kNetworkTypeNotReachable;
    } else {
        networkType_ = (flags & kIsWWANFlag) != 0 ? kNetworkTypeCellular : kNetworkTypeWiFi;
    }
}
