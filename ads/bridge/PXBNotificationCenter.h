// Carries in-ad messages both ways: message URLs become notifications on the process-wide
// notification centre, for the observers of the page that sent them, and native messages are sent
// into an ad page's script.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <optional>

namespace platform {
class WebView;
}

// Keys of the dictionary handed to delayedPosting.
inline const QString kURLKey = QStringLiteral("url");
inline const QString kObjectKey = QStringLiteral("object");
// The page's entry point for messages from the ad client.
inline const QString kJSReceiveMessageMethod = QStringLiteral("ZELM_ReceiveMessage");

class PXBNotificationCenter : public QObject {
  public:
    // The one shared centre, created on first use on the main thread. Its posts reach the
    // observers of platform::NotificationCenter::defaultCenter().
    static PXBNotificationCenter& defaultCenter();

    // Evaluates "ZELM_ReceiveMessage('name', json);" in the page, or the one-argument call
    // without user info. The name is quoted as it is; the result is ignored.
    void postJSNotification(const QString& name, const std::optional<QVariantMap>& userInfo,
                            platform::WebView* webView);
    // The script statement postJSNotification evaluates.
    static QString scriptForJSNotification(const QString& name,
                                           const std::optional<QVariantMap>& userInfo);

    // Posts the URL's notification after `delay` seconds, always on a later turn of the main
    // event loop, never during the call. `object` is the sender observers see.
    void postNotificationFromURL(const QUrl& url, const void* object, double delay);
    // Posts the URL's notification now with the message's parameters as user info, to the
    // observers of `object` only (never to those of every sender); a URL that is no message is
    // dropped without a word.
    void postNotificationFromURL(const QUrl& url, const void* object);

  private:
    PXBNotificationCenter() = default;
    void delayedPosting(const QVariantMap& posting);
};
