// A deliberately small HTTP/1.1 server on QTcpServer: one request per connection, bounded
// header and body sizes, a connection cap and a request time-out. Handlers return a response
// that may ask for a delay, a dropped connection or raw (even malformed) header lines.
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
    QByteArray target;    // as sent
    QString path;         // percent-decoded, without the query
    QByteArray rawQuery;  // without the "?", still escaped
    QList<QPair<QByteArray, QByteArray>> headers;
    QDateTime received;
    QByteArray header(const QByteArray& name) const;
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

  private:
    class Connection;
    void onNewConnection();
    void dispatch(Connection* connection, const HttpRequest& request);

    QTcpServer server_;
    Handler handler_;
    Completion completion_;
    Limits limits_;
    int open_ = 0;
};

}  // namespace adserver
