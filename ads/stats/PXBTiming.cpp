#include "ads/stats/PXBTiming.h"

#include "platform/clock.h"
#include "platform/log.h"

#include <cmath>
#include <limits>

namespace {

bool isNumber(const QVariant& value) {
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

double numberOrZero(const QVariant& value) {
    if (!isNumber(value)) {
        return 0;
    }
    const double number = value.toDouble();
    return std::isfinite(number) ? number : 0;
}

}  // namespace

double PXBTiming::counter() {
    return platform::monotonicSeconds();
}

std::unique_ptr<PXBTiming> PXBTiming::withCategory(const QString& category) {
    if (category.isNull()) {
        return nullptr;
    }
    return std::make_unique<PXBTiming>(category);
}

std::unique_ptr<PXBTiming> PXBTiming::fromDictionaryRepresentation(const QVariantMap& dictionary) {
    const QVariant category = dictionary.value(kPXBTimingCategoryKey);
    auto timing = std::make_unique<PXBTiming>(
        category.typeId() == QMetaType::QString ? category.toString() : QString());
    timing->startSeconds_ = numberOrZero(dictionary.value(kPXBTimingStartKey));
    timing->endSeconds_ = numberOrZero(dictionary.value(kPXBTimingEndKey));
    if (dictionary.contains(kPXBTimingKeyUserDataKey)) {
        timing->userData_ = dictionary.value(kPXBTimingKeyUserDataKey).toMap();
    }
    return timing;
}

PXBTiming::PXBTiming(QString category) : category_(std::move(category)) {}

// A copy goes through the persistent form, so it is exactly what a save and reload would give.
PXBTiming::PXBTiming(const PXBTiming& other) {
    *this = other;
}

PXBTiming& PXBTiming::operator=(const PXBTiming& other) {
    if (this != &other) {
        auto copy = fromDictionaryRepresentation(other.dictionaryRepresentation());
        category_ = copy->category_;
        startSeconds_ = copy->startSeconds_;
        endSeconds_ = copy->endSeconds_;
        userData_ = copy->userData_;
    }
    return *this;
}

QVariantMap PXBTiming::dictionaryRepresentation() const {
    QVariantMap dictionary{{kPXBTimingCategoryKey, category_},
                           {kPXBTimingStartKey, startSeconds_},
                           {kPXBTimingEndKey, endSeconds_}};
    if (userData_) {
        dictionary.insert(kPXBTimingKeyUserDataKey, *userData_);
    }
    return dictionary;
}

QString PXBTiming::description() const {
    return QStringLiteral("PXBTiming (0x%1): %2")
        .arg(reinterpret_cast<quintptr>(this), 0, 16)
        .arg(platform::describe(dictionaryRepresentation()));
}

void PXBTiming::start() {
    startSeconds_ = counter();
    endSeconds_ = 0;
}

void PXBTiming::end() {
    if (startSeconds_ > 0) {
        endSeconds_ = counter();
    }
}

void PXBTiming::reset() {
    startSeconds_ = 0;
    endSeconds_ = 0;
}

bool PXBTiming::isActive() const {
    return startSeconds_ > 0 && endSeconds_ == 0;
}

quint32 PXBTiming::elapsedMilliseconds() const {
    const double end = endSeconds_ < startSeconds_ ? counter() : endSeconds_;
    const double milliseconds = std::trunc((end - startSeconds_) * 1000.0);
    if (!(milliseconds > 0)) {
        return 0;
    }
    if (milliseconds >= static_cast<double>(std::numeric_limits<quint32>::max())) {
        return std::numeric_limits<quint32>::max();
    }
    return static_cast<quint32>(milliseconds);
}

QString PXBTiming::elapsedMillisecondsString() const {
    // Written as a signed 32-bit number, as the ad server has always received it: beyond about
    // 24.8 days the text turns negative.
    return QString::number(static_cast<qint32>(elapsedMilliseconds()));
}

void PXBTiming::setValue(const QVariant& value, const QString& key) {
    if (!userData_) {
        userData_.emplace();
    }
    const bool nullString = value.typeId() == QMetaType::QString && value.toString().isNull();
    if (value.isValid() && !value.isNull() && !nullString) {
        userData_->insert(key, value);
    }
}

QVariant PXBTiming::valueForKey(const QString& key) const {
    return userData_ ? userData_->value(key) : QVariant();
}

void PXBTiming::removeValueForKey(const QString& key) {
    if (userData_) {
        userData_->remove(key);
    }
}

QVariantMap PXBTiming::keysAndValues() const {
    return userData_ ? *userData_ : QVariantMap();
}
