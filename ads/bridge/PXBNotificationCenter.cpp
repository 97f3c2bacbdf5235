#include "ads/bridge/PXBNotificationCenter.h"

#include "ads/bridge/PXBNotification.h"
#include "ads/core/PXBMacros.h"
#include "platform/notificationcenter.h"
#include "platform/runloop.h"
#include "platform/ui/webview.h"

PXBNotificationCenter& PXBNotificationCenter::defaultCenter() {
    // Lives for the process, like the centre it posts to.
    static auto* center = new PXBNotificationCenter;
    return *center;
}

void PXBNotificationCenter::postNotificationFromURL(const QUrl& url, const void* object,
                                                    double delay) {
    QVariantMap posting{{kURLKey, url}};
    if (object != nullptr) {
        posting.insert(kObjectKey, QVariant::fromValue(const_cast<void*>(object)));
    }
    platform::performAfter(this, delay, [this, posting] { delayedPosting(posting); });
}

void PXBNotificationCenter::delayedPosting(const QVariantMap& posting) {
    postNotificationFromURL(posting.value(kURLKey).toUrl(),
                            posting.value(kObjectKey).value<void*>());
}

void PXBNotificationCenter::postNotificationFromURL(const QUrl& url, const void* object) {
    // A page names its messages freely: one named like an application or screen notification
    // must not reach those who listen for the real one from any sender. So a message goes only
    // to those who listen to its page (a missing page: to nobody).
    if (const auto notification = PXBNotification::notificationFromURL(url)) {
        platform::NotificationCenter::defaultCenter().postNotificationToObserversOf(
            notification->name(), object, notification->parameters());
    }
}

QString PXBNotificationCenter::scriptForJSNotification(const QString& name,
                                                       const std::optional<QVariantMap>& userInfo) {
    // The name goes between the quotes unescaped: callers only send fixed names.
    if (userInfo) {
        return QStringLiteral("%1('%2', %3);")
            .arg(kJSReceiveMessageMethod, name, PXBMacros::jsonify(*userInfo));
    }
    return QStringLiteral("%1('%2');").arg(kJSReceiveMessageMethod, name);
}

void PXBNotificationCenter::postJSNotification(const QString& name,
                                               const std::optional<QVariantMap>& userInfo,
                                               platform::WebView* webView) {
    if (webView != nullptr) {
        webView->stringByEvaluatingJavaScriptFromString(scriptForJSNotification(name, userInfo));
    }
}
