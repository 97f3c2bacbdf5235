#include "platform/ui/viewcontroller.h"

#include "platform/runloop.h"
#include "platform/ui/application.h"
#include "platform/ui/screen.h"
#include "platform/ui/window.h"

#include <QApplication>
#include <QShortcut>
#include <QVariantAnimation>

#include <vector>

namespace platform {

namespace {

// One transition at a time in the process: a new presentation or dismissal first completes the
// one still sliding, so the callbacks of two transitions never interleave.
struct Transition {
    QPointer<QVariantAnimation> animation;
    std::function<void(double)> step;
    std::function<void()> end;
};
Transition running;

void finishRunningTransition() {
    if (!running.animation) {
        return;
    }
    QVariantAnimation* animation = running.animation;
    auto step = std::move(running.step);
    auto end = std::move(running.end);
    running = Transition{};
    animation->stop();
    animation->deleteLater();
    if (step) {
        step(1.0);
    }
    if (end) {
        end();
    }
}

void runTransition(bool animated, std::function<void(double)> step, std::function<void()> end) {
    finishRunningTransition();
    if (!animated || qApp == nullptr) {
        step(1.0);
        end();
        return;
    }
    auto* animation = new QVariantAnimation(qApp);
    animation->setDuration(int(ViewController::kTransitionSeconds * 1000));
    animation->setStartValue(0.0);
    animation->setEndValue(1.0);
    animation->setEasingCurve(QEasingCurve::OutCubic);
    running = Transition{animation, step, end};
    QObject::connect(animation, &QVariantAnimation::valueChanged,
                     [step](const QVariant& value) { step(value.toDouble()); });
    QObject::connect(animation, &QAbstractAnimation::finished, animation, [animation] {
        if (running.animation != animation) {
            return;
        }
        auto finalStep = std::move(running.step);
        auto end = std::move(running.end);
        running = Transition{};
        animation->deleteLater();
        finalStep(1.0);
        end();
    });
    step(0.0);
    animation->start();
}

// A screen presented over a window other than a phone Window keeps its size with the window; the
// first screen of a stack also takes Esc for the whole stack. A phone Window does both itself.
void followPlainWindow(ViewController* presenter, View* view, QWidget* window) {
    class SizeFollower : public QObject {
      public:
        SizeFollower(View* view, QWidget* window) : QObject(view), view_(view) {
            setObjectName(QStringLiteral("followsPlainWindow"));
            window->installEventFilter(this);
        }
        bool eventFilter(QObject* watched, QEvent* event) override {
            if (event->type() == QEvent::Resize && view_->parentWidget() == watched) {
                view_->setGeometry(static_cast<QWidget*>(watched)->rect());
            }
            return false;
        }

      private:
        View* view_;
    };
    // A screen presented again (perhaps over another window) drops what its last showing set up.
    const QString name = QStringLiteral("followsPlainWindow");
    qDeleteAll(view->findChildren<QObject*>(name, Qt::FindDirectChildrenOnly));
    new SizeFollower(view, window);
    if (presenter->presentingViewController() != nullptr) {
        return;
    }
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), view);
    escape->setContext(Qt::WindowShortcut);
    escape->setObjectName(name);
    QObject::connect(escape, &QShortcut::activated, presenter, [presenter] {
        ViewController* top = presenter;
        while (top->presentedViewController() != nullptr) {
            top = top->presentedViewController();
        }
        for (ViewController* c = top; c != nullptr && c != presenter;
             c = c->presentingViewController()) {
            if (c->escapePressed()) {
                return;
            }
        }
    });
}

}  // namespace

ViewController::ViewController() = default;

ViewController::~ViewController() {
    delete view_.data();
}

View* ViewController::view() {
    if (view_ == nullptr) {
        loadView();
        if (view_ == nullptr) {
            view_ = new View(Screen::applicationFrame());
        }
        viewDidLoad();
    }
    return view_;
}

void ViewController::setView(View* view) {
    if (view_ == view) {
        return;
    }
    delete view_.data();
    view_ = view;
}

void ViewController::loadView() {
    setView(new View(Screen::applicationFrame()));
}

void ViewController::didReceiveMemoryWarning() {
    if (view_ != nullptr && view_->parentWidget() == nullptr && !visible_) {
        delete view_.data();
        viewDidUnload();
    }
}

Window* ViewController::window() const {
    return view_ != nullptr ? qobject_cast<Window*>(view_->window()) : nullptr;
}

QWidget* ViewController::presentationWindow() const {
    if (view_ != nullptr && view_->window() != view_) {
        return view_->window();
    }
    Application* app = Application::sharedApplication();
    return app != nullptr ? app->keyWindow() : nullptr;
}

QWidget* AnchoredViewController::presentationWindow() const {
    // A banner in no window yet would get the screens inside itself: the key window takes them.
    if (anchor_ != nullptr && anchor_->window() != anchor_) {
        return anchor_->window();
    }
    return ViewController::presentationWindow();
}

