#include "app/MainView.h"

#include "app/Bundle.h"
#include "app/ScrollView.h"
#include "platform/log.h"
#include "platform/ui/audioplayer.h"
#include "platform/ui/notice.h"

#include <QDir>
#include <QLinearGradient>
#include <QPainter>

#include <utility>

const std::vector<MainView::Sound>& MainView::sounds() {
    static const std::vector<Sound> table = {
        {"MoveUp", "who needs em", "mp3", &MainView::MoveUp},
        {"LookForTheDSM", "spread that butter", "mp3", &MainView::LookForTheDSM},
        {"PlanB", "havent seen a newspaper", "mp3", &MainView::PlanB},
        {"BreifYouOnTheChopper", "lonely here", "mp3", &MainView::BreifYouOnTheChopper},
        {"HoldYourFire", "Good News", "mp3", &MainView::HoldYourFire},
        {"FriendlyUAV", "finger", "m4a", &MainView::FriendlyUAV},
        {"CallStealthBomber", "Young Man", "m4a", &MainView::CallStealthBomber},
        {"CallAirdrop", "Tip in pocket", "mp3", &MainView::CallAirdrop},
        {"CallAttackHeli", "Sweaty", "m4a", &MainView::CallAttackHeli},
        {"CallHarriers", "Thats Sounds Fun", "m4a", &MainView::CallHarriers},
        {"CallAirstrike", "You like popsicles", "mp3", &MainView::CallAirstrike},
        {"CallSentryGun", "Why the long face", "mp3", &MainView::CallSentryGun},
        {"CallPredatorMissile", "Nice Muscly arm", "mp3", &MainView::CallPredatorMissile},
        {"CallCounterUAV", "guess who", "mp3", &MainView::CallCounterUAV},
        {"CallCarePackage", "hey there fella", "mp3", &MainView::CallCarePackage},
        {"CallUAV", "Good Lord", "m4a", &MainView::CallUAV},
        {"GunShots", "Freezer full of popsicles", "mp3", &MainView::GunShots},
        {"EPWsInArea", "Fish it out", "mp3", &MainView::EPWsInArea},
        {"DownloadFile", "Dont make me beg", "mp3", &MainView::DownloadFile},
        {"CoverMe", "Come here son", "mp3", &MainView::CoverMe},
        {"ButtonEffect", "buttonEffect", "caf", &MainView::ButtonEffect},
    };
    return table;
}

MainView::MainView(const QRect& frame, QWidget* parent) : platform::View(frame, parent) {}

MainView::~MainView() {
    // Pages that are off screen have no parent to delete them.
    for (QWidget* page :
         {static_cast<QWidget*>(myscrollview_.data()), static_cast<QWidget*>(myextraview_.data()),
          static_cast<QWidget*>(onemyscrollview_.data()),
          static_cast<QWidget*>(onemyextraview_.data()),
          static_cast<QWidget*>(mymainview_.data())}) {
        if (page != nullptr && page->parentWidget() != this) {
            delete page;
        }
    }
}

void MainView::paintEvent(QPaintEvent* event) {
    platform::View::paintEvent(event);
    QPainter painter(this);
    const QRect strip(0, height() - 50, width(), 50);
    QLinearGradient shade(strip.topLeft(), strip.bottomLeft());
    shade.setColorAt(0, QColor(0x0b, 0x0d, 0x18));
    shade.setColorAt(1, QColor(0x05, 0x06, 0x0c));
    painter.fillRect(strip, shade);
    painter.fillRect(QRect(0, strip.top(), width(), 1), QColor(255, 255, 255, 40));
    QFont font = painter.font();
    font.setPixelSize(9);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 1.5);
    painter.setFont(font);
    painter.setPen(QColor(255, 255, 255, 70));
    painter.drawText(strip, Qt::AlignCenter, QStringLiteral("ADVERTISEMENT"));
}

