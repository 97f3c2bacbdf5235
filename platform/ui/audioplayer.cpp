#include "platform/ui/audioplayer.h"

#include "platform/runloop.h"

#include <QApplication>
#include <QAudioOutput>
#include <QFile>
#include <QFileInfo>
#include <QMediaPlayer>

namespace platform {

namespace {

// Recognises the containers the FFmpeg backend plays by their first bytes.
bool looksLikeAudio(const QByteArray& head) {
    if (head.startsWith("ID3") || head.startsWith("caff") || head.startsWith("fLaC") ||
        head.startsWith("OggS")) {
        return true;
    }
    if (head.size() >= 12 && (head.startsWith("RIFF") || head.startsWith("FORM"))) {
        return head.mid(8, 4) == "WAVE" || head.mid(8, 4) == "AIFF" || head.mid(8, 4) == "AIFC";
    }
    if (head.size() >= 8 && head.mid(4, 4) == "ftyp") {
        return true;  // MPEG-4 (m4a)
    }
    // A bare MPEG audio frame: 11 sync bits.
    return head.size() >= 2 && quint8(head[0]) == 0xFF && (quint8(head[1]) & 0xE0) == 0xE0;
}

std::function<void(int)>& systemSoundPlayer() {
    static std::function<void(int)> player;
    return player;
}

}  // namespace

std::shared_ptr<AudioPlayer> AudioPlayer::withContentsOfURL(const QUrl& url, Error* error) {
    auto fail = [&](const QString& message) {
        if (error != nullptr) {
            *error = Error::withDescription(kFileErrorDomain, 260, message);
        }
        return nullptr;
    };
    if (!url.isLocalFile()) {
        return fail(QStringLiteral("Not a local file: ") + url.toString());
    }
    QFile file(url.toLocalFile());
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(QStringLiteral("Cannot read ") + url.toLocalFile());
    }
    if (!looksLikeAudio(file.read(16))) {
        return fail(QStringLiteral("Not an audio file: ") + url.toLocalFile());
    }
    return std::shared_ptr<AudioPlayer>(new AudioPlayer(url));
}

AudioPlayer::AudioPlayer(const QUrl& url) : url_(url) {
    player_ = new QMediaPlayer(this);
    output_ = new QAudioOutput(this);
    player_->setAudioOutput(output_);
    player_->setSource(url);
    connect(player_, &QMediaPlayer::mediaStatusChanged, this,
            [this](QMediaPlayer::MediaStatus status) {
                if (status == QMediaPlayer::EndOfMedia) {
                    mediaEnded();
                } else if (status == QMediaPlayer::InvalidMedia) {
                    failed(player_->errorString());
                }
            });
    connect(player_, &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error, const QString& message) { failed(message); });
}

AudioPlayer::~AudioPlayer() {
    disconnect(player_, nullptr, this, nullptr);
}

bool AudioPlayer::play() {
    if (player_->error() != QMediaPlayer::NoError) {
        return false;
    }
    if (!playing_) {
        loopsLeft_ = loops_;
    }
    playing_ = true;
    selfHold_ = shared_from_this();
    player_->play();
    return true;
}

void AudioPlayer::pause() {
    player_->pause();
    playing_ = false;
}

void AudioPlayer::stop() {
    player_->stop();
    player_->setPosition(0);
    playing_ = false;
    releaseSelf();
}

float AudioPlayer::volume() const {
    return output_->volume();
}

void AudioPlayer::setVolume(float volume) {
    output_->setVolume(volume);
}

double AudioPlayer::duration() const {
    return player_->duration() / 1000.0;
}

double AudioPlayer::currentTime() const {
    return player_->position() / 1000.0;
}

void AudioPlayer::mediaEnded() {
    if (!playing_) {
        return;
    }
    if (loopsLeft_ != 0) {
        if (loopsLeft_ > 0) {
            --loopsLeft_;
        }
        // The backend ignores a restart from inside its own end-of-media report (and its own
        // loop setting): start the next round on the next turn.
        performAfter(this, 0, [this] {
            if (playing_) {
                player_->setPosition(0);
                player_->play();
            }
        });
        return;
    }
    playing_ = false;
    std::shared_ptr<AudioPlayer> keep = shared_from_this();  // alive through the callbacks
    emit finished(true);
    if (AudioPlayerDelegate* d = delegate()) {
        d->audioPlayerDidFinishPlayingSuccessfully(this, true);
    }
    releaseSelf();
}

void AudioPlayer::failed(const QString& message) {
    const bool wasPlaying = playing_;
    playing_ = false;
    std::shared_ptr<AudioPlayer> keep = selfHold_;
    if (AudioPlayerDelegate* d = delegate()) {
        d->audioPlayerDecodeErrorDidOccur(this,
                                          Error::withDescription(kAudioErrorDomain, 1, message));
    }
    if (wasPlaying) {
        emit finished(false);
    }
    releaseSelf();
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
