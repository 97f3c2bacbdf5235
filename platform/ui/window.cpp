#include "platform/ui/window.h"

#include "platform/ui/application.h"
#include "platform/ui/screen.h"
#include "platform/ui/viewcontroller.h"

#include <QCoreApplication>
#include <QPainter>
#include <QShortcut>
#include <QTime>
#include <QTimer>

namespace platform {

namespace {

// The 20-point strip at the top of the phone window: black, with the time in the middle.
class StatusBarStrip : public QWidget {
  public:
    explicit StatusBarStrip(QWidget* parent) : QWidget(parent) {
        setObjectName(QStringLiteral("statusBar"));
        auto* clock = new QTimer(this);
        connect(clock, &QTimer::timeout, this, qOverload<>(&QWidget::update));
        clock->start(30 * 1000);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), Qt::black);
        painter.setPen(Qt::white);
        QFont font = painter.font();
        font.setPixelSize(12);
        font.setBold(true);
        painter.setFont(font);
        painter.drawText(rect(), Qt::AlignCenter,
                         QTime::currentTime().toString(QStringLiteral("HH:mm")));
    }
};

int clockwise(int orientation) {
    switch (orientation) {
        case InterfaceOrientationPortrait:
            return InterfaceOrientationLandscapeLeft;
        case InterfaceOrientationLandscapeLeft:
            return InterfaceOrientationPortraitUpsideDown;
        case InterfaceOrientationPortraitUpsideDown:
            return InterfaceOrientationLandscapeRight;
        default:
            return InterfaceOrientationPortrait;
    }
}

int counterClockwise(int orientation) {
    return clockwise(clockwise(clockwise(orientation)));
}

}  // namespace

Window::Window() : View(nullptr) {
    setWindowTitle(QCoreApplication::applicationName());
    setBackgroundColor(Qt::black);
    statusBar_ = new StatusBarStrip(this);
    Application* app = Application::sharedApplication();
    // Sized, never placed: the window manager puts a new window where its title bar shows and
    // a second one does not hide the first.
    setFixedSize(Screen::sizeForOrientation(app->statusBarOrientation()));
    catchUpLayout();
    connect(app, &Application::statusBarChanged, this, &Window::relayout);

    auto* right = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Right), this);
    right->setContext(Qt::ApplicationShortcut);
    connect(right, &QShortcut::activated, this, &Window::rotateClockwise);
    auto* left = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Left), this);
    left->setContext(Qt::ApplicationShortcut);
    connect(left, &QShortcut::activated, this, &Window::rotateCounterClockwise);
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    escape->setContext(Qt::WindowShortcut);
    connect(escape, &QShortcut::activated, this, [this] {
        for (ViewController* c = topViewController(); c != nullptr;
             c = c->presentingViewController()) {
            if (c->escapePressed()) {
                return;
            }
        }
    });
    relayout();
}

Window::~Window() {
    // Controllers outlive their views' window: take their views back before Qt deletes them.
    for (ViewController* c = root_; c != nullptr; c = c->presentedViewController()) {
        if (c->isViewLoaded() && c->view()->parentWidget() == this) {
            c->view()->setParent(nullptr);
        }
    }
}

void Window::makeKeyAndVisible() {
    Application::sharedApplication()->setKeyWindow(this);
    show();
    raise();
    activateWindow();
}

bool Window::isKeyWindow() const {
    return Application::sharedApplication()->keyWindow() == this;
}

void Window::setRootViewController(ViewController* controller) {
    if (controller == root_) {
        return;
    }
    if (root_ != nullptr && root_->isViewLoaded() && root_->view()->parentWidget() == this) {
        if (root_->isVisible()) {
            root_->beginAppearance(false, false);
            root_->endAppearance(false, false);
        }
        root_->view()->hide();
        root_->view()->setParent(nullptr);
    }
    root_ = controller;
    if (controller == nullptr) {
        return;
    }
    View* view = controller->view();
    view->setParent(this);
    view->lower();
    view->show();
    relayout();
    if (isVisible()) {
        controller->beginAppearance(true, false);
        controller->endAppearance(true, false);
    }
}

ViewController* Window::topViewController() const {
    ViewController* top = root_;
    while (top != nullptr && top->presentedViewController() != nullptr) {
        top = top->presentedViewController();
    }
    return top;
}

void Window::showEvent(QShowEvent* event) {
    View::showEvent(event);
    if (root_ != nullptr && !root_->isVisible()) {
        root_->beginAppearance(true, false);
        root_->endAppearance(true, false);
    }
}

void Window::relayout() {
    Application* app = Application::sharedApplication();
    const QSize size = Screen::sizeForOrientation(app->statusBarOrientation());
    if (size != this->size()) {
        setFixedSize(size);
        catchUpLayout();
    }
    statusBar_->setGeometry(app->statusBarFrame());
    statusBar_->setVisible(!app->isStatusBarHidden());
    if (root_ != nullptr && root_->isViewLoaded() && root_->view()->parentWidget() == this) {
        root_->view()->setFrame(Screen::applicationFrame());
    }
    for (ViewController* c = root_ ? root_->presentedViewController() : nullptr; c != nullptr;
         c = c->presentedViewController()) {
        if (c->isViewLoaded() && c->view()->parentWidget() == this) {
            c->view()->setFrame(bounds());
            c->view()->raise();
        }
    }
}

bool Window::rotateTo(int orientation) {
    Application* app = Application::sharedApplication();
    const int previous = app->statusBarOrientation();
    if (orientation < InterfaceOrientationPortrait ||
        orientation > InterfaceOrientationLandscapeLeft || orientation == previous) {
        return false;
    }
    if (ViewController* top = topViewController();
        top != nullptr && !top->shouldAutorotateToInterfaceOrientation(orientation)) {
        return false;
    }
    app->setStatusBarOrientation(orientation);
    relayout();
    for (ViewController* c = root_; c != nullptr; c = c->presentedViewController()) {
        c->didRotateFromInterfaceOrientation(previous);
    }
    return true;
}

void Window::rotateClockwise() {
    rotateTo(clockwise(Application::sharedApplication()->statusBarOrientation()));
}

void Window::rotateCounterClockwise() {
    rotateTo(counterClockwise(Application::sharedApplication()->statusBarOrientation()));
}

}  // namespace platform
