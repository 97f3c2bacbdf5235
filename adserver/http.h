// A deliberately small HTTP/1.1 server on QTcpServer: one request per connection, bounded
// header and body sizes, a connection cap and a request time-out. Handlers return a response
// that may ask for a delay, a dropped connection, raw (even malformed) header lines or a long
// run of filler, which is written as the client reads it instead of being held in memory.
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTcpServer>

#include <functional>

namespace adserver {

struct HttpRequest {
    QByteArray method;
    QByteArray target;     // as sent
    QByteArray version;    // "HTTP/1.1", "HTTP/1.0", ...
    QByteArray authority;  // the "host[:port]" of an absolute-form target; empty otherwise
    QString path;          // percent-decoded, without the query
    QByteArray rawQuery;   // without the "?", still escaped
    QList<QPair<QByteArray, QByteArray>> headers;
    QDateTime received;
    QHostAddress peer;   // the client's address (or the listener's stand-in for it)
    QHostAddress local;  // the address the connection arrived on
    QByteArray header(const QByteArray& name) const;
    int headerCount(const QByteArray& name) const;
};

struct HttpResponse {
    int status = 200;
    // Written in order as "name: value"; an empty name writes the value as a bare line.
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    int delayMs = 0;
    bool drop = false;      // close the connection without an answer
    bool truncate = false;  // close the connection half way through the announced body
    bool headOnly = false;
    // Blanks sent after `body`, counted in its Content-Length; inside an HTML comment when
    // `fillerInComment` and there is room for one.
    qint64 filler = 0;
    bool fillerInComment = false;
    void setHeader(const QByteArray& name, const QByteArray& value);
    QByteArray header(const QByteArray& name) const;
};

QByteArray reasonPhrase(int status);

class HttpListener : public QObject {
    Q_OBJECT
  public:
    using Handler = std::function<HttpResponse(const HttpRequest&)>;
    // Told of every request that reached a handler once it is answered or abandoned.
    using Completion = std::function<void(const HttpRequest&, const HttpResponse&, bool abandoned)>;

    struct Limits {
        int maxConnections = 64;
        int maxHeaderBytes = 16 * 1024;
        int maxBodyBytes = 64 * 1024;
        int requestTimeoutMs = 15000;
        // Filler of all answers under way together; an answer that would go beyond gets 503.
        qint64 maxFillerInFlight = 32LL * 1024 * 1024;
    };

    explicit HttpListener(QObject* parent = nullptr);
    ~HttpListener() override;

    bool listen(const QHostAddress& address, quint16 port);
    void close();
    bool isListening() const { return server_.isListening(); }
    quint16 port() const { return server_.serverPort(); }
    QString errorString() const { return server_.errorString(); }

    void setHandler(Handler handler) { handler_ = std::move(handler); }
    void setCompletion(Completion completion) { completion_ = std::move(completion); }
    void setLimits(const Limits& limits) { limits_ = limits; }
    int openConnections() const { return open_; }
    qint64 fillerInFlight() const { return fillerInFlight_; }
    // Requests are reported as coming from `peer` instead of the socket's peer (null: the
    // socket's own), so that tests on loopback can play a client from elsewhere.
    void setPeerOverride(const QHostAddress& peer) { peerOverride_ = peer; }

  private:
    class Connection;
    void onNewConnection();
    void dispatch(Connection* connection, const HttpRequest& request);

    QTcpServer server_;
    Handler handler_;
    Completion completion_;
    Limits limits_;
    QHostAddress peerOverride_;
    int open_ = 0;
    qint64 fillerInFlight_ = 0;
};

}  // namespace adserver
