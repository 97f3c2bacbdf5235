// The board with the platform's real players and the shipped clips: every button's clip plays
// to its end, and Esc's stop silences what is still playing.
#include "app/Bundle.h"
#include "app/MainInterface.h"
#include "app/MainView.h"
#include "platform/ui/application.h"
#include "platform/ui/audioplayer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QSignalSpy>
#include <QTest>

#include "platform/ui/uitestmain.h"

class TestSoundboardAudio : public QObject {
    Q_OBJECT
  private:
    std::unique_ptr<MainView> view;
    std::unique_ptr<Bundle> bundle;

  private slots:
    void init() {
        view.reset(MainInterface::buildMainView(QRect(0, 20, 320, 460)));
        bundle = std::make_unique<Bundle>(
            Bundle::locateResourcePath(QCoreApplication::applicationDirPath() + "/../../app"));
        view->setBundle(bundle.get());
    }

    void cleanup() {
        view->stopAllSounds();
        view.reset();
        QTest::qWait(1);
    }

    void everyButtonPlaysItsClipToTheEnd() {
        QList<std::pair<QString, std::shared_ptr<platform::AudioPlayer>>> started;
        for (const MainView::Sound& sound : MainView::sounds()) {
            MainInterface::buttonForAction(view.get(), sound.action)->click();
            const auto live = view->livePlayers();
            QVERIFY2(!live.empty(), sound.action);
            const std::shared_ptr<platform::AudioPlayer>& player = live.back();
            QCOMPARE(player->url().fileName(), QString("%1.%2").arg(sound.clip, sound.type));
            QVERIFY2(player->isPlaying(), sound.action);
            started.append({sound.action, player});
        }
        // The presses overlap: all 21 play at once, each to its end.
        QCOMPARE(int(view->livePlayers().size()), 21);
        QTRY_VERIFY_WITH_TIMEOUT(std::none_of(started.begin(), started.end(),
                                              [](const auto& p) { return p.second->isPlaying(); }),
                                 15000);
        for (const auto& [action, player] : started) {
            QVERIFY2(player->duration() > 0.05, qPrintable(action));
        }
    }

    void musicPlaysOnceAndStopAllSilencesIt() {
        view->canemurder();
        platform::AudioPlayer* first = view->canemurderPlayer();
        QVERIFY(first != nullptr);
        QVERIFY(first->isPlaying());
        QCOMPARE(first->numberOfLoops(), 0);
        view->canemurder();
        QVERIFY(first->isPlaying());  // a second copy overlaps the first
        view->MoveUp();
        view->stopAllSounds();
        for (const auto& player : view->livePlayers()) {
            QVERIFY(!player->isPlaying());
        }
    }
};

SORVEL_UI_TEST_MAIN(TestSoundboardAudio)
#include "tst_soundboard_audio.moc"
