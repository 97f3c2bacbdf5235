// The board on a machine with no sound server at all (ctest points PULSE_SERVER at a socket that
// does not exist): every press plays nothing and says why in one log line, the first one in a
// notice too, and the board goes on working: pages slide in and back, and later presses behave
// the same.
#include "app/Bundle.h"
#include "app/MainInterface.h"
#include "app/MainView.h"
#include "app/ScrollView.h"
#include "platform/ui/notice.h"

#include <QAbstractButton>
#include <QTest>

#include "platform/ui/uitestmain.h"

class TestSoundboardNoOutput : public QObject {
    Q_OBJECT
  private:
    std::unique_ptr<MainView> view;
    std::unique_ptr<Bundle> bundle;

    // A click on the button of `action`, which must be on screen.
    bool press(const QString& action) {
        QAbstractButton* button = MainInterface::buttonForAction(view.get(), action);
        if (button == nullptr || !button->isVisible()) {
            qWarning("no button on screen for %s", qPrintable(action));
            return false;
        }
        QTest::mouseClick(button, Qt::LeftButton);
        return true;
    }
    // Presses the sounds from..to-1 of the board's table, each expected to log why it is silent.
    bool pressSounds(size_t from, size_t to) {
        const std::vector<MainView::Sound>& sounds = MainView::sounds();
        for (size_t i = from; i < to; ++i) {
            QTest::ignoreMessage(QtInfoMsg,
                                 qPrintable(QStringLiteral("No audio output: %1.%2 is not played")
                                                .arg(sounds[i].clip, sounds[i].type)));
            if (!press(QString::fromLatin1(sounds[i].action))) {
                return false;
            }
        }
        return true;
    }

  private slots:
    void init() {
        view.reset(MainInterface::buildMainView(QRect(0, 20, 320, 460)));
        bundle = std::make_unique<Bundle>(
            Bundle::locateResourcePath(QCoreApplication::applicationDirPath() + "/../../app"));
        view->setBundle(bundle.get());
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    }
    void cleanup() { view.reset(); }

    void everyPressPlaysNothingAndTheBoardGoesOn() {
        // The main page's nine sounds and the music, each extra page's six, then one again.
        QVERIFY(pressSounds(0, 1));
        QPointer<platform::Notice> notice = platform::Notice::current(view.get());
        QVERIFY(notice != nullptr && notice->text().contains(QStringLiteral("no audio output")));
        delete notice.data();
        QVERIFY(pressSounds(1, 9));
        QTest::ignoreMessage(
            QtInfoMsg,
            qPrintable(
                QStringLiteral("No audio output: %1 is not played").arg(MainView::kMusicTrack)));
        QVERIFY(press(QStringLiteral("canemurder")));
        QVERIFY(press(QStringLiteral("gotoscrollview")));
        QCOMPARE(view->myscrollview()->parentWidget(), view.get());
        QVERIFY(pressSounds(9, 15));
        QVERIFY(press(QStringLiteral("pushback")));
        QVERIFY(view->myscrollview()->parentWidget() == nullptr);
        QVERIFY(press(QStringLiteral("gotoscrollview1")));
        QCOMPARE(view->onemyscrollview()->parentWidget(), view.get());
        QVERIFY(pressSounds(15, 21));
        QVERIFY(press(QStringLiteral("pushback1")));
        QVERIFY(pressSounds(0, 1));
        // Nothing plays, so no player holds on to itself: only the music's is kept, in its field.
        const auto live = view->livePlayers();
        QCOMPARE(live.size(), size_t(1));
        QCOMPARE(live.front().get(), view->canemurderPlayer());
        QVERIFY(!live.front()->isPlaying());
        QVERIFY(platform::Notice::current(view.get()) == nullptr);  // said once
    }
};

SORVEL_UI_TEST_MAIN(TestSoundboardNoOutput)
#include "tst_soundboard_nooutput.moc"
