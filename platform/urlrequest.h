// A URL request (URL, header fields, time-outs, where it may go) and an HTTP response (final URL,
// status and all header fields), as handed to URL-connection and web-view delegates.
#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>
#include <QVariantMap>

namespace platform {

class UrlRequest {
  public:
    UrlRequest() = default;
    explicit UrlRequest(QUrl url, double timeoutInterval = 0)
        : url_(std::move(url)), timeout_(timeoutInterval) {}

    const QUrl& url() const { return url_; }
    void setUrl(const QUrl& url) { url_ = url; }

    // Seconds without any data coming in before the load fails; 0 means no time-out of our own.
    double timeoutInterval() const { return timeout_; }
    // Seconds the whole load may take, every redirect hop included, however steadily data comes
    // in; 0 means no limit.
    double maximumDuration() const { return maximumDuration_; }
    void setMaximumDuration(double seconds) { maximumDuration_ = seconds; }

    // Whether this load may go to an address of the local network (see netaddress.h), checked
    // for every hop before it connects. Loads named by outside content are refused there.
    bool allowsLocalNetwork() const { return allowsLocalNetwork_; }
    void setAllowsLocalNetwork(bool allows) { allowsLocalNetwork_ = allows; }

    // Header names compare without regard to case; setting an empty value removes the field.
    QString valueForHTTPHeaderField(const QString& name) const;
    void setValueForHTTPHeaderField(const QString& value, const QString& name);
    const QList<QPair<QString, QString>>& allHTTPHeaderFields() const { return headers_; }

    bool operator==(const UrlRequest&) const = default;

  private:
    QUrl url_;
    double timeout_ = 0;
    double maximumDuration_ = 0;
    bool allowsLocalNetwork_ = true;
    QList<QPair<QString, QString>> headers_;
};

struct HttpResponse {
    QUrl url;
    int statusCode = 0;
    // Header names as the server sent them; repeated fields are joined with ", ".
    QVariantMap headers;

    // Case-insensitive look-up of one header field; empty if absent.
    QString valueForHeader(const QString& name) const;
    bool isRedirect() const;
};

}  // namespace platform
