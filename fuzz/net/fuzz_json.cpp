// Reads any bytes as JSON; whatever reads must write, and what is written must read back to the
// same value. The first byte picks the options.
#include "ads/net/PXB_RQJSON.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const uint8_t options = data[0];
    const QByteArray text(reinterpret_cast<const char*>(data + 1),
                          static_cast<qsizetype>(size - 1));
    PXB_RQJSON json;
    json.setMaxDepth((options & 1) != 0 ? 0 : 512);
    json.setSortKeys((options & 2) != 0);
    json.setHumanReadable((options & 4) != 0);
    platform::Error error;
    const QVariant value = (options & 8) != 0 ? json.objectWithUtf8(text, &error)
                                              : json.fragmentWithUtf8(text, &error);
    if (!value.isValid()) {
        if (error.isNull() || error.domain() != kPXBJSONErrorDomain) {
            abort();  // every failure must say why
        }
        return 0;
    }
    const QString written = json.stringWithFragment(value, &error);
    if (written.isNull()) {
        abort();
    }
    json.setMaxDepth(0);
    const QVariant again = json.fragmentWithString(written, &error);
    if (!again.isValid()) {
        abort();
    }
    // Folded surrogate pairs can leave lone surrogates, which do not survive UTF-8; the rest
    // must come back unchanged.
    if (written.isValidUtf16() && !written.contains(QChar(0)) && again != value) {
        abort();
    }
    return 0;
}
