// Sound playback on Qt Multimedia (FFmpeg backend: mp3, m4a and caf): players made from files,
// freely overlapping, and the system sounds.
#pragma once

#include "platform/error.h"
#include "platform/weakref.h"

#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>

class QAudioOutput;
class QMediaPlayer;

namespace platform {

class AudioPlayer;

class AudioPlayerDelegate : public Referenceable {
  public:
    virtual void audioPlayerDidFinishPlayingSuccessfully(AudioPlayer*, bool /*successfully*/) {}
    virtual void audioPlayerDecodeErrorDidOccur(AudioPlayer*, const Error&) {}
};

inline const QString kAudioErrorDomain = QStringLiteral("AudioPlayerErrorDomain");

// A player keeps itself alive while it plays: one that nobody references any more plays to its
// end, tells its delegate, and is then freed.
class AudioPlayer : public QObject, public std::enable_shared_from_this<AudioPlayer> {
    Q_OBJECT
  public:
    // No player (and `error` set, if given) when the URL is not a readable local file in a
    // format the player knows (mp3, AAC/ALAC in an MPEG-4 container, caf, wav, aiff).
    static std::shared_ptr<AudioPlayer> withContentsOfURL(const QUrl& url, Error* error = nullptr);
    ~AudioPlayer() override;

    const QUrl& url() const { return url_; }
    // Not retained.
    AudioPlayerDelegate* delegate() const { return delegate_.get(); }
    void setDelegate(AudioPlayerDelegate* delegate) { delegate_.reset(delegate); }

    // Starts (or resumes) playing; returns false if the player cannot play.
    bool play();
    void pause();
    // Stops and rewinds; the delegate is not told.
    void stop();
    bool isPlaying() const { return playing_; }

    // 0 plays once, n plays n + 1 times, a negative number repeats until stopped.
    int numberOfLoops() const { return loops_; }
    void setNumberOfLoops(int loops) { loops_ = loops; }
    float volume() const;
    void setVolume(float volume);
    // Seconds; 0 until the file's header has been read (shortly after creation).
    double duration() const;
    double currentTime() const;

  signals:
    void finished(bool successfully);

  private:
    explicit AudioPlayer(const QUrl& url);
    void mediaEnded();
    void failed(const QString& message);
    void releaseSelf();

    QUrl url_;
    WeakRef<AudioPlayerDelegate> delegate_;
    QMediaPlayer* player_ = nullptr;
    QAudioOutput* output_ = nullptr;
    int loops_ = 0;
    int loopsLeft_ = 0;
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
