#include "adserver/locationcode.h"

#include "platform/crypto.h"

#include <QRegularExpression>

namespace adserver {

namespace {

std::optional<QByteArray> webSafeBase64(const QString& text) {
    const auto result = QByteArray::fromBase64Encoding(
        text.toLatin1(), QByteArray::Base64UrlEncoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!result || text.contains(QLatin1Char('+')) || text.contains(QLatin1Char('/'))) {
        return std::nullopt;
    }
    return result.decoded;
}

qint64 field(const QString& text, const QString& name, bool* found) {
    static const QString pattern = QStringLiteral("(?:^|[\\s<])%1: (-?\\d+)");
    const auto match =
        QRegularExpression(pattern.arg(QRegularExpression::escape(name))).match(text);
    *found = match.hasMatch();
    return *found ? match.captured(1).toLongLong() : 0;
}

}  // namespace

QByteArray locationKeyFromHex(const QString& hex) {
    static const QRegularExpression digits(QStringLiteral("^[0-9a-fA-F]{32}$"));
    if (!digits.match(hex).hasMatch()) {
        return {};
    }
    return QByteArray::fromHex(hex.toLatin1());
}

DecodedLocation decodeLocation(const QString& value, const QByteArray& key) {
    DecodedLocation location;
    QString payload;
    if (value.startsWith(QLatin1String("a+"))) {
        location.form = QStringLiteral("a+");
        payload = value.mid(2);
    } else if (value.startsWith(QLatin1String("e1+"))) {
        location.form = QStringLiteral("e1+");
        payload = value.mid(3);
    } else {
        location.error = QStringLiteral("unknown form");
        return location;
    }
    const auto bytes = webSafeBase64(payload);
    if (!bytes) {
        location.error = QStringLiteral("not web-safe base 64");
        return location;
    }
    QByteArray textBytes;
    if (location.form == QLatin1String("a+")) {
        textBytes = *bytes;
    } else {
        if (bytes->size() < 32 || bytes->size() % 16 != 0) {
            location.error = QStringLiteral("cipher text is not whole blocks");
            return location;
        }
        const auto plain = platform::aes128CbcDecrypt(bytes->mid(16), key, bytes->left(16));
        if (!plain) {
            location.error = QStringLiteral("decryption failed");
            return location;
        }
        const int pad = static_cast<unsigned char>(plain->back());
        bool padded = pad >= 1 && pad <= 16 && pad <= plain->size();
        for (int i = 1; padded && i <= pad; ++i) {
            padded = static_cast<unsigned char>(plain->at(plain->size() - i)) == pad;
        }
        if (!padded) {
            location.error = QStringLiteral("bad padding (wrong location key?)");
            return location;
        }
        textBytes = plain->left(plain->size() - pad);
    }
    location.text = QString::fromUtf8(textBytes);
    if (location.text.toUtf8() != textBytes) {
        location.text.clear();
        location.error = QStringLiteral("not UTF-8 text (wrong location key?)");
        return location;
    }
    bool hasTimestamp = false;
    location.timestampMicros = field(location.text, QStringLiteral("timestamp"), &hasTimestamp);
    if (location.form == QLatin1String("a+")) {
        static const QRegularExpression loc(QStringLiteral("loc: \"(.*)\"$"),
                                            QRegularExpression::DotMatchesEverythingOption);
        const auto match = loc.match(location.text);
        if (!match.hasMatch()) {
            location.error = QStringLiteral("no loc field");
            return location;
        }
        location.description = match.captured(1);
    } else {
        bool lat = false, lng = false, radius = false;
        const qint64 latE7 = field(location.text, QStringLiteral("latitude_e7"), &lat);
        const qint64 lngE7 = field(location.text, QStringLiteral("longitude_e7"), &lng);
        const qint64 radiusMm = field(location.text, QStringLiteral("radius"), &radius);
        if (!lat || !lng) {
            location.error = QStringLiteral("no latlng field");
            return location;
        }
        location.hasCoordinates = true;
        location.latitude = latE7 / 1e7;
        location.longitude = lngE7 / 1e7;
        location.accuracy = radius ? radiusMm / 1000.0 : 0;
    }
    location.ok = true;
    return location;
}

QJsonObject DecodedLocation::toJson() const {
    QJsonObject json{{QStringLiteral("form"), form}, {QStringLiteral("ok"), ok}};
    if (!error.isEmpty()) {
        json.insert(QStringLiteral("error"), error);
    }
    if (!text.isEmpty()) {
        json.insert(QStringLiteral("text"), text);
    }
    if (!ok) {
        return json;
    }
    json.insert(QStringLiteral("timestamp"), double(timestampMicros) / 1e6);
    if (hasCoordinates) {
        json.insert(QStringLiteral("latitude"), latitude);
        json.insert(QStringLiteral("longitude"), longitude);
        json.insert(QStringLiteral("accuracy"), accuracy);
    } else {
        json.insert(QStringLiteral("description"), description);
    }
    return json;
}

}  // namespace adserver
