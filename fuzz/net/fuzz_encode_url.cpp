// Escapes any text: only letters, digits, "-._~" and escapes come out, and unescaping gives the
// UTF-8 bytes back.
#include "ads/net/PXBNetworkUtilities.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString encoded = PXBNetworkUtilities::encodeURL(text);
    for (const QChar ch : encoded) {
        const char16_t c = ch.unicode();
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~' ||
                           c == '%';
        if (!plain) {
            abort();
        }
    }
    if (QByteArray::fromPercentEncoding(encoded.toLatin1()) != text.toUtf8()) {
        abort();
    }
    return 0;
}
