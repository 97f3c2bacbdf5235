// Sound playback: players made from files (mp3, m4a, caf, wav and the other formats FFmpeg
// reads), freely overlapping, and the system sounds. A player decodes its whole file when it is
// made (a file decoded before, and unchanged since, is not decoded again) and writes the samples
// to an audio output of its own (opened ahead when a sound of the same format played lately), so it
// knows when the last of them has been heard, and a machine without an audio output only costs a
// log line.
#pragma once

#include "platform/error.h"
#include "platform/ui/audiodecode.h"
#include "platform/weakref.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QIODevice;
class QTimer;

namespace platform {

class AudioPlayer;
class AudioSink;

// A sound file's samples as a player plays them (see DecodedAudio), from the decoder this program
// has (audioDecoder()).
DecodedAudio decodeAudioFile(const QString& path);

class AudioPlayerDelegate : public Referenceable {
  public:
    // `successfully` is false when the audio output went away while the player played.
    virtual void audioPlayerDidFinishPlayingSuccessfully(AudioPlayer*, bool /*successfully*/) {}
};

inline const QString kAudioErrorDomain = QStringLiteral("AudioPlayerErrorDomain");

// A player keeps itself alive while it plays: one that nobody references any more plays to its
// end, tells its delegate, and is then freed.
class AudioPlayer : public QObject, public std::enable_shared_from_this<AudioPlayer> {
    Q_OBJECT
  public:
    // No player (and `error` set, if given) when the URL is not a readable local file or holds
    // no audio that can be decoded.
    static std::shared_ptr<AudioPlayer> withContentsOfURL(const QUrl& url, Error* error = nullptr);
    ~AudioPlayer() override;

    const QUrl& url() const { return url_; }
    // Not retained.
    AudioPlayerDelegate* delegate() const { return delegate_.get(); }
    void setDelegate(AudioPlayerDelegate* delegate) { delegate_.reset(delegate); }

    // Starts (or resumes) playing; false, with one log line saying why, when there is no audio
    // output to play on. The outputs are looked at on every call, so an output that appears
    // later is used by the next call.
    bool play();
    // Holds the sound where it is; the player no longer keeps itself alive.
    void pause();
    // Stops and rewinds; the delegate is not told.
    void stop();
    bool isPlaying() const { return playing_; }

    // 0 plays once, n plays n + 1 times, a negative number repeats until stopped.
    int numberOfLoops() const { return loops_; }
    void setNumberOfLoops(int loops) { loops_ = loops; }
    float volume() const { return volume_; }
    void setVolume(float volume);
    // Seconds.
    double duration() const;
    // Seconds into the sound that have been heard (0 when stopped or finished).
    double currentTime() const;

  signals:
    void finished(bool successfully);

  private:
    AudioPlayer(const QUrl& url, int sampleRate, int channels, QByteArray samples);
    int bytesPerFrame() const { return channels_ * 2; }
    qint64 microsecondsFor(qint64 bytes) const;
    void feed();
    void outputStateChanged();
    void finish(bool successfully);
    void closeOutput();
    void releaseSelf();

    QUrl url_;
    WeakRef<AudioPlayerDelegate> delegate_;
    int sampleRate_;
    int channels_;
    QByteArray samples_;  // the whole sound, interleaved 16-bit
    AudioSink* output_ = nullptr;
    QIODevice* outputDevice_ = nullptr;
    QTimer* pump_ = nullptr;
    qsizetype offset_ = 0;     // next byte of samples_ to write
    qint64 bytesWritten_ = 0;  // to the current output, every round included
    int loops_ = 0;
    int loopsLeft_ = 0;
    float volume_ = 1.0f;
    bool playing_ = false;
    std::shared_ptr<AudioPlayer> selfHold_;
};

// The phone's vibration sound identifier; on the desktop it sounds the desktop's alert.
inline constexpr int kSystemSoundVibrate = 4095;
// Plays a system sound (only kSystemSoundVibrate is known: the desktop's alert sound).
void playSystemSound(int soundId);
// Tests replace the desktop's alert with their own recorder; an empty function restores it.
void setSystemSoundPlayer(std::function<void(int)> player);

}  // namespace platform
