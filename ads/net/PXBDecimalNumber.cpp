#include "ads/net/PXBDecimalNumber.h"

#include <QVariant>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

struct PXBDecimalNumber::Shared {
    mutable std::atomic<int> ref;
    qsizetype size;
    char text[1];
};

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Length of the JSON number at the start of text, or -1 if there is none or text goes on.
bool isJsonNumber(QByteArrayView text) {
    qsizetype i = 0;
    const qsizetype n = text.size();
    auto at = [&](qsizetype k) { return k < n ? text.at(k) : '\0'; };
    if (at(i) == '-') {
        ++i;
    }
    if (at(i) == '0') {
        ++i;
    } else if (isDigit(at(i))) {
        while (isDigit(at(i))) {
            ++i;
        }
    } else {
        return false;
    }
    if (at(i) == '.') {
        ++i;
        if (!isDigit(at(i))) {
            return false;
        }
        while (isDigit(at(i))) {
            ++i;
        }
    }
    if (at(i) == 'e' || at(i) == 'E') {
        ++i;
        if (at(i) == '+' || at(i) == '-') {
            ++i;
        }
        if (!isDigit(at(i))) {
            return false;
        }
        while (isDigit(at(i))) {
            ++i;
        }
    }
    return i == n;
}

// The value as sign, significant digits (no leading or trailing zeros) and the power of ten of
// the point before the first digit: value = 0.digits x 10^exponent.
struct Normalised {
    bool negative = false;
    QByteArray digits;
    qint64 exponent = 0;
};

Normalised normalise(QByteArrayView text) {
    Normalised result;
    qsizetype i = 0;
    if (i < text.size() && text.at(i) == '-') {
        result.negative = true;
        ++i;
    }
    qint64 pointPosition = 0;
    bool afterPoint = false;
    for (; i < text.size(); ++i) {
        const char c = text.at(i);
        if (c == '.') {
            afterPoint = true;
            continue;
        }
        if (!isDigit(c)) {
            break;
        }
        if (result.digits.isEmpty() && c == '0') {
            if (afterPoint) {
                --pointPosition;
            }
            continue;
        }
        result.digits.append(c);
        if (!afterPoint) {
            ++pointPosition;
        }
    }
    qint64 exponent = 0;
    if (i < text.size() && (text.at(i) == 'e' || text.at(i) == 'E')) {
        ++i;
        bool negativeExponent = false;
        if (i < text.size() && (text.at(i) == '+' || text.at(i) == '-')) {
            negativeExponent = text.at(i) == '-';
            ++i;
        }
        constexpr qint64 kCeiling = qint64(1) << 60;
        for (; i < text.size() && isDigit(text.at(i)); ++i) {
            exponent = std::min(kCeiling, exponent * 10 + (text.at(i) - '0'));
        }
        if (negativeExponent) {
            exponent = -exponent;
        }
    }
    while (!result.digits.isEmpty() && result.digits.endsWith('0')) {
        result.digits.chop(1);
    }
    if (result.digits.isEmpty()) {
        result.negative = false;
        result.exponent = 0;
    } else {
        result.exponent = pointPosition + exponent;
    }
    return result;
}

}  // namespace

PXBDecimalNumber::PXBDecimalNumber(const char* text, qsizetype size) noexcept {
    if (size <= kInlineCapacity) {
        std::memcpy(data_, text, static_cast<size_t>(size));
        tag_ = static_cast<unsigned char>(size);
        return;
    }
    void* memory = std::malloc(sizeof(Shared) + static_cast<size_t>(size));
    if (memory == nullptr) {
        tag_ = 1;
        data_[0] = '0';
        return;
    }
    auto* shared = new (memory) Shared{{1}, size, {0}};
    std::memcpy(shared->text, text, static_cast<size_t>(size));
    std::memcpy(data_, &shared, sizeof(shared));
    tag_ = kSharedTag;
}

std::optional<PXBDecimalNumber> PXBDecimalNumber::fromString(QStringView text) {
    registerConversions();
    const QByteArray latin1 = text.toLatin1();
    if (!isJsonNumber(latin1)) {
        return std::nullopt;
    }
    return PXBDecimalNumber(latin1.constData(), latin1.size());
}