bool AnchoredViewController::becomeFirstResponder() {
    // The focus goes back to where the user left it in the window, not to a view of ours.
    if (anchor_ != nullptr && anchor_->window() != anchor_) {
        auto* phone = qobject_cast<Window*>(anchor_->window());
        (phone != nullptr ? phone->desktopWindow() : anchor_->window())->activateWindow();
    }
    return true;
}

void ViewController::beginAppearance(bool appearing, bool animated) {
    visible_ = appearing;
    if (appearing) {
        viewWillAppear(animated);
    } else {
        viewWillDisappear(animated);
    }
}

void ViewController::endAppearance(bool appearing, bool animated) {
    appeared_ = appearing;
    if (appearing) {
        viewDidAppear(animated);
    } else {
        viewDidDisappear(animated);
    }
}

void ViewController::presentModalViewController(std::shared_ptr<ViewController> controller,
                                                bool animated) {
    finishRunningTransition();
    if (controller == nullptr || controller.get() == this || controller->presenting_ != nullptr) {
        return;
    }
    if (presented_ != nullptr) {
        ViewController* top = presented_.get();
        while (top->presented_ != nullptr) {
            top = top->presented_.get();
        }
        top->presentModalViewController(std::move(controller), animated);
        return;
    }
    QWidget* window = presentationWindow();
    presented_ = controller;
    controller->presenting_ = this;

    QPointer<View> view = controller->view();
    if (window != nullptr) {
        view->setParent(window);
        auto* phoneWindow = qobject_cast<Window*>(window);
        view->setFrame(phoneWindow != nullptr ? phoneWindow->bounds() : window->rect());
        if (phoneWindow == nullptr) {
            followPlainWindow(this, view, window);
        }
        view->raise();
        view->show();
    }
    beginAppearance(false, animated);
    controller->beginAppearance(true, animated);

    const bool slides = controller->modalTransitionStyle() == ModalTransitionStyleCoverVertical;
    QPointer<ViewController> self(this);
    std::weak_ptr<ViewController> weakPresented = controller;
    runTransition(
        animated,
        [view, slides](double t) {
            if (view != nullptr && slides && view->parentWidget() != nullptr) {
                const int height = view->parentWidget()->height();
                view->move(0, int((1.0 - t) * height));
            }
        },
        [self, weakPresented, animated] {
            if (auto presented = weakPresented.lock()) {
                presented->endAppearance(true, animated);
            }
            if (self != nullptr) {
                self->endAppearance(false, animated);
            }
        });
}

void ViewController::dismissModalViewControllerAnimated(bool animated) {
    finishRunningTransition();
    if (presented_ == nullptr) {
        if (presenting_ != nullptr) {
            presenting_->dismissModalViewControllerAnimated(animated);
        }
        return;
    }
    std::vector<std::shared_ptr<ViewController>> chain;
    for (std::shared_ptr<ViewController> c = presented_; c != nullptr; c = c->presented_) {
        chain.push_back(c);
    }
    std::shared_ptr<ViewController> top = chain.back();
    top->beginAppearance(false, animated);
    beginAppearance(true, animated);

    QPointer<View> topView = top->view_;
    const bool slides = top->modalTransitionStyle() == ModalTransitionStyleCoverVertical;
    QPointer<ViewController> self(this);
    runTransition(
        animated,
        [topView, slides](double t) {
            if (topView != nullptr && slides && topView->parentWidget() != nullptr && t < 1.0) {
                topView->move(0, int(t * topView->parentWidget()->height()));
            }
        },
        [self, chain, animated] {
            if (self != nullptr) {
                self->endAppearance(true, animated);
            }
            chain.back()->endAppearance(false, animated);
            // Links and views go only now, so that the callbacks above still see the stack.
            for (const auto& c : chain) {
                if (c->view_ != nullptr) {
                    c->view_->hide();
                    c->view_->setParent(nullptr);
                }
                c->presenting_ = nullptr;
                c->presented_.reset();
            }
            if (self != nullptr && self->presented_ == chain.front()) {
                self->presented_.reset();
            }
            // The presenter's hold ends on a later turn, never inside a caller's own method
            // (or with the presenter, if that goes first).
            if (self != nullptr) {
                performAfter(self, 0, [chain] {});
            }
        });
}

bool ViewController::shouldAutorotateToInterfaceOrientation(int orientation) {
    return orientation == InterfaceOrientationPortrait;
}

int ViewController::interfaceOrientation() const {
    Application* app = qApp != nullptr ? Application::sharedApplication() : nullptr;
    return app != nullptr ? app->statusBarOrientation() : int(InterfaceOrientationPortrait);
}

bool ViewController::becomeFirstResponder() {
    View* v = view();
    if (v->focusPolicy() == Qt::NoFocus) {
        v->setFocusPolicy(Qt::StrongFocus);
    }
    v->setFocus(Qt::OtherFocusReason);
    return true;
}

}  // namespace platform
