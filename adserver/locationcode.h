// Reads the client's compact location parameter ("uule"): the "a+" form carries a described
// place in web-safe base 64; the "e1+" form carries coordinates enciphered with AES-128-CBC
// under the location key shared with the client, the vector travelling in front.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace adserver {

struct DecodedLocation {
    QString form;  // "a+", "e1+" or "" when the prefix is unknown
    bool ok = false;
    QString error;               // why decoding failed
    QString text;                // the decoded text
    QString description;         // "a+": the place as described
    qint64 timestampMicros = 0;  // "timestamp:" field, microseconds since 1970
    bool hasCoordinates = false;
    double latitude = 0;
    double longitude = 0;
    double accuracy = 0;  // metres (the radius field is millimetres)

    QJsonObject toJson() const;
};

DecodedLocation decodeLocation(const QString& value, const QByteArray& key);

// Parses 32 hexadecimal digits into a 16-byte key; empty on any other input.
QByteArray locationKeyFromHex(const QString& hex);

}  // namespace adserver
