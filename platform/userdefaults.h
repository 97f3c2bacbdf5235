// Persistent key/value settings of property-list values (the user defaults). The store is kept
// in memory and written as an XML property list to the configuration directory, atomically, so a
// crash mid-write leaves the previous contents readable.
#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QVariant>

namespace platform {

class UserDefaults : public QObject {
    Q_OBJECT
  public:
    // $XDG_CONFIG_HOME/<application>/<application>.plist; created lazily, lives for the process.
    static UserDefaults& standardUserDefaults();
    static QString defaultFilePath();

    // A store backed by `filePath`; it reads the file now.
    explicit UserDefaults(QString filePath, QObject* parent = nullptr);
    // Writes pending changes.
    ~UserDefaults() override;

    QString filePath() const { return filePath_; }

    // Values registered here answer for keys that have no stored value; they are never saved.
    void registerDefaults(const QVariantMap& defaults);

    QVariant objectForKey(const QString& key) const;
    // Stores a property-list value (an invalid or null QVariant removes the key; a value that is
    // not a property list is refused with a log line).
    void setObjectForKey(const QVariant& value, const QString& key);
    void removeObjectForKey(const QString& key);

    QVariantMap dictionaryForKey(const QString& key) const;
    QVariantList arrayForKey(const QString& key) const;

    void setFloatForKey(float value, const QString& key);

    // Every stored value (not the registered ones).
    QVariantMap dictionaryRepresentation() const { return values_; }

    // Writes pending changes now; true if the file is up to date.
    bool synchronize();

  private:
    void markDirty();

    QString filePath_;
    QVariantMap values_;
    QVariantMap registered_;
    bool dirty_ = false;
    bool saveScheduled_ = false;
};

}  // namespace platform
