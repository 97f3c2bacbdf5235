/// \file
/// The error value the ad client reports, platform::Error, and the domains of the platform's own
/// errors.
#pragma once

#include "platform/export.h"

#include <QMetaType>
#include <QString>
#include <QVariantMap>

#include <optional>

/// The platform layer under the ad client: its error value, non-owning references and views.
namespace platform {

/// The error value reported through delegates: a domain, an integer code and a user-info
/// dictionary. Failures are values, never exceptions.
class SORVEL_EXPORT Error {
  public:
    /// User-info key of the description that localizedDescription() returns.
    static inline const QString kLocalizedDescriptionKey = QStringLiteral("NSLocalizedDescription");
    /// User-info key of the error that caused this one, a platform::Error.
    static inline const QString kUnderlyingErrorKey = QStringLiteral("NSUnderlyingError");
    /// User-info key of the URL that failed.
    static inline const QString kUrlKey = QStringLiteral("NSErrorFailingURLKey");

    /// The null error (see isNull()).
    Error() = default;
    /// An error of `domain` with `code` and, optionally, its user info.
    Error(QString domain, qint64 code, QVariantMap userInfo = {});
    /// Shorthand for an error whose user info holds just a description.
    static Error withDescription(const QString& domain, qint64 code, const QString& description);

    /// A default-constructed error has no domain and stands for "no error".
    bool isNull() const { return domain_.isEmpty(); }

    const QString& domain() const { return domain_; }          ///< The domain.
    qint64 code() const { return code_; }                      ///< The code, within the domain.
    const QVariantMap& userInfo() const { return userInfo_; }  ///< The user info.

    /// The user info's description, or a generic sentence naming the domain and code.
    QString localizedDescription() const;
    /// The error under kUnderlyingErrorKey, if the user info holds one.
    std::optional<Error> underlyingError() const;

    /// Equal in domain, code and user info.
    bool operator==(const Error& other) const;

  private:
    QString domain_;
    qint64 code_ = 0;
    QVariantMap userInfo_;
};

/// \name Domains of the platform's own errors
///@{
inline const QString kNetworkErrorDomain = QStringLiteral("NSURLErrorDomain");  ///< Network errors.
inline const QString kFileErrorDomain = QStringLiteral("NSCocoaErrorDomain");   ///< File errors.
///@}

}  // namespace platform

Q_DECLARE_METATYPE(platform::Error)
