#include "urlconnection.h"

#include "cookiestorage.h"
#include "log.h"
#include "netaddress.h"

#include <QCoreApplication>
#include <QHostInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace platform {

namespace {

// One manager for the whole process, over the process's cookie storage (shared with the web
// engine and kept across launches).
QNetworkAccessManager& sharedManager() {
    static QPointer<QNetworkAccessManager> manager;
    if (manager.isNull()) {
        manager = new QNetworkAccessManager(QCoreApplication::instance());
        manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
        if (HttpCookieStorage* storage = HttpCookieStorage::sharedStorage()) {
            manager->setCookieJar(storage);
            storage->setParent(QCoreApplication::instance());  // the manager does not own it
        }
    }
    return *manager;
}

bool isHttp(const QUrl& url) {
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("http") || scheme == QLatin1String("https");
}

Error errorFromReply(QNetworkReply::NetworkError code, const QString& text, const QUrl& url) {
    switch (code) {
        case QNetworkReply::ConnectionRefusedError:
            return networkError(UrlConnection::kErrorCannotConnectToHost,
                                QStringLiteral("Could not connect to the server."), url);
        case QNetworkReply::RemoteHostClosedError:
        case QNetworkReply::TemporaryNetworkFailureError:
        case QNetworkReply::NetworkSessionFailedError:
            return networkError(UrlConnection::kErrorNetworkConnectionLost,
                                QStringLiteral("The network connection was lost."), url);
        case QNetworkReply::HostNotFoundError:
            return networkError(
                UrlConnection::kErrorCannotFindHost,
                QStringLiteral("A server with the specified hostname could not be found."), url);
        case QNetworkReply::TimeoutError:
            return networkError(UrlConnection::kErrorTimedOut,
                                QStringLiteral("The request timed out."), url);
        case QNetworkReply::SslHandshakeFailedError:
            return networkError(UrlConnection::kErrorSecureConnectionFailed,
                                QStringLiteral("A TLS error caused the secure connection to fail."),
                                url);
        case QNetworkReply::ProtocolUnknownError:
            return networkError(UrlConnection::kErrorUnsupportedURL,
                                QStringLiteral("unsupported URL"), url);
        default:
            return networkError(UrlConnection::kErrorUnknown, text, url);
    }
}

// HTTP-level statuses (404, 500, ...) are answers, not failures: Qt flags them as errors, the
// delegate gets them as a response and a finished load.
bool isTransportError(QNetworkReply::NetworkError code) {
    return (code > QNetworkReply::NoError && code < QNetworkReply::ContentAccessDenied) ||
           code == QNetworkReply::ProtocolUnknownError || code == QNetworkReply::ProtocolFailure;
}

}  // namespace

Error networkError(int code, const QString& description, const QUrl& url) {
    return Error(kNetworkErrorDomain, code,
                 {{Error::kLocalizedDescriptionKey, description},
                  {Error::kUrlKey, url.toString(QUrl::FullyEncoded)}});
}

UrlConnection::UrlConnection(const UrlRequest& request, UrlConnectionDelegate* delegate,
                             QObject* parent)
    : QObject(parent), delegate_(delegate), original_(request), current_(request) {
    QTimer::singleShot(0, this, [this] {
        if (!cancelled_) {
            beginHop(original_, nullptr);
        }
    });
    if (request.maximumDuration() > 0) {
        deadline_ = new QTimer(this);
        deadline_->setSingleShot(true);
        connect(deadline_, &QTimer::timeout, this, [this] {
            fail(networkError(kErrorTimedOut, QStringLiteral("The request timed out."),
                              current_.url()));
        });
        deadline_->start(static_cast<int>(request.maximumDuration() * 1000));
    }
}

UrlConnection::~UrlConnection() {
    cancelled_ = true;
    dropReply();
}

void UrlConnection::cancel() {
    cancelled_ = true;
    dropReply();
}

