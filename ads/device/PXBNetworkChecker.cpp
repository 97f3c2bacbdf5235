#include "ads/device/PXBNetworkChecker.h"

#include "platform/runloop.h"
#include "platform/ui/application.h"

namespace {

// The platform's readings as flags; a reading the system does not know is no report. The
// system's network information is a plugin (and a connection to the network's manager) that takes
// a few milliseconds to load: it loads after the first frame, and reports what it knows then.
class SystemSource : public PXBReachabilitySource {
  public:
    SystemSource() {
        platform::Application* app = platform::Application::sharedApplication();
        if (app == nullptr) {
            start();
            return;
        }
        app->whenFirstFrameDrawn(this, [this] { start(); });
    }

    std::optional<quint32> currentFlags() const override {
        const platform::ReachabilityReading reading =
            monitor_ ? monitor_->reading() : platform::ReachabilityReading{};
        if (reading.scope == platform::ReachabilityReading::Scope::Unknown) {
            return std::nullopt;
        }
        return PXBNetworkChecker::flagsForReading(reading);
    }

  private:
    void start() {
        monitor_ = platform::ReachabilityMonitor::create();
        if (!monitor_) {
            return;  // the system offers no way to know: nothing is ever reported
        }
        connect(monitor_.get(), &platform::ReachabilityMonitor::readingChanged, this,
                &SystemSource::report);
        report();
    }

    void report() {
        if (const std::optional<quint32> flags = currentFlags()) {
            emit flagsChanged(*flags);
        }
    }

    std::unique_ptr<platform::ReachabilityMonitor> monitor_;
};

PXBNetworkChecker::SourceFactory& sourceFactory() {
    static PXBNetworkChecker::SourceFactory factory = &PXBNetworkChecker::makeSystemSource;
    return factory;
}

QString& hostNameStorage() {
    static QString host = QStringLiteral("localhost");
    return host;
}

}  // namespace

void PXBNetworkChecker::setSourceFactory(SourceFactory factory) {
    sourceFactory() = factory ? std::move(factory) : &makeSystemSource;
}

std::unique_ptr<PXBReachabilitySource> PXBNetworkChecker::makeSystemSource(
    const QString& hostName) {
    Q_UNUSED(hostName);
    return std::make_unique<SystemSource>();
}

quint32 PXBNetworkChecker::flagsForReading(const platform::ReachabilityReading& reading) {
    using Scope = platform::ReachabilityReading::Scope;
    if (reading.scope == Scope::Disconnected || reading.scope == Scope::Unknown) {
        return 0;
    }
    quint32 flags = kReachableFlag;
    if (reading.cellular) {
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
    connect(networkRef_.get(), &PXBReachabilitySource::flagsChanged, this,
            &PXBNetworkChecker::setNetworkTypeFromFlags);
    // The system reports changes only, and a link that never changes would otherwise never be
    // reported: the state at the start comes as the first report, a turn later (so the request
    // built right now still goes without "net"). Dropped with the source if checking stops.
    PXBReachabilitySource* source = networkRef_.get();
    platform::performAfter(source, 0, [this, source] {
        if (const std::optional<quint32> flags = source->currentFlags()) {
            setNetworkTypeFromFlags(*flags);
        }
    });
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
    const quint32 before = networkType_;
    if ((flags & kReachableFlag) == 0) {
        networkType_ = kNetworkTypeNotReachable;
    } else {
        networkType_ = (flags & kIsWWANFlag) != 0 ? kNetworkTypeCellular : kNetworkTypeWiFi;
    }
    if (networkType_ != before) {
        emit networkTypeChanged(networkType_);
    }
}
