// The shared platform's audio stack: the module sorvel/libsorvel-audio.so beside this library,
// loaded when first needed and kept.
#include "platform/ui/audiostack.h"
#include "platform/ui/moduleloader.h"

namespace platform {

const AudioStack* audioStack(QString* error) {
    static QString failure;
    static const AudioStack* const stack = [] {
        auto entry = reinterpret_cast<decltype(&sorvel_audio)>(
            moduleEntry(QStringLiteral("libsorvel-audio.so"), "sorvel_audio", &failure));
        return entry != nullptr ? entry() : nullptr;
    }();
    if (stack == nullptr && error != nullptr) {
        *error =
            failure.isEmpty() ? QStringLiteral("The audio module gave no audio stack") : failure;
    }
    return stack;
}

}  // namespace platform
