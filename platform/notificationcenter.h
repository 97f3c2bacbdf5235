// Process-wide publish/subscribe of named notifications, delivered synchronously to observers in
// the order they registered. Observers and objects are identified by address only.
#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <vector>

namespace platform {

struct Notification {
    QString name;
    const void* object = nullptr;
    QVariantMap userInfo;
};

class NotificationCenter {
  public:
    using Handler = std::function<void(const Notification&)>;

    // The process-wide centre; application and ad-client notifications are posted here.
    static NotificationCenter& defaultCenter();

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // An empty `name` matches every name, a null `object` every sender. An observer must remove
    // itself before it is destroyed.
    void addObserver(const void* observer, const QString& name, const void* object,
                     Handler handler);
    void removeObserver(const void* observer);
    // Removes only the registrations of `observer` that match `name` and `object`; an empty name
    // or null object here widens the match as in addObserver.
    void removeObserver(const void* observer, const QString& name, const void* object);

    // Calls every matching handler before returning. Handlers may add or remove observers,
    // including themselves; a registration removed during delivery is not called afterwards.
    void postNotification(const QString& name, const void* object = nullptr,
                          const QVariantMap& userInfo = {});
    // The same, but only for observers that named `object` as the sender: one that listens to
    // every sender does not hear it. For notifications whose name their sender chose freely.
    void postNotificationToObserversOf(const QString& name, const void* object,
                                       const QVariantMap& userInfo = {});

    int observerCount() const;

  private:
    void deliver(const Notification& note, bool onlyNamedSender);
    struct Entry;
    std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace platform
