// What plays sound: the system's outputs and a sink that plays samples on one (the samples come
// from the decoder, audiodecode.h). A program on the shared platform library loads them as a
// module (sorvel/libsorvel-audio.so beside that library) when it first needs them, so that Qt
// Multimedia and the sound server's client cost nothing before the first frame. The static
// platform links them in.
#pragma once

#include "platform/ui/audiooutput.h"

#include <QObject>

class QIODevice;

namespace platform {

// An output that plays the interleaved 16-bit samples written to its device.
class AudioSink : public QObject {
    Q_OBJECT
  public:
    enum class State { Active, Suspended, Idle, Stopped };

    // The device to write to; null when the output cannot be opened.
    virtual QIODevice* start() = 0;
    virtual void stop() = 0;
    virtual void suspend() = 0;
    virtual void resume() = 0;
    virtual void setVolume(float volume) = 0;
    virtual State state() const = 0;
    // Stopped by an error (the output went away).
    virtual bool failed() const = 0;
    virtual qint64 bytesFree() const = 0;
    virtual qint64 bufferSize() const = 0;
    // Microseconds of sound played since start().
    virtual qint64 processedUSecs() const = 0;
    // The output's name, for people.
    virtual QString outputDescription() const = 0;

  signals:
    void stateChanged();
};

struct AudioStack {
    // See defaultAudioOutput().
    std::optional<AudioOutput> (*defaultOutput)();
    // A sink, not started, on the default output for samples at `sampleRate` with `channels`;
    // null when the system has no output.
    AudioSink* (*openSink)(int sampleRate, int channels);
};

// This program's audio stack; null, with `error` saying why, when its module cannot be loaded.
const AudioStack* audioStack(QString* error);

}  // namespace platform

// The module's entry: its stack.
extern "C" const platform::AudioStack* sorvel_audio();
