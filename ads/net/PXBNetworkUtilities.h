// Query-string helpers for the ad client's URLs, and the one user agent that every request of the
// ad client carries (handed in by the web view delegate, so requests look like the web view's).
#pragma once

#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantMap>

class PXBNetworkUtilities {
  public:
    PXBNetworkUtilities() = delete;

    // Null until first set.
    static QString userAgentString();
    // Empty strings are ignored, so a request without the header never clears it.
    static void setUserAgentString(const QString& userAgent);

    // Pairs separated by runs of "&" or ";". Keys are unescaped and lower-cased, values
    // unescaped (UTF-8; "+" stays "+"). Pairs without exactly one "=" or with a malformed escape
    // are dropped; a later key overwrites an earlier one. A null query yields an empty map.
    static QVariantMap dictionaryFromQueryString(const QString& query);

    // The operations below work on a URL's text as it stands: its escapes stay as they were
    // written ("%7E%41" is not "~A"). A QUrl has already decoded escaped unreserved characters
    // and upper-cased the other escapes' digits when it was made, so the QUrl forms can only
    // give what the QUrl kept; callers that hold the URL's text pass the text.

    // appendQueryParameters with the single pair {key: value}. Here and there an invalid value
    // (nil) counts as "".
    static QString appendQueryKey(const QString& key, const QVariant& value,
                                  const QString& urlText);
    static QUrl appendQueryKey(const QString& key, const QVariant& value, const QUrl& url);
    // Appends "key=escaped value" pairs in the map's order, after "?" or "&" (the latter only when
    // the URL already has a non-empty query). Keys go in unescaped; an empty value leaves the
    // key bare.
    static QString appendQueryParameters(const QVariantMap& parameters, const QString& urlText);
    static QUrl appendQueryParameters(const QVariantMap& parameters, const QUrl& url);

    // The still-escaped value of the first query piece whose key matches exactly, or a null
    // string.
    static QString parameterValueForKey(const QString& key, const QString& urlText);
    static QString parameterValueForKey(const QString& key, const QUrl& url);

    // Percent-escapes the UTF-8 bytes of everything but letters, digits and "-._~".
    static QString encodeURL(const QString& string);
};