void UrlConnection::dropReply() {
    if (hostLookup_ >= 0) {
        QHostInfo::abortHostLookup(std::exchange(hostLookup_, -1));
    }
    if (deadline_ != nullptr && cancelled_) {
        deadline_->stop();
    }
    if (reply_) {
        QNetworkReply* reply = reply_;
        reply_ = nullptr;
        reply->disconnect(this);
        if (reply->isRunning()) {  // aborting a finished reply makes Qt report its error twice
            reply->abort();
        }
        reply->deleteLater();  // we may be inside one of its signals
    }
}

void UrlConnection::beginHop(const UrlRequest& request, const HttpResponse* redirectResponse) {
    std::optional<UrlRequest> next = request;
    if (delegate_ != nullptr) {
        QPointer<UrlConnection> self(this);
        next = delegate_->connectionWillSendRequest(*this, request, redirectResponse);
        if (!self || cancelled_) {
            return;
        }
    }
    if (!next) {
        if (redirectResponse != nullptr) {
            finishWithRedirectResponse(*redirectResponse);
        } else {
            cancel();
        }
        return;
    }
    current_ = *next;
    send(current_);
}

void UrlConnection::send(const UrlRequest& request) {
    const QUrl& url = request.url();
    if (!url.isValid() || url.isEmpty()) {
        fail(networkError(kErrorBadURL, QStringLiteral("bad URL"), url));
        return;
    }
    if (!isHttp(url)) {
        fail(networkError(kErrorUnsupportedURL, QStringLiteral("unsupported URL"), url));
        return;
    }
    if (request.allowsLocalNetwork()) {
        sendNow(request);
    } else {
        sendUnlessLocal(request);
    }
}

void UrlConnection::sendUnlessLocal(const UrlRequest& request) {
    const QUrl& url = request.url();
    if (isLocalNetworkHost(url.host())) {
        refuseLocal(url);
        return;
    }
    if (!QHostAddress(url.host()).isNull()) {
        sendNow(request);
        return;
    }
    // The name's addresses are checked before the connection is made. The network layer looks
    // the name up again to connect, from the process's host cache that this look-up filled.
    hostLookup_ = QHostInfo::lookupHost(url.host(), this, [this, request](const QHostInfo& info) {
        hostLookup_ = -1;
        if (cancelled_) {
            return;
        }
        if (info.error() != QHostInfo::NoError || info.addresses().isEmpty()) {
            fail(networkError(
                kErrorCannotFindHost,
                QStringLiteral("A server with the specified hostname could not be found."),
                request.url()));
            return;
        }
        const QList<QHostAddress> addresses = info.addresses();
        if (std::any_of(addresses.cbegin(), addresses.cend(), &isLocalNetworkAddress)) {
            refuseLocal(request.url());
            return;
        }
        sendNow(request);
    });
}

void UrlConnection::refuseLocal(const QUrl& url) {
    logDebug(QStringLiteral("<Sorvel> Not fetched, the local network is out of bounds: %1")
                 .arg(url.toString(QUrl::FullyEncoded)));
    fail(networkError(
        kErrorLocalNetworkRefused,
        QStringLiteral("The address is on the local network, which this request may not reach."),
        url));
}

void UrlConnection::sendNow(const UrlRequest& request) {
    const QUrl& url = request.url();
    QNetworkRequest netRequest(url);
    netRequest.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                            QNetworkRequest::AlwaysNetwork);
    netRequest.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    netRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                            QNetworkRequest::ManualRedirectPolicy);
    if (request.timeoutInterval() > 0) {
        netRequest.setTransferTimeout(static_cast<int>(request.timeoutInterval() * 1000));
    }
    for (const auto& [name, value] : request.allHTTPHeaderFields()) {
        netRequest.setRawHeader(name.toUtf8(), value.toUtf8());
    }
    responseDelivered_ = false;
    redirecting_ = false;
    reply_ = sharedManager().get(netRequest);
    // Data waits in the socket, not in memory, until the delegate has taken what came before:
    // a server that sends faster than we read cannot make the process hold more than this.
    reply_->setReadBufferSize(kReadBufferBytes);
    connect(reply_, &QNetworkReply::metaDataChanged, this, &UrlConnection::onMetaData);
    connect(reply_, &QNetworkReply::readyRead, this, &UrlConnection::onReadyRead);
    connect(reply_, &QNetworkReply::finished, this, &UrlConnection::onFinished);
}

