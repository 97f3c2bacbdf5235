// The local copy of one remote resource in the caches directory, refreshed with a conditional
// GET: the file's modification time is the server's "Last-Modified", so the next fetch can be
// answered 304. One object serves one URL; each fetch reports its outcome to the delegate.
#pragma once

#include "platform/error.h"
#include "platform/urlconnection.h"
#include "platform/weakref.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <memory>
#include <optional>

class PXBCachedFile;

// Every operation is optional. A null error stands for "no error" (nil).
class PXBCachedFileDelegate : public platform::Referenceable {
  public:
    // The file is up to date: a body was written, or the server answered 304.
    virtual void cachedFileDownloadDidEnd(PXBCachedFile* /*file*/) {}
    // The fetch failed; the error may be null (an HTTP status other than 200 and 304).
    virtual void cachedFileDownloadDidFail(PXBCachedFile* /*file*/,
                                           const platform::Error& /*error*/) {}
    // Before a redirect is followed. A non-null error stops the fetch and is reported as its
    // failure.
    virtual platform::Error cachedFileShouldRedirectToURL(PXBCachedFile* /*file*/,
                                                          const QUrl& /*url*/) {
        return platform::Error();
    }
};

class PXBCachedFile : private platform::UrlConnectionDelegate {
  public:
    // Dates without a zone ("EEE, dd MMM yyyy HH:mm:ss" in GMT, English names), as the cache
    // writes them into "If-Modified-Since" and reads them from a "Last-Modified" cut before
    // "GMT".
    class HttpDateFormatter {
      public:
        QString stringFromDate(const QDateTime& date) const;
        // Invalid if the text is not such a date (blanks around it are allowed).
        QDateTime dateFromString(const QString& text) const;
    };

    // Keeps the URL; no fetch starts.
    PXBCachedFile(PXBCachedFileDelegate* delegate, const QUrl& url);
    ~PXBCachedFile() override;
    PXBCachedFile(const PXBCachedFile&) = delete;
    PXBCachedFile& operator=(const PXBCachedFile&) = delete;

    PXBCachedFileDelegate* delegate() const { return delegate_.get(); }
    void setDelegate(PXBCachedFileDelegate* delegate) { delegate_.reset(delegate); }

    const QUrl& sourceURL() const { return sourceURL_; }
    // The URL last requested: the source URL, then each redirect target.
    const QUrl& httpDestinationURL() const { return httpDestinationURL_; }
    // Of the last response (redirects included for the headers); 0 before any.
    int httpStatusCode() const { return httpStatusCode_; }
    // Every field under its name as the server spelled it. Look fields up with httpHeader():
    // names differ in case between servers (an HTTP/2 server sends them in lower case).
    const QVariantMap& httpHeaders() const { return httpHeaders_; }
    // The field's value, its name compared without regard to case; null if absent.
    QString httpHeader(const QString& name) const;

    // caches-directory/host/hash-of-the-URL ("no-host" for a URL without one), worked out once;
    // null without a caches directory.
    QString filePath();
    // The file's modification time as an HTTP date without zone; null without a file.
    QString fileModificationDate();
    // The file as UTF-8 text; null if it cannot be read or is not UTF-8.
    QString content();
    bool hasContent();

    // What one fetch may bring. A body longer than maximumBodyBytes (0: no limit) fails the fetch
    // as soon as it is announced or has arrived that far, and nothing is written.
    qint64 maximumBodyBytes() const { return maximumBodyBytes_; }
    void setMaximumBodyBytes(qint64 bytes) { maximumBodyBytes_ = bytes; }
    // Without a body (a tracker's) the fetch ends with the response's head: its status is all
    // that counts, no file is written, and no byte of the body is read.
    bool keepsBody() const { return keepsBody_; }
    void setKeepsBody(bool keeps) { keepsBody_ = keeps; }
    // Whether the fetch, and each of its redirects, may go to the local network (the default).
    bool allowsLocalNetwork() const { return allowsLocalNetwork_; }
    void setAllowsLocalNetwork(bool allows) { allowsLocalNetwork_ = allows; }

    // Every fetch fails after this long without data, or this long twice over in all.
    static constexpr double kTimeoutSeconds = 30;

    bool isFetching() const { return connection_ != nullptr; }
    // Start a fetch unless one is running.
    void validate();
    void validateWithCacheBuster();
    // Starts a fetch whether or not one is running; the cache buster adds "unique" with the
    // whole seconds since 2001 so that no cache on the way can answer.
    void beginFetchWithCacheBuster(bool cacheBuster);
    // Stops a running fetch without telling the delegate.
    void cancel();
    // Stops a running fetch and deletes the file.
    void invalidate();

    // "<PXBCachedFile: 0x...> HTTP code: 200\n\turl: ...\n\tfile: ..."
    QString description() const;

    static HttpDateFormatter formatterForHTTPDate() { return HttpDateFormatter(); }
    // The stable 32-bit hash that names the file.
    static quint32 stableHash(const QString& text);

  private:
    std::optional<platform::UrlRequest> connectionWillSendRequest(
        platform::UrlConnection& connection, const platform::UrlRequest& request,
        const platform::HttpResponse* redirectResponse) override;
    void connectionDidReceiveResponse(platform::UrlConnection& connection,
                                      const platform::HttpResponse& response) override;
    void connectionDidReceiveData(platform::UrlConnection& connection,
                                  const QByteArray& data) override;
    void connectionDidFinishLoading(platform::UrlConnection& connection) override;
    void connectionDidFailWithError(platform::UrlConnection& connection,
                                    const platform::Error& error) override;

    void saveHeadersFromResponse(const platform::HttpResponse& response);
    void failTooLarge();
    void cleanUpConnection();
    // Delegate calls may destroy this object; these return false when it is gone.
    bool tellDidEnd();
    bool tellDidFail(const platform::Error& error);

    platform::WeakRef<PXBCachedFileDelegate> delegate_;
    QUrl sourceURL_;
    QString filePath_;
    qint64 maximumBodyBytes_ = 0;
    bool keepsBody_ = true;
    bool allowsLocalNetwork_ = true;
    std::unique_ptr<platform::UrlConnection> connection_;
    std::optional<QByteArray> receivedData_;
    QString receivedModificationDate_;
    QUrl httpDestinationURL_;
    int httpStatusCode_ = 0;
    QVariantMap httpHeaders_;
    // Expires with the object, so that code after a delegate call can tell.
    std::shared_ptr<char> alive_ = std::make_shared<char>();
};
