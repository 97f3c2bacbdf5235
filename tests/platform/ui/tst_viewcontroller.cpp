#include "platform/ui/application.h"
#include "platform/ui/controls.h"
#include "platform/ui/screen.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/window.h"
#include "uitestmain.h"

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
    bool escapePressed() override {
        if (presentingViewController() == nullptr) {
            return false;
        }
        presentingViewController()->dismissModalViewControllerAnimated(false);
        return true;
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
        QVERIFY(QTest::qWaitForWindowExposed(window_->desktopWindow()));
    }
    void cleanup() {
        window_.reset();
        root_.reset();
    }

    // Presented over everything, the status bar too; a dismissal asked of the root unwinds the
    // whole stack (one level at a time is proven end to end: a browser over a web app). Animated,
    // as the ad screens are.
    void presentationsStackAndUnwindInOrder() {
        journal.clear();
        auto first = std::make_shared<LoggingController>("first", Qt::red);
        auto second = std::make_shared<LoggingController>("second");
        std::weak_ptr<ViewController> weak = first;
        root_->presentModalViewController(first, true);
        QCOMPARE(first->presentingViewController(), root_.get());
        QCOMPARE(root_->presentedViewController(), first.get());
        const QStringList presented{"first:didLoad", "root:willDisappear", "first:willAppear",
                                    "first:didAppear", "root:didDisappear"};
        QCOMPARE(journal, presented.mid(0, 3));
        QTRY_COMPARE(journal, presented);
        QCOMPARE(first->view()->parentWidget(), window_.get());
        QCOMPARE(first->view()->geometry(), window_->rect());
        QCOMPARE(window_->childAt(160, 10), first->view());

        journal.clear();
        root_->presentModalViewController(second, true);  // passed to the top of the stack
        QCOMPARE(second->parentViewController(), first.get());
        QCOMPARE(window_->topViewController(), second.get());
        QTRY_VERIFY(journal.contains("first:didDisappear"));
        QCOMPARE(window_->childAt(160, 240), second->view());
        journal.clear();
        root_->dismissModalViewControllerAnimated(true);
        const QStringList toRoot{"second:willDisappear", "root:willAppear", "root:didAppear",
                                 "second:didDisappear"};
        QTRY_COMPARE(journal, toRoot);
        QVERIFY(root_->presentedViewController() == nullptr);
        QVERIFY(first->parentViewController() == nullptr);
        QVERIFY(second->parentViewController() == nullptr);
        QVERIFY(!first->view()->isVisible());
        QCOMPARE(window_->topViewController(), root_.get());
        first.reset();
        QTRY_VERIFY(weak.expired());  // the presenter's hold ends after a turn
    }

    // A presenter for a view in an ordinary window (a banner in a main window's layout, say):
    // its screens cover that window, keep its size, and Esc closes the top one first.
    void aPlainWindowHostsScreensThatFollowItsSize() {
        QWidget plain;
        auto* anchor = new QWidget(&plain);
        plain.resize(500, 300);
        plain.show();
        plain.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&plain));
        auto presenter = std::make_shared<AnchoredViewController>(anchor);
        auto first = std::make_shared<LoggingController>("first");
        auto second = std::make_shared<LoggingController>("second");
        presenter->presentModalViewController(first, false);
        presenter->presentModalViewController(second, false);
        QCOMPARE(first->view()->parentWidget(), &plain);
        QCOMPARE(second->view()->geometry(), plain.rect());
        plain.resize(640, 400);
        QTRY_COMPARE(first->view()->geometry(), QRect(0, 0, 640, 400));
        QTRY_COMPARE(second->view()->geometry(), QRect(0, 0, 640, 400));

        QTest::keyClick(&plain, Qt::Key_Escape);
        QCOMPARE(presenter->presentedViewController(), first.get());
        QVERIFY(first->presentedViewController() == nullptr);
        QTest::keyClick(&plain, Qt::Key_Escape);
        QVERIFY(presenter->presentedViewController() == nullptr);
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
        QTRY_COMPARE(window_->desktopWindow()->size(), QSize(480, 320));  // it turns too
        QCOMPARE(modal->view()->geometry(), QRect(0, 0, 480, 320));
        QCOMPARE(root_->view()->frame(), QRect(0, 20, 480, 300));
        QCOMPARE(Application::sharedApplication()->statusBarOrientation(), 3);
        QCOMPARE(Application::sharedApplication()->statusBarFrame(), QRect(0, 0, 480, 20));
        QCOMPARE(modal->interfaceOrientation(), 3);
        QCOMPARE(Screen::bounds(), QRect(0, 0, 480, 320));

        journal.clear();
        window_->desktopWindow()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window_->desktopWindow()));
        QTest::keyClick(window_.get(), Qt::Key_Right, Qt::ControlModifier);  // a quarter turn
        QCOMPARE(Application::sharedApplication()->statusBarOrientation(),
                 int(InterfaceOrientationPortrait));
        QCOMPARE(journal, (QStringList{"root:didRotateFrom3", "modal:didRotateFrom3"}));
    }

    // Resized, the desktop window scales the phone window to the largest size it holds whole,
    // centred between black bars; a press lands where the user sees what they press.
    void theDesktopWindowScalesThePhoneWindowToFit_data() {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QRect>("phone");  // where the phone window is drawn in the desktop's
        QTest::newRow("natural") << QSize(320, 480) << QRect(0, 0, 320, 480);
        QTest::newRow("twice") << QSize(640, 960) << QRect(0, 0, 640, 960);
        QTest::newRow("square: bars left and right") << QSize(700, 700) << QRect(117, 0, 467, 700);
        QTest::newRow("wide and small: bars left and right")
            << QSize(480, 320) << QRect(133, 0, 213, 320);
        QTest::newRow("tall: bars above and below") << QSize(400, 900) << QRect(0, 150, 400, 600);
    }
    void theDesktopWindowScalesThePhoneWindowToFit() {
        QFETCH(QSize, size);
        QFETCH(QRect, phone);
        auto* button = new Button;
        button->setFrame(QRect(200, 400, 100, 40));  // in the root view, in points
        button->setBackgroundColor(Qt::red);
        int taps = 0;
        button->addTarget([&] { ++taps; }, ControlEventTouchUpInside);
        root_->view()->addSubview(button);
        button->show();

        QWidget* desktop = window_->desktopWindow();
        desktop->resize(size);
        QTRY_COMPARE(desktop->size(), size);
        QCOMPARE(window_->size(), QSize(320, 480));  // the phone's points do not change
        QVERIFY(std::abs(window_->scaleFactor() - phone.width() / 320.0) < 0.01);
        const QImage drawn = desktop->grab().toImage();
        QCOMPARE(drawn.size(), size);
        // The root view's grey begins where the phone window does, the bars' black before it.
        const QPoint edge = phone.left() > 0 ? QPoint(phone.left(), phone.center().y())
                                             : QPoint(phone.center().x(), phone.top() + 40);
        const QPoint inward = phone.left() > 0 ? QPoint(3, 0) : QPoint(0, 3);
        QCOMPARE(drawn.pixelColor(edge + inward), QColor(Qt::gray));
        if (phone != QRect(QPoint(), size)) {
            const QPoint inBar = phone.left() > 0 ? QPoint(phone.left() / 2, phone.center().y())
                                                  : QPoint(phone.center().x(), phone.top() / 2);
            QCOMPARE(drawn.pixelColor(inBar), QColor(Qt::black));
        }
        // The button's middle: (250, 440) in the phone window's points.
        const QPoint buttonMiddle =
            phone.topLeft() + (QPointF(250, 440) * window_->scaleFactor()).toPoint();
        QCOMPARE(drawn.pixelColor(buttonMiddle), QColor(Qt::red));

        QWidget* target = desktop->childAt(buttonMiddle);  // what a real press would reach
        QVERIFY(target != nullptr);
        QTest::mouseClick(target, Qt::LeftButton, {}, target->mapFrom(desktop, buttonMiddle));
        QTRY_COMPARE(taps, 1);
    }

    void autoresizingMasks_data() {
        QTest::addColumn<int>("mask");
        QTest::addColumn<QRect>("expected");
        // A 100x50 view at (10, 20) in a 200x100 superview that grows to 300x160. Both axes share
        // the growth alike: one, two or three flexible parts of either.
        QTest::newRow("none") << 0 << QRect(10, 20, 100, 50);
        QTest::newRow("flexible width and height") << 18 << QRect(10, 20, 200, 110);
        QTest::newRow("flexible left margin") << 1 << QRect(110, 20, 100, 50);
        QTest::newRow("flexible left and right") << 5 << QRect(20, 20, 100, 50);
        QTest::newRow("browser toolbar 58") << 58 << QRect(10, 32, 200, 80);
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

    // The web's schemes are answered end to end (an ad's canOpenURLs); one that no program on the
    // desktop takes cannot be opened.
    void aSchemeNoProgramTakesCannotBeOpened() {
        QVERIFY(!Application::sharedApplication()->canOpenURL(QUrl("zorbl-never-registered:x")));
    }

    // A press that began before the items were replaced (a page load starting) still taps. The
    // items' places, the spinner and a disabled item are proven end to end (the browser's
    // toolbar).
    void toolbarItemsActWhenEnabled() {
        Toolbar bar(QRect(0, 0, 320, 44));
        int reloads = 0;
        auto* flexible = BarButtonItem::withSystemItem(BarButtonSystemItemFlexibleSpace, {}, &bar);
        auto* reload = BarButtonItem::withSystemItem(
            BarButtonSystemItemRefresh, [&] { ++reloads; }, &bar);
        auto* spinnerItem = BarButtonItem::withCustomView(
            new ActivityIndicatorView(ActivityIndicatorViewStyleWhite), &bar);
        bar.setItems({flexible, reload, flexible, spinnerItem, flexible});
        bar.show();
        QWidget* pressed = bar.widgetAt(1);
        QTest::mousePress(pressed, Qt::LeftButton, {}, QPoint(5, 5));
        bar.setItems({flexible, spinnerItem, flexible, reload, flexible});
        QCOMPARE(bar.widgetAt(3), pressed);
        QTest::mouseRelease(pressed, Qt::LeftButton, {}, QPoint(5, 5));
        QCOMPARE(reloads, 1);
    }

    // A press released outside is no tap; an image smaller than the button is drawn at its own
    // size in the middle, not stretched.
    void buttonTapsAndImages() {
        Button button;
        button.setFrame(QRect(0, 0, 32, 32));
        int taps = 0;
        button.addTarget([&] { ++taps; }, ControlEventTouchUpInside);
        QTest::mousePress(&button, Qt::LeftButton, {}, QPoint(16, 16));
        QTest::mouseRelease(&button, Qt::LeftButton, {}, QPoint(80, 80));
        QCOMPARE(taps, 0);
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
