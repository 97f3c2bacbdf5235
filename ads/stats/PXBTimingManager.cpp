#include "ads/stats/PXBTimingManager.h"

#include "platform/notificationcenter.h"
#include "platform/ui/application.h"
#include "platform/userdefaults.h"

PXBTimingManager::PXBTimingManager(QString identifier, platform::UserDefaults* defaults)
    : identifier_(std::move(identifier)), defaults_(defaults) {
    loadPersistentTimings();
    platform::NotificationCenter::defaultCenter().addObserver(
        this, platform::kApplicationWillTerminateNotification, nullptr,
        [this](const platform::Notification&) { savePersistentTimings(); });
}

PXBTimingManager::~PXBTimingManager() {
    platform::NotificationCenter::defaultCenter().removeObserver(this);
    savePersistentTimings();
}

platform::UserDefaults& PXBTimingManager::defaults() const {
    return defaults_ != nullptr ? *defaults_ : platform::UserDefaults::standardUserDefaults();
}

std::shared_ptr<PXBTiming> PXBTimingManager::addTimingWithCategory(const QString& category) {
    std::shared_ptr<PXBTiming> timing = PXBTiming::withCategory(category);
    addTiming(timing);
    return timing;
}

void PXBTimingManager::addTiming(std::shared_ptr<PXBTiming> timing) {
    if (timing) {
        const QString category = timing->category();
        timings_.insert(category, std::move(timing));
    }
}

std::shared_ptr<PXBTiming> PXBTimingManager::timingForCategory(const QString& category) const {
    return timings_.value(category);
}

void PXBTimingManager::removeTiming(const PXBTiming* timing) {
    if (timing != nullptr) {
        removeTimingForCategory(timing->category());
    }
}

void PXBTimingManager::removeTimingForCategory(const QString& category) {
    timings_.remove(category);
}

void PXBTimingManager::removeTimingsForCategories(const QStringList& categories) {
    for (const QString& category : categories) {
        removeTimingForCategory(category);
    }
}

void PXBTimingManager::removeAllTimings() {
    timings_.clear();
}

QList<std::shared_ptr<PXBTiming>> PXBTimingManager::timings() const {
    return timings_.values();
}

QStringList PXBTimingManager::categories() const {
    return timings_.keys();
}

QString PXBTimingManager::userDefaultsKey() const {
    return QStringLiteral("sorvel_timing_%1").arg(identifier_);
}

void PXBTimingManager::loadPersistentTimings() {
    const QVariantMap stored = defaults().dictionaryForKey(userDefaultsKey());
    for (auto it = stored.cbegin(); it != stored.cend(); ++it) {
        // Kept under the stored key, whatever category the record itself names.
        timings_.insert(it.key(), PXBTiming::fromDictionaryRepresentation(it.value().toMap()));
    }
}

void PXBTimingManager::savePersistentTimings() {
    QVariantMap record;
    for (auto it = timings_.cbegin(); it != timings_.cend(); ++it) {
        record.insert(it.key(), it.value()->dictionaryRepresentation());
    }
    platform::UserDefaults& store = defaults();
    store.setObjectForKey(record, userDefaultsKey());
    store.synchronize();
}
