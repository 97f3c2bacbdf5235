#include "httptestserver.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

namespace testsupport {

QByteArray HttpTestRequest::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

HttpTestServer::HttpTestServer(QObject* parent) : QObject(parent) {
    connect(&server_, &QTcpServer::newConnection, this, &HttpTestServer::onConnection);
}

bool HttpTestServer::start() {
    return server_.listen(QHostAddress::LocalHost, 0);
}

QUrl HttpTestServer::url(const QString& pathAndQuery) const {
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(pathAndQuery));
}

void HttpTestServer::route(const QString& path, Handler handler) {
    routes_.insert(path, std::move(handler));
}

void HttpTestServer::onConnection() {
    while (QTcpSocket* socket = server_.nextPendingConnection()) {
        auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
            buffer->append(socket->readAll());
            const qsizetype end = buffer->indexOf("\r\n\r\n");
            if (end < 0) {
                return;
            }
            const QList<QByteArray> lines = buffer->left(end).split('\n');
            buffer->remove(0, end + 4);
            HttpTestRequest request;
            const QByteArray target = lines.value(0).trimmed().split(' ').value(1);
            const qsizetype q = target.indexOf('?');
            request.path = QString::fromLatin1(q < 0 ? target : target.left(q));
            for (int i = 1; i < lines.size(); ++i) {
                const QByteArray line = lines[i].trimmed();
                const qsizetype colon = line.indexOf(':');
                if (colon > 0) {
                    request.headers.append(
                        {line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
                }
            }
            requests_.append(request);
            answer(socket, request);
        });
    }
}

void HttpTestServer::answer(QTcpSocket* socket, const HttpTestRequest& request) {
    auto it = routes_.constFind(request.path);
    HttpTestResponse response;
    if (it != routes_.constEnd()) {
        response = (*it)(request);
    } else {
        response.status = 404;
        response.body = "not found";
    }
    QPointer<QTcpSocket> guard(socket);
    auto send = [guard, response] {
        if (!guard) {
            return;
        }
        QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
        for (const auto& [name, value] : response.headers) {
            head += name + ": " + value + "\r\n";
        }
        head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
        head += "Connection: close\r\n\r\n";
        guard->write(head);
        guard->write(response.body);
        guard->disconnectFromHost();
    };
    if (response.delayMs > 0) {
        QTimer::singleShot(response.delayMs, this, send);
    } else {
        send();
    }
}

quint16 unusedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

}  // namespace testsupport
