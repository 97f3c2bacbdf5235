// The audio stack over Qt Multimedia's outputs.
#include "platform/ui/audiostack.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QCoreApplication>
#include <QMediaDevices>

namespace platform {

namespace {

class MultimediaSink : public AudioSink {
  public:
    MultimediaSink(const QAudioDevice& device, const QAudioFormat& format)
        : description_(device.description()), sink_(new QAudioSink(device, format, this)) {
        connect(sink_, &QAudioSink::stateChanged, this, &AudioSink::stateChanged);
    }

    QIODevice* start() override { return sink_->start(); }
    void stop() override { sink_->stop(); }
    void suspend() override { sink_->suspend(); }
    void resume() override { sink_->resume(); }
    void setVolume(float volume) override { sink_->setVolume(volume); }
    State state() const override {
        switch (sink_->state()) {
            case QAudio::ActiveState:
                return State::Active;
            case QAudio::SuspendedState:
                return State::Suspended;
            case QAudio::IdleState:
                return State::Idle;
            case QAudio::StoppedState:
                break;
        }
        return State::Stopped;
    }
    bool failed() const override { return sink_->error() != QAudio::NoError; }
    qint64 bytesFree() const override { return sink_->bytesFree(); }
    qint64 bufferSize() const override { return sink_->bufferSize(); }
    qint64 processedUSecs() const override { return sink_->processedUSecs(); }
    QString outputDescription() const override { return description_; }

  private:
    QString description_;
    QAudioSink* sink_;
};

std::optional<AudioOutput> defaultOutput() {
    if (QCoreApplication::instance() == nullptr) {
        return std::nullopt;
    }
    const QAudioDevice output = QMediaDevices::defaultAudioOutput();
    if (output.isNull()) {
        return std::nullopt;
    }
    return AudioOutput{output.description(), QString::fromUtf8(output.id())};
}

AudioSink* openSink(int sampleRate, int channels) {
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull()) {
        return nullptr;
    }
    QAudioFormat format;
    format.setSampleRate(sampleRate);
    format.setChannelCount(channels);
    format.setSampleFormat(QAudioFormat::Int16);
    return new MultimediaSink(device, format);
}

}  // namespace

}  // namespace platform

extern "C" __attribute__((visibility("default"))) const platform::AudioStack* sorvel_audio() {
    static const platform::AudioStack stack{&platform::defaultOutput, &platform::openSink};
    return &stack;
}
