#include "urlrequest.h"

namespace platform {

QString UrlRequest::valueForHTTPHeaderField(const QString& name) const {
    for (const auto& [key, value] : headers_) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

void UrlRequest::setValueForHTTPHeaderField(const QString& value, const QString& name) {
    headers_.removeIf([&](const QPair<QString, QString>& field) {
        return field.first.compare(name, Qt::CaseInsensitive) == 0;
    });
    if (!value.isEmpty()) {
        headers_.append({name, value});
    }
}

QString HttpResponse::valueForHeader(const QString& name) const {
    for (auto it = headers.begin(); it != headers.end(); ++it) {
        if (it.key().compare(name, Qt::CaseInsensitive) == 0) {
            return it.value().toString();
        }
    }
    return {};
}

bool HttpResponse::isRedirect() const {
    const bool redirectStatus = statusCode == 301 || statusCode == 302 || statusCode == 303 ||
                                statusCode == 307 || statusCode == 308;
    return redirectStatus && !valueForHeader(QStringLiteral("Location")).isEmpty();
}

}  // namespace platform
