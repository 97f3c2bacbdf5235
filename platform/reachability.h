// Network reachability as the desktop knows it (NetworkManager and the like, through Qt's network
// information): how far the machine's network reaches and whether its link is cellular. The
// system knows the state of its links as a whole, not the route to one host.
#pragma once

#include <QObject>
#include <QPointer>

#include <memory>

class QNetworkInformation;

namespace platform {

struct ReachabilityReading {
    enum class Scope { Unknown, Disconnected, Local, Site, Online };
    Scope scope = Scope::Unknown;
    bool cellular = false;

    bool operator==(const ReachabilityReading&) const = default;
};

class ReachabilityMonitor : public QObject {
    Q_OBJECT
  public:
    // Null when the system offers no way to know (no backend on this machine).
    static std::unique_ptr<ReachabilityMonitor> create();
    ~ReachabilityMonitor() override;

    // The state now; Unknown once the backend has lost track.
    ReachabilityReading reading() const;

  signals:
    // The state changed. One change of the system often arrives as several (the scope, then the
    // medium): they come as one signal, on the next turn of the event loop.
    void readingChanged();

  private:
    explicit ReachabilityMonitor(QNetworkInformation* information);
    void scheduleReport();

    QPointer<QNetworkInformation> information_;
    bool reportPending_ = false;
};

}  // namespace platform
