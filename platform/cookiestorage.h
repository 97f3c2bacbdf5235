// The process's one cookie jar, kept across launches: every UrlConnection sends and stores its
// cookies here, and the web engine's profile mirrors it both ways (see ui/webengine.h).
//
// The jar, not the engine, owns the cookies: its persistent ones (those with an expiry date) are
// written to <AppDataLocation>/Cookies after every change and read back when it is made, so a
// connection sends them from the first request of a launch, with or without a web view, and the
// engine's profile stays off the record (its cache in memory). The engine is seeded from the jar
// when its profile is made; cookies the engine sets or drops come back through mirrorCookie and
// forgetCookie, cookies a response sets here go out through cookieReceived. Session cookies are
// shared the same way but never written.
#pragma once

#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QString>
#include <QStringList>

namespace platform {

class HttpCookieStorage : public QNetworkCookieJar {
    Q_OBJECT
  public:
    // The storage over defaultFilePath(), made on first use; the QCoreApplication must exist.
    static HttpCookieStorage* sharedStorage();
    // <AppDataLocation>/Cookies.
    static QString defaultFilePath();

    // A storage backed by `filePath`; it reads the file now. An unreadable file is an empty jar.
    explicit HttpCookieStorage(QString filePath, QObject* parent = nullptr);

    QString filePath() const { return filePath_; }

    // The hosts whose dated cookies are written and so outlast the process; everyone else's are
    // kept for this session only, whatever their expiry. Empty (the default): every dated cookie
    // lasts. A cookie for a parent domain of a listed host counts as that host's.
    void setLastingHosts(const QStringList& hosts);
    QList<QNetworkCookie> cookies() const { return allCookies(); }

    // A cookie another store (the web engine) set, replaced or removed; taken in without being
    // announced back. A removal that names an older value than the one kept is ignored.
    void mirrorCookie(const QNetworkCookie& cookie);
    void forgetCookie(const QNetworkCookie& cookie);

    // Responses' cookies (UrlConnection): stored, written and announced.
    bool setCookiesFromUrl(const QList<QNetworkCookie>& cookieList, const QUrl& url) override;

  signals:
    // A cookie a response set, normalised (an expired one removes its namesake), and the URL that
    // set it.
    void cookieReceived(const QNetworkCookie& cookie, const QUrl& url);

  private:
    void save() const;
    bool lasts(const QNetworkCookie& cookie) const;

    QString filePath_;
    QStringList lastingHosts_;
};

}  // namespace platform
