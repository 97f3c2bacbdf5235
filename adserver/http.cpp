#include "adserver/http.h"

#include <QLocale>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

#include <algorithm>

namespace adserver {

QByteArray HttpRequest::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

int HttpRequest::headerCount(const QByteArray& name) const {
    return int(std::count_if(headers.begin(), headers.end(), [&name](const auto& entry) {
        return entry.first.compare(name, Qt::CaseInsensitive) == 0;
    }));
}

void HttpResponse::setHeader(const QByteArray& name, const QByteArray& value) {
    for (auto& entry : headers) {
        if (entry.first.compare(name, Qt::CaseInsensitive) == 0) {
            entry.second = value;
            return;
        }
    }
    headers.append({name, value});
}

QByteArray HttpResponse::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

QByteArray reasonPhrase(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 204:
            return "No Content";
        case 301:
            return "Moved Permanently";
        case 302:
            return "Found";
        case 303:
            return "See Other";
        case 304:
            return "Not Modified";
        case 307:
            return "Temporary Redirect";
        case 400:
            return "Bad Request";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 408:
            return "Request Timeout";
        case 413:
            return "Content Too Large";
        case 414:
            return "URI Too Long";
        case 431:
            return "Request Header Fields Too Large";
        case 500:
            return "Internal Server Error";
        case 501:
            return "Not Implemented";
        case 502:
            return "Bad Gateway";
        case 503:
            return "Service Unavailable";
        default:
            return "Status";
    }
}

namespace {

bool isToken(const QByteArray& text) {
    if (text.isEmpty()) {
        return false;
    }
    for (char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u <= 32 || u >= 127 || QByteArrayView("()<>@,;:\\\"/[]?={}").contains(c)) {
            return false;
        }
    }
    return true;
}

QByteArray httpDate(const QDateTime& time) {
    return QLocale::c()
        .toString(time.toUTC(), QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"))
        .toLatin1();
}

bool isBodyless(const HttpResponse& response) {
    return response.status == 204 || response.status == 304 || response.status < 200;
}

// The status line and the headers, up to the blank line.
QByteArray serializeHead(const HttpResponse& response) {
    QByteArray out;
    out += "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) +
           "\r\n";
    bool hasLength = false;
    for (const auto& [name, value] : response.headers) {
        if (name.isEmpty()) {
            out += value + "\r\n";
            continue;
        }
        hasLength = hasLength || name.compare("Content-Length", Qt::CaseInsensitive) == 0;
        out += name + ": " + value + "\r\n";
    }
    if (!hasLength && !isBodyless(response)) {
        out += "Content-Length: " + QByteArray::number(response.body.size() + response.filler) +
               "\r\n";
    }
    out += "Date: " + httpDate(QDateTime::currentDateTimeUtc()) + "\r\n";
    out += "Connection: close\r\n\r\n";
    return out;
}

// For answers without filler.
QByteArray serialize(const HttpResponse& response) {
    QByteArray out = serializeHead(response);
    if (!isBodyless(response) && !response.headOnly) {
        out += response.body;
    }
    return out;
}

// Bytes [from, from + size) of `total` bytes of filler.
QByteArray fillerPiece(qint64 from, qint64 size, qint64 total, bool comment) {
    QByteArray piece(size, ' ');
    if (comment && total >= 7) {
        static const char open[] = "<!--";
        static const char close[] = "-->";
        for (qint64 i = from; i < 4 && i < from + size; ++i) {
            piece[i - from] = open[i];
        }
        for (qint64 i = std::max(from, total - 3); i < from + size; ++i) {
            piece[i - from] = close[i - (total - 3)];
        }
    }
    return piece;
}

HttpResponse plain(int status, const QByteArray& text) {
    HttpResponse response;
    response.status = status;
    response.setHeader("Content-Type", "text/plain; charset=utf-8");
    response.body = text + '\n';
    return response;
}

}  // namespace

// One client connection: reads one request within the limits, hands it to the listener, writes
// the answer (possibly later) and closes.
class HttpListener::Connection : public QObject {
  public:
    Connection(HttpListener* listener, QTcpSocket* socket)
        : QObject(listener), listener_(listener), socket_(socket) {
        socket_->setParent(this);
        const auto& limits = listener_->limits_;
        // Whatever a client sends beyond one request stays in the kernel, not in our buffers.
        socket_->setReadBufferSize(qint64(limits.maxHeaderBytes) + limits.maxBodyBytes + 4);
        connect(socket_, &QTcpSocket::readyRead, this, [this] { onReadyRead(); });
        connect(socket_, &QTcpSocket::bytesWritten, this, [this] { writeFiller(); });
        connect(socket_, &QTcpSocket::disconnected, this, [this] { deleteLater(); });
        timeout_.setSingleShot(true);
        connect(&timeout_, &QTimer::timeout, this, [this] {
            if (!dispatched_) {
                fail(408, "request timed out", {});
            }
        });
        timeout_.start(limits.requestTimeoutMs);
    }

    ~Connection() override {
        releaseFiller();
        if (pending_ && listener_->completion_) {
            listener_->completion_(request_, pendingResponse_, true);
        }
    }

