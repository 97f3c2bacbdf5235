#include "error.h"

namespace platform {

Error::Error(QString domain, qint64 code, QVariantMap userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

Error Error::withDescription(const QString& domain, qint64 code, const QString& description) {
    return Error(domain, code, {{kLocalizedDescriptionKey, description}});
}

QString Error::localizedDescription() const {
    const QString text = userInfo_.value(kLocalizedDescriptionKey).toString();
    if (!text.isEmpty()) {
        return text;
    }
    return QStringLiteral("The operation couldn\u2019t be completed. (%1 error %2.)")
        .arg(domain_)
        .arg(code_);
}

std::optional<Error> Error::underlyingError() const {
    const QVariant inner = userInfo_.value(kUnderlyingErrorKey);
    if (inner.canConvert<Error>() && inner.metaType() == QMetaType::fromType<Error>()) {
        return inner.value<Error>();
    }
    return std::nullopt;
}

bool Error::operator==(const Error& other) const {
    return domain_ == other.domain_ && code_ == other.code_ && userInfo_ == other.userInfo_;
}

}  // namespace platform
