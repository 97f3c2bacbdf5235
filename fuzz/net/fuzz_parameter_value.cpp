// Looks a key up in any URL: the first line is the key, the rest the URL. A value found must be
// what follows "key=" in the URL's query.
#include "ads/net/PXBNetworkUtilities.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype newline = text.indexOf(QLatin1Char('\n'));
    const QString key = newline < 0 ? QString() : text.left(newline);
    const QUrl url(newline < 0 ? text : text.mid(newline + 1));
    const QString value = PXBNetworkUtilities::parameterValueForKey(key, url);
    if (!value.isNull()) {
        const QString query = url.query(QUrl::FullyEncoded);
        if (!query.contains(key + QLatin1Char('=') + value) || value.contains(QLatin1Char('&')) ||
            value.contains(QLatin1Char('='))) {
            abort();
        }
    }
    // Appending a pair never loses it, except behind a fragment or after a bare "?" (an empty
    // query gets a second "?", deliberately).
    const QUrl appended = PXBNetworkUtilities::appendQueryKey(QStringLiteral("zz"), text, url);
    const bool bareQuestionMark = url.hasQuery() && url.query().isEmpty();
    if (url.isValid() && !url.hasFragment() && !bareQuestionMark &&
        PXBNetworkUtilities::parameterValueForKey(QStringLiteral("zz"), appended).isNull() &&
        !text.isEmpty() && appended.isValid()) {
        abort();
    }
    return 0;
}
