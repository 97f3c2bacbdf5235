// The reference ad server: a small HTTP server that speaks the ad client's protocol (support
// script, ad endpoint with its steering headers, tracking, landing pages, request log). Tests and
// the application start it in-process; the sorvel-adserver command wraps the same class.
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

namespace adserver {

// Limits that keep one misbehaving client from taking the server down.
struct ServerLimits {
    int maxConnections = 64;         // further connections get 503 and are closed
    int maxHeaderBytes = 16 * 1024;  // request line and headers together; beyond: 431
    int maxBodyBytes = 64 * 1024;    // announced Content-Length beyond this: 413
    int requestTimeoutMs = 15000;    // a request not complete by then is closed
    int maxLogEntries = 10000;       // the in-memory log keeps the newest entries
    // Padding of oversize faults being sent at once, all connections together; an answer that
    // would go beyond gets 503. Padding is written as the client reads it, never held whole.
    qint64 maxOversizeInFlight = 32LL * 1024 * 1024;
};

class AdServer : public QObject {
    Q_OBJECT
  public:
    explicit AdServer(QObject* parent = nullptr);
    ~AdServer() override;

    // Loads the inventory (empty path: the built-in demo inventory) and listens on host:port
    // (port 0 picks a free one). Returns false with errorString() set when either fails; a
    // server that is already listening is stopped first.
    bool start(quint16 port = 0, const QString& host = QStringLiteral("127.0.0.1"),
               const QString& inventoryPath = QString());
    void stop();
    bool isListening() const;
    QString errorString() const;

    // Where it listens: "http://127.0.0.1:PORT/" (a wildcard host is shown as 127.0.0.1).
    QUrl url() const;
    quint16 port() const;
    // "127.0.0.1:PORT": the host part the ad client's script and ad server addresses need.
    QString hostAndPort() const;
    // The support script: url() + "zelm/sdk-core-v40.js".
    QUrl scriptUrl() const;
    // The ad endpoint the script sends the client to: url() + "ad".
    QUrl adEndpointUrl() const;

    // The inventory's ad unit identifiers, and the one it names as default (the first unit
    // otherwise); the application shows the default when it has no ad unit of its own.
    QStringList adUnitIDs() const;
    QString defaultAdUnitID() const;

    // Reloads the inventory while running (empty path: the demo inventory).
    bool loadInventory(const QString& inventoryPath);

    // The 16-byte key shared with the client for "e1+" locations. Defaults to the compiled-in
    // key, replaced by SORVEL_LOCATION_KEY (32 hex digits) when that is set and valid.
    static QByteArray defaultLocationKey();
    QByteArray locationKey() const;
    bool setLocationKeyHex(const QString& hex);  // false (key unchanged) unless 32 hex digits

    // Appends every logged request as one JSON line to this file (empty: no file).
    bool setLogFile(const QString& path);
    // Log entries whose "seq" is greater than `since`, oldest first (as served at GET /log).
    QJsonArray logEntries(qint64 since = 0) const;
    qint64 lastLogSeq() const;
    void clearLog();

    // Fault switches for every request on one path (e.g. the script), merged under a request's
    // own switches where those are enabled; an empty object clears them. Keys as in the
    // inventory's "faults" (see README).
    void setPathFaults(const QString& path, const QJsonObject& faults);

    // Whether requests may switch faults on themselves: "zf_..." query parameters, the same keys
    // in the request's "extras", and the support script's answer named there. Off unless asked
    // for, as any page that reaches the server could otherwise have it redirect anywhere, echo
    // markup or send large bodies; the inventory's faults and setPathFaults hold either way.
    void setRequestFaultsEnabled(bool enabled);
    bool requestFaultsEnabled() const;

    // The request log over HTTP (/log) goes to peers on loopback, and to others that present
    // this token as "Authorization: Bearer TOKEN" or "token=TOKEN" in the query; empty (the
    // default): loopback only.
    void setLogToken(const QString& token);
    // Whether a peer at this address reads the log without the token (IPv4-mapped too).
    static bool isLoopback(const QHostAddress& peer);
    // For tests: every request is judged as if it came from `peer` (null: the socket's peer).
    void setPeerAddressOverride(const QHostAddress& peer);

    // Host names served besides the listening address and "localhost", each as "name" (on the
    // server's port) or "name:port". Requests that name any other host get 400, so a page whose
    // own name was made to resolve here (DNS rebinding) reads nothing from the server. Returns
    // false, changing nothing, unless every name is a plain host name or IP address.
    bool setServerNames(const QStringList& names);
    // Every "host:port" a request may name while listening, the one of url() first (a
    // connection may also name the address it arrived on).
    QStringList serverNames() const;

    void setLimits(const ServerLimits& limits);
    ServerLimits limits() const;

  signals:
    // Emitted once per answered (or abandoned) request, with its log entry.
    void requestLogged(const QJsonObject& entry);

  private:
    struct Private;
    std::unique_ptr<Private> d;
};

}  // namespace adserver
