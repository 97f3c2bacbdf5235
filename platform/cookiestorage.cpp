#include "cookiestorage.h"

#include "files.h"
#include "log.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QStandardPaths>

namespace platform {

namespace {

bool isExpired(const QNetworkCookie& cookie, const QDateTime& now) {
    return !cookie.isSessionCookie() && cookie.expirationDate() < now;
}

}  // namespace

HttpCookieStorage* HttpCookieStorage::sharedStorage() {
    static QPointer<HttpCookieStorage> shared;
    if (shared.isNull() && QCoreApplication::instance() != nullptr) {
        shared = new HttpCookieStorage(defaultFilePath(), QCoreApplication::instance());
    }
    return shared;
}

QString HttpCookieStorage::defaultFilePath() {
    const QString dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    return dir.isEmpty() ? QString() : QDir(dir).filePath(QStringLiteral("Cookies"));
}

HttpCookieStorage::HttpCookieStorage(QString filePath, QObject* parent)
    : QNetworkCookieJar(parent), filePath_(std::move(filePath)) {
    const std::optional<QByteArray> data = readFile(filePath_);
    if (!data) {
        return;
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QList<QNetworkCookie> kept;
    for (const QByteArray& line : data->split('\n')) {
        // A line that does not parse, or holds anything but one dated cookie, is skipped.
        const QList<QNetworkCookie> parsed = QNetworkCookie::parseCookies(line.trimmed());
        if (parsed.size() == 1 && !parsed[0].isSessionCookie() && !isExpired(parsed[0], now) &&
            !parsed[0].domain().isEmpty()) {
            kept.append(parsed[0]);
        }
    }
    setAllCookies(kept);
}

void HttpCookieStorage::mirrorCookie(const QNetworkCookie& cookie) {
    if (allCookies().contains(cookie)) {
        return;
    }
    insertCookie(cookie);
    save();
}

void HttpCookieStorage::forgetCookie(const QNetworkCookie& cookie) {
    for (const QNetworkCookie& kept : allCookies()) {
        if (kept.hasSameIdentifier(cookie) && kept.value() == cookie.value()) {
            deleteCookie(kept);
            save();
            return;
        }
    }
}

bool HttpCookieStorage::setCookiesFromUrl(const QList<QNetworkCookie>& cookieList,
                                          const QUrl& url) {
    bool added = false;
    QList<QNetworkCookie> received;
    for (QNetworkCookie cookie : cookieList) {
        cookie.normalize(url);
        if (!validateCookie(cookie, url)) {
            continue;
        }
        added = insertCookie(cookie) || added;
        received.append(cookie);
    }
    if (!received.isEmpty()) {
        save();
    }
    for (const QNetworkCookie& cookie : received) {
        emit cookieReceived(cookie, url);
    }
    return added;
}

void HttpCookieStorage::setLastingHosts(const QStringList& hosts) {
    QStringList lower;
    for (const QString& host : hosts) {
        if (!host.isEmpty()) {
            lower.append(host.toLower());
        }
    }
    if (lower == lastingHosts_) {
        return;
    }
    lastingHosts_ = lower;
    save();  // drops from the file what no longer lasts
}

bool HttpCookieStorage::lasts(const QNetworkCookie& cookie) const {
    if (cookie.isSessionCookie()) {
        return false;
    }
    if (lastingHosts_.isEmpty()) {
        return true;
    }
    QString domain = cookie.domain().toLower();
    const bool forSubdomains = domain.startsWith(u'.');
    if (forSubdomains) {
        domain.remove(0, 1);
    }
    return std::any_of(lastingHosts_.cbegin(), lastingHosts_.cend(), [&](const QString& host) {
        return host == domain || (forSubdomains && host.endsWith(u'.' + domain));
    });
}

void HttpCookieStorage::save() const {
    if (filePath_.isEmpty()) {
        return;
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QByteArray data;
    for (const QNetworkCookie& cookie : allCookies()) {
        if (lasts(cookie) && !isExpired(cookie, now)) {
            data += cookie.toRawForm(QNetworkCookie::Full) + '\n';
        }
    }
    if (data.isEmpty() && !fileExists(filePath_)) {
        return;  // nothing to keep: no file for processes that never see a lasting cookie
    }
    Error error;
    if (!createDirectory(QFileInfo(filePath_).absolutePath()) ||
        !writeFileAtomically(filePath_, data, &error)) {
        logLine(QStringLiteral("Could not save cookies: ") + error.localizedDescription());
    }
}

}  // namespace platform
