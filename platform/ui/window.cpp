#include "platform/ui/window.h"

#include "platform/ui/application.h"
#include "platform/ui/screen.h"
#include "platform/ui/viewcontroller.h"

#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QGraphicsProxyWidget>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>
#include <QShortcut>
#include <QShowEvent>
#include <QTime>
#include <QTimer>

#include <algorithm>

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

bool isTabKey(const QKeyEvent* key) {
    return (key->key() == Qt::Key_Tab || key->key() == Qt::Key_Backtab) &&
           !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier));
}

// Room a window manager's title bar and borders take around a new window, at most.
constexpr int kDecorationWidth = 16;
constexpr int kDecorationHeight = 64;
// The desktop window is not made smaller than this, whatever the phone window's turn.
constexpr int kMinimumSide = 160;

}  // namespace

// Qt Widgets cannot scale a widget, but a graphics view scales what it holds: the phone window
// lives in one through a proxy, and the view scales it to the largest size its own keeps the
// whole of, centred, the view's black background showing on the two sides left over.
class WindowFrame : public QGraphicsView {
  public:
    explicit WindowFrame(Window* window) {
        setFrameShape(QFrame::NoFrame);
        setBackgroundBrush(Qt::black);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setAlignment(Qt::AlignCenter);
        setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing |
                       QPainter::SmoothPixmapTransform);
        setMinimumSize(kMinimumSide, kMinimumSide);
        setWindowTitle(window->windowTitle());
        setScene(new QGraphicsScene(this));
        proxy_ = scene()->addWidget(window);
        // The proxy shows what it takes in: the phone window stays hidden until it is shown,
        // and shows this window then.
        window->hide();
        // The keyboard's focus is in the phone window whenever it is in this one: Tab goes
        // through the phone window's widgets even when none of them had the focus before.
        proxy_->setFocusPolicy(Qt::StrongFocus);
        resize(naturalSize(proxy_->size()));
    }

    ~WindowFrame() override {
        proxy_->setWidget(nullptr);  // the phone window is not the scene's to delete
    }

    double scale() const { return transform().m11(); }
    Window* phoneWindow() const { return qobject_cast<Window*>(proxy_->widget()); }

    // Turned, the phone window swaps its sides: the desktop window swaps its own with it, at the
    // scale it had, unless it fills the screen.
    void phoneResized() {
        // The proxy keeps the fixed size the phone window had unless it is given the new one.
        const QSize turned = proxy_->widget()->size();
        proxy_->setMinimumSize(turned);
        proxy_->setMaximumSize(turned);
        proxy_->resize(turned);
        const QSizeF phone = proxy_->size();
        if (isMaximized() || isFullScreen()) {
            fit();
        } else if (!isVisible()) {
            resize(naturalSize(phone));
        } else {
            resize(naturalSize(phone * scale()));
            fit();
        }
    }

  protected:
    void resizeEvent(QResizeEvent* event) override {
        QGraphicsView::resizeEvent(event);
        fit();
    }

    bool event(QEvent* event) override {
        // The scene would move Tab between its items, of which there is one: Tab goes through
        // the phone window's widgets instead, as in a window of their own.
        if (event->type() == QEvent::KeyPress && isTabKey(static_cast<QKeyEvent*>(event))) {
            Window* phone = phoneWindow();
            if (!proxy_->hasFocus()) {
                proxy_->setFocus(Qt::TabFocusReason);
            }
            QWidget* focus = phone->focusWidget();
            QCoreApplication::sendEvent(focus != nullptr ? focus : phone, event);
            return true;
        }
        return QGraphicsView::event(event);
    }

    void focusInEvent(QFocusEvent* event) override {
        QGraphicsView::focusInEvent(event);
        if (!proxy_->hasFocus()) {
            proxy_->setFocus(event->reason());
        }
    }

  private:
    // The phone's size where the screen has room for it with a title bar, else the largest size
    // of its aspect that has.
    QSize naturalSize(const QSizeF& phone) const {
        const QSize room =
            screen()->availableGeometry().size() - QSize(kDecorationWidth, kDecorationHeight);
        const double scale =
            std::min({1.0, room.width() / phone.width(), room.height() / phone.height()});
        return (phone * scale).toSize().expandedTo(minimumSize());
    }

    void fit() {
        const QSizeF phone = proxy_->size();
        const double scale =
            std::min(viewport()->width() / phone.width(), viewport()->height() / phone.height());
        setSceneRect(proxy_->geometry());
        setTransform(QTransform::fromScale(scale, scale));
    }

    QGraphicsProxyWidget* proxy_ = nullptr;
};

