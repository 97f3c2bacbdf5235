#include "platform/notificationcenter.h"
#include "platform/ui/application.h"
#include "platform/ui/controls.h"
#include "platform/ui/screen.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/window.h"
#include "uitestmain.h"

#include <QAbstractButton>
#include <QDir>

using namespace platform;

namespace {

QStringList journal;

// Writes every callback to the shared journal as "<name>:<callback>".
class LoggingController : public ViewController {
  public:
    explicit LoggingController(QString name, QColor color = Qt::gray)
        : name_(std::move(name)), color_(color) {}
    void loadView() override {
        auto* view = new View(Screen::applicationFrame());
        view->setBackgroundColor(color_);
        setView(view);
    }
    void viewDidLoad() override { journal << name_ + ":didLoad"; }
    void viewWillAppear(bool) override { journal << name_ + ":willAppear"; }
    void viewDidAppear(bool) override { journal << name_ + ":didAppear"; }
    void viewWillDisappear(bool) override { journal << name_ + ":willDisappear"; }
    void viewDidDisappear(bool) override { journal << name_ + ":didDisappear"; }
    bool shouldAutorotateToInterfaceOrientation(int orientation) override {
        return allowed.contains(orientation);
    }
    void didRotateFromInterfaceOrientation(int from) override {
        journal << name_ + ":didRotateFrom" + QString::number(from);
    }
    QList<int> allowed{InterfaceOrientationPortrait};

  private:
    QString name_;
    QColor color_;
};

}  // namespace

class TestViewController : public QObject {
    Q_OBJECT
  private:
    std::unique_ptr<Window> window_;
    std::shared_ptr<LoggingController> root_;

  private slots:
    void init() {
        journal.clear();
        Application::sharedApplication()->setStatusBarHidden(false);
        Application::sharedApplication()->setStatusBarOrientation(InterfaceOrientationPortrait);
        window_ = std::make_unique<Window>();
        root_ = std::make_shared<LoggingController>("root");
        window_->setRootViewController(root_.get());
        window_->makeKeyAndVisible();
        QVERIFY(QTest::qWaitForWindowExposed(window_.get()));
    }
    void cleanup() {
        window_.reset();
        root_.reset();
    }

    void rootViewFillsTheApplicationFrame() {
        QCOMPARE(journal, (QStringList{"root:didLoad", "root:willAppear", "root:didAppear"}));
        QCOMPARE(window_->size(), QSize(320, 480));
        QCOMPARE(root_->view()->frame(), QRect(0, 20, 320, 460));
        QCOMPARE(Application::sharedApplication()->rootViewController(), root_.get());
        Application::sharedApplication()->setStatusBarHidden(true);
        QCOMPARE(root_->view()->frame(), QRect(0, 0, 320, 480));
        QVERIFY(Application::sharedApplication()->statusBarFrame().isEmpty());
    }

    void presentAndDismissInThePlatformsOrder_data() {
        QTest::addColumn<bool>("animated");
        QTest::newRow("animated") << true;
        QTest::newRow("immediate") << false;
    }
    void presentAndDismissInThePlatformsOrder() {
        QFETCH(bool, animated);
        journal.clear();
        auto modal = std::make_shared<LoggingController>("modal", Qt::red);
        std::weak_ptr<ViewController> weak = modal;
        root_->presentModalViewController(modal, animated);
        QCOMPARE(modal->parentViewController(), root_.get());
        QCOMPARE(modal->presentingViewController(), root_.get());
        QCOMPARE(root_->modalViewController(), modal.get());
        const QStringList presented{"modal:didLoad", "root:willDisappear", "modal:willAppear",
                                    "modal:didAppear", "root:didDisappear"};
        if (animated) {
            QCOMPARE(journal, presented.mid(0, 3));
            QTRY_COMPARE(journal, presented);
        } else {
            QCOMPARE(journal, presented);
        }
        QCOMPARE(modal->view()->parentWidget(), window_.get());
        QCOMPARE(modal->view()->geometry(), window_->rect());
        QCOMPARE(window_->childAt(160, 10), modal->view());  // over the status bar too

        journal.clear();
        modal->dismissModalViewControllerAnimated(animated);  // passed to its presenter
        const QStringList dismissed{"modal:willDisappear", "root:willAppear", "root:didAppear",
                                    "modal:didDisappear"};
        QTRY_COMPARE(journal, dismissed);
        QVERIFY(root_->modalViewController() == nullptr);
        QVERIFY(modal->parentViewController() == nullptr);
        QVERIFY(!modal->view()->isVisible());
        modal.reset();
        QTRY_VERIFY(weak.expired());  // the presenter's hold ends after a turn
    }

