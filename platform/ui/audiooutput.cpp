#include "platform/ui/audiooutput.h"

#include "platform/ui/audiostack.h"

#include <QCoreApplication>

namespace platform {

std::optional<AudioOutput> defaultAudioOutput() {
    if (QCoreApplication::instance() == nullptr) {
        return std::nullopt;
    }
    const AudioStack* stack = audioStack(nullptr);
    return stack != nullptr ? stack->defaultOutput() : std::nullopt;
}

}  // namespace platform
