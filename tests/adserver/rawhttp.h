// A bare HTTP client for the ad server's tests: writes the request bytes as given and reads the
// answer until the server closes, keeping header lines exactly as sent (malformed ones too).
#pragma once

#include <QByteArray>
#include <QEventLoop>
#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>

struct RawReply {
    int status = 0;  // 0: no answer
    QList<QByteArray> headerLines;
    QByteArray body;

    QByteArray value(const QByteArray& name) const {
        for (const QByteArray& line : headerLines) {
            if (line.startsWith(name + ':')) {
                return line.mid(name.size() + 1).trimmed();
            }
        }
        return {};
    }
};

inline RawReply rawExchange(quint16 port, const QByteArray& bytes, int timeoutMs = 10000) {
    QTcpSocket socket;
    QByteArray data;
    QEventLoop loop;
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] { data += socket.readAll(); });
    QObject::connect(&socket, &QTcpSocket::disconnected, &loop, &QEventLoop::quit);
    QObject::connect(&socket, &QTcpSocket::errorOccurred, &loop, &QEventLoop::quit);
    socket.connectToHost(QHostAddress::LocalHost, port);
    socket.write(bytes);
    loop.exec();
    data += socket.readAll();

    RawReply reply;
    const qsizetype end = data.indexOf("\r\n\r\n");
    if (end < 0) {
        return reply;
    }
    const QList<QByteArray> lines = data.left(end).split('\n');
    reply.status = lines.value(0).split(' ').value(1).toInt();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        reply.headerLines.append(lines[i].trimmed());
    }
    reply.body = data.mid(end + 4);
    return reply;
}

inline QByteArray getRequest(quint16 port, const QByteArray& target,
                             const QByteArray& extraHeaders = {}) {
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port) + "\r\n" +
           extraHeaders + "\r\n";
}

inline RawReply rawGet(quint16 port, const QByteArray& target) {
    return rawExchange(port, getRequest(port, target));
}
