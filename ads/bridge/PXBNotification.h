// An in-ad message: the name and parameters carried by a message URL that the ad's script
// navigates to, in the current "qmsg" form or the older "torvin" form.
#pragma once

#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <optional>

inline const QString kURLNotificationScheme = QStringLiteral("qmsg");
inline const QString kURLTorvinNotificationScheme = QStringLiteral("torvin");

class PXBNotification {
  public:
    // The scheme, and a "torvin:" URL's host, must be written exactly so, case included:
    // "QMSG:/x" is no message and "torvin://LAUNCH" no launch. These read the URL's text as it
    // came; a QUrl has already lower-cased its scheme and host, so callers that still hold the
    // text should pass that.
    static bool isNotificationURL(const QString& urlText);
    static bool isQMSGNotificationURL(const QString& urlText);
    static bool isTorvinNotificationURL(const QString& urlText);
    static bool isNotificationURL(const QUrl& url);
    static bool isQMSGNotificationURL(const QUrl& url);
    static bool isTorvinNotificationURL(const QUrl& url);

    // "qmsg:" URLs are named by their path after its first character, with the query as
    // parameters; "torvin:" URLs by their host ("launch", "closecanvas" or "log"). Nothing for
    // any other URL.
    static std::optional<PXBNotification> notificationFromURL(const QString& urlText);
    static std::optional<PXBNotification> notificationFromURL(const QUrl& url);

    PXBNotification() = default;
    // Without parameters (nullopt) the message carries none at all, as "close" does.
    PXBNotification(QString name, std::optional<QVariantMap> parameters);

    QString name() const { return name_; }
    void setName(const QString& name) { name_ = name; }
    // Empty when the message carries none; hasParameters() tells that from an empty query.
    QVariantMap parameters() const { return parameters_.value_or(QVariantMap()); }
    bool hasParameters() const { return parameters_.has_value(); }
    void setParameters(const std::optional<QVariantMap>& parameters) { parameters_ = parameters; }

    QString description() const;

  private:
    QString name_;
    std::optional<QVariantMap> parameters_;
};
