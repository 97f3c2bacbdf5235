#include "audiooutput.h"

#include <QAudioDevice>
#include <QCoreApplication>
#include <QMediaDevices>

namespace platform {

std::optional<AudioOutput> defaultAudioOutput() {
    if (QCoreApplication::instance() == nullptr) {
        return std::nullopt;
    }
    const QAudioDevice output = QMediaDevices::defaultAudioOutput();
    if (output.isNull()) {
        return std::nullopt;
    }
    return AudioOutput{output.description(), QString::fromUtf8(output.id())};
}

}  // namespace platform
