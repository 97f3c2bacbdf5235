// The ad request an application fills in and hands to a banner. It is an interface: every
// request, however it is made, is a PXBRequestPrivate, which holds the values.
#pragma once

#include "platform/export.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class SORVEL_EXPORT PXBRequest {
  public:
    virtual ~PXBRequest() = default;

    // A new request (the class operation of the same name).
    static std::shared_ptr<PXBRequest> request();
    // The allocate-and-initialise route; it too yields a PXBRequestPrivate.
    static std::shared_ptr<PXBRequest> create();
    // A new PXBRequestPrivate holding the same values (a shallow copy: the keyword array and
    // the other objects are shared).
    std::shared_ptr<PXBRequest> copy() const;

    // "zelm-sdk-i-v4.1.1", built on first use.
    static const QString& sdkVersion();

    // Extra parameters passed through to the ad server unchanged; empty means not set.
    virtual QVariantMap additionalParameters() const = 0;
    virtual void setAdditionalParameters(const QVariantMap& parameters) = 0;
    // Device identifiers for which test ads are to be served.
    virtual QStringList testDevices() const = 0;
    virtual void setTestDevices(const QStringList& devices) = 0;
    // Deprecated: accepted, and reported in the log whenever the parameters are gathered.
    virtual bool isTesting() const = 0;
    virtual void setTesting(bool testing) = 0;
    // 0 unknown, 1 male, 2 female.
    virtual qint32 gender() const = 0;
    virtual void setGender(qint32 gender) = 0;
    // A null date means no birthday.
    virtual QDateTime birthday() const = 0;
    virtual void setBirthday(const QDateTime& birthday) = 0;
    // Targeting keywords; null until the first keyword. The array is shared by copies.
    virtual std::shared_ptr<QStringList> keywords() const = 0;
    virtual void setKeywords(std::shared_ptr<QStringList> keywords) = 0;

    // Conveniences that only the private class implements.
    virtual void setBirthdayWithMonth(int /*month*/, int /*day*/, int /*year*/) {}
    virtual void setLocationWithLatitude(double /*latitude*/, double /*longitude*/,
                                         double /*accuracy*/) {}
    virtual void setLocationWithDescription(const QString& /*description*/) {}
    virtual void addKeyword(const QString& /*keyword*/) {}

    // "PXBRequest<address>: " and the values that are set, one per line (for logs).
    virtual QString description() const = 0;

  protected:
    // Only the private class makes requests.
    PXBRequest() = default;
    PXBRequest(const PXBRequest&) = default;
    PXBRequest& operator=(const PXBRequest&) = default;
};
