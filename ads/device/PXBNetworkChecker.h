// Watches whether the network can be reached and over which kind of link, so that each ad
// request can tell the server its connection type ("wi" or "ed"). Event-driven: the type is
// unknown from the start of checking until the system's first report, which gives the state at
// the start on the next turn of the event loop, then each change.
#pragma once

#include "platform/reachability.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

// Where reachability comes from: the system's state now and each change of it, as flags
// (PXBNetworkChecker::kReachableFlag, kIsWWANFlag). The checker's default source follows the
// platform's reachability readings; tests substitute their own.
class PXBReachabilitySource : public QObject {
    Q_OBJECT
  public:
    // Nothing while the system does not know.
    virtual std::optional<quint32> currentFlags() const { return std::nullopt; }
  signals:
    void flagsChanged(quint32 flags);
};

class PXBNetworkChecker : public QObject {
    Q_OBJECT
  public:
    // Reachability flags as the checker reads them.
    static constexpr quint32 kReachableFlag = 0x2;
    static constexpr quint32 kIsWWANFlag = 0x40000;

    enum NetworkType : quint32 {
        kNetworkTypeUnknown = 0,
        kNetworkTypeNotReachable = 1,
        kNetworkTypeWiFi = 2,
        kNetworkTypeCellular = 3,
    };

    // Makes a source watching the way to `hostName`, or null when the system offers none.
    using SourceFactory =
        std::function<std::unique_ptr<PXBReachabilitySource>(const QString& hostName)>;
    static void setSourceFactory(SourceFactory factory);
    // A source over the platform's reachability readings. They load after the first frame (see
    // platform::Application::whenFirstFrameDrawn); it never reports when the system offers none.
    // It reports the system's link as a whole: the desktop knows no per-host routes.
    static std::unique_ptr<PXBReachabilitySource> makeSystemSource(const QString& hostName);
    // The flags the default source reports for a reading: reachable in any connected scope
    // (the ad server may be on the local network), over the cellular link when the link is
    // cellular, nothing at all when disconnected or unknown.
    static quint32 flagsForReading(const platform::ReachabilityReading& reading);

    // The host whose reachability is watched: the ad server's host. Set by whoever configures
    // the ad server; "localhost" until then.
    static QString webHostName();
    static void setWebHostName(const QString& hostName);

    // The process-wide checker, switched on at its creation; it lives for the process.
    static PXBNetworkChecker* sharedChecker();

    explicit PXBNetworkChecker(QObject* parent = nullptr);
    ~PXBNetworkChecker() override;

    bool isEnabled() const { return networkRef_ != nullptr; }
    void setEnabled(bool enabled);

    // Makes the type unknown and, if not yet on, starts watching (the state at the start follows
    // on the next turn); stays off without a source.
    void startNetworkChecking();
    // Stops watching and forgets the type; the change count is kept.
    void stopNetworkChecking();

    quint32 networkType() const { return networkType_; }
    // "wi" or "ed", null while the type is unknown or the network is not reachable.
    QString networkTypeString() const;
    // Reachability changes received since creation.
    quint32 changeCount() const { return changeCount_; }

    void setNetworkTypeFromFlags(quint32 flags);

  signals:
    // The type differs from the last one read (not for a stop, which only forgets it).
    void networkTypeChanged(quint32 type);

  private:
    std::unique_ptr<PXBReachabilitySource> networkRef_;
    quint32 networkType_ = kNetworkTypeUnknown;
    quint32 changeCount_ = 0;
};
