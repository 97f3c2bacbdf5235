#include "platform/ui/view.h"

#include <QApplication>
#include <QInputEvent>
#include <QPainter>

#include <cmath>

namespace platform {

namespace {

// One application-wide filter sees every press before its widget does, so that a view learns of
// presses on widgets it does not own (a web engine's render widget, a toolbar button).
class TouchWatcher : public QObject {
  public:
    static void install() {
        static TouchWatcher* watcher = nullptr;
        if (watcher == nullptr && qApp != nullptr) {
            watcher = new TouchWatcher(qApp);
            qApp->installEventFilter(watcher);
        }
    }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        const QEvent::Type type = event->type();
        if (type != QEvent::MouseButtonPress && type != QEvent::TouchBegin &&
            type != QEvent::MouseButtonDblClick && !isActivatingKey(event)) {
            return false;
        }
        auto* widget = qobject_cast<QWidget*>(watched);
        if (widget == nullptr) {
            return false;
        }
        QList<View*> chain;
        bool inView = false;
        for (QWidget* w = widget; w != nullptr; w = w->parentWidget()) {
            if (auto* view = qobject_cast<View*>(w)) {
                inView = true;
                if (!view->isUserInteractionEnabled()) {
                    chain.clear();  // nothing at or inside a non-interactive view is touched
                    continue;
                }
                chain.append(view);
            }
        }
        // The desktop window's view hears an input first and hands the phone window's widgets
        // one of the same time: only inputs that reach views count.
        if (!inView) {
            return false;
        }
        // An event that Qt passes on to the parent comes through here again: report it once.
        const auto* input = static_cast<QInputEvent*>(event);
        const bool sameInput = type == lastType_ && input->timestamp() == lastTimestamp_ &&
                               (event == lastEvent_ || lastTimestamp_ != 0);
        if (sameInput) {
            return false;
        }
        lastEvent_ = event;
        lastTimestamp_ = input->timestamp();
        lastType_ = type;

        for (View* view : chain) {
            view->touchReached(type);
        }
        return false;
    }

  private:
    using QObject::QObject;

    // Enter and Space press whatever has the keyboard focus, as a click would.
    static bool isActivatingKey(const QEvent* event) {
        if (event->type() != QEvent::KeyPress) {
            return false;
        }
        const auto* key = static_cast<const QKeyEvent*>(event);
        return !key->isAutoRepeat() && (key->key() == Qt::Key_Return ||
                                        key->key() == Qt::Key_Enter || key->key() == Qt::Key_Space);
    }

    const QEvent* lastEvent_ = nullptr;
    quint64 lastTimestamp_ = 0;
    QEvent::Type lastType_ = QEvent::None;
};

// Splits `delta` among the flexible parts in proportion to their sizes.
void share(int delta, bool flexA, double a, bool flexB, double b, bool flexC, double c, double& da,
           double& db, double& dc) {
    da = db = dc = 0;
    const int count = int(flexA) + int(flexB) + int(flexC);
    if (count == 0 || delta == 0) {
        return;
    }
    const double total = (flexA ? a : 0) + (flexB ? b : 0) + (flexC ? c : 0);
    if (total <= 0) {
        da = flexA ? double(delta) / count : 0;
        db = flexB ? double(delta) / count : 0;
        dc = flexC ? double(delta) / count : 0;
        return;
    }
    da = flexA ? delta * a / total : 0;
    db = flexB ? delta * b / total : 0;
    dc = flexC ? delta * c / total : 0;
}

}  // namespace

View::View(QWidget* parent) : QWidget(parent) {
    laidOutSize_ = size();
}

View::View(const QRect& frame, QWidget* parent) : QWidget(parent) {
    setGeometry(frame);
    laidOutSize_ = size();
}

View::~View() = default;

void View::setFrame(const QRect& frame) {
    setGeometry(frame);
    catchUpLayout();
}

void View::addSubview(QWidget* view) {
    if (view == nullptr || view == this) {
        return;
    }
    if (view->parentWidget() != this) {
        view->setParent(this);
    }
    view->raise();
    // Qt keeps a widget that was hidden on purpose hidden across a change of parent.
    const bool hiddenOnPurpose = view->testAttribute(Qt::WA_WState_ExplicitShowHide) &&
                                 view->testAttribute(Qt::WA_WState_Hidden);
    if (!hiddenOnPurpose) {
        view->show();
    }
}

void View::removeFromSuperview() {
    if (parentWidget() != nullptr) {
        setParent(nullptr);
    }
}

void View::setAutoresizingMask(int mask) {
    autoresizingMask_ = mask & 63;
}

void View::setUserInteractionEnabled(bool enabled) {
    userInteractionEnabled_ = enabled;
    setAttribute(Qt::WA_TransparentForMouseEvents, !enabled);
}

void View::setBackgroundColor(const QColor& color) {
    backgroundColor_ = color;
    setAttribute(Qt::WA_TranslucentBackground, color.isValid() && color.alpha() < 255);
    update();
}

void View::setOpaque(bool opaque) {
    opaque_ = opaque;
    setAttribute(Qt::WA_OpaquePaintEvent,
                 opaque && backgroundColor_.isValid() && backgroundColor_.alpha() == 255);
}

void View::setTouchHook(TouchHook hook) {
    touchHook_ = std::move(hook);
    TouchWatcher::install();
}

void View::watchTouches() {
    TouchWatcher::install();
}

void View::touchReached(QEvent::Type type) {
    if (touchHook_) {
        touchHook_(type);
    }
}

QRect View::autoresizedFrame(const QRect& frame, int mask, const QSize& from, const QSize& to) {
    double dl = 0, dw = 0, dr = 0, dt = 0, dh = 0, db = 0;
    share(to.width() - from.width(), mask & ViewAutoresizingFlexibleLeftMargin, frame.x(),
          mask & ViewAutoresizingFlexibleWidth, frame.width(),
          mask & ViewAutoresizingFlexibleRightMargin, from.width() - frame.x() - frame.width(), dl,
          dw, dr);
    share(to.height() - from.height(), mask & ViewAutoresizingFlexibleTopMargin, frame.y(),
          mask & ViewAutoresizingFlexibleHeight, frame.height(),
          mask & ViewAutoresizingFlexibleBottomMargin, from.height() - frame.y() - frame.height(),
          dt, dh, db);
    Q_UNUSED(dr);
    Q_UNUSED(db);
    const int x = int(std::lround(frame.x() + dl));
    const int y = int(std::lround(frame.y() + dt));
    const int w = std::max(0, int(std::lround(frame.width() + dw)));
    const int h = std::max(0, int(std::lround(frame.height() + dh)));
    return QRect(x, y, w, h);
}

void View::layoutSubviewsFrom(const QSize& oldSize) {
    if (!autoresizesSubviews_ || !oldSize.isValid() || oldSize == size()) {
        return;
    }
    for (QObject* child : children()) {
        auto* view = qobject_cast<View*>(child);
        if (view == nullptr || view->isWindow() || view->autoresizingMask() == 0) {
            continue;
        }
        view->setFrame(autoresizedFrame(view->frame(), view->autoresizingMask(), oldSize, size()));
    }
}

void View::catchUpLayout() {
    const QSize old = laidOutSize_;
    laidOutSize_ = size();
    layoutSubviewsFrom(old);
}

void View::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    catchUpLayout();
}

void View::paintEvent(QPaintEvent* event) {
    if (backgroundColor_.isValid() && backgroundColor_.alpha() > 0) {
        QPainter painter(this);
        painter.fillRect(event->rect(), backgroundColor_);
    }
}

}  // namespace platform
