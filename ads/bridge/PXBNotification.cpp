#include "ads/bridge/PXBNotification.h"

#include "ads/net/PXBNetworkUtilities.h"
#include "platform/log.h"

namespace {

// The text before the first ":", exactly as written; null without one.
QStringView schemeOf(QStringView text) {
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    return colon < 0 ? QStringView() : text.left(colon);
}

// The host of "scheme://host...", as written: the authority without user information and port.
QStringView hostOf(QStringView text) {
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0 || !text.mid(colon + 1).startsWith(QLatin1String("//"))) {
        return {};
    }
    QStringView authority = text.mid(colon + 3);
    for (qsizetype i = 0; i < authority.size(); ++i) {
        const QChar c = authority.at(i);
        if (c == u'/' || c == u'?' || c == u'#') {
            authority = authority.left(i);
            break;
        }
    }
    const qsizetype at = authority.lastIndexOf(QLatin1Char('@'));
    if (at >= 0) {
        authority = authority.mid(at + 1);
    }
    const qsizetype port = authority.lastIndexOf(QLatin1Char(':'));
    if (port >= 0 && !authority.endsWith(QLatin1Char(']'))) {
        authority = authority.left(port);
    }
    return authority;
}

// The query as written (between "?" and "#"), null without one.
QString queryOf(QStringView text) {
    const qsizetype hash = text.indexOf(QLatin1Char('#'));
    if (hash >= 0) {
        text = text.left(hash);
    }
    const qsizetype question = text.indexOf(QLatin1Char('?'));
    return question < 0 ? QString() : text.mid(question + 1).toString();
}

}  // namespace

bool PXBNotification::isNotificationURL(const QString& urlText) {
    return isQMSGNotificationURL(urlText) || isTorvinNotificationURL(urlText);
}

bool PXBNotification::isQMSGNotificationURL(const QString& urlText) {
    return schemeOf(urlText) == kURLNotificationScheme;
}

bool PXBNotification::isTorvinNotificationURL(const QString& urlText) {
    return schemeOf(urlText) == kURLTorvinNotificationScheme;
}

bool PXBNotification::isNotificationURL(const QUrl& url) {
    return isNotificationURL(url.toString(QUrl::FullyEncoded));
}

bool PXBNotification::isQMSGNotificationURL(const QUrl& url) {
    return isQMSGNotificationURL(url.toString(QUrl::FullyEncoded));
}

bool PXBNotification::isTorvinNotificationURL(const QUrl& url) {
    return isTorvinNotificationURL(url.toString(QUrl::FullyEncoded));
}

std::optional<PXBNotification> PXBNotification::notificationFromURL(const QUrl& url) {
    return notificationFromURL(url.toString(QUrl::FullyEncoded));
}

std::optional<PXBNotification> PXBNotification::notificationFromURL(const QString& urlText) {
    if (isQMSGNotificationURL(urlText)) {
        // Only the leading character is dropped, so "//x" names the message "/x".
        return PXBNotification(QUrl(urlText).path().mid(1),
                               PXBNetworkUtilities::dictionaryFromQueryString(queryOf(urlText)));
    }
    if (!isTorvinNotificationURL(urlText)) {
        return std::nullopt;
    }
    const QVariantMap query = PXBNetworkUtilities::dictionaryFromQueryString(queryOf(urlText));
    const QStringView host = hostOf(urlText);
    if (host == QLatin1String("launch")) {
        // The older form's launch request is the in-app browser's "open" message.
        QVariantMap parameters{{QStringLiteral("a"), QStringLiteral("browser")}};
        if (query.contains(QStringLiteral("url"))) {
            parameters.insert(QStringLiteral("u"), query.value(QStringLiteral("url")));
        }
        return PXBNotification(QStringLiteral("open"), parameters);
    }
    if (host == QLatin1String("closecanvas")) {
        return PXBNotification(QStringLiteral("close"), std::nullopt);
    }
    if (host == QLatin1String("log")) {
        return PXBNotification(QStringLiteral("log"), query);
    }
    return std::nullopt;
}

PXBNotification::PXBNotification(QString name, std::optional<QVariantMap> parameters)
    : name_(std::move(name)), parameters_(std::move(parameters)) {}

QString PXBNotification::description() const {
    return QStringLiteral("PXBNotification<0x%1>: name:%2 parameters:%3")
        .arg(reinterpret_cast<quintptr>(this), 0, 16)
        .arg(name_, parameters_ ? platform::describe(*parameters_) : QStringLiteral("(null)"));
}
