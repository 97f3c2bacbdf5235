#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBDelegateManager.h"
#include "ads/core/PXBObjectPrivate.h"
#include "app/Brindle_SoundsViewController.h"
#include "app/Bundle.h"
#include "app/MainInterface.h"
#include "app/MainView.h"
#include "platform/ui/window.h"

#include <QAbstractButton>
#include <QTest>

#include "platform/ui/uitestmain.h"

namespace {
struct Listener : PXBBannerViewDelegate {};
}  // namespace

class TestSoundsViewController : public QObject {
    Q_OBJECT
  private slots:
    void reloadingTheViewMakesASecondBanner() {
        auto controller = std::make_shared<Brindle_SoundsViewController>(
            [] { return new platform::View(QRect(0, 0, 320, 460)); });
        controller->view();
        QPointer<PXBBannerView> first = controller->Qarbo();
        controller->viewDidUnload();
        controller->viewDidLoad();
        QVERIFY(controller->Qarbo() != first);
        QVERIFY(first != nullptr);  // not released by the controller
        QCOMPARE(controller->view()->findChildren<PXBBannerView*>().size(), 2);
    }

    void destructionClearsTheBannerDelegateFirst() {
        auto controller = std::make_shared<Brindle_SoundsViewController>(
            [] { return new platform::View(QRect(0, 0, 320, 460)); });
        controller->view();
        Listener listener;
        PXBBannerView* banner = controller->Qarbo();
        banner->setDelegate(&listener);
        const std::shared_ptr<PXBDelegateManager> manager =
            banner->privateObject()->sharedDelegateManager();
        QCOMPARE(manager->bannerDelegate(), &listener);
        QPointer<PXBBannerView> watch = banner;
        controller.reset();
        QVERIFY(watch == nullptr);
        QVERIFY(manager->bannerDelegate() == nullptr);
        QVERIFY(manager->adView() == nullptr);
    }

    // The board's keys reach it only while it is in front; a key sounds on its press, not when
    // its button's animation lets go, and the button is seen pressed meanwhile. Escape goes to the
    // screen on top and, once it reaches the board, stops the sounds.
    void keysReachTheBoardOnlyWhileItIsInFront() {
        const Bundle bundle(
            Bundle::locateResourcePath(QCoreApplication::applicationDirPath() + "/../../app"));
        QList<std::shared_ptr<platform::AudioPlayer>> made;
        QPointer<MainView> board;
        auto controller = std::make_shared<Brindle_SoundsViewController>([&] {
            board = MainInterface::buildMainView(QRect(0, 0, 320, 460));
            board->setBundle(&bundle);
            board->setPlayerFactory([&made](const QUrl& url) {
                made << platform::AudioPlayer::withContentsOfURL(url);
                return made.last();
            });
            return board.data();
        });
        platform::Window window;
        window.setRootViewController(controller.get());
        window.makeKeyAndVisible();
        QVERIFY(QTest::qWaitForWindowActive(window.desktopWindow()));
        const Qt::Key soundKey = MainInterface::shortcutForSound(0)[0].key();

        QTest::keyClick(&window, soundKey);
        QCOMPARE(made.size(), 1);
        QVERIFY(made[0] != nullptr && made[0]->isPlaying());
        QAbstractButton* button =
            MainInterface::buttonForAction(board.data(), MainView::sounds()[0].action);
        QVERIFY(button->isDown());
        QTest::keyClick(&window, Qt::Key_Escape);
        QVERIFY(!made[0]->isPlaying());
        QTRY_VERIFY(!button->isDown());

        auto cover = std::make_shared<platform::ViewController>();
        controller->presentModalViewController(cover, false);
        QTest::keyClick(&window, soundKey);
        QTest::keyClick(&window, Qt::Key_N);
        QCOMPARE(made.size(), 1);
        QVERIFY(board->myextraview()->parentWidget() == nullptr);

        controller->dismissModalViewControllerAnimated(false);
        QTest::keyClick(&window, soundKey);
        QCOMPARE(made.size(), 2);
        board->stopAllSounds();
    }
};

SORVEL_UI_TEST_MAIN(TestSoundsViewController)
#include "tst_soundsviewcontroller.moc"