    void stackedPresentationsUnwindInOrder() {
        auto first = std::make_shared<LoggingController>("first");
        auto second = std::make_shared<LoggingController>("second");
        root_->presentModalViewController(first, false);
        root_->presentModalViewController(second, false);  // passed to the top of the stack
        QCOMPARE(second->parentViewController(), first.get());
        QCOMPARE(window_->topViewController(), second.get());
        QCOMPARE(window_->childAt(160, 240), second->view());

        journal.clear();
        root_->dismissModalViewControllerAnimated(false);
        QCOMPARE(journal, (QStringList{"second:willDisappear", "root:willAppear", "root:didAppear",
                                       "second:didDisappear"}));
        QVERIFY(first->parentViewController() == nullptr);
        QVERIFY(second->parentViewController() == nullptr);
        QCOMPARE(window_->topViewController(), root_.get());

        // One level at a time: the second goes, the first stays.
        root_->presentModalViewController(first, false);
        first->presentModalViewController(second, false);
        journal.clear();
        second->dismissModalViewControllerAnimated(false);
        QCOMPARE(journal, (QStringList{"second:willDisappear", "first:willAppear",
                                       "first:didAppear", "second:didDisappear"}));
        QCOMPARE(window_->topViewController(), first.get());
    }

    void rotationAsksTheTopControllerAndTellsTheStack() {
        auto modal = std::make_shared<LoggingController>("modal", Qt::blue);
        root_->presentModalViewController(modal, false);
        journal.clear();
        QVERIFY(!window_->rotateTo(InterfaceOrientationLandscapeRight));  // portrait only
        QCOMPARE(window_->size(), QSize(320, 480));

        modal->allowed = {1, 2, 3, 4};
        QVERIFY(window_->rotateTo(InterfaceOrientationLandscapeRight));
        QCOMPARE(journal, (QStringList{"root:didRotateFrom1", "modal:didRotateFrom1"}));
        QCOMPARE(window_->size(), QSize(480, 320));
        QCOMPARE(modal->view()->geometry(), QRect(0, 0, 480, 320));
        QCOMPARE(root_->view()->frame(), QRect(0, 20, 480, 300));
        QCOMPARE(Application::sharedApplication()->statusBarOrientation(), 3);
        QCOMPARE(Application::sharedApplication()->statusBarFrame(), QRect(0, 0, 480, 20));
        QCOMPARE(modal->interfaceOrientation(), 3);
        QCOMPARE(Screen::bounds(), QRect(0, 0, 480, 320));

        journal.clear();
        window_->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window_.get()));
        QTest::keyClick(window_.get(), Qt::Key_Right, Qt::ControlModifier);  // a quarter turn
        QCOMPARE(Application::sharedApplication()->statusBarOrientation(),
                 int(InterfaceOrientationPortrait));
        QCOMPARE(journal, (QStringList{"root:didRotateFrom3", "modal:didRotateFrom3"}));
    }

    void screenshotShowsThePresentedController() {
        auto modal = std::make_shared<LoggingController>("modal", QColor(200, 30, 30));
        auto* label = new Button(Button::TypeRoundedRect);
        label->setTitle(QStringLiteral("Presented"));
        label->setFrame(QRect(60, 200, 200, 44));
        modal->view()->addSubview(label);
        root_->view()->setBackgroundColor(QColor(30, 160, 30));
        root_->presentModalViewController(modal, true);
        QImage before = window_->grab().toImage();
        QCOMPARE(before.pixelColor(160, 300), QColor(30, 160, 30));  // still sliding in
        QTRY_VERIFY(modal->view()->pos() == QPoint(0, 0));
        QTest::qWait(20);
        const QImage shot = window_->grab().toImage();
        const QString path = QDir::temp().filePath(QStringLiteral("sorvel-presented.png"));
        QVERIFY(shot.save(path));
        qInfo("screenshot: %s", qPrintable(path));
        QCOMPARE(shot.size(), QSize(320, 480) * window_->devicePixelRatio());
        QCOMPARE(shot.pixelColor(10, 10), QColor(200, 30, 30));    // over the status bar
        QCOMPARE(shot.pixelColor(160, 470), QColor(200, 30, 30));  // and the root view
        QCOMPARE(shot.pixelColor(62, 222), QColor(Qt::white));     // the button inside it
    }

    void autoresizingMasks_data() {
        QTest::addColumn<int>("mask");
        QTest::addColumn<QRect>("expected");
        // A 100x50 view at (10, 20) in a 200x100 superview that grows to 300x160.
        QTest::newRow("none") << 0 << QRect(10, 20, 100, 50);
        QTest::newRow("flexible width and height") << 18 << QRect(10, 20, 200, 110);
        QTest::newRow("flexible left margin") << 1 << QRect(110, 20, 100, 50);
        QTest::newRow("flexible left and right") << 5 << QRect(20, 20, 100, 50);
        QTest::newRow("flexible top margin") << 8 << QRect(10, 80, 100, 50);
        QTest::newRow("browser toolbar 58") << 58 << QRect(10, 32, 200, 80);
        QTest::newRow("all") << 63 << QRect(15, 32, 150, 80);
    }
    void autoresizingMasks() {
        QFETCH(int, mask);
        QFETCH(QRect, expected);
        View parent(QRect(0, 0, 200, 100));
        auto* child = new View(QRect(10, 20, 100, 50));
        child->setAutoresizingMask(mask);
        parent.addSubview(child);
        parent.setFrame(QRect(0, 0, 300, 160));  // hidden views resize their subviews too
        QCOMPARE(child->frame(), expected);
    }

    void touchesReachInteractiveViewsOnly() {
        View* outer = root_->view();
        auto* inner = new View(QRect(0, 0, 100, 100));
        outer->addSubview(inner);
        QList<QEvent::Type> outerTouches;
        QList<QEvent::Type> innerTouches;
        outer->setTouchHook([&](QEvent::Type t) { outerTouches << t; });
        inner->setTouchHook([&](QEvent::Type t) { innerTouches << t; });
        QTest::mousePress(inner, Qt::LeftButton, {}, QPoint(5, 5));
        QTest::mouseRelease(inner, Qt::LeftButton, {}, QPoint(5, 5));
        QCOMPARE(innerTouches, QList<QEvent::Type>{QEvent::MouseButtonPress});
        QCOMPARE(outerTouches, QList<QEvent::Type>{QEvent::MouseButtonPress});

        inner->setUserInteractionEnabled(false);
        // Through the window system, so that Qt looks for the widget under the point.
        QTest::mouseClick(window_->windowHandle(), Qt::LeftButton, {}, QPoint(5, 25));
        QCOMPARE(innerTouches.size(), 1);
        QCOMPARE(outerTouches.size(), 2);  // the press went through to the view beneath
    }

    void applicationStateChangesPostTheirNotifications() {
        Application* app = Application::sharedApplication();
        QStringList posted;
        const QStringList names{
            kApplicationWillResignActiveNotification, kApplicationDidEnterBackgroundNotification,
            kApplicationWillEnterForegroundNotification, kApplicationDidBecomeActiveNotification};
        for (const QString& name : names) {
            NotificationCenter::defaultCenter().addObserver(
                this, name, app, [&](const Notification& n) { posted << n.name; });
        }
        app->applyQtState(Qt::ApplicationActive);
        posted.clear();
        app->applyQtState(Qt::ApplicationHidden);
        QCOMPARE(app->applicationState(), Application::StateBackground);
        app->applyQtState(Qt::ApplicationActive);
        QCOMPARE(app->applicationState(), Application::StateActive);
        QCOMPARE(posted, names);
        posted.clear();
        app->applyQtState(Qt::ApplicationInactive);
        QCOMPARE(posted, QStringList{kApplicationWillResignActiveNotification});
        NotificationCenter::defaultCenter().removeObserver(this);
        QVERIFY(!app->isMultitaskingSupported());
        QCOMPARE(app->beginBackgroundTaskWithExpirationHandler([] {}),
                 Application::kInvalidBackgroundTask);
    }

    void urlsAreOpenedThroughTheApplication() {
        Application* app = Application::sharedApplication();
        app->setUrlOpener([](const QUrl&) { return true; });
        app->clearOpenedURLs();
        QVERIFY(app->openURL(QUrl("tel:5551234")));
        QCOMPARE(app->openedURLs(), QList<QUrl>{QUrl("tel:5551234")});
        app->setUrlOpener({});

        for (const char* url :
             {"http://example.com", "HTTPS://example.com", "mailto:a@example.com"}) {
            QVERIFY2(app->canOpenURL(QUrl(url)), url);
        }
        QVERIFY(!app->canOpenURL(QUrl("zorbl-never-registered:x")));
        app->setSchemeAvailable("zorbl-never-registered", true);
        QVERIFY(app->canOpenURL(QUrl("zorbl-never-registered:x")));
    }

    void toolbarFollowsItsItems() {
        Toolbar bar(QRect(0, 0, 320, 44));
        int reloads = 0;
        auto* flexible = BarButtonItem::withSystemItem(BarButtonSystemItemFlexibleSpace, {}, &bar);
        auto* reload = BarButtonItem::withSystemItem(
            BarButtonSystemItemRefresh, [&] { ++reloads; }, &bar);
        reload->setAccessibilityLabel("Reload");
        auto* spinner = new ActivityIndicatorView(ActivityIndicatorViewStyleWhite);
        auto* spinnerItem = BarButtonItem::withCustomView(spinner, &bar);
        bar.setItems({flexible, reload, flexible, spinnerItem, flexible});
        bar.show();
        auto* button = qobject_cast<QAbstractButton*>(bar.widgetAt(1));
        QVERIFY(button != nullptr);
        QCOMPARE(button->accessibleName(), QStringLiteral("Reload"));
        button->click();
        QCOMPARE(reloads, 1);
        reload->setEnabled(false);
        QVERIFY(!bar.widgetAt(1)->isEnabled());
        reload->trigger();
        QCOMPARE(reloads, 1);
        QCOMPARE(bar.widgetAt(3), spinner);
        QVERIFY(bar.widgetAt(0) == nullptr);

        // A press that began before the items were replaced (a page load starting) still taps.
        reload->setEnabled(true);
        QWidget* pressed = bar.widgetAt(1);
        QTest::mousePress(pressed, Qt::LeftButton, {}, QPoint(5, 5));
        bar.setItems({flexible, spinnerItem, flexible, reload, flexible});
        QCOMPARE(bar.widgetAt(3), pressed);
        QTest::mouseRelease(pressed, Qt::LeftButton, {}, QPoint(5, 5));
        QCOMPARE(reloads, 2);

        spinner->startAnimating();
        QVERIFY(spinner->isAnimating() && !spinner->isHidden());
        spinner->stopAnimating();
        QVERIFY(spinner->isHidden());
    }

    void buttonRunsItsActionOnTouchUpInside() {
        Button button;
        button.setFrame(QRect(0, 0, 32, 32));
        QImage image(64, 64, QImage::Format_ARGB32);
        image.fill(Qt::black);
        image.setDevicePixelRatio(2.0);
        button.setImage(image);
        int taps = 0;
        button.addTarget([&] { ++taps; }, ControlEventTouchUpInside);
        QTest::mouseClick(&button, Qt::LeftButton, {}, QPoint(16, 16));
        QCOMPARE(taps, 1);
        QTest::mousePress(&button, Qt::LeftButton, {}, QPoint(16, 16));
        QTest::mouseRelease(&button, Qt::LeftButton, {}, QPoint(80, 80));  // released outside
        QCOMPARE(taps, 1);
        QCOMPARE(button.imageForState(ControlStateHighlighted).deviceIndependentSize(),
                 QSizeF(32, 32));

        // A smaller image is drawn at its own size in the middle, not stretched.
        QImage dot(20, 20, QImage::Format_ARGB32);
        dot.fill(Qt::red);
        dot.setDevicePixelRatio(2.0);
        button.setImage(dot);
        const QImage drawn = button.grab().toImage();
        QCOMPARE(drawn.pixelColor(16, 16), QColor(Qt::red));
        QVERIFY(drawn.pixelColor(8, 8) != QColor(Qt::red));
    }
};

SORVEL_UI_TEST_MAIN(TestViewController)
#include "tst_viewcontroller.moc"
