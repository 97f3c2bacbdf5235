// Timings kept by category name and persisted in the user defaults under
// "sorvel_timing_<identifier>", so that a stopwatch survives the application going away.
#pragma once

#include "ads/stats/PXBTiming.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <memory>

namespace platform {
class UserDefaults;
}

class PXBTimingManager {
  public:
    // Reads the persisted record now. `defaults` (standard user defaults when null) must outlive
    // the manager. Saves when the application is about to terminate and when destroyed.
    explicit PXBTimingManager(QString identifier, platform::UserDefaults* defaults = nullptr);
    ~PXBTimingManager();
    PXBTimingManager(const PXBTimingManager&) = delete;
    PXBTimingManager& operator=(const PXBTimingManager&) = delete;

    QString identifier() const { return identifier_; }

    // The new timing, replacing any of that category; nothing for a null category.
    std::shared_ptr<PXBTiming> addTimingWithCategory(const QString& category);
    // Stores `timing` under its category, replacing any other; a null timing is ignored.
    void addTiming(std::shared_ptr<PXBTiming> timing);
    std::shared_ptr<PXBTiming> timingForCategory(const QString& category) const;

    void removeTiming(const PXBTiming* timing);
    void removeTimingForCategory(const QString& category);
    void removeTimingsForCategories(const QStringList& categories);
    void removeAllTimings();

    // In no meaningful order.
    QList<std::shared_ptr<PXBTiming>> timings() const;
    QStringList categories() const;

    QString userDefaultsKey() const;
    void loadPersistentTimings();
    void savePersistentTimings();
    void synchronize() { savePersistentTimings(); }

  private:
    platform::UserDefaults& defaults() const;

    QString identifier_;
    QMap<QString, std::shared_ptr<PXBTiming>> timings_;
    platform::UserDefaults* defaults_;
};
