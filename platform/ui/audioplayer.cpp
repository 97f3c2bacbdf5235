#include "platform/ui/audioplayer.h"

#include "platform/ui/audiodecode.h"
#include "platform/ui/audiostack.h"

#include "platform/log.h"
#include "platform/runloop.h"

#include <QApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <deque>
#include <utility>

namespace platform {

namespace {

// How often the player tops up its output and looks whether the output has played everything.
constexpr int kPumpMilliseconds = 20;

std::function<void(int)>& systemSoundPlayer() {
    static std::function<void(int)> player;
    return player;
}

// The same sounds are played again and again (a pad per press): a file's samples are kept once
// decoded, as long as the file is unchanged, up to this many bytes in all (the oldest go first).
constexpr qsizetype kKeptSamplesBytes = 64 * 1024 * 1024;

DecodedAudio decodeAudioFileOnce(const QString& path) {
    struct Kept {
        QDateTime modified;
        qint64 size = 0;
        DecodedAudio audio;
    };
    static QHash<QString, Kept> kept;
    static std::deque<QString> order;
    static qsizetype keptBytes = 0;

    const QFileInfo info(path);
    if (auto it = kept.constFind(path); it != kept.constEnd()) {
        if (it->modified == info.lastModified() && it->size == info.size()) {
            return it->audio;
        }
        keptBytes -= it->audio.samples.size();
        kept.erase(it);
        std::erase(order, path);
    }
    DecodedAudio decoded = decodeAudioFile(path);
    if (!decoded.error.isEmpty() || decoded.samples.size() > kKeptSamplesBytes) {
        return decoded;
    }
    kept.insert(path, {info.lastModified(), info.size(), decoded});
    order.push_back(path);
    keptBytes += decoded.samples.size();
    while (keptBytes > kKeptSamplesBytes) {
        keptBytes -= kept.take(order.front()).audio.samples.size();
        order.pop_front();
    }
    return decoded;
}

}  // namespace

DecodedAudio decodeAudioFile(const QString& path) {
    QString error;
    const AudioDecoder decode = audioDecoder(&error);
    if (decode == nullptr) {
        DecodedAudio out;
        out.error = error;
        return out;
    }
    return decode(path);
}

std::shared_ptr<AudioPlayer> AudioPlayer::withContentsOfURL(const QUrl& url, Error* error) {
    auto fail = [&](const QString& domain, int code, const QString& message) {
        if (error != nullptr) {
            *error = Error::withDescription(domain, code, message);
        }
        return nullptr;
    };
    if (!url.isLocalFile()) {
        return fail(kFileErrorDomain, 260, QStringLiteral("Not a local file: ") + url.toString());
    }
    const QString path = url.toLocalFile();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(kFileErrorDomain, 260, QStringLiteral("Cannot read ") + path);
    }
    file.close();
    DecodedAudio decoded = decodeAudioFileOnce(path);
    if (!decoded.error.isEmpty()) {
        return fail(kAudioErrorDomain, 1, decoded.error);
    }
    return std::shared_ptr<AudioPlayer>(
        new AudioPlayer(url, decoded.sampleRate, decoded.channels, std::move(decoded.samples)));
}

AudioPlayer::AudioPlayer(const QUrl& url, int sampleRate, int channels, QByteArray samples)
    : url_(url),
      sampleRate_(sampleRate),
      channels_(channels),
      samples_(std::move(samples)),
      pump_(new QTimer(this)) {
    pump_->setInterval(kPumpMilliseconds);
    connect(pump_, &QTimer::timeout, this, &AudioPlayer::feed);
}

AudioPlayer::~AudioPlayer() {
    if (output_ != nullptr) {
        output_->disconnect(this);
        output_->stop();
        delete output_;
    }
}

bool AudioPlayer::play() {
    if (playing_) {
        return true;
    }
    if (output_ != nullptr && output_->state() == AudioSink::State::Suspended) {
        output_->resume();
    } else {
        closeOutput();
        QString error;
        const AudioStack* stack = audioStack(&error);
        output_ = stack != nullptr ? stack->openSink(sampleRate_, channels_) : nullptr;
        if (output_ == nullptr) {
            logLine(QStringLiteral("No audio output: %1 is not played%2")
                        .arg(url_.fileName(), error.isEmpty() ? QString() : " (" + error + ")"));
            return false;
        }
        outputDevice_ = output_->start();
        output_->setVolume(volume_);
        if (outputDevice_ == nullptr) {
            logLine(QStringLiteral("Audio output \"%1\" cannot be opened: %2 is not played")
                        .arg(output_->outputDescription(), url_.fileName()));
            closeOutput();
            return false;
        }
        connect(output_, &AudioSink::stateChanged, this, &AudioPlayer::outputStateChanged);
        offset_ = 0;
        bytesWritten_ = 0;
        loopsLeft_ = loops_;
    }
    playing_ = true;
    selfHold_ = shared_from_this();
    pump_->start();
    feed();
    return true;
}

