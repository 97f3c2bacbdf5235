// What the hostile suites share: the reference server with the hostile inventory, the sound board
// beside the banner, the page's closing "done" message, and the check after every row that a
// good ad still shows and the board still sounds.
#pragma once

#include "e2eharness.h"

#include "app/Bundle.h"
#include "app/MainInterface.h"
#include "app/MainView.h"
#include "platform/notificationcenter.h"
#include "platform/ui/mailcomposer.h"

#include <QAbstractButton>
#include <QLoggingCategory>
#include <QPushButton>

namespace e2e {

inline const QString kHostileUnit = QStringLiteral("e2e0000000000a1");

class HostileSuite {
  public:
    Harness h;
    std::unique_ptr<Bundle> sounds;
    std::unique_ptr<MainView> board;
    QVariantMap doneInfo;  // the parameters of the page's "done" message
    bool doneSeen = false;

    // The client's reasons for what it refuses and the pages' console lines go to the log.
    void start() {
        QLoggingCategory::setFilterRules(
            QStringLiteral("js.info=true\njs.debug=true\nsorvel.debug.debug=true"));
        QVERIFY(h.start(QStringLiteral("hostile.json")));
        sounds = std::make_unique<Bundle>(
            Bundle::locateResourcePath(QCoreApplication::applicationDirPath() + "/../../app"));
        board.reset(MainInterface::buildMainView(QRect(0, 20, 320, 460)));
        board->setBundle(sounds.get());
        board->show();
        aGoodAdStillShows();  // the script is fetched and cached
    }

    void stop() {
        // Players keep themselves alive while they play; none may outlive the application.
        board->stopAllSounds();
        board.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // Whatever a case left open or set goes before the next one.
    void reset(const void* observer) {
        platform::NotificationCenter::defaultCenter().removeObserver(observer);
        h.closeScreens();
        if (auto* composer = qobject_cast<platform::MailComposeViewController*>(h.top())) {
            QTest::mouseClick(composer->view()->findChild<QPushButton*>(QStringLiteral("cancel")),
                              Qt::LeftButton);
            QTRY_VERIFY(h.top() == h.root.get());
        }
        PXBConfiguration::setHandOverSchemes({});
        PXBConfiguration::setLoadTimeoutSeconds(10);
        h.server.setPathFaults(kScriptPath, {});
        h.server.setPathFaults(QStringLiteral("/ad"), {});
        h.removeBanner();
    }

    void watchPage(const void* observer) {
        doneInfo.clear();
        doneSeen = false;
        auto& center = platform::NotificationCenter::defaultCenter();
        center.removeObserver(observer);
        center.addObserver(observer, QStringLiteral("done"), h.webView(),
                           [this](const platform::Notification& n) {
                               doneInfo = n.userInfo;
                               doneSeen = true;
                           });
    }

    // Whatever the row did, a fresh banner with good answers shows an ad, and a press on the
    // board plays its clip.
    void aGoodAdStillShows() {
        h.server.setPathFaults(kScriptPath, {});
        QVERIFY2(h.showAd(kHostileUnit, fault("creative", "plain")), h.trail());
        QCOMPARE(h.recorder.events, QStringList{QStringLiteral("receive")});
        // Its impression is reported before the next case looks at the server's log.
        QTRY_COMPARE_WITH_TIMEOUT(h.ad()->trackerCount(), 0, kWait);

        const size_t playing = board->livePlayers().size();
        QTest::mouseClick(MainInterface::buttonForAction(board.get(), MainView::sounds()[0].action),
                          Qt::LeftButton);
        QCOMPARE(board->livePlayers().size(), playing + 1);
        QVERIFY(board->livePlayers().back()->isPlaying());
        board->stopAllSounds();
    }
};

}  // namespace e2e