    void answer(const HttpResponse& given) {
        if (given.delayMs > 0) {
            pending_ = true;
            pendingResponse_ = given;
            QTimer::singleShot(given.delayMs, this, [this] {
                pending_ = false;
                HttpResponse now = pendingResponse_;
                now.delayMs = 0;
                answer(now);
            });
            return;
        }
        HttpResponse response = given;
        const bool sendsBody = !isBodyless(response) && !response.headOnly && !response.drop;
        if (sendsBody && response.filler > 0) {
            // Filler costs little memory as it is written, but bandwidth and time all the same:
            // only so much of it is under way at once.
            if (listener_->fillerInFlight_ + response.filler >
                listener_->limits_.maxFillerInFlight) {
                response = plain(503, "too many large answers under way");
                response.setHeader("Retry-After", "1");
            } else {
                reserved_ = response.filler;
                listener_->fillerInFlight_ += reserved_;
            }
        }
        if (listener_->completion_) {
            listener_->completion_(request_, response, response.drop);
        }
        if (response.drop) {
            socket_->abort();
            deleteLater();
            return;
        }
        QByteArray bytes = serializeHead(response);
        if (sendsBody) {
            bytes += response.body;
        }
        const qint64 filler = sendsBody ? response.filler : 0;
        qint64 total = bytes.size() + filler;
        if (response.truncate && !response.headOnly) {
            // At least one byte short of what "Content-Length" announced; the close follows.
            const qint64 announced = response.body.size() + response.filler;
            total = std::max<qint64>(0, total - std::max<qint64>(1, announced - announced / 2));
        }
        if (bytes.size() > total) {
            bytes.truncate(total);
        }
        fillerTotal_ = filler;
        fillerInComment_ = response.fillerInComment;
        fillerEnd_ = total - bytes.size();
        socket_->write(bytes);
        writeFiller();
        // A client that stops reading must not keep the connection forever.
        QTimer::singleShot(60000, this, [this] { socket_->abort(); });
    }

  private:
    // The next pieces of filler while the socket has little left to send; the close once all
    // of it is handed over.
    void writeFiller() {
        constexpr qint64 kPiece = 64 * 1024;
        if (closing_ || fillerEnd_ < 0) {
            return;
        }
        while (fillerSent_ < fillerEnd_ && socket_->bytesToWrite() < kPiece) {
            const qint64 size = std::min(kPiece, fillerEnd_ - fillerSent_);
            const QByteArray piece = fillerPiece(fillerSent_, size, fillerTotal_, fillerInComment_);
            fillerSent_ += size;
            socket_->write(piece);
        }
        if (fillerSent_ >= fillerEnd_) {
            releaseFiller();
            closing_ = true;
            socket_->disconnectFromHost();
        }
    }

    void releaseFiller() {
        listener_->fillerInFlight_ -= reserved_;
        reserved_ = 0;
    }

    void write(const QByteArray& bytes) {
        socket_->write(bytes);
        socket_->disconnectFromHost();
        QTimer::singleShot(60000, this, [this] { socket_->abort(); });
    }

    void fail(int status, const QByteArray& text, const HttpRequest& partial) {
        dispatched_ = true;
        timeout_.stop();
        HttpResponse response = plain(status, text);
        if (listener_->completion_) {
            HttpRequest request = partial;
            request.received =
                request.received.isValid() ? request.received : QDateTime::currentDateTimeUtc();
            listener_->completion_(request, response, false);
        }
        write(serialize(response));
    }

    void onReadyRead() {
        if (dispatched_) {
            socket_->readAll();  // one request per connection; the rest is ignored
            return;
        }
        const auto& limits = listener_->limits_;
        buffer_ +=
            socket_->read(qint64(limits.maxHeaderBytes) + limits.maxBodyBytes + 4 - buffer_.size());
        if (headerEnd_ < 0) {
            qsizetype end = buffer_.indexOf("\r\n\r\n");
            qsizetype skip = 4;
            const qsizetype bare = buffer_.indexOf("\n\n");
            if (bare >= 0 && (end < 0 || bare < end)) {
                end = bare;
                skip = 2;
            }
            if (end < 0) {
                if (buffer_.size() > limits.maxHeaderBytes) {
                    fail(buffer_.indexOf('\n') < 0 ? 414 : 431, "request header too large", {});
                }
                return;
            }
            if (end > limits.maxHeaderBytes) {
                fail(431, "request header too large", {});
                return;
            }
            headerEnd_ = end + skip;
            if (!parseHead(buffer_.left(end))) {
                return;
            }
        }
        if (buffer_.size() - headerEnd_ < bodyLength_) {
            return;
        }
        dispatched_ = true;
        timeout_.stop();
        socket_->readAll();
        listener_->dispatch(this, request_);
    }

