// The sound board: the main page of buttons and two further pages that slide in. Each sound
// action plays one clip from the application's resources; presses overlap freely.
#pragma once

#include "platform/ui/view.h"

#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <vector>

class Bundle;

#include "app/ScrollView.h"
#include "platform/error.h"
#include "platform/ui/audioplayer.h"

// Adopts the player's delegate interface without implementing any of it, as the phone's did.
class MainView : public platform::View, public platform::AudioPlayerDelegate {
    Q_OBJECT
  public:
    using Player = platform::AudioPlayer;
    // Makes a player for a file URL, or null when the file cannot be played.
    using PlayerFactory = std::function<std::shared_ptr<Player>(const QUrl& url)>;

    // One sound action: its name, the clip it plays and the member that does it.
    struct Sound {
        const char* action;
        const char* clip;
        const char* type;
        void (MainView::*play)();
    };
    // The 21 sound actions, in the board's order.
    static const std::vector<Sound>& sounds();
    static inline const QString kMusicTrack = QStringLiteral("Be your lover.mp3");

    explicit MainView(const QRect& frame = QRect(), QWidget* parent = nullptr);
    ~MainView() override;

    // Outlets, filled by the interface (see MainInterface.h). The view owns all five, also
    // while a page is off screen.
    ScrollView* myscrollview() const { return myscrollview_; }
    platform::View* myextraview() const { return myextraview_; }
    ScrollView* onemyscrollview() const { return onemyscrollview_; }
    platform::View* onemyextraview() const { return onemyextraview_; }
    platform::View* mymainview() const { return mymainview_; }
    void setOutlets(platform::View* mainView, platform::View* extraView, ScrollView* scrollView,
                    platform::View* oneExtraView, ScrollView* oneScrollView);

    // The music player of the last press of the music button.
    Player* canemurderPlayer() const { return canemurder_.get(); }

    // Where clips are looked up and how players are made (the main bundle and the platform's
    // player unless replaced).
    void setBundle(const Bundle* bundle) { bundle_ = bundle; }
    void setPlayerFactory(PlayerFactory factory) { makePlayer_ = std::move(factory); }

    // Whether `widget` is on the page in front: the main page or, once added over it, an extra
    // page (its header view or its scroll view).
    bool isInFrontPage(const QWidget* widget) const;

    // Stops every clip and track that is still playing (Esc on the desktop).
    void stopAllSounds();
    // Players made so far that have not yet been freed.
    std::vector<std::shared_ptr<Player>> livePlayers() const;

  public slots:
    void MoveUp();
    void LookForTheDSM();
    void PlanB();
    void BreifYouOnTheChopper();
    void HoldYourFire();
    void FriendlyUAV();
    void CallStealthBomber();
    void CallAirdrop();
    void CallAttackHeli();
    void CallHarriers();
    void CallAirstrike();
    void CallSentryGun();
    void CallPredatorMissile();
    void CallCounterUAV();
    void CallCarePackage();
    void CallUAV();
    void GunShots();
    void EPWsInArea();
    void DownloadFile();
    void CoverMe();
    void ButtonEffect();

    // Plays the music track once; a second press starts a second, overlapping copy.
    void canemurder();

    // The page actions; the sender is ignored.
    void gotoscrollview(QObject* sender = nullptr);
    void gotoscrollview1(QObject* sender = nullptr);
    void pushback(QObject* sender = nullptr);
    void pushback1(QObject* sender = nullptr);

  protected:
    // Marks the strip along the bottom edge where the banner sits, so the area reads as the
    // advertisement's place even before an ad arrives.
    void paintEvent(QPaintEvent* event) override;

  private:
    void playClip(const QString& name, const QString& type);
    // A notice, the first time a press plays nothing for want of an audio output.
    void sayNothingPlays();
    std::shared_ptr<Player> newPlayer(const QUrl& url, platform::Error* error);
    const Bundle& bundle() const;

    std::shared_ptr<Player> canemurder_;
    QPointer<ScrollView> myscrollview_;
    QPointer<platform::View> myextraview_;
    QPointer<ScrollView> onemyscrollview_;
    QPointer<platform::View> onemyextraview_;
    QPointer<platform::View> mymainview_;

    const Bundle* bundle_ = nullptr;
    PlayerFactory makePlayer_;
    // Not owned: a player plays to its end on its own. Kept only to stop them all.
    std::vector<std::weak_ptr<Player>> players_;
    bool nothingPlaysSaid_ = false;
};
