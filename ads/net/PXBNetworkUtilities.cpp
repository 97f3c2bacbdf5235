#include "ads/net/PXBNetworkUtilities.h"

#include "platform/log.h"

#include <QStringDecoder>

namespace {

QString& sharedUserAgent() {
    static QString userAgent;
    return userAgent;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// Percent-unescapes as UTF-8; a null string when an escape is malformed or the unescaped bytes
// are not UTF-8. "+" is left alone.
QString percentUnescaped(QStringView text) {
    if (!text.contains(QLatin1Char('%'))) {
        return text.toString();
    }
    const QByteArray escaped = text.toUtf8();
    QByteArray bytes;
    bytes.reserve(escaped.size());
    for (qsizetype i = 0; i < escaped.size(); ++i) {
        const char c = escaped.at(i);
        if (c != '%') {
            bytes.append(c);
            continue;
        }
        const int high = i + 2 < escaped.size() ? hexValue(escaped.at(i + 1)) : -1;
        const int low = i + 2 < escaped.size() ? hexValue(escaped.at(i + 2)) : -1;
        if (high < 0 || low < 0) {
            return QString();
        }
        bytes.append(static_cast<char>(high * 16 + low));
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString result = decoder.decode(bytes);
    if (decoder.hasError()) {
        return QString();
    }
    if (result.isNull()) {
        result = QLatin1String("");
    }
    return result;
}

bool isQuerySeparator(QChar c) {
    return c == QLatin1Char('&') || c == QLatin1Char(';');
}

// The query of a URL's text, between the first "?" and the fragment; null without one.
QStringView queryOf(QStringView text) {
    const qsizetype hash = text.indexOf(QLatin1Char('#'));
    if (hash >= 0) {
        text = text.left(hash);
    }
    const qsizetype question = text.indexOf(QLatin1Char('?'));
    return question < 0 ? QStringView() : text.mid(question + 1);
}

}  // namespace

QString PXBNetworkUtilities::userAgentString() {
    return sharedUserAgent();
}

void PXBNetworkUtilities::setUserAgentString(const QString& userAgent) {
    if (userAgent.isEmpty() || userAgent == sharedUserAgent()) {
        return;
    }
    sharedUserAgent() = userAgent;
}

QVariantMap PXBNetworkUtilities::dictionaryFromQueryString(const QString& query) {
    QVariantMap result;
    if (query.isNull()) {
        return result;
    }
    const QStringView text(query);
    qsizetype pos = 0;
    while (pos < text.size()) {
        qsizetype end = pos;
        while (end < text.size() && !isQuerySeparator(text.at(end))) {
            ++end;
        }
        const QStringView pair = text.mid(pos, end - pos);
        pos = end;
        while (pos < text.size() && isQuerySeparator(text.at(pos))) {
            ++pos;
        }
        const qsizetype equals = pair.indexOf(QLatin1Char('='));
        if (pair.isEmpty() || equals < 0 || pair.indexOf(QLatin1Char('='), equals + 1) >= 0) {
            continue;
        }
        const QString key = percentUnescaped(pair.left(equals));
        const QString value = percentUnescaped(pair.mid(equals + 1));
        if (key.isNull() || value.isNull()) {
            continue;
        }
        result.insert(key.toLower(), value);
    }
    return result;
}

QString PXBNetworkUtilities::appendQueryKey(const QString& key, const QVariant& value,
                                            const QString& urlText) {
    QVariantMap parameters;
    parameters.insert(key, value.isValid() ? value : QVariant(QString(QLatin1String(""))));
    return appendQueryParameters(parameters, urlText);
}

QUrl PXBNetworkUtilities::appendQueryKey(const QString& key, const QVariant& value,
                                         const QUrl& url) {
    return QUrl(appendQueryKey(key, value, url.toString(QUrl::FullyEncoded)));
}

QString PXBNetworkUtilities::appendQueryParameters(const QVariantMap& parameters,
                                                   const QString& urlText) {
    QString result = urlText;
    QChar separator = queryOf(urlText).isEmpty() ? QLatin1Char('?') : QLatin1Char('&');
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        result += separator;
        separator = QLatin1Char('&');
        result += it.key();
        // An invalid value stands for nil and is written like the empty string.
        const QVariant& value = it.value();
        const QString description = !value.isValid() ? QString()
                                    : value.metaType().id() == QMetaType::QString
                                        ? value.toString()
                                        : platform::describe(value);
        const QString escaped = encodeURL(description);
        if (!escaped.isEmpty()) {
            result += QLatin1Char('=');
            result += escaped;
        }
    }
    return result;
}

QUrl PXBNetworkUtilities::appendQueryParameters(const QVariantMap& parameters, const QUrl& url) {
    return QUrl(appendQueryParameters(parameters, url.toString(QUrl::FullyEncoded)));
}

QString PXBNetworkUtilities::parameterValueForKey(const QString& key, const QString& urlText) {
    const QStringView query = queryOf(urlText);
    if (query.isNull()) {
        return QString();
    }
    for (const QStringView piece : query.split(QLatin1Char('&'))) {
        const auto parts = piece.split(QLatin1Char('='));
        if (parts.size() >= 2 && parts.at(0) == key) {
            QString value = parts.at(1).toString();
            if (value.isNull()) {
                value = QLatin1String("");
            }
            return value;
        }
    }
    return QString();
}

QString PXBNetworkUtilities::parameterValueForKey(const QString& key, const QUrl& url) {
    return parameterValueForKey(key, url.toString(QUrl::FullyEncoded));
}

QString PXBNetworkUtilities::encodeURL(const QString& string) {
    return QString::fromLatin1(QUrl::toPercentEncoding(string));
}
