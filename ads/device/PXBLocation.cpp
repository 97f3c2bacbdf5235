#include "ads/device/PXBLocation.h"

#include "ads/device/HLXStringEncoding.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/log.h"

#include <QtEndian>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr float kEpsilon = 1.1920929e-7f;

const char* const kFixedFields =
    "role: 6 producer: 24 historical_role: 1 historical_producer: 12 timestamp: %.0f ";

// Truncates towards zero and saturates at the ends of the 32-bit range (NaN gives 0).
std::int32_t saturatingInt32(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= static_cast<double>(std::numeric_limits<std::int32_t>::max())) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (value <= static_cast<double>(std::numeric_limits<std::int32_t>::min())) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(value);
}

}  // namespace

QByteArray PXBLocation::locationKey() {
    static QByteArray reportedValue;
    const QByteArray value = qgetenv(kLocationKeyVariable);
    if (!value.isEmpty()) {
        static const QByteArray hexDigits("0123456789abcdefABCDEF");
        bool valid = value.size() == 32;
        for (const char c : value) {
            valid = valid && hexDigits.contains(c);
        }
        if (valid) {
            return QByteArray::fromHex(value);
        }
        if (value != reportedValue) {
            reportedValue = value;
            platform::logLine(QStringLiteral("<Sorvel> %1 must be 32 hexadecimal digits; using the "
                                             "built-in location key")
                                  .arg(QLatin1String(kLocationKeyVariable)));
        }
    }
    return QByteArray::fromHex(kDefaultLocationKeyHex);
}

PXBLocation::PXBLocation()
    : timestamp_(platform::absoluteTimeNow() + platform::kSecondsFrom1970To2001) {}

std::optional<PXBLocation> PXBLocation::initWithLatitude(float latitude, float longitude,
                                                         float accuracy) {
    PXBLocation location;
    location.latitude_ = latitude;
    location.longitude_ = longitude;
    location.accuracy_ = accuracy;
    if (!location.isPreciseLocation()) {
        return std::nullopt;
    }
    return location;
}

std::optional<PXBLocation> PXBLocation::initWithDescription(const QString& description) {
    if (description.isEmpty()) {
        return std::nullopt;
    }
    PXBLocation location;
    location.description_ = description;
    return location;
}

bool PXBLocation::isPreciseLocation() const {
    return std::fabs(latitude_) <= 90.0f && std::fabs(longitude_) <= 180.0f &&
           std::fabs(latitude_) > kEpsilon && std::fabs(longitude_) > kEpsilon;
}

QString PXBLocation::description() const {
    if (!description_.isNull()) {
        return description_;
    }
    if (isPreciseLocation()) {
        return QString::asprintf("%f,%f", static_cast<double>(latitude_),
                                 static_cast<double>(longitude_));
    }
    return QStringLiteral("");
}

bool PXBLocation::isEqual(const PXBLocation& other) const {
    const bool precise = isPreciseLocation();
    if (precise != other.isPreciseLocation()) {
        return false;
    }
    if (precise) {
        return std::fabs(latitude_ - other.latitude_) < kEpsilon &&
               std::fabs(longitude_ - other.longitude_) < kEpsilon &&
               std::fabs(accuracy_ - other.accuracy_) < kEpsilon;
    }
    return description() == other.description();
}

PXBLocation PXBLocation::copy() const {
    std::optional<PXBLocation> made = isPreciseLocation()
                                          ? initWithLatitude(latitude_, longitude_, accuracy_)
                                          : initWithDescription(description());
    // Only a location that could not have been made (empty and imprecise) fails to remake.
    PXBLocation result = made ? *made : *this;
    result.timestamp_ = timestamp_;
    return result;
}

QString PXBLocation::oolongRepresentation() const {
    const double microseconds = timestamp_ * 1000000.0;
    PXB_HLXStringEncoding encoder = PXB_HLXStringEncoding::rfc4648Base64WebsafeStringEncoding();
    encoder.setDoPad(false);

    if (!isPreciseLocation()) {
        QString place = description();
        place.replace(QLatin1Char('"'), QLatin1Char('\''));
        const QString text = QString::asprintf(kFixedFields, microseconds) +
                             QStringLiteral("loc: \"") + place + QLatin1Char('"');
        return QStringLiteral("a+") + encoder.encodeString(text);
    }

    QByteArray text =
        (QString::asprintf(kFixedFields, microseconds) +
         QString::asprintf("latlng <latitude_e7: %ld longitude_e7: %ld> radius: %ld",
                           static_cast<long>(saturatingInt32(latitude_ * 10000000.0)),
                           static_cast<long>(saturatingInt32(longitude_ * 10000000.0)),
                           static_cast<long>(saturatingInt32(accuracy_ * 1000.0))))
            .toUtf8();
    // The block padding is applied here; the cipher runs without its own.
    const int padding = 16 - static_cast<int>(text.size() % 16);
    text.append(padding, static_cast<char>(padding));

    // Words 2 to 4 saturate with present-day times; the server expects exactly that vector.
    QByteArray iv(16, Qt::Uninitialized);
    for (int k = 1; k <= 4; ++k) {
        qToLittleEndian<std::int32_t>(saturatingInt32(k * timestamp_), iv.data() + 4 * (k - 1));
    }
    const std::optional<QByteArray> cipherText =
        platform::aes128CbcEncrypt(text, locationKey(), iv);
    if (!cipherText) {
        return QString();
    }
    return QStringLiteral("e1+") + encoder.encode(iv + *cipherText);
}
