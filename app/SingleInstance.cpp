#include "app/SingleInstance.h"

#include <QCryptographicHash>
#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>

#include <unistd.h>

namespace {
constexpr char kShow[] = "show\n";
constexpr char kShown[] = "shown\n";
}  // namespace

QString SingleInstance::socketName() {
    // The profile is the data folder (XDG_DATA_HOME): runs with a profile of their own, as the
    // tests start them, stay apart.
    const QByteArray profile =
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation).toUtf8();
    const QString name =
        QStringLiteral("brindle-sounds-%1-%2")
            .arg(getuid())
            .arg(QString::fromLatin1(
                QCryptographicHash::hash(profile, QCryptographicHash::Sha256).toHex().left(16)));
    // The runtime folder is the user's alone; without one the name lands in the temporary
    // folder, where the socket itself is the user's only.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return runtime.isEmpty() || !QDir(runtime).exists() ? name : runtime + u'/' + name;
}

bool SingleInstance::askRunningInstanceToShow(int timeoutMilliseconds) {
    QLocalSocket socket;
    socket.connectToServer(socketName());
    if (!socket.waitForConnected(timeoutMilliseconds)) {
        return false;
    }
    socket.write(kShow);
    if (!socket.waitForBytesWritten(timeoutMilliseconds)) {
        return false;
    }
    while (socket.bytesAvailable() < qint64(sizeof(kShown) - 1)) {
        if (!socket.waitForReadyRead(timeoutMilliseconds)) {
            return false;
        }
    }
    return socket.readAll() == kShown;
}

bool SingleInstance::listen() {
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, socket, [this, socket] {
                if (!socket->canReadLine()) {
                    if (socket->bytesAvailable() > 64) {
                        socket->abort();
                    }
                    return;
                }
                if (socket->readLine(64) == kShow) {
                    socket->write(kShown);
                    emit showRequested();
                }
                socket->disconnectFromServer();
            });
        }
    });
    const QString name = socketName();
    if (server_.listen(name)) {
        return true;
    }
    QLocalServer::removeServer(name);
    return server_.listen(name);
}
