#include "app/Bundle.h"
#include "app/MainInterface.h"
#include "app/MainView.h"
#include "app/ScrollView.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <functional>

#include "platform/ui/uitestmain.h"

namespace {

QString buildTreeResources() {
    return Bundle::locateResourcePath(QCoreApplication::applicationDirPath() + "/../../app");
}

struct Made {
    QUrl url;
    std::shared_ptr<platform::AudioPlayer> player;
};

}  // namespace

class TestMainView : public QObject {
    Q_OBJECT
  private:
    std::unique_ptr<MainView> view;
    std::unique_ptr<Bundle> bundle;
    QList<Made> made;

  private slots:
    void init() {
        view.reset(MainInterface::buildMainView(QRect(0, 20, 320, 460)));
        bundle = std::make_unique<Bundle>(buildTreeResources());
        view->setBundle(bundle.get());
        made.clear();
        view->setPlayerFactory([this](const QUrl& url) {
            auto player = platform::AudioPlayer::withContentsOfURL(url);
            made.append({url, player});
            return player;
        });
    }

    void cleanup() {
        // Players keep themselves alive while they play; none may outlive the application.
        view->stopAllSounds();
        made.clear();
        view.reset();
        QTest::qWait(1);
    }

    // What assistive technology reads from the board (the AT-SPI bridge serves this tree): every
    // button has a role and a name, and each pad's description says its key.
    void everyButtonHasANameForScreenReaders() {
        QStringList unnamed;
        QStringList keys;
        const std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
            if (node->role() == QAccessible::Button) {
                const QString name = node->text(QAccessible::Name);
                if (name.trimmed().isEmpty()) {
                    unnamed << node->object()->metaObject()->className();
                }
                keys << node->text(QAccessible::Description);
            }
            for (int i = 0; i < node->childCount(); ++i) {
                walk(node->child(i));
            }
        };
        walk(QAccessible::queryAccessibleInterface(view.get()));
        QVERIFY2(unnamed.isEmpty(), qPrintable(unnamed.join(", ")));
        QVERIFY(keys.contains(QStringLiteral("Key 1")));
        QVERIFY(keys.contains(QStringLiteral("Key M")));
    }

    void aMissingClipDoesNothing() {
        QTemporaryDir empty;
        const Bundle nothing(empty.path());
        view->setBundle(&nothing);
        view->ButtonEffect();  // no file: no player, no message
        QCOMPARE(made.size(), 1);
        QVERIFY(made.last().player == nullptr);
        view->canemurder();
        QVERIFY(view->canemurderPlayer() == nullptr);
    }

    void pageActionsLeaveTheStatedOrder_data() {
        QTest::addColumn<QStringList>("actions");
        QTest::addColumn<QStringList>("order");  // bottom to top, of the five page views
        QTest::newRow("first page twice")
            << QStringList{"goto", "goto"} << QStringList{"main", "extra", "scroll"};
        QTest::newRow("back when not shown")
            << QStringList{"goto1", "back"} << QStringList{"oneExtra", "oneScroll", "main"};
        QTest::newRow("first again over second")
            << QStringList{"goto", "goto1", "goto"}
            << QStringList{"main", "oneExtra", "oneScroll", "extra", "scroll"};
    }
    void pageActionsLeaveTheStatedOrder() {
        QFETCH(QStringList, actions);
        QFETCH(QStringList, order);
        const QHash<QString, QWidget*> names = {{"main", view->mymainview()},
                                                {"extra", view->myextraview()},
                                                {"scroll", view->myscrollview()},
                                                {"oneExtra", view->onemyextraview()},
                                                {"oneScroll", view->onemyscrollview()}};
        for (const QString& action : actions) {
            if (action == "goto") {
                view->gotoscrollview(nullptr);
            } else if (action == "goto1") {
                view->gotoscrollview1(nullptr);
            } else if (action == "back") {
                view->pushback(nullptr);
            } else {
                view->pushback1(nullptr);
            }
        }
        QStringList stacked;
        for (QObject* child : view->children()) {
            const QString name = names.key(qobject_cast<QWidget*>(child));
            if (!name.isEmpty()) {
                stacked << name;
            }
        }
        QCOMPARE(stacked, order);
        for (auto it = names.begin(); it != names.end(); ++it) {
            QCOMPARE(it.value()->parentWidget() == view.get(), order.contains(it.key()));
        }
    }

    // Keys lead one page at a time: a way to another page works only from the page in front,
    // and Backspace goes back one page.
    void keysLeadOnePageAtATime_data() {
        QTest::addColumn<QString>("keys");       // N, B, M, and < for Backspace, pressed in turn
        QTest::addColumn<QStringList>("shown");  // the extra pages in the view after them
        QTest::newRow("more") << "N" << QStringList{"extra"};
        QTest::newRow("even more from more: nothing") << "NB" << QStringList{"extra"};
        QTest::newRow("back") << "N<" << QStringList{};
        QTest::newRow("back, then even more") << "N<B" << QStringList{"oneExtra"};
        QTest::newRow("back on the main page: nothing") << "<" << QStringList{};
    }
    void keysLeadOnePageAtATime() {
        QFETCH(QString, keys);
        QFETCH(QStringList, shown);
        view->show();
        view->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(view.get()));
        const QHash<QChar, Qt::Key> keyOf{
            {'N', Qt::Key_N}, {'B', Qt::Key_B}, {'M', Qt::Key_M}, {'<', Qt::Key_Backspace}};
        QList<QAbstractButton*> buttons;  // of every page, in the view or not
        for (const QWidget* page :
             {view->mymainview(), view->myextraview(), view->onemyextraview()}) {
            buttons << page->findChildren<QAbstractButton*>();
        }
        for (const QChar key : keys) {
            QTest::keyClick(view.get(), keyOf.value(key));
            // A key that acts shows its button pressed until the click is done.
            QTRY_VERIFY(std::none_of(buttons.begin(), buttons.end(),
                                     [](QAbstractButton* b) { return b->isDown(); }));
        }
        QStringList inView;
        if (view->myextraview()->parentWidget() == view.get()) {
            inView << "extra";
        }
        if (view->onemyextraview()->parentWidget() == view.get()) {
            inView << "oneExtra";
        }
        QCOMPARE(inView, shown);
        QVERIFY(made.isEmpty());
    }

    // Every button's shipped clip plays to its end, the presses overlapping.
    void everyButtonPlaysItsClipToTheEnd() {
        for (const MainView::Sound& sound : MainView::sounds()) {
            MainInterface::buttonForAction(view.get(), sound.action)->click();
        }
        QCOMPARE(made.size(), qsizetype(MainView::sounds().size()));
        for (const Made& m : std::as_const(made)) {
            QVERIFY2(m.player != nullptr && m.player->isPlaying(), qPrintable(m.url.fileName()));
        }
        QTRY_VERIFY_WITH_TIMEOUT(std::none_of(made.begin(), made.end(),
                                              [](const Made& m) { return m.player->isPlaying(); }),
                                 15000);
        for (const Made& m : std::as_const(made)) {
            QVERIFY2(m.player->duration() > 0.05, qPrintable(m.url.fileName()));
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

    void everyButtonHasItsOwnKey() {
        QSet<QString> keys;
        for (int i = 0; i < int(MainView::sounds().size()); ++i) {
            const QString key = MainInterface::shortcutForSound(i).toString();
            keys.insert(key);
            // Its button names the key.
            QAbstractButton* button =
                MainInterface::buttonForAction(view.get(), MainView::sounds()[i].action);
            QVERIFY(button != nullptr);
            QVERIFY(button->toolTip().contains(key));
        }
        QCOMPARE(keys.size(), int(MainView::sounds().size()));
        QVERIFY(!keys.contains(""));
    }

    // However long a pad's title, it wraps around the key's badge in the top right corner: the
    // corner looks the same with the title and without it.
    void padTitlesKeepClearOfTheirKeys() {
        QStringList touching;
        for (const auto& sound : MainView::sounds()) {
            QAbstractButton* pad = MainInterface::buttonForAction(view.get(), sound.action);
            QVERIFY(pad != nullptr);
            const QString title = pad->text();
            const QRect corner(pad->width() - 24, 0, 24, 24);
            const QImage titled = pad->grab(corner).toImage();
            pad->setText(QString());
            const QImage bare = pad->grab(corner).toImage();
            pad->setText(title);
            if (titled != bare) {
                touching << title;
            }
        }
        QVERIFY2(touching.isEmpty(), qPrintable(touching.join(", ")));
    }
};

SORVEL_UI_TEST_MAIN(TestMainView)
#include "tst_mainview.moc"
