// A small HTTP/1.1 server on loopback for tests: routes answer with any status, headers and body,
// after a delay if asked. Records every request.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTcpServer>
#include <QUrl>

#include <functional>

namespace testsupport {

struct HttpTestRequest {
    QString path;  // without the query
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray header(const QByteArray& name) const;
};

struct HttpTestResponse {
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    int delayMs = 0;  // wait before answering
};

class HttpTestServer : public QObject {
    Q_OBJECT
  public:
    using Handler = std::function<HttpTestResponse(const HttpTestRequest&)>;

    explicit HttpTestServer(QObject* parent = nullptr);
    // Listens on 127.0.0.1 on a free port.
    bool start();
    quint16 port() const { return server_.serverPort(); }
    QUrl url(const QString& pathAndQuery) const;

    // Routes match the path exactly; unknown paths get 404.
    void route(const QString& path, Handler handler);
    const QList<HttpTestRequest>& requests() const { return requests_; }
    void clearRequests() { requests_.clear(); }

  private:
    void onConnection();
    void answer(QTcpSocket* socket, const HttpTestRequest& request);

    QTcpServer server_;
    QHash<QString, Handler> routes_;
    QList<HttpTestRequest> requests_;
};

// A port on loopback where nothing listens (bound and released).
quint16 unusedPort();

}  // namespace testsupport
