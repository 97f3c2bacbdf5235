// The shared platform's decoder: the module sorvel/libsorvel-decoder.so beside this library,
// loaded on the first sound and kept.
#include "platform/ui/audiodecode.h"
#include "platform/ui/moduleloader.h"

namespace platform {

AudioDecoder audioDecoder(QString* error) {
    static QString failure;
    static const AudioDecoder decoder = [] {
        auto entry = reinterpret_cast<decltype(&sorvel_audio_decoder)>(
            moduleEntry(QStringLiteral("libsorvel-decoder.so"), "sorvel_audio_decoder", &failure));
        return entry != nullptr ? entry() : nullptr;
    }();
    if (decoder == nullptr && error != nullptr) {
        *error =
            failure.isEmpty() ? QStringLiteral("The decoder's module gave no decoder") : failure;
    }
    return decoder;
}

}  // namespace platform
