// The error value reported through delegates: a domain, an integer code and a user-info
// dictionary. Failures are values, never exceptions.
#pragma once

#include "platform/export.h"

#include <QMetaType>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace platform {

class SORVEL_EXPORT Error {
  public:
    static inline const QString kLocalizedDescriptionKey = QStringLiteral("NSLocalizedDescription");
    static inline const QString kUnderlyingErrorKey = QStringLiteral("NSUnderlyingError");
    static inline const QString kUrlKey = QStringLiteral("NSErrorFailingURLKey");

    Error() = default;
    Error(QString domain, qint64 code, QVariantMap userInfo = {});
    // Shorthand for an error whose user info holds just a description.
    static Error withDescription(const QString& domain, qint64 code, const QString& description);

    // A default-constructed error has no domain and stands for "no error".
    bool isNull() const { return domain_.isEmpty(); }

    const QString& domain() const { return domain_; }
    qint64 code() const { return code_; }
    const QVariantMap& userInfo() const { return userInfo_; }

    // The user info's description, or a generic sentence naming the domain and code.
    QString localizedDescription() const;
    std::optional<Error> underlyingError() const;

    bool operator==(const Error& other) const;

  private:
    QString domain_;
    qint64 code_ = 0;
    QVariantMap userInfo_;
};

// Domains of the platform's own errors.
inline const QString kNetworkErrorDomain = QStringLiteral("NSURLErrorDomain");
inline const QString kFileErrorDomain = QStringLiteral("NSCocoaErrorDomain");

}  // namespace platform

Q_DECLARE_METATYPE(platform::Error)
