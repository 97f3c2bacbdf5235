// The system's default audio output, named as the audio stack names it: where sound goes now
// (speakers, headphones, a headset), which the ad client reports as the audio route.
#pragma once

#include <QString>

#include <optional>

namespace platform {

struct AudioOutput {
    QString description;  // for people, e.g. "Built-in Audio Analog Stereo"
    QString id;           // the system's, e.g. "alsa_output.pci-0000_00_1f.3.analog-stereo"
};

// Nothing before the application object exists, or when the system has no output.
std::optional<AudioOutput> defaultAudioOutput();

}  // namespace platform
