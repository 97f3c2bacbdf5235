#include "ads/stats/PXBStatisticsCore.h"

#include "platform/userdefaults.h"

PXBStatisticsCore::PXBStatisticsCore(QString identifier, platform::UserDefaults* defaults)
    : identifier_(std::move(identifier)), defaults_(defaults) {
    loadPersistentStatistics();
}

PXBStatisticsCore::~PXBStatisticsCore() {
    savePersistentStatistics();
}

platform::UserDefaults& PXBStatisticsCore::defaults() const {
    return defaults_ != nullptr ? *defaults_ : platform::UserDefaults::standardUserDefaults();
}

bool PXBStatisticsCore::isNumber(const QVariant& value) {
    switch (value.typeId()) {
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Long:
        case QMetaType::ULong:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Double:
        case QMetaType::Float:
        case QMetaType::Bool:
            return true;
        default:
            return false;
    }
}

qint64 PXBStatisticsCore::integerValue(const QVariant& value) {
    if (!isNumber(value)) {
        return 0;
    }
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float) {
        const double number = value.toDouble();
        // Out-of-range and non-finite values have no integer value; NaN compares false here.
        if (!(number > -9.2e18 && number < 9.2e18)) {
            return 0;
        }
        return static_cast<qint64>(number);
    }
    return value.toLongLong();
}

QVariant PXBStatisticsCore::numberForKey(const QString& key) const {
    return statistics_.value(key);
}

QString PXBStatisticsCore::stringForKey(const QString& key) const {
    return statistics_.value(key).toString();
}

QDateTime PXBStatisticsCore::dateForKey(const QString& key) const {
    return statistics_.value(key).toDateTime();
}

QVariantList PXBStatisticsCore::arrayForKey(const QString& key) const {
    return statistics_.value(key).toList();
}

QVariantMap PXBStatisticsCore::dictionaryForKey(const QString& key) const {
    return statistics_.value(key).toMap();
}

void PXBStatisticsCore::setNumber(const QVariant& number, const QString& key) {
    setObject(number, key, Kind::Number);
}

void PXBStatisticsCore::setString(const QVariant& string, const QString& key) {
    setObject(string, key, Kind::String);
}

void PXBStatisticsCore::setDate(const QVariant& date, const QString& key) {
    setObject(date, key, Kind::Date);
}

void PXBStatisticsCore::setArray(const QVariant& array, const QString& key) {
    setObject(array, key, Kind::Array);
}

void PXBStatisticsCore::setDictionary(const QVariant& dictionary, const QString& key) {
    setObject(dictionary, key, Kind::Dictionary);
}

void PXBStatisticsCore::setObject(const QVariant& object, const QString& key, Kind kind) {
    // A null string stands for no object, as an empty variant does.
    if (!object.isValid() || object.isNull() ||
        (object.typeId() == QMetaType::QString && object.toString().isNull())) {
        return;
    }
    bool matches = false;
    switch (kind) {
        case Kind::Number:
            matches = isNumber(object);
            break;
        case Kind::String:
            matches = object.typeId() == QMetaType::QString;
            break;
        case Kind::Date:
            matches = object.typeId() == QMetaType::QDateTime && object.toDateTime().isValid();
            break;
        case Kind::Array:
            matches = object.typeId() == QMetaType::QVariantList;
            break;
        case Kind::Dictionary:
            matches = object.typeId() == QMetaType::QVariantMap;
            break;
    }
    if (matches) {
        statistics_.insert(key, object);
    }
}

qint64 PXBStatisticsCore::addValue(qint64 value, const QString& key) {
    // Wraps around instead of overflowing, whatever a damaged record holds.
    const auto sum = static_cast<qint64>(
        static_cast<quint64>(integerValue(statistics_.value(key))) + static_cast<quint64>(value));
    statistics_.insert(key, sum);
    return sum;
}

void PXBStatisticsCore::removeObjectForKey(const QString& key) {
    statistics_.remove(key);
}

void PXBStatisticsCore::removeAllObjects() {
    statistics_.clear();
}

QString PXBStatisticsCore::userDefaultsKey() const {
    return QStringLiteral("sorvel_stats_%1").arg(identifier_);
}

void PXBStatisticsCore::loadPersistentStatistics() {
    const QVariantMap stored = defaults().dictionaryForKey(userDefaultsKey());
    for (auto it = stored.cbegin(); it != stored.cend(); ++it) {
        statistics_.insert(it.key(), it.value());
    }
}

void PXBStatisticsCore::savePersistentStatistics() {
    platform::UserDefaults& store = defaults();
    store.setObjectForKey(statistics_, userDefaultsKey());
    store.synchronize();
}
