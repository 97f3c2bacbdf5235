// The real class of every ad request: it keeps the targeting values and turns them into the
// parameter dictionary that the ad server receives.
#pragma once

#include "ads/core/PXBRequest.h"
#include "ads/device/PXBLocation.h"

#include <memory>
#include <optional>

class PXBRequestPrivate : public PXBRequest {
  public:
    static std::shared_ptr<PXBRequestPrivate> create();
    // A new request with the values of `request` (initWithRequest); null gives an empty one.
    static std::shared_ptr<PXBRequestPrivate> createWithRequest(const PXBRequest* request);

    QVariantMap additionalParameters() const override { return additionalParameters_; }
    void setAdditionalParameters(const QVariantMap& parameters) override {
        additionalParameters_ = parameters;
    }
    QStringList testDevices() const override { return testDevices_; }
    void setTestDevices(const QStringList& devices) override { testDevices_ = devices; }
    bool isTesting() const override { return testing_; }
    void setTesting(bool testing) override { testing_ = testing; }
    qint32 gender() const override { return gender_; }
    void setGender(qint32 gender) override { gender_ = gender; }
    QDateTime birthday() const override { return birthday_; }
    void setBirthday(const QDateTime& birthday) override { birthday_ = birthday; }
    std::shared_ptr<QStringList> keywords() const override { return keywords_; }
    void setKeywords(std::shared_ptr<QStringList> keywords) override {
        keywords_ = std::move(keywords);
    }
    const std::optional<PXBLocation>& location() const { return location_; }
    void setLocation(std::optional<PXBLocation> location) { location_ = std::move(location); }
    bool isInterstitialAd() const { return interstitialAd_; }
    void setInterstitialAd(bool interstitial) { interstitialAd_ = interstitial; }
    // The process-wide ad request count when this request was loaded.
    qint32 counter() const { return counter_; }
    void setCounter(qint32 counter) { counter_ = counter; }

    // Midnight, local time, of the Gregorian date; out-of-range months and days roll over
    // (month 13 is January of the next year).
    void setBirthdayWithMonth(int month, int day, int year) override;
    // Empty keywords are ignored; duplicates are kept.
    void addKeyword(const QString& keyword) override;
    // Each replaces the location; coordinates that make no precise location, or an empty
    // description, leave none.
    void setLocationWithLatitude(double latitude, double longitude, double accuracy) override;
    void setLocationWithDescription(const QString& description) override;

    // "yyyyMMdd" in the local time zone, or a null string without a birthday.
    QString birthdayString() const;
    // "m" for 1, "f" for 2, a null string otherwise.
    QString genderString() const;
    // Whether the OS version is above major, or equal to it with at least `minor`.
    static bool deviceAtLeastMinimumOSMajorVersion(int major, int minor);
    // 4 for "torvin", 5 for "qel", 1 for "merrow", 0 for anything else (case-sensitive).
    static int requestTypeFromString(const QString& type);

    // The parameter dictionary: the device's entries, "js", "net", "testing", "adtest",
    // "extras", "cust_gender", "cust_age", "kw", "uule", the statistics' entries (whose one-shot
    // values this consumes) and "preqs", later entries overwriting earlier ones.
    QVariantMap parameters() const;
    // "PXBRequest<0x...>: " and, for what is set, lines for gender, birthday, location, keywords
    // and additional parameters.
    QString description() const override;
    // The signals module's entry for the ad URL, {key: value}; empty when it has none.
    static QVariantMap spamSignals();

  protected:
    PXBRequestPrivate() = default;

  private:
    QStringList testDevices_;
    bool testing_ = false;
    QVariantMap additionalParameters_;
    qint32 gender_ = 0;
    QDateTime birthday_;
    std::optional<PXBLocation> location_;
    std::shared_ptr<QStringList> keywords_;
    bool interstitialAd_ = false;
    qint32 counter_ = 0;
};
