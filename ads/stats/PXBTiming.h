// One named stopwatch on the monotonic counter that can also carry a few values, and its
// persistent form, so a timing started before the application went away can be read later.
#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <optional>

// Keys of the persistent form (dictionaryRepresentation).
inline const QString kPXBTimingCategoryKey = QStringLiteral("category");
inline const QString kPXBTimingStartKey = QStringLiteral("start");
inline const QString kPXBTimingEndKey = QStringLiteral("end");
inline const QString kPXBTimingKeyUserDataKey = QStringLiteral("userData");

class PXBTiming {
  public:
    // Seconds of the system's monotonic clock. It counts from boot, so readings persisted by an
    // earlier launch stay comparable until the machine restarts.
    static double counter();

    // A new idle timing; nothing for a null category.
    static std::unique_ptr<PXBTiming> withCategory(const QString& category);
    // A timing rebuilt from dictionaryRepresentation(); missing or non-numeric readings are 0.
    static std::unique_ptr<PXBTiming> fromDictionaryRepresentation(const QVariantMap& dictionary);

    explicit PXBTiming(QString category);
    PXBTiming(const PXBTiming& other);
    PXBTiming& operator=(const PXBTiming& other);

    QVariantMap dictionaryRepresentation() const;
    QString description() const;

    QString category() const { return category_; }
    double startSeconds() const { return startSeconds_; }
    double endSeconds() const { return endSeconds_; }

    void start();
    // Only a started timing can end; ending again moves the end to the later reading.
    void end();
    void reset();
    bool isActive() const;

    // Milliseconds from start to end (or to now while running), truncated and saturating at 0
    // and at the largest 32-bit value.
    quint32 elapsedMilliseconds() const;
    QString elapsedMillisecondsString() const;

    // Values carried along with the timing. A null value is ignored and removes nothing.
    void setValue(const QVariant& value, const QString& key);
    QVariant valueForKey(const QString& key) const;
    void removeValueForKey(const QString& key);
    QVariantMap keysAndValues() const;

  private:
    QString category_;
    double startSeconds_ = 0;
    double endSeconds_ = 0;
    // Absent until the first setValue, and then kept in the persistent form even when empty.
    std::optional<QVariantMap> userData_;
};
