// The shared platform's decoder: the module sorvel/libsorvel-audio.so beside this library, loaded
// on the first sound and kept.
#include "platform/ui/audiodecode.h"
#include "platform/ui/moduleloader.h"

namespace platform {

namespace {

struct Loaded {
    AudioDecoder decoder = nullptr;
    QString error;
};

Loaded load() {
    Loaded loaded;
    auto entry = reinterpret_cast<decltype(&sorvel_audio_decoder)>(
        moduleEntry(QStringLiteral("libsorvel-audio.so"), "sorvel_audio_decoder", &loaded.error));
    loaded.decoder = entry != nullptr ? entry() : nullptr;
    if (entry != nullptr && loaded.decoder == nullptr) {
        loaded.error = QStringLiteral("The audio decoder's module gave no decoder");
    }
    return loaded;
}

}  // namespace

AudioDecoder audioDecoder(QString* error) {
    static const Loaded loaded = load();
    if (loaded.decoder == nullptr && error != nullptr) {
        *error = loaded.error;
    }
    return loaded.decoder;
}

}  // namespace platform