void MainView::setOutlets(platform::View* mainView, platform::View* extraView,
                          ScrollView* scrollView, platform::View* oneExtraView,
                          ScrollView* oneScrollView) {
    mymainview_ = mainView;
    myextraview_ = extraView;
    myscrollview_ = scrollView;
    onemyextraview_ = oneExtraView;
    onemyscrollview_ = oneScrollView;
}

const Bundle& MainView::bundle() const {
    return bundle_ != nullptr ? *bundle_ : Bundle::mainBundle();
}

std::shared_ptr<MainView::Player> MainView::newPlayer(const QUrl& url, platform::Error* error) {
    std::shared_ptr<Player> player =
        makePlayer_ ? makePlayer_(url) : platform::AudioPlayer::withContentsOfURL(url, error);
    if (player) {
        std::erase_if(players_, [](const std::weak_ptr<Player>& p) { return p.expired(); });
        players_.push_back(player);
    }
    return player;
}

void MainView::playClip(const QString& name, const QString& type) {
    const QString path = bundle().pathForResource(name, type);
    const QUrl url = QUrl::fromLocalFile(path);
    // A missing clip gives no player: nothing plays and nothing is reported.
    const std::shared_ptr<Player> player = newPlayer(url, nullptr);
    if (!player) {
        return;
    }
    player->setDelegate(this);
    // Kept nowhere: it plays to its end by itself, overlapping any other press.
    if (player->play()) {
        platform::logDebug(QStringLiteral("Playing %1").arg(url.fileName()));
    } else {
        sayNothingPlays();
    }
}

void MainView::sayNothingPlays() {
    // Once: the log has a line for every press, the user needs to be told only the first time.
    if (std::exchange(nothingPlaysSaid_, true)) {
        return;
    }
    platform::Notice::show(this, tr("No sound: there is no audio output on this computer."));
}

void MainView::MoveUp() {
    playClip(QStringLiteral("who needs em"), QStringLiteral("mp3"));
}
void MainView::LookForTheDSM() {
    playClip(QStringLiteral("spread that butter"), QStringLiteral("mp3"));
}
void MainView::PlanB() {
    playClip(QStringLiteral("havent seen a newspaper"), QStringLiteral("mp3"));
}
void MainView::BreifYouOnTheChopper() {
    playClip(QStringLiteral("lonely here"), QStringLiteral("mp3"));
}
void MainView::HoldYourFire() {
    playClip(QStringLiteral("Good News"), QStringLiteral("mp3"));
}
void MainView::FriendlyUAV() {
    playClip(QStringLiteral("finger"), QStringLiteral("m4a"));
}
void MainView::CallStealthBomber() {
    playClip(QStringLiteral("Young Man"), QStringLiteral("m4a"));
}
void MainView::CallAirdrop() {
    playClip(QStringLiteral("Tip in pocket"), QStringLiteral("mp3"));
}
void MainView::CallAttackHeli() {
    playClip(QStringLiteral("Sweaty"), QStringLiteral("m4a"));
}
void MainView::CallHarriers() {
    playClip(QStringLiteral("Thats Sounds Fun"), QStringLiteral("m4a"));
}
void MainView::CallAirstrike() {
    playClip(QStringLiteral("You like popsicles"), QStringLiteral("mp3"));
}
void MainView::CallSentryGun() {
    playClip(QStringLiteral("Why the long face"), QStringLiteral("mp3"));
}
void MainView::CallPredatorMissile() {
    playClip(QStringLiteral("Nice Muscly arm"), QStringLiteral("mp3"));
}
void MainView::CallCounterUAV() {
    playClip(QStringLiteral("guess who"), QStringLiteral("mp3"));
}
void MainView::CallCarePackage() {
    playClip(QStringLiteral("hey there fella"), QStringLiteral("mp3"));
}
void MainView::CallUAV() {
    playClip(QStringLiteral("Good Lord"), QStringLiteral("m4a"));
}
void MainView::GunShots() {
    playClip(QStringLiteral("Freezer full of popsicles"), QStringLiteral("mp3"));
}
void MainView::EPWsInArea() {
    playClip(QStringLiteral("Fish it out"), QStringLiteral("mp3"));
}
void MainView::DownloadFile() {
    playClip(QStringLiteral("Dont make me beg"), QStringLiteral("mp3"));
}
void MainView::CoverMe() {
    playClip(QStringLiteral("Come here son"), QStringLiteral("mp3"));
}
void MainView::ButtonEffect() {
    playClip(QStringLiteral("buttonEffect"), QStringLiteral("caf"));
}