HttpResponse UrlConnection::responseFromReply() const {
    HttpResponse response;
    if (!reply_) {
        return response;
    }
    response.url = reply_->url();
    response.statusCode = reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    for (const auto& [name, value] : reply_->rawHeaderPairs()) {
        const QString key = QString::fromLatin1(name);
        // Qt joins repeated fields with "\n" (Set-Cookie) or ", "; the phone joins with ", ".
        QString text = QString::fromUtf8(value);
        text.replace(QLatin1Char('\n'), QLatin1String(", "));
        response.headers.insert(key, text);
    }
    return response;
}

void UrlConnection::onMetaData() {
    if (!reply_ || responseDelivered_ || redirecting_) {
        return;
    }
    if (!reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid()) {
        return;
    }
    const HttpResponse response = responseFromReply();
    if (response.isRedirect()) {
        redirecting_ = true;
        dropReply();
        if (++redirects_ > kMaximumRedirects) {
            fail(networkError(kErrorHTTPTooManyRedirects, QStringLiteral("too many HTTP redirects"),
                              response.url));
            return;
        }
        UrlRequest next = current_;
        next.setUrl(
            response.url.resolved(QUrl(response.valueForHeader(QStringLiteral("Location")))));
        beginHop(next, &response);
        return;
    }
    deliverResponse();
}

bool UrlConnection::deliverResponse() {
    if (responseDelivered_) {
        return true;
    }
    responseDelivered_ = true;
    const HttpResponse response = responseFromReply();
    if (delegate_ != nullptr) {
        QPointer<UrlConnection> self(this);
        delegate_->connectionDidReceiveResponse(*this, response);
        return self && !cancelled_;
    }
    return true;
}

void UrlConnection::onReadyRead() {
    if (!reply_ || redirecting_) {
        return;
    }
    if (!responseDelivered_) {
        onMetaData();
        if (!reply_ || redirecting_ || !responseDelivered_) {
            return;
        }
    }
    const QByteArray chunk = reply_->readAll();
    if (!chunk.isEmpty() && delegate_ != nullptr) {
        delegate_->connectionDidReceiveData(*this, chunk);
    }
}

void UrlConnection::onFinished() {
    if (!reply_ || redirecting_) {
        return;
    }
    QPointer<UrlConnection> self(this);
    const QNetworkReply::NetworkError code = reply_->error();
    const bool gotStatus = reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
    if (gotStatus && !responseDelivered_) {
        onMetaData();
        if (!self || cancelled_ || !reply_ || redirecting_) {
            return;
        }
    }
    if (reply_->bytesAvailable() > 0) {
        onReadyRead();
        if (!self || cancelled_ || !reply_) {
            return;
        }
    }
    const QString text = reply_->errorString();
    const QUrl url = reply_->url();
    dropReply();
    if (isTransportError(code) || !gotStatus) {
        fail(errorFromReply(code, text, url));
        return;
    }
    if (delegate_ != nullptr) {
        delegate_->connectionDidFinishLoading(*this);
    }
}

void UrlConnection::finishWithRedirectResponse(const HttpResponse& response) {
    if (delegate_ == nullptr) {
        return;
    }
    QPointer<UrlConnection> self(this);
    responseDelivered_ = true;
    delegate_->connectionDidReceiveResponse(*this, response);
    if (self && !cancelled_) {
        delegate_->connectionDidFinishLoading(*this);
    }
}

void UrlConnection::fail(const Error& error) {
    if (cancelled_) {
        return;
    }
    cancelled_ = true;
    dropReply();
    if (delegate_ != nullptr) {
        delegate_->connectionDidFailWithError(*this, error);
    }
}

}  // namespace platform
