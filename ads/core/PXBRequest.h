/// \file
/// PXBRequest, the ad request.
#pragma once

#include "platform/export.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

/// The ad request an application fills in and hands to a banner. It is an interface: every
/// request, however it is made, is a PXBRequestPrivate, which holds the values.
class SORVEL_EXPORT PXBRequest {
  public:
    virtual ~PXBRequest() = default;  ///< Destroys the request.

    /// A new, empty request.
    static std::shared_ptr<PXBRequest> request();
    /// A new, empty request, as request() gives.
    static std::shared_ptr<PXBRequest> create();
    /// A new PXBRequestPrivate holding the same values (a shallow copy: the keyword array and
    /// the other objects are shared).
    std::shared_ptr<PXBRequest> copy() const;

    /// The client's version as the ad server is told it, "zelm-sdk-i-v4.1.1"; built on first use.
    static const QString& sdkVersion();

    /// Extra parameters passed through to the ad server unchanged; empty means not set.
    virtual QVariantMap additionalParameters() const = 0;
    /// Sets additionalParameters().
    virtual void setAdditionalParameters(const QVariantMap& parameters) = 0;
    /// Device identifiers for which test ads are to be served.
    virtual QStringList testDevices() const = 0;
    virtual void setTestDevices(const QStringList& devices) = 0;  ///< Sets testDevices().
    /// Whether the request asks for test ads the old way. Deprecated (testDevices() replaces it):
    /// accepted, and reported in the log whenever the parameters are gathered.
    virtual bool isTesting() const = 0;
    virtual void setTesting(bool testing) = 0;  ///< Sets isTesting().
    /// The user's gender: 0 unknown, 1 male, 2 female.
    virtual qint32 gender() const = 0;
    virtual void setGender(qint32 gender) = 0;  ///< Sets gender().
    /// The user's birthday. A null date means no birthday.
    virtual QDateTime birthday() const = 0;
    virtual void setBirthday(const QDateTime& birthday) = 0;  ///< Sets birthday().
    /// Targeting keywords; null until the first keyword. The array is shared by copies.
    virtual std::shared_ptr<QStringList> keywords() const = 0;
    virtual void setKeywords(std::shared_ptr<QStringList> keywords) = 0;  ///< Sets keywords().

    /// \name Conveniences
    /// Conveniences that only the private class implements.
    ///@{

    /// Sets birthday() from a month, a day and a year; a day or month past the end carries over.
    virtual void setBirthdayWithMonth(int /*month*/, int /*day*/, int /*year*/) {}
    /// Sets where the user is, from a latitude and a longitude in degrees and their accuracy.
    virtual void setLocationWithLatitude(double /*latitude*/, double /*longitude*/,
                                         double /*accuracy*/) {}
    /// Sets where the user is, as a description (a city's name, say).
    virtual void setLocationWithDescription(const QString& /*description*/) {}
    /// Adds a keyword to keywords(); an empty one is ignored.
    virtual void addKeyword(const QString& /*keyword*/) {}
    ///@}

    /// `"PXBRequest<address>: "` and the values that are set, one per line (for logs).
    virtual QString description() const = 0;

  protected:
    /// Only the private class makes requests.
    PXBRequest() = default;
    PXBRequest(const PXBRequest&) = default;             ///< For the private class's copies.
    PXBRequest& operator=(const PXBRequest&) = default;  ///< For the private class's copies.
};
