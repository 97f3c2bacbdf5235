// Splits any text as a query; keys come out lower-cased, and an escaped value comes back as it
// went in.
#include "ads/net/PXBNetworkUtilities.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QVariantMap map = PXBNetworkUtilities::dictionaryFromQueryString(text);
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (it.key() != it.key().toLower() || it.value().metaType().id() != QMetaType::QString) {
            abort();
        }
    }
    const QVariantMap single =
        PXBNetworkUtilities::dictionaryFromQueryString("k=" + PXBNetworkUtilities::encodeURL(text));
    if (single.size() != 1 || single.value("k").toString() != text) {
        abort();
    }
    return 0;
}
