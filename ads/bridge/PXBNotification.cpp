#include "ads/bridge/PXBNotification.h"

#include "ads/net/PXBNetworkUtilities.h"
#include "platform/log.h"

bool PXBNotification::isNotificationURL(const QUrl& url) {
    return isQMSGNotificationURL(url) || isTorvinNotificationURL(url);
}

bool PXBNotification::isQMSGNotificationURL(const QUrl& url) {
    return url.scheme() == kURLNotificationScheme;
}

bool PXBNotification::isTorvinNotificationURL(const QUrl& url) {
    return url.scheme() == kURLTorvinNotificationScheme;
}

std::optional<PXBNotification> PXBNotification::notificationFromURL(const QUrl& url) {
    if (isQMSGNotificationURL(url)) {
        // Only the leading character is dropped, so "//x" names the message "/x".
        return PXBNotification(url.path().mid(1), PXBNetworkUtilities::dictionaryFromQueryString(
                                                      url.query(QUrl::FullyEncoded)));
    }
    if (!isTorvinNotificationURL(url)) {
        return std::nullopt;
    }
    const QVariantMap query =
        PXBNetworkUtilities::dictionaryFromQueryString(url.query(QUrl::FullyEncoded));
    const QString host = url.host();
    if (host == QLatin1String("launch")) {
        // The older form's launch request is the in-app browser's "open" message.
        QVariantMap parameters{{QStringLiteral("a"), QStringLiteral("browser")}};
        if (query.contains(QStringLiteral("url"))) {
            parameters.insert(QStringLiteral("u"), query.value(QStringLiteral("url")));
        }
        return PXBNotification(QStringLiteral("open"), parameters);
    }
    if (host == QLatin1String("closecanvas")) {
        return PXBNotification(QStringLiteral("close"), {});
    }
    if (host == QLatin1String("log")) {
        return PXBNotification(QStringLiteral("log"), query);
    }
    return std::nullopt;
}

PXBNotification::PXBNotification(QString name, QVariantMap parameters)
    : name_(std::move(name)), parameters_(std::move(parameters)) {}

QString PXBNotification::description() const {
    return QStringLiteral("PXBNotification<0x%1>: name:%2 parameters:%3")
        .arg(reinterpret_cast<quintptr>(this), 0, 16)
        .arg(name_, platform::describe(parameters_));
}
