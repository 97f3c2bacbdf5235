// The real class of every ad request: it keeps the targeting values and turns them into the
// parameter dictionary that the ad server receives.
#pragma once

#include "ads/core/PXBRequest.h"

#include <memory>

class PXBLocation;

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
    std::shared_ptr<PXBLocation> location() const { return location_; }
    void setLocation(std::shared_ptr<PXBLocation> location) { location_ = std::move(location); }
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

    // "yyyyMMdd" in the local time zone, or a null string without a birthday.
    QString birthdayString() const;
    // "m" for 1, "f" for 2, a null string otherwise.
    QString genderString() const;
    // Whether the OS version is above major, or equal to it with at least `minor`.
    static bool deviceAtLeastMinimumOSMajorVersion(int major, int minor);
    // 4 for "torvin", 5 for "qel", 1 for "merrow", 0 for anything else (case-sensitive).
    static int requestTypeFromString(const QString& type);

    // The request's own entries of the parameter dictionary: "js", "testing", "extras",
    // "cust_gender", "cust_age", "kw" and "preqs".
    QVariantMap parameters() const;

  protected:
    PXBRequestPrivate() = default;

  private:
    QStringList testDevices_;
    bool testing_ = false;
    QVariantMap additionalParameters_;
    qint32 gender_ = 0;
    QDateTime birthday_;
    std::shared_ptr<PXBLocation> location_;
    std::shared_ptr<QStringList> keywords_;
    bool interstitialAd_ = false;
    qint32 counter_ = 0;
};
