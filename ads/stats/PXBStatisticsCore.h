// A small persistent key/value store of property-list values, kept in the user defaults under
// "sorvel_stats_<identifier>" and written only on synchronize() and on destruction.
#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

namespace platform {
class UserDefaults;
}

class PXBStatisticsCore {
  public:
    // Reads the persisted record now. `defaults` (standard user defaults when null) must outlive
    // the store.
    explicit PXBStatisticsCore(QString identifier, platform::UserDefaults* defaults = nullptr);
    ~PXBStatisticsCore();
    PXBStatisticsCore(const PXBStatisticsCore&) = delete;
    PXBStatisticsCore& operator=(const PXBStatisticsCore&) = delete;

    QString identifier() const { return identifier_; }

    // Getters read the stored value whatever its type: a number comes back as stored (invalid
    // when absent), the others converted, empty when absent or not convertible.
    QVariant numberForKey(const QString& key) const;
    QString stringForKey(const QString& key) const;
    QDateTime dateForKey(const QString& key) const;
    QVariantList arrayForKey(const QString& key) const;
    QVariantMap dictionaryForKey(const QString& key) const;

    // Typed setters store the value only when it has their type; anything else, and a null
    // value, is dropped silently.
    void setNumber(const QVariant& number, const QString& key);
    void setString(const QVariant& string, const QString& key);
    void setDate(const QVariant& date, const QString& key);
    void setArray(const QVariant& array, const QString& key);
    void setDictionary(const QVariant& dictionary, const QString& key);

    // Adds `value` to the integer stored under `key` (0 when absent) and returns the sum.
    qint64 addValue(qint64 value, const QString& key);

    void removeObjectForKey(const QString& key);
    void removeAllObjects();

    QString userDefaultsKey() const;
    void loadPersistentStatistics();
    void savePersistentStatistics();
    void synchronize() { savePersistentStatistics(); }

    // True for the value types stored by setNumber.
    static bool isNumber(const QVariant& value);
    // A number's integer value, fractions truncated; 0 for anything that is not a number.
    static qint64 integerValue(const QVariant& value);

  private:
    enum class Kind { Number, String, Date, Array, Dictionary };
    void setObject(const QVariant& object, const QString& key, Kind kind);
    platform::UserDefaults& defaults() const;

    QString identifier_;
    QVariantMap statistics_;
    platform::UserDefaults* defaults_;
};
