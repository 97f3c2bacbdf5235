// A bare HTTP client for the ad server's tests: writes the request bytes as given and reads the
// answer until the server closes, keeping header lines exactly as sent (malformed ones too).
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QHostAddress>
#include <QList>
#include <QTcpSocket>
#include <QTimer>

struct RawReply {
    int status = 0;  // 0: no answer
    QList<QByteArray> headerLines;
    QByteArray body;

    QList<QByteArray> values(const QByteArray& name) const {
        QList<QByteArray> found;
        for (const QByteArray& line : headerLines) {
            const qsizetype colon = line.indexOf(':');
            if (colon > 0 && line.left(colon).compare(name, Qt::CaseInsensitive) == 0) {
                found.append(line.mid(colon + 1).trimmed());
            }
        }
        return found;
    }
    QByteArray value(const QByteArray& name) const { return values(name).value(0); }
    bool has(const QByteArray& name) const { return !values(name).isEmpty(); }
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

inline RawReply rawGet(quint16 port, const QByteArray& target,
                       const QByteArray& extraHeaders = QByteArray()) {
    return rawExchange(port, "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                                 QByteArray::number(port) + "\r\n" + extraHeaders + "\r\n");
}