void MainView::canemurder() {
    const QString path = QStringLiteral("%1/%2").arg(bundle().resourcePath(), kMusicTrack);
    // The previous player is dropped without being stopped: it plays on to its end. The error
    // is asked for and never looked at, as it always was.
    platform::Error error;
    canemurder_ = newPlayer(QUrl::fromLocalFile(path), &error);
    if (canemurder_) {
        canemurder_->setNumberOfLoops(0);
        if (canemurder_->play()) {
            platform::logDebug(QStringLiteral("Playing %1").arg(kMusicTrack));
        } else {
            sayNothingPlays();
        }
    }
}

void MainView::gotoscrollview(QObject* /*sender*/) {
    if (myscrollview_ == nullptr || myextraview_ == nullptr) {
        return;
    }
    myscrollview_->setContentSize(QSize(320, 563));
    addSubview(myextraview_);
    addSubview(myscrollview_);
}

void MainView::gotoscrollview1(QObject* /*sender*/) {
    if (onemyscrollview_ == nullptr || onemyextraview_ == nullptr) {
        return;
    }
    onemyscrollview_->setContentSize(QSize(320, 569));
    addSubview(onemyextraview_);
    addSubview(onemyscrollview_);
}

void MainView::pushback(QObject* /*sender*/) {
    if (myscrollview_ != nullptr) {
        myscrollview_->removeFromSuperview();
    }
    if (myextraview_ != nullptr) {
        myextraview_->removeFromSuperview();
    }
    addSubview(mymainview_);
}

void MainView::pushback1(QObject* /*sender*/) {
    if (onemyextraview_ != nullptr) {
        onemyextraview_->removeFromSuperview();
    }
    if (onemyscrollview_ != nullptr) {
        onemyscrollview_->removeFromSuperview();
    }
    addSubview(mymainview_);
}

bool MainView::isInFrontPage(const QWidget* widget) const {
    // Each page by the view that stands for it: an extra page is two views side by side.
    const auto pageOf = [this](const QObject* object) -> const QObject* {
        if (object == myscrollview_) {
            return myextraview_;
        }
        if (object == onemyscrollview_) {
            return onemyextraview_;
        }
        return object;
    };
    const QObject* front = nullptr;
    const QObjectList& stack = children();  // bottom to top
    for (auto it = stack.rbegin(); it != stack.rend() && front == nullptr; ++it) {
        if (*it == mymainview_ || *it == myextraview_ || *it == myscrollview_ ||
            *it == onemyextraview_ || *it == onemyscrollview_) {
            front = pageOf(*it);
        }
    }
    for (const QObject* o = widget; o != nullptr && o != this; o = o->parent()) {
        if (pageOf(o) == front) {
            return true;
        }
    }
    return false;
}

void MainView::stopAllSounds() {
    for (const std::shared_ptr<Player>& player : livePlayers()) {
        player->stop();
    }
}

std::vector<std::shared_ptr<MainView::Player>> MainView::livePlayers() const {
    std::vector<std::shared_ptr<Player>> live;
    for (const std::weak_ptr<Player>& p : players_) {
        if (std::shared_ptr<Player> player = p.lock()) {
            live.push_back(player);
        }
    }
    return live;
}
