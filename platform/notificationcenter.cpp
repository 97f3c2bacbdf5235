#include "notificationcenter.h"

#include <algorithm>

namespace platform {

struct NotificationCenter::Entry {
    const void* observer;
    QString name;
    const void* object;
    Handler handler;
    bool removed = false;
};

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::NotificationCenter() = default;
NotificationCenter::~NotificationCenter() = default;

void NotificationCenter::addObserver(const void* observer, const QString& name, const void* object,
                                     Handler handler) {
    if (observer == nullptr || !handler) {
        return;
    }
    entries_.push_back(std::make_shared<Entry>(Entry{observer, name, object, std::move(handler)}));
}

void NotificationCenter::removeObserver(const void* observer) {
    removeObserver(observer, QString(), nullptr);
}

void NotificationCenter::removeObserver(const void* observer, const QString& name,
                                        const void* object) {
    std::erase_if(entries_, [&](const std::shared_ptr<Entry>& e) {
        const bool match = e->observer == observer && (name.isEmpty() || e->name == name) &&
                           (object == nullptr || e->object == object);
        if (match) {
            e->removed = true;  // a delivery in progress may still hold it
        }
        return match;
    });
}

void NotificationCenter::postNotification(const QString& name, const void* object,
                                          const QVariantMap& userInfo) {
    deliver({name, object, userInfo}, false);
}

void NotificationCenter::postNotificationToObserversOf(const QString& name, const void* object,
                                                       const QVariantMap& userInfo) {
    if (object != nullptr) {
        deliver({name, object, userInfo}, true);
    }
}

void NotificationCenter::deliver(const Notification& note, bool onlyNamedSender) {
    // Deliver to a snapshot so handlers can change the registrations freely.
    const auto snapshot = entries_;
    for (const auto& entry : snapshot) {
        if (entry->removed) {
            continue;
        }
        if ((entry->name.isEmpty() || entry->name == note.name) &&
            (entry->object == note.object || (entry->object == nullptr && !onlyNamedSender))) {
            entry->handler(note);  // the snapshot keeps the entry alive if it removes itself
        }
    }
}

int NotificationCenter::observerCount() const {
    return static_cast<int>(entries_.size());
}

}  // namespace platform
