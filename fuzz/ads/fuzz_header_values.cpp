// Any header value read as a list of tracking URLs, and as an orientation. Only well-formed URLs
// come out, at most one per blank-separated piece, and a list that is reused keeps what it held;
// an orientation is one of the three words or no setting at all.
#include "ads/core/PXBObjectPrivate.h"
#include "ads/present/PXBViewController.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString header =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    QList<QUrl> urls;
    PXBObjectPrivate::createOrReuseArrayOfURLsFromHeader(urls, header);
    if (urls.size() > header.split(QLatin1Char(' '), Qt::SkipEmptyParts).size()) {
        abort();
    }
    for (const QUrl& url : urls) {
        if (!url.isValid() || url.toString().isEmpty()) {
            abort();
        }
    }
    const QList<QUrl> first = urls;
    PXBObjectPrivate::createOrReuseArrayOfURLsFromHeader(urls, header);
    if (urls.size() != 2 * first.size() || urls.mid(0, first.size()) != first ||
        urls.mid(first.size()) != first) {
        abort();
    }

    const int orientation = PXBViewController::orientationFromString(header);
    const bool word = header == QLatin1String("any") || header == QLatin1String("portrait") ||
                      header == QLatin1String("landscape");
    if ((orientation != PXBOrientationNone) != word) {
        abort();
    }
    return 0;
}
