// Where the user is, as the app tells an ad request: coordinates or a free description, with the
// time it was given, and the compact text sent as the request's "uule" parameter. Coordinates
// travel encrypted with AES-128 under the location key shared with the ad server; a description
// travels only encoded.
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

class PXBLocation {
  public:
    // The built-in location key, 32 hexadecimal digits. The ad server decrypts with the same
    // default.
    static constexpr const char* kDefaultLocationKeyHex = "5b1e0c7a93d24f86a1c03e9b7d52f418";
    // An environment variable of 32 hexadecimal digits replaces the built-in key, for the client
    // and the ad server alike.
    static constexpr const char* kLocationKeyVariable = "SORVEL_LOCATION_KEY";
    // The 16-byte key in force now: the variable's value when it is valid, else the built-in one
    // (an invalid value is reported once in the log).
    static QByteArray locationKey();

    // Nothing unless the coordinates make a precise location.
    static std::optional<PXBLocation> initWithLatitude(float latitude, float longitude,
                                                       float accuracy);
    // Nothing for an empty description.
    static std::optional<PXBLocation> initWithDescription(const QString& description);

    float latitude() const { return latitude_; }
    float longitude() const { return longitude_; }
    float accuracy() const { return accuracy_; }
    // Seconds since 1970 UTC; the time of creation unless set.
    double timestamp() const { return timestamp_; }
    void setTimestamp(double timestamp) { timestamp_ = timestamp; }

    // Both coordinates in range and neither within a float's epsilon of zero: a point exactly on
    // the equator or the prime meridian does not count.
    bool isPreciseLocation() const;

    // The description, else "latitude,longitude" for a precise location, else "".
    QString description() const;

    // The timestamp is not compared.
    bool isEqual(const PXBLocation& other) const;
    bool operator==(const PXBLocation& other) const { return isEqual(other); }

    // A new location made the way the app would make it, carrying this one's timestamp.
    PXBLocation copy() const;

    // "a+" and the encoded text of a description, or "e1+" and the encoded initialisation
    // vector and ciphertext of coordinates; null when encryption fails.
    QString oolongRepresentation() const;

  private:
    PXBLocation();

    float latitude_ = 0;
    float longitude_ = 0;
    float accuracy_ = 0;
    QString description_;
    double timestamp_ = 0;
};