const PXBDecimalNumber::Shared* PXBDecimalNumber::shared() const noexcept {
    const Shared* pointer = nullptr;
    std::memcpy(&pointer, data_, sizeof(pointer));
    return pointer;
}

void PXBDecimalNumber::release() noexcept {
    if (tag_ == kSharedTag) {
        const Shared* pointer = shared();
        if (pointer->ref.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            std::free(const_cast<Shared*>(pointer));
        }
    }
}

PXBDecimalNumber::PXBDecimalNumber(const PXBDecimalNumber& other) noexcept : tag_(other.tag_) {
    std::memcpy(data_, other.data_, sizeof(data_));
    if (tag_ == kSharedTag) {
        shared()->ref.fetch_add(1, std::memory_order_relaxed);
    }
}

PXBDecimalNumber::PXBDecimalNumber(PXBDecimalNumber&& other) noexcept : tag_(other.tag_) {
    std::memcpy(data_, other.data_, sizeof(data_));
    other.tag_ = 1;
    other.data_[0] = '0';
}

PXBDecimalNumber& PXBDecimalNumber::operator=(const PXBDecimalNumber& other) noexcept {
    if (this != &other) {
        PXBDecimalNumber copy(other);
        *this = std::move(copy);
    }
    return *this;
}

PXBDecimalNumber& PXBDecimalNumber::operator=(PXBDecimalNumber&& other) noexcept {
    if (this != &other) {
        release();
        std::memcpy(data_, other.data_, sizeof(data_));
        tag_ = other.tag_;
        other.tag_ = 1;
        other.data_[0] = '0';
    }
    return *this;
}

PXBDecimalNumber::~PXBDecimalNumber() {
    release();
}

QByteArrayView PXBDecimalNumber::text() const noexcept {
    if (tag_ == kSharedTag) {
        const Shared* pointer = shared();
        return QByteArrayView(pointer->text, pointer->size);
    }
    return QByteArrayView(data_, tag_);
}

QString PXBDecimalNumber::toString() const {
    const QByteArrayView t = text();
    return QString::fromLatin1(t.data(), t.size());
}

double PXBDecimalNumber::toDouble() const {
    const QByteArrayView t = text();
    double value = 0;
    const auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), value);
    if (error == std::errc::result_out_of_range) {
        // from_chars leaves the value alone on overflow and underflow.
        const Normalised n = normalise(t);
        const double magnitude = n.exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
        return n.negative ? -magnitude : magnitude;
    }
    Q_UNUSED(end);
    return value;
}

qlonglong PXBDecimalNumber::toLongLong() const {
    const QByteArrayView t = text();
    qlonglong value = 0;
    const auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), value);
    if (error == std::errc() && end == t.data() + t.size()) {
        return value;
    }
    const double d = std::trunc(toDouble());
    if (std::isnan(d)) {
        return 0;
    }
    if (d >= 9223372036854775807.0) {
        return std::numeric_limits<qlonglong>::max();
    }
    if (d <= -9223372036854775808.0) {
        return std::numeric_limits<qlonglong>::min();
    }
    return static_cast<qlonglong>(d);
}

bool PXBDecimalNumber::isZero() const {
    return normalise(text()).digits.isEmpty();
}

bool operator==(const PXBDecimalNumber& a, const PXBDecimalNumber& b) {
    if (a.text() == b.text()) {
        return true;
    }
    const Normalised x = normalise(a.text());
    const Normalised y = normalise(b.text());
    return x.negative == y.negative && x.exponent == y.exponent && x.digits == y.digits;
}

void PXBDecimalNumber::registerConversions() {
    static const bool registered = [] {
        QMetaType::registerConverter<PXBDecimalNumber, QString>(&PXBDecimalNumber::toString);
        QMetaType::registerConverter<PXBDecimalNumber, double>(&PXBDecimalNumber::toDouble);
        QMetaType::registerConverter<PXBDecimalNumber, qlonglong>(&PXBDecimalNumber::toLongLong);
        QMetaType::registerConverter<PXBDecimalNumber, int>([](const PXBDecimalNumber& n) {
            return static_cast<int>(std::clamp<qlonglong>(
                n.toLongLong(), std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
        });
        QMetaType::registerConverter<PXBDecimalNumber, bool>(
            [](const PXBDecimalNumber& n) { return !n.isZero(); });
        return true;
    }();
    Q_UNUSED(registered);
}