void AudioPlayer::pause() {
    if (!playing_) {
        return;
    }
    playing_ = false;
    pump_->stop();
    output_->suspend();
    releaseSelf();
}

void AudioPlayer::stop() {
    playing_ = false;
    pump_->stop();
    closeOutput();
    releaseSelf();
}

void AudioPlayer::setVolume(float volume) {
    volume_ = std::clamp(volume, 0.0f, 1.0f);
    if (output_ != nullptr) {
        output_->setVolume(volume_);
    }
}

qint64 AudioPlayer::microsecondsFor(qint64 bytes) const {
    return bytes / bytesPerFrame() * 1000000 / sampleRate_;
}

double AudioPlayer::duration() const {
    return microsecondsFor(samples_.size()) / 1e6;
}

double AudioPlayer::currentTime() const {
    if (output_ == nullptr || duration() <= 0) {
        return 0;
    }
    return std::fmod(output_->processedUSecs() / 1e6, duration());
}

// Writes what the output will take, starting the next round when one ends, and finishes once
// the output has played every byte written to it. (The media backend's own players report their
// end as soon as the last samples are handed to the output, which then still holds a few hundred
// milliseconds of them; closing the output there cuts that tail off.)
void AudioPlayer::feed() {
    if (!playing_ || outputDevice_ == nullptr) {
        return;
    }
    qint64 room = output_->bytesFree();
    while (room > 0) {
        if (offset_ == samples_.size()) {
            if (loopsLeft_ == 0) {
                break;
            }
            if (loopsLeft_ > 0) {
                --loopsLeft_;
            }
            offset_ = 0;
        }
        const qint64 chunk = std::min<qint64>(room, samples_.size() - offset_);
        const qint64 written = outputDevice_->write(samples_.constData() + offset_, chunk);
        if (written <= 0) {
            return;
        }
        offset_ += written;
        bytesWritten_ += written;
        room -= written;
    }
    if (offset_ != samples_.size() || loopsLeft_ != 0) {
        return;
    }
    // An output starts to play once it holds a buffer's worth: a shorter sound is topped up
    // with silence, or it would never be heard.
    const qint64 frame = bytesPerFrame();
    const qint64 shortBy = (output_->bufferSize() - bytesWritten_ + frame - 1) / frame * frame;
    if (shortBy > 0) {
        const qint64 written =
            outputDevice_->write(QByteArray(std::min(shortBy, room / frame * frame), '\0'));
        bytesWritten_ += std::max<qint64>(written, 0);
        return;
    }
    // Idle: the output ran dry after the last write, so it has played everything.
    if (output_->state() == AudioSink::State::Idle ||
        output_->processedUSecs() >= microsecondsFor(bytesWritten_)) {
        finish(true);
    }
}

void AudioPlayer::outputStateChanged() {
    if (!playing_ || output_ == nullptr) {
        return;
    }
    if (output_->state() == AudioSink::State::Stopped && output_->failed()) {
        logLine(QStringLiteral("Audio output lost: %1 stopped").arg(url_.fileName()));
        finish(false);
    } else if (output_->state() == AudioSink::State::Idle) {
        feed();  // ran dry: either the end, or more to write at once
    }
}

void AudioPlayer::finish(bool successfully) {
    playing_ = false;
    pump_->stop();
    closeOutput();
    std::shared_ptr<AudioPlayer> keep = shared_from_this();  // alive through the callbacks
    emit finished(successfully);
    if (AudioPlayerDelegate* d = delegate()) {
        d->audioPlayerDidFinishPlayingSuccessfully(this, successfully);
    }
    releaseSelf();
}

void AudioPlayer::closeOutput() {
    if (output_ == nullptr) {
        return;
    }
    // Not deleted here: this may run inside the output's own signal. Its destructor runs the
    // event loop, so it must never be a child that a pending deletion could reach twice.
    AudioSink* output = std::exchange(output_, nullptr);
    outputDevice_ = nullptr;
    output->disconnect(this);
    output->stop();
    output->deleteLater();
}

void AudioPlayer::releaseSelf() {
    if (selfHold_ == nullptr) {
        return;
    }
    // Let go on a later turn: the last reference may be this one, and we are inside a callback.
    auto hold = std::move(selfHold_);
    performAfter(qApp, 0, [hold] {});
}

void playSystemSound(int soundId) {
    if (systemSoundPlayer()) {
        systemSoundPlayer()(soundId);
        return;
    }
    if (soundId == kSystemSoundVibrate) {
        QApplication::beep();
    }
}

void setSystemSoundPlayer(std::function<void(int)> player) {
    systemSoundPlayer() = std::move(player);
}

}  // namespace platform
