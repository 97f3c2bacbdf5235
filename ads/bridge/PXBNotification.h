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
    static bool isNotificationURL(const QUrl& url);
    static bool isQMSGNotificationURL(const QUrl& url);
    static bool isTorvinNotificationURL(const QUrl& url);

    // "qmsg:" URLs are named by their path after its first character, with the query as
    // parameters; "torvin:" URLs by their host ("launch", "closecanvas" or "log"). Nothing for
    // any other URL.
    static std::optional<PXBNotification> notificationFromURL(const QUrl& url);

    PXBNotification() = default;
    PXBNotification(QString name, QVariantMap parameters);

    QString name() const { return name_; }
    void setName(const QString& name) { name_ = name; }
    QVariantMap parameters() const { return parameters_; }
    void setParameters(const QVariantMap& parameters) { parameters_ = parameters; }

    QString description() const;

  private:
    QString name_;
    QVariantMap parameters_;
};
