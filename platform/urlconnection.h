// Asynchronous HTTP GET with every callback on the main thread, redirects followed here one hop
// at a time so the delegate sees (and may stop) each one. No local HTTP cache; cookies live in
// HttpCookieStorage::sharedStorage() (shared with the web engine, kept across launches).
#pragma once

#include "error.h"
#include "urlrequest.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class QNetworkReply;
class QTimer;

namespace platform {

class UrlConnection;

// Every operation is optional. The connection does not own its delegate: the delegate must
// outlive it or cancel it first (owners usually hold both).
class UrlConnectionDelegate {
  public:
    virtual ~UrlConnectionDelegate() = default;
    // Called once before the first request (redirectResponse null) and once per redirect hop with
    // that hop's response. Return the request to send, or nullopt to stop following: for a hop
    // that makes the redirect response itself the final response. Calling cancel() here stops
    // the connection with no further callbacks.
    virtual std::optional<UrlRequest> connectionWillSendRequest(
        UrlConnection&, const UrlRequest& request, const HttpResponse* /*redirectResponse*/) {
        return request;
    }
    virtual void connectionDidReceiveResponse(UrlConnection&, const HttpResponse&) {}
    virtual void connectionDidReceiveData(UrlConnection&, const QByteArray&) {}
    virtual void connectionDidFinishLoading(UrlConnection&) {}
    virtual void connectionDidFailWithError(UrlConnection&, const Error&) {}
};

class UrlConnection : public QObject {
    Q_OBJECT
  public:
    // What one connection holds of a body the delegate has not taken yet.
    static constexpr qint64 kReadBufferBytes = 256 * 1024;
    // A longer chain is a loop, or a server keeping a connection busy on purpose.
    static constexpr int kMaximumRedirects = 10;

    // Error codes of kNetworkErrorDomain used here.
    enum ErrorCode {
        kErrorUnknown = -1,
        kErrorCancelled = -999,
        kErrorBadURL = -1000,
        kErrorTimedOut = -1001,
        kErrorUnsupportedURL = -1002,
        kErrorCannotFindHost = -1003,
        kErrorCannotConnectToHost = -1004,
        kErrorNetworkConnectionLost = -1005,
        kErrorHTTPTooManyRedirects = -1007,
        kErrorLocalNetworkRefused = -1030,
        kErrorDataLengthExceedsMaximum = -1103,
        kErrorSecureConnectionFailed = -1200,
    };

    // Creates the connection and starts it on the next turn of the event loop; callbacks never
    // happen during this call. Main thread only.
    UrlConnection(const UrlRequest& request, UrlConnectionDelegate* delegate,
                  QObject* parent = nullptr);
    ~UrlConnection() override;

    // Stops the connection; no delegate call follows. Safe from inside a callback.
    void cancel();

  private:
    void beginHop(const UrlRequest& request, const HttpResponse* redirectResponse);
    void send(const UrlRequest& request);
    // Looks the host up first and fails the hop, before anything connects, when the request may
    // not reach the local network and the host is on it.
    void sendUnlessLocal(const UrlRequest& request);
    void refuseLocal(const QUrl& url);
    void sendNow(const UrlRequest& request);
    void onMetaData();
    void onReadyRead();
    void onFinished();
    HttpResponse responseFromReply() const;
    bool deliverResponse();
    void fail(const Error& error);
    void finishWithRedirectResponse(const HttpResponse& response);
    void dropReply();

    UrlConnectionDelegate* delegate_;
    UrlRequest original_;
    UrlRequest current_;
    QPointer<QNetworkReply> reply_;
    int hostLookup_ = -1;
    QTimer* deadline_ = nullptr;
    int redirects_ = 0;
    bool cancelled_ = false;
    bool responseDelivered_ = false;
    bool redirecting_ = false;
};

// Builds a network-domain error with a description and the failing URL.
Error networkError(int code, const QString& description, const QUrl& url);

}  // namespace platform