    // Returns false when it has already answered with an error.
    bool parseHead(const QByteArray& head) {
        QList<QByteArray> lines = head.split('\n');
        for (auto& line : lines) {
            if (line.endsWith('\r')) {
                line.chop(1);
            }
        }
        const QList<QByteArray> parts = lines.value(0).split(' ');
        request_.received = QDateTime::currentDateTimeUtc();
        request_.peer =
            listener_->peerOverride_.isNull() ? socket_->peerAddress() : listener_->peerOverride_;
        request_.local = socket_->localAddress();
        if (parts.size() != 3 || !isToken(parts[0]) || !parts[2].startsWith("HTTP/1.")) {
            fail(400, "malformed request line", request_);
            return false;
        }
        if (std::any_of(parts[1].begin(), parts[1].end(),
                        [](char c) { return uchar(c) <= 32 || uchar(c) == 127; })) {
            // Parts of the target end up in the Location of redirect hops.
            fail(400, "malformed request target", request_);
            return false;
        }
        request_.method = parts[0];
        request_.target = parts[1];
        request_.version = parts[2];
        QByteArray target = parts[1];
        if (target.startsWith("http://") || target.startsWith("https://")) {
            // The target's host stands instead of the Host header; the handler judges it.
            const qsizetype from = target.indexOf("//") + 2;
            qsizetype end = from;
            while (end < target.size() && !QByteArrayView("/?#").contains(target[end])) {
                ++end;
            }
            request_.authority = target.mid(from, end - from);
            target = target.mid(end);
            if (!target.startsWith('/')) {
                target.prepend('/');
            }
        }
        if (!target.startsWith('/')) {
            fail(400, "malformed request target", request_);
            return false;
        }
        const qsizetype hash = target.indexOf('#');
        if (hash >= 0) {
            target.truncate(hash);
        }
        const qsizetype q = target.indexOf('?');
        request_.path = QUrl::fromPercentEncoding(q < 0 ? target : target.left(q));
        request_.rawQuery = q < 0 ? QByteArray() : target.mid(q + 1);
        qint64 length = 0;
        bool sawLength = false;
        for (int i = 1; i < lines.size(); ++i) {
            const QByteArray& line = lines[i];
            const qsizetype colon = line.indexOf(':');
            if (colon <= 0 || !isToken(line.left(colon))) {
                fail(400, "malformed header line", request_);
                return false;
            }
            const QByteArray name = line.left(colon);
            const QByteArray value = line.mid(colon + 1).trimmed();
            request_.headers.append({name, value});
            if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
                bool ok = false;
                const qint64 parsed = value.toLongLong(&ok);
                if (!ok || parsed < 0 || (sawLength && parsed != length)) {
                    fail(400, "malformed Content-Length", request_);
                    return false;
                }
                length = parsed;
                sawLength = true;
            } else if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
                fail(501, "transfer encodings are not supported", request_);
                return false;
            }
        }
        if (length > listener_->limits_.maxBodyBytes) {
            fail(413, "request body too large", request_);
            return false;
        }
        bodyLength_ = length;
        return true;
    }

    HttpListener* listener_;
    QTcpSocket* socket_;
    QTimer timeout_;
    QByteArray buffer_;
    qsizetype headerEnd_ = -1;
    qint64 bodyLength_ = 0;
    bool dispatched_ = false;
    HttpRequest request_;
    bool pending_ = false;
    HttpResponse pendingResponse_;
    bool closing_ = false;
    qint64 reserved_ = 0;    // this answer's share of the listener's filler in flight
    qint64 fillerEnd_ = -1;  // filler bytes to send in all; -1 until the answer is written
    qint64 fillerSent_ = 0;
    qint64 fillerTotal_ = 0;  // as announced (a truncated answer sends less)
    bool fillerInComment_ = false;
};

HttpListener::HttpListener(QObject* parent) : QObject(parent) {
    connect(&server_, &QTcpServer::newConnection, this, &HttpListener::onNewConnection);
}

HttpListener::~HttpListener() {
    completion_ = nullptr;
    close();
}

bool HttpListener::listen(const QHostAddress& address, quint16 port) {
    return server_.listen(address, port);
}

void HttpListener::close() {
    server_.close();
    const auto connections = findChildren<Connection*>(Qt::FindDirectChildrenOnly);
    for (Connection* connection : connections) {
        delete connection;
    }
    open_ = 0;
}

void HttpListener::onNewConnection() {
    while (QTcpSocket* socket = server_.nextPendingConnection()) {
        if (open_ >= limits_.maxConnections) {
            socket->write(serialize(plain(503, "too many connections")));
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            socket->disconnectFromHost();
            QTimer::singleShot(5000, socket, [socket] { socket->abort(); });
            continue;
        }
        ++open_;
        auto* connection = new Connection(this, socket);
        connect(connection, &QObject::destroyed, this, [this] { open_ = qMax(0, open_ - 1); });
    }
}

void HttpListener::dispatch(Connection* connection, const HttpRequest& request) {
    HttpResponse response;
    if (request.method != "GET" && request.method != "HEAD") {
        response = plain(405, "only GET and HEAD are served");
        response.setHeader("Allow", "GET, HEAD");
    } else if (handler_) {
        response = handler_(request);
    } else {
        response = plain(404, "not found");
    }
    response.headOnly = request.method == "HEAD";
    connection->answer(response);
}

}  // namespace adserver