namespace {

// Assistive technology walks the accessible objects down from each desktop window, and a graphics
// view lists none of the widgets it holds through proxies: the desktop window names the phone
// window as its one child, and the phone window names the desktop window as its parent.
class FrameAccessible : public QAccessibleWidget {
  public:
    FrameAccessible(QWidget* frame, Window* phone)
        : QAccessibleWidget(frame, QAccessible::Window), phone_(phone) {}
    int childCount() const override { return phone_ != nullptr ? 1 : 0; }
    QAccessibleInterface* child(int index) const override {
        return index == 0 && phone_ != nullptr ? QAccessible::queryAccessibleInterface(phone_)
                                               : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* child) const override {
        return child != nullptr && phone_ != nullptr && child->object() == phone_ ? 0 : -1;
    }

  private:
    QPointer<Window> phone_;
};

class PhoneWindowAccessible : public QAccessibleWidget {
  public:
    explicit PhoneWindowAccessible(Window* window) : QAccessibleWidget(window) {}
    QAccessibleInterface* parent() const override {
        QWidget* frame = static_cast<Window*>(widget())->desktopWindow();
        return frame != nullptr ? QAccessible::queryAccessibleInterface(frame)
                                : QAccessibleWidget::parent();
    }
};

QAccessibleInterface* accessibleFrames(const QString&, QObject* object) {
    if (auto* window = qobject_cast<Window*>(object)) {
        return new PhoneWindowAccessible(window);
    }
    if (auto* frame = dynamic_cast<WindowFrame*>(object)) {
        return new FrameAccessible(frame, frame->phoneWindow());
    }
    return nullptr;
}

}  // namespace

Window::Window() : View(nullptr) {
    static const bool accessible = (QAccessible::installFactory(accessibleFrames), true);
    Q_UNUSED(accessible)
    setWindowTitle(QCoreApplication::applicationName());
    setBackgroundColor(Qt::black);
    statusBar_ = new StatusBarStrip(this);
    Application* app = Application::sharedApplication();
    setFixedSize(Screen::sizeForOrientation(app->statusBarOrientation()));
    catchUpLayout();
    connect(app, &Application::statusBarChanged, this, &Window::relayout);
    // Sized, never placed: the window manager puts a new window where its title bar shows and
    // a second one does not hide the first.
    frame_ = std::make_unique<WindowFrame>(this);

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
    frame_.reset();
}

void Window::makeKeyAndVisible() {
    Application::sharedApplication()->setKeyWindow(this);
    show();
    frame_->show();
    frame_->raise();
    frame_->activateWindow();
}

QWidget* Window::desktopWindow() const {
    return frame_.get();
}

double Window::scaleFactor() const {
    return frame_->scale();
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
    if (frame_ != nullptr && !event->spontaneous()) {
        frame_->show();
    }
    if (root_ != nullptr && !root_->isVisible()) {
        root_->beginAppearance(true, false);
        root_->endAppearance(true, false);
    }
}

void Window::hideEvent(QHideEvent* event) {
    View::hideEvent(event);
    // Not while the frame lets go of it on the way out.
    if (frame_ != nullptr && !event->spontaneous()) {
        frame_->hide();
    }
}

void Window::changeEvent(QEvent* event) {
    View::changeEvent(event);
    if (event->type() == QEvent::WindowTitleChange && frame_ != nullptr) {
        frame_->setWindowTitle(windowTitle());  // the desktop shows this one's title
    }
}

void Window::relayout() {
    Application* app = Application::sharedApplication();
    const QSize size = Screen::sizeForOrientation(app->statusBarOrientation());
    if (size != this->size()) {
        setFixedSize(size);
        catchUpLayout();
        if (frame_ != nullptr) {
            frame_->phoneResized();
        }
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
